#include <kivgeo/planar.h>
#include <kivgeo/polyline.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace {

CKivPolyLine Make(const std::vector<CKivPoint3d>& pts, bool bClosed)
{
    CKivPolyLine l;
    l.SetVertex(pts);
    l.SetClosed(bClosed);
    return l;
}

std::vector<CKivPoint3d> Verts(const CKivPolyLine& l)
{
    std::vector<CKivPoint3d> v;
    l.OutputData(v);
    return v;
}

using XYs = std::vector<std::pair<double, double>>;

// The plan positions of a list of points, for comparing whole lists.
XYs XY(const std::vector<CKivPoint3d>& pts)
{
    XYs v;
    for (const CKivPoint3d& p : pts) {
        v.emplace_back(p.x, p.y);
    }
    return v;
}

// Clockwise square of side 2.
const std::vector<CKivPoint3d> kSquareCw{CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(0.0, 2.0, 0.0),
                                         CKivPoint3d(2.0, 2.0, 0.0), CKivPoint3d(2.0, 0.0, 0.0)};

TEST(PolyLine, EditingKeepsTheClosedFlag)
{
    CKivPolyLine l;
    EXPECT_EQ(l.NumVerts(), 0u);
    EXPECT_FALSE(l.IsClosed());
    l.DelVertex(0); // nothing to delete
    l.SetClosed(true);
    l.AddVertex(CKivPoint3d(1.0, 0.0, 0.0));
    l.InsertVertex(0, CKivPoint3d(0.0, 0.0, 0.0));
    l.InsertVertex(7, CKivPoint3d(2.0, 0.0, 0.0)); // past the end: appends
    l.InsertVertex(2, CKivPoint3d(1.5, 0.0, 0.0));
    EXPECT_TRUE(l.IsClosed());
    EXPECT_EQ(XY(Verts(l)), (XYs{{0.0, 0.0}, {1.0, 0.0}, {1.5, 0.0}, {2.0, 0.0}}));
    l.DelVertex(4);
    EXPECT_EQ(l.NumVerts(), 4u);
    l.DelVertex(1);
    CKivPoint3d p;
    EXPECT_TRUE(l.GetVertex(1, p));
    EXPECT_EQ(p.x, 1.5);
    EXPECT_FALSE(l.GetVertex(3, p));
    EXPECT_EQ(p.x, 1.5); // untouched on failure

    l.Offset(CKivPoint3d(1.0, 2.0, 3.0), true);
    l.Offset(CKivPoint3d(0.5, 0.5, 0.5), false);
    ASSERT_TRUE(l.GetVertex(0, p));
    EXPECT_DOUBLE_EQ(p.x, 0.5);
    EXPECT_DOUBLE_EQ(p.y, 1.5);
    EXPECT_DOUBLE_EQ(p.z, 2.5);

    CKivPolyLine copy(l), assigned;
    assigned = l;
    assigned = assigned;
    EXPECT_TRUE(copy.IsClosed());
    EXPECT_TRUE(assigned.IsClosed());
    EXPECT_EQ(assigned.NumVerts(), 3u);
    CKivPolyLine moved(std::move(copy));
    EXPECT_EQ(moved.NumVerts(), 3u);
    EXPECT_TRUE(moved.IsClosed());

    l.SetVertex(kSquareCw);
    EXPECT_TRUE(l.IsClosed());
    l.Clear();
    EXPECT_EQ(l.NumVerts(), 0u);
    EXPECT_FALSE(l.IsClosed());
}

