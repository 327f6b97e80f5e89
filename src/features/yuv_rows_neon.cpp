// NEON row of the crop: eight pixels averaged with rounding halving adds and converted in
// 16-bit lanes. Must equal Nv21Group8ToRgb_C bit for bit, wrap-around included.
//
// Only full 128-bit vectors are used, with the pairs separated by shifts and masks rather than
// by the de-interleaving 64-bit loads: on arm64 either form is a handful of instructions, but
// SIMDe (x86-64 hosts) runs 64-bit lanes and structure loads element by element, while every
// 128-bit operation here is one or two SSE2 instructions.
#include "features/yuv_rows.h"

#include <cstring>

#include "common/zy_bt601.h"

#if ZY_HAVE_NEON

namespace {

// Rounding average of the two bytes of each 16-bit lane: the luma pairs (left, right).
inline uint16x8_t PairAverage16(uint8x16_t bytes) {
  const uint16x8_t v = vreinterpretq_u16_u8(bytes);
  return vrhaddq_u16(vandq_u16(v, vdupq_n_u16(0xFF)), vshrq_n_u16(v, 8));
}

// Chroma quads (V, U, V next, U next) of four pixels: per 32-bit lane, byte 0 becomes the
// rounding average of the two V and byte 1 that of the two U (bytes 2 and 3 are don't-care).
inline uint8x16_t QuadAverage(uint8x16_t quads) {
  const uint8x16_t next = vreinterpretq_u8_u32(vshrq_n_u32(vreinterpretq_u32_u8(quads), 16));
  return vrhaddq_u8(quads, next);
}

// The eight-wide form of eight pixels from their averaged luma, V and U bytes, written to
// r, g, b. With y, v, u the bytes, y' = y - 16, v' = v - 128, u' = u - 128 and
// (x - 16k) >> n = (x >> n) - 16k / 2^n for the shifts taken:
//   R = 74 y + (y >> 1) + 102 v + (v >> 3) - 14264
//   G = 74 y + (y >> 1) - 52 v - (v >> 4) - 25 u + 8672
//   B = 74 y + (y >> 1) + 129 u + (u >> 3) - 17720
// all modulo 2^16, as the form's sums are: widening multiplies and adds of the bytes, in
// unsigned lanes where the wrap is defined. Read back as signed, clamp(x, 0, 16383) >> 6 is a
// saturating narrowing shift (negatives give 0, anything above 16383 gives 255).
inline void ConvertGroup(uint8x8_t y, uint8x8_t v, uint8x8_t u, uint8_t* r, uint8_t* g, uint8_t* b) {
  const uint16x8_t luma = vaddw_u8(vmull_u8(y, vdup_n_u8(74)), vshr_n_u8(y, 1));
  const uint16x8_t rs = vaddw_u8(vmlal_u8(vaddq_u16(luma, vdupq_n_u16(static_cast<uint16_t>(-14264))),
                                          v, vdup_n_u8(102)),
                                 vshr_n_u8(v, 3));
  const uint16x8_t gs = vmlsl_u8(vsubw_u8(vmlsl_u8(vaddq_u16(luma, vdupq_n_u16(8672)), v, vdup_n_u8(52)),
                                          vshr_n_u8(v, 4)),
                                 u, vdup_n_u8(25));
  const uint16x8_t bs = vaddw_u8(vmlal_u8(vaddq_u16(luma, vdupq_n_u16(static_cast<uint16_t>(-17720))),
                                          u, vdup_n_u8(129)),
                                 vshr_n_u8(u, 3));
  vst1_u8(r, vqshrun_n_s16(vreinterpretq_s16_u16(rs), 6));
  vst1_u8(g, vqshrun_n_s16(vreinterpretq_s16_u16(gs), 6));
  vst1_u8(b, vqshrun_n_s16(vreinterpretq_s16_u16(bs), 6));
}

// avg2 of the low and the high eight bytes.
inline uint8x8_t HalvesAverage(uint8x16_t x) { return vrhadd_u8(vget_low_u8(x), vget_high_u8(x)); }

// The conversion of a group from its six vectors: luma pairs of the top and bottom rows, and
// the chroma quads of pixels 0..3 and 4..7 of both rows.
inline void GroupToRgb(uint8x16_t lumaTop, uint8x16_t lumaBottom, uint8x16_t chromaTop03,
                       uint8x16_t chromaTop47, uint8x16_t chromaBottom03, uint8x16_t chromaBottom47,
                       uint8_t* r, uint8_t* g, uint8_t* b) {
  // Luma: first bytes of the top and bottom pairs against the second bytes, pairs first, then
  // the two rows.
  const uint8x8_t y = HalvesAverage(vrhaddq_u8(vuzp1q_u8(lumaTop, lumaBottom), vuzp2q_u8(lumaTop, lumaBottom)));
  // Chroma: per row the (V, U) of each pixel against the next (V, U), then the two rows.
  auto row = [](uint8x16_t q03, uint8x16_t q47) {
    const uint16x8_t a = vreinterpretq_u16_u8(q03), c = vreinterpretq_u16_u8(q47);
    return vrhaddq_u8(vreinterpretq_u8_u16(vuzp1q_u16(a, c)), vreinterpretq_u8_u16(vuzp2q_u16(a, c)));
  };
  const uint8x16_t vu = vrhaddq_u8(row(chromaTop03, chromaTop47), row(chromaBottom03, chromaBottom47));
  ConvertGroup(y, vget_low_u8(vuzp1q_u8(vu, vu)), vget_low_u8(vuzp2q_u8(vu, vu)), r, g, b);
}

// Two bytes into 16-bit lane L, four into 32-bit lane L (a byte copy: the frame gives no
// alignment). One insert from memory each on x86-64 and arm64.
template <int L>
inline uint16x8_t Insert16(uint16x8_t v, const uint8_t* p) {
  uint16_t x;
  std::memcpy(&x, p, sizeof x);
  return vsetq_lane_u16(x, v, L);
}
template <int L>
inline uint32x4_t Insert32(uint32x4_t v, const uint8_t* p) {
  uint32_t x;
  std::memcpy(&x, p, sizeof x);
  return vsetq_lane_u32(x, v, L);
}

// Luma pairs: lanes 0..3 from row03 + o[0..3], lanes 4..7 from row47 + o[4..7].
inline uint8x16_t GatherPairs(const uint8_t* row03, const uint8_t* row47, const int32_t o[8]) {
  uint16x8_t v = vdupq_n_u16(0);
  v = Insert16<0>(v, row03 + o[0]);
  v = Insert16<1>(v, row03 + o[1]);
  v = Insert16<2>(v, row03 + o[2]);
  v = Insert16<3>(v, row03 + o[3]);
  v = Insert16<4>(v, row47 + o[4]);
  v = Insert16<5>(v, row47 + o[5]);
  v = Insert16<6>(v, row47 + o[6]);
  v = Insert16<7>(v, row47 + o[7]);
  return vreinterpretq_u8_u16(v);
}

inline uint8x16_t GatherQuads(const uint8_t* row, const int32_t o[4]) {
  uint32x4_t v = vdupq_n_u32(0);
  v = Insert32<0>(v, row + o[0]);
  v = Insert32<1>(v, row + o[1]);
  v = Insert32<2>(v, row + o[2]);
  v = Insert32<3>(v, row + o[3]);
  return vreinterpretq_u8_u32(v);
}

// A planned group: one 32-byte load per frame row at the group's first offset o0, picked
// apart by the plan's tables (see MakeNv21LoadPlan8).
inline void PlannedGroupToRgb(const uint8_t* const rows[4], int32_t o0, const Nv21LoadPlan8& plan,
                              uint8_t* r, uint8_t* g, uint8_t* b) {
  // Luma: per row the first bytes of the pairs against the second bytes, then the two rows.
  const uint8x16_t lumaPick = vld1q_u8(plan.luma);
  const uint8x8_t y = vrhadd_u8(HalvesAverage(vqtbl2q_u8(vld1q_u8_x2(rows[0] + o0), lumaPick)),
                                HalvesAverage(vqtbl2q_u8(vld1q_u8_x2(rows[1] + o0), lumaPick)));
  // Chroma: per row the V and U of each pixel (bytes 0..7 and 8..15) against the next V and
  // U, then the two rows.
  const uint8x16_t firstPick = vld1q_u8(plan.chroma[0]), nextPick = vld1q_u8(plan.chroma[1]);
  const uint8x16x2_t top = vld1q_u8_x2(rows[2] + o0);
  const uint8x16x2_t bottom = vld1q_u8_x2(rows[3] + o0);
  const uint8x16_t vu =
      vrhaddq_u8(vrhaddq_u8(vqtbl2q_u8(top, firstPick), vqtbl2q_u8(top, nextPick)),
                 vrhaddq_u8(vqtbl2q_u8(bottom, firstPick), vqtbl2q_u8(bottom, nextPick)));
  ConvertGroup(y, vget_low_u8(vu), vget_high_u8(vu), r, g, b);
}

}  // namespace

