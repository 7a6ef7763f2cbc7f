// Chaining an unordered bag of segments into polylines.
//
// The rule is defined by a plain scan: a chain repeatedly takes the
// lowest-index remaining segment (or open piece) that touches its head or its
// tail, testing head before tail and the stored start before the stored end.
// Rescanning the whole bag after every attachment is quadratic, so the end
// points are kept in a hash grid instead. A cell is wider than the matching
// distance, so every match of a query point lies in the few cells its
// tolerance box overlaps; the candidates there are tested with the exact
// rule. Each cell lists its end points in ascending item order, so the first
// live match in a cell is that cell's lowest index, and the minimum over the
// cells is exactly the segment the plain scan would pick.
//
// Cells are small (a fraction of a millimetre in the first pass): in
// practice a cell then holds the copies of a single point, all of which
// match, and a point shared by thousands of segments costs no more than one
// shared by two.
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

constexpr uint32_t kNone = std::numeric_limits<uint32_t>::max();

// The end-point distance of the second pass.
constexpr double kJoinDist = 0.0001;

// End points 2k and 2k+1 belong to item k (a segment, or an open piece).
class CKivEndIndex {
public:
    // reach bounds the coordinate difference of any two matching points, and
    // cells are `width` reaches wide: the wider, the more often a query box
    // falls in a single cell. Far from the origin cells grow so that cell
    // coordinates stay well inside 64 bits.
    CKivEndIndex(const std::vector<CKivPoint3d>& ends, double reach, double width)
        : m_ends(ends), m_reach(reach), m_live(ends.size() / 2, 1), m_cellOf(ends.size(), kNone)
    {
        double maxAbs = 0.0;
        for (const CKivPoint3d& p : ends) {
            for (double c : {p.x, p.y, p.z}) {
                if (std::isfinite(c)) {
                    maxAbs = std::max(maxAbs, std::fabs(c));
                }
            }
        }
        m_inv = 1.0 / std::max(width * reach, maxAbs * 0x1p-50);
        // Open addressing, at most half full even if every end point has a
        // cell of its own.
        size_t cap = 16;
        while (cap < 2 * ends.size()) {
            cap *= 2;
        }
        m_slots.assign(cap, kNone);
        m_mask = cap - 1;
        std::vector<uint32_t> count;
        for (size_t e = 0; e < ends.size(); ++e) {
            const CKivPoint3d& p = ends[e];
            if (std::isnan(p.x) || std::isnan(p.y) || std::isnan(p.z)) {
                continue; // matches nothing
            }
            const Key k{Coord(p.x), Coord(p.y), Coord(p.z)};
            size_t slot = Hash(k) & m_mask;
            while (m_slots[slot] != kNone && !(m_keys[m_slots[slot]] == k)) {
                slot = (slot + 1) & m_mask;
            }
            if (m_slots[slot] == kNone) {
                m_slots[slot] = static_cast<uint32_t>(m_keys.size());
                m_keys.push_back(k);
                count.push_back(0);
            }
            m_cellOf[e] = m_slots[slot];
            ++count[m_slots[slot]];
        }
        // Cells as ranges of one array, filled in ascending end-point order.
        m_cell.assign(count.size(), Cell{0, 0, 0});
        uint32_t at = 0;
        for (size_t c = 0; c < count.size(); ++c) {
            m_cell[c].start = at;
            at += count[c];
        }
        m_entries.resize(at);
        for (size_t e = 0; e < ends.size(); ++e) {
            const uint32_t c = m_cellOf[e];
            if (c != kNone) {
                m_entries[m_cell[c].start + m_cell[c].size++] = static_cast<uint32_t>(e);
            }
        }
    }

    bool IsLive(uint32_t item) const { return m_live[item] != 0; }

