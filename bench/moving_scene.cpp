#include "moving_scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/nv21_frames.h"

namespace zybench {
namespace {

uint8_t Clamp8(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

// Reflects p into [0, span] (a body bouncing between the frame's edges).
float Reflect(float p, float span) {
  if (span <= 0) return span * 0.5f;
  const float period = 2 * span;
  float q = std::fmod(p, period);
  if (q < 0) q += period;
  return q <= span ? q : period - q;
}

// BT.601 limited range, the inverse of what a camera's NV21 holds.
void BgrToYuv(int b, int g, int r, int* y, int* u, int* v) {
  *y = (66 * r + 129 * g + 25 * b + 128) / 256 + 16;
  *u = (-38 * r - 74 * g + 112 * b + 128) / 256 + 128;
  *v = (112 * r - 94 * g - 18 * b + 128) / 256 + 128;
}

}  // namespace

Scene::Scene(const SceneSpec& shape, Photo background) : Scene(shape, {}, background) {
  SceneRng rng = SceneRng::FromSeed(shape.seed);
  bodies_.clear();
  for (int i = 0; i < shape.bodies; ++i) {
    SceneBody b;
    const float w = rng.UniformF(shape.minSide, shape.maxSide);
    const float h = std::min(2 * w, 0.9f * static_cast<float>(shape.height));
    b.start = Box{rng.UniformF(0, std::max(1.0f, static_cast<float>(shape.width) - w)), rng.UniformF(0, std::max(1.0f, static_cast<float>(shape.height) - h)), w, h};
    b.vx = rng.UniformF(-shape.maxSpeed, shape.maxSpeed);
    b.vy = rng.UniformF(-shape.maxSpeed, shape.maxSpeed) * 0.5f;
    b.growth = rng.UniformF(-0.1f, 0.1f);
    b.seed = rng.Next();
    bodies_.push_back(b);
  }
}

Scene::Scene(const SceneSpec& shape, std::vector<SceneBody> bodies, Photo background)
    : spec_(shape), bodies_(std::move(bodies)) {
  const int W = spec_.width, H = spec_.height;
  background_.assign(static_cast<size_t>(W) * H * 3 / 2, 0);
  uint8_t* luma = background_.data();
  uint8_t* chroma = luma + static_cast<size_t>(W) * H;
  // Per pixel the background colour: the photo scaled to the frame (nearest sample), or a
  // soft procedural texture with a colour gradient.
  auto colourAt = [&](int x, int y, int* Y, int* U, int* V) {
    if (background.bgr != nullptr && background.width > 0 && background.height > 0) {
      const int px = static_cast<int>(static_cast<int64_t>(x) * background.width / W);
      const int py = static_cast<int>(static_cast<int64_t>(y) * background.height / H);
      const uint8_t* p = background.bgr + (static_cast<size_t>(py) * background.width + px) * 3;
      BgrToYuv(p[0], p[1], p[2], Y, U, V);
    } else {
      *Y = 60 + TextureAt(spec_.seed + 977u, x / 3, y / 3) / 3;
      *U = 118 + (y * 40) / H;
      *V = 118 + (x * 20) / W;
    }
  };
  for (int y = 0; y < H; ++y) {
    for (int x = 0; x < W; ++x) {
      int Y, U, V;
      colourAt(x, y, &Y, &U, &V);
      luma[static_cast<size_t>(y) * W + x] = Clamp8(Y);
      if ((y & 1) == 0 && (x & 1) == 0) {
        uint8_t* c = chroma + static_cast<size_t>(y / 2) * W + x;
        c[0] = Clamp8(V);
        c[1] = Clamp8(U);
      }
    }
  }
}

Box Scene::BoxAt(int i, int t) const {
  const SceneBody& b = bodies_[static_cast<size_t>(i)];
  // Sizes breathe slowly around the start size; positions bounce between the edges.
  const float k = 1.0f + b.growth * std::sin(static_cast<float>(t) / 25.0f);
  const float w = b.start.w * k;
  const float h = b.start.h * k;
  const float cx = b.start.x + b.start.w / 2 + b.vx * static_cast<float>(t);
  const float cy = b.start.y + b.start.h / 2 + b.vy * static_cast<float>(t);
  const float W = static_cast<float>(spec_.width), H = static_cast<float>(spec_.height);
  const float x = w < W ? Reflect(cx - w / 2, W - w) : (W - w) / 2;
  const float y = h < H ? Reflect(cy - h / 2, H - h) : (H - h) / 2;
  return Box{x, y, w, h};
}

void Scene::Render(int t, uint8_t* nv21) const {
  const int W = spec_.width, H = spec_.height;
  std::memcpy(nv21, background_.data(), background_.size());
  uint8_t* chroma = nv21 + static_cast<size_t>(W) * H;
  for (size_t i = 0; i < bodies_.size(); ++i) {
    const Box b = BoxAt(static_cast<int>(i), t);
    const uint32_t seed = bodies_[i].seed;
    const uint8_t v = static_cast<uint8_t>(80 + Hash32(seed) % 100);
    const uint8_t u = static_cast<uint8_t>(80 + Hash32(seed + 1) % 100);
    const int x0 = std::max(0, static_cast<int>(std::lround(b.x)));
    const int y0 = std::max(0, static_cast<int>(std::lround(b.y)));
    const int x1 = std::min(W, static_cast<int>(std::lround(b.x + b.w)));
    const int y1 = std::min(H, static_cast<int>(std::lround(b.y + b.h)));
    // The texture is anchored to the body and scales with it: 40 x 80 texture units.
    const float sx = 40.0f / std::max(1.0f, b.w);
    const float sy = 80.0f / std::max(1.0f, b.h);
    for (int yy = y0; yy < y1; ++yy) {
      const int tv = static_cast<int>(std::floor((static_cast<float>(yy) - b.y) * sy));
      uint8_t* row = nv21 + static_cast<size_t>(yy) * W;
      for (int xx = x0; xx < x1; ++xx) {
        const int tu = static_cast<int>(std::floor((static_cast<float>(xx) - b.x) * sx));
        row[xx] = TextureAt(seed, tu, tv);
      }
      if ((yy & 1) == 0) {
        uint8_t* c = chroma + static_cast<size_t>(yy / 2) * W;
        for (int xx = x0 & ~1; xx < x1; xx += 2) {
          c[xx] = v;
          c[xx + 1] = u;
        }
      }
    }
  }
}

std::vector<SceneBody> BodiesOfSide(int count, float side, int width, int height, uint32_t seed) {
  std::vector<SceneBody> out;
  SceneRng rng = SceneRng::FromSeed(seed);
  const int cols = std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<float>(count)))));
  const int rows = (count + cols - 1) / cols;
  for (int i = 0; i < count; ++i) {
    SceneBody b;
    const float cx = (static_cast<float>(i % cols) + 0.5f) * static_cast<float>(width) / static_cast<float>(cols);
    const float cy = (static_cast<float>(i / cols) + 0.5f) * static_cast<float>(height) / static_cast<float>(rows);
    b.start = Box{cx - side / 2, cy - side / 2, side, side};
    b.vx = rng.UniformF(-1.5f, 1.5f);
    b.vy = rng.UniformF(-1.0f, 1.0f);
    b.growth = 0;
    b.seed = rng.Next();
    out.push_back(b);
  }
  return out;
}

Corners ToCorners(const Box& b) {
  return Corners{static_cast<int32_t>(std::lround(b.x)), static_cast<int32_t>(std::lround(b.y)),
                 static_cast<int32_t>(std::lround(b.x + b.w)) - 1, static_cast<int32_t>(std::lround(b.y + b.h)) - 1};
}

float Iou(const Box& a, const Box& b) {
  const float iw = std::max(0.0f, std::min(a.x + a.w, b.x + b.w) - std::max(a.x, b.x));
  const float ih = std::max(0.0f, std::min(a.y + a.h, b.y + b.h) - std::max(a.y, b.y));
  const float inter = iw * ih;
  const float uni = a.w * a.h + b.w * b.h - inter;
  return uni > 0 ? inter / uni : 0.0f;
}

float CentreDistance(const Box& a, const Box& b) {
  return std::hypot(a.x + a.w / 2 - (b.x + b.w / 2), a.y + a.h / 2 - (b.y + b.h / 2));
}

}  // namespace zybench
