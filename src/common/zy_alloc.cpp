#include "common/zy_alloc.h"

#include <atomic>

namespace zy {
namespace {
std::atomic<long> gAllocations{0};
std::atomic<long> gFailAt{0};  // allocation number that fails; 0 = disarmed
}  // namespace

void FailNthAllocation(int k) {
  gFailAt.store(k > 0 ? gAllocations.load() + k : 0);
}

long AllocationCount() { return gAllocations.load(std::memory_order_relaxed); }

bool AllocationShouldFail() {
  const long n = gAllocations.fetch_add(1, std::memory_order_relaxed) + 1;
  long target = gFailAt.load(std::memory_order_relaxed);
  if (target == 0 || n != target) return false;
  // Fire once, then disarm.
  return gFailAt.compare_exchange_strong(target, 0);
}

}  // namespace zy
