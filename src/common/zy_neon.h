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
