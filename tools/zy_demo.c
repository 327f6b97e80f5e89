/* zy_demo: drives the library through its C interface on a synthetic frame sequence:
 * create, start, one re-initialisation frame with two bodies, tracking frames, reset,
 * destroy. Prints each call's result and the tracked boxes. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZyBodyTracking.h"

enum { kWidth = 640, kHeight = 360, kFrames = 12 };

/* Deterministic texture so the bodies carry gradients a tracker can follow. */
static unsigned char texel(unsigned seed, int u, int v) {
  unsigned x = seed * 2654435761u ^ (unsigned)(u / 5) * 2246822519u ^ (unsigned)(v / 5) * 3266489917u;
  x ^= x >> 15;
  x *= 2246822519u;
  x ^= x >> 13;
  return (unsigned char)(40 + x % 180);
}

static void draw_frame(unsigned char* img, int frame) {
  memset(img, 70, (size_t)kWidth * kHeight);
  memset(img + (size_t)kWidth * kHeight, 128, (size_t)kWidth * (kHeight / 2));
  for (int b = 0; b < 2; ++b) {
    const int bx = 100 + 250 * b + 3 * frame, by = 80 + 2 * frame * (b ? -1 : 1) + 40 * b;
    for (int y = by; y < by + 120; ++y)
      for (int x = bx; x < bx + 60; ++x) img[(size_t)y * kWidth + (size_t)x] = texel(7u + (unsigned)b, x - bx, y - by);
  }
}

int main(void) {
  AlgoHandle* handle = NULL;
  unsigned char* image = malloc((size_t)kWidth * kHeight * 3 / 2);
  BodyInfo in[2], out[MAX_INPLACE_NUM];
  ParamIn pin;
  ParamOut pout;
  if (image == NULL) return 1;
  memset(&pin, 0, sizeof pin);
  memset(&pout, 0, sizeof pout);
  memset(out, 0, sizeof out);

  printf("CreateKoTrackingAlgo -> %d\n", CreateKoTrackingAlgo(&handle));
  printf("StartKoTrackingAlgo  -> %d\n", StartKoTrackingAlgo(handle));
  for (int b = 0; b < 2; ++b) {
    in[b].classId = 1;
    in[b].bodyId = 0;
    in[b].roi.left = 100 + 250 * b;
    in[b].roi.top = 80 + 40 * b;
    in[b].roi.right = in[b].roi.left + 59;
    in[b].roi.bottom = in[b].roi.top + 119;
    in[b].extra = 1000u + (unsigned)b;
  }
  pin.width = kWidth;
  pin.height = kHeight;
  pin.stride = kWidth;
  pin.image = image;
  pin.bodies = in;
  pin.bodyNum = 2;
  pout.bodies = out;
  for (int f = 0; f < kFrames; ++f) {
    draw_frame(image, f);
    pin.isFirstFrame = f == 0;
    const int rc = ProcessKoTrackingAlgo(handle, &pin, &pout);
    printf("frame %2d (%s) -> %d:", f, f == 0 ? "re-init" : "track  ", rc);
    for (int b = 0; b < pout.bodyNum; ++b)
      printf("  id %d [%d %d %d %d]", out[b].bodyId, out[b].roi.left, out[b].roi.top, out[b].roi.right,
             out[b].roi.bottom);
    printf("\n");
  }
  printf("ResetKoTrackingAlgo  -> %d\n", ResetKoTrackingAlgo(handle));
  {
    const int rc = DestroyKoTrackingAlgo(&handle);
    printf("DestroyKoTrackingAlgo -> %d (handle %s)\n", rc, handle == NULL ? "cleared" : "kept");
  }
  free(image);
  return 0;
}
