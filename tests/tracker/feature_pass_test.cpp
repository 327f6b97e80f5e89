#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "support/nv21_frames.h"
#include "tracker/tracker_ops.h"
#include "tracker/tracking_inp.h"

namespace {

bool SameBits(const void* a, const void* b, size_t bytes) { return std::memcmp(a, b, bytes) == 0; }

// The light path's one pass against the normaliser, the reduction and the window run one after
// another in their plain forms: the same planes, energy and carried cell values, bit for bit,
// on values of both signs, a NaN, and cells cut at 0.2.
TEST(FeaturePass, OnePassEqualsTheStepsBitForBit) {
  constexpr int k = 16, g = k + 2, cells = k * k;
  std::vector<float> hann(cells);
  SceneRng rng(23);
  for (float& w : hann) w = static_cast<float>(rng.Next() % 1000) * 0.001f;
  for (const bool withNaN : {false, true}) {
    std::vector<float> refCells(36 * cells);
    for (float& v : refCells) v = static_cast<float>(static_cast<int>(rng.Next() % 2001) - 400) * 0.01f;
    if (withNaN) refCells[7 * 9 + 3] = std::nanf("");
    std::vector<float> fastCells = refCells;
    std::vector<float> refNorm(36 * cells), fastNorm(36 * cells), refE(g * g), fastE(g * g);
    std::vector<Complex> refOut(9 * cells), fastOut(9 * cells);

    normalizeAndTruncateReference(64, 9, refCells.data(), refE.data(), refNorm.data());
    reduceFeatures9Reference(64, refCells.data());
    float refEnergy = 0.f;
    for (int c = 0; c < 9; ++c) {
      for (int q = 0; q < cells; ++q) {
        const float v = refCells[q * 9 + c] * hann[q];
        refOut[c * cells + q] = Complex{v, 0.f};
        refEnergy += v * v;
      }
    }
    float fastEnergy = -1.f;
    if (!normaliseReduceWindow9(64, fastCells.data(), fastE.data(), fastNorm.data(), hann.data(),
                                fastOut.data(), &fastEnergy)) {
      GTEST_SKIP() << "built without the one-pass form";
    }
    EXPECT_TRUE(SameBits(fastOut.data(), refOut.data(), refOut.size() * sizeof(Complex))) << withNaN;
    EXPECT_TRUE(SameBits(&fastEnergy, &refEnergy, sizeof(float))) << withNaN;
    // What the next histograms add onto: the reduced cells and the normalised values after them.
    EXPECT_TRUE(SameBits(fastCells.data(), refCells.data(), g * g * 9 * sizeof(float))) << withNaN;
    EXPECT_TRUE(SameBits(fastE.data(), refE.data(), fastE.size() * sizeof(float))) << withNaN;
  }
  float energy = 0.f;
  std::vector<float> buf(36 * 12 * 12);
  std::vector<Complex> out(9 * 100);
  // k = 10 (not whole vectors of cells) and a missing buffer are left to the steps.
  EXPECT_FALSE(normaliseReduceWindow9(40, buf.data(), buf.data(), buf.data(), hann.data(), out.data(), &energy));
  EXPECT_FALSE(normaliseReduceWindow9(64, buf.data(), buf.data(), buf.data(), hann.data(), out.data(), nullptr));
}

// The model blend in vector lanes against its definition per element: every value of the model
// and the filter, and the energy summed in order.
TEST(FeaturePass, ModelBlendEqualsTheScalarFormBitForBit) {
  TrackingInp t{2.5f, true, true, true};
  ASSERT_EQ(createTracker(t), 0u);
  t.sizeX = t.sizeY = 16;
  t.numChannels = 9;
  constexpr int n = 9 * 256;
  SceneRng rng(5);
  auto value = [&] { return static_cast<float>(static_cast<int>(rng.Next() % 20001) - 10000) * 1e-3f; };
  std::vector<Complex> x(n), model(n), filter(256), newFilter(256);
  for (Complex& c : x) c = Complex{value(), value()};
  for (Complex& c : model) c = Complex{value(), value()};
  for (int q = 0; q < 256; ++q) filter[q] = Complex{value(), value()}, newFilter[q] = Complex{value(), value()};
  std::memcpy(t.modelFeat, model.data(), n * sizeof(Complex));
  std::memcpy(t.alphaf, filter.data(), 256 * sizeof(Complex));
  std::memcpy(t.specC, newFilter.data(), 256 * sizeof(Complex));
  const float f = 0.075f, g = 1 - f;
  updateModel(t, x.data(), f);
  float energy = 0.f;
  for (int q = 0; q < n; ++q) {
    model[q] = Complex{g * model[q].re + f * x[q].re, g * model[q].im + f * x[q].im};
    energy += model[q].re * model[q].re;
  }
  for (int q = 0; q < 256; ++q) {
    filter[q] = Complex{g * filter[q].re + f * newFilter[q].re, g * filter[q].im + f * newFilter[q].im};
  }
  EXPECT_TRUE(SameBits(t.modelFeat, model.data(), n * sizeof(Complex)));
  EXPECT_TRUE(SameBits(t.alphaf, filter.data(), 256 * sizeof(Complex)));
  EXPECT_TRUE(SameBits(&t.modelEnergy, &energy, sizeof energy));
  freeTracker(t);
}

// Every fast form of the spectrum product built and usable here against the plain loop: both
// products, a length with a tail, and the output written over an input.
TEST(FeaturePass, SpectrumProductFormsEqualTheScalarFormBitForBit) {
  SpectrumProduct forms[2];
  const int32_t count = spectrumProductForms(forms);
  if (count == 0) GTEST_SKIP() << "built with the plain form only";
  SceneRng rng(29);
  auto value = [&] { return static_cast<float>(static_cast<int>(rng.Next() % 20001) - 10000) * 1.37e-3f; };
  for (const uint32_t cols : {16u, 13u}) {
    const size_t n = 16 * cols;
    std::vector<Complex> a(n), b(n);
    for (size_t k = 0; k < n; ++k) a[k] = Complex{value(), value()}, b[k] = Complex{value(), value()};
    for (const int32_t conj : {0, 1}) {
      std::vector<Complex> ref(n);
      mulSpectrumsReference(a.data(), b.data(), ref.data(), 16, cols, conj);
      for (int32_t f = 0; f < count; ++f) {
        std::vector<Complex> fast(n), inPlace = b;
        forms[f](a.data(), b.data(), fast.data(), 16, cols, conj);
        forms[f](a.data(), inPlace.data(), inPlace.data(), 16, cols, conj);
        EXPECT_TRUE(SameBits(fast.data(), ref.data(), n * sizeof(Complex))) << f << " " << cols << " " << conj;
        EXPECT_TRUE(SameBits(inPlace.data(), ref.data(), n * sizeof(Complex))) << "out = b, form " << f;
      }
    }
  }
}

// The four-wide peak search against the scalar scan: ties, negative and NaN responses, signed
// zeros, peaks on every border, and sizes with and without whole vectors.
TEST(FeaturePass, PeakSearchEqualsTheScalarScanBitForBit) {
  SceneRng rng(41);
  for (int round = 0; round < 400; ++round) {
    const int sx = round % 5 == 4 ? 5 : 16, sy = round % 5 == 4 ? 3 : (round % 3 == 0 ? 1 : 16);
    std::vector<float> r(static_cast<size_t>(sx) * sy);
    const int kind = round % 8;
    for (float& v : r) {
      v = static_cast<float>(static_cast<int>(rng.Next() % 2001) - 1000) * 1e-3f;
      if (kind == 1) v = -std::fabs(v) - 1e-3f;                      // nowhere positive
      if (kind == 2 && rng.Next() % 4 == 0) v = std::nanf("");       // NaNs among the values
      if (kind == 3) v = rng.Next() % 2 ? 0.0f : -0.0f;              // signed zeros only
      if (kind == 4) v = static_cast<float>(rng.Next() % 3) * 0.5f;  // many ties at the maximum
    }
    if (kind == 5) r[rng.Next() % r.size()] = 2.0f;  // one peak anywhere, borders included
    float fastPeak = -1, refPeak = -2, fast[2] = {9, 9}, ref[2] = {8, 8};
    locatePeak(r.data(), sx, sy, &fastPeak, fast);
    locatePeakReference(r.data(), sx, sy, &refPeak, ref);
    ASSERT_TRUE(SameBits(&fastPeak, &refPeak, sizeof(float))) << round;
    ASSERT_TRUE(SameBits(fast, ref, sizeof fast)) << round;
  }
}

}  // namespace
