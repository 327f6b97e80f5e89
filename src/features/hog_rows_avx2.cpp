// The fused three-channel gradient row in 256-bit lanes, for x86-64 hosts whose CPU has AVX2
// (chosen at run time; the function alone is compiled for AVX2). It must equal GradientRow3_C
// followed by MagnitudeBinsRow3_C bit for bit, as the NEON row does: integer differences,
// float squares and projections made of separate multiplies and adds (no fused multiply-add),
// the IEEE square root, and the same comparisons. Eight pixels per step: the sector search,
// which dominates, runs once per eight pixels instead of twice per four.
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

ZY_AVX2 inline __m256 ToFloat8(__m128i v) { return _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(v)); }

}  // namespace

ZY_AVX2 void GradientMagnitudeBinsRow3_AVX2(const uint8_t* const row[3],
                                            const uint8_t* const above[3],
                                            const uint8_t* const below[3], int32_t n,
                                            int16_t* gx3, int16_t* gy3, const float* sectorCos,
                                            const float* sectorSin, float* mag, uint32_t* bins) {
  if (n < 8) {
    GradientRow3_C(row, above, below, n, gx3, gy3);
    MagnitudeBinsRow3_C(gx3, gy3, n, sectorCos, sectorSin, mag, bins);
    return;
  }
  __m256 c[9], s[9];
  for (int k = 0; k < 9; ++k) {
    c[k] = _mm256_set1_ps(sectorCos[k]);
    s[k] = _mm256_set1_ps(sectorSin[k]);
  }
  const __m256 absMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
  for (int32_t i = 0;; i += 8) {
    // The last block is moved back to end at the row; shared pixels get the same values again.
    if (i > n - 8) i = n - 8;
    __m128i dx[3], dy[3];
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      dx[ch] = ByteDifferences8(row[ch] + i + 1, row[ch] + i - 1);
      dy[ch] = ByteDifferences8(below[ch] + i, above[ch] + i);
    }
    StoreInterleaved3(gx3 + 3 * i, gy3 + 3 * i, _mm256_set_m128i(dy[0], dx[0]),
                      _mm256_set_m128i(dy[1], dx[1]), _mm256_set_m128i(dy[2], dx[2]));

    // Squares of differences of bytes are exact in single precision (sums below 2^24).
    __m256 fx[3], fy[3], q[3];
#pragma GCC unroll 3
    for (int ch = 0; ch < 3; ++ch) {
      fx[ch] = ToFloat8(dx[ch]);
      fy[ch] = ToFloat8(dy[ch]);
      q[ch] = _mm256_add_ps(_mm256_mul_ps(fx[ch], fx[ch]), _mm256_mul_ps(fy[ch], fy[ch]));
    }
    // Channel 1 only when strictly above 0, channel 2 only when strictly above both.
    const __m256 q01 = _mm256_max_ps(q[0], q[1]);
    const __m256 pick1 = _mm256_cmp_ps(q[1], q[0], _CMP_GT_OQ);
    const __m256 pick2 = _mm256_cmp_ps(q[2], q01, _CMP_GT_OQ);
    const __m256 sx = _mm256_blendv_ps(_mm256_blendv_ps(fx[0], fx[1], pick1), fx[2], pick2);
    const __m256 sy = _mm256_blendv_ps(_mm256_blendv_ps(fy[0], fy[1], pick1), fy[2], pick2);
    _mm256_storeu_ps(mag + i, _mm256_sqrt_ps(_mm256_max_ps(q01, q[2])));

    // The sector search: the sector and the projection last taken, replaced whenever a
    // projection's size beats the best so far (strictly, so the first sector reaching the
    // maximum keeps it); best starts at |dot_0|. A taken projection is never zero, so its sign
    // bit says whether the gradient points against the sector.
    const __m256 dot0 = _mm256_add_ps(_mm256_mul_ps(c[0], sx), _mm256_mul_ps(s[0], sy));
    __m256 best = _mm256_and_ps(dot0, absMask);
    __m256 bestDot = dot0;
    __m256 sectorBits = _mm256_setzero_ps();
#pragma GCC unroll 8
    for (int k = 1; k < 9; ++k) {
      const __m256 dot = _mm256_add_ps(_mm256_mul_ps(c[k], sx), _mm256_mul_ps(s[k], sy));
      const __m256 size = _mm256_and_ps(dot, absMask);
      const __m256 take = _mm256_cmp_ps(size, best, _CMP_GT_OQ);
      bestDot = _mm256_blendv_ps(bestDot, dot, take);
      sectorBits = _mm256_blendv_ps(sectorBits, _mm256_castsi256_ps(_mm256_set1_epi32(k)), take);
      best = _mm256_max_ps(best, size);
    }
    const __m256i sector = _mm256_castps_si256(sectorBits);
    const __m256i negative = _mm256_srli_epi32(_mm256_castps_si256(bestDot), 31);
    const __m256i signedBin =
        _mm256_add_epi32(sector, _mm256_add_epi32(_mm256_slli_epi32(negative, 3), negative));
    // Unsigned and signed bin per pixel: pixels 0, 1, 4, 5 and 2, 3, 6, 7, then in order.
    const __m256i lo = _mm256_unpacklo_epi32(sector, signedBin);
    const __m256i hi = _mm256_unpackhi_epi32(sector, signedBin);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bins + 2 * i), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bins + 2 * i + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
    if (i + 8 >= n) break;
  }
}

bool CpuHasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
}

#endif  // ZY_HAVE_AVX2_ROWS