TEST(PolyLine, AreaAndLength)
{
    EXPECT_EQ(Make(kSquareCw, false).GetArea(), 0.0);
    EXPECT_EQ(Make(kSquareCw, true).GetArea(), -4.0);
    std::vector<CKivPoint3d> ccw(kSquareCw.rbegin(), kSquareCw.rend());
    EXPECT_EQ(Make(ccw, true).GetArea(), 4.0);
    EXPECT_EQ(CKivPolyLine().GetArea(), 0.0);

    // Far from the origin the area is still that of the ring.
    std::vector<CKivPoint3d> far = ccw;
    for (CKivPoint3d& p : far) {
        p += CKivPoint3d(4.5e5, 3.9e6, 0.0);
    }
    EXPECT_NEAR(Make(far, true).GetArea(), 4.0, 1e-3);

    const CKivPolyLine open = Make(kSquareCw, false), closed = Make(kSquareCw, true);
    EXPECT_DOUBLE_EQ(open.GetLength(), 6.0);
    EXPECT_DOUBLE_EQ(closed.GetLength(), 8.0);
    EXPECT_EQ(closed.GetLength(0u), 0.0);
    EXPECT_DOUBLE_EQ(closed.GetLength(3u), 6.0); // never over the closing segment
    EXPECT_EQ(closed.GetLength(4u), -1.0);
    EXPECT_EQ(CKivPolyLine().GetLength(0u), -1.0);
    EXPECT_EQ(Make({CKivPoint3d(1.0, 1.0, 1.0)}, true).GetLength(), 0.0);

    const CKivPolyLine slope = Make({CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(3.0, 0.0, 4.0)}, false);
    EXPECT_DOUBLE_EQ(slope.GetLength(), 5.0); // 3D
}

TEST(PolyLine, PointAtArcLength)
{
    const CKivPolyLine closed = Make(kSquareCw, true);
    CKivPoint3d p(9.0, 9.0, 9.0);
    ASSERT_TRUE(closed.GetPoint(0.0, p));
    EXPECT_EQ(p.x, 0.0);
    EXPECT_EQ(p.y, 0.0);
    ASSERT_TRUE(closed.GetPoint(3.0, p));
    EXPECT_DOUBLE_EQ(p.x, 1.0);
    EXPECT_DOUBLE_EQ(p.y, 2.0);
    ASSERT_TRUE(closed.GetPoint(7.5, p)); // on the closing segment
    EXPECT_DOUBLE_EQ(p.x, 0.5);
    EXPECT_DOUBLE_EQ(p.y, 0.0);
    ASSERT_TRUE(closed.GetPoint(8.0000005, p)); // equal to the length within tolerance
    p = CKivPoint3d(9.0, 9.0, 9.0);
    EXPECT_FALSE(closed.GetPoint(8.1, p));
    EXPECT_FALSE(closed.GetPoint(-0.1, p));
    EXPECT_FALSE(Make(kSquareCw, false).GetPoint(6.5, p));
    EXPECT_EQ(p.x, 9.0); // untouched on failure
    EXPECT_FALSE(Make({CKivPoint3d(1.0, 1.0, 1.0)}, false).GetPoint(0.0, p));

    // A zero-length first segment stays finite.
    const CKivPolyLine dup =
        Make({CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(2.0, 1.0, 0.0)}, false);
    ASSERT_TRUE(dup.GetPoint(0.0, p));
    EXPECT_EQ(p.x, 1.0);

    // Arc length of the point found, random polylines.
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int round = 0; round < 200; ++round) {
        std::vector<CKivPoint3d> v;
        for (int i = 0; i < 6; ++i) {
            v.emplace_back(u(rng), u(rng), u(rng));
        }
        const CKivPolyLine l = Make(v, round % 2 == 0);
        const double len = l.GetLength();
        const double d = len * (u(rng) + 10.0) / 20.0;
        ASSERT_TRUE(l.GetPoint(d, p));
        // p lies on some segment, at arc length d.
        double acc = 0.0;
        bool found = false;
        const size_t nSeg = l.IsClosed() ? v.size() : v.size() - 1;
        for (size_t i = 0; i < nSeg && !found; ++i) {
            const CKivPoint3d& a = v[i];
            const CKivPoint3d& b = v[(i + 1) % v.size()];
            const double seg = a.Distance(b);
            if (std::fabs(a.Distance(p) + p.Distance(b) - seg) < 1e-9) {
                EXPECT_NEAR(acc + a.Distance(p), d, 1e-9);
                found = true;
            }
            acc += seg;
        }
        EXPECT_TRUE(found) << "round " << round;
    }
}

