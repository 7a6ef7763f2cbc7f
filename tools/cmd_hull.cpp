// kivgeo hull: the plan convex hull of scattered points.
#include "commands.h"
#include "io_error.h"

#include <kivgeo/geo_convex.h>

#include <cmath>
#include <cstdio>

namespace kivcli {

namespace {

struct CKivHullArgs {
    std::string strIn;
    std::string strOut;
};

int RunHull(const CKivHullArgs& a)
{
    CheckPointsExtension(a.strIn);
    if (!a.strOut.empty()) {
        CheckLinesExtension(a.strOut);
    }
    const std::vector<CKivPoint3d> pts = LoadPoints(a.strIn);
    std::vector<CKivPoint3d> hull;
    CKivGeoConvex::Convex(pts, hull);
    if (hull.size() < 3) {
        throw CKivIoError(a.strIn, 0, "expected points spanning an area; all lie on one line or point");
    }
    CKivLineData out;
    out.info.strName = "convex_hull";
    CKivPolyLine pl;
    pl.SetVertex(hull);
    pl.SetClosed(true);
    out.vecLine.push_back(pl);
    std::printf("hull: %zu of %zu points, plan area %.3f, perimeter %.3f\n", hull.size(), pts.size(),
                std::fabs(pl.GetArea()), pl.GetLength());
    if (!a.strOut.empty()) {
        WriteLines(a.strOut, out);
    }
    return 0;
}

} // namespace

void AddHullCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivHullArgs>();
    CLI::App* sub = app.add_subcommand("hull", "Plan convex hull of points");
    sub->add_option("points", args->strIn, "points (.xyz .csv .pts)")->required();
    sub->add_option("-o,--output", args->strOut, "hull as a closed line (.pl .geojson .txt)");
    SetExample(sub, "kivgeo hull data/boreholes.xyz -o hull.geojson");
    sub->callback([args, &run]() { run = [args]() { return RunHull(*args); }; });
}

} // namespace kivcli
