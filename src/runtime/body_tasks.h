// The two per-frame tasks: one parallel loop over the bodies of a frame.
#pragma once

#include <functional>
#include <memory>

#include "runtime/qtx.h"

// A loop over body indices run through the session's partitioners. Do() calls the base's
// Do(), runs the partitioner that the guider names and waits for it, then marks the task
// finished.
class BodyLoopTask : public QTX::CTaskBase {
 public:
  BodyLoopTask(const std::shared_ptr<QTX::ISession>& session,
               std::function<void(QTX::Range<int>)> body, QTX::Range<int> range,
               const std::shared_ptr<QTX::Guider>& guider);
  ~BodyLoopTask() override;
  int Do() override;

 private:
  std::function<void(QTX::Range<int>)> body_;
  QTX::Range<int> range_;
  const std::shared_ptr<QTX::Guider>& guider_;
};

// Initialises one tracker per body on a re-initialisation frame.
class BodyInitTask final : public BodyLoopTask {
 public:
  using BodyLoopTask::BodyLoopTask;
};

// Updates every tracker on a tracking frame.
class BodyUpdateTask final : public BodyLoopTask {
 public:
  using BodyLoopTask::BodyLoopTask;
};
