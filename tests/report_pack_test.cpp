// The report pack written in the process: its folder, its workbook read back,
// its pages with their captions, the PDF's printer found or missing, and the
// folders it refuses to replace. The PDF's pages and text, on the demo data,
// are the browser test's (e2e/report_pack.test.mjs).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "engine/catalogue.h"
#include "engine/impact_cache.h"
#include "prep/xlsx_reader.h"
#include "support/store_fixture.h"
#include "windows/report_pack.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::read_file;

// ARVEN_CHROMIUM set for the length of a test.
class ChromiumVariable {
 public:
  explicit ChromiumVariable(const std::string& value) {
    if (const char* old = std::getenv("ARVEN_CHROMIUM")) old_ = old;
    setenv("ARVEN_CHROMIUM", value.c_str(), 1);
  }
  ~ChromiumVariable() {
    if (old_)
      setenv("ARVEN_CHROMIUM", old_->c_str(), 1);
    else
      unsetenv("ARVEN_CHROMIUM");
  }

 private:
  std::optional<std::string> old_;
};

void write_script(const fs::path& path, const std::string& body) {
  std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
  chmod(path.c_str(), 0755);
}

// Two operations with GHG, adaptation and production figures in a NUTS3
// area of the region, chosen in the open file and calculated.
class ReportPackTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    activity(5, "Fertiliser");
    for (int64_t id : {10, 11}) {
      store_->insert("Operations",
                     {"Operation ID", "Operation Type ID", "Operation Name", "Scaling up technique",
                      "ST Value", "Uptake"},
                     {id, 1, "Op <" + std::to_string(id) + "> & co", 1, 100.0, 50.0});
      add_ops({.area = 1,
               .op = id,
               .type = 1,
               .value = -10.0 * static_cast<double>(id),
               .dq = Value(int64_t{3})});
      add_ops({.area = 1, .op = id, .type = 4, .value = 5.0, .dq = Value(int64_t{4})});
    }
    region("DK011", 1);
    store_->insert("NUTS3", {"NUTS3_ID", "NUTS", "NAME", "SQKM", "AV_FS"},
                   {1, "DK011", "Byen København", 10.0, 1.0});
    addto_oplist(ui_, 10);
    addto_oplist(ui_, 11);
    ui_.messages.clear();
  }
  fs::path out() const { return dir_ / "pack"; }
};

TEST_F(ReportPackTest, WritesEveryPageAWorkbookOfEveryListAndSaysWhyThereIsNoPdf) {
  explorer_window().current_operation = 11;
  fs::create_directories(out());
  const ReportPack pack = write_report_pack(ui_, out(), {});
  ASSERT_FALSE(pack.cancelled);

  // The pages, in the order of the PDF, and only they with the assets.
  std::vector<std::string> files;
  for (const auto& s : pack.sections) files.push_back(s.file);
  const std::vector<std::string> expected = {
      "summary.htm",       "op10_summary.htm", "op10_detailed.htm", "op11_summary.htm",
      "op11_detailed.htm", "ranked.htm",       "mitigation.htm",    "adaptation.htm",
      "production.htm",    "totals.htm",       "aggregate1.htm",    "aggregate_ranked1.htm",
      "mac_ghg.htm",       "uncertainty.htm",  "hotspot_rep1.htm",  "hotspot_rep2.htm"};
  EXPECT_EQ(files, expected);
  for (const auto& f : expected) EXPECT_TRUE(fs::exists(out() / f)) << f;
  EXPECT_FALSE(fs::exists(out() / "summary_report.htm"));
  EXPECT_FALSE(fs::exists(out() / "working.htm"));
  EXPECT_FALSE(fs::exists(dir_ / "pack.part"));

  // A chart carries its title, the operation (escaped) and the region.
  const std::string summary = read_file(out() / "op10_summary.htm");
  const size_t chart = summary.find("<div id=\"container");
  ASSERT_NE(chart, std::string::npos);
  const size_t caption = summary.rfind("pack-chart-caption", chart);
  ASSERT_NE(caption, std::string::npos);
  const std::string text = summary.substr(caption, chart - caption);
  EXPECT_NE(text.find("Operation summary"), std::string::npos) << text;
  EXPECT_NE(text.find("Operation: Op &lt;10&gt; &amp; co"), std::string::npos) << text;
  EXPECT_NE(text.find("Region: DK011"), std::string::npos) << text;

  // The page of all pages draws each chart into a container of its own.
  const std::string all = read_file(out() / kPackAllPages);
  EXPECT_NE(all.find("id=\"p2_container\""), std::string::npos);
  EXPECT_NE(all.find("renderTo: 'p2_container'"), std::string::npos);
  EXPECT_EQ(all.find("renderTo: 'container'"), std::string::npos);

  // No operation reduces risk: the adaptation cost curve's writer said so,
  // and the pack says what it lacks.
  // The note on costs left at zero, from the writers of two pages, is told once.
  ASSERT_EQ(ui_.messages.size(), 2u);
  EXPECT_NE(ui_.messages[0].text.find("Cost data for all the operations is currently set at zero"),
            std::string::npos);
  EXPECT_EQ(ui_.messages[1].text,
            "The operations selected will not reduce the risk to any ecosystem services.");
  EXPECT_NE(read_file(out() / kPackReadme)
                .find("Not written (its failure was shown): Marginal abatement cost curve "
                      "(adaptation)"),
            std::string::npos);

  // No printer: no PDF, and the folder says so.
  EXPECT_FALSE(pack.pdf);
  EXPECT_FALSE(fs::exists(out() / kPackPdf));
  EXPECT_NE(read_file(out() / kPackReadme).find("No PDF: Chromium was not found"),
            std::string::npos);
  EXPECT_NE(read_file(out() / kPackIndex).find("No PDF"), std::string::npos);

  // The workbook read back: every list, then the About sheet.
  const auto sheets = read_xlsx_file(out() / kPackWorkbook);
  std::vector<std::string> names;
  for (const auto& s : sheets) names.push_back(s.name);
  EXPECT_EQ(names, (std::vector<std::string>{"Ranked", "Mitigation", "Adaptation", "Production",
                                             "Totals", "Aggregation", "Aggregation ranked",
                                             "GHG cost curve", "Uncertainty", "About"}));
  EXPECT_EQ(names, pack.sheets);
  const auto& ranked = sheets[0];
  ASSERT_EQ(ranked.rows.size(), 3u);  // the head and both operations
  EXPECT_EQ(ranked.at(1, 1).text.substr(0, 3), "Op ");
  EXPECT_EQ(ranked.at(1, 1).text.find("&amp;"), std::string::npos);
  std::map<std::string, std::string> about;
  for (const auto& row : sheets.back().rows)
    if (row.size() >= 2) about[row[0].text] = row[1].text;
  EXPECT_EQ(about["File"], file_.string());
  EXPECT_NE(about["Regions"].find("DK011"), std::string::npos);
  EXPECT_EQ(about["Time horizon (years)"], "50");
  EXPECT_EQ(about["Uncertainty by data quality"], "1: 100 %, 2: 60 %, 3: 40 %, 4: 25 %, 5: 10 %");
  EXPECT_FALSE(about["Exported"].empty());

  // The explorer's state is as it was.
  EXPECT_EQ(explorer_window().current_operation, 11);
  EXPECT_EQ(session().app_folder, dir_.path());
}

