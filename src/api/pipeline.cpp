// The frame pipeline: re-initialisation frames assign identities and initialise one tracker
// per body; tracking frames update every tracker; both run as one parallel loop over the
// bodies on the process-wide runtime.
#include <sys/time.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <string>

#include "api/algo_handle.h"
#include "association/body_id.h"
#include "common/zy_convert.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"
#include "diag/image_dump.h"
#include "runtime/body_tasks.h"
#include "runtime/qtx.h"
#include "tracker/tracking_inp.h"

namespace {

constexpr const char* kDumpBaseName = "/data/vendor/camera/img/" "tracking_result";

// Runs body over 0..n through a task on the process-wide session (on the caller when the
// session could not be created). The body captures one pointer, so wrapping it in the task's
// std::function stays within the small-object buffer: no allocation per frame.
template <class Task, class Body>
void RunBodyLoop(int n, const Body& body) {
  auto& session = GetSession();
  const QTX::Range<int> range = QTX::MakeLoopRange(n);
  if (!session) {
    QTX::ForEachIndex(range, [&](int i) { body(QTX::Range<int>{i, i + 1, 1}); });
    return;
  }
  Task task(session, body, range, session->GetGuider());
  task.Do();
}

// min(max(v, 0), limit - 1): a value not below limit becomes limit - 1.
int32_t ClampIndex(int32_t v, int32_t limit) {
  if (v >= limit) return limit - 1;
  return v < 0 ? 0 : v;
}

FrameView MakeFrameView(const ParamIn* in) {
  return FrameView{in->height, in->stride, in->image, 3, 0};
}

// Refuses frames that would make the pipeline read memory it does not own or overflow a byte
// count; each refusal logs one error line and changes nothing. The width only bounds box
// sizes on re-initialisation and is never used to address the frame, so any width is
// accepted: at width 0 (or below) every box is skipped while identities are still assigned,
// and a stride below the width just keeps every read within the stride.
bool FrameIsSafe(const AlgoHandle* handle, const ParamIn* in) {
  if (in->height <= 0 || in->stride <= 0) {
    ZY_LOGE("%s frame geometry is invalid: width %d, height %d, stride %d", "ProcessKoTrackingAlgo",
            in->width, in->height, in->stride);
    return false;
  }
  // The frame's bytes, luma rows then half as many chroma rows, must be countable in 32 bits.
  const int64_t bytes = static_cast<int64_t>(in->stride) * in->height +
                        static_cast<int64_t>(in->stride) * (in->height / 2);
  if (bytes > INT32_MAX) {
    ZY_LOGE("%s frame of %d x %d (stride %d) is too large", "ProcessKoTrackingAlgo", in->width,
            in->height, in->stride);
    return false;
  }
  // 30 slots and 30 output entries; a count below 0 would make the loop over 0..n step down
  // through negative indices.
  if (in->isFirstFrame && (in->bodyNum < 0 || in->bodyNum > MAX_INPLACE_NUM)) {
    ZY_LOGE("%s bodyNum %d is outside 0..%d", "ProcessKoTrackingAlgo", in->bodyNum, MAX_INPLACE_NUM);
    return false;
  }
  if (handle->lastBodyInfo == nullptr) {
    ZY_LOGE("%s algoHandle has no body buffer", "ProcessKoTrackingAlgo");
    return false;
  }
  return true;
}

// The caller's body arrays are needed only for the entries the frame reads or writes:
// re-initialisation reads and writes in->bodyNum of each; tracking writes the handle's bodies
// and reads the extra word of as many of the caller's as it lists. A frame with no bodies
// to touch is processed whatever the pointers hold.
bool BodyArraysPresent(const AlgoHandle* handle, const ParamIn* in, const ParamOut* out) {
  int32_t written = 0;
  int32_t read = 0;
  if (in->isFirstFrame) {
    written = read = in->bodyNum;
  } else {
    written = handle->bodyNum <= MAX_INPLACE_NUM ? handle->bodyNum : 0;  // more is refused
    read = std::min(written, in->bodyNum);
  }
  return (read <= 0 || in->bodies != nullptr) && (written <= 0 || out->bodies != nullptr);
}

struct InitContext {
  AlgoHandle* handle;
  ParamIn* in;
  ParamOut* out;
  FrameView frame;
  float width;   // box bounds: the frame's width and height
  float height;
};

struct UpdateContext {
  AlgoHandle* handle;
  ParamIn* in;
  ParamOut* out;
  FrameView frame;
  float (*resultRoi)[4];  // one result box per body index
};

void InitBody(const InitContext& c, int i) {
  const BodyInfo& body = c.in->bodies[i];
  const float w = static_cast<float>(body.roi.right) - static_cast<float>(body.roi.left);
  const float h = static_cast<float>(body.roi.bottom) - static_cast<float>(body.roi.top);
  if (w <= 0 || h <= 0 || w > c.width || h > c.height) {
    ZY_LOGE("ParamIn body roi width or height is error!");
    return;  // the output entry keeps what it held
  }
  const float box[4] = {static_cast<float>(body.roi.left), static_cast<float>(body.roi.top), w, h};
  TrackingInp* tracker = c.handle->koTrackingInp[i];
  if (tracker == nullptr || initTracker(*tracker, box, c.frame) != 0) ZY_LOGE("Tracking init failed!");
  c.out->bodies[i] = body;
  if (c.handle->printLogFlag) {
    ZY_LOGD("ZyTracking result paramIn,left:%d,top:%d,right:%d,bottom:%d", body.roi.left, body.roi.top,
            body.roi.right, body.roi.bottom);
  }
}

void UpdateBody(const UpdateContext& c, int i) {
  float* r = c.resultRoi[i];
  TrackingInp* tracker = c.handle->koTrackingInp[i];
  if (tracker != nullptr) updateTracker(*tracker, c.frame, r);  // result deliberately ignored
  const int32_t stride = c.in->stride;
  const int32_t height = c.in->height;
  BodyInfo& o = c.out->bodies[i];
  // Bounded by the stride and the height, not the width: the trackers see the stride as the
  // image width.
  o.roi.left = ClampIndex(zy::TruncToInt32Sat(r[0]), stride);
  o.roi.top = ClampIndex(zy::TruncToInt32Sat(r[1]), height);
  o.roi.right = ClampIndex(zy::TruncToInt32Sat(r[0] + r[2]), stride);
  o.roi.bottom = ClampIndex(zy::TruncToInt32Sat(r[1] + r[3]), height);
  // The caller's list must keep the order of the last re-initialisation; a shorter list than
  // the bodies tracked leaves the missing entries' extra word as last output.
  o.extra = i < c.in->bodyNum ? c.in->bodies[i].extra : c.handle->lastBodyInfo[i].extra;
  o.classId = c.handle->lastBodyInfo[i].classId;
  o.bodyId = c.handle->lastBodyInfo[i].bodyId;
  if (c.handle->printLogFlag) {
    ZY_LOGD("ZyTracking result update,left:%d, top:%d, right:%d, bottom:%d,", o.roi.left, o.roi.top,
            o.roi.right, o.roi.bottom);
  }
}

}  // namespace

