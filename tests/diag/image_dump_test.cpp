#include "diag/image_dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <regex>
#include <string>
#include <vector>

#include "common/zy_alloc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Three bytes of v from byte at.
Bytes Px(const Bytes& v, size_t at) { return Bytes(v.begin() + at, v.begin() + at + 3); }

ParamOut Out(BodyInfo* bodies, int32_t bodyNum) {
  ParamOut o{};
  o.bodies = bodies;
  o.bodyNum = bodyNum;
  return o;
}

uint32_t Le(const Bytes& f, size_t at, int bytes) {
  uint32_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | f.at(at + i);
  return v;
}

// A fresh directory per test, removed with its files afterwards; base_ = "<dir>/x".
class DumpDir : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/zy_diag_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    base_ = dir_ + "/x";
  }
  void TearDown() override {
    zy::FailNthAllocation(0);
    std::filesystem::remove_all(dir_);
  }
  size_t Files() const {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir_), {}));
  }
  // Reads the directory's only file and removes it.
  Bytes TakeOnlyFile(std::string* name) const {
    EXPECT_EQ(Files(), 1u);
    if (Files() != 1) return {};
    const std::filesystem::path path = std::filesystem::directory_iterator(dir_)->path();
    *name = path.filename();
    std::ifstream in(path, std::ios::binary);
    Bytes f{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::filesystem::remove(path);
    return f;
  }
  std::string dir_;
  std::string base_;
};

TEST_F(DumpDir, BmpHeadersRowsAndPaddingByWidth) {
  const int kPadding[] = {1, 2, 3, 0};  // widths 1..4: rows of 3, 6, 9, 12 bytes
  const int h = 2;
  for (int w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    Bytes rgb(static_cast<size_t>(w) * h * 3);
    std::iota(rgb.begin(), rgb.end(), uint8_t{10});
    std::string name = base_;
    ASSERT_EQ(save_bmp_file(name, rgb.data(), w, h, 3, 0, 42), 0);
    std::string file;
    const Bytes f = TakeOnlyFile(&file);
    EXPECT_EQ(dir_ + "/" + file, name);
    const int rowBytes = w * 3 + kPadding[w - 1];
    ASSERT_EQ(f.size(), static_cast<size_t>(54 + h * rowBytes));
    EXPECT_EQ(Le(f, 0, 2), 0x4D42u);                          // "BM"
    const uint32_t image = static_cast<uint32_t>(w * h * 3);  // padding not counted
    // offset, size, value of every header field after the signature
    const uint32_t fields[][3] = {
        {2, 4, image + 54},   {6, 4, 0},  {10, 4, 54}, {14, 4, 40}, {18, 4, uint32_t(w)},
        {22, 4, uint32_t(h)}, {26, 2, 1}, {28, 2, 24}, {30, 4, 0},  {34, 4, image},
        {38, 4, 0},           {42, 4, 0}, {46, 4, 0},  {50, 4, 0}};
    for (const auto& fd : fields) EXPECT_EQ(Le(f, fd[0], int(fd[1])), fd[2]) << "offset " << fd[0];
    // Bottom-up, each triple reversed, zero padding after each row.
    for (int k = 0; k < h; ++k) {
      const size_t row = 54 + static_cast<size_t>(k) * rowBytes;
      const size_t src = static_cast<size_t>(h - 1 - k) * w * 3;
      for (int j = 0; j < w; ++j) {
        EXPECT_EQ(Px(f, row + 3 * j),
                  (Bytes{rgb[src + 3 * j + 2], rgb[src + 3 * j + 1], rgb[src + 3 * j]}));
      }
      for (int p = 0; p < kPadding[w - 1]; ++p) EXPECT_EQ(f[row + 3 * w + p], 0);
    }
  }
}

