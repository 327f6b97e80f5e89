// Allocation points of the library. Every allocation the library makes goes through these
// helpers so that a test can make the k-th one fail (fault injection); in normal use the
// hook is disarmed and costs one relaxed atomic load per allocation, all of which happen
// at start-up, reset or re-initialisation.
#pragma once
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace zy {

// Arms the hook: the k-th allocation from now fails (k >= 1); k <= 0 disarms it.
void FailNthAllocation(int k);
// Number of allocation points passed since the process started (failed ones included).
long AllocationCount();
// Consumes one allocation point; true when this one must fail.
bool AllocationShouldFail();

// new (std::nothrow) T[n], or null when the hook says so.
template <class T>
T* NewArray(size_t n) {
  if (AllocationShouldFail()) return nullptr;
  return new (std::nothrow) T[n];
}

// new (std::nothrow) T(args...), or null when the hook says so.
template <class T, class... Args>
T* NewObject(Args&&... args) {
  if (AllocationShouldFail()) return nullptr;
  return new (std::nothrow) T(std::forward<Args>(args)...);
}

// malloc(n), or null when the hook says so.
inline void* Malloc(size_t n) {
  if (AllocationShouldFail()) return nullptr;
  return std::malloc(n);
}

}  // namespace zy
