#include "shell/connections.h"

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "shell/http_input.h"

namespace arven::shell {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using error_code = boost::system::error_code;

namespace {

constexpr auto kIdle = std::chrono::seconds(60);  // a keep-alive connection with no request
constexpr size_t kMaxChannelMessage = 4096;

// No other site may show the program's pages in a frame; its own pages may.
void guard_frames(http::response<http::string_body>& res) {
  res.set("Content-Security-Policy", "frame-ancestors 'self'");
  res.set("X-Frame-Options", "SAMEORIGIN");
}

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

// The fields of a query string; a field that cannot be decoded is left out.
Params parse_query(std::string_view query) {
  Params out;
  while (!query.empty()) {
    const size_t amp = query.find('&');
    std::string_view pair = query.substr(0, amp);
    query = amp == std::string_view::npos ? std::string_view{} : query.substr(amp + 1);
    if (pair.empty()) continue;
    const size_t eq = pair.find('=');
    std::string key(pair.substr(0, eq));
    std::string value(eq == std::string_view::npos ? std::string_view{} : pair.substr(eq + 1));
    std::replace(key.begin(), key.end(), '+', ' ');
    std::replace(value.begin(), value.end(), '+', ' ');
    auto k = url_decode(key);
    auto v = url_decode(value);
    if (k && v && !k->empty()) out.emplace(std::move(*k), std::move(*v));
  }
  return out;
}

HttpRequest to_request(const http::request<http::string_body>& msg, const tcp::socket& socket) {
  HttpRequest r;
  r.method = std::string(msg.method_string());
  r.target = std::string(msg.target());
  const size_t q = r.target.find('?');
  const std::string raw_path = r.target.substr(0, q);
  r.path = url_decode(raw_path).value_or(raw_path);
  if (q != std::string::npos) r.query = parse_query(std::string_view(r.target).substr(q + 1));
  r.body = msg.body();
  error_code ec;
  auto remote = socket.remote_endpoint(ec);
  if (!ec) r.remote_addr = remote.address().to_string();
  for (const auto& field : msg) r.headers.emplace_back(field.name_string(), field.value());
  return r;
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
  for (const auto& [k, v] : headers)
    if (same_name(k, name)) return v;
  return "";
}

bool HttpRequest::has_header(std::string_view name) const {
  return std::any_of(headers.begin(), headers.end(),
                     [&](const auto& h) { return same_name(h.first, name); });
}

std::string HttpRequest::param(const std::string& name) const {
  auto it = query.find(name);
  return it == query.end() ? "" : it->second;
}

bool HttpRequest::has_param(const std::string& name) const {
  return query.count(name) > 0;
}

void HttpReply::set_header(std::string name, std::string value) {
  headers.emplace_back(std::move(name), std::move(value));
}

void HttpReply::set_content(std::string text, std::string type) {
  body = std::move(text);
  content_type = std::move(type);
}

void HttpReply::redirect(const std::string& location) {
  status = 302;
  set_header("Location", location);
}

// Something on a strand that wants to hear of a change of the state.
class Listener {
 public:
  virtual ~Listener() = default;
  virtual void notify(uint64_t version) = 0;
};

struct Connections::Impl {
  Routes routes;
  const size_t thread_count;
  const size_t max_body;

  mutable std::mutex mutex;  // guards the two lists below
  std::unordered_map<Listener*, std::weak_ptr<Listener>> listeners;
  size_t waiting = 0;
  std::atomic<size_t> channels{0};
  std::atomic<ChannelId> next_channel{1};
  std::atomic<bool> stopping{false};

  // Last: destroyed first, with the connections its handlers hold, while
  // the lists above still stand.
  asio::io_context ioc;
  tcp::acceptor acceptor{ioc};

  Impl(Routes r, size_t threads, size_t body)
      : routes(std::move(r)), thread_count(std::max<size_t>(1, threads)), max_body(body) {}

