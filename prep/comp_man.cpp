#include "prep/comp_man.h"

#include <algorithm>
#include <set>

#include "base/html_text.h"
#include "base/numbers.h"
#include "base/utf8.h"
#include "core/page_file.h"
#include "core/session.h"
#include "prep/activity_factors.h"
#include "prep/master_stores.h"
#include "stores/db.h"

namespace arven {

namespace {

std::string q(std::string_view name) {
  return quote_name(name);
}

constexpr const char* kSpare = "zSpareOp_";
constexpr size_t kLongestName = 255;

struct KindInfo {
  const char* table;
  const char* key;
  const char* name;
};
KindInfo info(CompKind kind) {
  switch (kind) {
    case CompKind::operations:
      return {"Operations", "Operation ID", "Operation Name"};
    case CompKind::activities:
      return {"Activities", "Activity ID", "Activity Name"};
    case CompKind::baselines:
      break;
  }
  return {"Baselines", "Baseline ID", "Baseline Name"};
}

// How a field is checked and what an empty box becomes.
enum class FieldType { text, number, whole };
struct FieldRule {
  FieldType type = FieldType::text;
  const char* empty = nullptr;  // the value saved for an empty box (null without)
};
FieldRule rule(const std::string& field) {
  static const std::map<std::string, FieldRule> rules = {
      {"Operation Type ID", {FieldType::whole}},
      {"CORINE Class", {FieldType::whole, "0"}},
      {"Scaling up technique", {FieldType::whole, "1"}},
      {"ST Value", {FieldType::number, "0"}},
      {"Cost", {FieldType::number, "0"}},
      {"TEA_Inc", {FieldType::whole, "0"}},
      {"TEA_Factor", {FieldType::number}},
      // An empty score is 1 on purpose: it multiplies every data quality.
      {"Operation_DQ", {FieldType::number, "1"}},
      {"Impact type", {FieldType::whole}},
      {"Norm_factor", {FieldType::number, "0"}},
      {"Data_Quality", {FieldType::whole}},
      {"RVC Type", {FieldType::whole}},
      {"RVC Parent", {FieldType::whole, "0"}},
      {"RVC min", {FieldType::whole, "0"}},
      {"RVC max", {FieldType::whole, "0"}},
      {"Euro min", {FieldType::number}},
      {"Euro max", {FieldType::number}},
      {"N factor", {FieldType::number}},
      {"Hotspots Exclude Class Zero", {FieldType::whole, "0"}},
      {"Max_factor", {FieldType::number}},
  };
  auto it = rules.find(field);
  return it == rules.end() ? FieldRule{} : it->second;
}

// The field's value to store; throws EditError for a number field that
// holds no number.
Value field_value(const std::map<std::string, std::string>& fields, const std::string& field) {
  auto it = fields.find(field);
  std::string text = it == fields.end() ? "" : valid_utf8(it->second);
  FieldRule r = rule(field);
  if (r.type == FieldType::text) return text;
  if (text.empty()) {
    if (!r.empty) return Value();
    text = r.empty;
  }
  auto n = parse_number(text);
  if (!n || (r.type == FieldType::whole && *n != static_cast<double>(static_cast<int64_t>(*n))))
    throw EditError("\"" + field + "\": \"" + text + "\" is not " +
                    (r.type == FieldType::whole ? "a whole number" : "a number") +
                    ". Nothing was saved.");
  if (r.type == FieldType::whole) return static_cast<int64_t>(*n);
  return *n;
}

int64_t next_key(Db& db, const char* table, const char* key) {
  auto rows = db.query("SELECT MAX(" + q(key) + ") FROM " + q(table));
  return rows.next() ? rows.get(0).as_int() + 1 : 1;
}

bool has_rows(Db& db, const char* table, const char* column, int64_t key) {
  return db.query("SELECT 1 FROM " + q(table) + " WHERE " + q(column) + " = ? LIMIT 1", {key})
      .next();
}

// The name check: refused when another record (or, for a new record, any
// record) has the name. Shows the message and returns false.
bool name_free(Ui& ui, Db& db, const KindInfo& k, const std::string& name, int64_t key,
               bool is_new) {
  std::string problem;
  if (name.empty()) problem = "Please enter a name.";
  if (name.size() > kLongestName)
    problem = "The name is too long. Use at most " + std::to_string(kLongestName) + " characters.";
  if (problem.empty()) {
    auto rows = db.query(
        "SELECT " + q(k.key) + " FROM " + q(k.table) + " WHERE " + q(k.name) + " = ?", {name});
    while (rows.next())
      if (is_new || rows.get(0).as_int() != key)
        problem = "That name already exists. Please enter an alternative name";
  }
  if (problem.empty()) return true;
  ui.message_box(problem, "Invalid name", MsgButtons::Ok, MsgIcon::Exclamation);
  return false;
}

// The record's fields that are columns of its table.
std::vector<std::string> stored_fields(CompKind kind) {
  std::vector<std::string> out;
  for (const auto& f : comp_fields(kind))
    if (f != "Refs" && f != "Data_Quality") out.push_back(f);
  return out;
}

void write_record(Db& db, const char* table, const char* key_column, int64_t key, bool is_new,
                  const std::vector<std::string>& columns, const std::vector<Value>& values) {
  if (is_new) {
    std::vector<std::string> names = {key_column};
    std::vector<Value> all = {key};
    names.insert(names.end(), columns.begin(), columns.end());
    all.insert(all.end(), values.begin(), values.end());
    db.insert(table, names, all);
    return;
  }
  std::string sql = "UPDATE " + q(table) + " SET ";
  for (size_t i = 0; i < columns.size(); ++i) sql += (i ? ", " : "") + q(columns[i]) + " = ?";
  sql += " WHERE " + q(key_column) + " = ?";
  std::vector<Value> params = values;
  params.push_back(key);
  db.exec(sql, params);
}

void replace_measures(Db& db, const char* table, int64_t op, const std::vector<int64_t>& ids) {
  db.exec("DELETE FROM " + q(table) + " WHERE " + q("Operation ID") + " = ?", {op});
  for (int64_t id : std::set<int64_t>(ids.begin(), ids.end()))
    db.insert(table, {"Operation ID", "Measure ID"}, {op, id});
}

std::vector<int64_t> measures_of(Db& db, const char* table, int64_t op) {
  std::vector<int64_t> out;
  auto rows = db.query("SELECT " + q("Measure ID") + " FROM " + q(table) + " WHERE " +
                           q("Operation ID") + " = ? ORDER BY " + q("Measure ID"),
                       {op});
  while (rows.next()) out.push_back(rows.get(0).as_int());
  return out;
}

int64_t other_type_id(Db& db) {
  auto rows = db.query("SELECT " + q("Operation Type ID") + " FROM " + q("Operations_Types") +
                       " WHERE " + q("Operation Type Name") + " = 'Other'");
  if (rows.next()) return rows.get(0).as_int();
  int64_t id = next_key(db, "Operations_Types", "Operation Type ID");
  db.insert("Operations_Types", {"Operation Type ID", "Operation Type Name"}, {id, "Other"});
  return id;
}

}  // namespace

const std::vector<std::string>& comp_fields(CompKind kind) {
  static const std::vector<std::string> ops = {"Operation Name",
                                               "Operation Description",
                                               "Operation Type ID",
                                               "CORINE Class",
                                               "Scaling up technique",
                                               "ST Value",
                                               "Operation_DQ",
                                               "Cost",
                                               "TEA_Inc",
                                               "TEA_Factor",
                                               "Notes"};
  static const std::vector<std::string> acts = {
      "Activity Name", "Activity Unit", "Activity Description", "Notes", "Impact type",
      "Norm_factor",   "Refs",          "Data_Quality"};
  static const std::vector<std::string> bases = {"Baseline Name", "Baseline long name", "Notes"};
  return kind == CompKind::operations ? ops : kind == CompKind::activities ? acts : bases;
}

const std::vector<std::pair<std::string, int>>& impact_type_choices() {
  // Carbon sequestration is a mitigation: both are stored as 1.
  static const std::vector<std::pair<std::string, int>> c = {{"GHG emissions", 1},
                                                             {"Carbon sequestration", 1},
                                                             {"Adaptive capacity", 2},
                                                             {"Yield", 4},
                                                             {"All", 0}};
  return c;
}

const std::vector<std::pair<std::string, std::string>>& corine_class_choices() {
  static const auto choices = [] {
    std::vector<std::pair<std::string, std::string>> c = {{"0", corine_class_name(0)}};
    for (int k = 1; k <= 9; ++k)
      c.push_back({std::to_string(k), std::to_string(k) + ". " + corine_class_name(k)});
    return c;
  }();
  return choices;
}

std::vector<int64_t> xppl_list() {
  Db db = ops_db();
  std::vector<int64_t> out;
  auto rows =
      db.query("SELECT " + q("Operation ID") + " FROM " + q("xPPL_List") + " ORDER BY rowid");
  while (rows.next()) out.push_back(rows.get(0).as_int());
  return out;
}

std::vector<CompItem> get_comp_list(CompKind kind, const std::string& search, int impact_type) {
  KindInfo k = info(kind);
  Db db = ops_db();
  std::string sql =
      "SELECT * FROM " + q(k.table) + " WHERE " + q(k.name) + " LIKE '%' || ? || '%' ESCAPE '\\'";
  std::vector<Value> params = {like_escape(search)};
  if (kind == CompKind::activities && impact_type != 0) {
    sql += " AND " + q("Impact type") + " = ?";
    params.push_back(impact_type);
  }
  sql += " ORDER BY " + q(k.name);
  std::vector<CompItem> out;
  auto rows = db.query(sql, params);
  while (rows.next()) {
    std::string name = rows.get(k.name).as_text();
    if (kind == CompKind::operations && name.rfind(kSpare, 0) == 0) continue;
    int64_t key = rows.get(k.key).as_int();
    bool data = kind == CompKind::activities
                    ? has_rows(db, "Operation_Activity_Delta", "Activity ID", key)
                    : has_rows(db, "Operation_Activity_Delta", k.key, key);
    out.push_back({{name, key}, data});
  }
  return out;
}

CompRecord get_comp_details(CompKind kind, int64_t key) {
  KindInfo k = info(kind);
  Db db = ops_db();
  CompRecord r;
  r.key = key;
  auto rows = db.query("SELECT * FROM " + q(k.table) + " WHERE " + q(k.key) + " = ?", {key});
  if (!rows.next()) return r;
  for (const auto& f : stored_fields(kind)) r.fields[f] = rows.get(f).as_text();
  if (kind == CompKind::operations) {
    r.measures = measures_of(db, "Operations_Measures", key);
    r.new_measures = measures_of(db, "Operations_New_Measures", key);
  }
  if (kind == CompKind::activities) {
    for (const char* t :
         {"Adaptation_Activity_Impact_Factors", "Mitigation_Activity_Emission_Factors",
          "Yield_Activity_Impact_Factors"}) {
      auto f =
          db.query("SELECT * FROM " + q(t) + " WHERE " + q("Activity ID") + " = ? LIMIT 1", {key});
      if (f.next()) {
        r.fields["Refs"] = f.get("Refs").as_text();
        r.fields["Data_Quality"] = f.get("Data_Quality").as_text();
        break;
      }
    }
  }
  return r;
}

std::string comp_title(CompKind kind, int64_t key) {
  KindInfo k = info(kind);
  Db db = ops_db();
  auto rows = db.query("SELECT * FROM " + q(k.table) + " WHERE " + q(k.key) + " = ?", {key});
  if (!rows.next()) return "";
  std::string title = rows.get(k.name).as_text();
  if (kind != CompKind::baselines) title += " ID: " + std::to_string(key);
  if (kind == CompKind::operations && has_rows(db, "Operation_Activity_Delta", k.key, key))
    title += " - Delta calculated";
  return title;
}

std::vector<ListItem> measure_list(bool new_measures) {
  Db db = ops_db();
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM " + q(new_measures ? "New_Measures" : "Measures") +
                       " ORDER BY " + q("Measure ID"));
  while (rows.next())
    out.push_back({rows.get("Measure EU ID").as_text() + " " + rows.get("Measure name").as_text(),
                   rows.get("Measure ID").as_int()});
  return out;
}

