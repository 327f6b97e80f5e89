// Soak: a long randomised caller. Bodies appear, wander across and past the frame's edges and
// leave; the caller re-initialises at random intervals and whenever its body list changes,
// resets now and then, and every few thousand frames destroys the handle and starts over with
// another frame geometry. Every frame is checked (results, boxes inside the frame, identities
// carried over); every tracking frame must make no heap allocation; resident memory must not
// grow once warmed up.
//
//   zy_soak [--frames N] [--seed S] [--rss-slack-kb K] [--report-every N] [--recreate-every N]
//           [--size WxH]      (one geometry for every handle instead of a random one each)
//
// Prints resident memory every N frames (default 10,000) and one summary line; exits non-zero
// on the first violation.
#include <android/log.h>

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
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif


// A field of /proc/self/status in kB: "VmRSS", resident memory now, or "VmHWM", the most it
// has been.
long StatusKb(const char* field) {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (f == nullptr) return -1;
  char line[256];
  long kb = -1;
  const size_t n = std::strlen(field);
  while (kb < 0 && std::fgets(line, sizeof line, f) != nullptr) {
    if (std::strncmp(line, field, n) == 0 && line[n] == ':') kb = std::atol(line + n + 1);
  }
  std::fclose(f);
  return kb;
}

struct Stats {
  long frames = 0, tracking = 0, reinits = 0, resets = 0, handles = 0, appeared = 0, left = 0;
  long bodyFrames = 0, refusedBoxes = 0, maxBodies = 0, trackingAllocations = 0;
};

[[noreturn]] void Fail(const Stats& s, const char* what) {
  std::fprintf(stderr, "zy_soak: FAILED at frame %ld: %s\n", s.frames, what);
  std::exit(1);
}

MovingBody NewBody(SceneRng& rng, int width, int height, uint32_t seed) {
  MovingBody b;
  b.w = static_cast<float>(rng.Uniform(16, width / 3));
  b.h = static_cast<float>(rng.Uniform(24, height / 2));
  // Enter anywhere, also across an edge.
  b.x = static_cast<float>(rng.Uniform(-static_cast<int>(b.w) / 2, width - static_cast<int>(b.w) / 2));
  b.y = static_cast<float>(rng.Uniform(-static_cast<int>(b.h) / 2, height - static_cast<int>(b.h) / 2));
  b.vx = static_cast<float>(rng.Uniform(-30, 30)) / 10.0f;
  b.vy = static_cast<float>(rng.Uniform(-20, 20)) / 10.0f;
  b.seed = seed;
  b.classId = rng.Uniform(1, 3);
  return b;
}

bool OffFrame(const MovingBody& b, int width, int height) {
  return b.x + b.w < 0 || b.y + b.h < 0 || b.x > static_cast<float>(width) || b.y > static_cast<float>(height);
}

}  // namespace

