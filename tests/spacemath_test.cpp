// CKivSpaceMath: planes, sidedness and distances, and the intersections of
// segments, rays, lines, planes and triangles in space.
#include <kivgeo/spacemath.h>

#include "spacemath/planar_internal.h"
#include "spacemath/spacemath_inline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace {

using M = CKivSpaceMath;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

CKivPoint3d P(double x, double y, double z)
{
    return CKivPoint3d(x, y, z);
}

bool Near(const CKivPoint3d& a, const CKivPoint3d& b, double tol = 1e-9)
{
    return a.Distance(b) <= tol;
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

// ---------------------------------------------------------------- intersections with planes

TEST(SpaceSegPlane, InsideParallelAndCrossing)
{
    const CGeoVector n(0.0, 0.0, 1.0);
    CKivPoint3d x = P(9, 9, 9);
    EXPECT_EQ(M::Test_Intersect_Seg_And_Plane_3D(P(0, 0, 1), P(5, 3, 1), P(1, 1, 1), n, x), 2);
    EXPECT_EQ(M::Test_Intersect_Seg_And_Plane_3D(P(0, 0, 1 + 1e-9), P(5, 3, 1 + 1e-9), P(1, 1, 1), n, x), 0);
    EXPECT_EQ(x, P(9, 9, 9));
    ASSERT_EQ(M::Test_Intersect_Seg_And_Plane_3D(P(0, 0, 0), P(4, 2, 4), P(1, 1, 1), n, x), 1);
    EXPECT_TRUE(Near(x, P(1, 0.5, 1)));
    EXPECT_EQ(M::Test_Intersect_Seg_And_Plane_3D(P(0, 0, 2), P(4, 2, 4), P(1, 1, 1), n, x), 0);
}

TEST(SpacePlanePlane, ParallelCoincidentAndCrossing)
{
    CKivPoint3d l0, l1;
    const CGeoVector nz(0.0, 0.0, 1.0);
    EXPECT_EQ(M::Test_Insersect_Plane_And_Plane_3D(P(0, 0, 1), nz, P(5, 7, 1), nz, l0, l1), 1);
    EXPECT_EQ(M::Test_Insersect_Plane_And_Plane_3D(P(0, 0, 1), nz, P(5, 7, 1.5), nz, l0, l1), 0);
    // Normals whose cross product sums below 1e-6 count as parallel; then the
    // offset must be exactly 0 to be coincident.
    const CGeoVector tilt(0.0, 4e-7, 1.0);
    EXPECT_EQ(M::Test_Insersect_Plane_And_Plane_3D(P(0, 0, 1), nz, P(0, 0, 1), tilt, l0, l1), 1);
    EXPECT_EQ(M::Test_Insersect_Plane_And_Plane_3D(P(0, 0, 1), nz, P(0, 0, 1 + 1e-12), tilt, l0, l1), 0);
    // z = 1 against x + y = 4 (raw normal (2, 2, 0)): m = (-2, 2, 0), ties go
    // to the later axis, so L0 has y = 0.
    const CGeoVector nb(2.0, 2.0, 0.0);
    ASSERT_EQ(M::Test_Insersect_Plane_And_Plane_3D(P(0, 0, 1), nz, P(4, 0, 0), nb, l0, l1), 2);
    EXPECT_EQ(l0.y, 0.0);
    EXPECT_TRUE(Near(l0, P(4, 0, 1)));
    EXPECT_TRUE(Near(l1 - l0, P(-2, 2, 0)));
    for (const CKivPoint3d& p : {l0, l1}) {
        EXPECT_NEAR(p.z, 1.0, 1e-12);
        EXPECT_NEAR(p.x + p.y, 4.0, 1e-12);
    }
}

// The triangle/plane table, written out from the corner signs: which corner
// or which cut edge each end is.
struct SEnd {
    int corner;   // 0..2, or -1 for a cut edge
    int from, to; // the cut edge (from, to)
};

TEST(SpaceTriPlane, EveryCornerSignCombinationInBothPlaneOrientations)
{
    const CKivPoint3d Q = P(0, 0, 0);
    const auto corner = [](int i, int s) {
        const double xy[3][2] = {{0, 0}, {4, 1}, {1, 4}};
        return P(xy[i][0], xy[i][1], double(s));
    };
    for (int sa = -1; sa <= 1; ++sa) {
        for (int sb = -1; sb <= 1; ++sb) {
            for (int sc = -1; sc <= 1; ++sc) {
                const int s[3] = {sa, sb, sc};
                const CKivPoint3d V[3] = {corner(0, sa), corner(1, sb), corner(2, sc)};
                // Expected per the table (with sides folded so + comes first).
                int code = 2;
                SEnd e0{-1, 0, 0}, e1{-1, 0, 0};
                const int zeros = (sa == 0) + (sb == 0) + (sc == 0);
                if (zeros == 3) {
                    code = 1;
                } else if (zeros == 2) {
                    int a = -1, b = -1;
                    for (int i = 0; i < 3; ++i) {
                        if (s[i] == 0) {
                            (a < 0 ? a : b) = i;
                        }
                    }
                    e0 = {a, 0, 0}, e1 = {b, 0, 0};
                } else if (zeros == 1) {
                    const int z = sa == 0 ? 0 : (sb == 0 ? 1 : 2);
                    const int o1 = z == 0 ? 1 : 0, o2 = z == 2 ? 1 : 2; // the other two, ascending
                    e0 = {z, 0, 0};
                    e1 = s[o1] == s[o2] ? SEnd{z, 0, 0} : SEnd{-1, o1, o2};
                } else if (sa == sb && sb == sc) {
                    code = 0;
                } else if (sa == sb) {
                    e0 = {-1, 0, 2}, e1 = {-1, 1, 2};
                } else if (sb == sc) {
                    e0 = {-1, 1, 0}, e1 = {-1, 2, 0};
                } else {
                    e0 = {-1, 0, 1}, e1 = {-1, 2, 1};
                }
                const auto point = [&](const SEnd& e) {
                    if (e.corner >= 0) {
                        return V[e.corner];
                    }
                    CKivPoint3d x;
                    EXPECT_EQ(
                        M::Test_Intersect_Seg_And_Plane_3D(V[e.from], V[e.to], Q, CGeoVector(0.0, 0.0, 1.0), x),
                        1);
                    return x;
                };
                for (double nz : {1.0, -3.0}) {
                    CKivPoint3d s0 = P(-9, -9, -9), s1 = P(-9, -9, -9);
                    const int r =
                        M::Test_Intersect_Tri_And_Plane_3D(V[0], V[1], V[2], Q, CGeoVector(0.0, 0.0, nz), s0, s1);
                    ASSERT_EQ(r, code) << sa << sb << sc;
                    if (code == 2) {
                        EXPECT_TRUE(Near(s0, point(e0), 1e-12)) << sa << sb << sc << " nz " << nz;
                        EXPECT_TRUE(Near(s1, point(e1), 1e-12)) << sa << sb << sc << " nz " << nz;
                    }
                }
            }
        }
    }
}

TEST(SpaceTriPlane, ShortNormalStillGivesTheCut)
{
    // The sides come from the unit normal, but with a normal of length 2e-6
    // the segment/plane test reads these edges as parallel (|n.u| = 4e-7 is
    // below 1e-6). The cut points then come from the signed distances
    // instead of being left unwritten.
    CKivPoint3d s0 = P(-9, -9, -9), s1 = s0;
    ASSERT_EQ(M::Test_Intersect_Tri_And_Plane_3D(P(0, 0, 0.1), P(4, 1, -0.1), P(1, 4, 0.1), P(7, 7, 0),
                                                 CGeoVector(0.0, 0.0, 2e-6), s0, s1),
              2);
    EXPECT_TRUE(Near(s0, P(2, 0.5, 0), 1e-12));   // X(A, B)
    EXPECT_TRUE(Near(s1, P(2.5, 2.5, 0), 1e-12)); // X(C, B)
    CKivPoint3d x;
    EXPECT_EQ(
        M::Test_Intersect_Seg_And_Plane_3D(P(0, 0, 0.1), P(4, 1, -0.1), P(7, 7, 0), CGeoVector(0.0, 0.0, 2e-6), x),
        0);
}

// ---------------------------------------------------------------- collinear overlap, triangle pairs

TEST(SpaceOverlap, AscendingAlongTheDominantAxis)
{
    CKivPoint3d i0, i1;
    // Along x, given in both directions.
    ASSERT_EQ(
        M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(5, 1, 0), P(0, 0, 0), P(7.5, 1.5, 0), P(2.5, 0.5, 0), i0, i1),
        2);
    EXPECT_EQ(i0, P(2.5, 0.5, 0));
    EXPECT_EQ(i1, P(5, 1, 0));
    // Along z.
    ASSERT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(0, 0, 9), P(0, 0, 1), P(0, 0, 3), P(0, 0, 12), i0, i1),
              2);
    EXPECT_EQ(i0.z, 3.0);
    EXPECT_EQ(i1.z, 9.0);
    ASSERT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(0, 0, 0), P(2, 0, 0), P(2, 0, 0), P(3, 0, 0), i0, i1), 1);
    EXPECT_EQ(i0, P(2, 0, 0));
    EXPECT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(0, 0, 0), P(2, 0, 0), P(2.1, 0, 0), P(3, 0, 0), i0, i1),
              0);
    // A cut at 45 degrees in a horizontal plane: x and y tie, z does not move.
    ASSERT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(4, 0, 1), P(0, 4, 1), P(3, 1, 1), P(1, 3, 1), i0, i1), 2);
    EXPECT_EQ(i0, P(1, 3, 1));
    EXPECT_EQ(i1, P(3, 1, 1));
    ASSERT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(4, 0, 1), P(0, 4, 1), P(2, 2, 1), P(2, 2, 1), i0, i1), 1);
    EXPECT_EQ(i0, P(2, 2, 1));
    // A point-like first segment: the second one's axis sorts.
    ASSERT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(2, 2, 1), P(2, 2, 1), P(4, 0, 1), P(0, 4, 1), i0, i1), 1);
    EXPECT_EQ(i0, P(2, 2, 1));
    EXPECT_EQ(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(P(2, 2, 7), P(2, 2, 7), P(4, 0, 1), P(0, 4, 1), i0, i1), 0);
}

