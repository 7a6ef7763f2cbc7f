// Planar predicates: the exported free functions, the internal ones of the
// triangulator and the map-plane members of CKivSpaceMath.
#include <kivgeo/planar.h>
#include <kivgeo/spacemath.h>

#include "spacemath/planar_internal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

CKivPoint3d P(double x, double y, double z = 0.0)
{
    return CKivPoint3d(x, y, z);
}

// ---------------------------------------------------------------- sides and ranges

TEST(PlanarSide, AbsoluteBandOnTheCrossProduct)
{
    EXPECT_EQ(GetPtSideOfLine2D(0.0, 1.0, 0.0, 0.0, 1.0, 0.0), 1);
    EXPECT_EQ(GetPtSideOfLine2D(0.0, -1.0, 0.0, 0.0, 1.0, 0.0), -1);
    EXPECT_EQ(GetPtSideOfLine2D(5.0, 0.0, 0.0, 0.0, 1.0, 0.0), 0);
    // The band is on the cross product: 1e-9 off a segment of length 1000
    // is inside it, 2e-6 off a segment of length 1 is not.
    EXPECT_EQ(GetPtSideOfLine2D(500.0, 9e-10, 0.0, 0.0, 1000.0, 0.0), 0);
    EXPECT_EQ(GetPtSideOfLine2D(0.5, 2e-6, 0.0, 0.0, 1.0, 0.0), 1);
    EXPECT_EQ(GetPtSideOfLine2D(0.5, 5e-7, 0.0, 0.0, 1.0, 0.0), 0);
}

TEST(PlanarRange, StrictOverlapOnly)
{
    EXPECT_TRUE(IsRangeOverlap(0.0, 2.0, 1.0, 3.0));
    EXPECT_TRUE(IsRangeOverlap(0.0, 3.0, 1.0, 2.0));
    EXPECT_TRUE(IsRangeOverlap(1.0, 2.0, 0.0, 3.0));
    EXPECT_FALSE(IsRangeOverlap(0.0, 2.0, 0.0, 2.0)); // equal ranges
    EXPECT_FALSE(IsRangeOverlap(0.0, 1.0, 1.0, 2.0)); // touching
    EXPECT_FALSE(IsRangeOverlap(0.0, 1.0, 1.0000005, 2.0));
    EXPECT_FALSE(IsRangeOverlap(0.0, 1.0, 2.0, 3.0));
}

TEST(PlanarAngle, LineAngleIsSinglePrecisionAndQuadrantShifted)
{
    EXPECT_EQ(GetLineAngle2D(1.0, 1.0, 1.0, 5.0), 1.570796326795);
    EXPECT_EQ(GetLineAngle2D(1.0, 1.0, 1.0, -5.0), 4.712388980385);
    EXPECT_EQ(GetLineAngle2D(0.0, 0.0, 0.0, 0.0), 1.570796326795);
    const double a = GetLineAngle2D(0.0, 0.0, 3.0, 1.0);
    EXPECT_EQ(a, static_cast<double>(static_cast<float>(std::atan(1.0 / 3.0))));
    EXPECT_NE(a, std::atan(1.0 / 3.0));
    EXPECT_EQ(GetLineAngle2D(0.0, 0.0, 3.0, -1.0),
              static_cast<double>(static_cast<float>(std::atan(-1.0 / 3.0))) + 6.28318530718);
    EXPECT_EQ(GetLineAngle2D(0.0, 0.0, -3.0, 1.0),
              static_cast<double>(static_cast<float>(std::atan(-1.0 / 3.0))) + 3.141592653589793);
    EXPECT_NEAR(GetLineAngle2D(0.0, 0.0, -1.0, -1.0), 1.25 * 3.141592653589793, 1e-6);
}

