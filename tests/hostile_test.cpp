// Hostile input at sizes the fuzz targets never reach: huge runs of
// identical or collinear points, a grid with every point twice, and clockwise
// outlines with holes outside or across them. Each case must finish (the time
// bound is generous and only there to catch hangs), leave a valid
// triangulation and a mesh on which the queries answer.
#include "tin_check.h"

#include <kivgeo/delaunay.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>
#include <kivgeo/planar.h>
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

using TriMesh::CKivDelaunay;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshQuery;

namespace {

// Far above what any case needs even under the sanitizers: only a hang fails.
constexpr double kHangSeconds = 120.0;

class CKivStopwatch {
public:
    double Seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

CKivPoint3d P(double x, double y, double z = 0.0)
{
    return CKivPoint3d(x, y, z);
}

double SignedArea(const CKivTri3d& t)
{
    return 0.5 * tincheck::Orient(t.m_pt[0], t.m_pt[1], t.m_pt[2]);
}

double TotalArea(const std::vector<CKivTri3d>& tris)
{
    double a = 0.0;
    for (const CKivTri3d& t : tris) {
        a += SignedArea(t);
    }
    return a;
}

// The mesh is a valid triangulation and the queries answer on it: heights at
// triangle centroids come back, point location finds them, and the outline
// closes with one vertex per boundary edge. (The fuzz targets put every
// query through odd meshes; here the point is the size of the input.)
void ExpectUsable(const CKivMeshData& mesh)
{
    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);
    const std::string why = tincheck::CheckTin(tris);
    ASSERT_TRUE(why.empty()) << why;
    CKivMeshQuery query(mesh);
    std::vector<CKivPolyLine> outline;
    query.GetOutline(outline);
    if (tris.empty()) {
        EXPECT_TRUE(outline.empty());
        return;
    }
    const std::size_t step = std::max<std::size_t>(1, tris.size() / 300);
    for (std::size_t i = 0; i < tris.size(); i += step) {
        const CKivTri3d& t = tris[i];
        const CKivPoint3d c((t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) / 3,
                            (t.m_pt[0].y + t.m_pt[1].y + t.m_pt[2].y) / 3,
                            (t.m_pt[0].z + t.m_pt[1].z + t.m_pt[2].z) / 3);
        double z = 0.0;
        ASSERT_TRUE(query.GetMapPoint(c.x, c.y, z)) << "no height at the centroid of triangle " << i;
        EXPECT_NEAR(z, c.z, 1e-6 * (1.0 + std::fabs(c.z))) << "triangle " << i;
        CKivTri3d found;
        EXPECT_TRUE(query.FindTriIncludePt(c, found)) << "triangle " << i;
    }
    std::size_t outlineVerts = 0;
    for (const CKivPolyLine& l : outline) {
        EXPECT_TRUE(l.IsClosed());
        outlineVerts += l.NumVerts();
    }
    EXPECT_EQ(outlineVerts, tincheck::BoundaryEdgeCount(tris));
}

// Triangulates points (and optional holes and outline), checks the time bound and the
// mesh, and returns the triangles.
struct TinRun {
    std::vector<CKivPoint3d> points;
    std::vector<std::vector<CKivPoint3d>> holes;
    std::vector<CKivPoint3d> outline;
    bool coverHull = false;

    std::vector<CKivTri3d> Run(bool& ok) const
    {
        CKivStopwatch clock;
        CKivMeshData mesh;
        CKivDelaunay tin(mesh);
        tin.SetCoverHull(coverHull);
        for (const CKivPoint3d& p : points) {
            tin.AddVertex(p);
        }
        for (const std::vector<CKivPoint3d>& h : holes) {
            tin.AddHoleLine(h);
        }
        if (!outline.empty()) {
            tin.SetOutline(outline);
        }
        ok = tin.Delaunay();
        EXPECT_LT(clock.Seconds(), kHangSeconds);
        ExpectUsable(mesh);
        std::vector<CKivTri3d> tris;
        mesh.OutputData(tris);
        return tris;
    }
};

std::vector<CKivPoint3d> Grid(int n, double step)
{
    std::vector<CKivPoint3d> pts;
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            pts.push_back(P(i * step, j * step, ((i * 7 + j * 3) % 11) * step));
        }
    }
    return pts;
}

TEST(HostileInput, HundredThousandIdenticalPoints)
{
    CKivStopwatch clock;
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(tin.AddVertex(P(12.5, -3.25, 7.0)), 0);
    }
    EXPECT_FALSE(tin.Delaunay());
    EXPECT_LT(clock.Seconds(), kHangSeconds);
    EXPECT_EQ(mesh.TriNum(), 0u);
    ExpectUsable(mesh);
}

