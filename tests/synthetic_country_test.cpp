#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "bench/synthetic_country.h"
#include "core/registry.h"
#include "stores/db.h"

namespace arven::synth {
namespace {

namespace fs = std::filesystem;

Options small(const fs::path& out, uint32_t seed = 7) {
  Options o;
  o.out = out;
  o.nuts3 = 12;
  o.operations = 10;
  o.activities = 40;
  o.rvcs = 24;
  o.seed = seed;
  return o;
}

// Every table of a store as text, rows in store order, values tagged by kind.
std::vector<std::string> contents(const fs::path& file) {
  Db db = Db::open(file);
  std::vector<std::string> out;
  for (const auto& t : db.table_names()) {
    out.push_back("table " + t);
    auto rows = db.query("SELECT * FROM " + quote_name(t) + " ORDER BY rowid");
    while (rows.next()) {
      std::string line;
      for (int i = 0; i < rows.column_count(); ++i) {
        Value v = rows.get(i);
        line += (v.is_null()   ? "N:"
                 : v.is_int()  ? "I:"
                 : v.is_real() ? "R:"
                               : "T:") +
                v.as_text() + "|";
      }
      out.push_back(line);
    }
  }
  return out;
}

class SyntheticCountry : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = fs::temp_directory_path() / ("arven_synth_test_" + std::to_string(::getpid()));
    generate_country(small(dir_ / "a"));
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }
  static Db ops() { return Db::open(dir_ / "a" / "arven_operations.mdb"); }
  static Db rvcs() { return Db::open(dir_ / "a" / "arven_rvcs.mdb"); }
  static fs::path dir_;
};
fs::path SyntheticCountry::dir_;

struct AreaRow {
  std::string code;
  int parent = 0;  // id at the level above
  int nuts1 = 0;
  double sqkm = 0, gis = 0;
};

TEST_F(SyntheticCountry, AreasFormOneTreeWithCodesAndAreasOfTheirChildren) {
  Db db = rvcs();
  std::array<std::map<int, AreaRow>, 4> level;
  for (int k = 0; k <= 3; ++k) {
    const std::string lv = "NUTS" + std::to_string(k);
    auto rows = db.query("SELECT * FROM " + quote_name(lv));
    std::set<std::string> codes;
    while (rows.next()) {
      AreaRow a{
          rows.get("NUTS").as_text(),
          k == 0 ? 0 : static_cast<int>(rows.get("NUTS" + std::to_string(k - 1) + "_ID").as_int()),
          k >= 2 ? static_cast<int>(rows.get("NUTS1_ID").as_int()) : 0,
          rows.get("SQKM").as_double(), rows.get("GIS_AREA").as_double()};
      EXPECT_EQ(a.code.size(), 2u + static_cast<size_t>(k)) << a.code;
      EXPECT_TRUE(codes.insert(a.code).second) << "duplicate code " << a.code;
      EXPECT_GT(a.sqkm, 0);
      level[static_cast<size_t>(k)][static_cast<int>(rows.get(lv + "_ID").as_int())] = a;
    }
  }
  ASSERT_EQ(level[0].size(), 1u);
  EXPECT_EQ(level[0].begin()->first, country_index_by_code("SK"));
  EXPECT_EQ(level[0].begin()->second.code, "SK");
  EXPECT_EQ(level[3].size(), 12u);
  EXPECT_GE(level[1].size(), 1u);
  EXPECT_LE(level[1].size(), level[2].size());
  EXPECT_LT(level[2].size(), level[3].size());

  // Each child names an existing parent, extends its code, and a parent's
  // area is the sum of its children's.
  for (size_t k = 1; k <= 3; ++k) {
    std::map<int, std::pair<double, double>> sums;
    for (const auto& [id, a] : level[k]) {
      auto p = level[k - 1].find(a.parent);
      ASSERT_NE(p, level[k - 1].end()) << a.code << " has no parent";
      EXPECT_EQ(a.code.substr(0, a.code.size() - 1), p->second.code);
      if (k == 3) {
        EXPECT_EQ(a.nuts1, p->second.parent) << a.code;
      }
      sums[a.parent].first += a.sqkm;
      sums[a.parent].second += a.gis;
    }
    ASSERT_EQ(sums.size(), level[k - 1].size()) << "a parent without children at level " << k;
    for (const auto& [pid, s] : sums) {
      EXPECT_NEAR(level[k - 1][pid].sqkm, s.first, 1e-6);
      EXPECT_NEAR(level[k - 1][pid].gis, s.second, 1e-6);
    }
  }
}

