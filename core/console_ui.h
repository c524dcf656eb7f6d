#pragma once

#include <iosfwd>

#include "core/ui.h"

namespace arven {

// The Ui of batch runs and of a program started without its windows:
// messages and window requests are printed, every question takes its first
// button, and file dialogs are cancelled.
class ConsoleUi : public Ui {
 public:
  explicit ConsoleUi(std::ostream& out);
  Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                     MsgIcon icon) override;
  std::string file_dialog(const FileDialogRequest& request) override;
  void show_modal(const std::string& window, int tab) override;
  void show_window(const std::string& window) override;
  void navigate(const std::string& window, const std::string& page) override;
  void progress(int value, int max, const std::string& label) override;

 private:
  std::ostream& out_;
  std::string last_label_;
};

}  // namespace arven