TEST(HostileInput, HundredThousandCollinearPoints)
{
    for (const bool cover : {false, true}) {
        TinRun run;
        run.coverHull = cover;
        for (int i = 0; i < 100000; ++i) {
            run.points.push_back(P(3.0 * i, 2.0 * i + 1.0, 0.5 * i));
        }
        bool ok = false;
        EXPECT_TRUE(run.Run(ok).empty()) << "collinear points enclose no area";
    }
}

TEST(HostileInput, GridWithEveryPointDuplicated)
{
    const std::vector<CKivPoint3d> grid = Grid(150, 1.0);
    TinRun run;
    run.coverHull = true;
    for (const CKivPoint3d& p : grid) {
        run.points.push_back(p);
        run.points.push_back(p);
    }
    bool ok = false;
    const std::vector<CKivTri3d> tris = run.Run(ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(tris.size(), 2u * 149 * 149);
    EXPECT_NEAR(TotalArea(tris), 149.0 * 149.0, 1e-6);
}

std::vector<CKivPoint3d> Square(double x0, double y0, double size, bool clockwise)
{
    std::vector<CKivPoint3d> s = {P(x0, y0), P(x0 + size, y0), P(x0 + size, y0 + size), P(x0, y0 + size)};
    if (clockwise) {
        std::reverse(s.begin(), s.end());
    }
    return s;
}

// A clockwise outline acts like a counter-clockwise one, alone or with holes
// outside it or across its edge (whose crossings are not honoured).
TEST(HostileInput, OutlineOfEitherOrientationWithHolesOutsideOrAcrossIt)
{
    for (const bool withHoles : {false, true}) {
        std::vector<std::size_t> counts;
        for (const bool clockwise : {false, true}) {
            TinRun run;
            run.points = Grid(21, 1.0);
            run.outline = Square(3.5, 2.5, 12.0, clockwise);
            if (withHoles) {
                run.holes = {Square(30.0, 30.0, 5.0, false), Square(14.0, 13.0, 5.0, true),
                             Square(-3.0, 4.0, 4.0, false)};
            }
            bool ok = false;
            const std::vector<CKivTri3d> tris = run.Run(ok);
            EXPECT_TRUE(ok);
            counts.push_back(tris.size());
            for (const CKivTri3d& t : tris) {
                const CKivPoint3d c((t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) / 3,
                                    (t.m_pt[0].y + t.m_pt[1].y + t.m_pt[2].y) / 3, 0.0);
                EXPECT_EQ(IsPtInPolygon(run.outline, c), 1);
            }
            if (!withHoles) {
                EXPECT_NEAR(TotalArea(tris), 144.0, 1e-6) << "clockwise " << clockwise;
            }
        }
        EXPECT_EQ(counts[0], counts[1]) << "holes " << withHoles;
    }
}

// Found by the triangulator fuzzer: a cluster of points a few units apart at
// (-1e9, 1e9) next to points near the origin and at (1e9, -1e9). Triangles
// reaching the bounding corners, 1e10 away, have in-circle terms of 1e29, so
// the rounded test cut cavities short and left non-Delaunay triangles.
TEST(HostileInput, EmptyCircleWithClusterFarFromOrigin)
{
    const std::vector<CKivPoint3d> pts = {P(-999999891.578125, 1000000108.421875, 108.421875),
                                          P(-999999891.9609375, 1000000003.0039062, 49),
                                          P(-1000000003, 1000000003, -1),
                                          P(-1000000000, 1000000000, -3),
                                          P(-1000000000, 1000006000, 0),
                                          P(-999999000, 999992000, -4),
                                          P(-1000000000, 999999992, 4),
                                          P(-1000001000, 1000007984, 12),
                                          P(9.78189276458057e-84, -27770.187806851231, 5),
                                          P(1000001000, -1000063524.3756137, -2),
                                          P(-1000000003, 1000000003, 1),
                                          P(-1000000000, 999999996, 0),
                                          P(-1000000000, 999999996.01100004, 0.010999999999999999),
                                          P(-999999993, 1000000005, 1),
                                          P(-1000000001, 999999999, -4),
                                          P(-999999999, 999999998, -4),
                                          P(-999999997, 999999997, 1),
                                          P(-1.5650081399192485e-209, 0, 0)};
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    for (const CKivPoint3d& p : pts) {
        tin.AddVertex(p);
    }
    ASSERT_TRUE(tin.Delaunay());
    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);
    EXPECT_EQ(tincheck::CheckTin(tris), "");
    for (const CKivTri3d& t : tris) {
        for (const CKivTri3d& o : tris) {
            for (const CKivPoint3d& p : o.m_pt) {
                EXPECT_FALSE(tincheck::InCircleStrict(t.m_pt[0], t.m_pt[1], t.m_pt[2], p))
                    << "(" << p.x << ", " << p.y << ") in the circle of (" << t.m_pt[0].x << ", " << t.m_pt[0].y
                    << ") (" << t.m_pt[1].x << ", " << t.m_pt[1].y << ") (" << t.m_pt[2].x << ", " << t.m_pt[2].y
                    << ")";
            }
        }
    }
}

} // namespace