int64_t save_comp_details(Ui& ui, CompKind kind, const CompRecord& record, bool is_new) {
  KindInfo k = info(kind);
  std::vector<std::string> columns = stored_fields(kind);
  std::vector<Value> values;
  Value refs, dq;
  try {
    for (const auto& f : columns) values.push_back(field_value(record.fields, f));
    if (kind == CompKind::activities) {
      refs = field_value(record.fields, "Refs");
      dq = field_value(record.fields, "Data_Quality");
    }
  } catch (const EditError& e) {
    ui.message_box(e.what(), "Invalid value", MsgButtons::Ok, MsgIcon::Exclamation);
    return 0;
  }
  Db db = ops_db();
  if (!name_free(ui, db, k, values.front().as_text(), record.key, is_new)) return 0;
  int64_t key = is_new ? next_key(db, k.table, k.key) : record.key;
  {
    Transaction tx(db);
    write_record(db, k.table, k.key, key, is_new, columns, values);
    if (kind == CompKind::operations) {
      replace_measures(db, "Operations_Measures", key, record.measures);
      replace_measures(db, "Operations_New_Measures", key, record.new_measures);
    }
    if (kind == CompKind::activities) {
      // One reference list and one score per activity, on all its factor rows.
      for (const char* t :
           {"Adaptation_Activity_Impact_Factors", "Mitigation_Activity_Emission_Factors",
            "Yield_Activity_Impact_Factors"})
        db.exec("UPDATE " + q(t) + " SET " + q("Refs") + " = ?, " + q("Data_Quality") +
                    " = ? WHERE " + q("Activity ID") + " = ?",
                {refs, dq, key});
    }
    tx.commit();
  }
  // The pre-processor's run by date picks the change up.
  if (kind == CompKind::operations) touch_operation(key);
  if (kind == CompKind::activities) update_op_update_date(key);
  return key;
}

