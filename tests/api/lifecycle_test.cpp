#include <gtest/gtest.h>

#include "api/algo_handle.h"
#include "common/zy_alloc.h"
#include "runtime/qtx.h"
#include "support/log_capture.h"

namespace {

constexpr int kDebug = ANDROID_LOG_DEBUG;
constexpr int kInfo = ANDROID_LOG_INFO;
constexpr int kError = ANDROID_LOG_ERROR;

std::vector<int32_t> Queue(const AlgoHandle* h) { return {h->freeBodyIds.begin(), h->freeBodyIds.end()}; }
std::vector<int32_t> OneToThirty() {
  std::vector<int32_t> v;
  for (int i = 1; i <= 30; ++i) v.push_back(i);
  return v;
}

TEST(Lifecycle, CreateStartResetDestroy) {
  LogCapture log;
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  ASSERT_NE(h, nullptr);
  EXPECT_TRUE(log.Has("Enter CreateZyTrackingAlgo ", kDebug));
  EXPECT_TRUE(log.Has("CreateKoTrackingAlgo Sucess", kInfo));
  for (const auto& l : log.Lines()) EXPECT_EQ(l.tag, "ZyTrackingAlgo V1.0.3");
  EXPECT_EQ(Queue(h), OneToThirty());
  for (auto* slot : h->koTrackingInp) EXPECT_EQ(slot->alphaf, nullptr);  // buffers come with Start
  EXPECT_GE(QTX::WorkerCount(GetSession()), 1);

  ASSERT_EQ(StartKoTrackingAlgo(h), 0);
  EXPECT_TRUE(log.Has("Enter StartZyTrackingAlgo !", kDebug));
  EXPECT_TRUE(log.Has("StartKoTrackingAlgo Sucess", kInfo));
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->response, nullptr);
  ASSERT_EQ(StartKoTrackingAlgo(h), 0);  // twice: the first buffers are released, not leaked

  h->bodyNum = 4;
  h->freeBodyIds.pop_front();
  h->lastBodyIDFlag[3] = 1;
  h->lastBodyInfo[0].bodyId = 9;
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);
  EXPECT_TRUE(log.Has("ResetKoTrackingAlgo Sucess", kInfo));
  EXPECT_EQ(h->bodyNum, 0);
  EXPECT_EQ(Queue(h), OneToThirty());
  EXPECT_EQ(h->lastBodyIDFlag[3], 0);
  EXPECT_EQ(h->lastBodyInfo[0].bodyId, 0);

  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
  EXPECT_EQ(h, nullptr);
  EXPECT_TRUE(log.Has("enter DestroyZyTrackingAlgo !", kDebug));
  EXPECT_TRUE(log.Has("DestroyKoTrackingAlgo Sucess", kInfo));
  EXPECT_EQ(QTX::WorkerCount(GetSession()), 0);
}

TEST(Lifecycle, NullArgumentsAreRefusedWithTheirLines) {
  LogCapture log;
  EXPECT_EQ(StartKoTrackingAlgo(nullptr), 1);
  EXPECT_TRUE(log.Has("StartKoTrackingAlgo input params is NULL, error! \n", kError));
  EXPECT_EQ(ResetKoTrackingAlgo(nullptr), -1);
  EXPECT_TRUE(log.Has("ResetKoTrackingAlgo failed.", kError));
  EXPECT_EQ(DestroyKoTrackingAlgo(nullptr), -1);
  EXPECT_TRUE(log.Has("handle is nullptr", kError));
  AlgoHandle* none = nullptr;
  EXPECT_EQ(DestroyKoTrackingAlgo(&none), -1);
  EXPECT_TRUE(log.Has("*handle is nullptr", kError));
  EXPECT_EQ(ProcessKoTrackingAlgo(nullptr, nullptr, nullptr), 1);
  EXPECT_TRUE(log.Has("ProcessKoTrackingAlgo input params is NULL, error! \n", kError));
  EXPECT_EQ(CreateKoTrackingAlgo(nullptr), 1);
}

TEST(Lifecycle, ResetOnANeverStartedHandleAllocatesEverySlotButNeedsTheBodyBuffer) {
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->alphaf, nullptr);
  LogCapture log;
  BodyInfo* saved = h->lastBodyInfo;
  h->lastBodyInfo = nullptr;
  EXPECT_EQ(ResetKoTrackingAlgo(h), -1);
  EXPECT_TRUE(log.Has("memset lastBodyInfo fail.", kError));
  h->lastBodyInfo = saved;
  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
}

TEST(Lifecycle, ResetFailureNamesTheSlotAndStops) {
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  ASSERT_EQ(StartKoTrackingAlgo(h), 0);
  Complex* before[MAX_INPLACE_NUM];
  for (int i = 0; i < MAX_INPLACE_NUM; ++i) before[i] = h->koTrackingInp[i]->alphaf;
  LogCapture log;
  zy::FailNthAllocation(5 * 19 + 1);  // slots 0..4 take 19 allocations each
  EXPECT_EQ(ResetKoTrackingAlgo(h), -1);
  zy::FailNthAllocation(0);
  EXPECT_TRUE(log.Has("ZyTrackerAlgoReset fail", kError));
  EXPECT_TRUE(log.Has("the 5 koTrackingInp ZyTrackerAlgoReset fail", kError));
  EXPECT_FALSE(log.Has("ResetKoTrackingAlgo Sucess"));
  EXPECT_EQ(h->koTrackingInp[5]->alphaf, nullptr);
  for (int i = 6; i < MAX_INPLACE_NUM; ++i) EXPECT_EQ(h->koTrackingInp[i]->alphaf, before[i]) << i;
  // The handle recovers with the next reset.
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);
  EXPECT_NE(h->koTrackingInp[5]->alphaf, nullptr);
  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
}

}  // namespace
