// A caller of the C interface over a synthetic scene of moving textured bodies, shared by the
// reliability tests and the soak: it renders each frame, re-initialises from the true boxes
// and tracks in between. Nothing here allocates once constructed, so a test can count or fail
// the library's allocations around its calls.
#pragma once

#include <cstdint>

#include "ZyBodyTracking.h"
#include "support/nv21_frames.h"

struct MovingBody {
  float x, y, w, h, vx, vy;
  uint32_t seed;
  int32_t classId;
};

class SceneCaller {
 public:
  SceneCaller(int width, int height, int stride, uint32_t backgroundSeed);
  ~SceneCaller();
  SceneCaller(const SceneCaller&) = delete;
  SceneCaller& operator=(const SceneCaller&) = delete;

  // Create and Start; the results of both.
  int32_t Open(int32_t* startResult = nullptr);
  int32_t Destroy();

  void AddBody(const MovingBody& b);
  void RemoveBody(int index);
  int BodyCount() const { return count_; }
  MovingBody& Body(int index) { return bodies_[index]; }
  void SetBackground(uint32_t seed) { background_ = seed; }

  // Renders the scene, then re-initialises from the true boxes (inclusive corners).
  int32_t Reinit();
  // Moves every body one step, renders, then tracks.
  int32_t Track();
  void Render();
  int32_t Process(bool first);

  AlgoHandle* handle = nullptr;
  Nv21Frame frame;
  ParamIn in;
  ParamOut out;
  BodyInfo inBodies[MAX_INPLACE_NUM];
  BodyInfo outBodies[MAX_INPLACE_NUM];

 private:
  MovingBody bodies_[MAX_INPLACE_NUM];
  int count_ = 0;
  uint32_t background_;
  uint32_t frameNo_ = 0;
};

// True when every tracked box of the last output lies inside the frame (stride x height).
bool OutputInsideFrame(const SceneCaller& c);
