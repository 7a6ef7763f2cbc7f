// An allocator for large arrays that are read at random (the query aids,
// the triangulator's working triangulation).
// Not installed.
//
// Why: a plan grid over millions of triangles spans a few hundred MB, and a
// query touches four or five places in it that are far apart. With 4 KiB
// pages nearly every one of those reads also misses the TLB, and building
// the arrays takes one page fault per 4 KiB. On Linux, blocks of 2 MiB or
// more are therefore aligned to 2 MiB and offered to the kernel for huge
// pages (transparent huge pages, which most systems enable for regions that
// ask). Elsewhere, and for small blocks, this is plain operator new.
#ifndef KIVGEO_TRIMESH_BIG_ARRAY_ALLOC_H
#define KIVGEO_TRIMESH_BIG_ARRAY_ALLOC_H

#include <cstddef>
#include <limits>
#include <new>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace TriMesh {

// Block size from which memory is offered for huge pages.
constexpr std::size_t kKivHugeBlock = std::size_t(2) << 20;

// A block of `bytes` aligned to `align` (a power of two): from 2 MiB up,
// aligned to 2 MiB and offered for huge pages, else plain operator new.
inline void* KivAllocBlock(std::size_t bytes, std::size_t align)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (bytes >= kKivHugeBlock) {
        if (bytes > std::numeric_limits<std::size_t>::max() - kKivHugeBlock) {
            throw std::bad_array_new_length();
        }
        const std::size_t rounded = (bytes + kKivHugeBlock - 1) / kKivHugeBlock * kKivHugeBlock;
        void* p = ::operator new(rounded, std::align_val_t(kKivHugeBlock));
        // Only advice: without huge pages the block works as it is.
        madvise(p, rounded, MADV_HUGEPAGE);
        return p;
    }
#endif
    if (align > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        return ::operator new(bytes, std::align_val_t(align));
    }
    return ::operator new(bytes);
}

// Frees a block of KivAllocBlock with the same size and alignment.
inline void KivFreeBlock(void* p, std::size_t bytes, std::size_t align)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (bytes >= kKivHugeBlock) {
        ::operator delete(p, std::align_val_t(kKivHugeBlock));
        return;
    }
#else
    (void)bytes;
#endif
    if (align > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        ::operator delete(p, std::align_val_t(align));
        return;
    }
    ::operator delete(p);
}

template <class T> class CKivBigArrayAlloc {
public:
    using value_type = T;

    CKivBigArrayAlloc() = default;
    template <class U> CKivBigArrayAlloc(const CKivBigArrayAlloc<U>&) {}

    T* allocate(std::size_t n)
    {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_array_new_length();
        }
        return static_cast<T*>(KivAllocBlock(n * sizeof(T), alignof(T)));
    }
    void deallocate(T* p, std::size_t n) { KivFreeBlock(p, n * sizeof(T), alignof(T)); }

    template <class U> bool operator==(const CKivBigArrayAlloc<U>&) const { return true; }
    template <class U> bool operator!=(const CKivBigArrayAlloc<U>&) const { return false; }
};

// A vector of such blocks.
template <class T> using CKivBigArray = std::vector<T, CKivBigArrayAlloc<T>>;

} // namespace TriMesh

#endif
