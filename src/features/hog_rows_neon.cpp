// NEON rows of the gradient features. Each must equal its scalar row in hog_features.cpp bit
// for bit: integer differences are exact, and the float work uses separate multiplies and
// adds (never a fused multiply-add) and a correctly rounded square root, as the scalar rows do.
#include <cmath>
#include <utility>

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

#if defined(__aarch64__)
// The sectors' cosines and sines four to a register, applied with by-element multiplies: six
// registers instead of eighteen, so that the search keeps every constant in a register.
struct SectorVectors {
  float32x4_t c[3];
  float32x4_t s[3];
};

SectorVectors LoadSectors(const float* sectorCos, const float* sectorSin) {
  return {{vld1q_f32(sectorCos), vld1q_f32(sectorCos + 4), vdupq_n_f32(sectorCos[8])},
          {vld1q_f32(sectorSin), vld1q_f32(sectorSin + 4), vdupq_n_f32(sectorSin[8])}};
}

// cos_K * fx + sin_K * fy per lane (two products, then their sum: no fused multiply-add).
template <int K>
inline float32x4_t Projection(const SectorVectors& sv, float32x4_t fx, float32x4_t fy) {
  return vaddq_f32(vmulq_laneq_f32(fx, sv.c[K / 4], K % 4), vmulq_laneq_f32(fy, sv.s[K / 4], K % 4));
}
#else
// Elsewhere (SIMDe) a by-element multiply is a shuffle and a multiply: one broadcast register
// per constant instead.
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

template <int K>
inline float32x4_t Projection(const SectorVectors& sv, float32x4_t fx, float32x4_t fy) {
  return vaddq_f32(vmulq_f32(sv.c[K], fx), vmulq_f32(sv.s[K], fy));
}
#endif

// Lane selects whose masks come from comparisons (every lane all ones or all zeros). SSE4.1
// blends give the same lanes as the three-instruction bitwise select SIMDe writes for vbslq.
#if !defined(__aarch64__) && defined(SIMDE_X86_SSE4_1_NATIVE)
inline float32x4_t SelectF32(uint32x4_t mask, float32x4_t a, float32x4_t b) {
  return simde_float32x4_from_m128(_mm_blendv_ps(simde_float32x4_to_m128(b), simde_float32x4_to_m128(a),
                                                 _mm_castsi128_ps(simde_uint32x4_to_m128i(mask))));
}
#else
inline float32x4_t SelectF32(uint32x4_t mask, float32x4_t a, float32x4_t b) { return vbslq_f32(mask, a, b); }
#endif

// max(a, b) per lane for values that are never NaN (differences of integers and their
// squares): one instruction on x86-64, where SIMDe's vmaxq_f32 adds NEON's NaN rule.
inline float32x4_t MaxF32(float32x4_t a, float32x4_t b) {
#if !defined(__aarch64__) && defined(SIMDE_X86_SSE_NATIVE)
  return simde_float32x4_from_m128(_mm_max_ps(simde_float32x4_to_m128(a), simde_float32x4_to_m128(b)));
#else
  return vmaxq_f32(a, b);
#endif
}

// The sector search of four pixels. best starts at |dot_0|; sector k >= 1 is taken when
// |dot_k| > best, and best = max(best, |dot_k|). That is the scalar rule: "dot_k > best" and
// "-dot_k > best" are the two signs of "|dot_k| > best", and starting from dot_0 the scalar
// loop takes sector 0 (with the opposite sign) exactly when dot_0 < 0. A lane keeps the last
// sector it took and that sector's projection, whose sign bit tells the sign: a taken
// projection is never zero, and dot_0 is never -0 (fx is an integer, to which 0 * fy adds +0
// or -0). The signed bin is the sector plus 9 for a negative projection; stores the unsigned
// and signed bins interleaved at bins[0..7].
struct SectorState {
  float32x4_t best, bestDot, sectorBits;
};

// One sector: taken when |dot| > best. best is always |bestDot|, so on arm64 one absolute
// compare (|dot| > |bestDot|) does the test and no running maximum is needed.
template <int K>
inline __attribute__((always_inline)) void SectorStep(const SectorVectors& sv, float32x4_t fx,
                                                      float32x4_t fy, SectorState& st) {
  const float32x4_t dot = Projection<K>(sv, fx, fy);
#if defined(__aarch64__)
  const uint32x4_t take = vcagtq_f32(dot, st.bestDot);
#else
  const float32x4_t size = vabsq_f32(dot);
  const uint32x4_t take = vcgtq_f32(size, st.best);
  st.best = MaxF32(st.best, size);
#endif
  st.bestDot = SelectF32(take, dot, st.bestDot);
  st.sectorBits = SelectF32(take, vreinterpretq_f32_u32(vdupq_n_u32(K)), st.sectorBits);
}

template <int... K>
inline __attribute__((always_inline)) void SectorSteps(std::integer_sequence<int, K...>,
                                                       const SectorVectors& sv, float32x4_t fx,
                                                       float32x4_t fy, SectorState& st) {
  (SectorStep<K + 1>(sv, fx, fy, st), ...);
}

inline __attribute__((always_inline)) void SearchSectors4(const SectorVectors& sv, float32x4_t fx,
                                                          float32x4_t fy, uint32_t* bins) {
  const float32x4_t dot0 = Projection<0>(sv, fx, fy);
  SectorState st{vabsq_f32(dot0), dot0, vdupq_n_f32(0.0f)};
  SectorSteps(std::make_integer_sequence<int, 8>{}, sv, fx, fy, st);
  const float32x4_t bestDot = st.bestDot;
  const float32x4_t sectorBits = st.sectorBits;
  const uint32x4_t sector = vreinterpretq_u32_f32(sectorBits);
  const uint32x4_t negative = vshrq_n_u32(vreinterpretq_u32_f32(bestDot), 31);
  const uint32x4_t signedBin = vaddq_u32(sector, vaddq_u32(vshlq_n_u32(negative, 3), negative));
  vst1q_u32(bins, vzip1q_u32(sector, signedBin));
  vst1q_u32(bins + 4, vzip2q_u32(sector, signedBin));
}