int main(int argc, char** argv) {
  long frames = 100000;
  uint32_t seed = 1;
  long slackKb = 512;
  long reportEvery = 10000;
  long recreateEvery = 5000;  // frames per handle before it is destroyed and rebuilt
  int fixedWidth = 0, fixedHeight = 0;  // 0: every handle gets a random geometry
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string a = argv[i];
    if (a == "--frames") frames = std::atol(argv[i + 1]);
    if (a == "--seed") seed = static_cast<uint32_t>(std::atol(argv[i + 1]));
    if (a == "--rss-slack-kb") slackKb = std::atol(argv[i + 1]);
    if (a == "--report-every") reportEvery = std::atol(argv[i + 1]);
    if (a == "--recreate-every") recreateEvery = std::atol(argv[i + 1]);
    if (a == "--size" && std::sscanf(argv[i + 1], "%dx%d", &fixedWidth, &fixedHeight) != 2) fixedWidth = 0;
  }
  const auto quiet = [](const __android_logger_data*, const char*) {};
  __android_log_set_logger(quiet);  // the refused boxes and lost targets log errors by design

  // Resident memory is measured from here on, once the allocator has seen a few handles of
  // different frame sizes come and go.
  // Runs shorter than 10,000 frames do not check it.
  const long warmupFrames = frames < 10000 ? -1 : (frames / 10 < 10000 ? frames / 10 : 10000);
  SceneRng rng(seed);
  Stats s;
  long rssWarm = -1;
  uint32_t nextSeed = 100;
  while (s.frames < frames) {
    // A handle's life: geometry of its own, odd sizes and strides included.
    int width = rng.Uniform(120, 400) | (rng.Uniform(0, 1));
    int height = rng.Uniform(90, 300);
    int stride = width + rng.Uniform(0, 3) * 8;
    if (fixedWidth >= 120 && fixedHeight >= 90) {
      width = stride = fixedWidth;
      height = fixedHeight;
    }
    SceneCaller c(width, height, stride, rng.Next());
    if (c.Open() != 0) Fail(s, "create");
    ++s.handles;
    int pendingReinit = 0;
    for (long f = 0; f < recreateEvery && s.frames < frames; ++f, ++s.frames) {
      if (reportEvery > 0 && s.frames > 0 && s.frames % reportEvery == 0) {
        std::printf("zy_soak: frame %ld, resident memory %ld kB\n", s.frames, StatusKb("VmRSS"));
        std::fflush(stdout);
      }
      // After the first report: its first printf maps the C library's formatting code.
      if (s.frames == warmupFrames) rssWarm = StatusKb("VmRSS");
      bool changed = false;
      // Bodies leave once off the frame, or at random; new ones appear.
      for (int i = c.BodyCount() - 1; i >= 0; --i) {
        if (OffFrame(c.Body(i), width, height) || rng.Uniform(0, 600) == 0) {
          c.RemoveBody(i);
          ++s.left;
          changed = true;
        }
      }
      if (c.BodyCount() < MAX_INPLACE_NUM && rng.Uniform(0, 10) == 0) {
        const int burst = rng.Uniform(0, 40) == 0 ? rng.Uniform(4, 12) : 1;
        for (int k = 0; k < burst && c.BodyCount() < MAX_INPLACE_NUM; ++k) {
          c.AddBody(NewBody(rng, width, height, nextSeed++));
          ++s.appeared;
        }
        changed = true;
      }
      if (rng.Uniform(0, 999) == 0) {
        if (ResetKoTrackingAlgo(c.handle) != 0) Fail(s, "reset");
        ++s.resets;
        changed = true;
      }
      if (--pendingReinit <= 0) changed = true;

      if (changed) {
        pendingReinit = rng.Uniform(5, 40);
        if (c.Reinit() != 0) Fail(s, "re-initialisation result");
        // Now and then one box is wider than the frame: refused, yet counted.
        if (c.BodyCount() > 0 && rng.Uniform(0, 50) == 0) {
          c.inBodies[0].roi.left = -10;
          c.inBodies[0].roi.right = width + 10;
          if (c.Process(true) != 0) Fail(s, "re-initialisation with a refused box");
          ++s.refusedBoxes;
        }
        if (c.out.bodyNum != c.BodyCount()) Fail(s, "re-initialisation count");
        ++s.reinits;
      } else {
        BodyInfo last[MAX_INPLACE_NUM];
        std::memcpy(last, c.outBodies, sizeof last);
        for (int i = 0; i < c.BodyCount(); ++i) {
          c.Body(i).x += c.Body(i).vx;
          c.Body(i).y += c.Body(i).vy;
        }
        c.Render();
        const long before = HeapAllocations();
        const int32_t rc = c.Process(false);
        s.trackingAllocations += HeapAllocations() - before;
        if (rc != 0) Fail(s, "tracking result");
        if (HeapAllocations() != before) Fail(s, "a tracking frame allocated");
        if (c.out.bodyNum != c.BodyCount()) Fail(s, "tracking count");
        if (!OutputInsideFrame(c)) Fail(s, "a tracked box outside the frame");
        for (int i = 0; i < c.BodyCount(); ++i) {
          if (c.outBodies[i].bodyId != last[i].bodyId || c.outBodies[i].classId != last[i].classId) {
            Fail(s, "identity not carried over");
          }
        }
        ++s.tracking;
      }
      s.bodyFrames += c.BodyCount();
      if (c.BodyCount() > s.maxBodies) s.maxBodies = c.BodyCount();
    }
    if (c.Destroy() != 0) Fail(s, "destroy");
  }
  const long rssEnd = StatusKb("VmRSS");
  std::printf(
      "zy_soak: frames %ld (tracking %ld, re-initialisations %ld, resets %ld, handles %ld), bodies appeared "
      "%ld left %ld, body-frames %ld, most bodies %ld, refused boxes %ld, allocations on tracking frames %ld, "
      "resident memory after warm-up %ld kB, at end %ld kB, peak %ld kB\n",
      s.frames, s.tracking, s.reinits, s.resets, s.handles, s.appeared, s.left, s.bodyFrames, s.maxBodies,
      s.refusedBoxes, s.trackingAllocations, rssWarm, rssEnd, StatusKb("VmHWM"));
  if (!kSanitized && rssWarm > 0 && rssEnd - rssWarm > slackKb) {
    std::fprintf(stderr, "zy_soak: FAILED: resident memory grew by %ld kB\n", rssEnd - rssWarm);
    return 1;
  }
  return 0;
}
