#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "association/hungarian.h"
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

// Least total over assignments of min(rows, cols) pairs (`skips` rows may stay out), by brute
// force.
double Best(const Matrix& m, size_t row, unsigned used, int skips) {
  if (row == m.size()) return 0.0;
  double best = skips > 0 ? Best(m, row + 1, used, skips - 1) : kInf;
  for (size_t col = 0; col < m[row].size(); ++col) {
    if ((used & (1u << col)) == 0) best = std::min(best, m[row][col] + Best(m, row + 1, used | (1u << col), skips));
  }
  return best;
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

// Random matrices up to 8 x 8: even trials small integers 0..6 (exact, full of ties), odd ones
// floats.
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
        EXPECT_EQ(cost, CheckAssignment(m, a, std::min(m.size(), m[0].size())));  // the unreduced sum
        EXPECT_EQ(a[m.size()], 55) << "wrote past nRows";
        EXPECT_NEAR(cost, Best(m, 0, 0, std::max(0, rows - cols)), trial % 2 == 0 ? 0.0 : 1e-4);
      }
    }
  }
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
