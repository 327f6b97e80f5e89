#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "association/hungarian.h"
#include "common/zy_alloc.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

constexpr int kError = ANDROID_LOG_ERROR;

// A caller's cost matrix: 30 x 30, row-major, filled with a value no solve may read.
struct Costs {
  float m[kCostStride * kCostStride];
  Costs() { std::fill(std::begin(m), std::end(m), 1000.0f); }
  float& at(int r, int c) { return m[r * kCostStride + c]; }
};

// Least total over every assignment of min(rows, cols) pairs: each row takes a free column
// or, when there are more rows than columns, may be skipped.
double BruteForceMin(Costs& c, int rows, int cols, int row, unsigned used, int skips) {
  if (row == rows) return 0.0;
  double best = std::numeric_limits<double>::infinity();
  if (skips > 0) best = BruteForceMin(c, rows, cols, row + 1, used, skips - 1);
  for (int col = 0; col < cols; ++col) {
    if (used & (1u << col)) continue;
    best = std::min(best, c.at(row, col) + BruteForceMin(c, rows, cols, row + 1, used | (1u << col), skips));
  }
  return best;
}

// The solver's own answer must be a valid assignment whose cost is what it returned.
void CheckConsistent(Costs& c, int rows, int cols, const int32_t* a, float cost) {
  std::vector<int> seen(static_cast<size_t>(cols), 0);
  int assigned = 0;
  float sum = 0.0f;
  for (int r = 0; r < rows; ++r) {
    ASSERT_GE(a[r], -1);
    ASSERT_LT(a[r], cols);
    if (a[r] < 0) continue;
    ASSERT_EQ(seen[static_cast<size_t>(a[r])]++, 0) << "column given twice";
    ++assigned;
    sum += c.at(r, a[r]);
  }
  EXPECT_EQ(assigned, std::min(rows, cols));
  EXPECT_EQ(cost, sum);  // summed from the unreduced matrix in row order
}

TEST(Hungarian, RandomMatricesReachTheBruteForceOptimum) {
  HungarianAlgorithm solver;
  TestRng rng(20261121u);
  for (int rows = 1; rows <= 8; ++rows) {
    for (int cols = 1; cols <= 8; ++cols) {
      for (int trial = 0; trial < 12; ++trial) {
        // Even trials: small integers, exact in float and full of ties. Odd trials: floats.
        const bool integers = trial % 2 == 0;
        Costs c;
        for (int r = 0; r < rows; ++r) {
          for (int col = 0; col < cols; ++col) {
            c.at(r, col) = integers ? static_cast<float>(rng.Uniform(0, 6))
                                    : static_cast<float>(rng.Next() % 100000u) / 70000.0f;
          }
        }
        int32_t a[kCostStride];
        std::fill(std::begin(a), std::end(a), 55);
        const float cost = solver.Solve(c.m, rows, cols, a);
        SCOPED_TRACE(::testing::Message() << rows << "x" << cols << " trial " << trial);
        CheckConsistent(c, rows, cols, a, cost);
        EXPECT_EQ(a[rows], 55) << "wrote past nRows";
        const double best = BruteForceMin(c, rows, cols, 0, 0u, std::max(0, rows - cols));
        if (integers) {
          EXPECT_EQ(static_cast<double>(cost), best);
        } else {
          EXPECT_NEAR(static_cast<double>(cost), best, 1e-4);
        }
      }
    }
  }
}

TEST(Hungarian, TiesGoToTheLowestFreeColumn) {
  HungarianAlgorithm solver;
  int32_t a[kCostStride];
  {
    Costs c;  // all equal: the rows take columns 0, 1, 2 in turn
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 3; ++col) c.at(r, col) = 0.5f;
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 3, 3, a), 1.5f);
    EXPECT_EQ(std::vector<int32_t>(a, a + 3), (std::vector<int32_t>{0, 1, 2}));
  }
  {
    Costs c;  // row 1 is a row of equal costs; column 0 is taken, column 1 is the first free
    const float v[2][3] = {{0, 9, 9}, {3, 3, 3}};
    for (int r = 0; r < 2; ++r)
      for (int col = 0; col < 3; ++col) c.at(r, col) = v[r][col];
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 2, 3, a), 3.0f);
    EXPECT_EQ(a[0], 0);
    EXPECT_EQ(a[1], 1);
  }
  {
    Costs c;  // row 0 ties on every column; the primes move it to column 1, not 2
    const float v[2][3] = {{2, 2, 2}, {1, 5, 5}};
    for (int r = 0; r < 2; ++r)
      for (int col = 0; col < 3; ++col) c.at(r, col) = v[r][col];
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 2, 3, a), 3.0f);
    EXPECT_EQ(a[0], 1);
    EXPECT_EQ(a[1], 0);
  }
}

