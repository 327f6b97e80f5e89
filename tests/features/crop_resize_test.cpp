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
      : w(width), h(height), px(size_t{width} * height + size_t{width} * (height / 2)) {
    SceneRng rng(seed);
    for (auto& p : px) p = static_cast<uint8_t>(rng.Next());
  }
  int At(int64_t i) const { return i >= 0 && i < static_cast<int64_t>(px.size()) ? px[i] : 0; }
  // The one-channel crop's 2x2 luma average at frame (x, y), pairs first.
  uint8_t Grey(int x, int y) const {
    const int64_t l0 = int64_t{y} * w + x, l1 = l0 + w;
    return Avg2(Avg2(At(l0), At(l0 + 1)), Avg2(At(l1), At(l1 + 1)));
  }
  // The three-channel crop's pixel for the 2x2 block at frame (x, y), x and the crop's top
  // even, chroma rows y / 2 and y / 2 + 1; the eight-wide form when `wide`.
  Rgb Colour(int x, int y, bool wide) const {
    const int64_t c0 = int64_t{w} * h + int64_t{y / 2} * w + x, c1 = c0 + w;
    const uint8_t va = Avg2(Avg2(At(c0), At(c0 + 2)), Avg2(At(c1), At(c1 + 2)));
    const uint8_t ua = Avg2(Avg2(At(c0 + 1), At(c0 + 3)), Avg2(At(c1 + 1), At(c1 + 3)));
    Rgb o;
    (wide ? YuvToRgbWide : YuvToRgbOne)(Grey(x, y), ua, va, o.data());
    return o;
  }
};

struct Crop {
  int outW, outH;
  std::vector<uint8_t> px;
  uint32_t result;
  Rgb At(int r, int c) const {
    const size_t p = static_cast<size_t>(outW) * outH, i = static_cast<size_t>(r) * outW + c;
    return {px[i], px[p + i], px[2 * p + i]};
  }
};

