#include <kivgeo/match_chazhi.h>

#include "surface/lu_solve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// Column-by-column (Crout) factorisation straight from its description: the
// blocked solver must reproduce it bit for bit, pivots and singular columns
// included.
int CroutReference(long n, std::vector<double>& a, std::vector<long>& piv)
{
    piv.assign(static_cast<size_t>(n), 0);
    auto at = [&](long i, long j) -> double& { return a[static_cast<size_t>(i * n + j)]; };
    for (long j = 0; j < n; ++j) {
        for (long i = 0; i < j; ++i) {
            for (long k = 0; k < i; ++k) {
                at(i, j) -= at(i, k) * at(k, j);
            }
        }
        long p = j;
        double big = -1.0;
        for (long i = j; i < n; ++i) {
            for (long k = 0; k < j; ++k) {
                at(i, j) -= at(i, k) * at(k, j);
            }
            if (std::fabs(at(i, j)) > big || i == j) {
                big = std::fabs(at(i, j));
                p = i;
            }
        }
        if (!(big > 0.0)) {
            return -1;
        }
        piv[static_cast<size_t>(j)] = p;
        for (long k = 0; k < n; ++k) {
            std::swap(at(j, k), at(p, k));
        }
        const double inv = 1.0 / at(j, j);
        for (long i = j + 1; i < n; ++i) {
            at(i, j) *= inv;
        }
    }
    return 0;
}

TEST(LUSolve, MatchesCroutOrderExactly)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> real(-1.0, 1.0);
    std::uniform_int_distribution<int> small(-2, 2); // ties in magnitude, singular columns
    int singular = 0;
    for (long n : {1L, 2L, 3L, 5L, 63L, 64L, 65L, 129L, 150L}) {
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<double> a(static_cast<size_t>(n * n));
            for (double& v : a) {
                v = trial % 2 ? small(rng) : real(rng);
            }
            std::vector<double> b = a;
            std::vector<long> pa(static_cast<size_t>(n)), pb;
            const int ra = KivLU::Factorize(n, a.data(), pa.data());
            ASSERT_EQ(ra, CroutReference(n, b, pb)) << n;
            singular += ra != 0;
            if (ra == 0) {
                ASSERT_EQ(pa, pb) << n;
                for (size_t i = 0; i < a.size(); ++i) {
                    ASSERT_EQ(a[i], b[i]) << "n " << n << " entry " << i;
                }
            }
        }
    }
    EXPECT_GT(singular, 0);
}

TEST(LUSolve, SmallResidualOnWellConditionedSystems)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (long n : {1L, 4L, 40L, 70L, 300L}) {
        std::vector<double> a(static_cast<size_t>(n * n)), x(static_cast<size_t>(n));
        for (long i = 0; i < n; ++i) {
            for (long j = 0; j < n; ++j) {
                a[static_cast<size_t>(i * n + j)] = u(rng) + (i == j ? 2.0 * std::sqrt(double(n)) : 0.0);
            }
        }
        for (double& v : x) {
            v = 100.0 * u(rng);
        }
        std::vector<double> b(static_cast<size_t>(n), 0.0), lu = a;
        for (long i = 0; i < n; ++i) {
            for (long j = 0; j < n; ++j) {
                b[static_cast<size_t>(i)] += a[static_cast<size_t>(i * n + j)] * x[static_cast<size_t>(j)];
            }
        }
        std::vector<long> piv(static_cast<size_t>(n));
        ASSERT_EQ(KivLU::Factorize(n, lu.data(), piv.data()), 0);
        std::vector<double> sol = b;
        KivLU::Substitute(n, lu.data(), piv.data(), sol.data());
        for (long i = 0; i < n; ++i) {
            double r = -b[static_cast<size_t>(i)];
            for (long j = 0; j < n; ++j) {
                r += a[static_cast<size_t>(i * n + j)] * sol[static_cast<size_t>(j)];
            }
            EXPECT_LT(std::fabs(r), 1e-11 * n * 100.0) << n;
            EXPECT_NEAR(sol[static_cast<size_t>(i)], x[static_cast<size_t>(i)], 1e-9);
        }
    }
}

// Scattered points at least 5 units apart over a square of the given side,
// shifted by (ox, oy).
std::vector<CKivPoint3d> Spread(std::mt19937& rng, int n, double side, double ox, double oy)
{
    std::uniform_real_distribution<double> u(0.0, side);
    std::vector<CKivPoint3d> pts;
    while (static_cast<int>(pts.size()) < n) {
        const CKivPoint3d p(ox + u(rng), oy + u(rng), 50.0 + u(rng) / side * 30.0);
        bool apart = true;
        for (const CKivPoint3d& q : pts) {
            apart = apart && get_dist(p.x, p.y, q.x, q.y) > 5.0;
        }
        if (apart) {
            pts.push_back(p);
        }
    }
    return pts;
}

double Eval(const CKivMatchChaZhi& m, double x, double y, double z0 = -12345.0)
{
    CKivPoint3d p(x, y, z0);
    m.ChaZhiPt(p);
    return p.z;
}

