// The interface as a caller drives it: every export's result codes and log lines, the debug
// switches, tracking frames that allocate nothing, the output clamp, and the 30-body hazard.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "api/algo_handle.h"
#include "runtime/qtx.h"
#include "scene.h"
#include "support/counting_new.h"
#include "support/log_capture.h"
#include "tracker/tracking_inp.h"

namespace {

constexpr int kW = 640;
constexpr int kH = 360;
constexpr int D = ANDROID_LOG_DEBUG, I = ANDROID_LOG_INFO, E = ANDROID_LOG_ERROR;

// Four bodies: the first two (one class) cross each other, the third is of another class.
void AddCrossingScene(SceneCaller& c) {
  c.AddBody({60, 100, 40, 90, 3.0f, 0.5f, 1, 1});
  c.AddBody({520, 120, 44, 96, -3.0f, 0.0f, 2, 1});
  c.AddBody({300, 30, 36, 80, 0.5f, 1.5f, 3, 2});
  c.AddBody({200, 240, 50, 100, 1.0f, -0.5f, 4, 1});
}

std::vector<int32_t> Queue(const AlgoHandle* h) { return {h->freeBodyIds.begin(), h->freeBodyIds.end()}; }

// Create, Reset before Start (which gives the trackers their buffers), Start, Reset of a
// used handle, Destroy; then every export refusing its null arguments. Each call logs exactly
// its lines, in order, under the library's tag.
TEST(Lifecycle, EveryExportGivesItsResultAndLines) {
  LogCapture log;
  std::vector<int32_t> ids(MAX_INPLACE_NUM);
  std::iota(ids.begin(), ids.end(), 1);
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(Queue(h), ids);
  EXPECT_GE(QTX::WorkerCount(GetSession()), 1);
  for (auto* slot : h->koTrackingInp) EXPECT_EQ(slot->alphaf, nullptr);
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->alphaf, nullptr);
  ASSERT_EQ(StartKoTrackingAlgo(h), 0);  // releases Reset's buffers before making its own
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->response, nullptr);
  h->bodyNum = 4;
  h->freeBodyIds.pop_front();
  h->lastBodyIDFlag[3] = 1;
  h->lastBodyInfo[0].bodyId = 9;
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);
  EXPECT_EQ((std::vector<int32_t>{h->bodyNum, h->lastBodyIDFlag[3], h->lastBodyInfo[0].bodyId}),
            (std::vector<int32_t>{0, 0, 0}));
  EXPECT_EQ(Queue(h), ids);
  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(QTX::WorkerCount(GetSession()), 0);  // the pool stops with any handle
  EXPECT_EQ(CreateKoTrackingAlgo(nullptr), 1);
  EXPECT_EQ(StartKoTrackingAlgo(nullptr), 1);
  EXPECT_EQ(ProcessKoTrackingAlgo(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ResetKoTrackingAlgo(nullptr), -1);
  EXPECT_EQ(DestroyKoTrackingAlgo(nullptr), -1);
  EXPECT_EQ(DestroyKoTrackingAlgo(&h), -1);
  const std::vector<std::pair<int, std::string>> expected = {
      {D, "Enter CreateZyTrackingAlgo "}, {I, "CreateKoTrackingAlgo Sucess"},
      {I, "ResetKoTrackingAlgo Sucess"}, {D, "Enter StartZyTrackingAlgo !"},
      {I, "StartKoTrackingAlgo Sucess"}, {I, "ResetKoTrackingAlgo Sucess"},
      {D, "enter DestroyZyTrackingAlgo !"}, {I, "DestroyKoTrackingAlgo Sucess"},
      {D, "Enter CreateZyTrackingAlgo "}, {E, "CreateKoTrackingAlgo input params is NULL, error! \n"},
      {D, "Enter StartZyTrackingAlgo !"}, {E, "StartKoTrackingAlgo input params is NULL, error! \n"},
      {E, "ProcessKoTrackingAlgo input params is NULL, error! \n"}, {E, "ResetKoTrackingAlgo failed."},
      {D, "enter DestroyZyTrackingAlgo !"}, {E, "handle is nullptr"},
      {D, "enter DestroyZyTrackingAlgo !"}, {E, "*handle is nullptr"}};
  std::vector<std::pair<int, std::string>> got;
  for (const LogLine& l : log.Lines()) {
    got.emplace_back(l.prio, l.text);
    EXPECT_EQ(l.tag, "ZyTrackingAlgo V1.0.3");
  }
  EXPECT_EQ(got, expected);
}

