// Allocation failures anywhere in a caller's life. A fixed script (create, start, frames,
// re-initialisations, reset, frames with the image dump switched on) runs once without
// failures for reference, then once per allocation with that allocation failing. Each failure
// must give its defined result and log line, leak nothing, and leave a handle that works
// again after a reset exactly as a fresh one does (or, when creation failed, a clean refusal
// after which a new handle works).
//
// Start and Reset make 19 allocations for each of 30 identical trackers, so the suite fails a
// sample that takes every distinct path (below); ZY_FULL_SWEEP=1 fails every allocation.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "api/algo_handle.h"
#include "common/zy_alloc.h"
#include "diag/image_dump.h"
#include "scene.h"
#include "support/counting_new.h"
#include "support/log_capture.h"

namespace {

enum Step {
  kCreate, kStart, kReinit1, kReinit2, kReset, kReinit3, kTrack,
  kSwept,  // the steps above are where failures are injected; the recovery below runs clean
  kRecoverReset = kSwept, kRecoverReinit, kRecoverTrack, kDestroy, kSteps
};
constexpr const char* kStepNames[kSteps] = {
    "create", "start", "reinit 1", "reinit 2", "reset", "reinit 3", "track",
    "recovery reset", "recovery reinit", "recovery track", "destroy"};

struct Outcome {
  int32_t rc[kSteps];
  long allocsBefore[kSteps + 1];  // allocation counter before each step, and after the last
  int32_t outNum[kSteps];
  BodyInfo out[kSteps][MAX_INPLACE_NUM];
};

// The caller's life on one body (the failure paths do not depend on the count); `counter`
// reads the allocation counter being swept, arm(k) (when given) arms it once the caller is
// set up. Nothing here allocates after that, so every allocation counted is the library's.
void RunScript(long (*counter)(), Outcome& o, void (*arm)(long) = nullptr, long k = 0) {
  SceneCaller c(160, 120, 160, 9);
  c.AddBody({20, 20, 30, 60, 1.5f, 0.5f, 1, 1});
  std::memset(&o, 0, sizeof o);
  if (arm != nullptr) arm(k);
  for (int s = 0; s < kSteps; ++s) {
    o.allocsBefore[s] = counter();
    int32_t& rc = o.rc[s];
    switch (s) {
      case kCreate: rc = CreateKoTrackingAlgo(&c.handle); break;
      case kStart: rc = StartKoTrackingAlgo(c.handle); break;
      case kReset: rc = ResetKoTrackingAlgo(c.handle); break;
      case kRecoverReset:
        // A handle that creation refused is replaced by a new one, which must work.
        if (c.handle == nullptr && (CreateKoTrackingAlgo(&c.handle) != 0 || StartKoTrackingAlgo(c.handle) != 0)) {
          rc = -100;
          break;
        }
        rc = ResetKoTrackingAlgo(c.handle);
        break;
      case kDestroy: rc = DestroyKoTrackingAlgo(&c.handle); break;
      case kTrack:
      case kRecoverTrack: rc = c.Track(); break;
      default: rc = c.Reinit(); break;
    }
    o.outNum[s] = c.out.bodyNum;
    std::memcpy(o.out[s], c.outBodies, sizeof c.outBodies);
  }
  o.allocsBefore[kSteps] = counter();
}

// The image dump adds allocations to every frame; it is switched on unless its directory
// exists here, where files would be written.
class DumpSwitch {
 public:
  DumpSwitch() : on_(access("/data/vendor/camera/img", F_OK) != 0) {
    if (on_) setenv("vendor.zyObjectTracking.dumpimg", "1", 1);
  }
  ~DumpSwitch() { unsetenv("vendor.zyObjectTracking.dumpimg"); }
  // Allocation points of one frame's dump: none, since the directory is missing here and the
  // dump finds that out before it allocates the RGB image and the BMP row.
  long FrameAllocations() const { return 0; }

