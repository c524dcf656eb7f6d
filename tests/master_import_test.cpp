#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "core/registry.h"
#include "prep/csv.h"
#include "prep/master_import.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {
namespace {

namespace fs = std::filesystem;

std::vector<std::vector<std::string>> fields_of(const std::vector<CsvRecord>& recs) {
  std::vector<std::vector<std::string>> out;
  for (const auto& r : recs) out.push_back(r.fields);
  return out;
}

TEST(Csv, ParsesQuotingLineBreaksAndLineNumbers) {
  using F = std::vector<std::vector<std::string>>;
  EXPECT_EQ(fields_of(parse_csv("a,b\r\n1,2\r\n")), (F{{"a", "b"}, {"1", "2"}}));
  EXPECT_EQ(fields_of(parse_csv("a,b\n1,2")), (F{{"a", "b"}, {"1", "2"}}));  // no final break
  EXPECT_EQ(fields_of(parse_csv("\xEF\xBB\xBFx,,\n")), (F{{"x", "", ""}}));  // BOM, empty fields
  EXPECT_EQ(fields_of(parse_csv("\"a,b\",\"say \"\"hi\"\"\",\"\"\n")),
            (F{{"a,b", "say \"hi\"", ""}}));
  EXPECT_EQ(fields_of(parse_csv("\n\r\na\n\n")), (F{{"a"}}));  // empty lines hold no record
  EXPECT_EQ(fields_of(parse_csv("S\xC3\xA6lland,O'Neill & Co")),
            (F{{"S\xC3\xA6lland", "O'Neill & Co"}}));

  // A quoted line break stays in the field (CRLF kept as written) and moves
  // the line count on for the fields and records after it.
  auto recs = parse_csv("h1,h2\r\n\"two\r\nlines\",x\r\n\"three\nmore\nlines\"\ny,z\r\n");
  ASSERT_EQ(recs.size(), 4u);
  EXPECT_EQ(recs[1].fields[0], "two\r\nlines");
  EXPECT_EQ(recs[1].lines, (std::vector<size_t>{2, 3}));
  EXPECT_EQ(recs[2].fields[0], "three\nmore\nlines");
  EXPECT_EQ(recs[2].line(), 4u);
  EXPECT_EQ(recs[3].line(), 7u);
}

TEST(Csv, RejectsMalformedTextWhereItFailsAndSurvivesAnyBytes) {
  auto where = [](std::string_view text) {
    try {
      parse_csv(text, "t.csv");
    } catch (const CsvError& e) {
      EXPECT_EQ(std::string(e.what()).rfind("t.csv: line ", 0), 0u) << e.what();
      return std::make_pair(e.line(), e.column());
    }
    ADD_FAILURE() << "accepted: " << text;
    return std::make_pair(size_t{0}, size_t{0});
  };
  EXPECT_EQ(where("a,b\n1,\"open\n"), std::make_pair(size_t{2}, size_t{2}));
  EXPECT_EQ(where("a\nx,ab\"c\n"), std::make_pair(size_t{2}, size_t{2}));
  EXPECT_EQ(where("a\n\"q\"x,1\n"), std::make_pair(size_t{2}, size_t{1}));
  EXPECT_EQ(where("\"a\nb\"\n\"c\"d"), std::make_pair(size_t{3}, size_t{1}));

  // Whatever is written by quoting every field reads back unchanged, and
  // arbitrary bytes either parse or throw CsvError, never anything worse.
  std::mt19937 rng(20240611);
  const std::string alphabet("ab,\"\r\n \xC3\xA6\x00\xFF", 11);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::vector<std::string>> table(1 + rng() % 4);
    std::string text;
    for (auto& row : table) {
      row.resize(1 + rng() % 4);
      for (size_t c = 0; c < row.size(); ++c) {
        for (int k = rng() % 6; k > 0; --k) row[c] += alphabet[rng() % alphabet.size()];
        std::string quoted;
        for (char ch : row[c]) quoted += ch == '"' ? std::string("\"\"") : std::string(1, ch);
        text += (c ? ",\"" : "\"") + quoted + "\"";
      }
      text += "\r\n";
    }
    EXPECT_EQ(fields_of(parse_csv(text)), table);

    std::string noise;
    for (int k = rng() % 40; k > 0; --k) noise += static_cast<char>(rng() % 256);
    for (int k = rng() % 10; k > 0; --k) noise += alphabet[rng() % alphabet.size()];
    try {
      for (const auto& r : parse_csv(noise)) EXPECT_EQ(r.fields.size(), r.lines.size());
    } catch (const CsvError&) {
    }
  }
}

