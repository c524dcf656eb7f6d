#pragma once

#include <nlohmann/json.hpp>

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/ui.h"
#include "shell/worker.h"

namespace arven::shell {

using Params = std::map<std::string, std::string>;

// A request field as text ("" when absent) or as a whole number (the
// fallback when absent or not a number).
std::string param_text(const Params& params, const std::string& key);
int param_int(const Params& params, const std::string& key, int fallback);

// What a window does with the person's actions. Every handler runs on the
// worker thread.
struct WindowHandlers {
  // A click on one of the window's controls (panel item, menu, button...).
  std::function<void(const Params&)> command;
  // A link in the window's page that names no file: a page command.
  std::function<void(const std::string& target)> navigate;
  // The window's frame was closed; return false to keep it open.
  std::function<bool()> query_close;
  // The window's controls as the page draws them (published after events).
  std::function<nlohmann::json()> controls;
  // The window is about to be shown: it loads its state.
  std::function<void()> load;
  // Runs on the server's thread before a command or a close is queued, for
  // what must get through while the worker is busy (a halt request): true
  // when it handled the request, which is then not queued.
  std::function<bool(const Params&)> immediate;
  // Runs on the server's thread for a link of the window's page that names
  // a file of the report folder: false makes it a page command all the same
  // (a page the window always writes afresh). Without it files are served.
  std::function<bool(const std::string& target)> serves_file;
};

// A question on screen: a message box or a file chooser.
struct Dialog {
  int id = 0;
  std::string window;  // the window it belongs to
  std::string kind;    // "message" or "file"
  std::string title, text, icon;
  std::vector<std::string> buttons;
  // File chooser.
  bool save = false;
  std::string folder, filter, default_name;
  std::vector<std::string> files;
};

// The web Ui: logic on the worker asks, the browser answers through the
// server. Holds everything a browser page needs to draw the windows, and
// publishes it as JSON with a version number that grows on every change.
class WebUi : public Ui {
 public:
  explicit WebUi(Worker& worker);

  void register_window(const std::string& name, WindowHandlers handlers);
  bool has_window(const std::string& name) const;
  // The tab a window was last shown on (show_modal's `tab`), set before its
  // load handler runs.
  int window_tab(const std::string& name) const;
  // Whether a link of the window's page that names a file is served: the
  // page on show always is, others as the window's serves_file says.
  bool serves_file(const std::string& window, const std::string& target) const;

  // ---- Ui, called on the worker ----
  Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                     MsgIcon icon) override;
  std::string file_dialog(const FileDialogRequest& request) override;
  void show_modal(const std::string& window, int tab = 0) override;
  void show_window(const std::string& window) override;
  void close_window(const std::string& window) override;
  void navigate(const std::string& window, const std::string& page) override;
  void progress(int value, int max, const std::string& label) override;
  void set_timer(std::function<void()> event) override;
  void print_page(const std::string& window) override;
  void open_document(const std::string& target) override;
  void quit() override;

  // What quit() does: the program's main stops the server.
  std::function<void()> on_quit;

  // ---- from the server's threads ----
  // The state of one window, as GET /<window>/state.json returns it.
  nlohmann::json state(const std::string& window) const;
  // The version of the state now.
  uint64_t version() const;
  // Called with the new version on every change, with the state's lock
  // held: it may only hand the news on (the server wakes its clients).
  void set_change_listener(std::function<void(uint64_t)> listener);
  // True when the window takes clicks now: it is open (the main window
  // always is), and no modal window stands on top of it. A window opened
  // beside the others (a report) takes them while it is open.
  bool accepts_input(const std::string& window) const;
  // True for the windows the main browser tab shows: the main window and
  // the modal windows stacked on it.
  bool in_main_tab(const std::string& window) const;
  // Answers the open dialog; false when `id` is not the open one or the
  // answer does not fit it.
  bool answer(int id, const std::string& button, const std::string& file_name = "");
  // Answers the open dialog, if any, as Escape does: Cancel, else No, else
  // its only (last) button. For when nobody is left to answer it.
  void dismiss_dialog();
  // Whether quit() has run.
  bool ended() const;
  // Queues a window's command, page command or close on the worker; the
  // window's `immediate` handler sees each first (a page command as
  // {"navigate": target}).
  void post_command(const std::string& window, Params params);
  void post_navigation(const std::string& window, const std::string& target);
  void post_close(const std::string& window);
  // Republishes every open window's controls (worker thread).
  void refresh_controls();
  // Shows a failure the logic did not foresee (worker thread).
  void show_failure(const std::string& what);

 private:
  struct WindowState {
    WindowHandlers handlers;
    bool open = false;
    int tab = 0;
    std::string page;
    int nav = 0;
    int print = 0;
    nlohmann::json controls = nlohmann::json::object();
    // Where a click of this window showed its result, when elsewhere.
    int notices = 0;
    std::string notice;
  };
  struct Answered {
    std::string button, file_name;
  };

  // Marks the window whose event the worker is handling.
  class ActiveWindow {
   public:
    ActiveWindow(WebUi& ui, const std::string& window);
    ~ActiveWindow();

   private:
    WebUi& ui_;
    std::string previous_;
  };

  // The window beside the main tab whose event is being handled ("" when
  // the event is the main tab's).
  std::string beside_active_locked() const;
  bool in_main_tab_locked(const std::string& window) const;  // the same as in_main_tab
  Answered ask(Dialog dialog);  // publishes the dialog and waits for its answer
  void changed();               // bump the version (mutex held)
  void forget_finished_work();  // clear the word of ended work (mutex held)
  void run_load(const std::string& window);
  bool run_immediate(const std::string& window, const Params& params);
  // Queues an event that runs with the window's handlers, as its window.
  void post_to(const std::string& window, std::function<void(const WindowHandlers&)> event);
  std::string current_window() const;
  bool accepts_input_locked(const std::string& window) const;

  Worker& worker_;
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  uint64_t version_ = 1;
  std::function<void(uint64_t)> change_listener_;
  int next_dialog_ = 1;
  std::map<std::string, WindowState> windows_;
  std::vector<std::string> modal_stack_;
  std::optional<Dialog> dialog_;
  std::optional<Answered> answered_;
  int opened_ = 0;            // documents opened so far
  std::string open_target_;   // the last one
  std::string open_tab_;      // the tab that opens it: "main", or a window beside
  std::string start_target_;  // a window opened at start, before any click
  std::string run_id_;        // this run of the program, for the pages' memory
  int events_ = 0;            // clicks handled so far
  bool ended_ = false;
  std::string active_;  // the window whose event is being handled
  struct {
    int value = 0, max = 0;
    std::string label;
  } progress_;
};

// The .arv files of a folder, sorted by name.
std::vector<std::string> list_files(const std::filesystem::path& folder, const std::string& filter);

}  // namespace arven::shell
