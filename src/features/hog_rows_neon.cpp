// NEON rows of the gradient features. Each must equal its scalar row in hog_features.cpp bit
// for bit: integer differences are exact, and the float work uses separate multiplies and
// adds (never a fused multiply-add) and a correctly rounded square root, as the scalar rows do.
#include <cmath>

#include "features/hog_rows.h"

#if ZY_HAVE_NEON

void GradientRow1_NEON(const uint8_t* row, const uint8_t* above, const uint8_t* below, int32_t n,
                       int16_t* gx, int16_t* gy) {
  int32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    // Widening byte differences modulo 2^16 read back as signed: exactly -255..255.
    const uint16x8_t dx = vsubl_u8(vld1_u8(row + i + 1), vld1_u8(row + i - 1));
    const uint16x8_t dy = vsubl_u8(vld1_u8(below + i), vld1_u8(above + i));
    vst1q_s16(gx + i, vreinterpretq_s16_u16(dx));
    vst1q_s16(gy + i, vreinterpretq_s16_u16(dy));
  }
  GradientRow1_C(row + i, above + i, below + i, n - i, gx + i, gy + i);
}

void GradientRow3_NEON(const uint8_t* const row[3], const uint8_t* const above[3],
                       const uint8_t* const below[3], int32_t n, int16_t* gx3, int16_t* gy3) {
  int32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    int16x8x3_t dx;
    int16x8x3_t dy;
    for (int ch = 0; ch < 3; ++ch) {
      dx.val[ch] =
          vreinterpretq_s16_u16(vsubl_u8(vld1_u8(row[ch] + i + 1), vld1_u8(row[ch] + i - 1)));
      dy.val[ch] = vreinterpretq_s16_u16(vsubl_u8(vld1_u8(below[ch] + i), vld1_u8(above[ch] + i)));
    }
    vst3q_s16(gx3 + 3 * i, dx);  // channels interleaved per pixel
    vst3q_s16(gy3 + 3 * i, dy);
  }
  const uint8_t* const rowT[3] = {row[0] + i, row[1] + i, row[2] + i};
  const uint8_t* const aboveT[3] = {above[0] + i, above[1] + i, above[2] + i};
  const uint8_t* const belowT[3] = {below[0] + i, below[1] + i, below[2] + i};
  GradientRow3_C(rowT, aboveT, belowT, n - i, gx3 + 3 * i, gy3 + 3 * i);
}

namespace {

struct SectorVectors {
  float32x4_t c[9];
  float32x4_t s[9];
};

SectorVectors LoadSectors(const float* sectorCos, const float* sectorSin) {
  SectorVectors v;
  for (int k = 0; k < 9; ++k) {
    v.c[k] = vdupq_n_f32(sectorCos[k]);
    v.s[k] = vdupq_n_f32(sectorSin[k]);
  }
  return v;
}

// The sector search of four pixels, keeping only the signed bin: per sector k a lane takes k
// when |dot_k| > best, and best = max(best, |dot_k|). A lane that takes sector k has
// |dot_k| > best >= 0 (after sector 0 best is |dot_0|; at sector 0 a lane takes it only when
// dot_0 < 0), so the scalar rule "dot_k > best" holds exactly when dot_k > 0: the signed bin is
// k then and k + 9 otherwise. The unsigned bin is the signed one folded below 9. Stores the
// unsigned and signed bins interleaved at bins[0..7].
inline void SearchSectors4(const SectorVectors& sv, float32x4_t fx, float32x4_t fy, uint32_t* bins) {
  const float32x4_t zero = vdupq_n_f32(0.f);
  const uint32x4_t nine = vdupq_n_u32(9);
  float32x4_t best = vaddq_f32(vmulq_f32(sv.c[0], fx), vmulq_f32(sv.s[0], fy));
  uint32x4_t signedBin = vdupq_n_u32(0);
#pragma GCC unroll 9
  for (uint32_t k = 0; k < 9; ++k) {
    const float32x4_t dot = vaddq_f32(vmulq_f32(sv.c[k], fx), vmulq_f32(sv.s[k], fy));
    const float32x4_t size = vabsq_f32(dot);
    const uint32x4_t take = vcgtq_f32(size, best);
    const uint32x4_t candidate = vaddq_u32(vdupq_n_u32(k), vbicq_u32(nine, vcgtq_f32(dot, zero)));
    signedBin = vbslq_u32(take, candidate, signedBin);
    best = vmaxq_f32(best, size);
  }
  const uint32x4_t unsignedBin = vsubq_u32(signedBin, vandq_u32(vcgtq_u32(signedBin, vdupq_n_u32(8)), nine));
  vst1q_u32(bins, vzip1q_u32(unsignedBin, signedBin));
  vst1q_u32(bins + 4, vzip2q_u32(unsignedBin, signedBin));
}

// Correctly rounded square root per lane: the instruction on arm64; SIMDe (0.7.4) has no
// vsqrtq_f32, so hosts take the IEEE square root lane by lane, which gives the same bits.
inline float32x4_t Sqrt4(float32x4_t v) {
#if defined(__aarch64__)
  return vsqrtq_f32(v);
#else
  float lanes[4];
  vst1q_f32(lanes, v);
#pragma GCC unroll 4
  for (float& f : lanes) f = std::sqrt(f);
  return vld1q_f32(lanes);
#endif
}

// The three interleaved channels of four pixels, widened to 32 bits. arm64 has the
// de-interleaving load; SIMDe runs it element by element, and a plain gather is cheaper there.
inline void Load3(const int16_t* v3, int32x4_t* c0, int32x4_t* c1, int32x4_t* c2) {
#if defined(__aarch64__)
  const int16x4x3_t v = vld3_s16(v3);
  *c0 = vmovl_s16(v.val[0]);
  *c1 = vmovl_s16(v.val[1]);
  *c2 = vmovl_s16(v.val[2]);
#else
  int32_t lanes[3][4];
#pragma GCC unroll 4
  for (int p = 0; p < 4; ++p) {
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) lanes[ch][p] = v3[3 * p + ch];
  }
  *c0 = vld1q_s32(lanes[0]);
  *c1 = vld1q_s32(lanes[1]);
  *c2 = vld1q_s32(lanes[2]);
#endif
}

