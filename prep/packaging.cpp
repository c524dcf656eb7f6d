#include "prep/packaging.h"
#include "prep/packaging_detail.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <fstream>
#include <functional>
#include <optional>
#include <set>

#include "base/replace_file.h"
#include "base/text.h"
#include "core/session.h"
#include "core/ui.h"
#include "prep/store_zip.h"
#include "settings/store_install.h"
#include "settings/update_check.h"
#include "settings/zip_files.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace packaging_detail {

std::string level_name(const char* prefix, int k, const char* suffix) {
  return prefix + std::to_string(k) + suffix;
}

void show(Ui* ui, int value, int max, const std::string& label) {
  if (ui) ui->progress(value, max, label);
}

// The target store with a source store attached as "src" while it lives.
// The source is opened first, so a missing file fails instead of being
// created empty by the attach.
class Linked {
 public:
  Linked(const fs::path& source, const fs::path& target)
      : source_(Db::open(source)), target_(Db::open(target)) {
    target_.exec("ATTACH DATABASE ? AS src", {Value(source.string())});
  }
  Linked(const Linked&) = delete;
  Linked& operator=(const Linked&) = delete;
  ~Linked() {
    try {
      target_.exec_script("DETACH DATABASE src");
    } catch (const StoreError&) {
    }
  }
  const Db& source() const { return source_; }
  Db& target() { return target_; }

 private:
  Db source_;
  Db target_;
};

// Throws StoreError naming the store and the table when the table or one of
// the columns is missing.
void require_columns(const Db& db, const std::string& table,
                     const std::vector<std::string>& columns) {
  db.require_table(table);
  std::set<std::string> have;
  for (const auto& c : db.column_names(table)) have.insert(lower_case(c));
  for (const auto& c : columns)
    if (!have.count(lower_case(c)))
      db.fail("its table \"" + table + "\" has no column \"" + c + "\"");
}

// One replace of target rows by source rows.
struct RowCopy {
  std::string table;
  std::vector<std::string> columns;        // empty: the target's columns
  std::vector<std::string> empty_as_null;  // copied only when not empty
  std::string source_where;                // condition on src rows, "" for all
  std::string target_where;                // target rows that go, "" for all
  std::vector<Value> params;               // for either condition
};

// Checks both stores and fills in the target's column list.
void prepare(Linked& link, RowCopy& copy) {
  link.target().require_table(copy.table);
  if (copy.columns.empty()) copy.columns = link.target().column_names(copy.table);
  require_columns(link.target(), copy.table, copy.columns);
  require_columns(link.source(), copy.table, copy.columns);
}

void run(Db& target, const RowCopy& copy) {
  std::string t = quote_name(copy.table);
  std::string del = "DELETE FROM main." + t;
  if (!copy.target_where.empty()) del += " WHERE " + copy.target_where;
  target.exec(del, copy.target_where.empty() ? std::vector<Value>{} : copy.params);
  std::string cols, exprs;
  for (size_t i = 0; i < copy.columns.size(); ++i) {
    const auto& c = copy.columns[i];
    std::string q = quote_name(c);
    bool nullable =
        std::any_of(copy.empty_as_null.begin(), copy.empty_as_null.end(),
                    [&](const std::string& n) { return lower_case(n) == lower_case(c); });
    cols += (i ? ", " : "") + q;
    exprs += (i ? ", " : "") + (nullable ? "NULLIF(" + q + ", '')" : q);
  }
  std::string ins = "INSERT INTO main." + t + " (" + cols + ") SELECT " + exprs + " FROM src." + t;
  if (!copy.source_where.empty()) ins += " WHERE " + copy.source_where;
  target.exec(ins + " ORDER BY rowid",
              copy.source_where.empty() ? std::vector<Value>{} : copy.params);
}

// Checks every copy, then runs them all in one transaction.
void replace_all(const fs::path& source, const fs::path& target, std::vector<RowCopy> copies,
                 const std::function<void(Db&)>& also = {}) {
  Linked link(source, target);
  for (auto& c : copies) prepare(link, c);
  Transaction tx(link.target());
  for (const auto& c : copies) run(link.target(), c);
  if (also) also(link.target());
  tx.commit();
}

// ---- the Operations merge ----

const std::vector<std::string>& merged_operation_columns() {
  static const std::vector<std::string> c = {"Operation Type ID",
                                             "Operation Name",
                                             "Operation Description",
                                             "CORINE Class",
                                             "Scaling up technique",
                                             "ST Value",
                                             "Uptake",
                                             "Cost",
                                             "Cost Single",
                                             "TEA_Inc",
                                             "TEA_Factor",
                                             "TEA_Cost",
                                             "Notes"};
  return c;
}

