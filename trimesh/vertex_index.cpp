#include "trimesh/vertex_index.h"

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

inline std::uint64_t Mix(std::uint64_t x)
{
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ULL;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebULL;
    x ^= x >> 31;
    return x;
}

} // namespace

CKivVertexGrid::CKivVertexGrid(int nAxes, double dCell, double dReach, std::int32_t _sVertex::*pLink)
    : m_nAxes(nAxes), m_dInvCell(1.0 / dCell), m_dReach(dReach), m_pLink(pLink)
{
    // The smallest power of two T >= reach * 2^54: doubles of magnitude T or
    // more lie at least 2 * reach apart, and at least reach from any value
    // below T, so there a value can only match itself. T / cell < 2^54 keeps
    // the cell coordinates below it in range.
    m_dExactFrom = std::ldexp(1.0, std::ilogb(dReach * 18014398509481984.0) + 1);
}

bool CKivVertexGrid::AxisKey(double v, std::uint64_t& key) const
{
    if (std::isnan(v)) {
        return false;
    }
    if (std::fabs(v) >= m_dExactFrom) {
        std::memcpy(&key, &v, sizeof key);
        return true;
    }
    key = static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(v * m_dInvCell)));
    return true;
}

bool CKivVertexGrid::AxisRange(double v, std::uint64_t& lo, int& count) const
{
    std::uint64_t own;
    if (!AxisKey(v, own)) {
        return false;
    }
    lo = own;
    count = 1;
    if (std::fabs(v) >= m_dExactFrom) {
        return true;
    }
    // An end that reaches the exact range cannot hold a match (see above), so
    // it is clipped to the value's own cell.
    const double vlo = v - m_dReach, vhi = v + m_dReach;
    std::uint64_t klo = own, khi = own;
    if (std::fabs(vlo) < m_dExactFrom) {
        AxisKey(vlo, klo);
    }
    if (std::fabs(vhi) < m_dExactFrom) {
        AxisKey(vhi, khi);
    }
    const std::int64_t span = static_cast<std::int64_t>(khi) - static_cast<std::int64_t>(klo);
    lo = klo;
    count = static_cast<int>(span < 0 ? 0 : (span > 2 ? 2 : span)) + 1;
    return true;
}

std::size_t CKivVertexGrid::Bucket(const std::uint64_t* key) const
{
    const std::uint64_t h = Mix(key[0] ^ Mix(key[1] ^ Mix(key[2] + 0x9e3779b97f4a7c15ULL)));
    return static_cast<std::size_t>(h & m_nMask);
}

void CKivVertexGrid::Link(const std::vector<_sVertex*>& verts, std::size_t pos)
{
    _sVertex* v = verts[pos];
    const double c[3] = {v->pt.x, v->pt.y, v->pt.z};
    std::uint64_t key[3] = {0, 0, 0};
    for (int a = 0; a < m_nAxes; ++a) {
        if (!AxisKey(c[a], key[a])) {
            v->*m_pLink = -1; // NaN: never equal to anything
            return;
        }
    }
    const std::size_t b = Bucket(key);
    v->*m_pLink = m_vecHead[b];
    m_vecHead[b] = static_cast<std::int32_t>(pos);
}

void CKivVertexGrid::Rebuild(const std::vector<_sVertex*>& verts)
{
    std::size_t buckets = 16;
    while (buckets < 2 * verts.size()) {
        buckets *= 2;
    }
    m_vecHead.assign(buckets, -1);
    m_nMask = buckets - 1;
    for (std::size_t pos = 0; pos < verts.size(); ++pos) {
        Link(verts, pos);
    }
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
        Rebuild(verts);
    } else {
        for (std::size_t pos = synced; pos < n; ++pos) {
            Link(verts, pos);
        }
    }
    m_nSynced.store(n, std::memory_order_release);
}

void CKivVertexGrid::Clear()
{
    std::vector<std::int32_t>().swap(m_vecHead);
    m_nMask = 0;
    m_nSynced.store(kStale, std::memory_order_release);
}

CKivVertexIndex::CKivVertexIndex()
    : m_grid3D(3, kCell3D, kReach3D, &_sVertex::nLink3D), m_grid2D(2, kCell2D, kReach2D, &_sVertex::nLink2D)
{
}

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
    return m_grid3D.FindLast(verts, p, [&p](const CKivPoint3d& q) { return q == p; });
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
    return m_grid2D.FindLast(verts, p, near);
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
