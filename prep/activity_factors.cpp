#include "prep/activity_factors.h"

#include <map>
#include <set>

#include "base/numbers.h"
#include "prep/master_stores.h"
#include "stores/db.h"

namespace arven {

namespace {

std::string q(std::string_view name) {
  return quote_name(name);
}

constexpr const char* kMitigation = "Mitigation_Activity_Emission_Factors";
constexpr const char* kAdaptation = "Adaptation_Activity_Impact_Factors";
constexpr const char* kYield = "Yield_Activity_Impact_Factors";

GridTable titled(std::initializer_list<const char*> titles) {
  GridTable t(static_cast<int>(titles.size()));
  t.add_row();
  int c = 0;
  for (const char* title : titles) t.cell(0, c++) = title;
  return t;
}

int column_of(const GridTable& t, std::string_view title) {
  for (int c = 0; c < t.cols(); ++c)
    if (t.cell(0, c) == title) return c;
  throw EditError("The table has no column \"" + std::string(title) + "\".");
}

// A cell as a number; an empty cell is 0 where `empty_is_zero`.
double number_cell(const GridTable& t, int r, std::string_view title, bool empty_is_zero) {
  const std::string& text = t.cell(r, column_of(t, title));
  if (text.empty() && empty_is_zero) return 0;
  auto n = parse_number(text);
  if (!n)
    throw EditError("Row " + std::to_string(r) + ", column \"" + std::string(title) + "\": \"" +
                    text + "\" is not a number. Nothing was saved; the old values stay.");
  return *n;
}

// The class of a row as stored (a 32-bit float); an empty class, as rows
// for the whole area have, stays empty.
Value class_value(const GridTable& t, int r) {
  if (t.cell(r, column_of(t, "RVC Class")).empty()) return Value();
  return static_cast<double>(static_cast<float>(number_cell(t, r, "RVC Class", false)));
}

// The columns of a factor row that the editor does not show: its Refs and
// Data_Quality (chosen in the References tool and the component manager)
// and an ecosystem-service row's Impact Category ID. A saved row that
// matches an old one (same RVC, and same class where the kind has classes)
// keeps them; new rows start without.
struct Kept {
  Value refs, quality, category;
};
class KeptColumns {
 public:
  KeptColumns(Db& db, const char* table, int64_t activity_id, bool by_class) : by_class_(by_class) {
    auto rows =
        db.query("SELECT * FROM " + q(table) + " WHERE " + q("Activity ID") + " = ? ORDER BY rowid",
                 {activity_id});
    bool has_category = std::string_view(table) == kAdaptation;
    while (rows.next())
      old_[key(rows.get("RVC ID"), by_class ? rows.get("RVC Value") : Value())].push_back(
          {rows.get("Refs"), rows.get("Data_Quality"),
           has_category ? rows.get("Impact Category ID") : Value()});
  }
  // The kept columns of the next saved row with this RVC and class; two
  // rows of the same key take the old ones in stored order.
  Kept take(const Value& rvc_id, const Value& cls) {
    auto it = old_.find(key(rvc_id, by_class_ ? cls : Value()));
    if (it == old_.end() || it->second.empty()) return {};
    Kept k = it->second.front();
    it->second.erase(it->second.begin());
    return k;
  }

