// The corner merge of CKivMeshData::InputData for a large soup on an empty
// mesh, worked out by sorting instead of by one hashed lookup per corner.
// Not installed.
//
// Why: the corners of a shuffled soup come in no spatial order, so each
// lookup of the plain merge lands somewhere else in an index of tens of MB
// and waits for memory. Sorting the corners by a cell of their position lets
// the merge walk memory in order instead.
//
// What it must reproduce: corners are taken in input order; a corner equal
// (point equality) to the position of a vertex made before it merges into
// the last-made such vertex, else it makes a new vertex. The result, per
// corner, is the corner that made its vertex (its maker).
//
// How. Cells of 2^-10 per axis, keyed by a hash. A corner is inside its cell
// when every value within 2e-6 of it along every axis (a superset of what
// point equality accepts: |difference| < 1e-6) lies in the same cell. Point
// equality is symmetric, so two equal corners in different cells are both
// not inside. Hence a group of corners sharing a key (a cell, or a few when
// keys collide) all inside their cells merges among itself alone: walked in
// input order (the sort is stable), each corner is tested against the
// group's makers so far, newest first. Every other group is open: its
// corners can only equal corners of open groups, and all of them are merged
// together in input order through a hash grid. Values of magnitude 2^30 or
// more, infinities and NaN are never inside a cell; groups with more than
// kMaxMakers makers are made open too (crowded data gains nothing here).
// Last, the makers are numbered in input order (the vertex numbers of the
// mesh) and the corners sorted by vertex, for the store to attach them.
#ifndef KIVGEO_TRIMESH_SOUP_MERGE_H
#define KIVGEO_TRIMESH_SOUP_MERGE_H

#include <kivgeo/tri3d.h>

#include "trimesh/big_array_alloc.h"
#include "trimesh/bit_rank.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TriMesh {

class CKivSoupMerge {
public:
    // Merges the corners of tris (corner j is tris[j / 3].m_pt[j % 3]). False,
    // keeping nothing, when the soup is too large for 31-bit corner numbers,
    // or, unless bForce is set, when a sample of its corners or the groups
    // show that more than a quarter of them fall in open groups (the plain
    // merge is then as good).
    bool Run(const std::vector<CKivTri3d>& tris, bool bForce);
    void Clear();

    // Number of corners that make a vertex.
    std::size_t MakerCount() const { return m_nMaker; }
    // Every corner as (vertex << 32 | corner), sorted: the vertices in the
    // order of the corners that make them (as InputData numbers the new
    // vertices), each one's corners in input order, its maker first.
    const CKivBigArray<std::uint64_t>& ByVertex() const { return m_vecGroup; }
    // Frees that list (Moved still answers).
    void ReleaseByVertex() { CKivBigArray<std::uint64_t>().swap(m_vecGroup); }
    // Whether corner j's position differs in its bits from its vertex's.
    bool Moved(std::uint32_t j) const { return (m_vecMoved[j >> 6] >> (j & 63)) & 1; }

private:
    static constexpr std::uint32_t kOpen = 0xffffffffu;
    static constexpr std::uint64_t kMakerBit = std::uint64_t(1) << 31;
    static constexpr std::uint32_t kCornerMask = 0x7fffffffu;
    static constexpr int kMaxMakers = 32;

    // Whether a sample of the corners shows a soup that would leave most of
    // its corners in open groups (crowded, or on cell borders).
    static bool Crowded(const std::vector<CKivTri3d>& tris);
    // Merges the closed group [s, e) of m_vecGroup; false when it has more
    // than kMaxMakers makers (the group is left for the caller to open).
    bool MergeGroup(std::size_t s, std::size_t e);
    void MergeOpen();
    // Turns the merged groups and open corners into the ByVertex list.
    void SortByVertex();

    // How the records of m_vecGroup read between the merge and SortByVertex:
    // open corners marked; makers marked; any other corner with its maker.
    static bool IsOpen(std::uint64_t r) { return (r >> 32) == kOpen; }
    static std::uint32_t CornerOf(std::uint64_t r) { return static_cast<std::uint32_t>(r) & kCornerMask; }
    static bool IsMaker(std::uint64_t r) { return (r & kMakerBit) != 0; }
    static std::uint32_t MakerOf(std::uint64_t r) { return static_cast<std::uint32_t>(r >> 32); }
    std::size_t Rank(std::uint32_t j) const
    {
        const std::uint64_t below = m_vecMaker[j >> 6] & ((std::uint64_t(1) << (j & 63)) - 1);
        return m_vecRankBase[j >> 6] + static_cast<std::size_t>(KivPopCount(below));
    }

    // The corner positions in input order, until the merge is done: the
    // merge reads them in no useful order, and this copy lies in large
    // pages (fewer address-translation misses than the caller's soup).
    CKivBigArray<CKivPoint3d> m_vecPt;
    // The corners grouped by key, then (SortByVertex) by vertex.
    CKivBigArray<std::uint64_t> m_vecGroup;
    // The corners of open groups, in input order (corner << 32 | maker).
    CKivBigArray<std::uint64_t> m_vecOpen;
    // Bit j: corner j makes a vertex; corner j's bits differ from its vertex's.
    std::vector<std::uint64_t> m_vecMaker;
    std::vector<std::uint64_t> m_vecMoved;
    // Makers in the words before each word of m_vecMaker.
    std::vector<std::uint32_t> m_vecRankBase;
    std::size_t m_nMaker = 0;
};

} // namespace TriMesh

#endif
