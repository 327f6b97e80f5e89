// Detection and update: response peak with sub-cell refinement, the three-scale search, the
// lost-target fallback, the clamps, retraining and size smoothing.
#include "common/zy_log.h"
#include "common/zy_neon.h"
#include "fft/fft2d.h"
#include "tracker/tracker_ops.h"

namespace {

// The scale search runs only on a peak at least this strong.
constexpr float kScaleSearchGate = 0.18f;
// Below this peak the target counts as lost for the frame and the box stays where it was.
constexpr float kLostThreshold = 0.07f;

// Offset of a peak from its neighbours l and r by a parabola through the three values.
float SubCellOffset(float l, float p, float r) {
  const float divisor = 2 * p - r - l;
  return divisor != 0 ? (r - l) * 0.5f / divisor : 0.f;
}

// Keeps a box on the frame, so that features can still be drawn around it: a box wholly left of
// or above the frame is moved to end one pixel inside it; one starting at or past the last pixel
// is moved to start at the last but one.
void ClampToFrame(TrackerRoi& b, float W, float H) {
  if (b.x + b.width <= 0) b.x = 1 - b.width;
  if (b.y + b.height <= 0) b.y = 1 - b.height;
  if (b.x >= W - 1) b.x = W - 2;
  if (b.y >= H - 1) b.y = H - 2;
}

void CopyFrame(TrackingInp& t, const FrameView& frame) {
  t.frameHeight = static_cast<uint32_t>(frame.height);
  t.frameWidth = static_cast<uint32_t>(frame.width);
  t.frameData = frame.data;
  t.frameChannels = static_cast<uint32_t>(frame.channels);
  t.frameReserved = frame.reserved;
}

}  // namespace

namespace {

// The sub-cell refinement around the peak at (row, col) and the displacement from the centre.
void RefinePeak(const float* response, int32_t sx, int32_t sy, int32_t row, int32_t col, float p,
                float res[2]) {
  float px = static_cast<float>(col);
  float py = static_cast<float>(row);
  // Refinement only away from the border of each axis.
  if (col >= 1 && col < sx - 1) {
    px += SubCellOffset(response[row * sx + col - 1], p, response[row * sx + col + 1]);
  }
  if (row >= 1 && row < sy - 1) {
    py += SubCellOffset(response[(row - 1) * sx + col], p, response[(row + 1) * sx + col]);
  }
  res[0] = px - static_cast<float>(sx) * 0.5f;
  res[1] = py - static_cast<float>(sy) * 0.5f;
}

}  // namespace

void locatePeakReference(const float* response, int32_t sx, int32_t sy, float* peakValue, float res[2]) {
  // First strict maximum in row-major order, from 0.0 at (0, 0), compared in double: a
  // response that is nowhere positive gives peak 0 at the origin.
  double best = 0.0;
  int32_t row = 0, col = 0;
  for (int32_t i = 0; i < sy; ++i) {
    for (int32_t j = 0; j < sx; ++j) {
      const double v = response[i * sx + j];
      if (v > best) {
        best = v;
        row = i;
        col = j;
      }
    }
  }
  const float p = static_cast<float>(best);
  *peakValue = p;
  RefinePeak(response, sx, sy, row, col, p, res);
}

void locatePeak(const float* response, int32_t sx, int32_t sy, float* peakValue, float res[2]) {
#if ZY_HAVE_NEON
  const int32_t n = sx >= 1 && sy >= 1 ? sx * sy : 0;
  if (n >= 4 && n % 4 == 0) {
    // The first strict maximum from 0 is the first occurrence of the largest value when that
    // is positive, else the origin. The float comparisons decide as the double ones (the
    // widening is exact); NaNs lose every comparison there and are passed over by the
    // number-preferring maximum here. The lanes' maximum is taken from +0, so a -0 lane
    // cannot make the peak -0.
    float32x4_t m = vdupq_n_f32(0.0f);
    for (int32_t k = 0; k < n; k += 4) m = vmaxnmq_f32(m, vld1q_f32(response + k));
    float lanes[4];
    vst1q_f32(lanes, m);
    float best = 0.0f;
    for (const float v : lanes) best = v > best ? v : best;
    int32_t at = 0;
    if (best > 0.0f) {
      // The maximum is one of the values, so the search ends on it.
      const float32x4_t bestV = vdupq_n_f32(best);
      int32_t k = 0;
      while (vget_lane_u64(vreinterpret_u64_u16(vmovn_u32(vceqq_f32(vld1q_f32(response + k), bestV))), 0) == 0) k += 4;
      while (!(response[k] == best)) ++k;
      at = k;
    }
    *peakValue = best;
    RefinePeak(response, sx, sy, at / sx, at % sx, best, res);
    return;
  }
#endif
  locatePeakReference(response, sx, sy, peakValue, res);
}

void detect(TrackingInp& t, const Complex* z, const Complex* x, float* peakValue, float res[2]) {
  if (res == nullptr) {
    ZY_LOGE("Detect P is null");
    return;
  }
  if (t.kf == nullptr || t.alphaf == nullptr || t.specC == nullptr || t.response == nullptr ||
      peakValue == nullptr || t.sizeX < 1 || t.sizeY < 1) {
    return;
  }
  gaussianCorrelation(t, z, x, t.patchEnergy, t.modelEnergy);
  const int32_t sx = t.sizeX, sy = t.sizeY;
  mulSpectrums(t.alphaf, t.kf, t.kf, sy, static_cast<uint32_t>(sx), 0);
  const float* kf = reinterpret_cast<const float*>(t.kf);
  float* product = reinterpret_cast<float*>(t.specC);
  Fft2DRealPart(kf + 1, kf, product + 1, product, t.fftSize, +1);
  const float n = static_cast<float>(sx * sy);
  int32_t k = 0;
#if ZY_HAVE_NEON
  // Four real parts at a time, each the IEEE division of the plain loop.
  for (; k + 4 <= sx * sy; k += 4) {
    vst1q_f32(t.response + k, zy::DivF32x4(vld2q_f32(product + 2 * k).val[0], vdupq_n_f32(n)));
  }
#endif
  for (; k < sx * sy; ++k) t.response[k] = t.specC[k].re / n;

  locatePeak(t.response, sx, sy, peakValue, res);
}

