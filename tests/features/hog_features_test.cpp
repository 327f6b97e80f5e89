// Gradient histograms: the orientation search, the channel choice, the cell weights and
// border rules of the drivers, and the fast rows against the scalar references bit for bit.
#include "features/hog_features.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "common/zy_alloc.h"
#include "features/hog_rows.h"
#include "support/nv21_frames.h"

namespace {

// Float buffers equal bit for bit (NaN and signed zeros included).
bool SameBits(const std::vector<float>& x, const std::vector<float>& y) {
  return x.size() == y.size() &&
         (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof(float)) == 0);
}

// The tracker's scratch for one patch, zeroed as the tracker allocates it.
struct Scratch {
  int w, h, ch, F;
  std::vector<uint8_t> img;
  std::vector<int16_t> a, b;
  std::vector<float> mag, feat;
  std::vector<uint32_t> bins;
  Scratch(int width, int height, int channels, int features)
      : w(width), h(height), ch(channels), F(features),
        img(static_cast<size_t>(width) * height * channels), a(img.size()), b(img.size()),
        mag(static_cast<size_t>(width) * height), feat(static_cast<size_t>(width / 4) * (height / 4) * features),
        bins(2 * mag.size()) {}
  size_t D(int y, int x) const { return static_cast<size_t>(y) * w + x; }
  uint32_t Run(KernelChoice choice = kDefaultKernels, bool withData = true, bool withGrad = true) {
    const FeatureImage fi{h, w, withData ? img.data() : nullptr, ch};
    return ComputeCellHistogramsWith(choice, static_cast<uint32_t>(F), &fi, 4, feat.data(),
                                     withGrad ? a.data() : nullptr, withGrad ? b.data() : nullptr,
                                     mag.data(), bins.data());
  }
};

TEST(OrientationBins, SectorSearch) {
  // {dx, dy, signed bin, unsigned bin}. 90 degrees: sector 4 (80) projects 0.98480779, sector
  // 5 0.98480773; 168.7 degrees: sector 160 projects 10.08, the opposite of 0 only 10.
  const int cases[][4] = {{0, 0, 0, 0},   {5, 0, 0, 0},    {-5, 0, 9, 0},   {0, 5, 4, 4}, {0, -5, 13, 4},
                          {3, 4, 3, 3},   {-3, -4, 12, 3}, {1, 1, 2, 2},    {-10, 2, 8, 8}};
  for (const auto& c : cases) {
    const OrientationBins b = FindOrientationBin(c[0], c[1], kSectorCos, kSectorSin);
    EXPECT_EQ(b.signedBin, uint32_t(c[2])) << c[0] << "," << c[1];
    EXPECT_EQ(b.unsignedBin, uint32_t(c[3])) << c[0] << "," << c[1];
  }
}

TEST(CellHistograms, StrongestColourChannelEarlierOnTies) {
  // R steps along x, G along y, both by 100: at (7, 7) both have squared magnitude 10000 and
  // R, the earlier channel, gives the orientation. A stronger B (step -120) wins outright.
  for (KernelChoice kc : {KernelChoice::kReference, KernelChoice::kFast}) {
    Scratch s(16, 16, 3, 27);
    for (int i = 0; i < 256; ++i) {
      s.img[i] = i % 16 < 8 ? 10 : 110;
      s.img[256 + i] = i / 16 < 8 ? 10 : 110;
      s.img[512 + i] = 20;
    }
    ASSERT_EQ(s.Run(kc), 0u);
    EXPECT_EQ(s.bins[2 * s.D(7, 7)], 0u);
    EXPECT_EQ(s.mag[s.D(7, 7)], 100.f);
    std::swap_ranges(s.img.begin(), s.img.begin() + 256, s.img.begin() + 256);
    ASSERT_EQ(s.Run(kc), 0u);
    EXPECT_EQ(s.bins[2 * s.D(7, 7)], 4u);  // now R is the horizontal step
    for (int i = 0; i < 256; ++i) s.img[512 + i] = i % 16 < 8 ? 130 : 10;
    ASSERT_EQ(s.Run(kc), 0u);
    EXPECT_EQ(s.bins[2 * s.D(7, 7)], 0u);
    EXPECT_EQ(s.bins[2 * s.D(7, 7) + 1], 9u);
    EXPECT_EQ(s.mag[s.D(7, 7)], 120.f);
  }
}

