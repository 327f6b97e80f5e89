#include "scene.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <cmath>
#include <numeric>
#include <random>

namespace {

const char* const kPhotos[] = {"baboon.jpg", "fruits.jpg", "building.jpg", "home.jpg", "messi5.jpg",
                               "board.jpg",  "apple.jpg",  "orange.jpg",   "butterfly.jpg",
                               "aero3.jpg",  "graf1.png",  "leuvenA.jpg",  "HappyFish.jpg"};

// A procedural texture when no photo can be read: blocks of random colour.
cv::Mat NoiseTexture(std::mt19937& rng, int w, int h) {
  cv::Mat small(std::max(2, h / 8), std::max(2, w / 8), CV_8UC3);
  std::uniform_int_distribution<int> u(20, 235);
  for (int y = 0; y < small.rows; ++y)
    for (int x = 0; x < small.cols; ++x) small.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uchar>(u(rng)), static_cast<uchar>(u(rng)), static_cast<uchar>(u(rng)));
  cv::Mat big;
  cv::resize(small, big, cv::Size(w, h), 0, 0, cv::INTER_NEAREST);
  return big;
}

std::vector<cv::Mat> LoadPhotos(const std::string& dir) {
  std::vector<cv::Mat> photos;
  for (const char* name : kPhotos) {
    const std::string path = dir + "/" + name;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
      std::fclose(f);
    } else {
      continue;  // absent photos are simply not used
    }
    cv::Mat m = cv::imread(path, cv::IMREAD_COLOR);
    if (!m.empty() && m.cols >= 64 && m.rows >= 64) photos.push_back(m);
  }
  return photos;
}

}  // namespace

std::string SyntheticScene::DefaultTextureDir() { return "/usr/share/doc/opencv-doc/examples/data"; }

SyntheticScene::SyntheticScene(const SceneConfig& cfgIn) : cfg_(cfgIn) {
  cfg_.bodies = std::clamp(cfg_.bodies, 1, 30);
  std::mt19937 rng(cfg_.seed);
  const std::vector<cv::Mat> photos =
      LoadPhotos(cfg_.textureDir.empty() ? DefaultTextureDir() : cfg_.textureDir);
  auto pick = [&](int w, int h) -> cv::Mat {
    if (photos.empty()) return NoiseTexture(rng, w, h);
    const cv::Mat& p = photos[rng() % photos.size()];
    // A random window of the photo with the requested aspect, resized to w x h.
    const double aspect = static_cast<double>(w) / h;
    int cw = std::min(p.cols, static_cast<int>(p.rows * aspect));
    int ch = std::min(p.rows, static_cast<int>(cw / aspect));
    cw = std::max(8, static_cast<int>(cw * std::uniform_real_distribution<double>(0.4, 1.0)(rng)));
    ch = std::max(8, static_cast<int>(cw / aspect));
    ch = std::min(ch, p.rows);
    const int x = static_cast<int>(rng() % static_cast<unsigned>(p.cols - cw + 1));
    const int y = static_cast<int>(rng() % static_cast<unsigned>(p.rows - ch + 1));
    cv::Mat out;
    cv::resize(p(cv::Rect(x, y, cw, ch)), out, cv::Size(w, h), 0, 0, cv::INTER_AREA);
    return out;
  };

  const int margin = 24;  // room for camera shake
  background_ = pick(cfg_.width + 2 * margin, cfg_.height + 2 * margin);
  // Soften the background a little so the bodies stand out as in real footage.
  cv::GaussianBlur(background_, background_, cv::Size(5, 5), 0);

  const float unit = static_cast<float>(cfg_.height) / 720.0f;  // sizes scale with the frame
  std::uniform_real_distribution<float> uni(0, 1);
  for (int i = 0; i < cfg_.bodies; ++i) {
    Body b;
    b.h0 = (90 + 110 * uni(rng)) * unit;
    b.w0 = b.h0 * (0.35f + 0.2f * uni(rng));  // upright, body-like aspect
    b.x0 = uni(rng) * (static_cast<float>(cfg_.width) - b.w0);
    b.y0 = uni(rng) * (static_cast<float>(cfg_.height) - b.h0);
    const float speed = (0.5f + 2.5f * uni(rng)) * unit;
    const float angle = 6.2831853f * uni(rng);
    b.vx = speed * std::cos(angle);
    b.vy = 0.4f * speed * std::sin(angle);
    b.wobbleA = 6 * unit * uni(rng);
    b.wobbleF = 0.02f + 0.05f * uni(rng);
    b.wobbleP = 6.2831853f * uni(rng);
    b.scaleRate = 1.0f + (uni(rng) - 0.5f) * 0.006f;  // up to +-0.3 % a frame
    b.depth = static_cast<int>(rng() % 1000);
    b.texture = pick(static_cast<int>(b.w0), static_cast<int>(b.h0));
    bodies_.push_back(b);
  }
  order_.resize(bodies_.size());
  std::iota(order_.begin(), order_.end(), 0);
  std::stable_sort(order_.begin(), order_.end(), [&](int a, int c) { return bodies_[a].depth < bodies_[c].depth; });
}

