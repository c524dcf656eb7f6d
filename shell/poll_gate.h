#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace arven::shell {

// The server's threads: one per connection being served, started when every
// thread is busy, up to `max_threads`. A long poll or an idle keep-alive
// connection holds a thread, so a fixed small pool would let a few of them
// starve every command.
class ElasticPool : public httplib::TaskQueue {
 public:
  explicit ElasticPool(size_t max_threads);
  ~ElasticPool() override;

  void enqueue(std::function<void()> fn) override;
  void shutdown() override;

 private:
  void run();

  const size_t max_threads_;
  std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  bool stopping_ = false;
};

// Which long polls may wait for a change. At most `max_total` wait at once,
// and at most `max_per_client` of one client; a poll beyond either answers
// at once. So waiting polls never hold more than a bounded share of the
// threads, whatever a page or a script opens.
class PollGate {
 public:
  PollGate(size_t max_total, size_t max_per_client);

  // A poll admitted to wait; it leaves the gate when destroyed.
  class Ticket {
   public:
    Ticket(PollGate& gate, std::string client);
    ~Ticket();
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;

   private:
    PollGate& gate_;
    std::string client_;
  };

  // A ticket when the poll may wait, nullptr when it must answer at once.
  std::unique_ptr<Ticket> enter(const std::string& client);
  // Polls waiting now.
  size_t waiting() const;

 private:
  const size_t max_total_, max_per_client_;
  mutable std::mutex mutex_;
  size_t total_ = 0;
  std::map<std::string, size_t> per_client_;
};

// Which pages show the main browser tab (the main window, or the modal
// window on top of it), told by their polls. When one of them goes (its tab
// closed, reloaded, or sent on to the next window) still_shown() says
// whether another page of it came or is there: a reload polls again within
// a moment, a closed tab never does.
class TabPresence {
 public:
  using Clock = std::chrono::steady_clock;

  // A poll of a main-tab window by a page (its client id) starts and ends.
  void poll_started(const std::string& client);
  void poll_ended(const std::string& client);

  // After `client`'s page went: waits up to `grace` for a poll of another
  // page, true as soon as one is polling or has begun since shortly before
  // the page went; false when none came, or at once when `keep_waiting`
  // turns false.
  bool still_shown(const std::string& client, std::chrono::milliseconds grace,
                   const std::function<bool()>& keep_waiting = {});

 private:
  bool other_page_locked(const std::string& client, Clock::time_point since) const;

  struct Page {
    int polling = 0;
    Clock::time_point last_start{};
  };
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::map<std::string, Page> pages_;
};

// Watches the client end of one connection of this process: the socket
// whose local and remote ports are those of a request. gone() is true once
// the client has closed it, so a poll need not wait for nobody.
class ConnectionWatch {
 public:
  ConnectionWatch(int local_port, int remote_port);
  bool gone() const;

 private:
  int fd_ = -1;
  int local_port_ = -1, remote_port_ = -1;
};

}  // namespace arven::shell
