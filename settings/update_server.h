#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace arven {

// The update server: its address is the preference Update_Server of
// [Settings] ("http://host:port", no trailing path); empty means there is
// no server and so no connection.
std::string update_server_address();

// Fetches files from one update server over HTTP. Every transfer has short
// connect and total time limits. Once the server has failed to connect or
// stalled, further requests through the same object fail at once, so a
// check of many files against a dead server costs one time-out, not one
// per file.
class UpdateServer {
 public:
  explicit UpdateServer(std::string address = update_server_address());

  const std::string& address() const { return address_; }
  // True when the server answers an HTTP request (any status counts).
  bool answers();
  // The HTTP status of a HEAD request for `path` ("/downloads/..."), which
  // tells whether the server has the file without fetching it; 0 when no
  // answer came (no server, no connection, a time-out).
  long head(const std::string& path);
  // The body of a small text file at `path` ("/downloads/..."), or nullopt
  // on any failure: no server, a transfer error, an HTTP status other than
  // 200, or a body longer than `max_bytes`.
  std::optional<std::string> fetch_text(const std::string& path, size_t max_bytes = 4096);
  // The HTTP status of the last request, 0 when none came back.
  long last_status() const { return last_status_; }

  // Downloads `path` into the file `dest` (replaced), at most `max_bytes`.
  // `progress(done, total)` is called as data arrive (total 0 when
  // unknown). Returns an empty string on success, otherwise the reason.
  std::string download(const std::string& path, const std::filesystem::path& dest,
                       uint64_t max_bytes,
                       const std::function<void(uint64_t, uint64_t)>& progress = {});

  // Time limits in milliseconds: connecting, a small file, and a download
  // with no data arriving.
  int connect_timeout_ms = 1000;
  int text_timeout_ms = 1500;
  int stall_timeout_ms = 5000;

 private:
  std::string address_;
  bool dead_ = false;
  long last_status_ = 0;
};

}  // namespace arven
