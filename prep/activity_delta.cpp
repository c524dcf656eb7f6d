#include "prep/activity_delta.h"

#include <map>
#include <optional>

#include "base/numbers.h"
#include "core/grid_export.h"
#include "core/session.h"
#include "prep/master_stores.h"
#include "stores/db.h"

namespace arven {

namespace {

std::string q(std::string_view name) {
  return quote_name(name);
}

// Where an operation's or a baseline's details live.
struct Owner {
  const char* table;
  const char* key;
};
constexpr Owner kOperation{"Operation_Activity_Details", "Operation ID"};
constexpr Owner kBaseline{"Baseline_Activity_Details", "Baseline ID"};

GridTable details_table(const Owner& owner, int64_t id) {
  Db db = ops_db();
  GridTable t(3);
  t.add_row();
  t.cell(0, 0) = "Activity/feature";
  t.cell(0, 1) = "Details";
  t.cell(0, 2) = "ID";
  auto first = db.prepare_statement("SELECT * FROM " + q(owner.table) + " WHERE " + q(owner.key) +
                                    " = ? AND " + q("Activity ID") + " = ? LIMIT 1");
  auto acts = db.query("SELECT * FROM " + q("Activities") + " ORDER BY " + q("Activity ID"));
  while (acts.next()) {
    int64_t activity = acts.get("Activity ID").as_int();
    int r = t.add_row();
    t.cell(r, 0) = acts.get("Activity Name").as_text();
    t.cell(r, 2) = std::to_string(activity);
    Rows& row = first.query({id, activity});
    if (!row.next())
      t.cell(r, 1) = "0";
    else if (row.get("RVC ID").as_int() != 0)
      t.cell(r, 1) = "Multi";
    else
      t.cell(r, 1) = row.get("Details").as_text();
  }
  return t;
}

GridTable class_table() {
  GridTable t(2);
  t.add_row();
  t.cell(0, 0) = "RVC Class";
  t.cell(0, 1) = "Value";
  return t;
}

GridTable multi_table(const Owner& owner, int64_t id, int64_t activity_id, int64_t& rvc_id) {
  Db db = ops_db();
  GridTable t = class_table();
  rvc_id = 0;
  auto rows = db.query("SELECT * FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ? AND " +
                           q("Activity ID") + " = ? AND " + q("RVC ID") + " <> 0 ORDER BY " +
                           q("RVC Class"),
                       {id, activity_id});
  while (rows.next()) {
    rvc_id = rows.get("RVC ID").as_int();
    int r = t.add_row();
    t.cell(r, 0) = rows.get("RVC Class").as_text();
    t.cell(r, 1) = rows.get("Details").as_text();
  }
  return t;
}

// A details cell as stored: empty is "0", "Multi" stays, a number gets '.'.
std::string checked_details(const std::string& cell, int row, const std::string& column,
                            bool multi_allowed) {
  if (cell.empty()) return "0";
  if (multi_allowed && cell == "Multi") return cell;
  auto n = parse_number(cell);
  if (!n)
    throw EditError("Row " + std::to_string(row) + ", column \"" + column + "\": \"" + cell +
                    "\" is not a number. Nothing was saved.");
  return number_to_text(*n);
}

int64_t checked_key(const std::string& cell, int row, const std::string& column) {
  auto n = parse_number(cell);
  if (!n || *n != static_cast<double>(static_cast<int64_t>(*n)))
    throw EditError("Row " + std::to_string(row) + ", column \"" + column + "\": \"" + cell +
                    "\" is not a whole number. Nothing was saved.");
  return static_cast<int64_t>(*n);
}

void save_plain(const Owner& owner, int64_t id, const GridTable& table) {
  std::vector<std::pair<int64_t, std::string>> rows;
  for (int r = 1; r < table.rows(); ++r)
    rows.push_back({checked_key(table.cell(r, 2), r, "ID"),
                    checked_details(table.cell(r, 1), r, "Details", true)});
  Db db = ops_db();
  Transaction tx(db);
  db.exec("DELETE FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ? AND " + q("RVC ID") +
              " = 0",
          {id});
  for (const auto& [activity, details] : rows)
    db.insert(owner.table, {owner.key, "Activity ID", "RVC ID", "RVC Class", "Details"},
              {id, activity, 0, 0, details});
  tx.commit();
}

void save_multi(const Owner& owner, int64_t id, int64_t activity_id, int64_t rvc_id,
                const GridTable& classes) {
  std::vector<std::pair<int64_t, std::string>> rows;
  for (int r = 1; r < classes.rows(); ++r)
    rows.push_back({checked_key(classes.cell(r, 0), r, "RVC Class"),
                    checked_details(classes.cell(r, 1), r, "Value", false)});
  Db db = ops_db();
  Transaction tx(db);
  db.exec("DELETE FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ? AND " +
              q("Activity ID") + " = ? AND " + q("RVC ID") + " <> 0",
          {id, activity_id});
  for (const auto& [cls, details] : rows)
    db.insert(owner.table, {owner.key, "Activity ID", "RVC ID", "RVC Class", "Details"},
              {id, activity_id, rvc_id, cls, details});
  tx.commit();
}

std::string activity_label(Db& db, int64_t activity_id) {
  auto rows = db.query("SELECT * FROM " + q("Activities") + " WHERE " + q("Activity ID") + " = ?",
                       {activity_id});
  return rows.next()
             ? rows.get("Activity Name").as_text() + " (ID " + std::to_string(activity_id) + ")"
             : "activity " + std::to_string(activity_id);
}

}  // namespace

std::vector<ListItem> delta_operation_list(const std::string& search) {
  Db db = ops_db();
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM " + q("Operations") + " WHERE " + q("Operation Name") +
                           " LIKE '%' || ? || '%' ESCAPE '\\' ORDER BY " + q("Operation Name"),
                       {like_escape(search)});
  while (rows.next())
    out.push_back({rows.get("Operation Name").as_text(), rows.get("Operation ID").as_int()});
  return out;
}