int64_t add_new_comp(Ui& ui, CompKind kind, const CompRecord& record) {
  if (ui.message_box("Are you sure you want to add a new component?", "Add New",
                     MsgButtons::YesNoCancel, MsgIcon::Question) != Answer::Yes)
    return 0;
  return save_comp_details(ui, kind, record, true);
}

bool scope_out(Ui& ui, int64_t operation_id) {
  CompRecord r = get_comp_details(CompKind::operations, operation_id);
  if (r.fields.empty()) return false;
  if (ui.message_box("Scope out operation: " + r.fields["Operation Name"] + "?", "Scope Out",
                     MsgButtons::YesNo, MsgIcon::Question) != Answer::Yes)
    return false;
  Db db = ops_db();
  Transaction tx(db);
  if (!has_rows(db, "Scoped_Out_Operations", "Operation ID", operation_id)) {
    db.exec("INSERT INTO " + q("Scoped_Out_Operations") + " (" + q("Operation ID") + ", " +
                q("Operation Type Name") + ", " + q("Operation Type ID") + ", " +
                q("Operation Name") + ", " + q("Operation Description") + ") SELECT o." +
                q("Operation ID") + ", t." + q("Operation Type Name") + ", o." +
                q("Operation Type ID") + ", o." + q("Operation Name") + ", o." +
                q("Operation Description") + " FROM " + q("Operations") + " o LEFT JOIN " +
                q("Operations_Types") + " t ON t." + q("Operation Type ID") + " = o." +
                q("Operation Type ID") + " WHERE o." + q("Operation ID") + " = ?",
            {operation_id});
    db.exec("INSERT INTO " + q("Scoped_Out_Operations_Measures") + " SELECT " + q("Operation ID") +
                ", " + q("Measure ID") + " FROM " + q("Operations_Measures") + " WHERE " +
                q("Operation ID") + " = ?",
            {operation_id});
  }
  int64_t n = 0;
  auto spares = db.query("SELECT " + q("Operation Name") + " FROM " + q("Operations") + " WHERE " +
                             q("Operation Name") + " LIKE ? ESCAPE '\\'",
                         {like_escape(kSpare) + "%"});
  while (spares.next()) {
    auto number = parse_number(spares.get(0).as_text().substr(std::string(kSpare).size()));
    if (number && *number > static_cast<double>(n)) n = static_cast<int64_t>(*number);
  }
  db.exec("UPDATE " + q("Operations") + " SET " + q("Operation Name") + " = ?, " +
              q("Operation Description") + " = '', " + q("Notes") + " = '', " +
              q("Operation Type ID") + " = ?, " + q("Last_Updated") +
              " = datetime('now', 'localtime') WHERE " + q("Operation ID") + " = ?",
          {kSpare + std::to_string(n + 1), other_type_id(db), operation_id});
  for (const char* t : {"Operations_Measures", "Operations_New_Measures",
                        "Operation_Activity_Details", "Operation_Activity_Delta"})
    db.exec("DELETE FROM " + q(t) + " WHERE " + q("Operation ID") + " = ?", {operation_id});
  tx.commit();
  return true;
}

