// Per-cell histograms of oriented gradients: gradients, magnitudes and orientation bins per
// pixel, then each pixel's magnitude spread over its own cell and the nearest neighbours.
#include "features/hog_features.h"

#include <cmath>
#include <cstddef>

#include "features/hog_rows.h"

// Bit patterns 3f800000 3f708fb2 3f441b7d 3effffff 3e31d0cf be31d0dc bf000001 bf441b80
// bf708fb3 bf800000 (cosines) and 00000000 3eaf1d44 3f248dbb 3f5db3d8 3f7c1c5d 3f7c1c5c
// 3f5db3d7 3f248db8 3eaf1d3f b3bbbd2e (sines). Kept as constants so that a frame allocates
// nothing.
const float kSectorCos[10] = {0x1p+0f,         0x1.e11f64p-1f,  0x1.8836fap-1f,  0x1.fffffep-2f,
                              0x1.63a19ep-3f,  -0x1.63a1b8p-3f, -0x1.000002p-1f, -0x1.8837p-1f,
                              -0x1.e11f66p-1f, -0x1p+0f};
const float kSectorSin[10] = {0x0p+0f,        0x1.5e3a88p-2f,  0x1.491b76p-1f, 0x1.bb67b0p-1f,
                              0x1.f838bap-1f, 0x1.f838b8p-1f,  0x1.bb67aep-1f, 0x1.491b70p-1f,
                              0x1.5e3a7ep-2f, -0x1.777a5cp-24f};

