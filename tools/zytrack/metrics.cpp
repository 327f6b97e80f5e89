#include "metrics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

double Iou(const Box& a, const Box& b) {
  if (a.w <= 0 || a.h <= 0 || b.w <= 0 || b.h <= 0) return 0;
  const double iw = std::max(0.0, std::min<double>(a.x + a.w, b.x + b.w) - std::max<double>(a.x, b.x));
  const double ih = std::max(0.0, std::min<double>(a.y + a.h, b.y + b.h) - std::max<double>(a.y, b.y));
  const double inter = iw * ih;
  return inter / (static_cast<double>(a.w) * a.h + static_cast<double>(b.w) * b.h - inter);
}

double CentreDistance(const Box& a, const Box& b) {
  return std::hypot((a.x + a.w / 2.0) - (b.x + b.w / 2.0), (a.y + a.h / 2.0) - (b.y + b.h / 2.0));
}

void TrackingScore::Add(const Box& truth, const Box& tracked) {
  ious_.push_back(Iou(truth, tracked));
  distances_.push_back(CentreDistance(truth, tracked));
}

void TrackingScore::AddMiss() {
  ious_.push_back(0);
  distances_.push_back(std::numeric_limits<double>::infinity());
}

void TrackingScore::AddIdentity(int truthId, int frame, int trackerId) { ids_[truthId][frame] = trackerId; }

double TrackingScore::SuccessAuc() const {
  if (ious_.empty()) return 0;
  double area = 0;
  for (int k = 0; k <= 20; ++k) {
    const double t = k * 0.05;
    size_t above = 0;
    for (double v : ious_) above += v > t ? 1 : 0;
    area += static_cast<double>(above) / static_cast<double>(ious_.size());
  }
  return area / 21.0;
}

double TrackingScore::PrecisionAt(double pixels) const {
  if (distances_.empty()) return 0;
  size_t close = 0;
  for (double d : distances_) close += d <= pixels ? 1 : 0;
  return static_cast<double>(close) / static_cast<double>(distances_.size());
}

int TrackingScore::IdentitySwitches() const {
  int switches = 0;
  for (const auto& [truth, frames] : ids_) {
    (void)truth;
    int last = 0;
    bool have = false;
    for (const auto& [frame, id] : frames) {
      (void)frame;
      if (have && id != last) ++switches;
      last = id;
      have = true;
    }
  }
  return switches;
}

std::vector<int> MinCostAssignment(const std::vector<std::vector<double>>& cost) {
  const size_t rows = cost.size(), cols = rows ? cost[0].size() : 0;
  std::vector<int> result(rows, -1);
  if (rows == 0 || cols == 0) return result;
  // Shortest augmenting paths with potentials over n <= m (the matrix transposed if needed),
  // 1-based with 0 as the virtual start.
  const bool flip = rows > cols;
  const size_t n = flip ? cols : rows, m = flip ? rows : cols;
  auto at = [&](size_t i, size_t j) { return flip ? cost[j - 1][i - 1] : cost[i - 1][j - 1]; };
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> u(n + 1, 0), v(m + 1, 0), minv(m + 1);
  std::vector<size_t> p(m + 1, 0), way(m + 1, 0);
  std::vector<char> used(m + 1);
  for (size_t i = 1; i <= n; ++i) {
    p[0] = i;
    size_t j0 = 0;
    std::fill(minv.begin(), minv.end(), inf);
    std::fill(used.begin(), used.end(), 0);
    do {
      used[j0] = 1;
      const size_t i0 = p[j0];
      double delta = inf;
      size_t j1 = 0;
      for (size_t j = 1; j <= m; ++j) {
        if (used[j]) continue;
        const double cur = at(i0, j) - u[i0] - v[j];
        if (cur < minv[j]) minv[j] = cur, way[j] = j0;
        if (minv[j] < delta) delta = minv[j], j1 = j;
      }
      for (size_t j = 0; j <= m; ++j) {
        if (used[j]) u[p[j]] += delta, v[j] -= delta;
        else minv[j] -= delta;
      }
      j0 = j1;
    } while (p[j0] != 0);
    do {
      const size_t j1 = way[j0];
      p[j0] = p[j1];
      j0 = j1;
    } while (j0 != 0);
  }
  for (size_t j = 1; j <= m; ++j) {
    if (p[j] == 0) continue;
    if (flip) result[j - 1] = static_cast<int>(p[j] - 1);
    else result[p[j] - 1] = static_cast<int>(j - 1);
  }
  return result;
}

namespace {

Box BoxOf(const MotBox& m) { return Box{m.left, m.top, m.width, m.height}; }

// Above any sum of (1 - IoU) over one frame's pairs: a pair below the threshold costs this much,
// so the assignment first makes the most valid pairs, then the closest.
constexpr double kForbidden = 1e6;

}  // namespace

