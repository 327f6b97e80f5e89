// Tracking accuracy against ground truth: overlap, the success plot's area under the curve,
// precision at a centre-distance threshold and identity switches.
#pragma once

#include <cstddef>
#include <map>
#include <vector>

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
