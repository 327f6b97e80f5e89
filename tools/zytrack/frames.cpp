#include "frames.h"

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <fstream>

void BgrToNv21(const cv::Mat& bgr, Nv21Image* out) {
  const int w = bgr.cols & ~1, h = bgr.rows & ~1;
  cv::Mat i420;
  cv::cvtColor(bgr(cv::Rect(0, 0, w, h)), i420, cv::COLOR_BGR2YUV_I420);
  out->width = out->stride = w;
  out->height = h;
  out->bytes.resize(static_cast<size_t>(w) * h * 3 / 2);
  const uint8_t* y = i420.data;
  const uint8_t* u = y + static_cast<size_t>(w) * h;
  const uint8_t* v = u + static_cast<size_t>(w / 2) * (h / 2);
  std::memcpy(out->bytes.data(), y, static_cast<size_t>(w) * h);
  uint8_t* vu = out->bytes.data() + static_cast<size_t>(w) * h;
  for (size_t k = 0; k < static_cast<size_t>(w / 2) * (h / 2); ++k) {
    vu[2 * k] = v[k];
    vu[2 * k + 1] = u[k];
  }
}

void Nv21ToBgr(const Nv21Image& in, cv::Mat* bgr) {
  cv::Mat yuv(in.height * 3 / 2, in.stride, CV_8UC1, const_cast<uint8_t*>(in.bytes.data()));
  cv::Mat full;
  cv::cvtColor(yuv, full, cv::COLOR_YUV2BGR_NV21);
  *bgr = full(cv::Rect(0, 0, in.width, in.height)).clone();
}

namespace {

class VideoSource : public FrameSource {
 public:
  VideoSource(cv::VideoCapture cap, std::string path) : cap_(std::move(cap)), path_(std::move(path)) {
    count_ = static_cast<int>(cap_.get(cv::CAP_PROP_FRAME_COUNT));
    const double fps = cap_.get(cv::CAP_PROP_FPS);
    if (fps > 0 && fps < 1000) fps_ = fps;
  }
  bool Next(Nv21Image* nv21, cv::Mat* bgr) override {
    cv::Mat frame;
    if (!cap_.read(frame) || frame.empty()) return false;
    if (frame.channels() == 1) cv::cvtColor(frame, frame, cv::COLOR_GRAY2BGR);
    BgrToNv21(frame, nv21);
    *bgr = frame(cv::Rect(0, 0, nv21->width, nv21->height)).clone();
    return true;
  }
  int Count() const override { return count_ > 0 ? count_ : 0; }
  std::string Describe() const override { return path_; }
  double Fps() const override { return fps_; }

 private:
  cv::VideoCapture cap_;
  std::string path_;
  int count_ = 0;
  double fps_ = 25;
};

class Nv21FileSource : public FrameSource {
 public:
  Nv21FileSource(std::ifstream in, std::string path, int w, int h, int s, int count)
      : in_(std::move(in)), path_(std::move(path)), w_(w), h_(h), s_(s), count_(count) {}
  bool Next(Nv21Image* nv21, cv::Mat* bgr) override {
    nv21->width = w_;
    nv21->height = h_;
    nv21->stride = s_;
    nv21->bytes.resize(static_cast<size_t>(s_) * h_ * 3 / 2);
    if (!in_.read(reinterpret_cast<char*>(nv21->bytes.data()), static_cast<std::streamsize>(nv21->bytes.size())))
      return false;
    Nv21ToBgr(*nv21, bgr);
    return true;
  }
  int Count() const override { return count_; }
  std::string Describe() const override { return path_; }

 private:
  std::ifstream in_;
  std::string path_;
  int w_, h_, s_, count_;
};

class SceneSource : public FrameSource {
 public:
  explicit SceneSource(const SceneConfig& cfg) : scene_(cfg) {}
  bool Next(Nv21Image* nv21, cv::Mat* bgr) override {
    if (next_ >= scene_.config().frames) return false;
    cv::Mat frame;
    scene_.Render(next_++, &frame, &truth_);
    BgrToNv21(frame, nv21);
    *bgr = frame;
    return true;
  }
  int Count() const override { return scene_.config().frames; }
  std::string Describe() const override {
    const auto& c = scene_.config();
    return "synthetic scene (seed " + std::to_string(c.seed) + ", " + std::to_string(c.width) + "x" +
           std::to_string(c.height) + ", " + std::to_string(c.bodies) + " bodies)";
  }
  const std::vector<TruthBox>* Truth() const override { return &truth_; }

 private:
  SyntheticScene scene_;
  int next_ = 0;
  std::vector<TruthBox> truth_;
};

}  // namespace

std::unique_ptr<FrameSource> OpenVideo(const std::string& path, std::string* error) {
  std::ifstream probe(path);
  if (!probe) {
    *error = path + ": cannot be read";
    return nullptr;
  }
  // Backends that do not take the file log errors of their own while OpenCV tries them in turn;
  // the reason given below is the one that counts. Its ffmpeg backend goes first.
  const auto level = cv::utils::logging::getLogLevel();
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  cv::VideoCapture cap;
  if (!cap.open(path, cv::CAP_FFMPEG)) cap.open(path, cv::CAP_ANY);
  cv::utils::logging::setLogLevel(level);
  if (!cap.isOpened()) {
    *error = path + ": not a video this build can decode";
    return nullptr;
  }
  return std::make_unique<VideoSource>(std::move(cap), path);
}

std::unique_ptr<FrameSource> OpenNv21(const std::string& path, int width, int height, int stride,
                                      std::string* error) {
  if (stride == 0) stride = width;
  if (width < 2 || height < 2 || (width % 2) || (height % 2) || stride < width || width > 16384 ||
      height > 16384 || stride > 16384) {
    *error = "impossible NV21 geometry: width " + std::to_string(width) + ", height " + std::to_string(height) +
             ", stride " + std::to_string(stride) + " (even sizes from 2, stride at least the width)";
    return nullptr;
  }
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) {
    *error = path + ": cannot be read";
    return nullptr;
  }
  const long long size = static_cast<long long>(in.tellg());
  const long long frame = static_cast<long long>(stride) * height * 3 / 2;
  if (size < frame || size % frame != 0) {
    *error = path + ": " + std::to_string(size) + " bytes is not a whole number of " + std::to_string(frame) +
             "-byte NV21 frames for this geometry";
    return nullptr;
  }
  in.seekg(0);
  return std::make_unique<Nv21FileSource>(std::move(in), path, width, height, stride,
                                          static_cast<int>(size / frame));
}

std::unique_ptr<FrameSource> OpenScene(const SceneConfig& cfg) { return std::make_unique<SceneSource>(cfg); }
