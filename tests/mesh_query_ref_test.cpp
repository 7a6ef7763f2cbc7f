// The query's hashed and gridded paths against plain versions written from
// the algorithm text: the same answers, in the same order, on random meshes.
#include <kivgeo/delaunay.h>
#include <kivgeo/mesh_query.h>
#include <kivgeo/spacemath.h>

#include "mesh_query_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

using QueryTest::GridTris;
using QueryTest::P;
using TriMesh::_sSeg;
using TriMesh::_sTri;
using TriMesh::_sVertex;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshDataInspector;
using TriMesh::CKivMeshQuery;
using TriMesh::CKivMeshQueryInspector;
using TriMesh::CKivOctNode;

namespace {

// ---- Plain versions ----

// Elevation from the octree column alone: every proper hit, sorted, exact
// repeats dropped, the largest wins.
bool RefMapPoint(CKivMeshQuery& q, double x, double y, double& z)
{
    std::vector<_sTri*> cand;
    CKivMeshQueryInspector(q).FindTriByPos(P(x, y, 0.0), cand, false);
    std::vector<double> zs;
    for (const _sTri* t : cand) {
        CKivPoint3d hit;
        if (CKivSpaceMath::Test_Intersect_Line_And_Triangle_3D(
                P(x, y, 0.0), CGeoVector(0.0, 0.0, 1.0), t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt, hit) == 1) {
            zs.push_back(hit.z);
        }
    }
    std::sort(zs.begin(), zs.end());
    zs.erase(std::unique(zs.begin(), zs.end()), zs.end());
    if (zs.empty()) {
        return false;
    }
    z = zs.back();
    return true;
}

// Draping one segment with the linear comparison against all of out.
void RefMapLineSeg(CKivMeshData& mesh, const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<CKivSeg3d>& out)
{
    CKivMeshDataInspector ins(mesh);
    if (!ins.Tree()) {
        return;
    }
    std::vector<const CKivOctNode*> nodes;
    ins.Tree()->QueryBox2D(std::min(p1.x, p2.x), std::min(p1.y, p2.y), std::max(p1.x, p2.x), std::max(p1.y, p2.y),
                           nodes);
    for (const CKivOctNode* n : nodes) {
        for (std::size_t k = n->m_vecTri.size(); k-- > 0;) {
            const _sTri* t = n->m_vecTri[k];
            CKivPoint3d q1, q2;
            if (!CKivSpaceMath::Test_Intersect_MapSeg_And_Tri_3D(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt, p1,
                                                                 p2, q1, q2) ||
                q1 == q2) {
                continue;
            }
            bool seen = false;
            for (const CKivSeg3d& s : out) {
                seen = seen || CKivSeg3d::IsSameSeg(s.m_pt[0], s.m_pt[1], q1, q2);
            }
            if (!seen) {
                out.emplace_back(q1, q2);
            }
        }
    }
}

using Edge = std::pair<const _sVertex*, const _sVertex*>;

// Boundary edges with the slot scan: a match empties its slot, a new edge
// takes the first empty slot met, else the next unused one.
std::vector<Edge> RefSegsOfMesh(CKivMeshData& mesh)
{
    std::vector<Edge> slot;
    std::vector<bool> filled;
    for (const _sTri* t : CKivMeshDataInspector(mesh).Tris()) {
        for (int k = 0; k < 3; ++k) {
            const _sVertex* a = t->pVt[k];
            const _sVertex* b = t->pVt[(k + 1) % 3];
            std::size_t firstEmpty = slot.size();
            bool matched = false;
            for (std::size_t i = 0; i < slot.size(); ++i) {
                if (!filled[i]) {
                    firstEmpty = std::min(firstEmpty, i);
                    continue;
                }
                if ((slot[i].first == a && slot[i].second == b) || (slot[i].first == b && slot[i].second == a)) {
                    filled[i] = false;
                    matched = true;
                    break;
                }
            }
            if (matched) {
                continue;
            }
            if (firstEmpty == slot.size()) {
                slot.emplace_back(a, b);
                filled.push_back(true);
            } else {
                slot[firstEmpty] = Edge(a, b);
                filled[firstEmpty] = true;
            }
        }
    }
    std::vector<Edge> out;
    for (std::size_t i = 0; i < slot.size(); ++i) {
        if (filled[i]) {
            out.push_back(slot[i]);
        }
    }
    return out;
}

// Linking by rescanning the work list after every match.
std::vector<CKivPolyLine> RefLink(const std::vector<Edge>& segs)
{
    std::vector<CKivPolyLine> out;
    std::vector<bool> present(segs.size(), true);
    for (std::size_t i = 0; i < segs.size(); ++i) {
        if (!present[i]) {
            continue;
        }
        CKivPolyLine line;
        line.AddVertex(segs[i].first->pt);
        line.AddVertex(segs[i].second->pt);
        const _sVertex* head = segs[i].first;
        const _sVertex* tail = segs[i].second;
        present[i] = false;
        for (std::size_t j = i + 1; j < segs.size(); ++j) {
            if (!present[j]) {
                continue;
            }
            const _sVertex* a = segs[j].first;
            const _sVertex* b = segs[j].second;
            if (head == a) {
                line.InsertVertex(0, b->pt);
                head = b;
            } else if (head == b) {
                line.InsertVertex(0, a->pt);
                head = a;
            } else if (tail == a) {
                line.AddVertex(b->pt);
                tail = b;
            } else if (tail == b) {
                line.AddVertex(a->pt);
                tail = a;
            } else {
                continue;
            }
            present[j] = false;
            j = i; // restart at i + 1
        }
        if (head == tail) {
            line.SetClosed(true);
            line.DelVertex(line.NumVerts() - 1);
        }
        out.push_back(line);
    }
    return out;
}

// The same pieces in the same order, every coordinate bit for bit.
::testing::AssertionResult SameSegs(const std::vector<CKivSeg3d>& got, const std::vector<CKivSeg3d>& want)
{
    if (got.size() != want.size()) {
        return ::testing::AssertionFailure() << got.size() << " pieces, expected " << want.size();
    }
    for (std::size_t i = 0; i < got.size(); ++i) {
        for (int e = 0; e < 2; ++e) {
            const CKivPoint3d &g = got[i].m_pt[e], &w = want[i].m_pt[e];
            if (g.x != w.x || g.y != w.y || g.z != w.z) {
                return ::testing::AssertionFailure() << "piece " << i << " end " << e << " differs";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// ---- Random surfaces ----

// A jittered grid TIN with random heights at the given scale and offset,
// optionally with a second, overlapping sheet (a fold).
std::vector<CKivTri3d> RandomTin(std::mt19937& rng, int n, double scale, double offset, bool fold)
{
    std::uniform_real_distribution<double> jit(-0.3, 0.3), hz(-1.0, 1.0);
    std::vector<CKivPoint3d> pts((n + 1) * (n + 1));
    for (int j = 0; j <= n; ++j) {
        for (int i = 0; i <= n; ++i) {
            const bool edge = i == 0 || j == 0 || i == n || j == n;
            pts[j * (n + 1) + i] = P(offset + scale * (i + (edge ? 0.0 : jit(rng))),
                                     offset + scale * (j + (edge ? 0.0 : jit(rng))), scale * hz(rng));
        }
    }
    std::vector<CKivTri3d> tris;
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            const CKivPoint3d &a = pts[j * (n + 1) + i], &b = pts[j * (n + 1) + i + 1];
            const CKivPoint3d &c = pts[(j + 1) * (n + 1) + i + 1], &d = pts[(j + 1) * (n + 1) + i];
            tris.emplace_back(a, b, c);
            tris.emplace_back(a, c, d);
        }
    }
    if (fold) {
        // A tilted sheet over the middle, crossing the first one.
        const auto f = [&](double x, double y) { return 0.2 * (x - offset) - 0.1 * (y - offset) - 0.5 * scale; };
        const std::vector<CKivTri3d> sheet =
            GridTris(n / 2, n / 2, scale * 1.1, offset + scale * n * 0.2, offset + scale * n * 0.2, f);
        tris.insert(tris.end(), sheet.begin(), sheet.end());
    }
    return tris;
}

// Query points: random ones, every corner, points on and just beside every
// edge (the tolerance band of the hit test), and a few off the mesh.
std::vector<CKivPoint3d> QueryPoints(std::mt19937& rng, const std::vector<CKivTri3d>& tris, double scale,
                                     double offset, int n)
{
    std::uniform_real_distribution<double> u(-0.1 * n, 1.1 * n);
    std::vector<CKivPoint3d> q;
    for (int i = 0; i < 200; ++i) {
        q.push_back(P(offset + scale * u(rng), offset + scale * u(rng)));
    }
    std::uniform_real_distribution<double> frac(0.0, 1.0);
    for (std::size_t t = 0; t < tris.size(); t += 3) {
        for (int k = 0; k < 3; ++k) {
            const CKivPoint3d &a = tris[t].m_pt[k], &b = tris[t].m_pt[(k + 1) % 3];
            q.push_back(a);
            const double s = frac(rng);
            const CKivPoint3d m = a + (b - a) * s;
            const double ex = b.x - a.x, ey = b.y - a.y, len = std::hypot(ex, ey);
            for (const double off : {0.0, 1e-7, -1e-7, 3e-6, -3e-6}) {
                q.push_back(P(m.x - ey / len * off * scale, m.y + ex / len * off * scale));
            }
        }
    }
    return q;
}

// The grid keeps its own copy of the corners, numbered through the
// vertices' creation indices: with slivers, walls and non-finite corners
// among the triangles, and indices that repeat, are negative or are far
// apart (after deletions the store does not renumber), it must still give
// the column's answer.
TEST(MeshQueryRef, ElevationFromThePlanGridEqualsTheOctreeColumn)
{
    std::mt19937 rng(17);
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    int hits = 0, round = 0;
    for (const double scale : {1e-3, 1.0, 1e5}) {
        for (const double offset : {0.0, 1e6}) {
            for (const bool fold : {false, true}) {
                const int n = 12, numbering = round++ % 3;
                std::vector<CKivTri3d> tris = RandomTin(rng, n, scale, offset, fold);
                const auto at = [&](double x, double y, double z) {
                    return P(offset + scale * x, offset + scale * y, z);
                };
                for (int i = 0; fold && i < 8; ++i) {
                    const double x = 1.0 + i, y = 0.5 + 0.9 * i;
                    tris.emplace_back(at(x, y, 0.1), at(x + 5, y + 1e-7, 0.3), at(x + 9, y, scale)); // sliver
                    tris.emplace_back(at(x, y, 0), at(x + 1, y, 0), at(x, y, scale));                // wall
                    tris.emplace_back(at(x, y, 0), at(x + 1, y + 1e-4, 0), at(x, y + 1e-3, 100 * scale));
                }
                if (fold) {
                    tris.emplace_back(at(2, 2, 0), P(nan, offset, 0), at(3, 2, 1));
                }
                CKivMeshData mesh;
                mesh.InputData(tris, true);
                CKivMeshDataInspector ins(mesh);
                int k = 0;
                for (_sTri* t : ins.Tris()) {
                    for (_sVertex* v : t->pVt) {
                        if (numbering == 1) {
                            v->nIndex = ++k % 3 == 0 ? 0 : (k % 3 == 1 ? -5 : v->nIndex);
                        } else if (numbering == 2 && ++k == 7) {
                            v->nIndex = 1 << 29;
                        }
                    }
                }
                CKivMeshQuery q(mesh);
                const std::vector<CKivPoint3d> pts = QueryPoints(rng, tris, scale, offset, n);
                for (const bool grid : {false, true}) {
                    if (grid) {
                        ins.BuildPlanIndex();
                        ASSERT_NE(ins.PlanIndex(), nullptr);
                    }
                    for (std::size_t i = 0; i < pts.size(); ++i) {
                        const CKivPoint3d& p = pts[i];
                        if (!grid) {
                            // Dropping the grid resets the work count, so on a
                            // small mesh a query may build a grid at once:
                            // check a third of the points this way.
                            if (i % 3 != 0) {
                                continue;
                            }
                            ins.DropPlanIndex();
                        }
                        double zr = -7.0, zf = -7.0;
                        const bool r = RefMapPoint(q, p.x, p.y, zr);
                        ASSERT_EQ(q.GetMapPoint(p.x, p.y, zf), r)
                            << scale << " " << offset << " " << numbering << " " << p.x << " " << p.y;
                        ASSERT_EQ(zf, zr);
                        hits += r;
                    }
                    for (const double x : {nan, inf, -inf}) {
                        double z = -7.0;
                        EXPECT_FALSE(q.GetMapPoint(x, offset, z));
                        EXPECT_FALSE(q.GetMapPoint(offset, x, z));
                        EXPECT_EQ(z, -7.0);
                    }
                }
            }
        }
    }
    EXPECT_GT(hits, 5000);
}

TEST(MeshQueryRef, SegmentSearchEqualsOneQueryPerPiece)
{
    std::mt19937 rng(31);
    CKivMeshData cube;
    cube.InputData(QueryTest::BoxTris(P(0, 0, 0), P(10, 10, 10), 12), true);
    CKivMeshDataInspector ins(cube);
    CKivMeshQuery q(cube);
    CKivMeshQueryInspector qi(q);
    std::uniform_real_distribution<double> u(-4.0, 14.0);
    for (int it = 0; it < 200; ++it) {
        const CKivPoint3d a(u(rng), u(rng), u(rng));
        CKivPoint3d b(u(rng), u(rng), u(rng));
        if (it % 4 == 0) {
            b = a + (b - a) * 0.05; // short: one box
        }
        // The plain way: the list of points refined by inserting midpoints,
        // one octree query per piece, then sorted without repeats.
        std::vector<CKivPoint3d> pts{a, b};
        if (cube.GetMinLimit().Distance(cube.GetMaxLimit()) / a.Distance(b) < 8.0) {
            for (int pass = 0; pass < 4; ++pass) {
                for (std::size_t i = pts.size() - 1; i > 0; --i) {
                    pts.insert(pts.begin() + static_cast<std::ptrdiff_t>(i), (pts[i - 1] + pts[i]) * 0.5);
                }
            }
        }
        std::vector<_sTri*> want;
        for (std::size_t i = 0; i + 1 < pts.size(); ++i) {
            qi.FindTriByShortSeg(pts[i], pts[i + 1], want);
        }
        std::sort(want.begin(), want.end());
        want.erase(std::unique(want.begin(), want.end()), want.end());
        for (const bool grid : {false, true}) {
            ins.UsePlanIndex(grid);
            std::vector<_sTri*> got;
            qi.FindTriBySeg(a, b, got);
            ASSERT_EQ(got, want) << it << " " << grid;
        }
        // The classifiers on the same point, with the tree walk and with the
        // copy of it kept in the plan grid.
        ins.DropPlanIndex();
        const auto r0 = q.HitTestPt(a);
        ins.BuildPlanIndex();
        ASSERT_EQ(q.HitTestPt(a), r0);
    }
}

TEST(MeshQueryRef, TriangulatedSurfaces)
{
    std::mt19937 rng(37);
    for (const double scale : {1.0, 1e4}) {
        for (const double offset : {0.0, 1e6}) {
            // Random boreholes; the extent (and the octree) still reaches the
            // corners of the triangulator's bounding triangle.
            CKivMeshData mesh;
            {
                TriMesh::CKivDelaunay tin(mesh);
                std::uniform_real_distribution<double> u(0.0, 100.0);
                for (int i = 0; i < 1500; ++i) {
                    const double x = u(rng), y = u(rng);
                    tin.AddVertex(
                        P(offset + scale * x, offset + scale * y, scale * std::sin(0.1 * x) * std::cos(0.07 * y)));
                }
                ASSERT_TRUE(tin.Delaunay());
            }
            CKivMeshDataInspector ins(mesh);
            CKivMeshQuery q(mesh);
            std::vector<CKivTri3d> tris;
            mesh.OutputData(tris);

            // Every corner lies on the surface at its own height.
            ins.BuildPlanIndex();
            for (const CKivTri3d& t : tris) {
                for (const CKivPoint3d& c : t.m_pt) {
                    double z = 0.0;
                    ASSERT_TRUE(q.GetMapPoint(c.x, c.y, z));
                    ASSERT_NEAR(z, c.z, 1e-9 * scale);
                }
            }
            // The grid gives the octree's answers.
            const std::vector<CKivPoint3d> pts = QueryPoints(rng, tris, scale, offset, 100);
            for (std::size_t i = 0; i < pts.size(); i += 3) {
                double zr = -7.0, zf = -7.0;
                const bool r = RefMapPoint(q, pts[i].x, pts[i].y, zr);
                ASSERT_EQ(q.GetMapPoint(pts[i].x, pts[i].y, zf), r);
                ASSERT_EQ(zf, zr);
            }

            // The outline: closed rings whose signed areas add up to the
            // area of the triangles (the triangulator's are counter-clockwise).
            std::vector<CKivPolyLine> outline;
            q.GetOutline(outline);
            ASSERT_FALSE(outline.empty());
            double ringArea = 0.0, triArea = 0.0;
            for (const CKivPolyLine& l : outline) {
                EXPECT_TRUE(l.IsClosed());
                ringArea += l.GetArea();
            }
            for (const CKivTri3d& t : tris) {
                const CKivPoint3d &a = t.m_pt[0], &b = t.m_pt[1], &c = t.m_pt[2];
                triArea += 0.5 * ((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x));
            }
            // The shoelace sum over coordinates near 1e6 cancels badly: allow
            // for that.
            EXPECT_NEAR(ringArea, triArea, 1e-9 * triArea + 1e-15 * offset * offset);

            // Draping across it, through the octree and through the grid.
            const std::vector<CKivPoint3d> line{P(offset - 5 * scale, offset + 20 * scale),
                                                P(offset + 50 * scale, offset + 70 * scale),
                                                P(offset + 105 * scale, offset + 10 * scale)};
            std::vector<CKivSeg3d> want;
            RefMapLineSeg(mesh, line[0], line[1], want);
            RefMapLineSeg(mesh, line[1], line[2], want);
            ASSERT_GT(want.size(), 50u);
            for (const bool grid : {false, true}) {
                ins.UsePlanIndex(grid);
                std::vector<CKivSeg3d> got;
                ASSERT_TRUE(q.GetMapPolyline(line, false, got));
                ASSERT_TRUE(SameSegs(got, want)) << grid;
            }
            std::vector<CKivPolyLine> lines;
            ASSERT_TRUE(q.GetMapPolyline(line, false, lines));
            EXPECT_EQ(lines.size(), 1u);
        }
    }
}

TEST(MeshQueryRef, PlanGridFollowsMeshEdits)
{
    CKivMeshData mesh;
    // z = x from 0 to 8, so that the octree's root box holds the added
    // triangles (one outside it would not be indexed at all).
    mesh.InputData(GridTris(8, 8, 1.0, 0.0, 0.0, [](double x, double) { return x; }), true);
    CKivMeshDataInspector ins(mesh);
    CKivMeshQuery q(mesh);
    // Enough queries build the grid on their own.
    double z = 0.0;
    for (int i = 0; i < 2000 && !ins.PlanIndex(); ++i) {
        ASSERT_TRUE(q.GetMapPoint(0.5 + (i % 7), 0.5 + (i % 5), z));
    }
    ASSERT_NE(ins.PlanIndex(), nullptr);
    // A triangle added above; the grid must not hide it.
    _sVertex* a = ins.NewCountedVertex(P(2, 2, 5));
    _sVertex* b = ins.NewCountedVertex(P(4, 2, 5));
    _sVertex* c = ins.NewCountedVertex(P(2, 4, 5));
    ins.AddTri(a, b, c);
    EXPECT_EQ(ins.PlanIndex(), nullptr);
    ASSERT_TRUE(q.GetMapPoint(2.5, 2.5, z));
    EXPECT_EQ(z, 5.0);
    ins.BuildPlanIndex();
    ASSERT_TRUE(q.GetMapPoint(2.5, 2.5, z));
    EXPECT_EQ(z, 5.0);
    // Moved, then removed again.
    a->pt.z = 7.0, b->pt.z = 7.0, c->pt.z = 7.0;
    ins.InvalidateVertexIndex();
    ins.ResetOctTree();
    ins.BuildPlanIndex();
    ASSERT_TRUE(q.GetMapPoint(2.5, 2.5, z));
    EXPECT_EQ(z, 7.0);
    ins.DelTri(ins.Tris().back());
    ins.CompactTris();
    EXPECT_EQ(ins.PlanIndex(), nullptr);
    ASSERT_TRUE(q.GetMapPoint(2.5, 2.5, z));
    EXPECT_EQ(z, 2.5);
}

TEST(MeshQueryRef, DrapeDedupEqualsTheLinearScanIncludingEarlierOutput)
{
    std::mt19937 rng(23);
    for (const double scale : {1e-3, 1.0, 1e4}) {
        const int n = 12;
        std::vector<CKivTri3d> tris = RandomTin(rng, n, scale, 0.0, true);
        // Vertical and near-vertical walls: draped by the wall cut.
        for (int k = 0; k < 6; ++k) {
            const double x = scale * (2 * k + 0.5), lean = k % 2 ? 1e-4 * scale : 0.0;
            tris.emplace_back(P(x, scale, -scale), P(x + lean, 9 * scale, -scale), P(x, 5 * scale, 2 * scale));
        }
        CKivMeshData mesh;
        mesh.InputData(tris, true);
        CKivMeshDataInspector ins(mesh);
        CKivMeshQuery q(mesh);
        CKivMeshQueryInspector qi(q);
        std::uniform_real_distribution<double> u(-0.2 * n * scale, 1.2 * n * scale);
        for (int it = 0; it < 30; ++it) {
            // A random polyline, with a doubled vertex and a step back along
            // itself, so that pieces repeat.
            std::vector<CKivPoint3d> line;
            for (int k = 0; k < 2 + it % 6; ++k) {
                line.push_back(P(u(rng), u(rng)));
            }
            line.push_back(line.back());
            line.push_back(line[line.size() - 3]);
            const bool closed = it % 2 == 1;
            std::vector<CKivSeg3d> want;
            const std::size_t edges = closed ? line.size() : line.size() - 1;
            for (std::size_t i = 0; i < edges; ++i) {
                RefMapLineSeg(mesh, line[i], line[(i + 1) % line.size()], want);
            }
            // On the octree alone, and through the plan grid.
            for (const bool grid : {false, true}) {
                ins.UsePlanIndex(grid);
                std::vector<CKivSeg3d> got;
                ASSERT_TRUE(q.GetMapPolyline(line, closed, got));
                ASSERT_TRUE(SameSegs(got, want)) << grid;
            }
            // One segment into an out that already holds pieces (some of
            // them reversed) and an unrelated segment.
            std::vector<CKivSeg3d> pre(want.begin(), want.begin() + static_cast<std::ptrdiff_t>(want.size() / 2));
            for (std::size_t i = 0; i < pre.size(); i += 2) {
                std::swap(pre[i].m_pt[0], pre[i].m_pt[1]);
            }
            pre.emplace_back(P(1, 2, 3), P(4, 5, 6));
            std::vector<CKivSeg3d> refOut = pre, fastOut = pre;
            RefMapLineSeg(mesh, line[0], line[1], refOut);
            qi.GetMapLineSeg(line[0], line[1], fastOut);
            ASSERT_TRUE(SameSegs(fastOut, refOut));
        }
    }
}

TEST(MeshQueryRef, BoundaryEdgesAndLinkingEqualTheSlotScan)
{
    std::mt19937 rng(29);
    std::uniform_int_distribution<int> coin(0, 99);
    for (int it = 0; it < 60; ++it) {
        // A grid with cells dropped (holes, islands, pinch points), some
        // triangles repeated (edges used three and four times), some flipped,
        // in shuffled order. Every tenth grid is large enough for thousands
        // of live edges (the table grows several times).
        const int nx = it % 10 == 0 ? 32 : 9, ny = it % 10 == 0 ? 27 : 7;
        std::vector<CKivTri3d> tris = GridTris(
            nx, ny, 1.0, 0.0, 0.0, [](double, double) { return 0.0; }, [&](int, int) { return coin(rng) < 70; });
        const std::size_t base = tris.size();
        for (std::size_t i = 0; i < base; ++i) {
            if (coin(rng) < 8) {
                tris.push_back(tris[i]);
            }
            if (coin(rng) < 3) {
                tris.push_back(tris[i]);
                tris.push_back(tris[i]);
            }
        }
        for (CKivTri3d& t : tris) {
            if (coin(rng) < 20) {
                std::swap(t.m_pt[0], t.m_pt[1]);
            }
        }
        std::shuffle(tris.begin(), tris.end(), rng);
        if (tris.empty()) {
            continue;
        }
        CKivMeshData mesh;
        mesh.InputData(tris, true);
        CKivMeshQuery q(mesh);
        CKivMeshQueryInspector qi(q);

        std::vector<_sSeg*> segs;
        qi.GetSegsOfMesh(segs);
        const std::vector<Edge> want = RefSegsOfMesh(mesh);
        ASSERT_EQ(segs.size(), want.size());
        std::vector<Edge> got;
        for (std::size_t i = 0; i < segs.size(); ++i) {
            got.emplace_back(segs[i]->pVt[0], segs[i]->pVt[1]);
        }
        EXPECT_EQ(got, want);

        // Linking, on the edges as found and shuffled.
        for (int pass = 0; pass < 2; ++pass) {
            if (pass == 1) {
                std::vector<std::size_t> perm(segs.size());
                for (std::size_t i = 0; i < perm.size(); ++i) {
                    perm[i] = i;
                }
                std::shuffle(perm.begin(), perm.end(), rng);
                std::vector<_sSeg*> s2;
                got.clear();
                for (const std::size_t i : perm) {
                    s2.push_back(segs[i]);
                    got.emplace_back(segs[i]->pVt[0], segs[i]->pVt[1]);
                }
                segs.swap(s2);
            }
            std::vector<CKivPolyLine> lines;
            ASSERT_EQ(qi.LinkPtrSegs(segs, lines), !segs.empty());
            const std::vector<CKivPolyLine> ref = RefLink(got);
            ASSERT_EQ(lines.size(), ref.size());
            for (std::size_t i = 0; i < ref.size(); ++i) {
                ASSERT_EQ(lines[i].IsClosed(), ref[i].IsClosed());
                std::vector<CKivPoint3d> a, b;
                lines[i].OutputData(a);
                ref[i].OutputData(b);
                ASSERT_EQ(a.size(), b.size());
                for (std::size_t k = 0; k < a.size(); ++k) {
                    ASSERT_EQ(a[k].x, b[k].x);
                    ASSERT_EQ(a[k].y, b[k].y);
                }
            }
        }
        for (_sSeg* s : segs) {
            delete s;
        }
    }
}

} // namespace