TEST(PlanarAngle, TwoSegAngle)
{
    EXPECT_DOUBLE_EQ(GetTwoSegAngle(-1.0, 0.0, 0.0, 0.0, 1.0, 0.0), 3.141592653589793);
    // Counter-clockwise ring (0,0) (2,0) (1,1) (2,2) (0,2): the corner (1,1) is reflex.
    EXPECT_GT(GetTwoSegAngle(2.0, 0.0, 1.0, 1.0, 2.0, 2.0), 3.141592653589793);
    EXPECT_NEAR(GetTwoSegAngle(0.0, 2.0, 0.0, 0.0, 2.0, 0.0), 1.570796326795, 1e-12);
    // Arms in the same direction: 0, never a full turn.
    EXPECT_EQ(GetTwoSegAngle(1.0, 1.0, 0.0, 0.0, 2.0, 2.0), 0.0);
    for (double t = -3.0; t < 3.2; t += 0.1) {
        const double a = GetTwoSegAngle(std::cos(t), std::sin(t), 0.0, 0.0, 1.0, 0.0);
        EXPECT_GE(a, 0.0);
        EXPECT_LT(a, 6.28318530718);
    }
}

// ---------------------------------------------------------------- segment crossing

TEST(PlanarCrossing, SquareDiagonalsNeedUnequalRanges)
{
    double x = -1.0, y = -1.0;
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 2.0, 0.0, 2.0, 2.0, 0.0, &x, &y, 1e-6), 0);
    EXPECT_EQ(x, -1.0); // untouched on 0
    // Rotated a little, the diagonals cross at the centre.
    const double c = std::cos(0.1), s = std::sin(0.1);
    const auto rx = [&](double px, double py) { return c * (px - 1.0) - s * (py - 1.0) + 1.0; };
    const auto ry = [&](double px, double py) { return s * (px - 1.0) + c * (py - 1.0) + 1.0; };
    ASSERT_EQ(JH_GetInterPoint_LineSection(rx(0, 0), ry(0, 0), rx(2, 2), ry(2, 2), rx(0, 2), ry(0, 2), rx(2, 0),
                                           ry(2, 0), &x, &y, 1e-6),
              1);
    EXPECT_NEAR(x, 1.0, 1e-6);
    EXPECT_NEAR(y, 1.0, 1e-6);
}

TEST(PlanarCrossing, SharedEndsAndCollinearPieces)
{
    double x = 0.0, y = 0.0;
    // Shared end: 2 and the end, even when collinear and overlapping.
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 0.0, 0.0, 0.0, 1.0, 0.0, &x, &y, 1e-6), 2);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 1.0, 5.0, 5.0, 2.0 + 5e-7, 1.0, &x, &y, 1e-6), 2);
    EXPECT_EQ(x, 2.0);
    EXPECT_EQ(y, 1.0);
    // Collinear overlap without a shared end: 0.
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 1.0, 1.0, 0.5, 3.0, 1.5, &x, &y, 1e-6), 0);
    // Crossing exactly at B is accepted (x = len).
    ASSERT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 2.0, 1.0, 3.0, 3.0, 1.0, &x, &y, 1e-6), 1);
    EXPECT_NEAR(x, 2.0, 1e-6);
    EXPECT_NEAR(y, 2.0, 1e-6);
    // Crossing just beyond B, by more than eps: rejected.
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 2.0, 1.1, 3.1, 3.1, 1.1, &x, &y, 1e-6), 0);
}

TEST(PlanarCrossing, SegCrossSegIsOneSidedAtZero)
{
    EXPECT_TRUE(IsSegCrossSeg2D(0.0, 0.0, 2.0, 2.0, 0.0, 2.0, 2.1, 0.1));
    // B0 exactly on line A0A1: a crossing only when B1 is strictly left.
    EXPECT_TRUE(IsSegCrossSeg2D(0.0, 0.0, 2.0, 2.0, 1.0, 1.0, 0.0, 2.0));
    EXPECT_FALSE(IsSegCrossSeg2D(0.0, 0.0, 2.0, 2.0, 1.0, 1.0, 2.0, 0.0));
    // Box rule: equal x ranges never cross.
    EXPECT_FALSE(IsSegCrossSeg2D(0.0, 0.0, 2.0, 2.0, 0.0, 2.0, 2.0, 0.0));
    EXPECT_FALSE(IsSegCrossSeg2D(0.0, 0.0, 1.0, 1.0, 2.0, 0.0, 3.0, 1.0));
}

