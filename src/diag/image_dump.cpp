#include "diag/image_dump.h"

#include <limits.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/zy_alloc.h"
#include "common/zy_bt601.h"
#include "common/zy_log.h"

namespace {

// BMP headers: 14-byte file header, 40-byte info header, pixel data right after.
constexpr int kFileHeaderBytes = 14;
constexpr int kInfoHeaderBytes = 40;
constexpr int kPixelDataOffset = kFileHeaderBytes + kInfoHeaderBytes;

// The frame's colours as the tracker's crop converts them (common/zy_bt601.h).
using zy::bt601::kChromaZero;
using zy::bt601::kFixedMax;
using zy::bt601::kFracBits;
using zy::bt601::kLumaFloor;
using zy::bt601::kLumaScale;
using zy::bt601::kUToB;
using zy::bt601::kUToG;
using zy::bt601::kVToG;
using zy::bt601::kVToR;
constexpr int kLumaOffset = kLumaFloor * kLumaScale;

inline uint8_t FixedToByte(int v) {
  return static_cast<uint8_t>(std::min(std::max(v, 0), kFixedMax) >> kFracBits);
}

// One converter for both chroma orders: uFirst is NV12 (U, V pairs), else NV21 (V, U).
void ConvertSemiPlanarToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height, bool uFirst) {
  if (yuv == nullptr || rgb == nullptr || width <= 0 || height <= 0) return;
  const size_t w = static_cast<size_t>(width);
  const size_t h = static_cast<size_t>(height);
  // The frame ends after height / 2 chroma rows; an odd height or width would make the
  // last row's chroma pair reach past it, and those bytes read as neutral chroma.
  const size_t frameBytes = w * h + w * (h / 2);
  for (size_t r = 0; r < h; ++r) {
    const uint8_t* luma = yuv + r * w;
    const size_t chromaRow = (h + r / 2) * w;
    uint8_t* dst = rgb + r * w * 3;
    int u = 0;
    int v = 0;
    for (size_t c = 0; c < w; ++c) {
      if ((c & 1) == 0) {  // one pair serves an even column and the odd one after it
        const size_t at = chromaRow + c;
        const int first = at < frameBytes ? yuv[at] : kChromaZero;
        const int second = at + 1 < frameBytes ? yuv[at + 1] : kChromaZero;
        u = (uFirst ? first : second) - kChromaZero;
        v = (uFirst ? second : first) - kChromaZero;
      }
      const int y = std::max<int>(luma[c], kLumaFloor) * kLumaScale - kLumaOffset;
      dst[3 * c + 0] = FixedToByte(y + kVToR * v);
      dst[3 * c + 1] = FixedToByte(y - kUToG * u - kVToG * v);
      dst[3 * c + 2] = FixedToByte(y + kUToB * u);
    }
  }
}

