// The fast ways of the pre-processing run against the slow ones they
// replace: figures as numbers against text cells, and generation on several
// threads against one.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bench/synthetic_country.h"
#include "core/registry.h"
#include "core/session.h"
#include "prep/impact_generation.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "stores/db.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::TempDir;

synth::Options small_country(const std::filesystem::path& out, uint32_t seed) {
  synth::Options o;
  o.out = out;
  o.country = "LU";
  o.nuts3 = 14;
  o.operations = 40;
  o.seed = seed;
  return o;
}

std::vector<std::string> cells(const GridTable& t) {
  std::vector<std::string> out;
  for (int r = 0; r < t.rows(); ++r)
    for (int c = 0; c < t.cols(); ++c) out.push_back(t.cell(r, c));
  return out;
}

struct AreaIds {
  int level;
  int64_t ids[4];
  double sqkm;
};

// Every operation in every area of every level, on two seeds: the tables
// and the numbers of the numeric path are those of the text cells, and so
// is the time horizon each call leaves behind.
TEST(PreproIdentity, NumbersGiveTheCellsOfTheTextPath) {
  for (uint32_t seed : {3u, 11u}) {
    TempDir dir;
    synth::generate_country(small_country(dir.path(), seed));
    ImpactSource source = ImpactSource::load(dir / "arven_operations.mdb", dir / "arven_rvcs.mdb");
    Db rvc = Db::open(dir / "arven_rvcs.mdb");
    Db ops = Db::open(dir / "arven_operations.mdb");
    std::vector<AreaIds> areas;
    for (int k = 0; k <= 3; ++k) {
      auto rows = rvc.query("SELECT * FROM \"NUTS" + std::to_string(k) + "\" ORDER BY rowid");
      while (rows.next()) {
        AreaIds a{k, {0, 0, 0, 0}, rows.get("SQKM").as_double()};
        for (int p = 0; p <= k; ++p)
          a.ids[p] = rows.get("NUTS" + std::to_string(p) + "_ID").as_int();
        areas.push_back(a);
      }
    }
    std::vector<std::pair<int64_t, int64_t>> operations;  // id, CORINE class
    auto rows = ops.query("SELECT \"Operation ID\", \"CORINE Class\" FROM \"Operations\"");
    while (rows.next()) operations.emplace_back(rows.get(0).as_int(), rows.get(1).as_int());

    ImpactGenerator numbers(source), text(source);
    numbers.set_results_only(true);  // its tables are made when asked for
    text.set_text_cells(true);
    int calls = 0, horizons_set = 0;
    for (const auto& a : areas)
      for (auto [op, corine] : operations) {
        const int before = numbers.time_horizon();
        for (ImpactGenerator* g : {&numbers, &text})
          g->gen_impact_data(op, corine, a.ids[3], a.ids[2], a.ids[1], a.ids[0], a.sqkm, a.level);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", operation " + std::to_string(op) +
                     ", NUTS" + std::to_string(a.level) + " area " +
                     std::to_string(a.ids[a.level]));
        ASSERT_FALSE(numbers.results_are_text());
        ASSERT_EQ(numbers.time_horizon(), text.time_horizon());
        const bool sets = numbers.sets_time_horizon(op);
        ASSERT_EQ(numbers.time_horizon(), sets ? 250 : before);
        horizons_set += sets;
        auto same = [](const std::vector<ImpactResult>& x, const std::vector<ImpactResult>& y) {
          ASSERT_EQ(x.size(), y.size());
          for (size_t i = 0; i < x.size(); ++i) {
            EXPECT_EQ(x[i].id, y[i].id);
            EXPECT_EQ(x[i].total, y[i].total);
            EXPECT_EQ(x[i].horizon, y[i].horizon);
            EXPECT_EQ(x[i].category, y[i].category);
            EXPECT_EQ(x[i].refs ? *x[i].refs : "", y[i].refs ? *y[i].refs : "");
            EXPECT_EQ(x[i].data_quality ? *x[i].data_quality : "",
                      y[i].data_quality ? *y[i].data_quality : "");
          }
        };
        same(numbers.mitigation_results(), text.mitigation_results());
        same(numbers.adaptation_results(), text.adaptation_results());
        same(numbers.yield_results(), text.yield_results());
        ASSERT_EQ(cells(numbers.mitigation_rows()), cells(text.mitigation_rows()));
        ASSERT_EQ(cells(numbers.adaptation_rows()), cells(text.adaptation_rows()));
        ASSERT_EQ(cells(numbers.yield_rows()), cells(text.yield_rows()));
        ++calls;
      }
    EXPECT_GT(calls, 500);
    EXPECT_GT(horizons_set, 0);
  }
}

// Every stored row of a country, in the order it was written.
std::vector<std::string> stored_rows(const std::filesystem::path& store) {
  Db db = Db::open(store);
  std::vector<std::string> out;
  for (int k = 0; k <= 3; ++k) {
    auto rows = db.query("SELECT * FROM \"NUTS" + std::to_string(k) + "_OPS\" ORDER BY rowid");
    while (rows.next()) {
      std::string line;
      for (int c = 0; c < rows.column_count(); ++c) {
        Value v = rows.get(c);
        line += (v.is_null()   ? "N:"
                 : v.is_int()  ? "I:"
                 : v.is_real() ? "R:"
                               : "T:") +
                (v.is_real() ? number_to_text(v.as_double()) : v.as_text()) + "|";
      }
      out.push_back(line);
    }
  }
  return out;
}

// Several generating threads write the rows of one, in the same order, for
// a run over two countries whose areas carry the time horizon along.
TEST(PreproIdentity, ThreadsWriteTheRowsOfOneThreadInItsOrder) {
  TempDir dir;
  testing::SessionGuard session_guard;
  reset_session();
  session().app_folder = dir.path();
  session().db_version = 5;
  synth::Options o = small_country(dir / "dbases", 5);
  o.countries = {"LU", "DK"};
  synth::generate_country(o);
  session().ops_db_path = (dir / "dbases" / "arven_operations.mdb").string();
  session().rvc_db_path = (dir / "dbases" / "arven_rvcs.mdb").string();
  copy_dbs();
  new_basefile();

  RunParams params;
  params.countries = {country_index_by_code("LU"), country_index_by_code("DK")};
  params.level = 3;
  params.mode = RunMode::all;
  for (const auto& item : prepro_operation_search(""))
    params.operations.push_back({item.data, item.text, true});
  std::vector<std::string> one[2];
  for (unsigned threads : {1u, 3u}) {
    params.threads = threads;
    testing::ScriptedUi ui;
    RunControl control;
    ASSERT_TRUE(process_start2(ui, params, control));
    ASSERT_EQ(ui.messages.back().text, "Done");
    int c = 0;
    for (const char* cc : {"LU", "DK"}) {
      auto rows = stored_rows(country_target_path(cc));
      if (threads == 1) {
        ASSERT_GT(rows.size(), 1000u) << cc;
        one[c] = rows;
      } else {
        EXPECT_EQ(rows, one[c]) << cc;
      }
      ++c;
    }
  }
}

}  // namespace
}  // namespace arven
