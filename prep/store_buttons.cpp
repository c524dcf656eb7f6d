#include <algorithm>
#include <filesystem>

#include "base/replace_file.h"
#include "base/text.h"
#include "core/session.h"
#include "core/ui.h"
#include "prep/packaging.h"
#include "prep/packaging_detail.h"
#include "prep/store_zip.h"
#include "stores/db.h"
#include "stores/schema.h"

// The buttons of the pre-processor dialog and of the all-country store.

namespace arven {

namespace fs = std::filesystem;
using namespace packaging_detail;

// ---- buttons ----

void new_basefile() {
  fs::path tmp = with_suffix(prepro_base_path(), ".tmp");
  std::error_code ec;
  fs::create_directories(tmp.parent_path(), ec);
  create_country_store_base(tmp);
  durable_rename(tmp, prepro_base_path());
}

void copy_dbs(const fs::path& target) {
  copy_store_file(session().ops_db_path, prepro_ops_master_path());
  copy_store_file(session().rvc_db_path, prepro_rvcs_master_path());
  if (!target.empty())
    copy_store_file(target, prepro_folder() / ("backup_" + target.filename().string()));
}

std::vector<std::string> all_country_codes() {
  auto codes = member_codes_in_table_order();
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  return codes;
}

void code_gen() {
  std::string all = all_country_store_path().string();
  std::string text =
      "-- Run against the chosen store, after:\n-- ATTACH DATABASE '" + all + "' AS arven_all;\n";
  for (const auto& cc : member_codes_in_table_order())
    for (int k = 0; k <= 3; ++k) {
      std::string t = quote_name(level_name("NUTS", k, "_OPS_") + cc);
      text += "DROP TABLE IF EXISTS arven_all." + t + ";\n";
      text += "CREATE TABLE arven_all." + t + " AS SELECT * FROM " + t + " WHERE 0;\n";
      text += "INSERT INTO arven_all." + t + " SELECT * FROM " + t + ";\n";
    }
  replace_text_file(prepro_folder() / "gencode.txt", text);
}

void copy_preprocess_tables(Ui& ui, const fs::path& chosen_store) {
  auto codes = all_country_codes();
  int total = static_cast<int>(codes.size()) * 4, done = 0;
  for (const auto& cc : codes)
    for (int k = 0; k <= 3; ++k) {
      std::string t = level_name("NUTS", k, "_OPS_") + cc;
      if (!copy_table_across(chosen_store, all_country_store_path(), t))
        message(ui, t + " Copy Failed & \\\" & ");  // the message's odd tail is intended
      show(&ui, ++done, total, t);
    }
  show(&ui, 0, 0, "");
}

void copy_arven_db(const fs::path& named_store) {
  copy_store_file(named_store, all_country_store_path());
  write_version_row(all_country_store_path(), now_text());
}

void copy_rdp_tables_to_all(Ui& ui) {
  copy_tables_to_all(ui, session().ops_db_path, Db::open(session().ops_db_path).table_names());
}

void copy_rvc_tables_to_all(Ui& ui) {
  copy_tables_to_all(ui, session().rvc_db_path, rvc_area_tables());
}

void copy_rvc_list_tables_to_all(Ui& ui) {
  copy_tables_to_all(ui, session().rvc_db_path, rvc_lookup_tables());
  message(ui, "Done RVC Table Copy");
}

void delete_old_tables(Ui& ui, const fs::path& store, OldTables group) {
  std::vector<std::string> tables;
  if (group == OldTables::Rdp)
    for (const auto& t : operations_master_tables()) tables.push_back(t.name);
  else
    tables = group == OldTables::Rvc ? rvc_area_tables() : rvc_lookup_tables();
  Db db = Db::open(store);
  Transaction tx(db);
  for (const auto& t : tables) db.exec("DROP TABLE IF EXISTS " + quote_name(t));
  tx.commit();
  message(ui, "Tables Deleted OK");
}

void temp_data_trans(Ui& ui, const fs::path& store) {
  auto codes = all_country_codes();
  Db db = Db::open(store);
  for (int k = 0; k <= 3; ++k) require_columns(db, level_name("NUTS", k, "_OPS"), {"NUTS Code"});
  Transaction tx(db);
  for (const auto& cc : codes)
    for (int k = 0; k <= 3; ++k) {
      TableDef def = nuts_ops_table(k, cc);
      if (!db.has_table(def.name)) {
        create_table(db, def);
        create_nuts_ops_index(db, def.name, k);
      }
      std::string cols;
      for (size_t i = 0; i < def.columns.size(); ++i)
        cols += (i ? ", " : "") + quote_name(def.columns[i].name);
      db.exec("DELETE FROM " + quote_name(def.name));
      // The code is a prefix of the area codes; '%' and '_' in it match literally.
      db.exec("INSERT INTO " + quote_name(def.name) + " (" + cols + ") SELECT " + cols + " FROM " +
                  quote_name(level_name("NUTS", k, "_OPS")) +
                  " WHERE \"NUTS Code\" LIKE ? || '%' ESCAPE '\\' ORDER BY rowid",
              {Value(like_escape(cc))});
    }
  tx.commit();
  message(ui, "Done");
}

void add_impact_max_field() {
  Db db = Db::open(all_country_store_path());
  Transaction tx(db);
  for (const auto& cc : all_country_codes())
    for (int k = 0; k <= 3; ++k) {
      std::string t = level_name("NUTS", k, "_OPS_") + cc;
      if (!db.has_table(t)) continue;
      bool has = false;
      for (const auto& c : db.column_names(t)) has = has || lower_case(c) == "impact max";
      if (!has) db.exec("ALTER TABLE " + quote_name(t) + " ADD COLUMN \"Impact max\" DOUBLE");
    }
  tx.commit();
}

}  // namespace arven
