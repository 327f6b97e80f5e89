// float -> int32 conversion that is defined for every input.
#pragma once
#include <cstdint>

namespace zy {

// Truncation toward zero, saturated to the int32 range, NaN -> 0: the result of the arm64
// conversion instruction, so both architectures agree. A plain cast is undefined outside the
// range (x86-64 gives INT32_MIN there). Every float in [-2^31, 2^31) converts exactly.
inline int32_t TruncToInt32Sat(float v) {
  if (!(v == v)) return 0;  // NaN
  if (v >= 2147483648.0f) return INT32_MAX;
  if (v < -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

}  // namespace zy
