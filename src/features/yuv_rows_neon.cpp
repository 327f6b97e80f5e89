// NEON row of the crop: eight pixels averaged with rounding halving byte adds and converted
// in 16-bit lanes. Must equal Nv21Group8ToRgb_C bit for bit, wrap-around included.
#include "features/yuv_rows.h"

#if ZY_HAVE_NEON

void Nv21Group8ToRgb_NEON(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b) {
  // De-interleave the gathered bytes: luma pairs into (left, right), chroma quads into
  // (V, U, V next, U next).
  const uint8x8x2_t lt = vld2_u8(s.lumaTop);
  const uint8x8x2_t lb = vld2_u8(s.lumaBottom);
  const uint8x8x4_t ct = vld4_u8(s.chromaTop);
  const uint8x8x4_t cb = vld4_u8(s.chromaBottom);
  const uint8x8_t ya = vrhadd_u8(vrhadd_u8(lt.val[0], lt.val[1]), vrhadd_u8(lb.val[0], lb.val[1]));
  const uint8x8_t va = vrhadd_u8(vrhadd_u8(ct.val[0], ct.val[2]), vrhadd_u8(cb.val[0], cb.val[2]));
  const uint8x8_t ua = vrhadd_u8(vrhadd_u8(ct.val[1], ct.val[3]), vrhadd_u8(cb.val[1], cb.val[3]));

  // Widening subtraction modulo 2^16, read back as signed: Y - 16 in -16..239, V/U - 128.
  const int16x8_t yp = vreinterpretq_s16_u16(vsubl_u8(ya, vdup_n_u8(16)));
  const int16x8_t vp = vreinterpretq_s16_u16(vsubl_u8(va, vdup_n_u8(128)));
  const int16x8_t up = vreinterpretq_s16_u16(vsubl_u8(ua, vdup_n_u8(128)));

  // Lane arithmetic wraps in 16 bits: that wrap is part of this form's result.
  const int16x8_t yc = vaddq_s16(vmulq_n_s16(yp, 74), vshrq_n_s16(yp, 1));
  const int16x8_t rs = vaddq_s16(yc, vaddq_s16(vmulq_n_s16(vp, 102), vshrq_n_s16(vp, 3)));
  const int16x8_t gs = vsubq_s16(vsubq_s16(vsubq_s16(yc, vmulq_n_s16(vp, 52)), vshrq_n_s16(vp, 4)),
                                 vmulq_n_s16(up, 25));
  const int16x8_t bs = vaddq_s16(yc, vaddq_s16(vmulq_n_s16(up, 129), vshrq_n_s16(up, 3)));

  // clamp(x, 0, 16383) >> 6 is a saturating narrowing shift: negatives give 0, anything
  // above 16383 gives 255.
  vst1_u8(r, vqshrun_n_s16(rs, 6));
  vst1_u8(g, vqshrun_n_s16(gs, 6));
  vst1_u8(b, vqshrun_n_s16(bs, 6));
}

#endif  // ZY_HAVE_NEON
