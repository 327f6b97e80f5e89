// Synthetic scenes with exact ground truth, generated deterministically from a seed: photos as
// background and body textures, smooth random motion, scale change, bodies crossing and
// hiding each other, camera shake, brightness drift and sensor noise.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "metrics.h"

struct SceneConfig {
  uint32_t seed = 1;
  int width = 1280;
  int height = 720;
  int bodies = 8;     // 1 to 30
  int frames = 150;
  std::string textureDir;  // photos to draw from; empty: the default sample folder
};

struct TruthBox {
  int id;   // 1..bodies, fixed per body
  Box box;  // full extent, also where partly hidden
};

class SyntheticScene {
 public:
  explicit SyntheticScene(const SceneConfig& cfg);
  // Renders frame f (0-based, in order or not) into bgr and its ground truth into truth, in
  // body order. The same seed and frame give the same pixels.
  void Render(int f, cv::Mat* bgr, std::vector<TruthBox>* truth) const;
  const SceneConfig& config() const { return cfg_; }
  // Where the photos come from; the default when no folder is named.
  static std::string DefaultTextureDir();

 private:
  struct Body {
    cv::Mat texture;      // its appearance at unit scale
    float x0, y0, w0, h0;  // start
    float vx, vy;          // base velocity, px per frame
    float wobbleA, wobbleF, wobbleP;  // smooth sideways sway
    float scaleRate;       // size change per frame (multiplicative)
    int depth;             // drawing order: larger is nearer
  };
  Box BodyBox(const Body& b, int f) const;
  cv::Point2f Shake(int f) const;

  SceneConfig cfg_;
  cv::Mat background_;  // larger than the frame, for camera shake
  std::vector<Body> bodies_;
  std::vector<int> order_;  // body indices, far to near
};