TEST(MatchChaZhi, SplineReproducesPlaneAndBaseHeights)
{
    std::mt19937 rng(7);
    for (const double offset : {0.0, 4.0e5}) {
        // Three points: the trend alone carries the plane.
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<CKivPoint3d> pts = Spread(rng, 3, 100.0, offset, offset);
            CGeoVector n = CGeoVector(pts[1] - pts[0]) ^ CGeoVector(pts[2] - pts[0]);
            if (std::fabs(n.z) < 100.0) {
                continue; // nearly collinear
            }
            CKivMatchChaZhi m;
            m.SetBase(CKivMatchChaZhi::eSpline, pts);
            for (int k = 0; k < 10; ++k) {
                const double x = offset + 150.0 * k / 10.0, y = offset + 20.0 * k - 40.0;
                const double plane = pts[0].z - (n.x * (x - pts[0].x) + n.y * (y - pts[0].y)) / n.z;
                EXPECT_NEAR(Eval(m, x, y), plane, 1e-9 * (std::fabs(plane) + 100.0)) << offset;
            }
        }
        // Four or more: the surface passes through every base height.
        for (int n : {4, 5, 17, 80, 200}) {
            const std::vector<CKivPoint3d> pts = Spread(rng, n, 1000.0, offset, offset);
            CKivMatchChaZhi m;
            m.SetBase(CKivMatchChaZhi::eSpline, pts);
            for (const CKivPoint3d& p : pts) {
                EXPECT_NEAR(Eval(m, p.x, p.y), p.z, (offset == 0.0 ? 1e-9 : 1e-7) * p.z) << n << " " << offset;
            }
        }
    }
}

TEST(MatchChaZhi, FailedSolveAndEmptyBaseWriteNothing)
{
    const std::vector<CKivPoint3d> line = {CKivPoint3d(0.0, 0.0, 1.0), CKivPoint3d(1.0, 0.0, 2.0),
                                           CKivPoint3d(3.0, 0.0, 4.0)};
    CKivMatchChaZhi m;
    m.SetBase(CKivMatchChaZhi::eSpline,
              {CKivPoint3d(0.0, 0.0, 1.0), CKivPoint3d(1.0, 1.0, 2.0), CKivPoint3d(1.0, 0.0, 3.0)});
    EXPECT_NE(Eval(m, 0.5, 0.5), -12345.0);
    m.SetBase(CKivMatchChaZhi::eSpline, line); // y all zero: a zero row, exactly singular
    EXPECT_EQ(Eval(m, 0.5, 0.5), -12345.0);
    m.SetBase(CKivMatchChaZhi::eSpline, {CKivPoint3d(0.0, 0.0, 1.0)});
    EXPECT_EQ(Eval(m, 0.5, 0.5), -12345.0);
    for (int t = 0; t < 4; ++t) { // the three methods and an unknown one
        m.SetBase(static_cast<CKivMatchChaZhi::InterPolationType>(t), {});
        EXPECT_EQ(Eval(m, 1.0, 2.0), -12345.0) << t;
    }
    m.SetBase(static_cast<CKivMatchChaZhi::InterPolationType>(3), line);
    EXPECT_EQ(Eval(m, 1.0, 2.0), -12345.0);
}

TEST(MatchChaZhi, RadialBasisIsEvaluatedWithPlainDistance)
{
    CKivMatchChaZhi m;
    m.SetBase(CKivMatchChaZhi::eRadialBasis, {CKivPoint3d(0.0, 0.0, 10.0)});
    EXPECT_DOUBLE_EQ(Eval(m, 3.0, 4.0), 50.0); // weight 10 times r = 5
    EXPECT_EQ(Eval(m, 0.0, 0.0), 0.0);         // not the base height

    std::mt19937 rng(5);
    const std::vector<CKivPoint3d> pts = Spread(rng, 30, 500.0, 0.0, 0.0);
    m.SetBase(CKivMatchChaZhi::eRadialBasis, pts);
    int off = 0;
    for (const CKivPoint3d& p : pts) {
        const double z = Eval(m, p.x, p.y);
        EXPECT_TRUE(std::isfinite(z));
        off += std::fabs(z - p.z) > 1e-3;
    }
    EXPECT_GT(off, 0);
}

TEST(MatchChaZhi, InverseDistance)
{
    CKivMatchChaZhi m;
    m.SetBase(CKivMatchChaZhi::eInverseDistance, {CKivPoint3d(2.0, 3.0, 10.0)});
    EXPECT_DOUBLE_EQ(Eval(m, 3.0, 3.0), 5.0); // the denominator starts at 1
    EXPECT_LT(Eval(m, 2000.0, 3.0), 1e-4);    // far away it tends to 0

    std::mt19937 rng(9);
    std::vector<CKivPoint3d> pts = Spread(rng, 40, 100.0, 0.0, 0.0);
    m.SetBase(CKivMatchChaZhi::eInverseDistance, pts);
    std::uniform_real_distribution<double> u(-10.0, 110.0);
    for (int k = 0; k < 200; ++k) {
        const double z = Eval(m, u(rng), u(rng));
        EXPECT_GT(z, 0.0);
        EXPECT_LT(z, 80.0);
    }
    for (const CKivPoint3d& p : pts) {
        EXPECT_EQ(Eval(m, p.x + 5e-4, p.y), p.z); // squared distance 2.5e-7, below 1e-6
    }
}

TEST(MatchChaZhi, NonFiniteInputNeverCrashes)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = HUGE_VAL;
    std::mt19937 rng(2);
    std::vector<CKivPoint3d> pts = Spread(rng, 12, 100.0, 0.0, 0.0);
    pts[4] = CKivPoint3d(nan, 1.0, 2.0);
    pts[7] = CKivPoint3d(3.0, inf, -inf);
    for (int t = 0; t < 3; ++t) {
        CKivMatchChaZhi m;
        m.SetBase(static_cast<CKivMatchChaZhi::InterPolationType>(t), pts);
        Eval(m, 1.0, 1.0);
        Eval(m, nan, 1.0);
        Eval(m, -inf, inf);
    }
}

} // namespace
