#include <kivgeo/extent.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/tri3d.h>

#include <gtest/gtest.h>

#include <random>
#include <type_traits>

namespace {

TEST(Tri3d, ValueSemanticsAndInvert)
{
    static_assert(std::has_virtual_destructor<CKivTri3d>::value, "");
    static_assert(std::has_virtual_destructor<CKivSeg3d>::value, "");
    const CKivPoint3d a(0.0, 0.0, 0.0), b(1.0, 0.0, 0.0), c(0.0, 1.0, 1.0);
    CKivTri3d t(a, b, c);
    CKivTri3d u;
    EXPECT_EQ(u.m_pt[2].z, 0.0);
    u = t;
    u.Invert();
    EXPECT_EQ(u.m_pt[0].x, 1.0);
    EXPECT_EQ(u.m_pt[1].x, 0.0);
    EXPECT_EQ(u.m_pt[2].z, 1.0);
    u.Invert();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(u.m_pt[i].IsEqualTo(t.m_pt[i]));
    }
    u = u; // self-assignment keeps the values
    EXPECT_EQ(u.m_pt[2].z, 1.0);
}

TEST(Seg3d, SameSegInEitherDirection)
{
    const CKivPoint3d a(1.0, 2.0, 3.0), b(4.0, 5.0, 6.0);
    EXPECT_TRUE(CKivSeg3d::IsSameSeg(a, b, a, b));
    EXPECT_TRUE(CKivSeg3d::IsSameSeg(a, b, b, a));
    EXPECT_FALSE(CKivSeg3d::IsSameSeg(a, b, a, a));
    EXPECT_TRUE(CKivSeg3d::IsSameSeg(a, a, a, a));
    EXPECT_TRUE(CKivSeg3d::IsSameSeg(a, b, CKivPoint3d(4.0, 5.0, 6.0000005), a));
    EXPECT_FALSE(CKivSeg3d::IsSameSeg(a, b, CKivPoint3d(4.0, 5.0, 6.000002), a));
}

TEST(Seg3d, SamePlane)
{
    const CKivSeg3d s(CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(1.0, 0.0, 0.0));
    EXPECT_FALSE(CKivSeg3d::IsSamePlane(s, CKivSeg3d(CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(0.0, 1.0, 5.0))));
    EXPECT_TRUE(CKivSeg3d::IsSamePlane(s, CKivSeg3d(CKivPoint3d(2.0, 0.0, 0.0), CKivPoint3d(3.0, 0.0, 7.0))));
    EXPECT_TRUE(CKivSeg3d::IsSamePlane(s, CKivSeg3d(CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(5.0, 7.0, 0.0))));
    EXPECT_TRUE(CKivSeg3d::IsSamePlane(s, CKivSeg3d(CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(5.0, 7.0, 5e-7))));
    EXPECT_FALSE(CKivSeg3d::IsSamePlane(s, CKivSeg3d(CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(5.0, 7.0, 2e-6))));

    // Random planes: points built on the plane are coplanar, lifted ones are not.
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> u(-50.0, 50.0);
    for (int i = 0; i < 1000; ++i) {
        const double a = u(rng) / 50, b = u(rng) / 50, c = u(rng);
        auto on = [&](double x, double y) { return CKivPoint3d(x, y, a * x + b * y + c); };
        const CKivSeg3d p(on(u(rng), u(rng)), on(u(rng), u(rng)));
        CKivPoint3d q1 = on(u(rng), u(rng)), q2 = on(u(rng), u(rng));
        EXPECT_TRUE(CKivSeg3d::IsSamePlane(p, CKivSeg3d(q1, q2)));
        q2.z += 1.0;
        if (!CKivPoint3d::IsConllinear(p.m_pt[0], p.m_pt[1], q1)) {
            EXPECT_FALSE(CKivSeg3d::IsSamePlane(p, CKivSeg3d(q1, q2)));
        }
    }
}

TEST(Extent, PlaceholderClassesAreUsable)
{
    CKivExtent2D e;
    e.m_ptMax = CKivPoint3d(1.0, 1.0, 0.0);
    CKivBaseTriMesh m;
    EXPECT_TRUE(m.m_vVertex.empty());
    EXPECT_EQ(e.m_ptMin.x, 0.0);
}

} // namespace