inline void SetGreen(uint8_t* rgb, int width, int height, int x, int y) {
  if (x < 0 || x >= width || y < 0 || y >= height) return;
  uint8_t* p =
      rgb + (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3;
  p[0] = 0;
  p[1] = 255;
  p[2] = 0;
}

// The box outline with inclusive corners; pixels outside the frame are skipped, and the
// loops only walk the part of each edge that can be inside.
void DrawBox(uint8_t* rgb, int width, int height, const BodyRoi& roi) {
  const int x0 = std::max(roi.left, 0);
  const int x1 = std::min(roi.right, width - 1);
  for (int x = x0; x <= x1; ++x) {
    SetGreen(rgb, width, height, x, roi.top);
    SetGreen(rgb, width, height, x, roi.bottom);
  }
  const int y0 = std::max(roi.top, 0);
  const int y1 = std::min(roi.bottom, height - 1);
  for (int y = y0; y <= y1; ++y) {
    SetGreen(rgb, width, height, roi.left, y);
    SetGreen(rgb, width, height, roi.right, y);
  }
}

inline void PutLe16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

inline void PutLe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Both headers; the two size fields count width * height * 3 without the row padding.
void BuildBmpHeaders(uint8_t (&hdr)[kPixelDataOffset], int width, int height) {
  std::memset(hdr, 0, sizeof hdr);
  const uint32_t imageBytes = static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 3u;
  hdr[0] = 'B';
  hdr[1] = 'M';
  PutLe32(hdr + 2, imageBytes + kPixelDataOffset);
  PutLe32(hdr + 10, kPixelDataOffset);
  PutLe32(hdr + 14, kInfoHeaderBytes);
  PutLe32(hdr + 18, static_cast<uint32_t>(width));
  PutLe32(hdr + 22, static_cast<uint32_t>(height));  // positive: rows stored bottom-up
  PutLe16(hdr + 26, 1);                              // planes
  PutLe16(hdr + 28, 24);                             // bits per pixel
  PutLe32(hdr + 34, imageBytes);                     // compression, resolutions, colours: 0
}

// The directory part of a dump's base name (up to its last '/', the current directory when
// there is none) exists and lets this process create files in it.
bool DumpDirectoryWritable(const std::string& baseName) {
  const size_t slash = baseName.rfind('/');
  if (slash == std::string::npos) return access(".", W_OK | X_OK) == 0;
  if (slash == 0) return access("/", W_OK | X_OK) == 0;
  char dir[PATH_MAX];
  if (slash >= sizeof dir) return true;  // too long to check here: fopen finds out
  std::memcpy(dir, baseName.data(), slash);
  dir[slash] = '\0';
  return access(dir, W_OK | X_OK) == 0;
}

}  // namespace

bool DumpFrameSizeOk(int width, int height) {
  if (width <= 0 || height <= 0) return false;
  const int64_t paddedRow = (static_cast<int64_t>(width) * 3 + 3) & ~int64_t{3};
  return paddedRow <= (INT32_MAX - kPixelDataOffset) / height;
}

void ConvertNv12ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height) {
  ConvertSemiPlanarToRgb(yuv, rgb, width, height, true);
}

void ConvertNv21ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height) {
  ConvertSemiPlanarToRgb(yuv, rgb, width, height, false);
}

int DumpTrackingResult(const std::string& baseName, const uint8_t* yuv, int width, int height,
                       int chromaOrder, const ParamOut& out, uint64_t reqId) {
  if (yuv == nullptr || !DumpFrameSizeOk(width, height) || out.bodyNum > MAX_INPLACE_NUM ||
      (out.bodyNum > 0 && out.bodies == nullptr)) {
    return -1;
  }
  // A file that cannot be created is found out before the frame is converted: a missing or
  // read-only dump directory then costs one system call per frame, not a full RGB copy.
  if (chromaOrder != 1 && chromaOrder != 2) return -1;
  if (!DumpDirectoryWritable(baseName)) return 0;
  const size_t rgbBytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
  uint8_t* rgb = static_cast<uint8_t*>(zy::Malloc(rgbBytes));
  if (rgb == nullptr) return -1;
  if (chromaOrder == 1) {
    ConvertNv12ToRgb(yuv, rgb, width, height);
  } else {
    ConvertNv21ToRgb(yuv, rgb, width, height);
  }
  for (int i = 0; i < out.bodyNum; ++i) DrawBox(rgb, width, height, out.bodies[i].roi);

  // A dump that cannot be written (no directory, no memory) must not disturb tracking: a
  // file name that cannot be built is a dump skipped, never an exception out of the frame.
  try {
    std::string name = baseName;
    (void)save_bmp_file(name, rgb, width, height, 3, 0, reqId);
  } catch (...) {
  }
  std::free(rgb);
  return 0;
}

void FormatDumpTime(const struct tm& local, long microseconds, char* out, size_t cap) {
  if (out == nullptr || cap == 0) return;
  char clock[64] = {0};
  if (std::strftime(clock, sizeof clock, "%m%d_%H%M%S_", &local) == 0) clock[0] = '\0';
  const long ms = microseconds / 1000;
  char millis[24];  // room for "00" and any long
  if (ms < 10) {
    std::snprintf(millis, sizeof millis, "00%ld", ms);
  } else if (ms < 100) {
    std::snprintf(millis, sizeof millis, "0%ld", ms);
  } else {
    std::snprintf(millis, sizeof millis, "%ld", ms);
  }
  std::snprintf(out, cap, "%s%s", clock, millis);
}

