// kivgeo outline: the boundary polylines of a surface.
#include "commands.h"

#include <kivgeo/mesh_query.h>

#include <cmath>
#include <cstdio>

namespace kivcli {

namespace {

struct CKivOutlineArgs {
    std::string strIn;
    std::string strOut;
};

int RunOutline(const CKivOutlineArgs& a)
{
    CheckSurfaceExtension(a.strIn, false);
    CheckLinesExtension(a.strOut);
    const CKivSurfaceData surf = LoadSurface(a.strIn);
    CKivStopwatch clock;
    TriMesh::CKivMeshData mesh;
    BuildMesh(surf, mesh);
    TriMesh::CKivMeshQuery query(mesh);
    CKivLineData out;
    out.info.strName = (surf.info.strName.empty() ? std::string("surface") : surf.info.strName) + "_outline";
    out.info.vecCoordSys = surf.info.vecCoordSys;
    out.info.bDepth = surf.info.bDepth;
    query.GetOutline(out.vecLine);
    if (out.vecLine.empty()) {
        throw CKivIoError(a.strIn, 0, "the surface has no boundary (it is closed)");
    }
    WriteLines(a.strOut, out);
    std::printf("outline: %zu polylines in %.3f s\n", out.vecLine.size(), clock.Seconds());
    for (std::size_t i = 0; i < out.vecLine.size() && i < 10; ++i) {
        const CKivPolyLine& pl = out.vecLine[i];
        std::printf("  %zu: %u vertices, %s, plan area %.3f\n", i + 1, pl.NumVerts(),
                    pl.IsClosed() ? "closed" : "open", std::fabs(pl.GetArea()));
    }
    return 0;
}

} // namespace

void AddOutlineCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivOutlineArgs>();
    CLI::App* sub = app.add_subcommand("outline", "Boundary polylines of a surface (outer boundary and holes)");
    sub->add_option("surface", args->strIn, "surface file (.ts .obj .off .ply .stl)")->required();
    sub->add_option("-o,--output", args->strOut, "lines (.pl .geojson .txt)")->required();
    SetExample(sub, "kivgeo outline top.ts -o top_outline.geojson");
    sub->callback([args, &run]() { run = [args]() { return RunOutline(*args); }; });
}

} // namespace kivcli
