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

// A triangle's plan box grown by a margin. The line test accepts hits up
// to a barycentric slack of 1e-6 outside the triangle; in plan that is
// within 1e-6 times the sum of two edge spans. Ten times that, plus a few
// ulps of the coordinates for the rounding of the hit point, bounds every
// accepted hit. Steep triangles are draped by cutting them against a wall,
// with that test's absolute tolerances: their boxes grow by more.
struct SPlanBox {
    double x0, x1, y0, y1, margin;

    SPlanBox(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
    {
        const double bx0 = std::min(a.x, std::min(b.x, c.x)), bx1 = std::max(a.x, std::max(b.x, c.x));
        const double by0 = std::min(a.y, std::min(b.y, c.y)), by1 = std::max(a.y, std::max(b.y, c.y));
        const double bz0 = std::min(a.z, std::min(b.z, c.z)), bz1 = std::max(a.z, std::max(b.z, c.z));
        const double span = (bx1 - bx0) + (by1 - by0) + (bz1 - bz0);
        const double mag = std::fabs(bx0) + std::fabs(bx1) + std::fabs(by0) + std::fabs(by1);
        margin = 1e-5 * span + 1e-12 * mag;
        const CGeoVector n = CGeoVector(b - a) ^ CGeoVector(c - a);
        if (!(n.z * n.z >= 1e-6 * n.Length2())) {
            margin += 1e-5;
        }
        x0 = bx0 - margin, x1 = bx1 + margin, y0 = by0 - margin, y1 = by1 + margin;
    }
    bool IsFinite() const
    {
        return std::isfinite(x0) && std::isfinite(x1) && std::isfinite(y0) && std::isfinite(y1);
    }
};

// The triangle's plan footprint, grown by a margin, for separating-axis
// tests against cells (the cell range settles the box axes): per edge its
// normal and the footprint's extent along it, relative to an origin near
// the grid so that far-off coordinates keep their precision. A degenerate
// edge separates nothing, so a degenerate triangle meets every cell of its
// box.
struct SFootprint {
    double nx[3], ny[3], lo[3], hi[3];

    SFootprint(const CKivPoint3d* pt, double margin, double ox, double oy)
    {
        for (int e = 0; e < 3; ++e) {
            const CKivPoint3d& p = pt[e];
            const CKivPoint3d& q = pt[(e + 1) % 3];
            const CKivPoint3d& r = pt[(e + 2) % 3];
            nx[e] = p.y - q.y, ny[e] = q.x - p.x;
            const double a = nx[e] * (p.x - ox) + ny[e] * (p.y - oy), b = nx[e] * (r.x - ox) + ny[e] * (r.y - oy);
            const double grow = margin * std::sqrt(nx[e] * nx[e] + ny[e] * ny[e]);
            lo[e] = std::min(a, b) - grow;
            hi[e] = std::max(a, b) + grow;
        }
    }
    // The cell with centre (mx, my) and half sizes hx, hy, relative to the
    // same origin.
    bool Meets(double mx, double my, double hx, double hy) const
    {
        for (int e = 0; e < 3; ++e) {
            const double c = nx[e] * mx + ny[e] * my, reach = hx * std::fabs(nx[e]) + hy * std::fabs(ny[e]);
            if (c + reach < lo[e] || c - reach > hi[e]) {
                return false;
            }
        }
        return true;
    }
};

} // namespace

