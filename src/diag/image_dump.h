// Debug image dump: frames written as 24-bit BMP files with the tracked boxes drawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "ZyBodyTracking.h"

// Frames accepted by the dump: width and height positive and the padded BMP (54 header bytes
// plus height rows of width * 3 bytes rounded up to 4) no larger than INT32_MAX bytes, so
// every size in the headers and every buffer offset fits.
bool DumpFrameSizeOk(int width, int height);

// Converts the NV12 (chromaOrder 1) or NV21 (2) frame, draws every box of out in green and
// writes "<baseName>MMDD_HHMMSS_mmm_w<width>_h<height>_reqId<reqId>.bmp" (the directory must
// exist; a failed write is not reported). A directory this process cannot write to is
// checked first, and the frame is then neither converted nor written (0). 0, or -1 when the
// RGB buffer cannot be allocated or the chroma order is neither 1 nor 2. Also -1, with
// nothing written, for a null yuv, a frame DumpFrameSizeOk refuses, out.bodyNum above
// MAX_INPLACE_NUM, or null out.bodies with bodies to draw; a count of 0 or below draws no
// box. Box pixels outside the frame are skipped.
int DumpTrackingResult(const std::string& baseName, const uint8_t* yuv, int width, int height,
                       int chromaOrder, const ParamOut& out, uint64_t reqId);
// Fixed-point BT.601 studio-range conversions to width * height packed R, G, B triples. yuv
// holds height luma rows of width bytes, then height / 2 chroma rows of width bytes (NV12:
// U, V pairs; NV21: V, U). Chroma bytes that would lie past those rows (the last row of an
// odd height, the last pair of an odd width) read as neutral 128. Null pointers or a
// non-positive size convert nothing.
void ConvertNv12ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height);
void ConvertNv21ToRgb(const uint8_t* yuv, uint8_t* rgb, int width, int height);
// Writes buf (channel 1: grey; channel 3 with type 0: interleaved triples a, b, c written
// as c, b, a; channel 3 with type 1: three planes) as a bottom-up 24-bit BMP named
// "<name>MMDD_HHMMSS_mmm_w<width>_h<height>_reqId<reqId>.bmp"; on return name holds that
// full path. -1 with an error log line for a bad type, channel, buffer or size (name is then
// unchanged); -1 without one when the row buffer cannot be allocated or the file cannot be
// opened. Otherwise 0.
int save_bmp_file(std::string& name, const uint8_t* buf, int width, int height, int channel,
                  int type, uint64_t reqId);
// Writes size raw bytes to path, reporting on standard output. 0 or -1.
int writeFile(const std::string& path, const void* buf, int size);

// Puts the time part of a dump's name, local time "MMDD_HHMMSS_" and the milliseconds of
// the second as three digits, into out (at most cap bytes with the terminator).
void FormatDumpTime(const struct tm& local, long microseconds, char* out, size_t cap);
