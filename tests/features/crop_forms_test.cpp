// Every kernel form of the crop that runs on this machine against the scalar reference, byte
// for byte over a sweep of whole crops, and the 256-bit rows against the one-pixel colour
// forms over every (Y, U, V).
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "features/crop_resize.h"
#include "features/yuv_rows.h"
#include "support/nv21_frames.h"

namespace {

std::vector<CropForm> FormsThatRun() {
  std::vector<CropForm> forms;
  for (CropForm f : {CropForm::kNeon, CropForm::kAvx2})
    if (CropFormRuns(f)) forms.push_back(f);
  return forms;
}

// Random NV21 bytes in storage of exactly the frame's size (AddressSanitizer sees overreads).
std::vector<uint8_t> RandomFrame(uint32_t w, uint32_t h, uint32_t seed) {
  std::vector<uint8_t> px(size_t{w} * h + size_t{w} * (h / 2));
  SceneRng rng(seed);
  for (auto& p : px) p = static_cast<uint8_t>(rng.Next());
  return px;
}

TEST(CropForms, EveryFormEqualsReferenceOverWindowsScalesAndFrames) {
  struct FrameSize {
    uint32_t w, h;
  };
  // Even and odd heights (odd ones make the index check fail near the bottom), a frame too
  // short for any whole 2x2 block below its first row, and a tracker-sized one.
  const FrameSize sizes[] = {{96, 64}, {90, 61}, {34, 33}, {20, 2}, {320, 180}};
  const float scales[] = {0.3f, 0.5f, 0.77f, 1.f, 1.37f, 2.f, 2.6f, 3.3f, 4.4f, 7.f};
  SceneRng rng(21);
  int failures = 0;
  for (const FrameSize& s : sizes) {
    const std::vector<uint8_t> frame = RandomFrame(s.w, s.h, s.w * 131 + s.h);
    const int sw = static_cast<int>(s.w), sh = static_cast<int>(s.h);
    for (int i = 0; i < 500; ++i) {
      const int outW = rng.Uniform(1, 80), outH = rng.Uniform(1, 80);
      const float w = static_cast<float>(outW) * scales[rng.Uniform(0, 9)];
      // Corners from well past the left / top edge to past the right / bottom one.
      const float roi[4] = {static_cast<float>(rng.Uniform(-sw / 2 - 10, sw + 4)) + 0.25f * static_cast<float>(rng.Uniform(0, 3)),
                            static_cast<float>(rng.Uniform(-sh / 2 - 10, sh + 4)) + 0.5f * static_cast<float>(rng.Uniform(0, 1)),
                            w, w * static_cast<float>(outH) / static_cast<float>(outW)};
      const size_t bytes = static_cast<size_t>(outW) * static_cast<size_t>(outH) * 3;
      std::vector<uint8_t> ref(bytes, 0xAB);
      const uint32_t refResult = CropResizeYuv2rgbAccForm(CropForm::kReference, frame.data(), s.w, s.h,
                                                          ref.data(), roi, outW, static_cast<uint32_t>(outH), 3);
      failures += refResult != 0;
      for (CropForm form : FormsThatRun()) {
        // Whatever dst held before, the crop leaves the same bytes (padding cleared).
        for (uint8_t fill : {uint8_t{0x00}, uint8_t{0xFF}}) {
          std::vector<uint8_t> out(bytes, fill);
          ASSERT_EQ(CropResizeYuv2rgbAccForm(form, frame.data(), s.w, s.h, out.data(), roi, outW,
                                             static_cast<uint32_t>(outH), 3),
                    refResult);
          ASSERT_EQ(out, ref) << "form " << static_cast<int>(form) << " frame " << s.w << "x" << s.h
                              << " roi " << roi[0] << "," << roi[1] << "," << roi[2] << " out "
                              << outW << "x" << outH << " fill " << int{fill};
        }
      }
    }
  }
  EXPECT_GT(failures, 0);  // the index check's failure path was swept too
}

TEST(CropForms, ThreeChannelPathKeepsUnwrittenBytesInEveryForm) {
  // Inside the frame at scale 1 the last column is never used: the path leaves it as it was,
  // and every form writes the same bytes.
  const std::vector<uint8_t> frame = RandomFrame(64, 48, 5);
  const int32_t imageRect[4] = {8, 6, 41, 39}, validRect[4] = {0, 0, 33, 33};
  std::vector<uint8_t> ref(33 * 33 * 3, 0x5A);
  ASSERT_EQ(ProcThreeChannelDataForm(CropForm::kReference, frame.data(), 64, 48, ref.data(), 33, 33,
                                     imageRect, validRect, 1.f),
            0u);
  EXPECT_EQ(ref[32], 0x5A);
  EXPECT_EQ(ref[33 * 33 * 3 - 1], 0x5A);
  for (CropForm form : FormsThatRun()) {
    std::vector<uint8_t> out(33 * 33 * 3, 0x5A);
    ASSERT_EQ(ProcThreeChannelDataForm(form, frame.data(), 64, 48, out.data(), 33, 33, imageRect,
                                       validRect, 1.f),
              0u);
    EXPECT_EQ(out, ref) << static_cast<int>(form);
  }
}

#if ZY_HAVE_AVX2_ROWS
TEST(CropForms, Avx2RowsEqualOnePixelFormsOverAllTriples) {
  if (!CpuHasAvx2()) GTEST_SKIP() << "no AVX2 on this CPU";
  // Every (Y, U, V), sixteen at a time as flat 2x2 blocks in a four-row frame (luma top, luma
  // bottom, chroma top, chroma bottom; pixel i at offset 4i): the whole-group row must give
  // the eight-wide form's values, the tail row (its first eight) the one-at-a-time form's.
  const int32_t bases[4] = {0, 64, 128, 192};
  int32_t list[16];
  for (int i = 0; i < 16; ++i) list[i] = 4 * i;
  uint32_t wideMismatches = 0, oneMismatches = 0;
  uint8_t frame[256];
  for (uint32_t base = 0; base < (1u << 24); base += 16) {
    uint8_t wide[16][3], one[16][3], r[16], g[16], b[16];
    for (int i = 0; i < 16; ++i) {
      const uint32_t t = base + static_cast<uint32_t>(i);
      const auto y = static_cast<uint8_t>(t >> 16), u = static_cast<uint8_t>(t >> 8),
                 v = static_cast<uint8_t>(t);
      for (int row = 0; row < 2; ++row) {
        uint8_t* l = frame + 64 * row + 4 * i;
        l[0] = l[1] = l[2] = l[3] = y;
        uint8_t* c = frame + 128 + 64 * row + 4 * i;
        c[0] = c[2] = v;
        c[1] = c[3] = u;
      }
      YuvToRgbWide(y, u, v, wide[i]);
      YuvToRgbOne(y, u, v, one[i]);
    }
    Nv21RowToRgb_AVX2(frame, bases, list, 2, r, g, b);
    for (int i = 0; i < 16; ++i)
      wideMismatches += (r[i] != wide[i][0]) + (g[i] != wide[i][1]) + (b[i] != wide[i][2]);
    Nv21OneFormToRgb_AVX2(frame, bases, list, 8, r, g, b);
    Nv21OneFormToRgb_AVX2(frame, bases, list + 8, 8, r + 8, g + 8, b + 8);
    for (int i = 0; i < 16; ++i)
      oneMismatches += (r[i] != one[i][0]) + (g[i] != one[i][1]) + (b[i] != one[i][2]);
    // Every shorter tail writes its pixels and not one byte more.
    const int32_t count = 1 + static_cast<int32_t>((base >> 4) % 7);
    uint8_t t[3][9];
    for (auto& plane : t) std::fill(plane, plane + 9, uint8_t{0xEE});
    Nv21OneFormToRgb_AVX2(frame, bases, list + 3, count, t[0], t[1], t[2]);
    for (int ch = 0; ch < 3; ++ch) {
      for (int i = 0; i < 9; ++i) oneMismatches += t[ch][i] != (i < count ? one[3 + i][ch] : 0xEE);
    }
  }
  EXPECT_EQ(wideMismatches, 0u);
  EXPECT_EQ(oneMismatches, 0u);
}
#endif

}  // namespace
