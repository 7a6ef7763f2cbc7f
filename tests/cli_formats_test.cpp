// File formats of the command line: round trips on real-looking files and the
// message (file, line, what was expected) for each kind of malformed input.
#include "cli_test_util.h"

#include "formats.h"
#include "grid.h"
#include "io_error.h"
#include "render.h"
#include "surface_stats.h"

#include <cmath>
#include <random>

using namespace kivcli;
using kivtest::CKivScratch;
using kivtest::ReadText;
using kivtest::WriteText;

namespace {

// Runs f and returns the CKivIoError message it throws ("" when none).
template <typename F> std::string ErrorOf(F&& f)
{
    try {
        f();
    } catch (const CKivIoError& e) {
        return e.what();
    }
    return "";
}

// A rough grid surface at UTM coordinates with random heights: coordinates
// that lose digits with any printing short of round-trip precision.
CKivSurfaceData RandomSurface(unsigned seed, int n = 7)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3), height(80.0, 320.0);
    CKivSurfaceData s;
    s.vecPartStart.push_back(0);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            s.vecPt.emplace_back(500000.123456789 + 10.0 * i + jitter(gen),
                                 3000000.987654321 + 10.0 * j + jitter(gen), height(gen));
        }
    }
    for (int j = 0; j + 1 < n; ++j) {
        for (int i = 0; i + 1 < n; ++i) {
            const int a = j * n + i;
            s.vecTri.push_back({a, a + 1, a + n + 1});
            s.vecTri.push_back({a, a + n + 1, a + n});
        }
    }
    return s;
}

void ExpectSameGeometry(const CKivSurfaceData& a, const CKivSurfaceData& b, double tol = 0.0)
{
    ASSERT_EQ(a.vecPt.size(), b.vecPt.size());
    ASSERT_EQ(a.vecTri.size(), b.vecTri.size());
    for (std::size_t i = 0; i < a.vecPt.size(); ++i) {
        EXPECT_NEAR(a.vecPt[i].x, b.vecPt[i].x, tol) << i;
        EXPECT_NEAR(a.vecPt[i].y, b.vecPt[i].y, tol) << i;
        EXPECT_NEAR(a.vecPt[i].z, b.vecPt[i].z, tol) << i;
    }
    for (std::size_t i = 0; i < a.vecTri.size(); ++i) {
        EXPECT_EQ(a.vecTri[i], b.vecTri[i]) << i;
    }
}

// Same lines, closed flags and every digit of every vertex.
void ExpectSameLines(const CKivLineData& a, const CKivLineData& b)
{
    ASSERT_EQ(a.vecLine.size(), b.vecLine.size());
    for (std::size_t i = 0; i < a.vecLine.size(); ++i) {
        std::vector<CKivPoint3d> p, q;
        a.vecLine[i].OutputData(p);
        b.vecLine[i].OutputData(q);
        EXPECT_EQ(a.vecLine[i].IsClosed(), b.vecLine[i].IsClosed()) << "line " << i;
        ASSERT_EQ(p.size(), q.size()) << "line " << i;
        for (std::size_t k = 0; k < p.size(); ++k) {
            EXPECT_TRUE(p[k].x == q[k].x && p[k].y == q[k].y && p[k].z == q[k].z)
                << "line " << i << " vertex " << k;
        }
    }
}

std::vector<CKivTri3d> Soup(const CKivSurfaceData& s)
{
    std::vector<CKivTri3d> tris;
    SurfaceToTris(s, tris);
    return tris;
}

const char* const kTSurf = R"(GOCAD TSurf 1
HEADER {
name:Horizon_Top Jurassic
*solid*color:0 0 0.5 1
ivolmap:false
}
GOCAD_ORIGINAL_COORDINATE_SYSTEM
NAME "Default"
AXIS_NAME "X" "Y" "Z"
AXIS_UNIT "m" "m" "m"
ZPOSITIVE Depth
END_ORIGINAL_COORDINATE_SYSTEM
GEOLOGICAL_FEATURE Top Jurassic
GEOLOGICAL_TYPE top
PROPERTIES porosity depth_err
NO_DATA_VALUES -99999 -99999
PROPERTY_CLASS_HEADER porosity {
kind:Porosity
}
# two faces sharing vertex ids
TFACE
PVRTX 1 501200.25 3948138.25 1520.5 0.21 0.5
PVRTX 2 501250.75 3948138.25 1522.25 0.19 0.5
PVRTX 3 501225.5 3948180.125 1518.75 0.23 0.4
PVRTX 4 501275.125 3948180.125 1523 0.2 0.4
TRGL 1 2 3
TRGL 2 4 3
BSTONE 1
BORDER 5 1 2
TFACE
PVRTX 7 501300.5 3948138.25 1525.5 0.18 0.6
ATOM 8 2
TRGL 8 7 4
END
)";

} // namespace

