// Allocation failures anywhere in a caller's life. A fixed script (create, start, frames,
// re-initialisations, reset, a tracking frame) runs once without failures for reference, then
// once per allocation with that allocation failing: every one in turn, first the library's own
// allocation points, then every operator new of the process. Each failure must give a defined
// result and line, throw nothing, leak nothing, and leave a handle that works again after a
// reset exactly as a fresh one does (or, when creation failed, a clean refusal after which a
// new handle works). The image dump is switched on where its directory does not exist.
//
// Start and Reset build 30 identical trackers: of those the suite fails the allocations of
// the first and the last (their count measured from Start, whose first tracker may allocate
// more: shared tables made once), ZY_FULL_SWEEP=1 all of them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "common/zy_alloc.h"
#include "diag/image_dump.h"
#include "scene.h"
#include "support/counting_new.h"
#include "support/log_capture.h"

namespace {

enum Step { kCreate, kStart, kReinit1, kReinit2, kReset, kReinit3, kTrack, kSwept,
            kRecoverReset = kSwept, kRecoverReinit, kRecoverTrack, kDestroy, kSteps };
constexpr const char* kStepNames[kSteps] = {"create", "start", "reinit 1", "reinit 2", "reset", "reinit 3",
                                            "track", "recovery reset", "recovery reinit", "recovery track", "destroy"};
const char* const kCreateLines[] = {"CreateKoTrackingAlgo algoHandle malloc error!", "mHungarianAlgorithm fail!!!",
                                    "CreateKoTrackingAlgo algoHandle lastFaceInfo malloc error!",
                                    "Create tracking inplace failed!"};

struct Outcome {
  int32_t rc[kSteps];
  long allocsBefore[kSteps + 1];  // the swept counter before each step, and after the last
  BodyInfo out[kSteps];
};

// The caller's life on one body; arm(k) arms the k-th allocation from now once the caller is
// set up, after which nothing here allocates.
void RunScript(long (*counter)(), Outcome& o, void (*arm)(long) = nullptr, long k = 0) {
  SceneCaller c(160, 120, 160, 9);
  c.AddBody({20, 20, 30, 60, 1.5f, 0.5f, 1, 1});
  std::memset(&o, 0, sizeof o);
  if (arm != nullptr) arm(k);
  for (int s = 0; s < kSteps; ++s) {
    o.allocsBefore[s] = counter();
    int32_t& rc = o.rc[s];
    if (s == kRecoverReset && c.handle == nullptr &&
        (CreateKoTrackingAlgo(&c.handle) != 0 || StartKoTrackingAlgo(c.handle) != 0)) {
      rc = -100;  // a refused creation is followed by a new one, which must work
    } else if (s == kCreate) {
      rc = CreateKoTrackingAlgo(&c.handle);
    } else if (s == kStart) {
      rc = StartKoTrackingAlgo(c.handle);
    } else if (s == kReset || s == kRecoverReset) {
      rc = ResetKoTrackingAlgo(c.handle);
    } else if (s == kDestroy) {
      rc = DestroyKoTrackingAlgo(&c.handle);
    } else {
      rc = s == kTrack || s == kRecoverTrack ? c.Track() : c.Reinit();
    }
    o.out[s] = c.outBodies[0];
  }
  o.allocsBefore[kSteps] = counter();
}

// Runs the reference (every step succeeds), then the script once per allocation of the swept
// steps with that one failing; check(step, run, log) judges what is particular to the step.
template <class Check>
void Sweep(long (*counter)(), void (*arm)(long), Check check) {
  const bool dump = access("/data/vendor/camera/img", F_OK) != 0;
  if (dump) setenv("vendor.zyObjectTracking.dumpimg", "1", 1);
  AlgoHandle* warm = nullptr;  // creates the runtime session, so every later run allocates alike
  ASSERT_EQ(CreateKoTrackingAlgo(&warm), 0);
  ASSERT_EQ(DestroyKoTrackingAlgo(&warm), 0);
  Outcome ref;
  RunScript(counter, ref);
  for (int s = 0; s < kSteps; ++s) ASSERT_EQ(ref.rc[s], 0) << kStepNames[s];
  if (counter == zy::AllocationCount) {  // (with the dump on, operator new makes its file name)
    EXPECT_EQ(ref.allocsBefore[kTrack + 1], ref.allocsBefore[kTrack]) << "a tracking frame allocates";
  }
  const long perTracker = (ref.allocsBefore[kStart + 1] - ref.allocsBefore[kStart]) / MAX_INPLACE_NUM;
  const bool full = std::getenv("ZY_FULL_SWEEP") != nullptr;
  LogCapture log;
  int step = 0;
  for (long k = 1; k <= ref.allocsBefore[kSwept] - ref.allocsBefore[0]; ++k) {
    while (ref.allocsBefore[0] + k > ref.allocsBefore[step + 1]) ++step;
    const long fromEnd = ref.allocsBefore[step + 1] - ref.allocsBefore[0] - k;  // 0: the step's last
    if (!full && (step == kStart || step == kReset) && fromEnd >= perTracker &&
        fromEnd < (MAX_INPLACE_NUM - 1) * perTracker) {
      continue;  // a tracker between the first and the last
    }
    SCOPED_TRACE(std::string(kStepNames[step]) + ", allocation " + std::to_string(k));
    const long live = LiveHeapBlocks();
    Outcome got;
    LogCapture::Clear();
    RunScript(counter, got, arm, k);
    arm(0);
    EXPECT_EQ(got.rc[kRecoverReset], 0);
    for (int s : {kRecoverReinit, kRecoverTrack, kDestroy}) EXPECT_EQ(got.rc[s], 0) << kStepNames[s];
    for (int s : {kRecoverReinit, kRecoverTrack}) EXPECT_EQ(0, std::memcmp(&got.out[s], &ref.out[s], sizeof(BodyInfo)));
    const int32_t create = got.rc[kCreate];
    if (create != 0) {
      int lines = 0;
      for (const char* l : kCreateLines) lines += log.Has(l);
      EXPECT_EQ(lines, 1);
      EXPECT_EQ(create, log.Has("Create tracking inplace failed!") ? 6 : 2);
      // Without a handle every later call is refused as for a null handle.
      for (int s = kStart; s < kSwept; ++s) EXPECT_EQ(got.rc[s], s == kReset ? -1 : 1) << kStepNames[s];
    } else if (step == kReset) {
      EXPECT_EQ(got.rc[kReset], -1);
      EXPECT_TRUE(log.Has("ResetKoTrackingAlgo freeBodyIds malloc error!", ANDROID_LOG_ERROR) ||
                  log.Has("ZyTrackerAlgoReset fail", ANDROID_LOG_ERROR));
    } else {
      for (int s = kStart; s < kSwept; ++s) EXPECT_EQ(got.rc[s], 0) << kStepNames[s];
      // Without memory for the assignment the re-initialised body is new: identity 2, not 1.
      const bool assigned = !log.Has("HungarianAlgorithm malloc error!") && !log.Has("AssignmentOptimal malloc error!");
      EXPECT_EQ(got.out[kReinit2].bodyId, step == kReinit2 && !assigned ? 2 : 1);
    }
    EXPECT_EQ(LiveHeapBlocks(), live) << "leaked";
    check(static_cast<Step>(step), got, log);
  }
  unsetenv("vendor.zyObjectTracking.dumpimg");
}

// Each of the library's own allocation points fails once: every refusal of creation is
// reached, and a reset that fails names the tracker that could not get its buffers.
TEST(FaultInjection, EveryLibraryAllocationFailsCleanly) {
  std::set<std::string> createLines;
  std::set<int> failedTrackers;
  Sweep(zy::AllocationCount, [](long k) { zy::FailNthAllocation(static_cast<int>(k)); },
        [&](Step, const Outcome&, const LogCapture& log) {
          for (const char* l : kCreateLines) {
            if (log.Has(l)) createLines.insert(l);
          }
          for (int i = 0; i < MAX_INPLACE_NUM; ++i) {
            if (log.Has("the " + std::to_string(i) + " koTrackingInp ZyTrackerAlgoReset fail")) failedTrackers.insert(i);
          }
        });
  EXPECT_EQ(createLines.size(), 4u);
  EXPECT_TRUE(failedTrackers.count(0) && failedTrackers.count(MAX_INPLACE_NUM - 1));
  EXPECT_EQ(failedTrackers.size(), std::getenv("ZY_FULL_SWEEP") ? size_t{MAX_INPLACE_NUM} : 2u);
}

// Any operator new of the library or the standard library under it fails once: nothing may
// throw out of the interface (a worker thread that cannot start only means fewer workers).
TEST(FaultInjection, EveryHeapAllocationFailsWithoutEscaping) {
  Sweep(HeapAllocations, FailNthHeapAllocation, [](Step, const Outcome&, const LogCapture&) {});
}

// The first handle of a process also creates the runtime session. Every allocation of that
// first creation fails in turn (each attempt is again the process's first to get that far):
// each gives 2 or 6, nothing leaks, the session's failure is among them, and a creation
// after the last works. ctest runs each test in a process of its own.
TEST(FaultInjection, FirstCreateOfTheProcessFailsCleanlyAtEveryAllocation) {
  LogCapture log;
  for (long k = 1;; ++k) {
    const long live = LiveHeapBlocks();
    AlgoHandle* h = nullptr;
    FailNthHeapAllocation(k);
    const int32_t rc = CreateKoTrackingAlgo(&h);
    const bool fired = !HeapFailurePending();
    FailNthHeapAllocation(0);
    if (rc == 0) {
      ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
      if (!fired) break;  // past the last allocation of a creation
      continue;
    }
    EXPECT_TRUE((rc == 2 || rc == 6) && h == nullptr) << k;
    EXPECT_EQ(LiveHeapBlocks(), live) << "leaked at " << k;
  }
  EXPECT_TRUE(log.Has("InitSession Failed", ANDROID_LOG_ERROR)) << "the session was created before this test";
}

// With a directory it can write to, every allocation of the dump (the name, the RGB image,
// the row) fails once: nothing throws, nothing leaks, and a file is written whole or not at all.
TEST(FaultInjection, DumpIntoAWritableDirectoryFailsCleanly) {
  char dir[] = "/tmp/zy_fault_dump_XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string base = std::string(dir) + "/f";
  std::vector<uint8_t> yuv(64 * 48 * 3 / 2, 90);
  BodyInfo body{1, 1, {4, 4, 20, 30}, 0};
  ParamOut out{};
  out.bodies = &body;
  out.bodyNum = 1;
  const long before = HeapAllocations();
  ASSERT_EQ(DumpTrackingResult(base, yuv.data(), 64, 48, 1, out, 1), 0);
  const long total = HeapAllocations() - before;
  EXPECT_GE(total, 2);
  for (long k = 1; k <= total; ++k) {
    const long live = LiveHeapBlocks();
    FailNthHeapAllocation(k);
    int rc = 99;
    EXPECT_NO_THROW(rc = DumpTrackingResult(base, yuv.data(), 64, 48, 1, out, 1)) << k;
    FailNthHeapAllocation(0);
    EXPECT_TRUE((rc == 0 || rc == -1) && LiveHeapBlocks() == live) << k;
  }
  for (const auto& f : std::filesystem::directory_iterator(dir)) EXPECT_EQ(f.file_size(), 54u + 64 * 48 * 3);
  std::filesystem::remove_all(dir);
}

}  // namespace
