// CKivSpaceMath: planes, sidedness and distances in space.
#include <kivgeo/spacemath.h>

#include "spacemath/spacemath_inline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace {

using M = CKivSpaceMath;

CKivPoint3d P(double x, double y, double z)
{
    return CKivPoint3d(x, y, z);
}

// ---------------------------------------------------------------- planes

TEST(SpacePlane, LengthBoundConstantMatchesSquareRoot)
{
    const double b = SpaceMathInline::kLen2Below1e6;
    EXPECT_GE(std::sqrt(b), 1e-6);
    EXPECT_LT(std::sqrt(std::nextafter(b, 0.0)), 1e-6);
}

TEST(SpacePlane, BuildersAndTheirFailures)
{
    CGeoVector n;
    double d = 0.0;
    ASSERT_EQ(M::PlaneFromPoints(P(0, 0, 2), P(3, 0, 2), P(0, 5, 2), n, d), 1);
    EXPECT_DOUBLE_EQ(n.z, 1.0);
    EXPECT_DOUBLE_EQ(d, -2.0);
    CKivPoint3d q;
    ASSERT_EQ(M::PlaneFromPoints(P(1, 1, 1), P(1, 2, 1), P(1, 1, 3), n, q), 1);
    EXPECT_DOUBLE_EQ(n.x, 1.0);
    EXPECT_EQ(q, P(1, 1, 1));
    // Two coincident points.
    EXPECT_EQ(M::PlaneFromPoints(P(0, 0, 0), P(5e-7, 0, 0), P(0, 1, 0), n, d), 0);
    EXPECT_EQ(M::PlaneFromPoints(P(0, 0, 0), P(0, 1, 0), P(0, 0, 5e-7), n, q), 0);
    EXPECT_EQ(M::PlaneFromPointsEx(P(0, 0, 0), P(5e-7, 0, 0), P(0, 1, 0), n, q), 0);
    // Three distinct collinear points: the Ex form succeeds with a zero normal.
    EXPECT_EQ(M::PlaneFromPoints(P(0, 0, 0), P(1, 1, 1), P(2, 2, 2), n, d), 0);
    EXPECT_EQ(M::PlaneFromPoints(P(0, 0, 0), P(1, 1, 1), P(2, 2, 2), n, q), 0);
    ASSERT_EQ(M::PlaneFromPointsEx(P(0, 0, 0), P(1, 1, 1), P(2, 2, 2), n, q), 1);
    EXPECT_EQ(n.Length2(), 0.0);
    ASSERT_EQ(M::PlaneFromPointsEx(P(0, 0, 0), P(2, 0, 0), P(0, 3, 0), n, q), 1);
    EXPECT_EQ(n.z, 6.0); // unnormalized
    EXPECT_EQ(M::Get_Plane_D(CGeoVector(0.0, 0.0, 6.0), P(0, 0, 2)), -12.0);
}

TEST(SpacePlane, SidednessIsADistanceWhateverTheNormalLength)
{
    for (double len : {1e-3, 1.0, 1e3}) {
        const CGeoVector n(0.0, 0.0, len);
        EXPECT_EQ(M::PointToPlane(P(4, 4, 5e-7), P(0, 0, 0), n), 0);
        EXPECT_EQ(M::PointToPlane(P(4, 4, -5e-7), P(0, 0, 0), n), 0);
        EXPECT_EQ(M::PointToPlane(P(4, 4, 2e-6), P(0, 0, 0), n), 1);
        EXPECT_EQ(M::PointToPlane(P(4, 4, -2e-6), P(0, 0, 0), n), -1);
    }
    EXPECT_EQ(M::PointToPlane(P(1e6, -1e6, 7.0), P(0, 0, 7.0), CGeoVector(0.0, 0.0, -1.0)), 0);
}

