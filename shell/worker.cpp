#include "shell/worker.h"

#include <exception>
#include <iostream>

namespace arven::shell {

Worker::~Worker() {
  stop();
}

void Worker::start() {
  thread_ = std::thread([this] {
    {
      std::lock_guard lock(mutex_);
      thread_id_ = std::this_thread::get_id();
    }
    run_until([] { return false; });
  });
  // Wait until the thread knows its id, so on_worker_thread() is exact.
  while (true) {
    std::lock_guard lock(mutex_);
    if (thread_id_ != std::thread::id()) break;
  }
}

void Worker::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    queue_.clear();
  }
  cv_.notify_all();
  if (thread_.joinable() && !on_worker_thread()) thread_.join();
}

void Worker::post(std::function<void()> event) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    queue_.push_back(std::move(event));
  }
  cv_.notify_all();
}

int Worker::pending() const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(queue_.size()) + running_;
}

void Worker::report_failure(const std::string& what) {
  std::cerr << "arven: a command failed: " << what << std::endl;
  if (on_failure) {
    try {
      on_failure(what);
    } catch (...) {
    }
  }
}

bool Worker::run_one(std::unique_lock<std::mutex>& lock) {
  if (queue_.empty()) return false;
  auto event = std::move(queue_.front());
  queue_.pop_front();
  ++running_;
  lock.unlock();
  try {
    event();
  } catch (const std::exception& e) {
    // A failure that logic did not foresee ends the command, not the program.
    report_failure(e.what());
  } catch (...) {
    report_failure("unknown failure");
  }
  if (after_event) after_event();
  lock.lock();
  --running_;
  return true;
}

void Worker::run_until(const std::function<bool()>& done) {
  std::unique_lock lock(mutex_);
  // A loop started from inside an event (a modal window) does not count
  // that event as work in progress.
  bool nested = running_ > 0;
  if (nested) ++nested_;
  while (!stopping_) {
    lock.unlock();
    bool finished = done();
    lock.lock();
    if (finished || stopping_) break;
    if (!run_one(lock)) cv_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
  }
  if (nested) --nested_;
}

bool Worker::busy() const {
  std::lock_guard lock(mutex_);
  return !queue_.empty() || running_ > nested_;
}

}  // namespace arven::shell
