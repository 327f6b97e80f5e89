// Allocation failures anywhere in a caller's life. A fixed script (create, start, frames,
// re-initialisations, reset, frames with the image dump switched on) runs once without
// failures for reference, then once per allocation with that allocation failing. Each failure
// must give its defined result and log line, leak nothing, and leave a handle that works
// again after a reset exactly as a fresh one does (or, when creation failed, a clean refusal
// after which a new handle works).
//
// Start and Reset make 19 allocations for each of 30 identical trackers, so the suite fails a
// sample that takes every distinct path (below); ZY_FULL_SWEEP=1 fails every allocation.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "api/algo_handle.h"
#include "common/zy_alloc.h"
#include "failing_new.h"
#include "scene.h"

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

// The caller's life; `counter` reads the allocation counter being swept. Nothing here
// allocates, so every allocation counted is the library's.
void RunScript(SceneCaller& c, long (*counter)(), Outcome& o) {
  std::memset(&o, 0, sizeof o);
  for (int s = 0; s < kSteps; ++s) {
    o.allocsBefore[s] = counter();
    int32_t& rc = o.rc[s];
    switch (s) {
      case kCreate: rc = CreateKoTrackingAlgo(&c.handle); break;
      case kStart: rc = StartKoTrackingAlgo(c.handle); break;
      case kReinit1:
      case kReinit2:
      case kReinit3: rc = c.Reinit(); break;
      case kReset: rc = ResetKoTrackingAlgo(c.handle); break;
      case kRecoverReset:
        // A handle that creation refused is replaced by a new one, which must work.
        if (c.handle == nullptr && (CreateKoTrackingAlgo(&c.handle) != 0 || StartKoTrackingAlgo(c.handle) != 0)) {
          rc = -100;
          break;
        }
        rc = ResetKoTrackingAlgo(c.handle);
        break;
      case kRecoverReinit: rc = c.Reinit(); break;
      case kDestroy: rc = DestroyKoTrackingAlgo(&c.handle); break;
      default: rc = c.Track(); break;
    }
    o.outNum[s] = c.out.bodyNum;
    std::memcpy(o.out[s], c.outBodies, sizeof c.outBodies);
  }
  o.allocsBefore[kSteps] = counter();
}

// The first handle of the process also creates the runtime session: one create and destroy
// before the reference run keeps the allocation numbers of every later run the same.
void WarmUp() {
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
}

// One body: the failure paths do not depend on the count, and the sweep runs the script once
// per failed allocation.
void AddBodies(SceneCaller& c) { c.AddBody({20, 20, 30, 60, 1.5f, 0.5f, 1, 1}); }

// The image dump adds allocations to every frame; it is switched on unless its directory
// exists here, where files would be written.
class DumpSwitch {
 public:
  DumpSwitch() : on_(access("/data/vendor/camera/img", F_OK) != 0) {
    if (on_) setenv("vendor.zyObjectTracking.dumpimg", "1", 1);
  }
  ~DumpSwitch() { unsetenv("vendor.zyObjectTracking.dumpimg"); }
  // Allocation points of one frame's dump: the RGB image and one BMP row.
  long FrameAllocations() const { return on_ ? 2 : 0; }

 private:
  bool on_;
};

