// The element flavours every radix kernel of the transform is instantiated with:
//
// - `Cpx` / `ScalarLanes`: one complex value of one transform, the plain scalar reference;
// - `Quad` / `NeonLanes`: the same element of four transforms side by side, real parts in one
//   NEON vector and imaginary parts in another (deinterleaved on load, interleaved on store), so
//   that multiplying by +-i is a renaming of the two vectors plus one sign flip and a twiddle
//   product needs no lane shuffles.
//
// Both flavours perform the same IEEE operations on every element in the same order (no fused
// multiply-add; negation is a sign flip, which is exact), so a kernel gives the same bits
// whichever flavour it is instantiated with. The direction's sign S (-1 forward, +1 inverse) is a
// template argument: each kernel exists as a forward and an inverse member.
//
// A flavour moves whole transforms between memory and its values (kWidth transforms at a time):
//   LoadRows<N, kRow>(p, x):  x[k] = element k of the rows p, p + kRow, ... (row pass input);
//   StoreRows<N, kRow>(p, x): the inverse;
//   LoadCols<N, kRow>(p, x):  x[k] = row k of the adjacent columns starting at p (column pass);
//   StoreCols<N, kRow, kRealOnly>(p, x): the inverse; with kRealOnly the imaginary parts are
//   written as +0 instead, so the arithmetic that only feeds them is never done.
// Strides are in floats; a complex value is two floats.
#pragma once

#include <cstdint>

// The transform uses nothing of the rest of the library, so it picks its intrinsics itself: the
// real NEON on arm64, SIMDe's translation of the same source on other hosts, none in the plain
// scalar build.
#if defined(ZY_SCALAR_ONLY)
#define ZY_HAVE_NEON 0
#elif defined(__aarch64__) || defined(__ARM_NEON)
#include <arm_neon.h>
#define ZY_HAVE_NEON 1
#elif __has_include(<simde/arm/neon.h>)
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#define ZY_HAVE_NEON 1
#else
#define ZY_HAVE_NEON 0
#endif

#define ZY_FFT_INLINE inline __attribute__((always_inline))

