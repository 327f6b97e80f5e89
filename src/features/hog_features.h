// Per-cell histograms of oriented gradients over a resampled patch.
#pragma once

#include <cstdint>

// The patch as the feature extractor receives it.
struct FeatureImage {
  int32_t height;        // rows
  int32_t width;         // columns
  const uint8_t* data;   // planar: channels planes of width * height bytes
  int32_t channels;      // 1 or 3
};

// 27 values per cell (9 unsigned orientation bins, then 18 signed bins), added into cellFeat
// (sizeY * sizeX * 27 floats, sizeX = width / cellSize, sizeY = height / cellSize). 0 or 9.
uint32_t ComputeCellHistograms(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                               int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                               uint32_t* gradBins);
// The same with 9 values per cell (unsigned bins only). 0 or 9.
uint32_t ComputeCellHistogramsLight(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                    int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                    uint32_t* gradBins);

// Fills the ten sector cosines and sines (k * pi / 9) into caller-owned tables when both are
// non-null and both counts are at least 10.
void InitSectorTables(float* cosTable, float* sinTable, uint32_t cosCount, uint32_t sinCount);
