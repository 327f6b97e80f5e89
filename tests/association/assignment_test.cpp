#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "association/hungarian.h"
#include "association/kuhn_munkres.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

using Ids = std::vector<int32_t>;
using Matrix = std::vector<std::vector<float>>;
const float kInf = std::numeric_limits<float>::infinity();

// m in the callers' 30 x 30 row-major layout; cells outside the block hold `outside`, which
// no solve may use.
std::vector<float> Layout(const Matrix& m, float outside) {
  std::vector<float> c(kCostStride * kCostStride, outside);
  for (size_t r = 0; r < m.size(); ++r) std::copy(m[r].begin(), m[r].end(), c.begin() + r * kCostStride);
  return c;
}

float Solve(const Matrix& m, Ids& a) {
  a.assign(kCostStride, 55);
  HungarianAlgorithm solver;
  return solver.Solve(Layout(m, 1000.0f).data(), int(m.size()), int(m[0].size()), a.data());
}

// Returns the first m.size() match entries, after checking that the other rows were reset.
float Match(const Matrix& m, Ids& out) {
  Ids match(kCostStride, 77);
  const float total = KuhnMunkresMatch(Layout(m, -5.0f).data(), int(m.size()), int(m[0].size()), match.data());
  for (size_t i = m.size(); i < match.size(); ++i) EXPECT_EQ(match[i], -1);
  out.assign(match.begin(), match.begin() + long(m.size()));
  return total;
}

// Best total over assignments of min(rows, cols) pairs (sign -1: the largest total of any
// matching), by brute force.
double Best(const Matrix& m, double sign, size_t row = 0, unsigned used = 0, int skips = 0) {
  if (row == m.size()) return 0.0;
  double best = skips > 0 ? Best(m, sign, row + 1, used, skips - 1) : kInf;
  for (size_t col = 0; col < m[row].size(); ++col) {
    if ((used & (1u << col)) == 0) best = std::min(best, sign * m[row][col] + Best(m, sign, row + 1, used | (1u << col), skips));
  }
  return best;
}

// Random matrices up to 8 x 8 (wide: no more rows than columns): even trials small integers
// lo..lo + 6 (exact, full of ties), odd ones floats from lo.
template <typename Check>
void ForRandomMatrices(uint32_t seed, bool wide, float lo, Check check) {
  TestRng rng(seed);
  for (int rows = 1; rows <= 8; ++rows) {
    for (int cols = wide ? rows : 1; cols <= 8; ++cols) {
      for (int trial = 0; trial < 12; ++trial) {
        Matrix m(static_cast<size_t>(rows), std::vector<float>(static_cast<size_t>(cols)));
        for (auto& row : m)
          for (float& v : row) v = trial % 2 == 0 ? float(rng.Uniform(int(lo), int(lo) + 6)) : lo + float(rng.Next() % 100000u) / 7e4f;
        SCOPED_TRACE(::testing::Message() << rows << "x" << cols << " trial " << trial);
        check(m, trial % 2 == 0);
      }
    }
  }
}

// A valid assignment (each column at most once, in range) of `pairs` rows; returns its sum.
float CheckAssignment(const Matrix& m, const Ids& a, size_t pairs) {
  std::vector<int> seen(m[0].size(), 0);
  size_t assigned = 0;
  float sum = 0.0f;
  for (size_t r = 0; r < m.size(); ++r) {
    EXPECT_TRUE(a[r] >= -1 && a[r] < int(m[0].size())) << a[r];
    if (a[r] < 0 || a[r] >= int(m[0].size())) continue;
    EXPECT_EQ(seen[size_t(a[r])]++, 0) << "column given twice";
    ++assigned;
    sum += m[r][size_t(a[r])];
  }
  EXPECT_EQ(assigned, pairs);
  return sum;
}

TEST(Hungarian, RandomMatricesReachTheBruteForceOptimum) {
  ForRandomMatrices(20261121u, false, 0.0f, [](const Matrix& m, bool integers) {
    Ids a;
    const float cost = Solve(m, a);
    EXPECT_EQ(cost, CheckAssignment(m, a, std::min(m.size(), m[0].size())));  // the unreduced sum
    EXPECT_EQ(a[m.size()], 55) << "wrote past nRows";
    EXPECT_NEAR(cost, Best(m, 1.0, 0, 0, std::max(0, int(m.size()) - int(m[0].size()))), integers ? 0.0 : 1e-4);
  });
}

// With no more left than right vertices and every weight positive, the labelling method
// reaches the maximum; float weights may need many label updates.
TEST(KuhnMunkres, CompletePositiveMatricesReachTheBruteForceMaximum) {
  ForRandomMatrices(77u, true, 1.0f, [](const Matrix& m, bool integers) {
    Ids match;
    const float total = Match(m, match);
    EXPECT_EQ(total, CheckAssignment(m, match, m.size()));
    EXPECT_NEAR(total, -Best(m, -1.0), integers ? 0.0 : 1e-3);
  });
}

struct Known {
  const char* what;
  Matrix m;
  Ids expected;
  float total;
};

TEST(Hungarian, TieBreaksAndKnownAnswers) {
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

TEST(KuhnMunkres, KnownAnswers) {
  const float justBelowInf = 1061109504.0f;  // the float before KM_INF, still usable
  const Known cases[] = {
      {"zero, negative, KM_INF and beyond are never used", {{0, -3, KM_INF, 2e9f}}, {-1}, 0.0f},
      {"the largest usable weight wins", {{KM_INF, 3, justBelowInf}, {0, -1, 0}}, {2, -1}, justBelowInf},
      {"both prefer column 0: the second takes column 1 after a label change", {{10, 1}, {9, 2}}, {0, 1}, 12.0f},
      {"the second cannot use column 1: the first moves there", {{10, 1}, {9, 0}}, {1, 0}, 10.0f},
      {"neither can move: the second stays out", {{10, 0}, {9, 0}}, {0, -1}, 10.0f},
      // More left than right vertices: once no usable edge leaves the search tree the
      // earlier vertex keeps its partner, so the routine is no maximiser there.
      {"more left than right", {{1}, {5}}, {0, -1}, 1.0f},
  };
  for (const Known& c : cases) {
    Ids match;
    EXPECT_EQ(Match(c.m, match), c.total) << c.what;
    EXPECT_EQ(match, c.expected) << c.what;
  }
  const std::vector<float> w(kCostStride * kCostStride, 5.0f);
  Ids untouched(kCostStride, 77);
  for (auto [nLeft, nRight, weights, match] :
       {std::tuple{0, 1, w.data(), untouched.data()}, {1, 0, w.data(), untouched.data()}, {1, 1, w.data(), nullptr},
        {1, 1, nullptr, untouched.data()}, {31, 1, w.data(), untouched.data()}, {1, 31, w.data(), untouched.data()}}) {
    EXPECT_EQ(KuhnMunkresMatch(weights, nLeft, nRight, match), 0.0f) << nLeft << "x" << nRight;
  }
  EXPECT_EQ(untouched, Ids(kCostStride, 77));
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

}  // namespace
