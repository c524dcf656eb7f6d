#include "prep/rvc_import.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "base/numbers.h"
#include "base/text.h"
#include "core/session.h"
#include "core/ui.h"
#include "prep/xlsx_reader.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr int kMaxClass = 1000;  // class_area and class_percent hold classes 0..1000
constexpr int kExportValues = 255;

std::string nuts(int k, const char* suffix = "") {
  return "NUTS" + std::to_string(k) + suffix;
}

void check_level(int level) {
  if (level < 0 || level > 3)
    throw std::invalid_argument("a NUTS level is 0 to 3, not " + std::to_string(level));
}

// Reports progress at most a few times a second, and always the last step.
class Progress {
 public:
  Progress(Ui* ui, std::string label) : ui_(ui), label_(std::move(label)) {}
  void show(int value, int max) {
    if (!ui_) return;
    auto now = std::chrono::steady_clock::now();
    if (value < max && now - last_ < std::chrono::milliseconds(150)) return;
    last_ = now;
    ui_->progress(value, max, label_);
  }
  ~Progress() {
    if (ui_) ui_->progress(0, 0, "");
  }

 private:
  Ui* ui_;
  std::string label_;
  std::chrono::steady_clock::time_point last_{};
};

struct Nuts3Area {
  int64_t ids[4] = {0, 0, 0, 0};
  std::string code;
  double gis_area = 0;
};

std::vector<Nuts3Area> nuts3_areas(const Db& rvc) {
  rvc.require_table("NUTS3");
  std::vector<Nuts3Area> out;
  auto rows = rvc.query("SELECT * FROM \"NUTS3\" ORDER BY rowid");
  rows.each([&](const Rows& r) {
    Nuts3Area a;
    for (int k = 0; k <= 3; ++k) a.ids[k] = r.get(nuts(k, "_ID")).as_int();
    a.code = r.get("NUTS").as_text();
    a.gis_area = r.get("GIS_AREA").as_double();
    out.push_back(std::move(a));
  });
  return out;
}

std::string area_name(const std::string& table, const std::string& code, int64_t id) {
  return table + " area " + code + " (" + table + "_ID " + std::to_string(id) + ")";
}

void ensure_nuts3_rvc_table(Db& rvc, const std::string& table) {
  if (rvc.has_table(table)) return;
  create_table(rvc, TableDef{table,
                             {{"NUTS3_ID", ColType::Long},
                              {"NUTS", ColType::Text, 255},
                              {"RVC Class", ColType::Long},
                              {"Percent", ColType::Double}}});
}

// The export of one area: the values of classes 1..255 (0 where absent).
using ClassValues = std::array<double, kExportValues + 1>;

// Writes the rows of an import: each NUTS3 area with an export row gets one
// row per class whose value is not 0.
RvcImportResult write_import(int64_t rvc_id,
                             const std::unordered_map<std::string, ClassValues>& export_rows,
                             Ui* ui) {
  Db rvc = Db::open(session().rvc_db_path);
  std::string table = rvc_nuts3_table(rvc_id);
  auto areas = nuts3_areas(rvc);
  RvcImportResult result;
  Progress progress(ui, "Importing " + table + "...");
  Transaction tx(rvc);
  ensure_nuts3_rvc_table(rvc, table);
  rvc.exec("DELETE FROM " + quote_name(table));
  Statement insert = rvc.prepare_statement("INSERT INTO " + quote_name(table) +
                                           " (\"NUTS3_ID\", \"NUTS\", \"RVC Class\", \"Percent\") "
                                           "VALUES (?, ?, ?, ?)");
  int index = 0;
  for (const auto& a : areas) {
    progress.show(++index, static_cast<int>(areas.size()));
    auto it = export_rows.find(a.code);
    if (it == export_rows.end()) continue;  // no export row: the area gets no rows
    bool any = false;
    for (int i = 1; i <= kExportValues; ++i) {
      double v = it->second[static_cast<size_t>(i)];
      if (v == 0) continue;
      if (a.gis_area == 0)
        throw std::runtime_error(session().rvc_db_path + ": " +
                                 area_name("NUTS3", a.code, a.ids[3]) +
                                 " has GIS_AREA 0, so its class shares cannot be worked out");
      insert.run({Value(a.ids[3]), Value(a.code), Value(i), Value(v / a.gis_area)});
      ++result.rows;
      any = true;
    }
    if (any) ++result.areas;
  }
  tx.commit();
  return result;
}

