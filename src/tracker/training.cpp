// Training: Gaussian label, kernel correlation in the Fourier domain, the filter solution and
// the model update.
#include <cmath>

#include "common/zy_convert.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"
#include "common/zy_neon.h"
#include "fft/fft2d.h"
#include "tracker/tracker_ops.h"

namespace {

float* F(Complex* p) { return reinterpret_cast<float*>(p); }
const float* F(const Complex* p) { return reinterpret_cast<const float*>(p); }

// Forward transform of plane a into b; the real parts of the inverse of a into b (imaginary
// parts left +0). No scaling either way.
void Forward(const Complex* a, Complex* b, int32_t n) { Fft2D(F(a), F(a) + 1, F(b), F(b) + 1, n, -1); }
void InverseRealPart(const Complex* a, Complex* b, int32_t n) { Fft2DRealPart(F(a) + 1, F(a), F(b) + 1, F(b), n, +1); }

// sum[k] += a[k].re / d for k < n: four at a time where NEON (or SIMDe) is built, each lane the
// scalar division and addition.
void AddRealParts(const Complex* a, float d, float* sum, int64_t n) {
  int64_t k = 0;
#if ZY_HAVE_NEON
  const float32x4_t divisor = vdupq_n_f32(d);
  for (; k + 4 <= n; k += 4) {
    const float32x4x2_t v = vld2q_f32(F(a + k));
    vst1q_f32(sum + k, vaddq_f32(vld1q_f32(sum + k), zy::DivF32x4(v.val[0], divisor)));
  }
#endif
  for (; k < n; ++k) sum[k] += a[k].re / d;
}

// m[k] = g m[k] + f x[k], real and imaginary parts alike (x may be m), four values at a time
// with real and imaginary parts in separate lanes where NEON (or SIMDe) is built, each lane the
// scalar products and sum. With `energy`, *energy = the sum of the new real parts' squares,
// added one by one in order.
void Blend(Complex* m, const Complex* x, float g, float f, int64_t n, float* energy) {
  int64_t k = 0;
  float e = 0.f;
#if ZY_HAVE_NEON
  const float32x4_t gv = vdupq_n_f32(g), fv = vdupq_n_f32(f);
  for (; k + 4 <= n; k += 4) {
    float* to = F(m + k);
    float32x4x2_t v = vld2q_f32(to);
    const float32x4x2_t y = vld2q_f32(F(x + k));
    v.val[0] = vaddq_f32(vmulq_f32(gv, v.val[0]), vmulq_f32(fv, y.val[0]));
    v.val[1] = vaddq_f32(vmulq_f32(gv, v.val[1]), vmulq_f32(fv, y.val[1]));
    vst2q_f32(to, v);
    if (energy != nullptr) {
      const float32x4_t sq = vmulq_f32(v.val[0], v.val[0]);
      e += vgetq_lane_f32(sq, 0);
      e += vgetq_lane_f32(sq, 1);
      e += vgetq_lane_f32(sq, 2);
      e += vgetq_lane_f32(sq, 3);
    }
  }
#endif
  for (; k < n; ++k) {
    m[k] = Complex{g * m[k].re + f * x[k].re, g * m[k].im + f * x[k].im};
    e += m[k].re * m[k].re;
  }
  if (energy != nullptr) *energy = e;
}

bool HasSpectra(const TrackingInp& t) {
  return t.specA && t.specB && t.specC && t.corrSum && t.kf && t.sizeX >= 1 && t.sizeY >= 1;
}

}  // namespace

