// The crop: geometry (rectangles, odd edges, floor mapping, dropped rows), the packed column
// list against in-place columns, the position rule of the two colour forms, failures, and
// the fast rows against the scalar references on whole crops.
#include "features/crop_resize.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <vector>

#include "common/zy_alloc.h"
#include "features/yuv_rows.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

using Rgb = std::array<uint8_t, 3>;

uint8_t Avg2(int a, int b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

// An NV21 frame in storage of exactly its size, so that AddressSanitizer sees any read past
// the end; the expectations read such bytes as 0.
struct TestFrame {
  uint32_t w, h;
  std::vector<uint8_t> px;
  TestFrame(uint32_t width, uint32_t height, uint32_t seed)
      : w(width),
        h(height),
        px(static_cast<size_t>(width) * height + static_cast<size_t>(width) * (height / 2)) {
    TestRng rng(seed);
    for (auto& p : px) p = static_cast<uint8_t>(rng.Next());
  }
  int At(int64_t i) const { return i >= 0 && i < static_cast<int64_t>(px.size()) ? px[i] : 0; }
  // What the three-channel crop gives for the 2x2 luma block at frame (x, y), x and the
  // crop's top even, with the chroma rows y / 2 and y / 2 + 1.
  Rgb Colour(int x, int y, bool wide) const {
    const int64_t l0 = int64_t{y} * w + x, l1 = l0 + w;
    const int64_t c0 = int64_t{w} * h + int64_t{y / 2} * w + x, c1 = c0 + w;
    const uint8_t ya = Avg2(Avg2(At(l0), At(l0 + 1)), Avg2(At(l1), At(l1 + 1)));
    const uint8_t va = Avg2(Avg2(At(c0), At(c0 + 2)), Avg2(At(c1), At(c1 + 2)));
    const uint8_t ua = Avg2(Avg2(At(c0 + 1), At(c0 + 3)), Avg2(At(c1 + 1), At(c1 + 3)));
    Rgb o;
    (wide ? YuvToRgbWide : YuvToRgbOne)(ya, ua, va, o.data());
    return o;
  }
  // The one-channel crop's 2x2 luma average at frame (x, y), any x.
  uint8_t Grey(int x, int y) const {
    const int64_t l0 = int64_t{y} * w + x, l1 = l0 + w;
    return Avg2(Avg2(At(l0), At(l0 + 1)), Avg2(At(l1), At(l1 + 1)));
  }
};

struct Crop {
  int outW, outH, channels;
  std::vector<uint8_t> px;
  uint32_t result;
  Rgb At(int r, int c) const {
    const size_t p = static_cast<size_t>(outW) * outH, i = static_cast<size_t>(r) * outW + c;
    return {px[i], px[p + i], px[2 * p + i]};
  }
};

Crop CropWith(KernelChoice choice, const TestFrame& f, std::array<float, 4> roi, int outW, int outH,
              int channels) {
  Crop c{outW, outH, channels,
         std::vector<uint8_t>(static_cast<size_t>(outW) * outH * channels, 0xAB), 0};
  c.result = CropResizeYuv2rgbAccWith(choice, f.px.data(), f.w, f.h, c.px.data(), roi.data(), outW,
                                      static_cast<uint32_t>(outH), static_cast<uint32_t>(channels));
  return c;
}

// The crop by the scalar reference rows, held equal to the fast rows byte for byte.
Crop CropOf(const TestFrame& f, std::array<float, 4> roi, int outW, int outH, int channels) {
  const Crop ref = CropWith(KernelChoice::kReference, f, roi, outW, outH, channels);
  const Crop fast = CropWith(KernelChoice::kFast, f, roi, outW, outH, channels);
  EXPECT_EQ(ref.result, fast.result);
  EXPECT_EQ(ref.px, fast.px);
  return ref;
}

// Three channels: want(r, k, &rgb) says whether output pixel (r, k) is written and with what;
// every other pixel must be 0 (padding).
void ExpectColour(const Crop& c, const std::function<bool(int, int, Rgb*)>& want) {
  for (int r = 0; r < c.outH; ++r) {
    for (int k = 0; k < c.outW; ++k) {
      Rgb e{0, 0, 0};
      want(r, k, &e);
      ASSERT_EQ(c.At(r, k), e) << "row " << r << " column " << k;
    }
  }
}

void ExpectGrey(const Crop& c, const std::function<bool(int, int, uint8_t*)>& want) {
  for (int r = 0; r < c.outH; ++r) {
    for (int k = 0; k < c.outW; ++k) {
      uint8_t e = 0;
      want(r, k, &e);
      ASSERT_EQ(c.px[static_cast<size_t>(r) * c.outW + k], e) << "row " << r << " column " << k;
    }
  }
}

TEST(CropResize, InsideFrameScaleOneAndScaled) {
  const TestFrame f(64, 48, 1);
  // Scale 1: crop rows and columns 0..22 are used (the 2x2 block needs the next one), entry k
  // reads even offset k & ~1; entries 0-15 are two groups of eight, 16-22 one at a time.
  Crop c = CropOf(f, {8.f, 6.f, 24.f, 24.f}, 24, 24, 3);
  EXPECT_EQ(c.result, 0u);
  ExpectColour(c, [&](int r, int k, Rgb* e) {
    if (r > 22 || k > 22) return false;
    *e = f.Colour(8 + (k & ~1), 6 + r, k < 16);
    return true;
  });
  // Scale 36 / 24 = 1.5 on both axes (the height does not enter it, it only ends the rows:
  // crop rows 0..8 usable), floor-mapped: 24 entries, all in groups of eight.
  c = CropOf(f, {8.9f, 6.2f, 36.7f, 10.f}, 24, 24, 3);
  EXPECT_EQ(c.result, 0u);
  ExpectColour(c, [&](int r, int k, Rgb* e) {
    if (std::floor(r * 1.5f) > 8) return false;
    *e = f.Colour(8 + (static_cast<int>(std::floor(k * 1.5f)) & ~1),
                  6 + static_cast<int>(std::floor(r * 1.5f)), true);
    return true;
  });
  EXPECT_EQ(c.At(1, 2), f.Colour(8 + 2, 6 + 1, true));  // column 2 -> 3 -> offset 2; row 1 -> 1
}

TEST(CropResize, FormChosenByPositionInRow) {
  // Luma 255, U 250: B is 0 in the eight-wide form and 255 in the one-at-a-time form.
  TestFrame f(64, 32, 0);
  for (size_t i = 0; i < f.px.size(); ++i) {
    f.px[i] = i < 64 * 32 ? 255 : ((i & 1) ? 250 : 128);
  }
  for (int width : {8, 9, 24}) {
    // Entries: 7 (all one at a time), 8 (one group), 23 (two groups and 7 more).
    const Crop c = CropOf(f, {2.f, 2.f, static_cast<float>(width), static_cast<float>(width)},
                          width, width, 3);
    const int entries = width - 1, grouped = entries / 8 * 8;
    for (int k = 0; k < width; ++k) {
      const Rgb want =
          k >= entries ? Rgb{0, 0, 0} : (k < grouped ? Rgb{255, 230, 0} : Rgb{255, 230, 255});
      EXPECT_EQ(c.At(0, k), want) << "width " << width << " entry " << k;
    }
  }
}

TEST(CropResize, WindowPastLeftAndTop) {
  const TestFrame f(32, 24, 2);
  // X = -6, Y = -4: crop columns 6.. and rows 4.. lie in the frame. Three channels pack the
  // used columns from output column 0; one channel writes them in place from column 6.
  const Crop c3 = CropOf(f, {-6.f, -4.f, 16.f, 16.f}, 16, 16, 3);
  ExpectColour(c3, [&](int r, int k, Rgb* e) {
    if (r < 4 || r > 14 || k > 8) return false;  // 9 used columns: 6..14
    *e = f.Colour(k & ~1, r - 4, k < 8);
    return true;
  });
  const Crop c1 = CropOf(f, {-6.f, -4.f, 16.f, 16.f}, 16, 16, 1);
  ExpectGrey(c1, [&](int r, int k, uint8_t* e) {
    if (r < 4 || r > 14 || k < 6 || k > 14) return false;
    *e = f.Grey(k - 6, r - 4);  // no even alignment in place
    return true;
  });
}

TEST(CropResize, WindowPastRightAndBottomDropsFourRows) {
  const TestFrame f(32, 24, 3);
  // X + W = 36 > 32: crop columns 0..11 exist, 0..10 usable. Y + H = 30 reaches the last
  // frame row: crop rows 0..9 exist; one channel uses 0..8, three channels lose four more.
  const Crop c3 = CropOf(f, {20.f, 14.f, 16.f, 16.f}, 16, 16, 3);
  ExpectColour(c3, [&](int r, int k, Rgb* e) {
    if (r > 4 || k > 10) return false;
    *e = f.Colour(20 + (k & ~1), 14 + r, k < 8);
    return true;
  });
  const Crop c1 = CropOf(f, {20.f, 14.f, 16.f, 16.f}, 16, 16, 1);
  ExpectGrey(c1, [&](int r, int k, uint8_t* e) {
    if (r > 8 || k > 10) return false;
    *e = f.Grey(20 + k, 14 + r);
    return true;
  });
  // A bottom one row short of the frame keeps every row; the chroma quad of the last entry
  // runs two bytes past the frame's end, which read as 0.
  const Crop edge = CropOf(f, {16.f, 8.f, 16.f, 15.f}, 16, 16, 3);
  ExpectColour(edge, [&](int r, int k, Rgb* e) {
    if (r > 13 || k > 14) return false;
    *e = f.Colour(16 + (k & ~1), 8 + r, k < 8);
    return true;
  });
}

TEST(CropResize, OddLeftAndTopReadOnePixelEarlier) {
  const TestFrame f(40, 30, 4);
  const Crop odd = CropOf(f, {5.f, 3.f, 16.f, 16.f}, 16, 16, 3);
  ExpectColour(odd, [&](int r, int k, Rgb* e) {
    if (r > 14 || k > 14) return false;
    *e = f.Colour(4 + (k & ~1), 2 + r, k < 8);
    return true;
  });
  const Crop grey = CropOf(f, {5.f, 3.f, 16.f, 16.f}, 16, 16, 1);
  ExpectGrey(grey, [&](int r, int k, uint8_t* e) {
    if (r > 14 || k > 14) return false;
    *e = f.Grey(4 + k, 2 + r);
    return true;
  });
}

TEST(CropResize, OtherChannelCountsWriteOneGreyPlane) {
  const TestFrame f(32, 24, 5);
  const Crop c = CropOf(f, {4.f, 4.f, 8.f, 8.f}, 8, 8, 2);
  EXPECT_EQ(c.result, 0u);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(c.px[i], (i / 8 < 7 && i % 8 < 7) ? f.Grey(4 + i % 8, 4 + i / 8) : 0) << i;
    EXPECT_EQ(c.px[64 + i], 0) << "second plane cleared, not written";
  }
}

