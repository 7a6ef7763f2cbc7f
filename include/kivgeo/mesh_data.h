// Triangle-mesh store: vertex and triangle records, the vertex-to-triangle
// topology, the extent of the vertices and an octree over the triangles.
//
// Topology is kept only through each vertex's list of incident triangles;
// triangles hold no neighbour pointers (FindTriCoEdge finds the neighbour
// across an edge). Records are separate heap objects referenced by pointer,
// so pointers stay valid while the lists grow and shrink. Searches in the
// lists run from the back: among several matches the one added last wins.
//
// Contract for the friend classes (triangulator, query, editing, Booleans):
//
//  * Reading. m_vecVertex, m_vecTri and every vertex's vecTri may be read
//    directly, by index and by size.
//
//  * Adding a vertex. Use NewVertex(p) and nothing else: it creates the
//    record, sets nIndex to the current vertex count and appends it to
//    m_vecVertex. It does not touch the extent; call UpdateExtent(*v) when
//    the vertex should count (the triangulator does, the editor does not).
//    The vertex lookup index picks new vertices up on its own.
//
//  * Moving vertices. After changing the pt of any vertex already in the
//    mesh (the triangulator's shift to a local origin and back, the fault
//    displacement), call InvalidateVertexIndex() before the next
//    GetVertexIndex / GetVertexIndex2D or mesh query; the lookup index and
//    the queries' plan grid are rebuilt on first use.
//
//  * Adding and removing triangles. Only through AddTri and DelTri (the new
//    triangle of AddTri is m_vecTri.back()). DelTri frees the triangle at
//    once and takes it out of its corners' vecTri lists and the octree, but
//    leaves a null slot in m_vecTri so that a long run of deletions costs no
//    list scans: between a DelTri and the next CompactTris() every surviving
//    triangle keeps its index and deleted ones read as nullptr. Call
//    CompactTris() when a run of deletions is done, and always before reading
//    m_vecTri by index or size for anything but that run (walking the list
//    while deleting is fine if null slots are skipped). Every friend
//    operation that deletes triangles must call CompactTris() before it
//    returns. CompactTris() leaves the survivors in their old relative order,
//    later ones moved down, exactly as if each deletion had erased its slot.
//
//  * Removing vertices. Only through DelVoidVet / ClearVoidVet /
//    ClearAllData.
//
// The nPos member of _sTri belongs to the store's bookkeeping: friends must
// not write it. The two 32-bit members of _sVertex after nIndex are unused.
#ifndef KIVGEO_MESH_DATA_H
#define KIVGEO_MESH_DATA_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/tri3d.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace TriMesh {

struct _sTri;
class CKivOctTree;
class CKivVertexIndex;
class CKivPlanIndex;
class CKivTriPool;
class CKivVertexPool;

class CKivDelaunay;
class CKivMeshQuery;
class CKivMeshTrans;
class CKivMeshBoolean;
class CKivSolidBoolean;

// A mesh vertex: position, creation index and the triangles that use it.
struct _sVertex {
    _sVertex() : pt(), nIndex(-1), nReserved1(0), nReserved2(0), vecTri() {}

    CKivPoint3d pt;
    // Position in the mesh's vertex list when the vertex was created.
    int nIndex;
    // Zero; nothing in the library reads or writes them.
    std::int32_t nReserved1;
    std::int32_t nReserved2;
    // Incident triangles in the order they were attached; not owning.
    std::vector<_sTri*> vecTri;
};

// A mesh triangle: three corners in orientation order and a one-byte mark.
struct _sTri {
    _sTri() : pVt{nullptr, nullptr, nullptr}, bFlag(false), nPos(-1) {}

    // Reverses the orientation by swapping corners 0 and 1.
    void Invert()
    {
        _sVertex* const v = pVt[0];
        pVt[0] = pVt[1];
        pVt[1] = v;
    }

    _sVertex* pVt[3];
    // Treated-mark of mesh simplification; the store only clears it.
    bool bFlag;
    // Store bookkeeping: the triangle's slot in m_vecTri (fills the padding
    // after bFlag).
    std::int32_t nPos;
};

// An edge given by its two end vertices.
struct _sSeg {
    _sSeg() : pVt{nullptr, nullptr} {}

    _sVertex* pVt[2];
};

class KIVGEO_API CKivMeshData {
public:
    CKivMeshData();
    virtual ~CKivMeshData();
    CKivMeshData(const CKivMeshData&) = delete;
    CKivMeshData& operator=(const CKivMeshData&) = delete;

    CKivPoint3d GetMinLimit() const { return m_ptMin; }
    CKivPoint3d GetMaxLimit() const { return m_ptMax; }

    unsigned int TriNum() const;
    // Corner positions of triangle i in corner order; false when i >= TriNum().
    bool GetTriPts(unsigned int i, CKivPoint3d& a, CKivPoint3d& b, CKivPoint3d& c) const;

    // Index of the last-added vertex equal to p (point equality, 1e-6 per
    // coordinate through CompDouble), or -1.
    int GetVertexIndex(const CKivPoint3d& p) const;
    // Index of the last-added vertex with |x - p.x| <= 0.01 and
    // |y - p.y| <= 0.01 (z ignored), or -1.
    int GetVertexIndex2D(const CKivPoint3d& p) const;

    // Frees every vertex and triangle, drops the octree, resets the extent.
    void ClearAllData();
    // Removes every vertex that no triangle uses.
    void ClearVoidVet();

