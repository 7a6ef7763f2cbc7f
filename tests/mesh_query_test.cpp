#include <kivgeo/mesh_query.h>
#include <kivgeo/planar.h>
#include <kivgeo/spacemath.h>

#include "mesh_query_support.h"
#include "spacemath/planar_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <vector>

using QueryTest::BoxTris;
using QueryTest::GridTris;
using QueryTest::P;
using TriMesh::_sTri;
using TriMesh::_sVertex;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshDataInspector;
using TriMesh::CKivMeshQuery;
using TriMesh::CKivMeshQueryInspector;

namespace {

double Flat(double, double)
{
    return 0.0;
}

double Tilted(double x, double y)
{
    return 0.5 * x - 0.25 * y + 3.0;
}

// A 10 x 10 cube centred on (5, 5, 5), faces split 4 x 4, facing outward.
void MakeCube(CKivMeshData& mesh)
{
    mesh.InputData(BoxTris(P(0, 0, 0), P(10, 10, 10), 4), true);
}

TEST(MeshQueryEmpty, EmptyMeshAndMeshWithoutOctreeAnswerAsEmpty)
{
    CKivMeshData empty;
    CKivMeshData noTree;
    {
        CKivMeshDataInspector ins(noTree);
        ins.AddTri(ins.NewCountedVertex(P(0, 0)), ins.NewCountedVertex(P(1, 0)), ins.NewCountedVertex(P(0, 1)));
        ASSERT_EQ(ins.Tree(), nullptr);
    }
    for (CKivMeshData* m : {&empty, &noTree}) {
        CKivMeshQuery q(*m);
        double z = 42.0;
        EXPECT_FALSE(q.GetMapPoint(0.2, 0.2, z));
        EXPECT_EQ(z, 42.0);
        CKivTri3d tri(P(7, 7, 7), P(7, 7, 7), P(7, 7, 7));
        EXPECT_FALSE(q.FindTriIncludePt(P(0.2, 0.2), tri));
        EXPECT_EQ(tri.m_pt[0].x, 7.0);
        EXPECT_EQ(q.HitTestPt(P(0.2, 0.2, 0.0)), CKivMeshQuery::eHitNone);
        EXPECT_EQ(q.HitTestTri(P(0, 0), P(1, 0), P(0, 1)), CKivMeshQuery::eHitNone);
        std::vector<CKivSeg3d> segs{CKivSeg3d(P(9, 9), P(8, 8))};
        EXPECT_TRUE(q.GetMapPolyline({P(-1, 0.2), P(2, 0.2)}, false, segs));
        EXPECT_TRUE(segs.empty());
        std::vector<CKivPolyLine> lines(1);
        EXPECT_FALSE(q.GetMapPolyline({P(-1, 0.2), P(2, 0.2)}, false, lines));
        EXPECT_TRUE(lines.empty());
        std::vector<CKivTri3d> tris(3);
        EXPECT_TRUE(q.GetTrisInMapPolygon({P(-1, -1), P(2, -1), P(2, 2), P(-1, 2)}, tris));
        EXPECT_TRUE(tris.empty());
        CKivMeshQueryInspector qi(q);
        std::vector<_sTri*> ptrs;
        EXPECT_FALSE(qi.GetTrisInMapPolygon({P(-1, -1), P(2, -1), P(2, 2)}, ptrs));
        CKivPolyLine keep;
        keep.AddVertex(P(1, 2, 3));
        q.GetOutline(keep);
        ASSERT_EQ(keep.NumVerts(), 1u);
        std::vector<CKivPolyLine> all(2);
        q.GetOutline(all);
        EXPECT_TRUE(all.empty());
    }
}

TEST(MeshQueryMapPoint, ElevationOnATiltedSurfaceAndNothingOffIt)
{
    CKivMeshData mesh;
    mesh.InputData(GridTris(20, 10, 1.0, 0.0, 0.0, Tilted), true);
    CKivMeshQuery q(mesh);
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> ux(0.0, 20.0), uy(0.0, 10.0);
    for (int i = 0; i < 500; ++i) {
        const double x = ux(rng), y = uy(rng);
        double z = 0.0;
        ASSERT_TRUE(q.GetMapPoint(x, y, z)) << x << " " << y;
        EXPECT_NEAR(z, Tilted(x, y), 1e-12);
    }
    // The boundary counts; beyond it nothing is extrapolated.
    double z = -1.0;
    EXPECT_TRUE(q.GetMapPoint(20.0, 5.5, z));
    EXPECT_NEAR(z, Tilted(20.0, 5.5), 1e-12);
    for (const CKivPoint3d& off : {P(20.01, 5), P(-0.01, 5), P(5, 10.5), P(-3, -3), P(1e30, 0)}) {
        z = -1.0;
        EXPECT_FALSE(q.GetMapPoint(off.x, off.y, z));
        EXPECT_EQ(z, -1.0);
    }
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(q.GetMapPoint(nan, 5, z));
    EXPECT_FALSE(q.GetMapPoint(5, inf, z));
    EXPECT_EQ(z, -1.0);
}

TEST(MeshQueryMapPoint, FoldReturnsTheTopSheetAndOnlyExactRepeatsDrop)
{
    // Two sheets over the same square: a fold crossed at z = 5 and z = 12.
    std::vector<CKivTri3d> tris = GridTris(2, 2, 5.0, 0.0, 0.0, [](double, double) { return 5.0; });
    const std::vector<CKivTri3d> upper = GridTris(2, 2, 5.0, 0.0, 0.0, [](double, double) { return 12.0; });
    tris.insert(tris.end(), upper.begin(), upper.end());
    CKivMeshData fold;
    fold.InputData(tris, true);
    CKivMeshQuery q(fold);
    double z = 0.0;
    ASSERT_TRUE(q.GetMapPoint(3.3, 6.1, z));
    EXPECT_EQ(z, 12.0);

    // Two sheets 1e-9 apart (corners apart in plan, so not merged): both
    // count and the higher one wins.
    CKivMeshData close;
    close.InputData({CKivTri3d(P(0, 0, 5), P(10, 0, 5), P(0, 10, 5)),
                     CKivTri3d(P(-1, -2, 5 + 1e-9), P(9, -1, 5 + 1e-9), P(1, 9, 5 + 1e-9))},
                    true);
    CKivMeshQuery qc(close);
    ASSERT_TRUE(qc.GetMapPoint(2.0, 2.0, z));
    EXPECT_GT(z, 5.0 + 5e-10);
}

TEST(MeshQueryIncludePt, FirstCandidateInOctreeOrderAndOnlyNearTheSurface)
{
    // A flat surface: its octree nodes are flat too, so a point one unit
    // above meets none of them.
    const auto f = [](double x, double y) { return 2.0 + 0.0 * (x + y); };
    CKivMeshData mesh;
    mesh.InputData(GridTris(4, 4, 1.0, 0.0, 0.0, f), true);
    CKivMeshQuery q(mesh);
    CKivMeshQueryInspector qi(q);
    // On the diagonal shared by the two triangles of cell (0, 0), on a grid
    // vertex, and inside a triangle.
    for (const CKivPoint3d& xy : {P(0.5, 0.5), P(1, 1), P(2.25, 1.5)}) {
        const CKivPoint3d p(xy.x, xy.y, f(xy.x, xy.y));
        std::vector<_sTri*> cand;
        qi.FindTriByPos(p, cand, true);
        const _sTri* first = nullptr;
        for (const _sTri* t : cand) {
            const CKivPoint3d &a = t->pVt[0]->pt, &b = t->pVt[1]->pt, &c = t->pVt[2]->pt;
            if (!first && GetPtPosInTri2D(p.x, p.y, a.x, a.y, b.x, b.y, c.x, c.y, false) <= 0) {
                first = t;
            }
        }
        ASSERT_NE(first, nullptr);
        CKivTri3d tri;
        ASSERT_TRUE(q.FindTriIncludePt(p, tri));
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(tri.m_pt[k].x, first->pVt[k]->pt.x);
            EXPECT_EQ(tri.m_pt[k].y, first->pVt[k]->pt.y);
            EXPECT_EQ(tri.m_pt[k].z, first->pVt[k]->pt.z);
        }
        // One unit above the surface the 3D box finds nothing.
        CKivTri3d untouched(P(9, 9, 9), P(9, 9, 9), P(9, 9, 9));
        EXPECT_FALSE(q.FindTriIncludePt(P(p.x, p.y, p.z + 1.0), untouched));
        EXPECT_EQ(untouched.m_pt[2].z, 9.0);
    }
}

