// What the transform's own tests reach besides Fft2D: the plain scalar build of the same kernels.
#pragma once

#include <cstdint>

namespace zy {

// Fft2D computed one transform at a time with the scalar reference arithmetic; same arguments,
// checks and results, and the same bits as Fft2D's two-transforms-per-step vector path.
int32_t Fft2DScalar(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
                    int32_t sign);

// True when Fft2D runs the NEON (or SIMDe-translated) path rather than the scalar one.
bool Fft2DHasVectorPath();

}  // namespace zy