  void listen(const std::shared_ptr<Listener>& l) {
    std::lock_guard lock(mutex);
    listeners[l.get()] = l;
  }
  void forget(Listener* l) {
    std::lock_guard lock(mutex);
    listeners.erase(l);
  }

  void accept();
};

namespace {

class ChannelSession : public Listener, public std::enable_shared_from_this<ChannelSession> {
 public:
  ChannelSession(Connections::Impl& server, tcp::socket socket)
      : server_(server), ws_(std::move(socket)), id_(server.next_channel++) {}
  ~ChannelSession() override {
    server_.forget(this);
    if (open_) {
      --server_.channels;
      if (server_.routes.channel_closed) server_.routes.channel_closed(id_);
    }
  }

  void start(http::request<http::string_body> req) {
    ws_.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    ws_.set_option(websocket::stream_base::decorator([](websocket::response_type& res) {
      res.set("Content-Security-Policy", "frame-ancestors 'self'");
      res.set("X-Frame-Options", "SAMEORIGIN");
    }));
    ws_.read_message_max(kMaxChannelMessage);
    ws_.text(true);
    ws_.async_accept(req, [self = shared_from_this()](error_code ec) { self->on_accept(ec); });
  }

  void notify(uint64_t version) override {
    asio::post(ws_.get_executor(), [self = shared_from_this(), version] { self->push(version); });
  }

 private:
  void on_accept(error_code ec) {
    if (ec) return;
    open_ = true;
    ++server_.channels;
    server_.listen(shared_from_this());
    push(server_.routes.version ? server_.routes.version() : 0);
    read();
  }

  void read() {
    ws_.async_read(in_, [self = shared_from_this()](error_code ec, size_t) {
      if (ec) return;  // closed or failed: the session ends with its last handler
      std::string message = beast::buffers_to_string(self->in_.data());
      self->in_.consume(self->in_.size());
      if (self->server_.routes.channel_message)
        self->server_.routes.channel_message(self->id_, message);
      self->read();
    });
  }

  // Only the newest version matters: one is written at a time.
  void push(uint64_t version) {
    if (version == 0 || version == sent_) return;
    queued_ = version;
    if (!writing_) write();
  }

  void write() {
    if (queued_ == 0) return;
    writing_ = true;
    out_ = "{\"version\":" + std::to_string(queued_) + "}";
    sent_ = queued_;
    queued_ = 0;
    ws_.async_write(asio::buffer(out_), [self = shared_from_this()](error_code ec, size_t) {
      self->writing_ = false;
      if (!ec) self->write();
    });
  }

  Connections::Impl& server_;
  websocket::stream<beast::tcp_stream> ws_;
  const ChannelId id_;
  beast::flat_buffer in_;
  std::string out_;
  uint64_t sent_ = 0, queued_ = 0;
  bool writing_ = false, open_ = false;
};

class HttpSession : public Listener, public std::enable_shared_from_this<HttpSession> {
 public:
  HttpSession(Connections::Impl& server, tcp::socket socket)
      : server_(server), stream_(std::move(socket)), timer_(stream_.get_executor()) {}
  ~HttpSession() override { end_wait(); }

  void start() { read(); }

  void notify(uint64_t) override {
    asio::post(stream_.get_executor(), [self = shared_from_this()] { self->check(); });
  }

 private:
  void read() {
    parser_.emplace();
    parser_->body_limit(server_.max_body);
    stream_.expires_after(kIdle);
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this()](error_code ec, size_t) { self->on_read(ec); });
  }