// "VALUE_12" -> 12; 0 for any other name.
int value_column_class(std::string name) {
  name = lower_case(name);
  if (name.rfind("value_", 0) != 0) return 0;
  int n = 0;
  auto [p, ec] = std::from_chars(name.data() + 6, name.data() + name.size(), n);
  if (ec != std::errc() || p != name.data() + name.size() || n < 1 || n > kExportValues) return 0;
  return n;
}

}  // namespace

fs::path rvc_import_store_path() {
  return session().app_folder / "dbases" / "rvcs" / "NUTS3_Import.mdb";
}

fs::path rvc_import_workbook_path() {
  return session().app_folder / "dbases" / "rvcs" / "spreadsheet outputs" / "Export_Output.xlsx";
}

std::string export_table_name(std::optional<int64_t> rvc_id) {
  return rvc_id ? "Export_Output_" + std::to_string(*rvc_id) : "Export_Output";
}

std::string rvc_nuts3_table(int64_t rvc_id) {
  Db rvc = Db::open(session().rvc_db_path);
  auto rows = rvc.query("SELECT \"RVC Short Name\" FROM \"RVC_List\" WHERE \"RVC ID\" = ? LIMIT 1",
                        {Value(rvc_id)});
  if (!rows.next()) rvc.fail("table \"RVC_List\" has no RVC " + std::to_string(rvc_id));
  std::string short_name = rows.get(0).as_text();
  if (short_name.empty()) rvc.fail("RVC " + std::to_string(rvc_id) + " has no RVC Short Name");
  return "NUTS3_" + short_name;
}

std::vector<ListItem> rvc_choice_list() {
  Db rvc = Db::open(session().rvc_db_path);
  std::vector<ListItem> out;
  auto rows = rvc.query("SELECT \"RVC Short Name\", \"RVC ID\" FROM \"RVC_List\" ORDER BY rowid");
  rows.each([&](const Rows& r) { out.push_back({r.get(0).as_text(), r.get(1).as_int()}); });
  return out;
}

std::vector<int64_t> rvcs_with_classes() {
  Db rvc = Db::open(session().rvc_db_path);
  std::vector<int64_t> out;
  auto rows = rvc.query("SELECT \"RVC ID\", \"RVC Type\" FROM \"RVC_List\" ORDER BY rowid");
  rows.each([&](const Rows& r) {
    if (r.get(1).as_int() != 3) out.push_back(r.get(0).as_int());
  });
  return out;
}

RvcImportResult nuts3_import(int64_t rvc_id, const fs::path& import_store, const std::string& table,
                             Ui* ui) {
  Db src = Db::open(import_store);
  src.require_table(table);
  std::unordered_map<std::string, ClassValues> export_rows;
  auto rows = src.query("SELECT * FROM " + quote_name(table) + " ORDER BY rowid");
  std::vector<std::pair<int, int>> value_columns;  // column index, class
  if (!rows.has_column("NUTS")) src.fail("its table \"" + table + "\" has no column \"NUTS\"");
  int nuts_column = 0;
  for (int c = 0; c < rows.column_count(); ++c) {
    if (lower_case(rows.column_name(c)) == "nuts") nuts_column = c;
    if (int cls = value_column_class(rows.column_name(c))) value_columns.emplace_back(c, cls);
  }
  rows.each([&](const Rows& r) {
    ClassValues values{};
    for (auto [c, cls] : value_columns) values[static_cast<size_t>(cls)] = r.get(c).as_double();
    export_rows.emplace(r.get(nuts_column).as_text(), values);  // the first row of a code counts
  });
  return write_import(rvc_id, export_rows, ui);
}

