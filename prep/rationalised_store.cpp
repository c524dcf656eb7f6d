#include "prep/rationalised_store.h"

#include "base/replace_file.h"
#include "core/session.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

fs::path rationalised_store_path() {
  return fs::path(session().ops_db_path).parent_path() / "arven rationalised operations V3.mdb";
}

Db rationalised_db() {
  const fs::path path = rationalised_store_path();
  if (!fs::exists(path)) {
    const fs::path temp = path.parent_path() / ("." + path.filename().string() + ".new");
    try {
      create_rationalised_store(temp);
      durable_rename(temp, path);
    } catch (...) {
      std::error_code ec;
      fs::remove(temp, ec);
      throw;
    }
  }
  return Db::open(path);
}

bool is_rationalised_table(std::string_view table) {
  for (const auto& t : rationalised_tables())
    if (t.name == table) return true;
  return false;
}

bool is_rationalised_category(std::string_view table) {
  return table != kRationalisedAssignments && is_rationalised_table(table);
}

}  // namespace arven
