#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "shell/web_ui.h"

namespace arven::shell {

// One HTTP request as the routes see it.
struct HttpRequest {
  std::string method;       // "GET", "POST", ...
  std::string target;       // as sent, still percent-encoded
  std::string path;         // the target's path, decoded (as sent when it cannot be)
  Params query;             // the query string's fields (malformed ones are left out)
  std::string body;         // a form body; at most the server's limit
  std::string remote_addr;  // the client's address
  std::vector<std::pair<std::string, std::string>> headers;

  // A header's value, by its name in any case ("" when absent).
  std::string header(std::string_view name) const;
  bool has_header(std::string_view name) const;
  std::string param(const std::string& name) const;
  bool has_param(const std::string& name) const;
};

struct HttpReply {
  int status = 200;
  std::string body;
  std::string content_type;
  std::vector<std::pair<std::string, std::string>> headers;

  void set_header(std::string name, std::string value);
  void set_content(std::string text, std::string type);
  void redirect(const std::string& location);  // 302 Found
};

// An answer that waits: for a change of the state (ready() turns true), or
// until its timeout. answer() then makes the reply. The wait also ends when
// the client goes, unless the answer must run all the same (a page's last
// word, whose sender never reads the reply). `hold` is released when the
// wait ends.
struct PendingReply {
  std::chrono::milliseconds timeout{0};
  std::function<bool()> ready;
  std::function<HttpReply()> answer;
  bool runs_after_client_left = false;
  std::shared_ptr<void> hold;
};

struct Outcome {
  HttpReply reply;                   // sent at once, unless...
  std::optional<PendingReply> wait;  // ...the answer waits
};

// One live channel of a browser. It pushes {"version":N} when the state
// changes, and passes what the browser says on to the routes.
using ChannelId = uint64_t;

struct Routes {
  std::function<Outcome(const HttpRequest&)> http;
  // Whether a request may open a channel (GET /channel, WebSocket upgrade).
  std::function<bool(const HttpRequest&)> channel_allowed;
  std::function<void(ChannelId, const std::string& message)> channel_message;
  std::function<void(ChannelId)> channel_closed;
  // The state's version now.
  std::function<uint64_t()> version;
};

// The loopback server's connections: HTTP/1.1 with keep-alive and the
// channels (WebSocket), all served by a small fixed set of threads. No
// thread waits for a client: a waiting answer is a timer and a watch on
// its socket, which also tells when its client went.
class Connections {
 public:
  Connections(Routes routes, size_t threads, size_t max_body);
  ~Connections();

  // Binds 127.0.0.1:port (0 picks one); the port bound, or -1.
  int bind(int port);
  // Serves until stop(), on the calling thread and threads-1 others.
  void run();
  void stop();
  // The state changed: waiting answers check again, channels are told.
  // Any thread may call it.
  void changed(uint64_t version);
  // Runs `fn` on one of the server's threads after `delay`.
  void after(std::chrono::milliseconds delay, std::function<void()> fn);

  // Answers waiting now, channels open now, threads serving (fixed).
  size_t waiting() const;
  size_t channels() const;
  size_t threads() const;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace arven::shell
