// The triangulator's exactly evaluated in-circle rule: the plain rule where
// doubles suffice, the rule on exact determinants where they do not.
#include "spacemath/exact_incircle.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <random>

namespace {

// The rule applied to determinants computed in exact rational arithmetic
// (every double is a rational) and then rounded once.
int RuleOnRationals(const double* v)
{
    mpq_class q[8];
    for (int i = 0; i < 8; ++i) {
        q[i] = v[i];
    }
    const mpq_class &px = q[0], &py = q[1], &ax = q[2], &ay = q[3], &bx = q[4], &by = q[5], &cx = q[6], &cy = q[7];
    const mpq_class s = (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
    const mpq_class dax = ax - px, day = ay - py, dbx = bx - px, dby = by - py, dcx = cx - px, dcy = cy - py;
    const mpq_class d = (dax * dax + day * day) * (dbx * dcy - dby * dcx) -
                        (dbx * dbx + dby * dby) * (dax * dcy - day * dcx) +
                        (dcx * dcx + dcy * dcy) * (dax * dby - day * dbx);
    // Nearest double: the truncated value and its neighbour outwards.
    const auto nearest = [](const mpq_class& x) {
        const double t = x.get_d();
        const double o = std::nextafter(t, t < 0 || (t == 0 && sgn(x) < 0) ? -HUGE_VAL : HUGE_VAL);
        return abs(mpq_class(o) - x) < abs(mpq_class(t) - x) ? o : t;
    };
    const double sv = nearest(s), dv = nearest(d);
    if (!(std::fabs(sv) > 1e-6)) {
        return -1;
    }
    return InCircleSense(dv, sv < -1e-6);
}

void ExpectMatchesRationals(const double* v)
{
    SCOPED_TRACE(testing::Message() << std::setprecision(17) << "p (" << v[0] << ", " << v[1] << ") a (" << v[2]
                                    << ", " << v[3] << ") b (" << v[4] << ", " << v[5] << ") c (" << v[6] << ", "
                                    << v[7] << ")");
    EXPECT_EQ(IsPtInCircumCircle2DExact(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]), RuleOnRationals(v));
}

TEST(ExactInCircle, AgreesWithThePlainRuleWhereDoublesSuffice)
{
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int i = 0; i < 200000; ++i) {
        double v[8];
        for (double& x : v) {
            x = u(rng);
        }
        ASSERT_EQ(IsPtInCircumCircle2DExact(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]),
                  IsPtInCircumCircle2D(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]));
    }
}

// Where doubles do not suffice the answer must be the rule's on the exact
// determinants: points on a coarse grid far from the origin (twice the area
// is then rounded in the plain rule), a point nearly on the circle of three
// others at every scale (the in-circle determinant cancels), and triangles
// reaching out to far corners like the temporary bounding triangle's.
TEST(ExactInCircle, MatchesRationalArithmetic)
{
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::uniform_int_distribution<int> k(-40, 40);
    int cases = 0;
    for (double scale : {1e-3, 1.0, 10.0, 1e3, 1e5}) {
        for (double off : {0.0, 5.0e5, 3.0e6, 1.0e9}) {
            for (int i = 0; i < 150; ++i, ++cases) {
                double v[8];
                // Grid points: differences exact, raw products not.
                for (int j = 0; j < 8; ++j) {
                    v[j] = off + k(rng) * 0.25 * scale;
                }
                ExpectMatchesRationals(v);
                // Three random corners and a point on their circle, rounded.
                for (int j = 2; j < 8; ++j) {
                    v[j] = off + u(rng) * scale;
                }
                const double ax = v[2] - off, ay = v[3] - off, bx = v[4] - off, by = v[5] - off, cx = v[6] - off,
                             cy = v[7] - off;
                const double den = 2.0 * (ax * (by - cy) + bx * (cy - ay) + cx * (ay - by));
                const double ux = ((ax * ax + ay * ay) * (by - cy) + (bx * bx + by * by) * (cy - ay) +
                                   (cx * cx + cy * cy) * (ay - by)) /
                                  den;
                const double uy = ((ax * ax + ay * ay) * (cx - bx) + (bx * bx + by * by) * (ax - cx) +
                                   (cx * cx + cy * cy) * (bx - ax)) /
                                  den;
                const double r = std::hypot(ax - ux, ay - uy), t = u(rng) * 3.14159;
                v[0] = off + ux + r * std::cos(t);
                v[1] = off + uy + r * std::sin(t);
                if (std::isfinite(v[0]) && std::isfinite(v[1])) {
                    ExpectMatchesRationals(v);
                }
                // Far corners: two of them a billion extents away.
                v[4] = off + 3.0e9 * scale + u(rng), v[5] = off - 1.0e9 * scale + u(rng);
                v[6] = off - 3.0e9 * scale + u(rng), v[7] = off - 1.0e9 * scale;
                ExpectMatchesRationals(v);
            }
        }
    }
    EXPECT_GT(cases, 1000);
}

TEST(ExactInCircle, LeavesOverflowToThePlainRule)
{
    const double big = 1e200;
    EXPECT_EQ(IsPtInCircumCircle2DExact(0.0, 0.0, big, 0.0, 0.0, big, -big, 0.0),
              IsPtInCircumCircle2D(0.0, 0.0, big, 0.0, 0.0, big, -big, 0.0));
    const double nan = std::nan("");
    EXPECT_EQ(IsPtInCircumCircle2DExact(nan, 0.0, 1.0, 0.0, 0.0, 1.0, -1.0, 0.0), 0);
    EXPECT_EQ(IsPtInCircumCircle2DExact(0.0, 0.0, nan, 0.0, 0.0, 1.0, -1.0, 0.0), -1);
}

} // namespace
