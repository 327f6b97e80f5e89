// This library against the trackers users pick today, on the same frames and boxes in one run:
// OpenCV's TrackerKCF, TrackerCSRT and legacy TrackerMOSSE, and dlib's correlation_tracker
// (when built with dlib). Every peer runs one tracker per body on one thread, on the frames
// converted to BGR (the conversion is not timed); this library runs through its C interface on
// the NV21 frames with its parallel loop limited to the calling thread.
//
// Printed: per-body update time (median, p90; thread CPU time, and wall time), per-frame time, accuracy against the scene's
// true boxes (success AUC over IoU thresholds 0..1, precision at 20 px), the ratios, the cost
// against the box size, whole 1080p frames on one and two threads, the resident memory of a
// started handle and the heap allocations of tracking frames.
#include <android/log.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <opencv2/tracking.hpp>
#include <opencv2/tracking/tracking_legacy.hpp>
#if ZY_BENCH_HAVE_DLIB
#include <dlib/image_processing.h>
#include <dlib/opencv.h>
#endif

#include "frame_driver.h"
#include "runtime/qtx.h"
#include "moving_scene.h"

// Heap allocations of the whole process, the library's included (tests/support/counting_new.cpp).
long HeapAllocations();

namespace {

using zybench::Box;
using zybench::FrameDriver;
using zybench::Scene;
using zybench::SceneSpec;
using Clock = std::chrono::steady_clock;

double Micros(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::micro>(b - a).count();
}

// CPU time of the calling thread in microseconds. Every tracker here runs on the calling thread
// alone, so this is its work, without the time other processes of a shared machine take.
double ThreadCpuMicros() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) * 1e-3;
}

// Wall and thread CPU time of one measured stretch.
struct Stopwatch {
  Clock::time_point wall = Clock::now();
  double cpu = ThreadCpuMicros();
  double WallUs() const { return Micros(wall, Clock::now()); }
  double CpuUs() const { return ThreadCpuMicros() - cpu; }
};

double Percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  const size_t k = static_cast<size_t>(std::lround(p * static_cast<double>(v.size() - 1)));
  return v[std::min(k, v.size() - 1)];
}

// Threads of the library's parallel loop (the caller included).
void SetLoopThreads(int threads) {
  auto& session = GetSession();
  if (!session) return;
  session->SetOptionB(threads);
  QTX::InitRuntime(session);
}

long ResidentKiB() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (f == nullptr) return -1;
  char line[256];
  long kib = -1;
  while (std::fgets(line, sizeof line, f) != nullptr) {
    if (std::strncmp(line, "VmRSS:", 6) == 0) kib = std::atol(line + 6);
  }
  std::fclose(f);
  return kib;
}

// What one tracker (or this library) did on one scene.
struct Result {
  std::string name;
  std::vector<double> perBodyUs;      // thread CPU time, one per body and tracking frame
  std::vector<double> perBodyWallUs;  // wall time, the same
  std::vector<double> frameMs;        // wall time of all bodies of one tracking frame
  std::vector<float> iou, dist;   // one per body and tracking frame
  bool ran = false;
};

double SuccessAuc(const std::vector<float>& iou) {
  if (iou.empty()) return 0;
  double sum = 0;
  int steps = 0;
  for (int k = 0; k <= 20; ++k, ++steps) {
    const float th = 0.05f * static_cast<float>(k);
    size_t ok = 0;
    for (float v : iou) ok += v > th;
    sum += static_cast<double>(ok) / static_cast<double>(iou.size());
  }
  return sum / steps;
}

double PrecisionAt(const std::vector<float>& dist, float px) {
  if (dist.empty()) return 0;
  size_t ok = 0;
  for (float d : dist) ok += d <= px;
  return static_cast<double>(ok) / static_cast<double>(dist.size());
}

// NV21 frames of a scene and their BGR conversions, rendered once.
struct Frames {
  std::vector<cv::Mat> bgr;
  explicit Frames(const FrameDriver& d, const Scene& s) {
    for (int t = 0; t < d.frames(); ++t) {
      const cv::Mat nv21(s.height() * 3 / 2, s.width(), CV_8UC1, const_cast<uint8_t*>(d.Frame(t)));
      cv::Mat out;
      cv::cvtColor(nv21, out, cv::COLOR_YUV2BGR_NV21);
      bgr.push_back(out);
    }
  }
};