TEST(SpaceTriTri, CrossingCoplanarDegenerateAndTouching)
{
    CKivPoint3d i0, i1;
    // A horizontal triangle and a vertical one crossing it along x.
    const CKivPoint3d a0 = P(0, 0, 0), a1 = P(10, 0, 0), a2 = P(0, 10, 0);
    ASSERT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(8, 2, -1), P(-2, 2, -1), P(3, 2, 4), i0, i1), 2);
    // Cut of A by B's plane (y = 2): x from 0 to 8; of B by z = 0: x from -1 to 7.
    EXPECT_TRUE(Near(i0, P(0, 2, 0)));
    EXPECT_TRUE(Near(i1, P(7, 2, 0)));
    // The same, second triangle given the other way round: same order.
    ASSERT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(3, 2, 4), P(-2, 2, -1), P(8, 2, -1), i0, i1), 2);
    EXPECT_LT(i0.x, i1.x);
    EXPECT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(1, 1, 0), P(3, 1, 0), P(1, 3, 0), i0, i1), 1);
    EXPECT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(1, 1, 2), P(3, 1, 2), P(1, 3, 2), i0, i1), 0);
    EXPECT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a0, a2, P(8, 2, -1), P(-2, 2, -1), P(3, 2, 4), i0, i1), -1);
    // Crossing planes, but the triangles miss each other.
    EXPECT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(30, 2, -1), P(20, 2, -1), P(25, 2, 4), i0, i1), 0);
    // A corner of B resting on A: one point, I1 = I0.
    i1 = P(-9, -9, -9);
    ASSERT_EQ(M::Test_Intersect_Tri_And_Tri_3D(a0, a1, a2, P(2, 2, 0), P(4, 2, 5), P(2, 4, 5), i0, i1), 2);
    EXPECT_EQ(i0, P(2, 2, 0));
    EXPECT_EQ(i1, i0);
}