TEST(PlanarCrossing, MemberSegAndSegAgreesWithCrossingPoint)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> coord(-10.0, 10.0);
    int crossings = 0;
    for (int i = 0; i < 4000; ++i) {
        const CKivPoint3d a = P(coord(rng), coord(rng)), b = P(coord(rng), coord(rng));
        const CKivPoint3d c = P(coord(rng), coord(rng)), d = P(coord(rng), coord(rng));
        if (a.Distance(b) < 0.5 || c.Distance(d) < 0.5) {
            continue;
        }
        const CGeoVector u(b - a), v(d - c), w(a - c);
        const double den = u.x * v.y - u.y * v.x;
        if (std::fabs(den) < 0.05 * a.Distance(b) * c.Distance(d)) {
            continue; // keep away from near-parallel pairs
        }
        const double s = (v.x * w.y - v.y * w.x) / den, t = (u.x * w.y - u.y * w.x) / den;
        const bool clearIn = s > 0.02 && s < 0.98 && t > 0.02 && t < 0.98;
        const bool clearOut = s < -0.02 || s > 1.02 || t < -0.02 || t > 1.02;
        if (!clearIn && !clearOut) {
            continue;
        }
        CKivPoint3d i0, i1;
        const int r = CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(a, b, c, d, i0, i1);
        double x = 0.0, y = 0.0;
        const int j = JH_GetInterPoint_LineSection(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y, &x, &y, 1e-6);
        EXPECT_EQ(r, clearIn ? 1 : 0);
        EXPECT_EQ(j, r);
        if (r == 1 && j == 1) {
            ++crossings;
            EXPECT_NEAR(x, i0.x, 1e-5);
            EXPECT_NEAR(y, i0.y, 1e-5);
        }
    }
    EXPECT_GT(crossings, 200);
}

TEST(PlanarCrossing, MemberSegAndSegAndLineCollinearAndDegenerate)
{
    // The segment against segment CD (code and the x of I0 and I1, NaN where
    // not written) and against the line CD (code and the x of I).
    struct Case {
        CKivPoint3d a, b, c, d;
        int seg;
        double x0, x1;
        int line;
        double xl;
    };
    const double u = kNaN;
    const Case cases[] = {
        {P(0, 0), P(4, 0), P(6, 0), P(2, 0), 2, 4, 2, 2, u}, // overlap from the end nearer C
        {P(0, 0), P(4, 0), P(1, 0), P(3, 0), 2, 1, 3, 2, u},
        {P(0, 0), P(4, 0), P(4, 0), P(6, 0), 1, 4, u, 2, u}, // end to end
        {P(0, 0), P(4, 0), P(5, 0), P(6, 0), 0, u, u, 2, u},
        {P(0, 0), P(4, 0), P(0, 1), P(4, 1), 0, u, u, 0, u}, // parallel apart
        {P(2, 0), P(2, 0), P(0, 0), P(4, 0), 1, 2, u, 1, 2}, // point-like segments
        {P(0, 0), P(4, 0), P(3, 0), P(3, 0), 1, 3, u, 0, u}, // a point-like line: only a point on it counts
        {P(0, 0), P(4, 0), P(5, 0), P(5, 0), 0, u, u, 0, u},
        {P(5, 0), P(5, 0), P(5, 0), P(5, 0), 1, 5, u, 1, 5},
        {P(4, 0), P(4, 0), P(5, 0), P(5, 0), 0, u, u, 0, u},
        {P(0, -1), P(0, 1), P(5, 0), P(6, 0), 0, u, u, 1, 0}, // crossing the line beyond the segment
        {P(0, 1), P(0, 2), P(5, 0), P(6, 0), 0, u, u, 0, u},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        CKivPoint3d i0 = P(9, 9, 9), i1 = i0, il = i0;
        EXPECT_EQ(CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(c.a, c.b, c.c, c.d, i0, i1), c.seg);
        EXPECT_EQ(CKivSpaceMath::Test_Insertsect_Seg_And_Line_2D(c.a, c.b, c.c, c.d, il), c.line);
        if (!std::isnan(c.x0)) {
            EXPECT_EQ(i0.x, c.x0);
        }
        if (!std::isnan(c.x1)) {
            EXPECT_EQ(i1.x, c.x1);
        }
        EXPECT_EQ(il.x, std::isnan(c.xl) ? 9.0 : c.xl); // not written for a segment on the line
    }
    // The crossing carries z from AB.
    CKivPoint3d i0, i1;
    ASSERT_EQ(CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(P(0, 0, 0), P(2, 0, 4), P(1, -1), P(1, 1), i0, i1), 1);
    EXPECT_DOUBLE_EQ(i0.z, 2.0);
}

