#include "core/console_ui.h"

#include <ostream>

namespace arven {

ConsoleUi::ConsoleUi(std::ostream& out) : out_(out) {}

Answer ConsoleUi::message_box(const std::string& text, const std::string& title,
                              MsgButtons buttons, MsgIcon) {
  out_ << title << ": " << text << '\n';
  switch (buttons) {
    case MsgButtons::YesNo:
    case MsgButtons::YesNoCancel:
      return Answer::Yes;
    case MsgButtons::RetryCancel:
      return Answer::Cancel;  // retrying unattended would never end
    default:
      return Answer::Ok;
  }
}

std::string ConsoleUi::file_dialog(const FileDialogRequest&) { return ""; }

void ConsoleUi::show_modal(const std::string& window, int tab) {
  out_ << "[" << window << (tab ? " tab " + std::to_string(tab) : std::string()) << "]\n";
}

void ConsoleUi::show_window(const std::string& window) { out_ << "[" << window << "]\n"; }

void ConsoleUi::navigate(const std::string&, const std::string&) {}

void ConsoleUi::progress(int value, int max, const std::string& label) {
  if (max <= 0) return;
  // One line per label and whenever a tenth more is done, not per step.
  if (label != last_label_ || value == max || (value * 10 / max) != ((value - 1) * 10 / max)) {
    out_ << label << " " << value << "/" << max << '\n';
    last_label_ = label;
  }
}

}  // namespace arven
