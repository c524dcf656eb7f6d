#pragma once

#include <functional>
#include <string>

namespace arven {

// The buttons and icons of a message box, and the button the user chose.
enum class MsgButtons { Ok, OkCancel, YesNo, YesNoCancel, RetryCancel };
enum class MsgIcon { None, Stop, Question, Exclamation, Information };
enum class Answer { Ok, Cancel, Yes, No, Retry };

// A file chooser over the documents folder.
struct FileDialogRequest {
  bool save = false;             // a save dialog asks before overwriting
  std::string title;             // the dialog's title
  std::string filter = "*.arv";  // file pattern shown
  std::string initial_dir;       // folder the dialog starts in
  std::string default_name;      // name proposed in a save dialog
};

// Everything logic asks of the person in front of the program. The web
// shell, a scripted test double and a batch runner implement it; logic
// never knows which.
class Ui {
 public:
  virtual ~Ui() = default;
  // Shows a message and returns the chosen button (blocks until chosen).
  virtual Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                             MsgIcon icon) = 0;
  // Returns the chosen path, or an empty string when the user cancels.
  virtual std::string file_dialog(const FileDialogRequest& request) = 0;
  // Shows a window modally (returns when it closes); `tab` selects a tab of
  // a tabbed dialog, 0 for the default one.
  virtual void show_modal(const std::string& window, int tab = 0) = 0;
  // Shows a window that stays open beside the others.
  virtual void show_window(const std::string& window) = 0;
  // Closes a window (a modal one returns from show_modal).
  virtual void close_window(const std::string& window) { (void)window; }
  // Sends a window's embedded browser to a page.
  virtual void navigate(const std::string& window, const std::string& page) = 0;
  // Reports progress of long work; max 0 hides the bar.
  virtual void progress(int value, int max, const std::string& label) = 0;

  // Runs `event` once, after the event being handled has finished: the
  // one-shot timer. Without an event loop it runs at once.
  virtual void set_timer(std::function<void()> event) { event(); }
  // Prints the page that a window's browser shows.
  virtual void print_page(const std::string& window) { (void)window; }
  // Opens a document of the program folder (a relative path) or an
  // address in a browser window of its own.
  virtual void open_document(const std::string& target) { (void)target; }
  // Ends the program.
  virtual void quit() {}
};

}  // namespace arven