TEST(PlanarCrossing, PointInSegRangeOnly)
{
    EXPECT_EQ(CKivSpaceMath::Is_Point_In_Seg_2D(P(1, 5), P(0, 0), P(2, 0)), 1); // range only, y ignored
    EXPECT_EQ(CKivSpaceMath::Is_Point_In_Seg_2D(P(2, 0), P(2, 0), P(0, 0)), 1);
    EXPECT_EQ(CKivSpaceMath::Is_Point_In_Seg_2D(P(2.0000001, 0), P(2, 0), P(0, 0)), 0);
    EXPECT_EQ(CKivSpaceMath::Is_Point_In_Seg_2D(P(0, 3), P(0, 4), P(5e-7, 2)), 1); // near vertical: y
    EXPECT_EQ(CKivSpaceMath::Is_Point_In_Seg_2D(P(0, 5), P(0, 4), P(5e-7, 2)), 0);
}

TEST(PlanarCrossing, PointInSeg2D)
{
    EXPECT_TRUE(IsPtInSeg2D(0.0, 0.0, 0.0, 0.0, 2.0, 2.0));
    EXPECT_TRUE(IsPtInSeg2D(2.0000005, 2.0, 0.0, 0.0, 2.0, 2.0)); // end by CompDouble
    EXPECT_TRUE(IsPtInSeg2D(1.0, 1.0, 0.0, 0.0, 2.0, 2.0));
    EXPECT_FALSE(IsPtInSeg2D(1.0, 1.1, 0.0, 0.0, 2.0, 2.0));
    EXPECT_FALSE(IsPtInSeg2D(3.0, 3.0, 0.0, 0.0, 2.0, 2.0)); // on the line, outside the box
    EXPECT_TRUE(IsPtInSeg2D(1.0, 0.0, 0.0, 0.0, 2.0, 0.0));
}

TEST(PlanarNearest, ClampsToTheEnds)
{
    double x = 0.0, y = 0.0;
    EXPECT_DOUBLE_EQ(GetNearestPtToSeg2D(0.0, 0.0, 4.0, 0.0, -3.0, 4.0, x, y), 5.0);
    EXPECT_EQ(x, 0.0);
    EXPECT_DOUBLE_EQ(GetNearestPtToSeg2D(0.0, 0.0, 4.0, 0.0, 7.0, 4.0, x, y), 5.0);
    EXPECT_EQ(x, 4.0);
    EXPECT_DOUBLE_EQ(GetNearestPtToSeg2D(0.0, 0.0, 4.0, 0.0, 1.5, -2.0, x, y), 2.0);
    EXPECT_DOUBLE_EQ(x, 1.5);
    EXPECT_EQ(y, 0.0);
    EXPECT_DOUBLE_EQ(GetNearestPtToSeg2D(1.0, 1.0, 1.0, 1.0, 4.0, 5.0, x, y), 5.0);
    EXPECT_EQ(x, 1.0);
}

// ---------------------------------------------------------------- polygons

// Crossing-number reference from the textbook, for points clear of the edges.
bool ReferenceInside(const std::vector<CKivPoint3d>& ring, double px, double py)
{
    bool in = false;
    for (size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
        if ((ring[i].y > py) != (ring[j].y > py) &&
            px < (ring[j].x - ring[i].x) * (py - ring[i].y) / (ring[j].y - ring[i].y) + ring[i].x) {
            in = !in;
        }
    }
    return in;
}

// A random star-shaped counter-clockwise ring around the origin.
std::vector<CKivPoint3d> StarRing(std::mt19937& rng, int n, double scale)
{
    std::uniform_real_distribution<double> radius(0.3, 1.0);
    std::vector<CKivPoint3d> ring;
    for (int k = 0; k < n; ++k) {
        const double t = 6.283185307179586 * (k + 0.5 * radius(rng)) / n;
        const double r = radius(rng) * scale;
        ring.push_back(P(r * std::cos(t), r * std::sin(t)));
    }
    return ring;
}

