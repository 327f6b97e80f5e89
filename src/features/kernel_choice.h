// Which kernels a feature driver runs: the plain scalar references or the fast paths.
#pragma once

#include "common/zy_neon.h"

enum class KernelChoice {
  kReference,  // plain scalar rows: the definition of every result
  kFast,       // NEON rows where built (real NEON on arm64, SIMDe elsewhere); else the references
};

// What the public entry points use.
constexpr KernelChoice kDefaultKernels = ZY_HAVE_NEON ? KernelChoice::kFast : KernelChoice::kReference;

// True when `choice` asks for the fast rows and they are built.
constexpr bool UseFastKernels(KernelChoice choice) {
  return ZY_HAVE_NEON && choice == KernelChoice::kFast;
}
