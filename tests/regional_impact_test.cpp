#include "engine/regional_impact.h"

#include <gtest/gtest.h>

#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_summaries.h"
#include "stores/db.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"

namespace arven {
namespace {

// A Danish country store and an assessment file in a temporary program folder.
class EngineTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    activity(5, "Fertiliser & lime");
  }

  // The operation chosen in the assessment, with its own settings.
  void choose(int64_t id, int technique, double st, double uptake, int tea_inc = 1,
              double tea_factor = 0) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "TEA_Inc", "TEA_Factor"},
                     {id, "Op " + std::to_string(id), technique, st, uptake, tea_inc, tea_factor});
  }

  // The one-figure chain: technique 1 at 50 %, uptake 40 %, no TEA (20 %
  // reduction), over two areas with rows and one without.
  void chain_setup() {
    choose(7, 1, 50, 40, 0, 20);
    region("DK011", 1);
    region("DK012", 2);
    region("DK013", 3);
    add_ops({.area = 1, .value = 10.4, .impact_area = 100, .dq = 3, .refs = "1, 2"});
    add_ops({.area = 2, .value = 7.3, .impact_area = 50, .dq = 4, .refs = "2, 3"});
    add_ops({.area = 1, .op = 8, .value = 1000});              // another operation
    add_ops({.level = 2, .area = 1, .value = 1000, .dq = 1});  // another level, same key
  }

  ExplorerState& ex() { return explorer_state(); }
  const std::string& ghg(int r, int c) { return ex().ghg_activity_table.cell(r, c); }
};

using RegionalImpactTest = EngineTest;
using SummariesTest = EngineTest;
using ImpactCacheTest = EngineTest;

TEST_F(RegionalImpactTest, OneFigureChainRoundsPerAreaThenScalesAndSums) {
  chain_setup();
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_TRUE(ui_.messages.empty());
  ASSERT_EQ(ex().ghg_activity_table.rows(), 2);  // one activity; the NUTS2 row is not read
  EXPECT_EQ(ghg(1, 1), "Fertiliser &amp; lime");
  // op_total_area = 100 × 0.5 × 0.4 + 50 × 0.5 × 0.4 = 20 + 10 = 30 (TEA never reduces it).
  EXPECT_DOUBLE_EQ(ex().op_total_area, 30);
  EXPECT_DOUBLE_EQ(file_value("SELECT TArea FROM Operations").as_double(), 30);
  // 1 year: round0(10.4) = 10 and round0(7.3) = 7, each × 0.5 × 0.4 × 0.8 = 0.16:
  // 1.6 + 1.12 = 2.72, shown 2.7 (rounding the sum 17.7 × 0.16 = 2.832 would
  // show 2.8); per ha 2.72 / 30 = 0.0907.
  EXPECT_EQ(ghg(1, 3), "2.7");
  EXPECT_EQ(ghg(1, 2), "0.091");
  // 5 years: 52 and 36.5, an exact tie, to even 36: (52 + 36) × 0.16 = 14.08;
  // per ha 0.4693.
  EXPECT_EQ(ghg(1, 5), "14.1");
  EXPECT_EQ(ghg(1, 4), "0.469");
  // 250 years: (2600 + 1825) × 0.16 = 708, not 250 × 2.7 = 675; per ha 23.6.
  EXPECT_EQ(ghg(1, 15), "708");
  EXPECT_EQ(ghg(1, 14), "23.600");
  // Quality is the mean of the rows read; the refs are those of the first row.
  EXPECT_DOUBLE_EQ(ex().dq_ghg, 3.5);
  EXPECT_DOUBLE_EQ(ex().dq_overall, 3.5);
  EXPECT_EQ(ghg(1, 16), "0");
  EXPECT_EQ(ghg(1, 17), "3");
  EXPECT_EQ(ghg(1, 18), "1, 2");
}

