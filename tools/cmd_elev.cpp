// kivgeo elev: elevations of a surface at given points or on a grid.
#include "commands.h"
#include "grid.h"
#include "progress.h"
#include "text_reader.h"

#include <kivgeo/mesh_query.h>

#include <cmath>
#include <cstdio>

namespace kivcli {

namespace {

struct CKivElevArgs {
    std::string strIn;
    std::string strOut;
    std::string strAt;
    double dStep = 0.0;
    std::vector<double> vecBounds;
    double dNoData = -9999.0;
};

int RunElev(const CKivElevArgs& a)
{
    CheckSurfaceExtension(a.strIn, false);
    if (a.strAt.empty() == (a.dStep <= 0.0)) {
        throw std::runtime_error("elev: give either --at POINTS or --step D");
    }
    if (!a.strAt.empty()) {
        CheckPointsExtension(a.strAt);
        CheckPointsExtension(a.strOut);
    } else {
        CheckGridExtension(a.strOut);
    }
    const CKivSurfaceData surf = LoadSurface(a.strIn);
    CKivStopwatch clock;
    TriMesh::CKivMeshData mesh;
    BuildMesh(surf, mesh);
    const TriMesh::CKivMeshQuery query(mesh);
    std::size_t nHits = 0, nCells = 0;

    if (!a.strAt.empty()) {
        std::vector<CKivPoint3d> pts = LoadPoints(a.strAt);
        CKivProgress bar("querying");
        for (std::size_t i = 0; i < pts.size(); ++i) {
            double z = a.dNoData;
            nHits += query.GetMapPoint(pts[i].x, pts[i].y, z) ? 1 : 0;
            pts[i].z = z;
            if ((i & 0xfff) == 0) {
                bar.Update(static_cast<double>(i) / pts.size());
            }
        }
        nCells = pts.size();
        WritePoints(a.strOut, pts);
    } else {
        const CKivPoint3d lo = mesh.GetMinLimit(), hi = mesh.GetMaxLimit();
        CKivGrid grid = a.vecBounds.empty()
                            ? MakeGrid(lo.x, lo.y, hi.x, hi.y, a.dStep)
                            : MakeGrid(a.vecBounds[0], a.vecBounds[1], a.vecBounds[2], a.vecBounds[3], a.dStep);
        CKivProgress bar("gridding");
        for (int r = 0; r < grid.nRows; ++r) {
            for (int c = 0; c < grid.nCols; ++c) {
                double z;
                if (query.GetMapPoint(grid.CellX(c), grid.CellY(r), z)) {
                    grid.At(c, r) = z;
                    ++nHits;
                }
            }
            bar.Update(static_cast<double>(r + 1) / grid.nRows);
        }
        nCells = grid.vecZ.size();
        WriteGrid(a.strOut, grid, a.dNoData);
    }
    std::printf("elev: %zu of %zu positions on the surface (others written as %g) in %.3f s\n", nHits, nCells,
                a.dNoData, clock.Seconds());
    return 0;
}

} // namespace

void AddElevCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivElevArgs>();
    CLI::App* sub = app.add_subcommand("elev", "Elevations of a surface at points or on a regular grid");
    sub->add_option("surface", args->strIn, "surface file (.ts .obj .off .ply .stl)")->required();
    sub->add_option("-o,--output", args->strOut, "points (.xyz .csv) with --at, grid (.asc .xyz .csv) with --step")
        ->required();
    sub->add_option("--at", args->strAt, "points whose x y are looked up (.xyz .csv .pts)");
    sub->add_option("-s,--step", args->dStep, "grid cell size")->check(CLI::PositiveNumber);
    sub->add_option("--bounds", args->vecBounds, "xmin ymin xmax ymax (default: the surface's extent)")
        ->expected(4);
    sub->add_option("--nodata", args->dNoData, "value written off the surface")->capture_default_str();
    SetExample(sub, "kivgeo elev top.ts -s 10 -o top.asc");
    sub->callback([args, &run]() { run = [args]() { return RunElev(*args); }; });
}

} // namespace kivcli
