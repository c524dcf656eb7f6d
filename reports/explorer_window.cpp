#include "reports/explorer_window.h"

namespace arven {

namespace {
ExplorerWindow& holder() {
  static ExplorerWindow w;
  return w;
}
}  // namespace

ExplorerWindow& explorer_window() {
  return holder();
}
void reset_explorer_window() {
  holder() = ExplorerWindow();
}

}  // namespace arven
