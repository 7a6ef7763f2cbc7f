// Storage for the store's vertex records, in the manner of CKivTriPool:
// records come from fixed chunks and go back onto a free list, so each stays
// a separate object at a stable address without a heap call per vertex. A
// record fills one cache line of its own, so that reading a vertex's position
// and its triangle list costs one line. Records a friend made with new and
// appended itself are told apart (Owns) and freed with delete as before.
#ifndef KIVGEO_TRIMESH_VERTEX_POOL_H
#define KIVGEO_TRIMESH_VERTEX_POOL_H

#include <kivgeo/mesh_data.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <vector>

namespace TriMesh {

class CKivVertexPool {
public:
    CKivVertexPool() = default;
    CKivVertexPool(const CKivVertexPool&) = delete;
    CKivVertexPool& operator=(const CKivVertexPool&) = delete;

    // A record as _sVertex() makes it.
    _sVertex* New()
    {
        void* slot = nullptr;
        if (!m_vecFree.empty()) {
            slot = m_vecFree.back();
            m_vecFree.pop_back();
        } else {
            if (m_nUsed == kChunk) {
                AddChunk();
            }
            slot = &m_vecChunk.back()[m_nUsed++];
        }
        return new (slot) _sVertex;
    }
    // Whether v is one of this pool's records.
    bool Owns(const _sVertex* v) const
    {
        const std::less<const void*> before;
        const auto it =
            std::upper_bound(m_vecStart.begin(), m_vecStart.end(), static_cast<const void*>(v), before);
        if (it == m_vecStart.begin()) {
            return false;
        }
        const SSlot* start = static_cast<const SSlot*>(*(it - 1));
        return before(static_cast<const void*>(v), static_cast<const void*>(start + kChunk));
    }
    // Destroys a record of this pool; its slot may be handed out again.
    void Delete(_sVertex* v)
    {
        v->~_sVertex();
        m_vecFree.push_back(v);
    }
    // Releases the storage; every record must have been deleted.
    void Clear()
    {
        m_vecChunk.clear();
        m_vecStart.clear();
        std::vector<void*>().swap(m_vecFree);
        m_nUsed = kChunk;
    }

private:
    struct alignas(64) SSlot {
        unsigned char bytes[sizeof(_sVertex)];
    };
    static constexpr std::size_t kChunk = 4096;

    void AddChunk()
    {
        m_vecChunk.emplace_back(new SSlot[kChunk]);
        const void* start = m_vecChunk.back().get();
        m_vecStart.insert(std::upper_bound(m_vecStart.begin(), m_vecStart.end(), start, std::less<const void*>()),
                          start);
        m_nUsed = 0;
    }

    std::vector<std::unique_ptr<SSlot[]>> m_vecChunk;
    // Chunk starts in address order, for Owns.
    std::vector<const void*> m_vecStart;
    std::vector<void*> m_vecFree;
    std::size_t m_nUsed = kChunk; // slots handed out of the last chunk
};

} // namespace TriMesh

#endif
