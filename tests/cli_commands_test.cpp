// The kivgeo executable end to end: every command on the sample data, and
// every kind of bad input (exit status 2, one line naming the file and line,
// no output file left behind).
#include "cli_test_util.h"

#include "formats.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <random>

using namespace kivcli;
using kivtest::CKivRunResult;
using kivtest::CKivScratch;
using kivtest::Exists;
using kivtest::ReadText;
using kivtest::RunKivgeo;
using kivtest::WriteText;

namespace {

const std::string kData = KIVGEO_DATA_DIR;

std::string Q(const std::string& path)
{
    return "'" + path + "'";
}

std::string Data(const std::string& name)
{
    return Q(kData + "/" + name);
}

// The full stratum build of the sample.
std::string TinArgs(const std::string& out)
{
    return "tin " + Data("boreholes.xyz") + " -c " + Data("outcrop.pl") + " -c " + Data("fault.pl") + " --hole " +
           Data("hole.txt") + " --outline " + Data("outline.geojson") + " -o " + Q(out);
}

double PlanArea(const std::string& linesFile)
{
    return std::fabs(ReadLines(linesFile).vecLine.at(0).GetArea());
}

// Width and height from a PNG's IHDR chunk; false unless the signature and
// the chunk are there.
bool PngSize(const std::string& path, std::uint32_t& w, std::uint32_t& h)
{
    const std::string b = ReadText(path);
    static const unsigned char sig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (b.size() < 33 || b.compare(0, 8, std::string(reinterpret_cast<const char*>(sig), 8)) != 0 ||
        b.compare(12, 4, "IHDR") != 0) {
        return false;
    }
    auto be32 = [&b](std::size_t i) {
        return (static_cast<std::uint32_t>(static_cast<unsigned char>(b[i])) << 24) |
               (static_cast<std::uint32_t>(static_cast<unsigned char>(b[i + 1])) << 16) |
               (static_cast<std::uint32_t>(static_cast<unsigned char>(b[i + 2])) << 8) |
               static_cast<std::uint32_t>(static_cast<unsigned char>(b[i + 3]));
    };
    w = be32(16);
    h = be32(20);
    return true;
}

#define EXPECT_OK(r) EXPECT_EQ((r).nStatus, 0) << (r).strErr

} // namespace

TEST(Cli, EveryCommandHasHelpWithAnExample)
{
    CKivScratch dir;
    const CKivRunResult top = RunKivgeo(dir, "--help");
    EXPECT_OK(top);
    for (const char* cmd :
         {"tin", "info", "convert", "elev", "drape", "outline", "interp", "hull", "render", "demo"}) {
        EXPECT_NE(top.strOut.find(std::string("  ") + cmd + " "), std::string::npos) << cmd;
        const CKivRunResult r = RunKivgeo(dir, std::string(cmd) + " --help");
        EXPECT_OK(r);
        EXPECT_NE(r.strOut.find("Example:\n  kivgeo " + std::string(cmd)), std::string::npos) << r.strOut;
    }
    EXPECT_EQ(RunKivgeo(dir, "").nStatus, 2);
    EXPECT_EQ(RunKivgeo(dir, "frobnicate").nStatus, 2);
    EXPECT_EQ(RunKivgeo(dir, "tin").nStatus, 2); // missing arguments
    EXPECT_EQ(RunKivgeo(dir, "interp x.xyz -s -5 -o g.asc").nStatus, 2);
    EXPECT_EQ(RunKivgeo(dir, "--version").strOut.rfind("kivgeo ", 0), 0u);
}

