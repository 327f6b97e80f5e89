#include "frame_driver.h"

#include <cstring>

namespace zybench {

FrameDriver::FrameDriver(const Scene& scene, int frames) : scene_(scene) {
  nv21_.resize(static_cast<size_t>(frames));
  for (int t = 0; t < frames; ++t) {
    nv21_[static_cast<size_t>(t)].resize(scene.FrameBytes());
    scene.Render(t, nv21_[static_cast<size_t>(t)].data());
  }
  if (CreateKoTrackingAlgo(&handle_) != 0 || StartKoTrackingAlgo(handle_) != 0) {
    if (handle_ != nullptr) DestroyKoTrackingAlgo(&handle_);
    handle_ = nullptr;
  }
  std::memset(out_, 0, sizeof out_);
  const int n = static_cast<int>(scene.bodies().size());
  in_.resize(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    BodyInfo& b = in_[static_cast<size_t>(i)];
    std::memset(&b, 0, sizeof b);
    b.classId = 1;
    b.extra = static_cast<uint32_t>(i);
  }
}

FrameDriver::~FrameDriver() {
  if (handle_ != nullptr) DestroyKoTrackingAlgo(&handle_);
}

int FrameDriver::Process(int t, bool first) {
  ParamIn in;
  ParamOut out;
  std::memset(&in, 0, sizeof in);
  std::memset(&out, 0, sizeof out);
  in.width = scene_.width();
  in.height = scene_.height();
  in.stride = scene_.width();
  in.image = nv21_[static_cast<size_t>(t)].data();
  in.bodies = in_.data();
  in.bodyNum = static_cast<int32_t>(in_.size());
  in.isFirstFrame = first ? 1 : 0;
  out.bodies = out_;
  return ProcessKoTrackingAlgo(handle_, &in, &out);
}

int FrameDriver::Reinit() {
  for (size_t i = 0; i < in_.size(); ++i) {
    const Corners c = ToCorners(scene_.BoxAt(static_cast<int>(i), 0));
    in_[i].roi = BodyRoi{c.left, c.top, c.right, c.bottom};
  }
  return Process(0, true);
}

int FrameDriver::Track(int t) { return Process(t, false); }

Box FrameDriver::Output(int i) const {
  const BodyRoi& r = out_[i].roi;
  return Box{static_cast<float>(r.left), static_cast<float>(r.top), static_cast<float>(r.right - r.left + 1),
             static_cast<float>(r.bottom - r.top + 1)};
}

}  // namespace zybench