TEST(PlanarPolygon, BoundaryVerticesAndRayThroughVertex)
{
    const std::vector<CKivPoint3d> square = {P(0, 0), P(4, 0), P(4, 4), P(0, 4)};
    EXPECT_EQ(IsPtInPolygon(square, P(2, 2)), 1);
    EXPECT_EQ(IsPtInPolygon(square, P(5, 2)), 0);
    EXPECT_EQ(IsPtInPolygon(square, P(2, 0)), -1);    // horizontal edge
    EXPECT_EQ(IsPtInPolygon(square, P(4, 2)), -1);    // vertical edge
    EXPECT_EQ(IsPtInPolygon(square, P(4, 4)), -1);    // vertex
    EXPECT_EQ(IsPtInPolygon(square, P(0, 0)), -1);    // vertex
    EXPECT_EQ(IsPtInPolygon(square, P(-1, 4)), 0);    // on the top edge's line, outside
    EXPECT_EQ(IsPtInPolygon(square, P(2, 2, 99)), 1); // z ignored
    // The ray from the point passes through the vertex (4, 2): counted once.
    const std::vector<CKivPoint3d> diamond = {P(2, 0), P(4, 2), P(2, 4), P(0, 2)};
    EXPECT_EQ(IsPtInPolygon(diamond, P(1, 2)), 1);
    EXPECT_EQ(IsPtInPolygon(diamond, P(-1, 2)), 0);
    // ...and through a local extremum of a concave ring: not counted.
    const std::vector<CKivPoint3d> notch = {P(0, 0), P(6, 0), P(6, 4), P(4, 2), P(2, 4), P(0, 4)};
    EXPECT_EQ(IsPtInPolygon(notch, P(1, 2)), 1);
    EXPECT_EQ(IsPtInPolygon(notch, P(5.5, 3)), 1);
    EXPECT_EQ(IsPtInPolygon(notch, P(5, 3)), -1); // on the slanted edge
    EXPECT_EQ(IsPtInPolygon(notch, P(4, 3)), 0);
    EXPECT_EQ(IsPtInPolygon(std::vector<CKivPoint3d>{P(0, 0), P(1, 1)}, P(0, 0)), 0);
    EXPECT_EQ(IsPtInPolygon(std::vector<CKivPoint3d>{}, P(0, 0)), 0);
}

TEST(PlanarPolygon, AgreesWithCrossingNumberOnRandomRings)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> coord(-1.2, 1.2);
    for (double scale : {1e-3, 1.0, 1e5}) {
        for (int rep = 0; rep < 20; ++rep) {
            const auto ring = StarRing(rng, 5 + rep, scale);
            for (int i = 0; i < 200; ++i) {
                const double px = coord(rng) * scale, py = coord(rng) * scale;
                bool nearEdge = false;
                for (size_t k = 0; k < ring.size(); ++k) {
                    double nx, ny;
                    const CKivPoint3d& a = ring[k];
                    const CKivPoint3d& b = ring[(k + 1) % ring.size()];
                    nearEdge |= GetNearestPtToSeg2D(a.x, a.y, b.x, b.y, px, py, nx, ny) < 1e-3 * scale;
                }
                if (nearEdge) {
                    continue;
                }
                EXPECT_EQ(IsPtInPolygon(ring, P(px, py)), ReferenceInside(ring, px, py) ? 1 : 0);
            }
        }
    }
}

TEST(PlanarPolygon, RegionCenter)
{
    CKivPoint3d c;
    ASSERT_TRUE(CalRegionCenter({P(0, 0), P(4, 0), P(4, 2), P(0, 2)}, c));
    EXPECT_DOUBLE_EQ(c.x, 2.0);
    EXPECT_DOUBLE_EQ(c.y, 1.0);
    ASSERT_TRUE(CalRegionCenter({P(0, 0, 5), P(0, 3, 5), P(3, 0, 5)}, c)); // clockwise: same centroid
    EXPECT_DOUBLE_EQ(c.x, 1.0);
    EXPECT_DOUBLE_EQ(c.y, 1.0);
    EXPECT_EQ(c.z, 0.0);
    EXPECT_FALSE(CalRegionCenter({P(0, 0), P(1, 1)}, c));
    ASSERT_TRUE(CalRegionCenter({P(0, 0), P(1, 1), P(2, 2)}, c)); // zero area: not guarded
    EXPECT_FALSE(std::isfinite(c.x));
}

// ---------------------------------------------------------------- circles and triangles

