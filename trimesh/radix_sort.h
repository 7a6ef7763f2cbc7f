// Stable radix sort of 64-bit records by a key in their upper half, for the
// bulk builds of the store (octree routes, the corner merge of InputData).
// Not installed.
#ifndef KIVGEO_TRIMESH_RADIX_SORT_H
#define KIVGEO_TRIMESH_RADIX_SORT_H

#include "trimesh/big_array_alloc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace TriMesh {

// Stable sort of v by its upper 32 bits, of which only the low nBits
// matter: least significant digit first, 11 bits a pass. Records with equal
// keys keep their order, so a record's lower half may carry its position.
// The arrays outgrow the caches, so every sweep over them counts: one sweep
// counts all digits, then one sweep a digit moves the records.
inline void KivSortByHighBits(CKivBigArray<std::uint64_t>& v, int nBits)
{
    constexpr int kDigit = 11;
    constexpr std::size_t kBuckets = std::size_t(1) << kDigit;
    constexpr int kMaxPasses = (32 + kDigit - 1) / kDigit;
    if (v.empty() || nBits <= 0) {
        return;
    }
    const int nPasses = std::min(kMaxPasses, (nBits + kDigit - 1) / kDigit);
    std::vector<std::size_t> count(kBuckets * static_cast<std::size_t>(nPasses), 0);
    for (std::uint64_t x : v) {
        for (int p = 0; p < nPasses; ++p) {
            ++count[static_cast<std::size_t>(p) * kBuckets + ((x >> (32 + kDigit * p)) & (kBuckets - 1))];
        }
    }
    CKivBigArray<std::uint64_t> tmp;
    for (int p = 0; p < nPasses; ++p) {
        const int shift = 32 + kDigit * p;
        std::size_t* c = &count[static_cast<std::size_t>(p) * kBuckets];
        if (c[(v.front() >> shift) & (kBuckets - 1)] == v.size()) {
            continue; // one digit value throughout: nothing moves
        }
        std::size_t sum = 0;
        for (std::size_t b = 0; b < kBuckets; ++b) {
            const std::size_t here = c[b];
            c[b] = sum;
            sum += here;
        }
        if (tmp.size() != v.size()) {
            tmp.resize(v.size());
        }
        for (std::uint64_t x : v) {
            tmp[c[(x >> shift) & (kBuckets - 1)]++] = x;
        }
        v.swap(tmp);
    }
}

} // namespace TriMesh

#endif