Result RunOurs(FrameDriver& driver, const Scene& scene) {
  Result r;
  r.name = "this library";
  const int n = static_cast<int>(scene.bodies().size());
  driver.Reinit();
  for (int t = 1; t < driver.frames(); ++t) {
    const Stopwatch watch;
    driver.Track(t);
    const double us = watch.WallUs(), cpu = watch.CpuUs();
    r.frameMs.push_back(us / 1000.0);
    for (int i = 0; i < n; ++i) {
      r.perBodyUs.push_back(cpu / n);
      r.perBodyWallUs.push_back(us / n);
      const Box truth = scene.BoxAt(i, t);
      const Box got = driver.Output(i);
      r.iou.push_back(zybench::Iou(truth, got));
      r.dist.push_back(zybench::CentreDistance(truth, got));
    }
  }
  r.ran = true;
  return r;
}

// One peer tracker per body: init(frame, box) and update(frame) -> box.
struct PeerTracker {
  virtual ~PeerTracker() = default;
  virtual void Init(const cv::Mat& frame, const Box& box) = 0;
  virtual Box Update(const cv::Mat& frame) = 0;
};

template <class Make>
struct OpenCvTracker : PeerTracker {
  cv::Ptr<cv::Tracker> t;
  cv::Rect box;
  explicit OpenCvTracker(Make make) : t(make()) {}
  void Init(const cv::Mat& frame, const Box& b) override {
    box = cv::Rect(static_cast<int>(std::lround(b.x)), static_cast<int>(std::lround(b.y)),
                   static_cast<int>(std::lround(b.w)), static_cast<int>(std::lround(b.h)));
    t->init(frame, box);
  }
  Box Update(const cv::Mat& frame) override {
    cv::Rect r;
    if (t->update(frame, r)) box = r;  // a lost target keeps its last box
    return Box{static_cast<float>(box.x), static_cast<float>(box.y), static_cast<float>(box.width),
               static_cast<float>(box.height)};
  }
};

struct MosseTracker : PeerTracker {
  cv::Ptr<cv::legacy::TrackerMOSSE> t = cv::legacy::TrackerMOSSE::create();
  cv::Rect2d box;
  void Init(const cv::Mat& frame, const Box& b) override {
    box = cv::Rect2d(b.x, b.y, b.w, b.h);
    t->init(frame, box);
  }
  Box Update(const cv::Mat& frame) override {
    cv::Rect2d r;
    if (t->update(frame, r)) box = r;
    return Box{static_cast<float>(box.x), static_cast<float>(box.y), static_cast<float>(box.width),
               static_cast<float>(box.height)};
  }
};

#if ZY_BENCH_HAVE_DLIB
struct DlibTracker : PeerTracker {
  dlib::correlation_tracker t;
  void Init(const cv::Mat& frame, const Box& b) override {
    const dlib::cv_image<dlib::bgr_pixel> img(frame);
    t.start_track(img, dlib::drectangle(b.x, b.y, b.x + b.w - 1, b.y + b.h - 1));
  }
  Box Update(const cv::Mat& frame) override {
    const dlib::cv_image<dlib::bgr_pixel> img(frame);
    t.update(img);
    const dlib::drectangle r = t.get_position();
    return Box{static_cast<float>(r.left()), static_cast<float>(r.top()), static_cast<float>(r.width()),
               static_cast<float>(r.height())};
  }
};
#endif

struct Peer {
  std::string name;
  std::function<std::unique_ptr<PeerTracker>()> make;
};

std::vector<Peer> Peers(bool withCsrt) {
  std::vector<Peer> peers;
  peers.push_back({"OpenCV KCF", [] {
                     auto make = [] { return cv::Ptr<cv::Tracker>(cv::TrackerKCF::create()); };
                     return std::unique_ptr<PeerTracker>(new OpenCvTracker<decltype(make)>(make));
                   }});
  if (withCsrt) {
    peers.push_back({"OpenCV CSRT", [] {
                       auto make = [] { return cv::Ptr<cv::Tracker>(cv::TrackerCSRT::create()); };
                       return std::unique_ptr<PeerTracker>(new OpenCvTracker<decltype(make)>(make));
                     }});
  }
  peers.push_back({"OpenCV MOSSE (legacy)", [] { return std::unique_ptr<PeerTracker>(new MosseTracker()); }});
#if ZY_BENCH_HAVE_DLIB
  peers.push_back({"dlib correlation", [] { return std::unique_ptr<PeerTracker>(new DlibTracker()); }});
#endif
  return peers;
}

