// kivgeo demo: the main job on the bundled sample. Builds the stratum surface
// from borehole tops, an outcrop line, a fault trace, a hole and the model
// outline; queries it and drapes a section line on it and on a second
// surface; writes every result into one folder, draws the map and prints a
// summary with counts and timings.
#include "commands.h"
#include "drape.h"
#include "grid.h"
#include "output_file.h"
#include "render.h"
#include "surface_stats.h"
#include "tin_build.h"

#include <kivgeo/geo_convex.h>
#include <kivgeo/match_chazhi.h>
#include <kivgeo/mesh_query.h>

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>

namespace kivcli {

namespace {

struct CKivDemoArgs {
    std::string strData = "data";
    std::string strOut = "kivgeo_demo";
};

void MakeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
        throw CKivIoError(path, 0, "cannot create the output folder");
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        throw CKivIoError(path, 0, "expected a folder");
    }
}

// Heights along a plan line every step, as distance,x,y,z rows; no row where
// the line leaves the surface.
std::size_t WriteProfile(const std::string& path, const TriMesh::CKivMeshQuery& query, const CKivPolyLine& line,
                         double step)
{
    CKivOutputFile file(path);
    std::string out = "distance,x,y,z\n";
    std::size_t rows = 0;
    double along = 0.0;
    CKivPoint3d a, b;
    for (unsigned i = 0; i + 1 < line.NumVerts(); ++i) {
        line.GetVertex(i, a);
        line.GetVertex(i + 1, b);
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        const int n = std::max(1, static_cast<int>(std::ceil(len / step)));
        for (int k = (i == 0 ? 0 : 1); k <= n; ++k) {
            const double f = static_cast<double>(k) / n;
            const double x = a.x + (b.x - a.x) * f, y = a.y + (b.y - a.y) * f;
            double z;
            if (query.GetMapPoint(x, y, z)) {
                AppendNumber(out, along + len * f);
                out += ',';
                AppendNumber(out, x);
                out += ',';
                AppendNumber(out, y);
                out += ',';
                AppendNumber(out, z);
                out += '\n';
                ++rows;
            }
        }
        along += len;
    }
    file.Stream() << out;
    file.Commit();
    return rows;
}

