// Scalar reference rows of the crop's colour conversion.
#include "features/yuv_rows.h"

#include "common/zy_bt601.h"

namespace {

// Rounding halving average of two bytes.
inline uint8_t Avg2(uint8_t a, uint8_t b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

inline int32_t Clamp(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The value a 16-bit two's-complement lane holds after computing v.
inline int32_t Wrap16(int32_t v) {
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(v)));
}

}  // namespace

void YuvToRgbOne(uint8_t y, uint8_t u, uint8_t v, uint8_t rgb[3]) {
  using namespace zy::bt601;
  const int32_t yc = kLumaScale * ((y < kLumaFloor ? kLumaFloor : y) - kLumaFloor);
  const int32_t vp = v - kChromaZero;
  const int32_t up = u - kChromaZero;
  rgb[0] = static_cast<uint8_t>(Clamp(yc + kVToR * vp, 0, kFixedMax) >> kFracBits);
  rgb[1] = static_cast<uint8_t>(Clamp(yc - kVToG * vp - kUToG * up, 0, kFixedMax) >> kFracBits);
  rgb[2] = static_cast<uint8_t>(Clamp(yc + kUToB * up, 0, kFixedMax) >> kFracBits);
}

void YuvToRgbWide(uint8_t y, uint8_t u, uint8_t v, uint8_t rgb[3]) {
  // The same matrix in 6 fractional bits: 74.5, 102.125, 52.0625, 25 and 129.125 are written
  // as a product plus a shift so each fits a 16-bit multiply. Luma is not limited at 16, and
  // the sums wrap in 16 bits (only B can pass 32767: bright luma with strong blue chroma).
  // Shifts of negative values are arithmetic, as in the vector lanes.
  const int32_t yp = y - 16;
  const int32_t yc = 74 * yp + (yp >> 1);
  const int32_t vp = v - 128;
  const int32_t up = u - 128;
  const int32_t r = Wrap16(yc + 102 * vp + (vp >> 3));
  const int32_t g = Wrap16(yc - 52 * vp - (vp >> 4) - 25 * up);
  const int32_t b = Wrap16(yc + 129 * up + (up >> 3));
  rgb[0] = static_cast<uint8_t>(Clamp(r, 0, 16383) >> 6);
  rgb[1] = static_cast<uint8_t>(Clamp(g, 0, 16383) >> 6);
  rgb[2] = static_cast<uint8_t>(Clamp(b, 0, 16383) >> 6);
}

void Nv21Group8ToRgb_C(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b) {
  for (int i = 0; i < 8; ++i) {
    const uint8_t* lt = s.lumaTop + 2 * i;
    const uint8_t* lb = s.lumaBottom + 2 * i;
    const uint8_t* ct = s.chromaTop + 4 * i;
    const uint8_t* cb = s.chromaBottom + 4 * i;
    const uint8_t ya = Avg2(Avg2(lt[0], lt[1]), Avg2(lb[0], lb[1]));
    const uint8_t va = Avg2(Avg2(ct[0], ct[2]), Avg2(cb[0], cb[2]));
    const uint8_t ua = Avg2(Avg2(ct[1], ct[3]), Avg2(cb[1], cb[3]));
    uint8_t rgb[3];
    YuvToRgbWide(ya, ua, va, rgb);
    r[i] = rgb[0];
    g[i] = rgb[1];
    b[i] = rgb[2];
  }
}

bool MakeNv21LoadPlan8(const int32_t o[8], Nv21LoadPlan8* plan) {
  for (int i = 0; i < 8; ++i) {
    // Offsets far apart (or out of order, which the crop never produces) take the fetches.
    const int64_t rel = static_cast<int64_t>(o[i]) - o[0];
    if (rel < 0 || rel + 4 > kLoadPlanReach) return false;
  }
  for (int i = 0; i < 8; ++i) {
    const auto at = static_cast<uint8_t>(o[i] - o[0]);
    plan->luma[i] = at;
    plan->luma[8 + i] = static_cast<uint8_t>(at + 1);
    plan->chroma[0][i] = at;
    plan->chroma[0][8 + i] = static_cast<uint8_t>(at + 1);
    plan->chroma[1][i] = static_cast<uint8_t>(at + 2);
    plan->chroma[1][8 + i] = static_cast<uint8_t>(at + 3);
  }
  return true;
}