TEST(PolyLine, ArcLengthOfAPointOnIt)
{
    const CKivPolyLine open = Make(kSquareCw, false), closed = Make(kSquareCw, true);
    EXPECT_DOUBLE_EQ(open.GetLength(CKivPoint3d(1.0, 2.0, 0.0)), 3.0);
    EXPECT_DOUBLE_EQ(open.GetLength(CKivPoint3d(2.0, 2.0, 0.0)), 4.0); // a vertex: the first segment holding it
    EXPECT_EQ(open.GetLength(CKivPoint3d(1.0, 0.0, 0.0)), -1.0);       // only on the closing segment
    EXPECT_DOUBLE_EQ(closed.GetLength(CKivPoint3d(1.0, 0.0, 0.0)), 7.0);
    EXPECT_EQ(closed.GetLength(CKivPoint3d(1.0, 1.0, 0.0)), -1.0);
    EXPECT_EQ(closed.GetLength(CKivPoint3d(1.0, 2.0, 0.5)), -1.0); // 3D: above the segment is off it
    EXPECT_EQ(Make({CKivPoint3d()}, true).GetLength(CKivPoint3d()), -1.0);
}

TEST(PolyLine, HitTestReadsTheVerticesAsARing)
{
    int r = 7;
    EXPECT_FALSE(Make({CKivPoint3d(), CKivPoint3d(1.0, 0.0, 0.0)}, true).HitTest(CKivPoint3d(), r));
    EXPECT_EQ(r, 7);
    const CKivPolyLine open = Make(kSquareCw, false);
    ASSERT_TRUE(open.HitTest(CKivPoint3d(1.0, 1.0, 0.0), r));
    EXPECT_EQ(r, 1);
    ASSERT_TRUE(open.HitTest(CKivPoint3d(3.0, 1.0, 0.0), r));
    EXPECT_EQ(r, 0);
    ASSERT_TRUE(open.HitTest(CKivPoint3d(1.0, 0.0, 0.0), r)); // on the closing edge
    EXPECT_EQ(r, -1);
}

TEST(PolyLine, HeightAboveAPlanPosition)
{
    const CKivPolyLine l =
        Make({CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(4.0, 0.0, 8.0), CKivPoint3d(4.0, 2.0, 2.0)}, false);
    double z = -1.0;
    ASSERT_TRUE(l.GetZbyXY(1.0, 0.0, z));
    EXPECT_DOUBLE_EQ(z, 2.0);
    ASSERT_TRUE(l.GetZbyXY(4.0, 0.5, z));
    EXPECT_DOUBLE_EQ(z, 6.5);
    ASSERT_TRUE(l.GetZbyXY(4.0, 0.0, z)); // shared vertex: end of the first segment
    EXPECT_EQ(z, 8.0);
    z = -1.0;
    EXPECT_FALSE(l.GetZbyXY(2.0, 1.0, z));
    EXPECT_FALSE(l.GetZbyXY(2.0, 1.0, z));
    EXPECT_EQ(z, -1.0);
    EXPECT_FALSE(Make({CKivPoint3d()}, false).GetZbyXY(0.0, 0.0, z));
    EXPECT_FALSE(CKivPolyLine().GetZbyXY(0.0, 0.0, z));
    // The closing segment counts when closed.
    EXPECT_FALSE(l.GetZbyXY(2.0, 1.0, z));
    CKivPolyLine c = l;
    c.SetClosed(true);
    ASSERT_TRUE(c.GetZbyXY(2.0, 1.0, z));
    EXPECT_DOUBLE_EQ(z, 1.0);
}

