// Uniform plan grid over the triangles of a mesh, for the elevation query.
// Not installed; exported only so that the test suite can build one.
//
// Why: the octree covers the mesh extent, and right after a triangulation the
// extent still holds the far-away corners of the bounding triangle, so the
// deepest octree columns can hold thousands of triangles each. The grid is
// laid over the triangles themselves, one cell per two triangles or so.
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

    std::size_t CellCount() const { return m_nX * m_nY; }
    std::size_t EntryCount() const { return m_vecEntry.size(); }
    std::size_t WideCount() const { return m_vecWide.size(); }

private:
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
};

} // namespace TriMesh

#endif
