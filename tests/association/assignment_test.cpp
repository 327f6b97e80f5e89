// The two matchers: the assignment (least cost) and the Kuhn-Munkres match (greatest weight),
// swept over random matrices against brute force, the assignment's tie-breaks and refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "association/hungarian.h"
#include "association/kuhn_munkres.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

using Ids = std::vector<int32_t>;
using Matrix = std::vector<std::vector<float>>;
const float kInf = std::numeric_limits<float>::infinity();

// The best (pairs, score) over every matching of rows to distinct columns, most pairs first,
// then the greatest sum of gain(row, column) (NaN: no edge); dynamic programming over the set
// of columns taken (up to 8 columns).
template <class Gain>
std::pair<int, double> BruteForce(int rows, int cols, Gain gain) {
  std::vector<std::pair<int, double>> best(1u << cols, {-1, 0.0});
  best[0] = {0, 0.0};
  for (int r = 0; r < rows; ++r) {
    std::vector<std::pair<int, double>> next = best;  // r left out
    for (unsigned mask = 0; mask < best.size(); ++mask) {
      for (int c = 0; c < cols && best[mask].first >= 0; ++c) {
        const double g = gain(r, c);
        if ((mask >> c & 1) || g != g) continue;
        next[mask | 1u << c] = std::max(next[mask | 1u << c], {best[mask].first + 1, best[mask].second + g});
      }
    }
    best = next;
  }
  return *std::max_element(best.begin(), best.end());
}

float Solve(const Matrix& m, Ids& a) {
  std::vector<float> c(kCostStride * kCostStride, 1000.0f);  // outside the block: never used
  for (size_t r = 0; r < m.size(); ++r) std::copy(m[r].begin(), m[r].end(), c.begin() + long(r) * kCostStride);
  a.assign(kCostStride, 55);
  HungarianAlgorithm solver;
  return solver.Solve(c.data(), int(m.size()), int(m[0].size()), a.data());
}

// Random matrices up to 8 x 8: even trials small integers 0..6 (exact, full of ties), odd ones
// floats. The assignment is valid, its total the unreduced sum and the least there is.
TEST(Hungarian, RandomMatricesReachTheBruteForceOptimum) {
  SceneRng rng(20261121u);
  for (int rows = 1; rows <= 8; ++rows) {
    for (int cols = 1; cols <= 8; ++cols) {
      for (int trial = 0; trial < 12; ++trial) {
        Matrix m(static_cast<size_t>(rows), std::vector<float>(static_cast<size_t>(cols)));
        for (auto& row : m)
          for (float& v : row) v = trial % 2 == 0 ? float(rng.Uniform(0, 6)) : float(rng.Next() % 100000u) / 7e4f;
        SCOPED_TRACE(::testing::Message() << rows << "x" << cols << " trial " << trial);
        Ids a;
        const float cost = Solve(m, a);
        std::vector<int> seen(size_t(cols), 0);
        float sum = 0.0f;
        int pairs = 0;
        for (int r = 0; r < rows; ++r) {
          ASSERT_TRUE(a[size_t(r)] >= -1 && a[size_t(r)] < cols) << a[size_t(r)];
          if (a[size_t(r)] < 0) continue;
          EXPECT_EQ(seen[size_t(a[size_t(r)])]++, 0) << "column given twice";
          sum += m[size_t(r)][size_t(a[size_t(r)])];
          ++pairs;
        }
        EXPECT_EQ(pairs, std::min(rows, cols));
        EXPECT_EQ(cost, sum);
        EXPECT_EQ(a[size_t(rows)], 55) << "wrote past nRows";
        const auto best = BruteForce(rows, cols, [&](int r, int c) { return -double(m[size_t(r)][size_t(c)]); });
        EXPECT_NEAR(cost, -best.second, trial % 2 == 0 ? 0.0 : 1e-4);
      }
    }
  }
}

TEST(Hungarian, TieBreaksAndKnownAnswers) {
  struct Known { const char* what; Matrix m; Ids expected; float total; };
  const Known cases[] = {
      {"all equal: rows take columns in turn", {{.5f, .5f, .5f}, {.5f, .5f, .5f}, {.5f, .5f, .5f}}, {0, 1, 2}, 1.5f},
      {"a row of equal costs takes the first free column", {{0, 9, 9}, {3, 3, 3}}, {0, 1}, 3.0f},
      {"a tied row moved by the primes goes to the lowest column", {{2, 2, 2}, {1, 5, 5}}, {1, 0}, 3.0f},
      // After covering row 0, step 3 goes on with column 1 and primes (1, 1); restarting
      // the pass at column 0 would prime (1, 0) instead.
      {"a prime pass continues with the next column", {{1, 3, 3, 0}, {3, 3, 3, 2}}, {3, 1}, 3.0f},
      {"more rows than columns, all equal", {{1, 1}, {1, 1}, {1, 1}}, {0, 1, -1}, 2.0f},
      {"more rows than columns: a row is left out", {{5, 1}, {4, 7}, {0, 9}}, {1, -1, 0}, 1.0f},
      {"infinite elements avoided", {{kInf, 1}, {2, kInf}}, {1, 0}, 3.0f},
      // A row [x, 0] stars column 0 exactly when x passes the zero test |x| < 2.220446e-16.
      {"1e-20 is zero", {{1e-20f, 0}}, {0}, 1e-20f},
      {"2e-16 is zero", {{2e-16f, 0}}, {0}, 2e-16f},
      {"-0 is zero", {{-0.0f, 0}}, {0}, 0.0f},
      {"3e-16 is not zero", {{3e-16f, 0}}, {1}, 0.0f},
  };
  for (const Known& c : cases) {
    Ids a;
    EXPECT_EQ(Solve(c.m, a), c.total) << c.what;
    EXPECT_EQ(Ids(a.begin(), a.begin() + long(c.m.size())), c.expected) << c.what;
  }
}

