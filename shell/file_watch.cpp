#include "shell/file_watch.h"

#include <chrono>

#include "core/session.h"

namespace arven::shell {

FileWatch::FileWatch(Worker& worker, std::function<void()> changed)
    : worker_(worker), changed_(std::move(changed)) {
  thread_ = std::thread([this] {
    std::unique_lock lock(mutex_);
    while (!cv_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; })) {
      // One check in the queue at a time, and none while nothing is watched.
      if (watching_ && !queued_.exchange(true)) worker_.post([this] { check(); });
    }
  });
}

FileWatch::~FileWatch() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  cv_.notify_all();
  thread_.join();
}

void FileWatch::update() {
  const Session& s = session();
  const bool watch = s.current_file_read_only && !s.current_file.empty();
  if (!watch || s.current_file != path_) {
    path_ = watch ? s.current_file : std::string();
    seen_ = watch ? engine_detail::stamp_of(path_) : std::nullopt;
  }
  watching_ = watch;
}

void FileWatch::check() {
  queued_ = false;
  if (path_.empty()) return;
  const std::optional<engine_detail::FileStamp> now = engine_detail::stamp_of(path_);
  if (!now) return;  // being written (a journal beside it): seen at the next check
  const bool changed = seen_ && *now != *seen_;
  seen_ = now;
  if (changed && changed_) changed_();
}

}  // namespace arven::shell
