// CKivMeshQuery: the outline of the mesh, from its boundary edges.
#include <kivgeo/mesh_query.h>

#include "trimesh/big_array_alloc.h"

#include <cmath>
#include <cstdint>
#include <deque>
#include <functional>
#include <queue>
#include <unordered_map>
#include <utility>

namespace TriMesh {

namespace {

// An edge of the cancellation, in the slot it took.
struct SSlot {
    _sVertex* a;
    _sVertex* b;
};

// Live boundary edges during the cancellation: an open-addressing table from
// an undirected edge to its slot, with linear probing and backward-shift
// deletion (no tombstones). Millions of insertions and removals run through
// it on a large TIN, and hundreds of thousands of edges are live at once, so
// an entry is only 8 bytes: the slot, and 32 bits of the edge's hash (which
// also give its home); the edge itself is read from the slot when the hash
// bits match. The table then mostly stays in cache where one with the
// vertex addresses in it would not.
class CEdgeTable {
public:
    explicit CEdgeTable(const std::vector<SSlot>& slots) : m_slots(slots) { Rehash(1024); }

    // The slot of the live edge (a, b), or npos; pos is where it sits, or
    // where it would be inserted (the table then has room for it).
    std::size_t Find(const _sVertex* a, const _sVertex* b, std::size_t& pos)
    {
        // Up to 70 % full: linear probing still ends within a line or two,
        // and the table stays small enough to stay in cache.
        if (10 * (m_nCount + 1) > 7 * m_vecEntry.size()) {
            Rehash(2 * m_vecEntry.size());
        }
        const std::uint32_t tag = Hash(a, b);
        for (pos = tag & m_nMask;; pos = (pos + 1) & m_nMask) {
            const SEntry& e = m_vecEntry[pos];
            if (e.slot == 0) {
                return npos;
            }
            if (e.tag == tag) {
                const SSlot& s = m_slots[e.slot - 1];
                if ((s.a == a && s.b == b) || (s.a == b && s.b == a)) {
                    return e.slot - 1;
                }
            }
        }
    }
    // Asks for the line where the search for (a, b) starts.
    void Prefetch(const _sVertex* a, const _sVertex* b) const
    {
        __builtin_prefetch(&m_vecEntry[Hash(a, b) & m_nMask]);
    }
    // At a pos that Find() just gave for (a, b).
    void InsertAt(std::size_t pos, const _sVertex* a, const _sVertex* b, std::size_t slot)
    {
        m_vecEntry[pos] = SEntry{static_cast<std::uint32_t>(slot + 1), Hash(a, b)};
        ++m_nCount;
    }
    void EraseAt(std::size_t i)
    {
        // Shift later members of the probe run back into the hole.
        for (std::size_t j = (i + 1) & m_nMask;; j = (j + 1) & m_nMask) {
            const SEntry& e = m_vecEntry[j];
            if (e.slot == 0) {
                break;
            }
            const std::size_t h = e.tag & m_nMask;
            // e may move to i when its home does not lie cyclically in (i, j].
            if (((j - h) & m_nMask) >= ((j - i) & m_nMask)) {
                m_vecEntry[i] = e;
                i = j;
            }
        }
        m_vecEntry[i] = SEntry{};
        --m_nCount;
    }

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

private:
    // Slot plus one, so that zero marks an empty entry.
    struct SEntry {
        std::uint32_t slot = 0;
        std::uint32_t tag = 0;
    };

    static std::uint32_t Hash(const _sVertex* a, const _sVertex* b)
    {
        std::uint64_t x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
        if (y < x) {
            std::swap(x, y);
        }
        std::uint64_t h = x * 0x9E3779B97F4A7C15ull;
        h ^= y * 0xC2B2AE3D27D4EB4Full;
        h ^= h >> 31;
        return static_cast<std::uint32_t>(h);
    }
    void Rehash(std::size_t cap)
    {
        CKivBigArray<SEntry> old(cap);
        old.swap(m_vecEntry);
        m_nMask = cap - 1;
        m_nCount = 0;
        for (const SEntry& e : old) {
            if (e.slot != 0) {
                std::size_t i = e.tag & m_nMask;
                while (m_vecEntry[i].slot != 0) {
                    i = (i + 1) & m_nMask;
                }
                m_vecEntry[i] = e;
                ++m_nCount;
            }
        }
    }

