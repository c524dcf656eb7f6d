#include "shell/server.h"

#include <httplib.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>

#include "core/utf8.h"
#include "reports/page_kit.h"
#include "shell/poll_gate.h"
#include "shell/web_assets.h"

namespace arven::shell {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kCookie = "arven_token";
constexpr const char* kScriptHeader = "X-ARVEN-Token";
constexpr size_t kMaxBody = 1 << 20;      // a form body; ours are a few hundred bytes
constexpr size_t kMaxThreads = 256;       // connections served at once
constexpr size_t kMaxPolls = 48;          // long polls waiting at once, in all
constexpr size_t kMaxPollsPerClient = 4;  // ... and of one client
constexpr int kPollTimeoutMs = 15000;

std::string window_page(const std::string& window) {
  std::string w = html_escape(window);
  return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
         "<title>ARVEN</title><link rel=\"stylesheet\" href=\"/shell/shell.css\"></head>\n"
         "<body data-window=\"" +
         w +
         "\">\n"
         "<div id=\"menubar\"></div>\n"
         "<div id=\"layout\"><div id=\"side\"></div><div id=\"content\"><div id=\"toolbar\"></div>"
         "<iframe id=\"page\" name=\"page\" title=\"page\"></iframe></div></div>\n"
         "<div id=\"statusbar\"><span id=\"caption\" role=\"status\"></span><span "
         "id=\"progress\"></span></div>\n"
         "<div id=\"dialog-layer\"></div>\n"
         "<script src=\"/shell/shell.js\"></script>\n</body></html>\n";
}

// Every string of a JSON value, keys included, made valid UTF-8: store text
// in a window's controls must not make the answer fail.
void make_valid(json& j) {
  if (j.is_string()) {
    auto& s = j.get_ref<std::string&>();
    if (!is_valid_utf8(s)) s = valid_utf8(s);
  } else if (j.is_array()) {
    for (auto& e : j) make_valid(e);
  } else if (j.is_object()) {
    json fixed = json::object();
    bool keys_ok = true;
    for (auto& [k, v] : j.items()) {
      make_valid(v);
      keys_ok = keys_ok && is_valid_utf8(k);
    }
    if (!keys_ok) {
      for (auto& [k, v] : j.items()) fixed[valid_utf8(k)] = std::move(v);
      j = std::move(fixed);
    }
  }
}

void set_json(httplib::Response& res, json j) {
  make_valid(j);
  res.set_header("Cache-Control", "no-store");
  res.set_content(j.dump(), "application/json");
}

void refuse(httplib::Response& res, int status, const std::string& why) {
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  res.set_content(why, "text/plain; charset=utf-8");
}

// A poll's client: the id its page sends (letters, digits, '-' and '_',
// at most 64), else the address it comes from.
std::string poll_client(const httplib::Request& req) {
  std::string id = req.get_param_value("client");
  const bool plain =
      !id.empty() && id.size() <= 64 && std::all_of(id.begin(), id.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '_';
      });
  return plain ? id : "addr:" + req.remote_addr;
}

}  // namespace

std::string make_token() {
  std::random_device rd;
  std::ostringstream s;
  for (int i = 0; i < 4; ++i) s << std::hex << rd();
  return s.str();
}

struct Server::Impl {
  WebUi& ui;
  fs::path folder;
  fs::path assets;  // empty: the assets are in `folder`
  std::string token;
  int port = 0;
  httplib::Server http;
  PollGate polls{kMaxPolls, kMaxPollsPerClient};
  TabPresence main_tab;
  std::mutex main_tab_mutex;  // guards the two below
  std::function<void()> main_tab_closed;
  std::chrono::milliseconds main_tab_grace{4000};
  std::atomic<bool> stopping{false};

  Impl(WebUi& u, fs::path f, std::string t) : ui(u), folder(std::move(f)), token(std::move(t)) {
    http.new_task_queue = [] { return new ElasticPool(kMaxThreads); };
    http.set_payload_max_length(kMaxBody);
  }

  bool host_ok(const httplib::Request& req) const {
    std::string host = req.get_header_value("Host");
    std::string p = std::to_string(port);
    return host == "127.0.0.1:" + p || host == "localhost:" + p;
  }

  bool script_request(const httplib::Request& req) const {
    return same_token(req.get_header_value(kScriptHeader), token);
  }

  bool token_ok(const httplib::Request& req) const {
    return same_token(cookie_value(req.get_header_value("Cookie"), kCookie), token) ||
           script_request(req);
  }

  // A request that changes state: a script's, or one sent by our own pages.
  // The cookie alone proves nothing, since the browser sends it with
  // requests that other pages of the same site make.
  bool may_change_state(const httplib::Request& req) const {
    if (script_request(req)) return true;
    return from_own_pages({req.get_header_value("Sec-Fetch-Site"), req.get_header_value("Origin"),
                           req.get_header_value("Referer")},
                          port);
  }

