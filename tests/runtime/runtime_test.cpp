#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "runtime/body_tasks.h"
#include "runtime/qtx.h"

namespace {

// Starts the process-wide session with `threads` loop threads (workers + caller).
void StartSession(int threads) {
  auto& s = GetSession();
  ASSERT_TRUE(s);
  s->SetOptionB(threads);
  ASSERT_EQ(QTX::InitRuntime(s), 0);
}

// Runs a body task over 0..n with the given guider kind; returns per-index visit counts and
// the set of threads that ran bodies.
struct LoopResult {
  std::vector<int> visits;
  std::set<std::thread::id> threads;
  int calls = 0;
};
constexpr int kKeepKind = -100;
LoopResult RunLoop(int n, int kind, bool slowBodies = false) {
  auto& session = GetSession();
  if (kind != kKeepKind) session->GetGuider()->kind = kind;
  LoopResult r;
  r.visits.assign(static_cast<size_t>(n), 0);
  std::mutex m;
  std::atomic<int> calls{0};
  std::vector<std::atomic<int>> visits(r.visits.size() + 1);  // one past the range: never visited
  BodyUpdateTask task(session,
                      [&](QTX::Range<int> sub) {
                        calls.fetch_add(1);
                        QTX::ForEachIndex(sub, [&](int i) {
                          visits[static_cast<size_t>(i)].fetch_add(1);
                          if (slowBodies) std::this_thread::sleep_for(std::chrono::milliseconds(2));
                        });
                        std::lock_guard<std::mutex> lk(m);
                        r.threads.insert(std::this_thread::get_id());
                      },
                      QTX::MakeLoopRange(n), session->GetGuider());
  task.Do();
  EXPECT_EQ(task.GetTaskStatus(), QTX::kTaskFinished);
  for (size_t i = 0; i < r.visits.size(); ++i) r.visits[i] = visits[i].load();
  EXPECT_EQ(visits.back().load(), 0);
  r.calls = calls.load();
  return r;
}

// Every partitioner visits each index once and an empty range calls no body; the serial kind
// runs on the caller in one call, the pool's kinds (with slow bodies that give the worker time
// to wake) on more than one thread.
TEST(Runtime, EveryIndexOnceSerialOnTheCallerPoolOnWorkers) {
  StartSession(4);
  for (int kind : {0, 1, 2, 3, 7, -1}) {
    for (int n : {0, 1, 2, 30, 31}) {
      const LoopResult r = RunLoop(n, kind);
      EXPECT_EQ(r.visits, std::vector<int>(size_t(n), 1)) << "kind " << kind << " n " << n;
      EXPECT_TRUE(n > 0 || r.calls == 0) << "an empty range calls no body";
    }
  }
  QTX::UninitRuntime(GetSession());
  StartSession(2);
  ASSERT_GE(QTX::WorkerCount(GetSession()), 1) << "needs two hardware threads";
  const LoopResult serial = RunLoop(8, QTX::kSerial);
  EXPECT_EQ(serial.calls, 1);
  EXPECT_EQ(serial.threads, std::set<std::thread::id>{std::this_thread::get_id()});
  for (int kind : {QTX::kStatic, QTX::kDynamic, QTX::kHeuristic}) EXPECT_GE(RunLoop(30, kind, true).threads.size(), 2u) << kind;
  QTX::UninitRuntime(GetSession());
}

TEST(Runtime, ConcurrentLoopsFromTwoThreadsBothComplete) {
  StartSession(2);
  GetSession()->GetGuider()->kind = QTX::kDynamic;
  std::atomic<int> failures{0};
  auto driver = [&] {
    for (int k = 0; k < 200; ++k) {
      const LoopResult r = RunLoop(30, kKeepKind);
      failures += r.visits != std::vector<int>(30, 1);
    }
  };
  std::thread a(driver), b(driver);
  // Restart the pool under the running loops, as another handle's create and destroy would.
  for (int k = 0; k < 20; ++k) {
    QTX::UninitRuntime(GetSession());
    ASSERT_EQ(QTX::InitRuntime(GetSession()), 0);
  }
  a.join();
  b.join();
  EXPECT_EQ(failures.load(), 0);
  QTX::UninitRuntime(GetSession());
}

}  // namespace
