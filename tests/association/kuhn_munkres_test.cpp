// The Kuhn-Munkres match over random matrices: it ends within a bound of label changes, it
// agrees with the single running slack form wherever that form ends, and on small matrices
// its weight is the brute-force optimum.
#include "association/kuhn_munkres.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

namespace {

constexpr int kSide = 30;

bool Usable(float w) { return w > 0.0f && w < KM_INF; }

// The form with one running slack that the search lowers at every positive gap it meets,
// gaps to right vertices it reaches later included. Such a gap survives the label change
// unchanged, so the form can repeat a failed search; it is stopped after maxChanges changes
// for one vertex and then reports that it did not end.
struct RunningSlack {
  const float* w;
  int nRight;
  float lx[kSide] = {}, ly[kSide] = {};
  int32_t visX[kSide], visY[kSide], matchY[kSide], match[kSide];
  float slack;

  bool Search(int u) {
    visX[u] = 1;
    for (int v = 0; v < nRight; ++v) {
      const float x = w[u * kSide + v];
      if (visY[v] || !Usable(x)) continue;
      const float gap = lx[u] + ly[v] - x;
      if (gap > 0) {
        slack = std::min(slack, gap);
        continue;
      }
      visY[v] = 1;
      if (matchY[v] == -1 || Search(matchY[v])) {
        match[u] = v;
        matchY[v] = u;
        return true;
      }
    }
    return false;
  }
  bool Run(const float* weights, int nLeft, int nR, int maxChanges) {
    w = weights;
    nRight = nR;
    std::fill_n(match, kSide, -1);
    std::fill_n(matchY, kSide, -1);
    for (int u = 0; u < nLeft; ++u) {
      for (int v = 0; v < nRight; ++v) {
        if (Usable(w[u * kSide + v])) lx[u] = std::max(lx[u], w[u * kSide + v]);
      }
    }
    for (int u = 0; u < nLeft; ++u) {
      if (lx[u] <= 0) continue;
      for (int changes = 0;; ++changes) {
        slack = KM_INF;
        std::fill_n(visX, kSide, 0);
        std::fill_n(visY, kSide, 0);
        if (Search(u) || slack == KM_INF) break;
        if (changes == maxChanges) return false;
        for (int i = 0; i < kSide; ++i) {
          if (visX[i]) lx[i] -= slack;
          if (visY[i]) ly[i] += slack;
        }
      }
    }
    return true;
  }
};

// The best (matched pairs, total weight), most pairs first, over every matching of usable
// edges, by dynamic programming over the set of right vertices taken.
std::pair<int, float> BruteForce(const float* w, int nLeft, int nRight) {
  std::pair<int, float> best[1 << 8];
  std::fill_n(best, 1 << nRight, std::make_pair(-1, 0.0f));
  best[0] = {0, 0.0f};
  for (int u = 0; u < nLeft; ++u) {
    std::pair<int, float> next[1 << 8];
    std::copy_n(best, 1 << nRight, next);  // u left unmatched
    for (int mask = 0; mask < (1 << nRight); ++mask) {
      if (best[mask].first < 0) continue;
      for (int v = 0; v < nRight; ++v) {
        if ((mask >> v & 1) || !Usable(w[u * kSide + v])) continue;
        const std::pair<int, float> c{best[mask].first + 1, best[mask].second + w[u * kSide + v]};
        next[mask | 1 << v] = std::max(next[mask | 1 << v], c);
      }
    }
    std::copy_n(next, 1 << nRight, best);
  }
  return *std::max_element(best, best + (1 << nRight));
}

// Matrices up to 30 x 30 of small whole numbers, a quarter of them zero or negative (no
// edge), so every sum is exact; every tenth matrix takes fractional weights instead. 100,000
// matrices (about 6 s at -O2), 10,000 in the sanitizer builds; ZY_KM_MATRICES overrides.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kMatrices = 10000;
#else
constexpr int kMatrices = 100000;
#endif
TEST(KuhnMunkres, RandomMatricesEndAgreeAndReachTheOptimum) {
  const char* env = std::getenv("ZY_KM_MATRICES");
  const int count = env != nullptr ? std::atoi(env) : kMatrices;
  std::mt19937 rng(19);
  int runningSlackStuck = 0, bruteForced = 0, lighterWithLeftOut = 0, maxUpdates = 0, roundingExtra = 0;
  float w[kSide * kSide];
  for (int m = 0; m < count; ++m) {
    const int limit = m % 4 == 0 ? kSide : 8;
    const int nLeft = 1 + static_cast<int>(rng() % limit);
    const int nRight = 1 + static_cast<int>(rng() % limit);
    const bool whole = m % 10 != 0;
    for (float& x : w) {
      x = whole ? static_cast<float>(static_cast<int>(rng() % 12) - 2)
                : std::uniform_real_distribution<float>(-3.0f, 100.0f)(rng);
    }
    int32_t match[kSide];
    int updates = -1;
    const float total = KuhnMunkresMatchCounted(w, nLeft, nRight, match, &updates);
    SCOPED_TRACE(testing::Message() << "matrix " << m << ": " << nLeft << " x " << nRight);
    // Every change reaches one more right vertex for the vertex being placed. With fractions
    // rounding can loosen a tight edge of the tree and cost changes more, up to the cap.
    ASSERT_LE(updates, whole ? nLeft * nRight : nLeft * kKmMaxChangesPerVertex);
    if (whole) maxUpdates = std::max(maxUpdates, updates);
    roundingExtra += updates > nLeft * nRight;
    int32_t taken[kSide] = {};
    for (int u = 0; u < nLeft; ++u) {
      if (match[u] == -1) continue;
      ASSERT_TRUE(match[u] >= 0 && match[u] < nRight && Usable(w[u * kSide + match[u]]));
      ASSERT_EQ(taken[match[u]]++, 0);
    }
    if (!whole) continue;
    // Where the running slack ends, its labels have moved by the same sums at every search
    // that changed the tree, so it ends with the same match. It does not end when a search
    // has no usable edge out of its tree but meets a positive gap inside it (64 changes for
    // one vertex count as not ending; whole numbers up to 9 never need that many otherwise).
    RunningSlack ref;
    if (ref.Run(w, nLeft, nRight, 64)) {
      ASSERT_EQ(0, std::memcmp(ref.match, match, sizeof(int32_t) * nLeft));
    } else {
      ++runningSlackStuck;
    }
    if (nLeft <= 8 && nRight <= 8) {
      // Kuhn's order of augmentations gives the most pairs there are. When those pairs cover
      // every left vertex, the labels make the weight the largest of all such matchings.
      // Otherwise a vertex whose search finds no way out is given up whatever its weights,
      // so an earlier, lighter vertex may keep the place (8 x 1 with weights 5 then 7 gives
      // 5): those matrices are only counted.
      const std::pair<int, float> best = BruteForce(w, nLeft, nRight);
      const int pairs = static_cast<int>(std::count_if(match, match + nLeft, [](int32_t v) { return v != -1; }));
      ASSERT_EQ(pairs, best.first);
      if (pairs == nLeft) {
        ASSERT_EQ(total, best.second);
        ++bruteForced;
      } else {
        ASSERT_LE(total, best.second);
        lighterWithLeftOut += total < best.second;
      }
    }
  }
  RecordProperty("matrices", count);
  RecordProperty("running_slack_stuck", runningSlackStuck);
  std::printf("%d matrices: %d at the brute-force optimum, %d lighter with a left vertex out, running slack "
              "stuck on %d, at most %d label changes (whole numbers), %d fractional past n x m\n",
              count, bruteForced, lighterWithLeftOut, runningSlackStuck, maxUpdates, roundingExtra);
}

}  // namespace
