// Constraint lines, hole lines and the outline of the triangulator.
//
// A constraint segment is forced in by walking from its start vertex through
// the triangles it crosses, deleting them, and filling the two polygons left
// on either side of it with ear clipping. The ear clipper and the walk decide
// with the library's absolute tolerances; on data whose spacing is close to
// those tolerances their answers can describe triangles that are clockwise
// or overlap. Every fill is therefore checked with exact orientation tests
// before a triangle is added, and a fill that fails the check is replaced by
// an exact ear clipping (or, failing that, the piece is given up and its
// triangles put back).
#include <kivgeo/delaunay.h>

#include "spacemath/exact_orient.h"
#include "spacemath/planar_internal.h"
#include "trimesh/ring_index.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

namespace TriMesh {

namespace {

using Triple = std::array<int, 3>;

// Sign of the orientation of (a, b, c) in plan: 1 counter-clockwise, -1
// clockwise, 0 collinear; exact.
int Orient(const _sVertex* a, const _sVertex* b, const _sVertex* c)
{
    return ExactOrient2D(a->pt.x, a->pt.y, b->pt.x, b->pt.y, c->pt.x, c->pt.y);
}

bool IsFinitePlan(const _sVertex* v)
{
    return std::isfinite(v->pt.x) && std::isfinite(v->pt.y);
}

// True when the closed segments pq and uv meet anywhere except at an end
// point they share, decided exactly. Two segments sharing an end point block
// each other only when they overlap along a common line; a segment does not
// block itself.
bool SegsBlock(const _sVertex* p, const _sVertex* q, const _sVertex* u, const _sVertex* v)
{
    const _sVertex* shared = nullptr;
    const _sVertex *x = nullptr, *y = nullptr;
    if (p == u || p == v) {
        shared = p, x = q, y = (p == u ? v : u);
    } else if (q == u || q == v) {
        shared = q, x = p, y = (q == u ? v : u);
    }
    if (shared) {
        if (x == y) {
            return false; // the same segment: an edge is no obstacle to itself
        }
        if (Orient(shared, x, y) != 0) {
            return false;
        }
        // Collinear: overlapping when both run the same way from the shared end.
        const double dx = (x->pt.x - shared->pt.x) * (y->pt.x - shared->pt.x) +
                          (x->pt.y - shared->pt.y) * (y->pt.y - shared->pt.y);
        return dx > 0;
    }
    const int o1 = Orient(p, q, u), o2 = Orient(p, q, v);
    const int o3 = Orient(u, v, p), o4 = Orient(u, v, q);
    if (o1 * o2 > 0 || o3 * o4 > 0) {
        return false;
    }
    if (o1 != 0 || o2 != 0) {
        return true; // a proper crossing or an end touching the other segment
    }
    // All four on one line: overlapping projections.
    const bool alongX = std::fabs(q->pt.x - p->pt.x) >= std::fabs(q->pt.y - p->pt.y);
    const auto c = [alongX](const _sVertex* w) { return alongX ? w->pt.x : w->pt.y; };
    return std::max(std::min(c(p), c(q)), std::min(c(u), c(v))) <=
           std::min(std::max(c(p), c(q)), std::max(c(u), c(v)));
}

// Point w inside or on the closed counter-clockwise triangle (a, b, c).
bool InClosedTri(const _sVertex* w, const _sVertex* a, const _sVertex* b, const _sVertex* c)
{
    return Orient(a, b, w) >= 0 && Orient(b, c, w) >= 0 && Orient(c, a, w) >= 0;
}

// A ring of distinct vertices whose edges meet only where consecutive edges
// share their end point (exact).
bool IsSimpleRing(const std::vector<_sVertex*>& ring)
{
    const std::size_t n = ring.size();
    std::vector<_sVertex*> sorted(ring);
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        return false;
    }
    for (std::size_t i = 0; i < n; ++i) {
        const _sVertex* p = ring[i];
        const _sVertex* q = ring[(i + 1) % n];
        const double pxLo = std::min(p->pt.x, q->pt.x), pxHi = std::max(p->pt.x, q->pt.x);
        const double pyLo = std::min(p->pt.y, q->pt.y), pyHi = std::max(p->pt.y, q->pt.y);
        for (std::size_t j = i + 1; j < n; ++j) {
            const _sVertex* u = ring[j];
            const _sVertex* v = ring[(j + 1) % n];
            if (std::max(u->pt.x, v->pt.x) < pxLo || std::min(u->pt.x, v->pt.x) > pxHi ||
                std::max(u->pt.y, v->pt.y) < pyLo || std::min(u->pt.y, v->pt.y) > pyHi) {
                continue;
            }
            if (SegsBlock(p, q, u, v)) {
                return false;
            }
        }
    }
    return true;
}

// Replays the cuts of an ear clipping of ring and checks each one exactly: the
// ear is strictly counter-clockwise and no other remaining vertex lies in it
// or on it. On a simple ring such cuts tile the polygon.
bool AreEarCutsValid(const std::vector<_sVertex*>& ring, const std::vector<Triple>& tris)
{
    const int n = static_cast<int>(ring.size());
    if (static_cast<int>(tris.size()) != n - 2) {
        return false;
    }
    std::vector<int> prev(n), next(n);
    std::vector<char> gone(n, 0);
    for (int k = 0; k < n; ++k) {
        prev[k] = (k + n - 1) % n;
        next[k] = (k + 1) % n;
    }
    int left = n;
    for (const Triple& t : tris) {
        const int a = t[0], k = t[1], b = t[2];
        if (k < 0 || k >= n || gone[k] || prev[k] != a || next[k] != b) {
            return false;
        }
        if (Orient(ring[a], ring[k], ring[b]) <= 0) {
            return false;
        }
        if (left > 3) {
            for (int w = next[b]; w != a; w = next[w]) {
                if (InClosedTri(ring[w], ring[a], ring[k], ring[b])) {
                    return false;
                }
            }
        }
        gone[k] = 1;
        next[a] = b;
        prev[b] = a;
        --left;
    }
    return true;
}

// Ear clipping with exact tests for a simple counter-clockwise ring: each step
// cuts the strictly convex ear with the smallest angle that holds no other
// vertex. False when no such ear is left (the ring is not simple or not
// counter-clockwise).
bool ExactEarClip(const std::vector<_sVertex*>& ring, std::vector<Triple>& tris)
{
    tris.clear();
    const int n = static_cast<int>(ring.size());
    std::vector<int> prev(n), next(n);
    for (int k = 0; k < n; ++k) {
        prev[k] = (k + n - 1) % n;
        next[k] = (k + 1) % n;
    }
    const auto isEar = [&](int k) {
        const int a = prev[k], b = next[k];
        if (Orient(ring[a], ring[k], ring[b]) <= 0) {
            return false;
        }
        for (int w = next[b]; w != a; w = next[w]) {
            if (InClosedTri(ring[w], ring[a], ring[k], ring[b])) {
                return false;
            }
        }
        return true;
    };
    int left = n, start = 0;
    while (left > 3) {
        double best = 10.0;
        int chosen = -1;
        int k = start;
        for (int i = 0; i < left; ++i, k = next[k]) {
            const _sVertex* a = ring[prev[k]];
            const _sVertex* b = ring[next[k]];
            const double ang = GetTwoSegAngle(a->pt.x, a->pt.y, ring[k]->pt.x, ring[k]->pt.y, b->pt.x, b->pt.y);
            if (ang < best && isEar(k)) {
                best = ang;
                chosen = k;
            }
        }
        if (chosen < 0) {
            return false;
        }
        const int a = prev[chosen], b = next[chosen];
        tris.push_back({a, chosen, b});
        next[a] = b;
        prev[b] = a;
        start = a;
        --left;
    }
    const int a = prev[start], b = next[start];
    if (Orient(ring[a], ring[start], ring[b]) <= 0) {
        return false;
    }
    tris.push_back({a, start, b});
    return true;
}

// Twice the signed plan area of a ring, taken about its first vertex.
double RingArea2(const std::vector<_sVertex*>& ring)
{
    double s = 0.0;
    const CKivPoint3d& o = ring[0]->pt;
    for (std::size_t i = 1; i + 1 < ring.size(); ++i) {
        const CKivPoint3d& a = ring[i]->pt;
        const CKivPoint3d& b = ring[i + 1]->pt;
        s += (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
    }
    return s;
}

// Gift wrapping of regions not yet covered by triangles. A front edge a->b
// has triangles (or the outside of a ring) on its left and the region to fill
// on its right. For each front edge the new triangle takes, among the open
// vertices strictly on its right, the one whose circle through a and b reaches
// least far to the right (the constrained Delaunay choice); a candidate is
// admitted only when, by exact tests, no open vertex lies in or on the
// triangle and no live front edge meets its two new sides, so nothing
// overlaps. A front edge with no admissible vertex is left alive.
class CKivGiftWrap {
public:
    // bPlain: plain scans throughout (the reference for the grid search).
    explicit CKivGiftWrap(bool bPlain = false) : m_bPlain(bPlain) {}

    // Local number of v; bFree marks a vertex that has no triangle yet.
    int Vertex(_sVertex* v, bool bFree)
    {
        const auto it = m_local.emplace(v, static_cast<int>(m_verts.size()));
        if (it.second) {
            m_grid = SGrid(); // made again for the new vertex set
            m_verts.push_back(v);
            m_degree.push_back(0);
            m_free.push_back(bFree ? 1 : 0);
            m_touched.push_back(0);
        }
        return it.first->second;
    }
    int Find(const _sVertex* v) const
    {
        const auto it = m_local.find(v);
        return it == m_local.end() ? -1 : it->second;
    }
    // Adds the front edge a->b, or closes it against a live b->a.
    void Edge(int a, int b)
    {
        const auto rev = m_edgeAt.find(Key(b, a));
        if (rev != m_edgeAt.end()) {
            Kill(rev->second);
            return;
        }
        if (m_edgeAt.emplace(Key(a, b), static_cast<int>(m_edges.size())).second) {
            m_edges.push_back({a, b, true});
            ++m_degree[static_cast<std::size_t>(a)], ++m_degree[static_cast<std::size_t>(b)];
            m_stack.push_back(static_cast<int>(m_edges.size()) - 1);
            if (m_grid.Active()) {
                GridAddEdge(static_cast<int>(m_edges.size()) - 1);
            }
        }
    }
    std::size_t VertexCount() const { return m_verts.size(); }
    bool Touched(int i) const { return i >= 0 && m_touched[static_cast<std::size_t>(i)]; }
    bool RanAway() const { return m_bRanAway; }
    bool Closed() const
    {
        return std::none_of(m_edges.begin(), m_edges.end(), [](const SFront& e) { return e.alive; });
    }

    // Fills what it can; add(b, a, c) receives each new counter-clockwise
    // triangle. True when it added any.
    // At most maxTris triangles are made: a wrap that would go on (it can,
    // around vertices that touch themselves, by filling a place twice) stops
    // there with edges still alive, and RanAway() tells.
    template <class FnAdd> bool Run(FnAdd&& add, std::size_t maxTris)
    {
        bool added = false;
        std::size_t made = 0;
        std::vector<std::pair<double, int>> cands;
        BuildGrid();
        // Edges are processed newest first; each added triangle kills one edge
        // and adds at most two, and there are finitely many triangles, so the
        // loop ends.
        while (!m_stack.empty()) {
            if (made >= maxTris) {
                m_bRanAway = !Closed();
                break;
            }
            const int ie = m_stack.back();
            m_stack.pop_back();
            const SFront e = m_edges[static_cast<std::size_t>(ie)];
            if (!e.alive) {
                continue;
            }
            const _sVertex* a = m_verts[static_cast<std::size_t>(e.a)];
            const _sVertex* b = m_verts[static_cast<std::size_t>(e.b)];
            // Circle centres through a and b lie on m + s * n (n the right
            // normal of a->b); the smallest s is the Delaunay vertex.
            const double mx = 0.5 * (a->pt.x + b->pt.x), my = 0.5 * (a->pt.y + b->pt.y);
            const double nx = b->pt.y - a->pt.y, ny = a->pt.x - b->pt.x;
            const double ra = (a->pt.x - mx) * (a->pt.x - mx) + (a->pt.y - my) * (a->pt.y - my);
            if (m_grid.Active()) {
                if (!AnyRightOf(a, b)) {
                    continue; // nothing to the right: an edge of the hull
                }
                // The best vertex from the neighbourhood; it is nearly always
                // admissible. When it is not, the plain search below takes
                // over and tries it first again, then the others in order.
                const int ic = GridBest(e.a, e.b, mx, my, nx, ny, ra);
                if (ic < 0) {
                    continue; // no open vertex on the right
                }
                if (IsFree(e.a, e.b, ic)) {
                    Take(ie, e, ic, add);
                    added = true;
                    ++made;
                    continue;
                }
            }
            cands.clear();
            for (std::size_t i = 0; i < m_verts.size(); ++i) {
                const _sVertex* c = m_verts[i];
                if (c == a || c == b || !IsOpen(i) || Orient(a, b, c) >= 0) {
                    continue;
                }
                const double cx = c->pt.x - mx, cy = c->pt.y - my;
                const double den = 2.0 * (cx * nx + cy * ny);
                cands.emplace_back(den > 0 ? (cx * cx + cy * cy - ra) / den : HUGE_VAL, static_cast<int>(i));
            }
            // The best is nearly always admissible: try it before sorting.
            const auto first = std::min_element(cands.begin(), cands.end());
            if (first != cands.end() && first != cands.begin()) {
                std::iter_swap(cands.begin(), first);
            }
            bool sorted = false;
            for (std::size_t k = 0; k < cands.size(); ++k) {
                if (k == 1 && !sorted) {
                    std::sort(cands.begin() + 1, cands.end());
                    sorted = true;
                }
                const int ic = cands[k].second;
                if (!IsFree(e.a, e.b, ic)) {
                    continue;
                }
                Take(ie, e, ic, add);
                added = true;
                ++made;
                break;
            }
        }
        return added;
    }

private:
    struct SFront {
        int a, b;
        bool alive;
    };

    // Adds the triangle (b, a, c) on front edge ie = a->b.
    template <class FnAdd> void Take(int ie, const SFront& e, int ic, FnAdd& add)
    {
        add(m_verts[static_cast<std::size_t>(e.b)], m_verts[static_cast<std::size_t>(e.a)],
            m_verts[static_cast<std::size_t>(ic)]);
        Kill(ie);
        Edge(e.a, ic);
        Edge(ic, e.b);
        for (const int i : {e.a, e.b, ic}) {
            m_touched[static_cast<std::size_t>(i)] = 1;
            m_free[static_cast<std::size_t>(i)] = 0;
        }
    }

    // A bucket grid over the vertices and front edges, so that the searches
    // look at the neighbourhood of an edge instead of at every vertex and
    // edge. On a long thin input nearly every vertex is on the front, and
    // the plain scans make the wrap quadratic (8,000 points took a third of
    // a second, 10^5 would take a minute). The answers are the plain scans':
    // the same candidates pass the same exact tests.
    struct SGrid {
        double x0 = 0, y0 = 0, x1 = 0, y1 = 0, invX = 0, invY = 0;
        int nx = 0, ny = 0;
        std::vector<int> vStart, vIds;        // vertices per cell (fixed)
        std::vector<std::vector<int>> eCells; // front edges per cell (grows)
        std::vector<int> eWide;               // edges over too many cells: always checked
        std::vector<const _sVertex*> hull;    // corners of the vertices' convex hull
        bool Active() const { return nx > 0; }
        int Col(double x) const { return Clamp((x - x0) * invX, nx); }
        int Row(double y) const { return Clamp((y - y0) * invY, ny); }
        static int Clamp(double f, int n)
        {
            if (!(f > 0.0)) {
                return 0;
            }
            return f >= n - 1 ? n - 1 : static_cast<int>(f);
        }
    };
    // Below this many vertices the plain scans are cheaper.
    static constexpr std::size_t kGridFrom = 64;
    // An edge over more cells than this is checked by every test instead.
    static constexpr int kWideCells = 64;

    void BuildGrid()
    {
        if (m_bPlain || m_grid.Active() || m_verts.size() < kGridFrom) {
            return;
        }
        double x0 = HUGE_VAL, y0 = HUGE_VAL, x1 = -HUGE_VAL, y1 = -HUGE_VAL;
        for (const _sVertex* v : m_verts) {
            x0 = std::min(x0, v->pt.x), x1 = std::max(x1, v->pt.x);
            y0 = std::min(y0, v->pt.y), y1 = std::max(y1, v->pt.y);
        }
        const double w = x1 - x0, h = y1 - y0;
        if (!std::isfinite(w) || !std::isfinite(h)) {
            return; // plain scans
        }
        const double cells = static_cast<double>(m_verts.size());
        const double cols = w > 0 ? (h > 0 ? std::sqrt(cells * w / h) : cells) : 1.0;
        SGrid& g = m_grid;
        g.nx = static_cast<int>(std::fmin(std::fmax(cols, 1.0), 4096.0));
        g.ny = static_cast<int>(std::fmin(std::fmax(cells / g.nx, 1.0), 4096.0));
        g.x0 = x0, g.y0 = y0, g.x1 = x1, g.y1 = y1;
        g.invX = w > 0 ? g.nx / w : 0.0;
        g.invY = h > 0 ? g.ny / h : 0.0;
        if (!std::isfinite(g.invX) || !std::isfinite(g.invY)) {
            g.nx = g.ny = 0;
            return;
        }
        const std::size_t n = static_cast<std::size_t>(g.nx) * static_cast<std::size_t>(g.ny);
        g.vStart.assign(n + 1, 0);
        std::vector<int> cellOf(m_verts.size());
        for (std::size_t i = 0; i < m_verts.size(); ++i) {
            cellOf[i] = g.Col(m_verts[i]->pt.x) + g.Row(m_verts[i]->pt.y) * g.nx;
            ++g.vStart[static_cast<std::size_t>(cellOf[i]) + 1];
        }
        for (std::size_t c = 0; c < n; ++c) {
            g.vStart[c + 1] += g.vStart[c];
        }
        g.vIds.resize(m_verts.size());
        std::vector<int> fill(g.vStart.begin(), g.vStart.end() - 1);
        for (std::size_t i = 0; i < m_verts.size(); ++i) {
            g.vIds[static_cast<std::size_t>(fill[static_cast<std::size_t>(cellOf[i])]++)] = static_cast<int>(i);
        }
        g.eCells.assign(n, {});
        // The corners of the convex hull (monotone chain, exact turns).
        std::vector<const _sVertex*> byX(m_verts.begin(), m_verts.end());
        std::sort(byX.begin(), byX.end(), [](const _sVertex* p, const _sVertex* q) {
            return p->pt.x < q->pt.x || (p->pt.x == q->pt.x && p->pt.y < q->pt.y);
        });
        std::vector<const _sVertex*>& hull = g.hull;
        hull.clear();
        for (int pass = 0; pass < 2; ++pass) {
            const std::size_t base = hull.size();
            for (const _sVertex* v : byX) {
                while (hull.size() >= base + 2 && Orient(hull[hull.size() - 2], hull.back(), v) <= 0) {
                    hull.pop_back();
                }
                hull.push_back(v);
            }
            hull.pop_back(); // the other chain starts there
            std::reverse(byX.begin(), byX.end());
        }
        for (std::size_t ie = 0; ie < m_edges.size(); ++ie) {
            if (m_edges[ie].alive) {
                GridAddEdge(static_cast<int>(ie));
            }
        }
    }

    void GridAddEdge(int ie)
    {
        const SFront& e = m_edges[static_cast<std::size_t>(ie)];
        const CKivPoint3d& p = m_verts[static_cast<std::size_t>(e.a)]->pt;
        const CKivPoint3d& q = m_verts[static_cast<std::size_t>(e.b)]->pt;
        const int i0 = m_grid.Col(std::min(p.x, q.x)), i1 = m_grid.Col(std::max(p.x, q.x));
        const int j0 = m_grid.Row(std::min(p.y, q.y)), j1 = m_grid.Row(std::max(p.y, q.y));
        if ((i1 - i0 + 1) * (j1 - j0 + 1) > kWideCells) {
            m_grid.eWide.push_back(ie);
            return;
        }
        for (int j = j0; j <= j1; ++j) {
            for (int i = i0; i <= i1; ++i) {
                m_grid.eCells[static_cast<std::size_t>(i + j * m_grid.nx)].push_back(ie);
            }
        }
    }

    // Whether any vertex lies strictly right of a->b: the most right-lying
    // vertex of a set is a corner of its hull. Front edges on the hull have
    // nothing to fill, and a search would visit the whole grid for them.
    bool AnyRightOf(const _sVertex* a, const _sVertex* b) const
    {
        return std::any_of(m_grid.hull.begin(), m_grid.hull.end(),
                           [&](const _sVertex* v) { return Orient(a, b, v) < 0; });
    }

    // The open vertex strictly right of a->b with the least (s, number), s
    // as in Run; -1 for none. Searched in growing squares of cells about the
    // edge's midpoint, until the square holds the part right of a->b of the
    // circle through a, b and the best so far (every vertex with a smaller s
    // lies there), with a margin far above rounding.
    int GridBest(int ia, int ib, double mx, double my, double nx, double ny, double ra) const
    {
        const _sVertex* a = m_verts[static_cast<std::size_t>(ia)];
        const _sVertex* b = m_verts[static_cast<std::size_t>(ib)];
        const SGrid& g = m_grid;
        const int ci = g.Col(mx), cj = g.Row(my);
        int best = -1;
        double bestS = HUGE_VAL;
        const auto visit = [&](int i, int j) {
            const std::size_t c = static_cast<std::size_t>(i + j * g.nx);
            for (int k = g.vStart[c]; k < g.vStart[c + 1]; ++k) {
                const int iv = g.vIds[static_cast<std::size_t>(k)];
                const _sVertex* v = m_verts[static_cast<std::size_t>(iv)];
                if (v == a || v == b || !IsOpen(static_cast<std::size_t>(iv)) || Orient(a, b, v) >= 0) {
                    continue;
                }
                const double cx = v->pt.x - mx, cy = v->pt.y - my;
                const double den = 2.0 * (cx * nx + cy * ny);
                const double sv = den > 0 ? (cx * cx + cy * cy - ra) / den : HUGE_VAL;
                if (sv < bestS || (sv == bestS && (best < 0 || iv < best))) {
                    bestS = sv, best = iv;
                }
            }
        };
        for (int r = 0;; ++r) {
            const int i0 = ci - r, i1 = ci + r, j0 = cj - r, j1 = cj + r;
            // The ring's cells only: its rows at j0 and j1, then its columns
            // at i0 and i1 between them.
            const int iLo = std::max(i0, 0), iHi = std::min(i1, g.nx - 1);
            for (const int j : {j0, j1}) {
                if (j >= 0 && j < g.ny && (j == j0 || j1 != j0)) {
                    for (int i = iLo; i <= iHi; ++i) {
                        visit(i, j);
                    }
                }
            }
            for (const int i : {i0, i1}) {
                if (i >= 0 && i < g.nx && (i == i0 || i1 != i0)) {
                    for (int j = std::max(j0 + 1, 0); j <= std::min(j1 - 1, g.ny - 1); ++j) {
                        visit(i, j);
                    }
                }
            }
            const bool all = i0 <= 0 && j0 <= 0 && i1 >= g.nx - 1 && j1 >= g.ny - 1;
            if (all) {
                return best;
            }
            if (best >= 0 && std::isfinite(bestS)) {
                // Every better vertex lies in the part of the circle right of
                // a->b: the arc from b round to a. Its box holds a, b and
                // those of the circle's four extreme points on that side.
                const double ox = mx + bestS * nx, oy = my + bestS * ny;
                const double rad = std::sqrt(ra + bestS * bestS * (nx * nx + ny * ny));
                const double margin = 1e-8 * (rad + std::fabs(mx) + std::fabs(my) + std::fabs(nx) + std::fabs(ny));
                double bx0 = std::min(a->pt.x, b->pt.x), bx1 = std::max(a->pt.x, b->pt.x);
                double by0 = std::min(a->pt.y, b->pt.y), by1 = std::max(a->pt.y, b->pt.y);
                const double ext[4][2] = {{ox - rad, oy}, {ox + rad, oy}, {ox, oy - rad}, {ox, oy + rad}};
                const double nLen = std::sqrt(nx * nx + ny * ny);
                for (const auto& q : ext) {
                    if ((q[0] - mx) * nx + (q[1] - my) * ny >= -margin * nLen) {
                        bx0 = std::min(bx0, q[0]), bx1 = std::max(bx1, q[0]);
                        by0 = std::min(by0, q[1]), by1 = std::max(by1, q[1]);
                    }
                }
                // All vertices lie in the grid's box: where the circle is
                // far larger (nearly collinear vertices), only the part of
                // the disk inside that box counts.
                const double rr = rad + margin;
                const auto halfWidth = [rr](double c, double lo, double hi) {
                    const double d = c < lo ? lo - c : (c > hi ? c - hi : 0.0);
                    return d >= rr ? 0.0 : std::sqrt((rr - d) * (rr + d));
                };
                const double wx = halfWidth(oy, g.y0 - margin, g.y1 + margin);
                const double wy = halfWidth(ox, g.x0 - margin, g.x1 + margin);
                bx0 = std::max(bx0, ox - wx), bx1 = std::min(bx1, ox + wx);
                by0 = std::max(by0, oy - wy), by1 = std::min(by1, oy + wy);
                bx0 -= margin, by0 -= margin, bx1 += margin, by1 += margin;
                if (std::isfinite(bx0 + bx1 + by0 + by1) && g.Col(bx0) >= std::max(i0, 0) &&
                    g.Col(bx1) <= std::min(i1, g.nx - 1) && g.Row(by0) >= std::max(j0, 0) &&
                    g.Row(by1) <= std::min(j1, g.ny - 1)) {
                    return best;
                }
            }
        }
    }

    static std::uint64_t Key(int a, int b)
    {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(a)) << 32) | static_cast<std::uint32_t>(b);
    }
    void Kill(int ie)
    {
        SFront& e = m_edges[static_cast<std::size_t>(ie)];
        e.alive = false;
        --m_degree[static_cast<std::size_t>(e.a)], --m_degree[static_cast<std::size_t>(e.b)];
        m_edgeAt.erase(Key(e.a, e.b));
    }
    bool IsOpen(std::size_t i) const { return m_degree[i] > 0 || m_free[i]; }
    // Strictly counter-clockwise (b, a, c) is given; no open vertex in or on
    // it and no live front edge meeting its new sides a-c and c-b.
    bool IsFree(int ia, int ib, int ic) const
    {
        const _sVertex* a = m_verts[static_cast<std::size_t>(ia)];
        const _sVertex* b = m_verts[static_cast<std::size_t>(ib)];
        const _sVertex* c = m_verts[static_cast<std::size_t>(ic)];
        const double x0 = std::min({a->pt.x, b->pt.x, c->pt.x}), x1 = std::max({a->pt.x, b->pt.x, c->pt.x});
        const double y0 = std::min({a->pt.y, b->pt.y, c->pt.y}), y1 = std::max({a->pt.y, b->pt.y, c->pt.y});
        const auto vertexBlocks = [&](std::size_t i) {
            const _sVertex* w = m_verts[i];
            if (w == a || w == b || w == c || w->pt.x < x0 || w->pt.x > x1 || w->pt.y < y0 || w->pt.y > y1 ||
                !IsOpen(i)) {
                return false;
            }
            return InClosedTri(w, b, a, c);
        };
        const auto edgeBlocks = [&](const SFront& e) {
            if (!e.alive) {
                return false;
            }
            const _sVertex* u = m_verts[static_cast<std::size_t>(e.a)];
            const _sVertex* w = m_verts[static_cast<std::size_t>(e.b)];
            if (std::max(u->pt.x, w->pt.x) < x0 || std::min(u->pt.x, w->pt.x) > x1 ||
                std::max(u->pt.y, w->pt.y) < y0 || std::min(u->pt.y, w->pt.y) > y1) {
                return false;
            }
            return SegsBlock(a, c, u, w) || SegsBlock(c, b, u, w);
        };
        if (!m_grid.Active()) {
            for (std::size_t i = 0; i < m_verts.size(); ++i) {
                if (vertexBlocks(i)) {
                    return false;
                }
            }
            return std::none_of(m_edges.begin(), m_edges.end(), edgeBlocks);
        }
        // The cells the triangle's box meets hold every vertex in the box and
        // every edge whose box meets it (edges over many cells aside).
        const SGrid& g = m_grid;
        const int i0 = g.Col(x0), i1 = g.Col(x1), j0 = g.Row(y0), j1 = g.Row(y1);
        for (int j = j0; j <= j1; ++j) {
            for (int i = i0; i <= i1; ++i) {
                const std::size_t cell = static_cast<std::size_t>(i + j * g.nx);
                for (int k = g.vStart[cell]; k < g.vStart[cell + 1]; ++k) {
                    if (vertexBlocks(static_cast<std::size_t>(g.vIds[static_cast<std::size_t>(k)]))) {
                        return false;
                    }
                }
                for (const int ie : g.eCells[cell]) {
                    if (edgeBlocks(m_edges[static_cast<std::size_t>(ie)])) {
                        return false;
                    }
                }
            }
        }
        for (const int ie : g.eWide) {
            if (edgeBlocks(m_edges[static_cast<std::size_t>(ie)])) {
                return false;
            }
        }
        return true;
    }