TEST(Cli, TinBuildsTheClippedSurfaceAndInfoDescribesIt)
{
    CKivScratch dir;
    const CKivRunResult tin = RunKivgeo(dir, TinArgs(dir / "top.ts") + " --name Top_Sandstone");
    ASSERT_EQ(tin.nStatus, 0) << tin.strErr;
    EXPECT_NE(tin.strOut.find("315 points"), std::string::npos) << tin.strOut;
    const CKivSurfaceData top = ReadSurface(dir / "top.ts");
    EXPECT_EQ(top.info.strName, "Top_Sandstone");

    const CKivRunResult info = RunKivgeo(dir, "info --json " + Q(dir / "top.ts"));
    ASSERT_EQ(info.nStatus, 0) << info.strErr;
    const nlohmann::json j = nlohmann::json::parse(info.strOut);
    EXPECT_EQ(j["triangles"].get<std::size_t>(), top.vecTri.size());
    EXPECT_EQ(j["degenerate_triangles"].get<int>(), 0);
    EXPECT_TRUE(j["oriented"].get<bool>());
    EXPECT_FALSE(j["closed"].get<bool>());
    EXPECT_EQ(j["unused_vertices"].get<int>(), 0);
    // The outline and the hole are the boundary, so the areas add up.
    ASSERT_EQ(j["boundary_loops"].size(), 2u);
    const double expected = PlanArea(kData + "/outline.geojson") - PlanArea(kData + "/hole.txt");
    EXPECT_NEAR(j["plan_area"].get<double>(), expected, 1e-6 * expected);

    // The text form says the same.
    const CKivRunResult text = RunKivgeo(dir, "info " + Q(dir / "top.ts"));
    EXPECT_OK(text);
    EXPECT_NE(text.strOut.find("name        Top_Sandstone"), std::string::npos);
    EXPECT_NE(text.strOut.find("in 2 loops (2 closed)"), std::string::npos) << text.strOut;
    EXPECT_NE(text.strOut.find("oriented    yes"), std::string::npos);

    // Every borehole inside the model is a vertex: the surface honours it.
    const CKivRunResult elev = RunKivgeo(dir, "elev " + Q(dir / "top.ts") + " --at " + Data("boreholes.xyz") +
                                                  " -o " + Q(dir / "at.xyz"));
    ASSERT_EQ(elev.nStatus, 0) << elev.strErr;
    const std::vector<CKivPoint3d> in = ReadPoints(kData + "/boreholes.xyz");
    const std::vector<CKivPoint3d> at = ReadPoints(dir / "at.xyz");
    ASSERT_EQ(in.size(), at.size());
    std::size_t nOn = 0, nOff = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        EXPECT_EQ(at[i].x, in[i].x);
        if (at[i].z == -9999.0) {
            ++nOff;
        } else {
            ++nOn;
            EXPECT_NEAR(at[i].z, in[i].z, 1e-6) << i;
        }
    }
    EXPECT_GT(nOn, 200u);
    EXPECT_GT(nOff, 5u); // outside the outline or in the lake
}

TEST(Cli, ConvertThroughEveryFormatKeepsTheSurface)
{
    CKivScratch dir;
    ASSERT_EQ(RunKivgeo(dir, TinArgs(dir / "a.ts")).nStatus, 0);
    const CKivSurfaceData a = ReadSurface(dir / "a.ts");
    const std::string chain[] = {"a.ts", "b.obj", "c.ply", "d.off", "e.stl", "f.ts"};
    for (std::size_t i = 0; i + 1 < std::size(chain); ++i) {
        const std::string flag = chain[i + 1] == "c.ply" ? " --binary" : "";
        const CKivRunResult r =
            RunKivgeo(dir, "convert " + Q(dir / chain[i]) + " " + Q(dir / chain[i + 1]) + flag);
        ASSERT_EQ(r.nStatus, 0) << chain[i + 1] << ": " << r.strErr;
    }
    // STL on the way re-indexes the corners; the triangles stay the same.
    std::vector<CKivTri3d> ta, tf;
    SurfaceToTris(a, ta);
    SurfaceToTris(ReadSurface(dir / "f.ts"), tf);
    ASSERT_EQ(ta.size(), tf.size());
    for (std::size_t i = 0; i < ta.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_TRUE(ta[i].m_pt[k].x == tf[i].m_pt[k].x && ta[i].m_pt[k].y == tf[i].m_pt[k].y &&
                        ta[i].m_pt[k].z == tf[i].m_pt[k].z);
        }
    }
    EXPECT_OK(RunKivgeo(dir, "convert " + Q(dir / "a.ts") + " " + Q(dir / "a.vtk")));
    EXPECT_NE(ReadText(dir / "a.vtk").find("DATASET POLYDATA"), std::string::npos);
    // Lines convert too, keeping the coordinate system through PLine.
    EXPECT_OK(RunKivgeo(dir, "convert " + Data("fault.pl") + " " + Q(dir / "fault.geojson")));
    EXPECT_OK(RunKivgeo(dir, "convert " + Q(dir / "fault.geojson") + " " + Q(dir / "fault.txt")));
    EXPECT_EQ(ReadLines(dir / "fault.txt").vecLine[0].NumVerts(),
              ReadLines(kData + "/fault.pl").vecLine[0].NumVerts());
}