TEST_F(RegionalImpactTest, SequestrationRowsFillTheirOwnHorizonOnly) {
  choose(8, 1, 100, 100);
  region("DK011", 1);
  activity(6, "Hedge");
  add_ops({.op = 8, .value = 2, .impact_area = 10});
  add_ops({.op = 8, .type = 2, .value = 100.4, .impact_area = 10, .cseq = 10});
  add_ops({.op = 8, .type = 2, .value = 300, .impact_area = 10, .cseq = 50});
  add_ops({.op = 8, .activity = 6, .type = 2, .value = 40, .impact_area = 10, .cseq = 25});
  // Two plain rows of one activity in one area both go into its row.
  add_ops({.op = 8, .value = 1, .impact_area = 10});
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 8, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(ex().ghg_activity_table.rows(), 3);
  // Activity 5: its first plain row (2 a year) takes the stored totals in the
  // horizons they name, 10 and 50 years, as they stand (100.4 rounds to 100,
  // not × 10); the second plain row (1 a year) is merged with all horizons:
  // 3, 15, 100 + 10, 75, 300 + 50, 300, 750.
  const std::vector<std::string> expected = {"3", "15", "110", "75", "350", "300", "750"};
  for (int h = 1; h <= 7; ++h) EXPECT_EQ(ghg(1, 2 * h + 1), expected[h - 1]) << "horizon " << h;
  EXPECT_EQ(ghg(1, 16), "1");
  EXPECT_EQ(ghg(1, 6), "11.000");  // 110 / 10 ha
  // Activity 6 has only a 25-year row: zero elsewhere, per ha "0".
  for (int h = 1; h <= 7; ++h) EXPECT_EQ(ghg(2, 2 * h + 1), h == 4 ? "40" : "0");
  EXPECT_EQ(ghg(2, 2), "0");
  EXPECT_EQ(ghg(2, 16), "1");
}

TEST_F(RegionalImpactTest, AdaptationAndProductionMergeAndFinish) {
  choose(9, 1, 50, 100);
  region("DK011", 1);
  region("DK012", 2);
  activity(4, "Wheat", 2.5);
  add_ops({.area = 1,
           .op = 9,
           .type = 3,
           .value = 10.4,
           .impact_area = 100,
           .category = 11,
           .max = 50,
           .dq = 2});
  add_ops({.area = 2,
           .op = 9,
           .type = 3,
           .value = 20,
           .impact_area = 300,
           .category = 11,
           .max = 70,
           .dq = 4});
  add_ops({.area = 1, .op = 9, .type = 3, .value = 30, .impact_area = 100, .category = 12});
  add_ops({.area = 2, .op = 9, .activity = 4, .type = 4, .value = 4, .impact_area = 300, .dq = 5});
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 9, explorer_state()), ImpactStatus::done);
  // Area: 100 × 0.5 + 300 × 0.5 = 200 ha.
  EXPECT_DOUBLE_EQ(ex().op_total_area, 200);
  const GridTable& a = ex().adaptation_activity_table;
  ASSERT_EQ(a.rows(), 3);
  // Category 11: round0(10.4) × 0.5 + 20 × 0.5 = 15; maximum 50 + 70 unscaled.
  EXPECT_EQ(a.cell(1, 2), "11");
  EXPECT_EQ(a.cell(1, 4), "15");
  EXPECT_EQ(a.cell(1, 5), "120");
  EXPECT_EQ(a.cell(1, 3), "0.075");  // 15 / 200
  EXPECT_EQ(a.cell(2, 4), "15");
  EXPECT_EQ(a.cell(2, 5), "0");  // no maximum stored
  EXPECT_DOUBLE_EQ(ex().risk_reduction_sum, 0.15);
  // Production: 4 × Norm_factor 2.5 = 10 per year, × 0.5 = 5; per ha 0.025.
  const GridTable& p = ex().production_activity_table;
  ASSERT_EQ(p.rows(), 2);
  EXPECT_EQ(p.cell(1, 3), "5");
  EXPECT_EQ(p.cell(1, 2), "0.025");
  EXPECT_EQ(p.cell(1, 15), "1250");
  EXPECT_EQ(p.cell(1, 16), "5");
  EXPECT_DOUBLE_EQ(ex().dq_adaptation, 3);
  EXPECT_DOUBLE_EQ(ex().dq_production, 5);
  EXPECT_DOUBLE_EQ(ex().dq_overall, 11.0 / 3);
}

