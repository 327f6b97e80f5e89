#include "association/body_id.h"

#include <algorithm>
#include <cstddef>

#include "api/algo_handle.h"
#include "association/hungarian.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"

namespace {

constexpr const char* kBodyIdFunc = "UpdateBodyID4FirstFrame";
// Cost of a pair of different classes: above every overlap cost (at most 1.0), so the
// assignment prefers any same-class pair, and rejected afterwards like a pair with no overlap.
constexpr float kCrossClassCost = 1.5f;
// Matches at or above this cost share no pixel (or differ in class) and are dropped.
constexpr float kRejectCost = 1.0f;

// 1 - intersection over union of two boxes with inclusive corners, so a box from x to x
// is one pixel wide. Sides are taken in 64 bits so that no coordinates overflow.
float OverlapCost(const BodyRoi& cur, const BodyRoi& pre) {
  const long long curH = static_cast<long long>(cur.bottom) - cur.top + 1;
  const long long curW = static_cast<long long>(cur.right) - cur.left + 1;
  const long long preH = static_cast<long long>(pre.bottom) - pre.top + 1;
  const long long preW = static_cast<long long>(pre.right) - pre.left + 1;
  const float curArea = static_cast<float>(static_cast<double>(curH) * static_cast<double>(curW));
  const float preArea = static_cast<float>(static_cast<double>(preH) * static_cast<double>(preW));
  float interH = static_cast<float>(std::min(cur.bottom, pre.bottom)) -
                 static_cast<float>(std::max(cur.top, pre.top)) + 1.0f;
  float interW = static_cast<float>(std::min(cur.right, pre.right)) -
                 static_cast<float>(std::max(cur.left, pre.left)) + 1.0f;
  interH = std::max(interH, 0.0f);
  interW = std::max(interW, 0.0f);
  const float inter = interW * interH;
  const float uni = curArea + preArea - inter;
  return 1.0f - inter / uni;
}

// Row i, column j: the cost of giving current body i the identity of previous body j.
void FillCostMatrix(const BodyInfo* cur, int curNum, const BodyInfo* pre, int preNum, float* costMatrix) {
  for (int i = 0; i < curNum; ++i) {
    for (int j = 0; j < preNum; ++j) {
      float& c = costMatrix[i * kCostStride + j];
      if (cur[i].classId != pre[j].classId) {
        ZY_LOGD("cur class = %d, pre class = %d, costMatrix[%d][%d] = 0 ", cur[i].classId, pre[j].classId, i,
                j);
        c = kCrossClassCost;
      } else {
        c = OverlapCost(cur[i].roi, pre[j].roi);
      }
    }
  }
}

// The optimal assignment with the matches that cannot stand taken out: each entry of
// `assignment` is a previous body's index, or -1 for a body that inherits nothing.
void SolveAssignment(AlgoHandle* algoHandle, float* costMatrix, int curNum, int preNum, int32_t* assignment) {
  int32_t useCount[MAX_INPLACE_NUM] = {};
  std::fill_n(assignment, MAX_INPLACE_NUM, -1);
  // The object carries no data; a handle that lacks it still gets a correct assignment.
  HungarianAlgorithm fallback;
  HungarianAlgorithm* solver = algoHandle->mHungarianAlgorithm != nullptr ? algoHandle->mHungarianAlgorithm
                                                                          : &fallback;
  // A failed solve leaves every entry at -1: every body is then new and every previous ID
  // returns to the queue. The result itself is not needed.
  (void)solver->Solve(costMatrix, curNum, preNum, assignment);
  ZY_LOGD("match result algo :(%d, %d, %d, %d, %d, %d, %d, %d, %d, %d)", assignment[0], assignment[1],
          assignment[2], assignment[3], assignment[4], assignment[5], assignment[6], assignment[7],
          assignment[8], assignment[9]);

  // Pairs without any shared pixel, or of different classes, are no match.
  for (int i = 0; i < curNum; ++i) {
    const int32_t a = assignment[i];
    if (a >= 0 && a < preNum && costMatrix[i * kCostStride + a] >= kRejectCost) assignment[i] = -1;
  }
  // An entry outside the previous bodies, or one previous body given twice, means the result
  // cannot be trusted: in the second case nobody inherits anything.
  for (int i = 0; i < curNum; ++i) {
    if (assignment[i] >= preNum || assignment[i] < -1) assignment[i] = -1;
    if (assignment[i] == -1) continue;
    if (useCount[assignment[i]]++ >= 1) {
      std::fill_n(assignment, MAX_INPLACE_NUM, -1);
      break;
    }
  }

  for (int i = 0; i < curNum; ++i) {
    const float* row = &costMatrix[i * kCostStride];
    ZY_LOGD("costMatrix ***** :(%f, %f, %f, %f, %f, %f, %f, %f, %f, %f)", static_cast<double>(row[0]),
            static_cast<double>(row[1]), static_cast<double>(row[2]), static_cast<double>(row[3]),
            static_cast<double>(row[4]), static_cast<double>(row[5]), static_cast<double>(row[6]),
            static_cast<double>(row[7]), static_cast<double>(row[8]), static_cast<double>(row[9]));
  }
  ZY_LOGD("match result :(%d, %d, %d, %d, %d, %d, %d, %d, %d, %d)", assignment[0], assignment[1], assignment[2],
          assignment[3], assignment[4], assignment[5], assignment[6], assignment[7], assignment[8],
          assignment[9]);
}

// A matched body inherits its predecessor's identity (and marks it taken); an unmatched one
// takes the front of the queue, or keeps the ID it came with when the queue is empty.
void AssignIds(AlgoHandle* algoHandle, BodyInfo* cur, int curNum, const BodyInfo* pre, const int32_t* assignment) {
  std::deque<int32_t>& freeIds = algoHandle->freeBodyIds;
  for (int i = 0; i < curNum; ++i) {
    const int32_t j = assignment[i];
    if (j != -1) {
      cur[i].bodyId = pre[j].bodyId;
      algoHandle->lastBodyIDFlag[j] = 1;
    } else if (!freeIds.empty()) {
      cur[i].bodyId = freeIds.front();
      freeIds.pop_front();
    }
  }
}

// Identities of previous bodies without a successor go back to the end of the queue, in
// order, so they are handed out again only after every ID already waiting.
void ReturnLostIds(AlgoHandle* algoHandle, const BodyInfo* pre, int preNum) {
  for (int j = 0; j < preNum; ++j) {
    if (algoHandle->lastBodyIDFlag[j] != 0) continue;
    try {
      algoHandle->freeBodyIds.push_back(pre[j].bodyId);
    } catch (...) {
      // Out of memory: this identity is lost to the queue, but nothing leaves the library.
      ZY_LOGE("%s freeBodyIds push error! id[%d]", kBodyIdFunc, pre[j].bodyId);
    }
  }
}

}  // namespace

