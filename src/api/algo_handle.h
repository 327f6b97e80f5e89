// The handle behind the opaque AlgoHandle of the public header.
#pragma once

#include <cstdint>
#include <deque>

#include "ZyBodyTracking.h"
#include "association/hungarian.h"

// The trackers are reached through pointers only; their record is the tracker folder's own.
struct TrackingInp;

struct AlgoHandle {
  TrackingInp* koTrackingInp[MAX_INPLACE_NUM];  // slot i follows the i-th body
  BodyInfo* lastBodyInfo;                        // the previous frame's output bodies
  int32_t printLogFlag;                          // "vendor.zyObjectTracking.printlog" starts with 1
  int32_t dumpImgFlag;                           // "vendor.zyObjectTracking.dumpimg" starts with 1
  int32_t bodyNum;                               // bodies tracked now
  HungarianAlgorithm* mHungarianAlgorithm;       // receiver of the identity assignment
  int32_t lastBodyIDFlag[MAX_INPLACE_NUM];       // previous body j kept its identity
  std::deque<int32_t> freeBodyIds;               // identities not in use, taken from the front
};

// Bytes of lastBodyInfo and lastBodyIDFlag.
constexpr size_t kLastBodyInfoBytes = sizeof(BodyInfo) * MAX_INPLACE_NUM;  // 840
constexpr size_t kLastBodyIdFlagBytes = sizeof(int32_t) * MAX_INPLACE_NUM;  // 120

// Frame steps of ProcessKoTrackingAlgo.
int InitProcess(AlgoHandle* handle, ParamIn* in, ParamOut* out);
int UpdateProcess(AlgoHandle* handle, ParamIn* in, ParamOut* out);
// Puts back the previous box when the new one barely moved; kept as a utility, not called.
int BoxStabilize(AlgoHandle* handle, ParamOut* out, int i);