TEST_F(ReportPackTest, ReplacesAnEarlierPackButNoOtherFolder) {
  ASSERT_FALSE(write_report_pack(ui_, out(), {}).cancelled);
  std::ofstream(out() / "stale.htm") << "old";
  ASSERT_FALSE(write_report_pack(ui_, out(), {}).cancelled);
  EXPECT_FALSE(fs::exists(out() / "stale.htm"));
  EXPECT_TRUE(fs::exists(out() / kPackWorkbook));

  const fs::path other = dir_ / "mine";
  fs::create_directories(other);
  std::ofstream(other / "notes.txt") << "keep";
  EXPECT_THROW(write_report_pack(ui_, other, {}), ReportPackRefused);
  EXPECT_EQ(read_file(other / "notes.txt"), "keep");
  EXPECT_FALSE(fs::exists(other / kPackWorkbook));
  std::ofstream(dir_ / "a_file") << "x";
  EXPECT_THROW(write_report_pack(ui_, dir_ / "a_file", {}), ReportPackRefused);
}

TEST_F(ReportPackTest, ACancelLeavesTheEarlierPackAndTheProgressBarHidden) {
  ASSERT_FALSE(write_report_pack(ui_, out(), {}).cancelled);
  const std::string before = read_file(out() / kPackReadme);
  // The cancel comes while the first operation's report is written.
  int calls = 0;
  class CancellingUi : public testing::ScriptedUi {
   public:
    explicit CancellingUi(int& calls) : calls_(calls) {}
    void progress(int value, int max, const std::string& label) override {
      ScriptedUi::progress(value, max, label);
      if (max > 0 && ++calls_ == 2) cancel_report_pack();
    }

   private:
    int& calls_;
  } ui(calls);
  const ReportPack pack = write_report_pack(ui, out(), {});
  EXPECT_TRUE(pack.cancelled);
  EXPECT_EQ(read_file(out() / kPackReadme), before);
  EXPECT_FALSE(fs::exists(dir_ / "pack.part"));
  EXPECT_EQ(ui.last_progress.second, 0);
  EXPECT_EQ(session().app_folder, dir_.path());
}

TEST(ReportPackPrinter, FoundThroughTheVariableAndReportedWhenItFails) {
  testing::TempDir dir;
  report_pack_cancel() = false;
  {
    ChromiumVariable none((dir / "no-such-chromium").string());
    EXPECT_TRUE(find_chromium().empty());
  }
  const fs::path fake = dir / "fake-chromium";
  // A printer that writes its PDF where --print-to-pdf= says.
  write_script(fake,
               "for a; do case \"$a\" in --print-to-pdf=*) printf '%%PDF-1.4' > \"${a#*=}\";; "
               "esac; done");
  {
    ChromiumVariable given(fake.string());
    EXPECT_EQ(find_chromium(), fake);
  }
  std::ofstream(dir / "page.htm") << "<html></html>";
  EXPECT_EQ(print_to_pdf(fake, dir / "page.htm", dir / "out.pdf"), "");
  EXPECT_EQ(read_file(dir / "out.pdf"), "%PDF-1.4");

  // One that ends without a PDF, and one that never ends.
  write_script(dir / "failing", "exit 3");
  EXPECT_EQ(print_to_pdf(dir / "failing", dir / "page.htm", dir / "none.pdf"),
            "Chromium (" + (dir / "failing").string() +
                ") ended without writing the PDF (exit status 3).");
  write_script(dir / "hanging", "sleep 30");
  report_pack_cancel() = false;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(print_to_pdf(dir / "hanging", dir / "page.htm", dir / "none.pdf", 1),
            "Chromium did not finish the PDF within 1 seconds.");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace arven
