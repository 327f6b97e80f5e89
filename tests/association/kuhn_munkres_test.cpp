#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "association/kuhn_munkres.h"
#include "support/nv21_frames.h"

namespace {

using Ids = std::vector<int32_t>;
using Matrix = std::vector<std::vector<float>>;
constexpr int kSide = 30;

// Runs the matcher on m laid out with row stride 30; returns the total and the first
// m.size() match entries, after checking that all 30 were reset.
float Match(const Matrix& m, Ids& out, int nRight = -1) {
  std::vector<float> w(kSide * kSide, -5.0f);  // outside the block: never usable
  for (size_t u = 0; u < m.size(); ++u)
    for (size_t v = 0; v < m[u].size(); ++v) w[u * kSide + v] = m[u][v];
  int32_t match[kSide];
  std::fill(std::begin(match), std::end(match), 77);
  const float total = KuhnMunkresMatch(w.data(), static_cast<int>(m.size()),
                                       nRight < 0 ? static_cast<int>(m[0].size()) : nRight, match);
  for (size_t i = m.size(); i < kSide; ++i) EXPECT_EQ(match[i], -1);
  out.assign(match, match + m.size());
  return total;
}

double BruteForceMax(const Matrix& m, size_t u, unsigned used) {
  if (u == m.size()) return 0.0;
  double best = BruteForceMax(m, u + 1, used);
  for (size_t v = 0; v < m[u].size(); ++v) {
    if ((used & (1u << v)) == 0) best = std::max(best, m[u][v] + BruteForceMax(m, u + 1, used | (1u << v)));
  }
  return best;
}

TEST(KuhnMunkres, KnownAnswers) {
  const float justBelowInf = 1061109504.0f;  // the float before KM_INF, still usable
  struct Case {
    const char* what;
    Matrix m;
    Ids expected;
    float total;
  };
  const Case cases[] = {
      {"single pair", {{5}}, {0}, 5.0f},
      {"zero, negative, KM_INF and beyond are never used", {{0, -3, KM_INF, 2e9f}}, {-1}, 0.0f},
      {"the largest usable weight wins", {{KM_INF, 3, justBelowInf}, {0, -1, 0}}, {2, -1}, justBelowInf},
      {"both prefer column 0: the second takes column 1 after a label change", {{10, 1}, {9, 2}}, {0, 1}, 12.0f},
      {"the second cannot use column 1: the first moves there", {{10, 1}, {9, 0}}, {1, 0}, 10.0f},
      {"neither can move: the second stays out", {{10, 0}, {9, 0}}, {0, -1}, 10.0f},
      // More left than right vertices: once no usable edge leaves the search tree the
      // earlier vertex keeps its partner, so the routine is no maximiser there.
      {"more left than right", {{1}, {5}}, {0, -1}, 1.0f},
  };
  for (const Case& c : cases) {
    Ids match;
    EXPECT_EQ(Match(c.m, match), c.total) << c.what;
    EXPECT_EQ(match, c.expected) << c.what;
  }
}

TEST(KuhnMunkres, BadArgumentsWriteNothing) {
  std::vector<float> w(kSide * kSide, 5.0f);
  int32_t match[kSide];
  std::fill(std::begin(match), std::end(match), 77);
  EXPECT_EQ(KuhnMunkresMatch(w.data(), 0, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.data(), 1, 0, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.data(), 1, 1, nullptr), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(nullptr, 1, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.data(), 31, 1, match), 0.0f);
  EXPECT_EQ(KuhnMunkresMatch(w.data(), 1, 31, match), 0.0f);
  for (int32_t m : match) ASSERT_EQ(m, 77);
}

// With no more left than right vertices and every weight positive, the labelling method
// reaches the maximum; float weights may need many label updates (some cases here do).
TEST(KuhnMunkres, CompletePositiveMatricesReachTheBruteForceMaximum) {
  TestRng rng(77u);
  for (size_t nLeft = 1; nLeft <= 8; ++nLeft) {
    for (size_t nRight = nLeft; nRight <= 8; ++nRight) {
      for (int trial = 0; trial < 12; ++trial) {
        const bool integers = trial % 2 == 0;
        Matrix m(nLeft, std::vector<float>(nRight));
        for (auto& row : m)
          for (float& v : row)
            v = integers ? static_cast<float>(rng.Uniform(1, 9))
                         : static_cast<float>(rng.Next() % 100000u + 1u) / 1e3f;
        Ids match;
        const float total = Match(m, match);
        SCOPED_TRACE(::testing::Message() << nLeft << "x" << nRight << " trial " << trial);
        std::vector<int> seen(nRight, 0);
        float sum = 0.0f;
        for (size_t u = 0; u < nLeft; ++u) {
          ASSERT_GE(match[u], 0);
          ASSERT_LT(match[u], static_cast<int32_t>(nRight));
          ASSERT_EQ(seen[static_cast<size_t>(match[u])]++, 0);
          sum += m[u][static_cast<size_t>(match[u])];
        }
        EXPECT_EQ(total, sum);
        EXPECT_NEAR(static_cast<double>(total), BruteForceMax(m, 0, 0u), integers ? 0.0 : 1e-3);
      }
    }
  }
}

}  // namespace
