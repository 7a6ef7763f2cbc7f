#include "trimesh/vertex_index.h"

#include "trimesh/prefetch.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace TriMesh {

namespace {

// Cells of 5e-5 keep real survey data at about one vertex per cell while a
// query rarely straddles a cell border (reach 2e-6). Plan cells of 0.1 hold
// few of the points the triangulator keeps (they are 0.01 apart or more).
constexpr double kCell3D = 5e-5;
constexpr double kReach3D = 2e-6;
constexpr double kCell2D = 0.1;
constexpr double kReach2D = 0.02;

// Relative cells (3D grid, 2e-6 <= |v| < 1). Two non-zero values below 1
// that CompDouble calls equal differ by less than 1e-6 of the larger
// magnitude, hence by less than kRelReach of either. A cell is 2^36 units in
// the last place of a 53-bit mantissa, 2^-17 to 2^-16 of the value: wider
// than the 4e-6 a query spans, so a query meets at most two of them.
constexpr double kRelReach = 2e-6;
constexpr int kRelShift = 36;
// Below this magnitude all values share one cell: an exact 0.0 equals every
// value within 1e-6 of it, so they must be found together.
constexpr double kSmall = 2e-6;
// The largest double below 1.
constexpr double kOneBelow = 0x1.fffffffffffffp-1;

enum : std::uint64_t { kSpaceAbs = 0, kSpaceRel = 1, kSpaceSmall = 2, kSpaceExact = 3 };

inline std::uint64_t Bits(double v)
{
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

} // namespace

CKivVertexGrid::CKivVertexGrid(int nAxes, double dCell, double dReach, bool bRelative)
    : m_nAxes(nAxes), m_dInvCell(1.0 / dCell), m_dReach(dReach), m_bRelative(bRelative)
{
    // The smallest power of two T >= reach * 2^54: doubles of magnitude T or
    // more lie at least 2 * reach apart, and at least reach from any value
    // below T, so there a value can only match itself. T / cell < 2^54 keeps
    // the cell coordinates below it in range.
    m_dExactFrom = std::ldexp(1.0, std::ilogb(dReach * 18014398509481984.0) + 1);
    m_dExactBelow = std::nextafter(m_dExactFrom, 0.0);
}

bool CKivVertexGrid::AxisCell(double v, Cell& c) const
{
    if (std::isnan(v)) {
        return false;
    }
    const double a = std::fabs(v);
    if (a >= m_dExactFrom) {
        c = Cell{kSpaceExact, Bits(v)};
    } else if (!m_bRelative || a >= 1.0) {
        c = Cell{kSpaceAbs, static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(v * m_dInvCell)))};
    } else if (a >= kSmall) {
        c = Cell{kSpaceRel, Bits(v) >> kRelShift};
    } else {
        c = Cell{kSpaceSmall, 0};
    }
    return true;
}

void CKivVertexGrid::AddCells(std::uint64_t nSpace, double a, double b, Cell* out, int& n) const
{
    Cell ca{0, 0}, cb{0, 0};
    AxisCell(a, ca);
    AxisCell(b, cb);
    // Within one key space the cell coordinate is monotone in the value
    // (decreasing for negative relative cells), so the cells between the two
    // ends are all there is. The spans are small (see the constants); the cap
    // only guards the fixed arrays.
    // Absolute cell coordinates are signed; compare them as such.
    const std::int64_t ka = static_cast<std::int64_t>(ca.nKey), kb = static_cast<std::int64_t>(cb.nKey);
    const std::int64_t lo = std::min(ka, kb), hi = std::max(ka, kb);
    for (std::int64_t k = lo; k <= hi && n < kMaxAxisCells; ++k) {
        const Cell c{nSpace, static_cast<std::uint64_t>(k)};
        bool dup = false;
        for (int i = 0; i < n; ++i) {
            dup = dup || (out[i].nSpace == c.nSpace && out[i].nKey == c.nKey);
        }
        if (!dup) {
            out[n++] = c;
        }
    }
}