TEST_F(RegionalImpactTest, EmptyResultsAndZeroAreas) {
  choose(7, 1, 50, 40);
  file_db_->exec("UPDATE Operations SET TArea = 99");
  region("DK011", 1);
  // No rows in any area: titles only, area 0, TArea 0.
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(ex().ghg_activity_table.rows(), 1);
  EXPECT_EQ(ex().adaptation_activity_table.rows(), 1);
  EXPECT_EQ(ex().production_activity_table.rows(), 1);
  EXPECT_EQ(ex().op_total_area, 0);
  EXPECT_EQ(file_value("SELECT TArea FROM Operations").as_double(), 0);

  // Operation 0 changes nothing at all.
  ex().op_total_area = 12;
  ex().ghg_activity_table.add_row();
  get_impact_data_direct_MT(ui_, 0, explorer_state());
  EXPECT_EQ(ex().op_total_area, 12);
  EXPECT_EQ(ex().ghg_activity_table.rows(), 2);

  // An impact area of 0: totals stand, every per-hectare figure is zero.
  add_ops({.value = 100, .impact_area = 0});
  add_ops({.type = 3, .value = 100, .impact_area = 0, .category = 11});
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(ex().op_total_area, 0);
  EXPECT_EQ(ghg(1, 3), "20");  // 100 × 0.5 × 0.4
  EXPECT_EQ(ghg(1, 2), "0");
  EXPECT_EQ(ex().adaptation_activity_table.cell(1, 3), "0.000");

  // An unknown technique scales every value and the area to 0.
  file_db_->exec("UPDATE Operations SET \"Scaling up technique\" = 3");
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(ghg(1, 3), "0");
  EXPECT_EQ(ghg(1, 15), "0");

  // Without any region the message is shown and the tables are emptied.
  file_db_->exec("DELETE FROM Regions");
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "No region defined");
  EXPECT_EQ(ex().ghg_activity_table.rows(), 1);
}

TEST_F(RegionalImpactTest, UnchosenOperationTakesStoreSettingsWithDefaultUptake) {
  store_->insert("Operations", {"Operation ID", "Scaling up technique", "ST Value", "Uptake"},
                 {int64_t{7}, 1, 100.0, 10.0});
  session().def_uptake = 25;
  region("DK011", 1);
  add_ops({.value = 40, .impact_area = 80});
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_DOUBLE_EQ(ex().op_total_area, 20);  // 80 × 1 × 0.25, not × 0.10
  EXPECT_EQ(ghg(1, 3), "10");
  EXPECT_EQ(file_value("SELECT count(*) FROM Operations").as_int(), 0);
}

TEST_F(RegionalImpactTest, ScalingTechniques) {
  double carry = 0;
  // Boundary: 1000 ha of 4 ha fields = 250 fields of side 200 m; a 5 m strip is
  // (195 × 4) × 5 = 3900 m² = 0.39 ha, 97.5 ha in all, a share of 0.0975.
  const AreaGeometry area{1000, 4};
  ScalingSettings st{2, 5, 50, 0, 10};
  EXPECT_DOUBLE_EQ(treated_area(area, st), 97.5);
  EXPECT_DOUBLE_EQ(scale_area_value(1000, area, st, carry), 97.5 * 0.5 * 0.9);
  // A strip wider than the field: (200 − 250) × 4 × 250 m² per field, negative.
  st.st_value = 250;
  EXPECT_DOUBLE_EQ(treated_area(area, st), -1250);
  EXPECT_LT(scale_area_value(1000, area, st, carry), 0);
  // No impact area: a share of 0, no division.
  EXPECT_EQ(scale_area_value(1000, {0, 4}, st, carry), 0);
  EXPECT_THROW(scale_area_value(1000, {1000, 0}, st, carry), ImpactError);
  // Another technique repeats the working value × uptake × TEA, compounding.
  st = {3, 5, 50, 0, 20};
  carry = 10;
  EXPECT_DOUBLE_EQ(scale_area_value(999, area, st, carry), 4);
  EXPECT_DOUBLE_EQ(scale_area_value(999, area, st, carry), 1.6);
  EXPECT_EQ(treated_area(area, st), 0);
  // Hectare: a share of a 1 ha field; TEA included means no reduction.
  st = {1, 30, 50, 1, 20};
  EXPECT_DOUBLE_EQ(scale_area_value(200, area, st, carry), 30);
  EXPECT_DOUBLE_EQ(treated_area(area, st), 300);
}

