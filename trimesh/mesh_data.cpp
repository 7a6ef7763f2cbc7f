#include <kivgeo/mesh_data.h>

#include "trimesh/oct_tree.h"
#include "trimesh/plan_index.h"
#include "trimesh/prefetch.h"
#include "trimesh/soup_merge.h"
#include "trimesh/tri_pool.h"
#include "trimesh/vertex_index.h"
#include "trimesh/vertex_pool.h"

#include <algorithm>
#include <cfloat>
#include <limits>

namespace TriMesh {

namespace {

constexpr std::size_t kNoDeadTri = std::numeric_limits<std::size_t>::max();

// The store always builds its octree with these.
constexpr int kOctDepth = 8;
constexpr double kOctRatio = 0.2;

// From this many triangles InputData merges by sorting when it can (it is
// the faster way from a few hundred triangles on; below, either takes
// microseconds).
constexpr std::size_t kSortedInputFrom = 1024;
// How far ahead the sorted merge asks for the corners it will read and the
// triangles it will write.
constexpr std::size_t kAheadPt = 48;

} // namespace

CKivMeshData::CKivMeshData()
    : m_pOctTree(nullptr), m_ptMax(-DBL_MAX, -DBL_MAX, -DBL_MAX), m_ptMin(DBL_MAX, DBL_MAX, DBL_MAX),
      m_pVertexIndex(new CKivVertexIndex), m_nDeadTri(0), m_nFirstDeadTri(kNoDeadTri), m_pPlanIndex(nullptr),
      m_nPlanWork(0), m_pTriPool(new CKivTriPool), m_pVertexPool(new CKivVertexPool)
{
}

CKivMeshData::~CKivMeshData()
{
    ClearAllData();
}

unsigned int CKivMeshData::TriNum() const
{
    return static_cast<unsigned int>(m_vecTri.size() - m_nDeadTri);
}

bool CKivMeshData::GetTriPts(unsigned int i, CKivPoint3d& a, CKivPoint3d& b, CKivPoint3d& c) const
{
    if (i >= TriNum()) {
        return false;
    }
    const _sTri* t = nullptr;
    if (m_nDeadTri == 0 || i < m_nFirstDeadTri) {
        t = m_vecTri[i];
    } else {
        // Null slots left by a friend that did not compact: count live ones.
        std::size_t live = m_nFirstDeadTri;
        for (std::size_t k = m_nFirstDeadTri; k < m_vecTri.size(); ++k) {
            if (m_vecTri[k] && live++ == i) {
                t = m_vecTri[k];
                break;
            }
        }
    }
    a = t->pVt[0]->pt;
    b = t->pVt[1]->pt;
    c = t->pVt[2]->pt;
    return true;
}

int CKivMeshData::GetVertexIndex(const CKivPoint3d& p) const
{
    return m_pVertexIndex->Find3D(m_vecVertex, p);
}

int CKivMeshData::GetVertexIndex2D(const CKivPoint3d& p) const
{
    return m_pVertexIndex->Find2D(m_vecVertex, p);
}

void CKivMeshData::ClearAllData()
{
    m_ptMax = CKivPoint3d(-DBL_MAX, -DBL_MAX, -DBL_MAX);
    m_ptMin = CKivPoint3d(DBL_MAX, DBL_MAX, DBL_MAX);
    for (_sVertex* v : m_vecVertex) {
        FreeVertex(v);
    }
    std::vector<_sVertex*>().swap(m_vecVertex);
    m_pVertexPool->Clear();
    m_pVertexIndex->Clear();
    ClearTriData();
}

void CKivMeshData::ClearVoidVet()
{
    DelVoidVet();
}

void CKivMeshData::InputData(CKivTri3d* tris, int n, bool bClear)
{
    std::vector<CKivTri3d> v;
    if (tris && n > 0) {
        v.assign(tris, tris + n);
    }
    InputData(v, bClear);
}

void CKivMeshData::InputData(const std::vector<CKivTri3d>& tris, bool bClear)
{
    if (bClear) {
        ClearAllData();
    } else {
        CompactTris();
    }
    if (tris.size() >= kSortedInputFrom && InputSorted(tris, false)) {
        return;
    }
    if (!tris.empty()) {
        InputHashed(tris);
    }
    ResetOctTree();
}

void CKivMeshData::InputHashed(const std::vector<CKivTri3d>& tris)
{
    const std::size_t n = tris.size();
    // Merge the corners: each one is looked up among all vertices so far,
    // those made earlier in this call included.
    // The lookups of a shuffled soup land all over the index; asking for the
    // chain heads and entries a few corners ahead lets those loads overlap.
    constexpr std::size_t kAheadHead = 16, kAheadEntry = 8;
    const std::size_t nCorner = 3 * n;
    const auto cornerPt = [&tris](std::size_t j) -> const CKivPoint3d& { return tris[j / 3].m_pt[j % 3]; };
    std::vector<int> corner(nCorner);
    // A TIN has about half as many vertices as triangles (plus its border);
    // room for that many spares the index its regrowth in the common case.
    m_pVertexIndex->Reserve3D(m_vecVertex, m_vecVertex.size() + n / 2 + n / 64 + 16);
    // Buckets asked for, by corner number modulo kAheadHead.
    std::size_t bucket[kAheadHead];
    for (std::size_t j = 0; j < kAheadHead && j < nCorner; ++j) {
        bucket[j] = m_pVertexIndex->PrefetchHead3D(cornerPt(j));
    }
    for (std::size_t j = 0; j < nCorner; ++j) {
        if (j + kAheadEntry < nCorner) {
            m_pVertexIndex->PrefetchEntry3D(bucket[(j + kAheadEntry) % kAheadHead]);
        }
        if (j + kAheadHead < nCorner) {
            bucket[j % kAheadHead] = m_pVertexIndex->PrefetchHead3D(cornerPt(j + kAheadHead));
        }
        const CKivPoint3d& p = cornerPt(j);
        int idx = GetVertexIndex(p);
        if (idx < 0) {
            _sVertex* v = NewVertex(p);
            UpdateExtent(*v);
            idx = v->nIndex;
        }
        corner[j] = idx;
    }

    // Size every vertex list once, then attach the triangles in input order.
    std::vector<std::uint32_t> extra(m_vecVertex.size(), 0);
    for (int idx : corner) {
        ++extra[static_cast<std::size_t>(idx)];
    }
    for (std::size_t j = 0; j < extra.size(); ++j) {
        if (extra[j]) {
            std::vector<_sTri*>& l = m_vecVertex[j]->vecTri;
            l.reserve(l.size() + extra[j]);
        }
    }
    std::vector<std::uint32_t>().swap(extra);
    m_vecTri.reserve(m_vecTri.size() + n);
    for (std::size_t i = 0; i < n; ++i) {
        // The corners' records first, then (once they are in) their lists.
        for (int k = 0; k < 3; ++k) {
            if (i + 2 * kAhead < n) {
                PrefetchRead(m_vecVertex[static_cast<std::size_t>(corner[3 * (i + 2 * kAhead) + k])]);
            }
            if (i + kAhead < n) {
                const _sVertex* v = m_vecVertex[static_cast<std::size_t>(corner[3 * (i + kAhead) + k])];
                PrefetchRead(v->vecTri.data() + v->vecTri.size());
            }
        }
        _sTri* t = m_pTriPool->New();
        t->nPos = static_cast<std::int32_t>(m_vecTri.size());
        m_vecTri.push_back(t);
        for (int k = 0; k < 3; ++k) {
            _sVertex* v = m_vecVertex[static_cast<std::size_t>(corner[3 * i + k])];
            t->pVt[k] = v;
            v->vecTri.push_back(t);
        }
    }
}

bool CKivMeshData::InputSorted(const std::vector<CKivTri3d>& tris, bool bForce)
{
    if (!m_vecVertex.empty() || !m_vecTri.empty() || tris.empty()) {
        return false;
    }
    CKivSoupMerge merge;
    if (!merge.Run(tris, bForce)) {
        return false;
    }
    const std::size_t n = tris.size();

    // The triangles side by side in input order; their corners are set as
    // the vertices come.
    _sTri* run = m_pTriPool->NewRun(n);
    m_vecTri.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        run[i].nPos = static_cast<std::int32_t>(i);
        m_vecTri.push_back(run + i);
    }

