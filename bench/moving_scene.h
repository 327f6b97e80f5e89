// Whole synthetic scenes for the benchmarks: textured bodies moving
// over a background (a photo when one is given, else the procedural texture of
// support/nv21_frames.h), rendered straight into NV21 with the true box of every body on every
// frame. Everything is deterministic from the seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zybench {

// A box in frame pixels: top-left corner and size.
struct Box {
  float x, y, w, h;
};

struct SceneBody {
  Box start;
  float vx, vy;    // pixels per frame
  float growth;    // relative size change per frame
  uint32_t seed;   // texture and colour
};

struct SceneSpec {
  int width = 1280;
  int height = 720;
  int bodies = 10;
  float minSide = 40;   // body widths are drawn from [minSide, maxSide]; heights are 2x
  float maxSide = 120;
  float maxSpeed = 4;   // pixels per frame along each axis
  uint32_t seed = 1;
};

// An RGB photo handed over by the caller (8-bit, row-major, 3 bytes per pixel, B G R order).
struct Photo {
  const uint8_t* bgr = nullptr;
  int width = 0;
  int height = 0;
};

class Scene {
 public:
  // Bodies placed at random from the shape's seed.
  explicit Scene(const SceneSpec& shape, Photo background = Photo{});
  // The given bodies (shape.bodies is ignored).
  Scene(const SceneSpec& shape, std::vector<SceneBody> bodies, Photo background = Photo{});

  int width() const { return spec_.width; }
  int height() const { return spec_.height; }
  const std::vector<SceneBody>& bodies() const { return bodies_; }
  // True box of body i on frame t (frame 0 is the first).
  Box BoxAt(int i, int t) const;
  // Renders frame t into nv21 (width * height * 3 / 2 bytes, stride = width).
  void Render(int t, uint8_t* nv21) const;
  size_t FrameBytes() const { return static_cast<size_t>(spec_.width) * spec_.height * 3 / 2; }

 private:
  SceneSpec spec_;
  std::vector<SceneBody> bodies_;
  std::vector<uint8_t> background_;  // NV21 of the background alone
};

// count square bodies of the given side spread over the frame, slowly moving: for the sweep
// over box sizes (boxes larger than the frame are allowed; they sit centred on it).
std::vector<SceneBody> BodiesOfSide(int count, float side, int width, int height, uint32_t seed);

// Inclusive integer corners of a box, as the library's callers pass them.
struct Corners {
  int32_t left, top, right, bottom;
};
Corners ToCorners(const Box& b);

// Overlap of two boxes (intersection over union) and the distance of their centres.
float Iou(const Box& a, const Box& b);
float CentreDistance(const Box& a, const Box& b);

}  // namespace zybench
