// Pieces of the gradient feature drivers, with the fast rows beside their scalar references.
// Internal to the library; tests call them directly.
#pragma once

#include <cstddef>
#include <cstdint>

#include "features/hog_features.h"
#include "features/kernel_choice.h"

// Cosine and sine of the nine orientation sectors k * 20 degrees (entry 9 is kept for
// completeness and never read): cosf / sinf of ((float)k * (float)pi) / 9.0f, every step in
// single precision. The bit patterns written beside the definitions are the definition.
extern const float kSectorCos[10];
extern const float kSectorSin[10];

struct OrientationBins {
  uint32_t signedBin;    // 0..17: sector k, or k + 9 when the gradient points against it
  uint32_t unsignedBin;  // 0..8
};

// The sector whose direction (either sign) has the largest projection of (dx, dy); strict
// comparisons, so the first sector reaching the maximum keeps it. Zero gives (0, 0).
OrientationBins FindOrientationBin(int32_t dx, int32_t dy, const float* sectorCos,
                                   const float* sectorSin);

// Central differences of rows 1 .. height - 2, columns 1 .. width - 2 (16-bit signed); border
// entries are not written. One plane: gradBufA/B[d]. Three planar colour planes: channels
// interleaved, gradBufA/B[3d + ch]. Nothing happens below 3 rows or 3 columns.
void ComputeGradients1(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice = kDefaultKernels);
void ComputeGradients3(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice = kDefaultKernels);

// Per interior pixel: magnitude sqrt(dx^2 + dy^2) into gradMag[d], unsigned and signed bins
// into gradBins[2d], gradBins[2d + 1]. The three-channel form (channels must be 3) takes the
// channel of the largest squared magnitude, the earlier one on ties.
void ComputeMagnitudeBins1(int32_t width, int32_t height, const int16_t* gradBufA,
                           const int16_t* gradBufB, float* gradMag, const float* sectorCos,
                           const float* sectorSin, uint32_t* gradBins,
                           KernelChoice choice = kDefaultKernels);
void ComputeMagnitudeBins3(int32_t width, int32_t height, int32_t channels, const int16_t* gradBufA,
                           const int16_t* gradBufB, float* gradMag, const float* sectorCos,
                           const float* sectorSin, uint32_t* gradBins,
                           KernelChoice choice = kDefaultKernels);

// Pixel 1 of row y in each of the three planes of a planar patch, and the pixels straight
// above and below.
struct PlaneRows {
  const uint8_t* row[3];
  const uint8_t* above[3];
  const uint8_t* below[3];
};
PlaneRows PlaneRowsAt(const uint8_t* data, int32_t width, int32_t height, int32_t y);

// The drivers with a chosen kernel set; featuresPerCell is 27 (full) or 9 (light). With
// storeGradients false the fast three-channel kernel leaves the gradient buffers unwritten (the
// public drivers' way: nothing reads them after a call that had image data).
uint32_t ComputeCellHistogramsWith(KernelChoice choice, uint32_t featuresPerCell,
                                   const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                   int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                   uint32_t* gradBins, bool storeGradients = true);

// Row kernels. Gradients of n pixels of one row: `row` points at the first pixel, whose left
// and right neighbours are row[-1] and row[1]; `above` / `below` at the pixels straight up
// and down. Three-channel rows take the three planes' pointers and write interleaved.
void GradientRow1_C(const uint8_t* row, const uint8_t* above, const uint8_t* below, int32_t n,
                    int16_t* gx, int16_t* gy);
void GradientRow3_C(const uint8_t* const row[3], const uint8_t* const above[3],
                    const uint8_t* const below[3], int32_t n, int16_t* gx3, int16_t* gy3);
// GradientRow3_C and then MagnitudeBinsRow3_C of `rows` rows of n pixels: the reference of
// the fused kernels below (same arguments). Without gx3 / gy3 the differences pass through a
// local buffer eight pixels at a time.
void GradientMagnitudeBins3_C(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                              int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins);
// Magnitudes and bins of n pixels: dx, dy one per pixel (1) or three interleaved (3).
void MagnitudeBinsRow1_C(const int16_t* dx, const int16_t* dy, int32_t n, const float* sectorCos,
                         const float* sectorSin, float* mag, uint32_t* bins);
void MagnitudeBinsRow3_C(const int16_t* dx3, const int16_t* dy3, int32_t n, const float* sectorCos,
                         const float* sectorSin, float* mag, uint32_t* bins);
#if ZY_HAVE_NEON
// Eight pixels at a time, then the scalar rows for the rest.
void GradientRow1_NEON(const uint8_t* row, const uint8_t* above, const uint8_t* below, int32_t n,
                       int16_t* gx, int16_t* gy);
void GradientRow3_NEON(const uint8_t* const row[3], const uint8_t* const above[3],
                       const uint8_t* const below[3], int32_t n, int16_t* gx3, int16_t* gy3);
// Four pixels at a time, then the scalar rows for the rest.
void MagnitudeBinsRow1_NEON(const int16_t* dx, const int16_t* dy, int32_t n, const float* sectorCos,
                            const float* sectorSin, float* mag, uint32_t* bins);
void MagnitudeBinsRow3_NEON(const int16_t* dx3, const int16_t* dy3, int32_t n,
                            const float* sectorCos, const float* sectorSin, float* mag,
                            uint32_t* bins);
// GradientRow3 and then MagnitudeBinsRow3 of `rows` rows of n pixels in one pass: row r reads
// first.row/above/below[ch] + r * step and writes mag + r * step, bins + 2 * r * step and, when
// gx3 and gy3 are non-null, the interleaved differences at gx3 / gy3 + 3 * r * step (null: the
// differences go from registers to the search and are not stored). The sector tables are the
// fixed kSectorCos / kSectorSin, built in. Squares in integers, the chosen channel's sum of
// squares converted once for the square root, and a sector search that evaluates only the two
// sectors around the gradient's direction with the reference's float projections. Eight
// pixels per step; rows of eight or more end with a block that overlaps the one before, shorter
// rows take the scalar rows.
void GradientMagnitudeBins3_NEON(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                                 int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins);
#endif
#if ZY_HAVE_AVX2_ROWS
// The same fused kernel in 256-bit lanes; call only when CpuHasAvx2().
void GradientMagnitudeBins3_AVX2(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                                 int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins);
#endif
