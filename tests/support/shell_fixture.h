#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "shell/server.h"
#include "shell/web_ui.h"
#include "shell/worker.h"
#include "temp_dir.h"

namespace arven::shell {

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
  // What the browser adds to a request of one of our own pages.
  httplib::Headers page() {
    auto h = auth();
    h.emplace("Sec-Fetch-Site", "same-origin");
    return h;
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

// A raw connection to the server: for requests a client library would not
// send as they stand, and for connections left open.
class RawConnection {
 public:
  explicit RawConnection(int port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    timeval tv{3, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  }
  ~RawConnection() { close(); }
  bool send(const std::string& text) {
    return ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
  }
  // The status line of the answer ("" when none came within 3 s).
  std::string status_line() {
    char buf[256];
    ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    std::string s = n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    return s.substr(0, s.find("\r\n"));
  }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  bool connected() const { return connected_; }

 private:
  int fd_ = -1;
  bool connected_ = false;
};

}  // namespace arven::shell
