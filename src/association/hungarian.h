// Optimal assignment of rows (current bodies) to columns (previous bodies) on a cost matrix,
// by the star-and-prime (Munkres) method.
//
// Both entry points allocate their working storage per call (through zy::NewArray) and free
// it before returning; nothing survives a call, so one HungarianAlgorithm object may be used
// from any thread that owns the handle. Neither throws.
#pragma once

#include <cstdint>

// Row stride of the callers' cost matrices.
constexpr int kCostStride = 30;
// Largest row or column count the wrapper accepts: one less than the stride, so a full
// 30 x 30 matrix is never solved whole.
constexpr int kMaxAssignSide = kCostStride - 1;

class HungarianAlgorithm {
 public:
  // Solves the top-left nRows x nCols block of costMatrix (row-major, row stride 30).
  // Returns the total cost (the sum of costMatrix over the assigned pairs) and writes nRows
  // column indices (-1 for an unassigned row) into assignment. Returns -1.0 and leaves
  // assignment untouched when a count is outside 1..29, a cost is negative, a pointer is
  // null or working memory cannot be had.
  float Solve(const float* costMatrix, int nRows, int nCols, int32_t* assignment);
};

// The method itself on a column-major nRows x nCols matrix: element (row, col) is at
// distMatrix[row + nRows * col], every element must be non-negative. Writes nRows entries
// of assignment (-1 first, then the result) and the total cost. 0 success, -1 failure.
int32_t AssignmentOptimal(int32_t* assignment, float* cost, const float* distMatrix, int nRows,
                          int nCols);