TEST_F(DumpDir, NameCarriesLocalTimeMillisecondsSizeAndRequestId) {
  const uint8_t px[3] = {1, 2, 3};
  std::string name = base_;
  const time_t now = time(nullptr);
  ASSERT_EQ(save_bmp_file(name, px, 1, 1, 3, 0, 18446744073709551615ull), 0);
  EXPECT_TRUE(std::regex_match(name, std::regex(dir_ + "/x\\d{4}_\\d{6}_\\d{3}_w1_h1_reqId18446744073709551615\\.bmp")))
      << name;
  struct tm local {};
  char stamp[32];  // the local time: at most a second later
  strftime(stamp, sizeof stamp, "%m%d_%H%M%S_", localtime_r(&now, &local));
  const time_t later = now + 1;
  char stampLater[32];
  strftime(stampLater, sizeof stampLater, "%m%d_%H%M%S_", localtime_r(&later, &local));
  const std::string got = name.substr(dir_.size() + 2, 12);
  EXPECT_TRUE(got == stamp || got == stampLater) << got;
  struct tm t {};
  t.tm_mon = 2, t.tm_mday = 15, t.tm_hour = 14, t.tm_min = 25, t.tm_sec = 30;  // March 15th, 14:25:30
  char out[64];
  for (auto [usec, ms] : {std::pair{5999L, "005"}, {45000L, "045"}, {123456L, "123"}}) {
    FormatDumpTime(t, usec, out, sizeof out);
    EXPECT_EQ(std::string(out), std::string("0315_142530_") + ms);
  }
  FormatDumpTime(t, 0, out, 8);  // truncated, still terminated
  EXPECT_STREQ(out, "0315_14");
}

Bytes Convert(bool nv12, Bytes yuv, int w, int h) {  // yuv by value: exactly sized for ASan
  Bytes rgb(static_cast<size_t>(w) * h * 3, 0xEE);
  (nv12 ? ConvertNv12ToRgb : ConvertNv21ToRgb)(yuv.data(), rgb.data(), w, h);
  return rgb;
}

TEST(ConvertToRgb, FixedPointValuesChromaOrderSharingAndOddSizes) {
  // Y 100 with the pair (178, 98): U 50, V -30 as NV12; V 50, U -30 as NV21.
  EXPECT_EQ(Convert(true, {100, 100, 100, 100, 178, 98}, 2, 2),
            (Bytes{49, 102, 198, 49, 102, 198, 49, 102, 198, 49, 102, 198}));
  EXPECT_EQ(Px(Convert(false, {100, 100, 100, 100, 178, 98}, 2, 2), 0), (Bytes{177, 68, 37}));
  // Clamping at both ends; luma below 16 counts as 16.
  EXPECT_EQ(Px(Convert(true, {255, 255, 255, 255, 255, 255}, 2, 2), 0), (Bytes{255, 125, 255}));
  EXPECT_EQ(Convert(true, {0, 3, 16, 16, 0, 0}, 2, 2),
            (Bytes{0, 154, 0, 0, 154, 0, 0, 154, 0, 0, 154, 0}));

  // 4 x 4 of Y 100, neutral chroma but for the pair of chroma row 1, pair 1: it tints
  // exactly the 2 x 2 block of rows 2-3, columns 2-3.
  Bytes yuv(16 + 8, 128);
  std::fill(yuv.begin(), yuv.begin() + 16, 100);
  yuv[16 + 4 + 2] = 178;
  yuv[16 + 4 + 3] = 98;
  const Bytes rgb = Convert(true, yuv, 4, 4);
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      const Bytes expect = (r >= 2 && c >= 2) ? Bytes{49, 102, 198} : Bytes{97, 97, 97};
      EXPECT_EQ(Px(rgb, (static_cast<size_t>(r) * 4 + c) * 3), expect) << r << "," << c;
    }
  }

  // Odd sizes stay inside the frame. 3 x 3: three luma rows and one chroma row. The last pair's second byte and the last
  // row's whole chroma row lie past the frame and read as neutral.
  const Bytes odd = Convert(true, {100, 100, 100, 100, 100, 100, 100, 100, 100, 178, 98, 178}, 3, 3);
  EXPECT_EQ(Px(odd, 0), (Bytes{49, 102, 198}));
  EXPECT_EQ(Px(odd, 6), (Bytes{97, 78, 198}));
  EXPECT_EQ(Bytes(odd.begin() + 18, odd.end()), Bytes(9, 97));
  EXPECT_EQ(Convert(true, {100}, 1, 1), (Bytes{97, 97, 97}));  // no chroma row at all
}