Crop CropWith(KernelChoice choice, const TestFrame& f, std::array<float, 4> roi, int outW, int outH,
              int channels) {
  Crop c{outW, outH, std::vector<uint8_t>(static_cast<size_t>(outW) * outH * channels, 0xAB), 0};
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

// A frame of luma 255 and U 250, where the forms differ: B is 0 in the eight-wide form and
// 255 in the one-at-a-time form.
TestFrame FormFrame() {
  TestFrame f(64, 32, 0);
  for (size_t i = 0; i < f.px.size(); ++i) f.px[i] = i < 64 * 32 ? 255 : ((i & 1) ? 250 : 128);
  return f;
}

TEST(CropResize, WindowsScalesEdgesOddCornersAndForms) {
  // Output (r, k) for rows r0..r1 comes from frame row fy + floor((r - r0) * scale): three
  // channels pack the used columns from output column 0 (frame column fx + (floor(k * scale)
  // & ~1), the first `wide` entries eight-wide) up to k1; one channel writes columns gk0..gk1
  // in place from frame column fx with no even alignment, rows up to g1 (g1 < 0: not
  // checked). All else is 0.
  const TestFrame f32(32, 24, 2), f40(40, 30, 4), f64(64, 48, 1), form = FormFrame();
  struct Case {
    const TestFrame* f;
    std::array<float, 4> roi;
    int out;
    float scale;
    int fx, fy, r0, r1, k1, wide, g1, gk0, gk1;
  };
  const Case cases[] = {
      // Past left and top: crop columns 6.. and rows 4.. lie in the frame, 9 columns used.
      {&f32, {-6.f, -4.f, 16.f, 16.f}, 16, 1.f, 0, 0, 4, 14, 8, 8, 14, 6, 14},
      // Past right (columns 0..10 usable) and reaching the last row: one channel uses rows
      // 0..8, three channels lose four more.
      {&f32, {20.f, 14.f, 16.f, 16.f}, 16, 1.f, 20, 14, 0, 4, 10, 8, 8, 0, 10},
      // A bottom one row short of the frame keeps every row; the last entry's chroma quad
      // runs two bytes past the frame's end, which read as 0.
      {&f32, {16.f, 8.f, 16.f, 15.f}, 16, 1.f, 16, 8, 0, 13, 14, 8, -1, 0, 0},
      // Odd left and top read one pixel earlier.
      {&f40, {5.f, 3.f, 16.f, 16.f}, 16, 1.f, 4, 2, 0, 14, 14, 8, 14, 0, 14},
      // Scale 36 / 24 = 1.5 on both axes (the height does not enter it, it only ends the rows:
      // crop rows 0..8 usable), floor-mapped: 24 entries, all in groups of eight.
      {&f64, {8.9f, 6.2f, 36.7f, 10.f}, 24, 1.5f, 8, 6, 0, 5, 23, 24, -1, 0, 0},
      // The form by position in the row: 7 entries all one at a time, 8 in one group, 23 in
      // two groups and 7 more.
      {&form, {2.f, 2.f, 8.f, 8.f}, 8, 1.f, 2, 2, 0, 6, 6, 0, -1, 0, 0},
      {&form, {2.f, 2.f, 9.f, 9.f}, 9, 1.f, 2, 2, 0, 7, 7, 8, -1, 0, 0},
      {&form, {2.f, 2.f, 24.f, 24.f}, 24, 1.f, 2, 2, 0, 22, 22, 16, -1, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "roi " << c.roi[0] << "," << c.roi[1] << "," << c.roi[2]);
    const Crop c3 = CropOf(*c.f, c.roi, c.out, c.out, 3), c1 = CropOf(*c.f, c.roi, c.out, c.out, 1);
    EXPECT_EQ(c3.result, 0u);
    auto at = [&](int i) { return static_cast<int>(std::floor(static_cast<float>(i) * c.scale)); };
    for (int r = 0; r < c.out; ++r) {
      for (int k = 0; k < c.out; ++k) {
        Rgb colour{0, 0, 0};
        if (r >= c.r0 && r <= c.r1 && k <= c.k1) colour = c.f->Colour(c.fx + (at(k) & ~1), c.fy + at(r - c.r0), k < c.wide);
        ASSERT_EQ(c3.At(r, k), colour) << "row " << r << " column " << k;
        if (c.g1 < 0) continue;
        const bool grey = r >= c.r0 && r <= c.g1 && k >= c.gk0 && k <= c.gk1;
        ASSERT_EQ(c1.px[static_cast<size_t>(r) * c.out + k], grey ? c.f->Grey(c.fx + k - c.gk0, c.fy + r - c.r0) : 0)
            << "grey row " << r << " column " << k;
      }
    }
  }
}

TEST(CropResize, IndexCheckAndItsMessages) {
  // Odd height: maxIndex = 32 * 33 * 3 / 2 - 2 = 1582, but the frame holds 1568 bytes. The
  // crop's last used row (30) takes chroma row 16, past the end: its groups of eight test
  // c1 + o <= 1582, so offsets up to 14 pass (reading zeros) and the third group fails.
  const TestFrame f(32, 33, 6);
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
  // Entries after the last group are checked on luma only: 23 entries, offsets 16..22 one at
  // a time in row 22 (chroma row 16) pass. The one-channel path has no check at all.
  log.Clear();
  const Crop tail = CropOf(f, {0.f, 8.f, 24.f, 24.f}, 24, 24, 3);
  EXPECT_EQ(tail.result, 0u);
  EXPECT_EQ(log.Lines().size(), 0u);
  EXPECT_EQ(tail.At(22, 20), f.Colour(20, 30, false));
  EXPECT_EQ(CropOf(f, {0.f, 0.f, 32.f, 32.f}, 32, 32, 1).result, 0u);
}

TEST(CropResize, BadArgumentsAndAFailedColumnList) {
  const TestFrame f(320, 240, 8);
  const float roi[4] = {10.f, 10.f, 200.f, 200.f};
  std::vector<uint8_t> dst(300 * 300 * 3, 0xAB);
  LogCapture log;
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 0, 8, 3), 9u);
  EXPECT_EQ(dst[0], 0xAB);  // untouched
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, nullptr, roi, 8, 8, 3), 9u);
  EXPECT_TRUE(log.Has("ProcThreeChannelData: invalid input!", ANDROID_LOG_ERROR));
  EXPECT_EQ(CropResizeYuv2rgbAcc(nullptr, 320, 240, dst.data(), roi, 8, 8, 1), 0u);  // no check
  EXPECT_EQ(dst[0], 0);  // cleared only
  // A column list longer than the stack buffer is allocated; when that fails the crop fails.
  zy::FailNthAllocation(1);
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 300, 300, 3), 9u);
  zy::FailNthAllocation(0);
  EXPECT_EQ(CropResizeYuv2rgbAcc(f.px.data(), 320, 240, dst.data(), roi, 300, 300, 3), 0u);
}

}  // namespace