int InitProcess(AlgoHandle* handle, ParamIn* in, ParamOut* out) {
  if (handle == nullptr) {
    ZY_LOGE("%s algoHandle is NULL, error! \n", "InitProcess");
    return 1;
  }
  handle->bodyNum = in->bodyNum;
  out->bodyNum = in->bodyNum;
  const InitContext ctx{handle, in, out, MakeFrameView(in), static_cast<float>(in->width),
                        static_cast<float>(in->height)};
  const InitContext* p = &ctx;
  RunBodyLoop<BodyInitTask>(in->bodyNum, [p](QTX::Range<int> sub) {
    QTX::ForEachIndex(sub, [p](int i) { InitBody(*p, i); });
  });
  return 0;
}

int UpdateProcess(AlgoHandle* handle, ParamIn* in, ParamOut* out) {
  if (handle == nullptr) {
    ZY_LOGE("%s algoHandle  is NULL, error! \n", "UpdateProcess");
    return 1;
  }
  if (handle->bodyNum >= MAX_INPLACE_NUM + 1) {
    ZY_LOGE("algoHandle->bodyNum larger than MAX_INPLACE_NUM\n");
    return 3;
  }
  float resultRoi[MAX_INPLACE_NUM][4];
  if (zy::memset_s(resultRoi, sizeof resultRoi, 0, sizeof resultRoi) != 0) {
    ZY_LOG_MEM_ERROR("UpdateProcess", 337);
  }
  if (handle->printLogFlag) {
    ZY_LOGD("Body number is %d, width %d, height %d, stride %d", handle->bodyNum, in->width, in->height,
            in->stride);
  }
  // Written once before the loop rather than by every sub-range: the same value, no race.
  out->bodyNum = handle->bodyNum;
  const UpdateContext ctx{handle, in, out, MakeFrameView(in), resultRoi};
  const UpdateContext* p = &ctx;
  RunBodyLoop<BodyUpdateTask>(handle->bodyNum, [p](QTX::Range<int> sub) {
    QTX::ForEachIndex(sub, [p](int i) { UpdateBody(*p, i); });
  });
  return 0;
}

