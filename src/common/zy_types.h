// Small value types shared by the tracker, the features and the transform.
#pragma once
#include <cstdint>

// A complex value: real part first; planes of them are row-major with packed rows, and
// multi-channel maps are channel after channel.
struct Complex {
  float re;
  float im;
};
static_assert(sizeof(Complex) == 8, "Complex is two packed floats");

// The frame as the pipeline hands it to a tracker.
struct FrameView {
  int32_t height;
  int32_t width;  // the input's stride
  const uint8_t* data;
  int32_t channels;  // 3: planar RGB patches
  uint32_t reserved;  // copied along, never read
};