TEST(MeshQueryHitTest, ClosedOutwardBoxClassifiesInsideOutsideAndOnSurface)
{
    CKivMeshData cube;
    MakeCube(cube);
    CKivMeshQuery q(cube);
    EXPECT_EQ(q.HitTestPt(P(5, 5, 5)), CKivMeshQuery::eHitInside);
    EXPECT_EQ(q.HitTestPt(P(10.01, 4.3, 6.2)), CKivMeshQuery::eHitOutside);
    EXPECT_EQ(q.HitTestPt(P(9.99, 4.3, 6.2)), CKivMeshQuery::eHitInside);
    EXPECT_EQ(q.HitTestPt(P(-0.01, 4.3, 6.2)), CKivMeshQuery::eHitOutside);
    EXPECT_EQ(q.HitTestPt(P(0.01, 4.3, 6.2)), CKivMeshQuery::eHitInside);
    // On the surface, and within 0.001 of it (squared distance below 1e-6):
    // the zero direction of the public form gives 4.
    EXPECT_EQ(q.HitTestPt(P(0.0, 4.3, 6.2)), CKivMeshQuery::eHitOnOpposite);
    // The first probe aims at the centroid of the middle triangle; points
    // 0.0005 off it along its normal meet it 0.0005 away.
    CKivPoint3d a, b, c;
    ASSERT_TRUE(cube.GetTriPts(cube.TriNum() / 2, a, b, c));
    const CKivPoint3d g = (a + b + c) * 0.3333333333333333;
    const CGeoVector n = CGeoVector(b - a) ^ CGeoVector(c - a);
    const CKivPoint3d unit = n * (1.0 / std::sqrt(n.Length2()));
    EXPECT_EQ(q.HitTestPt(g + unit * 0.0005), CKivMeshQuery::eHitOnOpposite);
    EXPECT_EQ(q.HitTestPt(g - unit * 0.0005), CKivMeshQuery::eHitOnOpposite);
    EXPECT_EQ(q.HitTestPt(g + unit * 0.01), CKivMeshQuery::eHitOutside);
    EXPECT_EQ(q.HitTestPt(g - unit * 0.01), CKivMeshQuery::eHitInside);

    // A triangle copied from the surface faces the same way; swapped, the
    // opposite way; collinear corners have no plane.
    ASSERT_TRUE(cube.GetTriPts(3, a, b, c));
    EXPECT_EQ(q.HitTestTri(a, b, c), CKivMeshQuery::eHitOnSame);
    EXPECT_EQ(q.HitTestTri(b, a, c), CKivMeshQuery::eHitOnOpposite);
    EXPECT_EQ(q.HitTestTri(P(1, 1, 1), P(2, 2, 2), P(3, 3, 3)), CKivMeshQuery::eHitNone);

    // The private form with a direction, and the second classifier.
    CKivMeshQueryInspector qi(q);
    EXPECT_EQ(qi.HitTestPt(P(0.0, 4.3, 6.2), CGeoVector(-1.0, 0.0, 0.0)), CKivMeshQuery::eHitOnSame);
    EXPECT_EQ(qi.HitTestPt(P(0.0, 4.3, 6.2), CGeoVector(1.0, 0.0, 0.0)), CKivMeshQuery::eHitOnOpposite);
    EXPECT_EQ(qi.HitTestPt_New(P(0.0, 4.3, 6.2), CGeoVector(-1.0, 0.0, 0.0)), CKivMeshQuery::eHitOnSame);

    // Inverting every triangle swaps inside and outside.
    std::vector<CKivTri3d> inv;
    cube.OutputData(inv);
    for (CKivTri3d& t : inv) {
        std::swap(t.m_pt[0], t.m_pt[1]);
    }
    CKivMeshData inward;
    inward.InputData(inv, true);
    CKivMeshQuery qin(inward);
    EXPECT_EQ(qin.HitTestPt(P(5, 5, 5)), CKivMeshQuery::eHitOutside);
    EXPECT_EQ(qin.HitTestPt(P(10.01, 4.3, 6.2)), CKivMeshQuery::eHitInside);
}

