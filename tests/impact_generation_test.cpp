#include "prep/impact_generation.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "stores/db.h"
#include "stores/schema.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

using Row = std::vector<std::string>;

Row row_of(const GridTable& t, int r) {
  Row out;
  for (int c = 0; c < t.cols(); ++c) out.push_back(t.cell(r, c));
  return out;
}

// Master stores with a few rows; every area is NUTS3 area 30 of 2 km² (200 ha).
class ImpactGenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ops_.emplace(create_operations_master(tmp_ / "ops.mdb"));
    rvc_.emplace(create_rvcs_master(tmp_ / "rvc.mdb"));
  }
  void activity(int id, const char* name) {
    ops_->insert("Activities", {"Activity ID", "Activity name"}, {id, name});
  }
  void delta(int op, int act, int rvc, int cls, const char* d) {
    ops_->insert("Operation_Activity_Delta",
                 {"Operation ID", "Activity ID", "RVC ID", "RVC Class", "Delta"},
                 {op, act, rvc, cls, d});
  }
  void mitigation(int act, int rvc, int value, int type, double tco2e, Value eq = nullptr,
                  Value refs = nullptr, Value dq = nullptr) {
    ops_->insert("Mitigation_Activity_Emission_Factors",
                 {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Equilibrium",
                  "Refs", "Data_Quality"},
                 {act, rvc, value, type, tco2e, eq, refs, dq});
  }
  void adaptation(int act, int rvc, double factor, Value refs = nullptr, Value dq = nullptr) {
    ops_->insert("Adaptation_Activity_Impact_Factors",
                 {"Activity ID", "RVC ID", "Impact factor", "Refs", "Data_Quality"},
                 {act, rvc, factor, refs, dq});
  }
  void yield(int act, int rvc, double y, Value refs = nullptr, Value dq = nullptr) {
    ops_->insert("Yield_Activity_Impact_Factors",
                 {"Activity ID", "RVC ID", "RVC Value", "Yield", "Refs", "Data_Quality"},
                 {act, rvc, 0, y, refs, dq});
  }
  void rvc(int id, int parent, int type, int corine, double n_factor = 0) {
    rvc_->insert("RVC_List", {"RVC ID", "RVC Parent", "RVC Type", "CORINE Class", "N factor"},
                 {id, parent, type, corine, n_factor});
  }
  void dist(int rvc, double cls, int percent) {
    rvc_->insert("NUTS3_RVC_Data_Dist", {"NUTS3_ID", "RVC ID", "RVC Class", "Percent"},
                 {30, rvc, cls, percent});
  }
  ImpactGenerator& gen() {
    source_.emplace(ImpactSource::load(tmp_ / "ops.mdb", tmp_ / "rvc.mdb"));
    generator_.emplace(*source_);
    return *generator_;
  }
  void run(int op, int corine = 0, double sqkm = 2) {
    generator_->gen_impact_data(op, corine, 30, 20, 10, 1, sqkm, 3);
  }

  arven::testing::TempDir tmp_;
  std::optional<Db> ops_, rvc_;
  std::optional<ImpactSource> source_;
  std::optional<ImpactGenerator> generator_;
};

