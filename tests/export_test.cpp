#include "reports/export.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "base/numbers.h"
#include "base/replace_file.h"
#include "core/session.h"
#include "settings/zip_files.h"
#include "shell/server.h"
#include "shell/web_ui.h"
#include "shell/worker.h"
#include "tests/support/guards.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// A list table as the explorer fills it: ids, escaped names, numbers.
GridTable sample_grid() {
  GridTable g(4);
  const std::vector<std::vector<std::string>> rows = {
      {"ID", "Operation", "Score", "Note"},
      {"12", "Zero tillage &amp; direct drilling", "12.5", "null"},
      {"7", "Farmer&#39;s &lt;own&gt; &quot;plan&quot;", "-0.25", "a, b\nc"},
      {"3", "Cover crops", "", "1,234"}};
  for (const auto& row : rows) {
    int r = g.add_row();
    for (int c = 0; c < 4; ++c) g.cell(r, c) = row[c];
  }
  return g;
}

class ExportTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir.path();
  }
  void TearDown() override { set_decimal_separator("."); }
  // The extracted parts of an .xlsx file.
  fs::path unpack(const fs::path& xlsx) {
    fs::path out = dir / "unpacked";
    std::string message;
    EXPECT_EQ(unzip_to_folder(xlsx, out, &message), kUnzipOk) << message;
    return out;
  }
  testing::TempDir dir;
};

TEST_F(ExportTest, CsvQuotesFieldsUnescapesEntitiesAndEndsLinesWithCrlf) {
  write_csv(sample_grid(), dir / "t.csv");
  // UTF-8 with its byte-order mark, so that a spreadsheet reads ø and æ.
  EXPECT_EQ(read_file(dir / "t.csv"),
            "\xEF\xBB\xBF"
            "ID,Operation,Score,Note\r\n"
            "12,Zero tillage & direct drilling,12.5,\r\n"
            "7,\"Farmer's <own> \"\"plan\"\"\",-0.25,\"a, b\nc\"\r\n"
            "3,Cover crops,,\"1,234\"\r\n");

  // Only the five entities of html_escape are plain text again.
  EXPECT_EQ(html_unescape("&amp;lt; &nbsp; &#38; & <b>x</b> &quot"),
            "&lt; &nbsp; &#38; & <b>x</b> &quot");

  EXPECT_THROW(write_csv(sample_grid(), dir / "missing" / "t.csv"), FileWriteError);

  // A context goes above the table, quoted as any field, then one empty
  // line; the table's rows follow as they were.
  const std::string table = read_file(dir / "t.csv").substr(3);
  write_csv(sample_grid(), dir / "c.csv",
            {{"File", "/docs/a, \"b\".arv"}, {"Time horizon (years)", "50"}});
  EXPECT_EQ(read_file(dir / "c.csv"),
            "\xEF\xBB\xBF"
            "File,\"/docs/a, \"\"b\"\".arv\"\r\nTime horizon (years),50\r\n\r\n" +
                table);
}

TEST_F(ExportTest, XlsxCarriesItsContextOnASheetOfItsOwn) {
  const ExportContext context = {{"File", "/docs/Sjælland & co.arv"}, {"Regions", "DK02 Sjælland"}};
  write_xlsx(sample_grid(), dir / "c.xlsx", "Ranked list", context);
  fs::path parts = unpack(dir / "c.xlsx");
  const std::string book = read_file(parts / "xl" / "workbook.xml");
  EXPECT_NE(book.find("name=\"About\""), std::string::npos) << book;
  const std::string strings = read_file(parts / "xl" / "sharedStrings.xml");
  EXPECT_NE(strings.find("/docs/Sjælland &amp; co.arv"), std::string::npos) << strings;
  EXPECT_NE(strings.find("DK02 Sjælland"), std::string::npos);

  session().current_file.clear();
  const ExportContext none = export_context();
  ASSERT_EQ(none.size(), 8u);
  EXPECT_EQ(none[0], (std::pair<std::string, std::string>{"File", "(none)"}));
}

