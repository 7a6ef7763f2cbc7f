// Storage for the store's vertex records, in the manner of CKivTriPool:
// records come from chunks and go back onto a free list, so each stays
// a separate object at a stable address without a heap call per vertex. A
// record fills one cache line of its own, so that reading a vertex's position
// and its triangle list costs one line. Records a friend made with new and
// appended itself are told apart (Owns) and freed with delete as before.
#ifndef KIVGEO_TRIMESH_VERTEX_POOL_H
#define KIVGEO_TRIMESH_VERTEX_POOL_H

#include <kivgeo/mesh_data.h>

#include "trimesh/big_array_alloc.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>
#include <utility>
#include <vector>

namespace TriMesh {

class CKivVertexPool {
public:
    CKivVertexPool() = default;
    CKivVertexPool(const CKivVertexPool&) = delete;
    CKivVertexPool& operator=(const CKivVertexPool&) = delete;
    ~CKivVertexPool() { Release(); }

    // A record as _sVertex() makes it.
    _sVertex* New()
    {
        void* slot = nullptr;
        if (!m_vecFree.empty()) {
            slot = m_vecFree.back();
            m_vecFree.pop_back();
        } else {
            if (m_nUsed == m_nLast) {
                AddChunk();
            }
            slot = m_vecChunk.back().first + m_nUsed++;
        }
        return new (slot) _sVertex;
    }
    // Whether v is one of this pool's records.
    bool Owns(const _sVertex* v) const
    {
        const std::less<const void*> before;
        const void* p = v;
        const auto it = std::upper_bound(m_vecByAddr.begin(), m_vecByAddr.end(), p,
                                         [&](const void* q, const SChunk& c) { return before(q, c.first); });
        if (it == m_vecByAddr.begin()) {
            return false;
        }
        const SChunk& c = *(it - 1);
        return before(p, static_cast<const void*>(c.first + c.second));
    }
    // Destroys a record of this pool; its slot may be handed out again.
    void Delete(_sVertex* v)
    {
        v->~_sVertex();
        m_vecFree.push_back(v);
    }
    // Releases the storage; every record must have been deleted.
    void Clear() { Release(); }

private:
    struct alignas(64) SSlot {
        unsigned char bytes[sizeof(_sVertex)];
    };
    using SChunk = std::pair<SSlot*, std::size_t>; // start, slots
    // Chunks double up to 2 MiB, which may be one huge page (see CKivTriPool).
    static constexpr std::size_t kFirstChunk = 4096;
    static constexpr std::size_t kMaxChunk = kKivHugeBlock / sizeof(SSlot);

    void AddChunk()
    {
        const std::size_t n = m_vecChunk.empty() ? kFirstChunk : std::min(2 * m_nLast, kMaxChunk);
        m_vecChunk.reserve(m_vecChunk.size() + 1);
        m_vecByAddr.reserve(m_vecByAddr.size() + 1);
        const SChunk c(static_cast<SSlot*>(KivAllocBlock(n * sizeof(SSlot), alignof(SSlot))), n);
        m_vecChunk.push_back(c);
        m_vecByAddr.insert(std::upper_bound(m_vecByAddr.begin(), m_vecByAddr.end(), c,
                                            [](const SChunk& x, const SChunk& y) {
                                                return std::less<const void*>()(x.first, y.first);
                                            }),
                           c);
        m_nLast = n;
        m_nUsed = 0;
    }
    void Release()
    {
        for (const SChunk& c : m_vecChunk) {
            KivFreeBlock(c.first, c.second * sizeof(SSlot), alignof(SSlot));
        }
        m_vecChunk.clear();
        m_vecByAddr.clear();
        std::vector<void*>().swap(m_vecFree);
        m_nUsed = m_nLast = 0;
    }

    std::vector<SChunk> m_vecChunk;  // in the order made
    std::vector<SChunk> m_vecByAddr; // in address order, for Owns
    std::vector<void*> m_vecFree;
    std::size_t m_nUsed = 0; // slots handed out of the last chunk
    std::size_t m_nLast = 0; // slots in the last chunk
};

} // namespace TriMesh

#endif
