// Handles driven from different threads at once: each gives exactly what it gives alone, and
// creating or destroying handles (which restarts or stops the process-wide runtime under the
// others) disturbs nothing. Run under the thread sanitizer as well.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "scene.h"

namespace {

struct SceneSetup {
  int width, height, stride;
  uint32_t background;
  std::vector<MovingBody> bodies;
};

SceneSetup SceneA() {
  return {320, 240, 320, 31, {{40, 60, 48, 96, 2.0f, 0.5f, 1, 1}, {220, 70, 44, 90, -2.0f, 0.3f, 2, 1},
                              {150, 20, 36, 72, 0.5f, 1.5f, 3, 2}, {100, 130, 50, 100, 1.0f, -0.5f, 4, 1}}};
}
SceneSetup SceneB() {
  return {256, 192, 272, 32, {{20, 30, 40, 80, 1.5f, 0.5f, 5, 3}, {180, 60, 30, 70, -1.0f, 0.8f, 6, 3},
                              {90, 100, 56, 80, 0.0f, -1.0f, 7, 4}}};
}

// Every output body of a run: a re-initialisation every 12 frames, tracking in between.
std::vector<BodyInfo> RunScene(const SceneSetup& setup, int frames) {
  SceneCaller c(setup.width, setup.height, setup.stride, setup.background);
  std::vector<BodyInfo> all;
  if (c.Open() != 0) return all;
  for (const MovingBody& b : setup.bodies) c.AddBody(b);
  for (int f = 0; f < frames; ++f) {
    const int32_t rc = f % 12 == 0 ? c.Reinit() : c.Track();
    if (rc != 0) return {};
    all.insert(all.end(), c.outBodies, c.outBodies + c.out.bodyNum);
  }
  return all;
}

bool Same(const std::vector<BodyInfo>& a, const std::vector<BodyInfo>& b) {
  return !a.empty() && a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(BodyInfo)) == 0;
}

// One thread tracks 20 frames while another keeps creating, using and destroying a second handle: every
// create reconfigures and restarts the shared runtime, every destroy stops it. Both handles
// run at once on their two threads, and each must give exactly what it gives alone.
TEST(Concurrency, DestroyingOneHandleWhileTheOtherTracksKeepsItWorking) {
  const std::vector<BodyInfo> aloneA = RunScene(SceneA(), 20);
  const std::vector<BodyInfo> aloneB = RunScene(SceneB(), 4);
  std::atomic<bool> done{false};
  std::vector<BodyInfo> a;
  std::thread ta([&] {
    a = RunScene(SceneA(), 20);
    done = true;
  });
  int cycles = 0, wrong = 0;
  while (!done || cycles < 3) {
    wrong += Same(RunScene(SceneB(), 4), aloneB) ? 0 : 1;
    ++cycles;
  }
  ta.join();
  EXPECT_TRUE(Same(a, aloneA));
  EXPECT_EQ(wrong, 0) << "of " << cycles << " short runs";
}

// Creates and destroys racing on the process-wide session from two threads.
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
  // The runtime still runs loops for a handle made afterwards.
  EXPECT_TRUE(Same(RunScene(SceneB(), 4), RunScene(SceneB(), 4)));
}

}  // namespace
