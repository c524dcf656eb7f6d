// What the engine keeps between commands (country-store rows, the regions
// and field sizes of the regional area) and the one-pass reads of the stored
// figures: each must give what a fresh read gives, and see every change.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>

#include "base/numbers.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "engine/stored_figures.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

TEST(RoundWholeTest, AgreesWithTheDecimalRounding) {
  std::vector<double> xs = {0.0,
                            -0.0,
                            0.5,
                            1.5,
                            2.5,
                            -2.5,
                            -0.4,
                            0.49999999999999994,
                            4503599627370495.5,
                            1e300,
                            -1e-300,
                            std::numeric_limits<double>::infinity(),
                            -std::numeric_limits<double>::infinity()};
  std::mt19937_64 rnd(7);
  for (int i = 0; i < 20000; ++i) {
    const double scale = std::pow(10.0, static_cast<double>(rnd() % 18) - 3);
    xs.push_back((static_cast<double>(rnd() % 2000001) - 1000000.0) / 1000.0 * scale);
    xs.push_back(static_cast<double>(static_cast<int64_t>(rnd() % 200001) - 100000) + 0.5);
  }
  for (double x : xs) {
    const double a = engine_detail::round_whole(x), b = round_half_even(x, 0);
    ASSERT_EQ(a, b) << x;
    ASSERT_EQ(std::signbit(a), std::signbit(b)) << x;
  }
  EXPECT_TRUE(std::isnan(engine_detail::round_whole(std::nan(""))));
}

class StoredFiguresTest : public testing::StoreFixture {
 protected:
  void figure(Value op, Value type, Value horizon, double total, Value quality = 3) {
    file_db_->insert(
        "Operation-Impact data",
        {"Operation ID", "Impact type", "Time horizon", "Regional impact total", "Data_Quality"},
        {op, type, horizon, total, quality});
  }
  // The keyed query the lookup stands for: its total, or nullopt without a row.
  std::optional<double> queried(int64_t op, int64_t type, std::optional<int64_t> horizon) {
    std::string sql =
        "SELECT \"Regional impact total\" FROM \"Operation-Impact data\" WHERE \"Operation ID\" "
        "= ? AND \"Impact type\" = ?";
    std::vector<Value> params = {op, type};
    if (horizon) {
      sql += " AND \"Time horizon\" = ?";
      params.emplace_back(*horizon);
    }
    auto q = file_db_->query(sql + " ORDER BY rowid LIMIT 1", params);
    if (!q.next()) return std::nullopt;
    return q.get(0).as_double();
  }
};

TEST_F(StoredFiguresTest, LookupsAnswerAsTheKeyedQuery) {
  figure(5, 1, 50, 1);
  figure(5, 1, 50, 2);  // a second row of the same key: the first wins
  figure(5, 1, 10, 3);
  figure(5, 2, 1, 4);
  figure(6.0, 4, 50.0, 5);  // reals that equal whole numbers
  figure(7.5, 1, 50, 6);    // an ID no whole number equals
  figure("x", 1, 50, 7);    // text
  figure(Value(), 1, 50, 8);
  figure(8, Value(), 50, 9);
  figure(8, 1, Value(), 10);
  const StoredFigures figures(*file_db_);
  ASSERT_EQ(figures.rows().size(), 10u);
  EXPECT_EQ(figures.rows()[2].total.as_double(), 3);  // table order
  for (int64_t op : {5, 6, 7, 8, 0})
    for (int64_t type : {1, 2, 4})
      for (std::optional<int64_t> horizon : {std::optional<int64_t>(50), std::optional<int64_t>(10),
                                             std::optional<int64_t>(1), std::optional<int64_t>()}) {
        SCOPED_TRACE(std::to_string(op) + "/" + std::to_string(type));
        const StoredFigures::Row* row = figures.first(op, type, horizon);
        const std::optional<double> expected = queried(op, type, horizon);
        ASSERT_EQ(row != nullptr, expected.has_value());
        if (row) {
          EXPECT_EQ(row->total.as_double(), *expected);
        }
      }
}

class KeptReadsTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    forget_kept_store_rows();
    activity(5, "Fertiliser");
    file_db_->insert(
        "Operations",
        {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "TEA_Inc"},
        {int64_t{7}, "Op 7", 1, 50.0, 40.0, 1});
    region("DK011", 1);
    store_->insert("NUTS3", {"NUTS3_ID", "AV_FS"}, {int64_t{1}, 4.0});
    store_->insert("NUTS3", {"NUTS3_ID", "AV_FS"}, {int64_t{2}, 9.0});
    add_ops({.area = 1, .value = 10, .impact_area = 100});
    add_ops({.area = 2, .value = 30, .impact_area = 100});
  }
  const std::string& total_per_year() { return explorer_state().ghg_activity_table.cell(1, 3); }
  double area(int technique) {
    double total = -1;
    EXPECT_EQ(get_operation_tot_reg_area(ui_, 50, technique, 5, total), ImpactStatus::done);
    return total;
  }
};

TEST_F(KeptReadsTest, CalculationSeesEveryChangeOfTheStore) {
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(total_per_year(), "2");  // 10 × 50 % × 40 %
  // Kept rows answer the next calculation, and a store change replaces them.
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(total_per_year(), "2");
  store_->exec("UPDATE NUTS3_OPS SET \"Impact value\" = 20 WHERE NUTS3_ID = 1");
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(total_per_year(), "4");
  // A region change reaches the calculation at once: 4 + 30 × 50 % × 40 %.
  region("DK012", 2);
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(total_per_year(), "10");
  // A store replaced by another file of the same name.
  const std::filesystem::path path = session().country_db_path[kDK];
  store_.reset();
  {
    Db copy = create_country_store_base(path.string() + ".new");
    copy.insert("Activities", {"Activity ID", "Activity Name", "Norm_factor"},
                {int64_t{5}, "Fertiliser", 1.0});
    copy.insert("NUTS3_OPS",
                {"NUTS3_ID", "Operation ID", "Activity ID", "Impact Type", "Impact value",
                 "Impact area", "Average field size", "Cseq Years"},
                {int64_t{1}, int64_t{7}, int64_t{5}, 1, 60.0, 100.0, 1.0, 0.0});
  }
  std::filesystem::rename(path.string() + ".new", path);
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(total_per_year(), "12");
}

TEST_F(KeptReadsTest, RegionalAreaSeesEveryChangeOfTheFileAndTheStore) {
  EXPECT_DOUBLE_EQ(area(1), 25);  // 1000 ha × 50 % × 5 %
  EXPECT_DOUBLE_EQ(area(2), 500.0 / 4 * ((200 - 5) * 4 * 5 / 10000.0));
  region("DK012", 2);
  EXPECT_DOUBLE_EQ(area(1), 50);
  store_->exec("UPDATE NUTS3 SET AV_FS = 16 WHERE NUTS3_ID = 1");
  EXPECT_DOUBLE_EQ(area(2), 500.0 / 16 * ((400 - 5) * 4 * 5 / 10000.0) +
                                500.0 / 9 * ((300 - 5) * 4 * 5 / 10000.0));
  file_db_->exec("UPDATE Regions SET \"NUTS AREA\" = 20 WHERE \"NUTS ID\" = 2");
  EXPECT_DOUBLE_EQ(area(1), 75);
  // A missing field size fails each time, also after a success.
  file_db_->exec("UPDATE Regions SET \"NUTS ID\" = 3 WHERE \"NUTS ID\" = 2");
  double total = -1;
  EXPECT_EQ(get_operation_tot_reg_area(ui_, 50, 2, 5, total), ImpactStatus::failed);
  EXPECT_EQ(get_operation_tot_reg_area(ui_, 50, 2, 5, total), ImpactStatus::failed);
  EXPECT_EQ(ui_.messages.size(), 2u);
}