 private:
  // Classes are compared as numbers: an old class may be stored as an
  // integer, a saved one as a float.
  static std::string key(const Value& rvc_id, const Value& cls) {
    return std::to_string(rvc_id.as_int()) + "|" +
           (cls.is_empty() ? std::string() : number_to_text(cls.as_double()));
  }
  bool by_class_;
  std::map<std::string, std::vector<Kept>> old_;
};

// Replaces the activity's rows of `table` by those `insert` writes, in one
// transaction, then stamps the operations that use the activity; returns
// how many it stamped. `insert` takes the old rows' kept columns.
template <class Insert>
int replace_rows(const char* table, int64_t activity_id, bool by_class, Insert&& insert) {
  {
    Db db = ops_db();
    Transaction tx(db);
    KeptColumns kept(db, table, activity_id, by_class);
    db.exec("DELETE FROM " + q(table) + " WHERE " + q("Activity ID") + " = ?", {activity_id});
    insert(db, kept);
    tx.commit();
  }
  return update_op_update_date(activity_id);
}

}  // namespace

const std::vector<std::string>& factor_kind_texts() {
  static const std::vector<std::string> t = {"GHG Emissions", "Carbon Sequestration",
                                             "Ecosystem Services", "Yield"};
  return t;
}

std::vector<ListItem> get_rvcs() {
  Db db = rvc_db();
  std::vector<ListItem> out;
  auto rows = db.query("SELECT * FROM " + q("RVC_List") + " WHERE " + q("RVC Type") +
                       " IN (1, 3, 4) ORDER BY " + q("RVC ID"));
  while (rows.next())
    out.push_back({rows.get("RVC Short Name").as_text(), rows.get("RVC ID").as_int()});
  return out;
}

std::vector<ActivityItem> get_activities(const std::string& search, FactorKind kind) {
  Db db = ops_db();
  const char* table = kind == FactorKind::ecosystem_services ? kAdaptation : kMitigation;
  auto has = db.prepare_statement("SELECT 1 FROM " + q(table) + " WHERE " + q("Activity ID") +
                                  " = ? LIMIT 1");
  std::vector<ActivityItem> out;
  auto rows = db.query("SELECT * FROM " + q("Activities") + " WHERE " + q("Activity Name") +
                           " LIKE '%' || ? || '%' ESCAPE '\\' ORDER BY " + q("Activity Name"),
                       {like_escape(search)});
  while (rows.next()) {
    int64_t id = rows.get("Activity ID").as_int();
    bool data = has.query({id}).next();
    out.push_back({{rows.get("Activity Name").as_text(), id}, data});
  }
  return out;
}

GridTable factor_table(FactorKind kind) {
  switch (kind) {
    case FactorKind::ghg:
      return titled({"RVC Class", "tCO2e"});
    case FactorKind::carbon_sequestration:
      return titled({"RVC Class", "tCO2e", "Equilibrium"});
    case FactorKind::ecosystem_services:
      return titled({"RVC ID", "RVC Name", "Value"});
    case FactorKind::yield:
      break;
  }
  return titled({"RVC Class", "Yield"});
}

GridTable factor_class_rows(FactorKind kind, int64_t rvc_id) {
  GridTable t = factor_table(kind);
  GridTable classes = class_rows(rvc_id);
  for (int r = 1; r < classes.rows(); ++r) t.cell(t.add_row(), 0) = classes.cell(r, 0);
  return t;
}

GridTable get_ghg_details(int64_t activity_id, FactorKind kind, int64_t& rvc_id) {
  GridTable t = factor_table(kind);
  rvc_id = 0;
  Db db = ops_db();
  auto rows = db.query("SELECT * FROM " + q(kMitigation) + " WHERE " + q("Activity ID") +
                           " = ? ORDER BY " + q("RVC Value") + ", rowid",
                       {activity_id});
  while (rows.next()) {
    rvc_id = rows.get("RVC ID").as_int();
    int r = t.add_row();
    t.cell(r, 0) = rows.get("RVC Value").as_text();
    t.cell(r, 1) = rows.get("tCO2e").as_text();
    if (kind == FactorKind::carbon_sequestration) t.cell(r, 2) = rows.get("Equilibrium").as_text();
  }
  return t;
}

GridTable get_es_details(int64_t activity_id) {
  GridTable t = factor_table(FactorKind::ecosystem_services);
  Db db = ops_db();
  Db rvc = rvc_db();
  auto name = rvc.prepare_statement("SELECT " + q("RVC Short Name") + " FROM " + q("RVC_List") +
                                    " WHERE " + q("RVC ID") + " = ?");
  auto rows = db.query(
      "SELECT * FROM " + q(kAdaptation) + " WHERE " + q("Activity ID") + " = ? ORDER BY rowid",
      {activity_id});
  while (rows.next()) {
    int r = t.add_row();
    int64_t id = rows.get("RVC ID").as_int();
    t.cell(r, 0) = std::to_string(id);
    Rows& n = name.query({id});
    t.cell(r, 1) = n.next() ? n.get(0).as_text() : "";
    t.cell(r, 2) = rows.get("Impact factor").as_text();
  }
  return t;
}

GridTable get_yield_details(int64_t activity_id, int64_t& rvc_id) {
  GridTable t = factor_table(FactorKind::yield);
  rvc_id = 0;
  Db db = ops_db();
  auto rows = db.query("SELECT * FROM " + q(kYield) + " WHERE " + q("Activity ID") +
                           " = ? ORDER BY " + q("RVC Value") + ", rowid",
                       {activity_id});
  while (rows.next()) {
    rvc_id = rows.get("RVC ID").as_int();
    int r = t.add_row();
    t.cell(r, 0) = rows.get("RVC Value").as_text();
    t.cell(r, 1) = rows.get("Yield").as_text();
  }
  return t;
}

int save_ghg_details(int64_t activity_id, int mitigation_type, int64_t rvc_id,
                     const GridTable& table) {
  struct Row {
    Value cls;
    double tco2e;
    Value equilibrium;
  };
  std::vector<Row> rows;
  for (int r = 1; r < table.rows(); ++r) {
    Row row{class_value(table, r), number_cell(table, r, "tCO2e", true), {}};
    if (mitigation_type == 2) row.equilibrium = number_cell(table, r, "Equilibrium", false);
    rows.push_back(row);
  }
  // Both mitigation types share the table: an activity has one kind.
  return replace_rows(kMitigation, activity_id, true, [&](Db& db, KeptColumns& kept) {
    for (const Row& r : rows) {
      Kept k = kept.take(rvc_id, r.cls);
      db.insert(
          kMitigation,
          {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Equilibrium", "Refs",
           "Data_Quality"},
          {activity_id, rvc_id, r.cls, mitigation_type, r.tco2e, r.equilibrium, k.refs, k.quality});
    }
  });
}

int save_yield_details(int64_t activity_id, int64_t rvc_id, const GridTable& table) {
  std::vector<std::pair<Value, double>> rows;
  for (int r = 1; r < table.rows(); ++r)
    rows.push_back({class_value(table, r), number_cell(table, r, "Yield", true)});
  return replace_rows(kYield, activity_id, true, [&](Db& db, KeptColumns& kept) {
    for (const auto& [cls, yield] : rows) {
      Kept k = kept.take(rvc_id, cls);
      db.insert(kYield, {"Activity ID", "RVC ID", "RVC Value", "Yield", "Refs", "Data_Quality"},
                {activity_id, rvc_id, cls, yield, k.refs, k.quality});
    }
  });
}

int save_es_details(int64_t activity_id, const GridTable& table) {
  std::vector<std::pair<int64_t, double>> rows;
  for (int r = 1; r < table.rows(); ++r) {
    double id = number_cell(table, r, "RVC ID", false);
    if (id != static_cast<double>(static_cast<int64_t>(id)))
      throw EditError("Row " + std::to_string(r) + ", column \"RVC ID\": \"" + table.cell(r, 0) +
                      "\" is not a whole number. Nothing was saved; the old values stay.");
    rows.push_back({static_cast<int64_t>(id), number_cell(table, r, "Value", false)});
  }
  return replace_rows(kAdaptation, activity_id, false, [&](Db& db, KeptColumns& kept) {
    for (const auto& [id, value] : rows) {
      Kept k = kept.take(id, Value());
      db.insert(
          kAdaptation,
          {"Activity ID", "Impact Category ID", "RVC ID", "Impact factor", "Refs", "Data_Quality"},
          {activity_id, k.category, id, value, k.refs, k.quality});
    }
  });
}

int update_op_update_date(int64_t activity_id) {
  std::set<int64_t> ops;
  {
    Db db = ops_db();
    auto rows = db.query("SELECT " + q("Operation ID") + " FROM " + q("Operation_Activity_Delta") +
                             " WHERE " + q("Activity ID") + " = ?",
                         {activity_id});
    while (rows.next()) ops.insert(rows.get(0).as_int());
  }
  for (int64_t id : ops) touch_operation(id);
  return static_cast<int>(ops.size());
}

std::string display_act_info(int64_t activity_id) {
  Db db = ops_db();
  auto rows = db.query(
      "SELECT " + q("Notes") + " FROM " + q("Activities") + " WHERE " + q("Activity ID") + " = ?",
      {activity_id});
  return rows.next() ? rows.get(0).as_text() : "";
}

}  // namespace arven
