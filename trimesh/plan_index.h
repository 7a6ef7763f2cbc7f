// Search aids for the mesh queries, built together on demand: a uniform
// plan grid over the triangles, and a contiguous copy of the octree's shape.
// Not installed; exported only so that the test suite can build one.
//
// Why: the octree covers the mesh extent, and right after a triangulation the
// extent still holds the far-away corners of the bounding triangle, so the
// deepest octree columns can hold thousands of triangles each. The grid is
// laid over the triangles themselves, about one cell per triangle, and a
// cell lists only the triangles whose footprint (grown by the margin below)
// meets it.
//
// What the grid answers: every triangle that the octree has indexed and
// whose footprint, grown by a margin, holds (x, y). The margin covers the
// tolerance with which the line-triangle test accepts a hit just outside a
// triangle (barycentric slack of 1e-6, so at most a few millionths of the
// triangle's size) with a factor of ten to spare, so every triangle that can
// give a proper vertical hit at (x, y) is reported; steep triangles, draped
// by a wall cut with absolute tolerances, get 1e-5 more. Triangles the
// octree does not hold are left out, as its queries leave them out;
// triangles with non-finite boxes, or boxes over very many cells, sit in a
// short list that every query reports.
//
// For the elevation query the grid also keeps its own copy of the corner
// positions, three per triangle, with the triangles sorted by the block of
// 8 x 8 cells that holds their centres, and each cell keeps up to eight
// triangle numbers in its own record. A random query then waits on two
// reads (its cell, then its candidates' corners, which lie side by side)
// instead of a chain of scattered triangle and vertex records. On a TIN of
// 2M triangles all of it takes about 121 bytes per triangle; the copies are
// 72 of them, and save about a sixth of the time of a random query over
// numbering the corners into a shared array (one more read in the chain).
//
// The octree copy records, per node in the order the octree's queries walk
// them, its boxes, its parent and the end of its subtree, and per triangle
// its node and its place in that node's list. Draping uses it to put the
// triangles found through the grid into the octree's order; the segment
// search walks it instead of the tree (same nodes, far fewer cache misses).
//
// The mesh owns the aids (CKivMeshData::m_pPlanIndex) and drops them on
// every change of its triangles, its vertex positions or its octree.
#ifndef KIVGEO_TRIMESH_PLAN_INDEX_H
#define KIVGEO_TRIMESH_PLAN_INDEX_H

#include <kivgeo/export.h>
#include <kivgeo/mesh_data.h>

#include "trimesh/big_array_alloc.h"
#include "trimesh/oct_tree.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TriMesh {

class KIVGEO_API CKivPlanIndex {
public:
    // Indexes the non-null triangles of tris that tree holds (the root box
    // contains their box, as at insertion).
    CKivPlanIndex(const std::vector<_sTri*>& tris, const CKivOctTree& tree);