TEST(SpaceTriTri, RandomPairsGiveAPieceOnBothTriangles)
{
    std::mt19937 rng(29);
    // (Below edges of about 1e-2 the raw-normal parallel test reads every
    // pair as parallel; that is the legacy behaviour and not exercised here.)
    for (double scale : {1.0, 1e4}) {
        std::uniform_real_distribution<double> c(-scale, scale);
        int pieces = 0;
        for (int rep = 0; rep < 3000; ++rep) {
            CKivPoint3d A[3], B[3];
            for (int i = 0; i < 3; ++i) {
                A[i] = P(c(rng), c(rng), c(rng));
                B[i] = P(c(rng), c(rng), c(rng));
            }
            CKivPoint3d i0, i1;
            const int r = M::Test_Intersect_Tri_And_Tri_3D(A[0], A[1], A[2], B[0], B[1], B[2], i0, i1);
            ASSERT_TRUE(r >= -1 && r <= 2);
            if (r != 2) {
                continue;
            }
            ++pieces;
            for (const CKivPoint3d& p : {i0, i1}) {
                EXPECT_LE(std::sqrt(M::CalDistPtToTri(p, A[0], A[1], A[2])), 1e-9 * scale + 2e-6);
                EXPECT_LE(std::sqrt(M::CalDistPtToTri(p, B[0], B[1], B[2])), 1e-9 * scale + 2e-6);
            }
            // Swapping the triangles gives the same piece, up to its order.
            CKivPoint3d j0, j1;
            ASSERT_EQ(M::Test_Intersect_Tri_And_Tri_3D(B[0], B[1], B[2], A[0], A[1], A[2], j0, j1), 2);
            const double tol = 1e-9 * scale;
            EXPECT_TRUE((Near(i0, j0, tol) && Near(i1, j1, tol)) || (Near(i0, j1, tol) && Near(i1, j0, tol)));
        }
        EXPECT_GT(pieces, 300);
    }
}

