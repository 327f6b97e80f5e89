// NEON rows of the gradient features. Each must equal its scalar row in hog_gradients.cpp bit
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
  st.best = vmaxq_f32(st.best, size);
#endif
  st.bestDot = vbslq_f32(take, dot, st.bestDot);
  st.sectorBits = vbslq_f32(take, vreinterpretq_f32_u32(vdupq_n_u32(K)), st.sectorBits);
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

// The sector cosines and sines as 32-byte tables for lookups by sector: sectors 0..7 for the
// lower of the two candidates, 1..8 for the higher. Loaded once per patch, straight into
// register pairs.
struct SectorTables {
  uint8x16x2_t cosLo, sinLo, cosHi, sinHi;
};

inline uint8x16x2_t LoadTable(const float* p) {
  return vld1q_u8_x2(reinterpret_cast<const uint8_t*>(p));
}

// Entry e of a table, for each lane: `bytes` holds 4e .. 4e + 3.
inline float32x4_t Entries(uint8x16x2_t table, uint8x16_t bytes) {
  return vreinterpretq_f32_u8(vqtbl2q_u8(table, bytes));
}

// Bins of four pixels from their float differences and the two candidate sectors lo < hi. The
// reference takes the first sector with the largest |dot_k|, the sign of dot_k choosing k or
// k + 9; the largest lies at one of the two sectors either side of the gradient's direction,
// every other one falling short by far more than rounding. So: hi when |dot_hi| > |dot_lo|,
// else lo, with the reference's own products and sum. A zero gradient has lo = 0 and +0 dots.
inline __attribute__((always_inline)) void Bins4(const SectorTables& t, float32x4_t fx, float32x4_t fy, uint32x4_t lo,
                  uint32x4_t hi, uint32_t* bins) {
  const uint8x16_t bytesLo = vreinterpretq_u8_u32(vmlaq_n_u32(vdupq_n_u32(0x03020100u), lo, 0x04040404u));
  // Entry hi - 1 of the table starting at sector 1 (the constant is 0x03020100 - 0x04040404).
  const uint8x16_t bytesHi = vreinterpretq_u8_u32(vmlaq_n_u32(vdupq_n_u32(0xfefdfcfcu), hi, 0x04040404u));
  const float32x4_t dotLo =
      vaddq_f32(vmulq_f32(Entries(t.cosLo, bytesLo), fx), vmulq_f32(Entries(t.sinLo, bytesLo), fy));
  const float32x4_t dotHi =
      vaddq_f32(vmulq_f32(Entries(t.cosHi, bytesHi), fx), vmulq_f32(Entries(t.sinHi, bytesHi), fy));
  const uint32x4_t takeHi = vcagtq_f32(dotHi, dotLo);
  const uint32x4_t sector = vbslq_u32(takeHi, hi, lo);
  const uint32x4_t negative = vshrq_n_u32(vreinterpretq_u32_f32(vbslq_f32(takeHi, dotHi, dotLo)), 31);
  vst2q_u32(bins, (uint32x4x2_t{{sector, vmlaq_n_u32(sector, negative, 9)}}));
}