void merge_operations(Db& t) {
  const auto& cols = merged_operation_columns();
  // 1. Operations the master no longer has go.
  t.exec(
      "DELETE FROM main.\"Operations\" WHERE \"Operation ID\" NOT IN (SELECT \"Operation ID\" "
      "FROM src.\"Operations\" WHERE \"Operation ID\" IS NOT NULL)");
  // 2./3. Each master row edits its row in the target or is added; Last_Updated
  // and Operation_DQ are left alone, intended: they record what was generated.
  std::string select = "SELECT \"Operation ID\"";
  std::string set;
  for (size_t i = 0; i < cols.size(); ++i) {
    select += ", " + quote_name(cols[i]);
    set += (i ? ", " : "") + quote_name(cols[i]) + " = ?";
  }
  std::vector<std::vector<Value>> master;
  {
    auto rows = t.query(select + " FROM src.\"Operations\" ORDER BY rowid");
    while (rows.next()) {
      std::vector<Value> row;
      for (int i = 0; i <= static_cast<int>(cols.size()); ++i) row.push_back(rows.get(i));
      master.push_back(std::move(row));
    }
  }
  std::vector<std::string> insert_cols = {"Operation ID"};
  insert_cols.insert(insert_cols.end(), cols.begin(), cols.end());
  for (const auto& row : master) {
    std::vector<Value> params(row.begin() + 1, row.end());
    params.push_back(row[0]);
    int changed = t.exec("UPDATE main.\"Operations\" SET " + set +
                             " WHERE rowid = (SELECT rowid FROM main.\"Operations\" WHERE "
                             "\"Operation ID\" = ? ORDER BY rowid LIMIT 1)",
                         params);
    if (changed == 0) t.insert("Operations", insert_cols, row);
  }
}

// ---- dates ----

// "YYYY-MM-DD HH:MM:SS" from a stored date ("YYYY-MM-DD" gets midnight);
// nullopt when the text is not of that shape.
std::optional<std::string> normal_date(const std::string& text) {
  static constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";
  std::string s = text.size() == 10 ? text + " 00:00:00" : text;
  if (s.size() != kShape.size()) return std::nullopt;
  for (size_t i = 0; i < s.size(); ++i) {
    bool digit = std::isdigit(static_cast<unsigned char>(s[i])) != 0;
    if (kShape[i] == 'd' ? !digit : s[i] != kShape[i]) return std::nullopt;
  }
  return s;
}

std::string now_text() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return stamp;
}

// Edits the first Version row of the store, or adds one.
void write_version_row(const fs::path& store, const std::string& date) {
  Db t = Db::open(store);
  require_columns(t, "Version", {"Version", "DB Version"});
  Transaction tx(t);
  int changed = t.exec(
      "UPDATE \"Version\" SET \"Version\" = ?, \"DB Version\" = ? WHERE rowid = "
      "(SELECT rowid FROM \"Version\" ORDER BY rowid LIMIT 1)",
      {Value(date), Value(kDbVersion)});
  if (changed == 0) t.insert("Version", {"Version", "DB Version"}, {Value(date), kDbVersion});
  tx.commit();
}

fs::path with_suffix(const fs::path& p, const char* suffix) {
  fs::path out = p;
  out += suffix;
  return out;
}

// Replaces the file (base/replace_file.h), its folder made when missing.
void replace_text_file(const fs::path& path, const std::string& text) {
  std::error_code ec;
  fs::create_directories(path.parent_path(), ec);
  replace_file(path, text);
}

// Replaces a table of the target by the source's: its definition with its
// indexes, then every row. False, with the reason, when that fails.
bool copy_table_across(const fs::path& source, const fs::path& target, const std::string& table,
                       std::string* why) {
  try {
    Linked link(source, target);
    link.source().require_table(table);
    std::string create;
    std::vector<std::string> indexes;
    {
      auto def = link.source().query(
          "SELECT sql FROM sqlite_master WHERE type = 'table' AND name = ? COLLATE NOCASE",
          {Value(table)});
      if (def.next()) create = def.get(0).as_text();
      auto idx = link.source().query(
          "SELECT sql FROM sqlite_master WHERE type = 'index' AND tbl_name = ? COLLATE NOCASE "
          "AND sql IS NOT NULL",
          {Value(table)});
      while (idx.next()) indexes.push_back(idx.get(0).as_text());
    }
    Db& t = link.target();
    Transaction tx(t);
    t.exec("DROP TABLE IF EXISTS main." + quote_name(table));
    t.exec_script(create);
    for (const auto& i : indexes) t.exec_script(i);
    t.exec("INSERT INTO main." + quote_name(table) + " SELECT * FROM src." + quote_name(table));
    tx.commit();
    return true;
  } catch (const std::exception& e) {
    if (why) *why = e.what();
    return false;
  }
}

