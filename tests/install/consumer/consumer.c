/* Drives the installed library through its public header only: the lifecycle, a frame on a
 * null handle, and the null-pointer contract of Destroy. */
#include <ZyBodyTracking.h>

#include <stdio.h>

#define CHECK(expr)                                         \
  do {                                                      \
    if (!(expr)) {                                          \
      fprintf(stderr, "consumer: failed: %s\n", #expr);     \
      return 1;                                             \
    }                                                       \
  } while (0)

int main(void) {
  AlgoHandle* handle = NULL;
  CHECK(CreateKoTrackingAlgo(&handle) == 0);
  CHECK(handle != NULL);
  CHECK(StartKoTrackingAlgo(handle) == 0);
  CHECK(StartKoTrackingAlgo(NULL) == 1);
  CHECK(ProcessKoTrackingAlgo(NULL, NULL, NULL) == 1);
  CHECK(ResetKoTrackingAlgo(handle) == 0);
  CHECK(DestroyKoTrackingAlgo(&handle) == 0);
  CHECK(handle == NULL);
  CHECK(DestroyKoTrackingAlgo(&handle) == -1);
  printf("libZyBodyTracking consumer: ok\n");
  return 0;
}
