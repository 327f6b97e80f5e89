// Synthetic NV21 frames for the tests, the fuzzer, the soak and the benchmarks: one hash, one
// generator and one texture, a textured background and textured rectangular bodies whose
// texture moves with them, all deterministic from seeds. The benchmarks' whole moving scenes
// (bench/moving_scene.h) build on these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A frame in memory someone else owns: stride * height luma bytes, then stride * (height / 2)
// chroma bytes (V, U pairs).
struct Nv21View {
  int width, height, stride;
  uint8_t* data;
};

struct Nv21Frame {
  int width = 0;
  int height = 0;
  int stride = 0;
  std::vector<uint8_t> data;  // stride * height luma bytes, then stride * height / 2 chroma

  Nv21Frame() = default;
  Nv21Frame(int w, int h, int s);
  operator Nv21View() { return {width, height, stride, data.data()}; }
};

// A small fixed-seed generator (xorshift32) so every synthetic input is reproducible.
struct SceneRng {
  uint32_t s;
  explicit SceneRng(uint32_t state) : s(state ? state : 0x9e3779b9u) {}
  // A generator whose start is the seed's hash: nearby seeds give unrelated sequences.
  static SceneRng FromSeed(uint32_t seed);
  uint32_t Next() {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    return s;
  }
  int Uniform(int lo, int hi) { return lo + static_cast<int>(Next() % static_cast<uint32_t>(hi - lo + 1)); }
  // lo .. hi in 100,000 steps.
  float UniformF(float lo, float hi) {
    return lo + (hi - lo) * static_cast<float>(Next() % 100000u) / 99999.0f;
  }
};

// An integer hash (good avalanche) for test textures and noise.
uint32_t Hash32(uint32_t x);

// Blocky luma texture anchored to its owner: value at integer coordinates (u, v).
uint8_t TextureAt(uint32_t seed, int u, int v);

// Fills the whole frame with the background texture and a gentle chroma gradient.
void FillBackground(Nv21View f, uint32_t seed);
// Fills the whole frame with one luma value and neutral chroma.
void FillFlat(Nv21View f, uint8_t luma);
// Draws a body: a rectangle at (x, y) of size w x h (rounded to pixels) textured in body
// coordinates, with its own chroma where the frame has chroma bytes for it.
void DrawBody(Nv21View f, float x, float y, float w, float h, uint32_t seed);