    std::vector<_sVertex*> m_verts;
    std::unordered_map<const _sVertex*, int> m_local;
    std::vector<int> m_degree;   // live front edges at the vertex
    std::vector<char> m_free;    // no triangle yet: open without edges
    std::vector<char> m_touched; // corner of a triangle added here
    std::vector<SFront> m_edges;
    std::unordered_map<std::uint64_t, int> m_edgeAt;
    std::vector<int> m_stack;
    bool m_bRanAway = false;
    bool m_bPlain;
    SGrid m_grid;
};

// Fills a counter-clockwise ring that may touch itself at vertices; the
// triples index the ring (the first position of a repeated vertex). False,
// with tris cleared, when the region cannot be filled completely.
bool WrapRing(const std::vector<_sVertex*>& ring, std::vector<Triple>& tris)
{
    tris.clear();
    CKivGiftWrap wrap;
    std::unordered_map<const _sVertex*, int> pos;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        pos.emplace(ring[i], static_cast<int>(i));
        wrap.Vertex(ring[i], false);
    }
    // The inside is on the left of the ring's edges: on the right of their
    // reversals.
    for (std::size_t i = 0; i < ring.size(); ++i) {
        wrap.Edge(wrap.Find(ring[(i + 1) % ring.size()]), wrap.Find(ring[i]));
    }
    // A ring of n positions bounds exactly n - 2 triangles.
    wrap.Run(
        [&](_sVertex* a, _sVertex* b, _sVertex* c) {
            tris.push_back({pos[a], pos[b], pos[c]});
        },
        ring.size() - 2);
    if (!wrap.Closed()) {
        tris.clear();
        return false;
    }
    return true;
}

