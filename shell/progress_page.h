#pragma once

#include <memory>
#include <string>

namespace arven::shell {

// While the downloader works, the program's address answers the page the
// program left open: its state says the program has ended and how far the
// install is, so the page shows that instead of a bare "ended" and returns
// to the program as soon as it is back. It answers only requests that carry
// the session token (the cookie or the script header), and only the state.
class ProgressPage {
 public:
  // Listens on 127.0.0.1:port; does nothing when the port is not free.
  ProgressPage(int port, std::string token);
  ~ProgressPage();  // stops listening: the address is free for the program
  ProgressPage(const ProgressPage&) = delete;
  ProgressPage& operator=(const ProgressPage&) = delete;

  void set(const std::string& text);
  bool listening() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace arven::shell
