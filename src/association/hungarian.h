// Optimal assignment of rows (current bodies) to columns (previous bodies) on a cost matrix,
// by the star-and-prime (Munkres) method.
#pragma once

#include <cstdint>

// Row stride of the callers' cost matrices.
constexpr int kCostStride = 30;

class HungarianAlgorithm {
 public:
  // Solves the top-left nRows x nCols block of costMatrix (row stride 30). Returns the total
  // cost and writes nRows column indices (-1 unassigned) into assignment, or returns -1.0
  // and writes nothing when the counts are outside 1..29 or a cost is negative.
  float Solve(const float* costMatrix, int nRows, int nCols, int32_t* assignment);
};

// The method on a column-major nRows x nCols matrix: 0 success, -1 failure.
int32_t AssignmentOptimal(int32_t* assignment, float* cost, const float* distMatrix, int nRows,
                          int nCols);
