// Vertex lookup index of CKivMeshData: finds the last-added vertex that
// passes an exact position test without scanning the vertex list.
//
// A grid of cells over 2 (x, y) or 3 axes, hashed into buckets. Each bucket
// is a chain of list positions in descending order, so the first entry of a
// chain that passes the test is the last-added match in that bucket. The
// chain links and a copy of each vertex's position sit together in one dense
// array indexed by list position, so that a lookup touches two places in
// memory, not the scattered vertex records. (The copies, like the cells, go
// stale when vertices move: hence CKivMeshData::InvalidateVertexIndex.)
//
// Along each axis a value v falls into one cell of one of these key spaces:
//  * absolute cells of fixed size, for |v| >= 1 (every |v| in the plan grid);
//  * relative cells (the top bits of the double), for kSmall <= |v| < 1, and
//    one cell for all |v| < kSmall, zero included (3D grid only). Below 1
//    CompDouble also asks for a relative 1e-6, so a surface drawn at a tiny
//    scale still spreads over many cells instead of crowding one;
//  * the exact bit pattern, for values so large that neighbouring doubles
//    lie further apart than the reach (and infinities): they match only
//    themselves.
// A query looks in every cell that can hold a value passing the test: the
// test bounds the difference (absolute, or relative below 1), the bounds are
// widened by a factor of two, and each piece of the widened interval that
// falls in a key space is mapped to its cells. Rounding cannot hide a
// candidate: within a key space the cell of a value is a monotone function of
// it, and a candidate (a double inside the real interval) lies between the
// rounded interval ends.
//
// A NaN coordinate never compares equal: such vertices are kept out of the
// grid and such queries find nothing.
#ifndef KIVGEO_TRIMESH_VERTEX_INDEX_H
#define KIVGEO_TRIMESH_VERTEX_INDEX_H

#include <kivgeo/mesh_data.h>

#include "trimesh/big_array_alloc.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace TriMesh {

// Spreads the bits of a cell key over the whole word (a 64-bit finaliser),
// so that neighbouring cells land far apart in a hash table.
inline std::uint64_t KivMixKey(std::uint64_t x)
{
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ULL;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebULL;
    x ^= x >> 31;
    return x;
}

// Point equality. Equal doubles are equal under CompDouble: settle those
// inline, which is how the corners of an exported surface meet again.
inline bool KivSamePoint(const CKivPoint3d& q, const CKivPoint3d& p)
{
    return (q.x == p.x && q.y == p.y && q.z == p.z) || q == p;
}

class CKivVertexGrid {
public:
    // nAxes 2 or 3; dCell >= 2 * dReach; bRelative: also relative cells below
    // 1 (for a test that, like CompDouble, is relative there).
    CKivVertexGrid(int nAxes, double dCell, double dReach, bool bRelative);

    // Whether the grid indexes exactly the first n vertices as they are now.
    bool InSync(std::size_t n) const { return m_nSynced.load(std::memory_order_acquire) == n; }
    // Brings the grid in line with verts: indexes the vertices appended since
    // the last call, or rebuilds after Invalidate().
    void Sync(const std::vector<_sVertex*>& verts);
    // Syncs, then makes room for nExpected vertices in all, so that appending
    // up to that many rebuilds nothing.
    void Reserve(const std::vector<_sVertex*>& verts, std::size_t nExpected);
    // The next Sync rebuilds from scratch (vertices moved or removed).
    void Invalidate() { m_nSynced.store(kStale, std::memory_order_release); }
    // Forgets everything and releases the storage.
    void Clear();
    // For a grid over a list of points rather than vertices (never Sync it
    // then): indexes p as the next list position.
    void Append(const CKivPoint3d& p);
    // Cache hints for a run of lookups, in two steps some lookups apart:
    // PrefetchHead asks for the chain head of p's own cell and returns its
    // bucket (kNoBucket for NaN or an empty grid); PrefetchEntry then asks
    // for the entry that head names. Harmless at any time, also when the grid
    // is out of sync or has been rebuilt in between.
    static constexpr std::size_t kNoBucket = ~std::size_t(0);
    std::size_t PrefetchHead(const CKivPoint3d& p) const;
    void PrefetchEntry(std::size_t bucket) const;

    // Highest list position whose vertex passes test(pt), among the vertices
    // within reach of p; -1 when none. Needs InSync(number of vertices).
    template <class Test> int FindLast(const CKivPoint3d& p, Test test) const;

private:
    static constexpr std::size_t kStale = ~std::size_t(0);
    // Up to this many cells per axis for one query (see AxisCells).
    static constexpr int kMaxAxisCells = 6;

    struct Entry {
        CKivPoint3d pt;
        // Next lower position in the same bucket, or -1.
        std::int32_t nNext;
    };
    // A cell along one axis: key space and cell coordinate in it.
    struct Cell {
        std::uint64_t nSpace;
        std::uint64_t nKey;
    };

