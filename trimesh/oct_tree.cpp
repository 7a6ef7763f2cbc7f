#include "trimesh/oct_tree.h"

#include "trimesh/prefetch.h"
#include "trimesh/radix_sort.h"

#include <kivgeo/mesh_data.h>

#include <algorithm>
#include <cmath>
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

// The child spans along one axis of a node spanning [dMin, dMax] there: the
// low half is [lo[0], hi[0]], the high half [lo[1], hi[1]], each enlarged as
// EnlargedBox does (the same operations, so the same doubles).
void ChildSpans(double dMin, double dMax, double ratio, double lo[2], double hi[2])
{
    const double mid = 0.5 * (dMin + dMax);
    const double growLo = 0.5 * ratio * (mid - dMin);
    const double growHi = 0.5 * ratio * (dMax - mid);
    lo[0] = dMin - growLo;
    hi[0] = mid + growLo;
    lo[1] = mid - growHi;
    hi[1] = dMax + growHi;
}

// Widens a subtree hull. Unlike Widen it settles ties of -0.0 and +0.0 the
// same way whatever the order of the boxes (-0.0 below, +0.0 above), so that
// building a tree in bulk gives the very bits that one-by-one insertion does.
void WidenHull(CKivOctBox& acc, const CKivOctBox& b)
{
    for (int k = 0; k < 3; ++k) {
        if (b.dMin[k] < acc.dMin[k] || (b.dMin[k] == acc.dMin[k] && std::signbit(b.dMin[k]))) {
            acc.dMin[k] = b.dMin[k];
        }
        if (b.dMax[k] > acc.dMax[k] || (b.dMax[k] == acc.dMax[k] && !std::signbit(b.dMax[k]))) {
            acc.dMax[k] = b.dMax[k];
        }
    }
}

// Nodes a chunk of the node store holds, in blocks of eight.
constexpr std::size_t kChunkNodes = 8 * 256;

// Bulk builds keep a triangle's route in 32 bits: 3 bits a level, 4 for
// the depth. Deeper trees are filled one triangle at a time.
constexpr int kBulkMaxDepth = 9;
// Trees up to this deep route through span tables (3 * 2^depth entries).
constexpr int kSpanMaxDepth = 9;
constexpr int kDepthBits = 4;

} // namespace

// The first child of n, in child order, whose box contains b: child i takes
// the high half along axis k when bit k of i is set, so the first one picks
// the low half along every axis where that fits and the high half elsewhere.
int CKivOctTree::Route(const CKivOctBox& b, unsigned char* path) const
{
    if (!m_pRoot || !m_pRoot->m_box.Contains(b)) {
        return -1;
    }
    if (!m_vecSpan.empty()) {
        // Along each axis a node's span depends only on the sides taken
        // along that axis above it: follow the three axes through the span
        // tables, without branches on the sides (they are anyone's guess).
        const std::size_t nTable = m_vecSpan.size() / 3;
        std::size_t at[3] = {1, 1, 1};
        int depth = 0;
        for (; depth < m_nMaxDepth; ++depth) {
            unsigned child = 0;
            bool fits = true;
            for (int k = 0; k < 3; ++k) {
                const CKivOctSpan& s = m_vecSpan[static_cast<std::size_t>(k) * nTable + at[k]];
                // Written as Contains is, so that a NaN fits nowhere.
                const bool low = (b.dMin[k] >= s.dLo[0]) & (b.dMax[k] <= s.dHi[0]);
                const bool high = (b.dMin[k] >= s.dLo[1]) & (b.dMax[k] <= s.dHi[1]);
                fits &= low | high;
                const unsigned side = low ? 0u : 1u;
                child |= side << k;
                at[k] = 2 * at[k] + side;
            }
            if (!fits) {
                break;
            }
            path[depth] = static_cast<unsigned char>(child);
        }
        return depth;
    }
    // The child boxes come from the parent box by the same operations as in
    // MakeChildren, so the walk sees the very boxes the nodes hold.
    CKivOctBox cur = m_pRoot->m_box;
    int depth = 0;
    for (; depth < m_nMaxDepth; ++depth) {
        int child = 0;
        double nextLo[3], nextHi[3];
        bool fits = true;
        for (int k = 0; k < 3 && fits; ++k) {
            double lo[2], hi[2];
            ChildSpans(cur.dMin[k], cur.dMax[k], m_dRatio, lo, hi);
            // Written as Contains is, so that a NaN fits nowhere.
            int side = -1;
            if (b.dMin[k] >= lo[0] && b.dMax[k] <= hi[0]) {
                side = 0;
            } else if (b.dMin[k] >= lo[1] && b.dMax[k] <= hi[1]) {
                side = 1;
            }
            fits = side >= 0;
            if (fits) {
                child |= side << k;
                nextLo[k] = lo[side];
                nextHi[k] = hi[side];
            }
        }
        if (!fits) {
            break;
        }
        path[depth] = static_cast<unsigned char>(child);
        for (int k = 0; k < 3; ++k) {
            cur.dMin[k] = nextLo[k];
            cur.dMax[k] = nextHi[k];
        }
    }
    return depth;
}

