#include "association/hungarian.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>

#include "common/zy_alloc.h"
#include "common/zy_log.h"

namespace {

// An element counts as zero below the double-precision machine epsilon. Applied to floats
// this accepts only exact zeros and values far below any real cost (1e-20 is zero,
// 1e-6 is not); the reductions subtract an element from itself, which gives an exact zero.
constexpr double kZeroTolerance = 2.220446e-16;

bool IsZero(float v) { return std::fabs(static_cast<double>(v)) < kZeroTolerance; }

// Working state of one AssignmentOptimal call. All matrices are column-major like the
// input; the flag arrays hold 0 or 1.
struct Munkres {
  int nRows = 0;
  int nCols = 0;
  int minDim = 0;
  float* dist = nullptr;  // reduced working copy
  uint8_t* star = nullptr;
  uint8_t* newStar = nullptr;
  uint8_t* prime = nullptr;
  uint8_t* coveredColumns = nullptr;
  uint8_t* coveredRows = nullptr;
  int primeRow = -1;  // the primed zero step 3 hands to step 4
  int primeCol = -1;

  size_t At(int row, int col) const {
    return static_cast<size_t>(row) + static_cast<size_t>(nRows) * static_cast<size_t>(col);
  }
  // First row holding a star of `flags` in column col, or nRows.
  int FirstInColumn(const uint8_t* flags, int col) const {
    int row = 0;
    while (row < nRows && flags[At(row, col)] == 0) ++row;
    return row;
  }
  // First column holding a flag of `flags` in row row, or nCols.
  int FirstInRow(const uint8_t* flags, int row) const {
    int col = 0;
    while (col < nCols && flags[At(row, col)] == 0) ++col;
    return col;
  }
};

enum class Step { k2a, k2b, k3, k4, k5, kDone, kFail };

// Row-wise reduction and first stars when there are no more rows than columns: each row
// stars its first zero in a column no earlier row has taken.
void ReduceRows(Munkres& m) {
  for (int row = 0; row < m.nRows; ++row) {
    float minValue = m.dist[m.At(row, 0)];
    for (int col = 1; col < m.nCols; ++col) minValue = std::min(minValue, m.dist[m.At(row, col)]);
    for (int col = 0; col < m.nCols; ++col) m.dist[m.At(row, col)] -= minValue;
  }
  for (int row = 0; row < m.nRows; ++row) {
    for (int col = 0; col < m.nCols; ++col) {
      if (IsZero(m.dist[m.At(row, col)]) && m.coveredColumns[col] == 0) {
        m.star[m.At(row, col)] = 1;
        m.coveredColumns[col] = 1;
        break;
      }
    }
  }
}

// Column-wise reduction and first stars when there are more rows than columns: each column
// stars its first zero in a row no earlier column has taken. The rows are covered only
// while the stars are set.
void ReduceColumns(Munkres& m) {
  for (int col = 0; col < m.nCols; ++col) {
    float minValue = m.dist[m.At(0, col)];
    for (int row = 1; row < m.nRows; ++row) minValue = std::min(minValue, m.dist[m.At(row, col)]);
    for (int row = 0; row < m.nRows; ++row) m.dist[m.At(row, col)] -= minValue;
  }
  for (int col = 0; col < m.nCols; ++col) {
    for (int row = 0; row < m.nRows; ++row) {
      if (IsZero(m.dist[m.At(row, col)]) && m.coveredRows[row] == 0) {
        m.star[m.At(row, col)] = 1;
        m.coveredColumns[col] = 1;
        m.coveredRows[row] = 1;
        break;
      }
    }
  }
  std::fill_n(m.coveredRows, m.nRows, uint8_t{0});
}

// Step 2a: cover every column that holds a star.
Step Step2a(Munkres& m) {
  ZY_LOGD("enter");
  for (int col = 0; col < m.nCols; ++col) {
    if (m.FirstInColumn(m.star, col) < m.nRows) m.coveredColumns[col] = 1;
  }
  return Step::k2b;
}

// Step 2b: done when minDim columns are covered, that is when minDim stars stand.
Step Step2b(Munkres& m) {
  ZY_LOGD("enter");
  int covered = 0;
  for (int col = 0; col < m.nCols; ++col) covered += m.coveredColumns[col] != 0 ? 1 : 0;
  return covered == m.minDim ? Step::kDone : Step::k3;
}

// Step 3: prime uncovered zeros. A primed zero with no star in its row starts an augmenting
// path (step 4); otherwise its row is covered and its star's column uncovered, and the
// search goes on until a whole pass finds no uncovered zero (step 5).
Step Step3(Munkres& m) {
  ZY_LOGD("enter");
  bool zerosFound = true;
  while (zerosFound) {
    zerosFound = false;
    for (int col = 0; col < m.nCols; ++col) {
      if (m.coveredColumns[col] != 0) continue;
      for (int row = 0; row < m.nRows; ++row) {
        if (m.coveredRows[row] != 0 || !IsZero(m.dist[m.At(row, col)])) continue;
        m.prime[m.At(row, col)] = 1;
        const int starCol = m.FirstInRow(m.star, row);
        if (starCol == m.nCols) {
          m.primeRow = row;
          m.primeCol = col;
          return Step::k4;
        }
        m.coveredRows[row] = 1;
        m.coveredColumns[starCol] = 0;
        zerosFound = true;
        break;
      }
    }
  }
  return Step::k5;
}

// Step 4: flip the alternating path of primes and stars that starts at the primed zero of
// step 3, which adds one star; then clear primes and row covers and recount the columns.
Step Step4(Munkres& m) {
  ZY_LOGD("enter");
  const size_t nOfElements = static_cast<size_t>(m.nRows) * static_cast<size_t>(m.nCols);
  std::copy_n(m.star, nOfElements, m.newStar);
  m.newStar[m.At(m.primeRow, m.primeCol)] = 1;
  int starCol = m.primeCol;
  int starRow = m.FirstInColumn(m.star, starCol);
  // The path visits each star at most once; the bound only matters if the flags were
  // inconsistent, which the steps never make them.
  for (size_t guard = 0; starRow < m.nRows && guard < nOfElements; ++guard) {
    m.newStar[m.At(starRow, starCol)] = 0;
    const int primeCol = m.FirstInRow(m.prime, starRow);
    if (primeCol == m.nCols) break;  // every starred row on the path holds a prime
    m.newStar[m.At(starRow, primeCol)] = 1;
    starCol = primeCol;
    starRow = m.FirstInColumn(m.star, starCol);
  }
  std::copy_n(m.newStar, nOfElements, m.star);
  std::fill_n(m.prime, nOfElements, uint8_t{0});
  std::fill_n(m.coveredRows, m.nRows, uint8_t{0});
  return Step::k2a;
}

// Step 5: no uncovered zero is left. Add the smallest uncovered element to the covered rows
// and take it from the uncovered columns, which makes a new uncovered zero and keeps every
// element non-negative.
Step Step5(Munkres& m) {
  ZY_LOGD("enter");
  float h = std::numeric_limits<float>::infinity();
  for (int row = 0; row < m.nRows; ++row) {
    if (m.coveredRows[row] != 0) continue;
    for (int col = 0; col < m.nCols; ++col) {
      if (m.coveredColumns[col] == 0 && m.dist[m.At(row, col)] < h) h = m.dist[m.At(row, col)];
    }
  }
  // Only infinite or NaN elements are left uncovered (an input holding +inf or NaN): no
  // step can make a zero any more, and going on would loop for ever.
  if (!(h < std::numeric_limits<float>::infinity())) {
    ZY_LOGE("%s no finite uncovered element", "AssignmentOptimal");
    return Step::kFail;
  }
  for (int row = 0; row < m.nRows; ++row) {
    if (m.coveredRows[row] == 0) continue;
    for (int col = 0; col < m.nCols; ++col) m.dist[m.At(row, col)] += h;
  }
  for (int col = 0; col < m.nCols; ++col) {
    if (m.coveredColumns[col] != 0) continue;
    for (int row = 0; row < m.nRows; ++row) m.dist[m.At(row, col)] -= h;
  }
  return Step::k3;
}

}  // namespace