TEST(PlanarCircle, InCircumCircle)
{
    // Unit circle through (1,0), (0,1), (-1,0), either winding.
    EXPECT_EQ(IsPtInCircumCircle2D(0.0, 0.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), 1);
    EXPECT_EQ(IsPtInCircumCircle2D(0.0, 0.0, -1.0, 0.0, 0.0, 1.0, 1.0, 0.0), 1);
    EXPECT_EQ(IsPtInCircumCircle2D(2.0, 0.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), -1);
    EXPECT_EQ(IsPtInCircumCircle2D(2.0, 0.0, -1.0, 0.0, 0.0, 1.0, 1.0, 0.0), -1);
    EXPECT_EQ(IsPtInCircumCircle2D(0.0, -1.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), 0); // on it
    EXPECT_EQ(IsPtInCircumCircle2D(1.0, 0.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), 0);  // a corner
    EXPECT_EQ(IsPtInCircumCircle2D(0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 2.0, 2.0), -1);  // collinear
    // A NaN determinant is "not beyond 1e-6" for CompDouble: on the circle.
    EXPECT_EQ(IsPtInCircumCircle2D(kNaN, 0.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), 0);
    EXPECT_EQ(IsPtInCircumCircle2D(0.0, 0.0, kNaN, 0.0, 0.0, 1.0, -1.0, 0.0), -1);
}

TEST(PlanarCircle, NearTheCircleTheDeterminantDecides)
{
    // Around |d| = 1e-6 the answer comes from CompDouble; compare with a
    // literal evaluation of the rule on a sweep of points near the circle.
    for (int i = 0; i < 4000; ++i) {
        const double py = -1.0 + (i - 2000) * 1e-9;
        const double ax = 1.0 - 0.0, ay = 0.0 - py, bx = 0.0, by = 1.0 - py, cx = -1.0, cy = -py;
        const double d = (ax * ax + ay * ay) * (bx * cy - by * cx) - (bx * bx + by * by) * (ax * cy - ay * cx) +
                         (cx * cx + cy * cy) * (ax * by - ay * bx);
        int expect;
        if (CompDouble(std::fabs(d), 1e-6) == -1) {
            expect = 0;
        } else {
            expect = CompDouble(d, 1e-6) == 1 ? 1 : -1;
        }
        ASSERT_EQ(IsPtInCircumCircle2D(0.0, py, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), expect) << py;
    }
}

TEST(PlanarCircle, AgreesWithThreePointCircleAwayFromIt)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> coord(-5.0, 5.0);
    for (int i = 0; i < 5000; ++i) {
        const double ax = coord(rng), ay = coord(rng), bx = coord(rng), by = coord(rng), cx = coord(rng),
                     cy = coord(rng), px = coord(rng), py = coord(rng);
        // The point class's test answers the same in either corner order.
        const int in3p = CKivPoint3d::IsPtIn3PCircle(px, py, ax, ay, bx, by, cx, cy);
        EXPECT_EQ(in3p, CKivPoint3d::IsPtIn3PCircle(px, py, bx, by, ax, ay, cx, cy));
        double r, ox, oy;
        if (!CKivPoint3d::Get_3P_Circle(ax, ay, bx, by, cx, cy, r, ox, oy) || r > 50.0) {
            continue;
        }
        const double off = std::hypot(px - ox, py - oy) - r;
        if (std::fabs(off) < 1e-3) {
            continue;
        }
        EXPECT_EQ(IsPtInCircumCircle2D(px, py, ax, ay, bx, by, cx, cy), off < 0 ? 1 : -1);
        EXPECT_EQ(in3p, off < 0 ? 1 : -1);
    }
}

