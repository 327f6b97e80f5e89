#include "support/counting_new.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> gCount{0};
std::atomic<long> gLive{0};
std::atomic<long> gFailAt{0};  // the call number that fails; 0 = disarmed

void* Allocate(size_t n) {
  const long k = gCount.fetch_add(1) + 1;
  long target = gFailAt.load();
  if (target != 0 && k == target && gFailAt.compare_exchange_strong(target, 0)) return nullptr;
  void* p = std::malloc(n != 0 ? n : 1);
  if (p != nullptr) gLive.fetch_add(1);
  return p;
}

void Release(void* p) {
  if (p == nullptr) return;
  gLive.fetch_sub(1);
  std::free(p);
}

}  // namespace

long HeapAllocations() { return gCount.load(); }
long LiveHeapBlocks() { return gLive.load(); }
void FailNthHeapAllocation(long k) { gFailAt.store(k > 0 ? gCount.load() + k : 0); }
bool HeapFailurePending() { return gFailAt.load() != 0; }

void* operator new(size_t n) {
  if (void* p = Allocate(n)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void operator delete(void* p) noexcept { Release(p); }
void operator delete[](void* p) noexcept { Release(p); }
void operator delete(void* p, size_t) noexcept { Release(p); }
void operator delete[](void* p, size_t) noexcept { Release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Release(p); }