bool CKivVertexGrid::AxisCells(double v, Cell* out, int& n) const
{
    n = 0;
    Cell own;
    if (!AxisCell(v, own)) {
        return false;
    }
    const double a = std::fabs(v);
    if (a >= m_dExactFrom) {
        out[n++] = own;
        return true;
    }
    // Candidates lie in [lo, hi]; each piece of it in a key space below the
    // exact range is mapped to its cells.
    const double exactBelow = m_dExactBelow;
    const auto map = [&](double lo, double hi) {
        if (!m_bRelative) {
            AddCells(kSpaceAbs, std::max(lo, -exactBelow), std::min(hi, exactBelow), out, n);
            return;
        }
        if (lo < kSmall && hi > -kSmall) {
            AddCells(kSpaceSmall, 0.0, 0.0, out, n);
        }
        if (hi >= kSmall && lo < 1.0) {
            AddCells(kSpaceRel, std::max(lo, kSmall), std::min(hi, kOneBelow), out, n);
        }
        if (lo <= -kSmall && hi > -1.0) {
            AddCells(kSpaceRel, std::max(lo, -kOneBelow), std::min(hi, -kSmall), out, n);
        }
        if (hi >= 1.0) {
            AddCells(kSpaceAbs, std::max(lo, 1.0), std::min(hi, exactBelow), out, n);
        }
        if (lo <= -1.0) {
            AddCells(kSpaceAbs, std::max(lo, -exactBelow), std::min(hi, -1.0), out, n);
        }
    };
    // The absolute bound holds for every match (|difference| < 1e-6); it is
    // the only one at or above 1 and for the plan box.
    if (!m_bRelative || a >= 1.0 - m_dReach) {
        map(v - m_dReach, v + m_dReach);
    }
    // Below 1 a match is either 0.0 (found in the small cell), a value of
    // magnitude 1 or more (covered above), or within a relative kRelReach.
    if (m_bRelative && a < 1.0) {
        map(v - kRelReach * a, v + kRelReach * a);
    }
    return true;
}

bool CKivVertexGrid::OneBucket(const double c[3], std::size_t& b) const
{
    Cell cell[3] = {{0, 0}, {0, 0}, {0, 0}};
    for (int a = 0; a < m_nAxes; ++a) {
        // AxisCells maps [v - reach, v + reach] to absolute cells and nothing
        // else when that interval lies within 1 <= |v| < m_dExactFrom (a NaN
        // fails here too); then the cells are those of its two ends.
        const double lo = c[a] - m_dReach, hi = c[a] + m_dReach;
        if (!((lo >= 1.0 && hi <= m_dExactBelow) || (lo >= -m_dExactBelow && hi <= -1.0))) {
            return false;
        }
        const std::int64_t kLo = static_cast<std::int64_t>(std::floor(lo * m_dInvCell));
        const std::int64_t kHi = static_cast<std::int64_t>(std::floor(hi * m_dInvCell));
        if (kLo != kHi) {
            return false;
        }
        cell[a] = Cell{kSpaceAbs, static_cast<std::uint64_t>(kLo)};
    }
    b = Bucket(cell);
    return true;
}

std::size_t CKivVertexGrid::Bucket(const Cell* c) const
{
    std::uint64_t k[3];
    for (int a = 0; a < 3; ++a) {
        k[a] = c[a].nKey + c[a].nSpace * 0x9e3779b97f4a7c15ULL;
    }
    const std::uint64_t h = KivMixKey(k[0] ^ KivMixKey(k[1] ^ KivMixKey(k[2] + 0x632be59bd9b4e019ULL)));
    return static_cast<std::size_t>(h & m_nMask);
}

std::size_t CKivVertexGrid::PrefetchHead(const CKivPoint3d& p) const
{
    if (m_vecHead.empty()) {
        return kNoBucket;
    }
    const double c[3] = {p.x, p.y, p.z};
    Cell cell[3] = {{0, 0}, {0, 0}, {0, 0}};
    for (int a = 0; a < m_nAxes; ++a) {
        if (!AxisCell(c[a], cell[a])) {
            return kNoBucket;
        }
    }
    const std::size_t b = Bucket(cell);
    PrefetchRead(&m_vecHead[b]);
    return b;
}

void CKivVertexGrid::PrefetchEntry(std::size_t bucket) const
{
    if (bucket >= m_vecHead.size()) {
        return;
    }
    const std::int32_t pos = m_vecHead[bucket];
    if (pos >= 0 && static_cast<std::size_t>(pos) < m_vecEntry.size()) {
        PrefetchRead(&m_vecEntry[static_cast<std::size_t>(pos)]);
    }
}

void CKivVertexGrid::Link(std::size_t pos)
{
    Entry& e = m_vecEntry[pos];
    const double c[3] = {e.pt.x, e.pt.y, e.pt.z};
    Cell cell[3] = {{0, 0}, {0, 0}, {0, 0}};
    e.nNext = -1;
    for (int a = 0; a < m_nAxes; ++a) {
        if (!AxisCell(c[a], cell[a])) {
            return; // NaN: never equal to anything
        }
    }
    const std::size_t b = Bucket(cell);
    e.nNext = m_vecHead[b];
    m_vecHead[b] = static_cast<std::int32_t>(pos);
}