namespace zy {
namespace fft {

struct Cpx {
  float re;
  float im;
};

ZY_FFT_INLINE Cpx Add(Cpx a, Cpx b) { return {a.re + b.re, a.im + b.im}; }
ZY_FFT_INLINE Cpx Sub(Cpx a, Cpx b) { return {a.re - b.re, a.im - b.im}; }
ZY_FFT_INLINE Cpx Scale(Cpx a, float k) { return {a.re * k, a.im * k}; }

// a * (S*i): a swap of real and imaginary part with one sign change.
template <int S>
ZY_FFT_INLINE Cpx MulI(Cpx a) {
  return S < 0 ? Cpx{a.im, -a.re} : Cpx{-a.im, a.re};
}

// a * (c + S*i*sn): the twiddle product with the sine applied with the direction's sign.
template <int S>
ZY_FFT_INLINE Cpx Rotate(Cpx a, float c, float sn) {
  return S < 0 ? Cpx{a.re * c + a.im * sn, a.im * c - a.re * sn}
               : Cpx{a.re * c - a.im * sn, a.im * c + a.re * sn};
}

struct ScalarLanes {
  using V = Cpx;
  static constexpr int kWidth = 1;
  static constexpr int kRowBlock = 1;  // row elements per LoadRows / StoreRows step
  template <int N, int kRow>
  static ZY_FFT_INLINE void LoadRows(const float* p, Cpx* x) {
    for (int k = 0; k < N; ++k) x[k] = {p[2 * k], p[2 * k + 1]};
  }
  template <int N, int kRow>
  static ZY_FFT_INLINE void StoreRows(float* p, const Cpx* x) {
    for (int k = 0; k < N; ++k) {
      p[2 * k] = x[k].re;
      p[2 * k + 1] = x[k].im;
    }
  }
  template <int N, int kRow>
  static ZY_FFT_INLINE void LoadCols(const float* p, Cpx* x) {
    for (int k = 0; k < N; ++k) x[k] = {p[k * kRow], p[k * kRow + 1]};
  }
  template <int N, int kRow, bool kRealOnly>
  static ZY_FFT_INLINE void StoreCols(float* p, const Cpx* x) {
    for (int k = 0; k < N; ++k) {
      p[k * kRow] = x[k].re;
      p[k * kRow + 1] = kRealOnly ? 0.0f : x[k].im;
    }
  }
};

#if ZY_HAVE_NEON

struct Quad {
  float32x4_t re;
  float32x4_t im;
};

ZY_FFT_INLINE Quad Add(Quad a, Quad b) { return {vaddq_f32(a.re, b.re), vaddq_f32(a.im, b.im)}; }
ZY_FFT_INLINE Quad Sub(Quad a, Quad b) { return {vsubq_f32(a.re, b.re), vsubq_f32(a.im, b.im)}; }
ZY_FFT_INLINE Quad Scale(Quad a, float k) { return {vmulq_n_f32(a.re, k), vmulq_n_f32(a.im, k)}; }

template <int S>
ZY_FFT_INLINE Quad MulI(Quad a) {
  return S < 0 ? Quad{a.im, vnegq_f32(a.re)} : Quad{vnegq_f32(a.im), a.re};
}

template <int S>
ZY_FFT_INLINE Quad Rotate(Quad a, float c, float sn) {
  const float32x4_t rc = vmulq_n_f32(a.re, c), ic = vmulq_n_f32(a.im, c);
  const float32x4_t rs = vmulq_n_f32(a.re, sn), is = vmulq_n_f32(a.im, sn);
  return S < 0 ? Quad{vaddq_f32(rc, is), vsubq_f32(ic, rs)}
               : Quad{vsubq_f32(rc, is), vaddq_f32(ic, rs)};
}

// 4 x 4 transpose: row j of (a, b, c, d) becomes lane j of every output.
ZY_FFT_INLINE void Transpose4(float32x4_t& a, float32x4_t& b, float32x4_t& c, float32x4_t& d) {
  const float64x2_t t0 = vreinterpretq_f64_f32(vtrn1q_f32(a, b));
  const float64x2_t t1 = vreinterpretq_f64_f32(vtrn2q_f32(a, b));
  const float64x2_t t2 = vreinterpretq_f64_f32(vtrn1q_f32(c, d));
  const float64x2_t t3 = vreinterpretq_f64_f32(vtrn2q_f32(c, d));
  a = vreinterpretq_f32_f64(vtrn1q_f64(t0, t2));
  b = vreinterpretq_f32_f64(vtrn1q_f64(t1, t3));
  c = vreinterpretq_f32_f64(vtrn2q_f64(t0, t2));
  d = vreinterpretq_f32_f64(vtrn2q_f64(t1, t3));
}

// Four transforms per step: four rows (lane j = row j), or four adjacent columns.
struct NeonLanes {
  using V = Quad;
  static constexpr int kWidth = 4;
  static constexpr int kRowBlock = 4;
  template <int N, int kRow>
  static ZY_FFT_INLINE void LoadRows(const float* p, Quad* x) {
#pragma GCC unroll 6
    for (int k = 0; k < N; k += 4) {
      float32x4x2_t r[4];
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) r[j] = vld2q_f32(p + j * kRow + 2 * k);
      Transpose4(r[0].val[0], r[1].val[0], r[2].val[0], r[3].val[0]);
      Transpose4(r[0].val[1], r[1].val[1], r[2].val[1], r[3].val[1]);
#pragma GCC unroll 4
      for (int m = 0; m < 4; ++m) x[k + m] = {r[m].val[0], r[m].val[1]};
    }
  }
  template <int N, int kRow>
  static ZY_FFT_INLINE void StoreRows(float* p, const Quad* x) {
#pragma GCC unroll 6
    for (int k = 0; k < N; k += 4) {
      float32x4x2_t r[4];
#pragma GCC unroll 4
      for (int m = 0; m < 4; ++m) r[m] = {{x[k + m].re, x[k + m].im}};
      Transpose4(r[0].val[0], r[1].val[0], r[2].val[0], r[3].val[0]);
      Transpose4(r[0].val[1], r[1].val[1], r[2].val[1], r[3].val[1]);
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) vst2q_f32(p + j * kRow + 2 * k, r[j]);
    }
  }
  template <int N, int kRow>
  static ZY_FFT_INLINE void LoadCols(const float* p, Quad* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) {
      const float32x4x2_t v = vld2q_f32(p + k * kRow);
      x[k] = {v.val[0], v.val[1]};
    }
  }
  template <int N, int kRow, bool kRealOnly>
  static ZY_FFT_INLINE void StoreCols(float* p, const Quad* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) {
      const float32x4x2_t v = {{x[k].re, kRealOnly ? vdupq_n_f32(0.0f) : x[k].im}};
      vst2q_f32(p + k * kRow, v);
    }
  }
};

#endif  // ZY_HAVE_NEON

}  // namespace fft
}  // namespace zy
