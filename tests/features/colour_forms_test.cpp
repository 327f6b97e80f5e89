// The two colour forms, pinned by hand-computed values, and the eight-pixel group kernel held
// equal to its scalar reference over every (Y, U, V) triple.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "features/yuv_rows.h"
#include "support/nv21_frames.h"

namespace {

using Rgb = std::array<int, 3>;

Rgb One(int y, int u, int v) {
  uint8_t o[3];
  YuvToRgbOne(static_cast<uint8_t>(y), static_cast<uint8_t>(u), static_cast<uint8_t>(v), o);
  return {o[0], o[1], o[2]};
}
Rgb Wide(int y, int u, int v) {
  uint8_t o[3];
  YuvToRgbWide(static_cast<uint8_t>(y), static_cast<uint8_t>(u), static_cast<uint8_t>(v), o);
  return {o[0], o[1], o[2]};
}

// A group whose eight pixels have flat 2x2 luma Y[i] and flat chroma V[i], U[i].
Nv21Group8 FlatGroup(const uint8_t* y, const uint8_t* u, const uint8_t* v) {
  Nv21Group8 g;
  for (int i = 0; i < 8; ++i) {
    g.lumaTop[2 * i] = g.lumaTop[2 * i + 1] = y[i];
    g.lumaBottom[2 * i] = g.lumaBottom[2 * i + 1] = y[i];
    for (uint8_t* c : {g.chromaTop + 4 * i, g.chromaBottom + 4 * i}) {
      c[0] = c[2] = v[i];
      c[1] = c[3] = u[i];
    }
  }
  return g;
}

TEST(ColourForms, HandComputedValues) {
  // Black and white points: Y 16 -> 0; Y 235 -> 1192*219 >> 10 = 254, (74*219 + 109) >> 6 = 254.
  EXPECT_EQ(One(16, 128, 128), (Rgb{0, 0, 0}));
  EXPECT_EQ(Wide(16, 128, 128), (Rgb{0, 0, 0}));
  EXPECT_EQ(One(235, 128, 128), (Rgb{254, 254, 254}));
  EXPECT_EQ(Wide(235, 128, 128), (Rgb{254, 254, 254}));
  // Y 100, V 200, U 50: R = (100128 + 117648) >> 10 = 212, G = 71352 >> 10 = 69, B < 0 -> 0;
  // wide: R = (6258 + 7344 + 9) >> 6 = 212, G = (6258 - 3744 - 4 + 1950) >> 6 = 69.
  EXPECT_EQ(One(100, 50, 200), (Rgb{212, 69, 0}));
  EXPECT_EQ(Wide(100, 50, 200), (Rgb{212, 69, 0}));
  // Luma below 16: the one-at-a-time form limits it to 16, the wide form does not:
  // R = 1634*127 >> 10 = 202 against (-447 + 12954 + 15) >> 6 = 195.
  EXPECT_EQ(One(10, 128, 255), (Rgb{202, 0, 0}));
  EXPECT_EQ(Wide(10, 128, 255), (Rgb{195, 0, 0}));
  // The wrap: B = 17805 + 15738 + 15 = 33558 passes 32767 in 16 bits and becomes negative.
  // G = 236088 >> 10 = 230 and 14755 >> 6 = 230.
  EXPECT_EQ(One(255, 250, 128), (Rgb{255, 230, 255}));
  EXPECT_EQ(Wide(255, 250, 128), (Rgb{255, 230, 0}));
}

TEST(ColourForms, GroupKernelsEqualReferenceOverAllTriples) {
  // Every (Y, U, V), eight at a time, through the scalar group row and (when built) the NEON
  // row: both must give the one-pixel reference of the wide form.
  uint8_t y[8], u[8], v[8], r[8], g[8], b[8];
  uint32_t mismatchC = 0, mismatchNeon = 0;
  for (uint32_t base = 0; base < (1u << 24); base += 8) {
    for (uint32_t i = 0; i < 8; ++i) {
      const uint32_t t = base + i;
      y[i] = static_cast<uint8_t>(t >> 16);
      u[i] = static_cast<uint8_t>(t >> 8);
      v[i] = static_cast<uint8_t>(t);
    }
    const Nv21Group8 grp = FlatGroup(y, u, v);
    uint8_t ref[8][3];
    for (int i = 0; i < 8; ++i) YuvToRgbWide(y[i], u[i], v[i], ref[i]);
    Nv21Group8ToRgb_C(grp, r, g, b);
    for (int i = 0; i < 8; ++i)
      mismatchC += (r[i] != ref[i][0]) + (g[i] != ref[i][1]) + (b[i] != ref[i][2]);
#if ZY_HAVE_NEON
    Nv21Group8ToRgb_NEON(grp, r, g, b);
    for (int i = 0; i < 8; ++i)
      mismatchNeon += (r[i] != ref[i][0]) + (g[i] != ref[i][1]) + (b[i] != ref[i][2]);
#endif
  }
  EXPECT_EQ(mismatchC, 0u);
  EXPECT_EQ(mismatchNeon, 0u);
}

TEST(ColourForms, GroupAveragesPairsFirst) {
  // Luma 100, 101 over 100, 100: pairs give 101 and 100, then 101 (a four-way rounded mean
  // would give 100). Y 101 -> (74*85 + 42) >> 6 = 98; Y 100 would give 97.
  const uint8_t y[8] = {100, 100, 100, 100, 100, 100, 100, 100};
  const uint8_t c[8] = {128, 128, 128, 128, 128, 128, 128, 128};
  Nv21Group8 grp = FlatGroup(y, c, c);
  grp.lumaTop[1] = 101;
  // V pairs 0, 1 over 0, 0 for pixel 1 -> V 1; U pairs of pixel 2 likewise.
  grp.chromaTop[4 + 2] = 1;
  grp.chromaTop[4 + 0] = grp.chromaBottom[4 + 0] = grp.chromaBottom[4 + 2] = 0;
  grp.chromaTop[8 + 3] = 1;
  grp.chromaTop[8 + 1] = grp.chromaBottom[8 + 1] = grp.chromaBottom[8 + 3] = 0;
  uint8_t r[8], g[8], b[8];
  Nv21Group8ToRgb_C(grp, r, g, b);
  EXPECT_EQ(r[0], 98);
  EXPECT_EQ(r[1], Wide(100, 128, 1)[0]);
  EXPECT_EQ(b[2], Wide(100, 1, 128)[2]);
#if ZY_HAVE_NEON
  uint8_t rn[8], gn[8], bn[8];
  Nv21Group8ToRgb_NEON(grp, rn, gn, bn);
  EXPECT_EQ(0, std::memcmp(r, rn, 8));
  EXPECT_EQ(0, std::memcmp(g, gn, 8));
  EXPECT_EQ(0, std::memcmp(b, bn, 8));

  // Random gathered bytes: the averaging must agree as well.
  TestRng rng(7);
  int mismatches = 0;
  for (int n = 0; n < 200000; ++n) {
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&grp);
    for (size_t i = 0; i < sizeof grp; ++i) bytes[i] = static_cast<uint8_t>(rng.Next());
    Nv21Group8ToRgb_C(grp, r, g, b);
    Nv21Group8ToRgb_NEON(grp, rn, gn, bn);
    mismatches +=
        std::memcmp(r, rn, 8) != 0 || std::memcmp(g, gn, 8) != 0 || std::memcmp(b, bn, 8) != 0;
  }
  EXPECT_EQ(mismatches, 0);
#endif
}

}  // namespace
