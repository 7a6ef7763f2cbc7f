// The value types: points and vectors with the library tolerance, circles
// through points, triangles, segments and extents.
#include <kivgeo/extent.h>
#include <kivgeo/point3d.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/tri3d.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <type_traits>

namespace {

// Absolute 1e-6 from magnitude 1 up, relative below it, and an exact zero
// absorbing anything within 1e-6.
TEST(CompDouble, ToleranceRules)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double a, b;
        int want;
    };
    const Case cases[] = {
        {5.0, 5.0000009, 0},     {5.0, 5.000001, -1}, {5.000001, 5.0, 1}, {-3.0, -3.0000005, 0},
        {1e12, 1e12 + 1e-4, -1}, {1e-8, 2e-8, -1},    {2e-8, 1e-8, 1},    {0.0, 2e-8, 0},
        {2e-8, 0.0, 0},          {0.5, 0.5000001, 0}, {-0.0, 0.0, 0},     {inf, inf, 0},
        {inf, 1e300, 1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CompDouble(c.a, c.b), c.want) << c.a << " vs " << c.b;
    }
    // NaN never equals a finite value.
    EXPECT_NE(CompDouble(nan, 0.0), 0);
    EXPECT_NE(CompDouble(1.0, nan), 0);
    EXPECT_DOUBLE_EQ(get_dist(0, 0, 0, 1, 2, 2), 3.0);
    EXPECT_DOUBLE_EQ(get_dist(1, 1, 4, 5), 5.0);
}

TEST(CompDouble, AntisymmetricOnRandomPairs)
{
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> mag(-12, 3);
    std::uniform_real_distribution<double> jitter(-3e-6, 3e-6);
    for (int i = 0; i < 20000; ++i) {
        const double a = std::pow(10.0, mag(rng)) * (i % 2 ? 1 : -1);
        const double b = a + jitter(rng) * (i % 3 ? 1.0 : std::fabs(a));
        EXPECT_EQ(CompDouble(a, b), -CompDouble(b, a)) << a << " " << b;
        if (std::fabs(a - b) >= 1e-6) {
            EXPECT_NE(CompDouble(a, b), 0);
        }
    }
}

TEST(Point3d, LayoutIsThreePackedDoubles)
{
    static_assert(sizeof(CKivPoint3d) == 3 * sizeof(double), "");
    CKivPoint3d pts[2] = {CKivPoint3d(1.0, 2.0, 3.0), CKivPoint3d(4.0, 5.0, 6.0)};
    const double* raw = &pts[0].x;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(raw[i], i + 1.0);
    }
    CKivPoint3d f(1.5f, 2.5f, 3.5f);
    float a, b, c;
    f.Get(a, b, c);
    EXPECT_EQ(a, 1.5f);
    EXPECT_EQ(c, 3.5f);
}

TEST(Point3d, EqualityIsPerCoordinateCompDouble)
{
    const CKivPoint3d p(10.0, 20.0, 30.0);
    const CKivPoint3d q(10.0000005, 20.0, 30.0);
    EXPECT_EQ(p == q, 1);
    EXPECT_EQ(p != q, 0);
    EXPECT_FALSE(p.IsEqualTo(q));
    EXPECT_TRUE(p.IsEqualTo(p));
    // IsEqualTo compares the squared distance with 1e-20 through CompDouble:
    // besides coincident points only a squared distance within a relative
    // 1e-6 of 1e-20 passes, so 1e-10 apart is "equal" and 5e-11 apart is not.
    const CKivPoint3d o(0.0, 0.0, 0.0);
    EXPECT_TRUE(o.IsEqualTo(CKivPoint3d(1e-10, 0.0, 0.0)));
    EXPECT_FALSE(o.IsEqualTo(CKivPoint3d(5e-11, 0.0, 0.0)));
    EXPECT_FALSE(o.IsEqualTo(CKivPoint3d(0.0, 0.0, 2e-10)));
    // Near 1e-7 the relative rule makes these differ.
    EXPECT_EQ(CKivPoint3d(1e-7, 0.0, 0.0) == CKivPoint3d(2e-7, 0.0, 0.0), 0);
    // ...but an exact zero absorbs anything within 1e-6.
    EXPECT_EQ(CKivPoint3d(0.0, 0.0, 0.0) == CKivPoint3d(5e-7, 0.0, 0.0), 1);
}

TEST(Point3d, VectorEqualityIsAbsolute)
{
    const CGeoVector u(1e-7, 0.0, 0.0), v(5e-7, 0.0, 0.0);
    EXPECT_EQ(u == v, 1);
    EXPECT_EQ(u != v, 0);
    const CKivPoint3d& pu = u;
    const CKivPoint3d& pv = v;
    EXPECT_EQ(pu == pv, 0);
}