int BoxStabilize(AlgoHandle* handle, ParamOut* out, int i) {
  if (handle == nullptr || out == nullptr || out->bodies == nullptr || handle->lastBodyInfo == nullptr ||
      i < 0 || i >= MAX_INPLACE_NUM) {
    return 0;
  }
  BodyRoi& cur = out->bodies[i].roi;
  const BodyRoi& prev = handle->lastBodyInfo[i].roi;
  const float iw = std::fmax(0.f, static_cast<float>(std::min(cur.right, prev.right)) -
                                      static_cast<float>(std::max(cur.left, prev.left)) + 1);
  const float ih = std::fmax(0.f, static_cast<float>(std::min(cur.bottom, prev.bottom)) -
                                      static_cast<float>(std::max(cur.top, prev.top)) + 1);
  const float inter = iw * ih;
  const float a1 = static_cast<float>(cur.right - cur.left + 1) * static_cast<float>(cur.bottom - cur.top + 1);
  const float a2 = static_cast<float>(prev.right - prev.left + 1) * static_cast<float>(prev.bottom - prev.top + 1);
  const float iou = inter / (a1 + a2 - inter);
  // Narrow boxes jitter more, so they are held at a lower overlap.
  const float hold = (cur.right - cur.left < 61) ? 0.7f : 0.83f;
  if (iou >= hold) cur = prev;
  return 0;
}

extern "C" ZY_EXPORT int32_t ProcessKoTrackingAlgo(AlgoHandle* handle, ParamIn* in, ParamOut* out) {
  struct timeval start;
  gettimeofday(&start, nullptr);
  if (handle == nullptr) {
    ZY_LOGE("%s input params is NULL, error! \n", "ProcessKoTrackingAlgo");
    return 1;
  }
  if (in == nullptr || out == nullptr || in->image == nullptr || !BodyArraysPresent(handle, in, out)) {
    ZY_LOGE("%s input params is NULL, error! \n", "ProcessKoTrackingAlgo");
    return 1;
  }
  if (!FrameIsSafe(handle, in)) return 0;

  if (in->isFirstFrame) {
    UpdateBodyID4FirstFrame(handle, in);
    InitProcess(handle, in, out);
  } else {
    UpdateProcess(handle, in, out);
  }
  if (handle->dumpImgFlag) {
    // The dump takes its base name as a std::string; without memory for it the frame is not
    // dumped, and no exception leaves the C interface.
    try {
      DumpTrackingResult(kDumpBaseName, in->image, in->stride, in->height, 1, *out, 1);
    } catch (...) {
    }
  }
  if (handle->printLogFlag) {
    struct timeval end;
    gettimeofday(&end, nullptr);
    const float ms = static_cast<float>(end.tv_usec - start.tv_usec) / 1000 +
                     static_cast<float>(end.tv_sec - start.tv_sec) * 1000;
    ZY_LOGD("[FACETRACKING_TIME] ===[ %-40.40s ]  === cost: %10.3lf ms\n", "__ProcessZyTrackingAlgo",
            static_cast<double>(ms));
  }
  const int32_t n = handle->bodyNum;
  if (n > 0 && n <= MAX_INPLACE_NUM) {
    const size_t bytes = static_cast<size_t>(n) * sizeof(BodyInfo);
    if (zy::memcpy_s(handle->lastBodyInfo, bytes, out->bodies, bytes) != 0) {
      ZY_LOG_MEM_ERROR("ProcessKoTrackingAlgo", 529);
    }
  }
  return 0;
}
