#include "shell/progress_page.h"

#include <httplib.h>

#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/utf8.h"
#include "shell/http_input.h"

namespace arven::shell {

struct ProgressPage::Impl {
  httplib::Server server;
  std::thread thread;
  std::mutex mutex;
  std::string text;
  bool bound = false;
};

ProgressPage::ProgressPage(int port, std::string token) : impl_(std::make_unique<Impl>()) {
  Impl& impl = *impl_;
  impl.server.Get(R"(/[a-z]+/state\.json)", [&impl, token](const httplib::Request& req,
                                                           httplib::Response& res) {
    if (!same_token(cookie_value(req.get_header_value("Cookie"), "arven_token"), token) &&
        !same_token(req.get_header_value("X-ARVEN-Token"), token)) {
      res.status = 403;
      return;
    }
    std::lock_guard lock(impl.mutex);
    nlohmann::json state = {{"ended", true}, {"installing", true}, {"progress", impl.text}};
    res.set_header("Cache-Control", "no-store");
    res.set_content(state.dump(), "application/json");
  });
  impl.server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
    if (res.status == 404) res.set_content("ARVEN is installing an update.", "text/plain");
  });
  if (port <= 0 || !impl.server.bind_to_port("127.0.0.1", port)) return;
  impl.bound = true;
  impl.thread = std::thread([&impl] { impl.server.listen_after_bind(); });
}

ProgressPage::~ProgressPage() {
  if (!impl_->bound) return;
  impl_->server.stop();
  if (impl_->thread.joinable()) impl_->thread.join();
}

void ProgressPage::set(const std::string& text) {
  std::lock_guard lock(impl_->mutex);
  impl_->text = valid_utf8(text);
}

bool ProgressPage::listening() const {
  return impl_->bound;
}

}  // namespace arven::shell