// Without ZY_FULL_SWEEP, the allocation points whose failure takes a path of its own: in
// creation the first few (handle, assignment object, body buffer, first trackers) and the
// last few (last tracker, runtime); in Start and Reset what comes before the first tracker,
// the first and last allocation of each of its four groups (each group fails its own way)
// and the first of the last tracker; every allocation of a frame.
bool Sampled(long ordinal, long stepAllocs, Step step) {
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

int StepOf(const Outcome& ref, long k) {
  const long at = ref.allocsBefore[0] + k;  // the k-th allocation is number base + k
  for (int s = 0; s < kSteps; ++s) {
    if (at > ref.allocsBefore[s] && at <= ref.allocsBefore[s + 1]) return s;
  }
  return -1;
}

bool SameOutputs(const Outcome& a, const Outcome& b, int step) {
  return a.outNum[step] == b.outNum[step] &&
         std::memcmp(a.out[step], b.out[step], sizeof(BodyInfo) * MAX_INPLACE_NUM) == 0;
}

void ExpectRecovered(const Outcome& got, const Outcome& ref) {
  EXPECT_EQ(got.rc[kRecoverReset], 0);
  for (int s : {kRecoverReinit, kRecoverTrack}) {
    EXPECT_EQ(got.rc[s], 0);
    EXPECT_TRUE(SameOutputs(got, ref, s)) << kStepNames[s];
  }
  EXPECT_EQ(got.rc[kDestroy], 0);
}

// Log lines kept without allocating, for the sweep in which any allocation may fail.
class FixedLog {
 public:
  FixedLog() {
    Clear();
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(Keep);
  }
  ~FixedLog() { __android_log_set_logger(__android_log_stderr_logger); }
  static void Clear() {
    std::lock_guard<std::mutex> lk(mutex_);
    count_ = 0;
  }
  static bool Has(const char* text) {
    std::lock_guard<std::mutex> lk(mutex_);
    for (int i = 0; i < count_ && i < kLines; ++i) {
      if (std::strcmp(lines_[i], text) == 0) return true;
    }
    return false;
  }

 private:
  static constexpr int kLines = 64;
  static void Keep(const __android_logger_data* d, const char* msg) {
    if (d->priority < ANDROID_LOG_ERROR || msg == nullptr) return;
    std::lock_guard<std::mutex> lk(mutex_);
    if (count_ < kLines) std::snprintf(lines_[count_], sizeof lines_[0], "%s", msg);
    ++count_;
  }
  static std::mutex mutex_;
  static int count_;
  static char lines_[kLines][160];
};
std::mutex FixedLog::mutex_;
int FixedLog::count_ = 0;
char FixedLog::lines_[FixedLog::kLines][160];

// The first handle of a process also creates the runtime session. Every allocation of that
// first creation fails in turn (each attempt is again the process's first to get that far):
// each gives 2 or 6 with its line, the session's "InitSession Failed", nothing leaks, and the
// creation after the last one works. It must be the first test of its process, as under
// ctest, which runs each test on its own.
TEST(FaultInjection, FirstCreateOfTheProcessFailsCleanlyAtEveryAllocation) {
  FixedLog log;
  bool sessionFailed = false;
  long k = 1;
  for (;; ++k) {
    SCOPED_TRACE("allocation " + std::to_string(k));
    FixedLog::Clear();
    const long live = failing_new::Live();
    AlgoHandle* h = nullptr;
    failing_new::FailNth(k);
    const int32_t rc = CreateKoTrackingAlgo(&h);
    const bool fired = !failing_new::Pending();
    failing_new::FailNth(0);
    if (rc == 0) {
      ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
      if (!fired) break;  // past the last allocation of a creation
      continue;           // a worker thread that could not start: fewer workers
    }
    EXPECT_TRUE(rc == 2 || rc == 6) << rc;
    EXPECT_EQ(h, nullptr);
    EXPECT_TRUE(FixedLog::Has("CreateKoTrackingAlgo algoHandle malloc error!") ||
                FixedLog::Has("mHungarianAlgorithm fail!!!") || FixedLog::Has("Create tracking inplace failed!") ||
                FixedLog::Has("InitSession Failed"));
    sessionFailed = sessionFailed || FixedLog::Has("InitSession Failed");
    EXPECT_EQ(failing_new::Live(), live) << "leaked";
  }
  EXPECT_TRUE(sessionFailed) << "the runtime session was created before this test";
  std::printf("[ faults   ] %ld allocations of the first creation failed once each\n", k - 1);
}

// The script without failures; every step must succeed.
Outcome Reference(long (*counter)()) {
  WarmUp();
  Outcome ref;
  SceneCaller c(160, 120, 160, 9);
  AddBodies(c);
  RunScript(c, counter, ref);
  for (int s = 0; s < kSteps; ++s) EXPECT_EQ(ref.rc[s], 0) << kStepNames[s];
  return ref;
}

// Runs the script once per sampled allocation with that one failing (arm(k) arms the k-th
// allocation from now, arm(0) disarms); every run must recover exactly and leak nothing, and
// check(step, ordinal within the step, run, reference) judges the rest.
template <class Check>
void Sweep(const Outcome& ref, long (*counter)(), void (*arm)(long), const char* what, Check check) {
  const long total = ref.allocsBefore[kSwept] - ref.allocsBefore[0];
  int injected = 0;
  for (long k = 1; k <= total; ++k) {
    const int step = StepOf(ref, k);
    const long ordinal = ref.allocsBefore[0] + k - ref.allocsBefore[step];
    if (!Sampled(ordinal, ref.allocsBefore[step + 1] - ref.allocsBefore[step], static_cast<Step>(step))) continue;
    SCOPED_TRACE(std::string(kStepNames[step]) + ", allocation " + std::to_string(ordinal));
    const long live = failing_new::Live();
    Outcome got;
    {
      SceneCaller c(160, 120, 160, 9);
      AddBodies(c);
      FixedLog::Clear();
      arm(k);
      RunScript(c, counter, got);
      arm(0);
    }
    ++injected;
    ExpectRecovered(got, ref);
    check(static_cast<Step>(step), ordinal, got);
    EXPECT_EQ(failing_new::Live(), live) << "leaked";
  }
  std::printf("[ faults   ] %d of %ld %s failed once each\n", injected, total, what);
}

// Each of the library's own allocation points fails once, with its defined result and line.
TEST(FaultInjection, EveryLibraryAllocationFailsCleanly) {
  DumpSwitch dump;
  FixedLog log;
  const Outcome ref = Reference(zy::AllocationCount);
  ASSERT_EQ(ref.allocsBefore[kTrack + 1] - ref.allocsBefore[kTrack], dump.FrameAllocations())
      << "a tracking frame allocates only for the dump";
  const auto arm = [](long k) { zy::FailNthAllocation(static_cast<int>(k)); };
  Sweep(ref, zy::AllocationCount, arm, "library allocation points", [&](Step step, long ordinal, const Outcome& got) {
    switch (step) {
      case kCreate: {
        const char* line = ordinal == 1   ? "CreateKoTrackingAlgo algoHandle malloc error!"
                           : ordinal == 2 ? "mHungarianAlgorithm fail!!!"
                           : ordinal == 3 ? "CreateKoTrackingAlgo algoHandle lastFaceInfo malloc error!"
                                          : "Create tracking inplace failed!";
        EXPECT_EQ(got.rc[kCreate], ordinal <= 3 ? 2 : 6);
        EXPECT_TRUE(FixedLog::Has(line)) << line;
        EXPECT_EQ(got.rc[kStart], 1) << "no handle was handed out";
        break;
      }
      case kStart:
        EXPECT_EQ(got.rc[kStart], 0) << "Start ignores a tracker that got no buffers";
        EXPECT_EQ(got.rc[kReset], 0) << "and Reset gives them";
        break;
      case kReset:
        EXPECT_EQ(got.rc[kReset], -1);
        EXPECT_TRUE(FixedLog::Has("ZyTrackerAlgoReset fail"));
        EXPECT_TRUE(FixedLog::Has(("the " + std::to_string((ordinal - 1) / 19) + " koTrackingInp ZyTrackerAlgoReset fail").c_str()));
        break;
      case kReinit2:
        EXPECT_EQ(got.rc[step], 0);
        // The assignment's eight arrays come first, then the tracker's window and the dump.
        if (ordinal <= 8) {
          EXPECT_TRUE(FixedLog::Has(ordinal <= 2 ? "HungarianAlgorithm malloc error!" : "AssignmentOptimal malloc error!"));
          // Without an assignment the body is new: identity 2 from the queue, not its 1.
          EXPECT_EQ(got.out[kReinit2][0].bodyId, 2);
          EXPECT_EQ(ref.out[kReinit2][0].bodyId, 1);
        }
        break;
      default:
        // Re-initialisations (the cosine window's temporaries, the dump) and tracking frames
        // (the dump): the frame is processed and its result is that of a frame without the dump.
        EXPECT_EQ(got.rc[step], 0);
        if (step == kTrack) {
          EXPECT_TRUE(SameOutputs(got, ref, step));
        }
        break;
    }
  });
}

// Any operator new of the library or the standard library under it fails once: nothing may
// throw out of the interface, leak, or leave a handle that does not recover.
TEST(FaultInjection, EveryHeapAllocationFailsWithoutEscaping) {
  DumpSwitch dump;
  FixedLog log;
  const Outcome ref = Reference(failing_new::Count);
  Sweep(ref, failing_new::Count, failing_new::FailNth, "heap allocations", [&](Step step, long ordinal, const Outcome& got) {
    // Creation fails with its codes (a worker thread that cannot start only means fewer
    // workers); a reset that cannot rebuild the identity queue or a tracker says so and
    // fails; Start and frames go on.
    const int32_t create = got.rc[kCreate];
    EXPECT_TRUE(create == 0 || create == 2 || create == 6) << create;
    if (step == kReset) {
      EXPECT_EQ(got.rc[kReset], -1);
      EXPECT_TRUE(FixedLog::Has(ordinal <= 2 ? "ResetKoTrackingAlgo freeBodyIds malloc error!" : "ZyTrackerAlgoReset fail"));
      return;
    }
    // Without a handle every later call is refused as for a null handle.
    for (int s = kStart; s < kSwept; ++s) {
      const int32_t expected = create == 0 ? 0 : (s == kReset ? -1 : 1);
      EXPECT_EQ(got.rc[s], expected) << kStepNames[s];
    }
  });
}

}  // namespace