// Magnitude and bins of four pixels from the float differences of their three channels, all
// below 2^8 in size: the float squares and their sum are exact integers below 2^24, so the
// same values, comparisons and square roots as the scalar row's integer form.
inline void MagnitudeBins4Bytes(const SectorVectors& sv, const float32x4_t fx[3], const float32x4_t fy[3],
                                float* mag, uint32_t* bins) {
  float32x4_t q[3];
#pragma GCC unroll 3
  for (int ch = 0; ch < 3; ++ch) q[ch] = vaddq_f32(vmulq_f32(fx[ch], fx[ch]), vmulq_f32(fy[ch], fy[ch]));
  // Channel 1 only when strictly above 0, channel 2 only when strictly above both.
  const float32x4_t q01 = MaxF32(q[0], q[1]);
  const uint32x4_t pick1 = vcgtq_f32(q[1], q[0]);
  const uint32x4_t pick2 = vcgtq_f32(q[2], q01);
  const float32x4_t sx = SelectF32(pick2, fx[2], SelectF32(pick1, fx[1], fx[0]));
  const float32x4_t sy = SelectF32(pick2, fy[2], SelectF32(pick1, fy[1], fy[0]));
  vst1q_f32(mag, zy::SqrtF32x4(MaxF32(q01, q[2])));
  SearchSectors4(sv, sx, sy, bins);
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
    vst1q_f32(mag + i, zy::SqrtF32x4(vcvtq_f32_u32(SumSquares4(x, y))));
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
    vst1q_f32(mag + i, zy::SqrtF32x4(vcvtq_f32_u32(vmaxq_u32(q01, q2))));
    SearchSectors4(sv, vcvtq_f32_s32(x), vcvtq_f32_s32(y), bins + 2 * i);
  }
  MagnitudeBinsRow3_C(dx3 + 3 * i, dy3 + 3 * i, n - i, sectorCos, sectorSin, mag + i, bins + 2 * i);
}

namespace {
// Differences of eight bytes widened to 16 bits (modulo 2^16, read back as signed: exactly
// -255..255). SIMDe widens a 64-bit vector in two halves; on x86-64 one zero-extending
// instruction per load does it.
inline int16x8_t ByteDifferences8(const uint8_t* a, const uint8_t* b) {
#if !defined(__aarch64__) && defined(SIMDE_X86_SSE4_1_NATIVE)
  const __m128i wa = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)));
  const __m128i wb = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
  return simde_int16x8_from_m128i(_mm_sub_epi16(wa, wb));
#else
  return vreinterpretq_s16_u16(vsubl_u8(vld1_u8(a), vld1_u8(b)));
#endif
}

// The low and high four lanes of v as floats: each lane paired with itself and shifted back
// arithmetically is its sign extension (cheaper than SIMDe's 64-bit halves on x86-64).
// arm64 sign-extends a half in one instruction.
inline float32x4_t LowToFloat(int16x8_t v) {
#if defined(__aarch64__)
  return vcvtq_f32_s32(vmovl_s16(vget_low_s16(v)));
#else
  return vcvtq_f32_s32(vshrq_n_s32(vreinterpretq_s32_s16(vzip1q_s16(v, v)), 16));
#endif
}
inline float32x4_t HighToFloat(int16x8_t v) {
#if defined(__aarch64__)
  return vcvtq_f32_s32(vmovl_high_s16(v));
#else
  return vcvtq_f32_s32(vshrq_n_s32(vreinterpretq_s32_s16(vzip2q_s16(v, v)), 16));
#endif
}
}  // namespace

void GradientMagnitudeBinsRow3_NEON(const uint8_t* const row[3], const uint8_t* const above[3],
                                    const uint8_t* const below[3], int32_t n, int16_t* gx3,
                                    int16_t* gy3, const float* sectorCos, const float* sectorSin,
                                    float* mag, uint32_t* bins) {
  if (n < 8) {
    GradientRow3_C(row, above, below, n, gx3, gy3);
    MagnitudeBinsRow3_C(gx3, gy3, n, sectorCos, sectorSin, mag, bins);
    return;
  }
  const SectorVectors sv = LoadSectors(sectorCos, sectorSin);
  for (int32_t i = 0;; i += 8) {
    // A last block that would run past the row is moved back to end at it; the pixels it
    // shares with the block before get the same values again.
    if (i > n - 8) i = n - 8;
    int16x8x3_t dx;
    int16x8x3_t dy;
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      dx.val[ch] = ByteDifferences8(row[ch] + i + 1, row[ch] + i - 1);
      dy.val[ch] = ByteDifferences8(below[ch] + i, above[ch] + i);
    }
    vst3q_s16(gx3 + 3 * i, dx);  // channels interleaved per pixel
    vst3q_s16(gy3 + 3 * i, dy);
    float32x4_t fx[3], fy[3];
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      fx[ch] = LowToFloat(dx.val[ch]);
      fy[ch] = LowToFloat(dy.val[ch]);
    }
    MagnitudeBins4Bytes(sv, fx, fy, mag + i, bins + 2 * i);
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      fx[ch] = HighToFloat(dx.val[ch]);
      fy[ch] = HighToFloat(dy.val[ch]);
    }
    MagnitudeBins4Bytes(sv, fx, fy, mag + i + 4, bins + 2 * (i + 4));
    if (i + 8 >= n) break;
  }
}

#endif  // ZY_HAVE_NEON
