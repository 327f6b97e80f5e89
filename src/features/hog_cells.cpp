// Cell histograms: each pixel's magnitude spread over its own cell and the nearest
// neighbours, in the plain reference form, and the driver of the fast forms (cells of size 4,
// hog_cells_neon.cpp and hog_cells_avx2.cpp) with the choice between them.
#include <cstddef>
#include <cstring>

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

// The fast forms: cells of size 4 a row at a time, through a buffer of three map rows (the
// row's own and the two it spills into) with a spare cell at each end. Rows are copied in
// when first reached and out when no later cell adds to them: copies of the same bits, so
// every bin still starts from what cellFeat held and takes its additions in pixel order.
struct FastCells {
  bool (*binsFit)(const uint32_t*, int32_t, int32_t, size_t, uint32_t);
  void (*row)(uint32_t, const CellRow4&);
};

bool AccumulateCells4(FastCells form, uint32_t F, const CellLayout& L, const float* gradMag,
                      const uint32_t* gradBins, float* cellFeat) {
  if (L.sizeX <= 0 || L.sizeY <= 0) return true;
  const int32_t f = static_cast<int32_t>(F);
  const int32_t stride = (L.sizeX + 2) * f;
  if (stride > kCellRowFloats) return false;
  // The pixels the cells take: all rows and columns of the map but the frame's last.
  const int32_t rowsUsed = L.height - 1 < 4 * L.sizeY ? L.height - 1 : 4 * L.sizeY;
  const int32_t colsUsed = L.width - 1 < 4 * L.sizeX ? L.width - 1 : 4 * L.sizeX;
  const size_t width = static_cast<size_t>(L.width);
  // The forms index histograms with the bins unchecked, so every bin they read is checked
  // here first, all of them at once. On the tracker's path the bins come from the gradient
  // rows (0..8 and 0..17 by construction) and from the owner's zeroed first row and column,
  // so this never fails there; any bin out of range (scratch a caller filled) sends the whole
  // map to the reference, which skips such additions.
  if (!form.binsFit(gradBins, rowsUsed, colsUsed, width, F)) return false;
  float ring[3 * kCellRowFloats];
  const size_t rowBytes = static_cast<size_t>(L.sizeX) * F * sizeof(float);
  // Map row k (-1 .. sizeY) lives in slot (k + 1) % 3; rows -1 and sizeY are spares. Every
  // float a cell adds into is set first: the spare cells and row -1 to zero, row sizeY by
  // the map row that used its slot before (or zero when there is none).
  auto slot = [&](int32_t k) { return ring + ((k + 1) % 3) * stride + f; };
  for (int32_t k = -1; k <= 1; ++k) {
    std::memset(slot(k) - f, 0, F * sizeof(float));
    std::memset(slot(k) + L.sizeX * f, 0, F * sizeof(float));
  }
  std::memset(slot(-1), 0, rowBytes);
  if (L.sizeY == 1) std::memset(slot(1), 0, rowBytes);
  std::memcpy(slot(0), cellFeat, rowBytes);
  CellRow4 job;
  job.width = width;
  job.cells = L.sizeX;
  job.lastCols = colsUsed - 4 * (L.sizeX - 1);
  job.weights = L.cellWeights;
  for (int32_t i = 0; i < L.sizeY; ++i) {
    if (i + 1 < L.sizeY) std::memcpy(slot(i + 1), cellFeat + At(i + 1, L.sizeX, 0) * F, rowBytes);
    job.mag = gradMag + At(4 * i, L.width, 0);
    job.bins = gradBins + 2 * At(4 * i, L.width, 0);
    job.rows = rowsUsed - 4 * i < 4 ? rowsUsed - 4 * i : 4;
    job.own = slot(i);
    job.up = slot(i - 1) - job.own;
    job.down = slot(i + 1) - job.own;
    form.row(F, job);
    if (i >= 1) std::memcpy(cellFeat + At(i - 1, L.sizeX, 0) * F, slot(i - 1), rowBytes);
  }
  std::memcpy(cellFeat + At(L.sizeY - 1, L.sizeX, 0) * F, slot(L.sizeY - 1), rowBytes);
  return true;
}

}  // namespace

CellRun AccumulateCellsWith(CellForm form, uint32_t featuresPerCell, uint32_t cellSize, int32_t width,
                            int32_t height, const float* gradMag, const uint32_t* gradBins,
                            float* cellFeat) {
  CellLayout L;
  ComputeCellWeights(cellSize, L.nearestCell, L.cellWeights);
  L.width = width;
  L.height = height;
  L.cellSize = static_cast<int32_t>(cellSize);
  L.sizeX = width > 0 ? width / L.cellSize : 0;
  L.sizeY = height > 0 ? height / L.cellSize : 0;
  FastCells fast{nullptr, nullptr};
#if ZY_HAVE_NEON
  if (form == CellForm::kNeon) fast = {CellBinsFit_NEON, CellRow4_NEON};
#endif
#if ZY_HAVE_AVX2_ROWS
  if (form == CellForm::kAvx2 && CpuHasAvx2()) fast = {CellBinsFit_AVX2, CellRow4_AVX2};
#endif
  if (form != CellForm::kReference && fast.row == nullptr) return CellRun::kUnavailable;
  if (fast.row != nullptr && cellSize == 4 &&
      AccumulateCells4(fast, featuresPerCell, L, gradMag, gradBins, cellFeat)) {
    return CellRun::kForm;
  }
  for (int32_t i = 0; i < L.sizeY; ++i) {
    for (int32_t j = 0; j < L.sizeX; ++j) {
      if (featuresPerCell == 27) {
        AccumulateCell(L, i, j, gradMag, gradBins, cellFeat);
      } else {
        AccumulateCellLight(L, i, j, gradMag, gradBins, cellFeat);
      }
    }
  }
  return CellRun::kReference;
}

void AccumulateCells(KernelChoice choice, uint32_t featuresPerCell, uint32_t cellSize, int32_t width,
                     int32_t height, const float* gradMag, const uint32_t* gradBins, float* cellFeat) {
  CellForm form = UseFastKernels(choice) ? CellForm::kNeon : CellForm::kReference;
#if ZY_HAVE_AVX2_ROWS
  if (form == CellForm::kNeon && CpuHasAvx2()) form = CellForm::kAvx2;
#endif
  AccumulateCellsWith(form, featuresPerCell, cellSize, width, height, gradMag, gradBins, cellFeat);
}
