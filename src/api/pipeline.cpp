// The frame pipeline. Re-initialisation and tracking frames are wired up once the tracker,
// the identity update and the dump exist; until then a frame only checks its handle.
#include "api/algo_handle.h"
#include "common/zy_log.h"

extern "C" ZY_EXPORT int32_t ProcessKoTrackingAlgo(AlgoHandle* handle, ParamIn* in, ParamOut* out) {
  (void)in;
  (void)out;
  if (handle == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "ProcessKoTrackingAlgo");
    return 1;
  }
  return 0;
}