TEST_F(KeptReadsTest, RecalculationReplacesTheRowsOfEachOperationOnly) {
  // Operation 7 twice in the file, an operation without a calculation, and
  // stored rows that no operation's key matches.
  file_db_->insert(
      "Operations",
      {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "TEA_Inc"},
      {int64_t{7}, "Op 7 again", 1, 100.0, 100.0, 1});
  file_db_->insert("Operations", {"Operation ID", "Operation Name"}, {int64_t{9}, "Op 9"});
  add_ops({.area = 1, .op = 9, .value = 4, .impact_area = 100});
  for (Value op : {Value(int64_t{7}), Value(int64_t{8}), Value("x"), Value()})
    file_db_->insert("Activity-Impact data", {"Operation ID", "Activity ID", "Impact type"},
                     {op, int64_t{99}, 1});
  auto count = [&](const char* where) {
    return file_value("SELECT count(*) FROM \"Activity-Impact data\" WHERE " + std::string(where))
        .as_int();
  };
  for (int run = 0; run < 2; ++run) {
    SCOPED_TRACE(run);
    ASSERT_EQ(data_update(ui_, {}, true), ImpactStatus::done);
    // One GHG activity over seven horizons each: 7 calculated twice leaves
    // one set of rows.
    EXPECT_EQ(count("\"Operation ID\" = 7"), 7);
    EXPECT_EQ(count("\"Operation ID\" = 9"), 7);
    EXPECT_EQ(count("\"Activity ID\" = 99"), 3);  // 8, "x" and null stay
    EXPECT_EQ(file_value("SELECT \"Regional impact total\" FROM \"Activity-Impact data\" "
                         "WHERE \"Operation ID\" = 7 AND \"Time horizon\" = 1")
                  .as_double(),
              2);  // 10 × 50 % × 40 %: the settings of 7's first row, both times
  }
}

TEST_F(KeptReadsTest, RowsReadAheadOnTwoThreadsAnswerAsFreshReads) {
  // Six areas, so that a second thread reads ahead the last three; two
  // operations, one of them with text where a number is kept (read afresh
  // each time) in an area of each half.
  file_db_->insert(
      "Operations",
      {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "TEA_Inc"},
      {int64_t{9}, "Op 9", 1, 80.0, 50.0, 1});
  for (int64_t a = 2; a <= 6; ++a) {
    if (a > 2) store_->insert("NUTS3", {"NUTS3_ID", "AV_FS"}, {a, 4.0});
    region("DK01" + std::to_string(a), a);
  }
  for (int64_t a = 3; a <= 6; ++a)
    add_ops({.area = a, .value = 10.0 * static_cast<double>(a), .impact_area = 100});
  for (int64_t a = 1; a <= 6; ++a)
    add_ops({.area = a,
             .op = 9,
             .value = 3.0 + static_cast<double>(a),
             .impact_area = 50,
             .dq = a == 2 || a == 5 ? Value("3") : Value(int64_t{2}),
             .refs = "r" + std::to_string(a)});
  auto figures = [&] {
    std::vector<std::string> out;
    for (int64_t op : {7, 9}) {
      EXPECT_EQ(get_impact_data_direct_MT(ui_, op, explorer_state()), ImpactStatus::done)
          << (ui_.messages.empty() ? "" : ui_.messages.back().text);
      const GridTable& t = explorer_state().ghg_activity_table;
      for (int r = 0; r < t.rows(); ++r)
        for (int c = 0; c < t.cols(); ++c) out.push_back(t.cell(r, c));
      out.push_back(std::to_string(explorer_state().op_total_area));
    }
    return out;
  };
  const std::vector<std::string> fresh = figures();
  forget_kept_store_rows();
  ASSERT_EQ(data_update(ui_, {}, true), ImpactStatus::done);  // reads ahead, keeps
  EXPECT_EQ(figures(), fresh);
  forget_kept_store_rows();
  EXPECT_EQ(figures(), fresh);
}

TEST_F(KeptReadsTest, StampsMoveWithEveryChangeAndNotWithReads) {
  const std::string path = session().country_db_path[kDK];
  const auto a = engine_detail::stamp_of(path);
  ASSERT_TRUE(a.has_value());
  EXPECT_EQ(engine_detail::stamp_of(path), a);
  {
    auto rows = store_->query("SELECT AV_FS FROM NUTS3");  // reading moves nothing
    while (rows.next()) {
    }
  }
  EXPECT_EQ(engine_detail::stamp_of(path), a);
  store_->exec("UPDATE NUTS3 SET AV_FS = AV_FS + 1 WHERE NUTS3_ID = 2");
  EXPECT_NE(engine_detail::stamp_of(path), a);
  EXPECT_FALSE(engine_detail::stamp_of(path + ".missing").has_value());
  store_->exec_script("PRAGMA journal_mode = WAL");
  EXPECT_FALSE(engine_detail::stamp_of(path).has_value());
}

}  // namespace
}  // namespace arven