TEST_F(RegionalImpactTest, BadInputIsReportedAndChangesNothing) {
  choose(7, 1, 50, 40);
  region("DK011", 1);
  add_ops({.value = 10});
  ASSERT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::done);
  const std::string before_path = session().ops_db_path;

  struct Case {
    const char* what;
    std::function<void()> setup;
    const char* title;
  };
  const std::vector<Case> cases = {
      {"country store not installed", [&] { region("DE111", 4); }, "Country data not installed"},
      {"code of one letter", [&] { region("D", 4); }, "Invalid region"},
      {"boundary over fields of 0 ha",
       [&] {
         file_db_->exec("UPDATE Operations SET \"Scaling up technique\" = 2");
         add_ops({.area = 4, .value = 10, .field = 0});
         region("DK014", 4);
       },
       "Cannot calculate regional impact"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    file_db_->exec("DELETE FROM Regions WHERE \"NUTS ID\" = 4");
    file_db_->exec("UPDATE Operations SET \"Scaling up technique\" = 1");
    c.setup();
    const std::string file_now = testing::read_file(file_);
    ui_.messages.clear();
    EXPECT_EQ(get_impact_data_direct_MT(ui_, 7, explorer_state()), ImpactStatus::failed);
    ASSERT_EQ(ui_.messages.size(), 1u);
    EXPECT_EQ(ui_.messages[0].title, c.title);
    EXPECT_EQ(testing::read_file(file_), file_now);
    EXPECT_EQ(ghg(1, 3), "2");  // the last result stays
    EXPECT_EQ(session().ops_db_path, before_path);
    // The summary step stops at the same failure, without an exception.
    EXPECT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::failed);
  }
}

TEST_F(RegionalImpactTest, TotalRegionalAreaStartsFromTheWholeLand) {
  region("DK011", 1, 3, 10);  // 1000 ha
  store_->insert("NUTS3", {"NUTS3_ID", "AV_FS"}, {int64_t{1}, 4.0});
  double total = -1;
  ASSERT_EQ(get_operation_tot_reg_area(ui_, 50, 1, 20, total), ImpactStatus::done);
  EXPECT_DOUBLE_EQ(total, 100);  // 1000 × 0.5 × 0.2
  // Boundary over the 500 ha taken up: 125 fields × 0.39 ha.
  ASSERT_EQ(get_operation_tot_reg_area(ui_, 50, 2, 5, total), ImpactStatus::done);
  EXPECT_DOUBLE_EQ(total, 48.75);
  ASSERT_EQ(get_operation_tot_reg_area(ui_, 50, 3, 5, total), ImpactStatus::done);
  EXPECT_DOUBLE_EQ(total, 500);
  store_->exec("UPDATE NUTS3 SET AV_FS = 0");
  EXPECT_EQ(get_operation_tot_reg_area(ui_, 50, 2, 5, total), ImpactStatus::failed);
  EXPECT_EQ(total, 0);
  EXPECT_EQ(ui_.messages.size(), 1u);
}

// ---- summaries ----