std::vector<BaselineItem> delta_baseline_list(int64_t operation_id) {
  Db db = ops_db();
  std::vector<BaselineItem> out;
  auto rows = db.query("SELECT b.* FROM " + q("Delta_List") + " d JOIN " + q("Baselines") +
                           " b ON b." + q("Baseline ID") + " = d." + q("Baseline ID") +
                           " WHERE d." + q("Operation ID") + " = ? ORDER BY d.rowid",
                       {operation_id});
  auto has =
      db.prepare_statement("SELECT 1 FROM " + q("Operation_Activity_Delta") + " WHERE " +
                           q("Operation ID") + " = ? AND " + q("Baseline ID") + " = ? LIMIT 1");
  while (rows.next()) {
    int64_t id = rows.get("Baseline ID").as_int();
    bool marked = has.query({operation_id, id}).next();
    out.push_back({{rows.get("Baseline name").as_text(), id}, marked});
  }
  return out;
}

std::vector<ListItem> baseline_list() {
  Db db = ops_db();
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM " + q("Baselines") + " ORDER BY " + q("Baseline ID"));
  while (rows.next())
    out.push_back({rows.get("Baseline name").as_text(), rows.get("Baseline ID").as_int()});
  return out;
}

GridTable get_details_new(int64_t operation_id) {
  return details_table(kOperation, operation_id);
}
GridTable get_baseline_details_new(int64_t baseline_id) {
  return details_table(kBaseline, baseline_id);
}
GridTable get_details_multi(int64_t operation_id, int64_t activity_id, int64_t& rvc_id) {
  return multi_table(kOperation, operation_id, activity_id, rvc_id);
}
GridTable get_baseline_multi(int64_t baseline_id, int64_t activity_id, int64_t& rvc_id) {
  return multi_table(kBaseline, baseline_id, activity_id, rvc_id);
}

GridTable class_rows(int64_t rvc_id) {
  Db db = Db::open(session().rvc_db_path);
  auto rows =
      db.query("SELECT * FROM " + q("RVC_List") + " WHERE " + q("RVC ID") + " = ?", {rvc_id});
  GridTable t = class_table();
  if (!rows.next()) return t;
  int64_t lo = rows.get("RVC min").as_int(), hi = rows.get("RVC max").as_int();
  for (int64_t c = lo; c <= hi && c - lo < 1000; ++c) t.cell(t.add_row(), 0) = std::to_string(c);
  return t;
}

void save_operation_details(int64_t operation_id, const GridTable& table) {
  save_plain(kOperation, operation_id, table);
}
void baseline_save(int64_t baseline_id, const GridTable& table) {
  save_plain(kBaseline, baseline_id, table);
}
void activity_multi_save(int64_t operation_id, int64_t activity_id, int64_t rvc_id,
                         const GridTable& classes) {
  save_multi(kOperation, operation_id, activity_id, rvc_id, classes);
}
void baseline_multi_save(int64_t baseline_id, int64_t activity_id, int64_t rvc_id,
                         const GridTable& classes) {
  save_multi(kBaseline, baseline_id, activity_id, rvc_id, classes);
}

