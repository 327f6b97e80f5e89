// Cell histograms: each pixel's magnitude spread over its own cell and the nearest
// neighbours, in the plain reference form and the forms of the fast drivers.
#include <cstddef>

#include "features/hog_cells.h"
#include "features/hog_rows.h"

namespace {

// Element (row, col) of a row-major map `cols` wide; every argument is non-negative.
inline size_t At(int32_t row, int32_t cols, int32_t col) {
  return static_cast<size_t>(row) * static_cast<size_t>(cols) + static_cast<size_t>(col);
}

struct CellLayout {
  int32_t width, height, cellSize, sizeX, sizeY;
  int32_t nearestCell[kMaxCellSize];
  float cellWeights[2 * kMaxCellSize];
};

// Adds v to the histogram at `hist`: unsigned bin u, and in the full form signed bin 9 + sg.
// Bins outside their range (only possible from scratch contents the drivers did not write)
// are skipped rather than written past the cell.
template <uint32_t F>
inline void AddToBins(float* hist, uint32_t u, uint32_t sg, float v) {
  if (u < 9) hist[u] += v;
  if (F == 27 && sg < 18) hist[9 + sg] += v;
}

// Spreads the pixels of cell (i, j) over the cell and its neighbours. Pixels rows outer,
// columns inner; per pixel the own cell, the vertical, horizontal and diagonal neighbour.
// Neighbours outside the map are dropped. The last frame row and column are left out.
// kCellSize is the cell size when known at compile time (the tracker's 4: the pixel loops
// unroll and the weights stay in registers), 0 when it is taken from the layout.
template <uint32_t F, int32_t kCellSize>
void AccumulateCellT(const CellLayout& L, int32_t i, int32_t j, const float* gradMag,
                     const uint32_t* gradBins, float* cellFeat) {
  const int32_t cs = kCellSize != 0 ? kCellSize : L.cellSize;
  float* own = cellFeat + At(i, L.sizeX, j) * F;
#pragma GCC unroll 4
  for (int32_t ii = 0; ii < cs; ++ii) {
    const int32_t y = i * cs + ii;
    if (y >= L.height - 1) break;
    const float wy0 = L.cellWeights[2 * ii];
    const float wy1 = L.cellWeights[2 * ii + 1];
    const int32_t i2 = i + L.nearestCell[ii];
    const bool rowIn = i2 >= 0 && i2 < L.sizeY;
    float* vert = rowIn ? cellFeat + At(i2, L.sizeX, j) * F : nullptr;
#pragma GCC unroll 4
    for (int32_t jj = 0; jj < cs; ++jj) {
      const int32_t x = j * cs + jj;
      if (x >= L.width - 1) break;
      const size_t d = At(y, L.width, x);
      const float r = gradMag[d];
      const uint32_t u = gradBins[2 * d];
      const uint32_t sg = gradBins[2 * d + 1];
      const float wx0 = L.cellWeights[2 * jj];
      const float wx1 = L.cellWeights[2 * jj + 1];
      const int32_t j2 = j + L.nearestCell[jj];
      const bool colIn = j2 >= 0 && j2 < L.sizeX;
      AddToBins<F>(own, u, sg, (r * wx0) * wy0);
      if (rowIn) AddToBins<F>(vert, u, sg, (r * wx0) * wy1);
      if (colIn) AddToBins<F>(own + (j2 - j) * static_cast<ptrdiff_t>(F), u, sg, wy0 * (r * wx1));
      if (rowIn && colIn) {
        AddToBins<F>(vert + (j2 - j) * static_cast<ptrdiff_t>(F), u, sg, (r * wx1) * wy1);
      }
    }
  }
}

// A cell of size 4, what AccumulateCellT<F, 4> does: a pixel's four additions go to four
// different cells, so they may be made in any order; each bin still receives its additions in
// the reference's pixel order, which is what keeps the sums identical. The own-cell side of
// each pixel offset is known (0 and 1 feed the cell before, 2 and 3 the cell after), bins are
// checked once per pixel, and the tests the reference makes per pixel are settled per cell:
// - kInterior: all four neighbours lie in the map and all 16 pixels inside the accumulated
//   area (the caller checks); nothing is tested;
// - otherwise the neighbours' presence is found once per cell and only existing ones are
//   written; kWhole says all 16 pixels count (fixed loop counts that unroll), else `rows` and
//   `cols` leave out the frame's last pixel row and column.
template <uint32_t F, bool kInterior, bool kWhole>
inline __attribute__((always_inline)) void AccumulateCell4T(const CellLayout& L, int32_t i, int32_t j,
                                                            const float* gradMag, const uint32_t* gradBins,
                                                            float* cellFeat, int32_t rows, int32_t cols) {
  if (kInterior || kWhole) rows = cols = 4;
  const ptrdiff_t rowStride = static_cast<ptrdiff_t>(L.sizeX) * F;
  float* own = cellFeat + At(i, L.sizeX, j) * F;
  const bool up = kInterior || i >= 1, down = kInterior || i + 1 < L.sizeY;
  const bool left = kInterior || j >= 1, right = kInterior || j + 1 < L.sizeX;
  const float wx[8] = {L.cellWeights[0], L.cellWeights[1], L.cellWeights[2], L.cellWeights[3],
                       L.cellWeights[4], L.cellWeights[5], L.cellWeights[6], L.cellWeights[7]};
#pragma GCC unroll 4
  for (int32_t ii = 0; ii < rows; ++ii) {
    const float wy0 = wx[2 * ii];
    const float wy1 = wx[2 * ii + 1];
    const bool vIn = ii < 2 ? up : down;
    const ptrdiff_t v = ii < 2 ? -rowStride : rowStride;
    const size_t d0 = At(4 * i + ii, L.width, 4 * j);
#pragma GCC unroll 4
    for (int32_t jj = 0; jj < cols; ++jj) {
      const bool hIn = jj < 2 ? left : right;
      const ptrdiff_t h = jj < 2 ? -static_cast<ptrdiff_t>(F) : static_cast<ptrdiff_t>(F);
      const size_t d = d0 + static_cast<size_t>(jj);
      const float r = gradMag[d];
      const uint32_t u = gradBins[2 * d];
      const uint32_t sg = gradBins[2 * d + 1];
      const float a = r * wx[2 * jj];
      const float b = r * wx[2 * jj + 1];
      const float vOwn = a * wy0;
      const float vVert = a * wy1;
      const float vSide = wy0 * b;
      const float vDiag = b * wy1;
      if (u < 9 && (F == 9 || sg < 18)) {
        // One address per bin; the neighbours are fixed offsets from it.
        float* p = own + u;
        p[0] += vOwn;
        if (vIn) p[v] += vVert;
        if (hIn) p[h] += vSide;
        if (vIn && hIn) p[v + h] += vDiag;
        if (F == 27) {
          float* q = own + 9 + sg;
          q[0] += vOwn;
          if (vIn) q[v] += vVert;
          if (hIn) q[h] += vSide;
          if (vIn && hIn) q[v + h] += vDiag;
        }
      } else {
        AddToBins<F>(own, u, sg, vOwn);
        if (vIn) AddToBins<F>(own + v, u, sg, vVert);
        if (hIn) AddToBins<F>(own + h, u, sg, vSide);
        if (vIn && hIn) AddToBins<F>(own + v + h, u, sg, vDiag);
      }
    }
  }
}

// An edge cell (some neighbour outside the map, or pixels on the frame's last row or column).
template <uint32_t F>
void AccumulateEdgeCell4(const CellLayout& L, int32_t i, int32_t j, const float* gradMag,
                         const uint32_t* gradBins, float* cellFeat) {
  const int32_t rows = L.height - 1 - 4 * i < 4 ? L.height - 1 - 4 * i : 4;
  const int32_t cols = L.width - 1 - 4 * j < 4 ? L.width - 1 - 4 * j : 4;
  if (rows == 4 && cols == 4) {
    AccumulateCell4T<F, false, true>(L, i, j, gradMag, gradBins, cellFeat, rows, cols);
  } else {
    AccumulateCell4T<F, false, false>(L, i, j, gradMag, gradBins, cellFeat, rows, cols);
  }
}

// Cells j = 1 .. lastJ of interior cell row i. Its own function, so that the per-pixel work
// keeps its pointers in registers; on x86-64 CPUs with AVX2 a second copy compiled for them
// (three-operand scalar instructions: the same operations, fewer register copies).
template <uint32_t F>
inline __attribute__((always_inline)) void AccumulateInteriorRowT(const CellLayout& L, int32_t i,
                                                                  int32_t lastJ, const float* gradMag,
                                                                  const uint32_t* gradBins,
                                                                  float* cellFeat) {
  for (int32_t j = 1; j <= lastJ; ++j) {
    AccumulateCell4T<F, true, true>(L, i, j, gradMag, gradBins, cellFeat, 4, 4);
  }
}

using InteriorRow = void (*)(const CellLayout&, int32_t, int32_t, const float*, const uint32_t*, float*);

template <uint32_t F>
__attribute__((noinline)) void AccumulateInteriorRow(const CellLayout& L, int32_t i, int32_t lastJ,
                                                     const float* gradMag, const uint32_t* gradBins,
                                                     float* cellFeat) {
  AccumulateInteriorRowT<F>(L, i, lastJ, gradMag, gradBins, cellFeat);
}

#if ZY_HAVE_AVX2_ROWS
template <uint32_t F>
__attribute__((noinline, target("avx2"))) void AccumulateInteriorRowAvx2(const CellLayout& L, int32_t i,
                                                                         int32_t lastJ, const float* gradMag,
                                                                         const uint32_t* gradBins,
                                                                         float* cellFeat) {
  AccumulateInteriorRowT<F>(L, i, lastJ, gradMag, gradBins, cellFeat);
}
#endif

template <uint32_t F>
InteriorRow ChooseInteriorRow() {
#if ZY_HAVE_AVX2_ROWS
  if (CpuHasAvx2()) return AccumulateInteriorRowAvx2<F>;
#endif
  return AccumulateInteriorRow<F>;
}

void AccumulateCell(const CellLayout& L, int32_t i, int32_t j, const float* gradMag,
                    const uint32_t* gradBins, float* cellFeat) {
  if (L.cellSize == 4) {
    AccumulateCellT<27, 4>(L, i, j, gradMag, gradBins, cellFeat);
  } else {
    AccumulateCellT<27, 0>(L, i, j, gradMag, gradBins, cellFeat);
  }
}

void AccumulateCellLight(const CellLayout& L, int32_t i, int32_t j, const float* gradMag,
                         const uint32_t* gradBins, float* cellFeat) {
  if (L.cellSize == 4) {
    AccumulateCellT<9, 4>(L, i, j, gradMag, gradBins, cellFeat);
  } else {
    AccumulateCellT<9, 0>(L, i, j, gradMag, gradBins, cellFeat);
  }
}

// Cell weights for offsets t = 0 .. cellSize - 1: nearestCell[t] is the direction (-1 or +1)
// of the neighbour cell a pixel also feeds, cellWeights[2t] the weight of its own cell and
// cellWeights[2t + 1] that of the neighbour. Size 4 gives (0.625, 0.375), (0.875, 0.125),
// (0.875, 0.125), (0.625, 0.375).
void ComputeCellWeights(uint32_t cellSize, int32_t nearestCell[4], float cellWeights[8]) {
  for (uint32_t t = 0; t < kMaxCellSize; ++t) {
    nearestCell[t] = 0;
    cellWeights[2 * t] = 0.0f;
    cellWeights[2 * t + 1] = 0.0f;
  }
  const uint32_t count = cellSize < kMaxCellSize ? cellSize : kMaxCellSize;
  // A pixel at offset t lies a from the centre of its own cell side and b from the centre
  // of the nearer neighbour's; the weights are inversely proportional to those distances
  // and sum to 1.
  const float cs = static_cast<float>(cellSize);
  const float h = 0.5f * cs;
  const uint32_t m = static_cast<uint32_t>(h);
  for (uint32_t t = 0; t < count; ++t) {
    const float ft = static_cast<float>(t);
    float a;
    float b;
    if (t < m) {
      nearestCell[t] = -1;
      a = h - ft - 0.5f;
      b = h + ft + 0.5f;
    } else {
      nearestCell[t] = 1;
      a = ft - h + 0.5f;
      b = cs + h - ft - 0.5f;
    }
    const float s = a * b / (a + b);
    cellWeights[2 * t] = (1.0f / a) * s;
    cellWeights[2 * t + 1] = (1.0f / b) * s;
  }
}


}  // namespace
void AccumulateCells(KernelChoice choice, uint32_t featuresPerCell, uint32_t cellSize, int32_t width,
                     int32_t height, const float* gradMag, const uint32_t* gradBins, float* cellFeat) {
  CellLayout L;
  ComputeCellWeights(cellSize, L.nearestCell, L.cellWeights);
  L.width = width;
  L.height = height;
  L.cellSize = static_cast<int32_t>(cellSize);
  L.sizeX = width > 0 ? width / L.cellSize : 0;
  L.sizeY = height > 0 ? height / L.cellSize : 0;
  // The fast drivers take cells of size 4 away from the map's edge, whose neighbours and
  // pixels need no checks, in a form of their own, and the edge cells in one that settles its
  // checks per cell (the same additions in the same order).
  const bool interiorCells = UseFastKernels(choice) && cellSize == 4;
  const InteriorRow interiorRow = featuresPerCell == 27 ? ChooseInteriorRow<27>() : ChooseInteriorRow<9>();
  // The last interior cell of a row: neighbours on both sides, pixels left of the last column.
  int32_t lastJ = L.sizeX - 2;
  while (lastJ >= 1 && 4 * lastJ + 4 >= width) --lastJ;
  for (int32_t i = 0; i < L.sizeY; ++i) {
    const bool rowInterior = interiorCells && i >= 1 && i + 1 < L.sizeY && 4 * i + 4 < height && lastJ >= 1;
    for (int32_t j = 0; j < L.sizeX; ++j) {
      if (rowInterior && j == 1) {
        interiorRow(L, i, lastJ, gradMag, gradBins, cellFeat);
        j = lastJ;
      } else if (interiorCells) {
        if (featuresPerCell == 27) {
          AccumulateEdgeCell4<27>(L, i, j, gradMag, gradBins, cellFeat);
        } else {
          AccumulateEdgeCell4<9>(L, i, j, gradMag, gradBins, cellFeat);
        }
      } else if (featuresPerCell == 27) {
        AccumulateCell(L, i, j, gradMag, gradBins, cellFeat);
      } else {
        AccumulateCellLight(L, i, j, gradMag, gradBins, cellFeat);
      }
    }
  }
}
