// Storage for the store's triangle records. Records come from fixed chunks
// and go back onto a free list, so each stays a separate object at a stable
// address (as the friends rely on) without a heap call per triangle: a TIN of
// a million points makes and drops several million of them.
#ifndef KIVGEO_TRIMESH_TRI_POOL_H
#define KIVGEO_TRIMESH_TRI_POOL_H

#include <kivgeo/mesh_data.h>

#include "trimesh/big_array_alloc.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

namespace TriMesh {

class CKivTriPool {
public:
    CKivTriPool() = default;
    CKivTriPool(const CKivTriPool&) = delete;
    CKivTriPool& operator=(const CKivTriPool&) = delete;
    ~CKivTriPool() { Clear(); }

    // A record as _sTri() makes it.
    _sTri* New()
    {
        if (!m_vecFree.empty()) {
            _sTri* t = m_vecFree.back();
            m_vecFree.pop_back();
            *t = _sTri();
            return t;
        }
        if (m_nUsed == m_nLast) {
            AddChunk();
        }
        return new (m_vecChunk.back().first + m_nUsed++) _sTri;
    }
    // n records as _sTri() makes them, side by side in one chunk of their
    // own (a bulk load reaches record i of the run at run + i).
    _sTri* NewRun(std::size_t n)
    {
        if (n == 0) {
            return nullptr;
        }
        m_vecChunk.reserve(m_vecChunk.size() + 1);
        _sTri* run = static_cast<_sTri*>(KivAllocBlock(n * sizeof(_sTri), alignof(_sTri)));
        for (std::size_t i = 0; i < n; ++i) {
            new (run + i) _sTri;
        }
        // Full: the next New starts a fresh chunk.
        m_vecChunk.emplace_back(run, n);
        m_nLast = m_nUsed = n;
        return run;
    }
    // Takes a record back; its address may be handed out again.
    void Delete(_sTri* t) { m_vecFree.push_back(t); }
    // Releases every record at once.
    void Clear()
    {
        for (const auto& c : m_vecChunk) {
            KivFreeBlock(c.first, c.second * sizeof(_sTri), alignof(_sTri));
        }
        m_vecChunk.clear();
        std::vector<_sTri*>().swap(m_vecFree);
        m_nUsed = m_nLast = 0;
    }

private:
    // Chunks double from a small first one (a small mesh stays small) to
    // 2 MiB, which the kernel may back with one huge page: a page fault per
    // 4 KiB is a large share of making millions of records.
    static constexpr std::size_t kFirstChunk = 4096;
    static constexpr std::size_t kMaxChunk = kKivHugeBlock / sizeof(_sTri);

    void AddChunk()
    {
        const std::size_t n = m_vecChunk.empty() ? kFirstChunk : std::min(2 * m_nLast, kMaxChunk);
        m_vecChunk.reserve(m_vecChunk.size() + 1);
        m_vecChunk.emplace_back(static_cast<_sTri*>(KivAllocBlock(n * sizeof(_sTri), alignof(_sTri))), n);
        m_nLast = n;
        m_nUsed = 0;
    }

    std::vector<std::pair<_sTri*, std::size_t>> m_vecChunk; // start, records
    std::vector<_sTri*> m_vecFree;
    std::size_t m_nUsed = 0; // records handed out of the last chunk
    std::size_t m_nLast = 0; // records in the last chunk
};

} // namespace TriMesh

#endif
