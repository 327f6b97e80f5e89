#include "association/kuhn_munkres.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "common/zy_log.h"
#include "common/zy_memops.h"

namespace {

constexpr int kKmSide = 30;  // vertices per side, and the weight matrix's row stride
constexpr size_t kKmBytes = sizeof(int32_t) * kKmSide;  // 120
constexpr const char* kKmFunc = "KuhnMunkresMatch";

bool Usable(float w) { return w > 0.0f && w < KM_INF; }

// Depth-first search for an augmenting path from left vertex u over tight edges
// (lx + ly == w), marking every vertex it reaches. On success the path is flipped into
// match/matchY. A path holds each left vertex once at most, so with 30 left vertices the
// depth never passes 30; the limit keeps the recursion bounded whatever the arrays hold.
bool FindAugmentingPath(int depth, int u, const float* weights, int nRight, const float* lx, const float* ly,
                        int32_t* visX, int32_t* visY, int32_t* matchY, int32_t* match) {
  if (depth > kKmSide) return false;
  visX[u] = 1;
  for (int v = 0; v < nRight; ++v) {
    if (visY[v] != 0) continue;
    const float w = weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
    if (!Usable(w) || lx[u] + ly[v] - w > 0.0f) continue;
    visY[v] = 1;
    const int32_t owner = matchY[v];
    // Any value outside 0..29 is treated as "no owner" so that it is never used as an index.
    const bool free = owner < 0 || owner >= kKmSide;
    if (free || FindAugmentingPath(depth + 1, owner, weights, nRight, lx, ly, visX, visY, matchY, match)) {
      match[u] = v;
      matchY[v] = u;
      return true;
    }
  }
  return false;
}

// The label change after a failed search: the smallest gap lx + ly - w over usable edges from
// a visited left vertex to a right vertex the search never reached, with that edge in *edgeU,
// *edgeV. Gaps to right vertices it did reach must not count: moving the labels by such a gap
// leaves that gap as it was, so no edge to a new vertex becomes tight, the next search fails
// the same way and the labels drift. KM_INF when no usable edge leaves the visited set: no
// augmenting path exists.
float SlackAfterSearch(const float* weights, int nLeft, int nRight, const float* lx, const float* ly,
                       const int32_t* visX, const int32_t* visY, int* edgeU, int* edgeV) {
  float slack = KM_INF;
  for (int u = 0; u < nLeft; ++u) {
    if (visX[u] == 0) continue;
    for (int v = 0; v < nRight; ++v) {
      const float w = weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
      if (visY[v] != 0 || !Usable(w)) continue;
      const float gap = lx[u] + ly[v] - w;
      if (gap > 0.0f && gap < slack) {
        slack = gap;
        *edgeU = u;
        *edgeV = v;
      }
    }
  }
  return slack;
}

// Lowers lx of the visited left vertices and raises ly of the visited right vertices by
// delta, which keeps every edge inside the search tree as tight as it was. False when no
// label changed (delta lost to rounding).
bool MoveLabels(float delta, float* lx, float* ly, const int32_t* visX, const int32_t* visY) {
  bool moved = false;
  for (int i = 0; i < kKmSide; ++i) {
    if (visX[i] != 0) {
      const float before = lx[i];
      lx[i] -= delta;
      moved = moved || lx[i] != before;
    }
    if (visY[i] != 0) {
      const float before = ly[i];
      ly[i] += delta;
      moved = moved || ly[i] != before;
    }
  }
  return moved;
}

// Rounding can leave the edge that set the slack a hair short of tight after the move; the
// labels then move on by what is left (at least one unit in the last place of that edge's
// left label), a few times at most, so that the next search reaches its right vertex. Edges
// that this overshoots by a unit in the last place count as tight too. In exact arithmetic
// (whole-number weights) the loop never runs.
constexpr int kKmRoundingMoves = 4;

}  // namespace

float KuhnMunkresMatchCounted(const float* weights, int nLeft, int nRight, int32_t* match,
                              int* labelUpdates) {
  if (labelUpdates != nullptr) *labelUpdates = 0;
  // Counts above 30 would index past the labels and the 30-column rows: refused like the
  // other bad arguments.
  if (nLeft < 1 || nRight < 1 || match == nullptr || weights == nullptr || nLeft > kKmSide ||
      nRight > kKmSide) {
    return 0.0f;
  }
  float lx[kKmSide] = {};
  float ly[kKmSide] = {};
  int32_t visX[kKmSide] = {};
  int32_t visY[kKmSide] = {};
  int32_t matchY[kKmSide];

  // Every byte 0xFF: every entry -1.
  if (zy::memset_s(match, kKmBytes, -1, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);
  if (zy::memset_s(matchY, kKmBytes, -1, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);

  for (int u = 0; u < nLeft; ++u) {
    for (int v = 0; v < nRight; ++v) {
      const float w = weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
      if (Usable(w) && w > lx[u]) lx[u] = w;
    }
  }

  int updates = 0;
  for (int u = 0; u < nLeft; ++u) {
    if (lx[u] <= 0.0f || lx[u] >= KM_INF) continue;
    // Each label change makes an edge to a right vertex outside the last search tight and
    // keeps the tree's own edges tight, so the next search reaches at least one more right
    // vertex: after at most nRight changes the search succeeds or no edge leaves the tree.
    // The cap and the test for a change that moves nothing guard against what rounding
    // might still do to that argument.
    for (int changes = 0;; ++changes) {
      if (zy::memset_s(visX, kKmBytes, 0, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);
      if (zy::memset_s(visY, kKmBytes, 0, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);
      if (FindAugmentingPath(1, u, weights, nRight, lx, ly, visX, visY, matchY, match)) break;
      int edgeU = -1;
      int edgeV = -1;
      const float slack = SlackAfterSearch(weights, nLeft, nRight, lx, ly, visX, visY, &edgeU, &edgeV);
      if (slack == KM_INF || changes == kKmMaxChangesPerVertex) break;  // u stays unmatched
      ++updates;
      if (!MoveLabels(slack, lx, ly, visX, visY)) break;  // a change that moves nothing repeats
      const float w = weights[static_cast<size_t>(edgeU) * kKmSide + static_cast<size_t>(edgeV)];
      for (int k = 0; k < kKmRoundingMoves; ++k) {
        const float rest = lx[edgeU] + ly[edgeV] - w;
        if (!(rest > 0.0f)) break;
        // At least one step of lx[edgeU]'s own precision, or the rest could round away there.
        const float step = lx[edgeU] - std::nextafter(lx[edgeU], -KM_INF);
        if (!MoveLabels(std::max(rest, step), lx, ly, visX, visY)) break;
      }
    }
  }
  if (labelUpdates != nullptr) *labelUpdates = updates;

  float total = 0.0f;
  for (int u = 0; u < nLeft; ++u) {
    const int32_t v = match[u];
    if (v >= 0 && v < nRight) total += weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
  }
  return total;
}

float KuhnMunkresMatch(const float* weights, int nLeft, int nRight, int32_t* match) {
  return KuhnMunkresMatchCounted(weights, nLeft, nRight, match, nullptr);
}