// ---------------------------------------------------------------- rays and lines

TEST(SpaceRay, HitsMissesAndPlaneCases)
{
    const CKivPoint3d v0 = P(0, 0, 0), v1 = P(4, 0, 0), v2 = P(0, 4, 0);
    CKivPoint3d i = P(9, 9, 9);
    ASSERT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(1, 1, 5), CGeoVector(0.0, 0.0, -2.0), v0, v1, v2, i), 1);
    EXPECT_TRUE(Near(i, P(1, 1, 0)));
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(1, 1, 5), CGeoVector(0.0, 0.0, 2.0), v0, v1, v2, i), 0);
    // Starting on the plane inside the triangle: I = P0.
    ASSERT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(1, 1, 0), CGeoVector(0.3, 0.2, 1.0), v0, v1, v2, i), 1);
    EXPECT_EQ(i, P(1, 1, 0));
    // Hitting the plane outside the triangle: 0, but I already written.
    i = P(9, 9, 9);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(5, 5, 5), CGeoVector(0.0, 0.0, -1.0), v0, v1, v2, i), 0);
    EXPECT_TRUE(Near(i, P(5, 5, 0)));
    EXPECT_EQ(M::Test_Intersect_Ray_And_Plane_3D(P(5, 5, 5), CGeoVector(0.0, 0.0, -1.0), v0, v1, v2, i), 1);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Plane_3D(P(5, 5, 5), P(5, 5, 6), v0, v1, v2, i), 0);
    // Edge and corner hits count.
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(2, 2, 1), P(2, 2, 0), v0, v1, v2, i), 1);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(4, 0, 1), P(4, 0, 0), v0, v1, v2, i), 1);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(4.01, 0, 1), P(4.01, 0, 0), v0, v1, v2, i), 0);
    // Parallel: in the plane 2, above it 0; degenerate triangle -1.
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(9, 9, 0), CGeoVector(1.0, 0.0, 0.0), v0, v1, v2, i), 2);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(9, 9, 1), CGeoVector(1.0, 0.0, 0.0), v0, v1, v2, i), 0);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(P(1, 1, 1), CGeoVector(0.0, 0.0, -1.0), v0, v1, P(8, 0, 0), i),
              -1);
    // The whole line also hits behind its start.
    EXPECT_EQ(M::Test_Intersect_Line_And_Triangle_3D(P(1, 1, 5), CGeoVector(0.0, 0.0, 2.0), v0, v1, v2, i), 1);
    EXPECT_TRUE(Near(i, P(1, 1, 0)));
}