int32_t AssignmentOptimal(int32_t* assignment, float* cost, const float* distMatrix, int nRows,
                          int nCols) {
  ZY_LOGD("enter");
  if (assignment == nullptr || cost == nullptr || distMatrix == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "AssignmentOptimal");
    return -1;
  }
  *cost = 0.0f;
  for (int row = 0; row < nRows; ++row) assignment[row] = -1;

  // Two negative counts multiply to a positive one, and large ones overflow: refuse them
  // all with the element count's line.
  const long long elements = static_cast<long long>(nRows) * static_cast<long long>(nCols);
  if (nRows < 1 || nCols < 1 || elements > std::numeric_limits<int32_t>::max()) {
    ZY_LOGE("nOfElements[%d] not Valid. nOfRows[%d] nOfColumns[%d]", static_cast<int>(elements), nRows,
            nCols);
    return -1;
  }
  const size_t nOfElements = static_cast<size_t>(elements);

  std::unique_ptr<float[]> dist(zy::NewArray<float>(nOfElements));
  std::unique_ptr<uint8_t[]> star(zy::NewArray<uint8_t>(nOfElements));
  std::unique_ptr<uint8_t[]> newStar(zy::NewArray<uint8_t>(nOfElements));
  std::unique_ptr<uint8_t[]> prime(zy::NewArray<uint8_t>(nOfElements));
  std::unique_ptr<uint8_t[]> coveredColumns(zy::NewArray<uint8_t>(static_cast<size_t>(nCols)));
  std::unique_ptr<uint8_t[]> coveredRows(zy::NewArray<uint8_t>(static_cast<size_t>(nRows)));
  if (!dist || !star || !newStar || !prime || !coveredColumns || !coveredRows) {
    ZY_LOGE("%s malloc error!", "AssignmentOptimal");
    return -1;
  }
  std::fill_n(dist.get(), nOfElements, 0.0f);
  std::fill_n(star.get(), nOfElements, uint8_t{0});
  std::fill_n(newStar.get(), nOfElements, uint8_t{0});
  std::fill_n(prime.get(), nOfElements, uint8_t{0});
  std::fill_n(coveredColumns.get(), nCols, uint8_t{0});
  std::fill_n(coveredRows.get(), nRows, uint8_t{0});

  for (size_t i = 0; i < nOfElements; ++i) {
    if (distMatrix[i] < 0.0f) {
      ZY_LOGE("All matrix elements have to be non-negative.");
      return -1;
    }
    dist[i] = distMatrix[i];
  }

  Munkres m;
  m.nRows = nRows;
  m.nCols = nCols;
  m.minDim = std::min(nRows, nCols);
  m.dist = dist.get();
  m.star = star.get();
  m.newStar = newStar.get();
  m.prime = prime.get();
  m.coveredColumns = coveredColumns.get();
  m.coveredRows = coveredRows.get();

  if (nRows <= nCols) {
    ReduceRows(m);
  } else {
    ReduceColumns(m);
  }

  // The steps as a loop: each step 4 adds a star and each step 5 makes a new uncovered zero
  // for step 3, so the loop ends after at most minDim augmentations.
  Step step = Step::k2b;
  while (step != Step::kDone) {
    switch (step) {
      case Step::k2a: step = Step2a(m); break;
      case Step::k2b: step = Step2b(m); break;
      case Step::k3: step = Step3(m); break;
      case Step::k4: step = Step4(m); break;
      case Step::k5: step = Step5(m); break;
      case Step::kFail: return -1;
      case Step::kDone: break;
    }
  }

  // The cost is summed from the unreduced input, row by row.
  for (int row = 0; row < nRows; ++row) {
    const int col = m.FirstInRow(m.star, row);
    assignment[row] = col < nCols ? col : -1;
  }
  float total = 0.0f;
  for (int row = 0; row < nRows; ++row) {
    if (assignment[row] >= 0) total += distMatrix[m.At(row, assignment[row])];
  }
  *cost = total;
  return 0;
}