TEST_F(SyntheticCountry, EveryAreaSplitsEveryRvcIntoWholePercentagesOf100) {
  Db db = rvcs();
  std::map<int, std::pair<int, int>> range;  // RVC ID -> min, max
  auto list = db.query("SELECT * FROM RVC_List");
  while (list.next())
    range[static_cast<int>(list.get("RVC ID").as_int())] = {
        static_cast<int>(list.get("RVC min").as_int()),
        static_cast<int>(list.get("RVC max").as_int())};
  ASSERT_EQ(range.size(), 24u);

  // NUTS3 shares, to check the NUTS2 aggregation against.
  std::map<std::pair<int, int>, std::map<int, int>> n3;  // (area, rvc) -> class -> percent
  std::map<int, std::pair<int, double>> n3_area;         // area -> NUTS2 parent, GIS area
  for (int k = 3; k >= 0; --k) {
    const std::string lv = "NUTS" + std::to_string(k);
    auto areas = db.query("SELECT count(*) FROM " + quote_name(lv));
    areas.next();
    const int64_t n_areas = areas.get(0).as_int();
    std::map<std::pair<int, int>, std::map<int, int>> dist;
    auto rows = db.query("SELECT * FROM " + quote_name(lv + "_RVC_Data_Dist"));
    while (rows.next()) {
      const int rvc = static_cast<int>(rows.get("RVC ID").as_int());
      const double cls = rows.get("RVC Class").as_double();
      const int pct = static_cast<int>(rows.get("Percent").as_int());
      ASSERT_TRUE(range.count(rvc)) << "unknown RVC " << rvc;
      EXPECT_GE(cls, range[rvc].first);
      EXPECT_LE(cls, range[rvc].second);
      EXPECT_GT(pct, 0);
      dist[{static_cast<int>(rows.get(lv + "_ID").as_int()), rvc}][static_cast<int>(cls)] = pct;
    }
    EXPECT_EQ(dist.size(), static_cast<size_t>(n_areas) * range.size()) << lv;
    for (const auto& [key, classes] : dist) {
      int sum = 0;
      for (const auto& [c, p] : classes) sum += p;
      EXPECT_EQ(sum, 100) << lv << " area " << key.first << " RVC " << key.second;
    }
    auto data = db.query("SELECT count(*) FROM " + quote_name(lv + "_RVC_Data"));
    data.next();
    EXPECT_EQ(data.get(0).as_int(), n_areas * static_cast<int64_t>(range.size())) << lv;

    if (k == 3) {
      n3 = dist;
      auto a = db.query("SELECT * FROM NUTS3");
      while (a.next())
        n3_area[static_cast<int>(a.get("NUTS3_ID").as_int())] = {
            static_cast<int>(a.get("NUTS2_ID").as_int()), a.get("GIS_AREA").as_double()};
    } else if (k == 2) {
      // A NUTS2 share is its NUTS3 areas' shares weighted by GIS area, to
      // within the rounding to whole percentages.
      for (const auto& [key, classes] : dist) {
        std::map<int, double> class_area;
        double total = 0;
        for (const auto& [id, parent_gis] : n3_area) {
          if (parent_gis.first != key.first) continue;
          total += parent_gis.second;
          for (const auto& [c, p] : n3[{id, key.second}]) class_area[c] += parent_gis.second * p;
        }
        for (const auto& [c, a] : class_area) {
          const auto it = classes.find(c);
          EXPECT_NEAR(it == classes.end() ? 0 : it->second, a / total, 1.0)
              << "NUTS2 " << key.first << " RVC " << key.second << " class " << c;
        }
      }
    }
  }
}