void message(Ui& ui, const std::string& text) {
  ui.message_box(text, "ARVEN", MsgButtons::Ok, MsgIcon::None);
}

// Copies tables of a master into the all-country store, reporting each
// failure by the table's name.
void copy_tables_to_all(Ui& ui, const fs::path& master, const std::vector<std::string>& tables) {
  int i = 0;
  for (const auto& t : tables) {
    show(&ui, i++, static_cast<int>(tables.size()), "Copying " + t + "...");
    if (!copy_table_across(master, all_country_store_path(), t)) message(ui, t + " Copy Failed");
  }
  show(&ui, 0, 0, "");
}

std::vector<std::string> rvc_lookup_tables() {
  return {"Baseline_Impact_Look_Up", "RVC_List"};
}

std::vector<std::string> rvc_area_tables() {
  std::vector<std::string> t = {"Baseline_Impact_Look_Up"};
  for (int k = 0; k <= 3; ++k) {
    t.push_back(level_name("NUTS", k));
    t.push_back(level_name("NUTS", k, "_RVC_Data"));
    t.push_back(level_name("NUTS", k, "_RVC_Data_Dist"));
  }
  return t;
}

// NUTS0 rows of the RVC master whose EU-27 is not "N": codes in table order.
std::vector<std::string> member_codes_in_table_order() {
  Db db = Db::open(session().rvc_db_path);
  require_columns(db, "NUTS0", {"NUTS", "EU-27"});
  std::vector<std::string> out;
  auto rows = db.query("SELECT \"NUTS\", \"EU-27\" FROM \"NUTS0\" ORDER BY rowid");
  while (rows.next())
    if (rows.get(1).as_text() != "N") out.push_back(rows.get(0).as_text());
  return out;
}

}  // namespace packaging_detail

using namespace packaging_detail;

// ---- files ----

void copy_store_file(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  if (!fs::is_regular_file(from, ec)) throw StoreError(from, "the file does not exist");
  fs::create_directories(to.parent_path(), ec);
  ReplacingFile copy(to);
  fs::copy_file(from, copy.for_library(), fs::copy_options::overwrite_existing, ec);
  if (ec) throw write_error(to, ec.value());
  copy.commit();
}

bool store_is_whole(const fs::path& store) {
  std::error_code ec;
  if (!fs::is_regular_file(store, ec) || fs::file_size(store, ec) == 0) return false;
  try {
    Db db = Db::open(store);
    db.require_intact();
    return db.has_table("Version");
  } catch (const StoreError&) {
    return false;
  }
}

int remove_stale_temporaries() {
  int removed = 0;
  for (const fs::path& dir : {prepro_folder(), prepro_folder() / "zipped"}) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
      std::string name = entry.path().filename().string();
      bool temporary = (name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0) ||
                       name.find(".tmp.") != std::string::npos;
      std::error_code rm;
      if (temporary && entry.is_regular_file(rm) && fs::remove(entry.path(), rm)) ++removed;
    }
  }
  return removed;
}

fs::path prepro_folder() {
  return session().app_folder / "dbases" / "prepro";
}
fs::path prepro_ops_master_path() {
  return prepro_folder() / "arven_operations.mdb";
}
fs::path prepro_rvcs_master_path() {
  return prepro_folder() / "arven_rvcs.mdb";
}
fs::path prepro_base_path() {
  return prepro_folder() / "new_arven_operations_base.mdb";
}
fs::path all_country_store_path() {
  return prepro_folder() / "new_arven_operations.mdb";
}
fs::path country_target_path(const std::string& cc) {
  return prepro_folder() / ("new_arven_operations_" + cc + ".mdb");
}
fs::path country_archive_path(const std::string& cc) {
  return prepro_folder() / "zipped" / ("arven_db_" + cc + ".zip");
}
fs::path country_version_file_path(const std::string& cc) {
  return prepro_folder() / "zipped" / ("arven_db_version_" + cc + ".csv");
}

