// Cutting a search window out of an NV21 frame, scaling it to the template size and
// converting it to planar RGB (or one grey plane), bit-exact in fixed point.
#pragma once

#include <cstdint>

// Crops roi = {x, y, w, h} (frame pixels, may reach past the frame) out of the NV21 frame of
// width x height (row stride = width), scales it to outW x outH and writes three planes
// R, G, B (channels == 3) or one grey plane (any other channels value) into dst, which holds
// outW * outH * channels bytes. Returns 0, or 9 on failure.
uint32_t CropResizeYuv2rgbAcc(const uint8_t* frame, uint32_t width, uint32_t height, uint8_t* dst,
                              const float roi[4], int32_t outW, uint32_t outH, uint32_t channels);

// The three-channel path: packed column list, eight-wide and one-at-a-time colour forms.
uint32_t ProcThreeChannelData(const uint8_t* frame, uint32_t width, int32_t height, uint8_t* dst,
                              int32_t outW, uint32_t outH, const int32_t imageRect[4],
                              const int32_t validRect[4], float scale);

// The one-channel path: 2x2 luma averages written in place.
void ProcOneChannelData(const uint8_t* frame, uint32_t width, uint8_t* dst, int32_t outW,
                        int32_t outH, const int32_t imageRect[4], const int32_t validRect[4],
                        float scale);