Box SyntheticScene::BodyBox(const Body& b, int f) const {
  // Bodies bounce off the frame's edges: positions fold back into the frame.
  const float s = std::pow(b.scaleRate, static_cast<float>(f));
  const float w = b.w0 * s, h = b.h0 * s;
  auto fold = [](float p, float range) {
    if (range <= 0) return 0.0f;
    float m = std::fmod(p, 2 * range);
    if (m < 0) m += 2 * range;
    return m <= range ? m : 2 * range - m;
  };
  const float t = static_cast<float>(f);
  const float x = fold(b.x0 + b.vx * t + b.wobbleA * std::sin(b.wobbleF * t + b.wobbleP),
                       static_cast<float>(cfg_.width) - w);
  const float y = fold(b.y0 + b.vy * t, static_cast<float>(cfg_.height) - h);
  return Box{x, y, w, h};
}

cv::Point2f SyntheticScene::Shake(int f) const {
  // A hand-held camera: a slow sway plus a faster tremor, bounded by the margin.
  const float phase = static_cast<float>(cfg_.seed % 97);
  const float t = static_cast<float>(f);
  return cv::Point2f(8.0f * std::sin(0.05f * t + phase) + 2.5f * std::sin(0.9f * t),
                     5.0f * std::sin(0.037f * t + 2 * phase) + 2.0f * std::cos(1.3f * t));
}

void SyntheticScene::Render(int f, cv::Mat* bgr, std::vector<TruthBox>* truth) const {
  const cv::Point2f shake = Shake(f);
  const int margin = (background_.cols - cfg_.width) / 2;
  // The background moves with the shake; whole-pixel shifts keep it sharp.
  const int bx = margin + static_cast<int>(std::lround(shake.x));
  const int by = margin + static_cast<int>(std::lround(shake.y));
  background_(cv::Rect(bx, by, cfg_.width, cfg_.height)).copyTo(*bgr);
  truth->assign(bodies_.size(), TruthBox{});
  for (size_t i = 0; i < bodies_.size(); ++i) {
    Box b = BodyBox(bodies_[i], f);
    // The camera moves: the bodies shift on screen exactly as the background does.
    b.x -= static_cast<float>(bx - margin);
    b.y -= static_cast<float>(by - margin);
    (*truth)[i] = TruthBox{static_cast<int>(i) + 1, b};
  }
  // Far to near, so nearer bodies hide farther ones where they cross.
  for (int i : order_) {
    const Box& b = (*truth)[static_cast<size_t>(i)].box;
    const int x = static_cast<int>(std::lround(b.x)), y = static_cast<int>(std::lround(b.y));
    const int w = std::max(2, static_cast<int>(std::lround(b.w)));
    const int h = std::max(2, static_cast<int>(std::lround(b.h)));
    cv::Mat tex;
    cv::resize(bodies_[static_cast<size_t>(i)].texture, tex, cv::Size(w, h), 0, 0, cv::INTER_LINEAR);
    const cv::Rect dst = cv::Rect(x, y, w, h) & cv::Rect(0, 0, cfg_.width, cfg_.height);
    if (dst.area() <= 0) continue;
    tex(cv::Rect(dst.x - x, dst.y - y, dst.width, dst.height)).copyTo((*bgr)(dst));
  }
  // Brightness drift and sensor noise, both from the seed and the frame number.
  const double gain = 1.0 + 0.12 * std::sin(f / 45.0 + cfg_.seed);
  cv::Mat noise(bgr->size(), CV_16SC3);
  cv::RNG rng(static_cast<uint64_t>(cfg_.seed) * 1000003u + static_cast<uint64_t>(f));
  rng.fill(noise, cv::RNG::NORMAL, 0, 3.0);
  cv::Mat acc;
  bgr->convertTo(acc, CV_16SC3, gain);
  acc += noise;
  acc.convertTo(*bgr, CV_8UC3);
}
