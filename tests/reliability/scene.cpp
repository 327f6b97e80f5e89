#include "scene.h"

#include <cmath>
#include <cstring>

SceneCaller::SceneCaller(int width, int height, int stride, uint32_t backgroundSeed)
    : frame(width, height, stride), background_(backgroundSeed) {
  std::memset(&in, 0, sizeof in);
  std::memset(&out, 0, sizeof out);
  std::memset(inBodies, 0, sizeof inBodies);
  std::memset(outBodies, 0, sizeof outBodies);
  in.width = width;
  in.height = height;
  in.stride = stride;
  in.image = frame.data.data();
  in.bodies = inBodies;
  out.bodies = outBodies;
}

SceneCaller::~SceneCaller() { Destroy(); }

int32_t SceneCaller::Open(int32_t* startResult) {
  const int32_t rc = CreateKoTrackingAlgo(&handle);
  if (rc != 0) return rc;
  const int32_t started = StartKoTrackingAlgo(handle);
  if (startResult != nullptr) *startResult = started;
  return 0;
}

int32_t SceneCaller::Destroy() { return handle != nullptr ? DestroyKoTrackingAlgo(&handle) : 0; }

void SceneCaller::AddBody(const MovingBody& b) {
  if (count_ < MAX_INPLACE_NUM) bodies_[count_++] = b;
}

void SceneCaller::RemoveBody(int index) {
  if (index < 0 || index >= count_) return;
  for (int i = index; i + 1 < count_; ++i) bodies_[i] = bodies_[i + 1];
  --count_;
}

void SceneCaller::Render() {
  FillBackground(frame, background_);
  for (int i = 0; i < count_; ++i) {
    const MovingBody& b = bodies_[i];
    DrawBody(frame, b.x, b.y, b.w, b.h, b.seed);
  }
}

int32_t SceneCaller::Process(bool first) {
  in.bodyNum = count_;
  in.isFirstFrame = first ? 1 : 0;
  for (int i = 0; i < count_; ++i) inBodies[i].extra = frameNo_ * 64u + static_cast<uint32_t>(i);
  ++frameNo_;
  return ProcessKoTrackingAlgo(handle, &in, &out);
}

int32_t SceneCaller::Reinit() {
  Render();
  for (int i = 0; i < count_; ++i) {
    const MovingBody& b = bodies_[i];
    BodyInfo& bi = inBodies[i];
    bi.classId = b.classId;
    bi.bodyId = 0;
    bi.roi.left = static_cast<int32_t>(std::lround(b.x));
    bi.roi.top = static_cast<int32_t>(std::lround(b.y));
    bi.roi.right = static_cast<int32_t>(std::lround(b.x + b.w)) - 1;
    bi.roi.bottom = static_cast<int32_t>(std::lround(b.y + b.h)) - 1;
  }
  return Process(true);
}

int32_t SceneCaller::Track() {
  for (int i = 0; i < count_; ++i) {
    bodies_[i].x += bodies_[i].vx;
    bodies_[i].y += bodies_[i].vy;
  }
  Render();
  return Process(false);
}

bool OutputInsideFrame(const SceneCaller& c) {
  for (int i = 0; i < c.out.bodyNum && i < MAX_INPLACE_NUM; ++i) {
    const BodyRoi& r = c.outBodies[i].roi;
    if (r.left < 0 || r.left >= c.in.stride || r.right < 0 || r.right >= c.in.stride) return false;
    if (r.top < 0 || r.top >= c.in.height || r.bottom < 0 || r.bottom >= c.in.height) return false;
  }
  return true;
}
