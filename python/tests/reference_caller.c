/* The C caller the package is compared with. `reference_caller offsets` prints the header's
 * record offsets; `reference_caller FRAMES W H STRIDE COUNT BOXES` runs COUNT NV21 frames from
 * FRAMES, re-initialising on each frame that BOXES lists ("frame class left top right bottom
 * extra" per line), and prints "frame R ids..." for re-initialisations and one line per output
 * record. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZyBodyTracking.h"

#define OFF(T, f) printf(#T "." #f " %zu\n", offsetof(T, f))

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "offsets") == 0) {
    OFF(BodyInfo, classId); OFF(BodyInfo, bodyId); OFF(BodyInfo, roi); OFF(BodyInfo, extra);
    OFF(ParamIn, width); OFF(ParamIn, height); OFF(ParamIn, stride); OFF(ParamIn, image);
    OFF(ParamIn, bodies); OFF(ParamIn, bodyNum); OFF(ParamIn, isFirstFrame);
    OFF(ParamOut, bodies); OFF(ParamOut, bodyNum);
    printf("sizeof(BodyRoi) %zu\nsizeof(BodyInfo) %zu\nsizeof(ParamIn) %zu\nsizeof(ParamOut) %zu\n",
           sizeof(BodyRoi), sizeof(BodyInfo), sizeof(ParamIn), sizeof(ParamOut));
    return 0;
  }
  if (argc != 7) return 2;
  const int w = atoi(argv[2]), h = atoi(argv[3]), stride = atoi(argv[4]), count = atoi(argv[5]);
  const size_t size = (size_t)stride * h * 3 / 2;
  unsigned char* image = malloc(size);
  FILE* frames = fopen(argv[1], "rb");
  FILE* boxes = fopen(argv[6], "r");
  BodyInfo in[MAX_INPLACE_NUM], out[MAX_INPLACE_NUM], b;
  AlgoHandle* handle = NULL;
  ParamIn pin;
  ParamOut pout;
  int n = 0, bf = -1;
  if (!image || !frames || !boxes || CreateKoTrackingAlgo(&handle) || StartKoTrackingAlgo(handle)) return 3;
  memset(&pin, 0, sizeof pin);
  memset(&pout, 0, sizeof pout);
  pin.width = w, pin.height = h, pin.stride = stride, pin.image = image, pin.bodies = in, pout.bodies = out;
  for (int f = 0; f < count && fread(image, 1, size, frames) == size; ++f) {
    pin.isFirstFrame = 0;
    while (bf == f || (bf < f && fscanf(boxes, "%d %d %d %d %d %d %u", &bf, &b.classId, &b.roi.left, &b.roi.top,
                                        &b.roi.right, &b.roi.bottom, &b.extra) == 7 && bf == f)) {
      if (!pin.isFirstFrame) n = 0, pin.isFirstFrame = 1;
      b.bodyId = 0, in[n++] = b, bf = -1;
    }
    pin.bodyNum = n;
    memset(out, 0, sizeof out);
    if (ProcessKoTrackingAlgo(handle, &pin, &pout)) return 4;
    if (pin.isFirstFrame) {
      printf("%d R", f);
      for (int i = 0; i < n; ++i) printf(" %d", in[i].bodyId);
      printf("\n");
    }
    for (int i = 0; i < pout.bodyNum; ++i)
      printf("%d %d %d %d %d %d %d %u\n", f, out[i].classId, out[i].bodyId, out[i].roi.left, out[i].roi.top,
             out[i].roi.right, out[i].roi.bottom, out[i].extra);
  }
  return DestroyKoTrackingAlgo(&handle);
}
