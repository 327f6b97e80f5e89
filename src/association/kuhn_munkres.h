// Maximum-weight bipartite matching by Kuhn-Munkres labelling with depth-first augmenting
// paths; an alternative matcher kept beside the optimal assignment.
#pragma once

#include <cstdint>

// The bound that marks a weight or slack as infinite: the float nearest 0x3F3F3F3F.
constexpr float KM_INF = 1061109568.0f;

// weights: row stride 30; a weight takes part only when 0 < w < KM_INF. match receives, per
// left vertex, its right vertex or -1 (30 entries). Returns the sum of matched weights, or 0
// without writing when nLeft < 1, nRight < 1 or match is null.
float KuhnMunkresMatch(const float* weights, int nLeft, int nRight, int32_t* match);