// Crossing bodies through tracking frames and re-initialisations: no tracking frame
// allocates, the boxes follow, identities, classes and extra words carry over.
TEST(Pipeline, TrackingFramesAllocateNothing) {
  SceneCaller c(kW, kH, kW, 21);
  ASSERT_EQ(c.Open(), 0);
  AddCrossingScene(c);
  float worst = 0;
  for (int frame = 0; frame <= 60; ++frame) {
    const bool reinit = frame % 10 == 0;
    const long before = HeapAllocations();
    ASSERT_EQ(reinit ? c.Reinit() : c.Track(), 0);
    EXPECT_TRUE(reinit || HeapAllocations() == before) << "frame " << frame;
    ASSERT_EQ(c.out.bodyNum, 4);
    for (int i = 0; i < 4; ++i) {
      const BodyInfo& o = c.outBodies[i];
      const MovingBody& b = c.Body(i);
      // The first frame hands out 1, 2, 3, ..., also written into the caller's bodies.
      EXPECT_EQ((std::vector<uint32_t>{uint32_t(o.bodyId), uint32_t(o.classId), o.extra}),
                (std::vector<uint32_t>{uint32_t(i + 1), uint32_t(b.classId), c.inBodies[i].extra}));
      EXPECT_TRUE(!reinit || c.inBodies[i].bodyId == i + 1) << "frame " << frame;
      worst = std::max(worst, std::hypot(0.5f * static_cast<float>(o.roi.left + o.roi.right) - (b.x + b.w / 2),
                                         0.5f * static_cast<float>(o.roi.top + o.roi.bottom) - (b.y + b.h / 2)));
    }
  }
  EXPECT_LE(worst, 6.0f) << "tracked boxes stay within a few pixels of the truth";
  EXPECT_EQ(std::memcmp(c.handle->lastBodyInfo, c.outBodies, 4 * sizeof(BodyInfo)), 0);
}

// printlog adds the debug lines, among them the time Process took, which cannot exceed the
// time the caller saw the call take; dumpimg (its directory does not exist here) changes
// nothing. Either way the only error of a good scene is the empty assignment of the first frame.
TEST(Pipeline, DebugSwitchesAddLinesAndLeaveTheBoxesAlone) {
  std::vector<BodyInfo> runs[2];
  for (int on : {0, 1}) {
    setenv("vendor.zyObjectTracking.printlog", on ? "1" : "0", 1);
    setenv("vendor.zyObjectTracking.dumpimg", on ? "1" : "0", 1);
    SceneCaller c(kW, kH, kW, 21);
    ASSERT_EQ(c.Open(), 0);
    unsetenv("vendor.zyObjectTracking.printlog");
    unsetenv("vendor.zyObjectTracking.dumpimg");
    EXPECT_EQ(c.handle->printLogFlag, on);
    EXPECT_EQ(c.handle->dumpImgFlag, on);
    AddCrossingScene(c);
    LogCapture log;
    double callMs = 0, loggedMs = 0;
    for (bool first : {true, false}) {
      timeval a, b;
      gettimeofday(&a, nullptr);
      ASSERT_EQ(first ? c.Reinit() : c.Track(), 0);
      gettimeofday(&b, nullptr);
      callMs += static_cast<double>(b.tv_sec - a.tv_sec) * 1e3 + static_cast<double>(b.tv_usec - a.tv_usec) / 1e3;
    }
    std::vector<std::string> errors;
    for (const LogLine& l : log.Lines()) {
      if (l.prio >= ANDROID_LOG_ERROR) errors.push_back(l.text);
      if (l.text.find("] ===[ __ProcessZyTrackingAlgo") != std::string::npos) loggedMs += std::atof(l.text.c_str() + l.text.find("cost:") + 5);
    }
    EXPECT_EQ(errors, std::vector<std::string>{"HungarianAlgorithm nCols Error"}) << "no earlier bodies to assign";
    EXPECT_EQ(log.CountContaining("[FACETRACKING_TIME] ===[ __ProcessZyTrackingAlgo"), on ? 2 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result paramIn,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result update,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("Body number is 4, width 640, height 360, stride 640"), on ? 1 : 0);
    EXPECT_GE(loggedMs, 0.0);
    EXPECT_LE(loggedMs, callMs + 0.002) << "the logged cost lies within the call";
    runs[on].assign(c.outBodies, c.outBodies + 4);
  }
  EXPECT_EQ(std::memcmp(runs[0].data(), runs[1].data(), 4 * sizeof(BodyInfo)), 0);
}