TEST(CropResize, IndexCheckAndItsMessages) {
  // Odd height: maxIndex = 32 * 33 * 3 / 2 - 2 = 1582, but the frame holds 1568 bytes. The
  // crop's last used row (30) takes chroma row 16, past the end: its groups of eight test
  // c1 + o <= 1582, so offsets up to 14 pass (reading zeros) and the third group fails.
  const TestFrame f(32, 33, 6);
  {
    LogCapture log;
    const Crop c = CropOf(f, {0.f, 0.f, 32.f, 32.f}, 32, 32, 3);
    EXPECT_EQ(c.result, 9u);
    EXPECT_EQ(log.Count("Index out of yuv range!", ANDROID_LOG_ERROR), 2);  // once per kernel set
    EXPECT_TRUE(log.Has("CropResizeYuv2rgbAcc: ProcThreeChannelData failed!", ANDROID_LOG_ERROR));
    ExpectColour(c, [&](int r, int k, Rgb* e) {
      if (r > 30 || k > 30 || (r == 30 && k >= 16)) return false;  // earlier rows stay written
      *e = f.Colour(k & ~1, r, k < 24);
      return true;
    });
  }
  {
    // Entries after the last group are checked on luma only: 23 entries, offsets 16..22
    // one at a time in row 22 (chroma row 16) pass.
    LogCapture log;
    const Crop c = CropOf(f, {0.f, 8.f, 24.f, 24.f}, 24, 24, 3);
    EXPECT_EQ(c.result, 0u);
    EXPECT_EQ(log.Lines().size(), 0u);
    EXPECT_EQ(c.At(22, 20), f.Colour(20, 30, false));
    // The one-channel path has no check at all.
    EXPECT_EQ(CropOf(f, {0.f, 0.f, 32.f, 32.f}, 32, 32, 1).result, 0u);
  }
  {
    // Called directly with a window below the luma plane: y0 = 12 * 16 > 16 * 8 * 3 / 2 - 2.
    const TestFrame small(16, 8, 7);
    const int32_t imageRect[4] = {0, 12, 16, 20};
    const int32_t validRect[4] = {0, 0, 16, 8};
    std::vector<uint8_t> dst(8 * 8 * 3, 0);
    LogCapture log;
    EXPECT_EQ(
        ProcThreeChannelData(small.px.data(), 16, 8, dst.data(), 8, 8, imageRect, validRect, 1.f),
        9u);
    EXPECT_TRUE(log.Has("Index out of yuv range!", ANDROID_LOG_ERROR));
  }
}