    // The vertices in the order the mesh numbers them, each with its corners
    // in input order: make it at its first corner, size its list once, fill
    // it in order. Only the writes of the triangles' corners land anywhere.
    const CKivBigArray<std::uint64_t>& corners = merge.ByVertex();
    const std::size_t nCorner = corners.size();
    const auto cornerOf = [&corners](std::size_t s) { return static_cast<std::uint32_t>(corners[s]); };
    m_vecVertex.reserve(merge.MakerCount());
    for (std::size_t s = 0; s < nCorner;) {
        const std::uint64_t vertex = corners[s] >> 32;
        std::size_t e = s + 1;
        while (e < nCorner && corners[e] >> 32 == vertex) {
            ++e;
        }
        const std::uint32_t j0 = cornerOf(s);
        _sVertex* v = NewVertex(tris[j0 / 3].m_pt[j0 % 3]);
        UpdateExtent(*v);
        v->vecTri.reserve(e - s);
        for (; s < e; ++s) {
            if (s + kAheadPt < nCorner) {
                const std::uint32_t ja = cornerOf(s + kAheadPt);
                PrefetchRead(&tris[ja / 3].m_pt[ja % 3]);
                PrefetchWrite(run + ja / 3);
            }
            const std::uint32_t j = cornerOf(s);
            _sTri* t = run + j / 3;
            t->pVt[j % 3] = v;
            v->vecTri.push_back(t);
        }
    }
    merge.ReleaseByVertex();

