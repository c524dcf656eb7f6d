#include <gtest/gtest.h>
#include <xlsxwriter.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "core/session.h"
#include "prep/rvc_import.h"
#include "prep/xlsx_reader.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;
using Kind = XlsxCell::Kind;

std::string bytes_of(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A zip of the given parts, built with libzip.
std::string zip_of(const TempDir& dir, const std::map<std::string, std::string>& parts) {
  fs::path file = dir / "parts.zip";
  int err = 0;
  zip_t* z = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
  for (const auto& [name, text] : parts) {
    zip_source_t* src = zip_source_buffer(z, text.data(), text.size(), 0);
    zip_file_add(z, name.c_str(), src, ZIP_FL_OVERWRITE);
  }
  zip_close(z);
  return bytes_of(file);
}

// The parts as a spreadsheet program writes them: a package relationship to
// the workbook, prefixed element names, shared strings with rich-text runs
// and phonetic hints, inline strings, rows and cells without references,
// styled empty cells, absolute and relative targets, and two sheets.
std::map<std::string, std::string> program_parts() {
  const std::string ns =
      "xmlns:x=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
      "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";
  return {
      {"[Content_Types].xml", "<?xml version=\"1.0\"?><Types/>"},
      {"_rels/.rels",
       "<?xml version=\"1.0\"?><Relationships><Relationship Id=\"rId1\" "
       "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
       "officeDocument\" "
       "Target=\"xl/workbook.xml\"/></Relationships>"},
      {"xl/workbook.xml", "<?xml version=\"1.0\"?><x:workbook " + ns +
                              "><x:sheets><x:sheet name=\"Export_Output\" sheetId=\"1\" "
                              "r:id=\"rId7\"/><x:sheet name=\"Notes &amp; more\" sheetId=\"2\" "
                              "r:id=\"rId8\"/></x:sheets></x:workbook>"},
      {"xl/_rels/workbook.xml.rels",
       "<?xml version=\"1.0\"?><Relationships>"
       "<Relationship Id=\"rId7\" Target=\"/xl/worksheets/sheet1.xml\" Type=\"ws\"/>"
       "<Relationship Id=\"rId8\" Target=\"worksheets/../worksheets/sheet2.xml\" Type=\"ws\"/>"
       "<Relationship Id=\"rId9\" Target=\"sharedStrings.xml\" Type=\"sst\"/>"
       "<Relationship Id=\"rId10\" Target=\"http://example.org/\" TargetMode=\"External\"/>"
       "</Relationships>"},
      {"xl/sharedStrings.xml",
       "<?xml version=\"1.0\"?><sst><si><t>NUTS</t></si><si><r><t>VAL</t></r><r><rPr/><t>UE_1</t>"
       "</r><rPh><t>x</t></rPh></si><si><t xml:space=\"preserve\"> K\xC3\xB8"
       "benhavn </t></si></sst>"},
      {"xl/worksheets/sheet1.xml",
       "<?xml version=\"1.0\"?><x:worksheet " + ns +
           "><x:sheetData>"
           "<x:row r=\"1\"><x:c r=\"A1\" t=\"s\"><x:v>0</x:v></x:c><x:c r=\"B1\" "
           "t=\"s\"><x:v>1</x:v>"
           "</x:c><x:c r=\"C1\" t=\"inlineStr\"><x:is><x:t>VALUE_3</x:t></x:is></x:c></x:row>"
           "<x:row><x:c t=\"inlineStr\"><x:is><x:r><x:t>DK0</x:t></x:r><x:r><x:t>11</x:t></x:r>"
           "</x:is></x:c><x:c><x:v>12.5</x:v></x:c><x:c s=\"3\"/></x:row>"
           "<x:row r=\"5\"><x:c r=\"A5\" t=\"str\"><x:f>A2</x:f><x:v>DK011</x:v></x:c>"
           "<x:c r=\"D5\" t=\"b\"><x:v>1</x:v></x:c><x:c r=\"E5\" t=\"e\"><x:v>#DIV/0!</x:v>"
           "</x:c><x:c r=\"AB5\" t=\"s\"><x:v>2</x:v></x:c><x:c><x:v>1E-3</x:v></x:c></x:row>"
           "</x:sheetData></x:worksheet>"},
      {"xl/worksheets/sheet2.xml",
       "<?xml version=\"1.0\"?><worksheet><sheetData><row r=\"2\"><c r=\"B2\" "
       "t=\"inlineStr\"><is><t>note</t></is></c></row></sheetData></worksheet>"},
  };
}

TEST(XlsxReader, ReadsWhatASpreadsheetProgramWrites) {
  TempDir dir;
  auto sheets = read_xlsx(zip_of(dir, program_parts()));
  ASSERT_EQ(sheets.size(), 2u);
  const XlsxSheet& s = sheets[0];
  EXPECT_EQ(s.name, "Export_Output");
  ASSERT_EQ(s.rows.size(), 5u);
  EXPECT_EQ(s.at(0, 0).text, "NUTS");
  EXPECT_EQ(s.at(0, 1).text, "VALUE_1");  // runs joined, the phonetic hint left out
  EXPECT_EQ(s.at(0, 2).text, "VALUE_3");
  EXPECT_EQ(s.at(1, 0).text, "DK011");
  EXPECT_EQ(s.at(1, 1).kind, Kind::number);
  EXPECT_EQ(s.at(1, 1).text, "12.5");
  EXPECT_EQ(s.at(1, 2).kind, Kind::empty);  // styled, no value
  EXPECT_EQ(s.at(2, 0).kind, Kind::empty);  // rows 3 and 4 are not in the sheet
  EXPECT_EQ(s.at(4, 0).text, "DK011");
  EXPECT_EQ(s.at(4, 3).kind, Kind::boolean);
  EXPECT_EQ(s.at(4, 4).text, "#DIV/0!");
  EXPECT_EQ(s.at(4, 27).text,
            " K\xC3\xB8"
            "benhavn ");
  EXPECT_EQ(s.at(4, 28).text, "1E-3");  // after AB5 without a reference
  EXPECT_EQ(s.at(99, 99).kind, Kind::empty);
  EXPECT_EQ(sheets[1].name, "Notes & more");
  EXPECT_EQ(sheets[1].at(1, 1).text, "note");

  // Damaged workbooks and any bytes end in XlsxError, never worse.
  auto parts = program_parts();
  auto fails = [&](const std::map<std::string, std::string>& p, const std::string& what) {
    try {
      read_xlsx(zip_of(dir, p));
      ADD_FAILURE() << "read: " << what;
    } catch (const XlsxError& e) {
      EXPECT_NE(std::string(e.what()).find(what), std::string::npos) << e.what();
    }
  };
  auto broken = parts;
  broken["xl/worksheets/sheet1.xml"] =
      "<worksheet><sheetData><row><c r=\"1A\"/></row></sheetData></worksheet>";
  fails(broken, "\"1A\" is not a cell reference");
  broken["xl/worksheets/sheet1.xml"] = "<worksheet><sheetData><row><c t=\"s\"><v>7</v></c>";
  fails(broken, "not well-formed XML");
  broken["xl/worksheets/sheet1.xml"] =
      "<worksheet><sheetData><row><c t=\"s\"><v>7</v></c></row></sheetData></worksheet>";
  fails(broken, "shared string 7");
  // A small part that names far-away cells does not claim gigabytes.
  std::string far = "<worksheet><sheetData>";
  for (int r = 1; r <= 400; ++r) far += "<row><c r=\"XFD" + std::to_string(r) + "\"/></row>";
  broken["xl/worksheets/sheet1.xml"] = far + "</sheetData></worksheet>";
  fails(broken, "more than 5,000,000 cells");
  broken = parts;
  broken.erase("xl/worksheets/sheet2.xml");
  fails(broken, "no part xl/worksheets/sheet2.xml");
  EXPECT_THROW(read_xlsx("PK\x03\x04 not really"), XlsxError);
  std::string whole = zip_of(dir, parts);
  std::mt19937 rng(15);
  for (int i = 0; i < 300; ++i) {
    std::string damaged = whole.substr(0, rng() % whole.size());
    if (i % 2)
      damaged = whole, damaged[rng() % damaged.size()] ^= static_cast<char>(1 + rng() % 255);
    try {
      read_xlsx(damaged);
    } catch (const XlsxError&) {
    }
  }
}

// A workbook written by libxlsxwriter reads back, and its import gives the
// same rows as the import from the export store.
TEST(XlsxReader, ImportOfAWrittenWorkbookMatchesTheStoreImport) {
  TempDir dir;
  testing::SessionGuard session_guard;
  reset_session();
  session().app_folder = dir.path();
  fs::create_directories(rvc_import_workbook_path().parent_path());
  session().rvc_db_path = (dir / "dbases" / "arven_rvcs.mdb").string();
  {
    Db rvc = create_rvcs_master(session().rvc_db_path);
    rvc.exec_script(
        "INSERT INTO NUTS0 (NUTS0_ID, NUTS, \"EU-27\") VALUES (1, 'AA', 'Y'), (2, 'BB', 'N');"
        "INSERT INTO NUTS3 (NUTS3_ID, NUTS0_ID, NUTS, GIS_AREA) VALUES (1, 1, 'AA111', 100), "
        "(2, 1, 'AA112', 200), (3, 2, 'BB111', 100);"
        "INSERT INTO RVC_List (\"RVC ID\", \"RVC Type\", \"RVC Short Name\") VALUES (1, 1, "
        "'Soil');");
    Db src = Db::create(rvc_import_store_path());
    src.exec_script(
        "CREATE TABLE Export_Output (NUTS TEXT, VALUE_1 DOUBLE, VALUE_2 DOUBLE, VALUE_7 DOUBLE);"
        "INSERT INTO Export_Output VALUES ('AA111', 30, 0, 70), ('AA112', 0, 150.5, NULL);");
  }
  nuts3_import(1, rvc_import_store_path(), "Export_Output");
  Db rvc = Db::open(session().rvc_db_path);
  auto dump = [&] {
    std::string out;
    auto rows = rvc.query("SELECT * FROM NUTS3_Soil ORDER BY rowid");
    while (rows.next())
      out += rows.get(0).as_text() + rows.get(1).as_text() + rows.get(2).as_text() + "=" +
             rows.get(3).as_text() + ";";
    return out;
  };
  const std::string from_store = dump();
  EXPECT_EQ(from_store, "1AA1111=0.3;1AA1117=0.7;2AA1122=0.7525;");

  {
    lxw_workbook* book = workbook_new(rvc_import_workbook_path().c_str());
    lxw_worksheet* notes = workbook_add_worksheet(book, "Notes");
    worksheet_write_string(notes, 0, 0, "written first", nullptr);
    lxw_worksheet* ws = workbook_add_worksheet(book, "Export_Output");
    const char* head[] = {"NUTS", "VALUE_1", "VALUE_2", "Label", "VALUE_7"};
    for (int c = 0; c < 5; ++c)
      worksheet_write_string(ws, 0, static_cast<lxw_col_t>(c), head[c], nullptr);
    worksheet_write_string(ws, 1, 0, "AA111", nullptr);
    worksheet_write_number(ws, 1, 1, 30, nullptr);
    worksheet_write_string(ws, 1, 3, "text is ignored", nullptr);
    worksheet_write_number(ws, 1, 4, 70, nullptr);
    worksheet_write_string(ws, 2, 0, "BB111", nullptr);  // a country outside the EU-27
    worksheet_write_number(ws, 2, 1, 5, nullptr);
    worksheet_write_string(ws, 4, 0, "AA112", nullptr);
    worksheet_write_number(ws, 4, 2, 150.5, nullptr);
    worksheet_write_string(ws, 5, 0, "AA", nullptr);     // not a NUTS1..3 code
    worksheet_write_string(ws, 6, 0, "AA119", nullptr);  // no such area
    ASSERT_EQ(workbook_close(book), LXW_NO_ERROR);
  }
  auto sheets = read_xlsx_file(rvc_import_workbook_path());
  ASSERT_EQ(sheets.size(), 2u);
  EXPECT_EQ(sheets[0].at(0, 0).text, "written first");
  EXPECT_EQ(sheets[1].at(4, 2).text, "150.5");
  rvc.exec("DELETE FROM NUTS3_Soil");
  auto r = nuts3_import_excel(1, rvc_import_workbook_path(), "Export_Output");
  EXPECT_EQ(dump(), from_store);
  EXPECT_EQ(r.skipped, 3);

  // A value that is not a number names the workbook, sheet, cell and column,
  // and the table keeps its rows.
  {
    lxw_workbook* book = workbook_new(rvc_import_workbook_path().c_str());
    lxw_worksheet* ws = workbook_add_worksheet(book, "Export_Output");
    worksheet_write_string(ws, 0, 0, "NUTS", nullptr);
    worksheet_write_string(ws, 0, 1, "VALUE_4", nullptr);
    worksheet_write_string(ws, 1, 0, "AA111", nullptr);
    worksheet_write_string(ws, 1, 1, "12,5", nullptr);
    ASSERT_EQ(workbook_close(book), LXW_NO_ERROR);
  }
  try {
    nuts3_import_excel(1, rvc_import_workbook_path(), "Export_Output");
    ADD_FAILURE() << "imported";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("Export_Output.xlsx, sheet \"Export_Output\", cell B2 "
                                         "(\"VALUE_4\"): \"12,5\" is not a number"),
              std::string::npos)
        << e.what();
  }
  EXPECT_EQ(dump(), from_store);
}

}  // namespace
}  // namespace arven