// Eight pixels from column i of one row.
template <bool kStore>
inline __attribute__((always_inline)) void Block8(const SectorTables& t, const PlaneRows& r,
                                                  ptrdiff_t i, int16_t* gx3, int16_t* gy3,
                                                  float* mag, uint32_t* bins) {
  // Widening byte differences modulo 2^16 read back as signed: exactly -255..255.
  int16x8x3_t dx, dy;
#pragma GCC unroll 3
  for (int ch = 0; ch < 3; ++ch) {
    dx.val[ch] = vreinterpretq_s16_u16(vsubl_u8(vld1_u8(r.row[ch] + i + 1), vld1_u8(r.row[ch] + i - 1)));
    dy.val[ch] = vreinterpretq_s16_u16(vsubl_u8(vld1_u8(r.below[ch] + i), vld1_u8(r.above[ch] + i)));
  }
  if (kStore) {
    vst3q_s16(gx3 + 3 * i, dx);  // channels interleaved per pixel
    vst3q_s16(gy3 + 3 * i, dy);
  }
  // dx^2 + dy^2 per channel in 32-bit integers (at most 2 * 255^2), pixels 0..3 and 4..7.
  int32x4_t qL[3], qH[3];
#pragma GCC unroll 3
  for (int ch = 0; ch < 3; ++ch) {
    const int16x4_t xl = vget_low_s16(dx.val[ch]), yl = vget_low_s16(dy.val[ch]);
    qL[ch] = vmlal_s16(vmull_s16(xl, xl), yl, yl);
    qH[ch] = vmlal_high_s16(vmull_high_s16(dx.val[ch], dx.val[ch]), dy.val[ch], dy.val[ch]);
  }
  // Channel 1 only when strictly above 0, channel 2 only when strictly above both. The largest
  // sum is below 2^24, so its conversion to float is exact: the reference's square root.
  const int32x4_t q01L = vmaxq_s32(qL[0], qL[1]), q01H = vmaxq_s32(qH[0], qH[1]);
  vst1q_f32(mag + i, zy::SqrtF32x4(vcvtq_f32_s32(vmaxq_s32(q01L, qL[2]))));
  vst1q_f32(mag + i + 4, zy::SqrtF32x4(vcvtq_f32_s32(vmaxq_s32(q01H, qH[2]))));
  const uint16x8_t pick1 = vuzp1q_u16(vreinterpretq_u16_u32(vcgtq_s32(qL[1], qL[0])),
                                      vreinterpretq_u16_u32(vcgtq_s32(qH[1], qH[0])));
  const uint16x8_t pick2 = vuzp1q_u16(vreinterpretq_u16_u32(vcgtq_s32(qL[2], q01L)),
                                      vreinterpretq_u16_u32(vcgtq_s32(qH[2], q01H)));
  const int16x8_t sx = vbslq_s16(pick2, dx.val[2], vbslq_s16(pick1, dx.val[1], dx.val[0]));
  const int16x8_t sy = vbslq_s16(pick2, dy.val[2], vbslq_s16(pick1, dy.val[1], dy.val[0]));

  // Where the direction lies: j = how many of the angles 20, 40, 60, 80 degrees atan(|dy| / |dx|)
  // exceeds, by 16 |dy| > k |dx| with k / 16 within a degree of their tangents (the exact edges
  // do not matter: they sit on sector centres, where both neighbouring candidate pairs hold the
  // winner). Same signs: sectors j and j + 1; opposite signs: the mirror 180 - angle, sectors
  // 8 - j and 9 - j, where sector 9 is sector 0 (lo = 0, hi = 8 for j = 0).
  const int16x8_t ax = vabsq_s16(sx);
  const int16x8_t ay16 = vshlq_n_s16(vabsq_s16(sy), 4);
  const int16x8_t minusJ = vaddq_s16(
      vaddq_s16(vreinterpretq_s16_u16(vcgtq_s16(ay16, vmulq_n_s16(ax, 6))),
                vreinterpretq_s16_u16(vcgtq_s16(ay16, vmulq_n_s16(ax, 13)))),
      vaddq_s16(vreinterpretq_s16_u16(vcgtq_s16(ay16, vmulq_n_s16(ax, 28))),
                vreinterpretq_s16_u16(vcgtq_s16(ay16, vmulq_n_s16(ax, 91)))));
  const uint16x8_t opposite = vcltzq_s16(veorq_s16(sx, sy));
  const uint16x8_t m = vreinterpretq_u16_s16(
      vbslq_s16(opposite, vaddq_s16(minusJ, vdupq_n_s16(8)), vnegq_s16(minusJ)));
  const uint16x8_t lo = vandq_u16(m, vdupq_n_u16(7));
  const uint16x8_t hi = vaddq_u16(vminq_u16(m, vdupq_n_u16(7)), vdupq_n_u16(1));
  Bins4(t, vcvtq_f32_s32(vmovl_s16(vget_low_s16(sx))), vcvtq_f32_s32(vmovl_s16(vget_low_s16(sy))),
        vmovl_u16(vget_low_u16(lo)), vmovl_u16(vget_low_u16(hi)), bins + 2 * i);
  Bins4(t, vcvtq_f32_s32(vmovl_high_s16(sx)), vcvtq_f32_s32(vmovl_high_s16(sy)),
        vmovl_high_u16(lo), vmovl_high_u16(hi), bins + 2 * i + 8);
}

template <bool kStore>
void FusedRows(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step, int16_t* gx3,
               int16_t* gy3, float* mag, uint32_t* bins) {
  const SectorTables t{LoadTable(kSectorCos), LoadTable(kSectorSin), LoadTable(kSectorCos + 1),
                       LoadTable(kSectorSin + 1)};
  PlaneRows r = first;
  const ptrdiff_t last = n - 8;  // 64-bit offsets: addresses without sign extensions
  for (int32_t y = 0; y < rows; ++y) {
    for (ptrdiff_t i = 0;; i += 8) {
      // A last block that would run past the row is moved back to end at it; the pixels it
      // shares with the block before get the same values again.
      if (i > last) i = last;
      Block8<kStore>(t, r, i, gx3, gy3, mag, bins);
      if (i >= last) break;
    }
    for (int ch = 0; ch < 3; ++ch) {
      r.row[ch] += step;
      r.above[ch] += step;
      r.below[ch] += step;
    }
    if (kStore) {
      gx3 += 3 * step;
      gy3 += 3 * step;
    }
    mag += step;
    bins += 2 * step;
  }
}

}  // namespace

void GradientMagnitudeBins3_NEON(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                                 int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins) {
  if (n < 8) {
    GradientMagnitudeBins3_C(first, n, rows, step, gx3, gy3, mag, bins);
  } else if (gx3 != nullptr && gy3 != nullptr) {
    FusedRows<true>(first, n, rows, step, gx3, gy3, mag, bins);
  } else {
    FusedRows<false>(first, n, rows, step, nullptr, nullptr, mag, bins);
  }
}

#endif  // ZY_HAVE_NEON