TEST(PolyLine, NearestPointInPlan)
{
    const CKivPolyLine l = Make(kSquareCw, false);
    CKivPoint3d nearPt(0.0, 0.0, 42.0);
    unsigned i = 9, j = 9;
    ASSERT_TRUE(l.GetNearPt2D(CKivPoint3d(1.0, 3.0, 5.0), nearPt, i, j));
    EXPECT_DOUBLE_EQ(nearPt.x, 1.0);
    EXPECT_DOUBLE_EQ(nearPt.y, 2.0);
    EXPECT_EQ(nearPt.z, 42.0); // z left as passed
    EXPECT_EQ(i, 1u);
    EXPECT_EQ(j, 2u);
    // The centre is equally near to three segments (four when closed): the
    // earliest wins.
    ASSERT_TRUE(l.GetNearPt2D(CKivPoint3d(1.0, 1.0, 0.0), nearPt, i, j));
    EXPECT_EQ(i, 0u);
    // Closed: the closing segment is nearest, and j wraps to 0.
    ASSERT_TRUE(Make(kSquareCw, true).GetNearPt2D(CKivPoint3d(1.0, -1.0, 0.0), nearPt, i, j));
    EXPECT_EQ(i, 3u);
    EXPECT_EQ(j, 0u);
    EXPECT_DOUBLE_EQ(nearPt.y, 0.0);
    // A hit on a vertex stops at the first segment holding it.
    ASSERT_TRUE(l.GetNearPt2D(CKivPoint3d(0.0, 2.0, 0.0), nearPt, i, j));
    EXPECT_EQ(i, 0u);
    EXPECT_FALSE(Make({CKivPoint3d()}, true).GetNearPt2D(CKivPoint3d(), nearPt, i, j));
}

TEST(PolyLine, FirstCrossingOfARay)
{
    const CKivPolyLine sq = Make(kSquareCw, true);
    CKivPoint3d hit(9.0, 9.0, 9.0);
    // From the centre to the right: the right edge only (the left one is behind).
    ASSERT_TRUE(sq.IntersectWithLine2D(CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(1.5, 1.0, 0.0), hit));
    EXPECT_DOUBLE_EQ(hit.x, 2.0);
    EXPECT_DOUBLE_EQ(hit.y, 1.0);
    // From outside: the nearer of the two edges ahead.
    ASSERT_TRUE(sq.IntersectWithLine2D(CKivPoint3d(5.0, 1.0, 0.0), CKivPoint3d(4.0, 1.0, 0.0), hit));
    EXPECT_DOUBLE_EQ(hit.x, 2.0);
    // A crossing exactly at a does not count; the next one ahead does.
    ASSERT_TRUE(sq.IntersectWithLine2D(CKivPoint3d(2.0, 1.0, 0.0), CKivPoint3d(1.0, 1.0, 0.0), hit));
    EXPECT_DOUBLE_EQ(hit.x, 0.0);
    hit = CKivPoint3d(9.0, 9.0, 9.0);
    EXPECT_FALSE(sq.IntersectWithLine2D(CKivPoint3d(2.0, 1.0, 0.0), CKivPoint3d(3.0, 1.0, 0.0), hit));
    // The open polyline has no closing edge.
    EXPECT_FALSE(
        Make(kSquareCw, false).IntersectWithLine2D(CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(1.0, 0.5, 0.0), hit));
    EXPECT_EQ(hit.x, 9.0);
}