int save_bmp_file(std::string& name, const uint8_t* buf, int width, int height, int channel,
                  int type, uint64_t reqId) {
  if (static_cast<unsigned>(type) > 1u || buf == nullptr || (channel != 1 && channel != 3) ||
      !DumpFrameSizeOk(width, height)) {
    ZY_LOGE("%s %d: input error buf=%p, width=%d, height=%d, channel=%d, type=%d!\n",
            "save_bmp_file", 53, static_cast<const void*>(buf), width, height, channel, type);
    return -1;
  }

  // One clock reading gives both the second and its milliseconds, so they always agree;
  // localtime_r because dumps of different handles may run on different threads.
  timeval now{};
  gettimeofday(&now, nullptr);
  const time_t seconds = now.tv_sec;
  struct tm local {};
  if (localtime_r(&seconds, &local) == nullptr) std::memset(&local, 0, sizeof local);
  char timePart[96];
  FormatDumpTime(local, static_cast<long>(now.tv_usec), timePart, sizeof timePart);
  char suffix[128];  // at most 56 characters: two ints and a 64-bit id
  std::snprintf(suffix, sizeof suffix, "_w%d_h%d_reqId%llu.bmp", width, height,
                static_cast<unsigned long long>(reqId));
  name += timePart;
  name += suffix;

  const size_t w = static_cast<size_t>(width);
  const size_t h = static_cast<size_t>(height);
  const size_t rowBytes = w * 3;
  const size_t padding = (0u - rowBytes) & 3u;  // rows are padded to a multiple of 4 bytes
  uint8_t* row = zy::NewArray<uint8_t>(rowBytes);
  if (row == nullptr) return -1;
  FILE* file = std::fopen(name.c_str(), "wb");
  if (file == nullptr) {
    delete[] row;
    return -1;
  }

  uint8_t hdr[kPixelDataOffset];
  BuildBmpHeaders(hdr, width, height);
  std::fwrite(hdr, 1, sizeof hdr, file);

  const size_t plane = w * h;
  for (size_t k = 0; k < h; ++k) {
    const size_t src = h - 1 - k;  // bottom-up: the last image row comes first
    if (channel == 1) {
      const uint8_t* grey = buf + src * w;
      for (size_t j = 0; j < w; ++j) {
        row[3 * j] = row[3 * j + 1] = row[3 * j + 2] = grey[j];
      }
    } else if (type == 0) {
      const uint8_t* px = buf + src * w * 3;
      for (size_t j = 0; j < w; ++j) {
        row[3 * j] = px[3 * j + 2];
        row[3 * j + 1] = px[3 * j + 1];
        row[3 * j + 2] = px[3 * j];
      }
    } else {
      const uint8_t* p0 = buf + src * w;
      for (size_t j = 0; j < w; ++j) {
        row[3 * j] = p0[2 * plane + j];
        row[3 * j + 1] = p0[plane + j];
        row[3 * j + 2] = p0[j];
      }
    }
    std::fwrite(row, 1, rowBytes, file);
    for (size_t p = 0; p < padding; ++p) std::fputc(0, file);
  }
  std::fclose(file);
  delete[] row;
  return 0;
}

int writeFile(const std::string& path, const void* buf, int size) {
  if (buf == nullptr || size <= 0) {
    std::printf("%s %d : input parm error!\n", "writeFile", 165);
    return -1;
  }
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    std::printf("%s %d : Write %s Failed!\n", "writeFile", 171, path.c_str());
    return -1;
  }
  std::fwrite(buf, 1, static_cast<size_t>(size), file);
  std::fclose(file);
  std::printf("save file: %s success!\n", path.c_str());
  return 0;
}