TEST(SpaceRay, PointFormMatchesVectorForm)
{
    std::mt19937 rng(31);
    std::uniform_real_distribution<double> c(-3.0, 3.0);
    for (int rep = 0; rep < 2000; ++rep) {
        const CKivPoint3d p0 = P(c(rng), c(rng), c(rng)), p1 = P(c(rng), c(rng), c(rng));
        const CKivPoint3d v0 = P(c(rng), c(rng), c(rng)), v1 = P(c(rng), c(rng), c(rng)),
                          v2 = P(c(rng), c(rng), c(rng));
        CKivPoint3d a = P(0, 0, 0), b = P(0, 0, 0);
        const int ra = M::Test_Intersect_Ray_And_Triangle_3D(p0, p1, v0, v1, v2, a);
        const int rb = M::Test_Intersect_Ray_And_Triangle_3D(p0, CGeoVector(p1 - p0), v0, v1, v2, b);
        ASSERT_EQ(ra, rb);
        EXPECT_TRUE(a.IsEqualTo(b));
        if (ra == 1) {
            EXPECT_LE(std::sqrt(M::CalDistPtToTri(a, v0, v1, v2)), 1e-9);
        }
    }
}

// A triangle 1.4e7 long and about 1 wide: the barycentric coordinates of a
// vertical line must be decided as for the exact point, whatever the shape.
// (Computed from the Gram determinant they lose their digits here and points
// 0.1 % outside the triangle read as inside.)
TEST(SpaceRay, LongThinTriangleDecidesLikeExactBarycentrics)
{
    const CKivPoint3d v0 = P(0, 0, 0), v1 = P(9999998, -10000000, 0), v2 = P(10000001, -10000002, -4);
    const CGeoVector up(0.0, 0.0, 1.0);
    struct Case {
        double s, t;
        int want;
    };
    for (const Case& c : {Case{0.25, 0.25, 1}, Case{0.5, 0.499, 1}, Case{0.6, 0.397, 1}, Case{0.5, 0.501, 0},
                          Case{0.3, 0.702, 0}, Case{0.5, -0.001, 0}, Case{0.9, 0.101, 0}}) {
        const CKivPoint3d p = P(c.s * v1.x + c.t * v2.x, c.s * v1.y + c.t * v2.y, 10.0);
        CKivPoint3d hit = P(0, 0, 0);
        EXPECT_EQ(M::Test_Intersect_Line_And_Triangle_3D(p, up, v0, v1, v2, hit), c.want) << c.s << " " << c.t;
        if (c.want == 1) {
            EXPECT_NEAR(hit.z, c.t * v2.z, 1e-6);
        }
    }
}

// ---------------------------------------------------------------- point in triangle

TEST(SpacePointInTri, Codes)
{
    const CKivPoint3d a = P(0, 0, 1), b = P(4, 0, 1), c = P(0, 4, 1);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(1, 1, 1)), 0);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(1, -1, 1)), 1);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(3, 3, 1)), 2);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(-1, 1, 1)), 3);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(2, 0, 1)), -1);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(2, 2, 1)), -2);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(0, 2, 1)), -3);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(4, 0, 1)), -4);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(1, 1, 1.1)), 4);
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(1, 1, 1 + 5e-7)), 0);
    EXPECT_EQ(M::IsPtInTri3D(a, b, P(8, 0, 1), P(1, 0, 1)), 4); // degenerate triangle
    EXPECT_EQ(M::IsPtInTri3D(a, b, c, P(kNaN, 1, 1)), 4);
    // A sliver edge that is both AB's and BC's line (B almost on AC's line is
    // not needed): two zero signs answer -3. Here P lies on both open edges
    // of a triangle whose edges AB and BC are collinear within the tolerance.
    const CKivPoint3d s0 = P(0, 0, 0), s1 = P(2, 1e-9, 0), s2 = P(4, 0, 0);
    const int sliver = M::IsPtInTri3D(s0, s1, s2, P(1, 0, 0));
    EXPECT_TRUE(sliver == 4 || sliver == -3);
}

