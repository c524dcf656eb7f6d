#include "shell/web_ui.h"

#include <algorithm>
#include <random>

namespace arven::shell {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::vector<std::string> button_names(MsgButtons b) {
  switch (b) {
    case MsgButtons::Ok:
      return {"OK"};
    case MsgButtons::OkCancel:
      return {"OK", "Cancel"};
    case MsgButtons::YesNo:
      return {"Yes", "No"};
    case MsgButtons::YesNoCancel:
      return {"Yes", "No", "Cancel"};
    case MsgButtons::RetryCancel:
      return {"Retry", "Cancel"};
  }
  return {"OK"};
}

const char* icon_name(MsgIcon i) {
  switch (i) {
    case MsgIcon::Stop:
      return "stop";
    case MsgIcon::Question:
      return "question";
    case MsgIcon::Exclamation:
      return "exclamation";
    case MsgIcon::Information:
      return "information";
    case MsgIcon::None:
      break;
  }
  return "none";
}

Answer answer_of(const std::string& button) {
  if (button == "Yes") return Answer::Yes;
  if (button == "No") return Answer::No;
  if (button == "Cancel") return Answer::Cancel;
  if (button == "Retry") return Answer::Retry;
  return Answer::Ok;
}

// Room that a file name leaves for the store's side files ("-journal").
constexpr size_t kLongestFileName = 255 - 8;

// What is wrong with a name typed into the chooser ("" for nothing): it
// may not leave its folder, hold control characters (a line break would
// end up in the recent-files list), or be too long for the store's files.
std::string file_name_fault(const std::string& name) {
  const bool control =
      std::any_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
  // A leading dot would hide the file from the chooser's own list.
  if (name.empty() || name[0] == '.' || name.find_first_of("/\\") != std::string::npos || control)
    return "The file name is not valid. A name may not begin with a dot or contain / \\ or "
           "control characters.";
  if (name.size() > kLongestFileName)
    return "The file name is too long. Use at most " + std::to_string(kLongestFileName) +
           " characters.";
  return "";
}

// The name as a message may show it: control characters become '?'.
std::string printable(std::string name) {
  for (char& c : name)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  return name;
}

}  // namespace

std::string param_text(const Params& params, const std::string& key) {
  auto it = params.find(key);
  return it == params.end() ? "" : it->second;
}

int param_int(const Params& params, const std::string& key, int fallback) {
  auto it = params.find(key);
  if (it == params.end()) return fallback;
  try {
    size_t used = 0;
    int v = std::stoi(it->second, &used);
    return used == it->second.size() ? v : fallback;
  } catch (const std::exception&) {
    return fallback;
  }
}

std::vector<std::string> list_files(const fs::path& folder, const std::string& filter) {
  std::string ext = filter.size() > 1 && filter[0] == '*' ? filter.substr(1) : "";
  std::vector<std::string> out;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    if (!it->is_regular_file(ec)) continue;
    std::string name = it->path().filename().string();
    if (name.empty() || name[0] == '.') continue;  // hidden, or a file being made
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    if (ext.empty() || (lower.size() > ext.size() &&
                        lower.compare(lower.size() - ext.size(), ext.size(), ext) == 0))
      out.push_back(name);
  }
  std::sort(out.begin(), out.end());
  return out;
}

WebUi::WebUi(Worker& worker) : worker_(worker) {
  std::random_device rd;
  run_id_ = std::to_string(rd()) + std::to_string(rd());
}

WebUi::ActiveWindow::ActiveWindow(WebUi& ui, const std::string& window) : ui_(ui) {
  std::lock_guard lock(ui_.mutex_);
  previous_ = ui_.active_;
  ui_.active_ = window;
}

WebUi::ActiveWindow::~ActiveWindow() {
  std::lock_guard lock(ui_.mutex_);
  ui_.active_ = previous_;
}

void WebUi::register_window(const std::string& name, WindowHandlers handlers) {
  std::lock_guard lock(mutex_);
  windows_[name].handlers = std::move(handlers);
}

bool WebUi::has_window(const std::string& name) const {
  std::lock_guard lock(mutex_);
  return windows_.count(name) > 0;
}

int WebUi::window_tab(const std::string& name) const {
  std::lock_guard lock(mutex_);
  auto it = windows_.find(name);
  return it == windows_.end() ? 0 : it->second.tab;
}

bool WebUi::serves_file(const std::string& window, const std::string& target) const {
  std::function<bool(const std::string&)> filter;
  {
    std::lock_guard lock(mutex_);
    auto it = windows_.find(window);
    if (it == windows_.end() || it->second.page == target) return true;  // the page on show
    filter = it->second.handlers.serves_file;
  }
  return !filter || filter(target);
}

