// The spectrum product in 256-bit lanes, for x86-64 CPUs with AVX2 (chosen at run time; only
// this function is compiled for AVX2). Four complex values per step stay interleaved: the real
// and imaginary parts of a are duplicated across each pair and b's pairs swapped, so that the
// two products of every result sit in the same lane of two vectors and one addition or
// subtraction per lane finishes it. The products and sums are the plain form's, operand for
// operand (no fused multiply-add), so the bits are the same.
#include "tracker/tracker_ops.h"

#if ZY_HAVE_AVX2_ROWS

#include <immintrin.h>

namespace {

template <bool kConj>
__attribute__((target("avx2"))) int64_t Product4(const float* a, const float* b, float* out, int64_t n) {
  int64_t k = 0;
  for (; k + 4 <= n; k += 4) {
    const __m256 x = _mm256_loadu_ps(a + 2 * k);
    const __m256 y = _mm256_loadu_ps(b + 2 * k);
    const __m256 reRe_reIm = _mm256_mul_ps(_mm256_moveldup_ps(x), y);  // a.re b.re, a.re b.im
    const __m256 imIm_imRe = _mm256_mul_ps(_mm256_movehdup_ps(x), _mm256_permute_ps(y, 0xB1));  // a.im b.im, a.im b.re
    // Plain product: re = a.re b.re - a.im b.im, im = a.re b.im + a.im b.re (subtract in even
    // lanes, add in odd ones). Conjugate: re = a.re b.re + a.im b.im, im = a.im b.re - a.re b.im.
    const __m256 r = kConj ? _mm256_blend_ps(_mm256_add_ps(reRe_reIm, imIm_imRe),
                                             _mm256_sub_ps(imIm_imRe, reRe_reIm), 0xAA)
                           : _mm256_addsub_ps(reRe_reIm, imIm_imRe);
    _mm256_storeu_ps(out + 2 * k, r);
  }
  return k;
}

}  // namespace

int64_t mulSpectrumsAvx2(const Complex* a, const Complex* b, Complex* out, int64_t n, int32_t conjB) {
  const float* fa = reinterpret_cast<const float*>(a);
  const float* fb = reinterpret_cast<const float*>(b);
  float* fo = reinterpret_cast<float*>(out);
  return conjB ? Product4<true>(fa, fb, fo, n) : Product4<false>(fa, fb, fo, n);
}

#endif  // ZY_HAVE_AVX2_ROWS