void mulSpectrumsReference(const Complex* a, const Complex* b, Complex* out, int32_t rows,
                           uint32_t cols, int32_t conjB) {
  if (rows == 0 || a == nullptr || b == nullptr || out == nullptr) return;
  const int64_t n = static_cast<int64_t>(rows) * cols;
  if (n <= 0) return;
  if (conjB) {
    for (int64_t k = 0; k < n; ++k) {
      const Complex x = a[k], y = b[k];
      out[k] = Complex{x.re * y.re + x.im * y.im, x.im * y.re - x.re * y.im};
    }
  } else {
    for (int64_t k = 0; k < n; ++k) {
      const Complex x = a[k], y = b[k];
      out[k] = Complex{x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
    }
  }
}

namespace {

#if ZY_HAVE_NEON
void MulSpectrumsNeon(const Complex* a, const Complex* b, Complex* out, int32_t rows, uint32_t cols,
                      int32_t conjB) {
  if (rows == 0 || a == nullptr || b == nullptr || out == nullptr) return;
  const int64_t n = static_cast<int64_t>(rows) * cols;
  if (n <= 0) return;
  // Four complex values per step, real and imaginary parts in separate vectors (loaded and
  // stored de-interleaved), so each result is one addition or subtraction of two products, the
  // scalar ones in the scalar order. out may alias a or b: each step loads before it stores.
  const float* fa = reinterpret_cast<const float*>(a);
  const float* fb = reinterpret_cast<const float*>(b);
  float* fo = reinterpret_cast<float*>(out);
  int64_t k = 0;
  for (; k + 4 <= n; k += 4) {
    const float32x4x2_t x = vld2q_f32(fa + 2 * k), y = vld2q_f32(fb + 2 * k);
    const float32x4_t reRe = vmulq_f32(x.val[0], y.val[0]), imIm = vmulq_f32(x.val[1], y.val[1]);
    const float32x4_t reIm = vmulq_f32(x.val[0], y.val[1]), imRe = vmulq_f32(x.val[1], y.val[0]);
    float32x4x2_t r;
    r.val[0] = conjB ? vaddq_f32(reRe, imIm) : vsubq_f32(reRe, imIm);
    r.val[1] = conjB ? vsubq_f32(imRe, reIm) : vaddq_f32(reIm, imRe);
    vst2q_f32(fo + 2 * k, r);
  }
  if (k < n) {
    mulSpectrumsReference(a + k, b + k, out + k, 1, static_cast<uint32_t>(n - k), conjB);
  }
}
#endif

#if ZY_HAVE_AVX2_ROWS
void MulSpectrumsX86(const Complex* a, const Complex* b, Complex* out, int32_t rows, uint32_t cols,
                     int32_t conjB) {
  if (rows == 0 || a == nullptr || b == nullptr || out == nullptr) return;
  const int64_t n = static_cast<int64_t>(rows) * cols;
  if (n <= 0) return;
  const int64_t k = mulSpectrumsAvx2(a, b, out, n, conjB);
  if (k < n) mulSpectrumsReference(a + k, b + k, out + k, 1, static_cast<uint32_t>(n - k), conjB);
}
#endif

}  // namespace

int32_t spectrumProductForms(SpectrumProduct forms[2]) {
  int32_t count = 0;
  (void)forms;  // a build with the plain form only has none to list
#if ZY_HAVE_NEON
  forms[count++] = MulSpectrumsNeon;
#endif
#if ZY_HAVE_AVX2_ROWS
  if (CpuHasAvx2()) forms[count++] = MulSpectrumsX86;
#endif
  return count;
}

void mulSpectrums(const Complex* a, const Complex* b, Complex* out, int32_t rows, uint32_t cols,
                  int32_t conjB) {
#if ZY_HAVE_AVX2_ROWS
  if (CpuHasAvx2()) return MulSpectrumsX86(a, b, out, rows, cols, conjB);
#endif
#if ZY_HAVE_NEON
  MulSpectrumsNeon(a, b, out, rows, cols, conjB);
#else
  mulSpectrumsReference(a, b, out, rows, cols, conjB);
#endif
}

void solveFilter(const Complex* yf, const Complex* kf, Complex* out, int32_t rows, uint32_t cols,
                 float lambda) {
  if (yf == nullptr || kf == nullptr || out == nullptr || rows == 0 || cols == 0) return;
  const int64_t n = static_cast<int64_t>(rows) * cols;
  for (int64_t k = 0; k < n; ++k) {
    const float a = kf[k].re, b = kf[k].im;
    const float c = yf[k].re, d = yf[k].im;
    const float ar = a + lambda;
    const float D = ar * ar + b * b;
    // A vanishing denominator ends the solution here; later elements keep their old values.
    if (std::fabs(static_cast<double>(D)) < 1e-6) return;
    // The numerator uses the kernel without lambda, and the imaginary part is a sum, not the
    // exact quotient yf / (kf + lambda): this form is the tracker's filter, and every tracked
    // box (the golden boxes included) follows from it.
    out[k] = Complex{(a * c + b * d) / D, (a * d + b * c) / D};
  }
}

void gaussianCorrelation(TrackingInp& t, const Complex* x1, const Complex* x2, float e1, float e2) {
  if (!HasSpectra(t) || x1 == nullptr || x2 == nullptr) return;
  const int32_t sx = t.sizeX, sy = t.sizeY, n = t.fftSize;
  const int64_t N = static_cast<int64_t>(sx) * sy;
  const float nF = static_cast<float>(N);
  // During an update the model's spectra are transformed by the first detection and reused
  // by the other two (see ModelSpecState).
  const TrackerSizes sizes = ComputeTrackerSizes(t);
  const bool modelCached = x2 == t.modelFeat && x1 != x2 && t.modelSpec != nullptr &&
                           t.modelSpecState != kModelSpecOff &&
                           t.numChannels * N <= static_cast<int64_t>(sizes.M) * sizes.S * sizes.S;
  const bool modelFill = modelCached && t.modelSpecState == kModelSpecFill;
  for (int32_t c = 0; c < t.numChannels; ++c) {
    const Complex* p1 = x1 + c * N;
    const Complex* p2 = x2 + c * N;
    Forward(p1, t.specA, n);
    // A self-correlation transforms each plane once: both spectra are the same values.
    const Complex* spec2 = t.specA;
    if (modelCached) {
      Complex* cached = t.modelSpec + c * N;
      if (modelFill) Forward(p2, cached, n);
      spec2 = cached;
    } else if (p2 != p1) {
      Forward(p2, t.specB, n);
      spec2 = t.specB;
    }
    mulSpectrums(t.specA, spec2, t.specC, sy, static_cast<uint32_t>(sx), 1);
    InverseRealPart(t.specC, t.specA, n);
    AddRealParts(t.specA, nF, t.corrSum, N);
  }
  if (modelFill) t.modelSpecState = kModelSpecReady;
  const float norm = static_cast<float>(sy * t.numChannels * sx);
  const float sigma2 = t.sigma * t.sigma;
  int64_t k = 0;
#if ZY_HAVE_NEON
  // The distances and exponents four at a time (each lane the scalar arithmetic), the
  // exponential per value.
  const float32x4_t sum = vdupq_n_f32(e1 + e2), two = vdupq_n_f32(2.0f);
  const float32x4_t normV = vdupq_n_f32(norm), sigma2V = vdupq_n_f32(sigma2);
  for (; k + 4 <= N; k += 4) {
    const float32x4_t d = zy::DivF32x4(vsubq_f32(sum, vmulq_f32(two, vld1q_f32(t.corrSum + k))), normV);
    vst1q_f32(t.corrSum + k, vdupq_n_f32(0.f));  // left cleared for the next call
    float dl[4], argl[4];
    vst1q_f32(dl, d);
    vst1q_f32(argl, zy::DivF32x4(vnegq_f32(d), sigma2V));
    for (int l = 0; l < 4; ++l) t.specC[k + l] = Complex{dl[l] > 0 ? std::exp(argl[l]) : 1.0f, 0.f};
  }
#endif
  for (; k < N; ++k) {
    const float c = t.corrSum[k];
    t.corrSum[k] = 0.f;  // left cleared for the next call
    const float d = (e1 + e2 - 2 * c) / norm;
    // Zero (or negative, by rounding) distance is an exact match: exactly 1.
    const float value = d > 0 ? std::exp(-d / sigma2) : 1.0f;
    t.specC[k] = Complex{value, 0.f};
  }
  Forward(t.specC, t.kf, n);
}

void updateModel(TrackingInp& t, const Complex* x, float f) {
  if (x == nullptr || t.modelFeat == nullptr) return;
  const int64_t cells = static_cast<int64_t>(t.sizeX) * t.sizeY;
  const int64_t n = cells * t.numChannels;
  const float g = 1 - f;
  Blend(t.modelFeat, x, g, f, n, &t.modelEnergy);
  if (t.sizeX >= 1 && t.sizeY >= 1 && t.alphaf != nullptr && t.specC != nullptr) {
    Blend(t.alphaf, t.specC, g, f, cells, nullptr);
  }
}

void train(TrackingInp& t, const Complex* x, bool first, float factor) {
  if (x == nullptr) return;
  gaussianCorrelation(t, x, x, t.modelEnergy, t.modelEnergy);
  solveFilter(t.probf, t.kf, t.specC, t.sizeX, static_cast<uint32_t>(t.sizeY), t.lambda);
  if (first) {
    const int32_t modelBytes = t.numChannels * t.sizeX * t.sizeY * 8;
    if (zy::memcpy_s(t.modelFeat, static_cast<size_t>(modelBytes), x, static_cast<size_t>(modelBytes)) != 0) {
      ZY_LOGE("Tracking train failed! memcpy1 error! tempsize:%d", modelBytes);
      return;
    }
    const int32_t filterBytes = t.sizeX * t.sizeY * 8;
    if (zy::memcpy_s(t.alphaf, static_cast<size_t>(filterBytes), t.specC, static_cast<size_t>(filterBytes)) != 0) {
      ZY_LOGE("Tracking train failed! memcpy2 error! tempSize1:%d", filterBytes);
    }
  } else {
    updateModel(t, x, factor);
  }
}

uint32_t initTracker(TrackingInp& t, const float box[4], FrameView frame) {
  t.roi = TrackerRoi{box[0], box[1], box[2], box[3]};
  t.frameHeight = static_cast<uint32_t>(frame.height);
  t.frameWidth = static_cast<uint32_t>(frame.width);
  t.frameData = frame.data;
  t.frameChannels = static_cast<uint32_t>(frame.channels);
  t.frameReserved = frame.reserved;
  t.peakValue = 1.0f;
  t.lastRoi = t.roi;
  t.initRoi = t.roi;
  t.inited = 1;

  // The search window is square on the smaller padded side.
  // A box as wide as a frame of a billion pixels, times the padding, is past the int32 range.
  const int32_t pw = zy::TruncToInt32Sat(t.roi.width * t.padding);
  const int32_t ph = zy::TruncToInt32Sat(t.roi.height * t.padding);
  const float side = static_cast<float>(pw < ph ? pw : ph);
  t.scale = side / static_cast<float>(t.templateSize);
  const float tmpl = t.scale > 0 ? side / t.scale : 0.f;

  t.numChannels = t.lightFeatures ? 9 : 31;
  const int32_t S = t.cellSize != 0 ? t.templateSize / t.cellSize : 0;
  t.sizeX = t.sizeY = t.fftSize = S;
  // Template side rounded down to a multiple of two cells, plus the two border cells the
  // gradient histograms consume.
  const int32_t twoCells = 2 * t.cellSize;
  const int32_t side2 = twoCells != 0 ? twoCells * (static_cast<int32_t>(tmpl) / twoCells) + twoCells : 0;
  t.tmplWidth = t.tmplHeight = side2;

  buildHann(t, static_cast<uint32_t>(t.sizeX), static_cast<uint32_t>(t.sizeY));
  getFeatures(t, t.modelFeat, &t.modelEnergy, 1.0f);

  // Gaussian label peaking at the centre cell, in the real parts of featBuf's first plane.
  if (t.sizeY >= 1 && t.sizeX >= 1 && t.featBuf != nullptr && t.probf != nullptr) {
    const float sigma = std::sqrt(static_cast<float>(t.sizeY * t.sizeX)) / t.padding * t.outputSigmaFactor;
    const float m = -1.0f / (sigma * sigma + sigma * sigma);
    const int32_t cy = static_cast<int32_t>(static_cast<float>(t.sizeY) * 0.5f);
    const int32_t cx = static_cast<int32_t>(static_cast<float>(t.sizeX) * 0.5f);
    for (int32_t i = 0; i < t.sizeY; ++i) {
      for (int32_t j = 0; j < t.sizeX; ++j) {
        const int32_t ih = i - cy, jh = j - cx;
        t.featBuf[i * t.sizeX + j] = Complex{std::exp(m * static_cast<float>(ih * ih + jh * jh)), 0.f};
      }
    }
    Forward(t.featBuf, t.probf, t.fftSize);
  }
  train(t, t.modelFeat, true, 1.0f);
  return 0;
}
