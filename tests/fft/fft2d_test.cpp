#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "fft/fft2d.h"
#include "fft/fft2d_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

using Plane = std::vector<float>;  // n x n interleaved (re, im), rows packed

// Values in [-1, 1) with 23 random bits, the same on every machine.
Plane RandomPlane(int n, uint32_t seed) {
  std::mt19937 gen(seed);
  Plane p(static_cast<size_t>(2 * n * n));
  for (float& v : p) {
    v = static_cast<float>(static_cast<int32_t>(gen() >> 8) - (1 << 23)) / 8388608.0f;
  }
  return p;
}

using Fn = int32_t (*)(const float*, const float*, float*, float*, int32_t, int32_t);

// Calls fn the way the tracker does: forward (A, A+1, B, B+1), inverse (A+1, A, B+1, B).
int32_t Transform(const Plane& a, Plane& b, int n, int sign, Fn fn = Fft2D) {
  const float* p = a.data();
  float* q = b.data();
  return sign < 0 ? fn(p, p + 1, q, q + 1, n, -1) : fn(p + 1, p, q + 1, q, n, 1);
}

// The 2-D DFT in double precision straight from its definition, angles reduced exactly mod n.
std::vector<double> ReferenceDft(const Plane& a, int n, int sign) {
  std::vector<double> c(n), sn(n), out(a.size());
  for (int k = 0; k < n; ++k) {
    c[k] = std::cos(2.0 * kPi * k / n);
    sn[k] = sign * std::sin(2.0 * kPi * k / n);
  }
  for (int u = 0; u < n; ++u) {
    for (int v = 0; v < n; ++v) {
      double re = 0.0, im = 0.0;
      for (int i = 0; i < n * n; ++i) {
        const int k = (u * (i / n) + v * (i % n)) % n;
        re += a[2 * i] * c[k] - a[2 * i + 1] * sn[k];
        im += a[2 * i] * sn[k] + a[2 * i + 1] * c[k];
      }
      out[2 * (u * n + v)] = re;
      out[2 * (u * n + v) + 1] = im;
    }
  }
  return out;
}

// The largest component error relative to the largest component of want.
double RelativeError(const Plane& got, const std::vector<double>& want) {
  double err = 0.0, mag = 0.0;
  for (size_t i = 0; i < got.size(); ++i) {
    err = std::fmax(err, std::fabs(got[i] - want[i]));
    mag = std::fmax(mag, std::fabs(want[i]));
  }
  return err / mag;
}

// Bound: the largest component error relative to the reference plane's largest component.
// Over these 20 planes per case the worst measured were 1.4e-7 (16) and 7.2e-7 (24, whose
// six-decimal table twiddles are off by up to 4e-7); the bounds allow about twice that and
// still fail on any wrong twiddle, sign or index. The input is left as it was.
TEST(Fft2D, MatchesDoublePrecisionDft) {
  for (int n : {16, 24}) {
    for (int sign : {-1, 1}) {
      for (uint32_t seed = 1; seed <= 20; ++seed) {
        const Plane a = RandomPlane(n, seed), before = a;
        Plane b(a.size(), 0.0f);
        ASSERT_EQ(Transform(a, b, n, sign), 0);
        EXPECT_LE(RelativeError(b, ReferenceDft(a, n, sign)), n == 16 ? 3e-7 : 1.5e-6) << n << " " << sign << " " << seed;
        ASSERT_EQ(std::memcmp(a.data(), before.data(), a.size() * sizeof(float)), 0) << "input changed";
      }
    }
  }
}

// Every rejected call returns -1 and leaves the output untouched; the pointers that a direction
// does not use are still checked.
TEST(Fft2D, RejectedArgumentsWriteNothing) {
  const Plane a = RandomPlane(24, 5);
  Plane b(a.size(), 3.5f);
  const Plane untouched = b;
  const float* p = a.data();
  float* q = b.data();
  struct Call { const float *inRe, *inIm; float *outRe, *outIm; int32_t n, sign; };
  const Call calls[] = {
      {nullptr, p + 1, q, q + 1, 16, -1}, {p, nullptr, q, q + 1, 16, -1},
      {p, p + 1, nullptr, q + 1, 16, -1}, {p, p + 1, q, nullptr, 16, -1},
      {p + 1, p, q + 1, nullptr, 24, 1},  {p + 1, p, nullptr, q, 24, 1},
      {p + 1, nullptr, q + 1, q, 24, 1},  {nullptr, p, q + 1, q, 24, 1},
      {p, p + 1, q, q + 1, 32, -1},       {p, p + 1, q, q + 1, 0, -1},
      {p, p + 1, q, q + 1, 8, 1},         {p, p + 1, q, q + 1, 23, -1},
      {p, p + 1, q, q + 1, 16, 0},        {p, p + 1, q, q + 1, 24, -2},
  };
  for (const Call& c : calls) {
    EXPECT_EQ(Fft2D(c.inRe, c.inIm, c.outRe, c.outIm, c.n, c.sign), -1)
        << "n " << c.n << " sign " << c.sign;
    EXPECT_EQ(zy::Fft2DScalar(c.inRe, c.inIm, c.outRe, c.outIm, c.n, c.sign), -1);
    ASSERT_EQ(std::memcmp(b.data(), untouched.data(), b.size() * sizeof(float)), 0)
        << "n " << c.n << " sign " << c.sign;
  }
}

}  // namespace
