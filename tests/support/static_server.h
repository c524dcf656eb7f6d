#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

extern char** environ;

namespace arven::testing {

// A real static HTTP server process (python3 -m http.server) on 127.0.0.1
// and a free port, serving `folder`; stopped when the object goes.
class StaticServer {
 public:
  explicit StaticServer(const std::filesystem::path& folder) {
    int fds[2];
    if (pipe(fds) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::string dir = folder.string();
    const char* argv[] = {"python3", "-u",        "-m",          "http.server", "0",
                          "--bind",  "127.0.0.1", "--directory", dir.c_str(),   nullptr};
    int rc =
        posix_spawnp(&pid_, "python3", &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (rc != 0) {
      close(fds[0]);
      throw std::runtime_error("python3 could not be started");
    }
    // "Serving HTTP on 127.0.0.1 port N (http://127.0.0.1:N/) ..."
    std::string line;
    char c;
    while (read(fds[0], &c, 1) == 1 && c != '\n') line += c;
    close(fds[0]);
    size_t at = line.find(" port ");
    if (at == std::string::npos) {
      stop();
      throw std::runtime_error("the static server printed no port: " + line);
    }
    port_ = std::stoi(line.substr(at + 6));
  }
  ~StaticServer() { stop(); }
  StaticServer(const StaticServer&) = delete;
  StaticServer& operator=(const StaticServer&) = delete;

  std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int port() const { return port_; }

 private:
  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }
  pid_t pid_ = 0;
  int port_ = 0;
};

// Writes a file, creating its folder.
inline void write_file(const std::filesystem::path& p, const std::string& text) {
  std::filesystem::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace arven::testing
