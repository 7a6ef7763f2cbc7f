// CKivMeshQuery: the outline of the mesh, from its boundary edges.
#include <kivgeo/mesh_query.h>

#include <cmath>
#include <cstdint>
#include <deque>
#include <functional>
#include <queue>
#include <unordered_map>

namespace TriMesh {

namespace {

// Undirected edge key: the two vertex addresses, smaller first.
struct SEdgeKey {
    const _sVertex* a;
    const _sVertex* b;
    bool operator==(const SEdgeKey& o) const { return a == o.a && b == o.b; }
};

SEdgeKey MakeKey(const _sVertex* a, const _sVertex* b)
{
    return std::less<const _sVertex*>()(a, b) ? SEdgeKey{a, b} : SEdgeKey{b, a};
}

struct SEdgeHash {
    std::size_t operator()(const SEdgeKey& k) const
    {
        const auto x = reinterpret_cast<std::uintptr_t>(k.a), y = reinterpret_cast<std::uintptr_t>(k.b);
        std::uint64_t h = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ull;
        h ^= static_cast<std::uint64_t>(y) + 0x7F4A7C159E3779B9ull + (h << 6) + (h >> 2);
        return static_cast<std::size_t>(h ^ (h >> 29));
    }
};

} // namespace

void CKivMeshQuery::GetSegsOfMesh(std::vector<_sSeg*>& out)
{
    // Edges cancel in pairs. A slot array keeps the surviving records in the
    // order of their slots, a new record taking the lowest empty slot; the
    // map finds the live record of an edge (there is at most one) and the
    // heap the lowest empty slot, where a scan of the slots would do both.
    const std::vector<_sTri*>& tris = m_pMesh->m_vecTri;
    std::vector<_sSeg*> slots;
    slots.reserve(tris.size() + 16);
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<std::size_t>> empty;
    std::unordered_map<SEdgeKey, std::size_t, SEdgeHash> live;
    live.reserve(tris.size() + 16);
    try {
        for (const _sTri* t : tris) {
            if (!t) {
                continue;
            }
            for (int k = 0; k < 3; ++k) {
                _sVertex* a = t->pVt[k];
                _sVertex* b = t->pVt[(k + 1) % 3];
                const auto it = live.find(MakeKey(a, b));
                if (it != live.end()) {
                    delete slots[it->second];
                    slots[it->second] = nullptr;
                    empty.push(it->second);
                    live.erase(it);
                    continue;
                }
                _sSeg* s = new _sSeg;
                s->pVt[0] = a;
                s->pVt[1] = b;
                std::size_t slot;
                if (!empty.empty()) {
                    slot = empty.top();
                    empty.pop();
                    slots[slot] = s;
                } else {
                    slot = slots.size();
                    slots.push_back(s);
                }
                live.emplace(MakeKey(a, b), slot);
            }
        }
        out.clear();
        out.reserve(live.size());
    } catch (...) {
        for (_sSeg* s : slots) {
            delete s;
        }
        throw;
    }
    for (_sSeg* s : slots) {
        if (s) {
            out.push_back(s);
        }
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
