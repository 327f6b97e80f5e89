#include <gtest/gtest.h>

#include <numeric>

#include "api/algo_handle.h"
#include "tracker/tracking_inp.h"
#include "runtime/qtx.h"
#include "support/log_capture.h"

namespace {

constexpr int kDebug = ANDROID_LOG_DEBUG;
constexpr int kInfo = ANDROID_LOG_INFO;
constexpr int kError = ANDROID_LOG_ERROR;

std::vector<int32_t> Queue(const AlgoHandle* h) { return {h->freeBodyIds.begin(), h->freeBodyIds.end()}; }
std::vector<int32_t> OneToThirty() {
  std::vector<int32_t> v(30);
  std::iota(v.begin(), v.end(), 1);
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
  for (auto* slot : h->koTrackingInp) EXPECT_EQ(slot->alphaf, nullptr);  // buffers come with Start or Reset
  EXPECT_GE(QTX::WorkerCount(GetSession()), 1);
  ASSERT_EQ(ResetKoTrackingAlgo(h), 0);  // never started: Reset gives every slot its buffers
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->alphaf, nullptr);

  ASSERT_EQ(StartKoTrackingAlgo(h), 0);  // after Reset: those buffers are released, not leaked
  EXPECT_TRUE(log.Has("Enter StartZyTrackingAlgo !", kDebug));
  EXPECT_TRUE(log.Has("StartKoTrackingAlgo Sucess", kInfo));
  for (auto* slot : h->koTrackingInp) EXPECT_NE(slot->response, nullptr);

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

}  // namespace