TEST(Cli, ElevGridMarksCellsOffTheSurface)
{
    CKivScratch dir;
    ASSERT_EQ(RunKivgeo(dir, TinArgs(dir / "top.ts")).nStatus, 0);
    const CKivRunResult r =
        RunKivgeo(dir, "elev " + Q(dir / "top.ts") + " -s 100 --nodata -1 -o " + Q(dir / "g.asc"));
    ASSERT_EQ(r.nStatus, 0) << r.strErr;
    const std::string asc = ReadText(dir / "g.asc");
    ASSERT_EQ(asc.rfind("ncols ", 0), 0u);
    EXPECT_NE(asc.find("NODATA_value -1\n"), std::string::npos);
    const CKivSurfaceData top = ReadSurface(dir / "top.ts");
    double zmin = HUGE_VAL, zmax = -HUGE_VAL;
    for (const CKivPoint3d& p : top.vecPt) {
        zmin = std::min(zmin, p.z), zmax = std::max(zmax, p.z);
    }
    // Values after the six header lines.
    std::istringstream in(asc);
    std::string line;
    for (int i = 0; i < 6; ++i) {
        std::getline(in, line);
    }
    double v;
    std::size_t nValue = 0, nNoData = 0;
    while (in >> v) {
        if (v == -1.0) {
            ++nNoData;
        } else {
            ++nValue;
            EXPECT_GE(v, zmin - 1e-9);
            EXPECT_LE(v, zmax + 1e-9);
        }
    }
    EXPECT_GT(nValue, 400u);
    EXPECT_GT(nNoData, 10u);
    EXPECT_OK(RunKivgeo(dir, "elev " + Q(dir / "top.ts") + " -s 200 -o " + Q(dir / "g.csv")));
    EXPECT_EQ(ReadText(dir / "g.csv").rfind("x,y,z\n", 0), 0u);
    EXPECT_EQ(RunKivgeo(dir, "elev " + Q(dir / "top.ts") + " -o " + Q(dir / "h.asc")).nStatus, 2);
}

TEST(Cli, DrapeAndOutlineFollowTheSurface)
{
    CKivScratch dir;
    ASSERT_EQ(RunKivgeo(dir, TinArgs(dir / "top.ts")).nStatus, 0);
    const CKivRunResult d = RunKivgeo(dir, "drape " + Q(dir / "top.ts") + " " + Data("section.pl") + " -o " +
                                               Q(dir / "section.geojson"));
    ASSERT_EQ(d.nStatus, 0) << d.strErr;
    const CKivLineData draped = ReadLines(dir / "section.geojson");
    // The lake splits the section in two.
    EXPECT_EQ(draped.vecLine.size(), 2u);
    // Each draped vertex lies on the surface: elev at its x y gives its z.
    std::vector<CKivPoint3d> pts;
    for (const CKivPolyLine& pl : draped.vecLine) {
        std::vector<CKivPoint3d> v;
        pl.OutputData(v);
        pts.insert(pts.end(), v.begin(), v.end());
    }
    WritePoints(dir / "draped.xyz", pts);
    ASSERT_EQ(RunKivgeo(dir, "elev " + Q(dir / "top.ts") + " --at " + Q(dir / "draped.xyz") + " --nodata -7 -o " +
                                 Q(dir / "check.xyz"))
                  .nStatus,
              0);
    const std::vector<CKivPoint3d> check = ReadPoints(dir / "check.xyz");
    ASSERT_EQ(check.size(), pts.size());
    for (std::size_t i = 0; i < pts.size(); ++i) {
        if (check[i].z != -7.0) { // a vertex exactly on the boundary may miss
            EXPECT_NEAR(check[i].z, pts[i].z, 1e-6) << i;
        }
    }

    const CKivRunResult o = RunKivgeo(dir, "outline " + Q(dir / "top.ts") + " -o " + Q(dir / "outline.pl"));
    ASSERT_EQ(o.nStatus, 0) << o.strErr;
    const CKivLineData outline = ReadLines(dir / "outline.pl");
    ASSERT_EQ(outline.vecLine.size(), 2u);
    std::vector<double> areas;
    for (const CKivPolyLine& pl : outline.vecLine) {
        EXPECT_TRUE(pl.IsClosed());
        areas.push_back(std::fabs(pl.GetArea()));
    }
    std::sort(areas.begin(), areas.end());
    EXPECT_NEAR(areas[1], PlanArea(kData + "/outline.geojson"), 1e-3);
    EXPECT_NEAR(areas[0], PlanArea(kData + "/hole.txt"), 1e-3);
}