TEST(PlanarTriangle, PositionCodes)
{
    // Counter-clockwise (0,0) (4,0) (0,4).
    const auto pos = [](double x, double y, bool fix = false) {
        return GetPtPosInTri2D(x, y, 0.0, 0.0, 4.0, 0.0, 0.0, 4.0, fix);
    };
    EXPECT_EQ(pos(1, 1), 0);
    EXPECT_EQ(pos(1, -1), 1);
    EXPECT_EQ(pos(3, 3), 2);
    EXPECT_EQ(pos(-1, 1), 3);
    EXPECT_EQ(pos(-1, -1), 1); // first failing edge wins
    EXPECT_EQ(pos(2, 0), -1);
    EXPECT_EQ(pos(2, 2), -2);
    EXPECT_EQ(pos(0, 2), -3);
    EXPECT_EQ(pos(0, 0), -4);
    EXPECT_EQ(pos(4, 0), -4);
    EXPECT_EQ(pos(0.0000001, 4.0), -4); // two zero signs, corner by CompDouble
    EXPECT_EQ(pos(0.0000005, 4.0), 2);  // beyond BC by 2e-6 in the cross product: checked first
    EXPECT_EQ(pos(6, 0), 2);            // on AB's line beyond B
    // Clockwise: inside reads as beyond AB unless the orientation is fixed.
    EXPECT_EQ(GetPtPosInTri2D(1.0, 1.0, 0.0, 0.0, 0.0, 4.0, 4.0, 0.0, false), 1);
    EXPECT_EQ(GetPtPosInTri2D(1.0, 1.0, 0.0, 0.0, 0.0, 4.0, 4.0, 0.0, true), 0);
    EXPECT_EQ(GetPtPosInTri2D(2.0, 0.0, 0.0, 0.0, 0.0, 4.0, 4.0, 0.0, true), -3);
    EXPECT_EQ(pos(1, 1, true), 0);
}

TEST(PlanarTriangle, TwoZeroSignsWithoutCornerGiveMinusFour)
{
    // Near a corner but not equal to it under CompDouble's relative rule:
    // both edges at A read as zero, and the two-zero rule answers -4.
    const double ax = 0.5, ay = 0.5;
    EXPECT_EQ(CompDouble(0.5000008, 0.5), 1);
    EXPECT_EQ(GetPtPosInTri2D(0.5000008, 0.5000008, ax, ay, 0.9, 0.5, 0.5, 0.9, false), -4);
    // A degenerate triangle with the point on its line: three zeros.
    const int code = GetPtPosInTri2D(1.0, 1.0, 0.0, 0.0, 2.0, 2.0, 3.0, 3.0, false);
    EXPECT_TRUE(code == -1 || code == -2 || code == -3 || code == -4);
    EXPECT_EQ(GetPtPosInTri2D(1.0, 1.0, 2.0, 2.0, 2.0, 2.0, 2.0, 2.0, false), -4); // all corners equal
}

// ---------------------------------------------------------------- ear clipping

double SignedArea(const std::vector<CKivPoint3d>& ring)
{
    double s = 0.0;
    for (size_t i = 0; i < ring.size(); ++i) {
        const CKivPoint3d& a = ring[i];
        const CKivPoint3d& b = ring[(i + 1) % ring.size()];
        s += a.x * b.y - b.x * a.y;
    }
    return 0.5 * s;
}

TEST(PlanarEars, SmallestAngleFirstLowestIndexOnTies)
{
    std::vector<std::array<int, 3>> tris;
    ASSERT_TRUE(EarTriangulatePolygon({P(0, 0), P(1, 0), P(0, 1)}, tris));
    ASSERT_EQ(tris.size(), 1u);
    EXPECT_EQ(tris[0], (std::array<int, 3>{0, 1, 2}));
    // A square: four right angles, the lowest index is cut first.
    ASSERT_TRUE(EarTriangulatePolygon({P(0, 0), P(1, 0), P(1, 1), P(0, 1)}, tris));
    ASSERT_EQ(tris.size(), 2u);
    EXPECT_EQ(tris[0], (std::array<int, 3>{3, 0, 1}));
    EXPECT_EQ(tris[1], (std::array<int, 3>{1, 2, 3}));
    // A convex ring with one sharp corner (index 2): cut first.
    ASSERT_TRUE(EarTriangulatePolygon({P(0, 0), P(4, 0), P(6, 5), P(3, 2), P(0, 3)}, tris));
    EXPECT_EQ(tris[0][1], 2);
    EXPECT_FALSE(EarTriangulatePolygon({P(0, 0), P(1, 0)}, tris));
    EXPECT_TRUE(tris.empty());
}

TEST(PlanarEars, ClockwiseOrSelfCrossingRingsFail)
{
    std::vector<std::array<int, 3>> tris;
    EXPECT_FALSE(EarTriangulatePolygon({P(0, 0), P(0, 1), P(1, 1), P(1, 0)}, tris));
    EXPECT_FALSE(EarTriangulatePolygon({P(0, 0), P(4, 0), P(4, 4), P(0, 4), P(2, -2), P(2, 6)}, tris));
    // Repeated and collinear points neither crash nor loop.
    EarTriangulatePolygon({P(0, 0), P(0, 0), P(1, 0), P(2, 0), P(1, 1)}, tris);
    EarTriangulatePolygon({P(kNaN, 0), P(1, 0), P(1, 1), P(0, 1)}, tris);
}