  void install_routes() {
    http.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
      if (!host_ok(req)) {
        refuse(res, 403, "Forbidden: unknown host");
        return httplib::Server::HandlerResponse::Handled;
      }
      bool first_visit = req.path == "/" && req.has_param("token") &&
                         same_token(req.get_param_value("token"), token);
      if (!first_visit && !token_ok(req)) {
        refuse(res, 403, "Forbidden: open the address that the program printed");
        return httplib::Server::HandlerResponse::Handled;
      }
      return httplib::Server::HandlerResponse::Unhandled;
    });
    http.set_exception_handler([](const httplib::Request&, httplib::Response& res,
                                  std::exception_ptr) { refuse(res, 500, "Internal error"); });

    http.Get("/", [this](const httplib::Request&, httplib::Response& res) {
      res.set_header("Set-Cookie",
                     std::string(kCookie) + "=" + token + "; Path=/; HttpOnly; SameSite=Strict");
      res.set_redirect("/main/");
    });
    http.Get("/shell/shell.js", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string(kShellJs), "text/javascript");
    });
    http.Get("/shell/shell.css", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string(kShellCss), "text/css");
    });
    // The browser asks every window for an icon: a small drawn one.
    http.Get("/favicon.ico", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(
          R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16">)"
          R"(<rect width="16" height="16" rx="3" fill="#2f5d3a"/>)"
          R"(<path d="M4 13 8 3l4 10M5.6 9h4.8" stroke="#fff" stroke-width="1.8" fill="none"/></svg>)",
          "image/svg+xml");
    });
    http.Get(R"(/(.+))",
             [this](const httplib::Request& req, httplib::Response& res) { route_get(req, res); });
    // The body is read here rather than by the library, which would wait
    // for the end of a body that a POST without Content-Length never sends.
    http.Post(R"(/(.+))", [this](const httplib::Request& req, httplib::Response& res,
                                 const httplib::ContentReader& reader) {
      std::string body;
      bool too_long = false;
      if (req.has_header("Content-Length") || req.get_header_value("Transfer-Encoding") != "") {
        reader([&](const char* data, size_t size) {
          if (body.size() + size > kMaxBody) {
            too_long = true;
            return false;
          }
          body.append(data, size);
          return true;
        });
      }
      if (too_long) return refuse(res, 413, "Request body too large");
      route_post(req, body, res);
    });
  }

  // Splits a path into the window it names (the longest registered name,
  // which may hold a slash, such as "admin/prepro") and the rest.
  bool split_window(const std::string& path, std::string& window, std::string& rest,
                    bool& bare) const {
    bare = false;
    std::string best;
    for (size_t pos = path.find('/', 1); pos != std::string::npos; pos = path.find('/', pos + 1)) {
      std::string candidate = path.substr(1, pos - 1);
      if (ui.has_window(candidate)) best = candidate;
    }
    if (best.empty()) {
      if (ui.has_window(path.substr(1))) {
        window = path.substr(1);
        bare = true;  // the window named without its trailing slash
        return true;
      }
      return false;
    }
    window = best;
    rest = path.substr(best.size() + 2);
    return true;
  }

  void route_post(const httplib::Request& req, const std::string& body, httplib::Response& res) {
    std::string window, rest;
    bool bare = false;
    if (!split_window(req.path, window, rest, bare) || bare) {
      res.status = 404;
      return;
    }
    if (!may_change_state(req))
      return refuse(res, 403, "Forbidden: the request does not come from the program's pages");
    // Fields come from a form body only, never from the query string.
    std::optional<Params> fields = Params{};
    if (!body.empty()) {
      if (!is_form_content_type(req.get_header_value("Content-Type")))
        return refuse(res, 415, "Send the fields as application/x-www-form-urlencoded");
      fields = parse_form_body(body);
      if (!fields) return refuse(res, 400, "Malformed form body");
    }
    Params& p = *fields;
    if (rest == "command" || rest == "close") {
      // A window under a modal one, or a closed one, takes no input.
      if (!ui.accepts_input(window)) {
        res.status = 409;
        return set_json(res, {{"ok", false}, {"reason", "another window is on top"}});
      }
      if (rest == "command")
        ui.post_command(window, std::move(p));
      else
        ui.post_close(window);
    } else if (rest == "leave") {
      // A page of the main tab going: the beacon does not wait for this answer.
      const std::string client = param_text(p, "client");
      std::function<void()> closed;
      std::chrono::milliseconds grace;
      {
        std::lock_guard lock(main_tab_mutex);
        closed = main_tab_closed;
        grace = main_tab_grace;
      }
      if (closed && ui.in_main_tab(window) && !client.empty() &&
          !main_tab.still_shown(client, grace, [this] { return !stopping.load(); }))
        closed();
    } else if (rest == "answer") {
      int id = param_int(p, "id", 0);
      if (!ui.answer(id, param_text(p, "button"), param_text(p, "file"))) {
        res.status = 409;
        return set_json(res, {{"ok", false}});
      }
    } else {
      res.status = 404;
      return;
    }
    set_json(res, {{"ok", true}});
  }

  void route_get(const httplib::Request& req, httplib::Response& res) {
    std::string window, rest;
    bool bare = false;
    if (!split_window(req.path, window, rest, bare)) {
      res.status = 404;
      return;
    }
    if (bare) {
      res.set_redirect("/" + window + "/");
      return;
    }
    if (rest.empty()) {
      res.set_header("Cache-Control", "no-store");
      res.set_content(window_page(window), "text/html; charset=utf-8");
      return;
    }
    if (rest == "state.json") {
      // The pages of the main tab poll with their own id: they are there.
      struct Shown {
        TabPresence* presence = nullptr;
        std::string client;
        ~Shown() {
          if (presence) presence->poll_ended(client);
        }
      } shown;
      if (req.has_param("client") && ui.in_main_tab(window)) {
        shown.client = poll_client(req);
        if (shown.client.rfind("addr:", 0) != 0) {
          shown.presence = &main_tab;
          main_tab.poll_started(shown.client);
        }
      }
      if (req.has_param("since")) wait_for_change(req);
      set_json(res, ui.state(window));
      return;
    }
    // Files of the report folder, or page commands. The raw (still
    // encoded) path after the window prefix decides.
    std::string raw = req.target.substr(0, req.target.find('?'));
    raw = raw.size() > window.size() + 2 ? raw.substr(window.size() + 2) : "";
    auto target = url_decode(raw);
    // The window may take a link to one of its pages as a command.
    const bool serve = !target || ui.serves_file(window, *target);
    auto file = serve ? resolve_static(folder, raw) : std::nullopt;
    if (!file && serve && !assets.empty()) file = resolve_static(assets, raw);
    if (file) {
      std::ifstream in(*file, std::ios::binary);
      std::string body((std::istreambuf_iterator<char>(in)), {});
      res.set_header("Cache-Control", "no-store");
      // The type follows the name asked for, which the folder's check has
      // allowed, not the name a symbolic link leads to.
      const std::string name = fs::path(*target).filename().string();
      const std::string mime = mime_type_of(name);
      // Exported tables are saved by the browser, not shown.
      if (mime.rfind("text/csv", 0) == 0 || mime.find("spreadsheetml") != std::string::npos)
        res.set_header("Content-Disposition", attachment_header(name));
      res.set_content(body, mime);
      return;
    }
    // A page command is a single word with a suffix; nothing else is run.
    if (target && !target->empty() && target->size() < 256 &&
        target->find('/') == std::string::npos && target->find('.') != std::string::npos) {
      if (!may_change_state(req))
        return refuse(res, 403, "Forbidden: the request does not come from the program's pages");
      if (!ui.accepts_input(window)) {
        res.status = 409;
        return;
      }
      ui.post_navigation(window, *target);
      res.status = 204;  // the browser stays on its page: the navigation is cancelled
      return;
    }
    res.status = 404;
  }

  // A long poll: waits for a change while the gate lets it, its client is
  // there, and the timeout has not passed.
  void wait_for_change(const httplib::Request& req) {
    uint64_t since = 0;
    try {
      since = std::stoull(req.get_param_value("since"));
    } catch (const std::exception&) {
    }
    auto ticket = polls.enter(poll_client(req));
    if (!ticket) return;  // answered at once; the page polls again a little later
    ConnectionWatch watch(req.local_port, req.remote_port);
    ui.wait_for_change(since, kPollTimeoutMs, [&] { return !watch.gone() && !stopping; });
  }
};

Server::Server(WebUi& ui, fs::path report_folder, std::string token, fs::path assets_folder)
    : impl_(std::make_unique<Impl>(ui, std::move(report_folder), token)), token_(std::move(token)) {
  if (assets_folder != impl_->folder) impl_->assets = std::move(assets_folder);
  impl_->install_routes();
}

Server::~Server() {
  stop();
}

int Server::bind(int port) {
  int bound = port == 0 ? impl_->http.bind_to_any_port("127.0.0.1")
                        : (impl_->http.bind_to_port("127.0.0.1", port) ? port : -1);
  impl_->port = bound;
  return bound;
}

void Server::listen() {
  impl_->http.listen_after_bind();
}

void Server::stop() {
  if (!impl_) return;
  impl_->stopping = true;  // waiting polls answer, so their threads can end
  impl_->http.stop();
}

size_t Server::waiting_polls() const {
  return impl_->polls.waiting();
}

void Server::on_main_tab_closed(std::function<void()> action, std::chrono::milliseconds grace) {
  std::lock_guard lock(impl_->main_tab_mutex);
  impl_->main_tab_closed = std::move(action);
  impl_->main_tab_grace = grace;
}

}  // namespace arven::shell