    // The cell of v along one axis; false for NaN.
    bool AxisCell(double v, Cell& c) const;
    // The common case, told apart cheaply: along every axis the values that
    // can pass the test against c lie in one absolute cell. Then the one
    // bucket to search is b, the bucket AxisCells would lead to as well.
    bool OneBucket(const double c[3], std::size_t& b) const;
    // The cells along one axis that can hold a value passing the test against
    // v; false for NaN.
    bool AxisCells(double v, Cell* out, int& n) const;
    // Appends the cells of space nSpace met by [a, b] (both in that space).
    void AddCells(std::uint64_t nSpace, double a, double b, Cell* out, int& n) const;
    std::size_t Bucket(const Cell* c) const;
    void Rebuild(const std::vector<_sVertex*>& verts, std::size_t nBucketsFor);
    // New buckets for nBucketsFor entries, every entry linked again.
    void Relink(std::size_t nBucketsFor);
    void Link(std::size_t pos);

    int m_nAxes;
    double m_dInvCell;
    double m_dReach;
    bool m_bRelative;
    double m_dExactFrom;
    // The largest double below m_dExactFrom.
    double m_dExactBelow;
    CKivBigArray<std::int32_t> m_vecHead;
    CKivBigArray<Entry> m_vecEntry;
    std::size_t m_nMask = 0;
    std::atomic<std::size_t> m_nSynced{kStale};
};

// The two grids of a mesh: 3D for point equality (reach 2e-6, twice the
// 1e-6 of CompDouble, relative below 1), 2D for the 0.01 plan box (reach
// 0.02). Each is brought up to date on first use after a change, under a
// lock, so that concurrent const lookups stay safe.
class CKivVertexIndex {
public:
    CKivVertexIndex();

    int Find3D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p);
    int Find2D(const std::vector<_sVertex*>& verts, const CKivPoint3d& p);
    std::size_t PrefetchHead3D(const CKivPoint3d& p) const { return m_grid3D.PrefetchHead(p); }
    void PrefetchEntry3D(std::size_t bucket) const { m_grid3D.PrefetchEntry(bucket); }
    // Before a run of 3D lookups that will add about nExpected vertices in
    // all (not for concurrent use).
    void Reserve3D(const std::vector<_sVertex*>& verts, std::size_t nExpected)
    {
        m_grid3D.Reserve(verts, nExpected);
    }
    void Invalidate();
    void Clear();

private:
    void Ensure(CKivVertexGrid& g, const std::vector<_sVertex*>& verts);

    CKivVertexGrid m_grid3D;
    CKivVertexGrid m_grid2D;
    std::mutex m_mutex;
};

// Point equality lookups over a list of points that only grows, outside any
// mesh (the corners InputData merges apart from the mesh): the 3D grid of
// CKivVertexIndex over the points appended so far.
class CKivPointIndex {
public:
    CKivPointIndex();
    // Highest position whose point == p, or -1.
    int FindLast(const CKivPoint3d& p) const;
    // Appends p as the next position.
    void Append(const CKivPoint3d& p) { m_grid.Append(p); }

private:
    CKivVertexGrid m_grid;
};

template <class Test> int CKivVertexGrid::FindLast(const CKivPoint3d& p, Test test) const
{
    if (m_vecHead.empty()) {
        return -1;
    }
    const double c[3] = {p.x, p.y, p.z};
    std::size_t one;
    if (OneBucket(c, one)) {
        for (std::int32_t pos = m_vecHead[one]; pos >= 0;) {
            const Entry& e = m_vecEntry[static_cast<std::size_t>(pos)];
            if (test(e.pt)) {
                return pos;
            }
            pos = e.nNext < pos ? e.nNext : -1;
        }
        return -1;
    }
    Cell cells[3][kMaxAxisCells];
    int count[3] = {1, 1, 1};
    cells[2][0] = Cell{0, 0};
    for (int a = 0; a < m_nAxes; ++a) {
        if (!AxisCells(c[a], cells[a], count[a])) {
            return -1;
        }
    }
    std::size_t seen[kMaxAxisCells * kMaxAxisCells * kMaxAxisCells];
    int nSeen = 0;
    int best = -1;
    Cell key[3];
    for (int i = 0; i < count[0]; ++i) {
        key[0] = cells[0][i];
        for (int j = 0; j < count[1]; ++j) {
            key[1] = cells[1][j];
            for (int k = 0; k < count[2]; ++k) {
                key[2] = cells[2][k];
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
                    const Entry& e = m_vecEntry[static_cast<std::size_t>(pos)];
                    if (test(e.pt)) {
                        best = pos;
                        break;
                    }
                    pos = e.nNext < pos ? e.nNext : -1;
                }
            }
        }
    }
    return best;
}

} // namespace TriMesh

#endif
