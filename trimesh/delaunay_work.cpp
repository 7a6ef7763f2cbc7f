#include "trimesh/delaunay_work.h"

#include "trimesh/bit_rank.h"

#include "spacemath/exact_incircle.h"
#include "spacemath/exact_orient.h"
#include "spacemath/planar_internal.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace TriMesh {

namespace {

// Beyond this the exact predicates' products would overflow.
constexpr double kMaxCoord = 1e150;
// First refinement of the location grid, in inserted vertices.
constexpr std::size_t kFirstGrid = 64;
// Fans up to this many triangles are linked by search rather than by tables.
constexpr std::size_t kFanSearch = 24;

} // namespace

bool CKivDelaunayWork::IsUsable(const CKivPoint3d& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && std::fabs(p.x) <= kMaxCoord &&
           std::fabs(p.y) <= kMaxCoord;
}

void CKivDelaunayWork::Clear()
{
    m_bLoaded = false;
    std::vector<_sVertex*>().swap(m_vecVert);
    decltype(m_vecPt)().swap(m_vecPt);
    decltype(m_vecTri)().swap(m_vecTri);
    std::vector<const _sTri*>().swap(m_vecSrc);
    std::vector<std::uint32_t>().swap(m_vecDeadSrc);
    std::vector<int>().swap(m_vecStartAt);
    std::vector<int>().swap(m_vecEndAt);
    std::vector<int>().swap(m_vecStamp);
    decltype(m_vecCell)().swap(m_vecCell);
    m_vecCavity.clear();
    m_vecStack.clear();
    m_vecEdge.clear();
    m_nFree = m_nLastTri = -1;
    m_nLive = 0;
    m_nAhead = m_nAheadNext = m_nAheadTaken = m_nAheadSkip = 0;
    m_nSeq = 0;
    m_nInserted = 0;
    m_nStamp = 0;
    m_nCols = m_nRows = 0;
    m_nRebuildAt = 0;
}

void CKivDelaunayWork::Load(const std::vector<_sVertex*>& verts, const std::vector<_sTri*>& tris,
                            const FnCoEdge& coEdge)
{
    Clear();
    const std::size_t n = verts.size();
    m_vecVert = verts;
    m_vecPt.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        m_vecPt[i] = {verts[i]->pt.x, verts[i]->pt.y, -1};
    }
    m_vecStamp.assign(n, 0);

    // Only vertices that carry triangles need a reverse look-up.
    std::unordered_map<const _sVertex*, int> vid;
    for (std::size_t i = 0; i < n; ++i) {
        if (!verts[i]->vecTri.empty()) {
            vid.emplace(verts[i], static_cast<int>(i));
        }
    }
    std::unordered_map<const _sTri*, int> tid;
    for (const _sTri* t : tris) {
        if (!t) {
            continue;
        }
        int c[3];
        bool ok = true;
        for (int k = 0; k < 3; ++k) {
            const auto it = vid.find(t->pVt[k]);
            ok = ok && it != vid.end();
            c[k] = ok ? it->second : -1;
        }
        if (!ok) {
            continue; // not attached to its corners: leave it alone
        }
        const int w = NewTri(c[0], c[1], c[2]); // seq == its index in m_vecSrc
        m_vecSrc.push_back(t);
        tid.emplace(t, w);
    }
    for (std::size_t s = 0; s < m_vecSrc.size(); ++s) {
        const _sTri* t = m_vecSrc[s];
        const int w = tid[t];
        for (int k = 0; k < 3; ++k) {
            const _sTri* nb = coEdge(t->pVt[k], t->pVt[(k + 1) % 3], t);
            const auto it = nb ? tid.find(nb) : tid.end();
            m_vecTri[w].n[k] = it != tid.end() ? it->second : -1;
        }
    }
    m_bLoaded = true;
}

