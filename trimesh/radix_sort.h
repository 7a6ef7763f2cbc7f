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
inline void KivSortByHighBits(CKivBigArray<std::uint64_t>& v, int nBits)
{
    constexpr int kDigit = 11;
    constexpr std::size_t kBuckets = std::size_t(1) << kDigit;
    if (v.empty()) {
        return;
    }
    CKivBigArray<std::uint64_t> tmp(v.size());
    std::vector<std::size_t> count(kBuckets);
    for (int shift = 32; shift < 32 + nBits; shift += kDigit) {
        std::fill(count.begin(), count.end(), 0);
        for (std::uint64_t x : v) {
            ++count[(x >> shift) & (kBuckets - 1)];
        }
        if (count[(v.front() >> shift) & (kBuckets - 1)] == v.size()) {
            continue; // one digit value throughout: nothing moves
        }
        std::size_t sum = 0;
        for (std::size_t& c : count) {
            const std::size_t here = c;
            c = sum;
            sum += here;
        }
        for (std::uint64_t x : v) {
            tmp[count[(x >> shift) & (kBuckets - 1)]++] = x;
        }
        v.swap(tmp);
    }
}

} // namespace TriMesh

#endif
