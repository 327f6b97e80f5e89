// BT.601 limited-range YUV to RGB in 10-bit fixed point (scale 1024): the one definition shared
// by the crop's one-at-a-time colour form and the diagnostic image dump, so that a dumped frame
// shows the colours the tracker's features are computed from.
#pragma once
#include <cstdint>

namespace zy::bt601 {

constexpr int32_t kFracBits = 10;
constexpr int32_t kLumaFloor = 16;    // luma below is raised to it; the luma term starts there
constexpr int32_t kChromaZero = 128;  // chroma bytes are offsets from this
constexpr int32_t kLumaScale = 1192;  // 1.164
constexpr int32_t kVToR = 1634;       // 1.596
constexpr int32_t kVToG = 833;        // 0.813
constexpr int32_t kUToG = 400;        // 0.391
constexpr int32_t kUToB = 2066;       // 2.018
// The largest sum kept before the shift: 255.999 in 10 fractional bits, so 255 after it.
constexpr int32_t kFixedMax = (256 << kFracBits) - 1;

}  // namespace zy::bt601
