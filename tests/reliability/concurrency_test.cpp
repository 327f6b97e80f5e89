// Handles driven from different threads at once: each gives exactly what it gives alone, and
// creating or destroying handles (which restarts or stops the process-wide runtime under the
// others) disturbs nothing. The tsan preset runs these under the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "scene.h"

namespace {

// Every output body of a run: a re-initialisation every 12 frames, tracking in between. Scene
// B has fewer bodies, another size and padded rows.
std::vector<BodyInfo> RunScene(bool b, int frames) {
  SceneCaller c(b ? 256 : 320, b ? 192 : 240, b ? 272 : 320, b ? 32 : 31);
  if (c.Open() != 0) return {};
  if (b) {
    for (const MovingBody& m : {MovingBody{20, 30, 40, 80, 1.5f, 0.5f, 5, 3}, {180, 60, 30, 70, -1.0f, 0.8f, 6, 3},
                                {90, 100, 56, 80, 0.0f, -1.0f, 7, 4}})
      c.AddBody(m);
  } else {
    for (const MovingBody& m : {MovingBody{40, 60, 48, 96, 2.0f, 0.5f, 1, 1}, {220, 70, 44, 90, -2.0f, 0.3f, 2, 1},
                                {150, 20, 36, 72, 0.5f, 1.5f, 3, 2}, {100, 130, 50, 100, 1.0f, -0.5f, 4, 1}})
      c.AddBody(m);
  }
  std::vector<BodyInfo> all;
  for (int f = 0; f < frames; ++f) {
    if ((f % 12 == 0 ? c.Reinit() : c.Track()) != 0) return {};
    all.insert(all.end(), c.outBodies, c.outBodies + c.out.bodyNum);
  }
  return all;
}

bool Same(const std::vector<BodyInfo>& a, const std::vector<BodyInfo>& b) {
  return !a.empty() && a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(BodyInfo)) == 0;
}

// One thread tracks 20 frames while another keeps creating, using and destroying a second
// handle: every create reconfigures and restarts the shared runtime, every destroy stops it.
TEST(Concurrency, DestroyingOneHandleWhileTheOtherTracksKeepsItWorking) {
  const std::vector<BodyInfo> aloneA = RunScene(false, 20), aloneB = RunScene(true, 4);
  std::atomic<bool> done{false};
  std::vector<BodyInfo> a;
  std::thread ta([&] {
    a = RunScene(false, 20);
    done = true;
  });
  int cycles = 0, wrong = 0;
  for (; !done || cycles < 3; ++cycles) wrong += Same(RunScene(true, 4), aloneB) ? 0 : 1;
  ta.join();
  EXPECT_TRUE(Same(a, aloneA));
  EXPECT_EQ(wrong, 0) << "of " << cycles << " short runs";
}

// Creates and destroys racing on the process-wide session from two threads; the runtime
// still runs loops for a handle made afterwards.
TEST(Concurrency, CreateAndDestroyFromTwoThreadsAtOnce) {
  std::atomic<int> failures{0};
  auto churn = [&] {
    for (int k = 0; k < 60; ++k) {
      AlgoHandle* h = nullptr;
      failures += CreateKoTrackingAlgo(&h) != 0;
      failures += DestroyKoTrackingAlgo(&h) != 0;
    }
  };
  std::thread t1(churn), t2(churn);
  t1.join();
  t2.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_TRUE(Same(RunScene(true, 4), RunScene(true, 4)));
}

}  // namespace