    const std::vector<SSlot>& m_slots;
    CKivBigArray<SEntry> m_vecEntry;
    std::size_t m_nMask = 0;
    std::size_t m_nCount = 0;
};

} // namespace

void CKivMeshQuery::GetSegsOfMesh(std::vector<_sSeg*>& out)
{
    // Edges cancel in pairs. A slot array keeps the surviving edges in the
    // order of their slots, a new edge taking the lowest empty slot; the
    // table finds the live edge (there is at most one per vertex pair) and
    // the heap the lowest empty slot, where a scan of the slots would do
    // both. Records are made for the survivors only.
    const std::vector<_sTri*>& tris = m_pMesh->m_vecTri;
    std::vector<SSlot> slots;
    std::vector<char> filled; // per slot, apart: the table reads slots at random
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<std::size_t>> empty;
    CEdgeTable live(slots);
    std::size_t nLive = 0;
    for (std::size_t i = 0; i < tris.size(); ++i) {
        // The table is read at random: ask for the lines a few triangles
        // ahead.
        if (i + 8 < tris.size() && tris[i + 8]) {
            const _sTri* u = tris[i + 8];
            for (int k = 0; k < 3; ++k) {
                live.Prefetch(u->pVt[k], u->pVt[(k + 1) % 3]);
            }
        }
        const _sTri* t = tris[i];
        if (!t) {
            continue;
        }
        for (int k = 0; k < 3; ++k) {
            _sVertex* a = t->pVt[k];
            _sVertex* b = t->pVt[(k + 1) % 3];
            std::size_t pos;
            const std::size_t found = live.Find(a, b, pos);
            if (found != CEdgeTable::npos) {
                filled[found] = 0;
                empty.push(found);
                live.EraseAt(pos);
                --nLive;
                continue;
            }
            std::size_t slot;
            if (!empty.empty()) {
                slot = empty.top();
                empty.pop();
                slots[slot] = SSlot{a, b};
                filled[slot] = 1;
            } else {
                slot = slots.size();
                slots.push_back(SSlot{a, b});
                filled.push_back(1);
            }
            live.InsertAt(pos, a, b, slot);
            ++nLive;
        }
    }
    out.clear();
    out.reserve(nLive);
    try {
        for (std::size_t i = 0; i < slots.size(); ++i) {
            if (filled[i]) {
                _sSeg* seg = new _sSeg;
                seg->pVt[0] = slots[i].a;
                seg->pVt[1] = slots[i].b;
                out.push_back(seg);
            }
        }
    } catch (...) {
        for (_sSeg* seg : out) {
            delete seg;
        }
        out.clear();
        throw;
    }
}

bool CKivMeshQuery::LinkPtrSegs(const std::vector<_sSeg*>& segs, std::vector<CKivPolyLine>& out) const
{
    if (segs.empty()) {
        return false;
    }
    out.clear();
    // For every vertex, the entries that touch it in list order, and a cursor
    // past those already taken: the first entry touching the head or the tail
    // is the smaller of the two cursors' entries. Entries are only ever
    // removed, and all entries before the current start are gone, so this is
    // the first present entry from i + 1 on, as a scan would find it.
    const std::size_t n = segs.size();
    std::unordered_map<const _sVertex*, std::size_t> ids;
    ids.reserve(n * 2);
    std::vector<std::size_t> endId(2 * n);
    for (std::size_t i = 0; i < n; ++i) {
        for (int e = 0; e < 2; ++e) {
            endId[2 * i + e] = ids.emplace(segs[i]->pVt[e], ids.size()).first->second;
        }
    }
    std::vector<std::size_t> start(ids.size() + 1, 0);
    for (std::size_t i = 0; i < n; ++i) {
        ++start[endId[2 * i] + 1];
        if (endId[2 * i + 1] != endId[2 * i]) {
            ++start[endId[2 * i + 1] + 1];
        }
    }
    for (std::size_t v = 0; v < ids.size(); ++v) {
        start[v + 1] += start[v];
    }
    std::vector<std::size_t> touching(start.back());
    std::vector<std::size_t> cursor(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < n; ++i) {
        touching[cursor[endId[2 * i]]++] = i;
        if (endId[2 * i + 1] != endId[2 * i]) {
            touching[cursor[endId[2 * i + 1]]++] = i;
        }
    }
    std::copy(start.begin(), start.end() - 1, cursor.begin());
    std::vector<char> present(n, 1);
    const auto firstPresent = [&](std::size_t v) {
        std::size_t& c = cursor[v];
        while (c < start[v + 1] && !present[touching[c]]) {
            ++c;
        }
        return c < start[v + 1] ? touching[c] : n;
    };

    for (std::size_t i = 0; i < n; ++i) {
        if (!present[i]) {
            continue;
        }
        present[i] = 0;
        // Grown at both ends in a deque; a polyline inserts at the front in
        // linear time.
        std::deque<CKivPoint3d> pts{segs[i]->pVt[0]->pt, segs[i]->pVt[1]->pt};
        const _sVertex* head = segs[i]->pVt[0];
        const _sVertex* tail = segs[i]->pVt[1];
        std::size_t headId = endId[2 * i], tailId = endId[2 * i + 1];
        for (;;) {
            const std::size_t j = std::min(firstPresent(headId), firstPresent(tailId));
            if (j == n) {
                break;
            }
            present[j] = 0;
            const _sVertex* a = segs[j]->pVt[0];
            const _sVertex* b = segs[j]->pVt[1];
            if (head == a) {
                pts.push_front(b->pt);
                head = b, headId = endId[2 * j + 1];
            } else if (head == b) {
                pts.push_front(a->pt);
                head = a, headId = endId[2 * j];
            } else if (tail == a) {
                pts.push_back(b->pt);
                tail = b, tailId = endId[2 * j + 1];
            } else {
                pts.push_back(a->pt);
                tail = a, tailId = endId[2 * j];
            }
        }
        CKivPolyLine line;
        if (head == tail) {
            // A closed ring does not repeat its first vertex.
            line.SetClosed(true);
            pts.pop_back();
        }
        line.SetVertex(std::vector<CKivPoint3d>(pts.begin(), pts.end()));
        out.push_back(std::move(line));
    }
    return true;
}

void CKivMeshQuery::FormOutline()
{
    if (!HasSearch()) {
        return; // a mesh that cannot be searched answers as an empty one
    }
    std::vector<_sSeg*> segs;
    GetSegsOfMesh(segs);
    if (!segs.empty()) {
        try {
            LinkPtrSegs(segs, m_vecOutline);
        } catch (...) {
            for (_sSeg* s : segs) {
                delete s;
            }
            throw;
        }
    }
    for (_sSeg* s : segs) {
        delete s;
    }
}

void CKivMeshQuery::GetOutline(CKivPolyLine& out)
{
    if (m_vecOutline.empty()) {
        FormOutline();
    }
    const CKivPolyLine* best = nullptr;
    double bestArea = 0.0;
    for (const CKivPolyLine& line : m_vecOutline) {
        const double a = std::fabs(line.GetArea());
        if (!best || a > bestArea) {
            best = &line;
            bestArea = a;
        }
    }
    if (best) {
        out = *best;
    }
}

void CKivMeshQuery::GetOutline(std::vector<CKivPolyLine>& out)
{
    if (m_vecOutline.empty()) {
        FormOutline();
    }
    out = m_vecOutline;
}

} // namespace TriMesh