void Nv21Group8ToRgb_NEON(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b) {
  GroupToRgb(vld1q_u8(s.lumaTop), vld1q_u8(s.lumaBottom), vld1q_u8(s.chromaTop),
             vld1q_u8(s.chromaTop + 16), vld1q_u8(s.chromaBottom), vld1q_u8(s.chromaBottom + 16), r,
             g, b);
}

void Nv21OneFormToRgb4_NEON(const uint8_t* frame, const int32_t bases[4], const int32_t o[4],
                            uint8_t* r, uint8_t* g, uint8_t* b) {
  // Luma pairs of the four pixels in lanes 0..3 (top row) and 4..7 (bottom row).
  const int32_t pairs[8] = {o[0], o[1], o[2], o[3], o[0], o[1], o[2], o[3]};
  const uint16x8_t rows = PairAverage16(
      GatherPairs(frame + static_cast<int64_t>(bases[0]), frame + static_cast<int64_t>(bases[1]), pairs));
  // Lanes 0..3: the rounding average of the two rows' pair averages.
  const uint16x8_t ya = vrhaddq_u16(rows, vextq_u16(rows, rows, 4));
  // Chroma: byte 0 of each 32-bit lane the V average, byte 1 the U average.
  const uint8x16_t c = vrhaddq_u8(QuadAverage(GatherQuads(frame + static_cast<int64_t>(bases[2]), o)),
                                  QuadAverage(GatherQuads(frame + static_cast<int64_t>(bases[3]), o)));
  const uint32x4_t cw = vreinterpretq_u32_u8(c);

  // 10 fractional bits in 32-bit lanes, luma limited up to 16 first; no sum leaves int32.
  using namespace zy::bt601;
  const int32x4_t y32 = vreinterpretq_s32_u16(vzip1q_u16(ya, vdupq_n_u16(0)));
  const int32x4_t lumaFloor = vdupq_n_s32(kLumaFloor);
  const int32x4_t yc = vmulq_n_s32(vsubq_s32(vmaxq_s32(y32, lumaFloor), lumaFloor), kLumaScale);
  const int32x4_t zero = vdupq_n_s32(kChromaZero);
  const int32x4_t vp = vsubq_s32(vreinterpretq_s32_u32(vandq_u32(cw, vdupq_n_u32(0xFF))), zero);
  const int32x4_t up =
      vsubq_s32(vreinterpretq_s32_u32(vandq_u32(vshrq_n_u32(cw, 8), vdupq_n_u32(0xFF))), zero);
  const int32x4_t lo = vdupq_n_s32(0);
  const int32x4_t hi = vdupq_n_s32(kFixedMax);
  auto clampShift = [&](int32x4_t x) { return vshrq_n_s32(vminq_s32(vmaxq_s32(x, lo), hi), kFracBits); };
  const int32x4_t rs = clampShift(vaddq_s32(yc, vmulq_n_s32(vp, kVToR)));
  const int32x4_t gs = clampShift(vsubq_s32(vsubq_s32(yc, vmulq_n_s32(vp, kVToG)), vmulq_n_s32(up, kUToG)));
  const int32x4_t bs = clampShift(vaddq_s32(yc, vmulq_n_s32(up, kUToB)));
  // Every value is 0..255: keep the low byte of each lane, R, G, B four bytes each.
  const uint16x8_t rg = vuzp1q_u16(vreinterpretq_u16_s32(rs), vreinterpretq_u16_s32(gs));
  const uint16x8_t bb = vuzp1q_u16(vreinterpretq_u16_s32(bs), vreinterpretq_u16_s32(bs));
  uint8_t out[16];
  vst1q_u8(out, vuzp1q_u8(vreinterpretq_u8_u16(rg), vreinterpretq_u8_u16(bb)));
  std::memcpy(r, out, 4);
  std::memcpy(g, out + 4, 4);
  std::memcpy(b, out + 8, 4);
}

