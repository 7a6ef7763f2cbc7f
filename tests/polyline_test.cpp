#include <kivgeo/polyline.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
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
    std::vector<CKivPoint3d> v = Verts(l);
    ASSERT_EQ(v.size(), 4u);
    EXPECT_EQ(v[0].x, 0.0);
    EXPECT_EQ(v[1].x, 1.0);
    EXPECT_EQ(v[2].x, 1.5);
    EXPECT_EQ(v[3].x, 2.0);
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

} // namespace