    void Remove(uint32_t item)
    {
        m_live[item] = 0;
        for (uint32_t e = 2 * item; e < 2 * item + 2; ++e) {
            if (m_cellOf[e] != kNone) {
                ++m_cell[m_cellOf[e]].dead;
            }
        }
        for (uint32_t e = 2 * item; e < 2 * item + 2; ++e) {
            if (m_cellOf[e] == kNone) {
                continue;
            }
            Cell& cell = m_cell[m_cellOf[e]];
            // The lowest items tend to go first: drop dead entries off the
            // front at once. Squeeze the cell, keeping the order, once half of
            // the rest is dead.
            while (cell.size > 0 && m_live[m_entries[cell.start] / 2] == 0) {
                ++cell.start, --cell.size, --cell.dead;
            }
            if (2 * cell.dead > cell.size) {
                uint32_t* first = &m_entries[cell.start];
                uint32_t* last =
                    std::remove_if(first, first + cell.size, [this](uint32_t x) { return m_live[x / 2] == 0; });
                cell.size = static_cast<uint32_t>(last - first);
                cell.dead = 0;
            }
        }
    }

    // The lowest live item below bound with an end point p for which
    // match(q, p) holds, q being end point iq; kNone when there is none.
    template <class Match> uint32_t FindFirst(uint32_t iq, uint32_t bound, Match match) const
    {
        const CKivPoint3d& q = m_ends[iq];
        if (m_cellOf[iq] == kNone) {
            return kNone; // NaN matches nothing
        }
        // Rounding is monotonic, so every coordinate within reach of q falls
        // between the cells of q - reach and q + reach.
        const int64_t x0 = Coord(q.x - m_reach), x1 = Coord(q.x + m_reach);
        const int64_t y0 = Coord(q.y - m_reach), y1 = Coord(q.y + m_reach);
        const int64_t z0 = Coord(q.z - m_reach), z1 = Coord(q.z + m_reach);
        if (x0 == x1 && y0 == y1 && z0 == z1) {
            return FirstInCell(m_cellOf[iq], q, bound, match); // the usual case: q's own cell
        }
        uint32_t best = bound;
        for (int64_t x = x0; x <= x1; ++x) {
            for (int64_t y = y0; y <= y1; ++y) {
                for (int64_t z = z0; z <= z1; ++z) {
                    const uint32_t c = Find(Key{x, y, z});
                    if (c != kNone) {
                        const uint32_t k = FirstInCell(c, q, best, match);
                        best = k == kNone ? best : k;
                    }
                }
            }
        }
        return best == bound ? kNone : best;
    }

private:
    struct Key {
        int64_t x, y, z;
        bool operator==(const Key& o) const { return x == o.x && y == o.y && z == o.z; }
    };
    static size_t Hash(const Key& k)
    {
        // Mixed to the low bits, which pick the slot.
        uint64_t h = static_cast<uint64_t>(k.x) * 0x9E3779B97F4A7C15ull;
        h = (h ^ static_cast<uint64_t>(k.y)) * 0xC2B2AE3D27D4EB4Full;
        h = (h ^ static_cast<uint64_t>(k.z)) * 0x165667B19E3779F9ull;
        h ^= h >> 32;
        h *= 0xD6E8FEB86659FD93ull;
        h ^= h >> 32;
        return static_cast<size_t>(h);
    }

    // Entries are in ascending order, so the first live match is the lowest.
    template <class Match>
    uint32_t FirstInCell(uint32_t c, const CKivPoint3d& q, uint32_t bound, Match match) const
    {
        const uint32_t* e = &m_entries[m_cell[c].start];
        for (const uint32_t* end = e + m_cell[c].size; e != end; ++e) {
            const uint32_t item = *e / 2;
            if (item >= bound) {
                break;
            }
            if (m_live[item] && match(q, m_ends[*e])) {
                return item;
            }
        }
        return kNone;
    }

    uint32_t Find(const Key& k) const
    {
        for (size_t slot = Hash(k) & m_mask;; slot = (slot + 1) & m_mask) {
            const uint32_t c = m_slots[slot];
            if (c == kNone || m_keys[c] == k) {
                return c;
            }
        }
    }