class TempDir {
 public:
  explicit TempDir(const std::string& tag)
      : path_(fs::temp_directory_path() / ("arven_" + tag + "_" + std::to_string(::getpid()))) {
    fs::remove_all(path_);
    fs::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const fs::path& p, const std::string& text) {
  std::ofstream(p, std::ios::binary) << text;
}

// A file for every table of both stores, with a header row only.
void write_header_files(const fs::path& csv) {
  for (const auto* tables : {&operations_master_tables(), &rvcs_master_tables()})
    for (const auto& t : *tables) write_file(csv / (t.name + ".csv"), t.columns[0].name + "\n");
}

TEST(MasterImport, TypesValuesAndNamesFileLineAndColumnOfBadInput) {
  TempDir dir("import_errors");
  const fs::path csv = dir.path() / "csv";
  fs::create_directories(csv);
  auto ops = dir.path() / "ops.db", rvc = dir.path() / "rvc.db";
  auto message = [&]() -> std::string {
    try {
      import_master_csv(csv, ops, rvc);
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "";
  };
  write_header_files(csv);

  // Columns may come in any order or be left out (null); types follow the table.
  write_file(csv / "Operations.csv",
             "Last_Updated,operation name,Operation ID,ST Value,Uptake\r\n"
             "2013-05-01 10:00:00,\"Farmers' strips, \"\"new\"\"\",7,2.5,\r\n");
  EXPECT_EQ(message(), "");
  {
    Db db = Db::open(ops);
    auto rows = db.query(
        "SELECT typeof(\"Operation ID\"), typeof(\"ST Value\"), \"Operation Name\", "
        "typeof(Uptake), typeof(Cost) FROM Operations");
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.get(0).as_text(), "integer");
    EXPECT_EQ(rows.get(1).as_text(), "real");
    EXPECT_EQ(rows.get(2).as_text(), "Farmers' strips, \"new\"");
    EXPECT_EQ(rows.get(3).as_text(), "null");
    EXPECT_EQ(rows.get(4).as_text(), "null");
    EXPECT_TRUE(Db::open(rvc).has_table("NUTS3_RVC_Data_Dist"));
  }

  const std::string file = (csv / "Impact areas.csv").string();
  write_file(csv / "Impact areas.csv", "Impact ID,Impact name\n1,Soil\n\"2\nx\",Water\n");
  EXPECT_EQ(message(), file + ": line 3, column 1 (\"Impact ID\"): \"2\nx\" is not a whole number");
  write_file(csv / "Impact areas.csv", "Impact ID,Impact name\n1,Soil\n2,Water,extra\n");
  EXPECT_EQ(message(), file + ": line 3, column 3: expected 2 fields, found 3");
  write_file(csv / "Impact areas.csv", "Impact ID,Impact name,Colour\n");
  EXPECT_EQ(message(),
            file +
                ": line 1, column 3 (\"Colour\"): table \"Impact areas\" has no column of "
                "this name");
  write_file(csv / "Impact areas.csv", "Impact ID,Impact name\n3000000000,x\n");
  EXPECT_NE(message().find("line 2, column 1"), std::string::npos);
  write_file(csv / "Impact areas.csv", "Impact ID,Impact name\n4,\"bad \xC3(\"\n");
  EXPECT_NE(message().find("line 2, column 2 (\"Impact name\"): the text is not valid UTF-8"),
            std::string::npos);
  write_file(csv / "Impact areas.csv", "Impact ID\n");
  write_file(csv / "NUTS0_RVC_Data.csv", "NUTS0_ID,RVC ID,Average\n13,1,1,5\n");
  EXPECT_NE(message().find("NUTS0_RVC_Data.csv: line 2, column 4"), std::string::npos);
  write_file(csv / "NUTS0_RVC_Data.csv", "NUTS0_ID,RVC ID,Average\n13,1,nan\n");
  EXPECT_NE(message().find("(\"Average\"): \"nan\" is not a number"), std::string::npos);
}

// A failed import leaves both stores byte for byte as they were, and says
// which file, line and column stopped it.
TEST(MasterImport, FailuresLeaveTheOldStoresUntouched) {
  TempDir dir("import_keeps");
  const fs::path csv = dir.path() / "csv";
  fs::create_directories(csv);
  write_header_files(csv);
  auto ops = dir.path() / "ops.db", rvc = dir.path() / "rvc.db";
  write_file(csv / "RVC_List.csv", "RVC ID,RVC Short Name\n1,Erosion\n");
  import_master_csv(csv, ops, rvc);
  const std::string ops_before = read_file(ops), rvc_before = read_file(rvc);
  auto message = [&]() -> std::string {
    try {
      import_master_csv(csv, ops, rvc);
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(read_file(ops), ops_before);
      EXPECT_EQ(read_file(rvc), rvc_before);
      return e.what();
    }
    ADD_FAILURE() << "the import went through";
    return "";
  };
  // An unclosed quote in row 6 of the operations, then a fault on the RVC side
  // (loaded after the operations store was built).
  write_file(csv / "Operations.csv",
             "Operation ID,Operation Name\n1,a\n2,b\n3,c\n4,d\n5,\"open\n6,f\n");
  EXPECT_NE(message().find("Operations.csv: line 6, column 2: a quoted field is not closed"),
            std::string::npos);
  write_file(csv / "Operations.csv", "Operation ID,Operation Name\n1,a\n");
  write_file(csv / "NUTS3.csv", "NUTS3_ID,NUTS\nx,DK011\n");
  EXPECT_NE(message().find("NUTS3.csv: line 2, column 1"), std::string::npos);
  write_file(csv / "NUTS3.csv", std::string("NUTS3_ID,NUTS\n1,DK") + '\0' + "11\n");
  EXPECT_NE(message().find("NUTS3.csv: line 2, column 2 (\"NUTS\"): the field holds a NUL byte"),
            std::string::npos);
  fs::remove(csv / "NUTS3.csv");
  EXPECT_NE(message().find("NUTS3.csv: the file is missing"), std::string::npos);
  // Nothing is left beside the stores.
  for (const auto& e : fs::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().filename().string().find(".tmp"), std::string::npos) << e.path();
}

// A kill -9 of the admin program while it builds the new stores leaves the
// old ones byte for byte; the next import clears what the killed one left.
TEST(MasterImport, KillDuringImportLeavesTheOldStores) {
  TempDir dir("import_kill");
  const fs::path dbases = dir.path() / "dbases", csv = dir.path() / "csv";
  fs::create_directories(dbases);
  fs::copy(fs::path(ARVEN_SOURCE_DIR) / "data" / "demo", csv);
  {
    // A large table so that the import takes a while.
    std::ofstream big(csv / "NUTS3_RVC_Data_Dist.csv", std::ios::app);
    for (int i = 0; i < 300000; ++i) big << (i % 20 + 1) << "," << 500 + i / 1000 << ",1,1\n";
  }
  const fs::path ops = dbases / "arven_operations.mdb", rvc = dbases / "arven_rvcs.mdb";
  write_file(ops, "old operations");
  write_file(rvc, "old rvcs");
  pid_t child = fork();
  if (child == 0) {
    std::string app = dir.path().string(), from = csv.string();
    execl(ARVEN_BINARY_DIR "/arven-admin", "arven-admin", "import-masters", "--from", from.c_str(),
          "--app-dir", app.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  const fs::path temp = rvc.string() + ".tmp." + std::to_string(child);
  bool seen = false;
  for (int i = 0; i < 20000 && !seen; ++i) {
    seen = fs::exists(temp);
    if (!seen) usleep(1000);
  }
  usleep(50000);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(seen) << "the import was not seen building " << temp;
  ASSERT_TRUE(WIFSIGNALED(status)) << "the import ended before the kill";
  EXPECT_EQ(read_file(ops), "old operations");
  EXPECT_EQ(read_file(rvc), "old rvcs");
  import_master_csv(csv, ops, rvc);
  EXPECT_FALSE(fs::exists(temp));
  EXPECT_TRUE(Db::open(rvc).has_table("NUTS3"));
}

// The demo data, imported once into a temporary folder.
class MasterImportDemo : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir("demo");
    import_master_csv(fs::path(ARVEN_SOURCE_DIR) / "data" / "demo", dir_->path() / "ops.db",
                      dir_->path() / "rvc.db");
  }
  static void TearDownTestSuite() { delete dir_; }
  static Db ops() { return Db::open(dir_->path() / "ops.db"); }
  static Db rvc() { return Db::open(dir_->path() / "rvc.db"); }
  static TempDir* dir_;
};
TempDir* MasterImportDemo::dir_ = nullptr;

TEST_F(MasterImportDemo, NutsAreasFormOneTreePerRegistryCountry) {
  Db db = rvc();
  std::map<int, std::map<int64_t, std::pair<std::string, double>>> areas;  // level, id
  for (int k = 0; k <= 3; ++k) {
    std::string t = "\"NUTS" + std::to_string(k) + "\"";
    auto rows = db.query("SELECT * FROM " + t);
    while (rows.next()) {
      int64_t id = rows.get("NUTS" + std::to_string(k) + "_ID").as_int();
      std::string code = rows.get("NUTS").as_text();
      EXPECT_TRUE(areas[k].emplace(id, std::make_pair(code, rows.get("SQKM").as_double())).second)
          << code;
      EXPECT_EQ(rows.get("EU-27").as_text(), "Y");
      EXPECT_GT(rows.get("AV_FS").as_double(), 0.5) << code;
      EXPECT_LT(rows.get("AV_FS").as_double(), 50) << code;
      EXPECT_NEAR(rows.get("GIS_AREA").as_double() / rows.get("SQKM").as_double(), 1, 0.02);
      EXPECT_EQ(code.size(), static_cast<size_t>(k + 2)) << code;
      if (k == 0) {
        EXPECT_EQ(country_code_by_index(static_cast<int>(id)), code);
      }
      for (int p = 0; p < k; ++p) {
        int64_t parent = rows.get("NUTS" + std::to_string(p) + "_ID").as_int();
        ASSERT_TRUE(areas[p].count(parent)) << code << " has no parent at level " << p;
        EXPECT_EQ(code.rfind(areas[p][parent].first, 0), 0u) << code;
      }
    }
  }
  EXPECT_EQ(areas[0].size(), 3u);
  EXPECT_GE(areas[3].size(), 20u);
  // A parent's area is its children's, within rounding.
  for (int k = 0; k < 3; ++k)
    for (const auto& [id, area] : areas[k]) {
      auto rows = db.query("SELECT sum(SQKM) FROM \"NUTS" + std::to_string(k + 1) +
                               "\" WHERE \"NUTS" + std::to_string(k) + "_ID\" = ?",
                           {Value(id)});
      ASSERT_TRUE(rows.next());
      EXPECT_NEAR(rows.get(0).as_double(), area.second, 1) << area.first;
    }
}

TEST_F(MasterImportDemo, ClassSharesOfEveryAreaAndRvcAddUpToAHundred) {
  Db db = rvc();
  std::map<int64_t, std::tuple<int64_t, int64_t, int64_t>> rvcs;  // id -> type, min, max
  auto list = db.query("SELECT * FROM RVC_List");
  while (list.next())
    rvcs[list.get("RVC ID").as_int()] = {
        list.get("RVC Type").as_int(), list.get("RVC min").as_int(), list.get("RVC max").as_int()};
  for (int k = 0; k <= 3; ++k) {
    const std::string id = "\"NUTS" + std::to_string(k) + "_ID\"";
    const std::string dist = "\"NUTS" + std::to_string(k) + "_RVC_Data_Dist\"";
    std::map<std::pair<int64_t, int64_t>, int64_t> sums;
    std::map<int64_t, int64_t> corine_sum;
    auto rows = db.query("SELECT * FROM " + dist);
    while (rows.next()) {
      int64_t area = rows.get(0).as_int(), r = rows.get("RVC ID").as_int();
      double cls = rows.get("RVC Class").as_double();
      int64_t pct = rows.get("Percent").as_int();
      ASSERT_TRUE(rvcs.count(r)) << r;
      auto [type, lo, hi] = rvcs[r];
      EXPECT_NE(type, 3) << "RVC " << r << " has no classes";
      EXPECT_TRUE(cls >= std::min<int64_t>(lo, 0) && cls <= hi) << "RVC " << r << " class " << cls;
      EXPECT_GT(pct, 0);
      sums[{area, r}] += pct;
      if (type == 5 && cls == 1) corine_sum[area] += pct;
    }
    size_t areas = 0, with_classes = 0;
    for (auto a = db.query("SELECT count(*) FROM \"NUTS" + std::to_string(k) + "\""); a.next();)
      areas = static_cast<size_t>(a.get(0).as_int());
    for (const auto& [r, def] : rvcs) with_classes += std::get<0>(def) != 3;
    EXPECT_EQ(sums.size(), areas * with_classes) << "level " << k;
    for (const auto& [key, sum] : sums)
      EXPECT_EQ(sum, 100) << "level " << k << " area " << key.first << " RVC " << key.second;
    for (const auto& [area, sum] : corine_sum) EXPECT_LE(sum, 100) << area;
    auto data = db.query("SELECT count(*) FROM \"NUTS" + std::to_string(k) + "_RVC_Data\"");
    ASSERT_TRUE(data.next());
    EXPECT_EQ(static_cast<size_t>(data.get(0).as_int()), sums.size());
  }
  // Every combination a look-up names has its classes in the combo RVC's range.
  auto combos = db.query("SELECT * FROM Baseline_Impact_Look_Up");
  while (combos.next()) {
    int64_t combo = combos.get("Combo RVC").as_int();
    ASSERT_TRUE(rvcs.count(combo));
    EXPECT_EQ(std::get<0>(rvcs[combo]), 8);
    EXPECT_LE(combos.get("Combo Class").as_int(), std::get<2>(rvcs[combo]));
    EXPECT_TRUE(rvcs.count(combos.get("Baseline RVC").as_int()));
    EXPECT_TRUE(rvcs.count(combos.get("Impact RVC").as_int()));
  }
}

TEST_F(MasterImportDemo, DeltasAreOperationMinusBaselineDetails) {
  Db db = ops();
  using Key = std::tuple<int64_t, int64_t, int64_t, int64_t>;  // owner, activity, RVC, class
  auto details = [&](const char* table, const char* owner) {
    std::map<Key, std::string> out;
    auto rows = db.query(std::string("SELECT * FROM ") + table);
    while (rows.next())
      out[{rows.get(owner).as_int(), rows.get("Activity ID").as_int(), rows.get("RVC ID").as_int(),
           rows.get("RVC Class").as_int()}] = rows.get("Details").as_text();
    return out;
  };
  auto op_details = details("Operation_Activity_Details", "Operation ID");
  auto base_details = details("Baseline_Activity_Details", "Baseline ID");

  std::map<int64_t, int64_t> baseline_of;
  for (auto rows = db.query("SELECT * FROM Delta_List"); rows.next();)
    EXPECT_TRUE(baseline_of.emplace(rows.get(0).as_int(), rows.get(1).as_int()).second);

  // The delta rule: the baseline's marker decides "Multi", a zero leaves no row.
  const double kMulti = NAN;
  std::map<std::tuple<int64_t, int64_t, int64_t, int64_t, int64_t>, double> expected;
  for (const auto& [key, value] : op_details) {
    auto [op, act, r, cls] = key;
    ASSERT_TRUE(baseline_of.count(op)) << "operation " << op << " is not in Delta_List";
    auto b = base_details.find({baseline_of[op], act, r, cls});
    ASSERT_NE(b, base_details.end()) << "operation " << op << " activity " << act;
    if (b->second == "Multi")
      expected[{op, baseline_of[op], act, 0, 0}] = kMulti;
    else if (double d = std::stod(value) - std::stod(b->second); d != 0)
      expected[{op, baseline_of[op], act, r, cls}] = d;
  }
  std::set<int64_t> adaptation_activities, with_deltas;
  for (auto rows = db.query("SELECT \"Activity ID\" FROM Adaptation_Activity_Impact_Factors");
       rows.next();)
    adaptation_activities.insert(rows.get(0).as_int());
  size_t found = 0;
  for (auto rows = db.query("SELECT * FROM Operation_Activity_Delta"); rows.next(); ++found) {
    auto key = std::make_tuple(rows.get("Operation ID").as_int(), rows.get("Baseline ID").as_int(),
                               rows.get("Activity ID").as_int(), rows.get("RVC ID").as_int(),
                               rows.get("RVC Class").as_int());
    std::string delta = rows.get("Delta").as_text();
    with_deltas.insert(std::get<0>(key));
    auto it = expected.find(key);
    ASSERT_NE(it, expected.end()) << "unexpected delta of operation " << std::get<0>(key)
                                  << " activity " << std::get<2>(key);
    if (delta == "Multi") {
      EXPECT_TRUE(std::isnan(it->second));
      EXPECT_FALSE(adaptation_activities.count(std::get<2>(key)))
          << "a class-by-class delta on an activity with adaptation factors ends the run";
    } else {
      EXPECT_NEAR(std::stod(delta), it->second, 1e-9);
    }
  }
  EXPECT_EQ(found, expected.size());

  size_t operations = 0;
  for (auto rows = db.query("SELECT count(*) FROM Operations"); rows.next();)
    operations = static_cast<size_t>(rows.get(0).as_int());
  EXPECT_GE(operations, 40u);
  EXPECT_GE(with_deltas.size() + 3, operations);
}

TEST_F(MasterImportDemo, FactorsNameKnownRvcsAndReferencesAndTextSurvives) {
  Db o = ops(), r = rvc();
  std::set<int64_t> rvc_ids, refs;
  for (auto rows = r.query("SELECT \"RVC ID\" FROM RVC_List"); rows.next();)
    rvc_ids.insert(rows.get(0).as_int());
  for (auto rows = o.query("SELECT \"Ref ID\" FROM \"References\""); rows.next();)
    refs.insert(rows.get(0).as_int());
  EXPECT_TRUE(rvc_ids.count(19));
  EXPECT_LE(*rvc_ids.rbegin(), 400);
  size_t factor_rows = 0;
  for (const char* t : {"Mitigation_Activity_Emission_Factors",
                        "Adaptation_Activity_Impact_Factors", "Yield_Activity_Impact_Factors"}) {
    for (auto rows = o.query(std::string("SELECT * FROM ") + t); rows.next(); ++factor_rows) {
      EXPECT_TRUE(rvc_ids.count(rows.get("RVC ID").as_int())) << t;
      int64_t dq = rows.get("Data_Quality").as_int();
      EXPECT_TRUE(dq >= 1 && dq <= 5) << t;
      std::string list = rows.get("Refs").as_text();
      for (size_t p = 0; p < list.size();) {
        size_t end = list.find(", ", p);
        EXPECT_TRUE(refs.count(std::stoll(list.substr(p, end - p)))) << t << ": " << list;
        p = end == std::string::npos ? list.size() : end + 2;
      }
    }
  }
  EXPECT_GT(factor_rows, 40u);
  // Each land class has its CORINE RVC, and each child names an existing parent.
  for (int c = 1; c <= 9; ++c) {
    auto rows = r.query(
        "SELECT count(*) FROM RVC_List WHERE \"RVC Type\" = 5 AND \"CORINE Class\" = ?", {c});
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.get(0).as_int(), 1) << c;
  }
  for (auto rows = r.query("SELECT * FROM RVC_List WHERE \"RVC Type\" IN (6, 7, 9)"); rows.next();)
    EXPECT_TRUE(rvc_ids.count(rows.get("RVC Parent").as_int()));

