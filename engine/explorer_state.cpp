#include "engine/explorer_state.h"

#include "core/session.h"

namespace arven {

namespace {

struct Holder {
  ExplorerState state;
  std::string file;  // the assessment file the state belongs to
};

Holder& holder() {
  static Holder h;
  return h;
}

}  // namespace

ExplorerState& explorer_state() {
  Holder& h = holder();
  if (h.file != session().current_file) {
    h.state = ExplorerState();
    h.file = session().current_file;
  }
  return h.state;
}

void reset_explorer_state() {
  Holder& h = holder();
  h.state = ExplorerState();
  h.file = session().current_file;
}

}  // namespace arven
