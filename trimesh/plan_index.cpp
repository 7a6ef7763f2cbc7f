#include "trimesh/plan_index.h"

#include "trimesh/oct_tree.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

namespace TriMesh {

namespace {

// A triangle whose widened box covers more cells than this goes to the list
// every query reports instead of into the cells.
constexpr std::size_t kMaxCellsPerTri = 256;
// Cells per indexed triangle, and the most cells a grid may have.
constexpr double kCellsPerTri = 1.0;
constexpr std::size_t kMaxCells = std::size_t(1) << 24;

struct SPlanBox {
    double x0, x1, y0, y1;
    double margin;
    _sTri* t;
};

// Whether the triangle's plan footprint, grown by margin, may meet the box
// (cx0, cy0)-(cx1, cy1): a separating-axis test on its three edge normals
// (the box axes are settled by the cell range already). Degenerate edges
// separate nothing, so a degenerate triangle meets every cell of its box.
bool FootprintMeets(const _sTri& t, double margin, double cx0, double cy0, double cx1, double cy1)
{
    const double mx = 0.5 * (cx0 + cx1), my = 0.5 * (cy0 + cy1), hx = 0.5 * (cx1 - cx0), hy = 0.5 * (cy1 - cy0);
    for (int e = 0; e < 3; ++e) {
        const CKivPoint3d& p = t.pVt[e]->pt;
        const CKivPoint3d& q = t.pVt[(e + 1) % 3]->pt;
        const CKivPoint3d& r = t.pVt[(e + 2) % 3]->pt;
        const double nx = p.y - q.y, ny = q.x - p.x;
        const double a = nx * (p.x - mx) + ny * (p.y - my), b = nx * (r.x - mx) + ny * (r.y - my);
        const double reach = hx * std::fabs(nx) + hy * std::fabs(ny) + margin * std::sqrt(nx * nx + ny * ny);
        if (std::min(a, b) > reach || std::max(a, b) < -reach) {
            return false;
        }
    }
    return true;
}

} // namespace

CKivPlanIndex::CKivPlanIndex(const std::vector<_sTri*>& tris, const CKivOctTree& tree)
{
    m_vecStart.assign(2, 0);
    const CKivOctNode* root = tree.Root();
    if (!root) {
        return;
    }
    RecordOctreeOrder(tris, *root);
    std::vector<SPlanBox> boxes;
    boxes.reserve(tris.size());
    double gx0 = HUGE_VAL, gx1 = -HUGE_VAL, gy0 = HUGE_VAL, gy1 = -HUGE_VAL;
    for (_sTri* t : tris) {
        if (!t) {
            continue;
        }
        const CKivOctBox b = CKivOctBox::OfTri(*t);
        if (!root->m_box.Contains(b)) {
            continue; // not in the octree, so never a candidate there either
        }
        // The line test accepts hits up to a barycentric slack of 1e-6 outside
        // the triangle; in plan that is within 1e-6 times the sum of two edge
        // spans. Ten times that, plus a few ulps of the coordinates for the
        // rounding of the hit point, bounds every accepted hit.
        const double span = (b.dMax[0] - b.dMin[0]) + (b.dMax[1] - b.dMin[1]) + (b.dMax[2] - b.dMin[2]);
        const double mag =
            std::fabs(b.dMin[0]) + std::fabs(b.dMax[0]) + std::fabs(b.dMin[1]) + std::fabs(b.dMax[1]);
        double margin = 1e-5 * span + 1e-12 * mag;
        // Steep triangles are draped by cutting them against a wall, with
        // that test's absolute tolerances: widen their boxes by more.
        const CGeoVector n = CGeoVector(t->pVt[1]->pt - t->pVt[0]->pt) ^ CGeoVector(t->pVt[2]->pt - t->pVt[0]->pt);
        if (!(n.z * n.z >= 1e-6 * n.Length2())) {
            margin += 1e-5;
        }
        const SPlanBox pb{
            b.dMin[0] - margin, b.dMax[0] + margin, b.dMin[1] - margin, b.dMax[1] + margin, margin, t};
        if (!(std::isfinite(pb.x0) && std::isfinite(pb.x1) && std::isfinite(pb.y0) && std::isfinite(pb.y1))) {
            m_vecWide.push_back(t);
            continue;
        }
        boxes.push_back(pb);
        gx0 = std::min(gx0, pb.x0), gx1 = std::max(gx1, pb.x1);
        gy0 = std::min(gy0, pb.y0), gy1 = std::max(gy1, pb.y1);
    }
    const double w = gx1 - gx0, h = gy1 - gy0;
    if (boxes.empty() || !std::isfinite(w) || !std::isfinite(h)) {
        for (const SPlanBox& pb : boxes) {
            m_vecWide.push_back(pb.t);
        }
        return;
    }
    // Square cells where the shape allows, about one per triangle.
    const double target =
        std::min(static_cast<double>(kMaxCells), std::max(1.0, kCellsPerTri * static_cast<double>(boxes.size())));
    double nx = 1.0, ny = 1.0;
    if (w > 0.0 && h > 0.0) {
        nx = std::max(1.0, std::min(target, std::round(std::sqrt(target * w / h))));
        ny = std::max(1.0, std::min(target, std::round(target / nx)));
    } else if (w > 0.0) {
        nx = target;
    } else if (h > 0.0) {
        ny = target;
    }
    m_nX = static_cast<std::size_t>(nx);
    m_nY = static_cast<std::size_t>(ny);
    m_dX0 = gx0, m_dX1 = gx1, m_dY0 = gy0, m_dY1 = gy1;
    m_dInvX = w > 0.0 ? nx / w : 0.0;
    m_dInvY = h > 0.0 ? ny / h : 0.0;

    // A cell holds the triangles whose grown footprint meets it, not all
    // whose box does: about half as many candidates per query. The cell is
    // taken 1 % larger than it is, so that the rounding of CellX() and
    // CellY() never puts a point into a cell that misses its triangle.
    const double cw = w > 0.0 ? w / nx : 0.0, ch = h > 0.0 ? h / ny : 0.0;
    const auto Meets = [&](const SPlanBox& pb, std::size_t k, std::size_t j) {
        if (m_nX * m_nY == 1) {
            return true;
        }
        const double cx0 = gx0 + (static_cast<double>(k) - 0.01) * cw,
                     cx1 = gx0 + (static_cast<double>(k) + 1.01) * cw;
        const double cy0 = gy0 + (static_cast<double>(j) - 0.01) * ch,
                     cy1 = gy0 + (static_cast<double>(j) + 1.01) * ch;
        return FootprintMeets(*pb.t, pb.margin, cx0, cy0, cx1, cy1);
    };

    // Two passes: count per cell, then fill (entries stay in mesh order).
    const std::size_t cells = m_nX * m_nY;
    std::vector<std::uint32_t> count(cells + 1, 0);
    std::vector<char> wide(boxes.size(), 0);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const SPlanBox& pb = boxes[i];
        const std::size_t i0 = CellX(pb.x0), i1 = CellX(pb.x1), j0 = CellY(pb.y0), j1 = CellY(pb.y1);
        if ((i1 - i0 + 1) * (j1 - j0 + 1) > kMaxCellsPerTri) {
            wide[i] = 1;
            m_vecWide.push_back(pb.t);
            continue;
        }
        for (std::size_t j = j0; j <= j1; ++j) {
            for (std::size_t k = i0; k <= i1; ++k) {
                count[k + j * m_nX] += Meets(pb, k, j);
            }
        }
    }
    m_vecStart.assign(cells + 1, 0);
    for (std::size_t c = 0; c < cells; ++c) {
        m_vecStart[c + 1] = m_vecStart[c] + count[c];
    }
    m_vecEntry.resize(m_vecStart[cells]);
    std::copy(m_vecStart.begin(), m_vecStart.end() - 1, count.begin());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (wide[i]) {
            continue;
        }
        const SPlanBox& pb = boxes[i];
        const std::size_t i0 = CellX(pb.x0), i1 = CellX(pb.x1), j0 = CellY(pb.y0), j1 = CellY(pb.y1);
        for (std::size_t j = j0; j <= j1; ++j) {
            for (std::size_t k = i0; k <= i1; ++k) {
                if (Meets(pb, k, j)) {
                    m_vecEntry[count[k + j * m_nX]++] = pb.t;
                }
            }
        }
    }
}