// The slots of the new survivors sorted by creation number. The numbers are
// distinct, so a survivor's place is the rank of its number among the
// survivors' numbers: mark them in a bitmap, count the marks before each
// word, and place every survivor directly. One pass over the triangles and
// a bitmap of a bit per number made, instead of sorting (number, slot) keys
// (several passes over twice the memory).
void CKivDelaunayWork::CreationOrder(CKivBigArray<std::uint32_t>& order) const
{
    const std::uint32_t nLoaded = static_cast<std::uint32_t>(m_vecSrc.size());
    const std::size_t nNumbers = m_nSeq > nLoaded ? m_nSeq - nLoaded : 0;
    const std::size_t nWords = (nNumbers + 63) / 64;
    CKivBigArray<std::uint64_t> bits(nWords, 0);
    for (const STri& r : m_vecTri) {
        if (r.v[0] >= 0 && r.seq >= nLoaded) {
            const std::size_t q = r.seq - nLoaded;
            bits[q / 64] |= std::uint64_t(1) << (q % 64);
        }
    }
    CKivBigArray<std::uint32_t> before(nWords);
    std::uint32_t sum = 0;
    for (std::size_t w = 0; w < nWords; ++w) {
        before[w] = sum;
        sum += static_cast<std::uint32_t>(KivPopCount(bits[w]));
    }
    order.resize(sum);
    for (std::size_t t = 0; t < m_vecTri.size(); ++t) {
        const STri& r = m_vecTri[t];
        if (r.v[0] >= 0 && r.seq >= nLoaded) {
            const std::size_t q = r.seq - nLoaded;
            const std::uint64_t below = bits[q / 64] & ((std::uint64_t(1) << (q % 64)) - 1);
            order[before[q / 64] + static_cast<std::uint32_t>(KivPopCount(below))] = static_cast<std::uint32_t>(t);
        }
    }
}

void CKivDelaunayWork::Store(const FnDel& del, const FnAdd& add)
{
    for (std::uint32_t q : m_vecDeadSrc) {
        del(m_vecSrc[q]);
    }
    CKivBigArray<std::uint32_t> order;
    CreationOrder(order);
    // Size every list once: the new triangles per corner.
    std::fill(m_vecStamp.begin(), m_vecStamp.end(), 0);
    for (std::uint32_t o : order) {
        for (int c : m_vecTri[o].v) {
            ++m_vecStamp[static_cast<std::size_t>(c)];
        }
    }
    for (std::size_t i = 0; i < m_vecVert.size(); ++i) {
        if (m_vecStamp[i]) {
            std::vector<_sTri*>& l = m_vecVert[i]->vecTri;
            l.reserve(l.size() + static_cast<std::size_t>(m_vecStamp[i]));
        }
    }
    for (std::uint32_t o : order) {
        const STri& r = m_vecTri[o];
        add(m_vecVert[r.v[0]], m_vecVert[r.v[1]], m_vecVert[r.v[2]]);
    }
    Clear();
}

void CKivDelaunayWork::Export(std::vector<const _sTri*>& dead, CKivBigArray<int>& corners)
{
    dead.clear();
    for (std::uint32_t q : m_vecDeadSrc) {
        dead.push_back(m_vecSrc[q]);
    }
    CKivBigArray<std::uint32_t> order;
    CreationOrder(order);
    corners.resize(3 * order.size());
    for (std::size_t j = 0; j < order.size(); ++j) {
        const STri& r = m_vecTri[order[j]];
        corners[3 * j] = r.v[0];
        corners[3 * j + 1] = r.v[1];
        corners[3 * j + 2] = r.v[2];
    }
    Clear();
}

int CKivDelaunayWork::NewTri(int a, int b, int c)
{
    if (m_nSeq == UINT32_MAX) {
        Renumber();
    }
    int t = m_nFree;
    if (t >= 0) {
        m_nFree = m_vecTri[t].n[0];
    } else {
        t = static_cast<int>(m_vecTri.size());
        m_vecTri.emplace_back();
    }
    STri& r = m_vecTri[t];
    r.v[0] = a;
    r.v[1] = b;
    r.v[2] = c;
    r.n[0] = r.n[1] = r.n[2] = -1;
    r.seq = m_nSeq++;
    r.mark = 0;
    r.sense = 0;
    m_vecPt[a].tri = m_vecPt[b].tri = m_vecPt[c].tri = t;
    m_nLastTri = t;
    ++m_nLive;
    return t;
}

// Creation numbers run out after 2^32 triangles: close the gaps, keeping
// the order (the loaded triangles keep theirs, they come first).
void CKivDelaunayWork::Renumber()
{
    m_nAhead = 0; // the walks made ahead name triangles by their old numbers
    const std::uint32_t nLoaded = static_cast<std::uint32_t>(m_vecSrc.size());
    std::vector<std::uint64_t> order;
    for (std::size_t t = 0; t < m_vecTri.size(); ++t) {
        if (m_vecTri[t].v[0] >= 0 && m_vecTri[t].seq >= nLoaded) {
            order.push_back(static_cast<std::uint64_t>(m_vecTri[t].seq) << 32 | t);
        }
    }
    std::sort(order.begin(), order.end());
    m_nSeq = nLoaded;
    for (std::uint64_t o : order) {
        m_vecTri[o & 0xffffffffu].seq = m_nSeq++;
    }
}

void CKivDelaunayWork::FreeTri(int t)
{
    STri& r = m_vecTri[t];
    if (r.seq < m_vecSrc.size()) {
        m_vecDeadSrc.push_back(r.seq);
    }
    r.v[0] = -1;
    r.mark = 0;
    r.n[0] = m_nFree;
    m_nFree = t;
    --m_nLive;
}

