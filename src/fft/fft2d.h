// Unnormalised two-dimensional DFT of 16 x 16 and 24 x 24 complex single-precision planes.
//
// Layout: interleaved (real, imaginary) pairs, row-major, rows packed. The four pointers are a
// split view of two interleaved planes A (input) and B (output): forward (sign -1) reads the
// plane starting at inRe and writes the plane starting at outRe; inverse (sign +1) reads at
// inIm and writes at outIm. Callers pass, for A -> B forward: A, A + 1, B, B + 1, n, -1; and
// inverse: A + 1, A, B + 1, B, n, +1. No scaling either way: inverse(forward(x)) = n^2 x.
// A is not changed; B must not overlap A. Thread-safe: no state, no allocation.
#pragma once

#include <cstdint>

// 0 on success; -1 (nothing written) for a null pointer, n other than 16 or 24, or a sign
// other than -1 or +1.
int32_t Fft2D(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
              int32_t sign);

// Fft2D's real parts, the same bits, for callers that read nothing else: the imaginary parts of
// the output plane are written as +0 and the arithmetic that only feeds them is skipped. Same
// arguments, checks and status as Fft2D.
int32_t Fft2DRealPart(const float* inRe, const float* inIm, float* outRe, float* outIm, int32_t n,
                      int32_t sign);
