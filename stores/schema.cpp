#include "stores/schema.h"

#include <algorithm>

#include "base/text.h"

namespace arven {

namespace {

using C = ColumnDef;
constexpr ColType L = ColType::Long;
constexpr ColType D = ColType::Double;
constexpr ColType T = ColType::Text;
constexpr ColType M = ColType::Memo;
constexpr ColType DT = ColType::Date;

std::vector<TableDef> make_assessment_tables() {
  return {
      {"Regions",
       {{"NUTS0_ID", L},
        {"NUTS Type ID", L},
        {"NUTS Code", T, 255},
        {"NUTS Name", T, 255},
        {"NUTS ID", L},
        {"NUTS AREA", D}}},
      {"Operations",
       {{"Operation ID", L},
        {"Operation Name", T, 255},
        {"Scaling up technique", L},
        {"ST Value", D},
        {"Uptake", D},
        {"Cost", D},
        {"Cost Single", D},
        {"TArea", D},
        {"TEA_Inc", L},
        {"TEA_Factor", D},
        {"TEA_Cost", D}}},
      {"Activity-Impact data",
       {{"Operation ID", L},
        {"Activity ID", L},
        {"Impact type", L},
        {"RVC ID", L},
        {"Impact factor", T},
        {"Range", T},
        {"Regional impact ha", D},
        {"Regional impact total", D},
        {"Time horizon", L},
        {"Cseq", D},
        {"Impact max", D},
        {"Risk reduction", D},
        {"Refs", T, 255},
        {"Data_Quality", L}}},
      {"Operation-Impact data",
       {{"Operation ID", L},
        {"Impact type", L},
        {"Regional impact ha", D},
        {"Regional impact total", D},
        {"Time horizon", L},
        {"Regional risk reduction total", D},
        {"Refs", T, 255},
        {"Data_Quality", L}}},
      {"Version",
       {{"Structure Version", L}, {"Regional data changed", T, 5}, {"Carbon seq included", L}}},
  };
}

std::vector<TableDef> make_operations_master_tables() {
  std::vector<TableDef> t = {
      {"Operations",
       {{"Operation ID", L},
        {"Operation Type ID", L},
        {"Operation Name", T, 255},
        {"Operation Description", M},
        {"CORINE Class", L},
        {"Scaling up technique", L},
        {"ST Value", D},
        {"Uptake", D},
        {"Cost", D},
        {"Cost Single", D},
        {"TEA_Inc", L},
        {"TEA_Factor", D},
        {"TEA_Cost", D},
        {"Notes", M},
        {"Operation_DQ", D},
        {"Last_Updated", DT}}},
      {"Operations_Types", {{"Operation Type ID", L}, {"Operation Type Name", T, 255}}},
      {"Operations_Measures", {{"Operation ID", L}, {"Measure ID", L}}},
      {"Operations_New_Measures", {{"Operation ID", L}, {"Measure ID", L}}},
      {"Operations_Impacts", {{"Operation ID", L}, {"Impact ID", L}}},
      {"Operations_Practicality", {{"Operation ID", L}, {"Practicality ID", L}}},
      {"Practicality_Items", {{"Practicality ID", L}, {"Practicality Text", M}}},
  };
  for (const char* name : {"Measures", "New_Measures"})
    t.push_back({name,
                 {{"Measure ID", L},
                  {"Measure EU ID", T, 50},
                  {"Measure name", T, 255},
                  {"Measure type", T, 255}}});
  std::vector<TableDef> rest = {
      {"Impact areas", {{"Impact ID", L}, {"Impact name", T, 255}}},
      {"Activities",
       {{"Activity ID", L},
        {"Activity Name", T, 255},
        {"Activity Unit", T, 255},
        {"Activity Description", M},
        {"Notes", M},
        {"Impact type", L},
        {"Norm_factor", D}}},
      {"Baselines",
       {{"Baseline ID", L},
        {"Baseline name", T, 255},
        {"Baseline long name", T, 255},
        {"Notes", M}}},
      {"Operation_Activity_Details",
       {{"Operation ID", L},
        {"Activity ID", L},
        {"RVC ID", L},
        {"RVC Class", L},
        {"Details", T, 50}}},
      {"Baseline_Activity_Details",
       {{"Baseline ID", L},
        {"Activity ID", L},
        {"RVC ID", L},
        {"RVC Class", L},
        {"Details", T, 50}}},
      {"Operation_Activity_Delta",
       {{"Operation ID", L},
        {"Baseline ID", L},
        {"Activity ID", L},
        {"RVC ID", L},
        {"RVC Class", L},
        {"Delta", T, 50}}},
      {"Delta_List", {{"Operation ID", L}, {"Baseline ID", L}}},
      {"Mitigation_Activity_Emission_Factors",
       {{"Activity ID", L},
        {"RVC ID", L},
        {"RVC Value", L},
        {"Mitigation Type", L},
        {"tCO2e", D},
        {"Equilibrium", D},
        {"Refs", T, 255},
        {"Data_Quality", L}}},
      {"Adaptation_Activity_Impact_Factors",
       {{"Activity ID", L},
        {"Impact Category ID", L},
        {"RVC ID", L},
        {"Impact factor", D},
        {"Refs", T, 255},
        {"Data_Quality", L}}},
      {"Yield_Activity_Impact_Factors",
       {{"Activity ID", L},
        {"RVC ID", L},
        {"RVC Value", L},
        {"Yield", D},
        {"Refs", T, 255},
        {"Data_Quality", L}}},
      {"References", {{"Ref ID", L}, {"Ref Short", T, 255}, {"Ref Long", M}, {"URL", T, 255}}},
      {"Scoped_Out_Operations",
       {{"Operation ID", L},
        {"Operation Name", T, 255},
        {"Operation Description", M},
        {"Operation Type ID", L},
        {"Operation Type Name", T, 255}}},
      {"Scoped_Out_Operations_Measures", {{"Operation ID", L}, {"Measure ID", L}}},
      {"xPPL_List", {{"Operation ID", L}, {"Operation Name", T, 255}}},
      {"Countries",
       {{"Country name", T, 255},
        {"Axis 1", D},
        {"Axis 2", D},
        {"Axis 3", D},
        {"Axis 4", D},
        {"Technical assistance", D},
        {"Compliments to direct payments", D}}},
  };
  t.insert(t.end(), rest.begin(), rest.end());
  return t;
}

std::vector<TableDef> make_rvcs_master_tables() {
  std::vector<TableDef> t = {
      {"RVC_List",
       {{"RVC ID", L},
        {"RVC Type", L},
        {"RVC Parent", L},
        {"CORINE Class", L},
        {"RVC Short Name", T, 255},
        {"RVC Long Name", T, 255},
        {"RVC Short Letter ID", T, 50},
        {"Risk statement", M},
        {"RVC min", L},
        {"RVC max", L},
        {"N factor", D},
        {"Euro min", D},
        {"Euro max", D},
        {"Hotspots Exclude Class Zero", L},
        {"Notes", M},
        {"GIS Data File", T, 255},
        {"Impact Type", T, 255},
        {"Max_factor", D}}},
      {"Baseline_Impact_Look_Up",
       {{"Combo RVC", L},
        {"Combo Class", L},
        {"Baseline RVC", L},
        {"Baseline RVC Class", L},
        {"Impact RVC", L},
        {"Impact RVC Class", L}}},
  };
  for (int k = 0; k <= 3; ++k) {
    t.push_back(nuts_table(k));
    t.push_back(nuts_rvc_data_table(k));
    t.push_back(nuts_rvc_data_dist_table(k));
  }
  return t;
}

std::string create_sql(const TableDef& table) {
  std::string sql = "CREATE TABLE " + quote_name(table.name) + " (";
  for (size_t i = 0; i < table.columns.size(); ++i)
    sql += (i ? ", " : "") + quote_name(table.columns[i].name) + " " + sql_type(table.columns[i]);
  return sql + ")";
}

void create_tables(Db& db, const std::vector<TableDef>& tables) {
  for (const auto& t : tables) create_table(db, t);
}

}  // namespace

std::string sql_type(const ColumnDef& c) {
  switch (c.type) {
    case ColType::Long:
      return "INTEGER";
    case ColType::Double:
      return "DOUBLE";
    case ColType::Text:
      return c.size > 0 ? "TEXT(" + std::to_string(c.size) + ")" : "TEXT";
    case ColType::Memo:
      return "MEMO TEXT";
    case ColType::Date:
      return "DATE";
  }
  return "TEXT";
}

const std::vector<TableDef>& assessment_tables() {
  static const auto t = make_assessment_tables();
  return t;
}

const std::vector<TableDef>& settings_tables() {
  static const std::vector<TableDef> t = {
      {"Country Output Norm Factors", {{"Country ID", L}, {"Output ID", L}, {"Norm_factor", D}}},
      {"Version", {{"Structure Version", L}}},
  };
  return t;
}

const std::vector<TableDef>& files_tables() {
  static const std::vector<TableDef> t = {
      {"Files", {{"Name", T, 255}, {"Farm", T, 255}, {"Location", T, 255}}},
  };
  return t;
}

const std::vector<TableDef>& operations_master_tables() {
  static const auto t = make_operations_master_tables();
  return t;
}

const std::vector<TableDef>& rvcs_master_tables() {
  static const auto t = make_rvcs_master_tables();
  return t;
}

const std::vector<TableDef>& rationalised_tables() {
  static const auto t = [] {
    std::vector<TableDef> out;
    for (const char* category :
         {"Land management", "Financial and infrastructure support",
          "Markets, products & diversification", "Renewable energies", "Tourism and leisure",
          "Training and education", "Other operations"})
      out.push_back(
          {category,
           {{"Rationalised ID", L}, {"Rationalised Operation", T, 255}, {"Description", M}}});
    out.push_back({"Operations_Rationalised",
                   {{"Operation ID", L}, {"Category", T, 255}, {"Rationalised ID", L}}});
    return out;
  }();
  return t;
}

const std::vector<std::string>& master_only_tables() {
  static const std::vector<std::string> t = {
      "Scoped_Out_Operations", "Scoped_Out_Operations_Measures", "xPPL_List", "Countries"};
  return t;
}

TableDef nuts_table(int k) {
  std::string id = "NUTS" + std::to_string(k) + "_ID";
  TableDef t{"NUTS" + std::to_string(k), {{id, L}}};
  for (int parent = 0; parent < k; ++parent)
    t.columns.push_back({"NUTS" + std::to_string(parent) + "_ID", L});
  std::vector<ColumnDef> rest = {{"NUTS", T, 255}, {"GIS_AREA", D}, {"NAME", T, 255},
                                 {"EU-27", T, 5},  {"SQKM", D},     {"AV_FS", D}};
  t.columns.insert(t.columns.end(), rest.begin(), rest.end());
  return t;
}

TableDef nuts_rvc_data_table(int k) {
  return {"NUTS" + std::to_string(k) + "_RVC_Data",
          {{"NUTS" + std::to_string(k) + "_ID", L},
           {"RVC ID", L},
           {"Average", D},
           {"Min", L},
           {"Max", L}}};
}

TableDef nuts_rvc_data_dist_table(int k) {
  // The class is the floating column and the percentage the integer one.
  return {
      "NUTS" + std::to_string(k) + "_RVC_Data_Dist",
      {{"NUTS" + std::to_string(k) + "_ID", L}, {"RVC ID", L}, {"RVC Class", D}, {"Percent", L}}};
}

TableDef nuts_ops_table(int k, const std::string& suffix) {
  std::string name = "NUTS" + std::to_string(k) + "_OPS" + (suffix.empty() ? "" : "_" + suffix);
  return {name, {{"NUTS Type ID", L},       {"NUTS Code", T, 255},
                 {"NUTS Name", T, 255},     {"NUTS0_ID", L},
                 {"NUTS1_ID", L},           {"NUTS2_ID", L},
                 {"NUTS3_ID", L},           {"NUTS area", D},
                 {"Average field size", D}, {"Number of fields", D},
                 {"Operation ID", L},       {"Activity ID", L},
                 {"Impact Type", L},        {"Impact Category", L},
                 {"Impact value", D},       {"Impact area", D},
                 {"Cseq Years", D},         {"Impact max", D},
                 {"Data_Quality", L},       {"Refs", T}}};
}

TableDef country_version_table() {
  return {"Version", {{"Version", DT}, {"DB Version", L}}};
}

void create_table(Db& db, const TableDef& table) {
  db.exec(create_sql(table));
}

void create_nuts_ops_index(Db& db, const std::string& table, int k) {
  std::string id = "NUTS" + std::to_string(k) + "_ID";
  db.exec("CREATE INDEX " + quote_name("idx_" + table) + " ON " + quote_name(table) + " (" +
          quote_name(id) + ", " + quote_name("Operation ID") + ")");
}

Db create_assessment_store(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  create_tables(db, assessment_tables());
  // Carbon seq included stays empty until results are first saved.
  db.insert("Version", {"Structure Version", "Regional data changed"}, {kStructureVersion, "No"});
  tx.commit();
  return db;
}

Db create_settings_store(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  create_tables(db, settings_tables());
  db.insert("Version", {"Structure Version"}, {kSettingsStructureVersion});
  tx.commit();
  return db;
}

Db create_files_store(const std::filesystem::path& path) {
  Db db = Db::create(path);
  create_tables(db, files_tables());
  return db;
}

Db create_country_store_base(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  const auto& skip = master_only_tables();
  for (const auto& t : operations_master_tables())
    if (std::find(skip.begin(), skip.end(), t.name) == skip.end()) create_table(db, t);
  create_tables(db, rvcs_master_tables());
  for (int k = 0; k <= 3; ++k) {
    TableDef ops = nuts_ops_table(k);
    create_table(db, ops);
    create_nuts_ops_index(db, ops.name, k);
  }
  create_table(db, country_version_table());
  tx.commit();
  return db;
}

Db create_operations_master(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  create_tables(db, operations_master_tables());
  tx.commit();
  return db;
}

Db create_rvcs_master(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  create_tables(db, rvcs_master_tables());
  tx.commit();
  return db;
}

Db create_rationalised_store(const std::filesystem::path& path) {
  Db db = Db::create(path);
  Transaction tx(db);
  create_tables(db, rationalised_tables());
  tx.commit();
  return db;
}

Db create_all_country_store(const std::filesystem::path& path,
                            const std::vector<std::string>& country_codes) {
  Db db = Db::create(path);
  Transaction tx(db);
  for (const auto& cc : country_codes)
    for (int k = 0; k <= 3; ++k) {
      TableDef ops = nuts_ops_table(k, cc);
      create_table(db, ops);
      create_nuts_ops_index(db, ops.name, k);
    }
  create_table(db, country_version_table());
  tx.commit();
  return db;
}

void require_assessment_schema(const Db& db) {
  for (const TableDef& table : assessment_tables()) {
    db.require_table(table.name);
    std::vector<std::string> have = db.column_names(table.name);
    for (auto& name : have) name = lower_case(name);
    for (const ColumnDef& column : table.columns)
      if (std::find(have.begin(), have.end(), lower_case(column.name)) == have.end())
        db.fail("its table \"" + table.name + "\" has no column \"" + column.name + "\"");
  }
}

}  // namespace arven
