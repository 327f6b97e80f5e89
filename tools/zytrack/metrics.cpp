#include "metrics.h"

#include <algorithm>
#include <cmath>
#include <limits>

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
