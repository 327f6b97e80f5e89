#include "runtime/qtx.h"

namespace QTX {

CTaskBase::CTaskBase(const std::shared_ptr<ISession>& session) : session_(session) {}
CTaskBase::~CTaskBase() = default;

void CTaskBase::SetDebug(bool on) { debug_ = on; }
void CTaskBase::SetTaskGuider(std::shared_ptr<Guider> guider) { guider_ = std::move(guider); }

int CTaskBase::Submit() {
  if (status_ == kTaskCancelled) return -1;
  return Do();
}

int CTaskBase::Cancel() { return Cancel(false); }
int CTaskBase::Cancel(bool) {
  if (status_ == kTaskRunning) return -1;  // a running loop always completes
  status_ = kTaskCancelled;
  return 0;
}

int CTaskBase::ResetStatus() { return ResetStatus(false, false); }
int CTaskBase::ResetStatus(bool keepFlag) { return ResetStatus(keepFlag, false); }
int CTaskBase::ResetStatus(bool keepFlag, bool keepGuider) {
  status_ = kTaskIdle;
  if (!keepFlag) flag_ = 0;
  if (!keepGuider) guider_.reset();
  return 0;
}

int CTaskBase::Do() {
  status_ = kTaskRunning;
  return 0;
}

void CTaskBase::OnFinish() {
  status_ = kTaskFinished;
  if (next_ != nullptr) next_->Submit();
}

ITask* CTaskBase::Then(ITask* next) {
  next_ = next;
  return next;
}

// Tasks run synchronously, so a task is finished once Do() has returned.
int CTaskBase::WaitFinish() { return status_ == kTaskFinished ? 0 : -1; }
int CTaskBase::WaitFinish(unsigned int) { return WaitFinish(); }
int CTaskBase::GetRunningDev() { return 0; }  // the CPU
int CTaskBase::GetTaskFlag() { return flag_ | (debug_ ? 1 : 0); }
int CTaskBase::GetTaskStatus() { return status_; }
std::shared_ptr<ISession> CTaskBase::GetSession() { return session_; }

}  // namespace QTX