TEST(CropResize, BadArguments) {
  const TestFrame f(32, 24, 8);
  const float roi[4] = {0.f, 0.f, 8.f, 8.f};
  std::vector<uint8_t> dst(8 * 8 * 3, 0xAB);
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 32, 24, dst.data(), roi, 0, 8, 3), 9u);
  EXPECT_EQ(dst[0], 0xAB);  // untouched
  LogCapture log;
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 32, 24, nullptr, roi, 8, 8, 3), 9u);
  EXPECT_TRUE(log.Has("ProcThreeChannelData: invalid input!", ANDROID_LOG_ERROR));
  EXPECT_TRUE(log.Has("CropResizeYuv2rgbAcc: ProcThreeChannelData failed!", ANDROID_LOG_ERROR));
  log.Clear();
  EXPECT_EQ(CropResizeYuv2rgbAcc(nullptr, 32, 24, dst.data(), roi, 8, 8, 1), 0u);  // grey: no check
  EXPECT_EQ(dst[0], 0);                                                            // cleared only
  EXPECT_EQ(log.Lines().size(), 0u);
}

TEST(CropResize, ColumnListNeedsNoHeapAtTrackerSize) {
  const TestFrame f(320, 240, 9);
  std::vector<uint8_t> dst(300 * 300 * 3);
  const float roi[4] = {10.f, 10.f, 200.f, 200.f};
  const long before = zy::AllocationCount();
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 72, 72, 3), 0u);
  EXPECT_EQ(zy::AllocationCount(), before);
  // A list longer than the stack buffer is allocated; when that fails the crop fails.
  zy::FailNthAllocation(1);
  LogCapture log;
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 300, 300, 3), 9u);
  zy::FailNthAllocation(0);
  EXPECT_TRUE(log.Has("CropResizeYuv2rgbAcc: ProcThreeChannelData failed!", ANDROID_LOG_ERROR));
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 300, 300, 3), 0u);
}

