// What the transform's own tests reach besides Fft2D: the scalar reference and each fast form.
#pragma once

#include <cstdint>

namespace zy {

// Fft2D computed one transform at a time with the scalar reference arithmetic; same arguments,
// checks and results, and the same bits as every fast form.
int32_t Fft2DScalar(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
                    int32_t sign);

// True when Fft2D runs a vector form (NEON, its SIMDe translation, or AVX2) rather than the
// scalar one.
bool Fft2DHasVectorPath();

// The forms of the transform. kNeon is real NEON on arm64 and SIMDe's translation elsewhere;
// kAvx2 exists in x86-64 builds and runs where the CPU has AVX2. Fft2D uses kAvx2 where it
// runs, else kNeon where built, else kScalar.
enum class Fft2DForm { kScalar, kNeon, kAvx2 };

// Whether `form` is built and runs on this CPU.
bool Fft2DFormAvailable(Fft2DForm form);

// Fft2D (realPartOnly false) or Fft2DRealPart (true) computed by `form`; -1 as Fft2D for bad
// arguments, and also when the form is not available.
int32_t Fft2DWithForm(Fft2DForm form, bool realPartOnly, const float* inRe, const float* inIm,
                      float* outRe, float* outIm, int32_t n, int32_t sign);

namespace fft {
// The AVX2 form on checked arguments (a: input plane, b: output plane); fft2d_avx2.cpp.
void TransformAvx2(const float* a, float* b, int32_t n, int32_t sign, bool realPartOnly);
}  // namespace fft

}  // namespace zy