void WebUi::changed() {
  ++version_;
  cv_.notify_all();
  if (change_listener_) change_listener_(version_);
}

uint64_t WebUi::version() const {
  std::lock_guard lock(mutex_);
  return version_;
}

void WebUi::set_change_listener(std::function<void(uint64_t)> listener) {
  std::lock_guard lock(mutex_);
  change_listener_ = std::move(listener);
}

std::string WebUi::current_window() const {
  if (!modal_stack_.empty()) return modal_stack_.back();
  return "main";
}

std::string WebUi::beside_active_locked() const {
  auto it = windows_.find(active_);
  const bool beside = it != windows_.end() && it->second.open && !in_main_tab_locked(active_);
  return beside ? active_ : "";
}

WebUi::Answered WebUi::ask(Dialog dialog) {
  std::unique_lock lock(mutex_);
  dialog.id = next_dialog_++;
  if (dialog.window.empty()) {
    // The window whose control asked, when it stands open beside the main
    // one; otherwise the window on top.
    const std::string beside = beside_active_locked();
    dialog.window = !beside.empty() ? beside : current_window();
  }
  int id = dialog.id;
  dialog_ = std::move(dialog);
  answered_.reset();
  changed();
  cv_.wait(lock, [&] { return answered_.has_value() || !dialog_ || dialog_->id != id; });
  Answered a = answered_.value_or(Answered{"Cancel", ""});
  dialog_.reset();
  answered_.reset();
  changed();
  return a;
}

Answer WebUi::message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                          MsgIcon icon) {
  Dialog d;
  d.kind = "message";
  d.title = title;
  d.text = text;
  d.icon = icon_name(icon);
  d.buttons = button_names(buttons);
  return answer_of(ask(std::move(d)).button);
}

std::string WebUi::file_dialog(const FileDialogRequest& request) {
  while (true) {
    Dialog d;
    d.kind = "file";
    d.title = request.title;
    d.save = request.save;
    d.folder = request.initial_dir;
    d.filter = request.filter;
    d.default_name = request.default_name;
    d.files = list_files(request.initial_dir, request.filter);
    d.buttons = {request.save ? "Save" : "Open", "Cancel"};
    Answered a = ask(std::move(d));
    if (a.button == "Cancel") return "";
    // A confirm with no name is no cancel: the chooser says what it needs.
    if (a.file_name.empty()) {
      message_box("Please enter a file name.", request.title, MsgButtons::Ok, MsgIcon::Exclamation);
      continue;
    }
    std::string name = a.file_name;
    std::string ext = request.filter.size() > 1 ? request.filter.substr(1) : "";
    if (!ext.empty() &&
        (name.size() < ext.size() || name.compare(name.size() - ext.size(), ext.size(), ext) != 0))
      name += ext;
    if (const std::string fault = file_name_fault(name); !fault.empty()) {
      message_box(printable(name) + "\n" + fault, request.title, MsgButtons::Ok,
                  MsgIcon::Exclamation);
      continue;  // back to the chooser
    }
    fs::path path = fs::path(request.initial_dir) / name;
    std::error_code ec;
    if (request.save && fs::exists(path, ec)) {
      Answer replace =
          message_box(path.filename().string() + " already exists.\nDo you want to replace it?",
                      request.title, MsgButtons::YesNo, MsgIcon::Exclamation);
      if (replace != Answer::Yes) continue;  // back to the chooser
    }
    if (!request.save && !fs::is_regular_file(path, ec)) {
      message_box(
          path.filename().string() + "\nFile not found.\nCheck the file name and try again.",
          request.title, MsgButtons::Ok, MsgIcon::Exclamation);
      continue;
    }
    return path.string();
  }
}

void WebUi::show_modal(const std::string& window, int tab) {
  if (!has_window(window)) {
    message_box("This part of ARVEN is not available in this build yet.", "ARVEN", MsgButtons::Ok,
                MsgIcon::Information);
    return;
  }
  {
    std::lock_guard lock(mutex_);
    windows_[window].tab = tab;
  }
  run_load(window);
  {
    std::lock_guard lock(mutex_);
    auto& w = windows_[window];
    w.open = true;
    modal_stack_.push_back(window);
    forget_finished_work();
    // A click beside the main tab opened it there: the window clicked says so.
    const std::string beside = beside_active_locked();
    if (!beside.empty()) {
      auto& b = windows_[beside];
      b.notice = "It opened in the main ARVEN window.";
      ++b.notices;
    }
    changed();
  }
  refresh_controls();
  worker_.run_until([&] {
    std::lock_guard lock(mutex_);
    return !windows_[window].open;
  });
  std::lock_guard lock(mutex_);
  auto it = std::find(modal_stack_.begin(), modal_stack_.end(), window);
  if (it != modal_stack_.end()) modal_stack_.erase(it);
  windows_[window].open = false;
  changed();
}

