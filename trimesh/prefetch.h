// Cache hint for loops whose loads land all over memory (lookups of a
// shuffled soup, walks over triangles whose corners lie anywhere): asking for
// the data a few steps ahead lets the loads overlap instead of queueing.
#ifndef KIVGEO_TRIMESH_PREFETCH_H
#define KIVGEO_TRIMESH_PREFETCH_H

#include <kivgeo/mesh_data.h>

#include <cstddef>

namespace TriMesh {

inline void PrefetchRead(const void* p)
{
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p, 0, 1);
#else
    (void)p;
#endif
}

inline void PrefetchWrite(const void* p)
{
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p, 1, 1);
#else
    (void)p;
#endif
}

// How far ahead the walks over triangles ask for the records and corners
// they will read: a load from memory takes about as long as handling 16
// triangles that are in cache.
constexpr std::size_t kAhead = 16;

// Asks for the corners of triangle t (already in cache or asked for earlier).
inline void PrefetchCorners(const _sTri* t)
{
    PrefetchRead(t->pVt[0]);
    PrefetchRead(t->pVt[1]);
    PrefetchRead(t->pVt[2]);
}

} // namespace TriMesh

#endif
