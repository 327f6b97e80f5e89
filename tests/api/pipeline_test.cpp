#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <vector>

#include "ZyBodyTracking.h"
#include "api/algo_handle.h"
#include "runtime/qtx.h"
#include "support/counting_new.h"
#include "support/log_capture.h"
#include "support/nv21_frames.h"

namespace {

constexpr int kW = 640;
constexpr int kH = 360;

struct SimBody {
  float x, y, w, h, vx, vy;
  uint32_t seed;
  int32_t classId;
};

std::vector<SimBody> CrossingScene() {
  return {
      {60, 100, 40, 90, 3.0f, 0.5f, 1, 1},
      {520, 120, 44, 96, -3.0f, 0.0f, 2, 1},   // crosses the first
      {300, 30, 36, 80, 0.5f, 1.5f, 3, 2},     // another class
      {200, 240, 50, 100, 1.0f, -0.5f, 4, 1},
  };
}

void Step(std::vector<SimBody>& bodies) {
  for (auto& b : bodies) {
    b.x += b.vx;
    b.y += b.vy;
  }
}

// A caller of the C interface over a synthetic scene.
class Caller {
 public:
  explicit Caller(int stride = kW) : frame_(kW, kH, stride) {
    EXPECT_EQ(CreateKoTrackingAlgo(&handle_), 0);
    EXPECT_EQ(StartKoTrackingAlgo(handle_), 0);
    std::memset(outBodies_, 0x5A, sizeof outBodies_);
    SetGeometry(kW, kH, stride);
    in_.image = frame_.data.data();
    out_.bodies = outBodies_;
  }
  void SetGeometry(int w, int h, int s) {
    in_.width = w;
    in_.height = h;
    in_.stride = s;
  }
  ~Caller() { EXPECT_EQ(DestroyKoTrackingAlgo(&handle_), 0); }

  void Render(const std::vector<SimBody>& bodies) {
    FillBackground(frame_, 21);
    for (const auto& b : bodies) DrawBody(frame_, b.x, b.y, b.w, b.h, b.seed);
  }
  // Renders the scene, re-initialises from it, then tracks `frames` frames.
  void Run(std::vector<SimBody>& bodies, int frames) {
    Render(bodies);
    EXPECT_EQ(Reinit(bodies), 0);
    for (int f = 0; f < frames; ++f) Track(bodies);
  }
  void Track(std::vector<SimBody>& bodies) {
    Step(bodies);
    Render(bodies);
    EXPECT_EQ(Process(false), 0);
  }
  // Re-initialises from the true boxes (inclusive corners).
  int Reinit(const std::vector<SimBody>& bodies) {
    inBodies_.clear();
    for (size_t i = 0; i < bodies.size(); ++i) {
      const auto& b = bodies[i];
      const BodyRoi roi{int32_t(std::lround(b.x)), int32_t(std::lround(b.y)), int32_t(std::lround(b.x + b.w)) - 1,
                        int32_t(std::lround(b.y + b.h)) - 1};
      inBodies_.push_back(BodyInfo{b.classId, 0, roi, 100u + uint32_t(i)});
    }
    return Process(true);
  }
  int Process(bool first) {
    in_.bodies = inBodies_.data();
    in_.bodyNum = static_cast<int32_t>(inBodies_.size());
    in_.isFirstFrame = first ? 1 : 0;
    return ProcessKoTrackingAlgo(handle_, &in_, &out_);
  }

