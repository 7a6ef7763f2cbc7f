// kivgeo interp: scattered points to a regular grid by spline, radial basis
// or inverse distance.
#include "commands.h"
#include "grid.h"
#include "io_error.h"
#include "progress.h"

#include <kivgeo/geo_convex.h>
#include <kivgeo/match_chazhi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace kivcli {

namespace {

// The frame the base points are handed to the interpolator in. Moving the
// origin to the points' centre keeps the spline's trend terms well
// conditioned at map coordinates and changes no distance.
//
// Inverse distance also needs a scale: its weights are 1 / r^2 with an extra
// 1 in the denominator, so in metres (weights far below 1) every height is
// pulled toward zero. Plan coordinates are scaled so that the typical
// spacing of the points becomes 0.1 (weights near 100), and heights are taken
// about their mean, so the extra 1 only pulls slightly toward the mean. The
// interpolator's coincidence radius (1e-3 in these units) is then a
// hundredth of the typical spacing.
struct CKivLocalFrame {
    double dX0 = 0.0, dY0 = 0.0, dZ0 = 0.0, dScale = 1.0;
    CKivPoint3d ToLocal(const CKivPoint3d& p) const
    {
        return CKivPoint3d((p.x - dX0) * dScale, (p.y - dY0) * dScale, p.z - dZ0);
    }
    double ZFromLocal(double z) const { return z + dZ0; }
};

CKivLocalFrame MakeLocalFrame(const std::vector<CKivPoint3d>& pts, bool bIdw)
{
    CKivLocalFrame f;
    for (const CKivPoint3d& p : pts) {
        f.dX0 += p.x, f.dY0 += p.y, f.dZ0 += p.z;
    }
    const double n = static_cast<double>(pts.size());
    f.dX0 /= n, f.dY0 /= n, f.dZ0 /= n;
    if (!bIdw) {
        f.dZ0 = 0.0;
        return f;
    }
    // Median nearest-neighbour distance over a sample of the points.
    std::vector<double> nearest;
    const std::size_t stride = std::max<std::size_t>(1, pts.size() / 200);
    for (std::size_t i = 0; i < pts.size(); i += stride) {
        double best = HUGE_VAL;
        for (std::size_t k = 0; k < pts.size(); ++k) {
            const double d2 =
                (pts[k].x - pts[i].x) * (pts[k].x - pts[i].x) + (pts[k].y - pts[i].y) * (pts[k].y - pts[i].y);
            if (k != i && d2 > 0.0) {
                best = std::min(best, d2);
            }
        }
        if (best < HUGE_VAL) {
            nearest.push_back(std::sqrt(best));
        }
    }
    if (!nearest.empty()) {
        std::nth_element(nearest.begin(), nearest.begin() + nearest.size() / 2, nearest.end());
        f.dScale = 0.1 / nearest[nearest.size() / 2];
    }
    return f;
}

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
    const CKivLocalFrame frame = MakeLocalFrame(pts, type == CKivMatchChaZhi::eInverseDistance);
    std::vector<CKivPoint3d> local(pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) {
        local[i] = frame.ToLocal(pts[i]);
    }
    CKivMatchChaZhi interp;
    {
        CKivProgress bar("solving");
        bar.Update(0.0);
        interp.SetBase(type, local);
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
                CKivPoint3d q = frame.ToLocal(p);
                interp.ChaZhiPt(q);
                if (std::isfinite(q.z)) {
                    grid.At(c, r) = frame.ZFromLocal(q.z);
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