TEST(MeshQueryHitTest, RandomPointsAgreeWithTheBoxAndBothClassifiersAgree)
{
    // Not below 0.1: the ray test takes triangles whose doubled area is under
    // 1e-3 as degenerate, so smaller boxes are never hit.
    for (const double scale : {0.1, 1.0, 1e4}) {
        CKivMeshData cube;
        cube.InputData(BoxTris(P(0, 0, 0), P(10 * scale, 10 * scale, 10 * scale), 5), true);
        CKivMeshQuery q(cube);
        CKivMeshQueryInspector qi(q);
        std::mt19937 rng(11);
        std::uniform_real_distribution<double> u(-5.0, 15.0);
        int checked = 0;
        for (int i = 0; i < 300; ++i) {
            const CKivPoint3d p(u(rng) * scale, u(rng) * scale, u(rng) * scale);
            double gap = 1e300; // distance to the nearest face plane in box units
            bool inside = true;
            for (const double v : {p.x, p.y, p.z}) {
                gap = std::min({gap, std::fabs(v / scale), std::fabs(v / scale - 10.0)});
                inside = inside && v > 0.0 && v < 10.0 * scale;
            }
            if (gap * scale < 0.01) {
                continue;
            }
            ++checked;
            const auto r = q.HitTestPt(p);
            // From outside a probe ray can miss the box only if it runs along
            // a face; the centroid targets make that impossible here.
            EXPECT_EQ(r, inside ? CKivMeshQuery::eHitInside : CKivMeshQuery::eHitOutside) << p.x << " " << p.y;
            EXPECT_EQ(qi.HitTestPt_New(p, CGeoVector(0.0, 0.0, 0.0)), r);
        }
        EXPECT_GT(checked, 200);
    }
}