TEST(Hungarian, MoreRowsThanColumnsLeavesRowsOut) {
  HungarianAlgorithm solver;
  int32_t a[kCostStride];
  {
    Costs c;  // all equal: columns take the first free rows
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 2; ++col) c.at(r, col) = 1.0f;
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 3, 2, a), 2.0f);
    EXPECT_EQ(std::vector<int32_t>(a, a + 3), (std::vector<int32_t>{0, 1, -1}));
  }
  {
    Costs c;  // the best pairs are (2, 0) and (0, 1); row 1 is left out
    const float v[3][2] = {{5, 1}, {4, 7}, {0, 9}};
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 2; ++col) c.at(r, col) = v[r][col];
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 3, 2, a), 1.0f);
    EXPECT_EQ(std::vector<int32_t>(a, a + 3), (std::vector<int32_t>{1, -1, 0}));
  }
  {
    Costs c;  // 1 x 1
    c.at(0, 0) = 0.25f;
    EXPECT_FLOAT_EQ(solver.Solve(c.m, 1, 1, a), 0.25f);
    EXPECT_EQ(a[0], 0);
  }
}

// A row [x, 0]: the first star goes to column 0 exactly when x passes the zero test.
TEST(Hungarian, ZeroTestUsesTheDoubleEpsilon) {
  HungarianAlgorithm solver;
  struct Case {
    float x;
    int32_t col;
  };
  const Case cases[] = {{1e-20f, 0}, {2e-16f, 0}, {-0.0f, 0}, {3e-16f, 1}, {1e-10f, 1}, {1e-6f, 1}};
  for (const Case& k : cases) {
    Costs c;
    c.at(0, 0) = k.x;
    c.at(0, 1) = 0.0f;
    int32_t a[1] = {7};
    EXPECT_EQ(solver.Solve(c.m, 1, 2, a), k.col == 0 ? k.x : 0.0f) << k.x;
    EXPECT_EQ(a[0], k.col) << k.x;
  }
}

TEST(Hungarian, CountsOutsideOneToTwentyNineAreRefused) {
  HungarianAlgorithm solver;
  Costs c;
  for (float& v : c.m) v = 0.5f;
  struct Case {
    int rows, cols;
    const char* line;
  };
  const Case cases[] = {{30, 5, "HungarianAlgorithm nRows Error"},
                        {0, 5, "HungarianAlgorithm nRows Error"},
                        {-3, 5, "HungarianAlgorithm nRows Error"},
                        {5, 30, "HungarianAlgorithm nCols Error"},
                        {5, 0, "HungarianAlgorithm nCols Error"},
                        {30, 30, "HungarianAlgorithm nRows Error"}};
  for (const Case& k : cases) {
    LogCapture log;
    int32_t a[kCostStride];
    std::fill(std::begin(a), std::end(a), 42);
    EXPECT_EQ(solver.Solve(c.m, k.rows, k.cols, a), -1.0f);
    EXPECT_TRUE(log.Has(k.line, kError)) << k.line;
    for (int32_t v : a) ASSERT_EQ(v, 42);
  }
  int32_t a[kCostStride];
  EXPECT_FLOAT_EQ(solver.Solve(c.m, 29, 29, a), 29 * 0.5f);  // the largest accepted block
  EXPECT_EQ(solver.Solve(nullptr, 2, 2, a), -1.0f);
  EXPECT_EQ(solver.Solve(c.m, 2, 2, nullptr), -1.0f);
}