void WebUi::run_load(const std::string& window) {
  std::function<void()> load;
  {
    std::lock_guard lock(mutex_);
    load = windows_[window].handlers.load;
  }
  if (load) load();
}

void WebUi::show_window(const std::string& window) {
  if (!has_window(window)) {
    message_box("This part of ARVEN is not available in this build yet.", "ARVEN", MsgButtons::Ok,
                MsgIcon::Information);
    return;
  }
  run_load(window);
  {
    std::lock_guard lock(mutex_);
    windows_[window].open = true;
    forget_finished_work();
    changed();
  }
  // A window beside the main one gets a browser window of its own.
  if (window != "main") open_document("/" + window + "/");
}

void WebUi::close_window(const std::string& window) {
  std::lock_guard lock(mutex_);
  windows_[window].open = false;
  changed();
}

void WebUi::navigate(const std::string& window, const std::string& page) {
  std::lock_guard lock(mutex_);
  // A link of a window beside the main tab (a report) shows its result in
  // that window, not in the main tab behind it.
  const std::string beside = beside_active_locked();
  auto& w = windows_[!beside.empty() && in_main_tab_locked(window) ? beside : window];
  w.page = page;
  ++w.nav;
  changed();
}

// The word that ended work ("Recalculation finished: ...") belongs to the
// window where it was done: a window opened later starts without it. Work
// still running keeps its bar.
void WebUi::forget_finished_work() {
  if (progress_.max == 0) progress_.label.clear();
}

void WebUi::progress(int value, int max, const std::string& label) {
  {
    std::lock_guard lock(mutex_);
    progress_.value = value;
    progress_.max = max;
    progress_.label = label;
    changed();
  }
  // Long work reports progress from inside one event: the windows showing
  // it are republished now, not when the event ends.
  refresh_controls();
}

void WebUi::set_timer(std::function<void()> event) {
  // The event goes on as part of the click that set it.
  std::string window;
  {
    std::lock_guard lock(mutex_);
    window = active_;
  }
  worker_.post([this, window, event = std::move(event)] {
    ActiveWindow scope(*this, window);
    event();
  });
}

void WebUi::print_page(const std::string& window) {
  std::lock_guard lock(mutex_);
  ++windows_[window].print;
  changed();
}

void WebUi::open_document(const std::string& target) {
  std::lock_guard lock(mutex_);
  ++opened_;
  open_target_ = target;
  // The tab where the click was made opens it: only that one may.
  const std::string beside = beside_active_locked();
  open_tab_ = beside.empty() ? "main" : beside;
  if (events_ == 0 && start_target_.empty()) start_target_ = target;
  changed();
}

void WebUi::quit() {
  {
    std::lock_guard lock(mutex_);
    ended_ = true;
    changed();
  }
  if (on_quit) on_quit();
}

json WebUi::state(const std::string& window) const {
  std::lock_guard lock(mutex_);
  json s;
  s["version"] = version_;
  s["window"] = window;
  auto it = windows_.find(window);
  bool known = it != windows_.end();
  s["open"] = known && it->second.open;
  s["page"] = known ? it->second.page : "";
  s["nav"] = known ? it->second.nav : 0;
  s["tab"] = known ? it->second.tab : 0;
  s["controls"] = known ? it->second.controls : json::object();
  s["print"] = known ? it->second.print : 0;
  s["opened"] = {{"count", opened_}, {"target", open_target_}, {"tab", open_tab_}};
  s["start"] =
      start_target_.empty() ? json(nullptr) : json{{"target", start_target_}, {"run", run_id_}};
  s["notice"] = {{"count", known ? it->second.notices : 0},
                 {"text", known ? it->second.notice : ""}};
  s["ended"] = ended_;
  s["top"] = current_window();
  s["modal_stack"] = modal_stack_;
  s["busy"] = worker_.busy() && !dialog_;
  s["progress"] = {{"value", progress_.value}, {"max", progress_.max}, {"label", progress_.label}};
  if (dialog_) {
    const Dialog& d = *dialog_;
    json dj = {{"id", d.id},     {"window", d.window}, {"kind", d.kind},      {"title", d.title},
               {"text", d.text}, {"icon", d.icon},     {"buttons", d.buttons}};
    if (d.kind == "file") {
      dj["save"] = d.save;
      dj["folder"] = d.folder;
      dj["filter"] = d.filter;
      dj["default_name"] = d.default_name;
      dj["files"] = d.files;
    }
    s["dialog"] = dj;
  } else {
    s["dialog"] = nullptr;
  }
  return s;
}

