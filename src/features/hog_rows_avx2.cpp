// The fused three-channel gradient row in 256-bit lanes, for x86-64 hosts whose CPU has AVX2
// (chosen at run time; the functions alone are compiled for AVX2). It must equal
// GradientMagnitudeBins3_C bit for bit, as the NEON form does: integer differences and squares,
// projections made of separate multiplies and adds (no fused multiply-add), the IEEE square
// root, and the same comparisons. Eight pixels per step.
#include "features/hog_rows.h"

#if ZY_HAVE_AVX2_ROWS

#include <immintrin.h>

namespace {

#define ZY_AVX2 __attribute__((target("avx2")))

// Eight byte differences a[t] - b[t] in 16 bits.
ZY_AVX2 inline __m128i ByteDifferences8(const uint8_t* a, const uint8_t* b) {
  return _mm_sub_epi16(_mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a))),
                       _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b))));
}

// The three channels' eight differences interleaved per pixel, 24 values per lane: the low
// lanes to gx, the high lanes to gy. Each input is permuted once so that every output
// position holds the element that goes there, then two blends per output pick the channel.
ZY_AVX2 inline void StoreInterleaved3(int16_t* gx, int16_t* gy, __m256i a, __m256i b, __m256i c) {
  const __m256i pa = _mm256_shuffle_epi8(
      a, _mm256_setr_epi8(0, 1, 6, 7, 12, 13, 2, 3, 8, 9, 14, 15, 4, 5, 10, 11, 0, 1, 6, 7, 12, 13, 2,
                          3, 8, 9, 14, 15, 4, 5, 10, 11));
  const __m256i pb = _mm256_shuffle_epi8(
      b, _mm256_setr_epi8(10, 11, 0, 1, 6, 7, 12, 13, 2, 3, 8, 9, 14, 15, 4, 5, 10, 11, 0, 1, 6, 7,
                          12, 13, 2, 3, 8, 9, 14, 15, 4, 5));
  const __m256i pc = _mm256_shuffle_epi8(
      c, _mm256_setr_epi8(4, 5, 10, 11, 0, 1, 6, 7, 12, 13, 2, 3, 8, 9, 14, 15, 4, 5, 10, 11, 0, 1,
                          6, 7, 12, 13, 2, 3, 8, 9, 14, 15));
  // Positions 0,3,6 / 1,4,7 / 2,5 of output 0 come from a / b / c; outputs 1 and 2 rotate.
  const __m256i o0 = _mm256_blend_epi16(_mm256_blend_epi16(pa, pb, 0x92), pc, 0x24);
  const __m256i o1 = _mm256_blend_epi16(_mm256_blend_epi16(pa, pb, 0x24), pc, 0x49);
  const __m256i o2 = _mm256_blend_epi16(_mm256_blend_epi16(pa, pb, 0x49), pc, 0x92);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gx), _mm256_castsi256_si128(o0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gx + 8), _mm256_castsi256_si128(o1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gx + 16), _mm256_castsi256_si128(o2));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gy), _mm256_extracti128_si256(o0, 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gy + 8), _mm256_extracti128_si256(o1, 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(gy + 16), _mm256_extracti128_si256(o2, 1));
}

// All ones where ay > k * ax.
ZY_AVX2 inline __m256i Steeper(__m256 ay, __m256 ax, float k) {
  return _mm256_castps_si256(_mm256_cmp_ps(ay, _mm256_mul_ps(ax, _mm256_set1_ps(k)), _CMP_GT_OQ));
}

// The sector cosines and sines for lookups by sector: sectors 0..7 for the lower of the two
// candidates (a lookup uses the index modulo 8, so 8 reads sector 0), 1..8 for the higher.
struct SectorTables {
  __m256 cosLo, sinLo, cosHi, sinHi;
};

