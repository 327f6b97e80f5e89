// The transform in 256-bit vectors, for x86-64 CPUs with AVX2 (this file alone is compiled for
// AVX2; fft2d.cpp calls it only after checking the CPU). Eight transforms per kernel step, the
// real parts of the eight in one vector and the imaginary parts in another: the same kernels
// (fft_kernels.h) and so the same IEEE operations in the same order as the scalar reference.
// Multiplication by +-i is a renaming plus a sign flip; no fused multiply-add is used.
#if defined(ZY_FFT_AVX2)

#include <immintrin.h>

#include "fft/fft2d_internal.h"
#include "fft/fft_kernels.h"

namespace zy {
namespace fft {
namespace {

struct Oct {
  __m256 re;
  __m256 im;
};

ZY_FFT_KERNEL __m256 Negate(__m256 v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
ZY_FFT_KERNEL __m256 Mul(__m256 v, float k) { return _mm256_mul_ps(v, _mm256_set1_ps(k)); }

ZY_FFT_KERNEL Oct Add(Oct a, Oct b) { return {_mm256_add_ps(a.re, b.re), _mm256_add_ps(a.im, b.im)}; }
ZY_FFT_KERNEL Oct Sub(Oct a, Oct b) { return {_mm256_sub_ps(a.re, b.re), _mm256_sub_ps(a.im, b.im)}; }
ZY_FFT_KERNEL Oct Scale(Oct a, float k) { return {Mul(a.re, k), Mul(a.im, k)}; }

template <int S>
ZY_FFT_KERNEL Oct MulI(Oct a) {
  return S < 0 ? Oct{a.im, Negate(a.re)} : Oct{Negate(a.im), a.re};
}

template <int S>
ZY_FFT_KERNEL Oct Rotate(Oct a, float c, float sn) {
  const __m256 rc = Mul(a.re, c), ic = Mul(a.im, c), rs = Mul(a.re, sn), is = Mul(a.im, sn);
  return S < 0 ? Oct{_mm256_add_ps(rc, is), _mm256_sub_ps(ic, rs)}
               : Oct{_mm256_sub_ps(rc, is), _mm256_add_ps(ic, rs)};
}

// Which transform sits in which lane is free, as long as a store undoes its load: every lane
// gets the same operations and constants.
struct AvxLanes {
  using RowLanes = AvxLanes;
  using V = Oct;
  static constexpr int kWidth = 8;
  static constexpr int kRowBlock = 2;

  // Rows j and j + 4 of elements k, k + 1 in the two halves of one vector, then a 4 x 4
  // transpose within each half: lane j (and 4 + j) of the results is row j (and 4 + j).
  template <int N, int kRow>
  static ZY_FFT_KERNEL void LoadRows(const float* p, Oct* x) {
#pragma GCC unroll 12
    for (int k = 0; k < N; k += 2) {
      __m256 v[4];
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) {
        v[j] = _mm256_loadu2_m128(p + (j + 4) * kRow + 2 * k, p + j * kRow + 2 * k);
      }
      const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]);  // re k, im k of rows 0, 1
      const __m256 t1 = _mm256_unpackhi_ps(v[0], v[1]);  // re k+1, im k+1 of rows 0, 1
      const __m256 t2 = _mm256_unpacklo_ps(v[2], v[3]);
      const __m256 t3 = _mm256_unpackhi_ps(v[2], v[3]);
      x[k] = {_mm256_shuffle_ps(t0, t2, 0x44), _mm256_shuffle_ps(t0, t2, 0xEE)};
      x[k + 1] = {_mm256_shuffle_ps(t1, t3, 0x44), _mm256_shuffle_ps(t1, t3, 0xEE)};
    }
  }
  template <int N, int kRow>
  static ZY_FFT_KERNEL void StoreRows(float* p, const Oct* x) {
#pragma GCC unroll 12
    for (int k = 0; k < N; k += 2) {
      const __m256 t0 = _mm256_unpacklo_ps(x[k].re, x[k].im);  // element k of rows 0, 1
      const __m256 t1 = _mm256_unpackhi_ps(x[k].re, x[k].im);  // element k of rows 2, 3
      const __m256 t2 = _mm256_unpacklo_ps(x[k + 1].re, x[k + 1].im);
      const __m256 t3 = _mm256_unpackhi_ps(x[k + 1].re, x[k + 1].im);
      const __m256 v[4] = {_mm256_shuffle_ps(t0, t2, 0x44), _mm256_shuffle_ps(t0, t2, 0xEE),
                           _mm256_shuffle_ps(t1, t3, 0x44), _mm256_shuffle_ps(t1, t3, 0xEE)};
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) {
        _mm256_storeu2_m128(p + (j + 4) * kRow + 2 * k, p + j * kRow + 2 * k, v[j]);
      }
    }
  }

  // Eight adjacent columns: lanes hold columns 0, 1, 4, 5 | 2, 3, 6, 7.
  template <int N, int kRow>
  static ZY_FFT_KERNEL void LoadCols(const float* p, Oct* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) {
      const __m256 lo = _mm256_loadu_ps(p + k * kRow);
      const __m256 hi = _mm256_loadu_ps(p + k * kRow + 8);
      x[k] = {_mm256_shuffle_ps(lo, hi, 0x88), _mm256_shuffle_ps(lo, hi, 0xDD)};
    }
  }
  template <int N, int kRow, bool kRealOnly>
  static ZY_FFT_KERNEL void StoreCols(float* p, const Oct* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) {
      const __m256 im = kRealOnly ? _mm256_setzero_ps() : x[k].im;
      _mm256_storeu_ps(p + k * kRow, _mm256_unpacklo_ps(x[k].re, im));
      _mm256_storeu_ps(p + k * kRow + 8, _mm256_unpackhi_ps(x[k].re, im));
    }
  }
};

}  // namespace

void TransformAvx2(const float* a, float* b, int32_t n, int32_t sign, bool realPartOnly) {
  if (realPartOnly) {
    TransformPlane<AvxLanes, true>(a, b, n, sign);
  } else {
    TransformPlane<AvxLanes, false>(a, b, n, sign);
  }
}

}  // namespace fft
}  // namespace zy

#endif  // ZY_FFT_AVX2
