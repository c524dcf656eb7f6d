#include "prep/references.h"

#include <algorithm>

#include "base/utf8.h"
#include "core/lookups.h"
#include "prep/activity_delta.h"
#include "prep/master_keys.h"
#include "prep/master_stores.h"

namespace arven {

namespace {

std::string q(std::string_view name) {
  return quote_name(name);
}

bool names(const std::string& refs, int64_t id) {
  auto ids = parse_refs(refs).value_or(std::vector<int64_t>{});
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// Calls `row(table, row number, stored row)` for every factor row, in each
// table's stored order.
template <class Row>
void each_factor_row(const Db& db, Row&& row) {
  for (const auto& t : refs_tables()) {
    auto rows = db.query("SELECT rowid AS row_id, * FROM " + q(t) + " ORDER BY rowid");
    while (rows.next()) row(t, rows.row(), rows);
  }
}

// The value column a factor row is told apart by.
const char* value_column(const std::string& table) {
  if (table == "Mitigation_Activity_Emission_Factors") return "tCO2e";
  if (table == "Yield_Activity_Impact_Factors") return "Yield";
  return "Impact factor";
}

// The class of a factor row: RVC Value, or the impact category.
std::string class_of(const Rows& rows) {
  return rows.has_column("RVC Value") ? rows.get("RVC Value").as_text()
                                      : rows.get("Impact Category ID").as_text();
}

[[noreturn]] void refuse(int64_t ref_id, const std::string& column, const std::string& what) {
  throw EditError("Table \"References\", row of Ref ID " + std::to_string(ref_id) + ", column \"" +
                  column + "\": " + what + ". Nothing was saved.");
}

void check_text(int64_t ref_id, const std::string& column, const std::string& text, int size) {
  if (!is_valid_utf8(text)) refuse(ref_id, column, "the text is not valid UTF-8");
  if (!fits_text_column(text, size))
    refuse(ref_id, column, "the text is longer than " + std::to_string(size) + " characters");
}

}  // namespace

std::vector<ReferenceRow> list_references(const std::string& search) {
  Db db = ops_db();
  std::vector<ReferenceRow> out;
  const std::string like = " LIKE '%' || ? || '%' ESCAPE '\\'";
  auto rows =
      db.query("SELECT * FROM " + q("References") + " WHERE " + q("Ref Short") + like + " OR " +
                   q("Ref Long") + like + " OR " + q("URL") + like + " ORDER BY " + q("Ref ID"),
               {like_escape(search), like_escape(search), like_escape(search)});
  while (rows.next())
    out.push_back({rows.get("Ref ID").as_int(), rows.get("Ref Short").as_text(),
                   rows.get("Ref Long").as_text(), rows.get("URL").as_text(), 0});
  each_factor_row(db, [&](const std::string&, int64_t, const Rows& r) {
    for (int64_t id : parse_refs(r.get("Refs").as_text()).value_or(std::vector<int64_t>{}))
      for (auto& ref : out)
        if (ref.id == id) ++ref.uses;
  });
  return out;
}

GridTable reference_uses(int64_t ref_id) {
  GridTable t(6);
  t.add_row();
  const char* titles[] = {"Table", "Row", "Activity", "RVC ID", "RVC Class", "Refs"};
  for (int c = 0; c < 6; ++c) t.cell(0, c) = titles[c];
  Db db = ops_db();
  each_factor_row(db, [&](const std::string& table, int64_t row, const Rows& r) {
    if (!names(r.get("Refs").as_text(), ref_id)) return;
    int n = t.add_row();
    t.cell(n, 0) = table;
    t.cell(n, 1) = std::to_string(row);
    t.cell(n, 2) = r.get("Activity ID").as_text();
    t.cell(n, 3) = r.get("RVC ID").as_text();
    t.cell(n, 4) = class_of(r);
    t.cell(n, 5) = r.get("Refs").as_text();
  });
  return t;
}

int64_t save_reference(int64_t ref_id, const std::string& short_ref, const std::string& long_ref,
                       const std::string& url) {
  int64_t id = ref_id > 0 ? ref_id : first_free_ref_id();
  if (short_ref.empty()) refuse(id, "Ref Short", "a reference needs a short text");
  check_text(id, "Ref Short", short_ref, 255);
  check_text(id, "Ref Long", long_ref, 0);
  check_text(id, "URL", url, 255);
  Db db = ops_db();
  Transaction tx(db);
  const std::vector<Value> values = {short_ref, long_ref, url.empty() ? Value() : Value(url)};
  if (ref_id > 0) {
    int changed =
        db.exec("UPDATE " + q("References") + " SET " + q("Ref Short") + " = ?, " + q("Ref Long") +
                    " = ?, " + q("URL") + " = ? WHERE " + q("Ref ID") + " = ?",
                {values[0], values[1], values[2], Value(ref_id)});
    if (changed == 0) refuse(id, "Ref ID", "there is no such reference");
    stamp_operations(db, operations_naming_refs(db, {ref_id}));
  } else {
    db.insert("References", {"Ref ID", "Ref Short", "Ref Long", "URL"},
              {Value(id), values[0], values[1], values[2]});
  }
  tx.commit();
  return id;
}

void delete_reference(int64_t ref_id) {
  GridTable uses = reference_uses(ref_id);
  if (uses.rows() > 1)
    throw EditError("Reference " + std::to_string(ref_id) +
                    " cannot be deleted: " + std::to_string(uses.rows() - 1) +
                    " factor rows name it, the first row " + uses.cell(1, 1) + " of table \"" +
                    uses.cell(1, 0) + "\" (column \"Refs\"). Take it out of their Refs first.");
  Db db = ops_db();
  db.exec("DELETE FROM " + q("References") + " WHERE " + q("Ref ID") + " = ?", {ref_id});
}

std::vector<FactorRefRow> factor_ref_rows(int64_t activity_id) {
  Db db = ops_db();
  std::vector<FactorRefRow> out;
  each_factor_row(db, [&](const std::string& table, int64_t, const Rows& r) {
    if (r.get("Activity ID").as_int() != activity_id) return;
    const std::string cls = class_of(r);
    std::string label =
        table == "Adaptation_Activity_Impact_Factors"
            ? "Impact category " + cls
            : "RVC " + r.get("RVC ID").as_text() + (cls.empty() ? "" : ", class " + cls);
    label += ", " + std::string(value_column(table)) + " " + r.get(value_column(table)).as_text();
    out.push_back({table, r.get("row_id").as_int(), label,
                   parse_refs(r.get("Refs").as_text()).value_or(std::vector<int64_t>{})});
  });
  return out;
}

int save_factor_refs(const std::string& table, int64_t rowid, const std::vector<int64_t>& refs) {
  if (std::find(refs_tables().begin(), refs_tables().end(), table) == refs_tables().end())
    throw EditError("Table \"" + table + "\" has no Refs column.");
  Db db = ops_db();
  std::string text;
  for (int64_t id : refs) {
    if (!db.query("SELECT 1 FROM " + q("References") + " WHERE " + q("Ref ID") + " = ?", {id})
             .next())
      throw EditError("Table \"" + table + "\", column \"Refs\": Ref ID " + std::to_string(id) +
                      " has no row in table \"References\". Nothing was saved.");
    text += (text.empty() ? "" : ", ") + std::to_string(id);
  }
  Transaction tx(db);
  auto activity =
      db.query("SELECT " + q("Activity ID") + " FROM " + q(table) + " WHERE rowid = ?", {rowid});
  if (!activity.next())
    throw EditError("Table \"" + table + "\" has no row " + std::to_string(rowid) +
                    ". Nothing was saved.");
  int64_t activity_id = activity.get(0).as_int();
  db.exec("UPDATE " + q(table) + " SET " + q("Refs") + " = ? WHERE rowid = ?",
          {text.empty() ? Value() : Value(text), rowid});
  std::set<int64_t> ops;
  auto users = db.query("SELECT " + q("Operation ID") + " FROM " + q("Operation_Activity_Delta") +
                            " WHERE " + q("Activity ID") + " = ?",
                        {activity_id});
  while (users.next()) ops.insert(users.get(0).as_int());
  int stamped = stamp_operations(db, ops);
  tx.commit();
  return stamped;
}

std::set<int64_t> operations_naming_refs(const Db& db, const std::set<int64_t>& ref_ids) {
  std::set<std::string> activities;
  each_factor_row(db, [&](const std::string&, int64_t, const Rows& r) {
    for (int64_t id : parse_refs(r.get("Refs").as_text()).value_or(std::vector<int64_t>{}))
      if (ref_ids.count(id)) activities.insert(r.get("Activity ID").as_text());
  });
  std::set<int64_t> ops;
  auto rows = db.query("SELECT " + q("Operation ID") + ", " + q("Activity ID") + " FROM " +
                       q("Operation_Activity_Delta"));
  while (rows.next())
    if (activities.count(rows.get(1).as_text())) ops.insert(rows.get(0).as_int());
  return ops;
}

}  // namespace arven
