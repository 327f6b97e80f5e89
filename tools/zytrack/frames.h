// Frame sources (any video OpenCV decodes, raw NV21 files, synthetic scenes) and the one
// conversion of each frame to NV21 that the library reads.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "scene.h"

// An NV21 frame as the library takes it.
struct Nv21Image {
  int width = 0, height = 0, stride = 0;
  std::vector<uint8_t> bytes;  // stride * height luma, then stride * (height / 2) V,U pairs
};

// BGR (even width and height) to NV21 with stride = width.
void BgrToNv21(const cv::Mat& bgr, Nv21Image* out);
// NV21 to BGR for drawing.
void Nv21ToBgr(const Nv21Image& in, cv::Mat* bgr);

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  // Next frame as NV21 and as BGR (for drawing); false at the end.
  virtual bool Next(Nv21Image* nv21, cv::Mat* bgr) = 0;
  // Frame count when known, else 0.
  virtual int Count() const = 0;
  virtual std::string Describe() const = 0;
  // Frames per second, for the annotated video.
  virtual double Fps() const { return 30; }
  // Ground truth of the frame last returned, when the source has it.
  virtual const std::vector<TruthBox>* Truth() const { return nullptr; }
};

// A video file; odd sizes lose their last column or row. Fails with a reason.
std::unique_ptr<FrameSource> OpenVideo(const std::string& path, std::string* error);
// A raw NV21 file of frames of stride * height * 3 / 2 bytes.
std::unique_ptr<FrameSource> OpenNv21(const std::string& path, int width, int height, int stride,
                                      std::string* error);
// A synthetic scene.
std::unique_ptr<FrameSource> OpenScene(const SceneConfig& cfg);
