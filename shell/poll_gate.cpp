#include "shell/poll_gate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <filesystem>

namespace arven::shell {

ElasticPool::ElasticPool(size_t max_threads) : max_threads_(max_threads) {}

ElasticPool::~ElasticPool() {
  shutdown();
}

void ElasticPool::enqueue(std::function<void()> fn) {
  std::lock_guard lock(mutex_);
  if (stopping_) return;
  jobs_.push_back(std::move(fn));
  if (idle_ < jobs_.size() && threads_.size() < max_threads_)
    threads_.emplace_back([this] { run(); });
  cv_.notify_one();
}

void ElasticPool::shutdown() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
  }
  cv_.notify_all();
  for (auto& t : threads)
    if (t.joinable()) t.join();
}

void ElasticPool::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    cv_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    --idle_;
    if (jobs_.empty()) return;  // stopping, nothing left to serve
    auto job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    lock.lock();
  }
}

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
  cv_.notify_all();
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

bool TabPresence::still_shown(const std::string& client, std::chrono::milliseconds grace,
                              const std::function<bool()>& keep_waiting) {
  const auto left = Clock::now();
  const auto deadline = left + grace;
  std::unique_lock lock(mutex_);
  pages_.erase(client);  // that page polls no more
  while (!other_page_locked(client, left - kBeforeLeaving)) {
    const auto slice = std::min(deadline, Clock::now() + std::chrono::milliseconds(200));
    cv_.wait_until(lock, slice);
    if (Clock::now() >= deadline) return other_page_locked(client, left - kBeforeLeaving);
    if (keep_waiting) {
      lock.unlock();
      const bool more = keep_waiting();
      lock.lock();
      if (!more) return true;
    }
  }
  return true;
}

namespace {

int port_of(const sockaddr_storage& a) {
  if (a.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(a).sin_port);
  if (a.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(a).sin6_port);
  return -1;
}

bool socket_ports(int fd, int& local, int& remote) {
  sockaddr_storage a{};
  socklen_t len = sizeof a;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) return false;
  local = port_of(a);
  len = sizeof a;
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) return false;
  remote = port_of(a);
  return true;
}

}  // namespace

ConnectionWatch::ConnectionWatch(int local_port, int remote_port)
    : local_port_(local_port), remote_port_(remote_port) {
  // The server library does not hand its socket to a handler; the process's
  // open descriptors say which one serves this request.
  std::error_code ec;
  for (std::filesystem::directory_iterator it("/proc/self/fd", ec), end; !ec && it != end;
       it.increment(ec)) {
    const std::string name = it->path().filename().string();
    int fd = -1;
    if (std::from_chars(name.data(), name.data() + name.size(), fd).ec != std::errc()) continue;
    int local = -1, remote = -1;
    if (socket_ports(fd, local, remote) && local == local_port && remote == remote_port) {
      fd_ = fd;
      return;
    }
  }
}

bool ConnectionWatch::gone() const {
  if (fd_ < 0) return false;
  // The descriptor stays this connection's while its request is served; the
  // check of its ports guards against a mistake all the same.
  int local = -1, remote = -1;
  if (!socket_ports(fd_, local, remote)) return true;
  if (local != local_port_ || remote != remote_port_) return false;
  char byte;
  const ssize_t n = recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (n == 0) return true;  // the client closed its end
  return n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR;
}

}  // namespace arven::shell