  // One file per master table, its header the table's columns in order.
  std::vector<TableDef> tables = operations_master_tables();
  tables.insert(tables.end(), rvcs_master_tables().begin(), rvcs_master_tables().end());
  for (const TableDef& t : tables) {
    std::ifstream in(fs::path(ARVEN_SOURCE_DIR) / "data" / "demo" / (t.name + ".csv"),
                     std::ios::binary);
    std::string first_line;
    ASSERT_TRUE(std::getline(in, first_line)) << t.name;
    auto header = parse_csv(first_line);
    ASSERT_EQ(header.size(), 1u) << t.name;
    std::vector<std::string> names;
    for (const auto& c : t.columns) names.push_back(c.name);
    EXPECT_EQ(header[0].fields, names) << t.name;
  }

  auto has = [](const Db& db, const std::string& sql, const std::string& value) {
    auto rows = db.query(sql, {Value(value)});
    return rows.next();
  };
  EXPECT_TRUE(has(o, "SELECT 1 FROM Operations WHERE \"Operation Name\" = ?",
                  "Wild bird seed mixtures (farmland birds' food plots)"));
  EXPECT_TRUE(has(r, "SELECT 1 FROM NUTS2 WHERE NAME = ?", "Sj\xC3\xA6lland"));
  EXPECT_TRUE(has(r, "SELECT 1 FROM NUTS3 WHERE NAME = ?",
                  "K\xC3\xB8"
                  "benhavns omegn"));
}

}  // namespace
}  // namespace arven