TEST(PolyLine, VerticesBetweenTwoPointsOfARing)
{
    // Counter-clockwise square of side 2 with its vertices 0..3.
    const std::vector<CKivPoint3d> ccw(kSquareCw.rbegin(), kSquareCw.rend()); // (2,0) (2,2) (0,2) (0,0)
    const CKivPolyLine ring = Make(ccw, true);
    const CKivPoint3d a(2.0, 1.0, 0.0), b(0.0, 1.0, 0.0);
    std::vector<CKivPoint3d> out{CKivPoint3d()};
    // Through the top: (2,2) then (0,2).
    ASSERT_TRUE(ring.GetPtsInPtA_PtB(a, b, CKivPoint3d(1.0, 2.0, 0.0), out));
    EXPECT_EQ(XY(out), (XYs{{2.0, 2.0}, {0.0, 2.0}}));
    // Through the bottom: (2,0) first, from a's side.
    ASSERT_TRUE(ring.GetPtsInPtA_PtB(a, b, CKivPoint3d(1.0, 0.0, 0.0), out));
    EXPECT_EQ(XY(out), (XYs{{2.0, 0.0}, {0.0, 0.0}}));
    // Swapped, from (0,1) round the bottom to (2,1): (0,0) then (2,0), but the
    // search stopped on c's segment, which starts at (0,0), so that first
    // vertex is skipped.
    ASSERT_TRUE(ring.GetPtsInPtA_PtB(b, a, CKivPoint3d(1.0, 0.0, 0.0), out));
    EXPECT_EQ(XY(out), (XYs{{2.0, 0.0}}));
    // From (0,1) over the top, c placed before b: nothing skipped.
    ASSERT_TRUE(ring.GetPtsInPtA_PtB(b, a, CKivPoint3d(1.0, 2.0, 0.0), out));
    EXPECT_EQ(XY(out), (XYs{{0.0, 2.0}, {2.0, 2.0}}));

    EXPECT_FALSE(Make(ccw, false).GetPtsInPtA_PtB(a, b, CKivPoint3d(1.0, 2.0, 0.0), out));
    EXPECT_FALSE(ring.GetPtsInPtA_PtB(a, a, CKivPoint3d(1.0, 2.0, 0.0), out));
    EXPECT_FALSE(ring.GetPtsInPtA_PtB(a, b, CKivPoint3d(1.0, 1.0, 0.0), out)); // c off the ring
}

// Thinning as a plain loop over an array with erasures.
std::vector<CKivPoint3d> PlainSample(std::vector<CKivPoint3d> p, double tol, bool bByDist)
{
    if (!bByDist) {
        for (size_t i = 1; p.size() >= 3 && i < p.size() - 1;) {
            const double a = GetTwoSegAngle(p[i].x - p[i - 1].x, p[i].y - p[i - 1].y, 0.0, 0.0,
                                            p[i + 1].x - p[i].x, p[i + 1].y - p[i].y);
            const double folded = a > 3.141592653589793 ? 6.283185307179586 - a : a;
            if (folded > tol) {
                p.erase(p.begin() + static_cast<long>(i));
            } else {
                ++i;
            }
        }
        return p;
    }
    for (size_t k = 0; p.size() >= 3 && k < p.size() - 1;) {
        const double dx = p[k + 1].x - p[k].x, dy = p[k + 1].y - p[k].y;
        if (dx * dx + dy * dy < tol * tol) {
            if (k + 1 != p.size() - 1) {
                p.erase(p.begin() + static_cast<long>(k + 1));
            } else {
                p.erase(p.begin() + static_cast<long>(k));
                --k;
            }
        } else {
            ++k;
        }
    }
    return p;
}

