// CKivMeshQuery: the object, point location, elevation and the ray-casting
// classification. Draping is in mesh_query_drape.cpp, the outline in
// mesh_query_outline.cpp.
#include <kivgeo/mesh_query.h>

#include <kivgeo/spacemath.h>

#include "spacemath/planar_internal.h"
#include "spacemath/spacemath_inline.h"
#include "trimesh/oct_tree.h"
#include "trimesh/plan_index.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace TriMesh {

namespace {

constexpr double kThird = 0.3333333333333333;
// Half-width of the point query box, the library tolerance.
constexpr double kPosBox = 1e-6;
// The plan grid is built once octree searches have gone through as many
// candidates as the mesh has triangles. Building costs about as much as
// four such candidates per triangle (2M triangles: ~0.9 s against ~120 ns
// a candidate), so a handful of searches never pays for a grid, and no
// single search triggers one unless it alone went through the whole mesh;
// a long run of searches pays the grid once, with a quarter of its cost
// spent before.
constexpr std::size_t kPlanWorkPerTri = 1;

CKivPoint3d Centroid(const _sTri& t)
{
    return (t.pVt[0]->pt + t.pVt[1]->pt + t.pVt[2]->pt) * kThird;
}

// A proper vertical hit of (x, y) on the triangle (a, b, c); z written only
// then.
inline bool VerticalHit(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c, const CKivPoint3d& p,
                        double& z)
{
    static const CGeoVector up(0.0, 0.0, 1.0);
    CKivPoint3d hit;
    if (SpaceMathInline::HitTriangle(p, up, a, b, c, hit, true, false) != 1) {
        return false;
    }
    z = hit.z;
    return true;
}

} // namespace

CKivMeshQuery::CKivMeshQuery(const CKivMeshData& mesh) : m_pMesh(&mesh), m_vecOutline() {}

CKivMeshQuery::~CKivMeshQuery() = default;

bool CKivMeshQuery::HasSearch() const
{
    return m_pMesh->m_pOctTree && m_pMesh->m_pOctTree->Root() && m_pMesh->TriNum() > 0;
}

void CKivMeshQuery::FindTriByPos(CKivPoint3d p, std::vector<_sTri*>& out, bool b3D) const
{
    out.clear();
    if (!HasSearch()) {
        return;
    }
    std::vector<const CKivOctNode*> nodes;
    if (b3D) {
        m_pMesh->m_pOctTree->QueryBox(p.x - kPosBox, p.y - kPosBox, p.z - kPosBox, p.x + kPosBox, p.y + kPosBox,
                                      p.z + kPosBox, nodes);
    } else {
        m_pMesh->m_pOctTree->QueryBox2D(p.x - kPosBox, p.y - kPosBox, p.x + kPosBox, p.y + kPosBox, nodes);
    }
    for (const CKivOctNode* n : nodes) {
        out.insert(out.end(), n->m_vecTri.rbegin(), n->m_vecTri.rend());
    }
}

const CKivPlanIndex* CKivMeshQuery::PlanIndex(std::size_t work) const
{
    const CKivMeshData& mesh = *m_pMesh;
    const CKivPlanIndex* grid = mesh.m_pPlanIndex.load(std::memory_order_acquire);
    if (grid || work == 0 || !HasSearch()) {
        return grid;
    }
    const std::size_t total = mesh.m_nPlanWork.fetch_add(work, std::memory_order_relaxed) + work;
    if (total < kPlanWorkPerTri * mesh.m_vecTri.size()) {
        return nullptr;
    }
    // Built without a lock; when another thread got there first, its grid
    // stays and this one goes.
    CKivPlanIndex* fresh = new CKivPlanIndex(mesh.m_vecTri, *mesh.m_pOctTree);
    CKivPlanIndex* expected = nullptr;
    if (!mesh.m_pPlanIndex.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) {
        delete fresh;
        return expected;
    }
    return fresh;
}

bool CKivMeshQuery::FindTriIncludePt(const CKivPoint3d& p, CKivTri3d& tri) const
{
    std::vector<_sTri*> cand;
    FindTriByPos(p, cand, true);
    for (const _sTri* t : cand) {
        const CKivPoint3d& a = t->pVt[0]->pt;
        const CKivPoint3d& b = t->pVt[1]->pt;
        const CKivPoint3d& c = t->pVt[2]->pt;
        if (GetPtPosInTri2D(p.x, p.y, a.x, a.y, b.x, b.y, c.x, c.y, false) <= 0) {
            tri.m_pt[0] = a;
            tri.m_pt[1] = b;
            tri.m_pt[2] = c;
            return true;
        }
    }
    return false;
}