CKivPlanIndex::CKivPlanIndex(const std::vector<_sTri*>& tris, const CKivOctTree& tree)
{
    const CKivOctNode* root = tree.Root();
    if (!root) {
        return;
    }
    RecordOctreeOrder(tris, *root);

    // The triangles to grid, each with the centre of its box (the key of
    // the sort below, so single precision does), and the grid's extent. The
    // triangles and their corners are scattered in memory: fetch them a few
    // steps ahead.
    struct SHome {
        float x, y;
        std::uint32_t slot;
        _sTri* t;
    };
    CKivBigArray<SHome> homes;
    homes.reserve(tris.size());
    double gx0 = HUGE_VAL, gx1 = -HUGE_VAL, gy0 = HUGE_VAL, gy1 = -HUGE_VAL;
    for (std::size_t i = 0; i < tris.size(); ++i) {
        if (i + 16 < tris.size()) {
            __builtin_prefetch(tris[i + 16]);
        }
        if (i + 8 < tris.size() && tris[i + 8]) {
            for (const _sVertex* v : tris[i + 8]->pVt) {
                __builtin_prefetch(v);
            }
        }
        _sTri* t = tris[i];
        if (!t) {
            continue;
        }
        if (!root->m_box.Contains(CKivOctBox::OfTri(*t))) {
            continue; // not in the octree, so never a candidate there either
        }
        const SPlanBox pb(t->pVt[0]->pt, t->pVt[1]->pt, t->pVt[2]->pt);
        if (!pb.IsFinite()) {
            m_vecWide.push_back(t);
            continue;
        }
        homes.push_back(SHome{static_cast<float>(0.5 * pb.x0 + 0.5 * pb.x1),
                              static_cast<float>(0.5 * pb.y0 + 0.5 * pb.y1), static_cast<std::uint32_t>(i), t});
        gx0 = std::min(gx0, pb.x0), gx1 = std::max(gx1, pb.x1);
        gy0 = std::min(gy0, pb.y0), gy1 = std::max(gy1, pb.y1);
    }
    const double w = gx1 - gx0, h = gy1 - gy0;
    // Triangle numbers are 32-bit.
    if (homes.empty() || !std::isfinite(w) || !std::isfinite(h) || homes.size() >= (std::size_t(1) << 30)) {
        for (const SHome& e : homes) {
            m_vecWide.push_back(e.t);
        }
        return;
    }
    // Square cells where the shape allows, about one per triangle.
    const double target =
        std::min(static_cast<double>(kMaxCells), std::max(1.0, kCellsPerTri * static_cast<double>(homes.size())));
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
    const std::size_t cells = m_nX * m_nY;

    // Into the order of the blocks of 8 x 8 cells that hold their centres
    // (a counting sort, mesh order within a block), so that neighbours in
    // plan are neighbours in memory. Blocks rather than cells keep the
    // sort's counters in cache.
    const std::size_t n = homes.size();
    {
        const std::size_t bx = (m_nX + 7) / 8, blocks = bx * ((m_nY + 7) / 8);
        const auto Home = [&](const SHome& e) {
            return CellX(static_cast<double>(e.x)) / 8 + CellY(static_cast<double>(e.y)) / 8 * bx;
        };
        std::vector<std::uint32_t> count(blocks + 1, 0);
        for (const SHome& e : homes) {
            ++count[Home(e) + 1];
        }
        for (std::size_t c = 0; c < blocks; ++c) {
            count[c + 1] += count[c];
        }
        CKivBigArray<SHome> sorted(n);
        for (const SHome& e : homes) {
            sorted[count[Home(e)]++] = e;
        }
        homes.swap(sorted);
    }

    // The corners' positions, in that order.
    m_vecSlot.resize(n);
    m_vecTriPt.resize(n);
    for (std::size_t r = 0; r < n; ++r) {
        if (r + 8 < n) {
            __builtin_prefetch(homes[r + 8].t);
        }
        if (r + 4 < n) {
            for (const _sVertex* v : homes[r + 4].t->pVt) {
                __builtin_prefetch(v);
            }
        }
        const _sTri* t = homes[r].t;
        m_vecSlot[r] = homes[r].slot;
        for (int k = 0; k < 3; ++k) {
            m_vecTriPt[r].p[k] = t->pVt[k]->pt;
        }
    }
    CKivBigArray<SHome>().swap(homes);

    // A cell holds the triangles whose grown footprint meets it, not all
    // whose box does: about half as many candidates per query. The cell is
    // taken 1 % larger than it is, so that the rounding of CellX() and
    // CellY() never puts a point into a cell that misses its triangle. A
    // triangle whose box covers too many cells goes to the list every query
    // reports instead.
    const double cw = w > 0.0 ? w / nx : 0.0, ch = h > 0.0 ? h / ny : 0.0;
    CKivBigArray<char> wide(n, 0);
    const auto ForCells = [&](std::size_t r, auto&& f) {
        if (wide[r]) {
            return;
        }
        const CKivPoint3d* const pt = m_vecTriPt[r].p;
        const SPlanBox pb(pt[0], pt[1], pt[2]);
        const std::size_t i0 = CellX(pb.x0), i1 = CellX(pb.x1), j0 = CellY(pb.y0), j1 = CellY(pb.y1);
        if (i0 == i1 && j0 == j1) {
            f(i0 + j0 * m_nX); // the only cell its box meets
            return;
        }
        if ((i1 - i0 + 1) * (j1 - j0 + 1) > kMaxCellsPerTri) {
            wide[r] = 1;
            m_vecWide.push_back(tris[m_vecSlot[r]]);
            return;
        }
        const SFootprint foot(pt, pb.margin, gx0, gy0);
        const double hx = 0.51 * cw, hy = 0.51 * ch;
        for (std::size_t j = j0; j <= j1; ++j) {
            const double my = (static_cast<double>(j) + 0.5) * ch;
            for (std::size_t k = i0; k <= i1; ++k) {
                if (foot.Meets((static_cast<double>(k) + 0.5) * cw, my, hx, hy)) {
                    f(k + j * m_nX);
                }
            }
        }
    };

    // Two passes: count per cell, then fill.
    CKivBigArray<std::uint32_t> count(cells, 0);
    for (std::size_t r = 0; r < n; ++r) {
        ForCells(r, [&](std::size_t c) { ++count[c]; });
    }
    SCell empty;
    std::fill(std::begin(empty.e), std::end(empty.e), kNone);
    m_vecCell.assign(cells, empty);
    std::size_t spill = 0;
    m_nEntries = 0;
    for (std::size_t c = 0; c < cells; ++c) {
        m_nEntries += count[c];
        if (count[c] > 8) {
            m_vecCell[c].e[0] = kSpilled;
            m_vecCell[c].e[1] = static_cast<std::uint32_t>(spill);
            m_vecCell[c].e[2] = count[c];
            spill += count[c];
        }
        count[c] = 0; // now the number filled in
    }
    m_vecSpill.resize(spill);
    for (std::size_t r = 0; r < n; ++r) {
        ForCells(r, [&](std::size_t c) {
            SCell& rec = m_vecCell[c];
            if (rec.e[0] == kSpilled) {
                m_vecSpill[rec.e[1] + count[c]++] = static_cast<std::uint32_t>(r);
            } else {
                rec.e[count[c]++] = static_cast<std::uint32_t>(r);
            }
        });
    }
}