TEST_F(ImpactGenTest, PlainDeltaAndMultiClassRowsFoldToAreaWeightedMean) {
  activity(10, "Tillage");
  delta(1, 10, 0, 0, "2");
  mitigation(10, 5, 3, 1, 1.5, nullptr, "4, 7", 3);
  dist(5, 2, 60);  // another class of the same RVC: not the one asked for
  dist(5, 3, 25);
  activity(11, "Grazing");
  delta(1, 11, 7, 0, "Multi");  // the marker adds nothing
  delta(1, 11, 7, 1, "0.5");
  delta(1, 11, 7, 2, "-1");
  mitigation(11, 19, 0, 1, 4);  // RVC 19: the delta row's RVC and class
  dist(7, 1, 40);
  dist(7, 2, 10);
  auto& g = gen();
  run(1);
  const GridTable& m = g.mitigation_rows();
  ASSERT_EQ(m.rows(), 3);
  EXPECT_EQ(row_of(m, 0), (Row{"Activity ID", "Activity/feature", "Regional impact (tCO2e) / ha",
                               "Regional impact (tCO2e) (total)", "Carbon sequestration",
                               "Data Quality", "Refs"}));
  // RVC 5 class 3 is 25% of 200 ha = 50 ha; 50 × 1.5 × delta 2 = 150, 3 per ha.
  EXPECT_EQ(row_of(m, 1), (Row{"10", "Tillage", "3.000", "150", "0", "3", "4, 7"}));
  // Class 1: 80 ha × 4 × 0.5 = 160 (2/ha). Class 2: 20 ha × 4 × -1 = -80 (-4/ha).
  // Folded: total 80 over 160/2 + -80/-4 = 100 ha: 0.8 per ha, not the mean -1.
  EXPECT_EQ(row_of(m, 2), (Row{"11", "Grazing", "0.8", "80", "0", "", ""}));
  EXPECT_EQ(g.adaptation_rows().rows(), 1);
  EXPECT_EQ(g.yield_rows().rows(), 1);

  run(99);  // no delta rows: every table back to its heading row
  EXPECT_EQ(g.mitigation_rows().rows(), 1);
}

TEST_F(ImpactGenTest, SharedRvcTakesCorineOrDeltaRvcAndCombosResolveOrSkip) {
  activity(20, "Hedges");
  delta(2, 20, 0, 0, "3");
  mitigation(20, 19, 0, 1, 0.5);
  rvc(41, 0, 6, 4);  // CORINE class 4 but not a CORINE RVC
  rvc(40, 0, 5, 4);
  rvc(42, 0, 5, 4);  // a second CORINE RVC of class 4: the first row counts
  dist(40, 1, 30);
  dist(42, 1, 80);
  activity(30, "Ponds");
  delta(3, 30, 8, 2, "1");
  mitigation(30, 19, 0, 1, 0.5);
  rvc(84, 8, 6, 4);  // child of RVC 8 for CORINE class 4
  dist(8, 2, 10);
  dist(84, 2, 50);
  activity(40, "Trees");
  delta(4, 40, 8, 2, "1");
  mitigation(40, 6, 4, 1, 9);  // no combination: skipped
  mitigation(40, 6, 3, 1, 2);
  rvc_->insert("Baseline_Impact_Look_Up",
               {"Baseline RVC", "Baseline RVC Class", "Impact RVC", "Impact RVC Class", "Combo RVC",
                "Combo Class"},
               {8, 2, 6, 3, 60, 1});
  rvc_->insert("Baseline_Impact_Look_Up",
               {"Baseline RVC", "Baseline RVC Class", "Impact RVC", "Impact RVC Class", "Combo RVC",
                "Combo Class"},
               {8, 2, 6, 3, 61, 1});  // a later duplicate: the first row counts
  dist(60, 1, 20);
  dist(61, 1, 90);
  auto& g = gen();
  auto cells = [&] { return Row{g.mitigation_rows().cell(1, 2), g.mitigation_rows().cell(1, 3)}; };

  run(2, 0);  // no land class: the whole 200 ha, 200 × 0.5 × 3 = 300
  EXPECT_EQ(cells(), (Row{"1.500", "300"}));
  run(2, 4);  // CORINE RVC 40, class 1: 60 ha × 0.5 × 3 = 90
  EXPECT_EQ(cells(), (Row{"1.500", "90"}));
  run(3, 0);  // RVC 8 class 2: 20 ha × 0.5 = 10
  EXPECT_EQ(cells(), (Row{"0.500", "10"}));
  run(3, 4);  // its CORINE child 84, class 2: 100 ha × 0.5 = 50
  EXPECT_EQ(cells(), (Row{"0.500", "50"}));
  run(4, 0);  // combination RVC 60 class 1: 40 ha × 2 = 80; the second factor adds nothing
  EXPECT_EQ(cells(), (Row{"2.000", "80"}));
  EXPECT_THROW(run(2, 7), StoreError);  // no CORINE RVC for class 7
}

