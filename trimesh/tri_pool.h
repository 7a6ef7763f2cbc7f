// Storage for the store's triangle records. Records come from fixed chunks
// and go back onto a free list, so each stays a separate object at a stable
// address (as the friends rely on) without a heap call per triangle: a TIN of
// a million points makes and drops several million of them.
#ifndef KIVGEO_TRIMESH_TRI_POOL_H
#define KIVGEO_TRIMESH_TRI_POOL_H

#include <kivgeo/mesh_data.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace TriMesh {

class CKivTriPool {
public:
    // A record as _sTri() makes it.
    _sTri* New()
    {
        if (!m_vecFree.empty()) {
            _sTri* t = m_vecFree.back();
            m_vecFree.pop_back();
            *t = _sTri();
            return t;
        }
        if (m_nUsed == kChunk) {
            m_vecChunk.emplace_back(new _sTri[kChunk]);
            m_nUsed = 0;
        }
        return &m_vecChunk.back()[m_nUsed++];
    }
    // Takes a record back; its address may be handed out again.
    void Delete(_sTri* t) { m_vecFree.push_back(t); }
    // Releases every record at once.
    void Clear()
    {
        m_vecChunk.clear();
        m_vecFree.clear();
        m_vecFree.shrink_to_fit();
        m_nUsed = kChunk;
    }

private:
    static constexpr std::size_t kChunk = 4096;
    std::vector<std::unique_ptr<_sTri[]>> m_vecChunk;
    std::vector<_sTri*> m_vecFree;
    std::size_t m_nUsed = kChunk; // records handed out of the last chunk
};

} // namespace TriMesh

#endif