TEST(MeshQuerySeg, OneBoxAtAnEighthOfTheDiagonalSixteenBeyond)
{
    // Extent (0, 0, 0) - (3, 4, 0): diagonal 5. The segment from (0, 0) to
    // (0.375, 0.5) is 0.625 long, exactly an eighth.
    CKivMeshData mesh;
    mesh.InputData(GridTris(60, 80, 0.05, 0.0, 0.0, Flat), true);
    CKivMeshQuery q(mesh);
    CKivMeshQueryInspector qi(q);
    const auto boxes = [&](const CKivPoint3d& a, const CKivPoint3d& b, int pieces) {
        std::vector<_sTri*> out;
        for (int i = 0; i < pieces; ++i) {
            qi.FindTriByShortSeg(a + (b - a) * (double(i) / pieces), a + (b - a) * (double(i + 1) / pieces), out);
        }
        std::sort(out.begin(), out.end());
        out.erase(std::unique(out.begin(), out.end()), out.end());
        return out;
    };
    const CKivPoint3d a = P(0, 0), b = P(0.375, 0.5), longer = P(0.375 + 1e-9, 0.5);
    ASSERT_EQ(a.Distance(b), 0.625);
    std::vector<_sTri*> got;
    qi.FindTriBySeg(a, b, got);
    EXPECT_EQ(got, boxes(a, b, 1));
    qi.FindTriBySeg(a, longer, got);
    const std::vector<_sTri*> sixteen = boxes(a, longer, 16);
    EXPECT_EQ(got, sixteen);
    EXPECT_LT(sixteen.size(), boxes(a, longer, 1).size()); // the rule is visible
    EXPECT_TRUE(std::adjacent_find(got.begin(), got.end()) == got.end());
}

TEST(MeshQueryDrape, PiecesLieOnTheSurfaceOverTheLineAtEveryScale)
{
    for (const double scale : {1e-4, 1.0, 1e5}) {
        for (const double offset : {0.0, 1e6}) {
            const auto f = [scale, offset](double x, double y) {
                return Tilted((x - offset) / scale, (y - offset) / scale) * scale;
            };
            CKivMeshData mesh;
            mesh.InputData(GridTris(12, 9, scale, offset, offset, f), true);
            CKivMeshQuery q(mesh);
            const CKivPoint3d a = P(offset - 2 * scale, offset + 1.3 * scale);
            const CKivPoint3d b = P(offset + 14 * scale, offset + 7.9 * scale);
            std::vector<CKivSeg3d> segs;
            ASSERT_TRUE(q.GetMapPolyline({a, b}, false, segs));
            ASSERT_FALSE(segs.empty());
            const double dx = b.x - a.x, dy = b.y - a.y, len = std::hypot(dx, dy);
            // 1e-9 of the cell size, plus the rounding of coordinates far
            // from the origin (about a hundred ulps).
            const double tol = 1e-9 * scale + 1e-14 * offset;
            double planLen = 0.0;
            for (const CKivSeg3d& s : segs) {
                for (const CKivPoint3d& e : s.m_pt) {
                    // Over the plan line, and on the surface.
                    const double off = ((e.x - a.x) * dy - (e.y - a.y) * dx) / len;
                    EXPECT_LE(std::fabs(off), tol);
                    EXPECT_NEAR(e.z, f(e.x, e.y), tol);
                }
                planLen += std::hypot(s.m_pt[1].x - s.m_pt[0].x, s.m_pt[1].y - s.m_pt[0].y);
            }
            // The line crosses the grid between x = 0 and x = 12 (in cells).
            const double inside = 12.0 * scale * len / dx;
            EXPECT_NEAR(planLen, inside, tol);
            std::vector<CKivPolyLine> lines;
            ASSERT_TRUE(q.GetMapPolyline({a, b}, false, lines));
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_FALSE(lines[0].IsClosed());
        }
    }
}