namespace {

// One scale test: features extracted at `extractScale` around the current box. A weighted peak
// above the best so far replaces it, and the box and scale shrink (divided by the step) or grow
// (multiplied by it) with it.
void TryScale(TrackingInp& t, float extractScale, bool shrink, float* peak, float res[2], float* w, float* h) {
  float p = 0.f, r[2] = {0.f, 0.f};
  getFeatures(t, t.featBuf, &t.patchEnergy, extractScale);
  detect(t, t.featBuf, t.modelFeat, &p, r);
  if (t.scaleWeight * p > *peak) {
    *peak = p;
    res[0] = r[0];
    res[1] = r[1];
    if (shrink) {
      t.scale /= t.scaleStep;
      *w /= t.scaleStep;
      *h /= t.scaleStep;
    } else {
      t.scale *= t.scaleStep;
      *w *= t.scaleStep;
      *h *= t.scaleStep;
    }
  }
}

// The scale search around a detection at scale 1: one step smaller, then one step larger.
void SearchScale(TrackingInp& t, float* peak, float res[2], float* w, float* h) {
  TryScale(t, 1.0f / t.scaleStep, true, peak, res, w, h);
  // Extracted one step up from the scale the first test left: after a smaller winner this
  // retests the starting size.
  TryScale(t, t.scaleStep, false, peak, res, w, h);
}

// Learns the appearance at the accepted box: its features, their kernel with themselves, the
// filter solved from it, and both blended into the model.
void Retrain(TrackingInp& t) {
  getFeatures(t, t.featBuf, &t.modelEnergy, 1.0f);
  if (t.featBuf != nullptr) {
    gaussianCorrelation(t, t.featBuf, t.featBuf, t.modelEnergy, t.modelEnergy);
    solveFilter(t.probf, t.kf, t.specC, t.sizeX, static_cast<uint32_t>(t.sizeY), t.lambda);
    updateModel(t, t.featBuf, t.interpFactor);
  }
}

// Size smoothing against the last accepted box, keeping the centre. A last box lying exactly on
// x = 0 or y = 0 is not smoothed.
void SmoothSize(TrackingInp& t, float W, float H) {
  TrackerRoi out = t.roi;
  const TrackerRoi& last = t.lastRoi;
  if (last.height != 0 && last.width != 0 && last.x != 0 && last.y != 0) {
    const float a = t.sizeSmooth;
    const float ws = a * last.width + (1 - a) * t.roi.width;
    const float hs = a * last.height + (1 - a) * t.roi.height;
    out = TrackerRoi{t.roi.x + t.roi.width * 0.5f - ws * 0.5f, t.roi.y + t.roi.height * 0.5f - hs * 0.5f, ws, hs};
  }
  if (!(out.width < 0 && out.height < 0)) {
    ClampToFrame(out, W, H);
    t.roi = out;
  }
}

}  // namespace

uint32_t updateTracker(TrackingInp& t, FrameView frame, float* resultRoi) {
  if (resultRoi == nullptr) {
    ZY_LOGV("resultRoi is null");
    return 9;
  }
  CopyFrame(t, frame);
  const float cx = t.roi.x + t.roi.width * 0.5f;
  const float cy = t.roi.y + t.roi.height * 0.5f;
  float w = t.roi.width;
  float h = t.roi.height;

  float peak = 0.f;
  float res[2] = {0.f, 0.f};
  // The model does not change until the retraining below: its spectra are transformed by
  // the first detection and reused by the scale tests.
  t.modelSpecState = kModelSpecFill;
  getFeatures(t, t.featBuf, &t.patchEnergy, 1.0f);
  detect(t, t.featBuf, t.modelFeat, &peak, res);

  if (peak >= kScaleSearchGate && t.scaleStep != 1.0f) SearchScale(t, &peak, res, &w, &h);
  t.peakValue = peak;
  t.modelSpecState = kModelSpecOff;

  const float cell = static_cast<float>(t.cellSize);
  t.roi = TrackerRoi{cx - w * 0.5f + res[0] * cell * t.scale, cy - h * 0.5f + res[1] * cell * t.scale, w, h};
  if (peak < kLostThreshold) {
    ZY_LOGE("res.x:%f,res.y:%f,peakValue:%f,width:%f,height:%f", res[0], res[1], peak, w, h);
    t.roi = t.lastRoi;  // the box holds; the model still learns at it below
  }
  const float W = static_cast<float>(t.frameWidth);
  const float H = static_cast<float>(t.frameHeight);
  ClampToFrame(t.roi, W, H);
  if (t.roi.width < 0 || t.roi.height < 0) {
    resultRoi[0] = t.lastRoi.x;
    resultRoi[1] = t.lastRoi.y;
    resultRoi[2] = t.lastRoi.width;
    resultRoi[3] = t.lastRoi.height;
    return 9;
  }

  Retrain(t);
  SmoothSize(t, W, H);
  resultRoi[0] = t.roi.x;
  resultRoi[1] = t.roi.y;
  resultRoi[2] = t.roi.width;
  resultRoi[3] = t.roi.height;
  t.lastRoi = t.roi;
  return 0;
}
