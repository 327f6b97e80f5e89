#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// A textured body with chroma of its own, drawn only where the frame has the bytes: an odd
// height has no chroma row for its last luma row, an odd stride no V,U pair at its last column.
void DrawBodyInFrame(Nv21Frame& f, const MovingBody& b) {
  const int x0 = static_cast<int>(std::lround(b.x));
  const int y0 = static_cast<int>(std::lround(b.y));
  const int x1 = static_cast<int>(std::lround(b.x + b.w));
  const int y1 = static_cast<int>(std::lround(b.y + b.h));
  const float sx = 40.0f / std::max(1.0f, b.w);
  const float sy = 80.0f / std::max(1.0f, b.h);
  const uint8_t v = static_cast<uint8_t>(90 + (b.seed * 2654435761u >> 24) % 80);
  const uint8_t u = static_cast<uint8_t>(90 + (b.seed * 2246822519u >> 24) % 80);
  for (int y = std::max(0, y0); y < std::min(f.height, y1); ++y) {
    for (int x = std::max(0, x0); x < std::min(f.width, x1); ++x) {
      const int tu = static_cast<int>(std::floor((static_cast<float>(x) - b.x) * sx));
      const int tv = static_cast<int>(std::floor((static_cast<float>(y) - b.y) * sy));
      f.luma()[static_cast<size_t>(y) * f.stride + x] = TextureAt(b.seed, tu, tv);
      if (y / 2 < f.height / 2 && (x | 1) < f.stride) {
        uint8_t* p = f.chroma() + static_cast<size_t>(y / 2) * f.stride + (x & ~1);
        p[0] = v;
        p[1] = u;
      }
    }
  }
}

}  // namespace

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
  for (int i = 0; i < count_; ++i) DrawBodyInFrame(frame, bodies_[i]);
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
