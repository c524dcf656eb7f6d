#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "engine/impact_context.h"
#include "shell/worker.h"

namespace arven::shell {

// Watches the open assessment file while it is open read-only (another
// program holds it and may change it): once a second the worker compares the
// file with what it saw last, and when it has changed `changed` runs there,
// so that no count on show goes stale.
class FileWatch {
 public:
  FileWatch(Worker& worker, std::function<void()> changed);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // On the worker after each event: starts or stops watching as the open
  // file is read-only or not.
  void update();

 private:
  void check();  // on the worker

  Worker& worker_;
  std::function<void()> changed_;
  std::atomic<bool> watching_{false};
  std::atomic<bool> queued_{false};
  std::mutex mutex_;
  std::condition_variable cv_;
  bool stopping_ = false;
  std::thread thread_;
  // Worker only: the file watched and its stamp when last seen.
  std::string path_;
  std::optional<engine_detail::FileStamp> seen_;
};

}  // namespace arven::shell
