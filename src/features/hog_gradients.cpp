// Per-pixel gradients, magnitudes and orientation bins of a patch: the sector tables, the
// scalar row kernels (the references of the fast rows) and the row-by-row drivers.
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

void GradientMagnitudeBins3_C(const PlaneRows& first, int32_t n, int32_t rows, ptrdiff_t step,
                              int16_t* gx3, int16_t* gy3, float* mag, uint32_t* bins) {
  const bool store = gx3 != nullptr && gy3 != nullptr;
  int16_t x3[3 * 8], y3[3 * 8];
  for (int32_t y = 0; y < rows; ++y) {
    for (int32_t i = 0; i < n; i += 8) {
      const int32_t m = n - i < 8 ? n - i : 8;
      const ptrdiff_t p = y * step + i;
      const uint8_t* const row[3] = {first.row[0] + p, first.row[1] + p, first.row[2] + p};
      const uint8_t* const above[3] = {first.above[0] + p, first.above[1] + p, first.above[2] + p};
      const uint8_t* const below[3] = {first.below[0] + p, first.below[1] + p, first.below[2] + p};
      int16_t* gx = store ? gx3 + 3 * p : x3;
      int16_t* gy = store ? gy3 + 3 * p : y3;
      GradientRow3_C(row, above, below, m, gx, gy);
      MagnitudeBinsRow3_C(gx, gy, m, kSectorCos, kSectorSin, mag + p, bins + 2 * p);
    }
  }
}

void ComputeGradients1(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice) {
  if (data == nullptr || gradBufA == nullptr || gradBufB == nullptr || height < 3 || width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * static_cast<size_t>(width) + 1;
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

PlaneRows PlaneRowsAt(const uint8_t* data, int32_t width, int32_t height, int32_t y) {
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  const size_t d = static_cast<size_t>(y) * static_cast<size_t>(width) + 1;
  PlaneRows r;
  for (int ch = 0; ch < 3; ++ch) {
    r.row[ch] = data + static_cast<size_t>(ch) * plane + d;
    r.above[ch] = r.row[ch] - width;
    r.below[ch] = r.row[ch] + width;
  }
  return r;
}

void ComputeGradients3(const uint8_t* data, int32_t width, int32_t height, int16_t* gradBufA,
                       int16_t* gradBufB, KernelChoice choice) {
  if (data == nullptr || gradBufA == nullptr || gradBufB == nullptr || height < 3 || width < 3) {
    return;
  }
  const bool fast = UseFastKernels(choice);
  for (int32_t y = 1; y < height - 1; ++y) {
    const size_t d = static_cast<size_t>(y) * static_cast<size_t>(width) + 1;
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
    const size_t d = static_cast<size_t>(y) * static_cast<size_t>(width) + 1;
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
    const size_t d = static_cast<size_t>(y) * static_cast<size_t>(width) + 1;
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