// ---- filling a country store ----

void copy_rvc_data(const fs::path& target, int64_t nuts0_id, Ui* ui) {
  show(ui, 0, 1, "Copying RVC NUTS data...");
  std::vector<RowCopy> copies;
  for (int k = 0; k <= 3; ++k) {
    std::string nuts = level_name("NUTS", k);
    std::string id = quote_name(level_name("NUTS", k, "_ID"));
    copies.push_back({nuts, {}, {}, "\"NUTS0_ID\" = ?", "", {Value(nuts0_id)}});
    // The level's own columns, parent ids included: NUTS0_ID is always among them.
    for (const auto& c : nuts_table(k).columns) copies.back().columns.push_back(c.name);
    // The RVC data of each of the country's areas replace that area's rows.
    std::string areas =
        id + " IN (SELECT " + id + " FROM src." + quote_name(nuts) + " WHERE \"NUTS0_ID\" = ?)";
    copies.push_back({nuts + "_RVC_Data",
                      {level_name("NUTS", k, "_ID"), "RVC ID", "Average", "Min", "Max"},
                      {},
                      areas,
                      areas,
                      {Value(nuts0_id)}});
    copies.push_back({nuts + "_RVC_Data_Dist",
                      {level_name("NUTS", k, "_ID"), "RVC ID", "RVC Class", "Percent"},
                      {},
                      areas,
                      areas,
                      {Value(nuts0_id)}});
  }
  replace_all(session().rvc_db_path, target, std::move(copies));
  show(ui, 1, 1, "Copying RVC NUTS data...");
}

void copy_rvc_base_data(const fs::path& target, Ui* ui) {
  show(ui, 0, 1, "Copying RVC Base data...");
  replace_all(session().rvc_db_path, target,
              {RowCopy{"RVC_List", {}, {}, "", "", {}},
               RowCopy{"Baseline_Impact_Look_Up", {}, {}, "", "", {}}});
  show(ui, 1, 1, "Copying RVC Base data...");
}

void copy_rdp_base_data(const fs::path& target, Ui* ui) {
  show(ui, 0, 1, "Copying RDP Base data...");
  const std::vector<std::string> dq = {"Refs", "Data_Quality"};
  auto all = [](const char* t) { return RowCopy{t, {}, {}, "", "", {}}; };
  std::vector<RowCopy> copies = {
      {"Activities",
       {"Activity ID", "Activity Name", "Activity Unit", "Activity Description", "Notes",
        "Impact type", "Norm_factor"},
       {},
       "",
       "",
       {}},
      {"Adaptation_Activity_Impact_Factors",
       {"Activity ID", "Impact Category ID", "RVC ID", "Impact factor", "Refs", "Data_Quality"},
       dq,
       "",
       "",
       {}},
      all("Baseline_Activity_Details"),
      all("Baselines"),
      all("Measures"),
      {"Mitigation_Activity_Emission_Factors",
       {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Equilibrium", "Refs",
        "Data_Quality"},
       dq,
       "",
       "",
       {}},
      all("New_Measures"),
      all("Operation_Activity_Delta"),
      all("Operation_Activity_Details"),
      all("Operations_Impacts"),
      all("Operations_Types"),
      all("Operations_Measures"),
      all("Operations_New_Measures"),
      all("Operations_Practicality"),
      all("Practicality_Items"),
      {"Yield_Activity_Impact_Factors",
       {"Activity ID", "RVC ID", "RVC Value", "Yield", "Refs", "Data_Quality"},
       dq,
       "",
       "",
       {}},
      {"References", {"Ref ID", "Ref Short", "Ref Long", "URL"}, {}, "", "", {}},
      // The user build reads impact names from the country store, so these
      // two travel as well.
      all("Impact areas"),
      all("Delta_List"),
  };
  std::vector<std::string> op_cols = merged_operation_columns();
  op_cols.insert(op_cols.begin(), "Operation ID");
  {
    Linked check(session().ops_db_path, target);
    require_columns(check.source(), "Operations", op_cols);
    require_columns(check.target(), "Operations", op_cols);
  }
  replace_all(session().ops_db_path, target, std::move(copies), merge_operations);
  show(ui, 1, 1, "Copying RDP Base data...");
}