TEST(Hungarian, RefusalsLeaveTheAssignmentUntouched) {
  const std::vector<float> halves(kCostStride * kCostStride, 0.5f);
  HungarianAlgorithm solver;
  for (auto [rows, cols, line] : {std::tuple{30, 5, "nRows"}, {0, 5, "nRows"}, {-3, 5, "nRows"}, {5, 30, "nCols"},
                                  {5, 0, "nCols"}, {30, 30, "nRows"}}) {
    LogCapture log;
    Ids a(kCostStride, 42);
    EXPECT_EQ(solver.Solve(halves.data(), rows, cols, a.data()), -1.0f);
    EXPECT_TRUE(log.Has(std::string("HungarianAlgorithm ") + line + " Error", ANDROID_LOG_ERROR)) << rows << "x" << cols;
    EXPECT_EQ(a, Ids(kCostStride, 42));
  }
  Ids a(kCostStride);
  EXPECT_EQ(solver.Solve(halves.data(), 29, 29, a.data()), 29 * 0.5f);  // the largest block
  EXPECT_EQ(solver.Solve(nullptr, 2, 2, a.data()), -1.0f);
  EXPECT_EQ(solver.Solve(halves.data(), 2, 2, nullptr), -1.0f);
  // 4 x 3 leaves a row out; a negative element fails the call wherever it lies.
  for (size_t cell = 0; cell < 12; ++cell) {
    Matrix m = {{0, 1, 2}, {1, 2, 3}, {2, 3, 4}, {3, 4, 5}};
    m[cell / 3][cell % 3] = -0.001f;
    LogCapture log;
    EXPECT_EQ(Solve(m, a), -1.0f);
    EXPECT_TRUE(log.Has("All matrix elements have to be non-negative.", ANDROID_LOG_ERROR));
    EXPECT_TRUE(log.Has(" func[AssignmentOptimal] failed. ret[-1]", ANDROID_LOG_ERROR));
    EXPECT_EQ(a, Ids(kCostStride, 55));
  }
  // A row with nothing finite can never be given a zero: refused rather than looped on.
  EXPECT_EQ(Solve({{kInf, kInf}, {1, 2}}, a), -1.0f);
  LogCapture log;
  float cost = 0.0f;
  EXPECT_EQ(AssignmentOptimal(a.data(), &cost, halves.data(), -1, -2), -1);  // a positive product
  EXPECT_TRUE(log.Has("nOfElements[2] not Valid. nOfRows[-1] nOfColumns[-2]", ANDROID_LOG_ERROR));
}

// Matrices up to 30 x 30 of small whole numbers, a quarter of them zero or negative (no
// edge), so every sum is exact; every tenth matrix takes fractional weights instead. 100,000
// matrices, 10,000 in the sanitizer builds; ZY_KM_MATRICES overrides.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kMatrices = 10000;
#else
constexpr int kMatrices = 100000;
#endif
TEST(KuhnMunkres, RandomMatricesEndAndReachTheOptimum) {
  const char* env = std::getenv("ZY_KM_MATRICES");
  const int count = env != nullptr ? std::atoi(env) : kMatrices;
  std::mt19937 rng(19);
  float w[30 * 30];
  auto usable = [](float x) { return x > 0.0f && x < KM_INF; };
  for (int m = 0; m < count; ++m) {
    const int limit = m % 4 == 0 ? 30 : 8;
    const int nLeft = 1 + static_cast<int>(rng() % limit), nRight = 1 + static_cast<int>(rng() % limit);
    const bool whole = m % 10 != 0;
    for (float& x : w) {
      x = whole ? static_cast<float>(static_cast<int>(rng() % 12) - 2) : std::uniform_real_distribution<float>(-3.0f, 100.0f)(rng);
    }
    int32_t match[30];
    int updates = -1;
    const float total = KuhnMunkresMatchCounted(w, nLeft, nRight, match, &updates);
    SCOPED_TRACE(testing::Message() << "matrix " << m << ": " << nLeft << " x " << nRight);
    // Every label change reaches one more right vertex for the vertex being placed; with
    // fractions rounding can loosen a tight edge and cost more changes, up to the cap.
    ASSERT_LE(updates, whole ? nLeft * nRight : nLeft * kKmMaxChangesPerVertex);
    int32_t taken[30] = {};
    int pairs = 0;
    for (int u = 0; u < nLeft; ++u) {
      if (match[u] == -1) continue;
      ASSERT_TRUE(match[u] >= 0 && match[u] < nRight && usable(w[u * 30 + match[u]]));
      ASSERT_EQ(taken[match[u]]++, 0);
      ++pairs;
    }
    if (!whole || nLeft > 8 || nRight > 8) continue;
    // Kuhn's order of augmentations gives the most pairs there are. When those pairs cover
    // every left vertex, the labels make the weight the largest of all such matchings;
    // otherwise a vertex whose search finds no way out is given up whatever its weights, so
    // an earlier, lighter vertex may keep the place (8 x 1 with weights 5 then 7 gives 5).
    const auto best = BruteForce(nLeft, nRight, [&](int u, int v) {
      return usable(w[u * 30 + v]) ? double(w[u * 30 + v]) : std::numeric_limits<double>::quiet_NaN();
    });
    ASSERT_EQ(pairs, best.first);
    if (pairs == nLeft) {
      ASSERT_EQ(total, best.second);
    } else {
      ASSERT_LE(total, best.second);
    }
  }
}

}  // namespace
