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

void MakeChildren(CKivOctNode& n, double ratio)
{
    n.m_pChild = new CKivOctNode[8];
    double mid[3];
    for (int k = 0; k < 3; ++k) {
        mid[k] = 0.5 * (n.m_box.dMin[k] + n.m_box.dMax[k]);
    }
    for (int i = 0; i < 8; ++i) {
        double lo[3], hi[3];
        for (int k = 0; k < 3; ++k) {
            const bool high = (i >> k) & 1;
            lo[k] = high ? mid[k] : n.m_box.dMin[k];
            hi[k] = high ? n.m_box.dMax[k] : mid[k];
        }
        n.m_pChild[i].m_box = EnlargedBox(lo, hi, ratio);
        n.m_pChild[i].m_boxTri = EmptyBox();
        n.m_pChild[i].m_boxSub = EmptyBox();
    }
}

// First child, in child order, whose box contains b; null when none.
CKivOctNode* ContainingChild(const CKivOctNode& n, const CKivOctBox& b)
{
    for (int i = 0; i < 8; ++i) {
        if (n.m_pChild[i].m_box.Contains(b)) {
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
        CKivOctNode* c = ContainingChild(*n, b);
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
        CKivOctNode* c = ContainingChild(*n, b);
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
    for (CKivOctNode* p = m_pRoot;; p = ContainingChild(*p, b)) {
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