bool WebUi::accepts_input(const std::string& window) const {
  std::lock_guard lock(mutex_);
  return accepts_input_locked(window);
}

bool WebUi::in_main_tab(const std::string& window) const {
  std::lock_guard lock(mutex_);
  return in_main_tab_locked(window);
}

bool WebUi::in_main_tab_locked(const std::string& window) const {
  return window == "main" ||
         std::find(modal_stack_.begin(), modal_stack_.end(), window) != modal_stack_.end();
}

bool WebUi::accepts_input_locked(const std::string& window) const {
  auto it = windows_.find(window);
  if (it == windows_.end()) return false;
  auto in_stack = std::find(modal_stack_.begin(), modal_stack_.end(), window);
  if (window == "main") return modal_stack_.empty();
  if (!it->second.open) return false;
  return in_stack == modal_stack_.end() || in_stack + 1 == modal_stack_.end();
}

bool WebUi::answer(int id, const std::string& button, const std::string& file_name) {
  std::lock_guard lock(mutex_);
  if (!dialog_ || dialog_->id != id || answered_) return false;
  if (std::find(dialog_->buttons.begin(), dialog_->buttons.end(), button) == dialog_->buttons.end())
    return false;
  answered_ = Answered{button, file_name};
  changed();
  return true;
}

void WebUi::dismiss_dialog() {
  std::lock_guard lock(mutex_);
  if (!dialog_ || answered_ || dialog_->buttons.empty()) return;
  const auto& b = dialog_->buttons;
  auto has = [&b](const char* name) { return std::find(b.begin(), b.end(), name) != b.end(); };
  answered_ = Answered{has("Cancel") ? "Cancel" : has("No") ? "No" : b.back(), ""};
  changed();
}

bool WebUi::ended() const {
  std::lock_guard lock(mutex_);
  return ended_;
}

bool WebUi::run_immediate(const std::string& window, const Params& params) {
  std::function<bool(const Params&)> immediate;
  {
    std::lock_guard lock(mutex_);
    auto it = windows_.find(window);
    if (it == windows_.end()) return false;
    immediate = it->second.handlers.immediate;
  }
  return immediate && immediate(params);
}

void WebUi::post_to(const std::string& window, std::function<void(const WindowHandlers&)> event) {
  worker_.post([this, window, event = std::move(event)] {
    WindowHandlers h;
    {
      std::lock_guard lock(mutex_);
      auto it = windows_.find(window);
      // A click queued before a modal window opened over its window is
      // dropped, as the window could not have been clicked then.
      if (it == windows_.end() || !accepts_input_locked(window)) return;
      h = it->second.handlers;
      ++events_;
    }
    ActiveWindow scope(*this, window);
    event(h);
  });
}

void WebUi::post_command(const std::string& window, Params params) {
  if (run_immediate(window, params)) return;
  post_to(window, [params = std::move(params)](const WindowHandlers& h) {
    if (h.command) h.command(params);
  });
}

void WebUi::post_navigation(const std::string& window, const std::string& target) {
  if (run_immediate(window, {{"navigate", target}})) return;
  post_to(window, [target](const WindowHandlers& h) {
    if (h.navigate) h.navigate(target);
  });
}

void WebUi::post_close(const std::string& window) {
  if (run_immediate(window, {{"close", "1"}})) return;
  worker_.post([this, window] {
    WindowHandlers h;
    {
      std::lock_guard lock(mutex_);
      auto it = windows_.find(window);
      if (it == windows_.end() || !it->second.open || !accepts_input_locked(window)) return;
      h = it->second.handlers;
    }
    if (!h.query_close || h.query_close()) close_window(window);
  });
}

void WebUi::refresh_controls() {
  std::vector<std::pair<std::string, std::function<json()>>> sources;
  {
    std::lock_guard lock(mutex_);
    for (auto& [name, w] : windows_)
      if (w.handlers.controls) sources.emplace_back(name, w.handlers.controls);
  }
  std::map<std::string, json> fresh;
  for (auto& [name, fn] : sources) fresh[name] = fn();
  std::lock_guard lock(mutex_);
  bool any = false;
  for (auto& [name, controls] : fresh) {
    auto& w = windows_[name];
    if (w.controls != controls) {
      w.controls = std::move(controls);
      any = true;
    }
  }
  if (any) changed();
}

void WebUi::show_failure(const std::string& what) {
  message_box("The command could not be completed:\n" + what, "ARVEN", MsgButtons::Ok,
              MsgIcon::Stop);
}

}  // namespace arven::shell