TEST(SpacePointInTri, AgreesWithPlanarCodesOnAHorizontalPlane)
{
    std::mt19937 rng(37);
    for (double scale : {1e-1, 1.0, 1e3}) {
        std::uniform_real_distribution<double> c(-scale, scale);
        for (int rep = 0; rep < 300; ++rep) {
            const double z = c(rng);
            CKivPoint3d v[3] = {P(c(rng), c(rng), z), P(c(rng), c(rng), z), P(c(rng), c(rng), z)};
            const double area2 = (v[1].x - v[0].x) * (v[2].y - v[0].y) - (v[1].y - v[0].y) * (v[2].x - v[0].x);
            if (std::fabs(area2) < 0.05 * scale * scale) {
                continue;
            }
            if (area2 < 0) {
                std::swap(v[1], v[2]); // counter-clockwise seen from above
            }
            const auto both = [&](const CKivPoint3d& p) {
                const int planar =
                    GetPtPosInTri2D(p.x, p.y, v[0].x, v[0].y, v[1].x, v[1].y, v[2].x, v[2].y, false);
                EXPECT_EQ(M::IsPtInTri3D(v[0], v[1], v[2], p), planar) << p.x << " " << p.y;
            };
            // Random points clear of the edges' lines.
            for (int i = 0; i < 20; ++i) {
                const CKivPoint3d p = P(c(rng), c(rng), z);
                bool clear = true;
                for (int e = 0; e < 3; ++e) {
                    const CKivPoint3d& s = v[e];
                    const CKivPoint3d& t = v[(e + 1) % 3];
                    clear &= M::Get_Dist_Point_To_Line3D_Adv(p.x, p.y, p.z, s.x, s.y, s.z, t.x, t.y, t.z) >
                             1e-3 * scale;
                }
                if (clear) {
                    both(p);
                }
            }
            // Corners and points on the open edges (exactly representable
            // midpoints of edges on an axis are not needed: the 2D band holds).
            for (int e = 0; e < 3; ++e) {
                both(v[e]);
            }
        }
    }
    // Edge midpoints of an axis-aligned triangle.
    const CKivPoint3d a = P(0, 0, 2), b = P(8, 0, 2), c = P(0, 8, 2);
    for (const CKivPoint3d& p : {P(4, 0, 2), P(4, 4, 2), P(0, 4, 2)}) {
        EXPECT_EQ(M::IsPtInTri3D(a, b, c, p), GetPtPosInTri2D(p.x, p.y, 0, 0, 8, 0, 0, 8, false));
    }
}

// ---------------------------------------------------------------- lines and segments in space

TEST(SpaceLineLine, Codes)
{
    CKivPoint3d x = P(9, 9, 9);
    ASSERT_EQ(M::Test_Intersect_Line_And_Line_3D(P(0, 0, 0), P(1, 1, 1), P(2, 0, 2), P(2, 1, 2), x), 1);
    EXPECT_TRUE(Near(x, P(2, 2, 2)));
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_3D(P(0, 0, 0), P(1, 0, 0), P(0, 1, 1), P(0, 2, 1), x), 0); // skew
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_3D(P(0, 0, 0), P(1, 0, 0), P(0, 1, 0), P(3, 1, 0), x), 0);
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_3D(P(0, 0, 0), P(1, 0, 0), P(5, 0, 0), P(3, 0, 0), x), 2);
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_3D(P(0, 0, 0), P(0, 0, 0), P(5, 0, 0), P(3, 0, 0), x), -1);
    ASSERT_EQ(M::Test_Intersect_Line_And_Line_OnSamePlane_3D(P(0, 0, 1), P(1, 0, 1), P(3, -1, 1), P(3, 1, 1), x),
              1);
    EXPECT_TRUE(Near(x, P(3, 0, 1)));
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_OnSamePlane_3D(P(0, 0, 0), P(1, 0, 0), P(0, 1, 0), P(3, 1, 0), x),
              0);
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_OnSamePlane_3D(P(0, 0, 0), P(1, 0, 0), P(3, 0, 0), P(4, 0, 0), x),
              2);
    EXPECT_EQ(M::Test_Intersect_Line_And_Line_OnSamePlane_3D(P(0, 0, 0), P(0, 0, 0), P(3, 0, 0), P(4, 0, 0), x),
              0);
}

