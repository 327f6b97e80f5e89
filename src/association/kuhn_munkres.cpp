#include "association/kuhn_munkres.h"

#include <cstddef>

#include "common/zy_log.h"
#include "common/zy_memops.h"

namespace {

constexpr int kKmSide = 30;  // vertices per side, and the weight matrix's row stride
constexpr size_t kKmBytes = sizeof(int32_t) * kKmSide;  // 120
constexpr const char* kKmFunc = "KuhnMunkresMatch";

bool Usable(float w) { return w > 0.0f && w < KM_INF; }

// Depth-first search for an augmenting path from left vertex u over tight edges
// (lx + ly == w). Lowers slack to the smallest positive gap met on the way. On success the
// path is flipped into match/matchY. A path holds each left vertex once at most, so with 30
// left vertices the depth never passes 30; the limit keeps the recursion bounded whatever
// the arrays hold.
bool FindAugmentingPath(int depth, int u, const float* weights, int nRight, float* lx, float* ly,
                        int32_t* visX, int32_t* visY, float* slack, int32_t* matchY, int32_t* match) {
  if (depth > kKmSide) return false;
  visX[u] = 1;
  for (int v = 0; v < nRight; ++v) {
    if (visY[v] != 0) continue;
    const float w = weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
    if (!Usable(w)) continue;
    const float gap = lx[u] + ly[v] - w;
    if (gap > 0.0f) {
      if (gap < *slack) *slack = gap;
      continue;
    }
    visY[v] = 1;
    const int32_t owner = matchY[v];
    // Any value outside 0..29 is treated as "no owner" so that it is never used as an index.
    const bool free = owner < 0 || owner >= kKmSide;
    if (free || FindAugmentingPath(depth + 1, owner, weights, nRight, lx, ly, visX, visY, slack, matchY,
                                   match)) {
      match[u] = v;
      matchY[v] = u;
      return true;
    }
  }
  return false;
}

}  // namespace

float KuhnMunkresMatch(const float* weights, int nLeft, int nRight, int32_t* match) {
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

  for (int u = 0; u < nLeft; ++u) {
    if (lx[u] <= 0.0f || lx[u] >= KM_INF) continue;
    for (;;) {
      float slack = KM_INF;
      if (zy::memset_s(visX, kKmBytes, 0, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);
      if (zy::memset_s(visY, kKmBytes, 0, kKmBytes) != 0) ZY_LOG_MEM_ERROR(kKmFunc, __LINE__);
      if (FindAugmentingPath(1, u, weights, nRight, lx, ly, visX, visY, &slack, matchY, match)) break;
      if (slack == KM_INF) break;  // no usable edge leaves the tree: u stays unmatched
      // lx only falls and ly only rises, so the searches never repeat while some label
      // moves. A slack too small to move any label (absorbed by rounding) would repeat the
      // same search for ever: u then stays unmatched.
      bool moved = false;
      for (int i = 0; i < kKmSide; ++i) {
        if (visX[i] != 0) {
          const float before = lx[i];
          lx[i] -= slack;
          moved = moved || lx[i] != before;
        }
        if (visY[i] != 0) {
          const float before = ly[i];
          ly[i] += slack;
          moved = moved || ly[i] != before;
        }
      }
      if (!moved) break;
    }
  }

  float total = 0.0f;
  for (int u = 0; u < nLeft; ++u) {
    const int32_t v = match[u];
    if (v >= 0 && v < nRight) total += weights[static_cast<size_t>(u) * kKmSide + static_cast<size_t>(v)];
  }
  return total;
}
