// Soak: a long randomised caller (scripts/soak.sh runs it for 100,000 frames, also under the
// sanitizers and valgrind; the suite runs a short one). Bodies appear, wander across and past
// the frame's edges and leave; the caller re-initialises at random intervals and whenever its
// body list changes, resets now and then, and every N frames destroys the handle and starts
// over with another frame geometry. Every tracking frame is checked: result and count, no
// heap allocation, boxes inside the frame, identities and classes carried over. Resident
// memory must not grow once warmed up (runs of 10,000 frames or more).
//
//   zy_soak [--frames N] [--seed S] [--recreate-every N]
#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "scene.h"
#include "support/counting_new.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // the sanitizers' own bookkeeping grows resident memory
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

long gFrame = 0;

void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "zy_soak: FAILED at frame %ld: %s\n", gFrame, what);
  std::exit(1);
}

long ResidentKb() {
  long pages = 0, resident = -1;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = -1;
    std::fclose(f);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
  long frames = 100000, recreateEvery = 5000;
  uint32_t seed = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string a = argv[i];
    const long v = std::atol(argv[i + 1]);
    if (a == "--frames") frames = v;
    if (a == "--seed") seed = static_cast<uint32_t>(v);
    if (a == "--recreate-every") recreateEvery = v;
  }
  __android_log_set_logger([](const __android_logger_data*, const char*) {});  // refusals log by design
  const long warmup = frames < 10000 ? -1 : std::min(frames / 10, 10000L);
  long warmKb = -1;
  SceneRng rng(seed);
  uint32_t nextSeed = 100;
  while (gFrame < frames) {
    const int width = rng.Uniform(120, 400) | rng.Uniform(0, 1), height = rng.Uniform(90, 300);
    SceneCaller c(width, height, width + rng.Uniform(0, 3) * 8, rng.Next());
    Check(c.Open() == 0, "create");
    for (long f = 0, pending = 0; f < recreateEvery && gFrame < frames; ++f, ++gFrame) {
      if (gFrame == warmup) warmKb = ResidentKb();
      bool changed = --pending <= 0;
      for (int i = c.BodyCount() - 1; i >= 0; --i) {
        const MovingBody& b = c.Body(i);
        if (b.x + b.w < 0 || b.y + b.h < 0 || b.x > static_cast<float>(width) || b.y > static_cast<float>(height) ||
            rng.Uniform(0, 600) == 0) {
          c.RemoveBody(i);
          changed = true;
        }
      }
      if (rng.Uniform(0, 10) == 0) {  // one body enters, or now and then a crowd, also across an edge
        for (int k = rng.Uniform(0, 40) == 0 ? rng.Uniform(4, 12) : 1; k > 0; --k) {
          const int w = rng.Uniform(16, width / 3), h = rng.Uniform(24, height / 2);
          const int x = rng.Uniform(-w / 2, width - w / 2), y = rng.Uniform(-h / 2, height - h / 2);
          c.AddBody({static_cast<float>(x), static_cast<float>(y), static_cast<float>(w), static_cast<float>(h),
                     static_cast<float>(rng.Uniform(-30, 30)) / 10, static_cast<float>(rng.Uniform(-20, 20)) / 10,
                     nextSeed++, rng.Uniform(1, 3)});
        }
        changed = true;
      }
      if (rng.Uniform(0, 999) == 0) {
        Check(ResetKoTrackingAlgo(c.handle) == 0, "reset");
        changed = true;
      }
      if (changed) {
        pending = rng.Uniform(5, 40);
        Check(c.Reinit() == 0 && c.out.bodyNum == c.BodyCount(), "re-initialisation");
        continue;
      }
      BodyInfo last[MAX_INPLACE_NUM];
      std::memcpy(last, c.outBodies, sizeof last);
      const long before = HeapAllocations();
      Check(c.Track() == 0 && c.out.bodyNum == c.BodyCount(), "tracking result");
      Check(HeapAllocations() == before, "a tracking frame allocated");
      Check(OutputInsideFrame(c), "a tracked box outside the frame");
      for (int i = 0; i < c.BodyCount(); ++i) {
        Check(c.outBodies[i].bodyId == last[i].bodyId && c.outBodies[i].classId == last[i].classId,
              "identity not carried over");
      }
    }
    Check(c.Destroy() == 0, "destroy");
  }
  const long grownKb = warmKb < 0 ? 0 : ResidentKb() - warmKb;
  std::printf("zy_soak: %ld frames, resident memory grew %ld kB after warm-up\n", frames, grownKb);
  Check(kSanitized || grownKb <= 512, "resident memory grew");
  return 0;
}
