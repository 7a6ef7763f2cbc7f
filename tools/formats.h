// File formats of the command line, chosen by extension.
//
//   points    .xyz .csv .pts       x y z per row (whitespace, comma or
//                                  semicolon separated), '#' comments, an
//                                  optional header row naming the columns
//   lines     .pl                  GOCAD PLine
//             .geojson .json       LineString, MultiLineString, Polygon,
//                                  MultiPolygon (in Features, collections)
//             .txt                 blocks of x y [z] rows separated by blank
//                                  lines; a block ending on its first point
//                                  is closed
//   surfaces  .ts                  GOCAD TSurf (read and write)
//             .obj .off            (read and write)
//             .ply                 ASCII and binary (read and write)
//             .stl                 ASCII and binary (read and write)
//             .vtk                 legacy polydata (write)
//
// Readers throw CKivIoError naming the file and line of the first problem;
// writers go through CKivOutputFile, so a failed write leaves no file.
#ifndef KIVGEO_TOOLS_FORMATS_H
#define KIVGEO_TOOLS_FORMATS_H

#include <kivgeo/polyline.h>
#include <kivgeo/tri3d.h>

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kivcli {

// What a GOCAD object carries besides its geometry, kept for a round trip.
struct CKivGocadInfo {
    std::string strName;
    // Other HEADER lines (key:value), verbatim.
    std::vector<std::string> vecHeader;
    // The lines between GOCAD_ORIGINAL_COORDINATE_SYSTEM and
    // END_ORIGINAL_COORDINATE_SYSTEM, verbatim.
    std::vector<std::string> vecCoordSys;
    // ZPOSITIVE Depth: the file's z grows downward. In memory z is always an
    // elevation; readers and writers negate.
    bool bDepth = false;
};

// An indexed triangle surface. Triangles index vecPt; vecPartStart holds the
// first triangle of each part (TSurf TFACE), always starting with 0.
struct CKivSurfaceData {
    CKivGocadInfo info;
    std::vector<CKivPoint3d> vecPt;
    std::vector<std::array<int, 3>> vecTri;
    std::vector<std::size_t> vecPartStart;
};

struct CKivLineData {
    CKivGocadInfo info;
    std::vector<CKivPolyLine> vecLine;
};

struct CKivWriteOptions {
    // PLY and STL: binary instead of text.
    bool bBinary = false;
};

using CKivProgressFn = std::function<void(double)>;

// Points.
std::vector<CKivPoint3d> ReadPoints(const std::string& path, const CKivProgressFn& progress = nullptr);
void WritePoints(const std::string& path, const std::vector<CKivPoint3d>& pts);

// Lines.
CKivLineData ReadLines(const std::string& path);
void WriteLines(const std::string& path, const CKivLineData& lines);

// Surfaces.
CKivSurfaceData ReadSurface(const std::string& path, const CKivProgressFn& progress = nullptr);
void WriteSurface(const std::string& path, const CKivSurfaceData& surf, const CKivWriteOptions& opt = {});

// The extension families, for argument checks before any work is done;
// each throws CKivIoError for an extension the family does not know.
void CheckPointsExtension(const std::string& path);
void CheckLinesExtension(const std::string& path);
void CheckSurfaceExtension(const std::string& path, bool bWrite);

// Triangle soup <-> indexed surface. Indexing merges corners with exactly
// equal coordinates, keeping first-seen order.
void SurfaceToTris(const CKivSurfaceData& surf, std::vector<CKivTri3d>& tris);
CKivSurfaceData SurfaceFromTris(const std::vector<CKivTri3d>& tris);

// Shortest text that reads back as the same double.
void AppendNumber(std::string& out, double v);

} // namespace kivcli

#endif