std::string write_comp_report(CompKind kind, int64_t key) {
  KindInfo k = info(kind);
  Db db = ops_db();
  std::string sql;
  std::vector<Value> params = {key};
  if (kind == CompKind::activities) {
    sql = "SELECT * FROM " + q("Activities") + " WHERE " + q("Activity ID") + " = ?";
  } else {
    const char* details =
        kind == CompKind::operations ? "Operation_Activity_Details" : "Baseline_Activity_Details";
    sql = "SELECT * FROM " + q("Activities") + " WHERE " + q("Activity ID") + " IN (SELECT " +
          q("Activity ID") + " FROM " + q(details) + " WHERE " + q(k.key) + " = ?) ORDER BY " +
          q("Activity ID");
  }
  std::string title = comp_title(kind, key);
  PageFile out("report.htm");
  page_header(out, 0);
  out.line("<h2>" + html_escape("Report for " + title) + "</h2>");
  out.line("<table border=\"1\" cellpadding=\"3\" cellspacing=\"0\">");
  out.line(
      "<tr><th>Activity/feature</th><th>Category</th><th>Unit</th><th>Description</th>"
      "<th>Notes</th></tr>");
  auto rows = db.query(sql, params);
  while (rows.next()) {
    int64_t type = rows.get("Impact type").as_int();
    std::string category;
    for (const auto& [text, value] : impact_type_choices())
      if (value == type && category.empty()) category = text;
    out.line("<tr><td>" + html_escape(rows.get("Activity Name").as_text()) + "</td><td>" +
             html_escape(category) + "</td><td>" +
             html_escape(rows.get("Activity Unit").as_text()) + "</td><td>" +
             html_escape(rows.get("Activity Description").as_text()) + "</td><td>" +
             html_escape(rows.get("Notes").as_text()) + "</td></tr>");
  }
  out.line("</table>");
  page_footer(out);
  return "report.htm";
}