GridTable get_delta(int64_t operation_id, int64_t baseline_id) {
  Db db = ops_db();
  GridTable t(3);
  t.add_row();
  t.cell(0, 0) = "Activity/feature";
  t.cell(0, 1) = "Change";
  t.cell(0, 2) = "ID";
  auto rows = db.query("SELECT d.*, a." + q("Activity Name") + " AS an FROM " +
                           q("Operation_Activity_Delta") + " d LEFT JOIN " + q("Activities") +
                           " a ON a." + q("Activity ID") + " = d." + q("Activity ID") +
                           " WHERE d." + q("Operation ID") + " = ? AND d." + q("Baseline ID") +
                           " = ? AND d." + q("RVC ID") + " = 0 ORDER BY d.rowid",
                       {operation_id, baseline_id});
  while (rows.next()) {
    int r = t.add_row();
    t.cell(r, 0) = rows.get("an").as_text();
    t.cell(r, 1) = rows.get("Delta").as_text();
    t.cell(r, 2) = rows.get("Activity ID").as_text();
  }
  return t;
}

GridTable get_delta_multi(int64_t operation_id, int64_t baseline_id, int64_t activity_id) {
  Db db = ops_db();
  GridTable t = class_table();
  auto rows =
      db.query("SELECT * FROM " + q("Operation_Activity_Delta") + " WHERE " + q("Operation ID") +
                   " = ? AND " + q("Baseline ID") + " = ? AND " + q("Activity ID") + " = ? AND " +
                   q("RVC ID") + " <> 0 ORDER BY " + q("RVC Class"),
               {operation_id, baseline_id, activity_id});
  while (rows.next()) {
    int r = t.add_row();
    t.cell(r, 0) = rows.get("RVC Class").as_text();
    t.cell(r, 1) = rows.get("Delta").as_text();
  }
  return t;
}

int calculate_delta(int64_t operation_id, int64_t baseline_id) {
  struct Out {
    int64_t activity, rvc, cls;
    std::string delta;
  };
  std::vector<Out> out;
  {
    Db db = ops_db();
    auto base =
        db.prepare_statement("SELECT * FROM " + q("Baseline_Activity_Details") + " WHERE " +
                             q("Baseline ID") + " = ? AND " + q("Activity ID") + " = ? AND " +
                             q("RVC ID") + " = ? AND " + q("RVC Class") + " = ? LIMIT 1");
    auto ops = db.query("SELECT * FROM " + q("Operation_Activity_Details") + " WHERE " +
                            q("Operation ID") + " = ? ORDER BY rowid",
                        {operation_id});
    while (ops.next()) {
      int64_t activity = ops.get("Activity ID").as_int();
      int64_t rvc = ops.get("RVC ID").as_int(), cls = ops.get("RVC Class").as_int();
      std::string o_text = ops.get("Details").as_text();
      Rows& b = base.query({baseline_id, activity, rvc, cls});
      std::string where =
          activity_label(db, activity) +
          (rvc != 0 ? ", RVC " + std::to_string(rvc) + " class " + std::to_string(cls)
                    : std::string());
      if (!b.next()) {
        // A zero with no counterpart changes nothing; the dialog saves a
        // row for every activity, so most of those rows are zeros.
        auto o = parse_number(o_text);
        if (o && *o == 0) continue;
        throw EditError("The baseline has no details for " + where +
                        ". Enter them in the baseline first. The delta was not changed.");
      }
      std::string b_text = b.get("Details").as_text();
      // The baseline's marker decides a class-by-class row.
      if (b_text == "Multi") {
        out.push_back({activity, 0, 0, "Multi"});
        continue;
      }
      auto o = parse_number(o_text), bv = parse_number(b_text);
      if (!o || !bv)
        throw EditError("The details of " + where + " are not both numbers (\"" + o_text +
                        "\" and \"" + b_text + "\"). The delta was not changed.");
      double d = *o - *bv;
      if (d != 0) out.push_back({activity, rvc, cls, number_to_store_text(d)});
    }
  }
  Db db = ops_db();
  Transaction tx(db);
  db.exec("DELETE FROM " + q("Operation_Activity_Delta") + " WHERE " + q("Operation ID") +
              " = ? AND " + q("Baseline ID") + " = ?",
          {operation_id, baseline_id});
  for (const auto& r : out)
    db.insert("Operation_Activity_Delta",
              {"Operation ID", "Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Delta"},
              {operation_id, baseline_id, r.activity, r.rvc, r.cls, r.delta});
  tx.commit();
  touch_operation(operation_id);
  return static_cast<int>(out.size());
}