TEST(Cli, InterpolatesByEveryMethod)
{
    CKivScratch dir;
    const std::vector<CKivPoint3d> pts = ReadPoints(kData + "/boreholes.xyz");
    double zmin = HUGE_VAL, zmax = -HUGE_VAL;
    for (const CKivPoint3d& p : pts) {
        zmin = std::min(zmin, p.z), zmax = std::max(zmax, p.z);
    }
    for (const char* m : {"spline", "rbf", "idw"}) {
        const CKivRunResult r =
            RunKivgeo(dir, "interp " + Data("boreholes.xyz") + " -m " + m + " -s 150 -o " + Q(dir / "g.xyz"));
        ASSERT_EQ(r.nStatus, 0) << m << ": " << r.strErr;
        const std::vector<CKivPoint3d> g = ReadPoints(dir / "g.xyz");
        EXPECT_EQ(g.size(), 20u * 16u) << m;
        for (const CKivPoint3d& p : g) {
            // A smooth fit of this gently dipping surface stays near its range.
            EXPECT_GT(p.z, zmin - 50) << m;
            EXPECT_LT(p.z, zmax + 50) << m;
        }
    }
    // --hull leaves the corners of the grid without a value.
    ASSERT_EQ(
        RunKivgeo(dir, "interp " + Data("boreholes.xyz") + " -m idw -s 150 --hull -o " + Q(dir / "h.asc")).nStatus,
        0);
    EXPECT_NE(ReadText(dir / "h.asc").find("-9999"), std::string::npos);
}

TEST(Cli, RenderWritesPngAndSvg)
{
    CKivScratch dir;
    ASSERT_EQ(RunKivgeo(dir, TinArgs(dir / "top.ts")).nStatus, 0);
    const CKivRunResult r = RunKivgeo(dir, "render " + Q(dir / "top.ts") + " -c 10 -w 640 -l " + Data("fault.pl") +
                                               " -o " + Q(dir / "top.png"));
    ASSERT_EQ(r.nStatus, 0) << r.strErr;
    std::uint32_t w = 0, h = 0;
    ASSERT_TRUE(PngSize(dir / "top.png", w, h));
    EXPECT_EQ(w, 640u);
    EXPECT_GT(h, 200u);
    EXPECT_OK(RunKivgeo(dir, "render " + Q(dir / "top.ts") + " --no-edges -o " + Q(dir / "top.svg")));
    const std::string svg = ReadText(dir / "top.svg");
    EXPECT_NE(svg.find("<svg"), std::string::npos);
    EXPECT_NE(svg.find("</svg>"), std::string::npos);
}

