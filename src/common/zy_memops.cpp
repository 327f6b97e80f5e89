#include "common/zy_memops.h"

#include <cstdint>
#include <cstring>

namespace zy {
namespace {
constexpr size_t kMaxDestSize = 0x7fffffffu;  // 2^31 - 1
}

int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
  if (dest == nullptr) return kMemNullDest;
  if (destMax == 0 || destMax > kMaxDestSize) return kMemBadDestSize;
  if (src == nullptr) {
    std::memset(dest, 0, destMax);
    return kMemNullSrc;
  }
  if (count > destMax) {
    std::memset(dest, 0, destMax);
    return kMemCountTooBig;
  }
  if (dest == src) return kMemOk;  // copying an area onto itself is a no-op
  const auto d = reinterpret_cast<uintptr_t>(dest);
  const auto s = reinterpret_cast<uintptr_t>(src);
  if ((d < s && d + count > s) || (s < d && s + count > d)) {
    std::memset(dest, 0, destMax);
    return kMemOverlap;
  }
  if (count != 0) std::memcpy(dest, src, count);
  return kMemOk;
}

int memset_s(void* dest, size_t destMax, int c, size_t count) {
  if (dest == nullptr) return kMemNullDest;
  if (destMax == 0 || destMax > kMaxDestSize) return kMemBadDestSize;
  if (count > destMax) {
    std::memset(dest, 0, destMax);
    return kMemCountTooBig;
  }
  std::memset(dest, c, count);
  return kMemOk;
}

}  // namespace zy
