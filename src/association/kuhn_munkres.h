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

// Label changes allowed for one left vertex before it is given up: every change reaches at
// least one more right vertex (30 at most), with room for a change more now and then where
// float rounding leaves a new edge short of tight.
constexpr int kKmMaxChangesPerVertex = 2 * 30;

// KuhnMunkresMatch that also reports the label changes it made (none for refused arguments):
// at most nRight per matched or given-up left vertex in exact arithmetic, and never more than
// kKmMaxChangesPerVertex per left vertex.
float KuhnMunkresMatchCounted(const float* weights, int nLeft, int nRight, int32_t* match,
                              int* labelUpdates);