TEST_F(SummariesTest, CarbonSettingLeavesSequestrationOutOfTheSumOnly) {
  choose(8, 1, 100, 100);
  region("DK011", 1);
  add_ops({.op = 8, .value = 2.4, .impact_area = 10});
  add_ops({.op = 8, .activity = 6, .type = 2, .value = 40, .impact_area = 10, .cseq = 25});
  activity(6, "apple hedge");
  ASSERT_EQ(operation_impact(ui_, 8, explorer_state()), ImpactStatus::done);
  const GridTable& sum = ex().ghg_summary_table;
  EXPECT_EQ(sum.cell(0, 7), "250");
  EXPECT_EQ(sum.cell(1, 0), "tCO2e (total)");
  // 25 years: round0(2.4 × 25) + 40 = 100, per ha 10; 1 year: 2, per ha 0.2.
  EXPECT_EQ(sum.cell(1, 4), "100");
  EXPECT_EQ(sum.cell(2, 4), "10");
  EXPECT_EQ(sum.cell(2, 1), "0.2");
  // Rows sorted by name without regard to case.
  EXPECT_EQ(ghg(1, 1), "apple hedge");

  session().cseq_included = 0;
  operation_impact_sum_data(explorer_state());
  EXPECT_EQ(sum.cell(1, 4), "60");
  EXPECT_EQ(ghg(1, 9), "40");  // the activity row keeps its value
  // No data rows: 0 totals and "0" per hectare.
  reset_ghg_activity_table(ex().ghg_activity_table);
  operation_impact_sum_data(explorer_state());
  EXPECT_EQ(sum.cell(1, 7), "0");
  EXPECT_EQ(sum.cell(2, 7), "0");
}

TEST_F(SummariesTest, ProductionPerHectareIsRoundedToWholeUnits) {
  choose(9, 1, 100, 100);
  region("DK011", 1);
  add_ops({.op = 9, .type = 4, .value = 4, .impact_area = 10});  // 0.4 per ha per year
  ASSERT_EQ(operation_impact(ui_, 9, explorer_state()), ImpactStatus::done);
  const GridTable& sum = ex().production_summary_table;
  EXPECT_EQ(sum.cell(1, 0), "Total");
  EXPECT_EQ(sum.cell(1, 1), "4");
  EXPECT_EQ(sum.cell(2, 1), "0");
  EXPECT_EQ(sum.cell(2, 2), "2");  // 20 / 10
}

// ---- the cache ----

TEST_F(ImpactCacheTest, SaveThenLoadGivesTheStoredShape) {
  chain_setup();
  activity(4, "Wheat");
  store_->insert("RVC_List", {"RVC ID", "Risk statement"},
                 {int64_t{11}, "Less flooding & erosion"});
  add_ops({.area = 1, .type = 3, .value = 10, .category = 11, .max = 40, .dq = 2, .refs = "3, 4"});
  add_ops({.area = 1, .activity = 4, .type = 4, .value = 50, .dq = 5, .refs = "4"});
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);

  auto count = [&](const char* table, int type) {
    return file_value(
               std::string("SELECT count(*) FROM \"") + table + "\" WHERE \"Impact type\" = ?",
               {type})
        .as_int();
  };
  EXPECT_EQ(count("Activity-Impact data", 1), 7);
  EXPECT_EQ(count("Activity-Impact data", 2), 1);
  EXPECT_EQ(count("Activity-Impact data", 4), 7);
  EXPECT_EQ(count("Operation-Impact data", 1), 7);
  EXPECT_EQ(count("Operation-Impact data", 2), 1);
  EXPECT_EQ(count("Operation-Impact data", 4), 7);
  // Adaptation: 10 × 0.16 = 1.6 of a maximum of 40, a risk reduction of 4.
  EXPECT_DOUBLE_EQ(
      file_value(
          "SELECT \"Risk reduction\" FROM \"Activity-Impact data\" WHERE \"Impact type\" = 2")
          .as_double(),
      4);
  EXPECT_DOUBLE_EQ(file_value("SELECT \"Regional risk reduction total\" FROM "
                              "\"Operation-Impact data\" WHERE \"Impact type\" = 2")
                       .as_double(),
                   4);
  // GHG totals come from the summary (2.7 rounded to 3); the keys appear once.
  EXPECT_DOUBLE_EQ(file_value("SELECT \"Regional impact total\" FROM \"Operation-Impact data\" "
                              "WHERE \"Impact type\" = 1 AND \"Time horizon\" = 1")
                       .as_double(),
                   3);
  EXPECT_EQ(
      file_value("SELECT Refs FROM \"Operation-Impact data\" WHERE \"Impact type\" = 1").as_text(),
      "1, 2");
  EXPECT_EQ(file_value("SELECT \"Carbon seq included\" FROM Version").as_int(), 1);

  reset_explorer_state();
  ASSERT_EQ(load_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_DOUBLE_EQ(ex().op_total_area, 30);
  EXPECT_EQ(ghg(1, 2), "0.091");
  EXPECT_EQ(ghg(1, 3), "3");
  EXPECT_EQ(ex().adaptation_shape, AdaptationShape::loaded);
  const GridTable& a = ex().adaptation_activity_table;
  ASSERT_EQ(a.cols(), 6);
  EXPECT_EQ(a.cell(1, 2), "Less flooding &amp; erosion");
  EXPECT_EQ(a.cell(1, 3), "4");
  EXPECT_DOUBLE_EQ(ex().risk_reduction_sum, 4);
  // A loaded per-hectare sum has one decimal: 2.7 / 30 = 0.09 stored, 0.1 shown.
  EXPECT_EQ(ex().ghg_summary_table.cell(2, 1), "0.1");
  EXPECT_EQ(ex().production_summary_table.cell(1, 1), "8");  // 50 × 0.16
  EXPECT_DOUBLE_EQ(ex().dq_production, 5);
  // A loaded table is not saved back.
  EXPECT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::failed);
}