void CKivPlanIndex::RecordOctreeOrder(const std::vector<_sTri*>& tris, const CKivOctNode& root)
{
    m_vecTriNode.assign(tris.size(), 0);
    m_vecTriPos.assign(tris.size(), 0);
    m_bOrdered = true;
    // Depth first, each node before its children, as the queries walk.
    std::vector<std::pair<const CKivOctNode*, std::int32_t>> stack{{&root, -1}};
    while (!stack.empty()) {
        const CKivOctNode* n = stack.back().first;
        const std::int32_t parent = stack.back().second;
        stack.pop_back();
        if (n->m_nSubTri == 0) {
            continue;
        }
        const std::int32_t id = static_cast<std::int32_t>(m_vecNode.size());
        m_vecNode.push_back(SNode{n, parent});
        for (std::size_t k = 0; k < n->m_vecTri.size(); ++k) {
            const _sTri* t = n->m_vecTri[k];
            const std::size_t slot = static_cast<std::size_t>(t->nPos);
            if (t->nPos < 0 || slot >= tris.size() || tris[slot] != t) {
                m_bOrdered = false;
                continue;
            }
            m_vecTriNode[slot] = static_cast<std::uint32_t>(id);
            m_vecTriPos[slot] = static_cast<std::uint32_t>(k);
        }
        if (n->m_pChild) {
            for (int i = 8; i-- > 0;) {
                stack.emplace_back(&n->m_pChild[i], id);
            }
        }
    }
}

bool CKivPlanIndex::ReportedBy(const _sTri* t, const CKivOctBox& q) const
{
    for (std::int32_t id = static_cast<std::int32_t>(m_vecTriNode[static_cast<std::size_t>(t->nPos)]); id >= 0;
         id = m_vecNode[static_cast<std::size_t>(id)].nParent) {
        if (!m_vecNode[static_cast<std::size_t>(id)].pNode->m_box.Overlaps(q)) {
            return false;
        }
    }
    return true;
}

void CKivPlanIndex::CandidatesInBox(double x0, double y0, double x1, double y1, std::vector<_sTri*>& out) const
{
    out.assign(m_vecWide.begin(), m_vecWide.end());
    if (m_dX1 >= m_dX0 && x1 >= m_dX0 && x0 <= m_dX1 && y1 >= m_dY0 && y0 <= m_dY1) {
        const std::size_t i0 = CellX(x0), i1 = CellX(x1), j0 = CellY(y0), j1 = CellY(y1);
        for (std::size_t j = j0; j <= j1; ++j) {
            for (std::size_t i = i0; i <= i1; ++i) {
                const std::size_t c = i + j * m_nX;
                out.insert(out.end(), m_vecEntry.begin() + m_vecStart[c], m_vecEntry.begin() + m_vecStart[c + 1]);
            }
        }
    }
    std::sort(out.begin(), out.end(), std::less<_sTri*>());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}

} // namespace TriMesh
