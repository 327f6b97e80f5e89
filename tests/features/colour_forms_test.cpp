// The two colour forms, pinned by hand-computed values, and the eight-pixel group kernels and
// the four-pixel tail kernel held equal to their one-pixel forms over every (Y, U, V).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "features/yuv_rows.h"

namespace {

using Rgb = std::array<int, 3>;

Rgb Convert(void (*form)(uint8_t, uint8_t, uint8_t, uint8_t*), int y, int u, int v) {
  uint8_t o[3];
  form(static_cast<uint8_t>(y), static_cast<uint8_t>(u), static_cast<uint8_t>(v), o);
  return {o[0], o[1], o[2]};
}

TEST(ColourForms, HandComputedValues) {
  struct Case { int y, u, v; Rgb one, wide; };
  const Case cases[] = {
      // Black and white points: Y 16 -> 0; Y 235 -> 1192*219 >> 10 = 254, (74*219 + 109) >> 6.
      {16, 128, 128, {0, 0, 0}, {0, 0, 0}},
      {235, 128, 128, {254, 254, 254}, {254, 254, 254}},
      // R = (100128 + 117648) >> 10 = 212, G = 71352 >> 10 = 69, B < 0 -> 0;
      // wide: R = (6258 + 7344 + 9) >> 6 = 212, G = (6258 - 3744 - 4 + 1950) >> 6 = 69.
      {100, 50, 200, {212, 69, 0}, {212, 69, 0}},
      // Luma below 16 is limited to 16 by the one-at-a-time form only:
      // R = 1634*127 >> 10 = 202 against (-447 + 12954 + 15) >> 6 = 195.
      {10, 128, 255, {202, 0, 0}, {195, 0, 0}},
      // The wide form's B = 17805 + 15738 + 15 = 33558 passes 32767 in 16 bits and wraps
      // negative. G = 236088 >> 10 = 230 and 14755 >> 6 = 230.
      {255, 250, 128, {255, 230, 255}, {255, 230, 0}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Convert(YuvToRgbOne, c.y, c.u, c.v), c.one) << c.y << "," << c.u << "," << c.v;
    EXPECT_EQ(Convert(YuvToRgbWide, c.y, c.u, c.v), c.wide) << c.y << "," << c.u << "," << c.v;
  }
}

TEST(ColourForms, GroupKernelsEqualReferenceOverAllTriples) {
  // Every (Y, U, V), eight at a time as flat 2x2 luma and chroma blocks: the scalar and (when
  // built) NEON eight-pixel rows give the wide form's values; the NEON four-pixel tail, fed
  // the same pixels from a four-row frame (luma top, luma bottom, chroma top, chroma bottom;
  // pixel i at offset 4i), gives the one-at-a-time form's.
  uint32_t mismatchC = 0, mismatchNeon = 0, mismatchTail = 0;
  for (uint32_t base = 0; base < (1u << 24); base += 8) {
    Nv21Group8 grp;
    uint8_t wide[8][3], one[8][3], r[8], g[8], b[8], frame[2][64];
    for (int i = 0; i < 8; ++i) {
      const uint32_t t = base + static_cast<uint32_t>(i);
      const auto y = static_cast<uint8_t>(t >> 16), u = static_cast<uint8_t>(t >> 8), v = static_cast<uint8_t>(t);
      grp.lumaTop[2 * i] = grp.lumaTop[2 * i + 1] = grp.lumaBottom[2 * i] = grp.lumaBottom[2 * i + 1] = y;
      for (uint8_t* c : {grp.chromaTop + 4 * i, grp.chromaBottom + 4 * i, &frame[i / 4][32 + 4 * (i % 4)],
                         &frame[i / 4][48 + 4 * (i % 4)]}) {
        c[0] = c[2] = v;
        c[1] = c[3] = u;
      }
      for (int row = 0; row < 2; ++row) std::fill_n(&frame[i / 4][16 * row + 4 * (i % 4)], 4, y);
      YuvToRgbWide(y, u, v, wide[i]);
      YuvToRgbOne(y, u, v, one[i]);
    }
    auto mismatches = [&](const uint8_t(*ref)[3], int from, int n) {
      uint32_t m = 0;
      for (int i = 0; i < n; ++i) m += (r[i] != ref[from + i][0]) + (g[i] != ref[from + i][1]) + (b[i] != ref[from + i][2]);
      return m;
    };
    Nv21Group8ToRgb_C(grp, r, g, b);
    mismatchC += mismatches(wide, 0, 8);
#if ZY_HAVE_NEON
    Nv21Group8ToRgb_NEON(grp, r, g, b);
    mismatchNeon += mismatches(wide, 0, 8);
    const int32_t bases[4] = {0, 16, 32, 48}, o[4] = {0, 4, 8, 12};
    for (int half = 0; half < 2; ++half) {
      Nv21OneFormToRgb4_NEON(frame[half], bases, o, r, g, b);
      mismatchTail += mismatches(one, 4 * half, 4);
    }
#endif
  }
  EXPECT_EQ(mismatchC, 0u);
  EXPECT_EQ(mismatchNeon, 0u);
  EXPECT_EQ(mismatchTail, 0u);
}

}  // namespace
