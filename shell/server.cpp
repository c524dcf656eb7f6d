#include "shell/server.h"

#include <httplib.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>

#include "reports/page_kit.h"
#include "shell/web_assets.h"

namespace arven::shell {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kCookie = "arven_token";

// Kinds of file the report folder serves; stores and anything else stay put.
const std::map<std::string, std::string>& mime_types() {
  static const std::map<std::string, std::string> m = {
      {".htm", "text/html; charset=utf-8"},
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css"},
      {".js", "text/javascript"},
      {".gif", "image/gif"},
      {".jpg", "image/jpeg"},
      {".jpeg", "image/jpeg"},
      {".png", "image/png"},
      {".svg", "image/svg+xml"},
      {".pdf", "application/pdf"},
      {".kmz", "application/vnd.google-earth.kmz"},
      {".csv", "text/csv; charset=utf-8"},
      {".xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {".txt", "text/plain; charset=utf-8"}};
  return m;
}

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

std::string cookie_value(const httplib::Request& req, const std::string& name) {
  std::string all = req.get_header_value("Cookie");
  size_t pos = 0;
  while (pos < all.size()) {
    size_t end = all.find(';', pos);
    if (end == std::string::npos) end = all.size();
    std::string part = all.substr(pos, end - pos);
    size_t b = part.find_first_not_of(' ');
    if (b != std::string::npos) part = part.substr(b);
    if (part.rfind(name + "=", 0) == 0) return part.substr(name.size() + 1);
    pos = end + 1;
  }
  return "";
}

// Constant-time comparison of the token.
bool same_token(const std::string& a, const std::string& b) {
  if (a.size() != b.size() || a.empty()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < a.size(); ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  return diff == 0;
}

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
         "<div id=\"statusbar\"><span id=\"caption\"></span><span id=\"progress\"></span></div>\n"
         "<div id=\"dialog-layer\"></div>\n"
         "<script src=\"/shell/shell.js\"></script>\n</body></html>\n";
}

void set_json(httplib::Response& res, const json& j) {
  res.set_header("Cache-Control", "no-store");
  res.set_content(j.dump(), "application/json");
}

Params form_params(const httplib::Request& req) {
  Params p;
  for (const auto& [k, v] : req.params) p[k] = v;
  return p;
}

}  // namespace

std::optional<std::string> url_decode(std::string_view text) {
  auto hex = [](char h) -> int {
    if (h >= '0' && h <= '9') return h - '0';
    if (h >= 'a' && h <= 'f') return h - 'a' + 10;
    if (h >= 'A' && h <= 'F') return h - 'A' + 10;
    return -1;
  };
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size()) return std::nullopt;
      int hi = hex(text[i + 1]), lo = hex(text[i + 2]);
      if (hi < 0 || lo < 0) return std::nullopt;
      c = static_cast<char>(hi * 16 + lo);
      i += 2;
    }
    if (c == '\0') return std::nullopt;
    out += c;
  }
  return out;
}

// The Content-Disposition of a download; quotes, backslashes and control
// characters of the name become '_' so the header stays one quoted string.
std::string attachment_header(std::string name) {
  for (char& ch : name)
    if (ch == '"' || ch == '\\' || static_cast<unsigned char>(ch) < 0x20) ch = '_';
  return "attachment; filename=\"" + name + "\"";
}

std::optional<fs::path> resolve_static(const fs::path& folder, std::string_view relative) {
  auto decoded = url_decode(relative);
  if (!decoded || decoded->empty()) return std::nullopt;
  // Decode once more: a doubly encoded "..%252f" must not slip through a
  // second decoding somewhere else.
  if (decoded->find('%') != std::string::npos) {
    auto twice = url_decode(*decoded);
    if (!twice || *twice != *decoded) return std::nullopt;
  }
  const std::string& rel = *decoded;
  if (rel.front() == '/' || rel.find('\\') != std::string::npos) return std::nullopt;
  fs::path p(rel);
  for (const auto& part : p)
    if (part == ".." || part == "." || part.empty()) return std::nullopt;
  if (!mime_types().count(lower(p.extension().string()))) return std::nullopt;
  std::error_code ec;
  fs::path base = fs::weakly_canonical(folder, ec);
  if (ec) return std::nullopt;
  fs::path full = fs::weakly_canonical(base / p, ec);
  if (ec) return std::nullopt;
  // Symbolic links out of the folder are refused too.
  auto [b, f] = std::mismatch(base.begin(), base.end(), full.begin(), full.end());
  if (b != base.end()) return std::nullopt;
  if (!fs::is_regular_file(full, ec)) return std::nullopt;
  return full;
}