int RunDemo(const CKivDemoArgs& a)
{
    const std::string in = a.strData + "/";
    const std::string out = a.strOut + "/";
    CKivStopwatch total;
    std::vector<std::pair<std::string, double>> timings;
    auto lap = [&timings](const char* what, const CKivStopwatch& sw) { timings.emplace_back(what, sw.Seconds()); };

    // Everything is read before anything is written.
    CKivStopwatch sw;
    CKivTinInput tinIn;
    tinIn.strPoints = in + "boreholes.xyz";
    tinIn.vecConstraints = {in + "outcrop.pl", in + "fault.pl"};
    tinIn.vecHoles = {in + "hole.txt"};
    tinIn.strOutline = in + "outline.geojson";
    const CKivLineData section = ReadLines(in + "section.pl");
    const CKivLineData fault = ReadLines(in + "fault.pl");
    const CKivLineData outcrop = ReadLines(in + "outcrop.pl");
    const CKivSurfaceData base = LoadSurface(in + "base.ts");
    const std::vector<CKivPoint3d> boreholes = LoadPoints(tinIn.strPoints);
    lap("read sample", sw);
    MakeFolder(a.strOut);

    // 1. The stratum surface.
    CKivTinResult tin = BuildTin(tinIn);
    timings.emplace_back("triangulate", tin.dSeconds);
    tin.surf.info.strName = "stratum_top";
    tin.surf.info.vecCoordSys = base.info.vecCoordSys;
    sw = CKivStopwatch();
    WriteSurface(out + "stratum_top.ts", tin.surf);
    WriteSurface(out + "stratum_top.vtk", tin.surf);
    lap("write surface", sw);
    const CKivSurfaceStats stats = ComputeStats(tin.surf);

    // 2. Queries: the outline, heights on a grid and at the boreholes,
    // the section draped on both surfaces and its profile.
    sw = CKivStopwatch();
    TriMesh::CKivMeshData mesh, baseMesh;
    BuildMesh(tin.surf, mesh);
    BuildMesh(base, baseMesh);
    TriMesh::CKivMeshQuery query(mesh);
    CKivLineData outline;
    outline.info.strName = "stratum_top_outline";
    outline.info.vecCoordSys = base.info.vecCoordSys;
    query.GetOutline(outline.vecLine);
    WriteLines(out + "stratum_top_outline.pl", outline);
    lap("outline", sw);

    sw = CKivStopwatch();
    const CKivPoint3d lo = mesh.GetMinLimit(), hi = mesh.GetMaxLimit();
    CKivGrid grid = MakeGrid(std::floor(lo.x / 25) * 25, std::floor(lo.y / 25) * 25, hi.x, hi.y, 25.0);
    std::size_t nOnSurface = 0;
    for (int r = 0; r < grid.nRows; ++r) {
        for (int c = 0; c < grid.nCols; ++c) {
            double z;
            if (query.GetMapPoint(grid.CellX(c), grid.CellY(r), z)) {
                grid.At(c, r) = z;
                ++nOnSurface;
            }
        }
    }
    WriteGrid(out + "stratum_top_25m.asc", grid, -9999.0);
    lap("elevation grid", sw);

    sw = CKivStopwatch();
    CKivLineData draped, drapedBase;
    draped.info.strName = "section_on_stratum_top";
    drapedBase.info.strName = "section_on_base";
    draped.info.vecCoordSys = drapedBase.info.vecCoordSys = base.info.vecCoordSys;
    DrapeLines(mesh, section.vecLine, draped.vecLine);
    DrapeLines(baseMesh, section.vecLine, drapedBase.vecLine);
    if (draped.vecLine.empty() || drapedBase.vecLine.empty()) {
        throw CKivIoError(in + "section.pl", 0, "expected the section line to cross both surfaces");
    }
    WriteLines(out + "section_on_top.pl", draped);
    WriteLines(out + "section_on_base.pl", drapedBase);
    const std::size_t nProfile = WriteProfile(out + "section_profile.csv", query, section.vecLine[0], 10.0);
    lap("drape section", sw);

    // Thickness between the two surfaces at the boreholes.
    sw = CKivStopwatch();
    TriMesh::CKivMeshQuery baseQuery(baseMesh);
    double thickMin = HUGE_VAL, thickMax = -HUGE_VAL, thickSum = 0.0;
    std::size_t nThick = 0;
    std::vector<CKivPoint3d> thickness;
    for (const CKivPoint3d& p : boreholes) {
        double top, bottom;
        if (query.GetMapPoint(p.x, p.y, top) && baseQuery.GetMapPoint(p.x, p.y, bottom)) {
            const double t = top - bottom;
            thickness.emplace_back(p.x, p.y, t);
            thickMin = std::min(thickMin, t), thickMax = std::max(thickMax, t), thickSum += t;
            ++nThick;
        }
    }
    WritePoints(out + "thickness_at_boreholes.xyz", thickness);
    lap("thickness", sw);

    // 3. The same tops gridded by inverse distance, and their hull.
    sw = CKivStopwatch();
    CKivMatchChaZhi idw;
    idw.SetBase(CKivMatchChaZhi::eInverseDistance, boreholes);
    CKivGrid idwGrid = MakeGrid(grid.dX0, grid.dY0, hi.x, hi.y, 50.0);
    for (int r = 0; r < idwGrid.nRows; ++r) {
        for (int c = 0; c < idwGrid.nCols; ++c) {
            CKivPoint3d p(idwGrid.CellX(c), idwGrid.CellY(r), std::numeric_limits<double>::quiet_NaN());
            idw.ChaZhiPt(p);
            idwGrid.At(c, r) = p.z;
        }
    }
    WriteGrid(out + "boreholes_idw_50m.asc", idwGrid, -9999.0);
    std::vector<CKivPoint3d> hullPts;
    CKivGeoConvex::Convex(boreholes, hullPts);
    CKivLineData hull;
    hull.info.strName = "borehole_hull";
    CKivPolyLine hullLine;
    hullLine.SetVertex(hullPts);
    hullLine.SetClosed(true);
    hull.vecLine.push_back(hullLine);
    WriteLines(out + "borehole_hull.geojson", hull);
    lap("interpolate, hull", sw);

    // 4. The map.
    sw = CKivStopwatch();
    CKivRenderOptions opt;
    opt.strTitle = "Stratum top: " + std::to_string(tin.surf.vecTri.size()) + " triangles, contours every 10 m";
    opt.dContour = 10.0;
    opt.vecLineGroups = {fault.vecLine, outcrop.vecLine, section.vecLine};
    opt.vecLineLabels = {"fault", "outcrop", "section"};
    RenderSurface(out + "map.png", tin.surf, opt);
    RenderSurface(out + "map.svg", tin.surf, opt);
    lap("render map", sw);

    std::printf("kivgeo demo: %s -> %s\n", a.strData.c_str(), a.strOut.c_str());
    std::printf("  input      %zu borehole tops, %zu constraint lines, %zu hole, outline\n", tin.nInputPoints,
                tin.nConstraintLines, tin.nHoles);
    std::printf("  surface    %zu vertices, %zu triangles, plan area %.0f m2, z %.2f .. %.2f\n",
                tin.surf.vecPt.size(), tin.surf.vecTri.size(), stats.dPlanArea, stats.ptMin.z, stats.ptMax.z);
    std::printf("  boundary   %zu outline polylines; closed %s, consistently oriented %s\n",
                outline.vecLine.size(), stats.bClosed ? "yes" : "no", stats.bOriented ? "yes" : "no");
    std::printf("  grid       %d x %d cells of 25 m, %zu on the surface\n", grid.nCols, grid.nRows, nOnSurface);
    std::printf("  section    %zu pieces on the top, %zu on the base, %zu profile rows\n", draped.vecLine.size(),
                drapedBase.vecLine.size(), nProfile);
    if (nThick > 0) {
        std::printf("  thickness  %.2f .. %.2f m, mean %.2f m at %zu boreholes\n", thickMin, thickMax,
                    thickSum / static_cast<double>(nThick), nThick);
    }
    std::printf("  timings   ");
    for (const auto& t : timings) {
        std::printf(" %s %.3f s;", t.first.c_str(), t.second);
    }
    std::printf(" total %.3f s\n", total.Seconds());
    std::printf(
        "  written    stratum_top.ts .vtk, stratum_top_outline.pl, stratum_top_25m.asc, section_on_top.pl,\n"
        "             section_on_base.pl, section_profile.csv, thickness_at_boreholes.xyz,\n"
        "             boreholes_idw_50m.asc, borehole_hull.geojson, map.png, map.svg\n");
    return 0;
}

} // namespace

void AddDemoCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivDemoArgs>();
    CLI::App* sub = app.add_subcommand("demo", "Run the main job on the bundled sample and draw the map");
    sub->add_option("--data", args->strData, "folder of the sample data")->capture_default_str();
    sub->add_option("-o,--out", args->strOut, "folder for every result")->capture_default_str();
    SetExample(sub, "kivgeo demo --data data --out demo_out");
    sub->callback([args, &run]() { run = [args]() { return RunDemo(*args); }; });
}

} // namespace kivcli