    // Builds the mesh from a triangle soup, merging corners equal under point
    // equality (with existing vertices too when bClear is false), then
    // rebuilds the octree. Degenerate triangles are kept as they are.
    void InputData(const std::vector<CKivTri3d>& tris, bool bClear);
    void InputData(CKivTri3d* tris, int n, bool bClear);
    // One triangle per mesh triangle, in list order, corners in corner order.
    void OutputData(std::vector<CKivTri3d>& out) const;
    // Vertex positions in list order.
    void OutputPoints(std::vector<CKivPoint3d>& out) const;
    // Rebuilds dst from this mesh's triangles; false (dst untouched) when this
    // mesh is empty.
    bool Clone(CKivMeshData& dst) const;

    void Simplify(const std::vector<CKivSeg3d>& segments, double tolerance);

private:
    friend class CKivDelaunay;
    friend class CKivMeshQuery;
    friend class CKivMeshTrans;
    friend class CKivMeshBoolean;
    friend class CKivSolidBoolean;
    // The test suite's window onto the private members; defined only there.
    friend class CKivMeshDataInspector;

    // Widens the extent to include v (NaN coordinates leave it as it is).
    void UpdateExtent(const _sVertex& v);
    // Slot (0..2) of the first corner of t that is neither a nor b; -2 when t
    // is null, -3 when a or b is null, -1 when every corner is a or b.
    int IndexDefaultPt(_sTri*& t, _sVertex*& a, _sVertex*& b) const;
    // A triangle other than exclude using both a and b, or null; searches
    // both vertices' lists from the back.
    _sTri* FindTriCoEdge(const _sVertex* a, const _sVertex* b, const _sTri* exclude) const;
    // Rebuilds the octree over the current extent (depth 8, ratio 0.2); no
    // octree when there are no triangles.
    void ResetOctTree();
    // Appends the triangle (a, b, c) to m_vecTri and to a's, b's and c's
    // vecTri, and inserts it into the octree when there is one.
    void AddTri(_sVertex* a, _sVertex* b, _sVertex* c);
    // Removes t from the octree and its corners' lists and frees it; see the
    // contract above for its slot in m_vecTri. Null is ignored.
    void DelTri(_sTri* t);
    // Erases the first occurrence of t in v, scanning from the front.
    void DelTriFromVec(std::vector<_sTri*>& v, const _sTri* t);
    // Removes v from m_vecVertex and frees it, whether or not triangles use it.
    void DelVoidVet(const _sVertex* v);
    // Removes and frees every vertex whose vecTri is empty.
    void DelVoidVet();
    // Frees all triangles and the octree; vertices and their lists stay (their
    // lists then name freed triangles until rebuilt).
    void ClearTriData();

    // Private steps of Simplify; their bodies come with the simplification.
    void ReplaceVet(_sVertex* from, _sVertex* to);
    bool SimplifyTri(_sTri* t, double tolerance);
    bool IsCanSimplify(const _sVertex* v, double tolerance) const;
    int GetSimplifyType(const _sVertex* v) const;
    void GetAllSimplifyTri(const _sVertex* v, std::vector<_sTri*>& tris) const;

    // The one way to add a vertex record (see the contract above).
    _sVertex* NewVertex(const CKivPoint3d& p);
    // Tells the store that vertex positions changed.
    void InvalidateVertexIndex();
    // The same, and frees the lookup index's memory until the next lookup:
    // for bulk work that moves vertices and makes no lookups meanwhile.
    void ReleaseVertexIndex();
    // Closes the null slots DelTri leaves in m_vecTri.
    void CompactTris();
    // The two ways InputData loads the soup (the mesh already cleared or
    // compacted). Hashed: one index lookup per corner, for any mesh; the
    // octree is left to the caller. Sorted: the same mesh and octree on an
    // empty mesh, by sorting the corners; false, changing nothing, when the
    // mesh is not empty, the soup is, or the soup does not suit it and
    // bForce is not set.
    void InputHashed(const std::vector<CKivTri3d>& tris);
    bool InputSorted(const std::vector<CKivTri3d>& tris, bool bForce);

    std::vector<_sVertex*> m_vecVertex;
    std::vector<_sTri*> m_vecTri;
    CKivOctTree* m_pOctTree;
    CKivPoint3d m_ptMax;
    CKivPoint3d m_ptMin;

    // Bookkeeping: the vertex lookup index, and the null slots of m_vecTri
    // (their number, and the lowest one).
    std::unique_ptr<CKivVertexIndex> m_pVertexIndex;
    std::size_t m_nDeadTri;
    std::size_t m_nFirstDeadTri;

    // Bookkeeping of the queries: search aids (a plan grid over the
    // triangles, a compact copy of the octree) that CKivMeshQuery builds
    // once its octree searches have cost a share of the triangle count
    // (m_nPlanWork counts their candidates). Dropped, and the count reset,
    // by every change of the triangles, the vertex positions or the octree.
    // Atomic because const queries may run on several threads.
    mutable std::atomic<CKivPlanIndex*> m_pPlanIndex;
    mutable std::atomic<std::size_t> m_nPlanWork;
    void DropPlanIndex();
    // Where the triangle records live (AddTri, InputData, DelTri).
    std::unique_ptr<CKivTriPool> m_pTriPool;
    // Where the vertex records made by NewVertex live; FreeVertex gives any
    // record back (to the pool, or with delete when a friend made it).
    std::unique_ptr<CKivVertexPool> m_pVertexPool;
    void FreeVertex(_sVertex* v);
};

} // namespace TriMesh

#endif
