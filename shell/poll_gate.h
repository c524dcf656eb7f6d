#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace arven::shell {

// Which long polls may wait for a change. At most `max_total` wait at once,
// and at most `max_per_client` of one client; a poll beyond either answers
// at once. So what waiting polls hold stays bounded, whatever a page or a
// script opens.
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
// window on top of it), told by their channels and polls. When one of them
// goes (its tab closed, reloaded, or sent on to the next window),
// shown_since() says whether another page of it came or is there: a reload
// shows a page again within a moment, a closed tab never does.
class TabPresence {
 public:
  using Clock = std::chrono::steady_clock;

  // A page of a main-tab window (its client id) begins and ends being shown.
  void poll_started(const std::string& client);
  void poll_ended(const std::string& client);

  // The page went: it is forgotten; returns when.
  Clock::time_point went(const std::string& client);
  // Whether, after `client`'s page went at `left`, another page is shown
  // or began to be shortly before.
  bool shown_since(const std::string& client, Clock::time_point left) const;

 private:
  bool other_page_locked(const std::string& client, Clock::time_point since) const;

  struct Page {
    int polling = 0;
    Clock::time_point last_start{};
  };
  mutable std::mutex mutex_;
  std::map<std::string, Page> pages_;
};

}  // namespace arven::shell