// Exactly the listed (cell, bin) entries of the map differ from `fill`, by the given amounts.
struct Entry { int cell, bin; float value; };
void ExpectEntries(const std::vector<float>& feat, int F, const std::vector<Entry>& entries, float fill) {
  std::vector<float> want(feat.size(), fill);
  for (const Entry& e : entries) want[static_cast<size_t>(e.cell) * F + e.bin] = fill + e.value;
  for (size_t i = 0; i < feat.size(); ++i) EXPECT_EQ(feat[i], want[i]) << "cell " << i / F << " bin " << i % F;
}

TEST(CellHistograms, OnePixelSpreadsOverNearestCellsInsideTheMap) {
  // One pixel's magnitude and bins put straight into the scratch (no gradients: the drivers
  // accumulate what the buffers hold) onto a map holding `fill`, added, never cleared. Cells
  // of 4; weights for offsets 0..3 are (0.625, 0.375), (0.875, 0.125), (0.875, 0.125),
  // (0.625, 0.375), the second going to the nearer neighbour (up/left for offsets 0, 1).
  // Neighbours off the map are dropped, not folded back; row and column 0 are read; the last
  // row and column, and columns past the last whole cell, contribute nothing.
  struct Case { int w, h, F, y, x; float r, fill; std::vector<Entry> entries; };
  const Case cases[] = {
      {16, 16, 9, 7, 6, 2.f, 0.f,  // down and right
       {{5, 7, 1.09375f}, {9, 7, 0.65625f}, {6, 7, 0.15625f}, {10, 7, 0.09375f}}},
      {16, 16, 9, 5, 6, 2.f, 1000.f, {{5, 7, 1.53125f}, {1, 7, 0.21875f}, {6, 7, 0.21875f}, {2, 7, 0.03125f}}},
      {16, 16, 9, 1, 1, 1.f, 0.f, {{0, 7, 0.875f * 0.875f}}},
      {16, 16, 9, 0, 0, 1.f, 0.f, {{0, 7, 0.625f * 0.625f}}},
      {64, 64, 9, 63, 10, 1.f, 0.f, {}},
      {64, 64, 27, 10, 63, 1.f, 0.f, {}},
      {64, 64, 9, 62, 62, 1.f, 0.f, {{255, 7, 0.875f * 0.875f}}},
      {18, 16, 9, 6, 16, 1.f, 0.f, {}},
      {18, 16, 9, 6, 15, 1.f, 0.f, {{7, 7, 0.625f * 0.875f}, {11, 7, 0.625f * 0.125f}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << " F " << c.F << " at " << c.y << "," << c.x);
    Scratch s(c.w, c.h, c.F == 27 ? 1 : 2, c.F);
    std::fill(s.feat.begin(), s.feat.end(), c.fill);
    s.mag[s.D(c.y, c.x)] = c.r;
    s.bins[2 * s.D(c.y, c.x)] = 7;
    ASSERT_EQ(s.Run(kDefaultKernels, false, false), 0u);
    ExpectEntries(s.feat, c.F, c.entries, c.fill);
  }
  // Differences planted in the scratch without image data still give magnitude 5 and
  // sector 3, in the unsigned bin and at 9 + the signed bin.
  Scratch s(16, 16, 1, 27);
  s.a[s.D(5, 6)] = 3;
  s.b[s.D(5, 6)] = 4;
  ASSERT_EQ(s.Run(kDefaultKernels, false, true), 0u);
  EXPECT_EQ(s.mag[s.D(5, 6)], 5.f);
  ExpectEntries(s.feat, 27,
                {{5, 3, 3.828125f}, {1, 3, 0.546875f}, {6, 3, 0.546875f}, {2, 3, 0.078125f},
                 {5, 12, 3.828125f}, {1, 12, 0.546875f}, {6, 12, 0.546875f}, {2, 12, 0.078125f}},
                0.f);
}

#if ZY_HAVE_NEON
// One magnitude-and-bins row over n pixels, its outputs in fresh buffers.
using MagRow = void (*)(const int16_t*, const int16_t*, int32_t, const float*, const float*, float*,
                        uint32_t*);
void ExpectSameRows(MagRow ref, MagRow fast, const int16_t* dx, const int16_t* dy, int32_t n) {
  std::vector<float> magR(n), magF(n);
  std::vector<uint32_t> binsR(2 * n), binsF(2 * n);
  ref(dx, dy, n, kSectorCos, kSectorSin, magR.data(), binsR.data());
  fast(dx, dy, n, kSectorCos, kSectorSin, magF.data(), binsF.data());
  EXPECT_TRUE(SameBits(magR, magF));
  EXPECT_EQ(binsR, binsF);
}

#endif

TEST(CellHistograms, FastRowsEqualReference) {
  SceneRng rng(21);
#if ZY_HAVE_NEON
  // Every difference pair two bytes can give, and the int16 extremes the scratch could hold.
  std::vector<int16_t> dx, dy;
  for (int p = -255; p <= 255; ++p) {
    for (int q = -255; q <= 255; ++q)
      dx.push_back(static_cast<int16_t>(p)), dy.push_back(static_cast<int16_t>(q));
  }
  for (int p : {-32768, -32767, 32767, 0, 1}) {
    for (int q : {-32768, 32767, 0, -1})
      dx.push_back(static_cast<int16_t>(p)), dy.push_back(static_cast<int16_t>(q));
  }
  ExpectSameRows(MagnitudeBinsRow1_C, MagnitudeBinsRow1_NEON, dx.data(), dy.data(),
                 static_cast<int32_t>(dx.size()));
  // Three channels: random differences, many with equal squared magnitudes across channels,
  // and the int16 extremes in every channel position of the first 12 pixels.
  const int16_t tied[][2] = {{3, 4}, {4, 3}, {-5, 0}, {0, 5}, {-4, -3}, {5, 0}};
  const int16_t extremes[] = {-32768, 32767, -32767, 0, -1, 1};
  std::vector<int16_t> dx3(3 * 4099), dy3(3 * 4099);
  for (size_t i = 0; i < dx3.size(); ++i) {
    const bool tie = rng.Next() % 2 == 0;
    const int t = rng.Uniform(0, 5);
    dx3[i] = static_cast<int16_t>(tie ? tied[t][0] : rng.Uniform(-255, 255));
    dy3[i] = static_cast<int16_t>(tie ? tied[t][1] : rng.Uniform(-255, 255));
    if (i < 36) dx3[i] = extremes[i % 6], dy3[i] = extremes[(i / 6 + i) % 6];
  }
  ExpectSameRows(MagnitudeBinsRow3_C, MagnitudeBinsRow3_NEON, dx3.data(), dy3.data(), 4099);
#endif
  // Whole drivers, every width from 1 to 20 (tails of the eight- and four-wide rows) and the
  // tracker's 72 x 72; all scratch and the cell map must match bit for bit. Nothing allocates.
  const long allocations = zy::AllocationCount();
  for (int ch : {1, 3}) {
    for (int F : {27, 9}) {
      for (int w = 1; w <= 21; ++w) {
        const int width = w == 21 ? 72 : w;
        const int height = w == 21 ? 72 : 3 + (w * 7) % 11;
        Scratch ref(width, height, ch, F), fast(width, height, ch, F);
        for (auto& p : ref.img) p = static_cast<uint8_t>(rng.Next());
        fast.img = ref.img;
        ASSERT_EQ(ref.Run(KernelChoice::kReference), 0u);
        ASSERT_EQ(fast.Run(KernelChoice::kFast), 0u);
        EXPECT_EQ(ref.a, fast.a) << width << "x" << height << " ch " << ch;
        EXPECT_EQ(ref.b, fast.b);
        EXPECT_EQ(ref.bins, fast.bins);
        EXPECT_TRUE(SameBits(ref.mag, fast.mag));
        EXPECT_TRUE(SameBits(ref.feat, fast.feat));
      }
    }
  }
  // Cell maps from magnitudes and bins left in the scratch by the caller (no gradient
  // buffers), some bins out of range: both drivers skip the same additions.
  for (int F : {27, 9}) {
    Scratch ref(40, 36, 3, F), fast(40, 36, 3, F);
    for (size_t i = 0; i < ref.bins.size(); ++i) ref.bins[i] = static_cast<uint32_t>(rng.Uniform(0, 19));
    for (auto& m : ref.mag) m = static_cast<float>(rng.Uniform(0, 400)) * 0.25f;
    fast.bins = ref.bins;
    fast.mag = ref.mag;
    ASSERT_EQ(ref.Run(KernelChoice::kReference, true, false), 0u);
    ASSERT_EQ(fast.Run(KernelChoice::kFast, true, false), 0u);
    EXPECT_TRUE(SameBits(ref.feat, fast.feat)) << "F " << F;
  }
  EXPECT_EQ(zy::AllocationCount(), allocations);
}

}  // namespace