std::string make_token() {
  std::random_device rd;
  std::ostringstream s;
  for (int i = 0; i < 4; ++i) s << std::hex << rd();
  return s.str();
}

struct Server::Impl {
  WebUi& ui;
  fs::path folder;
  std::string token;
  int port = 0;
  httplib::Server http;

  Impl(WebUi& u, fs::path f, std::string t) : ui(u), folder(std::move(f)), token(std::move(t)) {}

  bool host_ok(const httplib::Request& req) const {
    std::string host = req.get_header_value("Host");
    std::string p = std::to_string(port);
    return host == "127.0.0.1:" + p || host == "localhost:" + p;
  }

  bool token_ok(const httplib::Request& req) const {
    return same_token(cookie_value(req, kCookie), token) ||
           same_token(req.get_header_value("X-ARVEN-Token"), token);
  }

  void install_routes() {
    http.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
      if (!host_ok(req)) {
        res.status = 403;
        res.set_content("Forbidden: unknown host", "text/plain");
        return httplib::Server::HandlerResponse::Handled;
      }
      bool first_visit = req.path == "/" && req.has_param("token") &&
                         same_token(req.get_param_value("token"), token);
      if (!first_visit && !token_ok(req)) {
        res.status = 403;
        res.set_content("Forbidden: open the address that the program printed", "text/plain");
        return httplib::Server::HandlerResponse::Handled;
      }
      return httplib::Server::HandlerResponse::Unhandled;
    });
    http.set_exception_handler(
        [](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
          res.status = 500;
          res.set_content("Internal error", "text/plain");
        });

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
    http.Get(R"(/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
      route(req, res, false);
    });
    http.Post(R"(/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
      route(req, res, true);
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

  void route(const httplib::Request& req, httplib::Response& res, bool post) {
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
    if (post) {
      Params p = form_params(req);
      if (rest == "command") {
        ui.post_command(window, std::move(p));
      } else if (rest == "close") {
        ui.post_close(window);
      } else if (rest == "answer") {
        int id = 0;
        try {
          id = std::stoi(p["id"]);
        } catch (const std::exception&) {
        }
        if (!ui.answer(id, p["button"], p["file"])) {
          res.status = 409;
          set_json(res, {{"ok", false}});
          return;
        }
      } else {
        res.status = 404;
        return;
      }
      set_json(res, {{"ok", true}});
      return;
    }
    if (rest.empty()) {
      res.set_header("Cache-Control", "no-store");
      res.set_content(window_page(window), "text/html; charset=utf-8");
      return;
    }
    if (rest == "state.json") {
      if (req.has_param("since")) {
        uint64_t since = 0;
        try {
          since = std::stoull(req.get_param_value("since"));
        } catch (const std::exception&) {
        }
        ui.wait_for_change(since, 15000);
      }
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
    if (auto file = serve ? resolve_static(folder, raw) : std::nullopt) {
      std::ifstream in(*file, std::ios::binary);
      std::string body((std::istreambuf_iterator<char>(in)), {});
      res.set_header("Cache-Control", "no-store");
      const std::string ext = lower(file->extension().string());
      // Exported tables are saved by the browser, not shown.
      if (ext == ".csv" || ext == ".xlsx")
        res.set_header("Content-Disposition", attachment_header(file->filename().string()));
      res.set_content(body, mime_types().at(ext));
      return;
    }
    // A page command is a single word with a suffix; nothing else is run.
    if (target && !target->empty() && target->size() < 256 &&
        target->find('/') == std::string::npos && target->find('.') != std::string::npos) {
      ui.post_navigation(window, *target);
      res.status = 204;  // the browser stays on its page: the navigation is cancelled
      return;
    }
    res.status = 404;
  }
};

Server::Server(WebUi& ui, fs::path report_folder, std::string token)
    : impl_(std::make_unique<Impl>(ui, std::move(report_folder), token)), token_(std::move(token)) {
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
  if (impl_) impl_->http.stop();
}

}  // namespace arven::shell
