// Counting set bits, for ranks in bitmaps (a position's rank is the number
// of set bits before it). Not installed.
#ifndef KIVGEO_TRIMESH_BIT_RANK_H
#define KIVGEO_TRIMESH_BIT_RANK_H

#include <cstdint>

namespace TriMesh {

// Set bits of x. Written out rather than __builtin_popcountll, which without
// a popcount instruction in the target is a library call per word.
inline int KivPopCount(std::uint64_t x)
{
    x -= (x >> 1) & 0x5555555555555555ULL;
    x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
    x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0fULL;
    return static_cast<int>((x * 0x0101010101010101ULL) >> 56);
}

} // namespace TriMesh

#endif
