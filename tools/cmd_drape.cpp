// kivgeo drape: plan lines onto a surface.
#include "commands.h"
#include "drape.h"

#include <cstdio>

namespace kivcli {

namespace {

struct CKivDrapeArgs {
    std::string strIn;
    std::string strLines;
    std::string strOut;
};

int RunDrape(const CKivDrapeArgs& a)
{
    CheckSurfaceExtension(a.strIn, false);
    CheckLinesExtension(a.strLines);
    CheckLinesExtension(a.strOut);
    const CKivSurfaceData surf = LoadSurface(a.strIn);
    const CKivLineData lines = ReadLines(a.strLines);
    CKivStopwatch clock;
    TriMesh::CKivMeshData mesh;
    BuildMesh(surf, mesh);
    CKivLineData out;
    out.info = lines.info;
    out.info.vecCoordSys = surf.info.vecCoordSys;
    out.info.bDepth = surf.info.bDepth;
    DrapeLines(mesh, lines.vecLine, out.vecLine);
    if (out.vecLine.empty()) {
        throw CKivIoError(a.strLines, 0, "no line crosses the surface " + a.strIn);
    }
    WriteLines(a.strOut, out);
    std::size_t nVerts = 0;
    for (const CKivPolyLine& pl : out.vecLine) {
        nVerts += pl.NumVerts();
    }
    std::printf("drape: %zu lines in, %zu draped pieces (%zu vertices) in %.3f s\n", lines.vecLine.size(),
                out.vecLine.size(), nVerts, clock.Seconds());
    return 0;
}

} // namespace

void AddDrapeCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivDrapeArgs>();
    CLI::App* sub = app.add_subcommand("drape", "Drape plan lines onto a surface");
    sub->add_option("surface", args->strIn, "surface file (.ts .obj .off .ply .stl)")->required();
    sub->add_option("lines", args->strLines, "plan lines (.pl .geojson .txt); their z is ignored")->required();
    sub->add_option("-o,--output", args->strOut, "draped lines (.pl .geojson .txt)")->required();
    SetExample(sub, "kivgeo drape top.ts data/section.pl -o section_on_top.pl");
    sub->callback([args, &run]() { run = [args]() { return RunDrape(*args); }; });
}

} // namespace kivcli
