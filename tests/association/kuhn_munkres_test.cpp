#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "association/kuhn_munkres.h"
#include "support/nv21_frames.h"

namespace {

constexpr int kSide = 30;

struct Weights {
  float w[kSide * kSide] = {};
  float& at(int u, int v) { return w[u * kSide + v]; }
};

std::vector<int32_t> Matched(const int32_t* match, int n) { return {match, match + n}; }

// Largest total over all matchings (any left vertex may stay out).
double BruteForceMax(Weights& w, int nLeft, int nRight, int u, unsigned used) {
  if (u == nLeft) return 0.0;
  double best = BruteForceMax(w, nLeft, nRight, u + 1, used);
  for (int v = 0; v < nRight; ++v) {
    if (used & (1u << v)) continue;
    best = std::max(best, w.at(u, v) + BruteForceMax(w, nLeft, nRight, u + 1, used | (1u << v)));
  }
  return best;
}

TEST(KuhnMunkres, SinglePairAndTheFilledMatchArray) {
  Weights w;
  w.at(0, 0) = 5.0f;
  int32_t match[kSide];
  std::fill(std::begin(match), std::end(match), 77);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 1, match), 5.0f);
  EXPECT_EQ(match[0], 0);
  for (int i = 1; i < kSide; ++i) ASSERT_EQ(match[i], -1) << i;  // all 30 entries are reset
}

TEST(KuhnMunkres, BadArgumentsWriteNothing) {
  Weights w;
  w.at(0, 0) = 5.0f;
  int32_t match[kSide];
  std::fill(std::begin(match), std::end(match), 77);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 0, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 0, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 1, nullptr), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(nullptr, 1, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 31, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 31, match), 0.0f);
  for (int32_t m : match) ASSERT_EQ(m, 77);
}

TEST(KuhnMunkres, WeightsOutsideTheWindowAreNeverUsed) {
  Weights w;
  int32_t match[kSide];
  // Zero, negative, KM_INF and beyond: nothing usable, nothing matched.
  w.at(0, 0) = 0.0f;
  w.at(0, 1) = -3.0f;
  w.at(0, 2) = KM_INF;
  w.at(0, 3) = 2e9f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 4, match), 0.0f);
  EXPECT_EQ(match[0], -1);
  // The largest usable weight wins even beside larger unusable ones; a row of unusable
  // weights stays out.
  w.at(0, 4) = 3.0f;
  w.at(0, 5) = 1061109504.0f;  // the float just below KM_INF is usable
  w.at(1, 4) = -1.0f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 2, 5, match), 3.0f);
  EXPECT_EQ(Matched(match, 2), (std::vector<int32_t>{4, -1}));
  EXPECT_EQ(KuhnMunkresMatch(w.w, 1, 6, match), 1061109504.0f);
  EXPECT_EQ(match[0], 5);
}

TEST(KuhnMunkres, TwoLeftVerticesWantingOneRightVertex) {
  Weights w;
  int32_t match[kSide];
  // Both prefer column 0; after a label change the second takes column 1.
  w.at(0, 0) = 10.0f;
  w.at(0, 1) = 1.0f;
  w.at(1, 0) = 9.0f;
  w.at(1, 1) = 2.0f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 2, 2, match), 12.0f);
  EXPECT_EQ(Matched(match, 2), (std::vector<int32_t>{0, 1}));
  // The second cannot use column 1: the first moves there instead.
  w.at(1, 1) = 0.0f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 2, 2, match), 10.0f);
  EXPECT_EQ(Matched(match, 2), (std::vector<int32_t>{1, 0}));
  // Neither can move: the second stays out.
  w.at(0, 1) = 0.0f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 2, 2, match), 10.0f);
  EXPECT_EQ(Matched(match, 2), (std::vector<int32_t>{0, -1}));
}

// With no more left than right vertices and every weight positive, the labelling method
// finds the maximum.
TEST(KuhnMunkres, CompletePositiveMatricesReachTheBruteForceMaximum) {
  TestRng rng(77u);
  for (int nLeft = 1; nLeft <= 8; ++nLeft) {
    for (int nRight = nLeft; nRight <= 8; ++nRight) {
      for (int trial = 0; trial < 12; ++trial) {
        const bool integers = trial % 2 == 0;
        Weights w;
        for (float& x : w.w) x = -5.0f;  // outside the block: never read as usable
        for (int u = 0; u < nLeft; ++u)
          for (int v = 0; v < nRight; ++v)
            w.at(u, v) = integers ? static_cast<float>(rng.Uniform(1, 9))
                                  : static_cast<float>(rng.Next() % 100000u + 1u) / 1000.0f;
        int32_t match[kSide];
        const float total = KuhnMunkresMatch(w.w, nLeft, nRight, match);
        SCOPED_TRACE(::testing::Message() << nLeft << "x" << nRight << " trial " << trial);
        std::vector<int> seen(static_cast<size_t>(nRight), 0);
        float sum = 0.0f;
        for (int u = 0; u < nLeft; ++u) {
          ASSERT_GE(match[u], 0);  // positive weights: every left vertex finds a partner
          ASSERT_LT(match[u], nRight);
          ASSERT_EQ(seen[static_cast<size_t>(match[u])]++, 0);
          sum += w.at(u, match[u]);
        }
        EXPECT_EQ(total, sum);
        const double best = BruteForceMax(w, nLeft, nRight, 0, 0u);
        if (integers) {
          EXPECT_EQ(static_cast<double>(total), best);
        } else {
          EXPECT_NEAR(static_cast<double>(total), best, 1e-3);
        }
      }
    }
  }
}

// With more left than right vertices the earlier left vertex keeps what it holds once no
// usable edge leaves the search tree: the routine is not a maximiser there.
TEST(KuhnMunkres, MoreLeftThanRightKeepsEarlierMatches) {
  Weights w;
  int32_t match[kSide];
  w.at(0, 0) = 1.0f;
  w.at(1, 0) = 5.0f;
  EXPECT_EQ(KuhnMunkresMatch(w.w, 2, 1, match), 1.0f);
  EXPECT_EQ(Matched(match, 2), (std::vector<int32_t>{0, -1}));
}

}  // namespace
