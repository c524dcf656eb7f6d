#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "shell/web_ui.h"

namespace arven::shell {

// The loopback HTTP server. Every request needs the session token (the
// first visit with ?token= sets an HttpOnly, SameSite=Strict cookie) and a
// Host of 127.0.0.1:PORT or localhost:PORT. Under /<window>/ it serves the
// window page, its state and actions, and the files of the report folder;
// a target that names no file is a page command for that window.
class Server {
 public:
  Server(WebUi& ui, std::filesystem::path report_folder, std::string token);
  ~Server();

  // Binds 127.0.0.1:port (0 picks a free port); returns the bound port, or
  // -1 when the port cannot be had.
  int bind(int port);
  // Serves until stop(); blocks.
  void listen();
  void stop();

  const std::string& token() const { return token_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string token_;
};

// A random session token (hex).
std::string make_token();

// The file of the report folder that a request path names, or nullopt when
// the path would leave the folder, names no allowed kind of file, or
// names nothing. `relative` is the URL path after the window prefix, still
// percent-encoded.
std::optional<std::filesystem::path> resolve_static(const std::filesystem::path& folder,
                                                    std::string_view relative);

// Percent-decodes a URL path; nullopt for malformed escapes or a NUL.
std::optional<std::string> url_decode(std::string_view text);

}  // namespace arven::shell