int CKivDelaunayWork::Orient(int a, int b, double px, double py) const
{
    return ExactOrient2D(m_vecPt[a].x, m_vecPt[a].y, m_vecPt[b].x, m_vecPt[b].y, px, py);
}

bool CKivDelaunayWork::Holds(int t, double px, double py, int& onEdge) const
{
    const STri& r = m_vecTri[t];
    int zeros = 0;
    onEdge = -1;
    for (int k = 0; k < 3; ++k) {
        const int o = Orient(r.v[k], r.v[(k + 1) % 3], px, py);
        if (o < 0) {
            return false;
        }
        if (o == 0) {
            ++zeros;
            onEdge = k;
        }
    }
    if (zeros > 1) {
        onEdge = -2;
    }
    return true;
}

// The plain walk: classify against the current triangle with the tolerant
// side tests and step across the first edge the point lies beyond. -1 when
// that edge has no neighbour (outside), -2 when the walk runs longer than
// there are triangles (a cycle).
int CKivDelaunayWork::LegacyWalk(int start, double px, double py) const
{
    int t = start;
    for (long steps = 0; steps <= static_cast<long>(m_nLive) + 1; ++steps) {
        const STri& r = m_vecTri[t];
        const SVert& a = m_vecPt[r.v[0]];
        const SVert& b = m_vecPt[r.v[1]];
        const SVert& c = m_vecPt[r.v[2]];
        // The next step goes to one of the neighbours: fetch all three while
        // the point is classified.
        for (int k = 0; k < 3; ++k) {
            if (r.n[k] >= 0) {
                __builtin_prefetch(&m_vecTri[r.n[k]]);
            }
        }
        const int pos = GetPtPosInTri2D(px, py, a.x, a.y, b.x, b.y, c.x, c.y, false);
        if (pos < 1 || pos > 3) {
            return t;
        }
        t = r.n[pos - 1];
        if (t < 0) {
            return -1;
        }
    }
    return -2;
}

// The triangle that holds the point by the exact test: a visibility walk
// that tries the edges from a rotating first one (so it cannot circle for
// ever on a valid triangulation), then a scan if it still runs too long.
int CKivDelaunayWork::ExactLocate(int start, double px, double py) const
{
    int t = start;
    std::uint32_t rnd = 0x9e3779b9u;
    for (long steps = 0; t >= 0 && steps <= static_cast<long>(m_nLive) + 1; ++steps) {
        const STri& r = m_vecTri[t];
        rnd = rnd * 1664525u + 1013904223u;
        const int k0 = static_cast<int>((rnd >> 16) % 3u);
        int next = -2;
        for (int j = 0; j < 3; ++j) {
            const int k = (k0 + j) % 3;
            if (Orient(r.v[k], r.v[(k + 1) % 3], px, py) < 0) {
                next = r.n[k];
                break;
            }
        }
        if (next == -2) {
            return t;
        }
        t = next;
    }
    int onEdge = 0;
    for (std::size_t s = 0; s < m_vecTri.size(); ++s) {
        if (m_vecTri[s].v[0] >= 0 && Holds(static_cast<int>(s), px, py, onEdge)) {
            return static_cast<int>(s);
        }
    }
    return -1;
}

int CKivDelaunayWork::CellOf(double x, double y) const
{
    // Clamped as doubles: a far point (or NaN) must not reach the int
    // conversion, whose result is undefined out of range.
    const auto cell = [](double f, int n) {
        if (!(f > 0.0)) {
            return 0;
        }
        return f >= n - 1 ? n - 1 : static_cast<int>(f);
    };
    return cell((y - m_dY0) * m_dInvH, m_nRows) * m_nCols + cell((x - m_dX0) * m_dInvW, m_nCols);
}

int CKivDelaunayWork::StartTri(double px, double py) const
{
    if (m_nCols > 0) {
        // The point's cell, else the nearest non-empty cell within two rings.
        const int c = CellOf(px, py);
        const int cx = c % m_nCols, cy = c / m_nCols;
        int u = m_vecCell[static_cast<std::size_t>(c)];
        for (int ring = 1; u < 0 && ring <= 2; ++ring) {
            for (int y = std::max(cy - ring, 0); u < 0 && y <= std::min(cy + ring, m_nRows - 1); ++y) {
                for (int x = std::max(cx - ring, 0); u < 0 && x <= std::min(cx + ring, m_nCols - 1); ++x) {
                    u = m_vecCell[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_nCols) +
                                  static_cast<std::size_t>(x)];
                }
            }
        }
        const int t = u >= 0 ? m_vecPt[u].tri : -1;
        if (t >= 0 && m_vecTri[t].v[0] >= 0) {
            return t;
        }
    }
    if (m_nLastTri >= 0 && m_vecTri[m_nLastTri].v[0] >= 0) {
        return m_nLastTri;
    }
    for (std::size_t t = 0; t < m_vecTri.size(); ++t) {
        if (m_vecTri[t].v[0] >= 0) {
            return static_cast<int>(t);
        }
    }
    return -1;
}