TEST(PolyLine, Thinning)
{
    // Zig-zag with sharp corners at the odd vertices and a straight run.
    const CKivPolyLine zig =
        Make({CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(1.0, 3.0, 0.0), CKivPoint3d(2.0, 0.0, 0.0),
              CKivPoint3d(3.0, 0.0, 0.0), CKivPoint3d(4.0, 0.0, 0.0)},
             false);
    CKivPolyLine out;
    out.SetClosed(true);
    ASSERT_TRUE(zig.Sample2D(0.5, out, false));
    EXPECT_TRUE(out.IsClosed()); // out keeps its own flag
    std::vector<CKivPoint3d> v = Verts(out);
    ASSERT_EQ(v.size(), 4u); // the spike goes, the straight run stays
    EXPECT_EQ(v[1].x, 2.0);
    EXPECT_EQ(v.back().x, 4.0);
    ASSERT_TRUE(zig.Sample2D(3.2, out, false)); // at least a half turn: nothing goes
    EXPECT_EQ(out.NumVerts(), 5u);
    EXPECT_FALSE(zig.Sample2D(-1.0, out, false));
    EXPECT_FALSE(Make({CKivPoint3d(), CKivPoint3d(1.0, 0.0, 0.0)}, false).Sample2D(0.1, out, true));

    // Distance mode: the last vertex survives, its close predecessors go.
    const CKivPolyLine tight =
        Make({CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(0.5, 0.0, 0.0), CKivPoint3d(2.0, 0.0, 0.0),
              CKivPoint3d(2.6, 0.0, 0.0), CKivPoint3d(2.9, 0.0, 9.0)},
             false);
    ASSERT_TRUE(tight.Sample2D(1.0, out, true));
    v = Verts(out);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0].x, 0.0);
    EXPECT_EQ(v[1].z, 9.0);

    // Random walks against the plain loop, both modes.
    std::mt19937 rng(9);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int round = 0; round < 300; ++round) {
        std::vector<CKivPoint3d> p{CKivPoint3d(u(rng), u(rng), 0.0)};
        const int n = 3 + static_cast<int>(rng() % 40);
        for (int i = 1; i < n; ++i) {
            p.push_back(p.back() + CKivPoint3d(1.0 + u(rng), u(rng), u(rng)) * (0.1 + 0.5 * (u(rng) + 1.0)));
        }
        const double tol = (u(rng) + 1.0) * (round % 2 ? 0.6 : 1.6);
        const bool byDist = round % 2 == 1;
        ASSERT_TRUE(Make(p, false).Sample2D(tol, out, byDist));
        const std::vector<CKivPoint3d> want = PlainSample(p, tol, byDist);
        v = Verts(out);
        ASSERT_EQ(v.size(), want.size()) << "round " << round;
        for (size_t i = 0; i < v.size(); ++i) {
            EXPECT_TRUE(v[i].IsEqualTo(want[i])) << "round " << round;
        }
    }
}

// Plan distance from p to the line through a and b.
double LineDist(const CKivPoint3d& p, const CKivPoint3d& a, const CKivPoint3d& b)
{
    const double dx = b.x - a.x, dy = b.y - a.y;
    return (dx * (p.y - a.y) - dy * (p.x - a.x)) / std::sqrt(dx * dx + dy * dy); // positive on the left
}

