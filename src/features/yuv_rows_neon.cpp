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

// a + b and a - b modulo 2^16 per lane.
inline int16x8_t AddWrap(int16x8_t a, int16x8_t b) {
  return vreinterpretq_s16_u16(vaddq_u16(vreinterpretq_u16_s16(a), vreinterpretq_u16_s16(b)));
}
inline int16x8_t SubWrap(int16x8_t a, int16x8_t b) {
  return vreinterpretq_s16_u16(vsubq_u16(vreinterpretq_u16_s16(a), vreinterpretq_u16_s16(b)));
}

// clamp(x, 0, 16383) >> 6 of two vectors, narrowed to 16 bytes (a in 0..7, b in 8..15).
inline uint8x16_t ClampShiftNarrow(int16x8_t a, int16x8_t b) {
  return vcombine_u8(vqshrun_n_s16(a, 6), vqshrun_n_s16(b, 6));
}

// The conversion of a group from its six vectors: luma pairs of the top and bottom rows, and
// the chroma quads of pixels 0..3 and 4..7 of both rows.
inline void GroupToRgb(uint8x16_t lumaTop, uint8x16_t lumaBottom, uint8x16_t chromaTop03,
                       uint8x16_t chromaTop47, uint8x16_t chromaBottom03, uint8x16_t chromaBottom47,
                       uint8_t* r, uint8_t* g, uint8_t* b) {
  // Luma: pairs first, then the two rows.
  const uint16x8_t ya = vrhaddq_u16(PairAverage16(lumaTop), PairAverage16(lumaBottom));
  // Chroma: the V and U pairs of each row first, then the two rows; pixels 0..3 and 4..7.
  const uint8x16_t c03 = vrhaddq_u8(QuadAverage(chromaTop03), QuadAverage(chromaBottom03));
  const uint8x16_t c47 = vrhaddq_u8(QuadAverage(chromaTop47), QuadAverage(chromaBottom47));
  // The even 16-bit lanes hold (U << 8) | V of each pixel.
  const uint16x8_t vu = vuzp1q_u16(vreinterpretq_u16_u8(c03), vreinterpretq_u16_u8(c47));
  const uint16x8_t va = vandq_u16(vu, vdupq_n_u16(0xFF));
  const uint16x8_t ua = vshrq_n_u16(vu, 8);

  // Subtraction modulo 2^16, read back as signed: Y - 16 in -16..239, V/U - 128.
  const int16x8_t yp = vreinterpretq_s16_u16(vsubq_u16(ya, vdupq_n_u16(16)));
  const int16x8_t vp = vreinterpretq_s16_u16(vsubq_u16(va, vdupq_n_u16(128)));
  const int16x8_t up = vreinterpretq_s16_u16(vsubq_u16(ua, vdupq_n_u16(128)));

  // Lane arithmetic wraps in 16 bits: that wrap is part of this form's result. The sums and
  // differences are made in unsigned lanes, where wrapping is defined in C++ too (arm_neon.h
  // writes the signed ones as signed vector arithmetic); the products stay below 2^15.
  const int16x8_t yc = AddWrap(vmulq_n_s16(yp, 74), vshrq_n_s16(yp, 1));
  const int16x8_t rs = AddWrap(yc, AddWrap(vmulq_n_s16(vp, 102), vshrq_n_s16(vp, 3)));
  const int16x8_t gs = SubWrap(SubWrap(SubWrap(yc, vmulq_n_s16(vp, 52)), vshrq_n_s16(vp, 4)),
                               vmulq_n_s16(up, 25));
  const int16x8_t bs = AddWrap(yc, AddWrap(vmulq_n_s16(up, 129), vshrq_n_s16(up, 3)));

  // clamp(x, 0, 16383) >> 6 is a saturating narrowing shift: negatives give 0, anything
  // above 16383 gives 255.
  const uint8x16_t rg = ClampShiftNarrow(rs, gs);
  vst1_u8(r, vget_low_u8(rg));
  vst1_u8(g, vget_high_u8(rg));
  vst1_u8(b, vqshrun_n_s16(bs, 6));
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

// Luma pairs: lanes 0..3 from base03 + o[0..3], lanes 4..7 from base47 + o[4..7].
inline uint8x16_t GatherPairs(const uint8_t* frame, int64_t base03, int64_t base47, const int32_t o[8]) {
  uint16x8_t v = vdupq_n_u16(0);
  v = Insert16<0>(v, frame + (base03 + o[0]));
  v = Insert16<1>(v, frame + (base03 + o[1]));
  v = Insert16<2>(v, frame + (base03 + o[2]));
  v = Insert16<3>(v, frame + (base03 + o[3]));
  v = Insert16<4>(v, frame + (base47 + o[4]));
  v = Insert16<5>(v, frame + (base47 + o[5]));
  v = Insert16<6>(v, frame + (base47 + o[6]));
  v = Insert16<7>(v, frame + (base47 + o[7]));
  return vreinterpretq_u8_u16(v);
}

inline uint8x16_t GatherQuads(const uint8_t* frame, int64_t base, const int32_t o[4]) {
  uint32x4_t v = vdupq_n_u32(0);
  v = Insert32<0>(v, frame + (base + o[0]));
  v = Insert32<1>(v, frame + (base + o[1]));
  v = Insert32<2>(v, frame + (base + o[2]));
  v = Insert32<3>(v, frame + (base + o[3]));
  return vreinterpretq_u8_u32(v);
}

// Half h's 16 bytes of the four rows, picked apart by the plan: luma pairs of pixels 4h..4h+3
// in bytes 0..7, chroma quads in bytes 0..15.
struct HalfGroup {
  uint8x16_t lumaTop, lumaBottom, chromaTop, chromaBottom;
};

inline HalfGroup LoadHalf(const uint8_t* frame, const int32_t bases[4], int32_t o,
                          const uint8x16_t lumaPick, const uint8x16_t chromaPick) {
  HalfGroup g;
  g.lumaTop = vqtbl1q_u8(vld1q_u8(frame + (static_cast<int64_t>(bases[0]) + o)), lumaPick);
  g.lumaBottom = vqtbl1q_u8(vld1q_u8(frame + (static_cast<int64_t>(bases[1]) + o)), lumaPick);
  g.chromaTop = vqtbl1q_u8(vld1q_u8(frame + (static_cast<int64_t>(bases[2]) + o)), chromaPick);
  g.chromaBottom = vqtbl1q_u8(vld1q_u8(frame + (static_cast<int64_t>(bases[3]) + o)), chromaPick);
  return g;
}

// The low eight bytes of a and of b.
inline uint8x16_t JoinLow(uint8x16_t a, uint8x16_t b) {
  return vreinterpretq_u8_u64(vzip1q_u64(vreinterpretq_u64_u8(a), vreinterpretq_u64_u8(b)));
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
  const uint16x8_t rows = PairAverage16(GatherPairs(frame, bases[0], bases[1], pairs));
  // Lanes 0..3: the rounding average of the two rows' pair averages.
  const uint16x8_t ya = vrhaddq_u16(rows, vextq_u16(rows, rows, 4));
  // Chroma: byte 0 of each 32-bit lane the V average, byte 1 the U average.
  const uint8x16_t c = vrhaddq_u8(QuadAverage(GatherQuads(frame, bases[2], o)),
                                  QuadAverage(GatherQuads(frame, bases[3], o)));
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
  for (int32_t k = 0; k < groups; ++k) {
    const int32_t* o = list + 8 * k;
    uint8_t* rk = r + 8 * k;
    uint8_t* gk = g + 8 * k;
    uint8_t* bk = b + 8 * k;
    if (planned != nullptr && planned[k]) {
      const Nv21LoadPlan8& plan = plans[k];
      const HalfGroup lo = LoadHalf(frame, bases, o[0], vld1q_u8(plan.luma[0]), vld1q_u8(plan.chroma[0]));
      const HalfGroup hi = LoadHalf(frame, bases, o[4], vld1q_u8(plan.luma[1]), vld1q_u8(plan.chroma[1]));
      GroupToRgb(JoinLow(lo.lumaTop, hi.lumaTop), JoinLow(lo.lumaBottom, hi.lumaBottom), lo.chromaTop,
                 hi.chromaTop, lo.chromaBottom, hi.chromaBottom, rk, gk, bk);
    } else {
      GroupToRgb(GatherPairs(frame, bases[0], bases[0], o), GatherPairs(frame, bases[1], bases[1], o),
                 GatherQuads(frame, bases[2], o), GatherQuads(frame, bases[2], o + 4),
                 GatherQuads(frame, bases[3], o), GatherQuads(frame, bases[3], o + 4), rk, gk, bk);
    }
  }
}

#endif  // ZY_HAVE_NEON
