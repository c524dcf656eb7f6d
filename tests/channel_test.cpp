// The server's live channel, its fixed threads, and what every answer says
// about frames and caching.
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <nlohmann/json.hpp>

#include <atomic>
#include <filesystem>

#include "support/shell_fixture.h"

namespace arven::shell {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;

size_t thread_count() {
  size_t n = 0;
  for ([[maybe_unused]] const auto& t : std::filesystem::directory_iterator("/proc/self/task")) ++n;
  return n;
}

// A browser's channel, as a page of `origin` opens it.
class Channel {
 public:
  Channel(int port, const std::string& origin) {
    boost::system::error_code ec;
    ws_.next_layer().connect({asio::ip::make_address("127.0.0.1"), static_cast<uint16_t>(port)},
                             ec);
    timeval tv{5, 0};
    setsockopt(ws_.next_layer().native_handle(), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    ws_.set_option(websocket::stream_base::decorator([origin](websocket::request_type& r) {
      r.set("Cookie", "arven_token=tok123");
      r.set("Origin", origin);
    }));
    if (!ec) ws_.handshake("127.0.0.1:" + std::to_string(port), "/channel", ec);
    open_ = !ec;
  }
  bool open() const { return open_; }
  // The next version pushed (0 when none came within 5 s).
  uint64_t next_version() {
    beast::flat_buffer b;
    boost::system::error_code ec;
    ws_.read(b, ec);
    if (ec) return 0;
    auto j = nlohmann::json::parse(beast::buffers_to_string(b.data()), nullptr, false);
    return j.is_object() && j.contains("version") ? j["version"].get<uint64_t>() : 0;
  }
  void say(const nlohmann::json& message) {
    boost::system::error_code ec;
    ws_.write(asio::buffer(message.dump()), ec);
  }
  void close() {
    boost::system::error_code ec;
    ws_.next_layer().close(ec);  // the browser goes without a word
  }

 private:
  asio::io_context ioc_;
  websocket::stream<asio::ip::tcp::socket> ws_{ioc_};
  bool open_ = false;
};

// The channel pushes each change; only the program's own pages may open it;
// a main-tab page that goes ends the program unless another shows within
// the grace time, and the channel's socket closing counts as its going.
TEST_F(ShellTest, TheChannelPushesChangesAndTellsWhenTheMainTabWent) {
  const std::string own = "http://127.0.0.1:" + std::to_string(port);
  EXPECT_FALSE(Channel(port, "http://127.0.0.1:1").open());
  EXPECT_FALSE(Channel(port, "null").open());

  Channel ch(port, own);
  ASSERT_TRUE(ch.open());
  const uint64_t first = ch.next_version();
  EXPECT_GT(first, 0u);
  worker.post([this] { ui.navigate("main", "summary.htm"); });
  EXPECT_GT(ch.next_version(), first);

  std::atomic<int> closed{0};
  server.on_main_tab_closed([&] { ++closed; }, std::chrono::milliseconds(300));
  // A reload: the page goes, its successor shows at once.
  ch.say({{"show", {{"client", "pageA"}, {"window", "main"}}}});
  ch.say({{"gone", "pageA"}, {"closing", true}});
  ch.say({{"show", {{"client", "pageB"}, {"window", "main"}}}});
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  EXPECT_EQ(closed, 0);
  // Junk and unknown windows change nothing.
  ch.say("not json");
  ch.say({{"show", {{"client", "x y"}, {"window", "main"}}}});
  ch.say({{"show", {{"client", "pageC"}, {"window", "nowhere"}}}});
  // The browser closes: its socket says so.
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  ch.close();
  for (int i = 0; i < 100 && closed == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(closed, 1);
}

// However many clients come, wait and go, the server's threads stay as many
// as they were, and a command is answered meanwhile.
TEST_F(ShellTest, ThreadsStayFixedWhateverClientsOpen) {
  const size_t before = thread_count();
  std::vector<std::unique_ptr<RawConnection>> clients;
  std::vector<std::unique_ptr<Channel>> channels;
  const std::string own = "http://127.0.0.1:" + std::to_string(port);
  for (int i = 0; i < 200; ++i) {
    clients.push_back(std::make_unique<RawConnection>(port));
    if (i % 2 == 0)
      clients.back()->send("GET /main/state.json?since=999999&client=c" + std::to_string(i) +
                           " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                           "\r\nX-ARVEN-Token: tok123\r\n\r\n");
    if (i % 10 == 0) channels.push_back(std::make_unique<Channel>(port, own));
  }
  EXPECT_EQ(thread_count(), before);
  auto r = client().Post("/main/command", page(), "group=1", "application/x-www-form-urlencoded");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
  clients.clear();
  channels.clear();
  for (int i = 0; i < 150 && server.waiting_polls() > 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(server.waiting_polls(), 0u);
  EXPECT_EQ(thread_count(), before);
  EXPECT_EQ(server.threads(), 2u);
}

// Every answer forbids framing by other sites; scripts and graphics are
// kept by the browser and checked by a validator, pages never kept.
TEST_F(ShellTest, AnswersGuardFramesAndLetTheBrowserKeepScripts) {
  std::ofstream(dir / "highcharts.js") << "var x = 1;";
  auto c = client();
  for (const std::string path : {"/main/", "/main/summary.htm", "/nowhere", "/main/state.json"}) {
    auto r = c.Get(path, auth());
    ASSERT_TRUE(r) << path;
    EXPECT_EQ(r->get_header_value("Content-Security-Policy"), "frame-ancestors 'self'") << path;
    EXPECT_EQ(r->get_header_value("X-Frame-Options"), "SAMEORIGIN") << path;
  }
  EXPECT_EQ(c.Get("/main/", {{"Host", "evil:1"}})->get_header_value("X-Frame-Options"),
            "SAMEORIGIN");
  EXPECT_EQ(c.Get("/main/summary.htm", auth())->get_header_value("Cache-Control"), "no-store");

  auto script = c.Get("/main/highcharts.js", auth());
  ASSERT_EQ(script->status, 200);
  EXPECT_TRUE(script->get_header_value("Content-Encoding").empty());
  const std::string tag = script->get_header_value("ETag");
  ASSERT_FALSE(tag.empty());
  auto h = auth();
  h.emplace("If-None-Match", tag);
  auto again = c.Get("/main/highcharts.js", h);
  EXPECT_EQ(again->status, 304);
  EXPECT_TRUE(again->body.empty());
  std::ofstream(dir / "highcharts.js") << "var x = 22;";  // a new version is sent
  std::filesystem::last_write_time(dir / "highcharts.js",
                                   std::filesystem::file_time_type::clock::now());
  EXPECT_EQ(c.Get("/main/highcharts.js", h)->status, 200);

  // The window's own script is kept for good under the address its page names.
  const std::string page = c.Get("/main/", auth())->body;
  const size_t at = page.find("/shell/shell.js?v=");
  ASSERT_NE(at, std::string::npos);
  const std::string src = page.substr(at, page.find('"', at) - at);
  EXPECT_EQ(c.Get(src, auth())->get_header_value("Cache-Control"), "max-age=31536000, immutable");
  EXPECT_EQ(c.Get("/shell/shell.js?v=old", auth())->get_header_value("Cache-Control"), "no-cache");
}

}  // namespace
}  // namespace arven::shell
