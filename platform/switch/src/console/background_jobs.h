#pragma once

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "console/api_line.h"

namespace kvx_switch {

/// A client that runs a long command must not wait for it. A job runs one command on a thread of its own and fires what
/// it wrote as a BACKGROUND_JOB event, with the job's uuid, command and arguments. Jobs outlive the client that started
/// them. Any thread may call anything but Stop from inside a job.
class BackgroundJobs {
 public:
  static constexpr size_t kMostAtOnce = 100;

  explicit BackgroundJobs(ApiRunner run_api) : run_api_(std::move(run_api)) {}
  ~BackgroundJobs() { Stop(); }
  BackgroundJobs(const BackgroundJobs&) = delete;
  BackgroundJobs& operator=(const BackgroundJobs&) = delete;

  /// False, and nothing runs, when kMostAtOnce jobs run already, no thread is to be had, or after Stop.
  bool Start(const std::string& uuid, const ApiLine& line);
  /// Waits for the jobs that run; no more begin.
  void Stop();

 private:
  struct Job {
    std::atomic<bool> done{false};
    std::thread thread;
  };

  void Run(const std::string& uuid, const ApiLine& line) const;
  std::list<std::unique_ptr<Job>> TakeDone();

  const ApiRunner run_api_;
  std::mutex mutex_;
  std::list<std::unique_ptr<Job>> jobs_;  // guarded by mutex_
  bool stopped_ = false;                  // guarded by mutex_
};

}  // namespace kvx_switch