void CKivDelaunayWork::LocateAhead(const int* next, std::size_t count)
{
    // Where the points come in order across the map (rows of a grid), the
    // walks made ahead mostly fail: the points before change what they
    // passed. Then the next blocks are located one by one, and a later
    // block tries again.
    if (m_nAhead > 0 && 2 * m_nAheadTaken < m_nAhead) {
        m_nAheadSkip = kAheadPause;
    }
    m_nAhead = m_nAheadNext = m_nAheadTaken = 0;
    if (!m_bAhead) {
        return;
    }
    if (m_nAheadSkip > 0) {
        --m_nAheadSkip;
        return;
    }
    const int n = static_cast<int>(std::min<std::size_t>(count, kAheadPoints));
    m_nAhead = n;
    const auto ok = [this](int t) { return t >= 0 && m_vecTri[static_cast<std::size_t>(t)].v[0] >= 0; };
    // The starts: each link of the chain (cell, vertex, triangle) asked for
    // for every walk before any of them is read.
    if (m_nCols > 0) {
        std::size_t cell[kAheadPoints];
        for (int j = 0; j < n; ++j) {
            const SVert& p = m_vecPt[static_cast<std::size_t>(next[j])];
            cell[j] = static_cast<std::size_t>(CellOf(p.x, p.y));
            __builtin_prefetch(&m_vecCell[cell[j]]);
        }
        for (int j = 0; j < n; ++j) {
            const int u = m_vecCell[cell[j]];
            if (u >= 0) {
                __builtin_prefetch(&m_vecPt[static_cast<std::size_t>(u)]);
            }
        }
        for (int j = 0; j < n; ++j) {
            const int u = m_vecCell[cell[j]];
            const int t = u >= 0 ? m_vecPt[static_cast<std::size_t>(u)].tri : -1;
            if (t >= 0) {
                __builtin_prefetch(&m_vecTri[static_cast<std::size_t>(t)]);
            }
        }
    }
    int active = 0;
    for (int j = 0; j < n; ++j) {
        SAhead& a = m_ahead[j];
        const SVert& p = m_vecPt[static_cast<std::size_t>(next[j])];
        a.vert = next[j];
        a.iv = std::isfinite(p.x) && std::isfinite(p.y) ? next[j] : -1;
        a.start = a.iv >= 0 ? StartTri(p.x, p.y) : -1;
        a.cur = a.start;
        a.steps = 0;
        if (!ok(a.cur)) {
            a.iv = -1;
        }
        active += a.iv >= 0;
    }
    // The walks, one step of each per round: first ask for the corners of
    // every walk's triangle, then classify and ask for the next triangles.
    const long cap = static_cast<long>(m_nLive) + 1;
    while (active > 0) {
        for (int j = 0; j < n; ++j) {
            const SAhead& a = m_ahead[j];
            if (a.iv >= 0 && a.cur >= 0) {
                for (int c : m_vecTri[static_cast<std::size_t>(a.cur)].v) {
                    __builtin_prefetch(&m_vecPt[static_cast<std::size_t>(c)]);
                }
            }
        }
        for (int j = 0; j < n; ++j) {
            SAhead& a = m_ahead[j];
            if (a.iv < 0 || a.cur < 0) {
                continue;
            }
            if (a.steps == kAheadSteps || a.steps > cap) {
                a.iv = -1; // long walks are left to Insert
                --active;
                continue;
            }
            const STri& r = m_vecTri[static_cast<std::size_t>(a.cur)];
            a.path[a.steps] = a.cur;
            a.seq[a.steps] = r.seq;
            ++a.steps;
            const SVert& p = m_vecPt[static_cast<std::size_t>(a.iv)];
            const SVert& v0 = m_vecPt[static_cast<std::size_t>(r.v[0])];
            const SVert& v1 = m_vecPt[static_cast<std::size_t>(r.v[1])];
            const SVert& v2 = m_vecPt[static_cast<std::size_t>(r.v[2])];
            const int pos = GetPtPosInTri2D(p.x, p.y, v0.x, v0.y, v1.x, v1.y, v2.x, v2.y, false);
            if (pos < 1 || pos > 3) {
                a.found = a.cur;
                a.cur = -1;
                --active;
                for (int nb : r.n) {
                    if (nb >= 0) {
                        __builtin_prefetch(&m_vecTri[static_cast<std::size_t>(nb)]);
                    }
                }
                continue;
            }
            a.cur = r.n[pos - 1];
            if (a.cur < 0) {
                a.found = -1;
                --active;
                continue;
            }
            __builtin_prefetch(&m_vecTri[static_cast<std::size_t>(a.cur)]);
        }
    }
    // The cavity search starts at the triangle found and tests its
    // neighbours and theirs: ask for those and their corners too, one ring
    // of every walk's neighbourhood at a time.
    for (int ring = 0; ring < 2; ++ring) {
        for (int j = 0; j < n; ++j) {
            const SAhead& a = m_ahead[j];
            if (a.iv < 0 || a.found < 0) {
                continue;
            }
            for (int nb : m_vecTri[static_cast<std::size_t>(a.found)].n) {
                if (nb < 0) {
                    continue;
                }
                const STri& q = m_vecTri[static_cast<std::size_t>(nb)];
                if (ring == 0) {
                    for (int c : q.v) {
                        __builtin_prefetch(&m_vecPt[static_cast<std::size_t>(c)]);
                    }
                }
                for (int nb2 : q.n) {
                    if (nb2 < 0) {
                        continue;
                    }
                    if (ring == 0) {
                        __builtin_prefetch(&m_vecTri[static_cast<std::size_t>(nb2)]);
                    } else {
                        for (int c : m_vecTri[static_cast<std::size_t>(nb2)].v) {
                            __builtin_prefetch(&m_vecPt[static_cast<std::size_t>(c)]);
                        }
                    }
                }
            }
        }
    }
}