// Exact fill of a counter-clockwise ring: ear clipping when the ring is
// simple, else gift wrapping (a ring that touches itself at vertices).
bool FillExactly(const std::vector<_sVertex*>& ring, std::vector<Triple>& tris)
{
    const bool simple = IsSimpleRing(ring);
    return (simple && ExactEarClip(ring, tris)) || WrapRing(ring, tris);
}

// A simple ring that runs counter-clockwise (exact): its lowest-leftmost
// vertex is a corner where it turns left, never straight on a simple ring.
bool IsSimpleLeftRing(const std::vector<_sVertex*>& ring)
{
    if (ring.size() < 3 || !IsSimpleRing(ring)) {
        return false;
    }
    const auto lower = [](const _sVertex* a, const _sVertex* b) {
        return a->pt.x < b->pt.x || (a->pt.x == b->pt.x && a->pt.y < b->pt.y);
    };
    const std::size_t n = ring.size();
    std::size_t k = 0;
    for (std::size_t i = 1; i < n; ++i) {
        if (lower(ring[i], ring[k])) {
            k = i;
        }
    }
    return Orient(ring[(k + n - 1) % n], ring[k], ring[(k + 1) % n]) > 0;
}

} // namespace

bool CKivDelaunay::AddSegYS(const std::vector<CKivPoint3d>& points, bool closed)
{
    if (points.size() < 2) {
        return false;
    }
    std::vector<_sVertex*> verts;
    verts.reserve(points.size());
    const std::vector<_sVertex*>& all = m_pMesh->m_vecVertex;
    for (const CKivPoint3d& p : points) {
        const int i = AddVertex(p);
        verts.push_back(i >= 0 && static_cast<std::size_t>(i) < all.size() ? all[static_cast<std::size_t>(i)]
                                                                           : nullptr);
    }
    m_vecSegYS.reserve(m_vecSegYS.size() + verts.size());
    const auto addSeg = [this](_sVertex* a, _sVertex* b) {
        _sSeg* s = new _sSeg;
        s->pVt[0] = a;
        s->pVt[1] = b;
        m_vecSegYS.push_back(s);
    };
    for (std::size_t i = 1; i < verts.size(); ++i) {
        addSeg(verts[i - 1], verts[i]);
    }
    if (closed) {
        addSeg(verts.back(), verts.front());
    }
    return true;
}