RvcImportResult nuts3_import_excel(int64_t rvc_id, const fs::path& workbook,
                                   const std::string& sheet_name, Ui* ui) {
  auto sheets = read_xlsx_file(workbook);
  if (sheets.empty()) throw XlsxError(workbook.string() + ": the workbook has no sheet");
  const XlsxSheet* sheet = &sheets.front();
  for (const auto& s : sheets)
    if (s.name == sheet_name) sheet = &s;
  auto where = [&](size_t row, size_t column) {
    return workbook.string() + ", sheet \"" + sheet->name + "\", cell " +
           xlsx_column_letters(column) + std::to_string(row + 1);
  };
  if (sheet->rows.empty()) throw std::runtime_error(where(0, 0) + ": the sheet is empty");
  const auto& header = sheet->rows.front();
  std::optional<size_t> nuts_column;
  std::vector<std::pair<size_t, int>> value_columns;
  for (size_t c = 0; c < header.size(); ++c) {
    std::string title = trim_blanks(header[c].text);
    if (lower_case(title) == "nuts") nuts_column = c;
    if (int cls = value_column_class(title)) value_columns.emplace_back(c, cls);
  }
  if (!nuts_column) throw std::runtime_error(where(0, 0) + ": row 1 has no column \"NUTS\"");

  // Countries whose EU-27 is "N" are left out, and the NUTS3 codes known.
  std::set<std::string> excluded, known;
  {
    Db rvc = Db::open(session().rvc_db_path);
    auto rows = rvc.query("SELECT \"NUTS\", \"EU-27\" FROM \"NUTS0\"");
    rows.each([&](const Rows& r) {
      if (r.get(1).as_text() == "N") excluded.insert(r.get(0).as_text());
    });
    for (const auto& a : nuts3_areas(rvc)) known.insert(a.code);
  }

  std::unordered_map<std::string, ClassValues> export_rows;
  int skipped = 0;
  for (size_t r = 1; r < sheet->rows.size(); ++r) {
    std::string code = trim_blanks(sheet->at(r, *nuts_column).text);
    if (code.empty()) continue;
    // Codes of NUTS1 to NUTS3 length are taken; the area must be a NUTS3 one.
    if (code.size() < 3 || code.size() > 5 || excluded.count(code.substr(0, 2)) ||
        !known.count(code)) {
      ++skipped;
      continue;
    }
    ClassValues values{};
    for (auto [c, cls] : value_columns) {
      const XlsxCell& cell = sheet->at(r, c);
      if (cell.kind == XlsxCell::Kind::empty) continue;
      double v = 0;
      std::string t = trim_blanks(cell.text);
      auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
      if (cell.kind == XlsxCell::Kind::boolean || cell.kind == XlsxCell::Kind::error || t.empty() ||
          ec != std::errc() || p != t.data() + t.size() || !std::isfinite(v))
        throw std::runtime_error(where(r, c) + " (\"" + trim_blanks(header[c].text) + "\"): \"" +
                                 cell.text + "\" is not a number");
      values[static_cast<size_t>(cls)] = v;
    }
    export_rows.emplace(code, values);
  }
  RvcImportResult result = write_import(rvc_id, export_rows, ui);
  result.skipped = skipped;
  return result;
}

std::vector<std::string> rvc_import_run(std::optional<int64_t> rvc_id, bool excel, Ui* ui) {
  fs::path source = excel ? rvc_import_workbook_path() : rvc_import_store_path();
  std::vector<int64_t> ids = rvc_id ? std::vector<int64_t>{*rvc_id} : rvcs_with_classes();
  std::set<std::string> present;
  if (!rvc_id) {
    if (excel)
      for (const auto& sheet : read_xlsx_file(source)) present.insert(sheet.name);
    else
      for (const auto& t : Db::open(source).table_names()) present.insert(t);
  }
  std::vector<std::string> lines;
  for (int64_t id : ids) {
    std::string name = export_table_name(rvc_id ? std::nullopt : std::optional<int64_t>(id));
    std::string table = rvc_nuts3_table(id);
    if (!rvc_id && !present.count(name)) {
      lines.push_back(table + ": " + name + " not provided, table kept");
      continue;
    }
    auto r = excel ? nuts3_import_excel(id, source, name, ui) : nuts3_import(id, source, name, ui);
    std::string line =
        table + ": " + std::to_string(r.rows) + " rows for " + std::to_string(r.areas) + " areas";
    if (r.skipped) line += ", " + std::to_string(r.skipped) + " rows of the export skipped";
    lines.push_back(line);
  }
  return lines;
}

