#include "settings/update_check.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>

#include "core/preferences.h"
#include "core/registry.h"
#include "core/session.h"
#include "core/startup.h"
#include "prep/packaging.h"
#include "settings/update_server.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/static_server.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::ScriptedUi;
using testing::StaticServer;
using testing::TempDir;
using testing::write_file;

class UpdateCheckTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir / "app";
    session().db_version = kDbVersion;
    std::filesystem::create_directories(session().app_folder / "dbases");
    prefs_.emplace(dir / "ARVEN.ini");
  }

  void install(const std::string& code, const std::string& date) {
    Db db = create_country_store_base(country_store_path(session().app_folder, code));
    db.insert("Version", {"Version", "DB Version"}, {date, kDbVersion});
  }
  void publish(const std::string& name, const std::string& text) {
    write_file(dir / "www" / "downloads" / name, text);
  }
  // The row of a country (or 0 for the software) in the table.
  int row_of(const UpdateTable& t, int id) {
    for (int r = 1; r < t.table.rows(); ++r)
      if (t.table.cell(r, 5) == std::to_string(id)) return r;
    return -1;
  }
  // A real static server of dir/www, set as the update server.
  std::unique_ptr<StaticServer> serve() {
    std::filesystem::create_directories(dir / "www");
    auto server = std::make_unique<StaticServer>(dir / "www");
    save_setting("Settings", "Update_Server", server->address());
    return server;
  }
  UpdateTable check(bool silent) {
    detect_country_stores();
    UpdateTable t;
    load_update_table(t);
    session().update_check_silent = silent ? 1 : 0;
    checkforupdates(ui, t);
    session().update_check_silent = 0;
    return t;
  }

  TempDir dir;
  ScriptedUi ui;
  std::optional<testing::PreferencesGuard> prefs_;
};

TEST_F(UpdateCheckTest, SoftwareVersionsCompareEachPartByItself) {
  auto server = serve();
  // The program is 1.1.8. Each part is compared by itself, so a revision
  // above 8 counts as newer whatever the minor: 1.0.9 is offered.
  struct Case {
    const char* text;
    const char* offered;
  } cases[] = {{"1.1.8", "NO"},
               {"1.0.9", "YES"},
               {"1.1.10", "YES"},
               {"1.2.0", "YES"},
               {"0.9.9", "YES"},
               {"1.0.8", "NO"},
               {"1.1.9\r\n", "YES"},
               // Only the major, minor and revision are read; a text is
               // refused only when empty or longer than 10 characters.
               {"1.1.8.0000", "NO"},
               {"1.1.9.0000", "YES"},
               {"1.1.8.00000", "Unknown"},
               {"", "Unknown"},
               {"1.1", "Unknown"},
               {"1.x.3", "Unknown"},
               {"<html><body>Not here</body></html>", "Unknown"}};
  for (const auto& c : cases) {
    publish("arven_version118.csv", c.text);
    ui.messages.clear();
    UpdateTable t = check(false);
    EXPECT_EQ(t.table.cell(1, 1), "1.1.8");
    EXPECT_EQ(t.table.cell(1, 2), c.offered) << c.text;
    bool offer = std::string(c.offered) != "NO";
    EXPECT_EQ(t.coloured[1], offer) << c.text;
    EXPECT_EQ(t.table.cell(1, 4), offer ? "Download" : "") << c.text;
    if (std::string(c.offered) == "YES") {  // the text as sent, without its line end
      EXPECT_EQ(t.table.cell(1, 3), std::string(c.text).substr(0, std::strcspn(c.text, "\r\n")));
    }
    EXPECT_EQ(t.label_visible, offer) << c.text;
    // Only an unreadable version says "Cannot proceed".
    EXPECT_EQ(ui.messages.size(), std::string(c.offered) == "Unknown" ? 1u : 0u) << c.text;
    EXPECT_EQ(update_state_of(t), std::string(c.offered) == "YES" ? 1 : 2) << c.text;
  }
}

// The check reads a longer text, but the admin publishes three parts only.
TEST_F(UpdateCheckTest, PublishedSoftwareVersionsAreThreeParts) {
  publish_software_version("1.1.9");
  std::ifstream in(software_version_file_path());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "1.1.9");
  for (const char* refused : {"1.1.9.0000", "1.1", "", "1.1.x", "10.10.10.1"})
    EXPECT_THROW(publish_software_version(refused), std::invalid_argument) << refused;
}