bool CKivDelaunay::AddHoleLine(const std::vector<CKivPoint3d>& points)
{
    if (points.size() < 3) {
        return false;
    }
    AddSegYS(points, true);
    auto hole = std::make_unique<CKivPolyLine>();
    hole->SetVertex(points);
    m_vecHole.push_back(hole.get());
    hole.release();
    return true;
}

bool CKivDelaunay::SetOutline(const std::vector<CKivPoint3d>& points)
{
    if (points.size() < 3) {
        return false;
    }
    AddSegYS(points, true);
    m_Outline.SetVertex(points);
    return true;
}

void CKivDelaunay::DealSegYS(const _sSeg* seg)
{
    // A segment whose two ends merged into one vertex has nothing to force; one
    // with a non-finite end has no triangles to walk.
    if (!seg || !seg->pVt[0] || !seg->pVt[1] || seg->pVt[0] == seg->pVt[1] || !IsFinitePlan(seg->pVt[0]) ||
        !IsFinitePlan(seg->pVt[1])) {
        return;
    }
    _sVertex* start = seg->pVt[0];
    _sVertex* const end = seg->pVt[1];
    std::vector<_sVertex*> left, right;
    // Each piece starts at a vertex on the segment; one never visited twice
    // keeps a tolerance-made cycle of pieces from looping.
    std::vector<const _sVertex*> starts;
    while (true) {
        left.clear();
        right.clear();
        _sVertex* next = nullptr;
        if (GetSegYsPoly(start, end, left, right, next)) {
            FillSides(left, right);
        }
        if (!next || next == end) {
            break;
        }
        starts.push_back(start);
        if (std::find(starts.begin(), starts.end(), next) != starts.end()) {
            break;
        }
        start = next;
    }
}

