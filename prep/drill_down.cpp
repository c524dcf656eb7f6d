#include "prep/drill_down.h"

#include <algorithm>
#include <set>

#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/master_keys.h"
#include "stores/db.h"

namespace arven {

namespace {

namespace fs = std::filesystem;

std::string q(std::string_view name) {
  return quote_name(name);
}

// The rows of a query as a table titled by `columns` (the query's columns).
GridTable rows_table(const Db& db, const std::string& sql, const std::vector<Value>& params) {
  auto rows = db.query(sql, params);
  GridTable t(rows.column_count());
  t.add_row();
  for (int c = 0; c < rows.column_count(); ++c) t.cell(0, c) = rows.column_name(c);
  while (rows.next()) {
    int r = t.add_row();
    for (int c = 0; c < rows.column_count(); ++c) t.cell(r, c) = rows.get(c).as_text();
  }
  return t;
}

std::string in_list(const std::set<std::string>& values) {
  std::string sql = "(";
  for (size_t i = 0; i < values.size(); ++i) sql += i ? ", ?" : "?";
  return sql + ")";
}

std::vector<Value> values_of(const std::set<std::string>& values) {
  return std::vector<Value>(values.begin(), values.end());
}

std::set<std::string> column_values(const GridTable& t, const std::string& title) {
  std::set<std::string> out;
  for (int c = 0; c < t.cols(); ++c)
    if (t.cell(0, c) == title)
      for (int r = 1; r < t.rows(); ++r)
        if (!t.cell(r, c).empty()) out.insert(t.cell(r, c));
  return out;
}

}  // namespace

std::vector<std::string> drill_down_stores() {
  std::vector<std::string> out;
  for (const char* folder : {"dbases/prepro", "dbases"}) {
    std::vector<std::string> found;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(session().app_folder / folder, ec)) {
      std::string name = e.path().filename().string();
      if (name.size() == 27 && name.rfind("new_arven_operations_", 0) == 0 &&
          name.substr(23) == ".mdb")
        found.push_back(std::string(folder) + "/" + name);
    }
    std::sort(found.begin(), found.end());
    out.insert(out.end(), found.begin(), found.end());
  }
  return out;
}

DrillDown drill_down(const std::string& store, int level, const std::string& nuts_code,
                     int64_t operation_id) {
  auto stores = drill_down_stores();
  if (std::find(stores.begin(), stores.end(), store) == stores.end())
    throw EditError("There is no country store \"" + store + "\".");
  if (level < 0 || level > 3) throw EditError("The NUTS level is 0 to 3.");
  Db db = Db::open(session().app_folder / store);
  const std::string k = std::to_string(level);
  const std::string id_column = "NUTS" + k + "_ID";

  auto area = db.query("SELECT " + q(id_column) + ", " + q("NAME") + " FROM " + q("NUTS" + k) +
                           " WHERE " + q("NUTS") + " = ?",
                       {nuts_code});
  if (!area.next())
    throw EditError("Store \"" + store + "\", table \"NUTS" + k + "\" has no area \"" + nuts_code +
                    "\".");
  const int64_t area_id = area.get(0).as_int();
  const std::string area_name = area.get(1).as_text();
  auto op = db.query("SELECT " + q("Operation Name") + " FROM " + q("Operations") + " WHERE " +
                         q("Operation ID") + " = ?",
                     {operation_id});
  if (!op.next())
    throw EditError("Store \"" + store + "\", table \"Operations\" has no operation " +
                    std::to_string(operation_id) + ".");

  DrillDown out;
  out.heading = "Operation " + std::to_string(operation_id) + " \"" + op.get(0).as_text() +
                "\" in " + nuts_code + " \"" + area_name + "\" (NUTS" + k + "), " + store;
  const std::string ops_table = "NUTS" + k + "_OPS";
  GridTable ops = rows_table(
      db,
      "SELECT " + q("Activity ID") + ", " + q("Impact Type") + ", " + q("Impact Category") + ", " +
          q("Impact value") + ", " + q("Impact area") + ", " + q("Cseq Years") + ", " +
          q("Impact max") + ", " + q("Data_Quality") + ", " + q("Refs") + " FROM " + q(ops_table) +
          " WHERE " + q(id_column) + " = ? AND " + q("Operation ID") + " = ? ORDER BY rowid",
      {area_id, operation_id});
  out.sections.push_back({ops_table + " rows", ops});

  GridTable deltas =
      rows_table(db,
                 "SELECT d." + q("Baseline ID") + ", d." + q("Activity ID") + ", a." +
                     q("Activity Name") + ", d." + q("RVC ID") + ", d." + q("RVC Class") + ", d." +
                     q("Delta") + " FROM " + q("Operation_Activity_Delta") + " d LEFT JOIN " +
                     q("Activities") + " a ON a." + q("Activity ID") + " = d." + q("Activity ID") +
                     " WHERE d." + q("Operation ID") + " = ? ORDER BY d.rowid",
                 {operation_id});
  out.sections.push_back({"Deltas", deltas});

  std::set<std::string> activities = column_values(deltas, "Activity ID");
  std::set<std::string> rvcs = column_values(deltas, "RVC ID");
  const char* titles[] = {"Mitigation factors", "Adaptation factors", "Yield factors"};
  for (size_t i = 0; i < refs_tables().size(); ++i) {
    GridTable f = rows_table(db,
                             "SELECT * FROM " + q(refs_tables()[i]) + " WHERE " + q("Activity ID") +
                                 " IN " + in_list(activities) + " ORDER BY rowid",
                             values_of(activities));
    for (const auto& r : column_values(f, "RVC ID")) rvcs.insert(r);
    out.sections.push_back({titles[i], f});
  }
  rvcs.erase("0");
  std::vector<Value> dist_params = {area_id};
  for (const auto& r : rvcs) dist_params.push_back(r);
  out.sections.push_back(
      {"Class distribution of the area",
       rows_table(db,
                  "SELECT " + q("RVC ID") + ", " + q("RVC Class") + ", " + q("Percent") + " FROM " +
                      q("NUTS" + k + "_RVC_Data_Dist") + " WHERE " + q(id_column) + " = ? AND " +
                      q("RVC ID") + " IN " + in_list(rvcs) + " ORDER BY rowid",
                  dist_params)});

  std::set<std::string> refs;
  for (int r = 1; r < ops.rows(); ++r)
    for (int64_t id : parse_refs(ops.cell(r, 8)).value_or(std::vector<int64_t>{}))
      refs.insert(std::to_string(id));
  out.sections.push_back(
      {"References", rows_table(db,
                                "SELECT * FROM " + q("References") + " WHERE " + q("Ref ID") +
                                    " IN " + in_list(refs) + " ORDER BY " + q("Ref ID"),
                                values_of(refs))});
  return out;
}

}  // namespace arven