float HungarianAlgorithm::Solve(const float* costMatrix, int nRows, int nCols, int32_t* assignment) {
  if (nRows < 1 || nRows > kMaxAssignSide) {
    ZY_LOGE("HungarianAlgorithm nRows Error");
    return -1.0f;
  }
  if (nCols < 1 || nCols > kMaxAssignSide) {
    ZY_LOGE("HungarianAlgorithm nCols Error");
    return -1.0f;
  }
  if (costMatrix == nullptr || assignment == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "HungarianAlgorithm");
    return -1.0f;
  }
  const size_t rows = static_cast<size_t>(nRows);
  const size_t cols = static_cast<size_t>(nCols);
  std::unique_ptr<float[]> distMatrix(zy::NewArray<float>(rows * cols));
  std::unique_ptr<int32_t[]> localAssignment(zy::NewArray<int32_t>(rows));
  if (!distMatrix || !localAssignment) {
    ZY_LOGE("%s malloc error!", "HungarianAlgorithm");
    return -1.0f;
  }
  std::fill_n(distMatrix.get(), rows * cols, 0.0f);
  std::fill_n(localAssignment.get(), rows, 0);
  // Transpose the caller's row-major block into the column-major working layout.
  for (size_t row = 0; row < rows; ++row) {
    for (size_t col = 0; col < cols; ++col) {
      distMatrix[row + rows * col] = costMatrix[row * kCostStride + col];
    }
  }
  float cost = 0.0f;
  const int32_t ret = AssignmentOptimal(localAssignment.get(), &cost, distMatrix.get(), nRows, nCols);
  if (ret != 0) {
    ZY_LOGE(" func[AssignmentOptimal] failed. ret[%d]", ret);
    return -1.0f;
  }
  std::copy_n(localAssignment.get(), rows, assignment);
  return cost;
}
