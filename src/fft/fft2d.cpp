// Fixed-size 2-D DFT: 16 x 16 and 24 x 24, both directions, no plan and no allocation.
//
// The kernels (fft_kernels.h) are instantiated here with the scalar reference flavour and the
// NEON one (real NEON on arm64, SIMDe's translation of it elsewhere); x86-64 builds also carry
// a 256-bit form (fft2d_avx2.cpp), chosen when the CPU has AVX2. All give the same bits.
#include "fft/fft2d.h"

#include "fft/fft2d_internal.h"
#include "fft/fft_kernels.h"
#include "fft/fft_ops.h"

namespace zy {
namespace {

bool CpuHasAvx2() {
#if defined(ZY_FFT_AVX2)
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
#else
  return false;
#endif
}

Fft2DForm DefaultForm() {
  if (CpuHasAvx2()) return Fft2DForm::kAvx2;
  return ZY_HAVE_NEON ? Fft2DForm::kNeon : Fft2DForm::kScalar;
}

template <class L>
void TransformWith(const float* a, float* b, int32_t n, int32_t sign, bool realPartOnly) {
  if (realPartOnly) {
    fft::TransformPlane<L, true>(a, b, n, sign);
  } else {
    fft::TransformPlane<L, false>(a, b, n, sign);
  }
}

int32_t Run(Fft2DForm form, bool realPartOnly, const float* inRe, const float* inIm, float* outRe,
            float* outIm, int32_t n, int32_t sign) {
  if (inRe == nullptr || inIm == nullptr || outRe == nullptr || outIm == nullptr) return -1;
  if ((n != 16 && n != 24) || (sign != -1 && sign != 1)) return -1;
  // The interleaved planes start at the real pointers forward and at the imaginary ones
  // inverse (the caller passes them swapped); the other pair is only checked.
  const float* a = sign < 0 ? inRe : inIm;
  float* b = sign < 0 ? outRe : outIm;
  if (form == Fft2DForm::kAvx2) {
#if defined(ZY_FFT_AVX2)
    if (!CpuHasAvx2()) return -1;
    fft::TransformAvx2(a, b, n, sign, realPartOnly);
    return 0;
#else
    return -1;
#endif
  }
  if (form == Fft2DForm::kNeon) {
#if ZY_HAVE_NEON
    TransformWith<fft::NeonLanes>(a, b, n, sign, realPartOnly);
    return 0;
#else
    return -1;
#endif
  }
  TransformWith<fft::ScalarLanes>(a, b, n, sign, realPartOnly);
  return 0;
}

}  // namespace

int32_t Fft2DScalar(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
                    int32_t sign) {
  return Run(Fft2DForm::kScalar, false, inRe, inIm, outRe, outIm, n, sign);
}

bool Fft2DHasVectorPath() { return DefaultForm() != Fft2DForm::kScalar; }

bool Fft2DFormAvailable(Fft2DForm form) {
  if (form == Fft2DForm::kAvx2) return CpuHasAvx2();
  if (form == Fft2DForm::kNeon) return ZY_HAVE_NEON != 0;
  return true;
}

int32_t Fft2DWithForm(Fft2DForm form, bool realPartOnly, const float* inRe, const float* inIm,
                      float* outRe, float* outIm, int32_t n, int32_t sign) {
  return Run(form, realPartOnly, inRe, inIm, outRe, outIm, n, sign);
}

}  // namespace zy

int32_t Fft2D(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
              int32_t sign) {
  return zy::Run(zy::DefaultForm(), false, inRe, inIm, outRe, outIm, n, sign);
}

int32_t Fft2DRealPart(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
                      int32_t sign) {
  return zy::Run(zy::DefaultForm(), true, inRe, inIm, outRe, outIm, n, sign);
}