    // The octree, as ResetOctTree builds it. A triangle whose corners all
    // kept their bits as vertices has the box of its soup triangle, read in
    // order here instead of from its scattered vertices.
    DropPlanIndex();
    delete m_pOctTree;
    m_pOctTree = nullptr;
    m_pOctTree = new CKivOctTree;
    m_pOctTree->Create(m_ptMin, m_ptMax, kOctDepth, kOctRatio);
    if (!m_pOctTree->CanFillInBulk(n)) {
        m_pOctTree->InsertAll(m_vecTri);
        return true;
    }
    CKivOctTree::CBulk bulk;
    bulk.Reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t j = static_cast<std::uint32_t>(3 * i);
        const bool moved = merge.Moved(j) || merge.Moved(j + 1) || merge.Moved(j + 2);
        m_pOctTree->AddRoute(moved ? CKivOctBox::OfTri(run[i])
                                   : CKivOctBox::OfPoints(tris[i].m_pt[0], tris[i].m_pt[1], tris[i].m_pt[2]),
                             i, bulk);
    }
    m_pOctTree->FillInBulk(bulk, m_vecTri);
    return true;
}

void CKivMeshData::OutputData(std::vector<CKivTri3d>& out) const
{
    out.clear();
    out.reserve(TriNum());
    const std::size_t n = m_vecTri.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (i + kAhead < n && m_vecTri[i + kAhead]) {
            PrefetchCorners(m_vecTri[i + kAhead]);
        }
        if (const _sTri* t = m_vecTri[i]) {
            out.emplace_back(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
        }
    }
}

void CKivMeshData::OutputPoints(std::vector<CKivPoint3d>& out) const
{
    out.clear();
    out.reserve(m_vecVertex.size());
    for (const _sVertex* v : m_vecVertex) {
        out.push_back(v->pt);
    }
}

bool CKivMeshData::Clone(CKivMeshData& dst) const
{
    if (m_vecVertex.empty() && TriNum() == 0) {
        return false;
    }
    std::vector<CKivTri3d> tris;
    OutputData(tris);
    dst.InputData(tris, true);
    return true;
}