void CKivOctTree::MakeChildren(CKivOctNode& n)
{
    if (m_vecChunk.empty() || m_nChunkUsed == kChunkNodes) {
        m_vecChunk.emplace_back(new CKivOctNode[kChunkNodes]);
        m_nChunkUsed = 0;
    }
    n.m_pChild = &m_vecChunk.back()[m_nChunkUsed];
    m_nChunkUsed += 8;
    double lo[3][2], hi[3][2];
    for (int k = 0; k < 3; ++k) {
        ChildSpans(n.m_box.dMin[k], n.m_box.dMax[k], m_dRatio, lo[k], hi[k]);
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

namespace {

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
    if (m_nMaxDepth > kSpanMaxDepth) {
        return;
    }
    // The span tables: node 1 is the root, the children of node j are 2j
    // (low half) and 2j + 1 (high half), and entry j holds node j's child
    // spans, made from node j's span as MakeChildren makes them.
    const std::size_t nTable = std::size_t(1) << m_nMaxDepth;
    m_vecSpan.resize(3 * nTable);
    std::vector<double> span(std::max<std::size_t>(4, 2 * nTable));
    for (int k = 0; k < 3; ++k) {
        CKivOctSpan* table = &m_vecSpan[static_cast<std::size_t>(k) * nTable];
        span[2] = m_pRoot->m_box.dMin[k];
        span[3] = m_pRoot->m_box.dMax[k];
        for (std::size_t j = 1; j < nTable; ++j) {
            ChildSpans(span[2 * j], span[2 * j + 1], m_dRatio, table[j].dLo, table[j].dHi);
            if (2 * j + 1 < nTable) {
                for (std::size_t side = 0; side < 2; ++side) {
                    span[2 * (2 * j + side)] = table[j].dLo[side];
                    span[2 * (2 * j + side) + 1] = table[j].dHi[side];
                }
            }
        }
    }
}

void CKivOctTree::Destroy()
{
    delete m_pRoot;
    m_pRoot = nullptr;
    m_vecSpan.clear();
    m_vecChunk.clear();
    m_nChunkUsed = 0;
    m_nMaxDepth = -1;
}

bool CKivOctTree::Insert(_sTri* t, const CKivOctBox& b)
{
    unsigned char path[kMaxOctDepth];
    const int depth = Route(b, path);
    if (depth < 0) {
        return false;
    }
    CKivOctNode* n = m_pRoot;
    for (int level = 0;; ++level) {
        // Every node the triangle passes through, the storing one included
        // when it is above the deepest level, gets its children.
        if (level < m_nMaxDepth && !n->m_pChild) {
            MakeChildren(*n);
        }
        if (level == depth) {
            break;
        }
        n = &n->m_pChild[path[level]];
    }
    n->m_vecTri.push_back(t);
    Widen(n->m_boxTri, b);
    const CKivOctBox box = n->m_box;
    CKivOctNode* p = m_pRoot;
    for (int level = 0;; ++level) {
        ++p->m_nSubTri;
        WidenHull(p->m_boxSub, box);
        if (level == depth) {
            break;
        }
        p = &p->m_pChild[path[level]];
    }
    return true;
}

CKivOctNode* CKivOctTree::StoreNode(int depth, const unsigned char* path, std::size_t count)
{
    CKivOctNode* n = m_pRoot;
    for (int level = 0;; ++level) {
        if (level < m_nMaxDepth && !n->m_pChild) {
            MakeChildren(*n);
        }
        n->m_nSubTri += count;
        if (level == depth) {
            break;
        }
        n = &n->m_pChild[path[level]];
    }
    const CKivOctBox box = n->m_box;
    CKivOctNode* p = m_pRoot;
    for (int level = 0;; ++level) {
        WidenHull(p->m_boxSub, box);
        if (level == depth) {
            break;
        }
        p = &p->m_pChild[path[level]];
    }
    n->m_vecTri.reserve(n->m_vecTri.size() + count);
    return n;
}

bool CKivOctTree::CanFillInBulk(std::size_t n) const
{
    return m_pRoot && !m_pRoot->m_pChild && m_pRoot->m_nSubTri == 0 && m_nMaxDepth <= kBulkMaxDepth &&
           n <= std::numeric_limits<std::uint32_t>::max();
}

void CKivOctTree::AddRoute(const CKivOctBox& b, std::size_t i, CKivBigArray<std::uint64_t>& routes) const
{
    unsigned char path[kMaxOctDepth];
    const int depth = Route(b, path);
    if (depth < 0) {
        return; // not indexed
    }
    // Key: the child taken at each level, root first, from the top bits
    // down, then the depth. Sorted, a node comes before its children.
    const int shift0 = 3 * (m_nMaxDepth - 1) + kDepthBits;
    std::uint64_t key = static_cast<std::uint64_t>(depth);
    for (int level = 0; level < depth; ++level) {
        key |= static_cast<std::uint64_t>(path[level]) << (shift0 - 3 * level);
    }
    routes.push_back(key << 32 | i);
}

void CKivOctTree::FillInBulk(CKivBigArray<std::uint64_t>& routes, const std::vector<_sTri*>& tris,
                             const CKivOctBox* boxes)
{
    // A triangle's node depends on its box alone, and the nodes a triangle
    // passes through get their children whatever the order. So route every
    // triangle first, sort the routes (stable, so each node keeps its
    // triangles in list order), and build each node once, instead of walking
    // the tree from the root for every triangle.
    if (routes.empty()) {
        return;
    }
    KivSortByHighBits(routes, 3 * m_nMaxDepth + kDepthBits);
    const int shift0 = 3 * (m_nMaxDepth - 1) + kDepthBits;
    unsigned char path[kMaxOctDepth];
    for (std::size_t j = 0; j < routes.size();) {
        const std::uint64_t key = routes[j] >> 32;
        std::size_t k = j + 1;
        while (k < routes.size() && routes[k] >> 32 == key) {
            ++k;
        }
        const int depth = static_cast<int>(key & ((1u << kDepthBits) - 1));
        for (int level = 0; level < depth; ++level) {
            path[level] = static_cast<unsigned char>((key >> (shift0 - 3 * level)) & 7);
        }
        CKivOctNode* node = StoreNode(depth, path, k - j);
        if (boxes) {
            for (; j < k; ++j) {
                if (j + kAhead < routes.size()) {
                    const std::uint32_t ia = static_cast<std::uint32_t>(routes[j + kAhead]);
                    PrefetchRead(&tris[ia]);
                    PrefetchRead(&boxes[ia]);
                    PrefetchRead(&boxes[ia].dMax[2]);
                }
                const std::uint32_t i = static_cast<std::uint32_t>(routes[j]);
                node->m_vecTri.push_back(tris[i]);
                Widen(node->m_boxTri, boxes[i]);
            }
            continue;
        }
        for (; j < k; ++j) {
            // Sorted, the triangles come in no useful order: ask for the
            // records, then for their corners, some triangles ahead.
            if (j + 2 * kAhead < routes.size()) {
                PrefetchRead(tris[static_cast<std::uint32_t>(routes[j + 2 * kAhead])]);
            }
            if (j + kAhead < routes.size()) {
                PrefetchCorners(tris[static_cast<std::uint32_t>(routes[j + kAhead])]);
            }
            _sTri* t = tris[static_cast<std::uint32_t>(routes[j])];
            node->m_vecTri.push_back(t);
            Widen(node->m_boxTri, CKivOctBox::OfTri(*t));
        }
    }
}

void CKivOctTree::InsertAll(const std::vector<_sTri*>& tris)
{
    const std::size_t n = tris.size();
    if (!CanFillInBulk(n)) {
        for (std::size_t i = 0; i < n && m_pRoot; ++i) {
            if (i + kAhead < n) {
                PrefetchCorners(tris[i + kAhead]);
            }
            Insert(tris[i], CKivOctBox::OfTri(*tris[i]));
        }
        return;
    }
    CKivBigArray<std::uint64_t> routes;
    routes.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        if (i + kAhead < n) {
            PrefetchCorners(tris[i + kAhead]);
        }
        AddRoute(CKivOctBox::OfTri(*tris[i]), i, routes);
    }
    FillInBulk(routes, tris);
}

bool CKivOctTree::Remove(const _sTri* t, const CKivOctBox& b)
{
    unsigned char path[kMaxOctDepth];
    const int route = Route(b, path);
    if (route < 0) {
        return false;
    }
    // Insert's descent, down to where the children end.
    CKivOctNode* n = m_pRoot;
    int depth = 0;
    while (depth < route && n->m_pChild) {
        n = &n->m_pChild[path[depth++]];
    }
    std::vector<_sTri*>& v = n->m_vecTri;
    const auto it = std::find(v.begin(), v.end(), t);
    if (it == v.end()) {
        return false;
    }
    v.erase(it);
    CKivOctNode* p = m_pRoot;
    for (int level = 0;; ++level) {
        --p->m_nSubTri;
        if (level == depth) {
            break;
        }
        p = &p->m_pChild[path[level]];
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