TEST(MeshQueryDrape, ClosedTwoPointsDrapeOnceAndOffMeshIsEmpty)
{
    CKivMeshData mesh;
    mesh.InputData(GridTris(6, 6, 1.0, 0.0, 0.0, Tilted), true);
    CKivMeshQuery q(mesh);
    std::vector<CKivSeg3d> open, closed;
    EXPECT_FALSE(q.GetMapPolyline({P(1, 1)}, false, open));
    ASSERT_TRUE(q.GetMapPolyline({P(0.5, 0.7), P(5.2, 3.9)}, false, open));
    ASSERT_TRUE(q.GetMapPolyline({P(0.5, 0.7), P(5.2, 3.9)}, true, closed));
    ASSERT_FALSE(open.empty());
    ASSERT_EQ(closed.size(), open.size()); // there and back, each piece once
    for (std::size_t i = 0; i < open.size(); ++i) {
        EXPECT_TRUE(CKivSeg3d::IsSameSeg(open[i].m_pt[0], open[i].m_pt[1], closed[i].m_pt[0], closed[i].m_pt[1]));
    }
    // Entirely off the mesh: true and nothing; the linked form reports what
    // linking an empty bag reports.
    std::vector<CKivSeg3d> none{CKivSeg3d()};
    EXPECT_TRUE(q.GetMapPolyline({P(10, 10), P(20, 12)}, false, none));
    EXPECT_TRUE(none.empty());
    std::vector<CKivSeg3d> emptyBag;
    std::vector<CKivPolyLine> probe;
    const bool linkEmpty = CKivSeg3d::LinkSeg(emptyBag, probe);
    std::vector<CKivPolyLine> lines(2);
    EXPECT_EQ(q.GetMapPolyline({P(10, 10), P(20, 12)}, false, lines), linkEmpty);
    EXPECT_TRUE(lines.empty());
    // A line that only touches a corner of the mesh gives nothing.
    EXPECT_TRUE(q.GetMapPolyline({P(-1, 5), P(1, 7)}, false, none));
    EXPECT_TRUE(none.empty());
}

