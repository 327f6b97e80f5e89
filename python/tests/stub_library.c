/* Stands in for the tracking library in the package tests: each export returns the number in
 * the environment variable STUB_<CALL> (0 when unset), so that the library's error codes and
 * whether a call reached the library at all can be observed. */
#include <stdint.h>
#include <stdlib.h>

static int32_t code(const char* name) {
  const char* v = getenv(name);
  return v ? (int32_t)atoi(v) : 0;
}
int32_t CreateKoTrackingAlgo(void** out) { static int handle; *out = &handle; return code("STUB_CREATE"); }
int32_t StartKoTrackingAlgo(void* h) { (void)h; return code("STUB_START"); }
int32_t ProcessKoTrackingAlgo(void* h, void* in, void* out) { (void)h, (void)in, (void)out; return code("STUB_PROCESS"); }
int32_t ResetKoTrackingAlgo(void* h) { (void)h; return code("STUB_RESET"); }
int32_t DestroyKoTrackingAlgo(void** h) { *h = NULL; return code("STUB_DESTROY"); }
