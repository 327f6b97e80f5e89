#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <new>
#include <thread>

#include "runtime/qtx.h"

namespace QTX {

// Session and worker pool. One loop at a time owns the pool; it publishes a job (the body, the
// range and a chunk size), wakes the workers and works on chunks itself; workers and caller
// claim chunks from an atomic counter. A loop that finds the pool taken, or no workers, runs
// on its own thread. No allocation happens per loop.
class SessionImpl final : public ISession {
 public:
  // Ceiling on worker threads whatever the options and the cores say.
  static constexpr int kMaxWorkers = 15;

  SessionImpl() = default;
  ~SessionImpl() override { Stop(); }

  void SetOptionA(int value) override { optionA_ = value; }  // accepted; no meaning here
  void SetName(const char* name) override { named_ = name != nullptr; }
  // Option B caps the threads of a loop (workers plus the caller).
  void SetOptionB(int value) override { maxThreads_.store(value); }
  // Option C names the partitioner (GuiderKind; values other than 0, 1, 3 pick dynamic).
  void SetOptionC(int value) override { guider_->kind = value; }
  void SetOptionD(void* context, int flags) override {
    context_ = context;
    optionD_ = flags;
  }
  const std::shared_ptr<Guider>& GetGuider() override { return guider_; }

  bool Valid() const { return guider_ != nullptr; }
  void AttachGuider(std::shared_ptr<Guider> g) {
    guider_ = std::move(g);
    guider_->owner = this;
  }

  // Workers: min(option B, hardware threads) - 1, the caller being the last thread of a
  // loop, so two cores get one worker beside the caller; at most kMaxWorkers.
  int Start() {
    // Stopping the old workers and starting the new ones is one step under the pool's lock:
    // two handles created at once on two threads would otherwise both find the pool empty
    // and the second would overwrite a running worker's std::thread (std::terminate).
    std::lock_guard<std::mutex> job(jobMutex_);  // no loop is running while workers change
    StopWorkers();
    const unsigned hw = std::max(1u, std::thread::hardware_concurrency());
    int threads = maxThreads_.load();
    if (threads <= 0) threads = static_cast<int>(hw);
    threads = std::min(threads, static_cast<int>(hw));
    const int want = std::clamp(threads - 1, 0, kMaxWorkers);
    uint64_t generation = 0;
    {
      std::lock_guard<std::mutex> lk(m_);
      stop_ = false;
      generation = generation_;
    }
    int started = 0;
    for (int i = 0; i < want; ++i) {
      try {
        // The worker starts from the generation current now, so a loop published before the
        // thread gets to run is not missed.
        workers_[i] = std::thread([this, generation] { WorkerLoop(generation); });
        ++started;
      } catch (...) {
        break;  // fewer workers; loops still complete on the threads that exist
      }
    }
    workerCount_.store(started);
    return 0;
  }

  void Stop() {
    std::lock_guard<std::mutex> job(jobMutex_);  // waits for a running loop to finish
    StopWorkers();
  }

  int Workers() const { return workerCount_.load(); }

  // Runs fn over range in chunks of `chunk` indices on the pool (or inline).
  void Run(const std::function<void(Range<int>)>& fn, const Range<int>& range, int chunk) {
    const int count = RangeCount(range);
    if (count <= 0) return;
    if (chunk < 1) chunk = 1;
    const int chunks = (count + chunk - 1) / chunk;
    if (workerCount_.load() == 0 || chunks == 1 || !jobMutex_.try_lock()) {
      RunInline(fn, range, chunk, chunks);
      return;
    }
    if (workerCount_.load() == 0) {  // stopped between the test and the lock
      jobMutex_.unlock();
      RunInline(fn, range, chunk, chunks);
      return;
    }
    {
      std::unique_lock<std::mutex> lk(m_);
      job_ = Job{&fn, range, chunk, chunks};
      nextChunk_.store(0);
      remaining_.store(chunks);
      jobOpen_ = true;
      ++generation_;
    }
    cvWork_.notify_all();
    WorkOnJob(job_);
    {
      std::unique_lock<std::mutex> lk(m_);
      cvDone_.wait(lk, [this] { return remaining_.load() == 0 && busy_ == 0; });
      jobOpen_ = false;
    }
    jobMutex_.unlock();
  }

 private:
  struct Job {
    const std::function<void(Range<int>)>* fn = nullptr;
    Range<int> range{0, 0, 1};
    int chunk = 1;
    int chunks = 0;
  };

  // Wakes and joins every worker; the caller holds jobMutex_.
  void StopWorkers() {
    {
      std::lock_guard<std::mutex> lk(m_);
      stop_ = true;
    }
    cvWork_.notify_all();
    const int n = workerCount_.exchange(0);
    for (int i = 0; i < n; ++i) {
      if (workers_[i].joinable()) workers_[i].join();
    }
  }

  static Range<int> Chunk(const Range<int>& r, int chunk, int c, int count) {
    const int first = c * chunk;
    const int n = std::min(chunk, count - first);
    const int b = r.begin + first * r.step;
    return Range<int>{b, b + n * r.step, r.step};
  }

  static void RunInline(const std::function<void(Range<int>)>& fn, const Range<int>& r, int chunk,
                        int chunks) {
    const int count = RangeCount(r);
    for (int c = 0; c < chunks; ++c) fn(Chunk(r, chunk, c, count));
  }