bool CKivDelaunay::GetSegYsPoly(_sVertex* start, _sVertex* end, std::vector<_sVertex*>& left,
                                std::vector<_sVertex*>& right, _sVertex*& next)
{
    next = nullptr;
    m_vecCutTri.clear();
    left.push_back(start);
    right.push_back(start);
    const double sx = start->pt.x, sy = start->pt.y;
    const double ex = end->pt.x, ey = end->pt.y;
    const auto onSeg = [&](const _sVertex* v) { return IsPtInSeg2D(v->pt.x, v->pt.y, sx, sy, ex, ey); };

    // The first crossed triangle, among those around the start vertex.
    _sTri* cur = nullptr;
    _sVertex *vl = nullptr, *vr = nullptr;
    for (std::size_t k = 0; k < start->vecTri.size(); ++k) {
        _sTri* t = start->vecTri[k];
        const int slot = !t ? -1 : (t->pVt[0] == start ? 0 : t->pVt[1] == start ? 1 : t->pVt[2] == start ? 2 : -1);
        if (slot < 0) {
            continue;
        }
        _sVertex* p = t->pVt[(slot + 1) % 3];
        _sVertex* q = t->pVt[(slot + 2) % 3];
        if (p == end || q == end) {
            next = end;
            left.clear(), right.clear();
            return false;
        }
        if (onSeg(q)) {
            next = q;
            left.clear(), right.clear();
            return false;
        }
        if (onSeg(p)) {
            next = p;
            left.clear(), right.clear();
            return false;
        }
        if (_sTri* n = FindNextTri(t, p, q, sx, sy, ex, ey)) {
            // The triangle runs counter-clockwise start, p, q: q is on the
            // left of the segment, p on its right.
            cur = n, vl = q, vr = p;
            left.push_back(q);
            right.push_back(p);
            break;
        }
    }
    if (!cur) {
        left.clear(), right.clear();
        return false;
    }

    // Walk on through the triangles the segment crosses. Every step deletes
    // one triangle, so the walk cannot outlast the triangle list; the bound
    // only makes that explicit.
    _sVertex* c = nullptr;
    for (std::size_t steps = m_pMesh->m_vecTri.size() + 1;; --steps) {
        const int slot = m_pMesh->IndexDefaultPt(cur, vl, vr);
        if (steps == 0 || slot < 0) {
            left.clear(), right.clear();
            return false;
        }
        c = cur->pVt[slot];
        if (c == end || onSeg(c)) {
            break;
        }
        if (_sTri* n = FindNextTri(cur, vl, c, sx, sy, ex, ey)) {
            cur = n, vr = c;
            right.push_back(c);
        } else if (_sTri* n2 = FindNextTri(cur, vr, c, sx, sy, ex, ey)) {
            cur = n2, vl = c;
            left.push_back(c);
        } else {
            // The crossing is lost: what was collected is dropped, the
            // triangles already deleted stay deleted.
            left.clear(), right.clear();
            return false;
        }
    }
    next = c;
    left.push_back(c);
    right.push_back(c);
    m_vecCutTri.push_back({cur->pVt[0], cur->pVt[1], cur->pVt[2]});
    m_pMesh->DelTri(cur);
    return true;
}