TEST(TSurf, ReadsRealLookingFile)
{
    CKivScratch dir;
    WriteText(dir / "top.ts", kTSurf);
    const CKivSurfaceData s = ReadSurface(dir / "top.ts");
    EXPECT_EQ(s.info.strName, "Horizon_Top Jurassic");
    ASSERT_EQ(s.info.vecHeader.size(), 2u);
    EXPECT_EQ(s.info.vecHeader[0], "*solid*color:0 0 0.5 1");
    EXPECT_TRUE(s.info.bDepth);
    ASSERT_EQ(s.info.vecCoordSys.size(), 4u);
    EXPECT_EQ(s.info.vecCoordSys[0], "NAME \"Default\"");
    // Five vertices plus the ATOM, a distinct vertex at vertex 2's place.
    ASSERT_EQ(s.vecPt.size(), 6u);
    EXPECT_EQ(s.vecPt[0].x, 501200.25);
    EXPECT_EQ(s.vecPt[0].y, 3948138.25);
    EXPECT_EQ(s.vecPt[0].z, -1520.5); // depth read as elevation
    EXPECT_EQ(s.vecPt[5].x, s.vecPt[1].x);
    EXPECT_EQ(s.vecPt[5].z, s.vecPt[1].z);
    ASSERT_EQ(s.vecTri.size(), 3u);
    EXPECT_EQ(s.vecTri[1], (std::array<int, 3>{1, 3, 2}));
    EXPECT_EQ(s.vecTri[2], (std::array<int, 3>{5, 4, 3}));
    EXPECT_EQ(s.vecPartStart, (std::vector<std::size_t>{0, 2}));
}

