#include <gtest/gtest.h>

#include "tracker/tracking_inp.h"

namespace {

TEST(TrackingInp, CreateZeroesEveryBufferAndResetReallocates) {
  TrackingInp t(2.5f, true, true, true);
  ASSERT_EQ(createTracker(t), 0u);
  // Sentinel writes at the last element of each buffer prove its size (ASan catches an
  // out-of-bounds one) and the reset must give zeroed buffers back.
  t.modelFeat[2303].re = 1.f;
  t.patchRgb[15551] = 7;
  t.cellFeat[9215] = 1.f;
  t.gradBufA[31104 / 2 - 1] = 1;
  t.gradMag[5183] = 1.f;
  t.gradBins[10367] = 1;
  t.blockNorm[323] = 1.f;
  t.response[255] = 1.f;

  ASSERT_EQ(resetTracker(t), 0u);
  EXPECT_EQ(t.modelFeat[2303].re, 0.f);
  EXPECT_EQ(t.patchRgb[15551], 0);
  EXPECT_EQ(t.gradBins[10367], 0u);
  freeTracker(t);
}

}  // namespace