TEST(SpaceSegSeg, CrossingOverlapAndMiss)
{
    CKivPoint3d i0, i1;
    for (bool samePlane : {false, true}) {
        const auto f = [samePlane](const CKivPoint3d& p0, const CKivPoint3d& p1, const CKivPoint3d& q0,
                                   const CKivPoint3d& q1, CKivPoint3d& a, CKivPoint3d& b) {
            return samePlane ? M::Test_Intersect_Seg_And_Seg_OnSamePlane_3D(p0, p1, q0, q1, a, b)
                             : M::Test_Intersect_Seg_And_Seg_3D(p0, p1, q0, q1, a, b);
        };
        ASSERT_EQ(f(P(0, 0, 0), P(4, 4, 4), P(0, 4, 0), P(4, 0, 4), i0, i1), 1);
        EXPECT_TRUE(Near(i0, P(2, 2, 2)));
        EXPECT_EQ(f(P(0, 0, 0), P(1, 1, 1), P(0, 4, 0), P(4, 0, 4), i0, i1), 0); // lines cross beyond P1
        ASSERT_EQ(f(P(0, 0, 0), P(4, 0, 0), P(4, 0, 0), P(4, 3, 0), i0, i1), 1); // end to end
        EXPECT_TRUE(Near(i0, P(4, 0, 0)));
        ASSERT_EQ(f(P(0, 0, 0), P(4, 0, 0), P(6, 0, 0), P(2, 0, 0), i0, i1), 2);
        EXPECT_EQ(i0, P(2, 0, 0));
        EXPECT_EQ(i1, P(4, 0, 0));
        EXPECT_EQ(f(P(0, 0, 0), P(4, 0, 0), P(0, 1, 0), P(4, 1, 0), i0, i1), 0);
        ASSERT_EQ(f(P(2, 0, 0), P(2, 0, 0), P(0, 0, 0), P(4, 0, 0), i0, i1), 1); // a point on the segment
        EXPECT_EQ(i0, P(2, 0, 0));
        EXPECT_EQ(f(P(0, 0, 0), P(4, 0, 0), P(2, 1, 0), P(2, 1, 0), i0, i1), 0);
    }
    // Skew segments whose boxes overlap: no intersection in space.
    EXPECT_EQ(M::Test_Intersect_Seg_And_Seg_3D(P(0, 0, 0), P(4, 4, 0), P(0, 4, 1), P(4, 0, -1 + 0.5), i0, i1), 0);
}