Result RunPeer(const Peer& peer, const Frames& frames, const Scene& scene, int count) {
  Result r;
  r.name = peer.name;
  const int n = static_cast<int>(scene.bodies().size());
  std::vector<std::unique_ptr<PeerTracker>> trackers;
  for (int i = 0; i < n; ++i) {
    trackers.push_back(peer.make());
    trackers.back()->Init(frames.bgr[0], scene.BoxAt(i, 0));
  }
  for (int t = 1; t < count; ++t) {
    double frameUs = 0;
    for (int i = 0; i < n; ++i) {
      const Stopwatch watch;
      const Box got = trackers[static_cast<size_t>(i)]->Update(frames.bgr[static_cast<size_t>(t)]);
      const double us = watch.WallUs(), cpu = watch.CpuUs();
      frameUs += us;
      r.perBodyUs.push_back(cpu);
      r.perBodyWallUs.push_back(us);
      const Box truth = scene.BoxAt(i, t);
      r.iou.push_back(zybench::Iou(truth, got));
      r.dist.push_back(zybench::CentreDistance(truth, got));
    }
    r.frameMs.push_back(frameUs / 1000.0);
  }
  r.ran = true;
  return r;
}

void PrintTable(const char* title, const std::vector<Result>& results) {
  std::printf("\n### %s\n\n", title);
  std::printf("| tracker | per-body CPU median (us) | per-body CPU p90 (us) | per-body wall median (us) | frame wall median (ms) | success AUC | precision @20px | peer / ours (CPU median) |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|\n");
  const double ours = Percentile(results[0].perBodyUs, 0.5);
  for (const Result& r : results) {
    if (!r.ran) continue;
    const double med = Percentile(r.perBodyUs, 0.5);
    std::printf("| %s | %.1f | %.1f | %.1f | %.2f | %.3f | %.3f | %.2f |\n", r.name.c_str(), med,
                Percentile(r.perBodyUs, 0.9), Percentile(r.perBodyWallUs, 0.5), Percentile(r.frameMs, 0.5),
                SuccessAuc(r.iou), PrecisionAt(r.dist, 20.0f), med / ours);
  }
  std::fflush(stdout);
}

struct SceneCase {
  const char* name;
  int width, height, bodies, frames;
  int peerFrames;  // frames the slow peers run (CSRT is about 20 ms a body)
};

void CompareOnScenes(const zybench::Photo& photo, bool quick) {
  const SceneCase cases[] = {
      {"720p, 4 bodies", 1280, 720, 4, quick ? 20 : 60, quick ? 20 : 60},
      {"720p, 30 bodies", 1280, 720, 30, quick ? 10 : 30, quick ? 10 : 20},
      {"1080p, 10 bodies", 1920, 1080, 10, quick ? 10 : 30, quick ? 10 : 20},
      {"1080p, 30 bodies", 1920, 1080, 30, quick ? 10 : 30, quick ? 10 : 20},
  };
  for (const SceneCase& c : cases) {
    SceneSpec shape;
    shape.width = c.width;
    shape.height = c.height;
    shape.bodies = c.bodies;
    shape.minSide = static_cast<float>(c.height) / 18.0f;
    shape.maxSide = static_cast<float>(c.height) / 6.0f;
    shape.maxSpeed = 4;
    shape.seed = static_cast<uint32_t>(c.width + c.bodies);
    const Scene scene(shape, photo);
    FrameDriver driver(scene, c.frames);
    const Frames frames(driver, scene);
    SetLoopThreads(1);
    std::vector<Result> results;
    results.push_back(RunOurs(driver, scene));
    for (const Peer& p : Peers(true)) {
      const int count = p.name == "OpenCV CSRT" ? c.peerFrames : c.frames;
      results.push_back(RunPeer(p, frames, scene, count));
    }
    char title[160];
    std::snprintf(title, sizeof title, "%s, %dx%d, %d tracking frames (CSRT %d)", c.name, c.width, c.height,
                  c.frames - 1, c.peerFrames - 1);
    PrintTable(title, results);
  }
}

