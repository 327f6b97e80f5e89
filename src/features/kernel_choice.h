// Which kernels a feature driver runs: the plain scalar references or the fast paths.
#pragma once

#include "common/zy_neon.h"

// x86-64 builds with the fast paths also carry 256-bit forms of the hot kernels, used when
// the CPU has AVX2 (checked at run time, so the library still runs on any x86-64).
#if ZY_HAVE_NEON && defined(__x86_64__) && defined(__GNUC__)
#define ZY_HAVE_AVX2_ROWS 1
// True when this CPU runs the 256-bit forms (asked once).
bool CpuHasAvx2();
#else
#define ZY_HAVE_AVX2_ROWS 0
#endif

enum class KernelChoice {
  kReference,  // plain scalar rows: the definition of every result
  kFast,       // NEON rows where built (real NEON on arm64, SIMDe elsewhere); else the references
};

// True when `choice` asks for the fast rows and they are built.
constexpr bool UseFastKernels(KernelChoice choice) {
  return ZY_HAVE_NEON && choice == KernelChoice::kFast;
}

// What the public entry points use. Both sets give identical bytes; the choice is speed only.
// Every fast row is written on full 128-bit vectors, which SIMDe maps to SSE2 on x86-64 hosts,
// so the fast rows are the default wherever NEON or SIMDe is available.
constexpr KernelChoice kDefaultKernels =
    ZY_HAVE_NEON ? KernelChoice::kFast : KernelChoice::kReference;
constexpr KernelChoice kDefaultCropKernels = kDefaultKernels;
