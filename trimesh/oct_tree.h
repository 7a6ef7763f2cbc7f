// Octree over triangle bounding boxes, owned by CKivMeshData (m_pOctTree).
// Not installed; exported only so that the test suite can drive it directly.
//
// How the friend classes query it (the tree must have been built with
// CKivMeshData::ResetOctTree first):
//   std::vector<const CKivOctNode*> nodes;
//   tree.QueryBox(x0, y0, z0, x1, y1, z1, nodes);   // 3D box
//   tree.QueryBox2D(x0, y0, x1, y1, nodes);         // vertical column
//   for (const CKivOctNode* n : nodes)
//       for (_sTri* t : n->m_vecTri) ...             // filter t yourself
// Both queries replace the content of nodes with the nodes that store
// triangles and whose box meets the query box (inclusive), depth first, each
// node before its eight children. A triangle is stored in exactly one node,
// so one query reports it at most once; the candidates are a superset of the
// triangles whose boxes meet the query box.
//   std::vector<_sTri*> cand;
//   a.QueryPairs(b, cand);
// gives the triangles of a stored in nodes whose box meets the box of any node
// of b that stores triangles (children may reach past their parent's box;
// all nodes count), sorted by pointer value without repeats. It
// does not change either tree (callers may still rebuild afterwards).
//
// Layout: the root box is the given extent enlarged on every side by half of
// ratio times its size. A node's eight children are made together, the first
// time a triangle descends through the node: child i is the octant with the
// high half in x when (i & 1), in y when (i & 2), in z when (i & 4), enlarged
// on every side by half of ratio times the octant's size, so that neighbours
// overlap. A triangle goes into the first child (in child order) whose box
// contains its box, down to the maximum depth (the root is depth 0); when no
// child contains it, or at the maximum depth, it is stored in the node.
// Triangles whose box the root does not contain (including boxes with NaN)
// are not indexed.
#ifndef KIVGEO_TRIMESH_OCT_TREE_H
#define KIVGEO_TRIMESH_OCT_TREE_H

#include <kivgeo/export.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/point3d.h>

#include "trimesh/big_array_alloc.h"

#include <algorithm>
#include <limits>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace TriMesh {

struct _sTri;

// Deepest tree the store can build (it uses 8).
constexpr int kMaxOctDepth = 30;

// Axis-aligned box, minimum then maximum corner.
struct CKivOctBox {
    double dMin[3];
    double dMax[3];

    // Inclusive on all three axes; false when either box holds a NaN.
    bool Contains(const CKivOctBox& b) const
    {
        return b.dMin[0] >= dMin[0] && b.dMax[0] <= dMax[0] && b.dMin[1] >= dMin[1] && b.dMax[1] <= dMax[1] &&
               b.dMin[2] >= dMin[2] && b.dMax[2] <= dMax[2];
    }
    // Inclusive on all three axes.
    bool Overlaps(const CKivOctBox& b) const
    {
        return b.dMin[0] <= dMax[0] && b.dMax[0] >= dMin[0] && b.dMin[1] <= dMax[1] && b.dMax[1] >= dMin[1] &&
               b.dMin[2] <= dMax[2] && b.dMax[2] >= dMin[2];
    }
    // Bounding box of a triangle's three corners.
    static CKivOctBox OfTri(const _sTri& t);
    static CKivOctBox OfPoints(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c);
};

// The spans of a node's children along one axis: low half, high half.
struct CKivOctSpan {
    double dLo[2];
    double dHi[2];
};

// What a descent reads and writes at every level (the box, the children, the
// subtree count) comes first and fills one aligned cache line.
class KIVGEO_API CKivOctNode {
public:
    CKivOctNode() = default;
    // Children belong to the tree's node store, not to their parent.
    ~CKivOctNode() = default;
    CKivOctNode(const CKivOctNode&) = delete;
    CKivOctNode& operator=(const CKivOctNode&) = delete;

    // The node's box.
    alignas(64) CKivOctBox m_box{};
    // The eight children as one array, or null before the first descent.
    CKivOctNode* m_pChild = nullptr;
    // Triangles stored in this node's subtree, itself included (lets the
    // queries skip empty subtrees).
    std::size_t m_nSubTri = 0;
    // Encloses the boxes of the nodes in this subtree (itself included) that
    // ever stored a triangle; never shrunk.
    CKivOctBox m_boxSub{};
    // Triangles stored at this node, in insertion order.
    std::vector<_sTri*> m_vecTri;
    // Running bounding box of the triangles stored here (widened with each
    // stored triangle, never shrunk); inverted while nothing was stored.
    CKivOctBox m_boxTri{};
};

class KIVGEO_API CKivOctTree {
public:
    CKivOctTree() = default;
    ~CKivOctTree() { Destroy(); }
    CKivOctTree(const CKivOctTree&) = delete;
    CKivOctTree& operator=(const CKivOctTree&) = delete;

    // Replaces the tree by an empty one over [ptMin, ptMax] enlarged by the
    // ratio; the depth is clamped to [0, kMaxOctDepth].
    void Create(const CKivPoint3d& ptMin, const CKivPoint3d& ptMax, int nMaxDepth, double dRatio);
    // Frees all nodes; the depth becomes -1.
    void Destroy();

