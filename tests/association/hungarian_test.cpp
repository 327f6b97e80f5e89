#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "association/hungarian.h"
#include "common/zy_alloc.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

using Matrix = std::vector<std::vector<float>>;
const float kInf = std::numeric_limits<float>::infinity();

// The caller's 30 x 30 row-major matrix; cells outside the block hold a value no solve may read.
std::vector<float> Layout(const Matrix& m) {
  std::vector<float> c(kCostStride * kCostStride, 1000.0f);
  for (size_t r = 0; r < m.size(); ++r)
    for (size_t col = 0; col < m[r].size(); ++col) c[r * kCostStride + col] = m[r][col];
  return c;
}

float Solve(const Matrix& m, std::vector<int32_t>& a) {
  a.assign(kCostStride, 55);
  HungarianAlgorithm solver;
  return solver.Solve(Layout(m).data(), static_cast<int>(m.size()), static_cast<int>(m[0].size()), a.data());
}

// Least total over every assignment of min(rows, cols) pairs.
double BruteForceMin(const Matrix& m, size_t row, unsigned used, int skips) {
  if (row == m.size()) return 0.0;
  double best = skips > 0 ? BruteForceMin(m, row + 1, used, skips - 1) : std::numeric_limits<double>::infinity();
  for (size_t col = 0; col < m[row].size(); ++col) {
    if ((used & (1u << col)) != 0) continue;
    best = std::min(best, m[row][col] + BruteForceMin(m, row + 1, used | (1u << col), skips));
  }
  return best;
}

TEST(Hungarian, RandomMatricesReachTheBruteForceOptimum) {
  TestRng rng(20261121u);
  for (int rows = 1; rows <= 8; ++rows) {
    for (int cols = 1; cols <= 8; ++cols) {
      for (int trial = 0; trial < 12; ++trial) {
        const bool integers = trial % 2 == 0;  // small integers: exact and full of ties
        Matrix m(static_cast<size_t>(rows), std::vector<float>(static_cast<size_t>(cols)));
        for (auto& row : m)
          for (float& v : row)
            v = integers ? static_cast<float>(rng.Uniform(0, 6)) : static_cast<float>(rng.Next() % 100000u) / 7e4f;
        std::vector<int32_t> a;
        const float cost = Solve(m, a);
        SCOPED_TRACE(::testing::Message() << rows << "x" << cols << " trial " << trial);
        // A valid assignment of min(rows, cols) pairs, whose unreduced sum is the cost.
        std::vector<int> seen(static_cast<size_t>(cols), 0);
        int assigned = 0;
        float sum = 0.0f;
        for (int r = 0; r < rows; ++r) {
          ASSERT_GE(a[r], -1);
          ASSERT_LT(a[r], cols);
          if (a[r] < 0) continue;
          ASSERT_EQ(seen[static_cast<size_t>(a[r])]++, 0) << "column given twice";
          ++assigned;
          sum += m[static_cast<size_t>(r)][static_cast<size_t>(a[r])];
        }
        EXPECT_EQ(assigned, std::min(rows, cols));
        EXPECT_EQ(cost, sum);
        EXPECT_EQ(a[static_cast<size_t>(rows)], 55) << "wrote past nRows";
        const double best = BruteForceMin(m, 0, 0u, std::max(0, rows - cols));
        EXPECT_NEAR(static_cast<double>(cost), best, integers ? 0.0 : 1e-4);
      }
    }
  }
}

TEST(Hungarian, TieBreaksAndKnownAnswers) {
  struct Case {
    const char* what;
    Matrix m;
    std::vector<int32_t> expected;
    float cost;
  };
  const Case cases[] = {
      {"all equal: rows take columns in turn", {{.5f, .5f, .5f}, {.5f, .5f, .5f}, {.5f, .5f, .5f}}, {0, 1, 2},
       1.5f},
      {"a row of equal costs takes the first free column", {{0, 9, 9}, {3, 3, 3}}, {0, 1}, 3.0f},
      {"a tied row moved by the primes goes to the lowest column", {{2, 2, 2}, {1, 5, 5}}, {1, 0}, 3.0f},
      // After covering row 0, step 3 goes on with column 1 and primes (1, 1); restarting
      // the pass at column 0 would prime (1, 0) instead.
      {"a prime pass continues with the next column", {{1, 3, 3, 0}, {3, 3, 3, 2}}, {3, 1}, 3.0f},
      {"more rows than columns, all equal", {{1, 1}, {1, 1}, {1, 1}}, {0, 1, -1}, 2.0f},
      {"more rows than columns: a row is left out", {{5, 1}, {4, 7}, {0, 9}}, {1, -1, 0}, 1.0f},
      {"1 x 1", {{0.25f}}, {0}, 0.25f},
      {"infinite elements avoided", {{kInf, 1}, {2, kInf}}, {1, 0}, 3.0f},
      // A row [x, 0] stars column 0 exactly when x passes the zero test |x| < 2.220446e-16.
      {"1e-20 is zero", {{1e-20f, 0}}, {0}, 1e-20f},
      {"2e-16 is zero", {{2e-16f, 0}}, {0}, 2e-16f},
      {"-0 is zero", {{-0.0f, 0}}, {0}, 0.0f},
      {"3e-16 is not zero", {{3e-16f, 0}}, {1}, 0.0f},
      {"1e-10 is not zero", {{1e-10f, 0}}, {1}, 0.0f},
  };
  for (const Case& c : cases) {
    std::vector<int32_t> a;
    EXPECT_EQ(Solve(c.m, a), c.cost) << c.what;
    EXPECT_EQ(std::vector<int32_t>(a.begin(), a.begin() + static_cast<long>(c.m.size())), c.expected) << c.what;
  }
}