// Per-body cost against the box side: 4 square bodies on a 1080p frame.
void SweepBoxSides(const zybench::Photo& photo, bool quick) {
  std::printf("\n### Per-body update against the box side (1080p, 4 bodies, median thread CPU us)\n\n");
  std::vector<Peer> peers = Peers(false);
  std::printf("| box side (px) | this library |");
  for (const Peer& p : peers) std::printf(" %s |", p.name.c_str());
  std::printf("\n|---:|---:|");
  for (size_t k = 0; k < peers.size(); ++k) std::printf("---:|");
  std::printf("\n");
  const int frames = quick ? 6 : 12;
  for (const float side : {20.f, 50.f, 100.f, 200.f, 500.f, 1000.f}) {
    // KCF takes most of a second per large box: fewer frames for the peers there.
    const int peerFrames = side >= 500 ? std::min(frames, 5) : frames;
    SceneSpec shape;
    shape.width = 1920;
    shape.height = 1080;
    const Scene scene(shape, zybench::BodiesOfSide(4, side, 1920, 1080, 21), photo);
    FrameDriver driver(scene, frames);
    const Frames bgr(driver, scene);
    SetLoopThreads(1);
    std::printf("| %.0f | %.1f |", side, Percentile(RunOurs(driver, scene).perBodyUs, 0.5));
    for (const Peer& p : peers) std::printf(" %.1f |", Percentile(RunPeer(p, bgr, scene, peerFrames).perBodyUs, 0.5));
    std::printf("\n");
    std::fflush(stdout);
  }
}

// Arithmetic that keeps one core busy for a while.
void Spin(long n) {
  volatile double sink = 0;
  double s = 0;
  for (long i = 0; i < n; ++i) s += static_cast<double>(i) * 1e-9;
  sink = s;
  (void)sink;
}

// A 1080p frame with 30 bodies on one thread and on two, sequences alternating between the two
// settings so that both see the same machine load.
void FrameThreads(const zybench::Photo& photo, bool quick) {
  SceneSpec shape;
  shape.width = 1920;
  shape.height = 1080;
  shape.bodies = 30;
  shape.minSide = 60;
  shape.maxSide = 180;
  shape.seed = 99;
  const Scene scene(shape, photo);
  const int frames = quick ? 10 : 30;
  FrameDriver one(scene, frames);
  FrameDriver two(scene, frames);
  std::vector<double> ms[2];
  const int rounds = quick ? 2 : 4;
  // Changing the thread count restarts the pool, so the settings alternate per sequence, not
  // per frame: the first tracking frame after a change (a new worker's first wake-up) is run
  // untimed, as a camera service would have its pool running long before.
  for (int round = 0; round < rounds; ++round) {
    for (int k = 0; k < 2; ++k) {
      SetLoopThreads(k + 1);
      FrameDriver& d = k == 0 ? one : two;
      d.Reinit();
      d.Track(1);
      for (int t = 2; t < frames; ++t) {
        const auto a = Clock::now();
        d.Track(t);
        ms[k].push_back(Micros(a, Clock::now()) / 1000.0);
      }
    }
  }
  // What the machine gives two threads at this moment: the same arithmetic on one thread and
  // split over two, alternating like the frames.
  std::vector<double> spin[2];
  for (int round = 0; round < 20; ++round) {
    for (int k = 0; k < 2; ++k) {
      const auto a = Clock::now();
      if (k == 0) {
        Spin(20000000);
      } else {
        std::thread helper(Spin, 10000000);
        Spin(10000000);
        helper.join();
      }
      spin[k].push_back(Micros(a, Clock::now()) / 1000.0);
    }
  }
  const double m1 = Percentile(ms[0], 0.5), m2 = Percentile(ms[1], 0.5);
  std::printf("\n### 1080p tracking frame, 30 bodies (%zu frames each)\n\n", ms[0].size());
  std::printf("| loop threads | median (ms) | p90 (ms) |\n|---:|---:|---:|\n");
  std::printf("| 1 | %.2f | %.2f |\n| 2 | %.2f | %.2f |\n", m1, Percentile(ms[0], 0.9), m2, Percentile(ms[1], 0.9));
  std::printf("\nspeed-up of two threads over one: %.2fx\n", m1 / m2);
  std::printf("speed-up of a plain arithmetic loop split over two threads, same moment: %.2fx\n",
              Percentile(spin[0], 0.5) / Percentile(spin[1], 0.5));
  std::fflush(stdout);
}