MotMetrics ScoreMot(const MotFrames& truth, const MotFrames& tracks, double minIou) {
  MotMetrics r;
  std::map<int, int> lastTrack;                   // truth id -> track id of its last match
  std::map<int, std::vector<bool>> matchedSeq;    // truth id -> matched on each frame it exists
  std::map<std::pair<int, int>, int> together;    // (truth id, track id) -> frames with IoU >= minIou
  std::map<int, int> truthCount, trackCount;      // boxes per id
  static const std::vector<MotBox> kNone;
  std::set<int> frames;
  for (const auto& f : truth) frames.insert(f.first);
  for (const auto& f : tracks) frames.insert(f.first);
  for (const int frame : frames) {
    const auto ti = truth.find(frame), hi = tracks.find(frame);
    const std::vector<MotBox>& gt = ti == truth.end() ? kNone : ti->second;
    const std::vector<MotBox>& hy = hi == tracks.end() ? kNone : hi->second;
    std::vector<std::vector<double>> iou(gt.size(), std::vector<double>(hy.size()));
    for (size_t g = 0; g < gt.size(); ++g)
      for (size_t h = 0; h < hy.size(); ++h) {
        iou[g][h] = Iou(BoxOf(gt[g]), BoxOf(hy[h]));
        if (iou[g][h] >= minIou) ++together[{gt[g].id, hy[h].id}];
      }
    for (const MotBox& b : gt) ++truthCount[b.id];
    for (const MotBox& b : hy) ++trackCount[b.id];
    std::vector<int> match(gt.size(), -1);
    std::vector<bool> taken(hy.size(), false);
    // Pairs of the previous match that still overlap enough stay together.
    for (size_t g = 0; g < gt.size(); ++g) {
      const auto last = lastTrack.find(gt[g].id);
      if (last == lastTrack.end()) continue;
      for (size_t h = 0; h < hy.size(); ++h)
        if (!taken[h] && hy[h].id == last->second && iou[g][h] >= minIou) {
          match[g] = static_cast<int>(h), taken[h] = true;
          break;
        }
    }
    std::vector<size_t> freeGt, freeHy;
    for (size_t g = 0; g < gt.size(); ++g)
      if (match[g] < 0) freeGt.push_back(g);
    for (size_t h = 0; h < hy.size(); ++h)
      if (!taken[h]) freeHy.push_back(h);
    if (!freeGt.empty() && !freeHy.empty()) {
      std::vector<std::vector<double>> cost(freeGt.size(), std::vector<double>(freeHy.size()));
      for (size_t a = 0; a < freeGt.size(); ++a)
        for (size_t b = 0; b < freeHy.size(); ++b) {
          const double v = iou[freeGt[a]][freeHy[b]];
          cost[a][b] = v >= minIou ? 1 - v : kForbidden;
        }
      const std::vector<int> pick = MinCostAssignment(cost);
      for (size_t a = 0; a < freeGt.size(); ++a) {
        if (pick[a] < 0) continue;
        const size_t g = freeGt[a], h = freeHy[static_cast<size_t>(pick[a])];
        if (iou[g][h] < minIou) continue;
        const auto last = lastTrack.find(gt[g].id);
        if (last != lastTrack.end() && last->second != hy[h].id) ++r.idSwitches;
        match[g] = static_cast<int>(h), taken[h] = true;
      }
    }
    for (size_t g = 0; g < gt.size(); ++g) {
      matchedSeq[gt[g].id].push_back(match[g] >= 0);
      if (match[g] < 0) {
        ++r.misses;
        continue;
      }
      ++r.matches;
      r.iouSum += iou[g][static_cast<size_t>(match[g])];
      lastTrack[gt[g].id] = hy[static_cast<size_t>(match[g])].id;
    }
    for (size_t h = 0; h < hy.size(); ++h) r.falsePositives += taken[h] ? 0 : 1;
    r.truthBoxes += static_cast<int>(gt.size());
    r.trackBoxes += static_cast<int>(hy.size());
  }
  // A fragmentation is a matched-to-unmatched step before the object's last match.
  for (const auto& [id, seq] : matchedSeq) {
    (void)id;
    size_t lastMatch = 0;
    bool any = false;
    for (size_t k = 0; k < seq.size(); ++k)
      if (seq[k]) lastMatch = k, any = true;
    for (size_t k = 1; any && k < lastMatch; ++k) r.fragmentations += seq[k - 1] && !seq[k] ? 1 : 0;
  }
  // Identity: truth objects against tracks, maximising the matching boxes of assigned pairs.
  std::vector<int> gIds, hIds;
  for (const auto& c : truthCount) gIds.push_back(c.first);
  for (const auto& c : trackCount) hIds.push_back(c.first);
  r.truthObjects = static_cast<int>(gIds.size());
  r.tracks = static_cast<int>(hIds.size());
  std::vector<std::vector<double>> cost(gIds.size(), std::vector<double>(hIds.size(), 0));
  for (size_t g = 0; g < gIds.size(); ++g)
    for (size_t h = 0; h < hIds.size(); ++h) {
      const auto it = together.find({gIds[g], hIds[h]});
      cost[g][h] = it == together.end() ? 0 : -static_cast<double>(it->second);
    }
  const std::vector<int> pick = MinCostAssignment(cost);
  for (size_t g = 0; g < gIds.size(); ++g)
    if (pick[g] >= 0) r.idTruePositives += static_cast<int>(-cost[g][static_cast<size_t>(pick[g])]);
  r.idFalsePositives = r.trackBoxes - r.idTruePositives;
  r.idFalseNegatives = r.truthBoxes - r.idTruePositives;
  return r;
}

namespace {
double Ratio(double a, double b) { return b > 0 ? a / b : 0; }
}  // namespace

double MotMetrics::Mota() const {
  return truthBoxes > 0 ? 1.0 - static_cast<double>(misses + falsePositives + idSwitches) / truthBoxes : 0;
}
double MotMetrics::Motp() const { return Ratio(iouSum, matches); }
double MotMetrics::Idp() const { return Ratio(idTruePositives, idTruePositives + idFalsePositives); }
double MotMetrics::Idr() const { return Ratio(idTruePositives, idTruePositives + idFalseNegatives); }
double MotMetrics::Idf1() const {
  return Ratio(2.0 * idTruePositives, 2.0 * idTruePositives + idFalsePositives + idFalseNegatives);
}