TEST(TSurf, RoundTripKeepsNameCoordinateSystemPartsAndDigits)
{
    CKivScratch dir;
    WriteText(dir / "in.ts", kTSurf);
    const CKivSurfaceData a = ReadSurface(dir / "in.ts");
    WriteSurface(dir / "out.ts", a);
    const std::string text = ReadText(dir / "out.ts");
    EXPECT_NE(text.find("name:Horizon_Top Jurassic\n"), std::string::npos);
    EXPECT_NE(text.find("ZPOSITIVE Depth\n"), std::string::npos);
    EXPECT_NE(text.find("AXIS_UNIT \"m\" \"m\" \"m\"\n"), std::string::npos);
    // Depths are written back as depths, with every digit.
    EXPECT_NE(text.find("VRTX 1 501200.25 3948138.25 1520.5\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n') > 10, true);
    const CKivSurfaceData b = ReadSurface(dir / "out.ts");
    EXPECT_EQ(b.info.strName, a.info.strName);
    EXPECT_EQ(b.info.vecHeader, a.info.vecHeader);
    EXPECT_EQ(b.info.vecCoordSys, a.info.vecCoordSys);
    EXPECT_EQ(b.info.bDepth, a.info.bDepth);
    EXPECT_EQ(b.vecPartStart, a.vecPartStart);
    ExpectSameGeometry(a, b);
    // A second round trip writes the same text.
    WriteSurface(dir / "again.ts", b);
    EXPECT_EQ(ReadText(dir / "again.ts"), text);
}

TEST(TSurf, OneLineHeaderIdsFromZeroAndSeveralObjects)
{
    CKivScratch dir;
    WriteText(dir / "two.ts",
              "GOCAD TSurf 1\nHEADER {name:first}\nTFACE\nVRTX 0 0 0 0\nVRTX 1 1 0 0\n"
              "VRTX 2 0 1 0\nTRGL 0 1 2\nEND\n"
              "GOCAD TSurf 1\r\nHEADER {name:second}\r\nTFACE\r\nVRTX 10 5 5 1\r\nVRTX 11 6 5 1\r\n"
              "VRTX 12 5 6 1\r\nTRGL 10 11 12\r\nEND\r\n");
    const CKivSurfaceData s = ReadSurface(dir / "two.ts");
    EXPECT_EQ(s.info.strName, "first");
    ASSERT_EQ(s.vecTri.size(), 2u);
    EXPECT_EQ(s.vecTri[1], (std::array<int, 3>{3, 4, 5}));
    EXPECT_EQ(s.vecPartStart, (std::vector<std::size_t>{0, 1}));
}

TEST(PLine, ReadsPartsClosedLinesAndDepth)
{
    CKivScratch dir;
    WriteText(dir / "faults.pl", R"(GOCAD PLine 1
HEADER {
name:fault_traces
}
GOCAD_ORIGINAL_COORDINATE_SYSTEM
NAME "UTM 50N"
ZPOSITIVE Depth
END_ORIGINAL_COORDINATE_SYSTEM
PROPERTIES throw
ILINE
PVRTX 1 500000.5 3000000.25 100 12
PVRTX 2 500100.5 3000050.25 110 12
PVRTX 3 500200.5 3000080.25 120 12
SEG 1 2
SEG 2 3
ILINE
VRTX 4 500000 3001000 50
VRTX 5 500100 3001000 50
VRTX 6 500100 3001100 50
VRTX 7 500000 3001100 50
SEG 4 5
SEG 5 6
SEG 6 7
SEG 7 4
END
)");
    const CKivLineData d = ReadLines(dir / "faults.pl");
    EXPECT_EQ(d.info.strName, "fault_traces");
    EXPECT_TRUE(d.info.bDepth);
    ASSERT_EQ(d.vecLine.size(), 2u);
    EXPECT_FALSE(d.vecLine[0].IsClosed());
    EXPECT_EQ(d.vecLine[0].NumVerts(), 3u);
    CKivPoint3d p;
    d.vecLine[0].GetVertex(2, p);
    EXPECT_EQ(p.x, 500200.5);
    EXPECT_EQ(p.z, -120.0);
    EXPECT_TRUE(d.vecLine[1].IsClosed());
    EXPECT_EQ(d.vecLine[1].NumVerts(), 4u);

    WriteLines(dir / "out.pl", d);
    const std::string text = ReadText(dir / "out.pl");
    EXPECT_NE(text.find("VRTX 3 500200.5 3000080.25 120\n"), std::string::npos);
    EXPECT_NE(text.find("SEG 7 4\n"), std::string::npos); // closing segment
    const CKivLineData e = ReadLines(dir / "out.pl");
    EXPECT_EQ(e.info.vecCoordSys, d.info.vecCoordSys);
    ExpectSameLines(d, e);
}

TEST(GeoJson, ReadsLineAndPolygonGeometriesAndRoundTrips)
{
    CKivScratch dir;
    WriteText(dir / "in.geojson", R"({"type": "FeatureCollection", "features": [
 {"type": "Feature", "properties": {}, "geometry": {"type": "LineString", "coordinates": [[500000.1, 3000000.2], [500010.5, 3000020.5, 7]]}},
 {"type": "Feature", "properties": null, "geometry": {"type": "MultiLineString", "coordinates": [[[1, 2, 3], [4, 5, 6]], [[7, 8], [9, 10], [11, 12]]]}},
 {"type": "Feature", "geometry": {"type": "Polygon", "coordinates": [[[0, 0], [10, 0], [10, 10], [0, 10], [0, 0]], [[2, 2], [4, 2], [4, 4], [2, 2]]]}},
 {"type": "Feature", "geometry": null}
]})");
    const CKivLineData d = ReadLines(dir / "in.geojson");
    ASSERT_EQ(d.vecLine.size(), 5u);
    EXPECT_FALSE(d.vecLine[0].IsClosed());
    CKivPoint3d p;
    d.vecLine[0].GetVertex(0, p);
    EXPECT_EQ(p.x, 500000.1);
    EXPECT_EQ(p.z, 0.0);
    EXPECT_EQ(d.vecLine[2].NumVerts(), 3u);
    EXPECT_TRUE(d.vecLine[3].IsClosed());
    EXPECT_EQ(d.vecLine[3].NumVerts(), 4u); // the repeated first position is dropped
    EXPECT_TRUE(d.vecLine[4].IsClosed());
    EXPECT_EQ(d.vecLine[4].NumVerts(), 3u);

    for (const char* ext : {"geojson", "txt", "pl"}) {
        const std::string out = dir / (std::string("out.") + ext);
        WriteLines(out, d);
        SCOPED_TRACE(ext);
        ExpectSameLines(d, ReadLines(out));
    }
}

