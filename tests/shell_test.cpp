#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <fstream>
#include <future>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "shell/server.h"
#include "shell/web_ui.h"
#include "shell/worker.h"
#include "support/temp_dir.h"

namespace arven::shell {
namespace {

using arven::testing::TempDir;

// A running shell on a free port with one window, "main".
class ShellTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(dir / "summary.htm") << "<html>summary</html>";
    std::ofstream(dir / "secret.mdb") << "store";
    WindowHandlers h;
    h.command = [this](const Params& p) { commands.push_back(p); };
    h.navigate = [this](const std::string& t) { targets.push_back(t); };
    h.controls = [] { return nlohmann::json{{"title", "T"}}; };
    ui.register_window("main", h);
    worker.after_event = [this] { ui.refresh_controls(); };
    worker.start();
    port = server.bind(0);
    ASSERT_GT(port, 0);
    thread = std::thread([this] { server.listen(); });
    for (int i = 0; i < 100 && !client().Get("/")->status; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  void TearDown() override {
    server.stop();
    thread.join();
    worker.stop();
  }

  httplib::Client client() { return httplib::Client("127.0.0.1", port); }
  httplib::Headers auth() {
    return {{"Cookie", "arven_token=tok123"}, {"Host", "127.0.0.1:" + std::to_string(port)}};
  }
  // Waits until the worker has run everything queued.
  void settle() {
    std::promise<void> done;
    worker.post([&] { done.set_value(); });
    done.get_future().wait();
  }

  TempDir dir;
  Worker worker;
  WebUi ui{worker};
  Server server{ui, dir.path(), "tok123"};
  int port = 0;
  std::thread thread;
  std::vector<Params> commands;
  std::vector<std::string> targets;
};

TEST_F(ShellTest, TokenAndHostAreRequired) {
  auto c = client();
  EXPECT_EQ(c.Get("/main/")->status, 403);
  EXPECT_EQ(c.Get("/?token=wrong")->status, 403);
  auto first = c.Get("/?token=tok123");
  EXPECT_EQ(first->status, 302);
  std::string cookie = first->get_header_value("Set-Cookie");
  EXPECT_NE(cookie.find("arven_token=tok123"), std::string::npos);
  EXPECT_NE(cookie.find("HttpOnly"), std::string::npos);
  EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos);
  EXPECT_EQ(c.Get("/main/", auth())->status, 200);
  httplib::Headers foreign = {{"Cookie", "arven_token=tok123"}, {"Host", "evil.example:80"}};
  EXPECT_EQ(c.Get("/main/", foreign)->status, 403);
  httplib::Headers header_token = {{"X-ARVEN-Token", "tok123"},
                                   {"Host", "localhost:" + std::to_string(port)}};
  EXPECT_EQ(c.Get("/main/state.json", header_token)->status, 200);
}

TEST_F(ShellTest, StaticServingStaysInTheReportFolder) {
  auto c = client();
  auto page = c.Get("/main/summary.htm?n=3", auth());
  EXPECT_EQ(page->status, 200);
  EXPECT_EQ(page->body, "<html>summary</html>");
  auto store = c.Get("/main/secret.mdb", auth());  // stores are never served
  EXPECT_NE(store->status, 200);
  EXPECT_EQ(store->body.find("store"), std::string::npos);
  for (const char* path :
       {"/main/../../etc/passwd", "/main/..%2f..%2fetc%2fpasswd", "/main/%2e%2e/%2e%2e/etc/passwd",
        "/main/..%252f..%252fetc%252fpasswd", "/main/%2fetc%2fpasswd", "/main/..\\..\\etc\\passwd",
        "/main/summary.htm%00.gif", "/main/%zz"}) {
    auto r = c.Get(path, auth());
    ASSERT_TRUE(r) << path;
    EXPECT_NE(r->status, 200) << path;
    EXPECT_EQ(r->body.find("root:"), std::string::npos) << path;
  }
  settle();
  for (const auto& t : targets) EXPECT_EQ(t.find('/'), std::string::npos) << t;
  EXPECT_EQ(resolve_static(dir.path(), "summary.htm"),
            std::filesystem::canonical(dir / "summary.htm"));
}

TEST_F(ShellTest, CommandsAndPageCommandsReachTheWorker) {
  auto c = client();
  EXPECT_EQ(c.Post("/main/command", auth(), "group=2&tool=1", "application/x-www-form-urlencoded")
                ->status,
            200);
  EXPECT_EQ(c.Get("/main/file.ff1", auth())->status, 204);
  EXPECT_EQ(c.Get("/nowhere/file.ff1", auth())->status, 404);
  settle();
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].at("group"), "2");
  EXPECT_EQ(targets, std::vector<std::string>{"file.ff1"});
  auto state = nlohmann::json::parse(c.Get("/main/state.json", auth())->body);
  EXPECT_EQ(state["controls"]["title"], "T");

  // A window's name may hold a slash: the longest registered name wins.
  ui.register_window("admin/prepro", {});
  EXPECT_EQ(c.Get("/admin/prepro", auth())->status, 302);
  auto nested = nlohmann::json::parse(c.Get("/admin/prepro/state.json", auth())->body);
  EXPECT_EQ(nested["window"], "admin/prepro");
  EXPECT_EQ(c.Get("/admin/state.json", auth())->status, 404);
  EXPECT_EQ(c.Get("/admin/prepro/summary.htm", auth())->body, "<html>summary</html>");
}

