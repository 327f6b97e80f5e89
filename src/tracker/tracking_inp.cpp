#include "tracker/tracking_inp.h"

#include <cstring>

#include "common/zy_alloc.h"
#include "common/zy_log.h"

TrackingInp::TrackingInp(float paddingArg, bool scaleSearch, bool fixedWindowArg,
                         bool lightFeaturesArg)
    : roi{0.f, 0.f, 0.f, 0.f},
      frameHeight(0),
      frameWidth(0),
      frameData(nullptr),
      frameChannels(0),
      // frameReserved is left as the storage held it.
      peakValue(1.0f),
      initRoi{0.f, 0.f, 0.f, 0.f},
      inited(0),
      alphaf(nullptr),
      probf(nullptr),
      hann(nullptr),
      kf(nullptr),
      modelFeat(nullptr),
      featBuf(nullptr),
      patchRgb(nullptr),
      cellFeat(nullptr),
      normFeat(nullptr),
      gradBufA(nullptr),
      gradBufB(nullptr),
      gradMag(nullptr),
      gradBins(nullptr),
      blockNorm(nullptr),
      specA(nullptr),
      specB(nullptr),
      specC(nullptr),
      corrSum(nullptr),
      response(nullptr),
      modelEnergy(0.f),
      patchEnergy(0.f),
      sizeX(0),
      sizeY(0),
      numChannels(0),
      fftSize(0),
      sizeSmooth(0.6f),
      lightFeatures(lightFeaturesArg ? 1 : 0),
      interpFactor(0.012f),
      sigma(0.6f),
      lambda(0.0001f),
      cellSize(4),
      padding(paddingArg),
      outputSigmaFactor(0.125f),
      templateSize(64),
      scaleStep(scaleSearch ? 1.05f : 1.0f),
      scaleWeight(scaleSearch ? 0.95f : 1.0f),
      scale(1.0f),
      lastRoi{0.f, 0.f, 0.f, 0.f},
      tmplWidth(0),
      tmplHeight(0),
      fixedWindow(fixedWindowArg ? 1 : 0),
      modelSpec(nullptr),
      modelSpecState(kModelSpecOff) {}

TrackerSizes ComputeTrackerSizes(const TrackingInp& t) {
  TrackerSizes s{};
  s.S = t.cellSize != 0 ? t.templateSize / t.cellSize : 0;
  s.M = t.lightFeatures ? 9 : 31;
  s.H = t.lightFeatures ? 36 : 108;
  s.P = t.templateSize + 2 * t.cellSize;
  if (s.P < 0) s.P = 0;
  // The word count goes through a single-precision float.
  s.binWords = static_cast<int64_t>(2.0f * static_cast<float>(s.P * s.P));
  return s;
}

namespace {

template <class T>
void Release(T*& p) {
  delete[] p;
  p = nullptr;
}

template <class T>
T* AllocZeroed(int64_t count) {
  if (count < 0) count = 0;
  T* p = zy::NewArray<T>(static_cast<size_t>(count));
  if (p != nullptr) std::memset(p, 0, static_cast<size_t>(count) * sizeof(T));
  return p;
}

// Releases the buffers in field order, alphaf first and response last.
void ReleaseAll(TrackingInp& t) {
  Release(t.alphaf);
  Release(t.probf);
  Release(t.hann);
  Release(t.kf);
  Release(t.modelFeat);
  Release(t.featBuf);
  Release(t.patchRgb);
  Release(t.cellFeat);
  Release(t.normFeat);
  Release(t.gradBufA);
  Release(t.gradBufB);
  Release(t.gradMag);
  Release(t.gradBins);
  Release(t.blockNorm);
  Release(t.specA);
  Release(t.specB);
  Release(t.specC);
  Release(t.corrSum);
  Release(t.response);
  t.modelSpec = nullptr;  // lives inside modelFeat's allocation
  t.modelSpecState = kModelSpecOff;
}

}  // namespace

uint32_t createTracker(TrackingInp& t) {
  // Buffers a record already holds are released first, so that starting a handle twice does
  // not leak the first set; a failed call leaves every pointer null rather than dangling.
  ReleaseAll(t);
  const TrackerSizes s = ComputeTrackerSizes(t);
  const int64_t cells = static_cast<int64_t>(s.S) * s.S;
  const int64_t pixels = static_cast<int64_t>(s.P) * s.P;

  t.alphaf = AllocZeroed<Complex>(cells);
  t.probf = AllocZeroed<Complex>(cells);
  t.hann = AllocZeroed<float>(cells);
  t.kf = AllocZeroed<Complex>(cells);
  if (!t.alphaf || !t.probf || !t.hann || !t.kf) {
    ReleaseAll(t);
    return 9;
  }
  // modelFeat's allocation carries the model's spectra (modelSpec) behind the model itself.
  t.modelFeat = AllocZeroed<Complex>(2 * s.M * cells);
  t.featBuf = AllocZeroed<Complex>(s.M * cells);
  t.patchRgb = AllocZeroed<uint8_t>(pixels * 3);
  if (!t.modelFeat || !t.featBuf || !t.patchRgb) {
    ReleaseAll(t);
    return 9;
  }
  t.modelSpec = t.modelFeat + s.M * cells;
  t.cellFeat = AllocZeroed<float>(s.H * cells);
  t.normFeat = AllocZeroed<float>(s.H * cells);
  t.gradBufA = AllocZeroed<int16_t>(pixels * 3);
  t.gradBufB = AllocZeroed<int16_t>(pixels * 3);
  t.gradMag = AllocZeroed<float>(pixels);
  t.gradBins = AllocZeroed<uint32_t>(s.binWords);
  t.blockNorm = AllocZeroed<float>(static_cast<int64_t>(s.S + 2) * (s.S + 2));
  if (!t.cellFeat || !t.normFeat || !t.gradBufA || !t.gradBufB || !t.gradMag || !t.gradBins ||
      !t.blockNorm) {
    ReleaseAll(t);
    return 9;
  }
  t.specA = AllocZeroed<Complex>(cells);
  t.specB = AllocZeroed<Complex>(cells);
  t.specC = AllocZeroed<Complex>(cells);
  t.corrSum = AllocZeroed<float>(cells);
  t.response = AllocZeroed<float>(cells);
  if (!t.specA || !t.specB || !t.specC || !t.corrSum || !t.response) {
    ReleaseAll(t);
    return 9;
  }
  return 0;
}

uint32_t resetTracker(TrackingInp& t) {
  ReleaseAll(t);
  if (createTracker(t) != 0) {
    ZY_LOGE("ZyTrackerAlgoReset fail");
    return static_cast<uint32_t>(-1);
  }
  return 0;
}

void freeTracker(TrackingInp& t) { ReleaseAll(t); }

int stopTracker(TrackingInp&) { return 0; }