// Eight pixels from column i of one row.
template <bool kStore>
ZY_AVX2 inline __attribute__((always_inline)) void Block8(const SectorTables& t, const PlaneRows& r,
                                                          ptrdiff_t i, int16_t* gx3, int16_t* gy3,
                                                          float* mag, uint32_t* bins) {
  __m128i dx[3], dy[3];
#pragma GCC unroll 3
  for (int ch = 0; ch < 3; ++ch) {
    dx[ch] = ByteDifferences8(r.row[ch] + i + 1, r.row[ch] + i - 1);
    dy[ch] = ByteDifferences8(r.below[ch] + i, r.above[ch] + i);
  }
  if (kStore) {
    StoreInterleaved3(gx3 + 3 * i, gy3 + 3 * i, _mm256_set_m128i(dy[0], dx[0]),
                      _mm256_set_m128i(dy[1], dx[1]), _mm256_set_m128i(dy[2], dx[2]));
  }
  // Each pixel's (dx, dy) as a pair of 16-bit halves, and dx^2 + dy^2 from one multiply-add in
  // 32-bit integers (at most 2 * 255^2).
  __m256i pair[3], q[3];
#pragma GCC unroll 3
  for (int ch = 0; ch < 3; ++ch) {
    pair[ch] = _mm256_set_m128i(_mm_unpackhi_epi16(dx[ch], dy[ch]), _mm_unpacklo_epi16(dx[ch], dy[ch]));
    q[ch] = _mm256_madd_epi16(pair[ch], pair[ch]);
  }
  // Channel 1 only when strictly above 0, channel 2 only when strictly above both. The largest
  // sum is below 2^24, so its conversion to float is exact: the reference's square root.
  const __m256i q01 = _mm256_max_epi32(q[0], q[1]);
  const __m256i pick1 = _mm256_cmpgt_epi32(q[1], q[0]);
  const __m256i pick2 = _mm256_cmpgt_epi32(q[2], q01);
  _mm256_storeu_ps(mag + i, _mm256_sqrt_ps(_mm256_cvtepi32_ps(_mm256_max_epi32(q01, q[2]))));
  const __m256i chosen = _mm256_blendv_epi8(_mm256_blendv_epi8(pair[0], pair[1], pick1), pair[2], pick2);
  const __m256 fx = _mm256_cvtepi32_ps(_mm256_srai_epi32(_mm256_slli_epi32(chosen, 16), 16));
  const __m256 fy = _mm256_cvtepi32_ps(_mm256_srai_epi32(chosen, 16));

  // Where the direction lies: j = how many of the angles 20, 40, 60, 80 degrees atan(|dy| / |dx|)
  // exceeds, by |dy| > (k / 16) |dx| (exact products) with k / 16 within a degree of their
  // tangents (the exact edges do not matter: they sit on sector centres, where both neighbouring
  // candidate pairs hold the winner). Same signs: sectors j and j + 1; opposite signs: the
  // mirror 180 - angle, sectors 8 - j and 9 - j, where sector 9 is sector 0 (lo = 0, hi = 8).
  const __m256 absMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
  const __m256 ax = _mm256_and_ps(fx, absMask);
  const __m256 ay = _mm256_and_ps(fy, absMask);
  const __m256i minusJ =
      _mm256_add_epi32(_mm256_add_epi32(Steeper(ay, ax, 0.375f), Steeper(ay, ax, 0.8125f)),
                       _mm256_add_epi32(Steeper(ay, ax, 1.75f), Steeper(ay, ax, 5.6875f)));
  const __m256i opposite = _mm256_srai_epi32(_mm256_castps_si256(_mm256_xor_ps(fx, fy)), 31);
  const __m256i m = _mm256_blendv_epi8(_mm256_sub_epi32(_mm256_setzero_si256(), minusJ),
                                       _mm256_add_epi32(minusJ, _mm256_set1_epi32(8)), opposite);
  const __m256i hiEntry = _mm256_min_epu32(m, _mm256_set1_epi32(7));  // hi - 1

  // The reference takes the first sector with the largest |dot_k|, the sign of dot_k choosing k
  // or k + 9; the largest lies at one of the two candidates, every other sector falling short by
  // far more than rounding. So: hi when |dot_hi| > |dot_lo|, else lo, with the reference's own
  // products and sum. A zero gradient has lo = 0 and +0 dots.
  const __m256 dotLo = _mm256_add_ps(_mm256_mul_ps(_mm256_permutevar8x32_ps(t.cosLo, m), fx),
                                     _mm256_mul_ps(_mm256_permutevar8x32_ps(t.sinLo, m), fy));
  const __m256 dotHi = _mm256_add_ps(_mm256_mul_ps(_mm256_permutevar8x32_ps(t.cosHi, hiEntry), fx),
                                     _mm256_mul_ps(_mm256_permutevar8x32_ps(t.sinHi, hiEntry), fy));
  const __m256 takeHi = _mm256_cmp_ps(_mm256_and_ps(dotHi, absMask), _mm256_and_ps(dotLo, absMask), _CMP_GT_OQ);
  const __m256i sector = _mm256_blendv_epi8(_mm256_and_si256(m, _mm256_set1_epi32(7)),
                                            _mm256_add_epi32(hiEntry, _mm256_set1_epi32(1)),
                                            _mm256_castps_si256(takeHi));
  const __m256i negative = _mm256_srai_epi32(_mm256_castps_si256(_mm256_blendv_ps(dotLo, dotHi, takeHi)), 31);
  const __m256i signedBin = _mm256_add_epi32(sector, _mm256_and_si256(negative, _mm256_set1_epi32(9)));
  // Unsigned and signed bin per pixel: pixels 0, 1, 4, 5 and 2, 3, 6, 7, then in order.
  const __m256i lo = _mm256_unpacklo_epi32(sector, signedBin);
  const __m256i hi = _mm256_unpackhi_epi32(sector, signedBin);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(bins + 2 * i), _mm256_permute2x128_si256(lo, hi, 0x20));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(bins + 2 * i + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
}

template <bool kStore>
ZY_AVX2 void FusedRows(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step, int16_t* gx3,
                       int16_t* gy3, float* mag, uint32_t* bins) {
  const SectorTables t{_mm256_loadu_ps(kSectorCos), _mm256_loadu_ps(kSectorSin),
                       _mm256_loadu_ps(kSectorCos + 1), _mm256_loadu_ps(kSectorSin + 1)};
  PlaneRows r = first;
  const ptrdiff_t last = n - 8;  // 64-bit offsets: addresses without sign extensions
  for (int32_t y = 0; y < rows; ++y) {
    for (ptrdiff_t i = 0;; i += 8) {
      // The last block is moved back to end at the row; shared pixels get the same values again.
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

void GradientMagnitudeBins3_AVX2(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                                 int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins) {
  if (n < 8) {
    GradientMagnitudeBins3_C(first, n, rows, step, gx3, gy3, mag, bins);
  } else if (gx3 != nullptr && gy3 != nullptr) {
    FusedRows<true>(first, n, rows, step, gx3, gy3, mag, bins);
  } else {
    FusedRows<false>(first, n, rows, step, nullptr, nullptr, mag, bins);
  }
}

bool CpuHasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
}

#endif  // ZY_HAVE_AVX2_ROWS