void delete_delta(int64_t operation_id, int64_t baseline_id) {
  Db db = ops_db();
  db.exec("DELETE FROM " + q("Operation_Activity_Delta") + " WHERE " + q("Operation ID") +
              " = ? AND " + q("Baseline ID") + " = ?",
          {operation_id, baseline_id});
}

int delta_calc_all(Ui& ui, const std::vector<ListItem>& operations) {
  if (ui.message_box("Calculate Delta for all operations listed?", "Delta Calc All",
                     MsgButtons::YesNo, MsgIcon::Question) == Answer::No)
    return 0;
  int done = 0, i = 0;
  std::string failures;
  for (const auto& op : operations) {
    ui.progress(++i, static_cast<int>(operations.size()), "Calculating deltas...");
    auto baselines = delta_baseline_list(op.data);
    if (baselines.empty()) continue;
    try {
      calculate_delta(op.data, baselines.front().item.data);  // the first baseline only
      ++done;
    } catch (const EditError& e) {
      failures += "\n" + op.text + ": " + e.what();
    }
  }
  ui.progress(0, 0, "");
  if (!failures.empty())
    ui.message_box("Some deltas were not calculated:" + failures, "Delta Calc All", MsgButtons::Ok,
                   MsgIcon::Exclamation);
  return done;
}

bool copy_details(Ui& ui, bool baselines, int64_t from_id, const std::string& from_name,
                  int64_t to_id) {
  const Owner& owner = baselines ? kBaseline : kOperation;
  if (from_id == to_id) return false;
  if (ui.message_box("Are you sure you want to copy data from " + from_name + "?", "Copy data",
                     MsgButtons::YesNo, MsgIcon::Question) != Answer::Yes)
    return false;
  Db db = ops_db();
  auto existing = db.query(
      "SELECT 1 FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ? LIMIT 1", {to_id});
  if (existing.next() &&
      ui.message_box(
          "Data already exists for this item. This action will overwrite that data. Do you "
          "want to continue?",
          "Overwrite data", MsgButtons::YesNo, MsgIcon::Exclamation) != Answer::Yes)
    return false;
  Transaction tx(db);
  db.exec("DELETE FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ?", {to_id});
  db.exec("INSERT INTO " + q(owner.table) + " (" + q(owner.key) + ", " + q("Activity ID") + ", " +
              q("RVC ID") + ", " + q("RVC Class") + ", " + q("Details") + ") SELECT ?, " +
              q("Activity ID") + ", " + q("RVC ID") + ", " + q("RVC Class") + ", " + q("Details") +
              " FROM " + q(owner.table) + " WHERE " + q(owner.key) + " = ? ORDER BY rowid",
          {to_id, from_id});
  tx.commit();
  return true;
}

std::string export_details_xlsx() {
  Db db = ops_db();
  GridTable t(6);
  t.add_row();
  const char* heads[] = {"Kind", "ID", "Activity ID", "RVC ID", "RVC Class", "Details"};
  for (int c = 0; c < 6; ++c) t.cell(0, c) = heads[c];
  for (const Owner* o : {&kBaseline, &kOperation}) {
    auto rows = db.query("SELECT * FROM " + q(o->table) + " ORDER BY " + q(o->key) + ", " +
                         q("Activity ID") + ", " + q("RVC ID") + ", " + q("RVC Class"));
    while (rows.next()) {
      int r = t.add_row();
      t.cell(r, 0) = o == &kBaseline ? "Baseline" : "Operation";
      t.cell(r, 1) = rows.get(o->key).as_text();
      t.cell(r, 2) = rows.get("Activity ID").as_text();
      t.cell(r, 3) = rows.get("RVC ID").as_text();
      t.cell(r, 4) = rows.get("RVC Class").as_text();
      t.cell(r, 5) = rows.get("Details").as_text();
    }
  }
  auto path = session().app_folder / "dbases" / "baseline_and_operations_details.xlsx";
  write_xlsx(t, path, "Details");  // replaces the file whole
  return path.string();
}

}  // namespace arven