TEST(PlanarEars, RandomStarRingsTileTheirArea)
{
    std::mt19937 rng(5);
    for (double scale : {1e-2, 1.0, 1e4}) {
        for (int n = 4; n < 40; n += 3) {
            const auto ring = StarRing(rng, n, scale);
            std::vector<std::array<int, 3>> tris;
            ASSERT_TRUE(EarTriangulatePolygon(ring, tris)) << n;
            ASSERT_EQ(tris.size(), static_cast<size_t>(n - 2));
            double area = 0.0;
            std::set<std::array<int, 3>> seen;
            for (const auto& t : tris) {
                ASSERT_TRUE(t[0] >= 0 && t[0] < n && t[1] >= 0 && t[1] < n && t[2] >= 0 && t[2] < n);
                const double a = SignedArea({ring[t[0]], ring[t[1]], ring[t[2]]});
                EXPECT_GT(a, 0.0); // every triangle counter-clockwise
                area += a;
                EXPECT_TRUE(seen.insert(t).second);
            }
            EXPECT_NEAR(area, SignedArea(ring), 1e-9 * scale * scale);
        }
    }
}

TEST(PlanarEars, Diagonal)
{
    // Concave: (0,0) (4,0) (4,4) (2,1) (0,4); corner 3 is reflex.
    const std::vector<CKivPoint3d> ring = {P(0, 0), P(4, 0), P(4, 4), P(2, 1), P(0, 4)};
    EXPECT_TRUE(IsPolygonDiagonal(ring, 0, 3));
    EXPECT_TRUE(IsPolygonDiagonal(ring, 3, 0));
    EXPECT_FALSE(IsPolygonDiagonal(ring, 2, 4)); // passes outside, over the notch
    EXPECT_FALSE(IsPolygonDiagonal(ring, 4, 2));
    volatile int outOfRange = 7; // (a constant index trips GCC's array-bounds analysis)
    EXPECT_FALSE(IsPolygonDiagonal(ring, 0, outOfRange));
    EXPECT_FALSE(IsPolygonDiagonal({P(0, 0), P(1, 0), P(0, 1)}, 0, 1));
}

// ---------------------------------------------------------------- bad input

TEST(PlanarBadInput, NoCrashAndNoNaNFromFiniteDegenerateInput)
{
    double x = 0.0, y = 0.0;
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, 2.0, 2.0, 1.0, 1.0, 1.0, 1.0, &x, &y, 1e-6), 0);
    const int r = JH_GetInterPoint_LineSection(1.0, 1.0, 1.0, 1.0, 0.0, 0.0, 2.0, 2.1, &x, &y, 1e-6);
    EXPECT_TRUE(r == 0 || (r == 1 && std::isfinite(x) && std::isfinite(y)));
    EXPECT_EQ(JH_GetInterPoint_LineSection(kNaN, 0.0, 2.0, 2.0, 0.0, 2.0, 2.0, 0.0, &x, &y, 1e-6), 0);
    EXPECT_EQ(JH_GetInterPoint_LineSection(0.0, 0.0, kInf, 2.0, 0.0, 2.0, 2.0, 0.0, &x, &y, 1e-6), 0);
    EXPECT_FALSE(IsSegCrossSeg2D(0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0));
    EXPECT_EQ(GetPtPosInTri2D(kNaN, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 1.0, true), -4);
    EXPECT_TRUE(std::isfinite(GetTwoSegAngle(0.0, 0.0, 0.0, 0.0, 0.0, 0.0)));
    CKivPoint3d i0, i1;
    EXPECT_EQ(CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(P(kNaN, 0), P(1, 0), P(0, 1), P(1, 1), i0, i1), 0);
    // Huge coordinates: still a clean crossing.
    ASSERT_EQ(CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(P(1e8, 1e8), P(1e8 + 10, 1e8 + 10), P(1e8, 1e8 + 10),
                                                            P(1e8 + 10, 1e8), i0, i1),
              1);
    EXPECT_NEAR(i0.x, 1e8 + 5, 1e-6);
}

} // namespace