  void WorkOnJob(const Job& job) {
    const int count = RangeCount(job.range);
    for (;;) {
      const int c = nextChunk_.fetch_add(1);
      if (c >= job.chunks) break;
      (*job.fn)(Chunk(job.range, job.chunk, c, count));
      if (remaining_.fetch_sub(1) == 1) {
        std::lock_guard<std::mutex> lk(m_);
        cvDone_.notify_all();
      }
    }
  }

  void WorkerLoop(uint64_t seen) {
    for (;;) {
      Job job;
      {
        std::unique_lock<std::mutex> lk(m_);
        cvWork_.wait(lk, [&] { return stop_ || generation_ != seen; });
        if (stop_) return;
        seen = generation_;
        if (!jobOpen_) continue;  // woke after that loop had already finished
        job = job_;
        ++busy_;
      }
      WorkOnJob(job);
      {
        std::lock_guard<std::mutex> lk(m_);
        if (--busy_ == 0) cvDone_.notify_all();
      }
    }
  }

  std::shared_ptr<Guider> guider_;
  std::atomic<int> maxThreads_{0};
  // Every handle's create configures the one session, also from different threads at once.
  std::atomic<int> optionA_{0};
  std::atomic<int> optionD_{0};
  std::atomic<void*> context_{nullptr};
  std::atomic<bool> named_{false};

  std::thread workers_[kMaxWorkers];
  std::atomic<int> workerCount_{0};
  std::mutex jobMutex_;  // held by the loop that owns the pool, and by Start/Stop
  std::mutex m_;         // guards the fields below
  std::condition_variable cvWork_;
  std::condition_variable cvDone_;
  bool stop_ = true;
  bool jobOpen_ = false;
  uint64_t generation_ = 0;
  int busy_ = 0;
  Job job_;
  std::atomic<int> nextChunk_{0};
  std::atomic<int> remaining_{0};
};

std::shared_ptr<ISession> CreateSession() {
  try {
    auto session = std::make_shared<SessionImpl>();
    session->AttachGuider(std::make_shared<Guider>());
    return session;
  } catch (...) {
    return nullptr;
  }
}

int InitRuntime(const std::shared_ptr<ISession>& session) {
  auto* impl = static_cast<SessionImpl*>(session.get());
  if (impl == nullptr || !impl->Valid()) return -1;
  return impl->Start();
}

void UninitRuntime(std::shared_ptr<ISession>& session) {
  auto* impl = static_cast<SessionImpl*>(session.get());
  if (impl != nullptr) impl->Stop();
}

int WorkerCount(const std::shared_ptr<ISession>& session) {
  auto* impl = static_cast<SessionImpl*>(session.get());
  return impl != nullptr ? impl->Workers() : 0;
}

namespace {
// Threads a loop can use: the workers plus the caller.
int LoopThreads(const std::shared_ptr<Guider>& guider) {
  return 1 + (guider && guider->owner ? guider->owner->Workers() : 0);
}

void RunOnPool(const std::function<void(Range<int>)>& fn, const Range<int>& range,
               const std::shared_ptr<Guider>& guider, int chunk) {
  if (guider && guider->owner) {
    guider->owner->Run(fn, range, chunk);
  } else {
    const int count = RangeCount(range);
    if (count > 0) fn(range);
  }
}
}  // namespace

template <typename T>
void CParallelForPartitioner<T>::SerialPartitioner(const Body& fn, Range<T>& range,
                                                   const std::shared_ptr<Guider>&) const {
  if (RangeCount(range) > 0) fn(range);
}

template <typename T>
void CParallelForPartitioner<T>::StaticPartitioner(const Body& fn, Range<T>& range,
                                                   const std::shared_ptr<Guider>& guider) const {
  const int threads = LoopThreads(guider);
  const int count = RangeCount(range);
  RunOnPool(fn, range, guider, (count + threads - 1) / threads);
}

template <typename T>
void CParallelForPartitioner<T>::DynamicPartitioner(const Body& fn, Range<T>& range,
                                                    const std::shared_ptr<Guider>& guider) const {
  RunOnPool(fn, range, guider, 1);
}

template <typename T>
void CParallelForPartitioner<T>::HeuristicPartitioner(const Body& fn, Range<T>& range,
                                                      const std::shared_ptr<Guider>& guider) const {
  const int threads = LoopThreads(guider);
  RunOnPool(fn, range, guider, RangeCount(range) / (4 * threads));
}

template class CParallelForPartitioner<int>;

}  // namespace QTX

namespace {
std::shared_ptr<QTX::ISession> gSession;
std::mutex gSessionMutex;
std::atomic<bool> gSessionSet{false};
}  // namespace

std::shared_ptr<QTX::ISession>& GetSession() {
  if (gSessionSet.load(std::memory_order_acquire)) return gSession;
  std::lock_guard<std::mutex> lk(gSessionMutex);
  if (!gSession) {
    gSession = QTX::CreateSession();
    gSessionSet.store(gSession != nullptr, std::memory_order_release);
  }
  return gSession;
}

bool InitSession(const char* name, void* extra) {
  if (name == nullptr) return false;
  auto& session = GetSession();
  if (session) {
    session->SetName(name);
    session->SetOptionB(6);
    session->SetOptionA(1);
    session->SetOptionC(4);
    if (extra != nullptr) session->SetOptionD(extra, 1);
  }
  if (QTX::InitRuntime(session) != 0) {
    std::printf("runtime init failed!\n");
    return false;
  }
  return true;
}

void UninitSession() { QTX::UninitRuntime(GetSession()); }
