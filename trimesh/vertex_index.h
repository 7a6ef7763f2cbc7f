// Vertex lookup index of CKivMeshData: finds the last-added vertex that
// passes an exact position test without scanning the vertex list.
//
// A grid of cells over 2 (x, y) or 3 axes, hashed into buckets. Each bucket
// is a chain through the vertices themselves (the link members of _sVertex),
// holding list positions in descending order, so the first vertex of a chain
// that passes the test is the last-added match in that bucket. A vertex that
// passes the test differs from the query by less than the grid's reach on
// every axis; the cells searched are those met by [q - reach, q + reach], so
// no candidate is missed. Rounding cannot hide one either: the cell of a
// coordinate is a monotone function of it, and a candidate's coordinate (a
// double inside the real interval) lies between the rounded interval ends.
//
// Values so large that neighbouring doubles lie further apart than the reach
// (and infinities) match only themselves, so along such an axis the cell is
// the value's exact bit pattern. A NaN
// coordinate never compares equal: such vertices are kept out of the grid and
// such queries find nothing.
#ifndef KIVGEO_TRIMESH_VERTEX_INDEX_H
#define KIVGEO_TRIMESH_VERTEX_INDEX_H

#include <kivgeo/mesh_data.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace TriMesh {

class CKivVertexGrid {
public:
    // nAxes 2 or 3; dCell >= 2 * dReach; pLink names the vertex member that
    // chains this grid.
    CKivVertexGrid(int nAxes, double dCell, double dReach, std::int32_t _sVertex::*pLink);

    // Whether the grid indexes exactly the first n vertices as they are now.
    bool InSync(std::size_t n) const { return m_nSynced.load(std::memory_order_acquire) == n; }
    // Brings the grid in line with verts: indexes the vertices appended since
    // the last call, or rebuilds after Invalidate().
    void Sync(const std::vector<_sVertex*>& verts);
    // The next Sync rebuilds from scratch (vertices moved or removed).
    void Invalidate() { m_nSynced.store(kStale, std::memory_order_release); }
    // Forgets everything and releases the buckets.
    void Clear();

    // Highest list position whose vertex passes test(pt), among the vertices
    // within reach of p; -1 when none. Needs InSync(verts.size()).
    template <class Test> int FindLast(const std::vector<_sVertex*>& verts, const CKivPoint3d& p, Test test) const;

private:
    static constexpr std::size_t kStale = ~std::size_t(0);

    // Cell coordinate of v along one axis; false for NaN.
    bool AxisKey(double v, std::uint64_t& key) const;
    // Range of cell coordinates met by [v - reach, v + reach]; false for NaN.
    bool AxisRange(double v, std::uint64_t& lo, int& count) const;
    std::size_t Bucket(const std::uint64_t* key) const;
    void Rebuild(const std::vector<_sVertex*>& verts);
    void Link(const std::vector<_sVertex*>& verts, std::size_t pos);

    int m_nAxes;
    double m_dInvCell;
    double m_dReach;
    double m_dExactFrom;
    std::int32_t _sVertex::*m_pLink;
    std::vector<std::int32_t> m_vecHead;
    std::size_t m_nMask = 0;
    std::atomic<std::size_t> m_nSynced{kStale};
};

// The two grids of a mesh: 3D for point equality (reach 2e-6, enough for the
// 1e-6 of CompDouble; its relative rule for small values only ever makes
// fewer points equal), 2D for the 0.01 plan box (reach 0.02). Each is brought
// up to date on first use after a change, under a lock, so that concurrent
// const lookups stay safe.
class CKivVertexIndex {
public:
    CKivVertexIndex();

    int Find3D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p);
    int Find2D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p);
    void Invalidate();
    void Clear();

private:
    void Ensure(CKivVertexGrid& g, const std::vector<_sVertex*>& verts);

    CKivVertexGrid m_grid3D;
    CKivVertexGrid m_grid2D;
    std::mutex m_mutex;
};

template <class Test>
int CKivVertexGrid::FindLast(const std::vector<_sVertex*>& verts, const CKivPoint3d& p, Test test) const
{
    if (m_vecHead.empty()) {
        return -1;
    }
    const double c[3] = {p.x, p.y, p.z};
    std::uint64_t lo[3] = {0, 0, 0};
    int count[3] = {1, 1, 1};
    for (int a = 0; a < m_nAxes; ++a) {
        if (!AxisRange(c[a], lo[a], count[a])) {
            return -1;
        }
    }
    std::size_t seen[27];
    int nSeen = 0;
    int best = -1;
    std::uint64_t key[3];
    for (int i = 0; i < count[0]; ++i) {
        key[0] = lo[0] + i;
        for (int j = 0; j < count[1]; ++j) {
            key[1] = lo[1] + j;
            for (int k = 0; k < count[2]; ++k) {
                key[2] = lo[2] + k;
                const std::size_t b = Bucket(key);
                bool dup = false;
                for (int s = 0; s < nSeen; ++s) {
                    dup = dup || seen[s] == b;
                }
                if (dup) {
                    continue;
                }
                seen[nSeen++] = b;
                // Positions fall along the chain: stop at the first match, or
                // once nothing left could beat the best so far.
                for (std::int32_t pos = m_vecHead[b]; pos > best;) {
                    const _sVertex* v = verts[static_cast<std::size_t>(pos)];
                    if (test(v->pt)) {
                        best = pos;
                        break;
                    }
                    const std::int32_t next = v->*m_pLink;
                    pos = next < pos ? next : -1;
                }
            }
        }
    }
    return best;
}

} // namespace TriMesh

#endif
