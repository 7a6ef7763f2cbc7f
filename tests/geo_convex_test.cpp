#include <kivgeo/geo_convex.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace {

using Pts = std::vector<CKivPoint3d>;

// The hull straight from its description: a stable comparison sort (y, x,
// then z with NaN last), removal of adjacent repeats and the two chains.
int ReferenceHull(Pts pts, Pts& hull)
{
    pts.erase(std::remove_if(pts.begin(), pts.end(),
                             [](const CKivPoint3d& p) { return !std::isfinite(p.x) || !std::isfinite(p.y); }),
              pts.end());
    std::stable_sort(pts.begin(), pts.end(), [](const CKivPoint3d& a, const CKivPoint3d& b) {
        if (a.y != b.y || a.x != b.x) {
            return a.y < b.y || (a.y == b.y && a.x < b.x);
        }
        return a.z < b.z || (!std::isnan(a.z) && std::isnan(b.z));
    });
    pts.erase(std::unique(pts.begin(), pts.end(),
                          [](const CKivPoint3d& a, const CKivPoint3d& b) { return (a == b) != 0; }),
              pts.end());
    const size_t m = pts.size();
    if (m < 2) {
        return 0;
    }
    auto cw = [&](size_t o, size_t a, size_t b) {
        const CKivPoint3d &O = pts[o], &A = pts[a], &B = pts[b];
        return (B.y - O.y) * (A.x - O.x) - (A.y - O.y) * (B.x - O.x) < 0;
    };
    std::vector<size_t> st = {0, 1};
    for (size_t i = 2; i < m; ++i) {
        while (st.size() >= 2 && cw(st[st.size() - 2], st.back(), i)) {
            st.pop_back();
        }
        st.push_back(i);
    }
    std::vector<bool> used(m);
    for (size_t k = 1; k < st.size(); ++k) {
        used[st[k]] = true;
    }
    int pushed = 0;
    for (size_t i = m; i-- > 0;) {
        if (!used[i]) {
            while (st.size() >= 2 && cw(st[st.size() - 2], st.back(), i)) {
                st.pop_back();
            }
            st.push_back(i);
            ++pushed;
        }
    }
    hull.clear();
    for (size_t k = 0; k + 1 < st.size(); ++k) {
        hull.push_back(pts[st[k]]);
    }
    return pushed > 1;
}

void ExpectSameAsReference(const Pts& pts, const char* what)
{
    Pts hull = {CKivPoint3d(9.0, 9.0, 9.0)}, ref = hull;
    ASSERT_EQ(CKivGeoConvex::Convex(pts, hull), ReferenceHull(pts, ref)) << what;
    ASSERT_EQ(hull.size(), ref.size()) << what;
    for (size_t i = 0; i < hull.size(); ++i) {
        ASSERT_TRUE(hull[i].x == ref[i].x && hull[i].y == ref[i].y && hull[i].z == ref[i].z) << what << " " << i;
    }
}

TEST(GeoConvex, SameAsPlainAlgorithmOnVariedInput)
{
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::uniform_int_distribution<int> g(0, 30);
    for (const double scale : {1e-7, 1.0, 1e6}) {
        for (const int n : {2, 3, 10, 1000, 100000}) {
            Pts spread, grid, clustered, skinny;
            for (int i = 0; i < n; ++i) {
                spread.emplace_back(scale * u(rng), scale * u(rng), u(rng));
                // Many repeats, collinear runs, points on edges, equal y.
                grid.emplace_back(scale * g(rng), scale * g(rng), double(g(rng) % 2));
                // Near-repeats within the point tolerance, large offsets.
                clustered.emplace_back(3e6 + std::round(u(rng) * 20) * 4e-7, 5e5 + u(rng) * 1e-5, 0.0);
                skinny.emplace_back(scale * u(rng), 1e-300 * u(rng), 0.0);
            }
            ExpectSameAsReference(spread, "spread");
            ExpectSameAsReference(grid, "grid");
            ExpectSameAsReference(clustered, "clustered");
            ExpectSameAsReference(skinny, "skinny");
        }
    }
    ExpectSameAsReference({CKivPoint3d(0.0, -1e308, 0.0), CKivPoint3d(1e308, 1e308, 0.0),
                           CKivPoint3d(-1e308, 0.0, 0.0), CKivPoint3d(0.0, 0.0, 0.0)},
                          "huge");
}

// Exact orientation of integer points: > 0 counter-clockwise.
int64_t Orient(const CKivPoint3d& o, const CKivPoint3d& a, const CKivPoint3d& b)
{
    return int64_t(a.x - o.x) * int64_t(b.y - o.y) - int64_t(a.y - o.y) * int64_t(b.x - o.x);
}