TEST(CropResize, ExtremeWindowsStayInsideTheFrame) {
  // Windows no caller should pass: every conversion saturates and every frame index is
  // checked, so these only have to finish with 0 or 9 and read nothing outside the frame.
  const TestFrame f(48, 33, 14);
  const float nan = std::nanf(""), inf = INFINITY;
  const float values[] = {nan,          inf,           -inf,  3e9f, -3e9f,
                          2147483520.f, -2147483648.f, -40.f, 47.f, 1e-30f};
  LogCapture log;  // keeps the expected error lines off the console
  for (float x : values) {
    for (float w : values) {
      for (int outW : {1, 9, 72}) {
        const Crop c = CropOf(f, {x, w, w, x}, outW, 9, 3);
        EXPECT_TRUE(c.result == 0 || c.result == 9);
        EXPECT_EQ(CropOf(f, {w, x, x, w}, outW, 9, 1).result, 0u);
      }
    }
  }
}

TEST(CropResize, FastRowsEqualReferenceOnWholeCrops) {
  // Random windows: inside, past every edge, odd corners, scales around 1, widths that leave
  // every tail length, even and odd frame heights.
  TestRng rng(11);
  const TestFrame frames[] = {TestFrame(96, 64, 12), TestFrame(90, 61, 13)};
  int compared = 0;
  for (const TestFrame& f : frames) {
    for (int n = 0; n < 400; ++n) {
      const int outW = rng.Uniform(1, 40);
      const int outH = rng.Uniform(1, 40);
      const float w =
          static_cast<float>(outW) * (0.5f + static_cast<float>(rng.Uniform(0, 100)) / 50.f);
      const std::array<float, 4> roi = {static_cast<float>(rng.Uniform(-30, 100)) + 0.5f,
                                        static_cast<float>(rng.Uniform(-30, 70)) + 0.25f, w,
                                        w * static_cast<float>(outH) / static_cast<float>(outW)};
      const Crop ref = CropWith(KernelChoice::kReference, f, roi, outW, outH, 3);
      const Crop fast = CropWith(KernelChoice::kFast, f, roi, outW, outH, 3);
      ASSERT_EQ(ref.result, fast.result);
      ASSERT_EQ(ref.px, fast.px) << "roi " << roi[0] << "," << roi[1] << "," << roi[2] << " out "
                                 << outW << "x" << outH;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 800);
}

}  // namespace