  void on_read(error_code ec) {
    if (ec == http::error::end_of_stream || ec == beast::error::timeout ||
        ec == asio::error::operation_aborted || ec == asio::error::connection_reset ||
        ec == asio::error::eof)
      return close();
    if (ec) {
      // A request that cannot be read is answered and the connection ends.
      const bool too_long = ec == http::error::body_limit;
      HttpReply r;
      r.status = too_long ? 413 : 400;
      r.set_content(too_long ? "Request body too large" : "Bad request",
                    "text/plain; charset=utf-8");
      keep_alive_ = false;
      return send(std::move(r), 11);
    }
    auto msg = parser_->release();
    keep_alive_ = msg.keep_alive();
    const unsigned version = msg.version();
    if (websocket::is_upgrade(msg)) return upgrade(std::move(msg));
    HttpRequest req = to_request(msg, stream_.socket());
    head_ = msg.method() == http::verb::head;
    Outcome out;
    try {
      out = server_.routes.http(req);
    } catch (const std::exception&) {
      out.reply = {};
      out.reply.status = 500;
      out.reply.set_content("Internal error", "text/plain; charset=utf-8");
    }
    if (out.wait) return begin_wait(std::move(*out.wait), version);
    send(std::move(out.reply), version);
  }

  void upgrade(http::request<http::string_body> msg) {
    HttpRequest req = to_request(msg, stream_.socket());
    if (req.path != "/channel" || !server_.routes.channel_allowed ||
        !server_.routes.channel_allowed(req)) {
      HttpReply r;
      r.status = 403;
      r.set_content("Forbidden", "text/plain; charset=utf-8");
      keep_alive_ = false;
      return send(std::move(r), msg.version());
    }
    stream_.expires_never();
    std::make_shared<ChannelSession>(server_, stream_.release_socket())->start(std::move(msg));
  }

  // ---- an answer that waits ----
  void begin_wait(PendingReply pending, unsigned version) {
    pending_ = std::move(pending);
    http_version_ = version;
    stream_.expires_never();
    {
      std::lock_guard lock(server_.mutex);
      ++server_.waiting;
    }
    waiting_ = true;
    server_.listen(shared_from_this());
    timer_.expires_after(pending_->timeout);
    timer_.async_wait([self = shared_from_this()](error_code) { self->check(); });
    watch_client();
    check();
  }

