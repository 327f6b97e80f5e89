// Per-cell histograms of oriented gradients over a resampled patch.
//
// Scratch and output belong to the caller (the tracker allocates them once):
//   gradBufA, gradBufB  width * height * channels int16 (horizontal / vertical differences;
//                       three channels interleaved per pixel)
//   gradMag             width * height floats
//   gradBins            2 * width * height words (unsigned bin, signed bin per pixel)
//   cellFeat            sizeY * sizeX * F floats, sizeX = width / cellSize,
//                       sizeY = height / cellSize, F = 27 or 9; cell (i, j) at (i*sizeX + j)*F
// Only interior pixels of gradMag / gradBins are written, but row 0 and column 0 are read:
// the owner keeps the border zero. cellFeat is added into and never cleared. Nothing is
// allocated and no state is kept; no messages are logged.
#pragma once

#include <cstdint>

// The patch as the feature extractor receives it.
struct FeatureImage {
  int32_t height;       // rows
  int32_t width;        // columns
  const uint8_t* data;  // planar: channels planes of width * height bytes
  int32_t channels;     // 1 or 3
};

// 27 values per cell (9 unsigned orientation bins, then 18 signed bins), added into cellFeat.
// Returns 9 with nothing touched when image is null, channels is not 1 or 3, cellSize is 0
// or above 4, or there are cells but cellFeat, gradMag or gradBins is null; otherwise 0. With null
// data or a null gradient buffer the gradients are not computed and the rest runs on the scratch
// contents (magnitudes too need both gradient buffers). With data, the gradients need not reach
// the gradient buffers (the fast kernels keep them in registers): those are read only without data.
uint32_t ComputeCellHistograms(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                               int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                               uint32_t* gradBins);
// The same with 9 values per cell (unsigned bins only). Any channel count is accepted: one
// other than 1 or 3 computes nothing and accumulates what the scratch buffers hold.
uint32_t ComputeCellHistogramsLight(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                    int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                    uint32_t* gradBins);

// Fills the ten sector cosines and sines (sector k at k * 20 degrees) into caller-owned
// tables when both are non-null and both counts are at least 10; otherwise does nothing.
void InitSectorTables(float* cosTable, float* sinTable, uint32_t cosCount, uint32_t sinCount);