TEST(Points, HeaderColumnsSeparatorsAndComments)
{
    CKivScratch dir;
    WriteText(dir / "a.csv", "# exported\nZ;Easting;Northing;name\n10.5;500000.25;3000000.5;BH1\n"
                             "11;500001;3000001;BH2 # second\n");
    const std::vector<CKivPoint3d> pts = ReadPoints(dir / "a.csv");
    ASSERT_EQ(pts.size(), 2u);
    EXPECT_EQ(pts[0].x, 500000.25);
    EXPECT_EQ(pts[0].y, 3000000.5);
    EXPECT_EQ(pts[0].z, 10.5);
    WritePoints(dir / "b.xyz", pts);
    EXPECT_EQ(ReadText(dir / "b.xyz"), "500000.25 3000000.5 10.5\n500001 3000001 11\n");
    WritePoints(dir / "c.csv", pts);
    const std::vector<CKivPoint3d> back = ReadPoints(dir / "c.csv");
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[1].z, 11.0);
}

TEST(SurfaceFormats, RoundTripsKeepEveryDigit)
{
    CKivScratch dir;
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const CKivSurfaceData s = RandomSurface(seed);
        for (const char* name : {"s.ts", "s.obj", "s.off", "s.ply", "s.stl"}) {
            for (bool binary : {false, true}) {
                CKivWriteOptions opt;
                opt.bBinary = binary;
                WriteSurface(dir / name, s, opt);
                const CKivSurfaceData back = ReadSurface(dir / name);
                SCOPED_TRACE(std::string(name) + (binary ? " binary" : " text"));
                if (std::string(name) == "s.stl") {
                    // STL is a triangle soup: corners are indexed in the order
                    // they appear. Binary STL holds floats: 0.25 m steps at 3e6.
                    ExpectSameGeometry(SurfaceFromTris(Soup(s)), back, binary ? 0.5 : 0.0);
                } else {
                    ExpectSameGeometry(s, back);
                }
            }
        }
    }
}

TEST(SurfaceFormats, PolygonFacesAreFannedAndVtkIsWritten)
{
    CKivScratch dir;
    WriteText(dir / "q.obj", "# quad\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 1\nvn 0 0 1\nf 1//1 2//1 3//1 -1//1\n");
    EXPECT_EQ(ReadSurface(dir / "q.obj").vecTri.size(), 2u);
    WriteText(dir / "q.off", "OFF\n# a quad\n4 1 0\n0 0 0\n1 0 0\n1 1 0\n0 1 1\n4 0 1 2 3\n");
    const CKivSurfaceData off = ReadSurface(dir / "q.off");
    EXPECT_EQ(off.vecTri.size(), 2u);
    WriteSurface(dir / "q.vtk", off);
    const std::string vtk = ReadText(dir / "q.vtk");
    EXPECT_EQ(vtk.rfind("# vtk DataFile Version 3.0\n", 0), 0u);
    EXPECT_NE(vtk.find("POINTS 4 double\n"), std::string::npos);
    EXPECT_NE(vtk.find("POLYGONS 2 8\n"), std::string::npos);
    EXPECT_NE(vtk.find("SCALARS elevation double 1\n"), std::string::npos);
}