// ---- RVC Manager ----

const std::vector<std::string>& rvc_fields() {
  static const std::vector<std::string> f = {"RVC Short Name",
                                             "RVC Long Name",
                                             "RVC Short Letter ID",
                                             "Risk statement",
                                             "RVC Type",
                                             "CORINE Class",
                                             "RVC Parent",
                                             "RVC min",
                                             "RVC max",
                                             "Euro min",
                                             "Euro max",
                                             "N factor",
                                             "Hotspots Exclude Class Zero",
                                             "Notes",
                                             "GIS Data File",
                                             "Impact Type",
                                             "Max_factor"};
  return f;
}

std::vector<ListItem> RVC_list() {
  Db db = rvc_db();
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM " + q("RVC_List") + " ORDER BY " + q("RVC ID"));
  while (rows.next())
    out.push_back({rows.get("RVC Short Name").as_text(), rows.get("RVC ID").as_int()});
  return out;
}

RvcRecord get_RVC_details(int64_t rvc_id) {
  Db db = rvc_db();
  RvcRecord r;
  r.id = rvc_id;
  auto rows =
      db.query("SELECT * FROM " + q("RVC_List") + " WHERE " + q("RVC ID") + " = ?", {rvc_id});
  if (!rows.next()) return r;
  for (const auto& f : rvc_fields()) r.fields[f] = rows.get(f).as_text();
  auto kids = db.query("SELECT * FROM " + q("RVC_List") + " WHERE " + q("RVC Parent") +
                           " = ? ORDER BY " + q("RVC ID"),
                       {rvc_id});
  while (kids.next())
    r.children.push_back({kids.get("RVC Short Name").as_text(), kids.get("RVC ID").as_int()});
  return r;
}