TEST(MeshQueryPolygon, CentroidsStrictlyInsideOnceEach)
{
    CKivMeshData mesh;
    mesh.InputData(GridTris(10, 10, 1.0, 0.0, 0.0, Flat), true);
    CKivMeshQuery q(mesh);
    CKivMeshQueryInspector qi(q);
    std::vector<_sTri*> ptrs;
    EXPECT_FALSE(qi.GetTrisInMapPolygon({P(0, 0), P(5, 5)}, ptrs));
    std::vector<CKivTri3d> tris(4);
    EXPECT_TRUE(q.GetTrisInMapPolygon({P(0, 0), P(5, 5)}, tris));
    EXPECT_TRUE(tris.empty());

    // Cell (0, 0) is split along (0, 0)-(1, 1): centroids (2/3, 1/3) and
    // (1/3, 2/3). A polygon whose edge runs through (2/3, 1/3) misses it.
    const double third = (0.0 + 1.0 + 1.0) * 0.3333333333333333;
    ASSERT_TRUE(q.GetTrisInMapPolygon({P(-1, -1), P(third, -1), P(third, 3), P(-1, 3)}, tris));
    for (const CKivTri3d& t : tris) {
        const double gx = (t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) * 0.3333333333333333;
        EXPECT_LT(gx, third);
    }

    std::mt19937 rng(5);
    std::uniform_real_distribution<double> u(-2.0, 12.0);
    std::vector<CKivTri3d> all;
    mesh.OutputData(all);
    for (int it = 0; it < 40; ++it) {
        std::vector<CKivPoint3d> poly;
        for (int k = 0; k < 3 + it % 5; ++k) {
            poly.push_back(P(u(rng), u(rng)));
        }
        ASSERT_TRUE(q.GetTrisInMapPolygon(poly, tris));
        std::multiset<std::vector<double>> want, got;
        for (const CKivTri3d& t : all) {
            const CKivPoint3d g((t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) * 0.3333333333333333,
                                (t.m_pt[0].y + t.m_pt[1].y + t.m_pt[2].y) * 0.3333333333333333, 0.0);
            if (IsPtInPolygon(poly, g) == 1) {
                want.insert({t.m_pt[0].x, t.m_pt[0].y, t.m_pt[1].x, t.m_pt[1].y, t.m_pt[2].x, t.m_pt[2].y});
            }
        }
        for (const CKivTri3d& t : tris) {
            got.insert({t.m_pt[0].x, t.m_pt[0].y, t.m_pt[1].x, t.m_pt[1].y, t.m_pt[2].x, t.m_pt[2].y});
        }
        EXPECT_EQ(got, want);
    }
}

TEST(MeshQueryOutline, SmallMeshesHolesIslandsAndDistinctCoincidentVertices)
{
    {
        CKivMeshData one;
        one.InputData({CKivTri3d(P(0, 0), P(1, 0), P(0, 1))}, true);
        CKivMeshQuery q(one);
        std::vector<CKivPolyLine> all;
        q.GetOutline(all);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_TRUE(all[0].IsClosed());
        EXPECT_EQ(all[0].NumVerts(), 3u);
    }
    {
        CKivMeshData two;
        two.InputData({CKivTri3d(P(0, 0), P(1, 0), P(1, 1)), CKivTri3d(P(0, 0), P(1, 1), P(0, 1))}, true);
        CKivMeshQuery q(two);
        CKivPolyLine line;
        q.GetOutline(line);
        EXPECT_TRUE(line.IsClosed());
        EXPECT_EQ(line.NumVerts(), 4u);
        EXPECT_DOUBLE_EQ(line.GetArea(), 1.0);
    }
    // A 6 x 6 grid with the middle 2 x 2 cells removed, in both orientations:
    // the outer ring wins whatever its sign.
    for (const bool flip : {false, true}) {
        std::vector<CKivTri3d> tris = GridTris(6, 6, 1.0, 0.0, 0.0, Flat,
                                               [](int i, int j) { return !(i >= 2 && i < 4 && j >= 2 && j < 4); });
        if (flip) {
            for (CKivTri3d& t : tris) {
                std::swap(t.m_pt[0], t.m_pt[1]);
            }
        }
        CKivMeshData holed;
        holed.InputData(tris, true);
        CKivMeshQuery q(holed);
        std::vector<CKivPolyLine> all;
        q.GetOutline(all);
        ASSERT_EQ(all.size(), 2u);
        std::vector<double> areas;
        for (const CKivPolyLine& l : all) {
            EXPECT_TRUE(l.IsClosed());
            areas.push_back(std::fabs(l.GetArea()));
        }
        std::sort(areas.begin(), areas.end());
        EXPECT_DOUBLE_EQ(areas[0], 4.0);
        EXPECT_DOUBLE_EQ(areas[1], 36.0);
        CKivPolyLine outer;
        q.GetOutline(outer);
        EXPECT_DOUBLE_EQ(std::fabs(outer.GetArea()), 36.0);
        EXPECT_EQ(outer.NumVerts(), 24u);
    }
    // Two islands: the larger is the outline.
    {
        std::vector<CKivTri3d> tris = GridTris(2, 2, 1.0, 0.0, 0.0, Flat);
        const std::vector<CKivTri3d> big = GridTris(3, 3, 1.0, 10.0, 0.0, Flat);
        tris.insert(tris.end(), big.begin(), big.end());
        CKivMeshData islands;
        islands.InputData(tris, true);
        CKivMeshQuery q(islands);
        std::vector<CKivPolyLine> all;
        q.GetOutline(all);
        ASSERT_EQ(all.size(), 2u);
        CKivPolyLine outer;
        q.GetOutline(outer);
        EXPECT_DOUBLE_EQ(outer.GetArea(), 9.0);
    }
    // Coincident but distinct vertices do not join: the shared edge stays
    // twice and the two triangles give two rings.
    {
        CKivMeshData split;
        CKivMeshDataInspector ins(split);
        _sVertex* a = ins.NewCountedVertex(P(0, 0));
        _sVertex* b = ins.NewCountedVertex(P(1, 0));
        _sVertex* c = ins.NewCountedVertex(P(1, 1));
        _sVertex* a2 = ins.NewCountedVertex(P(0, 0));
        _sVertex* c2 = ins.NewCountedVertex(P(1, 1));
        _sVertex* d = ins.NewCountedVertex(P(0, 1));
        ins.AddTri(a, b, c);
        ins.AddTri(a2, c2, d);
        ins.ResetOctTree();
        CKivMeshQuery q(split);
        std::vector<CKivPolyLine> all;
        q.GetOutline(all);
        ASSERT_EQ(all.size(), 2u);
        EXPECT_EQ(all[0].NumVerts(), 3u);
        EXPECT_EQ(all[1].NumVerts(), 3u);
    }
}