std::vector<ListItem> nutslist(int level) {
  check_level(level);
  Db rvc = Db::open(session().rvc_db_path);
  rvc.require_table(nuts(level));
  std::vector<ListItem> out;
  auto rows = rvc.query("SELECT * FROM " + quote_name(nuts(level)) + " ORDER BY rowid");
  rows.each([&](const Rows& r) {
    if (r.get("EU-27").as_text() == "N") return;
    out.push_back({r.get("NUTS").as_text() + " - " + r.get("NAME").as_text(),
                   r.get(nuts(level, "_ID")).as_int()});
  });
  return out;
}

int get_rvc_band(int64_t rvc_id, double value) {
  Db rvc = Db::open(session().rvc_db_path);
  auto rows =
      rvc.query("SELECT \"Euro min\", \"Euro max\" FROM \"RVC_List\" WHERE \"RVC ID\" = ? LIMIT 1",
                {Value(rvc_id)});
  if (!rows.next()) rvc.fail("table \"RVC_List\" has no RVC " + std::to_string(rvc_id));
  double range = rows.get(1).as_double() - rows.get(0).as_double();
  // The thresholds start from 0, not from Euro min: intended.
  double t1 = range / 3;
  double t2 = t1 + range / 3;
  if (value <= t1) return 1;
  if (value <= t2) return 2;
  return 3;
}