// Real footage without ground truth: time only. The boxes are people and objects picked by
// hand on the first frame of OpenCV's sample video vtest.avi (768 x 576, 10 frames/s).
struct Footage {
  std::vector<cv::Mat> bgr;
  std::vector<std::vector<uint8_t>> nv21;
};

bool LoadFootage(const std::string& path, int count, Footage* f) {
  cv::VideoCapture cap(path);
  cv::Mat frame;
  while (static_cast<int>(f->bgr.size()) < count && cap.read(frame)) {
    if (frame.cols % 2 != 0 || frame.rows % 2 != 0) return false;
    f->bgr.push_back(frame.clone());
    // BGR -> I420 -> NV21: the luma plane, then the V, U pairs.
    cv::Mat i420;
    cv::cvtColor(frame, i420, cv::COLOR_BGR2YUV_I420);
    const size_t ySize = static_cast<size_t>(frame.cols) * frame.rows;
    const size_t cSize = ySize / 4;
    std::vector<uint8_t> out(ySize * 3 / 2);
    std::memcpy(out.data(), i420.data, ySize);
    const uint8_t* u = i420.data + ySize;
    const uint8_t* v = u + cSize;
    for (size_t k = 0; k < cSize; ++k) {
      out[ySize + 2 * k] = v[k];
      out[ySize + 2 * k + 1] = u[k];
    }
    f->nv21.push_back(std::move(out));
  }
  return !f->bgr.empty();
}

void CompareOnFootage(const std::string& path, bool quick) {
  const std::vector<Box> boxes = {
      {253, 220, 30, 88},   // man on the grass, left
      {500, 157, 30, 76},   // man on the road, centre
      {640, 240, 45, 82},   // woman on the road, right
      {652, 44, 72, 56},    // parked van
      {458, 338, 68, 144},  // tripod
  };
  Footage f;
  if (!LoadFootage(path, quick ? 30 : 100, &f)) {
    std::printf("\n### Footage\n\n%s not readable: skipped\n", path.c_str());
    return;
  }
  const int W = f.bgr[0].cols, H = f.bgr[0].rows, n = static_cast<int>(boxes.size());
  std::vector<Result> results;
  {
    Result r;
    r.name = "this library";
    AlgoHandle* handle = nullptr;
    if (CreateKoTrackingAlgo(&handle) == 0 && StartKoTrackingAlgo(handle) == 0) {
      SetLoopThreads(1);
      std::vector<BodyInfo> in(static_cast<size_t>(n));
      BodyInfo out[MAX_INPLACE_NUM];
      for (int i = 0; i < n; ++i) {
        const zybench::Corners c = zybench::ToCorners(boxes[static_cast<size_t>(i)]);
        in[static_cast<size_t>(i)] = BodyInfo{1, 0, BodyRoi{c.left, c.top, c.right, c.bottom}, 0};
      }
      for (size_t t = 0; t < f.nv21.size(); ++t) {
        ParamIn pin;
        ParamOut pout;
        std::memset(&pin, 0, sizeof pin);
        std::memset(&pout, 0, sizeof pout);
        pin.width = W;
        pin.height = H;
        pin.stride = W;
        pin.image = f.nv21[t].data();
        pin.bodies = in.data();
        pin.bodyNum = n;
        pin.isFirstFrame = t == 0 ? 1 : 0;
        pout.bodies = out;
        const Stopwatch watch;
        ProcessKoTrackingAlgo(handle, &pin, &pout);
        const double us = watch.WallUs(), cpu = watch.CpuUs();
        if (t == 0) continue;
        r.frameMs.push_back(us / 1000.0);
        for (int i = 0; i < n; ++i) {
          r.perBodyUs.push_back(cpu / n);
          r.perBodyWallUs.push_back(us / n);
        }
      }
      r.ran = true;
    }
    if (handle != nullptr) DestroyKoTrackingAlgo(&handle);
    results.push_back(r);
  }
  for (const Peer& p : Peers(true)) {
    Result r;
    r.name = p.name;
    std::vector<std::unique_ptr<PeerTracker>> trackers;
    for (int i = 0; i < n; ++i) {
      trackers.push_back(p.make());
      trackers.back()->Init(f.bgr[0], boxes[static_cast<size_t>(i)]);
    }
    for (size_t t = 1; t < f.bgr.size(); ++t) {
      double frameUs = 0;
      for (auto& tr : trackers) {
        const Stopwatch watch;
        tr->Update(f.bgr[t]);
        const double us = watch.WallUs(), cpu = watch.CpuUs();
        frameUs += us;
        r.perBodyUs.push_back(cpu);
        r.perBodyWallUs.push_back(us);
      }
      r.frameMs.push_back(frameUs / 1000.0);
    }
    r.ran = true;
    results.push_back(r);
  }
  std::printf("\n### Footage: %s, %dx%d, %d bodies picked by hand on frame 0, %zu tracking frames (time only)\n\n",
              path.c_str(), W, H, n, f.bgr.size() - 1);
  std::printf("| tracker | per-body CPU median (us) | per-body CPU p90 (us) | per-body wall median (us) | frame wall median (ms) | peer / ours (CPU median) |\n");
  std::printf("|---|---:|---:|---:|---:|---:|\n");
  const double ours = Percentile(results[0].perBodyUs, 0.5);
  for (const Result& r : results) {
    if (!r.ran) continue;
    const double med = Percentile(r.perBodyUs, 0.5);
    std::printf("| %s | %.1f | %.1f | %.1f | %.2f | %.2f |\n", r.name.c_str(), med, Percentile(r.perBodyUs, 0.9),
                Percentile(r.perBodyWallUs, 0.5), Percentile(r.frameMs, 0.5), med / ours);
  }
  std::fflush(stdout);
}