void CKivPlanIndex::RecordOctreeOrder(const std::vector<_sTri*>& tris, const CKivOctNode& root)
{
    m_vecTriNode.assign(tris.size(), 0);
    m_vecTriPos.assign(tris.size(), 0);
    m_bOrdered = true;
    // Depth first, each node before its children, as the queries walk;
    // nodes without triangles below them are left out, as the walks skip
    // them.
    struct SVisit {
        const CKivOctNode* n;
        std::int32_t parent;
        std::int32_t depth;
    };
    std::vector<SVisit> stack{{&root, -1, 0}};
    std::vector<std::uint32_t> open; // nodes whose subtree has not ended yet
    while (!stack.empty()) {
        const SVisit v = stack.back();
        stack.pop_back();
        if (v.n->m_nSubTri == 0) {
            continue;
        }
        const std::uint32_t id = static_cast<std::uint32_t>(m_vecNode.size());
        while (!open.empty() && m_vecNode[open.back()].nDepth >= v.depth) {
            m_vecNode[open.back()].nSkip = id;
            open.pop_back();
        }
        open.push_back(id);
        m_vecNode.push_back(SNode{v.n, v.parent, v.depth, 0, v.n->m_box, v.n->m_boxSub});
        for (std::size_t k = 0; k < v.n->m_vecTri.size(); ++k) {
            const _sTri* t = v.n->m_vecTri[k];
            const std::size_t slot = static_cast<std::size_t>(t->nPos);
            if (t->nPos < 0 || slot >= tris.size() || tris[slot] != t) {
                m_bOrdered = false;
                continue;
            }
            m_vecTriNode[slot] = id;
            m_vecTriPos[slot] = static_cast<std::uint32_t>(k);
        }
        if (v.n->m_pChild) {
            for (int i = 8; i-- > 0;) {
                stack.push_back(SVisit{&v.n->m_pChild[i], static_cast<std::int32_t>(id), v.depth + 1});
            }
        }
    }
    for (const std::uint32_t id : open) {
        m_vecNode[id].nSkip = static_cast<std::uint32_t>(m_vecNode.size());
    }
}