void CKivMeshData::Simplify(const std::vector<CKivSeg3d>& segments, double tolerance)
{
    // Mesh simplification is not implemented yet: the mesh is left as it is
    // and only the octree is rebuilt, as the simplification itself will do
    // at its end.
    (void)segments;
    (void)tolerance;
    ResetOctTree();
}

void CKivMeshData::UpdateExtent(const _sVertex& v)
{
    // Written as comparisons so that a NaN coordinate leaves the extent alone.
    const double c[3] = {v.pt.x, v.pt.y, v.pt.z};
    double* mx[3] = {&m_ptMax.x, &m_ptMax.y, &m_ptMax.z};
    double* mn[3] = {&m_ptMin.x, &m_ptMin.y, &m_ptMin.z};
    for (int k = 0; k < 3; ++k) {
        if (c[k] > *mx[k]) {
            *mx[k] = c[k];
        }
        if (c[k] < *mn[k]) {
            *mn[k] = c[k];
        }
    }
}

int CKivMeshData::IndexDefaultPt(_sTri*& t, _sVertex*& a, _sVertex*& b) const
{
    if (!t) {
        return -2;
    }
    if (!a || !b) {
        return -3;
    }
    for (int k = 0; k < 3; ++k) {
        if (t->pVt[k] != a && t->pVt[k] != b) {
            return k;
        }
    }
    return -1;
}

_sTri* CKivMeshData::FindTriCoEdge(const _sVertex* a, const _sVertex* b, const _sTri* exclude) const
{
    if (!a || !b) {
        return nullptr;
    }
    for (auto ia = a->vecTri.rbegin(); ia != a->vecTri.rend(); ++ia) {
        _sTri* t = *ia;
        if (!t || t == exclude) {
            continue;
        }
        for (auto ib = b->vecTri.rbegin(); ib != b->vecTri.rend(); ++ib) {
            if (*ib == t) {
                return t;
            }
        }
    }
    return nullptr;
}

void CKivMeshData::ResetOctTree()
{
    DropPlanIndex();
    CompactTris();
    delete m_pOctTree;
    m_pOctTree = nullptr;
    if (m_vecTri.empty()) {
        return;
    }
    m_pOctTree = new CKivOctTree;
    m_pOctTree->Create(m_ptMin, m_ptMax, kOctDepth, kOctRatio);
    m_pOctTree->InsertAll(m_vecTri);
}

void CKivMeshData::AddTri(_sVertex* a, _sVertex* b, _sVertex* c)
{
    _sTri* t = m_pTriPool->New();
    t->pVt[0] = a;
    t->pVt[1] = b;
    t->pVt[2] = c;
    DropPlanIndex();
    t->nPos = static_cast<std::int32_t>(m_vecTri.size());
    m_vecTri.push_back(t);
    a->vecTri.push_back(t);
    b->vecTri.push_back(t);
    c->vecTri.push_back(t);
    if (m_pOctTree) {
        m_pOctTree->Insert(t, CKivOctBox::OfTri(*t));
    }
}

void CKivMeshData::DelTri(_sTri* t)
{
    if (!t) {
        return;
    }
    DropPlanIndex();
    if (m_pOctTree) {
        m_pOctTree->Remove(t, CKivOctBox::OfTri(*t));
    }
    for (int k = 0; k < 3; ++k) {
        if (!t->pVt[k]) {
            continue;
        }
        std::vector<_sTri*>& l = t->pVt[k]->vecTri;
        for (std::size_t j = l.size(); j-- > 0;) {
            if (l[j] == t) {
                l.erase(l.begin() + static_cast<std::ptrdiff_t>(j));
                break;
            }
        }
    }
    // The slot is known from nPos; the backward scan is only a fallback for a
    // triangle whose slot was not recorded.
    std::size_t pos = static_cast<std::size_t>(t->nPos);
    if (t->nPos < 0 || pos >= m_vecTri.size() || m_vecTri[pos] != t) {
        pos = kNoDeadTri;
        for (std::size_t j = m_vecTri.size(); j-- > 0;) {
            if (m_vecTri[j] == t) {
                pos = j;
                break;
            }
        }
        if (pos == kNoDeadTri) {
            return;
        }
    }
    m_pTriPool->Delete(t);
    m_vecTri[pos] = nullptr;
    ++m_nDeadTri;
    m_nFirstDeadTri = std::min(m_nFirstDeadTri, pos);
}