int64_t save_RVC_details(Ui& ui, int64_t rvc_id, const std::map<std::string, std::string>& fields) {
  std::vector<Value> values;
  try {
    for (const auto& f : rvc_fields()) values.push_back(field_value(fields, f));
  } catch (const EditError& e) {
    ui.message_box(e.what(), "Invalid value", MsgButtons::Ok, MsgIcon::Exclamation);
    return 0;
  }
  Db db = rvc_db();
  bool is_new = rvc_id == 0;
  KindInfo k{"RVC_List", "RVC ID", "RVC Short Name"};
  if (!name_free(ui, db, k, values.front().as_text(), rvc_id, is_new)) return 0;
  int64_t key = is_new ? next_key(db, k.table, k.key) : rvc_id;
  Transaction tx(db);
  write_record(db, k.table, k.key, key, is_new, rvc_fields(), values);
  tx.commit();
  return key;
}

int64_t add_rvc(Ui& ui, const std::map<std::string, std::string>& fields) {
  if (ui.message_box("Are you sure you want to add a new RVC?", "Add New", MsgButtons::YesNo,
                     MsgIcon::Question) != Answer::Yes)
    return 0;
  bool table = ui.message_box("Create database table?", "Create Table", MsgButtons::YesNo,
                              MsgIcon::Question) == Answer::Yes;
  auto it = fields.find("RVC Short Name");
  std::string name = it == fields.end() ? "" : valid_utf8(it->second);
  int64_t id = save_RVC_details(ui, 0, fields);
  if (id != 0 && table) {
    Db db = rvc_db();
    std::string t = "NUTS3_" + name;
    if (!db.has_table(t))
      db.exec("CREATE TABLE " + q(t) + " (" + q("NUTS3_ID") + " INTEGER, " + q("NUTS") +
              " TEXT(255), " + q("RVC Class") + " INTEGER, " + q("Percent") + " REAL)");
  }
  return id;
}

std::string get_mf(int64_t rvc_id) {
  Db db = ops_db();
  auto rows =
      db.query("SELECT SUM(" + q("Impact factor") + "), COUNT(*) FROM " +
                   q("Adaptation_Activity_Impact_Factors") + " WHERE " + q("RVC ID") + " = ?",
               {rvc_id});
  // The sum, not the greatest value: this is how the maximum factor is kept.
  if (!rows.next() || rows.get(1).as_int() == 0) return "0";
  return number_to_text(rows.get(0).as_double());
}

}  // namespace arven
