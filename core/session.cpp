#include "core/session.h"

namespace arven {

namespace {
Session& storage() {
  static Session s;
  return s;
}
}  // namespace

Session& session() {
  return storage();
}

void reset_session() {
  storage() = Session();
}

}  // namespace arven