void Nv21RowToRgb_NEON(const uint8_t* frame, const int32_t bases[4], const int32_t* list,
                       int32_t groups, const Nv21LoadPlan8* plans, const bool* planned, uint8_t* r,
                       uint8_t* g, uint8_t* b) {
  const uint8_t* const rows[4] = {frame + static_cast<int64_t>(bases[0]), frame + static_cast<int64_t>(bases[1]),
                                  frame + static_cast<int64_t>(bases[2]), frame + static_cast<int64_t>(bases[3])};
  for (int32_t k = 0; k < groups; ++k) {
    const int32_t* o = list + 8 * k;
    uint8_t* rk = r + 8 * k;
    uint8_t* gk = g + 8 * k;
    uint8_t* bk = b + 8 * k;
    if (planned != nullptr && planned[k]) {
      PlannedGroupToRgb(rows, o[0], plans[k], rk, gk, bk);
    } else {
      GroupToRgb(GatherPairs(rows[0], rows[0], o), GatherPairs(rows[1], rows[1], o),
                 GatherQuads(rows[2], o), GatherQuads(rows[2], o + 4), GatherQuads(rows[3], o),
                 GatherQuads(rows[3], o + 4), rk, gk, bk);
    }
  }
}

#endif  // ZY_HAVE_NEON