TEST(SpacePlane, LineAgainstPlane)
{
    const CGeoVector n(0.0, 0.0, 2.0); // not unit: plane z = 1 is 2z - 2 = 0
    CKivPoint3d x = P(9, 9, 9);
    EXPECT_EQ(M::IntersectPlaneAndLine(n, -2.0, CGeoVector(0.0, 0.0, 1.0), CGeoVector(1.0, 1.0, 0.0), x), 1);
    EXPECT_EQ(x, P(9, 9, 9));
    EXPECT_EQ(M::IntersectPlaneAndLine(n, -2.0, CGeoVector(0.0, 0.0, 3.0), CGeoVector(1.0, 1.0, 0.0), x), 0);
    // Behind the start point still counts: a line, not a ray.
    ASSERT_EQ(M::IntersectPlaneAndLine(n, -2.0, CGeoVector(1.0, 2.0, 5.0), CGeoVector(0.0, 1.0, 1.0), x), 2);
    EXPECT_DOUBLE_EQ(x.z, 1.0);
    EXPECT_DOUBLE_EQ(x.y, -2.0);
}

// ---------------------------------------------------------------- distances

TEST(SpaceDistance, PointToPlaneAndLine)
{
    CKivPoint3d foot;
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_Plane_3D(P(3, 4, 7), P(0, 0, 2), CGeoVector(0.0, 0.0, 5.0), foot), 5.0);
    EXPECT_EQ(foot, P(3, 4, 2));
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_Line3D_Adv(5, 3, 4, 0, 0, 0, 1, 0, 0), 5.0);
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_Line3D_Adv(-5, 3, 4, 0, 0, 0, 1, 0, 0), 5.0); // beyond A: a line
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_LineSection3D_Adv(5, 3, 4, 0, 0, 0, 2, 0, 0), std::sqrt(9.0 + 25.0));
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_LineSection3D_Adv(-3, 0, 4, 0, 0, 0, 2, 0, 0), 5.0);
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_LineSection3D_Adv(1, 3, 4, 0, 0, 0, 2, 0, 0), 5.0);
    EXPECT_DOUBLE_EQ(M::Get_Dist_Point_To_LineSection3D_Adv(3, 4, 0, 0, 0, 0, 0, 0, 0), 5.0); // zero length
}

TEST(SpaceDistance, PointOnSegment)
{
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(1, 1, 1, 0, 0, 0, 2, 2, 2), 1);
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(2, 2, 2, 0, 0, 0, 2, 2, 2), 1);
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(2.0000005, 2, 2, 0, 0, 0, 2, 2, 2), 1); // end by point equality
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(3, 0, 0, 0, 0, 0, 2, 0, 0), 0);
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(2.000002, 0, 0, 0, 0, 0, 2, 0, 0), 0); // beyond B by 2e-6
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(1, 0.001, 0, 0, 0, 0, 2, 0, 0), 0);
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(1, 1e-6, 0, 0, 0, 0, 2, 0, 0), 1); // within the 1e-5 on directions
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(M::JH_TestPointIn_LineSection3D(nan, 0, 0, 0, 0, 0, 2, 0, 0), 0);
}

TEST(SpaceDistance, LinesAndSegments)
{
    // Skew lines 3 apart.
    EXPECT_NEAR(M::Get_Dist_Line_To_Line_3D(P(0, 0, 0), P(1, 0, 0), P(5, -1, 3), P(5, 1, 3)), 3.0, 1e-12);
    EXPECT_NEAR(M::Get_Dist_Line_To_Line_3D(P(0, 0, 0), P(1, 0, 0), P(7, 2, 0), P(9, 2, 0)), 2.0, 1e-12);
    EXPECT_TRUE(std::isfinite(M::Get_Dist_Line_To_Line_3D(P(0, 0, 0), P(1, 0, 0), P(3, 3, 3), P(3, 3, 3))));
    // Segments: parallel and overlapping, end to end, apart along one line.
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 0), P(4, 0, 0), P(1, 0, 2), P(6, 0, 2)), 2.0, 1e-12);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 0), P(4, 0, 0), P(4, 0, 0), P(4, 5, 0)), 0.0, 1e-12);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 0), P(4, 0, 0), P(7, 0, 0), P(9, 0, 0)), 3.0, 1e-12);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 0), P(4, 0, 0), P(5, -1, 3), P(5, 1, 3)), std::sqrt(10.0),
                1e-12);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(1, 1, 1), P(1, 1, 1), P(1, 1, 1), P(1, 1, 1)), 0.0, 0.0);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 0), P(0, 0, 0), P(3, 4, 0), P(3, 4, 0)), 5.0, 1e-12);
    EXPECT_NEAR(M::Get_Dist_Seg_To_Seg_3D(P(0, 0, 3), P(0, 0, 3), P(-1, 0, 0), P(1, 0, 0)), 3.0, 1e-12);
}