TEST(PolyLine, OffsetCurves)
{
    const std::vector<CKivPoint3d> ccw(kSquareCw.rbegin(), kSquareCw.rend());
    CKivPolyLine out;
    // Left of a counter-clockwise ring is inside: a square of side 1.
    ASSERT_TRUE(Make(ccw, true).GetOffset2D(0.5, out, true));
    EXPECT_TRUE(out.IsClosed());
    EXPECT_NEAR(out.GetArea(), 1.0, 1e-9);
    ASSERT_TRUE(Make(ccw, true).GetOffset2D(0.5, out, false));
    EXPECT_NEAR(out.GetArea(), 9.0, 1e-9);
    // Open: the ends move square to their segments; z carries over.
    const CKivPolyLine line = Make({CKivPoint3d(0.0, 0.0, 1.0), CKivPoint3d(4.0, 0.0, 2.0)}, false);
    ASSERT_TRUE(line.GetOffset2D(1.0, out, true));
    std::vector<CKivPoint3d> v = Verts(out);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_NEAR(v[0].y, 1.0, 1e-12);
    EXPECT_NEAR(v[1].x, 4.0, 1e-12);
    EXPECT_EQ(v[1].z, 2.0);
    ASSERT_TRUE(line.GetOffset2D(1.0, out, false));
    EXPECT_NEAR(Verts(out)[0].y, -1.0, 1e-12);
    EXPECT_FALSE(Make({CKivPoint3d()}, false).GetOffset2D(1.0, out, true));

    // A distance list of the wrong length leaves out alone.
    const CKivPolyLine keep = out;
    Make(ccw, true).GetTrimmedOffset(true, {1.0, 1.0}, out);
    EXPECT_EQ(Verts(out).size(), Verts(keep).size());
    EXPECT_EQ(Verts(out)[0].y, Verts(keep)[0].y);

    // An inner offset wider than a short edge folds it: its two offset
    // vertices collapse into one.
    const CKivPolyLine uTurn = Make({CKivPoint3d(0.0, 10.0, 0.0), CKivPoint3d(0.0, 0.0, 0.0),
                                     CKivPoint3d(1.0, 0.25, 0.0), CKivPoint3d(1.5, 10.0, 0.0)},
                                    false);
    ASSERT_TRUE(uTurn.GetOffset2D(2.0, out, true));
    EXPECT_EQ(out.NumVerts(), 3u);
    ASSERT_TRUE(uTurn.GetOffset2D(0.2, out, true));
    EXPECT_EQ(out.NumVerts(), 4u);

    // Random convex rings: every offset edge lies at the distance from its
    // edge, to the requested side.
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int round = 0; round < 100; ++round) {
        const int n = 3 + static_cast<int>(rng() % 10);
        std::vector<double> ang;
        for (int i = 0; i < n; ++i) {
            ang.push_back(6.283185307179586 * (i + 0.2 + 0.6 * u(rng)) / n);
        }
        std::vector<CKivPoint3d> p;
        for (double a : ang) {
            p.emplace_back(1000.0 + 10.0 * std::cos(a), 2000.0 + 10.0 * std::sin(a), u(rng));
        }
        const CKivPolyLine ring = Make(p, true);
        const double d = 0.05 + 0.1 * u(rng);
        const bool left = round % 2 == 0;
        ASSERT_TRUE(ring.GetOffset2D(d, out, left));
        v = Verts(out);
        ASSERT_EQ(v.size(), p.size());
        for (size_t i = 0; i < p.size(); ++i) {
            const size_t k = (i + 1) % p.size();
            EXPECT_NEAR(LineDist(v[i], p[i], p[k]), left ? d : -d, 1e-9);
            EXPECT_NEAR(LineDist(v[k], p[i], p[k]), left ? d : -d, 1e-9);
            EXPECT_EQ(v[i].z, p[i].z);
        }
    }
}

