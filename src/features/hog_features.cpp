// Per-cell histograms of oriented gradients: gradients, magnitudes and orientation bins per
// pixel, then each pixel's magnitude spread over its own cell and the nearest neighbours.
#include "features/hog_features.h"

#include <cstddef>

#include "features/hog_cells.h"
#include "features/hog_rows.h"

namespace {
constexpr uint32_t kFail = 9;
}  // namespace

uint32_t ComputeCellHistogramsWith(KernelChoice choice, uint32_t featuresPerCell,
                                   const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                   int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                   uint32_t* gradBins, bool storeGradients) {
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
  // The fast three-channel kernel does both passes over the whole patch in one call: the same
  // magnitudes and bins, and the same scratch when it is to be kept.
  const bool fused = ZY_HAVE_NEON && ownGradients && channels == 3 && UseFastKernels(choice) &&
                     gradMag != nullptr && gradBins != nullptr;
#if ZY_HAVE_NEON
  if (fused) {
    if (width >= 3 && height >= 3) {
#if ZY_HAVE_AVX2_ROWS
      const auto kernel = CpuHasAvx2() ? GradientMagnitudeBins3_AVX2 : GradientMagnitudeBins3_NEON;
#else
      const auto kernel = GradientMagnitudeBins3_NEON;
#endif
      const size_t d = static_cast<size_t>(width) + 1;  // pixel (1, 1)
      kernel(PlaneRowsAt(image->data, width, height, 1), width - 2, height - 2, width,
             storeGradients ? gradBufA + 3 * d : nullptr, storeGradients ? gradBufB + 3 * d : nullptr,
             gradMag + d, gradBins + 2 * d);
    }
  } else
#else
  (void)storeGradients;  // the reference rows always go through the scratch
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

  AccumulateCells(choice, featuresPerCell, cellSize, width, height, gradMag, gradBins, cellFeat);
  return 0;
}

uint32_t ComputeCellHistograms(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                               int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                               uint32_t* gradBins) {
  return ComputeCellHistogramsWith(kDefaultKernels, 27, image, cellSize, cellFeat, gradBufA,
                                   gradBufB, gradMag, gradBins, false);
}

uint32_t ComputeCellHistogramsLight(const FeatureImage* image, uint32_t cellSize, float* cellFeat,
                                    int16_t* gradBufA, int16_t* gradBufB, float* gradMag,
                                    uint32_t* gradBins) {
  return ComputeCellHistogramsWith(kDefaultKernels, 9, image, cellSize, cellFeat, gradBufA,
                                   gradBufB, gradMag, gradBins, false);
}