void CKivMeshData::DelTriFromVec(std::vector<_sTri*>& v, const _sTri* t)
{
    const auto it = std::find(v.begin(), v.end(), t);
    if (it != v.end()) {
        v.erase(it);
    }
}

void CKivMeshData::DelVoidVet(const _sVertex* v)
{
    for (std::size_t j = m_vecVertex.size(); j-- > 0;) {
        if (m_vecVertex[j] == v) {
            FreeVertex(m_vecVertex[j]);
            m_vecVertex.erase(m_vecVertex.begin() + static_cast<std::ptrdiff_t>(j));
            m_pVertexIndex->Invalidate();
            return;
        }
    }
}

void CKivMeshData::DelVoidVet()
{
    // One stable pass instead of an erase per vertex; same survivors, same order.
    std::size_t w = 0;
    for (std::size_t r = 0; r < m_vecVertex.size(); ++r) {
        _sVertex* v = m_vecVertex[r];
        if (v->vecTri.empty()) {
            FreeVertex(v);
        } else {
            m_vecVertex[w++] = v;
        }
    }
    if (w != m_vecVertex.size()) {
        m_vecVertex.resize(w);
        m_pVertexIndex->Invalidate();
    }
}

void CKivMeshData::ClearTriData()
{
    DropPlanIndex();
    m_pTriPool->Clear();
    std::vector<_sTri*>().swap(m_vecTri);
    m_nDeadTri = 0;
    m_nFirstDeadTri = kNoDeadTri;
    delete m_pOctTree;
    m_pOctTree = nullptr;
}

_sVertex* CKivMeshData::NewVertex(const CKivPoint3d& p)
{
    _sVertex* v = m_pVertexPool->New();
    v->pt = p;
    v->nIndex = static_cast<int>(m_vecVertex.size());
    try {
        m_vecVertex.push_back(v);
    } catch (...) {
        m_pVertexPool->Delete(v);
        throw;
    }
    return v;
}

void CKivMeshData::FreeVertex(_sVertex* v)
{
    if (m_pVertexPool->Owns(v)) {
        m_pVertexPool->Delete(v);
    } else {
        delete v; // appended by a friend with new
    }
}

void CKivMeshData::InvalidateVertexIndex()
{
    m_pVertexIndex->Invalidate();
    DropPlanIndex(); // moved vertices move triangles
}

void CKivMeshData::ReleaseVertexIndex()
{
    m_pVertexIndex->Clear();
    DropPlanIndex();
}

void CKivMeshData::DropPlanIndex()
{
    // Runs on every AddTri and DelTri: plain loads first, the rare drop
    // after. Edits are never concurrent with queries, so this is safe.
    if (m_pPlanIndex.load(std::memory_order_relaxed)) {
        delete m_pPlanIndex.exchange(nullptr);
    }
    if (m_nPlanWork.load(std::memory_order_relaxed) != 0) {
        m_nPlanWork.store(0, std::memory_order_relaxed);
    }
}

void CKivMeshData::CompactTris()
{
    if (m_nDeadTri == 0) {
        return;
    }
    std::size_t w = m_nFirstDeadTri;
    for (std::size_t r = m_nFirstDeadTri; r < m_vecTri.size(); ++r) {
        _sTri* t = m_vecTri[r];
        if (t) {
            t->nPos = static_cast<std::int32_t>(w);
            m_vecTri[w++] = t;
        }
    }
    m_vecTri.resize(w);
    m_nDeadTri = 0;
    m_nFirstDeadTri = kNoDeadTri;
}

} // namespace TriMesh
