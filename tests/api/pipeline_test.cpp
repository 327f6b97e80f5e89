#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/algo_handle.h"
#include "tracker/tracking_inp.h"
#include "runtime/qtx.h"
#include "scene.h"
#include "support/counting_new.h"
#include "support/log_capture.h"

namespace {

constexpr int kW = 640;
constexpr int kH = 360;

// Four bodies: the first two (one class) cross each other, the third is of another class.
void AddCrossingScene(SceneCaller& c) {
  c.AddBody({60, 100, 40, 90, 3.0f, 0.5f, 1, 1});
  c.AddBody({520, 120, 44, 96, -3.0f, 0.0f, 2, 1});
  c.AddBody({300, 30, 36, 80, 0.5f, 1.5f, 3, 2});
  c.AddBody({200, 240, 50, 100, 1.0f, -0.5f, 4, 1});
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
      // The first frame hands out 1, 2, 3, ..., also written into the caller's bodies.
      EXPECT_EQ(o.bodyId, i + 1) << "frame " << frame;
      EXPECT_TRUE(!reinit || c.inBodies[i].bodyId == i + 1) << "frame " << frame;
      EXPECT_EQ(o.classId, c.Body(i).classId);
      EXPECT_EQ(o.extra, c.inBodies[i].extra);
      const MovingBody& b = c.Body(i);
      worst = std::max(worst, std::hypot(0.5f * static_cast<float>(o.roi.left + o.roi.right) - (b.x + b.w / 2),
                                         0.5f * static_cast<float>(o.roi.top + o.roi.bottom) - (b.y + b.h / 2)));
    }
  }
  EXPECT_LE(worst, 6.0f) << "tracked boxes stay within a few pixels of the truth";
  // The last output is kept as the previous frame.
  EXPECT_EQ(std::memcmp(c.handle->lastBodyInfo, c.outBodies, 4 * sizeof(BodyInfo)), 0);
}

// A tracker whose target is lost (a flat frame) falls back to its last box; placing that box
// off the frame shows the output clamp: truncation toward zero, bounded by stride - 1 (not
// width - 1) and height - 1. A caller with padded rows gets boxes in the padding (the
// header's hazard).
TEST(Pipeline, BoxesLeavingTheFrameAreClampedToStrideAndHeight) {
  SceneCaller c(kW, kH, 704, 1);
  ASSERT_EQ(c.Open(), 0);
  c.AddBody({100, 100, 60, 100, 0, 0, 9, 1});
  FillFlat(c.frame, 128);
  c.inBodies[0] = BodyInfo{1, 0, {100, 100, 159, 199}, 0};
  ASSERT_EQ(c.Process(true), 0);
  struct Case {
    TrackerRoi last;
    BodyRoi expected;
  };
  const Case cases[] = {
      {{1000.f, 100.5f, 60.f, 100.f}, {702, 100, 703, 200}},   // x = W - 2, right past the stride
      {{-500.f, -300.f, 60.f, 100.f}, {0, 0, 1, 1}},           // x = 1 - w, y = 1 - h
      {{650.7f, 270.f, 30.f, 120.f}, {650, 270, 680, 359}},    // past the width but inside the stride
  };
  for (const Case& k : cases) {
    TrackingInp* t = c.handle->koTrackingInp[0];
    t->roi = t->lastRoi = k.last;
    ASSERT_EQ(c.Process(false), 0);
    const BodyRoi& r = c.outBodies[0].roi;
    EXPECT_EQ((std::vector<int32_t>{r.left, r.top, r.right, r.bottom}),
              (std::vector<int32_t>{k.expected.left, k.expected.top, k.expected.right, k.expected.bottom}));
  }
}

// The same frames give bit-identical boxes whichever partitioner runs the loop.
TEST(Pipeline, PartitionersAgreeBitForBit) {
  std::vector<std::vector<BodyInfo>> runs;
  for (int kind : {QTX::kSerial, QTX::kStatic, QTX::kDynamic, QTX::kHeuristic}) {
    SceneCaller c(kW, kH, kW, 21);
    ASSERT_EQ(c.Open(), 0);
    GetSession()->GetGuider()->kind = kind;
    AddCrossingScene(c);
    std::vector<BodyInfo> all;
    ASSERT_EQ(c.Reinit(), 0);
    for (int frame = 1; frame <= 8; ++frame) {
      ASSERT_EQ(c.Track(), 0);
      all.insert(all.end(), c.outBodies, c.outBodies + 4);
    }
    runs.push_back(all);
  }
  GetSession()->GetGuider()->kind = QTX::kDynamic;
  for (size_t r = 1; r < runs.size(); ++r) {
    EXPECT_EQ(std::memcmp(runs[0].data(), runs[r].data(), runs[0].size() * sizeof(BodyInfo)), 0) << r;
  }
}

