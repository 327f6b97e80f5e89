// Which kernels a feature driver runs: the plain scalar references or the fast paths.
#pragma once

#include "common/zy_neon.h"

enum class KernelChoice {
  kReference,  // plain scalar rows: the definition of every result
  kFast,       // NEON rows where built (real NEON on arm64, SIMDe elsewhere); else the references
};

// True when `choice` asks for the fast rows and they are built.
constexpr bool UseFastKernels(KernelChoice choice) {
  return ZY_HAVE_NEON && choice == KernelChoice::kFast;
}

#if ZY_HAVE_NEON && (defined(__aarch64__) || defined(__ARM_NEON))
#define ZY_FEATURES_NATIVE_NEON 1
#else
#define ZY_FEATURES_NATIVE_NEON 0
#endif

// What the public entry points use. Both sets give identical bytes; the choice is speed only.
// The gradient rows gain even through SIMDe. The crop row is built on 64-bit lanes
// (vrhadd_u8, vld2_u8, vld4_u8), which are single instructions on arm64 but which SIMDe 0.7.4
// runs lane by lane on x86-64, where that row costs about twice the scalar one (callgrind,
// 72 x 72 crop: 1.31 M against 0.69 M instructions); so it is the default only on real NEON.
constexpr KernelChoice kDefaultKernels =
    ZY_HAVE_NEON ? KernelChoice::kFast : KernelChoice::kReference;
constexpr KernelChoice kDefaultCropKernels =
    ZY_FEATURES_NATIVE_NEON ? KernelChoice::kFast : KernelChoice::kReference;
