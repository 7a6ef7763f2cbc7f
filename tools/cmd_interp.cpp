// kivgeo interp: scattered points to a regular grid by spline, radial basis
// or inverse distance.
#include "commands.h"
#include "grid.h"
#include "io_error.h"
#include "progress.h"

#include <kivgeo/geo_convex.h>
#include <kivgeo/match_chazhi.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace kivcli {

namespace {

struct CKivInterpArgs {
    std::string strIn;
    std::string strOut;
    std::string strMethod = "spline";
    double dStep = 0.0;
    std::vector<double> vecBounds;
    double dNoData = -9999.0;
    bool bHull = false;
};

int RunInterp(const CKivInterpArgs& a)
{
    CheckPointsExtension(a.strIn);
    CheckGridExtension(a.strOut);
    CKivMatchChaZhi::InterPolationType type = CKivMatchChaZhi::eSpline;
    if (a.strMethod == "rbf") {
        type = CKivMatchChaZhi::eRadialBasis;
    } else if (a.strMethod == "idw") {
        type = CKivMatchChaZhi::eInverseDistance;
    }
    const std::vector<CKivPoint3d> pts = LoadPoints(a.strIn);
    // The spline and the radial basis solve a dense system of one row per
    // point: memory grows with the square of the count.
    if (type != CKivMatchChaZhi::eInverseDistance && pts.size() > 20000) {
        throw CKivIoError(a.strIn, 0,
                          std::to_string(pts.size()) +
                              " points are too many for a dense spline or radial basis system "
                              "(at most 20000); use --method idw");
    }
    double xmin = pts[0].x, ymin = pts[0].y, xmax = pts[0].x, ymax = pts[0].y;
    for (const CKivPoint3d& p : pts) {
        xmin = std::min(xmin, p.x), xmax = std::max(xmax, p.x);
        ymin = std::min(ymin, p.y), ymax = std::max(ymax, p.y);
    }
    if (!a.vecBounds.empty()) {
        xmin = a.vecBounds[0], ymin = a.vecBounds[1], xmax = a.vecBounds[2], ymax = a.vecBounds[3];
    }
    CKivGrid grid = MakeGrid(xmin, ymin, xmax, ymax, a.dStep);

    CKivPolyLine hull;
    if (a.bHull) {
        std::vector<CKivPoint3d> h;
        CKivGeoConvex::Convex(pts, h);
        hull.SetVertex(h);
        hull.SetClosed(true);
    }

    CKivStopwatch clock;
    CKivMatchChaZhi interp;
    {
        CKivProgress bar("solving");
        bar.Update(0.0);
        interp.SetBase(type, pts);
    }
    const double tSolve = clock.Seconds();
    std::size_t nValues = 0;
    {
        CKivProgress bar("gridding");
        for (int r = 0; r < grid.nRows; ++r) {
            for (int c = 0; c < grid.nCols; ++c) {
                CKivPoint3d p(grid.CellX(c), grid.CellY(r), std::numeric_limits<double>::quiet_NaN());
                int where = 1;
                if (a.bHull && hull.NumVerts() >= 3) {
                    hull.HitTest(p, where);
                }
                if (where == 0) {
                    continue;
                }
                interp.ChaZhiPt(p);
                if (std::isfinite(p.z)) {
                    grid.At(c, r) = p.z;
                    ++nValues;
                }
            }
            bar.Update(static_cast<double>(r + 1) / grid.nRows);
        }
    }
    if (nValues == 0 && !a.bHull) {
        throw CKivIoError(a.strIn, 0, "the interpolation has no solution for these points (coincident points?)");
    }
    WriteGrid(a.strOut, grid, a.dNoData);
    std::printf("interp %s: %zu points, %d x %d cells (%zu with values), solve %.3f s, total %.3f s\n",
                a.strMethod.c_str(), pts.size(), grid.nCols, grid.nRows, nValues, tSolve, clock.Seconds());
    return 0;
}

} // namespace

void AddInterpCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivInterpArgs>();
    CLI::App* sub =
        app.add_subcommand("interp", "Scattered points to a grid (spline, radial basis, inverse distance)");
    sub->add_option("points", args->strIn, "points (.xyz .csv .pts)")->required();
    sub->add_option("-o,--output", args->strOut, "grid (.asc, or .xyz/.csv rows)")->required();
    sub->add_option("-m,--method", args->strMethod, "spline, rbf or idw")
        ->check(CLI::IsMember({"spline", "rbf", "idw"}))
        ->capture_default_str();
    sub->add_option("-s,--step", args->dStep, "cell size in map units")->required()->check(CLI::PositiveNumber);
    sub->add_option("--bounds", args->vecBounds, "xmin ymin xmax ymax (default: extent of the points)")
        ->expected(4);
    sub->add_option("--nodata", args->dNoData, "value of cells without a height")->capture_default_str();
    sub->add_flag("--hull", args->bHull, "leave cells outside the points' convex hull without a value");
    SetExample(sub, "kivgeo interp data/boreholes.xyz -m idw -s 25 --hull -o top.asc");
    sub->callback([args, &run]() { run = [args]() { return RunInterp(*args); }; });
}

} // namespace kivcli