    // Cell coordinate, clamped so that huge and infinite values stay
    // representable (the clamped cells merely hold more candidates).
    int64_t Coord(double c) const
    {
        constexpr double kLim = 4611686018427387904.0; // 2^62
        double v = std::floor(c * m_inv);
        v = std::min(std::max(v, -kLim), kLim);
        return static_cast<int64_t>(v);
    }

    const std::vector<CKivPoint3d>& m_ends;
    double m_reach;
    double m_inv = 1.0;
    std::vector<char> m_live;
    std::vector<uint32_t> m_cellOf;
    std::vector<uint32_t> m_slots; // cell per slot of the hash table, kNone when empty
    size_t m_mask = 0;
    std::vector<Key> m_keys; // per cell
    struct Cell {
        uint32_t start, size, dead; // range in m_entries, dead entries in it
    };
    std::vector<Cell> m_cell;
    std::vector<uint32_t> m_entries;
};

// A chain that grows at both ends: the vertices in front of the start are
// kept in reverse order, so both ends grow by push_back.
class CKivChain {
public:
    void Start(const CKivPoint3d& a, const CKivPoint3d& b)
    {
        m_front.clear();
        m_back.assign({a, b});
    }
    void Start(const std::vector<CKivPoint3d>& pts)
    {
        m_front.clear();
        m_back = pts;
    }
    void Prepend(const CKivPoint3d& p) { m_front.push_back(p); }
    void Append(const CKivPoint3d& p) { m_back.push_back(p); }
    // The chain's vertices; a closed chain drops its last one (the repeat of
    // its first).
    CKivPolyLine Finish(bool bClosed) const
    {
        std::vector<CKivPoint3d> pts;
        pts.reserve(m_front.size() + m_back.size());
        pts.assign(m_front.rbegin(), m_front.rend());
        pts.insert(pts.end(), m_back.begin(), m_back.end());
        CKivPolyLine line;
        line.SetVertex(pts);
        if (bClosed) {
            line.SetClosed(true);
            line.DelVertex(line.NumVerts() - 1);
        }
        return line;
    }
    std::vector<CKivPoint3d> TakeOpen()
    {
        std::vector<CKivPoint3d> pts(m_front.rbegin(), m_front.rend());
        pts.insert(pts.end(), m_back.begin(), m_back.end());
        return pts;
    }

private:
    std::vector<CKivPoint3d> m_front, m_back;
};

// First pass: chains of segments whose end points are equal. Closed chains go
// to lines, open ones to pieces, both in the order they are finished.
void ChainEqualEnds(const std::vector<CKivSeg3d>& segs, std::vector<CKivPolyLine>& lines,
                    std::vector<std::vector<CKivPoint3d>>& pieces)
{
    const uint32_t n = static_cast<uint32_t>(segs.size());
    std::vector<CKivPoint3d> ends(2 * static_cast<size_t>(n));
    for (uint32_t k = 0; k < n; ++k) {
        ends[2 * k] = segs[k].m_pt[0];
        ends[2 * k + 1] = segs[k].m_pt[1];
    }
    // Point equality never lets a coordinate differ by 1e-6 or more. Cells of
    // 0.000256 rarely hold two distinct points.
    CKivEndIndex index(ends, 2e-6, 128.0);
    auto equal = [](const CKivPoint3d& q, const CKivPoint3d& p) {
        // Cheap rejection first: a coordinate 1e-6 or more apart (or NaN) is
        // never equal; the point equality has the last word.
        auto close = [](double a, double b) { return a == b || std::fabs(a - b) < 1e-6; };
        return close(q.x, p.x) && close(q.y, p.y) && close(q.z, p.z) && q == p;
    };

    // The chain's head and tail as end-point ids; the values are ends[id].
    CKivChain chain;
    for (uint32_t first = 0; first < n; ++first) {
        if (!index.IsLive(first)) {
            continue;
        }
        index.Remove(first);
        uint32_t head = 2 * first, tail = 2 * first + 1;
        chain.Start(ends[head], ends[tail]);
        for (;;) {
            const uint32_t kHead = index.FindFirst(head, kNone, equal);
            const uint32_t kTail = index.FindFirst(tail, kHead, equal);
            const uint32_t k = std::min(kHead, kTail);
            if (k == kNone) {
                break;
            }
            const uint32_t s1 = 2 * k, s2 = 2 * k + 1;
            if (ends[head] == ends[s1]) {
                head = s2;
                chain.Prepend(ends[s2]);
            } else if (ends[head] == ends[s2]) {
                head = s1;
                chain.Prepend(ends[s1]);
            } else if (ends[tail] == ends[s1]) {
                tail = s2;
                chain.Append(ends[s2]);
            } else {
                tail = s1;
                chain.Append(ends[s1]);
            }
            index.Remove(k);
        }
        if (ends[head] == ends[tail]) {
            lines.push_back(chain.Finish(true));
        } else {
            pieces.push_back(chain.TakeOpen());
        }
    }
}

