#pragma once

#include <deque>
#include <string>
#include <vector>

#include "core/ui.h"

namespace arven::testing {

// The scripted Ui: answers come from queues the test fills; every message,
// window and navigation is recorded as one line of `log` for assertions.
class ScriptedUi : public Ui {
 public:
  struct Message {
    std::string text, title;
    MsgButtons buttons;
    MsgIcon icon;
  };

  std::deque<Answer> answers;     // next message_box answers (default Ok/Yes)
  std::deque<std::string> files;  // next file_dialog results ("" = cancel)
  std::vector<Message> messages;
  std::vector<std::string> log;  // "message:<title>", "modal:<w>:<tab>", ...

  Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                     MsgIcon icon) override {
    messages.push_back({text, title, buttons, icon});
    log.push_back("message:" + title);
    if (!answers.empty()) {
      Answer a = answers.front();
      answers.pop_front();
      return a;
    }
    return buttons == MsgButtons::YesNo || buttons == MsgButtons::YesNoCancel ? Answer::Yes
                                                                              : Answer::Ok;
  }
  std::string file_dialog(const FileDialogRequest& request) override {
    log.push_back("file_dialog:" + request.title);
    if (files.empty()) return "";
    std::string f = files.front();
    files.pop_front();
    return f;
  }
  void show_modal(const std::string& window, int tab) override {
    log.push_back("modal:" + window + ":" + std::to_string(tab));
  }
  void show_window(const std::string& window) override { log.push_back("window:" + window); }
  void close_window(const std::string& window) override { log.push_back("close:" + window); }
  void navigate(const std::string& window, const std::string& page) override {
    log.push_back("navigate:" + window + ":" + page);
  }
  void progress(int value, int max, const std::string& label) override {
    last_progress = {value, max};
    progress_label = label;
  }

  void quit() override { ended = true; }

  std::pair<int, int> last_progress{0, 0};
  std::string progress_label;
  bool ended = false;  // quit() was called
};

}  // namespace arven::testing
