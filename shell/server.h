#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "shell/http_input.h"
#include "shell/web_ui.h"

namespace arven::shell {

// The loopback HTTP server. Every request needs the session token (the
// first visit with ?token= sets an HttpOnly, SameSite=Strict cookie) and a
// Host of 127.0.0.1:PORT or localhost:PORT. A request that changes anything
// (a POST, a page command) must also come from the program's own pages, or
// carry the token in the X-ARVEN-Token header as scripts do. Under
// /<window>/ it serves the window page, its state and actions, and the
// files of the report folder, then those of the assets folder (graphics,
// scripts and help of an installed program, when it has one apart); a
// target that names no file is a page command for that window. /channel is
// the browser's live channel (a WebSocket) on which every change of the
// windows' state is pushed. A few fixed threads serve every connection,
// whatever clients open or hold.
class Server {
 public:
  Server(WebUi& ui, std::filesystem::path report_folder, std::string token,
         std::filesystem::path assets_folder = {});
  ~Server();

  // Binds 127.0.0.1:port (0 picks a free port); returns the bound port, or
  // -1 when the port cannot be had.
  int bind(int port);
  // Serves until stop(); blocks.
  void listen();
  void stop();

  const std::string& token() const { return token_; }
  // Long polls waiting for a change now.
  size_t waiting_polls() const;
  // The threads that serve every connection: a fixed number.
  size_t threads() const;
  // Runs (on a thread of its own, once) when the main browser tab was
  // closed: its page said it went (POST /<window>/leave, or on the
  // channel), or the channel that showed it closed, and no page of the tab
  // showed again within `grace`. A reload shows one, so it runs nothing.
  void on_main_tab_closed(std::function<void()> action,
                          std::chrono::milliseconds grace = std::chrono::seconds(4));

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string token_;
};

// A random session token (hex).
std::string make_token();

}  // namespace arven::shell