    // Calls f(a, b, c) with the corner positions, in corner order, of every
    // candidate at (x, y); nothing for NaN.
    template <class F> void ForEachAt(double x, double y, F&& f) const
    {
        for (const _sTri* t : m_vecWide) {
            f(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
        }
        if (!(x >= m_dX0 && x <= m_dX1 && y >= m_dY0 && y <= m_dY1)) {
            return;
        }
        const std::size_t c = CellX(x) + CellY(y) * m_nX;
        // Ask for every candidate's corners before the first test: the reads
        // then overlap instead of waiting on each other behind the tests'
        // branches.
        const std::uint32_t* e;
        std::size_t n;
        CellEntries(c, e, n);
        for (std::size_t k = 0; k < n; ++k) {
            const char* p = reinterpret_cast<const char*>(&m_vecTriPt[e[k]]);
            __builtin_prefetch(p);
            __builtin_prefetch(p + 71); // 72 bytes: two lines at most
        }
        for (std::size_t k = 0; k < n; ++k) {
            const STriPts& t = m_vecTriPt[e[k]];
            f(t.p[0], t.p[1], t.p[2]);
        }
    }
    // Every triangle whose widened plan box meets the box [x0, x1] x [y0, y1]
    // (and some more), each once, in address order; tris is the list the
    // index was built from.
    void CandidatesInBox(const std::vector<_sTri*>& tris, double x0, double y0, double x1, double y1,
                         std::vector<_sTri*>& out) const;

    // Draping keeps the octree's order: the triangles of the nodes a column
    // query reports, node by node in the order reported, each node's list
    // from its last entry to its first. False when that order is unknown (a
    // triangle's slot in the mesh list was not recorded).
    bool HasOctreeOrder() const { return m_bOrdered; }
    // Whether the octree's query with box q reports t's node: the node and
    // all its ancestors meet q.
    bool ReportedBy(const _sTri* t, const CKivOctBox& q) const;
    // Sorts triangles reported by one query into the order it reports them.
    std::uint64_t OrderKey(const _sTri* t) const
    {
        const std::size_t slot = static_cast<std::size_t>(t->nPos);
        return (static_cast<std::uint64_t>(m_vecTriNode[slot]) << 32) | (0xFFFFFFFFu - m_vecTriPos[slot]);
    }

    // The octree walk of CKivMeshQuery::FindTriBySeg over the copy of the
    // tree kept here (contiguous, so much faster to walk): appends the
    // triangles of the nodes that, together with all their ancestors, meet
    // one of the boxes whose bit is set in live (at most 16 boxes).
    void CollectAlong(const CKivOctBox* boxes, unsigned live, std::vector<_sTri*>& out) const;

    std::size_t CellCount() const { return m_nX * m_nY; }
    std::size_t EntryCount() const { return m_nEntries; }
    std::size_t WideCount() const { return m_vecWide.size(); }
    // Bytes held by all the arrays (their capacities).
    std::size_t MemoryBytes() const;

private:
    void RecordOctreeOrder(const std::vector<_sTri*>& tris, const CKivOctNode& root);

    // Cell column of x, clamped to the grid; monotone in x, so a box's cell
    // range holds the cell of every point in the box.
    std::size_t CellX(double x) const { return Clamp((x - m_dX0) * m_dInvX, m_nX); }
    std::size_t CellY(double y) const { return Clamp((y - m_dY0) * m_dInvY, m_nY); }
    static std::size_t Clamp(double u, std::size_t n)
    {
        if (!(u > 0.0)) {
            return 0;
        }
        return u >= static_cast<double>(n - 1) ? n - 1 : static_cast<std::size_t>(u);
    }

    double m_dX0 = 0.0, m_dX1 = -1.0, m_dY0 = 0.0, m_dY1 = -1.0;
    double m_dInvX = 0.0, m_dInvY = 0.0;
    std::size_t m_nX = 1, m_nY = 1;
    // The numbers of the gridded triangles that meet each cell: the one in
    // slot m_vecSlot[i] of the mesh's list has its corners at m_vecTriPt[i].
    // A cell keeps up to eight numbers in its own record (half a cache line),
    // so that a query reaches them without first reading where they start;
    // a fuller cell names its run in m_vecSpill.
    static constexpr std::uint32_t kNone = 0xFFFFFFFFu;    // an unused place
    static constexpr std::uint32_t kSpilled = 0xFFFFFFFEu; // e[1], e[2]: start, count in m_vecSpill
    struct alignas(32) SCell {
        std::uint32_t e[8];
    };
    void CellEntries(std::size_t c, const std::uint32_t*& e, std::size_t& n) const
    {
        const SCell& r = m_vecCell[c];
        if (r.e[0] == kSpilled) {
            e = m_vecSpill.data() + r.e[1];
            n = r.e[2];
            return;
        }
        e = r.e;
        n = 0;
        while (n < 8 && r.e[n] != kNone) {
            ++n;
        }
    }
    CKivBigArray<SCell> m_vecCell;
    CKivBigArray<std::uint32_t> m_vecSpill;
    std::size_t m_nEntries = 0;
    CKivBigArray<std::uint32_t> m_vecSlot;
    struct STriPts {
        CKivPoint3d p[3];
    };
    CKivBigArray<STriPts> m_vecTriPt;
    // Reported by every query.
    std::vector<_sTri*> m_vecWide;

    // The octree's nodes that hold triangles in their subtree, in the order
    // its queries walk them, each with its parent's number (-1 at the root);
    // per slot of the mesh's triangle list, the number of the triangle's node
    // and its position in that node's list.
    struct SNode {
        const CKivOctNode* pNode;
        std::int32_t nParent;
        // Depth below the root, and the number of the first node after this
        // node's subtree.
        std::int32_t nDepth;
        std::uint32_t nSkip;
        // Copies of the node's box and subtree hull, for walks that touch
        // this array only.
        CKivOctBox box;
        CKivOctBox boxSub;
    };
    std::vector<SNode> m_vecNode;
    CKivBigArray<std::uint32_t> m_vecTriNode;
    CKivBigArray<std::uint32_t> m_vecTriPos;
    bool m_bOrdered = false;
};

} // namespace TriMesh

#endif