TEST_F(ImpactCacheTest, OperationWithoutRowsSavesSevenZeroRows) {
  choose(7, 1, 50, 40);
  region("DK011", 1);
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);
  EXPECT_EQ(file_value("SELECT count(*) FROM \"Activity-Impact data\"").as_int(), 0);
  EXPECT_EQ(file_value("SELECT count(*) FROM \"Operation-Impact data\"").as_int(), 7);
  EXPECT_EQ(file_value("SELECT count(*) FROM \"Operation-Impact data\" WHERE \"Impact type\" = 1 "
                       "AND \"Regional impact total\" = 0 AND \"Regional impact ha\" = 0")
                .as_int(),
            7);
}

TEST_F(ImpactCacheTest, FailedSaveKeepsTheOldRows) {
  chain_setup();
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);
  // New settings double every figure; the store then fails half way through.
  file_db_->exec("UPDATE Operations SET \"ST Value\" = 100");
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(ghg(1, 3), "5.4");
  file_db_->exec_script(
      "CREATE TRIGGER fail BEFORE INSERT ON \"Operation-Impact data\" "
      "BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  EXPECT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::failed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_NE(ui_.messages[0].text.find("disk full"), std::string::npos);
  EXPECT_EQ(file_value("SELECT count(*) FROM \"Activity-Impact data\"").as_int(), 7);
  EXPECT_DOUBLE_EQ(file_value("SELECT \"Regional impact total\" FROM \"Activity-Impact data\" "
                              "WHERE \"Time horizon\" = 1")
                       .as_double(),
                   2.7);
  EXPECT_EQ(file_value("SELECT count(*) FROM \"Operation-Impact data\"").as_int(), 7);
}

TEST_F(ImpactCacheTest, StaleStatesAskBeforeTheList) {
  EXPECT_EQ(cache_state(), CacheState::empty);
  choose(7, 1, 50, 40);
  EXPECT_EQ(cache_state(), CacheState::current);  // carbon setting never recorded
  EXPECT_FALSE(show_stale_cache_page(ui_));

  file_db_->exec(
      "UPDATE Version SET \"Regional data changed\" = 'Yes', "
      "\"Carbon seq included\" = 0");
  EXPECT_EQ(cache_state(), CacheState::stale_region);
  ASSERT_TRUE(show_stale_cache_page(ui_));
  std::string page = testing::read_file(dir_ / "summary.htm");
  EXPECT_NE(page.find("Regional Profile Changed"), std::string::npos);
  EXPECT_NE(page.find("<a href=data_update.yes>Yes</a>"), std::string::npos);
  EXPECT_NE(page.find("<a href=data_update.xno>No</a>"), std::string::npos);
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:summary.htm");

  int shown = 0;
  ImpactCacheHooks hooks;
  hooks.show_first_operation = [&](Ui&) { ++shown; };
  EXPECT_TRUE(data_update_link(ui_, "data_update.xno", hooks));
  EXPECT_EQ(shown, 1);
  EXPECT_EQ(cache_state(), CacheState::stale_region);  // the question comes back

  file_db_->exec("UPDATE Version SET \"Regional data changed\" = 'No'");
  EXPECT_EQ(cache_state(), CacheState::stale_carbon);
  ASSERT_TRUE(show_stale_cache_page(ui_));
  page = testing::read_file(dir_ / "summary.htm");
  EXPECT_NE(page.find("Carbon Sequestration Settings Changed"), std::string::npos);
  session().cseq_included = 0;
  EXPECT_EQ(cache_state(), CacheState::current);
}