void CKivVertexGrid::Rebuild(const std::vector<_sVertex*>& verts, std::size_t nBucketsFor)
{
    const std::size_t n = verts.size();
    const std::size_t synced = m_nSynced.load(std::memory_order_relaxed);
    // The copies of vertices that were in sync are still good when the grid
    // only grows; after Invalidate every position is read again.
    const std::size_t keep = (synced != kStale && synced <= n) ? std::min(synced, m_vecEntry.size()) : 0;
    m_vecEntry.resize(n);
    for (std::size_t pos = keep; pos < n; ++pos) {
        m_vecEntry[pos].pt = verts[pos]->pt;
    }
    Relink(std::max(n, nBucketsFor));
}

void CKivVertexGrid::Relink(std::size_t nBucketsFor)
{
    std::size_t buckets = 16;
    while (buckets < 2 * nBucketsFor) {
        buckets *= 2;
    }
    m_vecHead.assign(buckets, -1);
    m_nMask = buckets - 1;
    for (std::size_t pos = 0; pos < m_vecEntry.size(); ++pos) {
        Link(pos);
    }
}

void CKivVertexGrid::Append(const CKivPoint3d& p)
{
    const std::size_t n = m_vecEntry.size();
    m_vecEntry.push_back(Entry{p, -1});
    // As Sync: more than half as many points as buckets, grow.
    if (2 * (n + 1) > m_vecHead.size()) {
        Relink(2 * (n + 1));
    } else {
        Link(n);
    }
    m_nSynced.store(n + 1, std::memory_order_release);
}

void CKivVertexGrid::Sync(const std::vector<_sVertex*>& verts)
{
    const std::size_t n = verts.size();
    const std::size_t synced = m_nSynced.load(std::memory_order_relaxed);
    if (synced == n) {
        return;
    }
    // More than half as many vertices as buckets: grow, keeping chains short.
    if (synced == kStale || synced > n || 2 * n > m_vecHead.size()) {
        Rebuild(verts, n);
    } else {
        m_vecEntry.resize(n);
        for (std::size_t pos = synced; pos < n; ++pos) {
            m_vecEntry[pos].pt = verts[pos]->pt;
            Link(pos);
        }
    }
    m_nSynced.store(n, std::memory_order_release);
}

void CKivVertexGrid::Reserve(const std::vector<_sVertex*>& verts, std::size_t nExpected)
{
    Sync(verts);
    if (2 * nExpected > m_vecHead.size()) {
        Rebuild(verts, nExpected);
    }
    m_vecEntry.reserve(nExpected);
}

void CKivVertexGrid::Clear()
{
    decltype(m_vecHead)().swap(m_vecHead);
    decltype(m_vecEntry)().swap(m_vecEntry);
    m_nMask = 0;
    m_nSynced.store(kStale, std::memory_order_release);
}

CKivVertexIndex::CKivVertexIndex() : m_grid3D(3, kCell3D, kReach3D, true), m_grid2D(2, kCell2D, kReach2D, false) {}

void CKivVertexIndex::Ensure(CKivVertexGrid& g, const std::vector<_sVertex*>& verts)
{
    if (g.InSync(verts.size())) {
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    g.Sync(verts);
}

int CKivVertexIndex::Find3D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p)
{
    // Positions are 32-bit in the chains; a list this long is searched plainly.
    if (verts.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        for (std::size_t i = verts.size(); i-- > 0;) {
            if (verts[i]->pt == p) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    Ensure(m_grid3D, verts);
    return m_grid3D.FindLast(p, [&p](const CKivPoint3d& q) { return KivSamePoint(q, p); });
}

int CKivVertexIndex::Find2D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p)
{
    const auto near = [&p](const CKivPoint3d& q) {
        return std::fabs(q.x - p.x) <= 0.01 && std::fabs(q.y - p.y) <= 0.01;
    };
    if (verts.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        for (std::size_t i = verts.size(); i-- > 0;) {
            if (near(verts[i]->pt)) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    Ensure(m_grid2D, verts);
    return m_grid2D.FindLast(p, near);
}

CKivPointIndex::CKivPointIndex() : m_grid(3, kCell3D, kReach3D, true) {}

int CKivPointIndex::FindLast(const CKivPoint3d& p) const
{
    return m_grid.FindLast(p, [&p](const CKivPoint3d& q) { return KivSamePoint(q, p); });
}

void CKivVertexIndex::Invalidate()
{
    m_grid3D.Invalidate();
    m_grid2D.Invalidate();
}

void CKivVertexIndex::Clear()
{
    m_grid3D.Clear();
    m_grid2D.Clear();
}

} // namespace TriMesh