// Every reader stops at the first fault with one line naming the file, the
// line where there is one, and what was expected.
TEST(Readers, MalformedFilesNameFileAndLine)
{
    CKivScratch dir;
    enum EKind { eSurface, eLines, ePoints };
    struct Case {
        EKind kind;
        const char* name;
        std::string text; // "-" for no file at all
        const char* expect;
    };
    std::string truncatedPly = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\n"
                               "property float y\nproperty float z\nend_header\n";
    truncatedPly += std::string(20, '\0');
    const char* const ts = "GOCAD TSurf 1\nTFACE\n";
    const Case cases[] = {
        {eSurface, "a.ts", std::string(ts) + "VRTX 1 0 0 0\nVRTX 2 1 0 0\nVRTX 3 0 1 0\nTRGL 1 2 4\nEND\n",
         "a.ts:6: vertex id 4 is not defined"},
        {eSurface, "b.ts", std::string(ts) + "VRTX 1 0 nan 0\nEND\n",
         "b.ts:3: expected y as a finite number, got 'nan'"},
        {eSurface, "c.ts", std::string(ts) + "VRTX 1 0 0\nEND\n", "c.ts:3: expected VRTX id x y z"},
        {eSurface, "d.ts", std::string(ts) + "VRTX 1 0 0 0\nVRTX 1 1 0 0\nEND\n",
         "d.ts:4: vertex id 1 is defined twice"},
        {eSurface, "e.ts", std::string(ts) + "VRTX 1 0 0 0\nVRTX 2 1 0 0\nVRTX 3 0 1 0\nTRGL 1 2 3\n",
         "e.ts:6: expected END at the end"},
        {eSurface, "f.ts", "GOCAD PLine 1\nEND\n", "f.ts:1: expected 'GOCAD TSurf 1'"},
        {eSurface, "g.ts", "GOCAD TSurf 1\nHEADER {\nname:x\n", "g.ts:3: expected '}' closing the HEADER"},
        {eSurface, "h.ts", std::string(ts) + "VRTX 1 0 0 0\nEND\n", "h.ts: no triangles found"},
        {eSurface, "i.ts", "", "i.ts: empty file"},
        {eSurface, "j.ts", std::string(ts) + "VRTX -3 0 0 0\nEND\n",
         "j.ts:3: expected a vertex id as a non-negative integer"},
        {eSurface, "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 5\n", "a.obj:4: face corner 5 names no vertex"},
        {eSurface, "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 1e29\n",
         "a.obj:4: expected a face corner as a vertex number"},
        {eSurface, "b.obj", "v 0 0 0\nv 1 zero 0\n", "b.obj:2: expected y as a finite number, got 'zero'"},
        {eSurface, "c.obj", "v 0 0 0\n", "c.obj: no triangles found"},
        {eSurface, "d.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n", "d.off:4: unexpected end of file"},
        {eSurface, "e.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n", "e.off:6: vertex number 3 out of range"},
        {eSurface, "f.off", "COFF\n", "f.off:1: expected the keyword OFF"},
        {eSurface, "g.ply",
         "ply\nformat ascii 1.0\nelement vertex 3\nproperty double x\nproperty double y\n"
         "property double z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
         "0 0 0\n1 0 0\n0 1\n3 0 1 2\n",
         "g.ply:12: expected more values"},
        {eSurface, "h.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty quad x\nend_header\n",
         "h.ply:4: unknown property type 'quad'"},
        {eSurface, "i.ply", truncatedPly, "i.ply: unexpected end of binary data"},
        {eSurface, "j.stl", "solid x\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 nan\n",
         "j.stl:5: expected z as a finite number"},
        {eSurface, "k.stl", "garbage", "k.stl:1: expected 'solid'"},
        {eSurface, "l.ts2", "", "unknown surface extension '.ts2'"},
        {eLines, "a.pl", "GOCAD PLine 1\nILINE\nVRTX 1 0 0 0\nSEG 1 2\nEND\n",
         "a.pl:4: vertex id 2 is not defined"},
        {eLines, "b.pl", "GOCAD PLine 1\nILINE\nVRTX 1 0 0 0\nEND\n", "no line with two or more vertices"},
        {eLines, "c.pl", "GOCAD PLine 1\nILINE\nVRTX 1 0 0 1e999\nEND\n", "c.pl:3: expected z as a finite number"},
        {eLines, "a.geojson",
         "{\"type\": \"FeatureCollection\",\n \"features\": [\n {\"type\": \"Feature\" \"geometry\": null}]}",
         "a.geojson:3: invalid JSON"},
        {eLines, "b.geojson", R"({"type": "Point", "coordinates": [1, 2]})",
         "expected a line or polygon geometry, got Point"},
        {eLines, "c.geojson", R"({"type": "LineString", "coordinates": [[1, 2], ["a", 3]]})",
         "position 2: expected a position"},
        {eLines, "d.geojson", "", "d.geojson: invalid JSON"},
        {eLines, "a.txt", "# section\n0 0 1\n1 1 1\n\n5 5\n6 6 7 8\n",
         "a.txt:6: expected x y or x y z, found 4 columns"},
        {eLines, "b.txt", "0 0 1\n\n5 5 1\n6 6 1\n", "b.txt:1: expected a line of at least 2 points"},
        {ePoints, "a.xyz", "1 2 3\n4 5 6\n7 8\n", "a.xyz:3: expected 3 columns like the rows before, found 2"},
        {ePoints, "b.xyz", "1 2\n", "b.xyz:1: expected at least 3 columns x y z, found 2"},
        {ePoints, "c.xyz", "1 2 3\n4 NaN 6\n", "c.xyz:2: expected y as a finite number, got 'NaN'"},
        {ePoints, "d.xyz", "1 2 3\n4 5 inf\n", "d.xyz:2: expected z as a finite number, got 'inf'"},
        {ePoints, "e.xyz", "1 2 3\n4 5 6x\n", "e.xyz:2: expected z as a finite number, got '6x'"},
        {ePoints, "f.xyz", "# only a comment\n\n", "f.xyz: no points found"},
        {ePoints, "g.xyz", "", "g.xyz: no points found"},
        {ePoints, "missing.xyz", "-", "missing.xyz: cannot open"},
        {ePoints, "p.dat", "-", "unknown points extension '.dat'"},
    };
    for (const Case& c : cases) {
        const std::string path = dir / c.name;
        if (c.text != "-") {
            WriteText(path, c.text);
        }
        const std::string msg = ErrorOf([&] {
            c.kind == eSurface ? (void)ReadSurface(path)
            : c.kind == eLines ? (void)ReadLines(path)
                               : (void)ReadPoints(path);
        });
        EXPECT_NE(msg.find(c.expect), std::string::npos) << "message: " << msg << "\nexpected: " << c.expect;
        EXPECT_EQ(msg.find('\n'), std::string::npos) << msg;
    }
}

