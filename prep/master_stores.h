#pragma once

#include "core/session.h"
#include "stores/db.h"

namespace arven {

// The two master stores the admin editors work on, opened from the
// session's paths.
inline Db ops_db() {
  return Db::open(session().ops_db_path);
}
inline Db rvc_db() {
  return Db::open(session().rvc_db_path);
}

}  // namespace arven
