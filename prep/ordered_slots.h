#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace arven {

// Results handed from several producing threads to one consumer: each item
// has its slot, filled in any order and taken in order, and no producer
// claims an item more than `window` ahead of the consumer.
template <class T>
class OrderedSlots {
 public:
  OrderedSlots(size_t items, size_t window) : slots_(items), window_(window) {}

  // The next item to make, or nullopt when none is left or the work stops.
  std::optional<size_t> claim(const std::atomic<bool>& halted) {
    std::unique_lock lock(m_);
    cv_.wait(lock, [&] { return next_ < taken_ + window_ || stop_ || halted; });
    if (stop_ || halted || next_ >= slots_.size()) return std::nullopt;
    return next_++;
  }
  void put(size_t i, T r) {
    std::lock_guard lock(m_);
    slots_[i].result = std::move(r);
    slots_[i].ready = true;
    cv_.notify_all();
  }
  void fail(size_t i, std::exception_ptr e) {
    std::lock_guard lock(m_);
    slots_[i].failure = std::move(e);
    slots_[i].ready = true;
    cv_.notify_all();
  }
  // Item i; rethrows its failure. nullopt when it will never come (halted
  // before it was claimed).
  std::optional<T> take(size_t i, const std::atomic<bool>& halted) {
    std::unique_lock lock(m_);
    cv_.wait(lock, [&] { return slots_[i].ready || (halted && i >= next_); });
    if (!slots_[i].ready) return std::nullopt;
    taken_ = i + 1;
    cv_.notify_all();
    if (slots_[i].failure) std::rethrow_exception(slots_[i].failure);
    return std::move(slots_[i].result);
  }
  void stop() {
    std::lock_guard lock(m_);
    stop_ = true;
    cv_.notify_all();
  }
  void wake() {
    std::lock_guard lock(m_);
    cv_.notify_all();
  }

 private:
  struct Slot {
    bool ready = false;
    T result;
    std::exception_ptr failure;
  };
  std::mutex m_;
  std::condition_variable cv_;
  std::vector<Slot> slots_;
  size_t window_;
  size_t next_ = 0, taken_ = 0;
  bool stop_ = false;
};

}  // namespace arven
