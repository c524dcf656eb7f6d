#include "shell/poll_gate.h"

namespace arven::shell {

PollGate::PollGate(size_t max_total, size_t max_per_client)
    : max_total_(max_total), max_per_client_(max_per_client) {}

PollGate::Ticket::Ticket(PollGate& gate, std::string client)
    : gate_(gate), client_(std::move(client)) {}

PollGate::Ticket::~Ticket() {
  std::lock_guard lock(gate_.mutex_);
  --gate_.total_;
  if (--gate_.per_client_[client_] == 0) gate_.per_client_.erase(client_);
}

std::unique_ptr<PollGate::Ticket> PollGate::enter(const std::string& client) {
  std::lock_guard lock(mutex_);
  auto it = per_client_.find(client);
  const size_t mine = it == per_client_.end() ? 0 : it->second;
  if (total_ >= max_total_ || mine >= max_per_client_) return nullptr;
  ++total_;
  ++per_client_[client];
  return std::make_unique<Ticket>(*this, client);
}

size_t PollGate::waiting() const {
  std::lock_guard lock(mutex_);
  return total_;
}

// A poll that began this long before a page went may be its successor's:
// the beacon of a page that goes can arrive after the next page's first poll.
constexpr std::chrono::seconds kBeforeLeaving{2};
// Pages not heard of for this long are forgotten.
constexpr std::chrono::minutes kForget{2};

void TabPresence::poll_started(const std::string& client) {
  std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  for (auto it = pages_.begin(); it != pages_.end();)
    it = it->second.polling == 0 && now - it->second.last_start > kForget ? pages_.erase(it)
                                                                          : std::next(it);
  Page& p = pages_[client];
  ++p.polling;
  p.last_start = now;
}

void TabPresence::poll_ended(const std::string& client) {
  std::lock_guard lock(mutex_);
  auto it = pages_.find(client);
  if (it != pages_.end() && it->second.polling > 0) --it->second.polling;
}

bool TabPresence::other_page_locked(const std::string& client, Clock::time_point since) const {
  for (const auto& [id, page] : pages_)
    if (id != client && (page.polling > 0 || page.last_start >= since)) return true;
  return false;
}

TabPresence::Clock::time_point TabPresence::went(const std::string& client) {
  std::lock_guard lock(mutex_);
  pages_.erase(client);  // that page shows no more
  return Clock::now();
}

bool TabPresence::shown_since(const std::string& client, Clock::time_point left) const {
  std::lock_guard lock(mutex_);
  return other_page_locked(client, left - kBeforeLeaving);
}

}  // namespace arven::shell
