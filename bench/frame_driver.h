// A caller of the library's C interface over a pre-rendered synthetic scene, shared by the
// benchmarks: re-initialises on the scene's first frame, then tracks through the rest.
#pragma once

#include <cstdint>
#include <vector>

#include "ZyBodyTracking.h"
#include "moving_scene.h"

namespace zybench {

class FrameDriver {
 public:
  // Renders frames 0..frames-1 of the scene up front.
  FrameDriver(const Scene& scene, int frames);
  ~FrameDriver();
  FrameDriver(const FrameDriver&) = delete;
  FrameDriver& operator=(const FrameDriver&) = delete;

  bool ok() const { return handle_ != nullptr; }
  int frames() const { return static_cast<int>(nv21_.size()); }
  // Re-initialisation frame 0 with the true boxes.
  int Reinit();
  // Tracking frame t (1 .. frames-1).
  int Track(int t);
  // The box the library returned for body i on the last frame.
  Box Output(int i) const;
  const uint8_t* Frame(int t) const { return nv21_[static_cast<size_t>(t)].data(); }

 private:
  int Process(int t, bool first);

  const Scene& scene_;
  std::vector<std::vector<uint8_t>> nv21_;
  AlgoHandle* handle_ = nullptr;
  std::vector<BodyInfo> in_;
  BodyInfo out_[MAX_INPLACE_NUM];
};

}  // namespace zybench