// Resident memory of a started handle, and heap allocations during tracking frames.
void MemoryAndAllocations(const zybench::Photo& photo) {
  SceneSpec shape;
  shape.width = 1920;
  shape.height = 1080;
  shape.bodies = 30;
  shape.seed = 5;
  const Scene scene(shape, photo);
  const long base = ResidentKiB();
  FrameDriver driver(scene, 12);
  driver.Reinit();
  const long afterInit = ResidentKiB();
  long allocations = 0;
  for (int t = 1; t < driver.frames(); ++t) {
    const long before = HeapAllocations();
    driver.Track(t);
    allocations += HeapAllocations() - before;
  }
  const long afterTrack = ResidentKiB();
  // The driver's frames are rendered before the handle is created; what the handle adds is
  // read against the resident size with the frames in place.
  const long frameKiB = static_cast<long>(scene.FrameBytes() * 12 / 1024);
  std::printf("\n### Memory and allocations (1080p, 30 bodies)\n\n");
  std::printf("- resident growth from process start to a started handle with 30 initialised trackers, "
              "less the %ld KiB of rendered frames: %ld KiB\n",
              frameKiB, afterInit - base - frameKiB);
  std::printf("- resident growth over %d tracking frames: %ld KiB\n", driver.frames() - 1, afterTrack - afterInit);
  std::printf("- heap allocations during %d tracking frames: %ld\n", driver.frames() - 1, allocations);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // the library's lines would mix in
  bool quick = false;
  std::string photoPath = "/usr/share/doc/opencv-doc/examples/data/building.jpg";
  std::string videoPath = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";
  std::vector<std::string> sections;
  for (int k = 1; k < argc; ++k) {
    const std::string a = argv[k];
    if (a == "--quick") {
      quick = true;
    } else if (a.rfind("--photo=", 0) == 0) {
      photoPath = a.substr(8);
    } else if (a.rfind("--video=", 0) == 0) {
      videoPath = a.substr(8);
    } else {
      sections.push_back(a);  // memory, scenes, sweep, footage, threads
    }
  }
  auto want = [&](const char* s) {
    return sections.empty() || std::find(sections.begin(), sections.end(), s) != sections.end();
  };
  cv::setNumThreads(1);  // one thread for every peer
  const cv::Mat photo = cv::imread(photoPath, cv::IMREAD_COLOR);
  zybench::Photo bg;
  if (!photo.empty() && photo.isContinuous()) {
    bg = zybench::Photo{photo.data, photo.cols, photo.rows};
    std::printf("background photo: %s (%dx%d)\n", photoPath.c_str(), photo.cols, photo.rows);
  } else {
    std::printf("background photo %s not readable: procedural background\n", photoPath.c_str());
  }
  // The library's handle (below, in each driver) starts the shared runtime.
  if (want("memory")) MemoryAndAllocations(bg);
  if (want("scenes")) CompareOnScenes(bg, quick);
  if (want("sweep")) SweepBoxSides(bg, quick);
  if (want("footage")) CompareOnFootage(videoPath, quick);
  if (want("threads")) FrameThreads(bg, quick);
  return 0;
}
