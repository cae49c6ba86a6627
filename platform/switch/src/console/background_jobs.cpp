#include "console/background_jobs.h"

#include <switch.h>

#include <iterator>
#include <system_error>
#include <utility>

namespace kvx_switch {

bool BackgroundJobs::Start(const std::string& uuid, const ApiLine& line) {
  for (const auto& job : TakeDone()) job->thread.join();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_ || jobs_.size() >= kMostAtOnce) return false;
  jobs_.push_back(std::make_unique<Job>());
  Job& job = *jobs_.back();
  try {
    job.thread = std::thread([this, &job, uuid, line] {
      Run(uuid, line);
      job.done = true;
    });
  } catch (const std::system_error&) {
    jobs_.pop_back();
    return false;
  }
  return true;
}

std::list<std::unique_ptr<BackgroundJobs::Job>> BackgroundJobs::TakeDone() {
  std::list<std::unique_ptr<Job>> done;
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto job = jobs_.begin(); job != jobs_.end();) {
    const auto next = std::next(job);
    if ((*job)->done) done.splice(done.end(), jobs_, job);
    job = next;
  }
  return done;
}

void BackgroundJobs::Stop() {
  std::list<std::unique_ptr<Job>> last;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    last.swap(jobs_);
  }
  for (const auto& job : last) job->thread.join();
}

void BackgroundJobs::Run(const std::string& uuid, const ApiLine& line) const {
  const std::string output = RunApiLine(run_api_, line);
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, SWITCH_EVENT_BACKGROUND_JOB) != SWITCH_STATUS_SUCCESS) return;
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Job-UUID", uuid.c_str());
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Job-Command", line.command.c_str());
  if (!line.arguments.empty()) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Job-Command-Arg", line.arguments.c_str());
  }
  switch_event_add_body(event, "%s", output.c_str());
  if (switch_event_fire(&event) != SWITCH_STATUS_SUCCESS) switch_event_destroy(&event);
}

}  // namespace kvx_switch