TEST(Point3d, ArithmeticAndGuardedDivision)
{
    CKivPoint3d a(1.0, 2.0, 3.0);
    const CKivPoint3d d0 = a / 0.0;
    const CKivPoint3d dn = a / -1e-9;
    for (const CKivPoint3d& d : {d0, dn}) {
        EXPECT_NEAR(d.x, 1e5, 1e-6);
        EXPECT_NEAR(d.y, 2e5, 1e-6);
        EXPECT_NEAR(d.z, 3e5, 1e-5);
    }
    // The divisor is the double 10 * 1e-6 = 9.999999999999999e-6 exactly,
    // not the literal 1e-5 (1 / 1e-5 is 99999.99999999999).
    EXPECT_EQ(d0.x, 1.0 / 9.999999999999999e-6);
    EXPECT_EQ(dn.x, 100000.00000000001);
    EXPECT_EQ((a / 2.0).y, 1.0);
    EXPECT_EQ((a / -1e-6).x, -1e6); // |s| == 1e-6 is not guarded
    EXPECT_EQ((-a).z, -3.0);
    EXPECT_EQ((a * 2.0).z, 6.0);
    EXPECT_EQ((a - CKivPoint3d(1.0, 1.0, 1.0)).y, 1.0);

    // Compound assignments change the object and return a copy.
    static_assert(!std::is_reference<decltype(a += a)>::value, "compound assignment yields a copy");
    const CKivPoint3d r = (a += CKivPoint3d(1.0, 1.0, 1.0));
    EXPECT_EQ(a.x, 2.0);
    EXPECT_EQ(r.x, 2.0);
    a -= CKivPoint3d(1.0, 1.0, 1.0);
    a *= 3.0;
    EXPECT_EQ(a.z, 9.0);
    const CKivPoint3d q = (a /= -5e-7);
    EXPECT_EQ(a.x, 3.0 / 9.999999999999999e-6); // a tiny negative divisor divides by a positive one
    EXPECT_EQ(q.x, a.x);
}

TEST(Point3d, VectorProductsAndNormalize)
{
    const CGeoVector x(1.0, 0.0, 0.0), y(0.0, 1.0, 0.0);
    EXPECT_EQ(x * y, 0.0);
    const CGeoVector z = x ^ y;
    EXPECT_EQ(z.z, 1.0);
    EXPECT_EQ((y ^ x).z, -1.0);
    EXPECT_EQ((x * 3.0).x, 3.0); // scaling still reachable beside the dot product
    CGeoVector v(3.0, 4.0, 0.0);
    EXPECT_EQ(v.Length2(), 25.0);
    v.Normalize();
    EXPECT_NEAR(v.Length(), 1.0, 1e-15);
    CGeoVector tiny(1e-7, 0.0, 0.0);
    tiny.Normalize();
    EXPECT_EQ(tiny.x, 1e-7);
}

TEST(Circle, PointInCircleAndCollinearCorners)
{
    EXPECT_EQ(CKivPoint3d::IsPtInCircle(2.0 + 5e-7, 0, 0, 0, 2.0), 1);
    EXPECT_EQ(CKivPoint3d::IsPtInCircle(2.0 + 2e-6, 0, 0, 0, 2.0), 0);
    EXPECT_EQ(CKivPoint3d::IsPtInCircle(0, 0, 0, 0, 2.0), 1);
    // Collinear corners: always -1; a corner is on the circle. (Random
    // triangles against the circle, in both orders: planar_test.)
    EXPECT_EQ(CKivPoint3d::IsPtIn3PCircle(0.5, 0.5, 0, 0, 1, 0, 2, 0), -1);
    EXPECT_EQ(CKivPoint3d::IsPtIn3PCircle(5, 5, 0, 0, 1, 0, 2, 0), -1);
    EXPECT_EQ(CKivPoint3d::IsPtIn3PCircle(1, 0, 0, 0, 1, 0, 0, 1), 0);
}

TEST(Circle, ThreePointCircle)
{
    double r = -1, cx = -1, cy = -1;
    ASSERT_EQ(CKivPoint3d::Get_3P_Circle(0, 0, 2, 0, 0, 2, r, cx, cy), 1);
    EXPECT_NEAR(cx, 1.0, 1e-12);
    EXPECT_NEAR(cy, 1.0, 1e-12);
    EXPECT_NEAR(r, std::sqrt(2.0), 1e-12);

    r = cx = cy = -7;
    EXPECT_EQ(CKivPoint3d::Get_3P_Circle(0, 0, 1, 1, 2, 2, r, cx, cy), 0);
    EXPECT_EQ(r, -7);
    EXPECT_EQ(cx, -7);
    // Random triangles: the centre is equidistant from the three corners.
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(-100.0, 100.0);
    for (int i = 0; i < 2000; ++i) {
        const double x1 = u(rng), y1 = u(rng), x2 = u(rng), y2 = u(rng), x3 = u(rng), y3 = u(rng);
        if (CKivPoint3d::Get_3P_Circle(x1, y1, x2, y2, x3, y3, r, cx, cy)) {
            const double tol = 1e-7 * (1 + r);
            EXPECT_NEAR(std::hypot(x2 - cx, y2 - cy), r, tol);
            EXPECT_NEAR(std::hypot(x3 - cx, y3 - cy), r, tol);
        }
    }
}

TEST(Circle, CollinearityIsAnAbsoluteAreaTest)
{
    const CKivPoint3d a(0.0, 0.0, 0.0), b(1.0, 0.0, 0.0);
    EXPECT_EQ(CKivPoint3d::IsConllinear(a, b, CKivPoint3d(5.0, 0.0, 0.0)), 1);
    EXPECT_EQ(CKivPoint3d::IsConllinear(a, a, CKivPoint3d(5.0, 3.0, 0.0)), 1);
    EXPECT_EQ(CKivPoint3d::IsConllinear(a, b, CKivPoint3d(0.0, 0.0, 1.0)), 0);
    // Twice the area 5e-7: collinear by the absolute rule although clearly bent.
    EXPECT_EQ(CKivPoint3d::IsConllinear(a, CKivPoint3d(1e-3, 0.0, 0.0), CKivPoint3d(0.0, 5e-4, 0.0)), 1);
}

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