TEST(PolyLine, TaperedOffsets)
{
    std::vector<CKivPoint3d> p;
    for (int i = 0; i <= 10; ++i) {
        p.emplace_back(static_cast<double>(i), 0.0, 0.0);
    }
    const CKivPolyLine line = Make(p, false);
    CKivPolyLine out;
    // Run-in over 2.5: a vertex is added at x = 2.5, offsets rise linearly.
    ASSERT_TRUE(line.GetOffset2D(2.5, 1.0, out, true, true, false));
    std::vector<CKivPoint3d> v = Verts(out);
    ASSERT_EQ(v.size(), 12u);
    EXPECT_NEAR(v[0].y, 0.0, 1e-12);
    EXPECT_NEAR(v[1].y, 0.4, 1e-12);
    EXPECT_NEAR(v[2].y, 0.8, 1e-12);
    EXPECT_NEAR(v[3].x, 2.5, 1e-12);
    EXPECT_NEAR(v[3].y, 1.0, 1e-12);
    EXPECT_NEAR(v[11].y, 1.0, 1e-12);
    // Both ends, right side, taper points on vertices: nothing inserted.
    ASSERT_TRUE(line.GetOffset2D(2.0, 1.0, out, false, true, true));
    v = Verts(out);
    ASSERT_EQ(v.size(), 11u);
    EXPECT_NEAR(v[1].y, -0.5, 1e-12);
    EXPECT_NEAR(v[5].y, -1.0, 1e-12);
    EXPECT_NEAR(v[9].y, -0.5, 1e-12);
    EXPECT_NEAR(v[10].y, 0.0, 1e-12);
    // Longer tapers than the line allows use half its length each.
    ASSERT_TRUE(line.GetOffset2D(8.0, 1.0, out, true, true, true));
    v = Verts(out);
    ASSERT_EQ(v.size(), 11u);
    EXPECT_NEAR(v[5].y, 1.0, 1e-12);
    EXPECT_NEAR(v[2].y, 0.4, 1e-12);
    EXPECT_NEAR(v[8].y, 0.4, 1e-12);
    // No taper flags: the plain offset.
    ASSERT_TRUE(line.GetOffset2D(2.0, 1.0, out, true, false, false));
    EXPECT_NEAR(Verts(out)[0].y, 1.0, 1e-12);
    // A taper of no length keeps the distance constant.
    ASSERT_TRUE(line.GetOffset2D(0.0, 1.0, out, true, true, true));
    EXPECT_NEAR(Verts(out)[0].y, 1.0, 1e-12);
    EXPECT_FALSE(Make({CKivPoint3d()}, false).GetOffset2D(1.0, 1.0, out, true, true, true));
}

TEST(PolyLine, BadCoordinatesGiveAnswersNotCrashes)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::vector<CKivPoint3d>> cases{
        {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(nan, 1.0, 0.0), CKivPoint3d(2.0, 0.0, 0.0),
         CKivPoint3d(3.0, 1.0, 0.0)},
        {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(inf, 1.0, 0.0), CKivPoint3d(2.0, -inf, 0.0),
         CKivPoint3d(3.0, 1.0, 0.0)},
        {CKivPoint3d(1e300, 1e300, 0.0), CKivPoint3d(-1e300, 1e300, 0.0), CKivPoint3d(0.0, -1e300, 1e300)},
        {CKivPoint3d(1.0, 1.0, 1.0), CKivPoint3d(1.0, 1.0, 1.0), CKivPoint3d(1.0, 1.0, 1.0)}, // all one point
        {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(1.0, 0.0, 0.0),
         CKivPoint3d(0.0, 0.0, 0.0)}, // turns back on itself
    };
    for (const std::vector<CKivPoint3d>& p : cases) {
        for (bool closed : {false, true}) {
            const CKivPolyLine l = Make(p, closed);
            CKivPoint3d q;
            CKivPolyLine out;
            std::vector<CKivPoint3d> pts;
            double z = 0.0;
            int r = 0;
            unsigned i = 0, j = 0;
            l.GetArea();
            l.GetLength();
            l.GetLength(CKivPoint3d(0.5, 0.0, 0.0));
            l.HitTest(CKivPoint3d(0.5, 0.5, 0.0), r);
            l.GetZbyXY(0.5, 0.0, z);
            l.GetPoint(1.5, q);
            l.GetPoint(nan, q);
            l.GetNearPt2D(CKivPoint3d(0.5, 0.5, 0.0), q, i, j);
            l.IntersectWithLine2D(CKivPoint3d(0.5, -1.0, 0.0), CKivPoint3d(0.5, 1.0, 0.0), q);
            l.GetPtsInPtA_PtB(p[0], p[1], p[2], pts);
            l.Sample2D(0.1, out, false);
            l.Sample2D(nan, out, true);
            l.GetOffset2D(0.5, out, true);
            l.GetOffset2D(nan, 0.5, out, true, true, true);
            l.GetOffset2D(1.0, inf, out, false, true, true);
            EXPECT_LE(out.NumVerts(), p.size() + 2);
        }
    }
}

} // namespace
