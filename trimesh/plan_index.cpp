#include "trimesh/plan_index.h"

#include "trimesh/oct_tree.h"

#include <algorithm>
#include <cmath>

namespace TriMesh {

namespace {

// A triangle whose widened box covers more cells than this goes to the list
// every query reports instead of into the cells.
constexpr std::size_t kMaxCellsPerTri = 256;
// Cells per indexed triangle, and the most cells a grid may have.
constexpr double kCellsPerTri = 0.5;
constexpr std::size_t kMaxCells = std::size_t(1) << 24;

struct SPlanBox {
    double x0, x1, y0, y1;
    _sTri* t;
};

} // namespace

CKivPlanIndex::CKivPlanIndex(const std::vector<_sTri*>& tris, const CKivOctTree& tree)
{
    m_vecStart.assign(2, 0);
    const CKivOctNode* root = tree.Root();
    if (!root) {
        return;
    }
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
        const double margin = 1e-5 * span + 1e-12 * mag;
        const SPlanBox pb{b.dMin[0] - margin, b.dMax[0] + margin, b.dMin[1] - margin, b.dMax[1] + margin, t};
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
    // Square cells where the shape allows, about one per two triangles.
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
                ++count[k + j * m_nX];
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
                m_vecEntry[count[k + j * m_nX]++] = pb.t;
            }
        }
    }
}

} // namespace TriMesh