TEST(GeoConvex, HullContainsEveryPointAndKeepsEdgePoints)
{
    std::mt19937 rng(4);
    for (int trial = 0; trial < 300; ++trial) {
        const int side = 2 + trial % 40, n = 3 + trial * 3;
        std::uniform_int_distribution<int> g(-side, side);
        Pts pts;
        for (int i = 0; i < n; ++i) {
            pts.emplace_back(double(g(rng)), double(g(rng) / 2), 0.0);
        }
        Pts hull;
        const int r = CKivGeoConvex::Convex(pts, hull);
        ASSERT_GE(hull.size(), 2u);
        const CKivPoint3d low = *std::min_element(
            pts.begin(), pts.end(), [](auto& a, auto& b) { return a.y < b.y || (a.y == b.y && a.x < b.x); });
        EXPECT_TRUE(hull[0].x == low.x && hull[0].y == low.y);
        int64_t area2 = 0;
        const size_t h = hull.size();
        for (size_t k = 0; k < h; ++k) {
            const CKivPoint3d &a = hull[k], &b = hull[(k + 1) % h];
            area2 += int64_t(a.x) * int64_t(b.y) - int64_t(b.x) * int64_t(a.y);
            EXPECT_GE(Orient(hull[(k + h - 1) % h], a, b), 0); // convex, counter-clockwise
        }
        if (area2 == 0) {
            EXPECT_EQ(r, 0); // collinear: the sorted distinct points
            EXPECT_TRUE(std::is_sorted(hull.begin(), hull.end(),
                                       [](auto& a, auto& b) { return a.y < b.y || (a.y == b.y && a.x < b.x); }));
            continue;
        }
        EXPECT_GT(area2, 0);
        for (const CKivPoint3d& p : pts) {
            bool onEdge = false;
            for (size_t k = 0; k < h; ++k) {
                const CKivPoint3d &a = hull[k], &b = hull[(k + 1) % h];
                const int64_t o = Orient(a, b, p);
                ASSERT_GE(o, 0) << "point outside the hull";
                onEdge = onEdge || (o == 0 && std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) &&
                                    std::min(a.y, b.y) <= p.y && p.y <= std::max(a.y, b.y));
            }
            if (onEdge) {
                EXPECT_TRUE(
                    std::any_of(hull.begin(), hull.end(), [&](auto& q) { return q.x == p.x && q.y == p.y; }));
            }
        }
    }
}

TEST(GeoConvex, SmallCases)
{
    const Pts keep = {CKivPoint3d(7.0, 7.0, 7.0)};
    Pts hull = keep;
    EXPECT_EQ(CKivGeoConvex::Convex({}, hull), 0);
    EXPECT_EQ(CKivGeoConvex::Convex({CKivPoint3d(1.0, 1.0, 0.0)}, hull), 0);
    EXPECT_EQ(CKivGeoConvex::Convex({CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(1.0, 1.0000005, 0.0)}, hull), 0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(CKivGeoConvex::Convex({CKivPoint3d(nan, 1.0, 0.0), CKivPoint3d(1.0, HUGE_VAL, 0.0)}, hull), 0);
    EXPECT_EQ(hull.size(), 1u);
    EXPECT_EQ(hull[0].x, 7.0);

    // Square, its centre and the middle of its bottom edge.
    const CKivPoint3d a(0.0, 0.0, 0.0), b(2.0, 0.0, 0.0), c(2.0, 2.0, 0.0), d(0.0, 2.0, 0.0);
    const CKivPoint3d mid(1.0, 0.0, 0.0), centre(1.0, 1.0, 0.0);
    EXPECT_EQ(CKivGeoConvex::Convex({c, centre, a, d, b}, hull), 1);
    EXPECT_EQ(hull, (Pts{a, b, c, d}));
    EXPECT_EQ(CKivGeoConvex::Convex({c, centre, mid, a, d, b, CKivPoint3d(nan, nan, 0.0)}, hull), 1);
    EXPECT_EQ(hull, (Pts{a, mid, b, c, d}));

    // Collinear: result 0, the points in sorted order.
    EXPECT_EQ(CKivGeoConvex::Convex({c, a, centre}, hull), 0);
    EXPECT_EQ(hull, (Pts{a, centre, c}));

    // Heights: equal within the point tolerance merge, others stay apart.
    const CKivPoint3d up(0.0, 0.0, 5.0), near(0.0, 0.0, 5e-7);
    EXPECT_EQ(CKivGeoConvex::Convex({a, near, up, b, c, d}, hull), 1);
    EXPECT_EQ(hull, (Pts{a, up, b, c, d}));

    // A triangle whose left side is one edge and whose points all lie on the
    // upward chain gives 0; any point off that chain makes it 1.
    EXPECT_EQ(CKivGeoConvex::Convex({a, b, CKivPoint3d(1.0, 1.0, 0.0)}, hull), 0);
    EXPECT_EQ(hull.size(), 3u);
    EXPECT_EQ(CKivGeoConvex::Convex({a, b, CKivPoint3d(1.0, 1.0, 0.0), CKivPoint3d(1.0, 0.5, 0.0)}, hull), 1);
    EXPECT_EQ(hull.size(), 3u);
}

} // namespace