TEST(SpaceSegTri, PiercingAndCoplanarPieces)
{
    const CKivPoint3d v0 = P(0, 0, 0), v1 = P(6, 0, 0), v2 = P(0, 6, 0);
    CKivPoint3d x0 = P(9, 9, 9), x1 = P(9, 9, 9);
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(1, 1, -2), P(1, 1, 2), x0, x1), 1);
    EXPECT_TRUE(Near(x0, P(1, 1, 0)));
    EXPECT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(1, 1, 1), P(1, 1, 2), x0, x1), 0);
    EXPECT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(7, 7, -2), P(7, 7, 2), x0, x1), 0);
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(1, 1, 0), P(1, 1, 2), x0, x1), 1); // one end on it
    EXPECT_TRUE(Near(x0, P(1, 1, 0)));
    // Coplanar: both ends inside.
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(1, 1, 0), P(2, 1, 0), x0, x1), 2);
    EXPECT_EQ(x0, P(1, 1, 0));
    EXPECT_EQ(x1, P(2, 1, 0));
    // One end inside: the piece keeps the direction P0 -> P1.
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(1, 1, 0), P(9, 1, 0), x0, x1), 2);
    EXPECT_EQ(x0, P(1, 1, 0));
    EXPECT_TRUE(Near(x1, P(5, 1, 0)));
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(9, 1, 0), P(1, 1, 0), x0, x1), 2);
    EXPECT_TRUE(Near(x0, P(5, 1, 0)));
    EXPECT_EQ(x1, P(1, 1, 0));
    // Both ends outside: the piece in the order of the edges that cut it.
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(2, 7, 0), P(2, -1, 0), x0, x1), 2);
    EXPECT_TRUE(Near(x0, P(2, 0, 0))); // on V0V1, found first
    EXPECT_TRUE(Near(x1, P(2, 4, 0)));
    // Along an edge, from outside to outside.
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(-2, 0, 0), P(9, 0, 0), x0, x1), 2);
    EXPECT_TRUE((Near(x0, v0) && Near(x1, v1)) || (Near(x0, v1) && Near(x1, v0)));
    EXPECT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(7, 7, 0), P(9, 7, 0), x0, x1), 0);
    // Touching a corner from outside.
    ASSERT_EQ(M::Test_Intersect_Seg_And_Tri_3D(v0, v1, v2, P(-1, 7, 0), P(1, 5, 0), x0, x1), 2);
}

TEST(SpaceMapSeg, PieceOverTheMapSegment)
{
    // A tilted triangle z = x + 2y.
    const CKivPoint3d v0 = P(0, 0, 0), v1 = P(10, 0, 10), v2 = P(0, 10, 20);
    CKivPoint3d x0, x1;
    ASSERT_TRUE(M::Test_Intersect_MapSeg_And_Tri_3D(v0, v1, v2, P(-5, 2, 0), P(20, 2, 0), x0, x1));
    EXPECT_TRUE(Near(x0, P(0, 2, 4), 1e-9));
    EXPECT_TRUE(Near(x1, P(8, 2, 12), 1e-9));
    ASSERT_TRUE(M::Test_Intersect_MapSeg_And_Tri_3D(v0, v1, v2, P(20, 2, 0), P(-5, 2, 0), x0, x1));
    EXPECT_TRUE(Near(x0, P(8, 2, 12), 1e-9)); // runs from M0 towards M1
    // A map segment inside the triangle's plan: the piece is the segment draped.
    ASSERT_TRUE(M::Test_Intersect_MapSeg_And_Tri_3D(v0, v1, v2, P(1, 1, 99), P(3, 4, -99), x0, x1));
    EXPECT_TRUE(Near(x0, P(1, 1, 3), 1e-9));
    EXPECT_TRUE(Near(x1, P(3, 4, 11), 1e-9));
    EXPECT_FALSE(M::Test_Intersect_MapSeg_And_Tri_3D(v0, v1, v2, P(20, 20, 0), P(30, 20, 0), x0, x1));
    EXPECT_FALSE(M::Test_Intersect_MapSeg_And_Tri_3D(v0, v1, v2, P(1, 1, 0), P(1, 1, 5), x0, x1));
}

// (Every test here also runs on NaN, infinite and huge coordinates in
// predicates_alloc_test, under the sanitizers.)
TEST(SpaceBadInput, FiniteDegenerateInputGivesFiniteAnswers)
{
    const CKivPoint3d o = P(0, 0, 0), a = P(1, 0, 0), b = P(0, 1, 0);
    CKivPoint3d x0, x1;
    EXPECT_TRUE(std::isfinite(M::Get_Dist_Seg_To_Seg_3D(o, o, a, a)));
    EXPECT_EQ(M::CalDistPtToTri(a, o, o, o), -1.0);
    EXPECT_EQ(M::Test_Intersect_Tri_And_Tri_3D(o, o, o, o, a, b, x0, x1), -1);
    EXPECT_EQ(M::Test_Intersect_Ray_And_Triangle_3D(a, b, o, o, o, x0), -1);
    EXPECT_EQ(M::Test_Intersect_Seg_And_Seg_3D(o, o, o, o, x0, x1), 1);
}

} // namespace