  AlgoHandle* handle_ = nullptr;
  Nv21Frame frame_;
  ParamIn in_{};
  ParamOut out_{};
  BodyInfo outBodies_[MAX_INPLACE_NUM];
  std::vector<BodyInfo> inBodies_;
};

TEST(Pipeline, TracksAndKeepsIdentitiesThroughReinitialisations) {
  Caller c;
  auto bodies = CrossingScene();
  c.Render(bodies);
  ASSERT_EQ(c.Reinit(bodies), 0);
  ASSERT_EQ(c.out_.bodyNum, 4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(c.outBodies_[i].bodyId, i + 1) << "first frame hands out 1, 2, 3, ...";
    EXPECT_EQ(c.inBodies_[i].bodyId, i + 1) << "written into the caller's bodies too";
  }
  int trackedFrames = 0;
  float worst = 0;
  for (int frame = 1; frame <= 60; ++frame) {
    Step(bodies);
    c.Render(bodies);
    if (frame % 10 == 0) {
      ASSERT_EQ(c.Reinit(bodies), 0);
      for (int i = 0; i < 4; ++i) EXPECT_EQ(c.outBodies_[i].bodyId, i + 1) << "frame " << frame;
      continue;
    }
    ASSERT_EQ(c.Process(false), 0);
    ASSERT_EQ(c.out_.bodyNum, 4);
    ++trackedFrames;
    for (int i = 0; i < 4; ++i) {
      const BodyInfo& o = c.outBodies_[i];
      EXPECT_EQ(o.bodyId, i + 1);
      EXPECT_EQ(o.classId, bodies[static_cast<size_t>(i)].classId);
      EXPECT_EQ(o.extra, 100u + static_cast<uint32_t>(i));
      const auto& b = bodies[static_cast<size_t>(i)];
      const float ex = 0.5f * (o.roi.left + o.roi.right) - (b.x + b.w / 2);
      const float ey = 0.5f * (o.roi.top + o.roi.bottom) - (b.y + b.h / 2);
      worst = std::max(worst, std::hypot(ex, ey));
    }
  }
  EXPECT_EQ(trackedFrames, 54);
  EXPECT_LE(worst, 6.0f) << "tracked boxes stay within a few pixels of the truth";
  // The last output is kept as the previous frame.
  EXPECT_EQ(std::memcmp(c.handle_->lastBodyInfo, c.outBodies_, 4 * sizeof(BodyInfo)), 0);
}

// A tracker whose target is lost falls back to its last box; placing that box off the frame
// shows the output clamp: truncation toward zero, bounded by stride - 1 (not width - 1) and
// height - 1.
TEST(Pipeline, BoxesLeavingTheFrameAreClampedToStrideAndHeight) {
  Caller c(704);
  FillFlat(c.frame_, 128);
  std::vector<SimBody> bodies = {{100, 100, 60, 100, 0, 0, 9, 1}};
  ASSERT_EQ(c.Reinit(bodies), 0);
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
    TrackingInp* t = c.handle_->koTrackingInp[0];
    t->roi = t->lastRoi = k.last;
    ASSERT_EQ(c.Process(false), 0);
    const BodyRoi& r = c.outBodies_[0].roi;
    EXPECT_EQ((std::vector<int32_t>{r.left, r.top, r.right, r.bottom}),
              (std::vector<int32_t>{k.expected.left, k.expected.top, k.expected.right, k.expected.bottom}));
  }
}

TEST(Pipeline, TrackingFramesAllocateNothing) {
  Caller c;
  auto bodies = CrossingScene();
  c.Run(bodies, 0);
  for (int frame = 1; frame <= 5; ++frame) {
    Step(bodies);
    c.Render(bodies);
    const long before = HeapAllocations();
    ASSERT_EQ(c.Process(false), 0);
    EXPECT_EQ(HeapAllocations(), before) << "frame " << frame;
  }
}

TEST(Pipeline, BadBoxesAreSkippedYetCounted) {
  Caller c;
  std::vector<SimBody> bodies = {{100, 100, 40, 80, 0, 0, 1, 1}, {200, 100, 40, 80, 0, 0, 2, 1}};
  c.Run(bodies, 0);  // establishes a previous frame
  LogCapture log;
  c.inBodies_[1].roi.right = c.inBodies_[1].roi.left;  // zero width
  BodyInfo sentinel;
  std::memset(&sentinel, 0x5A, sizeof sentinel);
  c.outBodies_[1] = sentinel;
  ASSERT_EQ(c.Process(true), 0);
  EXPECT_EQ(log.Count("ParamIn body roi width or height is error!", ANDROID_LOG_ERROR), 1);
  EXPECT_EQ(c.out_.bodyNum, 2);
  EXPECT_EQ(c.handle_->bodyNum, 2);
  EXPECT_EQ(std::memcmp(&c.outBodies_[1], &sentinel, sizeof sentinel), 0) << "skipped entry not written";

  // A box exactly as wide as the frame is accepted.
  c.inBodies_[1].roi.left = 0;
  c.inBodies_[1].roi.right = kW;
  log.Clear();
  ASSERT_EQ(c.Process(true), 0);
  EXPECT_EQ(log.Count("ParamIn body roi width or height is error!"), 0);
}

