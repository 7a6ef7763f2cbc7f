// Point-in-ring tests against one closed ring, many times over: the same
// answers as IsPtInPolygon(), but each query looks only at the edges whose
// height band can count for it, found through horizontal strips. Inline and
// unexported, like the planar predicates it builds on.
#ifndef KIVGEO_TRIMESH_RING_INDEX_H
#define KIVGEO_TRIMESH_RING_INDEX_H

#include <kivgeo/point3d.h>

#include "spacemath/planar_internal.h"

#include <algorithm>
#include <cmath>

#include <cstdint>
#include <vector>

namespace TriMesh {

class CKivRingIndex {
public:
    // The ring is closed implicitly (the last point joins the first).
    explicit CKivRingIndex(const std::vector<CKivPoint3d>& ring);

    // 1 inside, 0 outside, -1 on the boundary, exactly as IsPtInPolygon().
    int Test(const CKivPoint3d& pt) const;

private:
    std::vector<CKivPoint3d> m_ring;
    // Plan box of the finite ring points, widened by the test's tolerance band;
    // a point outside it is outside the ring.
    double m_xMin, m_xMax, m_yMin, m_yMax;
    bool m_bIndexed;
    // Strip k covers heights [m_y0 + k * m_dy, m_y0 + (k + 1) * m_dy) and lists
    // every edge (by its first point) whose band reaches into it.
    double m_y0, m_dy;
    std::vector<std::uint32_t> m_stripStart;
    std::vector<std::uint32_t> m_stripEdge;
};

namespace RingIndexDetail {

// An edge can only count for a point whose height lies within 1e-6 of the
// edge's height range (PolygonEdgeRayTest); the index widens the range a bit
// more so that rounding in the strip arithmetic never drops an edge.
inline double BandPad(double y)
{
    return 2e-6 + 1e-15 * std::fabs(y);
}

// Rings this small are scanned whole.
constexpr std::size_t kMinIndexed = 16;

} // namespace RingIndexDetail

inline CKivRingIndex::CKivRingIndex(const std::vector<CKivPoint3d>& ring)
    : m_ring(ring), m_xMin(0), m_xMax(0), m_yMin(0), m_yMax(0), m_bIndexed(false), m_y0(0), m_dy(1)
{
    const std::size_t n = m_ring.size();
    bool finite = n >= 3;
    double yLo = HUGE_VAL, yHi = -HUGE_VAL;
    m_xMin = HUGE_VAL, m_xMax = -HUGE_VAL;
    for (const CKivPoint3d& p : m_ring) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
            finite = false;
            break;
        }
        m_xMin = std::min(m_xMin, p.x), m_xMax = std::max(m_xMax, p.x);
        yLo = std::min(yLo, p.y), yHi = std::max(yHi, p.y);
    }
    if (!finite) {
        return; // scanned whole, no shortcut
    }
    m_yMin = yLo - RingIndexDetail::BandPad(yLo);
    m_yMax = yHi + RingIndexDetail::BandPad(yHi);
    if (n < RingIndexDetail::kMinIndexed) {
        m_bIndexed = false;
        return;
    }
    // Choose the strip count from the mean number of edges a horizontal line
    // meets (s): about 2n / s strips keep the lists near 3n entries while a
    // query reads about 1.5 s edges.
    const double h = m_yMax - m_yMin;
    double s = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        s += std::fabs(m_ring[(i + 1) % n].y - m_ring[i].y);
    }
    s = h > 0 ? s / h : 1.0;
    const double k = std::clamp(2.0 * static_cast<double>(n) / std::max(s, 1.0), 1.0, static_cast<double>(n));
    const std::size_t strips = static_cast<std::size_t>(k);
    m_y0 = m_yMin;
    m_dy = h / static_cast<double>(strips);
    if (!(m_dy > 0) || !std::isfinite(m_dy)) {
        return;
    }
    const auto stripOf = [this, strips](double y) {
        const double f = std::floor((y - m_y0) / m_dy);
        if (!(f > 0)) {
            return std::size_t(0);
        }
        return std::min(static_cast<std::size_t>(std::min(f, 1e18)), strips - 1);
    };
    // Two passes: count, then fill (a compressed list per strip).
    std::vector<std::uint32_t> count(strips + 1, 0);
    const auto forEachStrip = [&](std::size_t i, auto&& fn) {
        const double a = m_ring[i].y, b = m_ring[(i + 1) % n].y;
        const double lo = std::min(a, b), hi = std::max(a, b);
        for (std::size_t j = stripOf(lo - RingIndexDetail::BandPad(lo)),
                         e = stripOf(hi + RingIndexDetail::BandPad(hi));
             j <= e; ++j) {
            fn(j);
        }
    };
    for (std::size_t i = 0; i < n; ++i) {
        forEachStrip(i, [&](std::size_t j) { ++count[j + 1]; });
    }
    for (std::size_t j = 0; j < strips; ++j) {
        count[j + 1] += count[j];
    }
    m_stripStart = count;
    m_stripEdge.resize(count[strips]);
    for (std::size_t i = 0; i < n; ++i) {
        forEachStrip(i, [&](std::size_t j) { m_stripEdge[count[j]++] = static_cast<std::uint32_t>(i); });
    }
    m_bIndexed = true;
}

inline int CKivRingIndex::Test(const CKivPoint3d& pt) const
{
    const std::size_t n = m_ring.size();
    if (n < 3) {
        return 0;
    }
    if (m_yMax > m_yMin && (pt.y < m_yMin || pt.y > m_yMax)) {
        return 0; // no edge's band reaches this height
    }
    if (!m_bIndexed) {
        return IsPtInPolygon(m_ring, pt);
    }
    const std::size_t strips = m_stripStart.size() - 1;
    const double f = std::floor((pt.y - m_y0) / m_dy);
    const std::size_t j = !(f > 0) ? 0 : std::min(static_cast<std::size_t>(std::min(f, 1e18)), strips - 1);
    // Each edge's answer is independent of the others and the toggles
    // commute, so reading only the candidate edges gives IsPtInPolygon's
    // result.
    bool inside = false;
    for (std::uint32_t e = m_stripStart[j]; e < m_stripStart[j + 1]; ++e) {
        const std::size_t i = m_stripEdge[e];
        const int r = PolygonEdgeRayTest(m_ring[i], m_ring[i + 1 == n ? 0 : i + 1], pt);
        if (r < 0) {
            return -1;
        }
        inside = inside != (r == 1);
    }
    return inside ? 1 : 0;
}

} // namespace TriMesh

#endif
