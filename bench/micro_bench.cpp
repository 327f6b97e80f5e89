// Micro-benchmarks of the tracker's stages and of whole frames, each fast path beside its plain
// scalar reference where both exist. Figures are for comparison within one run only.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "fft/fft2d.h"
#include "fft/fft2d_internal.h"
#include "features/hog_features.h"
#include "features/hog_rows.h"
#include "features/yuv_rows.h"
#include "frame_driver.h"
#include "runtime/qtx.h"
#include "moving_scene.h"
#include "tracker/tracker_ops.h"
#include "tracker/tracking_inp.h"

namespace {

using zybench::Box;
using zybench::FrameDriver;
using zybench::Scene;
using zybench::SceneSpec;

// Threads a frame's parallel loop may use: the caller plus workers (1 = the caller alone).
void SetLoopThreads(int threads) {
  auto& session = GetSession();
  if (!session) return;
  session->SetOptionB(threads);
  QTX::InitRuntime(session);
}

const Scene& Scene1080() {
  static const Scene scene([] {
    SceneSpec s;
    s.width = 1920;
    s.height = 1080;
    s.bodies = 30;
    s.minSide = 40;
    s.maxSide = 160;
    s.seed = 3;
    return s;
  }());
  return scene;
}

const std::vector<uint8_t>& Frame1080() {
  static const std::vector<uint8_t> frame = [] {
    std::vector<uint8_t> f(Scene1080().FrameBytes());
    Scene1080().Render(0, f.data());
    return f;
  }();
  return frame;
}

KernelChoice Choice(const benchmark::State& state) {
  return state.range(0) ? KernelChoice::kFast : KernelChoice::kReference;
}
void Label(benchmark::State& state) { state.SetLabel(state.range(0) ? "fast" : "reference"); }

// Crop and conversion of a 200-pixel body's search window to the 72 x 72 RGB template.
void BM_CropConvert(benchmark::State& state) {
  const auto& f = Frame1080();
  std::vector<uint8_t> dst(72 * 72 * 3);
  const float roi[4] = {700.3f, 300.7f, 500.0f, 500.0f};
  for (auto _ : state) {
    CropResizeYuv2rgbAccWith(Choice(state), f.data(), 1920, 1080, dst.data(), roi, 72, 72, 3);
    benchmark::DoNotOptimize(dst.data());
  }
  Label(state);
}
BENCHMARK(BM_CropConvert)->Arg(0)->Arg(1);

// The same crop from frames that are not in the cache, as a camera's are: a new one of 32
// copies (about 100 MB, past the last-level cache) on every call.
void BM_CropConvertCold(benchmark::State& state) {
  constexpr size_t kCopies = 32;
  const auto& f = Frame1080();
  std::vector<std::vector<uint8_t>> frames(kCopies, f);
  std::vector<uint8_t> dst(72 * 72 * 3);
  const float roi[4] = {700.3f, 300.7f, 500.0f, 500.0f};
  size_t k = 0;
  for (auto _ : state) {
    CropResizeYuv2rgbAccWith(Choice(state), frames[k].data(), 1920, 1080, dst.data(), roi, 72, 72, 3);
    k = (k + 1) % kCopies;
    benchmark::DoNotOptimize(dst.data());
  }
  Label(state);
}
BENCHMARK(BM_CropConvertCold)->Arg(0)->Arg(1);

// A realistic 72 x 72 patch: the crop of a textured body.
std::vector<uint8_t> Patch() {
  std::vector<uint8_t> dst(72 * 72 * 3);
  const float roi[4] = {700.3f, 300.7f, 500.0f, 500.0f};
  CropResizeYuv2rgbAccWith(KernelChoice::kReference, Frame1080().data(), 1920, 1080, dst.data(), roi, 72,
                           72, 3);
  return dst;
}

// Gradients, magnitudes, orientation bins and the 9-bin cell histograms of one patch.
void BM_GradientHistograms(benchmark::State& state) {
  const std::vector<uint8_t> patch = Patch();
  std::vector<int16_t> ga(72 * 72 * 3, 0), gb(72 * 72 * 3, 0);
  std::vector<float> mag(72 * 72, 0.f), cells(18 * 18 * 9, 0.f);
  std::vector<uint32_t> bins(2 * 72 * 72, 0);
  const FeatureImage image{72, 72, patch.data(), 3};
  for (auto _ : state) {
    std::memset(cells.data(), 0, cells.size() * sizeof(float));
    ComputeCellHistogramsWith(Choice(state), 9, &image, 4, cells.data(), ga.data(), gb.data(), mag.data(),
                              bins.data());
    benchmark::DoNotOptimize(cells.data());
  }
  Label(state);
}
BENCHMARK(BM_GradientHistograms)->Arg(0)->Arg(1);

// Block normalisation, truncation and reduction of 18 x 18 histograms to 16 x 16 x 9 features.
void BM_Normalise(benchmark::State& state) {
  std::vector<float> hist(18 * 18 * 9);
  for (size_t q = 0; q < hist.size(); ++q) hist[q] = static_cast<float>((q * 7919) % 1000) * 0.01f;
  std::vector<float> cells(16 * 16 * 36), norm(16 * 16 * 36), energy(18 * 18);
  for (auto _ : state) {
    std::memcpy(cells.data(), hist.data(), hist.size() * sizeof(float));
    normalizeAndTruncate9(64, cells.data(), energy.data(), norm.data());
    reduceFeatures9(64, cells.data());
    benchmark::DoNotOptimize(cells.data());
  }
}
BENCHMARK(BM_Normalise);

// One forward 2-D transform; argument: side (16 or 24) and fast (1) or scalar reference (0).
void BM_Fft(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<float> a(2 * n * n), b(2 * n * n);
  for (size_t q = 0; q < a.size(); ++q) a[q] = static_cast<float>((q * 2654435761u) % 1000) * 0.001f;
  const bool fast = state.range(1) != 0;
  for (auto _ : state) {
    if (fast) {
      Fft2D(a.data(), a.data() + 1, b.data(), b.data() + 1, n, -1);
    } else {
      zy::Fft2DScalar(a.data(), a.data() + 1, b.data(), b.data() + 1, n, -1);
    }
    benchmark::DoNotOptimize(b.data());
  }
  state.SetLabel(fast ? "fast" : "reference");
}
BENCHMARK(BM_Fft)->Args({16, 0})->Args({16, 1})->Args({24, 0})->Args({24, 1});

// A tracker initialised on body 0 of the 1080p scene's first frame.
struct OneTracker {
  TrackingInp t{2.5f, true, true, true};
  std::vector<std::vector<uint8_t>> frames;
  FrameView View(int k) const {
    return FrameView{1080, 1920, frames[static_cast<size_t>(k)].data(), 3, 0};
  }
  OneTracker(const Scene& scene, int body, int count) {
    createTracker(t);
    for (int k = 0; k < count; ++k) {
      frames.emplace_back(scene.FrameBytes());
      scene.Render(k, frames.back().data());
    }
    Init(scene, body);
  }
  void Init(const Scene& scene, int body) {
    const zybench::Corners c = zybench::ToCorners(scene.BoxAt(body, 0));
    const float box[4] = {static_cast<float>(c.left), static_cast<float>(c.top),
                          static_cast<float>(c.right - c.left), static_cast<float>(c.bottom - c.top)};
    initTracker(t, box, View(0));
  }
  ~OneTracker() { freeTracker(t); }
};

// Kernel correlation of a 9-channel 16 x 16 feature map with the model: cross (detection)
// and self (training).
void BM_GaussianCorrelation(benchmark::State& state) {
  OneTracker tr(Scene1080(), 0, 1);
  getFeatures(tr.t, tr.t.featBuf, &tr.t.patchEnergy, 1.0f);
  const bool self = state.range(0) != 0;
  for (auto _ : state) {
    gaussianCorrelation(tr.t, tr.t.featBuf, self ? tr.t.featBuf : tr.t.modelFeat, tr.t.patchEnergy,
                        self ? tr.t.patchEnergy : tr.t.modelEnergy);
    benchmark::DoNotOptimize(tr.t.kf);
  }
  state.SetLabel(self ? "self" : "cross");
}
BENCHMARK(BM_GaussianCorrelation)->Arg(0)->Arg(1);

// One feature extraction (crop to complex planes) at the tracker's own scale.
void BM_GetFeatures(benchmark::State& state) {
  OneTracker tr(Scene1080(), 0, 1);
  for (auto _ : state) {
    getFeatures(tr.t, tr.t.featBuf, &tr.t.patchEnergy, 1.0f);
    benchmark::DoNotOptimize(tr.t.featBuf);
  }
}
BENCHMARK(BM_GetFeatures);

// One body's full tracking update; argument: the body's side in pixels (square bodies on a
// 1080p frame), to show that the cost does not depend on the box.
void BM_UpdateTracker(benchmark::State& state) {
  const float side = static_cast<float>(state.range(0));
  SceneSpec shape;
  shape.width = 1920;
  shape.height = 1080;
  const Scene scene(shape, zybench::BodiesOfSide(1, side, 1920, 1080, 11));
  constexpr int kFrames = 16;
  OneTracker tr(scene, 0, kFrames);
  int k = 1;
  float result[4];
  for (auto _ : state) {
    if (k == kFrames) {
      state.PauseTiming();
      tr.Init(scene, 0);
      k = 1;
      state.ResumeTiming();
    }
    updateTracker(tr.t, tr.View(k++), result);
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(BM_UpdateTracker)->Arg(20)->Arg(50)->Arg(100)->Arg(200)->Arg(500)->Arg(1000);

// Whole tracking frames through the C interface; arguments: frame height (720 or 1080),
// bodies, loop threads.
void BM_Frame(benchmark::State& state) {
  const int h = static_cast<int>(state.range(0));
  SceneSpec shape;
  shape.height = h;
  shape.width = h == 720 ? 1280 : 1920;
  shape.bodies = static_cast<int>(state.range(1));
  shape.minSide = 40;
  shape.maxSide = 160;
  shape.seed = 5;
  const Scene scene(shape);
  constexpr int kFrames = 16;
  FrameDriver driver(scene, kFrames);
  if (!driver.ok()) {
    state.SkipWithError("handle");
    return;
  }
  SetLoopThreads(static_cast<int>(state.range(2)));
  driver.Reinit();
  int t = 1;
  for (auto _ : state) {
    if (t == kFrames) {
      state.PauseTiming();
      driver.Reinit();
      t = 1;
      state.ResumeTiming();
    }
    driver.Track(t++);
  }
  state.counters["bodies"] = shape.bodies;
}
BENCHMARK(BM_Frame)
    ->ArgNames({"height", "bodies", "threads"})
    ->Args({720, 1, 1})
    ->Args({720, 10, 1})
    ->Args({720, 30, 1})
    ->Args({1080, 1, 1})
    ->Args({1080, 10, 1})
    ->Args({1080, 30, 1})
    ->Args({1080, 30, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The worker pool's own cost per frame: a parallel loop over 30 indices that do nothing.
void BM_PoolLoop(benchmark::State& state) {
  SetLoopThreads(static_cast<int>(state.range(0)));
  const QTX::CParallelForPartitioner<int> partitioner;
  const std::function<void(QTX::Range<int>)> body = [](QTX::Range<int> r) { benchmark::DoNotOptimize(r); };
  for (auto _ : state) {
    QTX::Range<int> range = QTX::MakeLoopRange(30);
    partitioner.DynamicPartitioner(body, range, GetSession()->GetGuider());
  }
}
BENCHMARK(BM_PoolLoop)->ArgName("threads")->Arg(1)->Arg(2)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // the library's lines would mix in
  // The session starts with the handle's settings; the benchmarks choose their threads.
  AlgoHandle* handle = nullptr;
  CreateKoTrackingAlgo(&handle);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  DestroyKoTrackingAlgo(&handle);
  return 0;
}