void UpdateBodyID4FirstFrame(AlgoHandle* algoHandle, ParamIn* paramIn) {
  // With no current bodies nothing is read through the array, which may then be null: every
  // previous identity just goes back to the queue.
  if (algoHandle == nullptr || paramIn == nullptr || (paramIn->bodies == nullptr && paramIn->bodyNum != 0)) {
    ZY_LOGE("%s input params is NULL, error! \n", kBodyIdFunc);
    return;
  }
  const int curNum = paramIn->bodyNum;
  const int preNum = algoHandle->bodyNum;
  // Counts outside 0..30 are refused rather than clamped: a clamped previous count would
  // silently lose identities, and the 30 x 30 matrix and the 30 flags have no room for more.
  if (curNum < 0 || curNum > MAX_INPLACE_NUM || preNum < 0 || preNum > MAX_INPLACE_NUM) {
    ZY_LOGE("%s body number error! cur[%d] pre[%d]", kBodyIdFunc, curNum, preNum);
    return;
  }
  if (preNum > 0 && algoHandle->lastBodyInfo == nullptr) {
    ZY_LOGE("%s lastBodyInfo is NULL, error! \n", kBodyIdFunc);
    return;
  }
  BodyInfo* cur = paramIn->bodies;
  const BodyInfo* pre = algoHandle->lastBodyInfo;

  if (zy::memset_s(algoHandle->lastBodyIDFlag, kLastBodyIdFlagBytes, 0, kLastBodyIdFlagBytes) != 0) {
    ZY_LOG_MEM_ERROR(kBodyIdFunc, __LINE__);
  }
  float costMatrix[MAX_INPLACE_NUM * kCostStride] = {};  // row: current body, column: previous
  int32_t assignment[MAX_INPLACE_NUM];
  FillCostMatrix(cur, curNum, pre, preNum, costMatrix);
  SolveAssignment(algoHandle, costMatrix, curNum, preNum, assignment);
  AssignIds(algoHandle, cur, curNum, pre, assignment);
  ReturnLostIds(algoHandle, pre, preNum);
}