TEST(Hungarian, RefusalsLeaveTheAssignmentUntouched) {
  const std::vector<float> halves(kCostStride * kCostStride, 0.5f);
  struct Case {
    int rows, cols;
    const char* line;
  };
  const Case counts[] = {{30, 5, "HungarianAlgorithm nRows Error"}, {0, 5, "HungarianAlgorithm nRows Error"},
                         {-3, 5, "HungarianAlgorithm nRows Error"}, {5, 30, "HungarianAlgorithm nCols Error"},
                         {5, 0, "HungarianAlgorithm nCols Error"},  {30, 30, "HungarianAlgorithm nRows Error"}};
  HungarianAlgorithm solver;
  for (const Case& c : counts) {
    LogCapture log;
    std::vector<int32_t> a(kCostStride, 42);
    EXPECT_EQ(solver.Solve(halves.data(), c.rows, c.cols, a.data()), -1.0f);
    EXPECT_TRUE(log.Has(c.line, ANDROID_LOG_ERROR)) << c.line;
    EXPECT_EQ(a, std::vector<int32_t>(kCostStride, 42));
  }
  std::vector<int32_t> a(kCostStride);
  EXPECT_EQ(solver.Solve(halves.data(), 29, 29, a.data()), 29 * 0.5f);  // the largest block
  EXPECT_EQ(solver.Solve(nullptr, 2, 2, a.data()), -1.0f);
  EXPECT_EQ(solver.Solve(halves.data(), 2, 2, nullptr), -1.0f);

  // 4 x 3 leaves a row out; a negative element fails the call wherever it lies.
  for (size_t r = 0; r < 4; ++r) {
    for (size_t col = 0; col < 3; ++col) {
      Matrix m = {{0, 1, 2}, {1, 2, 3}, {2, 3, 4}, {3, 4, 5}};
      m[r][col] = -0.001f;
      LogCapture log;
      EXPECT_EQ(Solve(m, a), -1.0f);
      EXPECT_TRUE(log.Has("All matrix elements have to be non-negative.", ANDROID_LOG_ERROR));
      EXPECT_TRUE(log.Has(" func[AssignmentOptimal] failed. ret[-1]", ANDROID_LOG_ERROR));
      EXPECT_EQ(a, std::vector<int32_t>(kCostStride, 55));
    }
  }
  // A row with nothing finite can never be given a zero: refused rather than looped on.
  EXPECT_EQ(Solve({{kInf, kInf}, {1, 2}}, a), -1.0f);

  LogCapture log;
  float cost = 0.0f;
  EXPECT_EQ(AssignmentOptimal(a.data(), &cost, halves.data(), -1, -2), -1);  // a positive product
  EXPECT_TRUE(log.Has("nOfElements[2] not Valid. nOfRows[-1] nOfColumns[-2]", ANDROID_LOG_ERROR));
}

TEST(Hungarian, FailedAllocationsFailTheSolveCleanly) {
  const Matrix m = {{0, 1, 2}, {3, 0, 1}, {2, 3, 0}};
  std::vector<int32_t> a;
  const long before = zy::AllocationCount();
  ASSERT_EQ(Solve(m, a), 0.0f);
  const long points = zy::AllocationCount() - before;
  ASSERT_GE(points, 2);
  for (long k = 1; k <= points; ++k) {
    zy::FailNthAllocation(static_cast<int>(k));
    EXPECT_EQ(Solve(m, a), -1.0f) << "allocation " << k;
    zy::FailNthAllocation(0);
    EXPECT_EQ(a, std::vector<int32_t>(kCostStride, 55));
  }
}

}  // namespace
