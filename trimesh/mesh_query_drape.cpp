// CKivMeshQuery: triangles along a segment, draping plan lines onto the
// surface, triangles inside a plan polygon.
#include <kivgeo/mesh_query.h>

#include <kivgeo/planar.h>
#include <kivgeo/spacemath.h>

#include "trimesh/oct_tree.h"
#include "trimesh/plan_index.h"
#include "trimesh/seg_dedup.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>

namespace TriMesh {

namespace {

constexpr double kThird = 0.3333333333333333;
// A segment longer than this share of the mesh diagonal is searched as 16
// pieces, so that one huge box does not collect the whole mesh.
constexpr double kLongSegRatio = 8.0;

// Appends the triangles of the nodes under n that meet, together with all
// their ancestors, one of the boxes whose bit is set in live; counts the
// nodes visited.
void CollectAlong(const CKivOctNode& n, const CKivOctBox* boxes, unsigned live, std::vector<_sTri*>& out,
                  std::size_t& visits)
{
    ++visits;
    if (n.m_nSubTri == 0) {
        return;
    }
    unsigned meet = 0;
    for (unsigned rest = live; rest; rest &= rest - 1u) {
        const unsigned i = static_cast<unsigned>(__builtin_ctz(rest));
        // The subtree hull holds the box of every node below that stores
        // triangles: a box that misses it has nothing to report here.
        if (n.m_box.Overlaps(boxes[i]) && n.m_boxSub.Overlaps(boxes[i])) {
            meet |= 1u << i;
        }
    }
    if (!meet) {
        return;
    }
    out.insert(out.end(), n.m_vecTri.begin(), n.m_vecTri.end());
    if (n.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            CollectAlong(n.m_pChild[i], boxes, meet, out, visits);
        }
    }
}

} // namespace

void CKivMeshQuery::FindTriByShortSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<_sTri*>& out) const
{
    if (!HasSearch()) {
        return;
    }
    std::vector<const CKivOctNode*> nodes;
    m_pMesh->m_pOctTree->QueryBox(std::min(p1.x, p2.x), std::min(p1.y, p2.y), std::min(p1.z, p2.z),
                                  std::max(p1.x, p2.x), std::max(p1.y, p2.y), std::max(p1.z, p2.z), nodes);
    for (const CKivOctNode* n : nodes) {
        out.insert(out.end(), n->m_vecTri.rbegin(), n->m_vecTri.rend());
    }
}

void CKivMeshQuery::FindTriBySeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<_sTri*>& out) const
{
    out.clear();
    if (!HasSearch()) {
        return;
    }
    const double len = p1.Distance(p2);
    const double diag = m_pMesh->m_ptMin.Distance(m_pMesh->m_ptMax);
    // The end points, or 17 points from four passes of inserting midpoints
    // between neighbours (filled in place, the same values in the same
    // order of operations).
    CKivPoint3d pts[17];
    std::size_t nPts = 2;
    pts[0] = p1;
    pts[1] = p2;
    if (diag / len < kLongSegRatio) {
        pts[16] = p2;
        for (std::size_t step = 8; step > 0; step /= 2) {
            for (std::size_t i = step; i < 16; i += 2 * step) {
                pts[i] = (pts[i - step] + pts[i + step]) * 0.5;
            }
        }
        nPts = 17;
    }
    // One walk of the tree for all pieces: a node is reported when it and
    // all its ancestors meet one piece's box, exactly as when each piece's
    // box is queried on its own (FindTriByShortSeg), but each node is
    // visited once.
    CKivOctBox boxes[16];
    const std::size_t nBox = nPts - 1;
    for (std::size_t i = 0; i < nBox; ++i) {
        const CKivPoint3d &a = pts[i], &b = pts[i + 1];
        boxes[i] = CKivOctBox{{std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)},
                              {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)}};
    }
    const unsigned all = (1u << nBox) - 1u;
    if (const CKivPlanIndex* grid = PlanIndex(0)) {
        grid->CollectAlong(boxes, all, out);
    } else {
        std::size_t work = 0;
        CollectAlong(*m_pMesh->m_pOctTree->Root(), boxes, all, out, work);
        PlanIndex(work + out.size());
    }
    std::sort(out.begin(), out.end(), std::less<_sTri*>());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}

void CKivMeshQuery::GetMapLineSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<CKivSeg3d>& out) const
{
    CKivSegDedup seen(out);
    GetMapLineSeg(p1, p2, out, seen);
}

