// The fast cell-histogram forms against the scalar reference, bit for bit: random magnitudes
// of many scales (sums that depend on their order) and bins, onto maps that already hold
// values, signed zeros included; and which bins send a map to the reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "features/hog_cells.h"
#include "features/hog_rows.h"
#include "support/nv21_frames.h"

namespace {

struct Patch {
  int32_t w, h;
  uint32_t F;
  std::vector<float> mag, feat;
  std::vector<uint32_t> bins;
  Patch(int32_t width, int32_t height, uint32_t features, SceneRng& rng)
      : w(width),
        h(height),
        F(features),
        mag(static_cast<size_t>(w * h)),
        feat(static_cast<size_t>((w / 4) * (h / 4)) * F),
        bins(2 * mag.size()) {
    for (float& m : mag) m = std::ldexp(rng.UniformF(0.f, 1.f), rng.Uniform(-8, 16));
    for (size_t d = 0; d < mag.size(); ++d) {
      bins[2 * d] = rng.Next() % 9;
      bins[2 * d + 1] = rng.Next() % 18;
    }
    const float starts[] = {0.f, -0.f, 1e6f, 3.5f};
    for (float& f : feat) f = starts[rng.Next() % 4];
  }
  CellRun Run(CellForm form, std::vector<float>& out) const {
    out = feat;
    return AccumulateCellsWith(form, F, 4, w, h, mag.data(), bins.data(), out.data());
  }
};

bool SameBits(const std::vector<float>& x, const std::vector<float>& y) {
  return x.size() == y.size() &&
         (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof(float)) == 0);
}

// The fast forms this build and CPU run.
std::vector<CellForm> FastForms() {
  std::vector<CellForm> forms;
  if (ZY_HAVE_NEON) forms.push_back(CellForm::kNeon);
#if ZY_HAVE_AVX2_ROWS
  if (CpuHasAvx2()) forms.push_back(CellForm::kAvx2);
#endif
  return forms;
}

// Runs every form on `p`, expecting `run` from each fast one and the reference's bits.
void ExpectFormsMatch(const Patch& p, CellRun run) {
  std::vector<float> ref, got;
  ASSERT_EQ(p.Run(CellForm::kReference, ref), CellRun::kReference);
  for (CellForm form : {CellForm::kNeon, CellForm::kAvx2}) {
    std::vector<CellForm> built = FastForms();
    const bool available = std::find(built.begin(), built.end(), form) != built.end();
    EXPECT_EQ(p.Run(form, got), available ? run : CellRun::kUnavailable);
    if (available) {
      EXPECT_TRUE(SameBits(ref, got))
          << p.w << "x" << p.h << " F " << p.F << " form " << static_cast<int>(form);
    }
  }
}

TEST(CellForms, EqualReferenceBitForBit) {
  SceneRng rng(11);
  const int32_t sizes[][2] = {{1, 1},   {3, 5},   {4, 4},   {5, 4},   {4, 9},   {7, 6},  {8, 8},
                              {11, 13}, {12, 16}, {17, 10}, {20, 21}, {33, 29}, {72, 72}};
  for (uint32_t F : {9u, 27u}) {
    for (const auto& s : sizes) ExpectFormsMatch(Patch(s[0], s[1], F, rng), CellRun::kForm);
    // Rows wider than the fast forms' buffer go to the reference.
    ExpectFormsMatch(Patch(F == 9 ? 340 : 120, 9, F, rng), CellRun::kReference);
  }
}

TEST(CellForms, BinsOutOfRangeGoToTheReference) {
  struct Case {
    uint32_t F;
    int32_t w, y, x, which;  // which: 0 unsigned, 1 signed bin
    uint32_t bin;
    CellRun run;
  } cases[] = {
      {9, 16, 5, 6, 0, 9, CellRun::kReference},             // read by the cells
      {27, 16, 0, 0, 1, 18, CellRun::kReference},           // the owner's row 0 / column 0
      {9, 12, 7, 10, 0, 0xffffffffu, CellRun::kReference},  // past the last four-pixel step
      {9, 16, 5, 6, 1, 0xffffffffu, CellRun::kForm},        // a signed bin light cells never read
      {27, 16, 15, 3, 0, 1000, CellRun::kForm},             // the frame's last row
      {27, 12, 3, 11, 1, 1000, CellRun::kForm},             // the frame's last column
  };
  SceneRng rng(5);
  for (const Case& c : cases) {
    Patch p(c.w, 16, c.F, rng);
    p.bins[2 * static_cast<size_t>(c.y * c.w + c.x) + static_cast<size_t>(c.which)] = c.bin;
    ExpectFormsMatch(p, c.run);
  }
}

}  // namespace