// Brute-force minimum over a parameter grid, refined once around the best cell.
template <class F> double GridMin(F f)
{
    double best = std::numeric_limits<double>::max(), bs = 0.0, bt = 0.0;
    const int n = 200;
    for (int i = 0; i <= n; ++i) {
        for (int j = 0; j <= n; ++j) {
            const double v = f(double(i) / n, double(j) / n);
            if (v < best) {
                best = v, bs = double(i) / n, bt = double(j) / n;
            }
        }
    }
    for (int i = -50; i <= 50; ++i) {
        for (int j = -50; j <= 50; ++j) {
            const double s = std::clamp(bs + i * 1e-4, 0.0, 1.0), t = std::clamp(bt + j * 1e-4, 0.0, 1.0);
            best = std::min(best, f(s, t));
        }
    }
    return best;
}

TEST(SpaceDistance, SegToSegMatchesSampledMinimum)
{
    std::mt19937 rng(17);
    std::uniform_real_distribution<double> c(-5.0, 5.0);
    for (int rep = 0; rep < 60; ++rep) {
        const CKivPoint3d p0 = P(c(rng), c(rng), c(rng)), p1 = P(c(rng), c(rng), c(rng));
        CKivPoint3d q0 = P(c(rng), c(rng), c(rng)), q1 = P(c(rng), c(rng), c(rng));
        if (rep % 5 == 0) {
            q1 = q0 + (p1 - p0) * 0.7; // parallel pairs too
        }
        const double sampled =
            GridMin([&](double s, double t) { return (p0 + (p1 - p0) * s).Distance(q0 + (q1 - q0) * t); });
        const double d = M::Get_Dist_Seg_To_Seg_3D(p0, p1, q0, q1);
        EXPECT_LE(d, sampled + 1e-9);
        EXPECT_GE(d, sampled - 1e-4);
    }
}

TEST(SpaceDistance, PointToTriangleIsSquared)
{
    const CKivPoint3d a = P(0, 0, 0), b = P(3, 0, 0), c = P(0, 3, 0);
    EXPECT_DOUBLE_EQ(M::CalDistPtToTri(P(1, 1, 3), a, b, c), 9.0);
    EXPECT_DOUBLE_EQ(M::CalDistPtToTri(P(-3, 0, 4), a, b, c), 25.0);
    EXPECT_DOUBLE_EQ(M::CalDistPtToTri(P(1, 1, 0), a, b, c), 0.0);
    EXPECT_EQ(M::CalDistPtToTri(P(1, 1, 3), a, b, P(6, 0, 0)), -1.0); // collinear
    EXPECT_EQ(M::CalDistPtToTri(P(1, 1, 3), a, a, c), -1.0);
}

TEST(SpaceDistance, PointToTriangleMatchesSampledMinimum)
{
    std::mt19937 rng(23);
    for (double scale : {1e-2, 1.0, 1e3}) {
        std::uniform_real_distribution<double> c(-scale, scale);
        for (int rep = 0; rep < 40; ++rep) {
            const CKivPoint3d a = P(c(rng), c(rng), c(rng)), b = P(c(rng), c(rng), c(rng)),
                              t = P(c(rng), c(rng), c(rng));
            const CKivPoint3d p = P(2 * c(rng), 2 * c(rng), 2 * c(rng));
            const double d2 = M::CalDistPtToTri(p, a, b, t);
            ASSERT_GE(d2, 0.0);
            // Samples of the solid triangle: (1 - s) a + s ((1 - u) b + u t).
            const double sampled =
                GridMin([&](double s, double u) { return p.Dist2(a + ((b + (t - b) * u) - a) * s); });
            EXPECT_LE(d2, sampled * (1 + 1e-9) + 1e-18) << rep;
            EXPECT_GE(std::sqrt(d2), std::sqrt(sampled) - 1e-3 * scale) << rep;
        }
    }
}

} // namespace