TEST(OutputFile, FailedWriteLeavesNothing)
{
    CKivScratch dir;
    const CKivSurfaceData s = RandomSurface(4, 3);
    EXPECT_NE(ErrorOf([&] { WriteSurface(dir / "no/such/folder/s.ts", s); }).find("cannot create the file"),
              std::string::npos);
    EXPECT_NE(ErrorOf([&] { WriteSurface(dir / "s.unknown", s); }).find("unknown surface extension"),
              std::string::npos);
    EXPECT_EQ(dir.Listing(), "");
    // An existing file is replaced whole.
    WriteText(dir / "s.ts", "old");
    WriteSurface(dir / "s.ts", s);
    EXPECT_EQ(ReadSurface(dir / "s.ts").vecTri.size(), s.vecTri.size());
    EXPECT_EQ(dir.Listing(), "s.ts\n");
}

TEST(SurfaceStats, ClosedOrientedAndBoundaryLoops)
{
    // An octahedron: closed, outward faces.
    CKivSurfaceData oct;
    oct.vecPt = {CKivPoint3d(1.0, 0.0, 0.0),  CKivPoint3d(-1.0, 0.0, 0.0), CKivPoint3d(0.0, 1.0, 0.0),
                 CKivPoint3d(0.0, -1.0, 0.0), CKivPoint3d(0.0, 0.0, 1.0),  CKivPoint3d(0.0, 0.0, -1.0)};
    oct.vecTri = {{0, 2, 4}, {2, 1, 4}, {1, 3, 4}, {3, 0, 4}, {2, 0, 5}, {1, 2, 5}, {3, 1, 5}, {0, 3, 5}};
    CKivSurfaceStats s = ComputeStats(oct);
    EXPECT_TRUE(s.bClosed);
    EXPECT_TRUE(s.bOriented);
    EXPECT_EQ(s.nEdges, 12u);
    EXPECT_TRUE(s.vecLoop.empty());
    std::swap(oct.vecTri[3][0], oct.vecTri[3][1]);
    s = ComputeStats(oct);
    EXPECT_TRUE(s.bClosed);
    EXPECT_FALSE(s.bOriented);
    EXPECT_EQ(s.nFlippedEdges, 3u);

    // A 4 x 4 grid of cells without its middle 2 x 2: two loops, areas add up.
    CKivSurfaceData g;
    for (int j = 0; j <= 4; ++j) {
        for (int i = 0; i <= 4; ++i) {
            g.vecPt.emplace_back(500000.0 + i, 3000000.0 + j, 0.5 * i);
        }
    }
    for (int j = 0; j < 4; ++j) {
        for (int i = 0; i < 4; ++i) {
            if ((i == 1 || i == 2) && (j == 1 || j == 2)) {
                continue;
            }
            const int a = j * 5 + i;
            g.vecTri.push_back({a, a + 1, a + 6});
            g.vecTri.push_back({a, a + 6, a + 5});
        }
    }
    s = ComputeStats(g);
    EXPECT_FALSE(s.bClosed);
    EXPECT_TRUE(s.bOriented);
    ASSERT_EQ(s.vecLoop.size(), 2u);
    EXPECT_TRUE(s.vecLoop[0].IsClosed() && s.vecLoop[1].IsClosed());
    EXPECT_NEAR(std::fabs(s.vecLoop[0].GetArea()) - std::fabs(s.vecLoop[1].GetArea()), s.dPlanArea, 1e-6);
    EXPECT_NEAR(s.dPlanArea, 12.0, 1e-9);
    EXPECT_EQ(s.nBoundaryEdges, 16u + 8u);
}

