// libFuzzer entry points around the export driver.
#include <cstddef>
#include <cstdint>

#include "fuzz_driver.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ZyFuzzQuietLog(true);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return ZyFuzzOneInput(data, size);
}
