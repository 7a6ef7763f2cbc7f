#include "trimesh/oct_tree.h"

#include <kivgeo/mesh_data.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace TriMesh {

namespace {

// Encloses the box [lo, hi] enlarged on every side by half of ratio times its
// size along that axis.
CKivOctBox EnlargedBox(const double lo[3], const double hi[3], double ratio)
{
    CKivOctBox b;
    for (int k = 0; k < 3; ++k) {
        const double grow = 0.5 * ratio * (hi[k] - lo[k]);
        b.dMin[k] = lo[k] - grow;
        b.dMax[k] = hi[k] + grow;
    }
    return b;
}

CKivOctBox EmptyBox()
{
    const double big = std::numeric_limits<double>::max();
    return CKivOctBox{{big, big, big}, {-big, -big, -big}};
}

void Widen(CKivOctBox& acc, const CKivOctBox& b)
{
    for (int k = 0; k < 3; ++k) {
        acc.dMin[k] = std::min(acc.dMin[k], b.dMin[k]);
        acc.dMax[k] = std::max(acc.dMax[k], b.dMax[k]);
    }
}

// The child boxes along axis k of a node's box: the low half is
// [lo[0], hi[0]], the high half [lo[1], hi[1]], each enlarged as EnlargedBox
// does (the same operations, so the same doubles).
void ChildSpans(const CKivOctBox& box, int k, double ratio, double lo[2], double hi[2])
{
    const double mid = 0.5 * (box.dMin[k] + box.dMax[k]);
    const double growLo = 0.5 * ratio * (mid - box.dMin[k]);
    const double growHi = 0.5 * ratio * (box.dMax[k] - mid);
    lo[0] = box.dMin[k] - growLo;
    hi[0] = mid + growLo;
    lo[1] = mid - growHi;
    hi[1] = box.dMax[k] + growHi;
}

void MakeChildren(CKivOctNode& n, double ratio)
{
    n.m_pChild = new CKivOctNode[8];
    double lo[3][2], hi[3][2];
    for (int k = 0; k < 3; ++k) {
        ChildSpans(n.m_box, k, ratio, lo[k], hi[k]);
    }
    for (int i = 0; i < 8; ++i) {
        CKivOctBox& b = n.m_pChild[i].m_box;
        for (int k = 0; k < 3; ++k) {
            const int side = (i >> k) & 1;
            b.dMin[k] = lo[k][side];
            b.dMax[k] = hi[k][side];
        }
        n.m_pChild[i].m_boxTri = EmptyBox();
        n.m_pChild[i].m_boxSub = EmptyBox();
    }
}

// First child, in child order, whose box contains b; null when none. Worked
// out from the node's own box, which gives the children's boxes exactly,
// so that the descent reads one node per level instead of eight.
CKivOctNode* ContainingChild(const CKivOctNode& n, const CKivOctBox& b, double ratio)
{
    bool fits[3][2];
    for (int k = 0; k < 3; ++k) {
        double lo[2], hi[2];
        ChildSpans(n.m_box, k, ratio, lo, hi);
        // Written as Contains is, so that a NaN fits nowhere.
        fits[k][0] = b.dMin[k] >= lo[0] && b.dMax[k] <= hi[0];
        fits[k][1] = b.dMin[k] >= lo[1] && b.dMax[k] <= hi[1];
    }
    for (int i = 0; i < 8; ++i) {
        if (fits[0][i & 1] && fits[1][(i >> 1) & 1] && fits[2][(i >> 2) & 1]) {
            return &n.m_pChild[i];
        }
    }
    return nullptr;
}

void CollectNodes(const CKivOctNode& n, const CKivOctBox& q, std::vector<const CKivOctNode*>& out)
{
    if (n.m_nSubTri == 0 || !n.m_box.Overlaps(q)) {
        return;
    }
    if (!n.m_vecTri.empty()) {
        out.push_back(&n);
    }
    if (n.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            CollectNodes(n.m_pChild[i], q, out);
        }
    }
}

// Whether a node of the subtree at n that stores triangles meets q; the
// subtree hulls prune the search (a child's box may reach past its parent's).
bool AnyStoringNodeMeets(const CKivOctNode& n, const CKivOctBox& q)
{
    if (n.m_nSubTri == 0 || !n.m_boxSub.Overlaps(q)) {
        return false;
    }
    if (!n.m_vecTri.empty() && n.m_box.Overlaps(q)) {
        return true;
    }
    if (n.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            if (AnyStoringNodeMeets(n.m_pChild[i], q)) {
                return true;
            }
        }
    }
    return false;
}