 private:
  bool on_;
};

// Without ZY_FULL_SWEEP, the allocation points whose failure takes a path of its own: in
// creation the first few (handle, assignment object, body buffer, first trackers) and the
// last few (last tracker, runtime); in Start and Reset what comes before the first tracker,
// the first and last allocation of each of its four groups (each group fails its own way)
// and the first of the last tracker; every allocation of a frame.
bool Sampled(long ordinal, long stepAllocs, int step) {
  if (std::getenv("ZY_FULL_SWEEP") != nullptr) return true;
  switch (step) {
    case kCreate: return ordinal <= 6 || ordinal > stepAllocs - 4;
    case kStart:
    case kReset: {
      const long first = stepAllocs - 30 * 19;  // Reset's identity queue comes before the trackers
      const long t = ordinal - first;           // allocation within the first tracker, 1..19
      return t <= 1 || t == 4 || t == 5 || t == 7 || t == 8 || t == 14 || t == 15 || t == 19 ||
             ordinal == stepAllocs - 18;
    }
    default: return true;
  }
}

bool SameOutputs(const Outcome& a, const Outcome& b, int step) {
  return a.outNum[step] == b.outNum[step] &&
         std::memcmp(a.out[step], b.out[step], sizeof(BodyInfo) * MAX_INPLACE_NUM) == 0;
}

// The first handle of a process also creates the runtime session. Every allocation of that
// first creation fails in turn (each attempt is again the process's first to get that far):
// each gives 2 or 6 with its line, the session's "InitSession Failed", nothing leaks, and the
// creation after the last one works. It must be the first test of its process, as under
// ctest, which runs each test on its own.
TEST(FaultInjection, FirstCreateOfTheProcessFailsCleanlyAtEveryAllocation) {
  LogCapture log;
  bool sessionFailed = false;
  for (long k = 1;; ++k) {
    SCOPED_TRACE("allocation " + std::to_string(k));
    LogCapture::Clear();
    const long live = LiveHeapBlocks();
    AlgoHandle* h = nullptr;
    FailNthHeapAllocation(k);
    const int32_t rc = CreateKoTrackingAlgo(&h);
    const bool fired = !HeapFailurePending();
    FailNthHeapAllocation(0);
    if (rc == 0) {
      ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
      if (!fired) break;  // past the last allocation of a creation
      continue;           // a worker thread that could not start: fewer workers
    }
    EXPECT_TRUE(rc == 2 || rc == 6) << rc;
    EXPECT_EQ(h, nullptr);
    EXPECT_TRUE(log.Has("CreateKoTrackingAlgo algoHandle malloc error!") || log.Has("mHungarianAlgorithm fail!!!") ||
                log.Has("Create tracking inplace failed!") || log.Has("InitSession Failed"));
    sessionFailed = sessionFailed || log.Has("InitSession Failed");
    EXPECT_EQ(LiveHeapBlocks(), live) << "leaked";
  }
  EXPECT_TRUE(sessionFailed) << "the runtime session was created before this test";
}

// Runs the script without failures for reference (every step must succeed), then once per
// sampled allocation with that one failing (arm(k) arms the k-th allocation from now, arm(0)
// disarms); every run must recover exactly and leak nothing, and check(step, ordinal within
// the step, run, reference) judges the rest.
template <class Check>
void Sweep(long (*counter)(), void (*arm)(long), const char* what, Outcome& ref, Check check) {
  AlgoHandle* warm = nullptr;  // creates the runtime session, so every later run allocates alike
  ASSERT_EQ(CreateKoTrackingAlgo(&warm), 0);
  ASSERT_EQ(DestroyKoTrackingAlgo(&warm), 0);
  RunScript(counter, ref);
  for (int s = 0; s < kSteps; ++s) ASSERT_EQ(ref.rc[s], 0) << kStepNames[s];
  const long total = ref.allocsBefore[kSwept] - ref.allocsBefore[0];
  int injected = 0;
  for (long k = 1, step = 0; k <= total; ++k) {
    while (ref.allocsBefore[0] + k > ref.allocsBefore[step + 1]) ++step;
    const long ordinal = ref.allocsBefore[0] + k - ref.allocsBefore[step];
    if (!Sampled(ordinal, ref.allocsBefore[step + 1] - ref.allocsBefore[step], static_cast<int>(step))) continue;
    SCOPED_TRACE(std::string(kStepNames[step]) + ", allocation " + std::to_string(ordinal));
    const long live = LiveHeapBlocks();
    Outcome got;
    LogCapture::Clear();
    RunScript(counter, got, arm, k);
    arm(0);
    ++injected;
    EXPECT_EQ(got.rc[kRecoverReset], 0);
    for (int s : {kRecoverReinit, kRecoverTrack}) {
      EXPECT_EQ(got.rc[s], 0);
      EXPECT_TRUE(SameOutputs(got, ref, s)) << kStepNames[s];
    }
    EXPECT_EQ(got.rc[kDestroy], 0);
    check(static_cast<Step>(step), ordinal, got);
    EXPECT_EQ(LiveHeapBlocks(), live) << "leaked";
  }
  std::printf("[ faults   ] %d of %ld %s failed once each\n", injected, total, what);
}

// Each of the library's own allocation points fails once, with its defined result and line.
TEST(FaultInjection, EveryLibraryAllocationFailsCleanly) {
  DumpSwitch dump;
  LogCapture log;
  const auto arm = [](long k) { zy::FailNthAllocation(static_cast<int>(k)); };
  Outcome ref;
  Sweep(zy::AllocationCount, arm, "library allocation points", ref, [&](Step step, long ordinal, const Outcome& got) {
    switch (step) {
      case kCreate: {
        const char* line = ordinal == 1   ? "CreateKoTrackingAlgo algoHandle malloc error!"
                           : ordinal == 2 ? "mHungarianAlgorithm fail!!!"
                           : ordinal == 3 ? "CreateKoTrackingAlgo algoHandle lastFaceInfo malloc error!"
                                          : "Create tracking inplace failed!";
        EXPECT_EQ(got.rc[kCreate], ordinal <= 3 ? 2 : 6);
        EXPECT_TRUE(log.Has(line)) << line;
        EXPECT_EQ(got.rc[kStart], 1) << "no handle was handed out";
        break;
      }
      case kStart:
        EXPECT_EQ(got.rc[kStart], 0) << "Start ignores a tracker that got no buffers";
        EXPECT_EQ(got.rc[kReset], 0) << "and Reset gives them";
        break;
      case kReset:
        EXPECT_EQ(got.rc[kReset], -1);
        EXPECT_TRUE(log.Has("ZyTrackerAlgoReset fail"));
        EXPECT_TRUE(log.Has("the " + std::to_string((ordinal - 1) / 19) + " koTrackingInp ZyTrackerAlgoReset fail"));
        break;
      case kTrack:  // only the dump allocates: without it the frame gives the same boxes
        EXPECT_EQ(got.rc[step], 0);
        EXPECT_TRUE(SameOutputs(got, ref, step));
        break;
      default:
        // Re-initialisations: the assignment's eight arrays come first, then the tracker's
        // window and the dump; the frame is processed either way.
        EXPECT_EQ(got.rc[step], 0);
        if (step == kReinit2 && ordinal <= 8) {
          EXPECT_TRUE(log.Has(ordinal <= 2 ? "HungarianAlgorithm malloc error!" : "AssignmentOptimal malloc error!"));
          // Without an assignment the body is new: identity 2 from the queue, not its 1.
          EXPECT_EQ(got.out[kReinit2][0].bodyId, 2);
          EXPECT_EQ(ref.out[kReinit2][0].bodyId, 1);
        }
        break;
    }
  });
  EXPECT_EQ(ref.allocsBefore[kTrack + 1] - ref.allocsBefore[kTrack], dump.FrameAllocations())
      << "a tracking frame allocates only for the dump";
}

// Any operator new of the library or the standard library under it fails once: nothing may
// throw out of the interface, leak, or leave a handle that does not recover.
TEST(FaultInjection, EveryHeapAllocationFailsWithoutEscaping) {
  DumpSwitch dump;
  LogCapture log;
  Outcome ref;
  Sweep(HeapAllocations, FailNthHeapAllocation, "heap allocations", ref, [&](Step step, long ordinal, const Outcome& got) {
    // Creation fails with its codes (a worker thread that cannot start only means fewer
    // workers); a reset that cannot rebuild the identity queue or a tracker says so and
    // fails; Start and frames go on.
    const int32_t create = got.rc[kCreate];
    EXPECT_TRUE(create == 0 || create == 2 || create == 6) << create;
    if (step == kReset) {
      EXPECT_EQ(got.rc[kReset], -1);
      EXPECT_TRUE(log.Has(ordinal <= 2 ? "ResetKoTrackingAlgo freeBodyIds malloc error!" : "ZyTrackerAlgoReset fail"));
      return;
    }
    // Without a handle every later call is refused as for a null handle.
    for (int s = kStart; s < kSwept; ++s) {
      const int32_t expected = create == 0 ? 0 : (s == kReset ? -1 : 1);
      EXPECT_EQ(got.rc[s], expected) << kStepNames[s];
    }
  });
}

// The pipeline's dump goes to a directory that does not exist here, which the dump finds out
// before it allocates; with a directory it can write to, every allocation of the dump (the
// name, the RGB image, the row) fails once: nothing throws, nothing leaks, and the file is
// either written whole or not at all.
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
  EXPECT_GE(total, 2);  // the name and the row
  for (long k = 1; k <= total; ++k) {
    const long live = LiveHeapBlocks();
    FailNthHeapAllocation(k);
    int rc = 99;
    EXPECT_NO_THROW(rc = DumpTrackingResult(base, yuv.data(), 64, 48, 1, out, 1)) << k;
    FailNthHeapAllocation(0);
    EXPECT_TRUE(rc == 0 || rc == -1) << k;
    EXPECT_EQ(LiveHeapBlocks(), live) << k;
  }
  for (const auto& f : std::filesystem::directory_iterator(dir)) {
    EXPECT_EQ(f.file_size(), 54u + 64 * 48 * 3) << "a partly written file";
  }
  std::filesystem::remove_all(dir);
}

}  // namespace
