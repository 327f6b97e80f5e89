// NEON intrinsics: the real ones on arm64, SIMDe's portable translation of the same source
// elsewhere, so host tests run the very kernels that ship.
#pragma once

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

#if ZY_HAVE_NEON
#include <cmath>

namespace zy {
// Correctly rounded square root per lane: the instruction on arm64 and on x86-64 (SIMDe 0.7.4
// has no vsqrtq_f32); elsewhere the IEEE square root lane by lane, which gives the same bits.
inline float32x4_t SqrtF32x4(float32x4_t v) {
#if defined(__aarch64__)
  return vsqrtq_f32(v);
#elif defined(SIMDE_X86_SSE_NATIVE)
  return simde_float32x4_from_m128(_mm_sqrt_ps(simde_float32x4_to_m128(v)));
#else
  float lanes[4];
  vst1q_f32(lanes, v);
  for (float& f : lanes) f = std::sqrt(f);
  return vld1q_f32(lanes);
#endif
}

// a / b per lane, correctly rounded (SIMDe 0.7.4 has no vdivq_f32 either).
inline float32x4_t DivF32x4(float32x4_t a, float32x4_t b) {
#if defined(__aarch64__)
  return vdivq_f32(a, b);
#elif defined(SIMDE_X86_SSE_NATIVE)
  return simde_float32x4_from_m128(_mm_div_ps(simde_float32x4_to_m128(a), simde_float32x4_to_m128(b)));
#else
  float x[4], y[4];
  vst1q_f32(x, a);
  vst1q_f32(y, b);
  for (int l = 0; l < 4; ++l) x[l] /= y[l];
  return vld1q_f32(x);
#endif
}
}  // namespace zy
#endif
