#include "shell/server.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <sstream>

#include "base/utf8.h"
#include "reports/page_kit.h"
#include "shell/connections.h"
#include "shell/poll_gate.h"
#include "shell/web_assets.h"

namespace arven::shell {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kCookie = "arven_token";
constexpr const char* kScriptHeader = "X-ARVEN-Token";
constexpr size_t kMaxBody = 1 << 20;      // a form body; ours are a few hundred bytes
constexpr size_t kThreads = 2;            // every connection is served by these
constexpr size_t kMaxPolls = 48;          // long polls waiting at once, in all
constexpr size_t kMaxPollsPerClient = 4;  // ... and of one client
constexpr int kPollTimeoutMs = 15000;

// The window scripts and styles are compiled in: their address carries a
// digest of their text, so a browser may keep them as long as it likes.
std::string digest(std::string_view text) {
  std::ostringstream s;
  s << std::hex << std::hash<std::string_view>{}(text);
  return s.str();
}
const std::string& shell_js_version() {
  static const std::string v = digest(kShellJs);
  return v;
}
const std::string& shell_css_version() {
  static const std::string v = digest(kShellCss);
  return v;
}
const std::string& channel_js_version() {
  static const std::string v = digest(kChannelJs);
  return v;
}

std::string window_page(const std::string& window) {
  std::string w = html_escape(window);
  return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
         "<title>ARVEN</title><link rel=\"stylesheet\" href=\"/shell/shell.css?v=" +
         shell_css_version() + "\"></head>\n<body data-window=\"" + w +
         "\" data-channel=\"/shell/channel.js?v=" + channel_js_version() +
         "\">\n"
         "<div id=\"menubar\"></div>\n"
         "<div id=\"notice\" role=\"status\"></div>\n"
         "<div id=\"layout\"><div id=\"side\"></div><div id=\"content\"><div id=\"toolbar\"></div>"
         "<iframe id=\"page\" name=\"page\" title=\"page\"></iframe></div></div>\n"
         "<div id=\"statusbar\"><span id=\"caption\" role=\"status\"></span><span "
         "id=\"progress\"></span></div>\n"
         "<div id=\"dialog-layer\"></div>\n"
         "<script src=\"/shell/shell.js?v=" +
         shell_js_version() + "\"></script>\n</body></html>\n";
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

void set_json(HttpReply& res, json j) {
  make_valid(j);
  res.set_header("Cache-Control", "no-store");
  res.set_content(j.dump(), "application/json");
}

HttpReply refusal(int status, const std::string& why) {
  HttpReply res;
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  res.set_content(why, "text/plain; charset=utf-8");
  return res;
}

HttpReply status_only(int status) {
  HttpReply res;
  res.status = status;
  return res;
}

// A compiled-in script or style: kept by the browser when asked for under
// its current version, checked again otherwise.
HttpReply asset(std::string_view text, const char* type, const std::string& version,
                const HttpRequest& req) {
  HttpReply res;
  res.set_content(std::string(text), type);
  res.set_header("Cache-Control",
                 req.param("v") == version ? "max-age=31536000, immutable" : "no-cache");
  return res;
}

// What does not change while it is used (scripts, styles, graphics, help
// images) is kept by the browser and checked by a validator; pages and
// exported tables are always fetched anew.
bool kept_by_browser(const std::string& mime) {
  return mime.rfind("text/javascript", 0) == 0 || mime.rfind("text/css", 0) == 0 ||
         mime.rfind("image/", 0) == 0 || mime.rfind("font/", 0) == 0;
}

std::string entity_tag(const fs::path& file) {
  std::error_code ec;
  const auto size = fs::file_size(file, ec);
  const auto time = fs::last_write_time(file, ec).time_since_epoch().count();
  std::ostringstream s;
  s << '"' << std::hex << size << '-' << time << '"';
  return s.str();
}

// A poll's client: the id its page sends (letters, digits, '-' and '_',
// at most 64), else the address it comes from.
bool plain_client_id(const std::string& id) {
  return !id.empty() && id.size() <= 64 && std::all_of(id.begin(), id.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '-' || c == '_';
  });
}
std::string poll_client(const HttpRequest& req) {
  std::string id = req.param("client");
  return plain_client_id(id) ? id : "addr:" + req.remote_addr;
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
  PollGate polls{kMaxPolls, kMaxPollsPerClient};
  TabPresence main_tab;
  std::mutex main_tab_mutex;  // guards the three below
  std::function<void()> main_tab_closed;
  std::chrono::milliseconds main_tab_grace{4000};
  bool main_tab_closed_ran = false;
  // The pages each channel shows: page id -> whether it is of the main tab.
  std::mutex channels_mutex;
  std::map<ChannelId, std::map<std::string, bool>> channel_pages;
  std::atomic<bool> stopping{false};
  // Last: its threads end before the members above go.
  std::unique_ptr<Connections> connections;

  Impl(WebUi& u, fs::path f, std::string t) : ui(u), folder(std::move(f)), token(std::move(t)) {
    Routes routes;
    routes.http = [this](const HttpRequest& req) { return route(req); };
    routes.channel_allowed = [this](const HttpRequest& req) {
      return host_ok(req) && token_ok(req) && may_change_state(req);
    };
    routes.channel_message = [this](ChannelId id, const std::string& m) { on_channel(id, m); };
    routes.channel_closed = [this](ChannelId id) { channel_closed(id); };
    routes.version = [this] { return ui.version(); };
    connections = std::make_unique<Connections>(std::move(routes), kThreads, kMaxBody);
    ui.set_change_listener([c = connections.get()](uint64_t v) { c->changed(v); });
  }

  ~Impl() {
    stopping = true;
    ui.set_change_listener(nullptr);
    connections.reset();
  }

  bool host_ok(const HttpRequest& req) const {
    std::string host = req.header("Host");
    std::string p = std::to_string(port);
    return host == "127.0.0.1:" + p || host == "localhost:" + p;
  }

  bool script_request(const HttpRequest& req) const {
    return same_token(req.header(kScriptHeader), token);
  }

  bool token_ok(const HttpRequest& req) const {
    return same_token(cookie_value(req.header("Cookie"), kCookie), token) || script_request(req);
  }

  // A request that changes state: a script's, or one sent by our own pages.
  // The cookie alone proves nothing, since the browser sends it with
  // requests that other pages of the same site make.
  bool may_change_state(const HttpRequest& req) const {
    if (script_request(req)) return true;
    return from_own_pages(
        {req.header("Sec-Fetch-Site"), req.header("Origin"), req.header("Referer")}, port);
  }

  Outcome route(const HttpRequest& req) {
    Outcome out;
    if (!host_ok(req)) {
      out.reply = refusal(403, "Forbidden: unknown host");
      return out;
    }
    const bool first_visit =
        req.path == "/" && req.has_param("token") && same_token(req.param("token"), token);
    if (!first_visit && !token_ok(req)) {
      out.reply = refusal(403, "Forbidden: open the address that the program printed");
      return out;
    }
    const bool get = req.method == "GET" || req.method == "HEAD";
    if (get && req.path == "/") {
      out.reply.set_header(
          "Set-Cookie", std::string(kCookie) + "=" + token + "; Path=/; HttpOnly; SameSite=Strict");
      out.reply.redirect("/main/");
    } else if (get && req.path == "/shell/shell.js") {
      out.reply = asset(kShellJs, "text/javascript", shell_js_version(), req);
    } else if (get && req.path == "/shell/channel.js") {
      out.reply = asset(kChannelJs, "text/javascript", channel_js_version(), req);
    } else if (get && req.path == "/shell/shell.css") {
      out.reply = asset(kShellCss, "text/css", shell_css_version(), req);
    } else if (get && req.path == "/favicon.ico") {
      // The browser asks every window for an icon: a small drawn one.
      out.reply.set_content(
          R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16">)"
          R"(<rect width="16" height="16" rx="3" fill="#2f5d3a"/>)"
          R"(<path d="M4 13 8 3l4 10M5.6 9h4.8" stroke="#fff" stroke-width="1.8" fill="none"/></svg>)",
          "image/svg+xml");
      out.reply.set_header("Cache-Control", "max-age=86400");
    } else if (get && req.path.size() > 1) {
      return route_get(req);
    } else if (req.method == "POST" && req.path.size() > 1) {
      return route_post(req);
    } else {
      out.reply = status_only(req.path == "/" ? 405 : 404);
    }
    return out;
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

  Outcome route_post(const HttpRequest& req) {
    Outcome out;
    HttpReply& res = out.reply;
    std::string window, rest;
    bool bare = false;
    if (!split_window(req.path, window, rest, bare) || bare) {
      res = status_only(404);
      return out;
    }
    if (!may_change_state(req)) {
      res = refusal(403, "Forbidden: the request does not come from the program's pages");
      return out;
    }
    // Fields come from a form body only, never from the query string.
    std::optional<Params> fields = Params{};
    if (!req.body.empty()) {
      if (!is_form_content_type(req.header("Content-Type"))) {
        res = refusal(415, "Send the fields as application/x-www-form-urlencoded");
        return out;
      }
      fields = parse_form_body(req.body);
      if (!fields) {
        res = refusal(400, "Malformed form body");
        return out;
      }
    }
    Params& p = *fields;
    if (rest == "command" || rest == "close") {
      // A window under a modal one, or a closed one, takes no input.
      if (!ui.accepts_input(window)) {
        res.status = 409;
        set_json(res, {{"ok", false}, {"reason", "another window is on top"}});
        return out;
      }
      if (rest == "command")
        ui.post_command(window, std::move(p));
      else
        ui.post_close(window);
    } else if (rest == "leave") {
      // A page of the main tab going: the beacon does not wait for this
      // answer, which comes once the grace time says whether it was closed.
      const std::string client = param_text(p, "client");
      if (ui.in_main_tab(window) && !client.empty()) {
        auto left = main_tab.went(client);
        PendingReply wait;
        wait.timeout = grace();
        wait.ready = [this, client, left] {
          return stopping || main_tab.shown_since(client, left);
        };
        wait.answer = [this, client, left] {
          if (!stopping && !main_tab.shown_since(client, left)) tab_closed();
          HttpReply ok;
          set_json(ok, {{"ok", true}});
          return ok;
        };
        wait.runs_after_client_left = true;
        out.wait = std::move(wait);
        return out;
      }
    } else if (rest == "answer") {
      int id = param_int(p, "id", 0);
      if (!ui.answer(id, param_text(p, "button"), param_text(p, "file"))) {
        res.status = 409;
        set_json(res, {{"ok", false}});
        return out;
      }
    } else {
      res = status_only(404);
      return out;
    }
    set_json(res, {{"ok", true}});
    return out;
  }

  Outcome route_get(const HttpRequest& req) {
    Outcome out;
    HttpReply& res = out.reply;
    std::string window, rest;
    bool bare = false;
    if (!split_window(req.path, window, rest, bare)) {
      res = status_only(404);
      return out;
    }
    if (bare) {
      res.redirect("/" + window + "/");
      return out;
    }
    if (rest.empty()) {
      res.set_header("Cache-Control", "no-store");
      res.set_content(window_page(window), "text/html; charset=utf-8");
      return out;
    }
    if (rest == "state.json") return state_answer(req, window);
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
      // The type follows the name asked for, which the folder's check has
      // allowed, not the name a symbolic link leads to.
      const std::string name = fs::path(*target).filename().string();
      const std::string mime = mime_type_of(name);
      if (kept_by_browser(mime)) {
        const std::string tag = entity_tag(*file);
        res.set_header("Cache-Control", "no-cache");
        res.set_header("ETag", tag);
        if (req.header("If-None-Match") == tag) {
          res.status = 304;
          return out;
        }
      } else {
        res.set_header("Cache-Control", "no-store");
      }
      std::ifstream in(*file, std::ios::binary);
      std::string body((std::istreambuf_iterator<char>(in)), {});
      // Exported tables are saved by the browser, not shown.
      if (mime.rfind("text/csv", 0) == 0 || mime.find("spreadsheetml") != std::string::npos)
        res.set_header("Content-Disposition", attachment_header(name));
      res.set_content(std::move(body), mime);
      return out;
    }
    // A page command is a single word with a suffix; nothing else is run.
    if (target && !target->empty() && target->size() < 256 &&
        target->find('/') == std::string::npos && target->find('.') != std::string::npos) {
      if (!may_change_state(req)) {
        res = refusal(403, "Forbidden: the request does not come from the program's pages");
        return out;
      }
      if (!ui.accepts_input(window)) {
        res = status_only(409);
        return out;
      }
      ui.post_navigation(window, *target);
      res = status_only(204);  // the browser stays on its page: the navigation is cancelled
      return out;
    }
    res = status_only(404);
    return out;
  }

  // A window's state; with since=N, a long poll that waits for a change
  // while the gate lets it, its client is there, and the timeout has not
  // passed. The pages of the main tab poll with their own id: they are there.
  Outcome state_answer(const HttpRequest& req, const std::string& window) {
    struct Shown {
      TabPresence* presence = nullptr;
      std::string client;
      std::unique_ptr<PollGate::Ticket> ticket;
      ~Shown() {
        if (presence) presence->poll_ended(client);
      }
    };
    auto shown = std::make_shared<Shown>();
    if (req.has_param("client") && ui.in_main_tab(window)) {
      shown->client = poll_client(req);
      if (shown->client.rfind("addr:", 0) != 0) {
        shown->presence = &main_tab;
        main_tab.poll_started(shown->client);
      }
    }
    auto answer = [this, window, shown] {
      HttpReply res;
      set_json(res, ui.state(window));
      return res;
    };
    Outcome out;
    if (req.has_param("since")) {
      uint64_t since = 0;
      try {
        since = std::stoull(req.param("since"));
      } catch (const std::exception&) {
      }
      // Beyond the gate's limits a poll is answered at once; the page polls
      // again a little later.
      shown->ticket = polls.enter(poll_client(req));
      if (shown->ticket && ui.version() <= since) {
        PendingReply wait;
        wait.timeout = std::chrono::milliseconds(kPollTimeoutMs);
        wait.ready = [this, since] { return ui.version() > since; };
        wait.answer = answer;
        wait.hold = shown;
        out.wait = std::move(wait);
        return out;
      }
    }
    out.reply = answer();
    return out;
  }

  // ---- channels ----
  // A page says which window it shows ({"show":{"client":ID,"window":W}}),
  // and that it goes ({"gone":ID,"closing":true} when its tab closes).
  void on_channel(ChannelId id, const std::string& text) {
    json m = json::parse(text, nullptr, false);
    if (!m.is_object()) return;
    if (m.contains("show") && m["show"].is_object()) {
      const json& show = m["show"];
      if (!show.contains("client") || !show["client"].is_string() || !show.contains("window") ||
          !show["window"].is_string())
        return;
      const std::string client = show["client"], window = show["window"];
      if (!plain_client_id(client) || !ui.has_window(window)) return;
      const bool main = ui.in_main_tab(window);
      {
        std::lock_guard lock(channels_mutex);
        auto& pages = channel_pages[id];
        if (pages.count(client) || pages.size() >= 64) return;
        pages[client] = main;
      }
      if (main) main_tab.poll_started(client);
    } else if (m.contains("gone") && m["gone"].is_string()) {
      const std::string client = m["gone"];
      bool main = false;
      {
        std::lock_guard lock(channels_mutex);
        auto it = channel_pages.find(id);
        if (it == channel_pages.end()) return;
        auto page = it->second.find(client);
        if (page == it->second.end()) return;
        main = page->second;
        it->second.erase(page);
      }
      if (!main) return;
      main_tab.poll_ended(client);
      if (m.value("closing", false)) page_went(client);
    }
  }

  // The browser's channel closed (its last window closed, or the browser):
  // each main-tab page it showed went.
  void channel_closed(ChannelId id) {
    std::map<std::string, bool> pages;
    {
      std::lock_guard lock(channels_mutex);
      auto it = channel_pages.find(id);
      if (it == channel_pages.end()) return;
      pages = std::move(it->second);
      channel_pages.erase(it);
    }
    for (const auto& [client, main] : pages) {
      if (!main) continue;
      main_tab.poll_ended(client);
      if (!stopping) page_went(client);
    }
  }

  // A page of the main tab went: the tab was closed unless another page
  // of it shows within the grace time.
  void page_went(const std::string& client) {
    const auto left = main_tab.went(client);
    connections->after(grace(), [this, client, left] {
      if (!stopping && !main_tab.shown_since(client, left)) tab_closed();
    });
  }

  std::chrono::milliseconds grace() {
    std::lock_guard lock(main_tab_mutex);
    return main_tab_grace;
  }

  // Runs the action once. It holds one of the server's threads while the
  // program ends; the others go on serving.
  void tab_closed() {
    std::function<void()> action;
    {
      std::lock_guard lock(main_tab_mutex);
      if (!main_tab_closed || main_tab_closed_ran) return;
      main_tab_closed_ran = true;
      action = main_tab_closed;
    }
    action();
  }
};

Server::Server(WebUi& ui, fs::path report_folder, std::string token, fs::path assets_folder)
    : impl_(std::make_unique<Impl>(ui, std::move(report_folder), token)), token_(std::move(token)) {
  if (assets_folder != impl_->folder) impl_->assets = std::move(assets_folder);
}

Server::~Server() {
  stop();
}

int Server::bind(int port) {
  int bound = impl_->connections->bind(port);
  impl_->port = bound;
  return bound;
}

void Server::listen() {
  impl_->connections->run();
}

void Server::stop() {
  if (!impl_) return;
  impl_->stopping = true;  // waiting answers answer, and the threads end
  impl_->connections->stop();
}

size_t Server::waiting_polls() const {
  return impl_->polls.waiting();
}

size_t Server::threads() const {
  return impl_->connections->threads();
}

void Server::on_main_tab_closed(std::function<void()> action, std::chrono::milliseconds grace) {
  std::lock_guard lock(impl_->main_tab_mutex);
  impl_->main_tab_closed = std::move(action);
  impl_->main_tab_grace = grace;
}

}  // namespace arven::shell
