# Installs the built library into a scratch prefix and proves the install:
#  - exactly the public headers are installed (no internal header leaks);
#  - the library exports the public interface and none of the internal
#    helpers (symbols are hidden by default);
#  - tests/consumer configures, builds and runs against it with
#    find_package(kivgeo);
#  - the same program builds and runs with the flags of the pkg-config file.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${KIVGEO_BINARY_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()

file(GLOB_RECURSE installed RELATIVE ${prefix}/include ${prefix}/include/*)
file(GLOB_RECURSE public RELATIVE ${KIVGEO_SOURCE_DIR}/include ${KIVGEO_SOURCE_DIR}/include/kivgeo/*.h)
list(SORT installed)
list(SORT public)
if(NOT installed STREQUAL public)
  message(FATAL_ERROR "installed headers differ from include/kivgeo/:\n  installed: ${installed}\n  public: ${public}")
endif()

file(GLOB_RECURSE libs ${prefix}/*/libkivgeo.so)
list(LENGTH libs nlibs)
if(NOT nlibs EQUAL 1)
  message(FATAL_ERROR "expected one installed libkivgeo.so, found: ${libs}")
endif()
# Versioned: the soname link libkivgeo.so.<major> is installed beside it.
get_filename_component(libdir ${libs} DIRECTORY)
file(GLOB sonames ${libdir}/libkivgeo.so.[0-9]*)
list(LENGTH sonames nsonames)
if(nsonames LESS 2)
  message(FATAL_ERROR "libkivgeo.so is not versioned (found: ${sonames})")
endif()
execute_process(COMMAND ${NM} -D -C --defined-only ${libs}
  OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "${NM} failed on ${libs}")
endif()
foreach(name "CompDouble(double, double)" "JH_GetInterPoint_LineSection(" "IsPtInPolygon("
             "CKivSpaceMath::Test_Intersect_Tri_And_Tri_3D(" "CKivSeg3d::LinkSeg(" "CKivGeoConvex::Convex(")
  string(FIND "${symbols}" " ${name}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "not exported: ${name}")
  endif()
endforeach()
string(REGEX MATCH
  "\n[0-9a-f]+ [A-Za-z] (SpaceMathInline::|KivLU::|[(]anonymous namespace[)]::|IsRangeOverlap\\(|GetLineAngle2D\\(|GetPtSideOfLine2D\\(|IsPtInCircumCircle2D\\(|IsSegCrossSeg2D\\(|GetPtPosInTri2D\\(|EarTriangulatePolygon\\(|IsPolygonDiagonal\\()[^\n]*"
  leak "\n${symbols}")
if(leak)
  message(FATAL_ERROR "internal symbol exported:${leak}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE_DIR} -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer configure failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer build failed: ${rc}")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer run failed: ${rc}")
endif()

if(NOT PKG_CONFIG)
  message(FATAL_ERROR "pkg-config not found; it is needed to check kivgeo.pc")
endif()
file(GLOB_RECURSE pcs ${prefix}/*/kivgeo.pc)
list(LENGTH pcs npcs)
if(NOT npcs EQUAL 1)
  message(FATAL_ERROR "expected one installed kivgeo.pc, found: ${pcs}")
endif()
get_filename_component(pcdir ${pcs} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kivgeo
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "pkg-config --cflags --libs kivgeo failed")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND ${CXX} ${CONSUMER_SOURCE_DIR}/main.cpp ${flags} -Wl,-rpath,${libdir}
  -o ${WORK_DIR}/consumer_pc RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build with the pkg-config flags (${flags}) failed")
endif()
execute_process(COMMAND ${WORK_DIR}/consumer_pc RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "program built with the pkg-config flags failed: ${rc}")
endif()
