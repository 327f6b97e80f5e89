// Cell histograms from per-pixel magnitudes and bins. Internal to the library.
#pragma once

#include <cstddef>
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

// The forms of the accumulation: the scalar reference, the NEON form (through SIMDe on x86-64)
// and the 256-bit form for x86-64 CPUs with AVX2. AccumulateCells runs the best one here.
enum class CellForm { kReference, kNeon, kAvx2 };
// What AccumulateCellsWith ran: nothing (the form is not built here or the CPU lacks it), the
// form itself, or the reference in its place. The fast forms take cells of size 4 whose bins
// all lie in range and whose map rows fit their row buffer; anything else they hand to the
// reference (the same bits either way).
enum class CellRun { kUnavailable, kForm, kReference };
CellRun AccumulateCellsWith(CellForm form, uint32_t featuresPerCell, uint32_t cellSize, int32_t width,
                            int32_t height, const float* gradMag, const uint32_t* gradBins,
                            float* cellFeat);

// One row of cells of size 4 for the fast forms. Their histograms live in rows with a spare
// cell at each end and spare rows above and below the map, so every pixel has all four targets
// and additions to a neighbour outside the map land in a spare, which is never read back.
struct CellRow4 {
  const float* mag;        // pixel (4i, 0): the row's first pixel
  const uint32_t* bins;    // its unsigned bin (signed bin beside it)
  size_t width;            // pixels per row of mag (bins: twice as many entries)
  int32_t rows;            // pixel rows taken: 4, or 3 when the frame's last row falls in the cells
  int32_t cells;           // cells in the row
  int32_t lastCols;        // pixel columns taken in the last cell: 4, or 3 likewise
  float* own;              // histogram of the row's cell 0
  ptrdiff_t up, down;      // from a histogram to the one above / below, in floats
  const float* weights;    // cell weights of offsets 0..3: own, neighbour (8 floats)
};
// Largest (cells + 2) * featuresPerCell a fast form's row buffer holds.
constexpr int32_t kCellRowFloats = 768;

#if ZY_HAVE_NEON
// True when every unsigned bin of the rows x cols pixels (and with 27 features every signed
// bin) lies in range.
bool CellBinsFit_NEON(const uint32_t* bins, int32_t rows, int32_t cols, size_t width,
                      uint32_t featuresPerCell);
void CellRow4_NEON(uint32_t featuresPerCell, const CellRow4& row);
#endif
#if ZY_HAVE_AVX2_ROWS
bool CellBinsFit_AVX2(const uint32_t* bins, int32_t rows, int32_t cols, size_t width,
                      uint32_t featuresPerCell);
void CellRow4_AVX2(uint32_t featuresPerCell, const CellRow4& row);
#endif