bool CKivMeshQuery::GetMapPoint(double x, double y, double& z) const
{
    if (!HasSearch()) {
        return false;
    }
    // The answer is the largest proper hit among the candidates (sorting the
    // heights and dropping repeats does not change the largest), so it does
    // not depend on candidate order and the plan grid may stand in for the
    // octree column: both report every triangle that can give a proper hit.
    const CKivPoint3d p(x, y, 0.0);
    bool found = false;
    double top = -HUGE_VAL;
    const auto visit = [&](const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c) {
        double h;
        if (VerticalHit(a, b, c, p, h) && (!found || h > top)) {
            top = h;
            found = true;
        }
    };
    if (const CKivPlanIndex* grid = PlanIndex(0)) {
        grid->ForEachAt(x, y, visit);
    } else {
        std::vector<const CKivOctNode*> nodes;
        m_pMesh->m_pOctTree->QueryBox2D(x - kPosBox, y - kPosBox, x + kPosBox, y + kPosBox, nodes);
        std::size_t work = nodes.size();
        for (const CKivOctNode* n : nodes) {
            const std::vector<_sTri*>& list = n->m_vecTri;
            for (std::size_t i = list.size(); i-- > 0;) {
                // The candidates are scattered in memory: fetch a few ahead.
                if (i >= 8) {
                    __builtin_prefetch(list[i - 8]);
                }
                if (i >= 4) {
                    for (const _sVertex* v : list[i - 4]->pVt) {
                        __builtin_prefetch(v);
                    }
                }
                const _sTri* t = list[i];
                visit(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
            }
            work += list.size();
        }
        PlanIndex(work);
    }
    if (!found) {
        return false;
    }
    z = top;
    return true;
}

CKivMeshQuery::eTriHitMesh CKivMeshQuery::HitTestPt(const CKivPoint3d& p) const
{
    return HitTestPt(p, CGeoVector(0.0, 0.0, 0.0));
}

CKivMeshQuery::eTriHitMesh CKivMeshQuery::HitTestTri(const CKivPoint3d& a, const CKivPoint3d& b,
                                                     const CKivPoint3d& c) const
{
    CGeoVector n(0.0, 0.0, 1.0);
    CKivPoint3d q;
    if (!CKivSpaceMath::PlaneFromPoints(a, b, c, n, q)) {
        return eHitNone;
    }
    const CKivPoint3d g((a.x + b.x + c.x) * kThird, (a.y + b.y + c.y) * kThird, (a.z + b.z + c.z) * kThird);
    return HitTestPt(g, n);
}

CKivMeshQuery::eTriHitMesh CKivMeshQuery::HitTestPt(const CKivPoint3d& p, const CGeoVector& dir) const
{
    if (!HasSearch()) {
        return eHitNone;
    }
    return CastProbes(p, dir, m_pMesh->m_vecTri.size() / 2, nullptr, DBL_MAX);
}

CKivMeshQuery::eTriHitMesh CKivMeshQuery::CastProbes(const CKivPoint3d& p, const CGeoVector& dir, std::size_t k,
                                                     const _sTri* nearest, double nearestDist2) const
{
    const std::vector<_sTri*>& tris = m_pMesh->m_vecTri;
    const std::size_t n = tris.size();
    std::vector<_sTri*> cand;
    cand.reserve(256);
    for (; k < n; ++k) {
        const _sTri* target = tris[k];
        if (!target) {
            continue;
        }
        const CKivPoint3d c = Centroid(*target);
        const CGeoVector r(c - p);
        FindTriBySeg(p, c, cand);
        if (cand.empty()) {
            continue;
        }
        nearest = nullptr;
        nearestDist2 = DBL_MAX;
        bool inPlane = false;
        for (std::size_t i = 0; i < cand.size(); ++i) {
            // The candidates are scattered in memory: fetch a few ahead.
            if (i + 8 < cand.size()) {
                __builtin_prefetch(cand[i + 8]);
            }
            if (i + 4 < cand.size()) {
                for (const _sVertex* v : cand[i + 4]->pVt) {
                    __builtin_prefetch(v);
                }
            }
            const _sTri* t = cand[i];
            CKivPoint3d hit;
            const int res =
                SpaceMathInline::HitTriangle(p, r, t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt, hit, false, false);
            if (res == 2) {
                inPlane = true; // the ray grazes a plane: try the next target
                break;
            }
            if (res != 1) {
                continue;
            }
            const double d2 = p.Dist2(hit);
            if (CompDouble(d2, 0.0) == 0) {
                nearest = t;
                nearestDist2 = 0.0;
                break;
            }
            if (d2 < nearestDist2) {
                nearest = t;
                nearestDist2 = d2;
            }
        }
        if (!inPlane) {
            break;
        }
    }
    if (!nearest) {
        return eHitNone;
    }
    CGeoVector normal(0.0, 0.0, 1.0);
    CKivPoint3d q;
    CKivSpaceMath::PlaneFromPoints(nearest->pVt[0]->pt, nearest->pVt[1]->pt, nearest->pVt[2]->pt, normal, q);
    if (CompDouble(nearestDist2, 0.0) != 0) {
        return CKivSpaceMath::PointToPlane(p, q, normal) > 0 ? eHitOutside : eHitInside;
    }
    return CompDouble(normal * dir, 0.0) > 0 ? eHitOnSame : eHitOnOpposite;
}

CKivMeshQuery::eTriHitMesh CKivMeshQuery::HitTestPt_New(const CKivPoint3d& p, const CGeoVector& dir) const
{
    if (!HasSearch()) {
        return eHitNone;
    }
    const std::vector<_sTri*>& tris = m_pMesh->m_vecTri;
    const std::size_t n = tris.size();

    // Sample indices: {0, n - 1} refined by midpoints, more passes for
    // larger meshes.
    const int passes = n <= 100 ? 1 : (n <= 1000 ? 2 : (n <= 10000 ? 3 : 4));
    std::vector<std::size_t> samples{0, n - 1};
    for (int pass = 0; pass < passes; ++pass) {
        std::vector<std::size_t> finer;
        finer.reserve(samples.size() * 2);
        for (std::size_t i = 0; i + 1 < samples.size(); ++i) {
            finer.push_back(samples[i]);
            finer.push_back((samples[i] + samples[i + 1]) / 2);
        }
        finer.push_back(samples.back());
        samples.swap(finer);
    }
    samples.erase(std::unique(samples.begin(), samples.end()), samples.end());

    // The sample triangle nearest to p (first of equal distances).
    std::size_t best = n;
    double bestDist = DBL_MAX;
    for (const std::size_t i : samples) {
        const _sTri* t = tris[i];
        if (!t) {
            continue;
        }
        const double d = CKivSpaceMath::CalDistPtToTri(p, t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
        if (d >= 0.0 && d < bestDist) {
            bestDist = d;
            best = i;
        }
    }
    if (best == n) {
        return CastProbes(p, dir, n / 2, nullptr, DBL_MAX);
    }

    // Triangles around the way from p to that sample: the box over p, its
    // centroid and two points beside the centroid, a quarter of the plan
    // distance off to either side.
    const CKivPoint3d c = Centroid(*tris[best]);
    const double px = -(c.y - p.y) * 0.25, py = (c.x - p.x) * 0.25;
    const CKivPoint3d probe[4] = {p, c, CKivPoint3d(c.x + px, c.y + py, c.z),
                                  CKivPoint3d(c.x - px, c.y - py, c.z)};
    double lo[3] = {p.x, p.y, p.z}, hi[3] = {p.x, p.y, p.z};
    for (const CKivPoint3d& q : probe) {
        const double v[3] = {q.x, q.y, q.z};
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], v[a]);
            hi[a] = std::max(hi[a], v[a]);
        }
    }
    std::vector<const CKivOctNode*> nodes;
    m_pMesh->m_pOctTree->QueryBox(lo[0], lo[1], lo[2], hi[0], hi[1], hi[2], nodes);

    // The nearest of them, equal distances (by CompDouble) kept together.
    std::vector<const _sTri*> nearest;
    double nearDist = DBL_MAX;
    for (const CKivOctNode* node : nodes) {
        for (auto it = node->m_vecTri.rbegin(); it != node->m_vecTri.rend(); ++it) {
            const _sTri* t = *it;
            const double d = CKivSpaceMath::CalDistPtToTri(p, t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
            if (d < 0.0) {
                continue; // no plane
            }
            const int cmp = nearest.empty() ? -1 : CompDouble(d, nearDist);
            if (cmp < 0) {
                nearest.assign(1, t);
                nearDist = d;
            } else if (cmp == 0) {
                nearest.push_back(t);
            }
        }
    }
    // One nearest triangle, on the surface or not, or several equally near:
    // the probing from the sample on decides in every case.
    if (nearest.empty()) {
        return CastProbes(p, dir, best, nullptr, DBL_MAX);
    }
    return CastProbes(p, dir, best, nearest.front(), nearDist);
}

} // namespace TriMesh
