// Every form of the fused gradient, magnitude and orientation-bin kernel (NEON, through SIMDe
// on x86-64, and AVX2 where the CPU has it) against its scalar reference, with and without the
// gradient scratch: all difference pairs two bytes can give, random patches of edge sizes, and
// the public drivers, which skip the scratch, against the reference driver.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "features/hog_rows.h"
#include "support/nv21_frames.h"

#if ZY_HAVE_NEON
namespace {

using Kernel = void (*)(const PlaneRows&, int32_t, int32_t, ptrdiff_t, int16_t*, int16_t*, float*,
                        uint32_t*);
struct Form {
  const char* name;
  Kernel kernel;
};

std::vector<Form> Forms() {
  std::vector<Form> forms{{"NEON", GradientMagnitudeBins3_NEON}};
#if ZY_HAVE_AVX2_ROWS
  if (CpuHasAvx2()) forms.push_back({"AVX2", GradientMagnitudeBins3_AVX2});
#endif
  return forms;
}

// A planar three-channel patch and one kernel's outputs over its interior rows.
struct Patch {
  int32_t w, h;
  std::vector<uint8_t> img;
  Patch(int32_t width, int32_t height)
      : w(width), h(height), img(3 * static_cast<size_t>(width) * static_cast<size_t>(height)) {}
  uint8_t& At(int ch, int32_t y, int32_t x) {
    return img[(static_cast<size_t>(ch) * h + y) * w + x];
  }
  struct Out {
    std::vector<int16_t> gx, gy;
    std::vector<float> mag;
    std::vector<uint32_t> bins;
  };
  Out Run(Kernel kernel, bool store) const {
    const size_t pixels = static_cast<size_t>(w) * h;
    Out o{std::vector<int16_t>(3 * pixels), std::vector<int16_t>(3 * pixels),
          std::vector<float>(pixels), std::vector<uint32_t>(2 * pixels)};
    const size_t d = static_cast<size_t>(w) + 1;
    kernel(PlaneRowsAt(img.data(), w, h, 1), w - 2, h - 2, w, store ? o.gx.data() + 3 * d : nullptr,
           store ? o.gy.data() + 3 * d : nullptr, o.mag.data() + d, o.bins.data() + 2 * d);
    return o;
  }
  // Every form, storing the scratch or not, gives the reference's bytes.
  void ExpectFormsEqualReference() const {
    const Out ref = Run(GradientMagnitudeBins3_C, true);
    for (const Form& f : Forms()) {
      for (bool store : {true, false}) {
        const Out o = Run(f.kernel, store);
        const std::string what = std::string(f.name) + (store ? " stored " : " ") +
                                 std::to_string(w) + "x" + std::to_string(h);
        EXPECT_EQ(std::memcmp(o.mag.data(), ref.mag.data(), o.mag.size() * sizeof(float)), 0) << what;
        EXPECT_EQ(o.bins, ref.bins) << what;
        if (store) {
          EXPECT_EQ(o.gx, ref.gx) << what;
          EXPECT_EQ(o.gy, ref.gy) << what;
        }
      }
    }
  }
};

// Every (dx, dy) in -255..255 squared, each at a pixel of its own (four apart, the channel
// taking turns, the other channels flat there), so that the reference row applies
// FindOrientationBin and the square root to each pair; the pixels in between are compared too.
TEST(GradientForms, EveryDifferencePair) {
  constexpr int32_t kPairs = 511 * 511;
  Patch p(4 * kPairs + 3, 3);
  for (int32_t t = 0; t < kPairs; ++t) {
    const int dx = t / 511 - 255, dy = t % 511 - 255, ch = t % 3;
    const int32_t x = 4 * t + 1;
    p.At(ch, 1, x - 1) = static_cast<uint8_t>(dx < 0 ? -dx : 0);
    p.At(ch, 1, x + 1) = static_cast<uint8_t>(dx > 0 ? dx : 0);
    p.At(ch, 0, x) = static_cast<uint8_t>(dy < 0 ? -dy : 0);
    p.At(ch, 2, x) = static_cast<uint8_t>(dy > 0 ? dy : 0);
  }
  p.ExpectFormsEqualReference();
}

// Random patches of every width 3..20 (rows shorter than a block, one block, blocks with an
// overlapping tail) and the tracker's 72 x 72, half of them from a small alphabet, where equal
// squared magnitudes across channels are common.
TEST(GradientForms, RandomPatches) {
  SceneRng rng(77);
  const uint8_t alphabet[] = {0, 3, 4, 5, 7, 9, 12, 255};
  for (int32_t w = 3; w <= 21; ++w) {
    for (int32_t h : {3, 4, 6}) {
      Patch p(w == 21 ? 72 : w, w == 21 ? 72 : h);
      const bool ties = (w + h) % 2 == 0;
      for (uint8_t& b : p.img) b = ties ? alphabet[rng.Uniform(0, 7)] : static_cast<uint8_t>(rng.Next());
      p.ExpectFormsEqualReference();
    }
  }
}

// The public drivers, which leave the gradient scratch alone, against the reference driver:
// magnitudes, bins and cell maps bit for bit.
TEST(GradientForms, PublicDriversEqualReference) {
  SceneRng rng(3);
  for (uint32_t F : {27u, 9u}) {
    const int32_t w = 72, h = 72;
    std::vector<uint8_t> img(3 * w * h);
    for (uint8_t& b : img) b = static_cast<uint8_t>(rng.Next());
    const FeatureImage image{h, w, img.data(), 3};
    std::vector<int16_t> a(img.size()), b(img.size());
    std::vector<float> mag(w * h), magRef(w * h), feat(18 * 18 * F, 0.5f), featRef(feat);
    std::vector<uint32_t> bins(2 * w * h), binsRef(2 * w * h);
    ASSERT_EQ(ComputeCellHistogramsWith(KernelChoice::kReference, F, &image, 4, featRef.data(), a.data(),
                                        b.data(), magRef.data(), binsRef.data()),
              0u);
    ASSERT_EQ((F == 27 ? ComputeCellHistograms : ComputeCellHistogramsLight)(
                  &image, 4, feat.data(), a.data(), b.data(), mag.data(), bins.data()),
              0u);
    EXPECT_EQ(std::memcmp(mag.data(), magRef.data(), mag.size() * sizeof(float)), 0) << F;
    EXPECT_EQ(bins, binsRef) << F;
    EXPECT_EQ(std::memcmp(feat.data(), featRef.data(), feat.size() * sizeof(float)), 0) << F;
  }
}

}  // namespace
#endif