_sTri* CKivDelaunay::FindNextTri(_sTri* current, const _sVertex* a, const _sVertex* b, double sx, double sy,
                                 double ex, double ey)
{
    if (!a || !b) {
        return nullptr;
    }
    if (!IsSegCrossSeg2D(sx, sy, ex, ey, a->pt.x, a->pt.y, b->pt.x, b->pt.y)) {
        return nullptr;
    }
    _sTri* n = m_pMesh->FindTriCoEdge(a, b, current);
    if (n) {
        m_vecCutTri.push_back({current->pVt[0], current->pVt[1], current->pVt[2]});
        m_pMesh->DelTri(current);
    }
    return n;
}

bool CKivDelaunay::TriPolyDelaunay(std::vector<_sVertex*>& ring)
{
    std::vector<Triple> tris;
    if (PlanRingTris(ring, tris) != 1) {
        return false;
    }
    AddRingTris(ring, tris);
    return true;
}

int CKivDelaunay::PlanRingTris(std::vector<_sVertex*>& ring, std::vector<Triple>& tris, int nSense) const
{
    tris.clear();
    if (ring.size() < 3) {
        return 0;
    }
    for (const _sVertex* v : ring) {
        if (!v || !IsFinitePlan(v)) {
            return -1;
        }
    }
    // The two chains of a forced segment run in opposite senses; the ear
    // clipper wants counter-clockwise.
    const bool reverse = RingArea2(ring) < 0;
    if (reverse) {
        std::reverse(ring.begin(), ring.end());
    }
    if (nSense != 0 && reverse != (nSense < 0)) {
        // The sign of the area asks for the other sense: only an exact fill
        // in the sense asked for can be right.
        std::reverse(ring.begin(), ring.end());
        return FillExactly(ring, tris) ? 1 : -1;
    }
    if (ring.size() == 3) {
        if (Orient(ring[0], ring[1], ring[2]) <= 0) {
            return -1; // collinear within rounding: the triangle would be flat
        }
        tris.push_back({0, 1, 2});
        return 1;
    }
    std::vector<CKivPoint3d> pts;
    pts.reserve(ring.size());
    for (const _sVertex* v : ring) {
        pts.push_back(v->pt);
    }
    if (!EarTriangulatePolygon(pts, tris)) {
        tris.clear();
        return 0;
    }
    if (IsSimpleRing(ring) && AreEarCutsValid(ring, tris)) {
        return 1;
    }
    // The tolerances misled the ear clipper (cross products near 1e-6), or
    // the ring touches itself at a vertex (the walk met a vertex twice: its
    // star is not convex): fill it again with exact tests.
    return FillExactly(ring, tris) ? 1 : -1;
}