void CKivPlanIndex::CollectAlong(const CKivOctBox* boxes, unsigned live, std::vector<_sTri*>& out) const
{
    // inherited[d]: the boxes that every ancestor of the current node at
    // depth d meets (set by its parent, the last node visited at d - 1).
    unsigned inherited[kMaxOctDepth + 2];
    inherited[0] = live;
    for (std::size_t id = 0; id < m_vecNode.size();) {
        const SNode& node = m_vecNode[id];
        unsigned meet = 0;
        for (unsigned rest = inherited[node.nDepth]; rest; rest &= rest - 1u) {
            const unsigned i = static_cast<unsigned>(__builtin_ctz(rest));
            if (node.box.Overlaps(boxes[i]) && node.boxSub.Overlaps(boxes[i])) {
                meet |= 1u << i;
            }
        }
        if (!meet) {
            id = node.nSkip;
            continue;
        }
        const std::vector<_sTri*>& tris = node.pNode->m_vecTri;
        out.insert(out.end(), tris.begin(), tris.end());
        inherited[node.nDepth + 1] = meet;
        ++id;
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

void CKivPlanIndex::CandidatesInBox(const std::vector<_sTri*>& tris, double x0, double y0, double x1, double y1,
                                    std::vector<_sTri*>& out) const
{
    out.assign(m_vecWide.begin(), m_vecWide.end());
    if (m_dX1 >= m_dX0 && x1 >= m_dX0 && x0 <= m_dX1 && y1 >= m_dY0 && y0 <= m_dY1) {
        const std::size_t i0 = CellX(x0), i1 = CellX(x1), j0 = CellY(y0), j1 = CellY(y1);
        for (std::size_t j = j0; j <= j1; ++j) {
            for (std::size_t i = i0; i <= i1; ++i) {
                const std::size_t c = i + j * m_nX;
                const std::uint32_t* e;
                std::size_t m;
                CellEntries(c, e, m);
                for (std::size_t k = 0; k < m; ++k) {
                    out.push_back(tris[m_vecSlot[e[k]]]);
                }
            }
        }
    }
    std::sort(out.begin(), out.end(), std::less<_sTri*>());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}

std::size_t CKivPlanIndex::MemoryBytes() const
{
    return sizeof(*this) + m_vecCell.capacity() * sizeof(SCell) + m_vecSpill.capacity() * sizeof(std::uint32_t) +
           m_vecSlot.capacity() * sizeof(std::uint32_t) + m_vecTriPt.capacity() * sizeof(STriPts) +
           m_vecWide.capacity() * sizeof(_sTri*) + m_vecNode.capacity() * sizeof(SNode) +
           m_vecTriNode.capacity() * sizeof(std::uint32_t) + m_vecTriPos.capacity() * sizeof(std::uint32_t);
}

} // namespace TriMesh