TEST(Cli, DemoWritesEveryResultAndAValidMap)
{
    CKivScratch dir;
    const CKivRunResult r = RunKivgeo(dir, "demo --data " + Q(kData) + " --out " + Q(dir / "out"));
    ASSERT_EQ(r.nStatus, 0) << r.strErr;
    EXPECT_NE(r.strOut.find("triangles"), std::string::npos);
    EXPECT_NE(r.strOut.find("total"), std::string::npos);
    for (const char* f :
         {"stratum_top.ts", "stratum_top.vtk", "stratum_top_outline.pl", "stratum_top_25m.asc",
          "section_on_top.pl", "section_on_base.pl", "section_profile.csv", "thickness_at_boreholes.xyz",
          "boreholes_idw_50m.asc", "borehole_hull.geojson", "map.png", "map.svg"}) {
        EXPECT_TRUE(Exists(dir / (std::string("out/") + f))) << f;
    }
    std::uint32_t w = 0, h = 0;
    ASSERT_TRUE(PngSize(dir / "out/map.png", w, h));
    EXPECT_EQ(w, 1000u);
    EXPECT_GT(h, 300u);
    EXPECT_GT(ReadText(dir / "out/map.png").size(), 10000u);
    const CKivSurfaceData top = ReadSurface(dir / "out/stratum_top.ts");
    EXPECT_EQ(top.info.strName, "stratum_top");
    EXPECT_FALSE(top.info.vecCoordSys.empty());
    // Thickness of the stratum is positive wherever both surfaces are.
    for (const CKivPoint3d& p : ReadPoints(dir / "out/thickness_at_boreholes.xyz")) {
        EXPECT_GT(p.z, 20.0);
    }
}

TEST(Cli, BadInputStopsWithFileLineAndNoOutput)
{
    CKivScratch dir;
    WriteText(dir / "cols.xyz", "500000 3000000 10\n500010 3000000 11\n500000 3000010\n");
    WriteText(dir / "nan.xyz", "500000 3000000 10\n500010 nan 11\n500000 3000010 12\n");
    WriteText(dir / "empty.xyz", "");
    WriteText(dir / "line.xyz", "0 0 0\n1 1 1\n2 2 2\n3 3 3\n");
    WriteText(dir / "pts.dat", "0 0 0\n");
    WriteText(dir / "bad.ts", "GOCAD TSurf 1\nHEADER {\nname:x\n}\nTFACE\nVRTX 1 0 0 0\nVRTX 2 1 0 0\n"
                              "TRGL 1 2 3\nEND\n");
    WriteText(dir / "bad.geojson", "{\"type\": \"LineString\",\n\"coordinates\": [[0, 0], [1, 1]\n}");
    WriteText(dir / "old.ts", "old");
    struct Case {
        std::string args;
        std::string expect; // in the message
        std::string output; // must not appear
    };
    const Case cases[] = {
        {"tin " + Q(dir / "cols.xyz") + " -o " + Q(dir / "o1.ts"), "cols.xyz:3: expected 3 columns", "o1.ts"},
        {"hull " + Q(dir / "nan.xyz") + " -o " + Q(dir / "o2.pl"), "nan.xyz:2: expected y as a finite number",
         "o2.pl"},
        {"tin " + Q(dir / "empty.xyz") + " -o " + Q(dir / "o3.ts"), "empty.xyz: no points found", "o3.ts"},
        {"tin " + Q(dir / "line.xyz") + " -o " + Q(dir / "o4.ts"), "line.xyz: cannot triangulate", "o4.ts"},
        {"tin " + Q(dir / "pts.dat") + " -o " + Q(dir / "o5.ts"), "pts.dat: unknown points extension", "o5.ts"},
        {"tin " + Data("boreholes.xyz") + " -o " + Q(dir / "o6.xyz2"), "o6.xyz2: unknown surface extension",
         "o6.xyz2"},
        {"tin " + Data("boreholes.xyz") + " -o " + Q(dir / "missing/o7.ts"), "missing/o7.ts: cannot create", ""},
        {"convert " + Q(dir / "bad.ts") + " " + Q(dir / "o8.obj"), "bad.ts:8: vertex id 3 is not defined",
         "o8.obj"},
        {"info " + Q(dir / "bad.ts"), "bad.ts:8:", ""},
        {"drape " + Data("base.ts") + " " + Q(dir / "bad.geojson") + " -o " + Q(dir / "o9.pl"),
         "bad.geojson:3: invalid JSON", "o9.pl"},
        {"render " + Q(dir / "bad.ts") + " -o " + Q(dir / "o10.png"), "bad.ts:8:", "o10.png"},
        {"render " + Data("base.ts") + " -o " + Q(dir / "o11.jpg"), "o11.jpg: unknown picture extension",
         "o11.jpg"},
        {"elev " + Data("base.ts") + " --at " + Q(dir / "nan.xyz") + " -o " + Q(dir / "o12.xyz"),
         "nan.xyz:2:", "o12.xyz"},
        {"interp " + Q(dir / "cols.xyz") + " -s 5 -o " + Q(dir / "o13.asc"), "cols.xyz:3:", "o13.asc"},
        {"tin " + Q(dir / "nan.xyz") + " -o " + Q(dir / "old.ts"), "nan.xyz:2:", ""},
        {"demo --data " + Q(dir / "nowhere") + " --out " + Q(dir / "o14"), "nowhere/section.pl: cannot open",
         "o14"},
    };
    const std::string before = dir.Listing();
    for (const Case& c : cases) {
        const CKivRunResult r = RunKivgeo(dir, c.args);
        EXPECT_EQ(r.nStatus, 2) << c.args << "\n" << r.strErr;
        EXPECT_NE(r.strErr.find(c.expect), std::string::npos) << c.args << "\nstderr: " << r.strErr;
        EXPECT_EQ(std::count(r.strErr.begin(), r.strErr.end(), '\n'), 1) << r.strErr;
        if (!c.output.empty()) {
            EXPECT_FALSE(Exists(dir / c.output)) << c.output;
        }
        // Nothing new in the folder: no output, no temporary.
        EXPECT_EQ(dir.Listing(), before) << c.args;
    }
    EXPECT_EQ(ReadText(dir / "old.ts"), "old"); // a failed run leaves an existing file alone
}