void CKivMeshQuery::GetMapLineSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<CKivSeg3d>& out,
                                  CKivSegDedup& seen) const
{
    if (!HasSearch()) {
        return;
    }
    const double x0 = std::min(p1.x, p2.x), y0 = std::min(p1.y, p2.y);
    const double x1 = std::max(p1.x, p2.x), y1 = std::max(p1.y, p2.y);
    const auto drape = [&](const _sTri* t) {
        CKivPoint3d q1, q2;
        if (!CKivSpaceMath::Test_Intersect_MapSeg_And_Tri_3D(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt, p1, p2,
                                                             q1, q2) ||
            q1 == q2 || seen.Contains(q1, q2)) {
            return;
        }
        out.emplace_back(q1, q2);
        seen.Added();
    };
    const CKivPlanIndex* grid = PlanIndex(0);
    if (grid && grid->HasOctreeOrder()) {
        // The triangles the column query would report that give a piece,
        // put into the order it would report them: the same pieces, and the
        // same survivors of the de-duplication.
        const CKivOctNode* root = m_pMesh->m_pOctTree->Root();
        const CKivOctBox column{{x0, y0, root->m_box.dMin[2]}, {x1, y1, root->m_box.dMax[2]}};
        std::vector<_sTri*> cand;
        grid->CandidatesInBox(m_pMesh->m_vecTri, x0, y0, x1, y1, cand);
        struct SPiece {
            std::uint64_t key;
            CKivPoint3d q1, q2;
        };
        std::vector<SPiece> pieces;
        for (const _sTri* t : cand) {
            CKivPoint3d q1, q2;
            if (grid->ReportedBy(t, column) &&
                CKivSpaceMath::Test_Intersect_MapSeg_And_Tri_3D(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt, p1,
                                                                p2, q1, q2) &&
                !(q1 == q2)) {
                pieces.push_back(SPiece{grid->OrderKey(t), q1, q2});
            }
        }
        std::sort(pieces.begin(), pieces.end(), [](const SPiece& a, const SPiece& b) { return a.key < b.key; });
        for (const SPiece& pc : pieces) {
            if (!seen.Contains(pc.q1, pc.q2)) {
                out.emplace_back(pc.q1, pc.q2);
                seen.Added();
            }
        }
        return;
    }
    std::vector<const CKivOctNode*> nodes;
    m_pMesh->m_pOctTree->QueryBox2D(x0, y0, x1, y1, nodes);
    std::size_t work = nodes.size();
    for (const CKivOctNode* n : nodes) {
        for (auto it = n->m_vecTri.rbegin(); it != n->m_vecTri.rend(); ++it) {
            drape(*it);
        }
        work += n->m_vecTri.size();
    }
    PlanIndex(work);
}

bool CKivMeshQuery::GetMapPolyline(const std::vector<CKivPoint3d>& points, bool closed,
                                   std::vector<CKivSeg3d>& out) const
{
    const std::size_t n = points.size();
    if (n < 2) {
        return false;
    }
    out.clear();
    CKivSegDedup seen(out);
    const std::size_t edges = closed ? n : n - 1;
    for (std::size_t i = 0; i < edges; ++i) {
        GetMapLineSeg(points[i], points[(i + 1) % n], out, seen);
    }
    return true;
}

bool CKivMeshQuery::GetMapPolyline(const std::vector<CKivPoint3d>& points, bool closed,
                                   std::vector<CKivPolyLine>& out) const
{
    std::vector<CKivSeg3d> segs;
    if (!GetMapPolyline(points, closed, segs)) {
        return false;
    }
    out.clear();
    if (CKivSeg3d::LinkSeg(segs, out)) {
        return true;
    }
    out.clear();
    return false;
}

bool CKivMeshQuery::GetTrisInMapPolygon(const std::vector<CKivPoint3d>& polygon, std::vector<_sTri*>& out) const
{
    if (polygon.size() < 3) {
        return false;
    }
    out.clear();
    double x0 = polygon[0].x, x1 = x0, y0 = polygon[0].y, y1 = y0;
    for (const CKivPoint3d& p : polygon) {
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    if (!HasSearch()) {
        return false;
    }
    std::vector<const CKivOctNode*> nodes;
    m_pMesh->m_pOctTree->QueryBox2D(x0 - 1e-6, y0 - 1e-6, x1 + 1e-6, y1 + 1e-6, nodes);
    if (nodes.empty()) {
        return false;
    }
    for (const CKivOctNode* n : nodes) {
        for (auto it = n->m_vecTri.rbegin(); it != n->m_vecTri.rend(); ++it) {
            const _sTri* t = *it;
            const CKivPoint3d g((t->pVt[0]->pt.x + t->pVt[1]->pt.x + t->pVt[2]->pt.x) * kThird,
                                (t->pVt[0]->pt.y + t->pVt[1]->pt.y + t->pVt[2]->pt.y) * kThird, 0.0);
            if (IsPtInPolygon(polygon, g) == 1) {
                out.push_back(*it);
            }
        }
    }
    return true;
}

bool CKivMeshQuery::GetTrisInMapPolygon(const std::vector<CKivPoint3d>& polygon, std::vector<CKivTri3d>& out) const
{
    std::vector<_sTri*> tris;
    GetTrisInMapPolygon(polygon, tris);
    out.resize(tris.size());
    for (std::size_t i = 0; i < tris.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            out[i].m_pt[k] = tris[i]->pVt[k]->pt;
        }
    }
    return true;
}

} // namespace TriMesh