TEST_F(UpdateCheckTest, ZeroVersionAsksForAnInstallerOrSetsTheFlagSilently) {
  auto server = serve();
  install("DK", "2024-05-01 00:00:00");
  publish("arven_version118.csv", "0.0.0");
  publish("arven_db_version_DK.csv", "02/05/2024\n");
  ui.answers.push_back(Answer::No);
  UpdateTable t = check(false);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].title, "New installation required");
  // The check stops there: the table is as loaded.
  EXPECT_EQ(t.table.cell(1, 2), "");
  EXPECT_EQ(t.table.cell(row_of(t, 13), 2), "");
  EXPECT_EQ(t.flag_label, "");

  ui.messages.clear();
  t = check(true);
  EXPECT_TRUE(ui.messages.empty());
  EXPECT_EQ(t.flag_label, "YES");
  EXPECT_EQ(update_state_of(t), 1);
  // The first three parts decide, whatever follows them.
  publish("arven_version118.csv", "0.0.0.0000");
  EXPECT_EQ(check(true).flag_label, "YES");
}

TEST_F(UpdateCheckTest, StoresCompareDatesAndStoresNotInstalledTakeShortTexts) {
  auto server = serve();
  install("DK", "2024-05-01 00:00:00");
  install("LU", "2024-01-01");
  install("SE", "2024-01-01");
  publish("arven_version118.csv", "1.1.8");
  publish("arven_db_version_DK.csv", "01/05/2024\n");             // same date
  publish("arven_db_version_LU.csv", "02/01/2024\n");             // newer
  publish("arven_db_version_SE.csv", "2024-06-01\n");             // another form
  publish("arven_db_version_IE.csv", "01/02/2024 1234");          // 15 characters
  publish("arven_db_version_AT.csv", "01/02/2024 123456");        // 16 characters
  publish("arven_db_version_BE.csv", "\xC3(01/02/2024");          // not UTF-8
  publish("arven_db_version_FR.csv", std::string(5 << 20, 'x'));  // 5 MB of junk
  UpdateTable t = check(false);
  ASSERT_EQ(t.table.rows(), 29);  // header, software, 27 countries
  int dk = row_of(t, 13), lu = row_of(t, 29), se = row_of(t, 43), ie = row_of(t, 23),
      at = row_of(t, 3), fr = row_of(t, 17), de = row_of(t, 12);
  EXPECT_EQ(t.table.cell(dk, 1), "01/05/2024");
  EXPECT_EQ(t.table.cell(dk, 2), "NO");
  EXPECT_EQ(t.table.cell(lu, 2), "YES");
  EXPECT_EQ(t.table.cell(lu, 3), "02/01/2024");
  EXPECT_TRUE(t.coloured[static_cast<size_t>(lu)]);
  EXPECT_EQ(t.table.cell(se, 2), "Unknown");
  EXPECT_EQ(t.table.cell(se, 4), "Download");
  EXPECT_EQ(t.table.cell(ie, 1), "Not installed");
  EXPECT_EQ(t.table.cell(ie, 2), "YES");
  EXPECT_EQ(t.table.cell(ie, 3), "01/02/2024");
  EXPECT_FALSE(t.coloured[static_cast<size_t>(ie)]);
  EXPECT_EQ(t.table.cell(at, 2), "Unknown");
  // A store not installed takes any short text, made plain text first.
  EXPECT_EQ(t.table.cell(row_of(t, 6), 3), "?(01/02/20");
  EXPECT_EQ(t.table.cell(fr, 2), "Unknown");
  EXPECT_EQ(t.table.cell(de, 2), "Unknown");  // no file: 404
  EXPECT_EQ(update_state_of(t), 1);           // LU; IE is not installed
  EXPECT_TRUE(ui.messages.empty());

  // Silent: unreadable rows of installed stores stay as they were.
  t = check(true);
  EXPECT_EQ(t.table.cell(se, 2), "");
  EXPECT_EQ(t.table.cell(at, 2), "");
  publish("arven_db_version_LU.csv", "01/01/2024");
  EXPECT_EQ(update_state_of(check(true)), 2);
}

TEST_F(UpdateCheckTest, StoreDatesAreReadByPositionWhateverTheSeparators) {
  auto server = serve();
  install("DK", "2014-03-05 00:00:00");
  publish("arven_version118.csv", "1.1.8");
  struct Case {
    const char* text;
    const char* offered;
  } cases[] = {{"06-03-2014", "YES"},          {"06.03.2014\n", "YES"},   {"05-03-2014", "NO"},
               {"06/03/2014 (rev. 2)", "YES"}, {"2014-03-06", "Unknown"}, {"6/3/2014", "Unknown"},
               {"06/13/2014", "Unknown"},      {"05/04/2013", "NO"}};
  for (const auto& c : cases) {
    publish("arven_db_version_DK.csv", c.text);
    UpdateTable t = check(false);
    int dk = row_of(t, 13);
    EXPECT_EQ(t.table.cell(dk, 1), "05/03/2014");
    EXPECT_EQ(t.table.cell(dk, 2), c.offered) << c.text;
    if (std::string(c.offered) == "YES") {
      EXPECT_EQ(t.table.cell(dk, 3), std::string(c.text).substr(0, 10)) << c.text;
    }
  }
}