// dx^2 + dy^2 per lane, as the scalar rows: products in int32 (at most 2^30), sum unsigned.
inline uint32x4_t SumSquares4(int32x4_t dx, int32x4_t dy) {
  return vaddq_u32(vreinterpretq_u32_s32(vmulq_s32(dx, dx)),
                   vreinterpretq_u32_s32(vmulq_s32(dy, dy)));
}

}  // namespace

void MagnitudeBinsRow1_NEON(const int16_t* dx, const int16_t* dy, int32_t n, const float* sectorCos,
                            const float* sectorSin, float* mag, uint32_t* bins) {
  const SectorVectors sv = LoadSectors(sectorCos, sectorSin);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const int32x4_t x = vmovl_s16(vld1_s16(dx + i));
    const int32x4_t y = vmovl_s16(vld1_s16(dy + i));
    vst1q_f32(mag + i, Sqrt4(vcvtq_f32_u32(SumSquares4(x, y))));
    SearchSectors4(sv, vcvtq_f32_s32(x), vcvtq_f32_s32(y), bins + 2 * i);
  }
  MagnitudeBinsRow1_C(dx + i, dy + i, n - i, sectorCos, sectorSin, mag + i, bins + 2 * i);
}

void MagnitudeBinsRow3_NEON(const int16_t* dx3, const int16_t* dy3, int32_t n,
                            const float* sectorCos, const float* sectorSin, float* mag,
                            uint32_t* bins) {
  const SectorVectors sv = LoadSectors(sectorCos, sectorSin);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    int32x4_t x0, x1, x2, y0, y1, y2;
    Load3(dx3 + 3 * i, &x0, &x1, &x2);
    Load3(dy3 + 3 * i, &y0, &y1, &y2);
    const uint32x4_t q0 = SumSquares4(x0, y0);
    const uint32x4_t q1 = SumSquares4(x1, y1);
    const uint32x4_t q2 = SumSquares4(x2, y2);
    const uint32x4_t q01 = vmaxq_u32(q0, q1);
    // Channel 1 only when strictly above 0, channel 2 only when strictly above both.
    const uint32x4_t pick1 = vcgtq_u32(q1, q0);
    const uint32x4_t pick2 = vcgtq_u32(q2, q01);
    const int32x4_t x = vbslq_s32(pick2, x2, vbslq_s32(pick1, x1, x0));
    const int32x4_t y = vbslq_s32(pick2, y2, vbslq_s32(pick1, y1, y0));
    vst1q_f32(mag + i, Sqrt4(vcvtq_f32_u32(vmaxq_u32(q01, q2))));
    SearchSectors4(sv, vcvtq_f32_s32(x), vcvtq_f32_s32(y), bins + 2 * i);
  }
  MagnitudeBinsRow3_C(dx3 + 3 * i, dy3 + 3 * i, n - i, sectorCos, sectorSin, mag + i, bins + 2 * i);
}

void MagnitudeBinsRow3Bytes_NEON(const int16_t* dx3, const int16_t* dy3, int32_t n,
                                 const float* sectorCos, const float* sectorSin, float* mag,
                                 uint32_t* bins) {
  const SectorVectors sv = LoadSectors(sectorCos, sectorSin);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    int32x4_t x[3], y[3];
    Load3(dx3 + 3 * i, &x[0], &x[1], &x[2]);
    Load3(dy3 + 3 * i, &y[0], &y[1], &y[2]);
    // With |dx|, |dy| <= 255 the float squares and their sum are exact integers below 2^24:
    // the same values, comparisons and square roots as the integer form.
    float32x4_t fx[3], fy[3], q[3];
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      fx[ch] = vcvtq_f32_s32(x[ch]);
      fy[ch] = vcvtq_f32_s32(y[ch]);
      q[ch] = vaddq_f32(vmulq_f32(fx[ch], fx[ch]), vmulq_f32(fy[ch], fy[ch]));
    }
    const float32x4_t q01 = vmaxq_f32(q[0], q[1]);
    // Channel 1 only when strictly above 0, channel 2 only when strictly above both.
    const uint32x4_t pick1 = vcgtq_f32(q[1], q[0]);
    const uint32x4_t pick2 = vcgtq_f32(q[2], q01);
    const float32x4_t sx = vbslq_f32(pick2, fx[2], vbslq_f32(pick1, fx[1], fx[0]));
    const float32x4_t sy = vbslq_f32(pick2, fy[2], vbslq_f32(pick1, fy[1], fy[0]));
    vst1q_f32(mag + i, Sqrt4(vmaxq_f32(q01, q[2])));
    SearchSectors4(sv, sx, sy, bins + 2 * i);
  }
  MagnitudeBinsRow3_C(dx3 + 3 * i, dy3 + 3 * i, n - i, sectorCos, sectorSin, mag + i, bins + 2 * i);
}

#endif  // ZY_HAVE_NEON
