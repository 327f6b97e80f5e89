// Debug image dump: frames written as 24-bit BMP files with the tracked boxes drawn.
#pragma once

#include <cstdint>
#include <string>

#include "ZyBodyTracking.h"

// Converts the NV12 (chromaOrder 1) or NV21 (2) frame, draws every box of out in green and
// writes "<baseName>MMDD_HHMMSS_mmm_w<width>_h<height>_reqId<reqId>.bmp". 0, or -1 when the
// RGB buffer cannot be allocated or the chroma order is neither 1 nor 2.
int DumpTrackingResult(const std::string& baseName, const uint8_t* yuv, int width, int height,
                       int chromaOrder, const ParamOut& out, uint64_t reqId);
// Fixed-point BT.601 studio-range conversions to packed R, G, B.
void ConvertNv12ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height);
void ConvertNv21ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height);
// Writes buf as a bottom-up 24-bit BMP; on return name holds the full path. 0 or -1.
int save_bmp_file(std::string& name, const uint8_t* buf, int width, int height, int channel,
                  int type, uint64_t reqId);
// Writes size raw bytes to path. 0 or -1.
int writeFile(const std::string& path, const void* buf, int size);
