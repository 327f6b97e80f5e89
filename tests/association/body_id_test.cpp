#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "api/algo_handle.h"
#include "association/body_id.h"
#include "support/log_capture.h"

namespace {

using Ids = std::vector<int32_t>;
constexpr int kDebug = ANDROID_LOG_DEBUG;
constexpr int kError = ANDROID_LOG_ERROR;

BodyInfo Body(int32_t classId, int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t id = 0) {
  return BodyInfo{classId, id, {left, top, right, bottom}, 0xABCDu};
}

Ids Range(int32_t from, int32_t to) {
  Ids v(size_t(to - from + 1));
  std::iota(v.begin(), v.end(), from);
  return v;
}

// A handle with just what the identity update uses, fed the way the pipeline does it:
// update the IDs, then keep the bodies as the previous frame.
struct Tracker {
  HungarianAlgorithm solver;
  BodyInfo last[MAX_INPLACE_NUM] = {};
  AlgoHandle h{};

  Tracker() {
    h.lastBodyInfo = last;
    h.mHungarianAlgorithm = &solver;
    const Ids all = Range(1, 30);
    h.freeBodyIds.assign(all.begin(), all.end());
  }
  Ids Frame(std::vector<BodyInfo> bodies) {
    bodies.reserve(1);  // a real array even for no bodies
    ParamIn in{};
    in.bodies = bodies.data();
    in.bodyNum = int32_t(bodies.size());
    UpdateBodyID4FirstFrame(&h, &in);
    Ids ids;
    for (size_t i = 0; i < bodies.size(); ++i) {
      EXPECT_EQ(bodies[i].extra, 0xABCDu);
      ids.push_back(bodies[i].bodyId);
      last[i] = bodies[i];
    }
    h.bodyNum = in.bodyNum;
    return ids;
  }
  Ids Queue() const { return {h.freeBodyIds.begin(), h.freeBodyIds.end()}; }
};

TEST(BodyId, CrossingBodiesKeepTheirIds) {
  Tracker t;
  LogCapture log;
  // A (40 wide) walks right and B (50 wide, 10 lower) walks left, 5 pixels a frame,
  // overlapping in the middle; the input order flips every frame.
  int32_t ax = 0, bx = 200;
  EXPECT_EQ(t.Frame({Body(1, ax, 0, ax + 39, 99), Body(1, bx, 10, bx + 49, 109)}), (Ids{1, 2}));
  EXPECT_TRUE(log.Has("HungarianAlgorithm nCols Error", kError));  // no previous bodies
  for (int step = 1; step <= 40; ++step) {
    ax += 5;
    bx -= 5;
    const BodyInfo a = Body(1, ax, 0, ax + 39, 99), b = Body(1, bx, 10, bx + 49, 109);
    EXPECT_EQ(step % 2 ? t.Frame({b, a}) : t.Frame({a, b}), step % 2 ? (Ids{2, 1}) : (Ids{1, 2})) << step;
  }
  EXPECT_GT(ax, bx + 49);  // they passed each other
  EXPECT_EQ(t.Queue(), Range(3, 30));
}

TEST(BodyId, AnotherClassAtTheSamePlaceIsNeverMatched) {
  Tracker t;
  EXPECT_EQ(t.Frame({Body(1, 10, 10, 59, 109)}), (Ids{1}));
  LogCapture log;
  EXPECT_EQ(t.Frame({Body(2, 10, 10, 59, 109)}), (Ids{2}));
  EXPECT_TRUE(log.Has("cur class = 2, pre class = 1, costMatrix[0][0] = 0 ", kDebug));
  EXPECT_EQ(log.CountContaining("costMatrix ***** :(1.500000, 0.000000, 0.000000,"), 1);
  EXPECT_TRUE(log.Has("match result algo :(0, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
  EXPECT_TRUE(log.Has("match result :(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1)", kDebug));
  Ids q = Range(3, 30);
  q.push_back(1);
  EXPECT_EQ(t.Queue(), q);
  // Beside a body of its own class the class decides, not the overlap.
  EXPECT_EQ(t.Frame({Body(1, 10, 10, 59, 109), Body(2, 12, 10, 61, 109)}), (Ids{3, 2}));
}

TEST(BodyId, OverlapCountsInclusivePixels) {
  Tracker t;
  EXPECT_EQ(t.Frame({Body(1, 0, 0, 9, 9)}), (Ids{1}));
  LogCapture log;
  // Sharing the single pixel (9, 9): overlap 1 x 1, cost 1 - 1/199, still a match.
  EXPECT_EQ(t.Frame({Body(1, 9, 9, 18, 18)}), (Ids{1}));
  EXPECT_EQ(log.CountContaining("costMatrix ***** :(0.994975, 0.000000,"), 1);
  // Touching without a shared pixel: cost 1.0, rejected, a new ID.
  EXPECT_EQ(t.Frame({Body(1, 19, 0, 28, 8)}), (Ids{2}));
  EXPECT_EQ(log.CountContaining("costMatrix ***** :(1.000000, 0.000000,"), 1);
}

TEST(BodyId, LostIdsQueueUpBehindTheWaitingOnes) {
  Tracker t;
  t.h.freeBodyIds = {7, 8};
  // The queue runs dry: the third body keeps the ID it came with.
  EXPECT_EQ(t.Frame({Body(1, 0, 0, 9, 9, 3), Body(1, 100, 0, 109, 9, 5), Body(1, 200, 0, 209, 9, 1)}), (Ids{7, 8, 1}));
  t.last[0].bodyId = 9;  // previous IDs in an order unlike their numbers
  t.last[1].bodyId = 4;
  t.last[2].bodyId = 6;
  t.h.freeBodyIds = {11, 12};
  // Only the middle body stays; 9 and 6 go to the back in previous-body order.
  EXPECT_EQ(t.Frame({Body(1, 101, 0, 110, 9)}), (Ids{4}));
  EXPECT_EQ(t.Queue(), (Ids{11, 12, 9, 6}));
  EXPECT_EQ((Ids{t.h.lastBodyIDFlag[0], t.h.lastBodyIDFlag[1], t.h.lastBodyIDFlag[2]}), (Ids{0, 1, 0}));
  EXPECT_EQ(t.Frame({Body(1, 101, 0, 110, 9), Body(1, 300, 0, 309, 9), Body(1, 400, 0, 409, 9),
                     Body(1, 500, 0, 509, 9)}),
            (Ids{4, 11, 12, 9}));
  EXPECT_EQ(t.Queue(), (Ids{6}));
  EXPECT_EQ(t.Frame({}), (Ids{}));  // everyone lost
  EXPECT_EQ(t.Queue(), (Ids{6, 4, 11, 12, 9}));
}

TEST(BodyId, ThirtyBodiesAreAllNewBecauseTheSolveRefusesThem) {
  Tracker t;
  std::vector<BodyInfo> bodies;
  for (int32_t i = 0; i < 29; ++i) bodies.push_back(Body(1, i * 20, 0, i * 20 + 9, 9));
  EXPECT_EQ(t.Frame(bodies), Range(1, 29));
  LogCapture log;
  EXPECT_EQ(t.Frame(bodies), Range(1, 29));  // 29 x 29 is solved: everyone stays
  EXPECT_TRUE(log.Has("match result algo :(0, 1, 2, 3, 4, 5, 6, 7, 8, 9)", kDebug));
  EXPECT_TRUE(log.Has("match result :(0, 1, 2, 3, 4, 5, 6, 7, 8, 9)", kDebug));
  bodies.push_back(Body(1, 29 * 20, 0, 29 * 20 + 9, 9, 99));
  const Ids ids = t.Frame(bodies);
  EXPECT_TRUE(log.Has("HungarianAlgorithm nRows Error", kError));
  EXPECT_EQ((Ids{ids[0], ids[1], ids[29]}), (Ids{30, 0, 99}));  // then the queue is empty
  EXPECT_EQ(t.Queue(), Range(1, 29));
}

}  // namespace