  // The client's end closing makes the socket readable with nothing to
  // read. A wake-up may also be stale news of the request itself: a peek
  // tells the two apart.
  void watch_client() {
    stream_.socket().async_wait(tcp::socket::wait_read, [self = shared_from_this()](error_code ec) {
      if (ec || !self->waiting_) return;
      char byte;
      const ssize_t n =
          ::recv(self->stream_.socket().native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
      if (n > 0) return;  // a next request waits its turn
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return self->watch_client();
      self->client_gone_ = true;
      self->check();
    });
  }

  void check() {
    if (!waiting_) return;
    const bool timed_out = timer_.expiry() <= std::chrono::steady_clock::now();
    bool ready = server_.stopping || timed_out;
    if (!ready && pending_->ready) {
      try {
        ready = pending_->ready();
      } catch (const std::exception&) {
        ready = true;
      }
    }
    if (client_gone_ && !pending_->runs_after_client_left) {
      end_wait();
      return close();
    }
    if (!ready) return;
    HttpReply r;
    try {
      r = pending_->answer();
    } catch (const std::exception&) {
      r.status = 500;
      r.set_content("Internal error", "text/plain; charset=utf-8");
    }
    end_wait();
    if (client_gone_) return close();
    send(std::move(r), http_version_);
  }

  void end_wait() {
    if (!waiting_) return;
    waiting_ = false;
    server_.forget(this);
    {
      std::lock_guard lock(server_.mutex);
      --server_.waiting;
    }
    error_code ec;
    timer_.cancel();
    stream_.socket().cancel(ec);  // the watch on the socket
    pending_.reset();
  }

  // ---- writing ----
  void send(HttpReply r, unsigned version) {
    auto res = std::make_shared<http::response<http::string_body>>(
        static_cast<http::status>(r.status), version);
    guard_frames(*res);
    for (auto& [name, value] : r.headers) res->insert(name, value);
    if (!r.content_type.empty()) res->set(http::field::content_type, r.content_type);
    res->body() = std::move(r.body);
    res->keep_alive(keep_alive_);
    res->prepare_payload();
    if (head_) res->body().clear();  // the length stays that of the body
    stream_.expires_after(kIdle);
    http::async_write(stream_, *res, [self = shared_from_this(), res](error_code ec, size_t) {
      if (ec || !self->keep_alive_) return self->close();
      self->read();
    });
  }

  void close() {
    error_code ec;
    stream_.socket().shutdown(tcp::socket::shutdown_send, ec);
    stream_.close();
  }

  Connections::Impl& server_;
  beast::tcp_stream stream_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  asio::steady_timer timer_;
  std::optional<PendingReply> pending_;
  unsigned http_version_ = 11;
  bool keep_alive_ = true, head_ = false, waiting_ = false, client_gone_ = false;
};

}  // namespace

void Connections::Impl::accept() {
  acceptor.async_accept(asio::make_strand(ioc), [this](error_code ec, tcp::socket socket) {
    if (ec == asio::error::operation_aborted || !acceptor.is_open()) return;
    if (!ec) std::make_shared<HttpSession>(*this, std::move(socket))->start();
    accept();
  });
}

Connections::Connections(Routes routes, size_t threads, size_t max_body)
    : impl_(std::make_unique<Impl>(std::move(routes), threads, max_body)) {}

Connections::~Connections() {
  stop();
}

int Connections::bind(int port) {
  error_code ec;
  tcp::endpoint at(asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(port));
  if (port != 0) {
    // Shared addresses (below) must not let a second program take an
    // address that one serves: someone answering there means it is taken.
    tcp::socket probe(impl_->ioc);
    probe.connect(at, ec);
    if (!ec) return -1;
    ec.clear();
  }
  auto& a = impl_->acceptor;
  if (a.is_open()) a.close(ec);
  a.open(at.protocol(), ec);
  if (!ec) a.set_option(asio::socket_base::reuse_address(true), ec);
  // As the downloader's progress page sets it: the program it starts again
  // takes the address over while that page's last connections close.
  using reuse_port = asio::detail::socket_option::boolean<SOL_SOCKET, SO_REUSEPORT>;
  if (!ec) a.set_option(reuse_port(true), ec);
  if (!ec) a.bind(at, ec);
  if (!ec) a.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    a.close(ec);
    return -1;
  }
  return a.local_endpoint().port();
}

void Connections::run() {
  if (!impl_->acceptor.is_open() || impl_->stopping) return;
  impl_->accept();
  std::vector<std::thread> others;
  for (size_t i = 1; i < impl_->thread_count; ++i)
    others.emplace_back([this] { impl_->ioc.run(); });
  impl_->ioc.run();
  for (auto& t : others) t.join();
  error_code ec;
  impl_->acceptor.close(ec);  // the address is free again
}

void Connections::stop() {
  if (!impl_ || impl_->stopping.exchange(true)) return;
  // Waiting answers answer now; a moment later the threads end, which
  // leaves the last answers the time to go out.
  changed(0);
  auto* ioc = &impl_->ioc;
  after(std::chrono::milliseconds(100), [ioc] { ioc->stop(); });
}

void Connections::changed(uint64_t version) {
  std::vector<std::shared_ptr<Listener>> told;
  {
    std::lock_guard lock(impl_->mutex);
    told.reserve(impl_->listeners.size());
    for (auto& [raw, weak] : impl_->listeners)
      if (auto l = weak.lock()) told.push_back(std::move(l));
  }
  for (auto& l : told) l->notify(version);
}

void Connections::after(std::chrono::milliseconds delay, std::function<void()> fn) {
  auto timer = std::make_shared<asio::steady_timer>(impl_->ioc, delay);
  timer->async_wait([timer, fn = std::move(fn)](error_code) { fn(); });
}

size_t Connections::waiting() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->waiting;
}

size_t Connections::channels() const {
  return impl_->channels;
}

size_t Connections::threads() const {
  return impl_->thread_count;
}

}  // namespace arven::shell
