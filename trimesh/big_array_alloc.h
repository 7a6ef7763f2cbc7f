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

template <class T> class CKivBigArrayAlloc {
public:
    using value_type = T;

    CKivBigArrayAlloc() = default;
    template <class U> CKivBigArrayAlloc(const CKivBigArrayAlloc<U>&) {}

    T* allocate(std::size_t n)
    {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T) - kHuge) {
            throw std::bad_array_new_length();
        }
        const std::size_t bytes = n * sizeof(T);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
        if (bytes >= kHuge) {
            const std::size_t rounded = (bytes + kHuge - 1) / kHuge * kHuge;
            void* p = ::operator new(rounded, std::align_val_t(kHuge));
            // Only advice: without huge pages the block works as it is.
            madvise(p, rounded, MADV_HUGEPAGE);
            return static_cast<T*>(p);
        }
#endif
        if constexpr (kOverAligned) {
            return static_cast<T*>(::operator new(bytes, std::align_val_t(alignof(T))));
        }
        return static_cast<T*>(::operator new(bytes));
    }
    void deallocate(T* p, std::size_t n)
    {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
        if (n * sizeof(T) >= kHuge) {
            ::operator delete(p, std::align_val_t(kHuge));
            return;
        }
#else
        (void)n;
#endif
        if constexpr (kOverAligned) {
            ::operator delete(p, std::align_val_t(alignof(T)));
            return;
        }
        ::operator delete(p);
    }

    template <class U> bool operator==(const CKivBigArrayAlloc<U>&) const
    {
        return true;
    }
    template <class U> bool operator!=(const CKivBigArrayAlloc<U>&) const
    {
        return false;
    }

private:
    static constexpr std::size_t kHuge = std::size_t(2) << 20;
    // Records aligned beyond what plain new gives (the triangulator's
    // 32-byte triangles) need the aligned forms in the small case too.
    static constexpr bool kOverAligned = alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__;
};

// A vector of such blocks.
template <class T> using CKivBigArray = std::vector<T, CKivBigArrayAlloc<T>>;

} // namespace TriMesh

#endif