AggregateResult rvc_aggregate(const std::vector<int>& levels, std::optional<int64_t> rvc_id,
                              Ui* ui) {
  for (int k : levels) check_level(k);
  Db rvc = Db::open(session().rvc_db_path);
  const std::string& file = session().rvc_db_path;

  // The RVCs aggregated: the one chosen or all, in list order, never type 3.
  struct Rvc {
    int64_t id;
    std::string table;
  };
  std::vector<Rvc> rvcs;
  {
    rvc.require_table("RVC_List");
    auto rows = rvc.query(
        "SELECT \"RVC ID\", \"RVC Type\", \"RVC Short Name\" FROM \"RVC_List\" ORDER BY rowid");
    rows.each([&](const Rows& r) {
      int64_t id = r.get(0).as_int();
      if (rvc_id && id != *rvc_id) return;
      if (r.get(1).as_int() == 3) return;
      rvcs.push_back({id, "NUTS3_" + r.get(2).as_text()});
    });
  }

  // Each RVC's class shares of each NUTS3 area, read once.
  auto areas3 = nuts3_areas(rvc);
  using Shares = std::unordered_map<int64_t, std::vector<std::pair<int, double>>>;
  std::vector<Shares> shares(rvcs.size());
  for (size_t i = 0; i < rvcs.size(); ++i) {
    rvc.require_table(rvcs[i].table);
    auto rows = rvc.query("SELECT \"NUTS3_ID\", \"RVC Class\", \"Percent\" FROM " +
                          quote_name(rvcs[i].table) + " ORDER BY rowid");
    rows.each([&](const Rows& r) {
      double cls = r.get(1).as_double();
      if (!(cls >= 0 && cls <= kMaxClass) || cls != std::floor(cls))
        rvc.fail("table \"" + rvcs[i].table + "\", row " + std::to_string(r.row()) +
                 ", column \"RVC Class\": class " + r.get(1).as_text() + " is outside 0 to 1000");
      shares[i][r.get(0).as_int()].emplace_back(static_cast<int>(cls), r.get(2).as_double());
    });
  }

  AggregateResult result;
  Transaction tx(rvc);
  for (int k : levels) {
    std::string data = nuts(k, "_RVC_Data"), dist = nuts(k, "_RVC_Data_Dist"),
                id_col = nuts(k, "_ID");
    rvc.require_table(nuts(k));
    rvc.require_table(data);
    rvc.require_table(dist);
    if (rvc_id) {
      rvc.exec("DELETE FROM " + quote_name(data) + " WHERE \"RVC ID\" = ?", {Value(*rvc_id)});
      rvc.exec("DELETE FROM " + quote_name(dist) + " WHERE \"RVC ID\" = ?", {Value(*rvc_id)});
    } else {
      rvc.exec("DELETE FROM " + quote_name(data));
      rvc.exec("DELETE FROM " + quote_name(dist));
    }
    Statement put_data = rvc.prepare_statement(
        "INSERT INTO " + quote_name(data) + " (" + quote_name(id_col) +
        ", \"RVC ID\", \"Average\", \"Min\", \"Max\") VALUES (?, ?, ?, ?, ?)");
    Statement put_dist =
        rvc.prepare_statement("INSERT INTO " + quote_name(dist) + " (" + quote_name(id_col) +
                              ", \"RVC ID\", \"RVC Class\", \"Percent\") VALUES (?, ?, ?, ?)");
    // The NUTS3 children of each area of the level.
    std::unordered_map<int64_t, std::vector<const Nuts3Area*>> children;
    for (const auto& a : areas3) children[a.ids[k]].push_back(&a);
    struct Area {
      int64_t id;
      std::string code;
      double gis_area;
    };
    std::vector<Area> areas;
    {
      auto rows = rvc.query("SELECT * FROM " + quote_name(nuts(k)) + " ORDER BY rowid");
      rows.each([&](const Rows& r) {
        areas.push_back(
            {r.get(id_col).as_int(), r.get("NUTS").as_text(), r.get("GIS_AREA").as_double()});
      });
    }
    Progress progress(ui, "Calculating NUTS" + std::to_string(k) + " data...");
    std::vector<double> class_area(kMaxClass + 1), class_percent(kMaxClass + 1);
    for (size_t ai = 0; ai < areas.size(); ++ai) {
      const Area& area = areas[ai];
      progress.show(static_cast<int>(ai + 1), static_cast<int>(areas.size()));
      if (rvcs.empty()) continue;
      if (area.gis_area == 0)
        throw std::runtime_error(file + ": " + area_name(nuts(k), area.code, area.id) +
                                 " has GIS_AREA 0, so its class shares cannot be worked out");
      ++result.areas;
      const auto& kids = children[area.id];
      for (size_t i = 0; i < rvcs.size(); ++i) {
        std::fill(class_area.begin(), class_area.end(), 0.0);
        for (const Nuts3Area* child : kids) {
          auto it = shares[i].find(child->ids[3]);
          if (it == shares[i].end()) continue;
          for (auto [cls, pct] : it->second)
            class_area[static_cast<size_t>(cls)] += child->gis_area * pct;
        }
        double sum = 0;
        for (int c = 0; c <= kMaxClass; ++c) {
          class_percent[static_cast<size_t>(c)] =
              (class_area[static_cast<size_t>(c)] / area.gis_area) * 100;
          sum += class_percent[static_cast<size_t>(c)];
        }
        // A shortfall goes to class 0; a sum above 100 is left alone.
        if (sum < 100) class_percent[0] += 100 - sum;
        int max = 0;
        for (int c = 0; c <= kMaxClass; ++c)
          if (class_percent[static_cast<size_t>(c)] > 0) max = c;
        // Min compares a percentage with a class number: intended, nothing relies on it.
        int min = max;
        double average = 0;
        for (int c = 0; c <= kMaxClass; ++c) {
          if (class_percent[static_cast<size_t>(c)] < min) min = c;
          average += c * class_percent[static_cast<size_t>(c)];
        }
        average /= 1000;  // a divisor of 1000, not 100: intended
        put_data.run({Value(area.id), Value(rvcs[i].id), Value(round_half_even(average, 0)),
                      Value(min), Value(max)});
        ++result.data_rows;
        for (int c = 0; c <= kMaxClass; ++c) {
          double p = class_percent[static_cast<size_t>(c)];
          if (p <= 0) continue;
          // Percent is a whole-number column.
          put_dist.run({Value(area.id), Value(rvcs[i].id), Value(static_cast<double>(c)),
                        Value(static_cast<int64_t>(round_half_even(p, 0)))});
          ++result.dist_rows;
        }
      }
    }
  }
  tx.commit();
  return result;
}

