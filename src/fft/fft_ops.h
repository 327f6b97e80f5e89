// The element flavours every radix kernel of the transform is instantiated with:
//
// - `Cpx` / `ScalarLanes`: one complex value of one transform, the plain scalar reference;
// - `Quad` / `NeonLanes`: the same element of four columns side by side, real parts in one
//   NEON vector and imaginary parts in another (deinterleaved on load, interleaved on store), so
//   that multiplying by +-i is a renaming of the two vectors plus one sign flip and a twiddle
//   product needs no lane shuffles;
// - `Pair` / `NeonRowLanes`: the same element of two rows, interleaved in one vector, for the
//   row pass (whose rows the split layout would have to transpose on load and on store).
//
// Both flavours perform the same IEEE operations on every element in the same order (no fused
// multiply-add; negation is a sign flip, which is exact), so a kernel gives the same bits
// whichever flavour it is instantiated with. The direction's sign S (-1 forward, +1 inverse) is a
// template argument: each kernel exists as a forward and an inverse member.
//
// A flavour moves whole transforms between memory and its values (kWidth transforms at a time;
// RowLanes names the flavour that runs the row pass):
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
  using RowLanes = ScalarLanes;  // the flavour of the row pass
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

// The row pass's NEON flavour: the same element of two rows in one vector, interleaved
// (re0, im0, re1, im1), loaded and stored as two 8-byte halves. The split flavour would need a
// 4 x 4 transpose on each side of a row pass; here the rows need none, and +-i and the
// twiddles cost a lane swap and a sign mask instead.
struct Pair {
  float32x4_t v;
};

ZY_FFT_INLINE Pair Add(Pair a, Pair b) { return {vaddq_f32(a.v, b.v)}; }
ZY_FFT_INLINE Pair Sub(Pair a, Pair b) { return {vsubq_f32(a.v, b.v)}; }
ZY_FFT_INLINE Pair Scale(Pair a, float k) { return {vmulq_n_f32(a.v, k)}; }

// Sign flips of the imaginary lanes (1, 3) or of the real lanes (0, 2).
ZY_FFT_INLINE float32x4_t NegateIm(float32x4_t v) {
  static constexpr uint32_t kMask[4] = {0u, 0x80000000u, 0u, 0x80000000u};
  return vreinterpretq_f32_u32(veorq_u32(vreinterpretq_u32_f32(v), vld1q_u32(kMask)));
}
ZY_FFT_INLINE float32x4_t NegateRe(float32x4_t v) {
  static constexpr uint32_t kMask[4] = {0x80000000u, 0u, 0x80000000u, 0u};
  return vreinterpretq_f32_u32(veorq_u32(vreinterpretq_u32_f32(v), vld1q_u32(kMask)));
}

template <int S>
ZY_FFT_INLINE Pair MulI(Pair a) {
  const float32x4_t swapped = vrev64q_f32(a.v);  // (im, re) of each value
  return {S < 0 ? NegateIm(swapped) : NegateRe(swapped)};
}

// Lane for lane the scalar Rotate: re*c + im*(S<0 ? sn : -sn), im*c + re*(S<0 ? -sn : sn);
// x + (-y) and x*(-y) round exactly as x - y and -(x*y).
template <int S>
ZY_FFT_INLINE Pair Rotate(Pair a, float c, float sn) {
  const float32x4_t swapped = vrev64q_f32(a.v);
  const float32x4_t sines = S < 0 ? NegateIm(vdupq_n_f32(sn)) : NegateRe(vdupq_n_f32(sn));
  return {vaddq_f32(vmulq_n_f32(a.v, c), vmulq_f32(swapped, sines))};
}

struct NeonRowLanes {
  using V = Pair;
  static constexpr int kWidth = 2;
  static constexpr int kRowBlock = 1;
  template <int N, int kRow>
  static ZY_FFT_INLINE void LoadRows(const float* p, Pair* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) x[k] = {vcombine_f32(vld1_f32(p + 2 * k), vld1_f32(p + kRow + 2 * k))};
  }
  template <int N, int kRow>
  static ZY_FFT_INLINE void StoreRows(float* p, const Pair* x) {
#pragma GCC unroll 24
    for (int k = 0; k < N; ++k) {
      vst1_f32(p + 2 * k, vget_low_f32(x[k].v));
      vst1_f32(p + kRow + 2 * k, vget_high_f32(x[k].v));
    }
  }
};

// The column pass's NEON flavour: four adjacent columns per step.
struct NeonLanes {
  using RowLanes = NeonRowLanes;
  using V = Quad;
  static constexpr int kWidth = 4;
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
