#include "runtime/body_tasks.h"

BodyLoopTask::BodyLoopTask(const std::shared_ptr<QTX::ISession>& session,
                           std::function<void(QTX::Range<int>)> body, QTX::Range<int> range,
                           const std::shared_ptr<QTX::Guider>& guider)
    : QTX::CTaskBase(session), body_(std::move(body)), range_(range), guider_(guider) {}

BodyLoopTask::~BodyLoopTask() = default;

int BodyLoopTask::Do() {
  QTX::CTaskBase::Do();
  const QTX::CParallelForPartitioner<int> partitioner;
  const int kind = guider_ ? guider_->kind.load() : static_cast<int>(QTX::kSerial);
  if (kind == QTX::kHeuristic) {
    partitioner.HeuristicPartitioner(body_, range_, guider_);
  } else if (kind == QTX::kStatic) {
    partitioner.StaticPartitioner(body_, range_, guider_);
  } else if (kind == QTX::kSerial) {
    partitioner.SerialPartitioner(body_, range_, guider_);
  } else {
    partitioner.DynamicPartitioner(body_, range_, guider_);
  }
  QTX::CTaskBase::OnFinish();
  return 0;
}