// printlog adds the debug lines; dumpimg, with a dump directory that does not exist here, must not
// change the tracking.
TEST(Pipeline, DebugSwitchesAddLinesAndLeaveTheBoxesAlone) {
  std::vector<BodyInfo> runs[2];
  for (int on : {0, 1}) {
    if (on) setenv("vendor.zyObjectTracking.printlog", "1", 1);
    if (on) setenv("vendor.zyObjectTracking.dumpimg", "1", 1);
    SceneCaller c(kW, kH, kW, 21);
    ASSERT_EQ(c.Open(), 0);
    unsetenv("vendor.zyObjectTracking.printlog");
    unsetenv("vendor.zyObjectTracking.dumpimg");
    EXPECT_EQ(c.handle->printLogFlag, on);
    EXPECT_EQ(c.handle->dumpImgFlag, on);
    AddCrossingScene(c);
    LogCapture log;
    ASSERT_EQ(c.Reinit(), 0);
    ASSERT_EQ(c.Track(), 0);
    EXPECT_EQ(log.CountContaining("[FACETRACKING_TIME] ===[ __ProcessZyTrackingAlgo"), on ? 2 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result paramIn,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result update,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("Body number is 4, width 640, height 360, stride 640"), on ? 1 : 0);
    runs[on].assign(c.outBodies, c.outBodies + 4);
  }
  EXPECT_EQ(std::memcmp(runs[0].data(), runs[1].data(), 4 * sizeof(BodyInfo)), 0);
}

// Hazards of the interface the header warns about.

// With 30 bodies the assignment refuses every re-initialisation after the first, so the same
// 30 boxes never keep their identities; the queue runs dry and each body keeps the bodyId it
// came with (0 here), and those zeros come back out of the queue two frames later: 0 on all
// 30 bodies.
TEST(Hazards, ThirtyBodiesLoseTheirIdentitiesAndTheQueueHandsOutWhatCameIn) {
  SceneCaller c(kW, kH, kW, 5);
  ASSERT_EQ(c.Open(), 0);
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
    c.AddBody({10.0f + static_cast<float>(105 * (i % 6)), 10.0f + static_cast<float>(70 * (i / 6)), 40, 60, 0, 0, static_cast<uint32_t>(i + 1), 1});
  }
  std::vector<int32_t> ids;
  for (int frame = 0; frame < 4; ++frame) {
    ASSERT_EQ(c.Reinit(), 0);
    for (int i = 0; i < MAX_INPLACE_NUM; ++i) ids.push_back(c.outBodies[i].bodyId);
  }
  std::vector<int32_t> expected;
  for (int frame = 0; frame < 4; ++frame) {
    for (int i = 0; i < MAX_INPLACE_NUM; ++i) expected.push_back(frame % 2 == 0 ? i + 1 : 0);
  }
  EXPECT_EQ(ids, expected);
}

// A body skipped at re-initialisation (a degenerate box) keeps its slot's old tracker: it
// moves on tracking frames and comes back with the class and identity its output entry held
// (0 and 0 from a cleared array), not those of the body the caller meant.
TEST(Hazards, SkippedBodyLeavesTheOldTrackerRunning) {
  SceneCaller c(kW, kH, kW, 21);
  ASSERT_EQ(c.Open(), 0);
  AddCrossingScene(c);
  ASSERT_EQ(c.Reinit(), 0);
  ASSERT_EQ(c.Track(), 0);
  const BodyRoi old = c.outBodies[1].roi;
  std::memset(c.outBodies, 0, sizeof c.outBodies);
  c.inBodies[1] = BodyInfo{7, 0, {300, 200, 300, 260}, 0};  // no width: skipped
  ASSERT_EQ(c.Process(true), 0);
  EXPECT_EQ(c.inBodies[1].bodyId, 5);  // an identity is assigned, but not output
  EXPECT_EQ(c.outBodies[1].bodyId, 0);
  ASSERT_EQ(c.Track(), 0);
  const BodyInfo& o = c.outBodies[1];
  EXPECT_EQ((std::vector<int32_t>{o.classId, o.bodyId}), (std::vector<int32_t>{0, 0}));
  EXPECT_LE(std::abs(o.roi.left - old.left), 8);  // where the old body was
  EXPECT_LE(std::abs(o.roi.top - old.top), 8);
}

// The worker pool belongs to the process: destroying one handle stops it under every other,
// whose loops then run on the caller's thread (same results) until the next create.
TEST(Hazards, DestroyingAnyHandleStopsThePoolForAll) {
  SceneCaller a(kW, kH, kW, 21);
  ASSERT_EQ(a.Open(), 0);
  AddCrossingScene(a);
  ASSERT_EQ(a.Reinit(), 0);
  {
    SceneCaller b(kW, kH, kW, 22);
    ASSERT_EQ(b.Open(), 0);
    ASSERT_GE(QTX::WorkerCount(GetSession()), 1) << "needs two hardware threads";
    ASSERT_EQ(b.Destroy(), 0);
  }
  EXPECT_EQ(QTX::WorkerCount(GetSession()), 0);
  ASSERT_EQ(a.Track(), 0);
  EXPECT_EQ(a.out.bodyNum, 4);
  SceneCaller c(kW, kH, kW, 23);
  ASSERT_EQ(c.Open(), 0);
  EXPECT_GE(QTX::WorkerCount(GetSession()), 1);
}

}  // namespace
