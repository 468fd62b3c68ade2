// An allocator for the large arrays that views walk in no fixed order (a
// tile per node of a million-node tree): blocks of 2 MiB and more are
// aligned to 2 MiB and offered to the kernel for large pages, so that a
// pass over them is not bound by address translation. Small blocks take
// the ordinary heap.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace quorvel {

template <class T>
struct TLargePageAllocator {
  using value_type = T;
  static constexpr size_t kLarge = size_t{2} << 20;

  TLargePageAllocator() = default;
  template <class U>
  TLargePageAllocator(const TLargePageAllocator<U>&) noexcept {}

  T* allocate(size_t n) {
    const size_t bytes = n * sizeof(T);
    if (bytes < kLarge) return static_cast<T*>(::operator new(bytes));
    const size_t rounded = (bytes + kLarge - 1) / kLarge * kLarge;
    void* p = std::aligned_alloc(kLarge, rounded);
    if (!p) throw std::bad_alloc();
    ::madvise(p, rounded, MADV_HUGEPAGE);
    return static_cast<T*>(p);
  }
  void deallocate(T* p, size_t n) noexcept {
    if (n * sizeof(T) < kLarge)
      ::operator delete(p);
    else
      std::free(p);
  }
  template <class U>
  bool operator==(const TLargePageAllocator<U>&) const noexcept {
    return true;
  }
};

}  // namespace quorvel
