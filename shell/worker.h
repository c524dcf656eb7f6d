#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace arven::shell {

// The one thread that runs all logic. Other threads only post events to
// its queue. A one-shot timer is an event posted behind the current one, so
// the event that set it finishes first; a modal window runs a nested loop
// over the same queue until it closes.
class Worker {
 public:
  Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  void start();
  // Ends the loop after the event that is running; queued events are dropped.
  void stop();

  // Queues an event; callable from any thread.
  void post(std::function<void()> event);
  // Runs events on the calling (worker) thread until `done` is true or the
  // worker is stopped: the loop of a modal window.
  void run_until(const std::function<bool()>& done);
  bool on_worker_thread() const { return std::this_thread::get_id() == thread_id_; }
  // Events queued or running; 0 when idle.
  int pending() const;
  // True while an event is queued or running outside a modal window's loop.
  bool busy() const;

  // Called on the worker after every event (the shell republishes windows).
  std::function<void()> after_event;
  // Called on the worker when an event fails with an exception.
  std::function<void(const std::string&)> on_failure;

 private:
  bool run_one(std::unique_lock<std::mutex>& lock);
  void report_failure(const std::string& what);

  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<std::function<void()>> queue_;
  bool stopping_ = false;
  int running_ = 0;
  int nested_ = 0;
  std::thread thread_;
  std::thread::id thread_id_;
};

}  // namespace arven::shell