namespace {

constexpr uint32_t kFail = 9;
// nearestCell and cellWeights are fixed storage for this many offsets per cell.
constexpr uint32_t kMaxCellSize = 4;

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
  float* own = cellFeat + (static_cast<size_t>(i) * L.sizeX + j) * F;
#pragma GCC unroll 4
  for (int32_t ii = 0; ii < cs; ++ii) {
    const int32_t y = i * cs + ii;
    if (y >= L.height - 1) break;
    const float wy0 = L.cellWeights[2 * ii];
    const float wy1 = L.cellWeights[2 * ii + 1];
    const int32_t i2 = i + L.nearestCell[ii];
    const bool rowIn = i2 >= 0 && i2 < L.sizeY;
    float* vert = rowIn ? cellFeat + (static_cast<size_t>(i2) * L.sizeX + j) * F : nullptr;
#pragma GCC unroll 4
    for (int32_t jj = 0; jj < cs; ++jj) {
      const int32_t x = j * cs + jj;
      if (x >= L.width - 1) break;
      const size_t d = static_cast<size_t>(y) * L.width + x;
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
  float* own = cellFeat + (static_cast<size_t>(i) * L.sizeX + j) * F;
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
    const size_t d0 = static_cast<size_t>(4 * i + ii) * L.width + 4 * static_cast<size_t>(j);
#pragma GCC unroll 4
    for (int32_t jj = 0; jj < cols; ++jj) {
      const bool hIn = jj < 2 ? left : right;
      const ptrdiff_t h = jj < 2 ? -static_cast<ptrdiff_t>(F) : static_cast<ptrdiff_t>(F);
      const size_t d = d0 + jj;
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

}  // namespace

void InitSectorTables(float* cosTable, float* sinTable, uint32_t cosCount, uint32_t sinCount) {
  if (cosTable == nullptr || sinTable == nullptr || cosCount < 10 || sinCount < 10) return;
  for (int k = 0; k < 10; ++k) {
    cosTable[k] = kSectorCos[k];
    sinTable[k] = kSectorSin[k];
  }
}

OrientationBins FindOrientationBin(int32_t dx, int32_t dy, const float* sectorCos,
                                   const float* sectorSin) {
  const float fx = static_cast<float>(dx);
  const float fy = static_cast<float>(dy);
  float best = sectorCos[0] * fx + sectorSin[0] * fy;
  OrientationBins bins{0, 0};
  for (uint32_t k = 0; k < 9; ++k) {
    const float dot = sectorCos[k] * fx + sectorSin[k] * fy;
    if (dot > best) {
      best = dot;
      bins.signedBin = k;
      bins.unsignedBin = k;
    } else if (-dot > best) {
      best = -dot;
      bins.signedBin = k + 9;
      bins.unsignedBin = k;
    }
  }
  return bins;
}

void GradientRow1_C(const uint8_t* row, const uint8_t* above, const uint8_t* below, int32_t n,
                    int16_t* gx, int16_t* gy) {
  for (int32_t i = 0; i < n; ++i) {
    gx[i] = static_cast<int16_t>(row[i + 1] - row[i - 1]);
    gy[i] = static_cast<int16_t>(below[i] - above[i]);
  }
}

void GradientRow3_C(const uint8_t* const row[3], const uint8_t* const above[3],
                    const uint8_t* const below[3], int32_t n, int16_t* gx3, int16_t* gy3) {
  for (int32_t i = 0; i < n; ++i) {
    for (int ch = 0; ch < 3; ++ch) {
      gx3[3 * i + ch] = static_cast<int16_t>(row[ch][i + 1] - row[ch][i - 1]);
      gy3[3 * i + ch] = static_cast<int16_t>(below[ch][i] - above[ch][i]);
    }
  }
}

namespace {
// Integer sum of squares, converted to float once. Unsigned: two -32768 entries (possible
// only in scratch the drivers did not fill) sum to 2^31 without overflow.
inline uint32_t SumSquares(int32_t dx, int32_t dy) {
  return static_cast<uint32_t>(dx * dx) + static_cast<uint32_t>(dy * dy);
}
}  // namespace

void MagnitudeBinsRow1_C(const int16_t* dx, const int16_t* dy, int32_t n, const float* sectorCos,
                         const float* sectorSin, float* mag, uint32_t* bins) {
  for (int32_t i = 0; i < n; ++i) {
    mag[i] = std::sqrt(static_cast<float>(SumSquares(dx[i], dy[i])));
    const OrientationBins b = FindOrientationBin(dx[i], dy[i], sectorCos, sectorSin);
    bins[2 * i] = b.unsignedBin;
    bins[2 * i + 1] = b.signedBin;
  }
}

void MagnitudeBinsRow3_C(const int16_t* dx3, const int16_t* dy3, int32_t n, const float* sectorCos,
                         const float* sectorSin, float* mag, uint32_t* bins) {
  for (int32_t i = 0; i < n; ++i) {
    const int16_t* x = dx3 + 3 * i;
    const int16_t* y = dy3 + 3 * i;
    const uint32_t q0 = SumSquares(x[0], y[0]);
    const uint32_t q1 = SumSquares(x[1], y[1]);
    const uint32_t q2 = SumSquares(x[2], y[2]);
    const uint32_t q01 = q1 > q0 ? q1 : q0;
    // The strongest channel; on equal values the earlier one (R over G over B).
    const int ch = q2 > q01 ? 2 : (q1 > q0 ? 1 : 0);
    mag[i] = std::sqrt(static_cast<float>(q2 > q01 ? q2 : q01));
    const OrientationBins b = FindOrientationBin(x[ch], y[ch], sectorCos, sectorSin);
    bins[2 * i] = b.unsignedBin;
    bins[2 * i + 1] = b.signedBin;
  }
}

void ComputeGradients1(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice) {
  if (data == nullptr || gradBufA == nullptr || gradBufB == nullptr || height < 3 || width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * width + 1;
    const uint8_t* row = data + d;
#if ZY_HAVE_NEON
    if (fast) {
      GradientRow1_NEON(row, row - width, row + width, width - 2, gradBufA + d, gradBufB + d);
      continue;
    }
#else
    (void)fast;
#endif
    GradientRow1_C(row, row - width, row + width, width - 2, gradBufA + d, gradBufB + d);
  }
}

namespace {
// Pixel 1 of row y in each of the three planes, and the pixels straight above and below.
struct PlaneRows {
  const uint8_t* row[3];
  const uint8_t* above[3];
  const uint8_t* below[3];
};

PlaneRows PlaneRowsAt(const uint8_t* data, int32_t width, int32_t height, int32_t y) {
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  const size_t d = static_cast<size_t>(y) * width + 1;
  PlaneRows r;
  for (int ch = 0; ch < 3; ++ch) {
    r.row[ch] = data + ch * plane + d;
    r.above[ch] = r.row[ch] - width;
    r.below[ch] = r.row[ch] + width;
  }
  return r;
}
}  // namespace

void ComputeGradients3(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice) {
  if (data == nullptr || gradBufA == nullptr || gradBufB == nullptr || height < 3 || width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * width + 1;
    const PlaneRows r = PlaneRowsAt(data, width, height, y);
#if ZY_HAVE_NEON
    if (fast) {
      GradientRow3_NEON(r.row, r.above, r.below, width - 2, gradBufA + 3 * d, gradBufB + 3 * d);
      continue;
    }
#else
    (void)fast;
#endif
    GradientRow3_C(r.row, r.above, r.below, width - 2, gradBufA + 3 * d, gradBufB + 3 * d);
  }
}

void ComputeMagnitudeBins1(int32_t width, int32_t height, const int16_t* gradBufA,
                           const int16_t* gradBufB, float* gradMag, const float* sectorCos,
                           const float* sectorSin, uint32_t* gradBins, KernelChoice choice) {
  if (gradBufA == nullptr || gradBufB == nullptr || gradMag == nullptr || gradBins == nullptr ||
      sectorCos == nullptr || sectorSin == nullptr || height < 3 || width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * width + 1;
#if ZY_HAVE_NEON
    if (fast) {
      MagnitudeBinsRow1_NEON(gradBufA + d, gradBufB + d, width - 2, sectorCos, sectorSin,
                             gradMag + d, gradBins + 2 * d);
      continue;
    }
#else
    (void)fast;
#endif
    MagnitudeBinsRow1_C(gradBufA + d, gradBufB + d, width - 2, sectorCos, sectorSin, gradMag + d,
                        gradBins + 2 * d);
  }
}

void ComputeMagnitudeBins3(int32_t width, int32_t height, int32_t channels, const int16_t* gradBufA,
                           const int16_t* gradBufB, float* gradMag, const float* sectorCos,
                           const float* sectorSin, uint32_t* gradBins, KernelChoice choice) {
  if (channels != 3 || gradBufA == nullptr || gradBufB == nullptr || gradMag == nullptr ||
      gradBins == nullptr || sectorCos == nullptr || sectorSin == nullptr || height < 3 ||
      width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * width + 1;
#if ZY_HAVE_NEON
    if (fast) {
      MagnitudeBinsRow3_NEON(gradBufA + 3 * d, gradBufB + 3 * d, width - 2, sectorCos, sectorSin,
                             gradMag + d, gradBins + 2 * d);
      continue;
    }
#else
    (void)fast;
#endif
    MagnitudeBinsRow3_C(gradBufA + 3 * d, gradBufB + 3 * d, width - 2, sectorCos, sectorSin,
                        gradMag + d, gradBins + 2 * d);
  }
}

namespace {

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

uint32_t ComputeCellHistogramsWith(KernelChoice choice, uint32_t featuresPerCell,
                                   const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                   int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                   uint32_t* gradBins) {
  if (image == nullptr || (featuresPerCell != 27 && featuresPerCell != 9)) return kFail;
  const int32_t channels = image->channels;
  if (featuresPerCell == 27 && channels != 1 && channels != 3) return kFail;
  if (cellSize == 0) return kFail;
  // Beyond the fixed weight storage nothing is done.
  if (cellSize > kMaxCellSize) return kFail;
  const int32_t width = image->width;
  const int32_t height = image->height;
  const int32_t sizeX = width > 0 ? width / static_cast<int32_t>(cellSize) : 0;
  const int32_t sizeY = height > 0 ? height / static_cast<int32_t>(cellSize) : 0;
  // With cells to fill, the cell map and the per-pixel scratch must exist.
  if (sizeX > 0 && sizeY > 0 &&
      (cellFeat == nullptr || gradMag == nullptr || gradBins == nullptr)) {
    return kFail;
  }

  const bool ownGradients = gradBufA != nullptr && gradBufB != nullptr && image->data != nullptr;
  // The fast three-channel rows do both passes row by row in one kernel: the same scratch,
  // magnitudes and bins.
  const bool fused = ZY_HAVE_NEON && ownGradients && channels == 3 && UseFastKernels(choice);
#if ZY_HAVE_NEON
  if (fused) {
#if ZY_HAVE_AVX2_ROWS
    const auto fusedRow = CpuHasAvx2() ? GradientMagnitudeBinsRow3_AVX2 : GradientMagnitudeBinsRow3_NEON;
#else
    const auto fusedRow = GradientMagnitudeBinsRow3_NEON;
#endif
    for (int32_t y = 1; y < height - 1; ++y) {
      const size_t d = static_cast<size_t>(y) * width + 1;
      const PlaneRows r = PlaneRowsAt(image->data, width, height, y);
      fusedRow(r.row, r.above, r.below, width - 2, gradBufA + 3 * d, gradBufB + 3 * d, kSectorCos,
               kSectorSin, gradMag + d, gradBins + 2 * d);
    }
  } else
#endif
  if (ownGradients) {
    if (channels == 3) {
      ComputeGradients3(image->data, width, height, gradBufA, gradBufB, choice);
    } else if (channels == 1) {
      ComputeGradients1(image->data, width, height, gradBufA, gradBufB, choice);
    }
  }
  // Without gradient buffers the magnitudes and bins stay as they are, too.
  if (channels == 3 && !fused) {
    ComputeMagnitudeBins3(width, height, 3, gradBufA, gradBufB, gradMag, kSectorCos, kSectorSin,
                          gradBins, choice);
  } else if (channels == 1) {
    ComputeMagnitudeBins1(width, height, gradBufA, gradBufB, gradMag, kSectorCos, kSectorSin,
                          gradBins, choice);
  }

  CellLayout L;
  ComputeCellWeights(cellSize, L.nearestCell, L.cellWeights);
  L.width = width;
  L.height = height;
  L.cellSize = static_cast<int32_t>(cellSize);
  L.sizeX = sizeX;
  L.sizeY = sizeY;
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
  return 0;
}

uint32_t ComputeCellHistograms(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                               int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                               uint32_t* gradBins) {
  return ComputeCellHistogramsWith(kDefaultKernels, 27, image, cellSize, cellFeat, gradBufA,
                                   gradBufB, gradMag, gradBins);
}

uint32_t ComputeCellHistogramsLight(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                    int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                    uint32_t* gradBins) {
  return ComputeCellHistogramsWith(kDefaultKernels, 9, image, cellSize, cellFeat, gradBufA,
                                   gradBufB, gradMag, gradBins);
}
