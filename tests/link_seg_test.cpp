#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include "link_seg_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

bool SameBits(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

::testing::AssertionResult LinksLikePlainScan(const std::vector<CKivSeg3d>& segs)
{
    std::vector<CKivSeg3d> in = segs;
    std::vector<CKivPolyLine> lines;
    if (!CKivSeg3d::LinkSeg(in, lines)) {
        return ::testing::AssertionFailure() << "LinkSeg failed on " << segs.size() << " segments";
    }
    if (!in.empty()) {
        return ::testing::AssertionFailure() << "segments left over";
    }
    const std::string diff = LinkDiff(lines, PlainLink(segs));
    if (!diff.empty()) {
        return ::testing::AssertionFailure() << diff;
    }
    return ::testing::AssertionSuccess();
}

// Segments along a random walk of m vertices (closed when asked), each
// stored in a random direction.
void AddWalk(std::mt19937& rng, const CKivPoint3d& origin, double step, int m, bool bClosed,
             std::vector<CKivSeg3d>& segs, std::vector<CKivPoint3d>* verts = nullptr)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<CKivPoint3d> v{origin};
    for (int i = 1; i < m; ++i) {
        v.push_back(v.back() + CKivPoint3d(u(rng), u(rng), 0.3 * u(rng)) * step);
    }
    const int nSeg = bClosed ? m : m - 1;
    for (int i = 0; i < nSeg; ++i) {
        const CKivPoint3d& a = v[static_cast<size_t>(i)];
        const CKivPoint3d& b = v[static_cast<size_t>((i + 1) % m)];
        segs.push_back(rng() % 2 ? CKivSeg3d(a, b) : CKivSeg3d(b, a));
    }
    if (verts) {
        verts->insert(verts->end(), v.begin(), v.end());
    }
}

// Moves one end point of some segments by a small amount, in a random
// direction: within the point tolerance, just beyond it, within and beyond
// the joining distance.
void Jitter(std::mt19937& rng, std::vector<CKivSeg3d>& segs, double fraction)
{
    static const double kAmounts[] = {5e-7, 2e-6, 0.00005, 0.0002};
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (CKivSeg3d& s : segs) {
        if (u(rng) < fraction) {
            const double d = kAmounts[rng() % 4];
            const double a = 6.283185307179586 * u(rng);
            s.m_pt[rng() % 2] += CKivPoint3d(d * std::cos(a), d * std::sin(a), 0.0);
        }
    }
}

TEST(LinkSeg, ScrambledTriangleGivesOneClosedLine)
{
    const CKivPoint3d a(0.0, 0.0, 0.0), b(1.0, 0.0, 1.0), c(0.0, 1.0, 2.0);
    std::vector<CKivSeg3d> segs{CKivSeg3d(c, a), CKivSeg3d(b, c), CKivSeg3d(b, a)};
    std::vector<CKivPolyLine> lines;
    ASSERT_TRUE(CKivSeg3d::LinkSeg(segs, lines));
    EXPECT_TRUE(segs.empty());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].IsClosed());
    std::vector<CKivPoint3d> v;
    lines[0].OutputData(v);
    ASSERT_EQ(v.size(), 3u);
    // c-a first; b-c and then b-a join at the head, the repeated a is dropped.
    EXPECT_TRUE(SameBits(v[0], a));
    EXPECT_TRUE(SameBits(v[1], b));
    EXPECT_TRUE(SameBits(v[2], c));
}

TEST(LinkSeg, TooFewSegmentsAndAppending)
{
    const CKivPoint3d a(0.0, 0.0, 0.0), b(1.0, 0.0, 0.0), c(1.0, 1.0, 0.0);
    CKivPolyLine old;
    old.AddVertex(c);
    std::vector<CKivPolyLine> lines{old};
    std::vector<CKivSeg3d> one{CKivSeg3d(a, b)};
    EXPECT_FALSE(CKivSeg3d::LinkSeg(one, lines));
    EXPECT_EQ(one.size(), 1u);
    EXPECT_EQ(lines.size(), 1u);
    std::vector<CKivSeg3d> none;
    EXPECT_FALSE(CKivSeg3d::LinkSeg(none, lines));

    std::vector<CKivSeg3d> two{CKivSeg3d(a, b), CKivSeg3d(c, b)};
    ASSERT_TRUE(CKivSeg3d::LinkSeg(two, lines));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].NumVerts(), 1u); // kept in front
    EXPECT_EQ(lines[1].NumVerts(), 3u);
}

