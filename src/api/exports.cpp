// Create, Start, Reset and Destroy; ProcessKoTrackingAlgo lives with the frame pipeline.
#include <new>

#include "api/algo_handle.h"
#include "common/zy_alloc.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"
#include "common/zy_sysprop.h"
#include "runtime/qtx.h"
#include "tracker/tracking_inp.h"

namespace {

constexpr const char* kDumpImgProperty = "vendor.zyObjectTracking.dumpimg";
constexpr const char* kPrintLogProperty = "vendor.zyObjectTracking.printlog";

// Identities 1..MAX_INPLACE_NUM in order; false when the queue could not grow.
bool FillIdentityQueue(std::deque<int32_t>& q) {
  try {
    for (int32_t id = 1; id <= MAX_INPLACE_NUM; ++id) q.push_back(id);
    return true;
  } catch (...) {
    return false;
  }
}

AlgoHandle* NewHandle() {
  try {
    return zy::NewObject<AlgoHandle>();  // value-initialised: every plain field is zero
  } catch (...) {
    return nullptr;  // the identity queue could not allocate its first block
  }
}

void FreeTrackers(AlgoHandle* handle) {
  for (auto*& slot : handle->koTrackingInp) {
    if (slot == nullptr) continue;
    freeTracker(*slot);
    delete slot;
    slot = nullptr;
  }
}

// Releases what a half-built handle holds, trackers included.
void ReleaseHandle(AlgoHandle* handle) {
  FreeTrackers(handle);
  std::free(handle->lastBodyInfo);
  delete handle->mHungarianAlgorithm;
  delete handle;
}

}  // namespace

extern "C" ZY_EXPORT int32_t CreateKoTrackingAlgo(AlgoHandle** out) {
  ZY_LOGD("Enter CreateZyTrackingAlgo ");
  if (out == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "CreateKoTrackingAlgo");
    return 1;
  }
  AlgoHandle* handle = NewHandle();
  if (handle == nullptr) {
    ZY_LOGE("%s algoHandle malloc error!", "CreateKoTrackingAlgo");
    return 2;
  }
  handle->mHungarianAlgorithm = zy::NewObject<HungarianAlgorithm>();
  if (handle->mHungarianAlgorithm == nullptr) {
    ZY_LOGE("mHungarianAlgorithm fail!!!");
    ReleaseHandle(handle);
    return 2;
  }
  getDebugFlag(&handle->dumpImgFlag, kDumpImgProperty);
  getDebugFlag(&handle->printLogFlag, kPrintLogProperty);
  handle->bodyNum = 0;

  handle->lastBodyInfo = static_cast<BodyInfo*>(zy::Malloc(kLastBodyInfoBytes));
  if (handle->lastBodyInfo == nullptr) {
    ZY_LOGE("%s algoHandle lastFaceInfo malloc error!", "CreateKoTrackingAlgo");
    ReleaseHandle(handle);
    return 2;
  }
  if (!FillIdentityQueue(handle->freeBodyIds)) {
    ZY_LOGE("%s algoHandle malloc error!", "CreateKoTrackingAlgo");
    ReleaseHandle(handle);
    return 2;
  }
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
    // padding 2.5, scale search on, fixed window on, light (9-channel) features on
    handle->koTrackingInp[i] = zy::NewObject<TrackingInp>(2.5f, true, true, true);
    if (handle->koTrackingInp[i] == nullptr) {
      ZY_LOGE("Create tracking inplace failed!");
      ReleaseHandle(handle);
      return 6;
    }
  }
  if (!InitSession("BodyTracking", nullptr)) {
    ZY_LOGE("InitSession Failed");
    ReleaseHandle(handle);
    return 2;
  }
  *out = handle;
  ZY_LOGI("CreateKoTrackingAlgo Sucess");
  return 0;
}

extern "C" ZY_EXPORT int32_t StartKoTrackingAlgo(AlgoHandle* handle) {
  ZY_LOGD("Enter StartZyTrackingAlgo !");
  if (handle == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "StartKoTrackingAlgo");
    return 1;
  }
  for (auto* slot : handle->koTrackingInp) {
    if (slot != nullptr) createTracker(*slot);  // a failed slot is retried by Reset
  }
  ZY_LOGI("StartKoTrackingAlgo Sucess");
  return 0;
}

extern "C" ZY_EXPORT int32_t ResetKoTrackingAlgo(AlgoHandle* handle) {
  if (handle == nullptr) {
    ZY_LOGE("ResetKoTrackingAlgo failed.");
    return -1;
  }
  if (zy::memset_s(handle->lastBodyInfo, kLastBodyInfoBytes, 0, kLastBodyInfoBytes) != 0) {
    ZY_LOGE("memset lastBodyInfo fail.");
    return -1;
  }
  if (zy::memset_s(handle->lastBodyIDFlag, kLastBodyIdFlagBytes, 0, kLastBodyIdFlagBytes) != 0) {
    ZY_LOGE("memset lastBodyIDFlag fail.");
    return -1;
  }
  handle->bodyNum = 0;
  // Without memory for a fresh queue the old one would stay, short of the identities the
  // forgotten bodies held: the reset fails instead, and a later one can still succeed.
  bool refilled = false;
  try {
    std::deque<int32_t> fresh;
    refilled = FillIdentityQueue(fresh);
    if (refilled) handle->freeBodyIds.swap(fresh);
  } catch (...) {
  }
  if (!refilled) {
    ZY_LOGE("%s freeBodyIds malloc error!", "ResetKoTrackingAlgo");
    return -1;
  }
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
    TrackingInp* slot = handle->koTrackingInp[i];
    if (slot == nullptr) continue;
    if (resetTracker(*slot) != 0) {
      ZY_LOGE("the %d koTrackingInp ZyTrackerAlgoReset fail", i);
      return -1;
    }
  }
  ZY_LOGI("ResetKoTrackingAlgo Sucess");
  return 0;
}

extern "C" ZY_EXPORT int32_t DestroyKoTrackingAlgo(AlgoHandle** handle) {
  ZY_LOGD("enter DestroyZyTrackingAlgo !");
  if (handle == nullptr) {
    ZY_LOGE("handle is nullptr");
    return -1;
  }
  if (*handle == nullptr) {
    ZY_LOGE("*handle is nullptr");
    return -1;
  }
  AlgoHandle* h = *handle;
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
    if (h->koTrackingInp[i] != nullptr && stopTracker(*h->koTrackingInp[i]) != 0) {
      ZY_LOGE("koTrackingInp[%d] Onstop failed.", i);
    }
  }
  FreeTrackers(h);
  UninitSession();
  delete h->mHungarianAlgorithm;
  h->mHungarianAlgorithm = nullptr;
  std::free(h->lastBodyInfo);
  h->lastBodyInfo = nullptr;
  delete h;
  *handle = nullptr;
  ZY_LOGI("DestroyKoTrackingAlgo Sucess");
  return 0;
}
