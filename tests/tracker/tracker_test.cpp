#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "support/counting_new.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"
#include "tracker/tracker_ops.h"
#include "tracker/tracking_inp.h"

namespace {

constexpr int kW = 320;
constexpr int kH = 240;

FrameView View(const Nv21Frame& f) { return FrameView{f.height, f.stride, f.data.data(), 3, 0}; }

struct Tracker {
  TrackingInp t{2.5f, true, true, true};
  Tracker() { EXPECT_EQ(createTracker(t), 0u); }
  ~Tracker() { freeTracker(t); }
};

Nv21Frame Scene(float x, float y, float w, float h) {
  Nv21Frame f(kW, kH, kW);
  FillBackground(f, 11);
  DrawBody(f, x, y, w, h, 5);
  return f;
}


// A flat frame gives a weak peak: the box reverts to lastRoi, with one log line. Placing
// lastRoi off each edge exercises the clamps.
TEST(Tracker, AWeakPeakRevertsToTheLastBoxClampedWithItsMargins) {
  struct Case { TrackerRoi last; float x, y; };
  const Case cases[] = {
      {{100, 60, 40, 80}, 100, 60},          // inside: unchanged
      {{-500, 50, 100, 80}, 1 - 100, 50},    // left: one column overlaps
      {{50, -300, 40, 80}, 50, 1 - 80},      // top: one row overlaps
      {{1000, 50, 40, 80}, kW - 2, 50},      // right: x >= W - 1 becomes W - 2
      {{50, 500, 40, 80}, 50, kH - 2},       // bottom
      {{kW - 1, 10, 40, 80}, kW - 2, 10},    // exactly W - 1 is moved too
  };
  Nv21Frame flat(kW, kH, kW);
  FillFlat(flat, 128);
  for (const Case& c : cases) {
    Tracker tr;
    const float box[4] = {100, 60, 40, 80};
    initTracker(tr.t, box, View(flat));
    tr.t.roi = tr.t.lastRoi = c.last;
    LogCapture log;
    float r[4];
    ASSERT_EQ(updateTracker(tr.t, View(flat), r), 0u);
    EXPECT_LT(tr.t.peakValue, 0.07f);
    EXPECT_EQ(log.CountContaining("peakValue:"), 1);
    EXPECT_EQ(std::vector<float>(r, r + 4), (std::vector<float>{c.x, c.y, c.last.width, c.last.height}));
    EXPECT_EQ(tr.t.lastRoi.x, r[0]);
  }
}

// Also holds the model-spectrum reuse of the scale tests to the plain path: tracker b has no
// modelSpec buffer and transforms the model for every detection. A normal initialisation logs
// nothing, and tracking a moving body allocates nothing.
TEST(Tracker, IdenticalInputsGiveBitIdenticalResults) {
  Tracker a, b;
  b.t.modelSpec = nullptr;
  const float box[4] = {90, 70, 40, 80};
  Nv21Frame f = Scene(90, 70, 40, 80);
  LogCapture log;
  EXPECT_EQ(initTracker(a.t, box, View(f)), 0u);
  EXPECT_EQ(initTracker(b.t, box, View(f)), 0u);
  EXPECT_TRUE(log.Lines().empty()) << "first: " << (log.Lines().empty() ? "" : log.Lines()[0].text);
  int scaleSearches = 0;
  for (int frame = 1; frame <= 8; ++frame) {
    f = Scene(90.f + static_cast<float>(2 * frame), 70.f + static_cast<float>(frame), 40, 80);
    float ra[4], rb[4];
    const long before = HeapAllocations();
    ASSERT_EQ(updateTracker(a.t, View(f), ra), 0u);
    ASSERT_EQ(HeapAllocations(), before);
    updateTracker(b.t, View(f), rb);
    ASSERT_EQ(std::memcmp(ra, rb, sizeof ra), 0);
    EXPECT_LE(std::hypot(ra[0] - (90.f + float(2 * frame)), ra[1] - (70.f + float(frame))), 3.5f) << "lost";
    scaleSearches += a.t.peakValue >= 0.18f;
  }
  EXPECT_GT(scaleSearches, 0) << "the scale tests ran and reused the model's spectra";
  EXPECT_EQ(std::memcmp(a.t.modelFeat, b.t.modelFeat, 9 * 256 * sizeof(Complex)), 0);
  EXPECT_EQ(std::memcmp(a.t.alphaf, b.t.alphaf, 256 * sizeof(Complex)), 0);
}

// The fused four-wide normalisers (and the reduction) against the plain forms, for both cell sizes, on
// histograms whose normalised values fall on both sides of 0.2 and exactly on it, with
// negative values and a NaN.
TEST(Tracker, NormalisersEqualTheScalarFormBitForBit) {
  SceneRng rng(17);
  for (const int F : {9, 27}) {
    std::vector<float> fastCells(108 * 256, 0.f);
    for (int i = 0; i < 18 * 18 * F; ++i) {
      fastCells[i] = static_cast<float>(static_cast<int>(rng.Next() % 2001) - 400) * 0.01f;
      if (i % F == 8) fastCells[i] = 0.2f;  // energies keep most factors below 1
    }
    fastCells[5 * F + 3] = std::nanf("");
    std::vector<float> refCells = fastCells;
    std::vector<float> fastNorm(108 * 256), refNorm(108 * 256), fastE(18 * 18), refE(18 * 18);
    if (F == 9) {
      normalizeAndTruncate9(64, fastCells.data(), fastE.data(), fastNorm.data());
    } else {
      normalizeAndTruncate27(64, fastCells.data(), fastE.data(), fastNorm.data());
    }
    normalizeAndTruncateReference(64, F, refCells.data(), refE.data(), refNorm.data());
    EXPECT_EQ(std::memcmp(fastCells.data(), refCells.data(), fastCells.size() * sizeof(float)), 0) << F;
    EXPECT_EQ(std::memcmp(fastNorm.data(), refNorm.data(), 4 * F * 256 * sizeof(float)), 0) << F;
    int truncated = 0;
    for (int q = 0; q < 4 * F * 256; ++q) truncated += refNorm[q] == 0.2f;
    EXPECT_GT(truncated, 0) << "some values were cut at 0.2";
    if (F == 9) {
      // And the reduction in place, four values at a time against the plain loop.
      reduceFeatures9(64, fastCells.data());
      reduceFeatures9Reference(64, refCells.data());
      EXPECT_EQ(std::memcmp(fastCells.data(), refCells.data(), 36 * 256 * sizeof(float)), 0);
    }
  }
}

TEST(Tracker, SolveFilterStopsAtAVanishingDenominator) {
  const float lambda = 0.0001f;
  const Complex yf[4] = {{1, 2}, {3, -1}, {5, 5}, {7, 7}}, kf[4] = {{2, 0.5f}, {-1, 3}, {-lambda, 0}, {4, 4}};
  Complex out[4] = {{9, 9}, {9, 9}, {9, 9}, {9, 9}};
  solveFilter(yf, kf, out, 2, 2, lambda);
  const float a = 2, b = 0.5f, c = 1, d = 2, D = (a + lambda) * (a + lambda) + b * b;
  EXPECT_EQ(out[0].re, (a * c + b * d) / D);
  EXPECT_EQ(out[0].im, (a * d + b * c) / D);  // a sum, not the textbook difference
  EXPECT_NE(out[1].re, 9.f);
  EXPECT_EQ(out[2].re, 9.f);  // stopped here: this and later elements keep their values
  EXPECT_EQ(out[3].im, 9.f);
}

TEST(Tracker, KernelIsExactlyOneAtNonPositiveDistance) {
  Tracker tr;
  tr.t.sizeX = tr.t.sizeY = tr.t.fftSize = 16;
  tr.t.numChannels = 9;
  std::vector<Complex> x(9 * 256);
  SceneRng rng(3);
  for (auto& v : x) v = Complex{static_cast<float>(rng.Next() % 100) / 100.f, 0.f};
  // Energies of 0 against a non-zero correlation give a negative distance everywhere the
  // correlation is positive: the kernel there is exactly 1, not exp of a positive number.
  gaussianCorrelation(tr.t, x.data(), x.data(), 0.f, 0.f);
  int ones = 0;
  for (int k = 0; k < 256; ++k) ones += tr.t.specC[k].re == 1.0f;
  EXPECT_EQ(ones, 256);
}

// The first strict maximum from 0 at the origin, refined by a parabola through its neighbours
// on each axis where it has both: (r - l) / 2 / (2p - l - r).
TEST(Tracker, PeakScanTiesBordersAndNegativeResponses) {
  struct Case { float base; std::vector<std::pair<int, float>> set; float peak, x, y; };
  const Case cases[] = {
      {-1.f, {}, 0.f, -8.f, -8.f},  // nowhere positive: 0 at the origin
      // An equal later maximum loses; neighbours above and below are 0: offset 0.
      {0.f, {{5 * 16 + 7, .5f}, {9 * 16 + 3, .5f}, {5 * 16 + 6, .1f}, {5 * 16 + 8, .3f}}, .5f, 7 + .1f / .6f - 8, 5 - 8.f},
      {0.f, {{15, .9f}, {14, .5f}, {16 + 15, .4f}}, .9f, 15 - 8.f, -8.f},  // last column of row 0: none
      {0.f, {{16 + 4, .9f}, {4, .3f}, {32 + 4, .1f}}, .9f, 4 - 8.f, 1 - .1f / 1.4f - 8},   // row 1
      {0.f, {{14 * 16 + 4, .9f}, {13 * 16 + 4, .1f}, {15 * 16 + 4, .3f}}, .9f, 4 - 8.f, 14 + .1f / 1.4f - 8},  // row 14
      {0.f, {{15 * 16 + 1, .9f}, {15 * 16, .2f}, {14 * 16 + 1, .4f}}, .9f, 1 + -.1f / 1.6f - 8, 15 - 8.f},  // last row
  };
  for (const Case& c : cases) {
    std::vector<float> r(256, c.base);
    for (const auto& [at, v] : c.set) r[static_cast<size_t>(at)] = v;
    float peak = -5, res[2];
    locatePeak(r.data(), 16, 16, &peak, res);
    EXPECT_EQ(peak, c.peak) << &c - cases;
    EXPECT_FLOAT_EQ(res[0], c.x) << &c - cases;
    EXPECT_FLOAT_EQ(res[1], c.y) << &c - cases;
  }
}

}  // namespace
