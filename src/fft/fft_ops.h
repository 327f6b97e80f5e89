// The complex arithmetic every radix kernel of the transform is written in, in two flavours:
//
// - `Cpx`, one complex value of one transform: the plain scalar reference;
// - `Pair`, one four-float NEON vector holding the same element of two transforms side by side
//   (re0, im0, re1, im1), so that each kernel step does two transforms.
//
// Both flavours perform the same IEEE operations on every element in the same order (no fused
// multiply-add; negation is a sign flip, which is exact), so a kernel gives the same bits
// whichever flavour it is instantiated with. The direction's sign S (-1 forward, +1 inverse) is a
// template argument: each kernel exists as a forward and an inverse member.
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

namespace zy {
namespace fft {

struct Cpx {
  float re;
  float im;
};

inline Cpx Add(Cpx a, Cpx b) { return {a.re + b.re, a.im + b.im}; }
inline Cpx Sub(Cpx a, Cpx b) { return {a.re - b.re, a.im - b.im}; }
inline Cpx Scale(Cpx a, float k) { return {a.re * k, a.im * k}; }

// a * (S*i): a swap of real and imaginary part with one sign change.
template <int S>
inline Cpx MulI(Cpx a) {
  return S < 0 ? Cpx{a.im, -a.re} : Cpx{-a.im, a.re};
}

// a * (c + S*i*sn): the twiddle product with the sine applied with the direction's sign.
template <int S>
inline Cpx Rotate(Cpx a, float c, float sn) {
  return S < 0 ? Cpx{a.re * c + a.im * sn, a.im * c - a.re * sn}
               : Cpx{a.re * c - a.im * sn, a.im * c + a.re * sn};
}

// Element access of the scalar flavour: one transform, its value at p.
struct ScalarLanes {
  using V = Cpx;
  static constexpr int kWidth = 1;  // transforms per kernel call
  template <int kLane>
  static Cpx Load(const float* p) {
    return {p[0], p[1]};
  }
  template <int kLane>
  static void Store(float* p, Cpx a) {
    p[0] = a.re;
    p[1] = a.im;
  }
};

#if ZY_HAVE_NEON

struct Pair {
  float32x4_t v;
};

inline Pair Add(Pair a, Pair b) { return {vaddq_f32(a.v, b.v)}; }
inline Pair Sub(Pair a, Pair b) { return {vsubq_f32(a.v, b.v)}; }
inline Pair Scale(Pair a, float k) { return {vmulq_n_f32(a.v, k)}; }

// Sign flips of the imaginary lanes (1, 3) or of the real lanes (0, 2).
inline float32x4_t NegateIm(float32x4_t v) {
  static constexpr uint32_t kMask[4] = {0u, 0x80000000u, 0u, 0x80000000u};
  return vreinterpretq_f32_u32(veorq_u32(vreinterpretq_u32_f32(v), vld1q_u32(kMask)));
}
inline float32x4_t NegateRe(float32x4_t v) {
  static constexpr uint32_t kMask[4] = {0x80000000u, 0u, 0x80000000u, 0u};
  return vreinterpretq_f32_u32(veorq_u32(vreinterpretq_u32_f32(v), vld1q_u32(kMask)));
}

template <int S>
inline Pair MulI(Pair a) {
  const float32x4_t swapped = vrev64q_f32(a.v);  // (im, re) of each value
  return {S < 0 ? NegateIm(swapped) : NegateRe(swapped)};
}

// Lane for lane the scalar Rotate: re*c + im*(S<0 ? sn : -sn), im*c + re*(S<0 ? -sn : sn);
// x + (-y) and x*(-y) round exactly as x - y and -(x*y).
template <int S>
inline Pair Rotate(Pair a, float c, float sn) {
  const float32x4_t swapped = vrev64q_f32(a.v);
  const float32x4_t sines = S < 0 ? NegateIm(vdupq_n_f32(sn)) : NegateRe(vdupq_n_f32(sn));
  return {vaddq_f32(vmulq_n_f32(a.v, c), vmulq_f32(swapped, sines))};
}

// Element access of the vector flavour: two transforms whose values lie kLane floats apart
// (2: adjacent columns, one 16-byte load; else two 8-byte loads, e.g. adjacent rows).
struct NeonLanes {
  using V = Pair;
  static constexpr int kWidth = 2;
  template <int kLane>
  static Pair Load(const float* p) {
    if constexpr (kLane == 2) {
      return {vld1q_f32(p)};
    } else {
#if !defined(__aarch64__) && defined(SIMDE_X86_SSE_NATIVE)
      // Two 8-byte halves straight into one register (SIMDe builds 64-bit vectors and
      // shuffles them together).
      const __m128 lo = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
      return {simde_float32x4_from_m128(_mm_loadh_pi(lo, reinterpret_cast<const __m64*>(p + kLane)))};
#else
      return {vcombine_f32(vld1_f32(p), vld1_f32(p + kLane))};
#endif
    }
  }
  template <int kLane>
  static void Store(float* p, Pair a) {
    if constexpr (kLane == 2) {
      vst1q_f32(p, a.v);
    } else {
#if !defined(__aarch64__) && defined(SIMDE_X86_SSE_NATIVE)
      const __m128 v = simde_float32x4_to_m128(a.v);
      _mm_storel_pi(reinterpret_cast<__m64*>(p), v);
      _mm_storeh_pi(reinterpret_cast<__m64*>(p + kLane), v);
#else
      vst1_f32(p, vget_low_f32(a.v));
      vst1_f32(p + kLane, vget_high_f32(a.v));
#endif
    }
  }
};

#endif  // ZY_HAVE_NEON

}  // namespace fft
}  // namespace zy