TEST_F(DumpDir, DumpDrawsBoxesInGreenAndSkipsPixelsOutside) {
  const int w = 8, h = 6;
  Bytes yuv(static_cast<size_t>(w) * h * 3 / 2, 128);
  std::fill(yuv.begin(), yuv.begin() + w * h, 100);  // grey 97 everywhere
  BodyInfo bodies[3] = {};
  bodies[0].roi = {1, 1, 4, 3};      // inside
  bodies[1].roi = {6, 4, 10, 9};     // runs off the right and bottom edges
  bodies[2].roi = {-3, -2, -1, -1};  // wholly outside
  ASSERT_EQ(DumpTrackingResult(base_, yuv.data(), w, h, 2, Out(bodies, 3), 1), 0);
  std::string name;
  const Bytes f = TakeOnlyFile(&name);
  EXPECT_TRUE(std::regex_match(name, std::regex("x\\d{4}_\\d{6}_\\d{3}_w8_h6_reqId1\\.bmp")))
      << name;
  ASSERT_EQ(f.size(), static_cast<size_t>(54 + h * w * 3));
  auto onOutline = [](const BodyRoi& b, int x, int y) {
    const bool inX = x >= b.left && x <= b.right, inY = y >= b.top && y <= b.bottom;
    return (inX && (y == b.top || y == b.bottom)) || (inY && (x == b.left || x == b.right));
  };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const bool green = onOutline(bodies[0].roi, x, y) || onOutline(bodies[1].roi, x, y);
      const size_t at = 54 + (static_cast<size_t>(h - 1 - y) * w + x) * 3;
      EXPECT_EQ(Px(f, at), green ? (Bytes{0, 255, 0}) : (Bytes{97, 97, 97})) << x << "," << y;
    }
  }
}

TEST_F(DumpDir, DumpRefusalsAndFailuresWriteNothing) {
  Bytes yuv(4 * 4 * 3 / 2, 128);
  BodyInfo bodies[1] = {};
  const uint8_t* y = yuv.data();
  struct Case { const uint8_t* yuv; int w, h, chromaOrder, bodyNum; BodyInfo* bodies; } cases[] = {{y, 4, 4, 0, 1, bodies},  {y, 4, 4, 3, 1, bodies},  {nullptr, 4, 4, 1, 1, bodies},
               {y, 0, 4, 1, 1, bodies},  {y, 4, -4, 1, 1, bodies}, {y, INT_MAX, 2, 1, 1, bodies},
               {y, 4, 4, 1, 31, bodies}, {y, 4, 4, 1, 1, nullptr}};
  for (const auto& c : cases) {
    EXPECT_EQ(DumpTrackingResult(base_, c.yuv, c.w, c.h, c.chromaOrder, Out(c.bodies, c.bodyNum), 1), -1) << &c - cases;
  }
  // The RGB copy failing is reported; the row buffer or the directory failing is not. A
  // directory that cannot take the file is found out before anything is allocated.
  const ParamOut out = Out(bodies, 1);
  zy::FailNthAllocation(1);
  EXPECT_EQ(DumpTrackingResult(base_, yuv.data(), 4, 4, 1, out, 1), -1);
  zy::FailNthAllocation(2);
  EXPECT_EQ(DumpTrackingResult(base_, yuv.data(), 4, 4, 1, out, 1), 0);
  const long allocations = zy::AllocationCount();
  EXPECT_EQ(DumpTrackingResult(dir_ + "/missing/x", yuv.data(), 4, 4, 1, out, 1), 0);
  EXPECT_EQ(zy::AllocationCount(), allocations);
  EXPECT_EQ(Files(), 0u);
  // Nothing to draw needs no body array, nor does a count below 0.
  EXPECT_EQ(DumpTrackingResult(base_, yuv.data(), 4, 4, 1, Out(nullptr, -1), 1), 0);
  EXPECT_EQ(Files(), 1u);
}

}  // namespace
