// Every form of the transform (scalar reference, NEON or its SIMDe translation, AVX2 where the
// CPU has it) against the scalar reference, bit for bit, for the full transform and for the
// real-part-only entry.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "fft/fft2d.h"
#include "fft/fft2d_internal.h"

namespace {

using zy::Fft2DForm;

uint32_t Bits(float f) {
  uint32_t u;
  std::memcpy(&u, &f, sizeof u);
  return u;
}

// Input kinds: 0 uniform in [-1, 1); 1 random signs and exponents 2^-60..2^60; 2 mostly -0 and +0
// zeros; 3 subnormal and tiny; 4 large (results up to about 1e38, still finite). No NaNs: the
// compiler may turn x + (-y) into x - y, equal for every other value but not in a NaN's sign.
std::vector<float> Plane(int n, int kind, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  std::vector<float> p(static_cast<size_t>(2 * n * n));
  for (float& v : p) {
    const float u = unit(gen);
    const uint32_t r = static_cast<uint32_t>(gen());
    switch (kind) {
      case 0: v = u; break;
      case 1: v = std::ldexp(u, static_cast<int>(r % 121) - 60); break;
      case 2: v = r % 16 == 0 ? u : ((r & 48) ? -0.0f : 0.0f); break;
      case 3: v = u * ((r & 1) ? 1e-40f : 1e-36f); break;
      default: v = u * 1e35f; break;
    }
  }
  return p;
}

TEST(Fft2DForms, EveryFormMatchesTheScalarReferenceBitForBit) {
  std::vector<Fft2DForm> forms;
  for (Fft2DForm f : {Fft2DForm::kScalar, Fft2DForm::kNeon, Fft2DForm::kAvx2}) {
    if (zy::Fft2DFormAvailable(f)) forms.push_back(f);
  }
  ASSERT_EQ(forms.size() > 1, zy::Fft2DHasVectorPath());
  for (int n : {16, 24}) {
    for (int sign : {-1, 1}) {
      for (int kind = 0; kind < 5; ++kind) {
        for (uint32_t seed = 1; seed <= 4; ++seed) {
          const std::vector<float> a = Plane(n, kind, seed * 100 + static_cast<uint32_t>(kind));
          std::vector<float> want(a.size(), 7.0f);
          const float* p = a.data();
          float* w = want.data();
          ASSERT_EQ(sign < 0 ? zy::Fft2DScalar(p, p + 1, w, w + 1, n, -1)
                             : zy::Fft2DScalar(p + 1, p, w + 1, w, n, 1),
                    0);
          // Each form, both entries; then the public entries (the default form).
          for (size_t f = 0; f <= forms.size(); ++f) {
            for (bool realOnly : {false, true}) {
              std::vector<float> got(a.size(), 5.0f);
              float* q = got.data();
              int32_t status;
              if (f < forms.size()) {
                status = sign < 0 ? zy::Fft2DWithForm(forms[f], realOnly, p, p + 1, q, q + 1, n, -1)
                                  : zy::Fft2DWithForm(forms[f], realOnly, p + 1, p, q + 1, q, n, 1);
              } else {
                const auto entry = realOnly ? Fft2DRealPart : Fft2D;
                status = sign < 0 ? entry(p, p + 1, q, q + 1, n, -1) : entry(p + 1, p, q + 1, q, n, 1);
              }
              ASSERT_EQ(status, 0);
              for (size_t i = 0; i < a.size(); ++i) {
                const uint32_t expected = realOnly && i % 2 == 1 ? 0u : Bits(want[i]);
                ASSERT_EQ(Bits(got[i]), expected)
                    << "form " << f << " realOnly " << realOnly << " n " << n << " sign " << sign
                    << " kind " << kind << " seed " << seed << " at " << i;
              }
            }
          }
        }
      }
    }
  }
}

// The real-part entry checks its arguments as Fft2D does, and a form that cannot run here is
// refused; neither writes anything.
TEST(Fft2DForms, RejectedCallsWriteNothing) {
  const std::vector<float> a = Plane(16, 0, 9);
  std::vector<float> b(a.size(), 3.5f);
  const float* p = a.data();
  float* q = b.data();
  EXPECT_EQ(Fft2DRealPart(p, p + 1, q, nullptr, 16, -1), -1);
  EXPECT_EQ(Fft2DRealPart(nullptr, p, q + 1, q, 24, 1), -1);
  EXPECT_EQ(Fft2DRealPart(p, p + 1, q, q + 1, 20, -1), -1);
  EXPECT_EQ(Fft2DRealPart(p, p + 1, q, q + 1, 16, 0), -1);
  for (Fft2DForm f : {Fft2DForm::kScalar, Fft2DForm::kNeon, Fft2DForm::kAvx2}) {
    if (!zy::Fft2DFormAvailable(f)) {
      EXPECT_EQ(zy::Fft2DWithForm(f, false, p, p + 1, q, q + 1, 16, -1), -1);
    }
    EXPECT_EQ(zy::Fft2DWithForm(f, true, p, p + 1, q, q + 1, 24, 2), -1);
  }
  for (float v : b) ASSERT_EQ(Bits(v), Bits(3.5f));
}

}  // namespace
