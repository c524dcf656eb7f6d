#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>

#include "assessment/assessment_file.h"
#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "guards.h"
#include "reports/explorer_window.h"
#include "reports/page_kit.h"
#include "scripted_ui.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "temp_dir.h"

namespace arven::testing {

// The whole content of a file, byte for byte.
inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// A stored NUTS<k>_OPS row; unset quality, refs and maximum stay null.
struct OpsRow {
  int level = 3;
  int64_t area = 1;
  int64_t op = 7;
  int64_t activity = 5;
  int type = 1;
  double value = 0;
  double impact_area = 100;
  double field = 1;
  double cseq = 0;
  Value category{};
  Value max{};
  Value dq{};
  Value refs{};
};

// A temporary program folder with an empty Danish country store, registered as
// the installed country and as the operations and RVC store, and (unless asked
// otherwise) an empty assessment file open as the current file. The session,
// the explorer state and window and the catalogue start afresh.
class StoreFixture : public ::testing::Test {
 protected:
  static constexpr int kDK = 13;

  // with_file false leaves the session without an assessment file until the
  // test calls open_file().
  explicit StoreFixture(bool with_file = true) : with_file_(with_file) {}

  void SetUp() override {
    reset_session();
    Session& s = session();
    s.app_folder = dir_.path();
    const std::filesystem::path dk = dir_ / "dbases/new_arven_operations_DK.mdb";
    store_.emplace(create_country_store_base(dk));
    s.country_installed[kDK] = 1;
    s.country_db_path[kDK] = dk.string();
    s.ops_db_path = s.rvc_db_path = dk.string();
    if (with_file_) open_file();
    reset_explorer_state();
    reset_explorer_window();
    reset_catalogue();
    set_catalogue_hooks({});
  }
  void TearDown() override { set_page_date_source(nullptr); }

  // Creates test.arv in the program folder and makes it the current file.
  void open_file() {
    file_ = dir_ / "test.arv";
    create_assessment_file(file_.string());
    session().current_file = file_.string();
    file_db_.emplace(Db::open(file_));
  }
  // Pages written from here on are dated 05/03/2024.
  void fix_page_date() {
    set_page_date_source(
        [] { return std::chrono::year{2024} / std::chrono::March / std::chrono::day{5}; });
  }

  void activity(int64_t id, const std::string& name, double norm = 1) {
    store_->insert("Activities", {"Activity ID", "Activity Name", "Norm_factor"}, {id, name, norm});
  }
  void add_ops(const OpsRow& r) {
    const std::string k = std::to_string(r.level);
    store_->insert("NUTS" + k + "_OPS",
                   {"NUTS" + k + "_ID", "Operation ID", "Activity ID", "Impact Type",
                    "Impact value", "Impact area", "Average field size", "Cseq Years",
                    "Impact Category", "Impact max", "Data_Quality", "Refs"},
                   {r.area, r.op, r.activity, r.type, r.value, r.impact_area, r.field, r.cseq,
                    r.category, r.max, r.dq, r.refs});
  }
  // A region of the assessment, by default a NUTS3 area of 10 km².
  void region(const std::string& code, int64_t nuts_id, int level = 3, double sqkm = 10) {
    file_db_->insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID", "NUTS AREA"},
                     {kDK, level, code, nuts_id, sqkm});
  }
  // The first column of the first row of a query on the assessment file, or
  // null without rows.
  Value file_value(const std::string& sql, std::initializer_list<Value> params = {}) {
    auto rows = file_db_->query(sql, params);
    return rows.next() ? rows.get(0) : Value();
  }
  // A page written to the program folder.
  std::string page(const std::string& name) const { return read_file(dir_ / name); }

  SessionGuard session_guard_;
  TempDir dir_;
  std::filesystem::path file_;
  std::optional<Db> store_;
  std::optional<Db> file_db_;
  ScriptedUi ui_;

 private:
  bool with_file_;
};

}  // namespace arven::testing
