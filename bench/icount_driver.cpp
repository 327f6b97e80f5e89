// Fixed-input driver for instruction counts: a 1280 x 720 scene with 10 bodies, every tracker
// initialised on frame 0 and updated on frames 1..F (F = first argument, 20 by default), one
// body after another on this thread. With a second argument S the scene is 1920 x 1080 with 4
// square bodies of side S instead (the cost against the box size). Run it under callgrind with
// the collection limited to the update:
//   valgrind --tool=callgrind --toggle-collect='updateTracker*' zy_bench_icount 5
// and divide the collected count by the updates it prints. The frames are rendered before the
// first update, and nothing is printed between updates, so the count is exactly repeatable.
// A third argument R renders R frames (at least F + 1) whatever F is: two runs that differ only
// in F then differ only in their updates (scripts/arm64-icount.sh counts arm64 instructions
// that way, under qemu, which has no collection toggle).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "moving_scene.h"
#include "tracker/tracking_inp.h"

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::atoi(argv[1]) : 20;
  const float side = argc > 2 ? static_cast<float>(std::atof(argv[2])) : 0.f;
  zybench::SceneSpec shape;
  shape.width = side > 0 ? 1920 : 1280;
  shape.height = side > 0 ? 1080 : 720;
  shape.bodies = side > 0 ? 4 : 10;
  shape.seed = 7;
  const zybench::Scene scene = side > 0 ? zybench::Scene(shape, zybench::BodiesOfSide(4, side, 1920, 1080, 21))
                                        : zybench::Scene(shape);

  const int rendered = argc > 3 && std::atoi(argv[3]) > frames ? std::atoi(argv[3]) : frames + 1;
  std::vector<std::vector<uint8_t>> nv21(static_cast<size_t>(rendered));
  for (int t = 0; t < rendered; ++t) {
    nv21[static_cast<size_t>(t)].resize(scene.FrameBytes());
    scene.Render(t, nv21[static_cast<size_t>(t)].data());
  }

  std::vector<std::unique_ptr<TrackingInp>> trackers;
  for (int i = 0; i < shape.bodies; ++i) {
    trackers.push_back(std::make_unique<TrackingInp>(2.5f, true, true, true));
    if (createTracker(*trackers.back()) != 0) return 1;
  }
  const FrameView first{shape.height, shape.width, nv21[0].data(), 3, 0};
  for (int i = 0; i < shape.bodies; ++i) {
    const zybench::Box b = scene.BoxAt(i, 0);
    const zybench::Corners c = zybench::ToCorners(b);
    const float box[4] = {static_cast<float>(c.left), static_cast<float>(c.top),
                          static_cast<float>(c.right - c.left), static_cast<float>(c.bottom - c.top)};
    initTracker(*trackers[static_cast<size_t>(i)], box, first);
  }

  // The collected region: only updateTracker and what it calls.
  std::vector<float> results(static_cast<size_t>(frames) * shape.bodies * 4);
  long updates = 0;
  for (int t = 1; t <= frames; ++t) {
    const FrameView frame{shape.height, shape.width, nv21[static_cast<size_t>(t)].data(), 3, 0};
    for (int i = 0; i < shape.bodies; ++i) {
      updateTracker(*trackers[static_cast<size_t>(i)], frame,
                    &results[(static_cast<size_t>(t - 1) * shape.bodies + i) * 4]);
      ++updates;
    }
  }

  // A checksum of every box, so that builds can be compared for identical results.
  uint64_t sum = 1469598103934665603ull;
  for (float f : results) {
    uint32_t bits;
    static_assert(sizeof bits == sizeof f, "float is 32 bits");
    std::memcpy(&bits, &f, sizeof bits);
    sum = (sum ^ bits) * 1099511628211ull;
  }
  std::printf("updates: %ld\nbox checksum: %016llx\n", updates, static_cast<unsigned long long>(sum));
  for (auto& t : trackers) freeTracker(*t);
  return 0;
}
