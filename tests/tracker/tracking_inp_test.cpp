#include <gtest/gtest.h>

#include "common/zy_alloc.h"
#include "tracker/tracking_inp.h"

namespace {

TEST(TrackingInp, ConstructorDefaults) {
  TrackingInp t(2.5f, true, true, true);
  EXPECT_EQ(t.peakValue, 1.0f);
  EXPECT_EQ(t.scale, 1.0f);
  EXPECT_EQ(t.inited, 0);
  EXPECT_EQ(t.alphaf, nullptr);
  EXPECT_EQ(t.response, nullptr);
  EXPECT_FLOAT_EQ(t.padding, 2.5f);
  EXPECT_EQ(t.sizeSmooth, 0.6f);
  EXPECT_EQ(t.interpFactor, 0.012f);
  EXPECT_EQ(t.sigma, 0.6f);
  EXPECT_EQ(t.lambda, 0.0001f);
  EXPECT_EQ(t.cellSize, 4);
  EXPECT_EQ(t.outputSigmaFactor, 0.125f);
  EXPECT_EQ(t.templateSize, 64);
  EXPECT_EQ(t.scaleStep, 1.05f);
  EXPECT_EQ(t.scaleWeight, 0.95f);
  EXPECT_EQ(t.lightFeatures, 1);
  EXPECT_EQ(t.fixedWindow, 1);

  TrackingInp off(2.0f, false, false, false);
  EXPECT_EQ(off.scaleStep, 1.0f);
  EXPECT_EQ(off.scaleWeight, 1.0f);
  EXPECT_EQ(off.lightFeatures, 0);
  EXPECT_EQ(off.fixedWindow, 0);
}

TEST(TrackingInp, BufferSizesFollowTheParameters) {
  TrackingInp t(2.5f, true, true, true);
  TrackerSizes s = ComputeTrackerSizes(t);
  EXPECT_EQ(s.S, 16);
  EXPECT_EQ(s.M, 9);
  EXPECT_EQ(s.H, 36);
  EXPECT_EQ(s.P, 72);
  EXPECT_EQ(s.binWords, 10368);
  t.lightFeatures = 0;
  s = ComputeTrackerSizes(t);
  EXPECT_EQ(s.M, 31);
  EXPECT_EQ(s.H, 108);
  t.cellSize = 0;
  EXPECT_EQ(ComputeTrackerSizes(t).S, 0);
  t.cellSize = -40;  // P would be negative
  EXPECT_EQ(ComputeTrackerSizes(t).P, 0);
}

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
  EXPECT_EQ(t.hann[255], 0.f);
  EXPECT_EQ(t.corrSum[255], 0.f);

  ASSERT_EQ(resetTracker(t), 0u);
  EXPECT_EQ(t.modelFeat[2303].re, 0.f);
  EXPECT_EQ(t.patchRgb[15551], 0);
  EXPECT_EQ(t.gradBins[10367], 0u);
  freeTracker(t);
  EXPECT_EQ(t.alphaf, nullptr);
  EXPECT_EQ(t.response, nullptr);
  // Reset on a record without buffers simply allocates them.
  ASSERT_EQ(resetTracker(t), 0u);
  EXPECT_NE(t.specC, nullptr);
  freeTracker(t);
}

TEST(TrackingInp, EveryAllocationFailureGivesNineAndACleanRecord) {
  for (int k = 1; k <= 19; ++k) {
    TrackingInp t(2.5f, true, true, true);
    zy::FailNthAllocation(k);
    EXPECT_EQ(createTracker(t), 9u) << "allocation " << k;
    zy::FailNthAllocation(0);
    EXPECT_EQ(t.alphaf, nullptr);
    EXPECT_EQ(t.modelFeat, nullptr);
    EXPECT_EQ(t.cellFeat, nullptr);
    EXPECT_EQ(t.response, nullptr);
    freeTracker(t);  // releasing again is safe
  }
  TrackingInp t(2.5f, true, true, true);
  zy::FailNthAllocation(20);  // the first nineteen succeed
  EXPECT_EQ(createTracker(t), 0u);
  zy::FailNthAllocation(0);
  freeTracker(t);
}

}  // namespace