TEST(MeshQueryOutline, CacheIsNeverRefreshed)
{
    CKivMeshData mesh;
    mesh.InputData(GridTris(2, 2, 1.0, 0.0, 0.0, Flat), true);
    CKivMeshQuery q(mesh);
    CKivPolyLine before;
    q.GetOutline(before);
    EXPECT_DOUBLE_EQ(before.GetArea(), 4.0);
    mesh.InputData(GridTris(5, 5, 1.0, 0.0, 0.0, Flat), true);
    CKivPolyLine after;
    q.GetOutline(after);
    EXPECT_DOUBLE_EQ(after.GetArea(), 4.0);
    CKivMeshQuery fresh(mesh);
    fresh.GetOutline(after);
    EXPECT_DOUBLE_EQ(after.GetArea(), 25.0);
}

TEST(MeshQueryBadInput, NonFiniteAndDegenerateInputNeverCrash)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    std::vector<CKivTri3d> tris = GridTris(3, 3, 1.0, 0.0, 0.0, Tilted);
    tris.emplace_back(P(nan, 0, 0), P(1, 1, 1), P(2, 0, 0));
    tris.emplace_back(P(1, 1, 1), P(1, 1, 1), P(1, 1, 1));
    tris.emplace_back(P(0, 0, 0), P(1, 1, 1), P(2, 2, 2));
    tris.emplace_back(P(0, 0, 0), P(0, 0, 5), P(1, 1, 1)); // vertical
    CKivMeshData mesh;
    mesh.InputData(tris, true);
    CKivMeshQuery q(mesh);
    const std::vector<CKivPoint3d> odd{P(nan, 1, 1),        P(inf, 0, 0), P(-inf, 2, 1),
                                       P(1e308, -1e308, 0), P(1, 1, 1),   P(0.5, 0.5, 0)};
    for (const CKivPoint3d& p : odd) {
        double z = 0.0;
        q.GetMapPoint(p.x, p.y, z);
        CKivTri3d t;
        q.FindTriIncludePt(p, t);
        q.HitTestPt(p);
        q.HitTestTri(p, P(0, 0, 0), P(1, 0, 0));
        CKivMeshQueryInspector(q).HitTestPt_New(p, CGeoVector(1.0, 0.0, 0.0));
    }
    std::vector<CKivSeg3d> segs;
    EXPECT_TRUE(q.GetMapPolyline(odd, true, segs));
    for (const CKivSeg3d& s : segs) {
        for (const CKivPoint3d& e : s.m_pt) {
            EXPECT_TRUE(std::isfinite(e.x) && std::isfinite(e.y) && std::isfinite(e.z));
        }
    }
    std::vector<CKivPolyLine> lines;
    q.GetMapPolyline(odd, false, lines);
    std::vector<CKivTri3d> in;
    EXPECT_TRUE(q.GetTrisInMapPolygon(odd, in));
    std::vector<CKivPolyLine> outline;
    q.GetOutline(outline);
    EXPECT_FALSE(outline.empty());
}

} // namespace