TEST(LinkSeg, MatchesPlainScanOnRandomBags)
{
    std::mt19937 rng(20261121);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int round = 0; round < 400; ++round) {
        // Small and large coordinates (the point tolerance is absolute), and
        // segments so short that matching ends often straddle grid cells.
        const double scale = round % 4 == 0 ? 1e-3 : round % 4 == 3 ? 1e-5 : 1.0;
        const CKivPoint3d origin = round % 4 >= 2 ? CKivPoint3d(4.5e5, 3.9e6, 1200.0) : CKivPoint3d();
        std::vector<CKivSeg3d> segs;
        std::vector<CKivPoint3d> verts;
        const int nWalks = 1 + static_cast<int>(rng() % 5);
        for (int w = 0; w < nWalks; ++w) {
            const CKivPoint3d o = origin + CKivPoint3d(u(rng), u(rng), u(rng)) * (3.0 * scale);
            AddWalk(rng, o, scale, 2 + static_cast<int>(rng() % 30), rng() % 2 == 0, segs, &verts);
        }
        // Branches from existing vertices, and duplicates (either direction).
        const int nExtra = static_cast<int>(rng() % 6);
        for (int i = 0; i < nExtra; ++i) {
            const CKivPoint3d& v = verts[rng() % verts.size()];
            segs.emplace_back(v, v + CKivPoint3d(u(rng), u(rng), 0.0) * scale);
            const CKivSeg3d d = segs[rng() % segs.size()];
            segs.push_back(rng() % 2 ? d : CKivSeg3d(d.m_pt[1], d.m_pt[0]));
        }
        if (segs.size() < 2) {
            segs.push_back(segs[0]);
        }
        if (round % 2 == 1) {
            Jitter(rng, segs, 0.2);
        }
        std::shuffle(segs.begin(), segs.end(), rng);
        ASSERT_TRUE(LinksLikePlainScan(segs)) << "round " << round;
    }
}

TEST(LinkSeg, MatchesPlainScanOnCrowdedPoints)
{
    // Segments between few lattice points: every point is a branching point
    // shared by many segments, duplicates abound, and degenerate segments
    // (both ends equal) occur.
    std::mt19937 rng(7);
    for (int round = 0; round < 60; ++round) {
        const int side = 2 + round % 4;
        auto lattice = [&]() {
            return CKivPoint3d(static_cast<double>(rng() % side), static_cast<double>(rng() % side),
                               round % 2 ? 0.0 : static_cast<double>(rng() % 2));
        };
        std::vector<CKivSeg3d> segs;
        const int n = 2 + static_cast<int>(rng() % 200);
        for (int i = 0; i < n; ++i) {
            segs.emplace_back(lattice(), lattice());
        }
        if (round % 3 == 0) {
            Jitter(rng, segs, 0.3);
        }
        ASSERT_TRUE(LinksLikePlainScan(segs)) << "round " << round;
    }
}

TEST(LinkSeg, MatchesPlainScanOnBrokenRings)
{
    // Rings cut into open runs whose ends sit 0.00005 or 0.0002 apart, so the
    // second pass has work (and chains of pieces) to do.
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int round = 0; round < 100; ++round) {
        std::vector<CKivSeg3d> segs;
        const int rings = 1 + round % 3;
        for (int r = 0; r < rings; ++r) {
            const int m = 3 + static_cast<int>(rng() % 40);
            std::vector<CKivPoint3d> v;
            for (int i = 0; i < m; ++i) {
                const double a = 6.283185307179586 * i / m;
                v.emplace_back(10.0 * r + std::cos(a), std::sin(a), 0.1 * u(rng));
            }
            for (int i = 0; i < m; ++i) {
                CKivPoint3d a = v[static_cast<size_t>(i)], b = v[static_cast<size_t>((i + 1) % m)];
                if (u(rng) < 0.3) {
                    b += CKivPoint3d(u(rng) < 0.5 ? 0.00005 : 0.0002, 0.0, 0.0);
                }
                segs.push_back(rng() % 2 ? CKivSeg3d(a, b) : CKivSeg3d(b, a));
            }
        }
        std::shuffle(segs.begin(), segs.end(), rng);
        ASSERT_TRUE(LinksLikePlainScan(segs)) << "round " << round;
    }
}

TEST(LinkSeg, BadCoordinatesNeitherCrashNorDiffer)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const CKivPoint3d a(0.0, 0.0, 0.0), b(1.0, 0.0, 0.0), c(inf, 0.0, 0.0), d(nan, 1.0, 0.0);
    const CKivPoint3d huge(1e300, -1e300, 1e308), tiny(1e-300, 0.0, -1e-310);
    std::vector<CKivSeg3d> segs{CKivSeg3d(a, b),    CKivSeg3d(b, c),    CKivSeg3d(c, d),    CKivSeg3d(d, a),
                                CKivSeg3d(huge, a), CKivSeg3d(c, huge), CKivSeg3d(tiny, b), CKivSeg3d(d, d),
                                CKivSeg3d(-c, c),   CKivSeg3d(c, tiny)};
    EXPECT_TRUE(LinksLikePlainScan(segs));
}

} // namespace