bool CKivDelaunayWork::TakeAhead(int iv, int start, int& found)
{
    // Vertices the caller skipped are passed over.
    while (m_nAheadNext < m_nAhead && m_ahead[m_nAheadNext].vert != iv) {
        ++m_nAheadNext;
    }
    if (m_nAheadNext >= m_nAhead) {
        return false;
    }
    const SAhead& a = m_ahead[m_nAheadNext++];
    if (a.iv != iv || a.start != start || a.steps > static_cast<long>(m_nLive) + 1) {
        return false;
    }
    for (int k = 0; k < a.steps; ++k) {
        const STri& r = m_vecTri[static_cast<std::size_t>(a.path[k])];
        if (r.v[0] < 0 || r.seq != a.seq[k]) {
            return false;
        }
    }
    found = a.found;
    ++m_nAheadTaken;
    return true;
}

void CKivDelaunayWork::PrepareLocate(double xmin, double ymin, double xmax, double ymax, std::size_t nPoints)
{
    m_dX0 = xmin;
    m_dY0 = ymin;
    m_dX1 = xmax;
    m_dY1 = ymax;
    m_nCols = m_nRows = 0;
    m_vecCell.clear();
    m_nLastCell = -1;
    m_nInserted = 0;
    m_nRebuildAt = kFirstGrid;
    // About two triangles per point, plus room for the largest cavity.
    m_vecTri.reserve(m_vecTri.size() + 2 * nPoints + 1024);
}

// After an insertion: the cell of the new point remembers it.
void CKivDelaunayWork::GridPut(int iv)
{
    ++m_nInserted;
    if (m_nInserted >= m_nRebuildAt) {
        GridRebuild();
        m_nRebuildAt *= 4;
        return;
    }
    if (m_nCols > 0) {
        m_vecCell[static_cast<std::size_t>(CellOf(m_vecPt[iv].x, m_vecPt[iv].y))] = iv;
    }
}

// One inserted point per cell (then up to four until the next rebuild: the
// cell is fetched ahead, so a finer grid costs little and shortens the
// walks); rebuilt each time the number of inserted points grows fourfold, so
// the rebuilds cost O(n) in all.
void CKivDelaunayWork::GridRebuild()
{
    const double w = std::max(m_dX1 - m_dX0, 1e-300);
    const double h = std::max(m_dY1 - m_dY0, 1e-300);
    const double cells = std::max(1.0, static_cast<double>(m_nInserted));
    // fmin/fmax rather than clamp: an infinite or NaN extent must still give
    // counts in range (fmax drops the NaN).
    const double cols = std::fmin(std::fmax(std::sqrt(cells * w / h), 1.0), 8192.0);
    const double rows = std::fmin(std::fmax(cells / cols, 1.0), 8192.0);
    m_nCols = static_cast<int>(cols);
    m_nRows = static_cast<int>(rows);
    m_dInvW = m_nCols / w;
    m_dInvH = m_nRows / h;
    if (!std::isfinite(m_dInvW) || !std::isfinite(m_dInvH)) {
        m_nCols = m_nRows = 0;
        return;
    }
    m_vecCell.assign(static_cast<std::size_t>(m_nCols) * static_cast<std::size_t>(m_nRows), -1);
    // Every vertex that has a triangle, the later one winning its cell.
    for (std::size_t i = 0; i < m_vecPt.size(); ++i) {
        if (m_vecPt[i].tri >= 0) {
            m_vecCell[static_cast<std::size_t>(CellOf(m_vecPt[i].x, m_vecPt[i].y))] = static_cast<int>(i);
        }
    }
}

