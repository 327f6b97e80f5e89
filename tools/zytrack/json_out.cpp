#include "json_out.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <sstream>

namespace {

std::string Quote(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string Num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.4f", v);
  return buf;
}

std::string SpreadJson(const std::vector<double>& v) {
  const Spread s = SpreadOf(v);
  return "{\"median\": " + Num(s.median) + ", \"p90\": " + Num(s.p90) + ", \"max\": " + Num(s.max) + "}";
}

}  // namespace

std::string SummaryJson(const std::string& input, const RunResult& r) {
  std::ostringstream o;
  const double mean = r.bodiesPerFrame.empty()
                          ? 0
                          : std::accumulate(r.bodiesPerFrame.begin(), r.bodiesPerFrame.end(), 0.0) /
                                static_cast<double>(r.bodiesPerFrame.size());
  const int maxBodies = r.bodiesPerFrame.empty() ? 0 : *std::max_element(r.bodiesPerFrame.begin(), r.bodiesPerFrame.end());
  o << "{\n  \"input\": " << Quote(input) << ",\n";
  o << "  \"width\": " << r.width << ", \"height\": " << r.height << ",\n";
  o << "  \"frames\": " << r.frames << ",\n";
  o << "  \"bodies_per_frame\": {\"mean\": " << Num(mean) << ", \"max\": " << maxBodies << ", \"per_frame\": [";
  for (size_t i = 0; i < r.bodiesPerFrame.size(); ++i) o << (i ? ", " : "") << r.bodiesPerFrame[i];
  o << "]},\n";
  o << "  \"time_ms_per_frame\": {\"all\": " << SpreadJson(r.frameMs) << ", \"tracking\": " << SpreadJson(r.trackingMs)
    << "}";
  if (r.hasTruth) {
    o << ",\n  \"accuracy\": {\"success_auc\": " << Num(r.score.SuccessAuc())
      << ", \"precision_20px\": " << Num(r.score.PrecisionAt(20)) << ", \"identity_switches\": " << r.score.IdentitySwitches()
      << ", \"pairs\": " << r.score.Pairs() << "}";
  }
  if (r.hasMot) {
    const MotMetrics& m = r.mot;
    o << ",\n  \"mot\": {\"mota\": " << Num(m.Mota()) << ", \"motp_mean_iou\": " << Num(m.Motp())
      << ", \"idf1\": " << Num(m.Idf1()) << ", \"idp\": " << Num(m.Idp()) << ", \"idr\": " << Num(m.Idr())
      << ", \"false_positives\": " << m.falsePositives << ", \"misses\": " << m.misses
      << ", \"id_switches\": " << m.idSwitches << ", \"fragmentations\": " << m.fragmentations
      << ", \"matches\": " << m.matches << ", \"truth_boxes\": " << m.truthBoxes << ", \"track_boxes\": "
      << m.trackBoxes << ", \"truth_objects\": " << m.truthObjects << ", \"tracks\": " << m.tracks << "}";
  }
  if (r.logLines >= 0) o << ",\n  \"library_log\": {\"lines\": " << r.logLines << ", \"errors\": " << r.logErrors << "}";
  o << "\n}\n";
  return o.str();
}