void DQ_and_Refs(const fs::path& target, Ui* ui) {
  Db t = Db::open(target);
  const char* factors[] = {"Adaptation_Activity_Impact_Factors",
                           "Mitigation_Activity_Emission_Factors", "Yield_Activity_Impact_Factors"};
  for (const char* f : factors) require_columns(t, f, {"Activity ID", "Refs", "Data_Quality"});
  for (int k = 0; k <= 3; ++k)
    require_columns(t, level_name("NUTS", k, "_OPS"), {"Activity ID", "Refs", "Data_Quality"});
  Transaction tx(t);
  for (int k = 0; k <= 3; ++k) {
    std::string ops = level_name("NUTS", k, "_OPS");
    show(ui, k, 4, level_name("Copying NUTS", k, " Data Quality and References..."));
    // Later tables overwrite earlier ones, intended: the last table that
    // knows the activity wins, and the value is not scaled by Operation_DQ.
    for (const char* f : factors) {
      std::string match = " FROM " + quote_name(f) +
                          " AS f WHERE f.\"Activity ID\" = " + quote_name(ops) + ".\"Activity ID\"";
      t.exec("UPDATE " + quote_name(ops) +
             " SET (\"Refs\", \"Data_Quality\") = (SELECT f.\"Refs\", f.\"Data_Quality\"" + match +
             " ORDER BY f.rowid LIMIT 1) WHERE EXISTS (SELECT 1" + match + ")");
    }
  }
  tx.commit();
  show(ui, 4, 4, "");
}

void fill_country_store(const fs::path& target, int64_t nuts0_id, bool dq_and_refs, Ui* ui) {
  copy_rvc_data(target, nuts0_id, ui);
  copy_rvc_base_data(target, ui);
  copy_rdp_base_data(target, ui);
  if (dq_and_refs) DQ_and_Refs(target, ui);
}

// ---- version and publishing ----

std::string latest_last_updated(const std::vector<int64_t>& operation_ids) {
  Db db = Db::open(session().ops_db_path);
  require_columns(db, "Operations", {"Operation ID", "Last_Updated"});
  std::string latest = kEmptyDate;
  for (int64_t id : operation_ids) {
    auto rows =
        db.query("SELECT \"Last_Updated\" FROM \"Operations\" WHERE \"Operation ID\" = ? LIMIT 1",
                 {Value(id)});
    if (!rows.next())
      db.fail("table \"Operations\" has no row where \"Operation ID\" = " + std::to_string(id));
    Value v = rows.get(0);
    if (v.is_empty()) continue;
    auto date = normal_date(v.as_text());
    if (!date)
      db.fail("the Last_Updated of operation " + std::to_string(id) + " is not a date: \"" +
              v.as_text() + "\"");
    latest = std::max(latest, *date);
  }
  return latest;
}

std::string version_file_text(const std::string& date) {
  auto d = normal_date(date);
  if (!d) throw std::invalid_argument("not a date: \"" + date + "\"");
  return d->substr(8, 2) + "/" + d->substr(5, 2) + "/" + d->substr(0, 4);
}

std::string set_version(const fs::path& target, const std::string& country_code,
                        const std::vector<int64_t>& operation_ids) {
  std::string date = latest_last_updated(operation_ids);
  write_version_row(target, date);
  replace_text_file(country_version_file_path(country_code), version_file_text(date) + "\n");
  return date;
}

fs::path software_version_file_path() {
  return prepro_folder() / "zipped" / "arven_version118.csv";
}

void publish_software_version(const std::string& version) {
  // Published as exactly three parts, though the check reads only the first three.
  if (version.empty() || version.size() > 10 ||
      std::count(version.begin(), version.end(), '.') != 2 || !split_version(version))
    throw std::invalid_argument(
        "a software version is three whole numbers joined by dots, at most "
        "10 characters (e.g. 1.1.9), not \"" +
        version + "\"");
  replace_text_file(software_version_file_path(), version);
}

int publish_country_store(Ui& ui, const fs::path& target, const std::string& country_code,
                          const std::vector<int64_t>& operation_ids) {
  std::string date = latest_last_updated(operation_ids);
  write_version_row(target, date);
  fs::path csv = country_version_file_path(country_code);
  std::error_code ec;
  fs::create_directories(csv.parent_path(), ec);
  ReplacingFile version_file(csv);
  version_file.write(version_file_text(date) + "\n");
  int result = zip_store_on_all_cores(ui, target, country_archive_path(country_code));
  if (result != kZipOk) return result;
  // The archive first: a version file never announces an archive not yet there.
  write_sha256_file(country_archive_path(country_code));
  version_file.commit();
  return kZipOk;
}

}  // namespace arven
