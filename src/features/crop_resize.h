// Cutting a search window out of an NV21 frame, scaling it to the template size and
// converting it to planar RGB (or one grey plane), bit-exact in fixed point.
//
// Frames are NV21 with row stride = width: width * height luma bytes, then height / 2 rows of
// width bytes of interleaved V, U. The frame is only read; bytes the sampling would take from
// beyond its end (at most a few, at the bottom-right corner) read as 0. Nothing here allocates
// for outW up to 256 and nothing keeps state: calls on different outputs may run in parallel.
#pragma once

#include <cstdint>

// Crops roi = {x, y, w, h} (frame pixels, may reach past the frame) out of the NV21 frame of
// width x height (row stride = width), scales it by w / outW on both axes (floor-mapped 2x2
// box averages) and writes three planes R, G, B (channels == 3) or one grey plane (any other
// channels value) into dst, which holds outW * outH * channels bytes and is cleared first.
// Returns 0, or 9 when outW is 0 or roi is null (dst untouched) or the three-channel path
// failed (logged).
uint32_t CropResizeYuv2rgbAcc(const uint8_t* frame, uint32_t width, uint32_t height, uint8_t* dst,
                              const float roi[4], int32_t outW, uint32_t outH, uint32_t channels);

// The three-channel path. imageRect = {left, top, right, bottom} is the frame part read,
// validRect = {startX, startY, endX, endY} the same part in crop coordinates. Used output
// columns are packed to the left (the rest keep what dst held); whole groups of eight use the
// eight-wide colour form, the remainder the one-at-a-time form. Returns 0, or 9 on a null
// argument ("ProcThreeChannelData: invalid input!"), on an index past
// width * height * 3 / 2 - 2 ("Index out of yuv range!"; rows already written stay), or when
// the column list of an outW above 256 cannot be allocated.
uint32_t ProcThreeChannelData(const uint8_t* frame, uint32_t width, int32_t height, uint8_t* dst,
                              int32_t outW, uint32_t outH, const int32_t imageRect[4],
                              const int32_t validRect[4], float scale);

// The one-channel path: 2x2 luma averages written in place at their own output columns.
// Reads only the luma rows above imageRect's bottom edge (the frame must hold them).
void ProcOneChannelData(const uint8_t* frame, uint32_t width, uint8_t* dst, int32_t outW,
                        int32_t outH, const int32_t imageRect[4], const int32_t validRect[4],
                        float scale);
