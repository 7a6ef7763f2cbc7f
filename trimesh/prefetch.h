// Cache hint for loops whose loads land all over memory (lookups of a
// shuffled soup, walks over triangles whose corners lie anywhere): asking for
// the data a few steps ahead lets the loads overlap instead of queueing.
#ifndef KIVGEO_TRIMESH_PREFETCH_H
#define KIVGEO_TRIMESH_PREFETCH_H

namespace TriMesh {

inline void PrefetchRead(const void* p)
{
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p, 0, 1);
#else
    (void)p;
#endif
}

} // namespace TriMesh

#endif