TEST(Cli, SampleDataIsWhatTheGeneratorWrites)
{
    CKivScratch dir;
    const std::string cmd = std::string("'") + KIVGEO_GEN_EXE + "' " + Q(dir.Dir().string()) + " >/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    for (const char* f :
         {"boreholes.xyz", "outcrop.pl", "fault.pl", "outline.geojson", "hole.txt", "section.pl", "base.ts"}) {
        // (not EXPECT_EQ: the diff of two whole files drowns the log)
        EXPECT_TRUE(ReadText(dir / f) == ReadText(kData + "/" + f)) << f << " differs; regenerate data/";
    }
}

TEST(Cli, TinIsValidAndCoversTheHullAtEveryCoordinateScale)
{
    CKivScratch dir;
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    struct Scale {
        double x0, y0, side;
    };
    for (const Scale& s : {Scale{0.0, 0.0, 10.0}, Scale{500000.0, 3000000.0, 2000.0}, Scale{1e7, -1e7, 1e5}}) {
        std::vector<CKivPoint3d> pts;
        for (int i = 0; i < 400; ++i) {
            pts.emplace_back(s.x0 + s.side * u(gen), s.y0 + s.side * u(gen), s.side * 0.1 * u(gen));
        }
        WritePoints(dir / "p.xyz", pts);
        const CKivRunResult r = RunKivgeo(dir, "tin " + Q(dir / "p.xyz") + " -o " + Q(dir / "p.ts"));
        ASSERT_EQ(r.nStatus, 0) << s.side << ": " << r.strErr;
        ASSERT_EQ(RunKivgeo(dir, "hull " + Q(dir / "p.xyz") + " -o " + Q(dir / "h.pl")).nStatus, 0);
        const nlohmann::json j = nlohmann::json::parse(RunKivgeo(dir, "info --json " + Q(dir / "p.ts")).strOut);
        EXPECT_TRUE(j["oriented"].get<bool>()) << s.side;
        EXPECT_EQ(j["degenerate_triangles"].get<int>(), 0) << s.side;
        EXPECT_EQ(j["boundary_loops"].size(), 1u) << s.side;
        EXPECT_EQ(j["vertices"].get<std::size_t>(), pts.size()) << s.side;
        // The surface covers the hull, unless the legacy result is asked for.
        const double hull = PlanArea(dir / "h.pl");
        EXPECT_NEAR(j["plan_area"].get<double>(), hull, 1e-9 * hull) << s.side;
        ASSERT_EQ(RunKivgeo(dir, "tin " + Q(dir / "p.xyz") + " --legacy-hull -o " + Q(dir / "l.off")).nStatus, 0);
        const nlohmann::json l = nlohmann::json::parse(RunKivgeo(dir, "info --json " + Q(dir / "l.off")).strOut);
        EXPECT_LE(l["plan_area"].get<double>(), hull * (1 + 1e-9)) << s.side;
    }
}