TEST_F(ShellTest, AWindowTakesLinksToItsPagesAndCancelsAtOnce) {
  std::atomic<bool> cancelled{false};
  std::vector<std::string> rvc_targets;
  WindowHandlers h;
  h.serves_file = [](const std::string& t) { return t != "summary.htm"; };
  h.immediate = [&](const Params& p) {
    const bool cancel = p.count("navigate") && p.at("navigate") == "hot.hcn";
    if (cancel) cancelled = true;
    return cancel;
  };
  h.navigate = [&](const std::string& t) { rvc_targets.push_back(t); };
  ui.register_window("rvc", h);
  auto c = client();

  // With the worker busy, the cancel link gets through at once.
  std::promise<void> release;
  worker.post([&] { release.get_future().wait(); });
  EXPECT_EQ(c.Get("/rvc/hot.hcn", auth())->status, 204);
  EXPECT_TRUE(cancelled);
  release.set_value();

  // A file the window writes afresh is a command, unless it is on show.
  EXPECT_EQ(c.Get("/rvc/summary.htm", auth())->status, 204);
  settle();
  EXPECT_EQ(rvc_targets, std::vector<std::string>{"summary.htm"});
  worker.post([&] { ui.navigate("rvc", "summary.htm"); });
  settle();
  EXPECT_EQ(c.Get("/rvc/summary.htm?n=1", auth())->body, "<html>summary</html>");
}

TEST_F(ShellTest, MessageBoxWaitsForTheBrowsersAnswer) {
  std::promise<Answer> result;
  worker.post([&] {
    result.set_value(ui.message_box("Sure?", "Exit", MsgButtons::YesNo, MsgIcon::Question));
  });
  auto c = client();
  nlohmann::json dialog;
  for (int i = 0; i < 200 && dialog.is_null(); ++i) {
    dialog = nlohmann::json::parse(c.Get("/main/state.json", auth())->body)["dialog"];
    if (dialog.is_null()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_FALSE(dialog.is_null());
  EXPECT_EQ(dialog["title"], "Exit");
  EXPECT_EQ(dialog["buttons"], nlohmann::json({"Yes", "No"}));
  std::string id = std::to_string(dialog["id"].get<int>());
  auto form = "application/x-www-form-urlencoded";
  EXPECT_EQ(c.Post("/main/answer", auth(), "id=" + id + "&button=Maybe", form)->status, 409);
  EXPECT_EQ(c.Post("/main/answer", auth(), "id=999&button=No", form)->status, 409);
  EXPECT_EQ(c.Post("/main/answer", auth(), "id=" + id + "&button=No", form)->status, 200);
  EXPECT_EQ(result.get_future().get(), Answer::No);
}

}  // namespace
}  // namespace arven::shell

namespace arven::shell {
namespace {

// Malformed requests of every kind get an answer or a closed connection,
// and the server goes on serving.
TEST_F(ShellTest, MalformedRequestsDoNotStopTheServer) {
  const std::string garbage[] = {
      std::string("\x00\x01\x02\xff\xfe garbage\r\n\r\n", 16),
      "GET /main/" + std::string(20000, 'A') + " HTTP/1.1\r\nHost: x\r\n\r\n",
      "POST /main/answer HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: -5\r\n\r\n",
      "GET /main/%%%%%% HTTP/1.1\r\n\r\n",
      "GET / HTTP/9.9\r\nCookie: " + std::string(9000, ';') + "\r\n\r\n",
      "GET /main/state.json?since=99999999999999999999999 HTTP/1.1\r\n\r\n",
  };
  for (const auto& g : garbage) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    timeval tv{2, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    (void)::send(fd, g.data(), g.size(), MSG_NOSIGNAL);
    char buf[512];
    (void)::recv(fd, buf, sizeof buf, 0);
    ::close(fd);
  }
  auto c = client();
  c.set_read_timeout(20, 0);
  auto since = c.Get("/main/state.json?since=abc", auth());
  ASSERT_TRUE(since);
  EXPECT_EQ(since->status, 200);
  auto r = c.Get("/main/", auth());
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
}

}  // namespace
}  // namespace arven::shell