TEST(Pipeline, TrackingFramesWithNoBodiesOrTooManyWriteNothing) {
  Caller c;
  c.Render({});
  LogCapture log;
  // Before any re-initialisation a tracking frame has no bodies.
  c.inBodies_.assign(1, BodyInfo{});
  ASSERT_EQ(c.Process(false), 0);
  EXPECT_EQ(c.out_.bodyNum, 0);

  // More than 30 bodies in the handle: the limit line, nothing written, still 0.
  c.handle_->bodyNum = 31;
  c.out_.bodyNum = -7;
  ASSERT_EQ(c.Process(false), 0);
  EXPECT_TRUE(log.Has("algoHandle->bodyNum larger than MAX_INPLACE_NUM\n", ANDROID_LOG_ERROR));
  EXPECT_EQ(c.out_.bodyNum, -7);
  c.handle_->bodyNum = 0;
}

// The same frames give bit-identical boxes whichever partitioner runs the loop.
TEST(Pipeline, PartitionersAgreeBitForBit) {
  std::vector<std::vector<BodyInfo>> runs;
  for (int kind : {QTX::kSerial, QTX::kStatic, QTX::kDynamic, QTX::kHeuristic}) {
    Caller c;
    GetSession()->GetGuider()->kind = kind;
    auto bodies = CrossingScene();
    std::vector<BodyInfo> all;
    c.Run(bodies, 0);
    for (int frame = 1; frame <= 8; ++frame) {
      c.Track(bodies);
      all.insert(all.end(), c.outBodies_, c.outBodies_ + 4);
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
    Caller c;
    unsetenv("vendor.zyObjectTracking.printlog");
    unsetenv("vendor.zyObjectTracking.dumpimg");
    EXPECT_EQ(c.handle_->printLogFlag, on);
    EXPECT_EQ(c.handle_->dumpImgFlag, on);
    auto bodies = CrossingScene();
    LogCapture log;
    c.Run(bodies, 1);
    EXPECT_EQ(log.CountContaining("[FACETRACKING_TIME] ===[ __ProcessZyTrackingAlgo"), on ? 2 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result paramIn,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("ZyTracking result update,left:"), on ? 4 : 0);
    EXPECT_EQ(log.CountContaining("Body number is 4, width 640, height 360, stride 640"), on ? 1 : 0);
    runs[on].assign(c.outBodies_, c.outBodies_ + 4);
  }
  EXPECT_EQ(std::memcmp(runs[0].data(), runs[1].data(), 4 * sizeof(BodyInfo)), 0);
}

TEST(Pipeline, UnsafeCallsAreRefusedAndChangeNothing) {
  Caller c;
  auto bodies = CrossingScene();
  c.Run(bodies, 0);
  const std::vector<BodyInfo> outBefore(c.outBodies_, c.outBodies_ + MAX_INPLACE_NUM);
  const std::vector<BodyInfo> lastBefore(c.handle_->lastBodyInfo, c.handle_->lastBodyInfo + 4);
  LogCapture log;
  EXPECT_EQ(ProcessKoTrackingAlgo(c.handle_, nullptr, &c.out_), 1);
  EXPECT_EQ(ProcessKoTrackingAlgo(c.handle_, &c.in_, nullptr), 1);
  const uint8_t* image = c.in_.image;
  c.in_.image = nullptr;
  EXPECT_EQ(c.Process(false), 1);
  c.in_.image = image;

  for (auto [w, h, s] : {std::tuple{0, kH, kW}, {kW, -2, kW}, {kW, kH, kW - 2}, {40000, 40000, 40000}}) {
    c.SetGeometry(w, h, s);
    EXPECT_EQ(c.Process(false), 0);
  }
  c.SetGeometry(kW, kH, kW);
  c.in_.isFirstFrame = 1;
  std::vector<BodyInfo> many(31, c.inBodies_[0]);
  c.in_.bodies = many.data();
  for (int n : {31, -1}) {
    c.in_.bodyNum = n;
    EXPECT_EQ(ProcessKoTrackingAlgo(c.handle_, &c.in_, &c.out_), 0);
  }

  EXPECT_GE(log.Count("ProcessKoTrackingAlgo input params is NULL, error! \n", ANDROID_LOG_ERROR), 3);
  EXPECT_EQ(c.handle_->bodyNum, 4);
  EXPECT_EQ(c.out_.bodyNum, 4);
  EXPECT_EQ(std::memcmp(outBefore.data(), c.outBodies_, sizeof c.outBodies_), 0);
  EXPECT_EQ(std::memcmp(lastBefore.data(), c.handle_->lastBodyInfo, 4 * sizeof(BodyInfo)), 0);
  EXPECT_EQ(c.handle_->freeBodyIds.size(), 26u);
}

}  // namespace