TEST_F(SyntheticCountry, DeltasAreOperationMinusBaselineDetailsAndNeverZero) {
  Db db = ops();
  using Key = std::tuple<int, int, int, int>;  // owner, activity, RVC, class
  auto details = [&](const char* table, const char* owner) {
    std::map<Key, std::string> out;
    auto rows = db.query(std::string("SELECT * FROM ") + quote_name(table));
    while (rows.next())
      out[{static_cast<int>(rows.get(owner).as_int()),
           static_cast<int>(rows.get("Activity ID").as_int()),
           static_cast<int>(rows.get("RVC ID").as_int()),
           static_cast<int>(rows.get("RVC Class").as_int())}] = rows.get("Details").as_text();
    return out;
  };
  const auto op = details("Operation_Activity_Details", "Operation ID");
  const auto base = details("Baseline_Activity_Details", "Baseline ID");

  // The deltas the delta calculation would make from the details.
  std::multiset<std::tuple<int, int, int, int, int, std::string>> expected, stored;
  auto pairs = db.query("SELECT * FROM Delta_List");
  while (pairs.next()) {
    const int o = static_cast<int>(pairs.get("Operation ID").as_int());
    const int b = static_cast<int>(pairs.get("Baseline ID").as_int());
    for (const auto& [k, text] : op) {
      if (std::get<0>(k) != o) continue;
      auto bt = base.find({b, std::get<1>(k), std::get<2>(k), std::get<3>(k)});
      ASSERT_NE(bt, base.end()) << "operation " << o << " detail without a baseline row";
      if (bt->second == "Multi") {
        expected.insert({o, b, std::get<1>(k), 0, 0, "Multi"});
      } else {
        const double d = std::stod(text) - std::stod(bt->second);
        if (d != 0)
          expected.insert(
              {o, b, std::get<1>(k), std::get<2>(k), std::get<3>(k), std::to_string(d)});
      }
    }
  }
  std::set<int> adaptation, with_deltas;
  auto ad = db.query("SELECT * FROM Adaptation_Activity_Impact_Factors");
  while (ad.next()) adaptation.insert(static_cast<int>(ad.get("Activity ID").as_int()));
  auto rows = db.query("SELECT * FROM Operation_Activity_Delta");
  while (rows.next()) {
    const std::string delta = rows.get("Delta").as_text();
    const int activity = static_cast<int>(rows.get("Activity ID").as_int());
    if (delta == "Multi")
      EXPECT_EQ(adaptation.count(activity), 0u) << "Multi on adaptation activity " << activity;
    else
      EXPECT_NE(std::stod(delta), 0.0);
    with_deltas.insert(static_cast<int>(rows.get("Operation ID").as_int()));
    stored.insert({static_cast<int>(rows.get("Operation ID").as_int()),
                   static_cast<int>(rows.get("Baseline ID").as_int()), activity,
                   static_cast<int>(rows.get("RVC ID").as_int()),
                   static_cast<int>(rows.get("RVC Class").as_int()),
                   delta == "Multi" ? delta : std::to_string(std::stod(delta))});
  }
  EXPECT_EQ(stored, expected);
  EXPECT_EQ(with_deltas.size(), 10u) << "an operation without deltas never takes part in a run";
}