TEST_F(ExportTest, XlsxHoldsNumbersAsNumbersAndNamesAsText) {
  auto has = [](const std::string& xml, const char* pattern) {
    return std::regex_search(xml, std::regex(pattern));
  };
  write_xlsx(sample_grid(), dir / "t.xlsx", "Ranked list");
  fs::path parts = unpack(dir / "t.xlsx");
  const std::string sheet = read_file(parts / "xl" / "worksheets" / "sheet1.xml");
  const std::string strings = read_file(parts / "xl" / "sharedStrings.xml");

  // Numbers carry no type and their value; text cells are shared strings;
  // "null" and empty cells are left out; the head row has a (bold) style.
  EXPECT_TRUE(has(sheet, R"(<c r="C2"( s="\d+")?><v>12\.5</v></c>)")) << sheet;
  EXPECT_TRUE(has(sheet, R"(<c r="C3"( s="\d+")?><v>-0\.25</v></c>)"));
  EXPECT_TRUE(has(sheet, R"(<c r="B2"( s="\d+")? t="s"><v>\d+</v></c>)"));
  EXPECT_TRUE(has(sheet, R"(<c r="D4"( s="\d+")? t="s">)"));
  EXPECT_FALSE(has(sheet, R"re(r="(D2|C4)")re"));
  EXPECT_TRUE(has(sheet, R"(<c r="A1" s="[1-9]\d*" t="s">)"));
  EXPECT_NE(read_file(parts / "xl" / "styles.xml").find("<b/>"), std::string::npos);
  EXPECT_NE(strings.find("Zero tillage &amp; direct drilling"), std::string::npos) << strings;
  EXPECT_NE(strings.find("Farmer's &lt;own&gt; \"plan\""), std::string::npos) << strings;
  EXPECT_NE(read_file(parts / "xl" / "workbook.xml").find("name=\"Ranked list\""),
            std::string::npos);

  // With the comma as decimal separator "1,234" is a number.
  set_decimal_separator(",");
  write_xlsx(sample_grid(), dir / "c.xlsx", "x");
  fs::remove_all(parts);
  EXPECT_TRUE(has(read_file(unpack(dir / "c.xlsx") / "xl" / "worksheets" / "sheet1.xml"),
                  R"(<c r="D4"( s="\d+")?><v>1\.234</v></c>)"));
}

TEST_F(ExportTest, SheetNamesFollowExcelsRules) {
  EXPECT_EQ(excel_sheet_name("Costs [2030]: a/b\\c*?"), "Costs _2030__ a_b_c__");
  EXPECT_EQ(excel_sheet_name(std::string(40, 'x')), std::string(31, 'x'));
  // 31 characters, not bytes: a two-byte character is never cut in half.
  std::string accented;
  for (int i = 0; i < 35; ++i) accented += "\xC3\xA9";
  EXPECT_EQ(excel_sheet_name(accented), accented.substr(0, 62));
  EXPECT_EQ(excel_sheet_name("'quoted'"), "quoted");
  EXPECT_EQ(excel_sheet_name(""), "Sheet1");
  // A name that needed cleaning still makes a valid workbook.
  EXPECT_NO_THROW(write_xlsx(sample_grid(), dir / "s.xlsx", "a/b:c [x] " + std::string(40, 'y')));
}

TEST_F(ExportTest, ExportGridWritesIntoTheExportsFolderAndOpensIt) {
  struct OpeningUi : testing::ScriptedUi {
    std::vector<std::string> opened;
    void open_document(const std::string& target) override { opened.push_back(target); }
  } ui;
  session().ranking_TH = 25;
  session().adapt_weight = 40;
  EXPECT_TRUE(export_grid(ui, sample_grid(), "ranked_list", false));
  EXPECT_TRUE(export_grid(ui, sample_grid(), "../mac curve", true));
  EXPECT_EQ(ui.opened,
            (std::vector<std::string>{"exports/ranked_list.csv", "exports/___mac_curve.xlsx"}));
  EXPECT_TRUE(fs::is_regular_file(dir / "exports" / "ranked_list.csv"));
  EXPECT_TRUE(fs::is_regular_file(dir / "exports" / "___mac_curve.xlsx"));
  EXPECT_TRUE(ui.messages.empty());
  // The CSV download carries the same context as the workbook's About sheet,
  // and the figures at full precision below it.
  const std::string csv = read_file(dir / "exports" / "ranked_list.csv");
  EXPECT_EQ(csv.rfind("\xEF\xBB\xBF"
                      "File,(none)\r\nRegions,(none)\r\nTime horizon (years),25\r\n"
                      "Ranking weights (%),\"mitigation 100, adaptation 40, production 100\"\r\n",
                      0),
            0u)
      << csv;
  // The Combined column can be worked again from the weights and the mode.
  EXPECT_NE(csv.find("\r\nScores ranked by,regional total\r\n"), std::string::npos) << csv;
  EXPECT_NE(csv.find("\r\nExported,20"), std::string::npos) << csv;
  EXPECT_NE(csv.find("\r\n\r\nID,Operation,Score,Note\r\n12,Zero tillage & direct drilling,12.5,"),
            std::string::npos)
      << csv;

  EXPECT_EQ(export_links_html(7),
            "<p><font face=\"Verdana\"><small>Export this table: <a href=7.exc>CSV</a> | "
            "<a href=7.exx>Excel (.xlsx)</a></small></font></p>");
}