// The cavity's boundary: each edge of a cavity triangle whose neighbour is
// not in the cavity, in collection order and corner order. On a consistent
// mesh this is exactly what cancelling every edge that occurs twice leaves.
void CKivDelaunayWork::CollectBoundary()
{
    m_vecEdge.clear();
    for (int x : m_vecCavity) {
        const STri& r = m_vecTri[x];
        for (int k = 0; k < 3; ++k) {
            const int nb = r.n[k];
            if (nb < 0 || !m_vecTri[nb].mark) {
                m_vecEdge.push_back({r.v[k], r.v[(k + 1) % 3], x, nb});
            }
        }
    }
}

// Makes the cavity star-shaped from the point so that the fan is a valid
// triangulation of it. The tolerant tests keep their say wherever the fan
// would be valid; on small or huge coordinates they can collect a cavity
// that is not (a boundary edge the point does not see strictly from inside,
// a vertex left inside the cavity, or no cavity at all). Then:
//  - the triangles that really hold the point (exact test) join the cavity;
//  - a triangle whose boundary edge would give a fan triangle that is not
//    strictly counter-clockwise leaves it, repeatedly;
//  - when a vertex would end up inside, the last cavity triangle using it
//    leaves.
// With every boundary edge seen strictly from the point, the fan covers the
// cavity exactly once (the fan's coverage of a point is the boundary's
// winding number around it), and a star-shaped cavity is a disk, so no
// inner vertex is left when its boundary has two edges more than it has
// triangles. The holding triangles never leave: the point sees their edges
// strictly, or lies on their shared edge.
bool CKivDelaunayWork::RepairCavity(int iv, const int* hold, int nHold)
{
    const double px = m_vecPt[iv].x, py = m_vecPt[iv].y;
    for (int j = 0; j < nHold; ++j) {
        if (!m_vecTri[hold[j]].mark) {
            m_vecTri[hold[j]].mark = 1;
            m_vecCavity.push_back(hold[j]);
        }
    }
    const auto isHold = [&](int t) { return t == hold[0] || (nHold > 1 && t == hold[1]); };
    const auto drop = [&](int t) {
        m_vecTri[t].mark = 0;
        m_vecCavity.erase(std::find(m_vecCavity.begin(), m_vecCavity.end(), t));
    };
    for (std::size_t guard = m_vecCavity.size() + 1; guard-- > 0;) {
        CollectBoundary();
        int bad = -1;
        for (const SEdge& e : m_vecEdge) {
            if (Orient(e.a, e.b, px, py) <= 0) {
                bad = e.owner;
                break;
            }
        }
        if (bad >= 0) {
            if (isHold(bad)) {
                return false;
            }
            drop(bad);
            continue;
        }
        if (m_vecEdge.size() == m_vecCavity.size() + 2) {
            return true;
        }
        // A vertex inside the cavity: one that no boundary edge starts at.
        ++m_nStamp;
        for (const SEdge& e : m_vecEdge) {
            m_vecStamp[e.a] = m_nStamp;
        }
        int inner = -1;
        for (std::size_t i = 0; i < m_vecCavity.size() && inner < 0; ++i) {
            for (int c : m_vecTri[m_vecCavity[i]].v) {
                if (m_vecStamp[c] != m_nStamp) {
                    inner = c;
                    break;
                }
            }
        }
        int victim = -1;
        for (std::size_t i = m_vecCavity.size(); inner >= 0 && i-- > 0;) {
            const STri& r = m_vecTri[m_vecCavity[i]];
            if (!isHold(m_vecCavity[i]) && (r.v[0] == inner || r.v[1] == inner || r.v[2] == inner)) {
                victim = m_vecCavity[i];
                break;
            }
        }
        if (victim < 0) {
            return false;
        }
        drop(victim);
    }
    return false;
}