void CKivDelaunay::AddRingTris(const std::vector<_sVertex*>& ring, const std::vector<Triple>& tris)
{
    for (const Triple& t : tris) {
        m_pMesh->AddTri(ring[t[0]], ring[t[1]], ring[t[2]]);
    }
}

void CKivDelaunay::FillSides(std::vector<_sVertex*>& left, std::vector<_sVertex*>& right)
{
    // Whatever the geometry, the cut region's boundary is the right chain
    // forward and the left chain backward, and the triangles of an ear
    // clipping add up to the ring it clips (every edge but the ring's is
    // used once each way). So fills of the right ring as given and of the
    // left ring reversed, all strictly counter-clockwise, tile the cut region
    // exactly and cannot overlap anything. The tolerances can mislead the
    // walk about which side a vertex is on; a ring filled in the other sense
    // would then cover its surroundings.
    std::vector<Triple> lt, rt;
    int l = PlanRingTris(left, lt, -1);
    int r = l < 0 ? -1 : PlanRingTris(right, rt, 1);
    // A side the ear clipper rejects stays open, as it always has, when that
    // is safe: the other side's fill keeps within the cut region only if the
    // open side is a simple counter-clockwise ring. Otherwise (a ring folded
    // by the tolerances) the open side is filled exactly after all.
    if (l == 0 && r > 0 && !IsSimpleLeftRing(left)) {
        l = FillExactly(left, lt) ? 1 : -1;
    }
    if (r == 0 && l > 0 && !IsSimpleLeftRing(right)) {
        r = FillExactly(right, rt) ? 1 : -1;
    }
    if (l < 0 || r < 0) {
        // No valid fill for a side: put the deleted triangles back, so the
        // piece is left out but the mesh stays whole and valid.
        for (const auto& t : m_vecCutTri) {
            m_pMesh->AddTri(t[0], t[1], t[2]);
        }
        return;
    }
    if (l > 0) {
        AddRingTris(left, lt);
    }
    if (r > 0) {
        AddRingTris(right, rt);
    }
}