int update_op_from_rvc(int64_t rvc_id, Ui* ui) {
  if (ui) ui->progress(0, 1, "Updating operation last updated date...");
  std::vector<int64_t> activities;  // List2, without duplicates
  std::vector<int64_t> operations;
  {
    Db ops = Db::open(session().ops_db_path);
    for (const char* t :
         {"Adaptation_Activity_Impact_Factors", "Mitigation_Activity_Emission_Factors",
          "Yield_Activity_Impact_Factors"}) {
      ops.require_table(t);
      auto rows = ops.query(
          "SELECT \"Activity ID\" FROM " + quote_name(t) + " WHERE \"RVC ID\" = ? ORDER BY rowid",
          {Value(rvc_id)});
      rows.each([&](const Rows& r) {
        int64_t a = r.get(0).as_int();
        if (std::find(activities.begin(), activities.end(), a) == activities.end())
          activities.push_back(a);
      });
    }
    ops.require_table("Operation_Activity_Delta");
    for (int64_t a : activities) {
      auto rows = ops.query(
          "SELECT \"Operation ID\" FROM \"Operation_Activity_Delta\" WHERE \"Activity ID\" = ? "
          "ORDER BY rowid",
          {Value(a)});
      rows.each([&](const Rows& r) {
        int64_t op = r.get(0).as_int();
        if (std::find(operations.begin(), operations.end(), op) == operations.end())
          operations.push_back(op);
      });
    }
  }
  for (int64_t op : operations) touch_operation(op);
  if (ui) ui->progress(0, 0, "");
  return static_cast<int>(operations.size());
}

int nuts_setup() {
  Db rvc = Db::open(session().rvc_db_path);
  rvc.require_table("NUTS1");
  rvc.require_table("NUTS3");
  std::map<std::string, int64_t> nuts1;
  {
    auto rows = rvc.query("SELECT \"NUTS\", \"NUTS1_ID\" FROM \"NUTS1\" ORDER BY rowid");
    rows.each([&](const Rows& r) { nuts1.emplace(r.get(0).as_text(), r.get(1).as_int()); });
  }
  std::vector<std::pair<int64_t, int64_t>> updates;  // rowid, NUTS1_ID
  {
    auto rows = rvc.query("SELECT rowid, \"NUTS\" FROM \"NUTS3\" ORDER BY rowid");
    rows.each([&](const Rows& r) {
      std::string code = r.get(1).as_text();
      auto it = nuts1.find(code.substr(0, 3));
      if (it == nuts1.end())
        rvc.fail("table \"NUTS3\", row " + std::to_string(r.row()) +
                 ", column \"NUTS\": no NUTS1 area has the code \"" + code.substr(0, 3) + "\" of " +
                 code);
      updates.emplace_back(r.get(0).as_int(), it->second);
    });
  }
  Transaction tx(rvc);
  for (auto [rowid, id] : updates)
    rvc.exec("UPDATE \"NUTS3\" SET \"NUTS1_ID\" = ? WHERE rowid = ?", {Value(id), Value(rowid)});
  tx.commit();
  return static_cast<int>(updates.size());
}

int eu27_process(int level) {
  check_level(level);
  Db rvc = Db::open(session().rvc_db_path);
  rvc.require_table("NUTS0");
  rvc.require_table(nuts(level));
  std::map<int64_t, Value> mark;
  {
    auto rows = rvc.query("SELECT \"NUTS0_ID\", \"EU-27\" FROM \"NUTS0\" ORDER BY rowid");
    rows.each([&](const Rows& r) { mark.emplace(r.get(0).as_int(), r.get(1)); });
  }
  std::vector<std::pair<int64_t, Value>> updates;
  {
    auto rows = rvc.query("SELECT rowid, \"NUTS0_ID\", \"NUTS\" FROM " + quote_name(nuts(level)) +
                          " ORDER BY rowid");
    rows.each([&](const Rows& r) {
      auto it = mark.find(r.get(1).as_int());
      if (it == mark.end())
        rvc.fail("table \"" + nuts(level) + "\", row " + std::to_string(r.row()) +
                 ", column \"NUTS0_ID\": area " + r.get(2).as_text() + " has country " +
                 r.get(1).as_text() + ", which NUTS0 does not have");
      updates.emplace_back(r.get(0).as_int(), it->second);
    });
  }
  Transaction tx(rvc);
  for (const auto& [rowid, v] : updates)
    rvc.exec("UPDATE " + quote_name(nuts(level)) + " SET \"EU-27\" = ? WHERE rowid = ?",
             {v, Value(rowid)});
  tx.commit();
  return static_cast<int>(updates.size());
}

}  // namespace arven
