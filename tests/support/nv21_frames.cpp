#include "support/nv21_frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>

Nv21Frame::Nv21Frame(int w, int h, int s)
    : width(w), height(h), stride(s),
      data(static_cast<size_t>(s) * static_cast<size_t>(h + h / 2), 0) {}

uint32_t Hash32(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352dU;
  x ^= x >> 15;
  x *= 0x846ca68bU;
  x ^= x >> 16;
  return x;
}

SceneRng SceneRng::FromSeed(uint32_t seed) { return SceneRng(Hash32(seed) | 1u); }

namespace {
// Byte offset of (row, col) in rows of `stride` bytes; every argument is non-negative.
size_t At(int row, int stride, int col) {
  return static_cast<size_t>(row) * static_cast<size_t>(stride) + static_cast<size_t>(col);
}
int FloorDiv(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
}  // namespace

uint8_t TextureAt(uint32_t seed, int u, int v) {
  // 5-pixel blocks of random grey plus a fine diagonal ripple: strong gradients in every
  // orientation, distinct everywhere, so a correlation tracker has something to lock on.
  const uint32_t block = Hash32(seed * 0x9e3779b1u ^ static_cast<uint32_t>(FloorDiv(u, 5)) * 0x85ebca6bu ^
                              static_cast<uint32_t>(FloorDiv(v, 5)) * 0xc2b2ae35u);
  const int ripple = ((u + 2 * v) % 7 + 7) % 7 * 6;
  return static_cast<uint8_t>(std::clamp(static_cast<int>(block % 180) + 30 + ripple - 18, 0, 255));
}

void FillBackground(Nv21View f, uint32_t seed) {
  for (int y = 0; y < f.height; ++y) {
    for (int x = 0; x < f.width; ++x) {
      // Larger, softer blocks for the background.
      f.data[At(y, f.stride, x)] =
          static_cast<uint8_t>(60 + TextureAt(seed, x / 3, y / 3) / 3);
    }
  }
  for (int y = 0; y < f.height / 2; ++y) {
    for (int x = 0; x + 1 < f.width; x += 2) {
      uint8_t* p = f.data + At(f.height + y, f.stride, x);
      p[0] = static_cast<uint8_t>(118 + (x * 20) / std::max(1, f.width));   // V
      p[1] = static_cast<uint8_t>(118 + (y * 40) / std::max(1, f.height));  // U
    }
  }
}

void FillFlat(Nv21View f, uint8_t luma) {
  const size_t lumaBytes = At(f.height, f.stride, 0);
  std::memset(f.data, luma, lumaBytes);
  std::memset(f.data + lumaBytes, 128, At(f.height / 2, f.stride, 0));
}

void DrawBody(Nv21View f, float x, float y, float w, float h, uint32_t seed) {
  const int x0 = static_cast<int>(std::lround(x));
  const int y0 = static_cast<int>(std::lround(y));
  const int x1 = static_cast<int>(std::lround(x + w));
  const int y1 = static_cast<int>(std::lround(y + h));
  const uint8_t v = static_cast<uint8_t>(90 + Hash32(seed) % 80);
  const uint8_t u = static_cast<uint8_t>(90 + Hash32(seed + 1) % 80);
  // Texture coordinates scale with the body so a growing body shows a growing texture.
  const float sx = 40.0f / std::max(1.0f, w);
  const float sy = 80.0f / std::max(1.0f, h);
  for (int yy = std::max(0, y0); yy < std::min(f.height, y1); ++yy) {
    for (int xx = std::max(0, x0); xx < std::min(f.width, x1); ++xx) {
      const int tu = static_cast<int>(std::floor((static_cast<float>(xx) - x) * sx));
      const int tv = static_cast<int>(std::floor((static_cast<float>(yy) - y) * sy));
      f.data[At(yy, f.stride, xx)] = TextureAt(seed, tu, tv);
      // An odd height has no chroma row for its last luma row, an odd stride no V,U pair at
      // its last column.
      if (yy / 2 >= f.height / 2 || (xx | 1) >= f.stride) continue;
      uint8_t* p = f.data + At(f.height + yy / 2, f.stride, xx & ~1);
      p[0] = v;
      p[1] = u;
    }
  }
}
