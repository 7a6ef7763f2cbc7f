// Uniform plan grid over the triangles of a mesh, for the elevation query.
// Not installed; exported only so that the test suite can build one.
//
// Why: the octree covers the mesh extent, and right after a triangulation the
// extent still holds the far-away corners of the bounding triangle, so the
// deepest octree columns can hold thousands of triangles each. The grid is
// laid over the triangles themselves, about one cell per triangle, and a cell lists only the
// triangles whose footprint (grown by the margin below) meets it.
//
// What it answers: every triangle that the octree has indexed and whose
// plan box, widened by a margin, holds (x, y). The margin covers the
// tolerance with which the line-triangle test accepts a hit just outside a
// triangle (barycentric slack of 1e-6, so at most a few millionths of the
// triangle's size) with a factor of ten to spare, so every triangle that can
// give a proper vertical hit at (x, y) is reported. Triangles the octree
// does not hold are left out, as the octree query leaves them out; triangles
// with non-finite boxes, or boxes over very many cells, sit in a short list
// that every query reports.
//
// The mesh owns the grid (CKivMeshData::m_pPlanIndex) and drops it on every
// change of its triangles, its vertex positions or its octree.
#ifndef KIVGEO_TRIMESH_PLAN_INDEX_H
#define KIVGEO_TRIMESH_PLAN_INDEX_H

#include <kivgeo/export.h>
#include <kivgeo/mesh_data.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TriMesh {

class CKivOctTree;
class CKivOctNode;
struct CKivOctBox;

class KIVGEO_API CKivPlanIndex {
public:
    // Indexes the non-null triangles of tris that tree holds (the root box
    // contains their box, as at insertion).
    CKivPlanIndex(const std::vector<_sTri*>& tris, const CKivOctTree& tree);

    // Calls f(_sTri*) for every candidate at (x, y); nothing for NaN.
    template <class F> void ForEachAt(double x, double y, F&& f) const
    {
        for (_sTri* t : m_vecWide) {
            f(t);
        }
        if (!(x >= m_dX0 && x <= m_dX1 && y >= m_dY0 && y <= m_dY1)) {
            return;
        }
        const std::size_t c = CellX(x) + CellY(y) * m_nX;
        for (std::uint32_t k = m_vecStart[c], e = m_vecStart[c + 1]; k < e; ++k) {
            f(m_vecEntry[k]);
        }
    }

    // Every triangle whose widened plan box meets the box [x0, x1] x [y0, y1]
    // (and some more), each once, in address order.
    void CandidatesInBox(double x0, double y0, double x1, double y1, std::vector<_sTri*>& out) const;

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

    std::size_t CellCount() const { return m_nX * m_nY; }
    std::size_t EntryCount() const { return m_vecEntry.size(); }
    std::size_t WideCount() const { return m_vecWide.size(); }

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
    // Cell c holds m_vecEntry[m_vecStart[c] .. m_vecStart[c + 1]).
    std::vector<std::uint32_t> m_vecStart;
    std::vector<_sTri*> m_vecEntry;
    // Reported by every query.
    std::vector<_sTri*> m_vecWide;

    // The octree's nodes that hold triangles in their subtree, in the order
    // its queries walk them, each with its parent's number (-1 at the root);
    // per slot of the mesh's triangle list, the number of the triangle's node
    // and its position in that node's list.
    struct SNode {
        const CKivOctNode* pNode;
        std::int32_t nParent;
    };
    std::vector<SNode> m_vecNode;
    std::vector<std::uint32_t> m_vecTriNode;
    std::vector<std::uint32_t> m_vecTriPos;
    bool m_bOrdered = false;
};

} // namespace TriMesh

#endif