// Second pass: open pieces whose ends lie within kJoinDist are joined. At
// each join the current chain keeps its own end point.
void JoinNearEnds(const std::vector<std::vector<CKivPoint3d>>& pieces, std::vector<CKivPolyLine>& lines)
{
    const uint32_t m = static_cast<uint32_t>(pieces.size());
    std::vector<CKivPoint3d> ends(2 * static_cast<size_t>(m));
    for (uint32_t k = 0; k < m; ++k) {
        ends[2 * k] = pieces[k].front();
        ends[2 * k + 1] = pieces[k].back();
    }
    // Each coordinate difference is at most the distance; the factor 2 covers
    // the rounding of the distance itself.
    CKivEndIndex index(ends, 2.0 * kJoinDist, 16.0);
    auto isNear = [](const CKivPoint3d& q, const CKivPoint3d& p) { return q.Distance(p) < kJoinDist; };

    CKivChain chain;
    for (uint32_t first = 0; first < m; ++first) {
        if (!index.IsLive(first)) {
            continue;
        }
        index.Remove(first);
        chain.Start(pieces[first]);
        uint32_t start = 2 * first, end = 2 * first + 1;
        for (;;) {
            const uint32_t kStart = index.FindFirst(start, kNone, isNear);
            const uint32_t kEnd = index.FindFirst(end, kStart, isNear);
            const uint32_t k = std::min(kStart, kEnd);
            if (k == kNone) {
                break;
            }
            const std::vector<CKivPoint3d>& p = pieces[k];
            const size_t last = p.size() - 1;
            if (isNear(ends[start], p.front())) {
                // The piece reversed in front, its first vertex dropped.
                for (size_t i = 1; i <= last; ++i) {
                    chain.Prepend(p[i]);
                }
                start = 2 * k + 1;
            } else if (isNear(ends[start], p.back())) {
                for (size_t i = last; i-- > 0;) {
                    chain.Prepend(p[i]);
                }
                start = 2 * k;
            } else if (isNear(ends[end], p.front())) {
                for (size_t i = 1; i <= last; ++i) {
                    chain.Append(p[i]);
                }
                end = 2 * k + 1;
            } else {
                for (size_t i = last; i-- > 0;) {
                    chain.Append(p[i]);
                }
                end = 2 * k;
            }
            index.Remove(k);
        }
        lines.push_back(chain.Finish(ends[start] == ends[end]));
    }
}

} // namespace

bool CKivSeg3d::LinkSeg(std::vector<CKivSeg3d>& segs, std::vector<CKivPolyLine>& lines)
{
    if (segs.size() < 2) {
        return false;
    }
    std::vector<std::vector<CKivPoint3d>> pieces;
    ChainEqualEnds(segs, lines, pieces);
    segs.clear();
    JoinNearEnds(pieces, lines);
    return true;
}