TEST_F(SyntheticCountry, FactorRowsResolveAgainstTheRvcStore) {
  Db r = rvcs();
  std::map<int, int> type;  // RVC ID -> RVC Type
  std::set<int> corine;
  auto list = r.query("SELECT * FROM RVC_List");
  while (list.next()) {
    const int id = static_cast<int>(list.get("RVC ID").as_int());
    EXPECT_LE(id, 400);
    type[id] = static_cast<int>(list.get("RVC Type").as_int());
    if (type[id] == 5) corine.insert(static_cast<int>(list.get("CORINE Class").as_int()));
    if (type[id] == 6 || type[id] == 7) {
      EXPECT_EQ(type[static_cast<int>(list.get("RVC Parent").as_int())], type[id] == 6 ? 1 : 2);
    }
  }
  EXPECT_TRUE(type.count(19));
  EXPECT_EQ(corine, (std::set<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
  std::set<std::tuple<int, int, int, int>> combos;
  auto look = r.query("SELECT * FROM Baseline_Impact_Look_Up");
  while (look.next()) {
    EXPECT_EQ(type[static_cast<int>(look.get("Combo RVC").as_int())], 8);
    combos.insert({static_cast<int>(look.get("Baseline RVC").as_int()),
                   static_cast<int>(look.get("Baseline RVC Class").as_int()),
                   static_cast<int>(look.get("Impact RVC").as_int()),
                   static_cast<int>(look.get("Impact RVC Class").as_int())});
  }

  Db o = ops();
  auto ad = o.query("SELECT * FROM Adaptation_Activity_Impact_Factors");
  while (ad.next())
    EXPECT_EQ(type[static_cast<int>(ad.get("RVC ID").as_int())], 1)
        << "adaptation factor not on an impact RVC";
  std::set<int> mitigation_types;
  int equilibria = 0, generic = 0, via_combo = 0;
  auto mit = o.query("SELECT * FROM Mitigation_Activity_Emission_Factors");
  while (mit.next()) {
    const int id = static_cast<int>(mit.get("RVC ID").as_int());
    EXPECT_TRUE(type.count(id)) << "factor on unknown RVC " << id;
    mitigation_types.insert(static_cast<int>(mit.get("Mitigation Type").as_int()));
    equilibria += !mit.get("Equilibrium").is_empty();
    generic += id == 19;
  }
  // Class rows of a class-by-class delta meet non-generic factor rows
  // through the combo look-up.
  auto q = o.query(
      "SELECT d.\"RVC ID\", d.\"RVC Class\", f.\"RVC ID\", f.\"RVC Value\" FROM "
      "Operation_Activity_Delta d JOIN Mitigation_Activity_Emission_Factors f "
      "ON f.\"Activity ID\" = d.\"Activity ID\" WHERE d.\"RVC ID\" <> 0 AND f.\"RVC ID\" <> 19");
  while (q.next())
    via_combo +=
        combos.count({static_cast<int>(q.get(0).as_int()), static_cast<int>(q.get(1).as_int()),
                      static_cast<int>(q.get(2).as_int()), static_cast<int>(q.get(3).as_int())});
  EXPECT_EQ(mitigation_types, (std::set<int>{1, 2}));
  EXPECT_GT(equilibria, 0);
  EXPECT_GT(generic, 0);
  EXPECT_GT(via_combo, 0);
}

TEST_F(SyntheticCountry, SameSeedGivesIdenticalStoresAndAnotherSeedDoesNot) {
  generate_country(small(dir_ / "b"));
  generate_country(small(dir_ / "c", 8));
  for (const char* f : {"arven_operations.mdb", "arven_rvcs.mdb"}) {
    const auto a = contents(dir_ / "a" / f);
    EXPECT_EQ(a, contents(dir_ / "b" / f)) << f;
    EXPECT_NE(a, contents(dir_ / "c" / f)) << f;
  }
}

TEST(SyntheticCountryOptions, ParsesArgumentsAndRefusesBadOnes) {
  const Options o =
      parse_options({"--out", "x", "--country", "dk", "--nuts3", "50", "--seed", "9"});
  EXPECT_EQ(o.country, "DK");
  EXPECT_EQ(o.nuts3, 50);
  EXPECT_EQ(o.seed, 9u);
  EXPECT_EQ(o.operations, 300);
  for (const auto& bad : std::vector<std::vector<std::string>>{{},
                                                               {"--country", "SK"},
                                                               {"--out", "x", "--country", "XX"},
                                                               {"--out", "x", "--nuts3", "0"},
                                                               {"--out", "x", "--nuts3", "12a"},
                                                               {"--out", "x", "--rvcs", "12"},
                                                               {"--out", "x", "--activities", "2"},
                                                               {"--out", "x", "--size", "3"},
                                                               {"--out", "x", "--seed"}})
    EXPECT_THROW(parse_options(bad), std::invalid_argument) << bad.size();
}

}  // namespace
}  // namespace arven::synth