int CKivDelaunayWork::InCircle(int x, double px, double py)
{
    // Kept as 1 (counter-clockwise), 2 (clockwise), 3 (degenerate: never in
    // the circle) or 4 (magnitudes beyond the filter: the plain rule).
    STri& r = m_vecTri[x];
    const SVert& a = m_vecPt[r.v[0]];
    const SVert& b = m_vecPt[r.v[1]];
    const SVert& c = m_vecPt[r.v[2]];
    if (r.sense == 0) {
        const int s = InCircleTriSense(a.x, a.y, b.x, b.y, c.x, c.y);
        r.sense = static_cast<std::uint8_t>(s < 0 ? 3 : (s == 0 ? 4 : s));
    }
    switch (r.sense) {
    case 3:
        return -1;
    case 4:
        return IsPtInCircumCircle2D(px, py, a.x, a.y, b.x, b.y, c.x, c.y);
    default:
        return InCircleWithSense(px, py, a.x, a.y, b.x, b.y, c.x, c.y, r.sense);
    }
}

// The cavity: the triangles whose circumcircle holds the point (tolerant
// test) that are reached from the start through such triangles, in the
// order of the recursive flood (the triangle itself, then everything reached
// across edge 01, then 12, then 20).
//
// Which triangles join does not depend on the visiting order, only the list
// order does. So the set is found first breadth-first, one ring of
// neighbours at a time: the triangles of a ring and then their corners are
// fetched together, so their cache misses overlap instead of following one
// another as they do depth-first. The depth-first pass then only orders the
// set, on records already in cache.
void CKivDelaunayWork::FloodCavity(int start, double px, double py, bool bNear)
{
    if (bNear) {
        // Right next to the last point its records are still in cache, and
        // one plain depth-first pass is cheaper.
        m_vecCavity.clear();
        m_vecStack.clear();
        m_vecStack.push_back(start);
        while (!m_vecStack.empty()) {
            const int x = m_vecStack.back();
            m_vecStack.pop_back();
            if (x < 0 || m_vecTri[x].mark) {
                continue;
            }
            const STri& r = m_vecTri[x];
            if (InCircle(x, px, py) < 0) {
                continue;
            }
            m_vecTri[x].mark = 1;
            m_vecCavity.push_back(x);
            m_vecStack.push_back(r.n[2]);
            m_vecStack.push_back(r.n[1]);
            m_vecStack.push_back(r.n[0]);
        }
        return;
    }
    enum : std::uint32_t { kFree = 0, kCavity = 1, kQueued = 2, kIn = 3, kOut = 4 };
    m_vecCavity.clear();
    m_vecTouched.clear();
    m_vecRing.clear();
    m_vecTri[start].mark = kQueued;
    m_vecTouched.push_back(start);
    m_vecRing.push_back(start);
    while (!m_vecRing.empty()) {
        for (int x : m_vecRing) {
            for (int c : m_vecTri[x].v) {
                __builtin_prefetch(&m_vecPt[c]);
            }
        }
        m_vecNext.clear();
        for (int x : m_vecRing) {
            STri& r = m_vecTri[x];
            if (InCircle(x, px, py) < 0) {
                r.mark = kOut;
                continue;
            }
            r.mark = kIn;
            for (int nb : r.n) {
                if (nb >= 0 && m_vecTri[nb].mark == kFree) {
                    __builtin_prefetch(&m_vecTri[nb]);
                    m_vecTri[nb].mark = kQueued;
                    m_vecTouched.push_back(nb);
                    m_vecNext.push_back(nb);
                }
            }
        }
        m_vecRing.swap(m_vecNext);
    }
    m_vecStack.clear();
    m_vecStack.push_back(start);
    while (!m_vecStack.empty()) {
        const int x = m_vecStack.back();
        m_vecStack.pop_back();
        if (x < 0 || m_vecTri[x].mark != kIn) {
            continue;
        }
        const STri& r = m_vecTri[x];
        m_vecTri[x].mark = kCavity;
        m_vecCavity.push_back(x);
        m_vecStack.push_back(r.n[2]);
        m_vecStack.push_back(r.n[1]);
        m_vecStack.push_back(r.n[0]);
    }
    for (int x : m_vecTouched) {
        if (m_vecTri[x].mark != kCavity) {
            m_vecTri[x].mark = kFree;
        }
    }
}