TEST_F(ImpactCacheTest, DataUpdateRecalculatesListedOrAllOperations) {
  chain_setup();
  choose(8, 1, 100, 100);
  auto sentinel = [&](int64_t op) {
    return file_value(
               "SELECT count(*) FROM \"Operation-Impact data\" WHERE \"Operation ID\" = ? "
               "AND \"Regional impact total\" = 999",
               {op})
               .as_int() == 1;
  };
  file_db_->exec(
      "INSERT INTO \"Operation-Impact data\" (\"Operation ID\", \"Impact type\", "
      "\"Regional impact total\") VALUES (7, 1, 999), (8, 1, 999)");
  file_db_->exec("UPDATE Version SET \"Regional data changed\" = 'Yes'");
  int rebuilt = 0, reselected = 0;
  ImpactCacheHooks hooks;
  hooks.rebuild_lists = [&](Ui&) {
    EXPECT_TRUE(ex().update_running);
    ++rebuilt;
  };
  hooks.after_update = [&](Ui&) {
    EXPECT_FALSE(ex().update_running);
    ++reselected;
  };

  // A list: only its operations, no question, and the flag is cleared.
  ex().recalc_list = {8};
  EXPECT_EQ(data_update(ui_, hooks), ImpactStatus::done);
  EXPECT_TRUE(ui_.messages.empty());
  EXPECT_FALSE(sentinel(8));
  EXPECT_TRUE(sentinel(7));
  EXPECT_TRUE(ex().recalc_list.empty());
  EXPECT_EQ(cache_state(), CacheState::current);
  EXPECT_EQ(rebuilt, 1);
  EXPECT_EQ(reselected, 1);
  EXPECT_EQ(ui_.last_progress.second, 0);  // hidden again

  // No list: the user is asked; No changes nothing.
  file_db_->exec("UPDATE Version SET \"Regional data changed\" = 'Yes'");
  ui_.answers = {Answer::No};
  EXPECT_EQ(data_update(ui_, hooks), ImpactStatus::declined);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Recalculate impact data");
  EXPECT_TRUE(sentinel(7));
  EXPECT_EQ(cache_state(), CacheState::stale_region);

  // Yes recalculates them all.
  EXPECT_EQ(data_update(ui_, hooks), ImpactStatus::done);
  EXPECT_FALSE(sentinel(7));
  EXPECT_EQ(cache_state(), CacheState::current);
}

TEST_F(ImpactCacheTest, FailedRecalculationLeavesTheFileAsItWas) {
  chain_setup();
  choose(8, 2, 5, 100);
  add_ops({.area = 2, .op = 8, .value = 5, .field = 0});  // a boundary over 0 ha fields
  file_db_->exec(
      "INSERT INTO \"Operation-Impact data\" (\"Operation ID\", \"Impact type\", "
      "\"Regional impact total\") VALUES (7, 1, 999)");
  file_db_->exec("UPDATE Version SET \"Regional data changed\" = 'Yes'");
  const std::string before = testing::read_file(file_);
  ex().recalc_list = {7, 8};
  EXPECT_EQ(data_update(ui_), ImpactStatus::failed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Cannot calculate regional impact");
  EXPECT_EQ(testing::read_file(file_), before);  // operation 7 was recalculated, then rolled back
  EXPECT_EQ(ex().recalc_list.size(), 2u);
  EXPECT_FALSE(ex().update_running);
}

}  // namespace
}  // namespace arven
