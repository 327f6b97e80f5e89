// Cell histograms from per-pixel magnitudes and bins. Internal to the library.
#pragma once

#include <cstdint>

#include "features/kernel_choice.h"

// Largest cell size the fixed weight storage holds; larger cells are refused by the drivers.
constexpr uint32_t kMaxCellSize = 4;

// Adds every pixel of a width x height patch (except the last row and column) to its cell of
// the (width / cellSize) x (height / cellSize) map and to the nearest neighbours, each with its
// bilinear weight: featuresPerCell 27 (9 unsigned and 18 signed bins) or 9 (unsigned only).
// gradMag[d] and gradBins[2d], gradBins[2d + 1] are pixel d's magnitude and bins. cellSize is
// 1 .. kMaxCellSize. Every bin receives its additions in pixel order whichever kernels run.
void AccumulateCells(KernelChoice choice, uint32_t featuresPerCell, uint32_t cellSize, int32_t width,
                     int32_t height, const float* gradMag, const uint32_t* gradBins, float* cellFeat);
