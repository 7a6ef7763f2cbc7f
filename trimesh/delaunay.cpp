#include <kivgeo/delaunay.h>

#include "spacemath/exact_incircle.h"
#include "spacemath/exact_orient.h"
#include "spacemath/planar_internal.h"
#include "trimesh/delaunay_work.h"
#include "trimesh/tri_pool.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

namespace TriMesh {

namespace {

constexpr double kEps = 1e-6;
// Progress is reported once per this many insertions.
constexpr std::size_t kProgressStep = 4096;

} // namespace

CKivDelaunay::CKivDelaunay(CKivMeshData& mesh)
    : m_pMesh(&mesh), m_ptOrigin(0.0, 0.0, 0.0), m_pBoundVt{nullptr, nullptr, nullptr}, m_bMergePt(true),
      m_bCoverHull(false), m_pWork(new CKivDelaunayWork)
{
}

CKivDelaunay::~CKivDelaunay()
{
    for (CKivPolyLine* p : m_vecHole) {
        delete p;
    }
    m_vecHole.clear();
    for (_sSeg* s : m_vecSegYS) {
        delete s;
    }
    m_vecSegYS.clear();
}

int CKivDelaunay::AddVertex(const CKivPoint3d& p)
{
    // Non-finite points are kept as vertices (the caller's indices stay
    // valid) but never merge, never widen the extent and get no triangles.
    const bool usable = CKivDelaunayWork::IsUsable(p);
    if (m_bMergePt && std::isfinite(p.x) && std::isfinite(p.y)) {
        const int idx = m_pMesh->GetVertexIndex2D(p);
        if (idx >= 0) {
            return idx;
        }
    }
    _sVertex* v = m_pMesh->NewVertex(p);
    if (usable) {
        m_pMesh->UpdateExtent(*v);
    }
    return v->nIndex;
}

bool CKivDelaunay::IsUsableVertex(const _sVertex* v) const
{
    return CKivDelaunayWork::IsUsable(v->pt) && !m_pWork->IsExcluded(v);
}

bool CKivDelaunay::UsableExtent(double& x0, double& y0, double& x1, double& y1) const
{
    x0 = y0 = HUGE_VAL;
    x1 = y1 = -HUGE_VAL;
    bool any = false;
    for (const _sVertex* v : m_pMesh->m_vecVertex) {
        if (IsUsableVertex(v)) {
            x0 = std::min(x0, v->pt.x);
            y0 = std::min(y0, v->pt.y);
            x1 = std::max(x1, v->pt.x);
            y1 = std::max(y1, v->pt.y);
            any = true;
        }
    }
    return any;
}

// The triangles are built with exact orientation tests on the shifted
// coordinates, so the shift must be exact: otherwise a triangle that is
// counter-clockwise in the local frame can come back flat or clockwise once
// the coordinates are shifted back (points near 0 next to a centre of 0.005,
// say). The centre of the extent shifts every coordinate exactly whenever
// the data keep clear of zero (x and the centre within a factor of two), as
// surveys in projected coordinates do; otherwise no shift is needed for
// precision and none is made. The tolerance tests are translation invariant
// up to rounding, so they decide the same either way.
double CKivDelaunay::ExactShiftOrigin(double centre, double CKivPoint3d::*axis) const
{
    const auto exact = [centre](double x) {
        // Knuth's two-sum of x and -centre: a zero error term means x -
        // centre is representable (and x comes back when centre is added).
        const double s = x - centre;
        const double z = s - x;
        return (x - (s - z)) + (-centre - z) == 0.0;
    };
    const CKivMeshData& m = *m_pMesh;
    if (std::isfinite(m.m_ptMin.*axis) && !exact(m.m_ptMin.*axis)) {
        return 0.0;
    }
    if (std::isfinite(m.m_ptMax.*axis) && !exact(m.m_ptMax.*axis)) {
        return 0.0;
    }
    for (const _sVertex* v : m.m_vecVertex) {
        const double x = v->pt.*axis;
        if (std::isfinite(x) && !exact(x)) {
            return 0.0;
        }
    }
    return centre;
}

void CKivDelaunay::TranslateCoord(bool bBack)
{
    CKivMeshData& m = *m_pMesh;
    if (m.m_vecVertex.empty()) {
        return;
    }
    if (!bBack) {
        // The centre of the vertices that take part; with only finite data
        // added through AddVertex that is the centre of the mesh extent.
        double x0, y0, x1, y1;
        m_ptOrigin = CKivPoint3d(0.0, 0.0, 0.0);
        if (UsableExtent(x0, y0, x1, y1)) {
            m_ptOrigin.x = ExactShiftOrigin((x0 + x1) * 0.5, &CKivPoint3d::x);
            m_ptOrigin.y = ExactShiftOrigin((y0 + y1) * 0.5, &CKivPoint3d::y);
        }
    }
    const double s = bBack ? 1.0 : -1.0;
    const double ox = s * m_ptOrigin.x, oy = s * m_ptOrigin.y;
    m.m_ptMin.x += ox;
    m.m_ptMin.y += oy;
    m.m_ptMax.x += ox;
    m.m_ptMax.y += oy;
    for (_sVertex* v : m.m_vecVertex) {
        v->pt.x += ox;
        v->pt.y += oy;
    }
    for (CKivPolyLine* h : m_vecHole) {
        h->Offset(m_ptOrigin, bBack);
    }
    m_Outline.Offset(m_ptOrigin, bBack);
    // A run makes no lookups, and a million vertices' index is some 40 MB
    // that the run can use meanwhile; it is rebuilt on the next lookup.
    m.ReleaseVertexIndex();
}

void CKivDelaunay::SetTriBound()
{
    double x0, y0, x1, y1;
    if (!UsableExtent(x0, y0, x1, y1)) {
        m_pBoundVt[0] = m_pBoundVt[1] = m_pBoundVt[2] = nullptr;
        throw -1;
    }
    const double len = std::max(x1 - x0, y1 - y0);
    const double cx = (x1 + x0) * 0.5;
    const double cy = (y0 + y1) * 0.5;
    // As AddVertex, but the merge test is a plain backward scan: the vertex
    // index was just invalidated by the shift, and rebuilding it for three
    // look-ups would cost more than the scan.
    std::vector<_sVertex*>& vv = m_pMesh->m_vecVertex;
    const auto add = [this, &vv](const CKivPoint3d& p) {
        for (std::size_t j = vv.size(); m_bMergePt && j-- > 0;) {
            if (std::fabs(vv[j]->pt.x - p.x) <= 0.01 && std::fabs(vv[j]->pt.y - p.y) <= 0.01) {
                return vv[j];
            }
        }
        _sVertex* v = m_pMesh->NewVertex(p);
        if (CKivDelaunayWork::IsUsable(p)) {
            m_pMesh->UpdateExtent(*v);
        }
        return v;
    };
    m_pBoundVt[0] = add(CKivPoint3d(cx - 2 * len, cy - len, 0.0));
    m_pBoundVt[1] = add(CKivPoint3d(cx, cy + 2 * len, 0.0));
    m_pBoundVt[2] = add(CKivPoint3d(cx + 2 * len, cy - len, 0.0));
    for (const _sVertex* v : m_pBoundVt) {
        m_pWork->Exclude(v);
    }
    const CKivPoint3d& a = m_pBoundVt[2]->pt;
    const CKivPoint3d& b = m_pBoundVt[1]->pt;
    const CKivPoint3d& c = m_pBoundVt[0]->pt;
    // A zero extent (or one that merged the corners) leaves nothing to build on.
    if (ExactOrient2D(a.x, a.y, b.x, b.y, c.x, c.y) <= 0) {
        throw -1;
    }
    m_pMesh->AddTri(m_pBoundVt[2], m_pBoundVt[1], m_pBoundVt[0]);
}

bool CKivDelaunay::InsertPtIntoMesh(int i)
{
    if (i < 0 || static_cast<std::size_t>(i) >= m_pMesh->m_vecVertex.size()) {
        return false;
    }
    if (m_pWork->IsLoaded()) {
        return m_pWork->Insert(i);
    }
    // On its own (outside a run): mirror the mesh, insert, write back.
    LoadWork();
    const bool ok = m_pWork->Insert(i);
    StoreWork();
    return ok;
}

void CKivDelaunay::LoadWork()
{
    CKivMeshData* m = m_pMesh;
    m_pWork->Load(m->m_vecVertex, m->m_vecTri,
                  [m](const _sVertex* a, const _sVertex* b, const _sTri* t) { return m->FindTriCoEdge(a, b, t); });
}

// Leaves the mesh as DelTri for each dead loaded triangle and AddTri for
// each new one in creation order would. Without an octree to keep up, the
// records are made in one pass and each vertex's list is filled at once
// (its new triangles grouped by corner first), rather than appending to
// three scattered lists per triangle.
void CKivDelaunay::StoreWork()
{
    CKivMeshData& m = *m_pMesh;
    if (m.m_pOctTree) {
        m_pWork->Store([&m](const _sTri* t) { m.DelTri(const_cast<_sTri*>(t)); },
                       [&m](_sVertex* a, _sVertex* b, _sVertex* c) { m.AddTri(a, b, c); });
        m.CompactTris();
        return;
    }
    std::vector<const _sTri*> dead;
    CKivBigArray<int> corners;
    m_pWork->Export(dead, corners);
    for (const _sTri* t : dead) {
        m.DelTri(const_cast<_sTri*>(t));
    }
    m.CompactTris();
    m.DropPlanIndex();
    const std::size_t n = corners.size() / 3;
    const std::size_t base = m.m_vecTri.size();
    m.m_vecTri.resize(base + n);
    for (std::size_t j = 0; j < n; ++j) {
        _sTri* t = m.m_pTriPool->New();
        for (int k = 0; k < 3; ++k) {
            t->pVt[k] = m.m_vecVertex[static_cast<std::size_t>(corners[3 * j + static_cast<std::size_t>(k)])];
        }
        t->nPos = static_cast<std::int32_t>(base + j);
        m.m_vecTri[base + j] = t;
    }
    // Per vertex, its new triangles in creation order (a counting sort).
    const std::size_t nv = m.m_vecVertex.size();
    CKivBigArray<std::uint32_t> first(nv + 1, 0);
    for (int c : corners) {
        ++first[static_cast<std::size_t>(c) + 1];
    }
    for (std::size_t i = 0; i < nv; ++i) {
        first[i + 1] += first[i];
    }
    // Scattered writes here, so that the lists are then filled by reading
    // in order (scattered reads would stall on every miss).
    CKivBigArray<_sTri*> byVert(corners.size());
    {
        CKivBigArray<std::uint32_t> fill(first.begin(), first.end() - 1);
        for (std::size_t j = 0; j < corners.size(); ++j) {
            byVert[fill[static_cast<std::size_t>(corners[j])]++] = m.m_vecTri[base + j / 3];
        }
    }
    CKivBigArray<int>().swap(corners);
    for (std::size_t i = 0; i < nv; ++i) {
        if (first[i] == first[i + 1]) {
            continue;
        }
        std::vector<_sTri*>& l = m.m_vecVertex[i]->vecTri;
        l.insert(l.end(), byVert.begin() + first[i], byVert.begin() + first[i + 1]);
    }
}

bool CKivDelaunay::IsNotMesh() const
{
    return m_pMesh->m_vecVertex.size() < 3;
}

_sTri* CKivDelaunay::FindTri(double x, double y) const
{
    const std::vector<_sTri*>& tris = m_pMesh->m_vecTri;
    _sTri* t = nullptr;
    for (_sTri* s : tris) {
        if (s) {
            t = s;
            break;
        }
    }
    const auto classify = [x, y](const _sTri* s) {
        const CKivPoint3d& a = s->pVt[0]->pt;
        const CKivPoint3d& b = s->pVt[1]->pt;
        const CKivPoint3d& c = s->pVt[2]->pt;
        return GetPtPosInTri2D(x, y, a.x, a.y, b.x, b.y, c.x, c.y, false);
    };
    // A walk longer than there are triangles is circling: scan instead.
    for (std::size_t steps = 0; t && steps <= tris.size(); ++steps) {
        const int pos = classify(t);
        if (pos < 1 || pos > 3) {
            return t;
        }
        t = m_pMesh->FindTriCoEdge(t->pVt[pos - 1], t->pVt[pos % 3], t);
        if (!t) {
            return nullptr;
        }
    }
    for (_sTri* s : tris) {
        if (s && classify(s) <= 0) {
            return s;
        }
    }
    return nullptr;
}

void CKivDelaunay::FindCircumTri(const _sVertex* v, _sTri* t, std::vector<_sTri*>& out) const
{
    // The recursive flood, unrolled onto a stack: a triangle, then all that
    // is reached across edge 01, then 12, then 20.
    std::unordered_set<const _sTri*> seen(out.begin(), out.end());
    std::vector<_sTri*> stack{t};
    const double px = v->pt.x, py = v->pt.y;
    while (!stack.empty()) {
        _sTri* s = stack.back();
        stack.pop_back();
        if (!s) {
            continue;
        }
        const CKivPoint3d& a = s->pVt[0]->pt;
        const CKivPoint3d& b = s->pVt[1]->pt;
        const CKivPoint3d& c = s->pVt[2]->pt;
        if (IsPtInCircumCircle2DExact(px, py, a.x, a.y, b.x, b.y, c.x, c.y) < 0 || !seen.insert(s).second) {
            continue;
        }
        out.push_back(s);
        for (int k = 2; k >= 0; --k) {
            stack.push_back(m_pMesh->FindTriCoEdge(s->pVt[k], s->pVt[(k + 1) % 3], s));
        }
    }
}

bool CKivDelaunay::Delaunay()
{
    CKivMeshData& m = *m_pMesh;
    bool ok = false;
    bool bBound = false; // this run made its bounding vertices
    m_pWork->Clear();
    m_pWork->BeginRun(m.m_vecVertex);
    try {
        TranslateCoord(false);
        if (IsNotMesh()) {
            throw -1;
        }
        m.ClearTriData();
        // A previous run leaves its triangles in the lists; they are gone now.
        for (_sVertex* v : m.m_vecVertex) {
            v->vecTri.clear();
        }
        std::vector<int> order;
        for (std::size_t i = 0; i < m.m_vecVertex.size(); ++i) {
            if (IsUsableVertex(m.m_vecVertex[i])) {
                order.push_back(static_cast<int>(i));
            }
        }
        if (order.size() < 3) {
            throw -1;
        }
        if (order.size() == 3) {
            _sVertex* p[3];
            for (int k = 0; k < 3; ++k) {
                p[k] = m.m_vecVertex[static_cast<std::size_t>(order[static_cast<std::size_t>(k)])];
            }
            const CKivPoint3d &a = p[0]->pt, &b = p[1]->pt, &c = p[2]->pt;
            const double area = ((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y)) * 0.5;
            const int sense = ExactOrient2D(a.x, a.y, b.x, b.y, c.x, c.y);
            if (std::fabs(area) < kEps || sense == 0) {
                throw -1;
            }
            if (sense > 0) {
                m.AddTri(p[0], p[1], p[2]);
            } else {
                m.AddTri(p[2], p[1], p[0]);
            }
            DigHolesAndOutline();
        } else {
            bBound = true;
            SetTriBound();
            LoadWork();
            double x0, y0, x1, y1;
            UsableExtent(x0, y0, x1, y1);
            m_pWork->PrepareLocate(x0, y0, x1, y1, order.size());
            for (std::size_t j = 0; j < order.size(); ++j) {
                const int i = order[j];
                const _sVertex* v = m.m_vecVertex[static_cast<std::size_t>(i)];
                if (j % CKivDelaunayWork::kAheadPoints == 0) {
                    m_pWork->LocateAhead(order.data() + j,
                                         std::min<std::size_t>(order.size() - j, CKivDelaunayWork::kAheadPoints));
                }
                if (v != m_pBoundVt[0] && v != m_pBoundVt[1] && v != m_pBoundVt[2]) {
                    InsertPtIntoMesh(i);
                }
                if (m_fnProgress && (j + 1) % kProgressStep == 0) {
                    m_fnProgress(static_cast<double>(j + 1) / static_cast<double>(order.size()));
                }
            }
            StoreWork();
            for (const _sSeg* s : m_vecSegYS) {
                DealSegYS(s);
            }
            m.CompactTris();
            // Walking from the back keeps each bounding vertex's list short
            // to search: its last entry is the one going.
            for (std::size_t j = m.m_vecTri.size(); j-- > 0;) {
                _sTri* t = m.m_vecTri[j];
                if (!t) {
                    continue;
                }
                for (const _sVertex* c : t->pVt) {
                    if (c == m_pBoundVt[0] || c == m_pBoundVt[1] || c == m_pBoundVt[2]) {
                        m.DelTri(t);
                        break;
                    }
                }
            }
            m.CompactTris();
            if (m_bCoverHull) {
                FillHullPockets();
            }
            DigHolesAndOutline();
        }
        ok = true;
        if (m_fnProgress) {
            m_fnProgress(1.0);
        }
    } catch (int) {
        ok = false;
        if (m_pWork->IsLoaded()) {
            m_pWork->Clear();
        }
    }
    m.CompactTris();
    TranslateCoord(true);
    if (bBound) {
        m_pWork->SetPrevBound(m_pBoundVt);
    }
    m_pWork->EndRun();
    m.ResetOctTree();
    return ok;
}

} // namespace TriMesh
