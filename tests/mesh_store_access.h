// The test suite's window onto the mesh store's private members: for meshes
// the public interface cannot make (distinct coincident vertices, no octree,
// triangles added or removed one by one) and for checking the bookkeeping.
// The store names this class its friend; only the tests define it.
#ifndef KIVGEO_TESTS_MESH_INSPECTOR_H
#define KIVGEO_TESTS_MESH_INSPECTOR_H

#include <kivgeo/mesh_data.h>

#include "trimesh/oct_tree.h"
#include "trimesh/plan_index.h"

#include <vector>

namespace TriMesh {

class CKivMeshDataInspector {
public:
    explicit CKivMeshDataInspector(CKivMeshData& m) : m_m(m) {}
    std::vector<_sVertex*>& Verts() { return m_m.m_vecVertex; }
    std::vector<_sTri*>& Tris() { return m_m.m_vecTri; }
    CKivOctTree* Tree() { return m_m.m_pOctTree; }
    // The bare record, as the store's friends make it (the extent unchanged).
    _sVertex* NewVertex(const CKivPoint3d& p) { return m_m.NewVertex(p); }
    // A record that counts in the extent, as the triangulator makes it.
    _sVertex* NewCountedVertex(const CKivPoint3d& p)
    {
        _sVertex* v = m_m.NewVertex(p);
        m_m.UpdateExtent(*v);
        return v;
    }
    void UpdateExtent(const _sVertex& v) { m_m.UpdateExtent(v); }
    void AddTri(_sVertex* a, _sVertex* b, _sVertex* c) { m_m.AddTri(a, b, c); }
    void DelTri(_sTri* t) { m_m.DelTri(t); }
    void DelVoidVet(const _sVertex* v) { m_m.DelVoidVet(v); }
    void DelTriFromVec(std::vector<_sTri*>& v, const _sTri* t) { m_m.DelTriFromVec(v, t); }
    void CompactTris() { m_m.CompactTris(); }
    void ClearTriData() { m_m.ClearTriData(); }
    void ResetOctTree() { m_m.ResetOctTree(); }
    void InvalidateVertexIndex() { m_m.InvalidateVertexIndex(); }
    // InputData through one way of merging, whatever the soup's size (the
    // sorted one on an empty mesh, forced or judging the soup as InputData
    // does; false, the mesh only cleared or compacted, when it declined).
    void InputHashed(const std::vector<CKivTri3d>& tris, bool bClear)
    {
        Prepare(bClear);
        if (!tris.empty()) {
            m_m.InputHashed(tris);
        }
        m_m.ResetOctTree();
    }
    bool InputSorted(const std::vector<CKivTri3d>& tris, bool bClear, bool bForce)
    {
        Prepare(bClear);
        if (m_m.InputSorted(tris, bForce)) {
            return true;
        }
        m_m.ResetOctTree();
        return tris.empty();
    }
    _sTri* FindTriCoEdge(const _sVertex* a, const _sVertex* b, const _sTri* ex)
    {
        return m_m.FindTriCoEdge(a, b, ex);
    }
    int IndexDefaultPt(_sTri* t, _sVertex* a, _sVertex* b) { return m_m.IndexDefaultPt(t, a, b); }
    const CKivPlanIndex* PlanIndex() { return m_m.m_pPlanIndex.load(); }
    // Builds the plan grid now, as the elevation query would after enough
    // octree searches.
    void BuildPlanIndex()
    {
        m_m.DropPlanIndex();
        if (m_m.m_pOctTree) {
            m_m.m_pPlanIndex.store(new CKivPlanIndex(m_m.m_vecTri, *m_m.m_pOctTree));
        }
    }
    void DropPlanIndex() { m_m.DropPlanIndex(); }
    // Queries go through a fresh plan grid (true) or the octree alone.
    void UsePlanIndex(bool grid) { grid ? BuildPlanIndex() : DropPlanIndex(); }

private:
    void Prepare(bool bClear) { bClear ? m_m.ClearAllData() : m_m.CompactTris(); }

    CKivMeshData& m_m;
};

} // namespace TriMesh

#endif
