// Tracking accuracy against ground truth: overlap, the success plot's area under the curve,
// precision at a centre-distance threshold and identity switches of single bodies; the CLEAR MOT
// and identity (IDF1) metrics of whole multi-object runs.
#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "mot_io.h"

struct Box {
  float x = 0, y = 0, w = 0, h = 0;  // top-left corner and size, pixels
};

// Intersection over union of two boxes (0 when either is empty).
double Iou(const Box& a, const Box& b);
// Distance between the boxes' centres.
double CentreDistance(const Box& a, const Box& b);

// Accumulates one (ground truth, tracked) pair per object and frame, and the identity the
// tracker gave each ground-truth object on each frame.
class TrackingScore {
 public:
  void Add(const Box& truth, const Box& tracked);
  // A frame on which the tracker missed the object counts as overlap 0, distance infinite.
  void AddMiss();
  void AddIdentity(int truthId, int frame, int trackerId);

  // Success plot: the fraction of pairs with IoU above each threshold 0, 0.05, ..., 1; the
  // area under it is the mean of those 21 fractions.
  double SuccessAuc() const;
  // Fraction of pairs whose centres are at most `pixels` apart.
  double PrecisionAt(double pixels) const;
  // Number of times a ground-truth object's tracker identity changed between consecutive
  // frames on which it had one.
  int IdentitySwitches() const;
  size_t Pairs() const { return ious_.size(); }

 private:
  std::vector<double> ious_;
  std::vector<double> distances_;
  std::map<int, std::map<int, int>> ids_;  // truth id -> frame -> tracker id
};

// The minimum-cost assignment of rows to columns (Hungarian method, O(n^3)): min(rows, cols)
// pairs, no row or column twice. Returns each row's column, or -1 for a row left over.
std::vector<int> MinCostAssignment(const std::vector<std::vector<double>>& cost);

// Boxes by frame (from 1), each with its object or track id: ground truth or a tracker's output.
using MotFrames = std::map<int, std::vector<MotBox>>;

// CLEAR MOT and identity metrics as the MOT Challenge computes them. Each frame, ground truth and
// tracks are matched at IoU >= minIou: a pair matched on an earlier frame is kept while it still
// overlaps enough, the rest by the assignment of least total (1 - IoU) among the most pairs.
struct MotMetrics {
  int truthBoxes = 0, trackBoxes = 0, matches = 0;
  int falsePositives = 0;  // track boxes left unmatched
  int misses = 0;          // ground-truth boxes left unmatched
  int idSwitches = 0;      // a ground-truth object matched to another track than on its last match
  int fragmentations = 0;  // a matched object unmatched on its next frame, and matched again later
  double iouSum = 0;       // over the matched pairs
  // One global assignment of ground-truth objects to tracks, maximising the boxes that match
  // (IoU >= minIou on the same frame) within the assigned pairs: those are the identity true
  // positives; the other track boxes are identity false positives, the other truth boxes misses.
  int idTruePositives = 0, idFalsePositives = 0, idFalseNegatives = 0;
  int truthObjects = 0, tracks = 0;

  double Mota() const;  // 1 - (misses + false positives + switches) / truth boxes
  double Motp() const;  // mean IoU of the matched pairs (1 is perfect)
  double Idp() const;   // IDTP / (IDTP + IDFP)
  double Idr() const;   // IDTP / (IDTP + IDFN)
  double Idf1() const;  // 2 IDTP / (2 IDTP + IDFP + IDFN)
};
MotMetrics ScoreMot(const MotFrames& truth, const MotFrames& tracks, double minIou = 0.5);
