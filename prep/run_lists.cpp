#include "prep/preprocess.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "base/numbers.h"
#include "core/session.h"
#include "prep/packaging.h"

// The pre-processor's modes, its country and operation lists, and which
// operations a run by date must update.

namespace arven {

namespace fs = std::filesystem;

// ---- modes, lists and dates ---------------------------------------------------

const std::array<std::string, 6>& run_mode_texts() {
  static const std::array<std::string, 6> t = {
      "Update by last updated date", "Add new only",         "Add new and update selected",
      "Update existing only",        "Update selected only", "Add new and update existing (ALL)"};
  return t;
}

std::optional<RunMode> run_mode_by_name(std::string_view name) {
  static const std::map<std::string_view, RunMode> names = {
      {"by-date", RunMode::by_date},
      {"new", RunMode::add_new},
      {"new-and-selected", RunMode::add_new_update_selected},
      {"existing", RunMode::update_existing},
      {"selected", RunMode::update_selected},
      {"all", RunMode::all}};
  auto it = names.find(name);
  if (it == names.end()) return std::nullopt;
  return it->second;
}

RunProgress RunControl::snapshot() const {
  std::lock_guard lock(mutex_);
  return progress_;
}

void RunControl::update(const std::function<void(RunProgress&)>& change) {
  std::lock_guard lock(mutex_);
  change(progress_);
}

std::vector<ListItem> prepro_country_list() {
  Db db = Db::open(session().rvc_db_path);
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM \"NUTS0\" ORDER BY rowid");
  while (rows.next()) {
    // A null mark counts as "not N": only an explicit N leaves a country out.
    if (rows.get("EU-27").as_text() == "N") continue;
    out.push_back({rows.get("NUTS").as_text() + " - " + rows.get("NAME").as_text(),
                   rows.get("NUTS0_ID").as_int()});
  }
  return out;
}

std::vector<ListItem> prepro_operation_search(std::string_view text) {
  Db db = Db::open(session().ops_db_path);
  auto rows = db.query(
      "SELECT * FROM \"Operations\" o WHERE o.\"Operation Name\" LIKE '%' || ? || '%' ESCAPE '\\' "
      "AND EXISTS (SELECT 1 FROM \"Operation_Activity_Delta\" d "
      "WHERE d.\"Operation ID\" = o.\"Operation ID\") ORDER BY o.rowid",
      {like_escape(text)});
  std::vector<ListItem> out;
  while (rows.next())
    out.push_back({rows.get("Operation Name").as_text(), rows.get("Operation ID").as_int()});
  return out;
}

std::array<int, 3> num_nuts(int64_t nuts0_id) {
  Db db = Db::open(session().rvc_db_path);
  std::array<int, 3> counts{};
  for (int k = 1; k <= 3; ++k) {
    auto rows = db.query("SELECT count(*) AS n FROM " + quote_name("NUTS" + std::to_string(k)) +
                             " WHERE \"NUTS0_ID\" = ?",
                         {Value(nuts0_id)});
    rows.next();
    counts[static_cast<size_t>(k - 1)] = static_cast<int>(rows.get("n").as_int());
  }
  return counts;
}

bool needs_update(const std::string& master_last_updated, const std::string& store_last_updated) {
  if (store_last_updated.empty()) return true;
  // Dates are "YYYY-MM-DD HH:MM:SS": the first ten characters are year,
  // month and day, and compare as text in date order.
  return master_last_updated.substr(0, 10) > store_last_updated.substr(0, 10);
}

std::unordered_map<int64_t, std::string> last_updated_by_operation(const Db& db) {
  std::unordered_map<int64_t, std::string> out;
  auto rows = db.query("SELECT \"Operation ID\", \"Last_Updated\" FROM \"Operations\"");
  while (rows.next()) out.emplace(rows.get(0).as_int(), rows.get(1).as_text());
  return out;
}

int how_many_need_updating(Ui& ui, int64_t nuts0_id, std::vector<RunOperation>& operations) {
  Db rvc = Db::open(session().rvc_db_path);
  auto country = rvc.query("SELECT * FROM \"NUTS0\" WHERE \"NUTS0_ID\" = ?", {Value(nuts0_id)});
  if (!country.next()) rvc.fail("it has no country " + std::to_string(nuts0_id) + " in NUTS0");
  std::string cc = country.get("NUTS").as_text();
  Db master = Db::open(session().ops_db_path);
  auto master_dates = last_updated_by_operation(master);
  std::unordered_map<int64_t, std::string> store_dates;
  if (fs::exists(country_target_path(cc)))
    store_dates = last_updated_by_operation(Db::open(country_target_path(cc)));
  int count = 0;
  std::string latest;
  for (auto& op : operations) {
    op.selected = false;
    std::string m = master_dates.count(op.id) ? master_dates[op.id] : "";
    if (m > latest) latest = m;
    std::string s = store_dates.count(op.id) ? store_dates[op.id] : "";
    if (needs_update(m, s)) {
      ++count;
      op.selected = true;
    }
  }
  ui.message_box(std::to_string(count) +
                     " operations need updating. Most recently updated on: " + latest.substr(0, 10),
                 "ARVEN Operation Update", MsgButtons::Ok, MsgIcon::Information);
  return count;
}

}  // namespace arven