TEST_F(ImpactGenTest, CarbonSequestrationHorizonsAndEquilibrium) {
  activity(40, "Woodland");
  delta(4, 40, 0, 0, "1");
  mitigation(40, 19, 0, 2, 2, 30.0);  // 2 a year up to 30
  activity(41, "Soil");
  delta(5, 41, 0, 0, "1");
  mitigation(41, 19, 0, 2, 2);  // type 2 but no equilibrium
  activity(42, "Peat");
  delta(6, 42, 0, 0, "1");
  mitigation(42, 19, 0, 1, 1, 3.0);
  mitigation(42, 19, 0, 1, 1, 100.0);
  activity(43, "Scrub");
  delta(7, 43, 0, 0, "1");
  mitigation(43, 19, 0, 1, 1);  // the first row has no equilibrium: none counts
  mitigation(43, 19, 0, 1, 1, 5.0);
  auto& g = gen();

  run(4);  // 200 ha × f, f = 2 × years until it reaches 30 (year 15)
  const GridTable& m = g.mitigation_rows();
  ASSERT_EQ(m.rows(), 8);
  const std::vector<Row> want = {{"2.000", "400", "1"},    {"10.000", "2000", "5"},
                                 {"20.000", "4000", "10"}, {"30.000", "6000", "25"},
                                 {"30.000", "6000", "50"}, {"30.000", "6000", "100"},
                                 {"30.000", "6000", "250"}};
  for (int r = 1; r <= 7; ++r)
    EXPECT_EQ((Row{m.cell(r, 2), m.cell(r, 3), m.cell(r, 4)}), want[r - 1]) << r;

  run(5);  // seven rows of 2/ha, 400 each, fold into one of 2800
  ASSERT_EQ(m.rows(), 2);
  EXPECT_EQ((Row{m.cell(1, 2), m.cell(1, 3), m.cell(1, 4)}), (Row{"2", "2800", "0"}));

  // The horizon stays at 250 from the call before: the first row stops at 3,
  // the second goes on from 3 to 100; (3 + 100) × 200 ha = 20600.
  run(6);
  EXPECT_EQ((Row{m.cell(1, 2), m.cell(1, 3), m.cell(1, 4)}), (Row{"51.500", "20600", "250"}));
  g.set_time_horizon(5);  // 3, then 3 + 5 = 8: (3 + 8) × 200 = 2200
  run(6);
  EXPECT_EQ((Row{m.cell(1, 2), m.cell(1, 3), m.cell(1, 4)}), (Row{"5.500", "2200", "5"}));
  run(7);  // plain factors: 200 × 1 + 200 × 1 = 400 over 400 ha
  EXPECT_EQ((Row{m.cell(1, 2), m.cell(1, 3), m.cell(1, 4)}), (Row{"1.000", "400", "0"}));
}

TEST_F(ImpactGenTest, AdaptationVisitsEveryClassWithTheFactorRowsNFactor) {
  activity(50, "Buffer strips");
  delta(8, 50, 0, 0, "2");
  adaptation(50, 12, 0.5, "9", 2);
  adaptation(50, 13, 1);
  rvc(12, 0, 1, 0, 1.5);
  rvc(13, 0, 1, 0, 2);
  rvc(124, 12, 6, 4, 10);  // CORINE child of 12, with an N factor of its own
  dist(12, 0, 50);
  dist(12, 1, 30);
  dist(12, 3, 20);
  dist(13, 2, 100);
  dist(124, 1, 100);
  activity(51, "Wetland");
  delta(9, 51, 0, 0, "Multi");
  adaptation(51, 12, 1);
  activity(52, "Odd");
  delta(10, 52, 0, 0, "1");
  adaptation(52, 401, 1);
  dist(401, 1, 100);
  auto& g = gen();

  run(8);
  const GridTable& a = g.adaptation_rows();
  ASSERT_EQ(a.rows(), 3);
  // 100, 60, 40 ha in classes 0, 1, 3: (0 × 100 + 1 × 60 + 3 × 40) × 1.5 × 0.5 = 135,
  // × delta 2 = 270 over 200 ha.
  EXPECT_EQ(row_of(a, 1), (Row{"50", "Buffer strips", "12", "1.350", "270", "2", "9"}));
  // 200 ha of class 2: 2 × 2 × 200 × 1 × 2 = 1600.
  EXPECT_EQ(row_of(a, 2), (Row{"50", "Buffer strips", "13", "8.000", "1600", "", ""}));
  run(8, 4);  // child 124, 200 ha of class 1, but the N factor of 12: 1.5 × 200 × 0.5 × 2 = 300
  EXPECT_EQ((Row{a.cell(1, 3), a.cell(1, 4)}), (Row{"1.500", "300"}));

  try {
    run(9);
    FAIL() << "a Multi delta with adaptation factors must end the run";
  } catch (const ImpactDataError& e) {
    EXPECT_NE(std::string(e.what()).find(
                  "operation 9, activity 51, table \"Operation_Activity_Delta\", row "),
              std::string::npos)
        << e.what();
  }
  try {
    run(10);
    FAIL() << "RVC 401 has no N factor";
  } catch (const ImpactDataError& e) {
    EXPECT_NE(std::string(e.what()).find("RVC 401"), std::string::npos) << e.what();
  }
}