    // Stores t under box b; false when the root does not contain b.
    bool Insert(_sTri* t, const CKivOctBox& b);
    // Stores every triangle of tris (no nulls), in order, under its own box:
    // the same nodes, lists and boxes as calling Insert for each in turn.
    // Fastest on a tree fresh from Create (then it works out every
    // triangle's node first and builds each node once).
    void InsertAll(const std::vector<_sTri*>& tris);
    // InsertAll in steps, for a caller that has the triangles' boxes at hand
    // anyway. On a tree for which CanFillInBulk(n) holds (fresh from Create,
    // at most 9 levels), AddRoute(box of tris[i], i, bulk) for each i in
    // increasing order, then FillInBulk(bulk, tris), stores tris as
    // InsertAll does.
    class CBulk;
    bool CanFillInBulk(std::size_t n) const;
    void AddRoute(const CKivOctBox& b, std::size_t i, CBulk& bulk) const;
    void FillInBulk(CBulk& bulk, const std::vector<_sTri*>& tris);
    // Removes t, found by the same descent with the same box; false when it is
    // not there.
    bool Remove(const _sTri* t, const CKivOctBox& b);

    void QueryBox(double xmin, double ymin, double zmin, double xmax, double ymax, double zmax,
                  std::vector<const CKivOctNode*>& out) const;
    // Column query: the z range is that of the root box.
    void QueryBox2D(double xmin, double ymin, double xmax, double ymax,
                    std::vector<const CKivOctNode*>& out) const;
    void QueryPairs(const CKivOctTree& other, std::vector<_sTri*>& out) const;

    const CKivOctNode* Root() const { return m_pRoot; }
    int MaxDepth() const { return m_nMaxDepth; }
    double Ratio() const { return m_dRatio; }

private:
    void Query(const CKivOctBox& q, std::vector<const CKivOctNode*>& out) const;
    // The descent of Insert, worked out from the boxes alone: the child taken
    // below each level (path[0] below the root) and the depth of the node
    // that stores b; -1 when the root does not contain b.
    int Route(const CKivOctBox& b, unsigned char* path) const;
    // Gives n its eight children (from the node store).
    void MakeChildren(CKivOctNode& n);
    // The node at the end of the route (depth, path), about to store count
    // more triangles: makes the children Insert would make on the way and
    // counts the triangles in; the caller stores them.
    CKivOctNode* StoreNode(int depth, const unsigned char* path, std::size_t count);

    CKivOctNode* m_pRoot = nullptr;
    // Every block of eight children lives in these chunks (freed with the
    // tree): one allocation per many nodes, and blocks made one after the
    // other lie side by side.
    std::vector<std::unique_ptr<CKivOctNode[]>> m_vecChunk;
    std::size_t m_nChunkUsed = 0;
    // The child spans of every node along each axis, for Route (empty for
    // very deep trees); see Create.
    std::vector<CKivOctSpan> m_vecSpan;
    int m_nMaxDepth = 10;
    double m_dRatio = 0.2;
};

// What a bulk fill gathers while the triangles are routed: each one's node
// (as a slot number), and for each node the route, the number of triangles
// and the running box of those triangles (widened in list order, as
// one-by-one insertion widens it). The fill then reads no triangle records
// and sorts nothing but the nodes.
class KIVGEO_API CKivOctTree::CBulk {
public:
    // Room for about n triangles.
    void Reserve(std::size_t n) { m_vecSlot.reserve(n); }

private:
    friend class CKivOctTree;
    static constexpr std::uint32_t kNone = ~std::uint32_t(0);
    // The slot of a route key, made on first sight.
    std::uint32_t Slot(std::uint32_t key);

    // Per triangle in list order: its node's slot, kNone when not indexed.
    CKivBigArray<std::uint32_t> m_vecSlot;
    // Per slot: route key, triangles, box of the triangles.
    std::vector<std::uint32_t> m_vecKey;
    std::vector<std::size_t> m_vecCount;
    std::vector<CKivOctBox> m_vecBox;
    // Open-addressing table of slots (plus one) by route key. Consecutive
    // triangles mostly share a node, so the last one is kept at hand.
    std::vector<std::uint32_t> m_vecTable;
    std::uint32_t m_nLastKey = 0;
    std::uint32_t m_nLastSlot = kNone;
};

inline CKivOctBox CKivOctBox::OfTri(const _sTri& t)
{
    return OfPoints(t.pVt[0]->pt, t.pVt[1]->pt, t.pVt[2]->pt);
}

inline CKivOctBox CKivOctBox::OfPoints(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
{
    // std::min / std::max keep a NaN of the first argument only; any NaN
    // corner must make the box fail every containment test, so propagate it.
    CKivOctBox r;
    const double xs[3][3] = {{a.x, b.x, c.x}, {a.y, b.y, c.y}, {a.z, b.z, c.z}};
    for (int k = 0; k < 3; ++k) {
        const double* v = xs[k];
        if (v[0] != v[0] || v[1] != v[1] || v[2] != v[2]) {
            r.dMin[k] = r.dMax[k] = std::numeric_limits<double>::quiet_NaN();
            continue;
        }
        r.dMin[k] = std::min(v[0], std::min(v[1], v[2]));
        r.dMax[k] = std::max(v[0], std::max(v[1], v[2]));
    }
    return r;
}

} // namespace TriMesh

#endif
