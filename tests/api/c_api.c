/* A plain C caller: the public header must compile as C and drive the exported functions. */
#include "ZyBodyTracking.h"

int zy_c_lifecycle(void) {
  AlgoHandle* handle = NULL;
  if (CreateKoTrackingAlgo(&handle) != 0 || handle == NULL) return 1;
  if (StartKoTrackingAlgo(handle) != 0) return 2;
  if (ResetKoTrackingAlgo(handle) != 0) return 3;
  if (StartKoTrackingAlgo(NULL) != 1) return 4;
  if (DestroyKoTrackingAlgo(&handle) != 0 || handle != NULL) return 5;
  if (DestroyKoTrackingAlgo(&handle) != -1) return 6;
  return 0;
}