TEST(Hungarian, ANegativeElementAnywhereFailsTheSolve) {
  HungarianAlgorithm solver;
  // 4 x 3: one row is always left out, and a negative there still fails the call.
  for (int r = 0; r < 4; ++r) {
    for (int col = 0; col < 3; ++col) {
      Costs c;
      for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 3; ++j) c.at(i, j) = static_cast<float>(i + j);
      c.at(r, col) = -0.001f;
      LogCapture log;
      int32_t a[4] = {9, 9, 9, 9};
      EXPECT_EQ(solver.Solve(c.m, 4, 3, a), -1.0f);
      EXPECT_TRUE(log.Has("All matrix elements have to be non-negative.", kError));
      EXPECT_TRUE(log.Has(" func[AssignmentOptimal] failed. ret[-1]", kError));
      EXPECT_EQ(std::vector<int32_t>(a, a + 4), (std::vector<int32_t>{9, 9, 9, 9}));
    }
  }
}

TEST(Hungarian, InfiniteElements) {
  HungarianAlgorithm solver;
  const float inf = std::numeric_limits<float>::infinity();
  int32_t a[2];
  Costs c;
  c.at(0, 0) = inf;  // solvable around the infinities
  c.at(0, 1) = 1.0f;
  c.at(1, 0) = 2.0f;
  c.at(1, 1) = inf;
  EXPECT_EQ(solver.Solve(c.m, 2, 2, a), 3.0f);
  EXPECT_EQ(a[0], 1);
  EXPECT_EQ(a[1], 0);
  // A row with nothing finite can never be given a zero: refused, not looped on.
  c.at(0, 1) = inf;
  EXPECT_EQ(solver.Solve(c.m, 2, 2, a), -1.0f);
}

TEST(Hungarian, AssignmentOptimalReadsColumnMajor) {
  LogCapture log;
  // Column-major 2 x 3: (0,1) = 0 and (1,0) = 1 are the best pair.
  const float dist[6] = {9, 1, 0, 9, 9, 9};
  int32_t a[2] = {5, 5};
  float cost = -7.0f;
  EXPECT_EQ(AssignmentOptimal(a, &cost, dist, 2, 3), 0);
  EXPECT_EQ(a[0], 1);
  EXPECT_EQ(a[1], 0);
  EXPECT_EQ(cost, 1.0f);
  EXPECT_TRUE(log.Has("enter", ANDROID_LOG_DEBUG));

  EXPECT_EQ(AssignmentOptimal(a, &cost, dist, 0, 3), -1);
  EXPECT_TRUE(log.Has("nOfElements[0] not Valid. nOfRows[0] nOfColumns[3]", kError));
  EXPECT_EQ(cost, 0.0f);
  EXPECT_EQ(AssignmentOptimal(a, &cost, dist, -1, -2), -1);  // the product is positive
  EXPECT_TRUE(log.Has("nOfElements[2] not Valid. nOfRows[-1] nOfColumns[-2]", kError));
}

TEST(Hungarian, FailedAllocationsFailTheSolveCleanly) {
  HungarianAlgorithm solver;
  Costs c;
  for (int r = 0; r < 3; ++r)
    for (int col = 0; col < 3; ++col) c.at(r, col) = static_cast<float>((r * 3 + col) % 4);
  int32_t a[3];
  const long before = zy::AllocationCount();
  const float expected = solver.Solve(c.m, 3, 3, a);
  const long points = zy::AllocationCount() - before;
  ASSERT_GE(points, 2);
  for (long k = 1; k <= points; ++k) {
    int32_t b[3] = {8, 8, 8};
    zy::FailNthAllocation(static_cast<int>(k));
    EXPECT_EQ(solver.Solve(c.m, 3, 3, b), -1.0f) << "allocation " << k;
    zy::FailNthAllocation(0);
    EXPECT_EQ(std::vector<int32_t>(b, b + 3), (std::vector<int32_t>{8, 8, 8}));
  }
  EXPECT_EQ(solver.Solve(c.m, 3, 3, a), expected);
}

}  // namespace