TEST(Render, ContourSegmentsLieOnTheLevelAndTheEdges)
{
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int n = 0; n < 500; ++n) {
        const CKivPoint3d a(u(gen), u(gen), u(gen)), b(u(gen), u(gen), u(gen)), c(u(gen), u(gen), u(gen));
        const double level = u(gen);
        CKivPoint3d p, q;
        const bool crosses = std::min({a.z, b.z, c.z}) < level && std::max({a.z, b.z, c.z}) > level;
        ASSERT_EQ(ContourSegment(a, b, c, level, p, q), crosses);
        if (crosses) {
            EXPECT_EQ(p.z, level);
            EXPECT_EQ(q.z, level);
            // Each end lies in the triangle's plan (barycentric test).
            for (const CKivPoint3d& e : {p, q}) {
                const double d = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
                const double l1 = ((b.x - e.x) * (c.y - e.y) - (c.x - e.x) * (b.y - e.y)) / d;
                const double l2 = ((c.x - e.x) * (a.y - e.y) - (a.x - e.x) * (c.y - e.y)) / d;
                EXPECT_GE(l1, -1e-9);
                EXPECT_GE(l2, -1e-9);
                EXPECT_GE(1 - l1 - l2, -1e-9);
            }
        }
    }
}

TEST(Grid, AscRowsRunNorthToSouthWithNoData)
{
    CKivScratch dir;
    CKivGrid g = MakeGrid(500000, 3000000, 500020, 3000010, 10);
    ASSERT_EQ(g.nCols, 3);
    ASSERT_EQ(g.nRows, 2);
    for (int c = 0; c < 3; ++c) {
        g.At(c, 0) = c;
    }
    g.At(1, 1) = 7.5;
    WriteGrid(dir / "g.asc", g, -9999);
    EXPECT_EQ(ReadText(dir / "g.asc"), "ncols 3\nnrows 2\nxllcenter 500000\nyllcenter 3000000\ncellsize 10\n"
                                       "NODATA_value -9999\n-9999 7.5 -9999\n0 1 2\n");
    WriteGrid(dir / "g.xyz", g, -1);
    EXPECT_EQ(ReadText(dir / "g.xyz"), "500000 3000000 0\n500010 3000000 1\n500020 3000000 2\n"
                                       "500000 3000010 -1\n500010 3000010 7.5\n500020 3000010 -1\n");
    EXPECT_THROW(MakeGrid(0, 0, 1e6, 1e6, 0.01), std::runtime_error);
    EXPECT_THROW(MakeGrid(0, 0, 1, 1, 0.0), std::runtime_error);
}
