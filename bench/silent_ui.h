#pragma once

#include <string>

#include "core/ui.h"

namespace arven::bench {

// A Ui that answers Yes and shows nothing; timers run at once.
class SilentUi : public Ui {
 public:
  Answer message_box(const std::string&, const std::string&, MsgButtons, MsgIcon) override {
    return Answer::Yes;
  }
  std::string file_dialog(const FileDialogRequest&) override { return ""; }
  void show_modal(const std::string&, int) override {}
  void show_window(const std::string&) override {}
  void navigate(const std::string&, const std::string&) override {}
  void progress(int, int, const std::string&) override {}
};

}  // namespace arven::bench