// A tracker whose target is lost (a flat frame) falls back to its last box; placing that box
// off the frame shows the output clamp: truncation toward zero, bounded by stride - 1 (not
// width - 1) and height - 1, so a caller with padded rows gets boxes in the padding.
TEST(Pipeline, BoxesLeavingTheFrameAreClampedToStrideAndHeight) {
  SceneCaller c(kW, kH, 704, 1);
  ASSERT_EQ(c.Open(), 0);
  c.AddBody({100, 100, 60, 100, 0, 0, 9, 1});
  FillFlat(c.frame, 128);
  c.inBodies[0] = BodyInfo{1, 0, {100, 100, 159, 199}, 0};
  ASSERT_EQ(c.Process(true), 0);
  const std::pair<TrackerRoi, std::vector<int32_t>> cases[] = {
      {{1000.f, 100.5f, 60.f, 100.f}, {702, 100, 703, 200}},  // x = W - 2, right past the stride
      {{-500.f, -300.f, 60.f, 100.f}, {0, 0, 1, 1}},          // x = 1 - w, y = 1 - h
      {{650.7f, 270.f, 30.f, 120.f}, {650, 270, 680, 359}},   // past the width, inside the stride
  };
  for (const auto& [last, expected] : cases) {
    TrackingInp* t = c.handle->koTrackingInp[0];
    t->roi = t->lastRoi = last;
    ASSERT_EQ(c.Process(false), 0);
    const BodyRoi& r = c.outBodies[0].roi;
    EXPECT_EQ((std::vector<int32_t>{r.left, r.top, r.right, r.bottom}), expected);
  }
}

// With 30 bodies the assignment refuses every re-initialisation after the first, so the same
// 30 boxes never keep their identities; the queue runs dry and each body keeps the bodyId it
// came with (0 here), and those zeros come back out of the queue two frames later.
TEST(Hazards, ThirtyBodiesLoseTheirIdentitiesAndTheQueueHandsOutWhatCameIn) {
  SceneCaller c(kW, kH, kW, 5);
  ASSERT_EQ(c.Open(), 0);
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
    c.AddBody({10.0f + static_cast<float>(105 * (i % 6)), 10.0f + static_cast<float>(70 * (i / 6)), 40, 60, 0, 0,
               static_cast<uint32_t>(i + 1), 1});
  }
  for (int frame = 0; frame < 4; ++frame) {
    ASSERT_EQ(c.Reinit(), 0);
    for (int i = 0; i < MAX_INPLACE_NUM; ++i) EXPECT_EQ(c.outBodies[i].bodyId, frame % 2 == 0 ? i + 1 : 0);
  }
}

}  // namespace