TEST_F(ImpactGenTest, YieldCountsEachFactorRowAndZeroAreaLeavesZeros) {
  activity(60, "Wheat");
  delta(11, 60, 0, 0, "1");
  delta(11, 60, 0, 0, "Multi");  // skipped in the yield pass
  yield(60, 19, 1, "5", 4);
  yield(60, 19, 3, "6", 1);
  auto& g = gen();
  run(11);
  // Each call: 200 × 1 + 200 × 3 = 800 over 400 ha; two such rows fold to 1600,
  // per hectare 1600 / (800/2 + 800/2) = 2.
  ASSERT_EQ(g.yield_rows().rows(), 2);
  EXPECT_EQ(row_of(g.yield_rows(), 0), (Row{"Activity ID", "Activity/feature", "Yield impact / ha",
                                            "Yield impact (total)", "Data quality", "Refs"}));
  EXPECT_EQ(row_of(g.yield_rows(), 1), (Row{"60", "Wheat", "2", "1600", "4", "5"}));
  run(11, 0, 0);
  EXPECT_EQ(row_of(g.yield_rows(), 1), (Row{"60", "Wheat", "0", "0", "4", "5"}));
}

TEST_F(ImpactGenTest, ActivitySumWeightsByAreaAndKeepsHorizonRowsApart) {
  auto& g = gen();
  GridTable& m = g.mitigation_rows();
  const std::vector<Row> rows = {{"5", "A", "2.000", "100", "0", "1", ""},
                                 {"6", "B", "1.000", "10", "5", "1", ""},
                                 {"5.0000001", "A", "0.000", "0.25", "0", "1", ""},
                                 {"6", "B", "1.000", "10", "10", "1", ""},
                                 {"5", "A", "4.000", "90", "0", "1", ""}};
  for (const auto& r : rows) {
    int i = m.add_row();
    for (int c = 0; c < 7; ++c) m.cell(i, c) = r[static_cast<size_t>(c)];
  }
  g.G1_Act_sum();
  ASSERT_EQ(m.rows(), 4);
  // Ids equal as 32-bit floats fold; the 0-per-ha row adds to the total only:
  // 190.25 / (100/2 + 90/4) = 2.6241..., rounded to 2.624.
  EXPECT_EQ(row_of(m, 1), (Row{"5", "A", "2.624", "190.25", "0", "1", ""}));
  EXPECT_EQ(row_of(m, 2), rows[1]);
  EXPECT_EQ(row_of(m, 3), rows[3]);
}

// Text where a master store needs a number stops the load and says where
// it stands: the table, the row and the column.
TEST_F(ImpactGenTest, TextInANumberColumnIsNamedByTableRowAndColumn) {
  activity(11, "Hedges");
  mitigation(11, 19, 0, 1, 4);
  ops_->insert("Mitigation_Activity_Emission_Factors", {"Activity ID", "RVC ID", "tCO2e"},
               {11, 19, "lots"});
  try {
    gen();
    FAIL() << "a factor that is no number must stop the load";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("table \"Mitigation_Activity_Emission_Factors\", row 2, "
                                         "column \"tCO2e\": \"lots\" is not a number"),
              std::string::npos)
        << e.what();
  }
}

}  // namespace
}  // namespace arven
