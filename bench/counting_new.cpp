// Replaces the global allocation functions with counting ones, so that a benchmark can show
// how many heap allocations a stretch of work made (the shared library's included).
#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> gHeapAllocations{0};
}

long HeapAllocations() { return gHeapAllocations.load(std::memory_order_relaxed); }

void* operator new(size_t n) {
  gHeapAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept {
  gHeapAllocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(n ? n : 1);
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