// The pockets are filled by gift wrapping from the triangulation's boundary
// edges: for a boundary edge a->b (triangles on its left) the new triangle
// takes, among the free vertices strictly on its right, the one whose circle
// through a and b reaches least far to the right, i.e. the constrained
// Delaunay choice. Each candidate triangle is checked exactly against every
// boundary edge and free vertex before it is added, so nothing overlaps. A
// boundary edge with no admissible vertex on its right is a hull edge. The
// existing triangles and edges are never changed, so constraint edges along a
// pocket stay. Vertices left without triangles (every triangle they had used
// a bounding vertex) are free vertices and get connected too.
void CKivDelaunay::FillHullPockets()
{
    // Forcing a lost constraint again can open a gap (a walk that loses its
    // way); one more pass, without forcing, closes it.
    if (WrapPockets(true)) {
        WrapPockets(false);
    }
}

bool CKivDelaunay::WrapPockets(bool bReforce)
{
    CKivMeshData& m = *m_pMesh;
    m.CompactTris();

    // Boundary edges: at vertex v, the edge v->w of one of its triangles is on
    // the boundary when no triangle at v has w as the corner before v.
    // Vertices without triangles take part as free vertices.
    CKivGiftWrap wrap(m_bPlainWrap);
    std::vector<_sVertex*> nexts, prevs;
    for (_sVertex* v : m.m_vecVertex) {
        if (v->vecTri.empty()) {
            if (IsUsableVertex(v)) {
                wrap.Vertex(v, true);
            }
            continue;
        }
        nexts.clear(), prevs.clear();
        for (const _sTri* t : v->vecTri) {
            const int k = t->pVt[0] == v ? 0 : (t->pVt[1] == v ? 1 : 2);
            nexts.push_back(t->pVt[(k + 1) % 3]);
            prevs.push_back(t->pVt[(k + 2) % 3]);
        }
        for (_sVertex* w : nexts) {
            if (std::find(prevs.begin(), prevs.end(), w) == prevs.end()) {
                // Numbered in a fixed order: the numbers break ties between
                // candidates, and argument order is up to the compiler.
                const int iw = wrap.Vertex(w, false);
                const int iv = wrap.Vertex(v, false);
                wrap.Edge(iv, iw);
            }
        }
    }
    if (wrap.VertexCount() < 3) {
        return false;
    }
    // A plane triangulation of V vertices has fewer than 2V triangles; a wrap
    // that makes more has overlapped itself and is dropped whole.
    std::vector<std::array<_sVertex*, 3>> made;
    wrap.Run(
        [&made](_sVertex* a, _sVertex* b, _sVertex* c) {
            made.push_back({a, b, c});
        },
        2 * wrap.VertexCount());
    if (wrap.RanAway()) {
        made.clear();
    }
    for (const auto& t : made) {
        m.AddTri(t[0], t[1], t[2]);
    }
    const bool added = !made.empty();
    if (!added || !bReforce) {
        return false;
    }
    // A constraint whose triangles all used a bounding vertex was lost with
    // them; force the ones that lie along the filled pockets again.
    bool forced = false;
    for (const _sSeg* seg : m_vecSegYS) {
        if (wrap.Touched(wrap.Find(seg->pVt[0])) && wrap.Touched(wrap.Find(seg->pVt[1])) &&
            !m.FindTriCoEdge(seg->pVt[0], seg->pVt[1], nullptr)) {
            DealSegYS(seg);
            forced = true;
        }
    }
    m.CompactTris();
    return forced;
}

void CKivDelaunay::DigHolesAndOutline()
{
    std::vector<std::unique_ptr<CKivRingIndex>> holes;
    std::vector<CKivPoint3d> pts;
    for (const CKivPolyLine* h : m_vecHole) {
        if (h && h->NumVerts() >= 3) {
            h->OutputData(pts);
            holes.push_back(std::make_unique<CKivRingIndex>(pts));
        }
    }
    std::unique_ptr<CKivRingIndex> outline;
    if (m_Outline.NumVerts() >= 3) {
        m_Outline.OutputData(pts);
        outline = std::make_unique<CKivRingIndex>(pts);
    }
    if (holes.empty() && !outline) {
        return;
    }
    CKivMeshData& m = *m_pMesh;
    for (std::size_t j = 0; j < m.m_vecTri.size(); ++j) {
        _sTri* t = m.m_vecTri[j];
        if (!t) {
            continue;
        }
        const CKivPoint3d& a = t->pVt[0]->pt;
        const CKivPoint3d& b = t->pVt[1]->pt;
        const CKivPoint3d& c = t->pVt[2]->pt;
        const CKivPoint3d centre((a.x + b.x + c.x) / 3.0, (a.y + b.y + c.y) / 3.0, 0.0);
        bool dig = outline && outline->Test(centre) != 1;
        for (std::size_t k = 0; k < holes.size() && !dig; ++k) {
            dig = holes[k]->Test(centre) == 1;
        }
        if (dig) {
            m.DelTri(t);
        }
    }
    m.CompactTris();
}

} // namespace TriMesh