TEST_F(ExportTest, ExportGridReportsAFileItCannotWrite) {
  testing::ScriptedUi ui;
  // The target is taken by a folder, so neither writer can make the file
  // (holds for root too, unlike permission bits).
  fs::create_directories(dir / "exports" / "blocked.csv");
  fs::create_directories(dir / "exports" / "blocked.xlsx");
  EXPECT_FALSE(export_grid(ui, sample_grid(), "blocked", false));
  EXPECT_FALSE(export_grid(ui, sample_grid(), "blocked", true));
  ASSERT_EQ(ui.messages.size(), 2u);
  for (const auto& m : ui.messages) {
    EXPECT_EQ(m.title, "Export");
    EXPECT_NE(m.text.find("blocked."), std::string::npos) << m.text;
    EXPECT_NE(m.text.find("could not be written: "), std::string::npos) << m.text;
  }

  // An exports "folder" that is a file.
  testing::TempDir other;
  session().app_folder = other.path();
  std::ofstream(other / "exports") << "x";
  EXPECT_FALSE(export_grid(ui, sample_grid(), "t", true));
  EXPECT_EQ(ui.messages.size(), 3u);
}

// The shell hands exported tables over as downloads under their own name;
// pages stay inline.
TEST(ExportServing, CsvAndXlsxComeAsAttachments) {
  testing::TempDir dir;
  fs::create_directories(dir / "exports");
  std::ofstream(dir / "exports" / "ranked_list.csv") << "ID\r\n";
  std::ofstream(dir / "exports" / "mac.xlsx") << "PK";
  std::ofstream(dir / "page.htm") << "<html></html>";
  shell::Worker worker;
  shell::WebUi ui{worker};
  ui.register_window("main", {});
  worker.start();
  shell::Server server{ui, dir.path(), "tok"};
  int port = server.bind(0);
  ASSERT_GT(port, 0);
  std::thread thread([&] { server.listen(); });
  httplib::Client client("127.0.0.1", port);
  httplib::Headers auth = {{"Cookie", "arven_token=tok"},
                           {"Host", "127.0.0.1:" + std::to_string(port)}};
  for (int i = 0; i < 100 && !client.Get("/"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  auto csv = client.Get("/main/exports/ranked_list.csv", auth);
  auto xlsx = client.Get("/main/exports/mac.xlsx", auth);
  auto page = client.Get("/main/page.htm", auth);
  server.stop();
  thread.join();
  worker.stop();

  ASSERT_TRUE(csv && xlsx && page);
  EXPECT_EQ(csv->status, 200);
  EXPECT_EQ(csv->body, "ID\r\n");
  EXPECT_EQ(csv->get_header_value("Content-Type"), "text/csv; charset=utf-8");
  EXPECT_EQ(csv->get_header_value("Content-Disposition"),
            "attachment; filename=\"ranked_list.csv\"");
  EXPECT_EQ(xlsx->get_header_value("Content-Type"),
            "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet");
  EXPECT_EQ(xlsx->get_header_value("Content-Disposition"), "attachment; filename=\"mac.xlsx\"");
  EXPECT_EQ(page->status, 200);
  EXPECT_FALSE(page->has_header("Content-Disposition"));
}

}  // namespace
}  // namespace arven