bool CKivDelaunayWork::Insert(int iv)
{
    if (!m_bLoaded || m_nLive == 0 || iv < 0 || static_cast<std::size_t>(iv) >= m_vecVert.size()) {
        return false;
    }
    const double px = m_vecPt[iv].x, py = m_vecPt[iv].y;
    if (!std::isfinite(px) || !std::isfinite(py)) {
        return false;
    }
    const int start = StartTri(px, py);
    int found = -1;
    if (!TakeAhead(iv, start, found)) {
        found = LegacyWalk(start, px, py);
    }

    // The triangle(s) that really hold the point.
    int onEdge = -1;
    int hold = -1;
    if (found >= 0 && Holds(found, px, py, onEdge)) {
        hold = found;
    } else {
        hold = ExactLocate(found >= 0 ? found : start, px, py);
        if (hold < 0) {
            return false;
        }
        Holds(hold, px, py, onEdge);
    }
    if (onEdge == -2) {
        return false; // on an existing vertex
    }
    int holds[2] = {hold, -1};
    int nHold = 1;
    if (onEdge >= 0) {
        holds[1] = m_vecTri[hold].n[onEdge];
        if (holds[1] < 0) {
            return false; // on the outer boundary: no valid fan
        }
        nHold = 2;
    }

    // Whether the last point was in this grid cell or the next one (as in
    // gridded data, inserted row by row).
    bool bNear = false;
    if (m_nCols > 0) {
        const int c = CellOf(px, py);
        bNear = m_nLastCell >= 0 && std::abs(c % m_nCols - m_nLastCell % m_nCols) <= 1 &&
                std::abs(c / m_nCols - m_nLastCell / m_nCols) <= 1;
        m_nLastCell = c;
    }
    FloodCavity(found >= 0 ? found : hold, px, py, bNear);

    if (!RepairCavity(iv, holds, nHold)) {
        for (int x : m_vecCavity) {
            m_vecTri[x].mark = 0;
        }
        return false;
    }

    // The cavity goes first, so that the new triangles take its (cached)
    // slots. Then fan the boundary edges to the point, in order, relinking
    // the outside neighbour of each edge to its new triangle.
    for (int x : m_vecCavity) {
        FreeTri(x);
    }
    m_vecNew.clear();
    for (const SEdge& e : m_vecEdge) {
        const int outer = e.outer;
        const int t = NewTri(e.a, e.b, iv);
        m_vecTri[t].n[0] = outer;
        if (outer >= 0) {
            STri& o = m_vecTri[outer];
            for (int j = 0; j < 3; ++j) {
                if (o.v[j] == e.b && o.v[(j + 1) % 3] == e.a) {
                    o.n[j] = t;
                    break;
                }
            }
        }
        m_vecNew.push_back(t);
    }
    // Link the fan: the triangle after t starts where t's edge ends. A small
    // fan (nearly all) is searched; tables by vertex would cost a cache miss
    // per look-up. The later match wins, as in the tables.
    const std::size_t nNew = m_vecNew.size();
    if (nNew <= kFanSearch) {
        for (std::size_t i = 0; i < nNew; ++i) {
            STri& r = m_vecTri[m_vecNew[i]];
            r.n[1] = r.n[2] = -1;
            for (std::size_t j = nNew; j-- > 0;) {
                if (m_vecEdge[j].a == r.v[1]) {
                    r.n[1] = m_vecNew[j];
                    break;
                }
            }
            for (std::size_t j = nNew; j-- > 0;) {
                if (m_vecEdge[j].b == r.v[0]) {
                    r.n[2] = m_vecNew[j];
                    break;
                }
            }
        }
    } else {
        if (m_vecStartAt.empty()) {
            m_vecStartAt.assign(m_vecPt.size(), -1);
            m_vecEndAt.assign(m_vecPt.size(), -1);
        }
        for (std::size_t i = 0; i < nNew; ++i) {
            m_vecStartAt[m_vecEdge[i].a] = m_vecNew[i];
            m_vecEndAt[m_vecEdge[i].b] = m_vecNew[i];
        }
        for (int t : m_vecNew) {
            STri& r = m_vecTri[t];
            r.n[1] = m_vecStartAt[r.v[1]];
            r.n[2] = m_vecEndAt[r.v[0]];
        }
        for (const SEdge& e : m_vecEdge) {
            m_vecStartAt[e.a] = -1;
            m_vecEndAt[e.b] = -1;
        }
    }
    m_nLastTri = m_vecNew.back();
    if (m_nRebuildAt) {
        GridPut(iv);
    }
    return true;
}

void CKivDelaunayWork::SetPrevBound(_sVertex* const* v)
{
    for (int k = 0; k < 3; ++k) {
        m_pPrevBound[k] = v[k];
        m_ptPrevBound[k] = v[k] ? v[k]->pt : CKivPoint3d();
    }
}

void CKivDelaunayWork::BeginRun(const std::vector<_sVertex*>& verts)
{
    m_vecExclude.clear();
    for (const _sVertex* v : verts) {
        if (IsPrevBound(v)) {
            m_vecExclude.push_back(v);
        }
    }
}

bool CKivDelaunayWork::IsPrevBound(const _sVertex* v) const
{
    // The record alone could be a new vertex at a freed one's address; the
    // position must match too.
    for (int k = 0; k < 3; ++k) {
        if (v && v == m_pPrevBound[k] && v->pt.x == m_ptPrevBound[k].x && v->pt.y == m_ptPrevBound[k].y &&
            v->pt.z == m_ptPrevBound[k].z) {
            return true;
        }
    }
    return false;
}

} // namespace TriMesh