void CollectPairs(const CKivOctNode& n, const CKivOctNode& otherRoot, std::vector<_sTri*>& out)
{
    if (n.m_nSubTri == 0) {
        return;
    }
    if (!n.m_vecTri.empty() && AnyStoringNodeMeets(otherRoot, n.m_box)) {
        out.insert(out.end(), n.m_vecTri.begin(), n.m_vecTri.end());
    }
    if (n.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            CollectPairs(n.m_pChild[i], otherRoot, out);
        }
    }
}

} // namespace

CKivOctNode::~CKivOctNode()
{
    delete[] m_pChild;
}

void CKivOctTree::Create(const CKivPoint3d& ptMin, const CKivPoint3d& ptMax, int nMaxDepth, double dRatio)
{
    Destroy();
    m_nMaxDepth = std::max(0, std::min(nMaxDepth, kMaxOctDepth));
    m_dRatio = dRatio;
    const double lo[3] = {ptMin.x, ptMin.y, ptMin.z};
    const double hi[3] = {ptMax.x, ptMax.y, ptMax.z};
    m_pRoot = new CKivOctNode;
    m_pRoot->m_box = EnlargedBox(lo, hi, dRatio);
    m_pRoot->m_boxTri = EmptyBox();
    m_pRoot->m_boxSub = EmptyBox();
}

void CKivOctTree::Destroy()
{
    delete m_pRoot;
    m_pRoot = nullptr;
    m_nMaxDepth = -1;
}

bool CKivOctTree::Insert(_sTri* t, const CKivOctBox& b)
{
    if (!m_pRoot || !m_pRoot->m_box.Contains(b)) {
        return false;
    }
    CKivOctNode* path[kMaxOctDepth + 1];
    int len = 0;
    CKivOctNode* n = m_pRoot;
    path[len++] = n;
    for (int depth = 0; depth < m_nMaxDepth; ++depth) {
        if (!n->m_pChild) {
            MakeChildren(*n, m_dRatio);
        }
        CKivOctNode* c = ContainingChild(*n, b, m_dRatio);
        if (!c) {
            break;
        }
        n = c;
        path[len++] = n;
    }
    n->m_vecTri.push_back(t);
    Widen(n->m_boxTri, b);
    for (int i = 0; i < len; ++i) {
        ++path[i]->m_nSubTri;
        Widen(path[i]->m_boxSub, n->m_box);
    }
    return true;
}

bool CKivOctTree::Remove(const _sTri* t, const CKivOctBox& b)
{
    if (!m_pRoot || !m_pRoot->m_box.Contains(b)) {
        return false;
    }
    CKivOctNode* n = m_pRoot;
    while (n->m_pChild) {
        CKivOctNode* c = ContainingChild(*n, b, m_dRatio);
        if (!c) {
            break;
        }
        n = c;
    }
    std::vector<_sTri*>& v = n->m_vecTri;
    const auto it = std::find(v.begin(), v.end(), t);
    if (it == v.end()) {
        return false;
    }
    v.erase(it);
    // The same descent again, to drop the triangle from the subtree counts.
    for (CKivOctNode* p = m_pRoot;; p = ContainingChild(*p, b, m_dRatio)) {
        --p->m_nSubTri;
        if (p == n) {
            break;
        }
    }
    return true;
}

void CKivOctTree::Query(const CKivOctBox& q, std::vector<const CKivOctNode*>& out) const
{
    out.clear();
    if (m_pRoot) {
        CollectNodes(*m_pRoot, q, out);
    }
}

void CKivOctTree::QueryBox(double xmin, double ymin, double zmin, double xmax, double ymax, double zmax,
                           std::vector<const CKivOctNode*>& out) const
{
    Query(CKivOctBox{{xmin, ymin, zmin}, {xmax, ymax, zmax}}, out);
}

void CKivOctTree::QueryBox2D(double xmin, double ymin, double xmax, double ymax,
                             std::vector<const CKivOctNode*>& out) const
{
    if (!m_pRoot) {
        out.clear();
        return;
    }
    Query(CKivOctBox{{xmin, ymin, m_pRoot->m_box.dMin[2]}, {xmax, ymax, m_pRoot->m_box.dMax[2]}}, out);
}

void CKivOctTree::QueryPairs(const CKivOctTree& other, std::vector<_sTri*>& out) const
{
    out.clear();
    if (!m_pRoot || !other.m_pRoot) {
        return;
    }
    CollectPairs(*m_pRoot, *other.m_pRoot, out);
    std::sort(out.begin(), out.end(), std::less<_sTri*>());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}

} // namespace TriMesh