TEST_F(UpdateCheckTest, DownloadSaysWhatTheDownloaderCannotDoBeforeTheProgramEnds) {
  auto server = serve();
  publish("arven_db_DK.zip", "an archive");
  update_launch().downloader = "/bin/true";
  session().current_file = (dir / "docs" / "farm.arv").string();

  // Austria's archive is not on the server: said, and the program stays.
  download_trigger(ui, 3);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].title, "Update software");
  EXPECT_EQ(ui.messages[0].text,
            "The database for Austria (AT) cannot be downloaded: the update server has no file " +
                server->address() + "/downloads/arven_db_AT.zip (HTTP 404). ARVEN stays open.");
  EXPECT_FALSE(ui.ended);
  EXPECT_EQ(get_setting("Settings", "Restart_Flag", "0"), "0");

  // The software: the downloader's limit first, then the usual question.
  ui.messages.clear();
  ui.answers = {Answer::Ok, Answer::No};
  download_trigger(ui, 0);
  ASSERT_EQ(ui.messages.size(), 2u);
  EXPECT_NE(ui.messages[0].text.find("install it by hand"), std::string::npos);
  EXPECT_EQ(ui.messages[1].text, "This will close the software. Do you want to proceed?");
  EXPECT_FALSE(ui.ended);

  // Denmark's archive is there: the question, then the program ends,
  // remembering the item and the open file.
  ui.messages.clear();
  download_trigger(ui, 13);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].title, "Update software");
  EXPECT_TRUE(ui.ended);
  EXPECT_EQ(get_setting("Settings", "Restart_Flag", ""), "1");
  EXPECT_EQ(get_setting("Download", "Item to download", ""), "13");
  EXPECT_EQ(take_file_to_reopen(), session().current_file);
  EXPECT_EQ(take_file_to_reopen(), "");

  // No server set: said, with the key to set.
  save_setting("Settings", "Update_Server", "");
  ui.ended = false;
  ui.messages.clear();
  download_trigger(ui, 13);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_NE(ui.messages[0].text.find("Denmark (DK)"), std::string::npos);
  EXPECT_NE(ui.messages[0].text.find("Update_Server"), std::string::npos);
  EXPECT_FALSE(ui.ended);
  update_launch().downloader.clear();
}

TEST_F(UpdateCheckTest, NoServerOrAStalledOneIsOfflineWithoutHanging) {
  install("DK", "2024-05-01 00:00:00");
  std::string type;
  UpdateServer none("");
  EXPECT_FALSE(internet_state(none, type));
  EXPECT_EQ(type, "Offline");
  UpdateTable t = check(true);
  EXPECT_TRUE(ui.messages.empty());
  EXPECT_EQ(update_state_of(t), 2);
  t = check(false);
  ASSERT_EQ(ui.messages.size(), 2u);
  EXPECT_EQ(ui.messages[0].text,
            "Cannot connect to the update server. Please check that your internet connection is "
            "active.");
  EXPECT_EQ(t.table.cell(1, 2), "Unknown");

  // A server that accepts connections and never answers.
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(listen(fd, 64), 0);
  socklen_t len = sizeof addr;
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  save_setting("Settings", "Update_Server",
               "http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port)));
  ui.messages.clear();
  auto start = std::chrono::steady_clock::now();
  t = check(true);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  close(fd);
  EXPECT_EQ(update_state_of(t), 2);
  EXPECT_TRUE(ui.messages.empty());
  // One time-out for the whole check, not one per file (29 would take a minute).
  EXPECT_LT(seconds, 5.0);
}

TEST_F(UpdateCheckTest, CheckUpdatesPrintsTheTableAsCsv) {
  auto server = serve();
  install("LU", "2024-01-01 00:00:00");
  publish("arven_version118.csv", "1.1.8");
  publish("arven_db_version_LU.csv", "05/03/2025\n");
  write_file(dir / "config" / "arven" / "ARVEN.ini",
             "[Settings]\nUpdate_Server=" + server->address() + "\n");
  std::string cmd = "XDG_CONFIG_HOME='" + (dir / "config").string() +
                    "' '" ARVEN_BINARY_DIR "/arven' --check-updates --app-dir '" +
                    session().app_folder.string() + "' 2>/dev/null";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  std::string out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  EXPECT_EQ(pclose(p), 0);
  EXPECT_EQ(out.substr(0, out.find('\n')),
            "Item,Installed version,New version available,Version for download,Download,ID");
  EXPECT_NE(out.find("\nSoftware Core,1.1.8,NO,,,0\n"), std::string::npos);
  EXPECT_NE(out.find("\nDatabase: Luxembourg (LU),01/01/2024,YES,05/03/2025,Download,29\n"),
            std::string::npos);
  EXPECT_NE(out.find("\nDatabase: Denmark (DK),Not installed,Unknown,Unknown,Download,13\n"),
            std::string::npos);
}

}  // namespace
}  // namespace arven
