// NEON row of the crop: eight pixels averaged with rounding halving adds and converted in
// 16-bit lanes. Must equal Nv21Group8ToRgb_C bit for bit, wrap-around included.
//
// Only full 128-bit vectors are used, with the pairs separated by shifts and masks rather than
// by the de-interleaving 64-bit loads: on arm64 either form is a handful of instructions, but
// SIMDe (x86-64 hosts) runs 64-bit lanes and structure loads element by element, while every
// 128-bit operation here is one or two SSE2 instructions.
#include "features/yuv_rows.h"

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

// clamp(x, 0, 16383) >> 6 of two vectors, narrowed to 16 bytes (a in 0..7, b in 8..15).
inline uint8x16_t ClampShiftNarrow(int16x8_t a, int16x8_t b) {
  return vcombine_u8(vqshrun_n_s16(a, 6), vqshrun_n_s16(b, 6));
}

}  // namespace

void Nv21Group8ToRgb_NEON(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b) {
  // Luma: pairs first, then the two rows.
  const uint16x8_t ya = vrhaddq_u16(PairAverage16(vld1q_u8(s.lumaTop)), PairAverage16(vld1q_u8(s.lumaBottom)));
  // Chroma: the V and U pairs of each row first, then the two rows; pixels 0..3 and 4..7.
  const uint8x16_t c03 = vrhaddq_u8(QuadAverage(vld1q_u8(s.chromaTop)), QuadAverage(vld1q_u8(s.chromaBottom)));
  const uint8x16_t c47 =
      vrhaddq_u8(QuadAverage(vld1q_u8(s.chromaTop + 16)), QuadAverage(vld1q_u8(s.chromaBottom + 16)));
  // The even 16-bit lanes hold (U << 8) | V of each pixel.
  const uint16x8_t vu = vuzp1q_u16(vreinterpretq_u16_u8(c03), vreinterpretq_u16_u8(c47));
  const uint16x8_t va = vandq_u16(vu, vdupq_n_u16(0xFF));
  const uint16x8_t ua = vshrq_n_u16(vu, 8);

  // Subtraction modulo 2^16, read back as signed: Y - 16 in -16..239, V/U - 128.
  const int16x8_t yp = vreinterpretq_s16_u16(vsubq_u16(ya, vdupq_n_u16(16)));
  const int16x8_t vp = vreinterpretq_s16_u16(vsubq_u16(va, vdupq_n_u16(128)));
  const int16x8_t up = vreinterpretq_s16_u16(vsubq_u16(ua, vdupq_n_u16(128)));

  // Lane arithmetic wraps in 16 bits: that wrap is part of this form's result.
  const int16x8_t yc = vaddq_s16(vmulq_n_s16(yp, 74), vshrq_n_s16(yp, 1));
  const int16x8_t rs = vaddq_s16(yc, vaddq_s16(vmulq_n_s16(vp, 102), vshrq_n_s16(vp, 3)));
  const int16x8_t gs = vsubq_s16(vsubq_s16(vsubq_s16(yc, vmulq_n_s16(vp, 52)), vshrq_n_s16(vp, 4)),
                                 vmulq_n_s16(up, 25));
  const int16x8_t bs = vaddq_s16(yc, vaddq_s16(vmulq_n_s16(up, 129), vshrq_n_s16(up, 3)));

  // clamp(x, 0, 16383) >> 6 is a saturating narrowing shift: negatives give 0, anything
  // above 16383 gives 255.
  const uint8x16_t rg = ClampShiftNarrow(rs, gs);
  vst1_u8(r, vget_low_u8(rg));
  vst1_u8(g, vget_high_u8(rg));
  vst1_u8(b, vqshrun_n_s16(bs, 6));
}

#endif  // ZY_HAVE_NEON
