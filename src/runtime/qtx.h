// The task-parallel runtime the tracking loop runs on: one process-wide session owning a pool
// of worker threads, tasks derived from CTaskBase, and parallel-for partitioners over
// Range<int>. Workers start at InitRuntime, sleep on a condition variable between loops and
// are joined at UninitRuntime; a loop run while the runtime is stopped (or while another loop
// holds the pool) runs on the calling thread, so every index is processed exactly once and
// the call always returns after all of them.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace QTX {

template <typename T>
struct Range {
  T begin;
  T end;
  T step;
};

// Number of indices a range visits: begin, begin + step, ... while short of end.
template <typename T>
T RangeCount(const Range<T>& r) {
  if (r.step > 0) return r.end > r.begin ? (r.end - r.begin + r.step - 1) / r.step : 0;
  if (r.step < 0) return r.begin > r.end ? (r.begin - r.end - r.step - 1) / -r.step : 0;
  return 0;
}

// Calls fn(i) for every index of r in order.
template <typename T, typename Fn>
void ForEachIndex(const Range<T>& r, Fn&& fn) {
  const T n = RangeCount(r);
  T i = r.begin;
  for (T k = 0; k < n; ++k, i += r.step) fn(i);
}

// Range over 0..n: step +1 when n >= 1, else -1 (which visits nothing).
inline Range<int> MakeLoopRange(int n) { return Range<int>{0, n, n >= 1 ? 1 : -1}; }

enum GuiderKind : int32_t { kSerial = 0, kStatic = 1, kDynamic = 2, kHeuristic = 3 };

class SessionImpl;

// Scheduling guidance held by the session; the first field names the partitioner. It is
// atomic because a handle created on one thread reconfigures the session while a loop of
// another handle may be reading it.
struct Guider {
  std::atomic<int32_t> kind{kDynamic};
  SessionImpl* owner = nullptr;  // the session whose workers run the loops
};

class ISession {
 public:
  virtual ~ISession() = default;
  virtual void SetOptionA(int value) = 0;
  virtual void SetName(const char* name) = 0;
  virtual void SetOptionB(int value) = 0;
  virtual void SetOptionC(int value) = 0;
  virtual void SetOptionD(void* context, int flags) = 0;
  virtual const std::shared_ptr<Guider>& GetGuider() = 0;
};

// A new, unconfigured session (empty when memory is short).
std::shared_ptr<ISession> CreateSession();
// Starts the workers for the configured session; 0 on success. Restarts them when running.
int InitRuntime(const std::shared_ptr<ISession>& session);
// Joins the workers; a later InitRuntime may start them again.
void UninitRuntime(std::shared_ptr<ISession>& session);
// Worker threads currently running for the session (the caller's thread not counted).
int WorkerCount(const std::shared_ptr<ISession>& session);

class ITask {
 public:
  virtual ~ITask() = default;
  virtual void SetDebug(bool on) = 0;
  virtual void SetTaskGuider(std::shared_ptr<Guider> guider) = 0;
  virtual int Submit() = 0;
  virtual int Cancel() = 0;
  virtual int Cancel(bool wait) = 0;
  virtual int ResetStatus() = 0;
  virtual int ResetStatus(bool keepFlag) = 0;
  virtual int ResetStatus(bool keepFlag, bool keepGuider) = 0;
  virtual int Do() = 0;
  virtual ITask* Then(ITask* next) = 0;
  virtual int WaitFinish() = 0;
  virtual int WaitFinish(unsigned int timeoutMs) = 0;
  virtual int GetRunningDev() = 0;
  virtual int GetTaskFlag() = 0;
  virtual int GetTaskStatus() = 0;
  virtual std::shared_ptr<ISession> GetSession() = 0;
};

enum TaskStatus : int { kTaskIdle = 0, kTaskRunning = 1, kTaskFinished = 2, kTaskCancelled = 3 };

// Base of every task: status bookkeeping. Submit() runs Do() on the calling thread.
class CTaskBase : public ITask {
 public:
  explicit CTaskBase(const std::shared_ptr<ISession>& session);
  ~CTaskBase() override;
  void SetDebug(bool on) override;
  void SetTaskGuider(std::shared_ptr<Guider> guider) override;
  int Submit() override;
  int Cancel() override;
  int Cancel(bool wait) override;
  int ResetStatus() override;
  int ResetStatus(bool keepFlag) override;
  int ResetStatus(bool keepFlag, bool keepGuider) override;
  int Do() override;  // marks the task running
  ITask* Then(ITask* next) override;
  int WaitFinish() override;
  int WaitFinish(unsigned int timeoutMs) override;
  int GetRunningDev() override;
  int GetTaskFlag() override;
  int GetTaskStatus() override;
  std::shared_ptr<ISession> GetSession() override;
  void OnFinish();  // marks the task finished and runs the chained task, if any

 private:
  std::shared_ptr<ISession> session_;
  std::shared_ptr<Guider> guider_;
  ITask* next_ = nullptr;
  int status_ = kTaskIdle;
  int flag_ = 0;
  bool debug_ = false;
};

// Parallel-for over a Range: each call splits the range into sub-ranges, calls fn once per
// sub-range (each index exactly once) and returns when every call has finished.
template <typename T>
class CParallelForPartitioner {
 public:
  using Body = std::function<void(Range<T>)>;
  // The whole range on the calling thread.
  void SerialPartitioner(const Body& fn, Range<T>& range, const std::shared_ptr<Guider>& guider) const;
  // One contiguous block per thread.
  void StaticPartitioner(const Body& fn, Range<T>& range, const std::shared_ptr<Guider>& guider) const;
  // One index at a time, taken by whichever thread is free.
  void DynamicPartitioner(const Body& fn, Range<T>& range, const std::shared_ptr<Guider>& guider) const;
  // Blocks of about a quarter of a fair share, taken by whichever thread is free.
  void HeuristicPartitioner(const Body& fn, Range<T>& range, const std::shared_ptr<Guider>& guider) const;
};

extern template class CParallelForPartitioner<int>;

}  // namespace QTX

// The process-wide session: created on first use under a mutex, released at process exit.
std::shared_ptr<QTX::ISession>& GetSession();
// Configures and starts the process-wide session; false for a null name or a failed start.
bool InitSession(const char* name, void* extra);
// Stops the process-wide session's workers.
void UninitSession();
