// Calls a careless or hostile caller could make: each is refused with one error line and
// changes nothing when it would touch memory the library does not own, and otherwise runs as
// any frame. The stored fuzz inputs (the seed corpus and the inputs that once found a fault)
// replay through the fuzz driver, whose checks abort on a violation.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "api/algo_handle.h"
#include "fuzz_driver.h"
#include "scene.h"
#include "support/log_capture.h"
#include "tracker/tracking_inp.h"

namespace {

constexpr int kW = 320;
constexpr int kH = 240;

SceneCaller& Open(SceneCaller& c) {
  EXPECT_EQ(c.Open(), 0);
  c.AddBody({40, 60, 48, 96, 2.0f, 0.5f, 11, 1});
  c.AddBody({200, 80, 40, 80, -1.5f, 0.0f, 12, 2});
  return c;
}

// The caller's body records and the handle's state (previous bodies, identity queue, tracker
// boxes), byte for byte.
std::vector<uint8_t> State(const SceneCaller& c) {
  std::vector<uint8_t> s;
  const auto add = [&s](const void* p, size_t n) { s.insert(s.end(), static_cast<const uint8_t*>(p), static_cast<const uint8_t*>(p) + n); };
  add(c.outBodies, sizeof c.outBodies);
  add(c.inBodies, sizeof c.inBodies);
  add(c.handle->lastBodyInfo, sizeof(BodyInfo) * MAX_INPLACE_NUM);
  add(&c.handle->bodyNum, sizeof c.handle->bodyNum);
  for (const int32_t id : c.handle->freeBodyIds) add(&id, sizeof id);
  for (const TrackingInp* t : c.handle->koTrackingInp) add(&t->roi, sizeof t->roi);
  return s;
}

// Each case changes one thing in an otherwise good call after a re-initialisation and a
// tracking frame of two bodies (identities 1 and 2). A refused call logs its one error line
// and leaves the caller's records and the handle as they were; an accepted one is processed
// as any frame. nextIds are the identities a following re-initialisation of the same two
// bodies receives: 1, 2 while the handle remembers them, 3, 4 once it has let them go.
#define EDIT(what) [](ParamIn*& in, ParamOut*& out, std::vector<BodyInfo>& many) { (void)in, (void)out, (void)many, what; }
TEST(HostileInput, EdgeFramesAreRefusedOnlyWhenUnsafe) {
  struct Case {
    const char* what;
    void (*edit)(ParamIn*&, ParamOut*&, std::vector<BodyInfo>&);
    bool first;
    int32_t result;
    const char* line;  // the one error line of a refusal; nullptr for an accepted frame
    int32_t outBodyNum, ids[2], nextIds[2];  // ids: what the call leaves in the caller's bodies
  };
  const char* kNull = "ProcessKoTrackingAlgo input params is NULL, error! \n";
  const Case cases[] = {
      {"null in", EDIT(in = nullptr), true, 1, kNull, 2, {77, 77}, {1, 2}},
      {"null out", EDIT(out = nullptr), false, 1, kNull, 2, {77, 77}, {1, 2}},
      {"null input bodies", EDIT(in->bodies = nullptr), true, 1, kNull, 2, {77, 77}, {1, 2}},
      {"null output bodies", EDIT(out->bodies = nullptr), false, 1, kNull, 2, {77, 77}, {1, 2}},
      {"null image", EDIT(in->image = nullptr), true, 1, kNull, 2, {77, 77}, {1, 2}},
      {"negative stride", EDIT(in->stride = -kW), false, 0,
       "ProcessKoTrackingAlgo frame geometry is invalid: width 320, height 240, stride -320", 2, {77, 77}, {1, 2}},
      {"zero height", EDIT(in->height = 0), true, 0,
       "ProcessKoTrackingAlgo frame geometry is invalid: width 320, height 0, stride 320", 2, {77, 77}, {1, 2}},
      // 65536 x (21846 + 10923) bytes is 2^31 + 65536: one chroma row too many for 32 bits.
      {"byte count past 32 bits", EDIT((in->width = in->stride = 65536, in->height = 21846)), false, 0,
       "ProcessKoTrackingAlgo frame of 65536 x 21846 (stride 65536) is too large", 2, {77, 77}, {1, 2}},
      {"31 bodies", EDIT((in->bodies = many.data(), in->bodyNum = 31)), true, 0,
       "ProcessKoTrackingAlgo bodyNum 31 is outside 0..30", 2, {77, 77}, {1, 2}},
      {"negative count", EDIT(in->bodyNum = INT32_MIN), true, 0,
       "ProcessKoTrackingAlgo bodyNum -2147483648 is outside 0..30", 2, {77, 77}, {1, 2}},
      // Accepted: nothing is read or written through null arrays when there are no bodies,
      // and the bodies of the last frame are let go.
      {"no bodies, null arrays", EDIT((in->bodies = nullptr, out->bodies = nullptr, in->bodyNum = 0)), true, 0,
       nullptr, 0, {77, 77}, {3, 4}},
      // Width 0 bounds every box to nothing: identities are assigned, every box is skipped.
      {"zero width", EDIT(in->width = 0), true, 0, nullptr, 2, {1, 2}, {1, 2}},
      {"negative width", EDIT(in->width = -5), true, 0, nullptr, 2, {1, 2}, {1, 2}},
      {"stride below width, re-initialised", EDIT(in->stride = kW - 64), true, 0, nullptr, 2, {1, 2}, {1, 2}},
      {"stride below width, tracked", EDIT(in->stride = kW - 64), false, 0, nullptr, 2, {77, 77}, {1, 2}},
      {"null input bodies, no tracked body listed", EDIT((in->bodies = nullptr, in->bodyNum = 0)), false, 0,
       nullptr, 2, {77, 77}, {1, 2}},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    SceneCaller c(kW, kH, kW, 3);
    ASSERT_EQ(Open(c).Reinit(), 0);
    ASSERT_EQ(c.Track(), 0);
    for (BodyInfo& b : c.inBodies) b.bodyId = 77;  // only a re-initialisation overwrites these
    std::vector<BodyInfo> many(31, c.inBodies[0]);
    const std::vector<uint8_t> before = State(c);
    const BodyInfo outBefore[2] = {c.outBodies[0], c.outBodies[1]};
    ParamIn in = c.in;
    ParamOut out = c.out;
    in.bodyNum = c.BodyCount();
    in.isFirstFrame = k.first ? 1 : 0;
    ParamIn* inArg = &in;
    ParamOut* outArg = &out;
    k.edit(inArg, outArg, many);
    LogCapture log;
    EXPECT_EQ(ProcessKoTrackingAlgo(c.handle, inArg, outArg), k.result);
    EXPECT_EQ((std::vector<int32_t>{out.bodyNum, c.inBodies[0].bodyId, c.inBodies[1].bodyId}),
              (std::vector<int32_t>{k.outBodyNum, k.ids[0], k.ids[1]}));
    for (const BodyInfo& b : many) EXPECT_EQ(b.bodyId, 77);
    const std::vector<LogLine> lines = log.Lines();
    const long errors = std::count_if(lines.begin(), lines.end(), [](const LogLine& l) { return l.prio >= ANDROID_LOG_ERROR; });
    if (k.line != nullptr) {
      EXPECT_EQ(log.Count(k.line, ANDROID_LOG_ERROR), 1);
      EXPECT_EQ(errors, 1);
      EXPECT_TRUE(State(c) == before);
    } else if (in.width <= 0) {
      EXPECT_EQ(log.Count("ParamIn body roi width or height is error!", ANDROID_LOG_ERROR), 2);
      EXPECT_EQ(0, std::memcmp(outBefore, c.outBodies, sizeof outBefore));  // skipped: not written
    } else if (in.stride < in.width && !k.first) {
      for (int i = 0; i < 2; ++i) EXPECT_LT(c.outBodies[i].roi.right, in.stride);
    }
    ASSERT_EQ(c.Reinit(), 0);
    EXPECT_EQ((std::vector<int32_t>{c.inBodies[0].bodyId, c.inBodies[1].bodyId}),
              (std::vector<int32_t>{k.nextIds[0], k.nextIds[1]}));
  }
}

// Boxes anywhere the int32 range allows: refused when wider or taller than the frame,
// otherwise tracked, and every tracked box comes back inside the frame; then tracker states
// run off to infinity or NaN (a scale grown by 1.05 on every one of some 1,800 frames would):
// every conversion to pixels saturates and the boxes still come back inside.
TEST(HostileInput, BoxesAndTrackerStatesFarOutsideTheFrameComeBackInside) {
  const BodyRoi boxes[] = {
      {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX},  // refused: wider than the frame
      {2000000000, 5, 2000000100, 90}, {-2000000100, -2000000100, -2000000000, -2000000000},
      {-30, -30, 10, 10}, {kW - 5, kH - 5, kW + 40, kH + 40}, {0, 0, kW, kH}, {kW - 1, 0, kW, 1},
      {INT32_MAX - 64, INT32_MAX - 64, INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN, INT32_MIN + 128, INT32_MIN + 128},
  };
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const TrackerRoi states[] = {{inf, inf, inf, inf}, {-inf, -inf, inf, inf}, {nan, nan, nan, nan},
                               {3e38f, -3e38f, 3e38f, 3e38f}, {10, 10, -inf, nan}};
  SceneCaller c(kW, kH, kW + 16, 5);
  Open(c).Render();
  const int n = static_cast<int>(std::size(boxes));
  for (int i = 0; i < n; ++i) c.inBodies[i] = BodyInfo{1, 0, boxes[i], static_cast<uint32_t>(i)};
  c.in.bodyNum = n;
  c.in.isFirstFrame = 1;
  LogCapture log;
  ASSERT_EQ(ProcessKoTrackingAlgo(c.handle, &c.in, &c.out), 0);
  EXPECT_EQ(log.Count("ParamIn body roi width or height is error!", ANDROID_LOG_ERROR), 1);
  EXPECT_EQ(c.out.bodyNum, n);
  c.in.isFirstFrame = 0;
  for (int frame = 0; frame < 6 + static_cast<int>(std::size(states)); ++frame) {
    if (frame >= 6) {
      for (int i : {1, 2}) c.handle->koTrackingInp[i]->roi = c.handle->koTrackingInp[i]->lastRoi = states[frame - 6];
      c.handle->koTrackingInp[2]->scale = frame % 2 ? 1e30f : nan;
    }
    ASSERT_EQ(ProcessKoTrackingAlgo(c.handle, &c.in, &c.out), 0);
    ASSERT_EQ(c.out.bodyNum, n);
    EXPECT_TRUE(OutputInsideFrame(c)) << "frame " << frame;
    for (int i = 1; i < n; ++i) EXPECT_EQ(c.outBodies[i].extra, static_cast<uint32_t>(i));
  }
}

// Frames of one or two pixels a side, odd sizes, strides wider than the width: every byte the
// tracker reads lies in the caller's frame (exactly sized, so AddressSanitizer sees the ends).
TEST(HostileInput, TinyFramesAreTrackedInPlace) {
  for (int w = 1; w <= 5; ++w) {
    for (int h = 1; h <= 5; ++h) {
      SceneCaller c(w, h, w + (h & 1), 7);
      ASSERT_EQ(c.Open(), 0);
      c.AddBody({0, 0, static_cast<float>(w), static_cast<float>(h), 0.4f, 0.3f, 13, 1});
      ASSERT_EQ(c.Reinit(), 0);
      for (int frame = 0; frame < 3; ++frame) {
        ASSERT_EQ(c.Track(), 0);
        EXPECT_TRUE(OutputInsideFrame(c)) << w << "x" << h;
      }
    }
  }
}

// A frame 900 million pixels wide and one row high is within the 32-bit byte count. The box
// is as wide as the frame, so its padded width (2.25e9) is past the int32 range: the search
// window is still the smaller padded side, 2 pixels, never a wrapped negative number.
TEST(HostileInput, VeryWideFrameKeepsTheSearchWindowPositive) {
  constexpr int32_t kWide = 900000000;
  void* map = mmap(nullptr, kWide, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(map, MAP_FAILED);
  SceneCaller c(1, 1, 1, 1);
  ASSERT_EQ(c.Open(), 0);
  c.in.width = c.in.stride = kWide;
  c.in.image = static_cast<const uint8_t*>(map);
  c.inBodies[0] = BodyInfo{1, 0, {0, 0, kWide, 1}, 0};
  c.in.bodyNum = c.in.isFirstFrame = 1;
  ASSERT_EQ(ProcessKoTrackingAlgo(c.handle, &c.in, &c.out), 0);
  EXPECT_EQ(c.handle->koTrackingInp[0]->scale, 2.0f / 64.0f);
  c.in.isFirstFrame = 0;
  ASSERT_EQ(ProcessKoTrackingAlgo(c.handle, &c.in, &c.out), 0);
  EXPECT_TRUE(OutputInsideFrame(c));
  ASSERT_EQ(c.Destroy(), 0);
  munmap(map, kWide);
}

TEST(FuzzInputs, StoredInputsReplayClean) {
  ZyFuzzQuietLog(true);
  for (const auto& [dir, atLeast] : {std::pair{"/regressions", 1}, {"/corpus", 20}}) {
    std::vector<std::filesystem::path> files;
    for (const auto& e : std::filesystem::directory_iterator(std::string(ZY_FUZZ_DIR) + dir)) files.push_back(e.path());
    EXPECT_GE(files.size(), static_cast<size_t>(atLeast)) << dir;
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
      std::ifstream in(f, std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      ZyFuzzOneInput(bytes.data(), bytes.size());  // a violation aborts with its check on stderr
    }
  }
  ZyFuzzQuietLog(false);
}

}  // namespace
