#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <vector>

#include "api/algo_handle.h"
#include "association/body_id.h"
#include "support/log_capture.h"

namespace {

constexpr int kDebug = ANDROID_LOG_DEBUG;
constexpr int kError = ANDROID_LOG_ERROR;

BodyInfo Body(int32_t classId, int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t id = 0) {
  BodyInfo b{};
  b.classId = classId;
  b.bodyId = id;
  b.roi = {left, top, right, bottom};
  b.extra = 0xABCDu;
  return b;
}

// A handle with just what the identity update uses, fed frame after frame the way the
// pipeline does it: update the IDs, then keep the bodies as the previous frame.
struct Tracker {
  HungarianAlgorithm solver;
  BodyInfo last[MAX_INPLACE_NUM] = {};
  AlgoHandle h{};

  Tracker() {
    h.lastBodyInfo = last;
    h.mHungarianAlgorithm = &solver;
    for (int32_t id = 1; id <= MAX_INPLACE_NUM; ++id) h.freeBodyIds.push_back(id);
  }
  std::vector<int32_t> Frame(std::vector<BodyInfo> bodies) {
    bodies.reserve(1);  // a real array even for no bodies
    ParamIn in{};
    in.bodies = bodies.data();
    in.bodyNum = static_cast<int32_t>(bodies.size());
    UpdateBodyID4FirstFrame(&h, &in);
    std::vector<int32_t> ids;
    for (size_t i = 0; i < bodies.size(); ++i) {
      EXPECT_EQ(bodies[i].extra, 0xABCDu);
      ids.push_back(bodies[i].bodyId);
      last[i] = bodies[i];
    }
    h.bodyNum = static_cast<int32_t>(bodies.size());
    return ids;
  }
  std::vector<int32_t> Queue() const { return {h.freeBodyIds.begin(), h.freeBodyIds.end()}; }
};

std::vector<int32_t> Range(int32_t from, int32_t to) {
  std::vector<int32_t> v;
  for (int32_t i = from; i <= to; ++i) v.push_back(i);
  return v;
}

TEST(BodyId, FirstFrameHandsOutIdsInQueueOrder) {
  LogCapture log;
  AlgoHandle* h = nullptr;
  ASSERT_EQ(CreateKoTrackingAlgo(&h), 0);
  std::vector<BodyInfo> bodies = {Body(1, 0, 0, 9, 9, 50), Body(2, 20, 0, 29, 9, 50), Body(1, 40, 0, 49, 9, 50)};
  ParamIn in{};
  in.bodies = bodies.data();
  in.bodyNum = 3;
  UpdateBodyID4FirstFrame(h, &in);
  EXPECT_EQ(bodies[0].bodyId, 1);
  EXPECT_EQ(bodies[1].bodyId, 2);
  EXPECT_EQ(bodies[2].bodyId, 3);
  EXPECT_TRUE(log.Has("HungarianAlgorithm nCols Error", kError));  // no previous bodies
  EXPECT_EQ(std::vector<int32_t>(h->freeBodyIds.begin(), h->freeBodyIds.end()), Range(4, 30));
  ASSERT_EQ(DestroyKoTrackingAlgo(&h), 0);
}

TEST(BodyId, CrossingBodiesKeepTheirIds) {
  Tracker t;
  // A (40 wide) walks right, B (50 wide, a little lower) walks left, 5 pixels a frame; they
  // overlap in the middle and pass each other. The input order flips every frame.
  int32_t ax = 0;
  int32_t bx = 200;
  auto a = [&] { return Body(1, ax, 0, ax + 39, 99); };
  auto b = [&] { return Body(1, bx, 10, bx + 49, 109); };
  EXPECT_EQ(t.Frame({a(), b()}), (std::vector<int32_t>{1, 2}));
  for (int step = 1; step <= 40; ++step) {
    ax += 5;
    bx -= 5;
    if (step % 2 == 1) {
      EXPECT_EQ(t.Frame({b(), a()}), (std::vector<int32_t>{2, 1})) << "step " << step;
    } else {
      EXPECT_EQ(t.Frame({a(), b()}), (std::vector<int32_t>{1, 2})) << "step " << step;
    }
    EXPECT_EQ(t.h.lastBodyIDFlag[0], 1);
    EXPECT_EQ(t.h.lastBodyIDFlag[1], 1);
  }
  EXPECT_GT(ax, bx + 49);  // they really passed each other
  EXPECT_EQ(t.Queue(), Range(3, 30));
}

TEST(BodyId, AnotherClassAtTheSamePlaceIsNeverMatched) {
  LogCapture log;
  Tracker t;
  EXPECT_EQ(t.Frame({Body(1, 10, 10, 59, 109)}), (std::vector<int32_t>{1}));
  log.Clear();
  EXPECT_EQ(t.Frame({Body(2, 10, 10, 59, 109)}), (std::vector<int32_t>{2}));
  EXPECT_TRUE(log.Has("cur class = 2, pre class = 1, costMatrix[0][0] = 0 ", kDebug));
  EXPECT_TRUE(log.Has("costMatrix ***** :(1.500000, 0.000000, 0.000000, 0.000000, 0.000000, 0.000000, "
                      "0.000000, 0.000000, 0.000000, 0.000000)",
                      kDebug));
  EXPECT_TRUE(log.Has("match result algo :(0, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
  EXPECT_TRUE(log.Has("match result :(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
  EXPECT_EQ(t.h.lastBodyIDFlag[0], 0);
  std::vector<int32_t> q = Range(3, 30);
  q.push_back(1);
  EXPECT_EQ(t.Queue(), q);

  // With a same-class body beside it, the class decides, not the overlap.
  EXPECT_EQ(t.Frame({Body(1, 10, 10, 59, 109), Body(2, 12, 10, 61, 109)}), (std::vector<int32_t>{3, 2}));
}

TEST(BodyId, OverlapCountsInclusivePixels) {
  LogCapture log;
  Tracker t;
  EXPECT_EQ(t.Frame({Body(1, 0, 0, 9, 9)}), (std::vector<int32_t>{1}));
  // Sharing the single pixel (9, 9): overlap 1 x 1, cost 1 - 1/199, still a match.
  EXPECT_EQ(t.Frame({Body(1, 9, 9, 18, 18)}), (std::vector<int32_t>{1}));
  EXPECT_EQ(log.CountContaining("costMatrix ***** :(0.994975, 0.000000,"), 1);
  // Touching without sharing a pixel: cost 1.0, rejected, a new ID.
  log.Clear();
  EXPECT_EQ(t.Frame({Body(1, 19, 0, 28, 8)}), (std::vector<int32_t>{2}));
  EXPECT_EQ(log.CountContaining("costMatrix ***** :(1.000000, 0.000000,"), 1);
  EXPECT_TRUE(log.Has("match result algo :(0, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
  EXPECT_TRUE(log.Has("match result :(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
}

TEST(BodyId, LostIdsGoToTheBackOfTheQueueInOrder) {
  Tracker t;
  t.h.freeBodyIds = {7, 8};
  EXPECT_EQ(t.Frame({Body(1, 0, 0, 9, 9, 3), Body(1, 100, 0, 109, 9, 5), Body(1, 200, 0, 209, 9, 1)}),
            (std::vector<int32_t>{7, 8, 1}));  // the queue ran dry: the last keeps its own
  EXPECT_EQ(t.Queue(), (std::vector<int32_t>{}));

  // Previous IDs in an order unlike their numbers: 9 at x = 0, 4 at x = 100, 6 at x = 200.
  t.last[0].bodyId = 9;
  t.last[1].bodyId = 4;
  t.last[2].bodyId = 6;
  t.h.freeBodyIds = {11, 12};
  // Only the middle body stays; 9 and 6 are lost and queue up behind 11 and 12 in
  // previous-body order.
  EXPECT_EQ(t.Frame({Body(1, 101, 0, 110, 9)}), (std::vector<int32_t>{4}));
  EXPECT_EQ(t.Queue(), (std::vector<int32_t>{11, 12, 9, 6}));
  EXPECT_EQ(t.h.lastBodyIDFlag[0], 0);  // one flag per previous body
  EXPECT_EQ(t.h.lastBodyIDFlag[1], 1);
  EXPECT_EQ(t.h.lastBodyIDFlag[2], 0);

  // New bodies drain the queue front first: the lost IDs come out last.
  EXPECT_EQ(t.Frame({Body(1, 101, 0, 110, 9), Body(1, 300, 0, 309, 9), Body(1, 400, 0, 409, 9),
                     Body(1, 500, 0, 509, 9)}),
            (std::vector<int32_t>{4, 11, 12, 9}));
  EXPECT_EQ(t.Queue(), (std::vector<int32_t>{6}));
}

TEST(BodyId, EmptyQueueKeepsTheCallersId) {
  Tracker t;
  t.h.freeBodyIds.clear();
  EXPECT_EQ(t.Frame({Body(1, 0, 0, 9, 9, 77), Body(1, 50, 0, 59, 9, 78)}), (std::vector<int32_t>{77, 78}));
  EXPECT_TRUE(t.Queue().empty());
  // Both vanish: their IDs return.
  EXPECT_EQ(t.Frame({}), (std::vector<int32_t>{}));
  EXPECT_EQ(t.Queue(), (std::vector<int32_t>{77, 78}));
}

TEST(BodyId, ThirtyBodiesAreAllNewBecauseTheSolveRefusesThem) {
  LogCapture log;
  Tracker t;
  std::vector<BodyInfo> bodies;
  for (int i = 0; i < 29; ++i) bodies.push_back(Body(1, i * 20, 0, i * 20 + 9, 9));
  EXPECT_EQ(t.Frame(bodies), Range(1, 29));
  EXPECT_EQ(t.Frame(bodies), Range(1, 29));  // 29 x 29 is solved: everyone stays
  EXPECT_EQ(t.Queue(), (std::vector<int32_t>{30}));

  log.Clear();
  bodies.push_back(Body(1, 29 * 20, 0, 29 * 20 + 9, 9, 99));
  // 30 rows are refused: the first body takes 30, the rest keep what they came with, and
  // all 29 previous IDs go back.
  const std::vector<int32_t> ids = t.Frame(bodies);
  EXPECT_TRUE(log.Has("HungarianAlgorithm nRows Error", kError));
  EXPECT_EQ(ids[0], 30);
  EXPECT_EQ(ids[1], 0);
  EXPECT_EQ(ids[29], 99);
  EXPECT_EQ(t.Queue(), Range(1, 29));
}

TEST(BodyId, BadArgumentsAreRefusedWithoutWriting) {
  LogCapture log;
  Tracker t;
  t.Frame({Body(1, 0, 0, 9, 9)});
  t.h.lastBodyIDFlag[0] = 1;
  const std::vector<int32_t> queueBefore = t.Queue();
  std::vector<BodyInfo> bodies(31, Body(1, 0, 0, 9, 9, 42));
  ParamIn in{};
  in.bodies = bodies.data();

  auto untouched = [&] {
    for (const BodyInfo& b : bodies) EXPECT_EQ(b.bodyId, 42);
    EXPECT_EQ(t.Queue(), queueBefore);
    EXPECT_EQ(t.h.lastBodyIDFlag[0], 1);
  };
  for (int32_t n : {31, -1, 1000}) {
    in.bodyNum = n;
    UpdateBodyID4FirstFrame(&t.h, &in);
    untouched();
  }
  EXPECT_TRUE(log.Has("UpdateBodyID4FirstFrame body number error! cur[31] pre[1]", kError));
  in.bodyNum = 1;
  for (int32_t prev : {31, -2}) {
    t.h.bodyNum = prev;
    UpdateBodyID4FirstFrame(&t.h, &in);
    untouched();
  }
  t.h.bodyNum = 1;
  t.h.lastBodyInfo = nullptr;
  UpdateBodyID4FirstFrame(&t.h, &in);
  untouched();
  t.h.lastBodyInfo = t.last;
  UpdateBodyID4FirstFrame(nullptr, &in);
  UpdateBodyID4FirstFrame(&t.h, nullptr);
  in.bodies = nullptr;
  UpdateBodyID4FirstFrame(&t.h, &in);
  untouched();
  EXPECT_EQ(log.Count("UpdateBodyID4FirstFrame input params is NULL, error! \n", kError), 3);

  // A handle without its assignment object still matches.
  t.h.mHungarianAlgorithm = nullptr;
  EXPECT_EQ(t.Frame({Body(1, 1, 0, 10, 9)}), (std::vector<int32_t>{1}));
}

}  // namespace
