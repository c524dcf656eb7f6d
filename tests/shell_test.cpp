#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <fstream>
#include <future>
#include <iostream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "shell/main_views.h"
#include "shell/progress_page.h"
#include "shell/server.h"
#include "shell/web_ui.h"
#include "shell/worker.h"
#include "support/shell_fixture.h"
#include "support/temp_dir.h"
#include "windows/report_pack.h"

namespace arven::shell {
namespace {

using arven::testing::TempDir;

TEST_F(ShellTest, TokenAndHostAreRequired) {
  auto c = client();
  EXPECT_EQ(c.Get("/main/")->status, 403);
  EXPECT_EQ(c.Get("/?token=wrong")->status, 403);
  auto first = c.Get("/?token=tok123");
  EXPECT_EQ(first->status, 302);
  std::string cookie = first->get_header_value("Set-Cookie");
  EXPECT_NE(cookie.find("arven_token=tok123"), std::string::npos);
  EXPECT_NE(cookie.find("HttpOnly"), std::string::npos);
  EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos);
  EXPECT_EQ(c.Get("/main/", auth())->status, 200);
  httplib::Headers foreign = {{"Cookie", "arven_token=tok123"}, {"Host", "evil.example:80"}};
  EXPECT_EQ(c.Get("/main/", foreign)->status, 403);
  httplib::Headers header_token = {{"X-ARVEN-Token", "tok123"},
                                   {"Host", "localhost:" + std::to_string(port)}};
  EXPECT_EQ(c.Get("/main/state.json", header_token)->status, 200);
}

TEST_F(ShellTest, StaticServingStaysInTheReportFolder) {
  auto c = client();
  auto page = c.Get("/main/summary.htm?n=3", auth());
  EXPECT_EQ(page->status, 200);
  EXPECT_EQ(page->body, "<html>summary</html>");
  auto store = c.Get("/main/secret.mdb", auth());  // stores are never served
  EXPECT_NE(store->status, 200);
  EXPECT_EQ(store->body.find("store"), std::string::npos);
  for (const char* path :
       {"/main/../../etc/passwd", "/main/..%2f..%2fetc%2fpasswd", "/main/%2e%2e/%2e%2e/etc/passwd",
        "/main/..%252f..%252fetc%252fpasswd", "/main/%2fetc%2fpasswd", "/main/..\\..\\etc\\passwd",
        "/main/summary.htm%00.gif", "/main/%zz"}) {
    auto r = c.Get(path, auth());
    ASSERT_TRUE(r) << path;
    EXPECT_NE(r->status, 200) << path;
    EXPECT_EQ(r->body.find("root:"), std::string::npos) << path;
  }
  settle();
  for (const auto& t : targets) EXPECT_EQ(t.find('/'), std::string::npos) << t;
  EXPECT_EQ(resolve_static(dir.path(), "summary.htm"),
            std::filesystem::canonical(dir / "summary.htm"));
}

TEST_F(ShellTest, CommandsAndPageCommandsReachTheWorker) {
  auto c = client();
  EXPECT_EQ(c.Post("/main/command", page(), "group=2&tool=1", "application/x-www-form-urlencoded")
                ->status,
            200);
  EXPECT_EQ(c.Get("/main/file.ff1", page())->status, 204);
  EXPECT_EQ(c.Get("/nowhere/file.ff1", page())->status, 404);
  settle();
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].at("group"), "2");
  EXPECT_EQ(targets, std::vector<std::string>{"file.ff1"});
  auto state = nlohmann::json::parse(c.Get("/main/state.json", auth())->body);
  EXPECT_EQ(state["controls"]["title"], "T");

  // A window's name may hold a slash: the longest registered name wins.
  ui.register_window("admin/prepro", {});
  EXPECT_EQ(c.Get("/admin/prepro", auth())->status, 302);
  auto nested = nlohmann::json::parse(c.Get("/admin/prepro/state.json", auth())->body);
  EXPECT_EQ(nested["window"], "admin/prepro");
  EXPECT_EQ(c.Get("/admin/state.json", auth())->status, 404);
  EXPECT_EQ(c.Get("/admin/prepro/summary.htm", auth())->body, "<html>summary</html>");
}

// The report pack runs on the worker; its wait page's "-CANCEL-" in the main
// window reaches it at once, and is no command of the window.
TEST_F(ShellTest, TheMainWindowCancelsARunningReportPackAtOnce) {
  register_main_windows(ui);
  worker.post([&] { ui.show_window("main"); });
  settle();
  report_pack_cancel() = false;
  auto c = client();
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  worker.post([released] { released.wait(); });
  EXPECT_EQ(c.Get(std::string("/main/") + kPackCancelLink, page())->status, 204);
  EXPECT_TRUE(report_pack_cancel());
  release.set_value();
  settle();
  report_pack_cancel() = false;
}

TEST_F(ShellTest, AWindowTakesLinksToItsPagesAndCancelsAtOnce) {
  std::atomic<bool> cancelled{false};
  std::vector<std::string> rvc_targets;
  WindowHandlers h;
  h.serves_file = [](const std::string& t) { return t != "summary.htm"; };
  h.immediate = [&](const Params& p) {
    const bool cancel = p.count("navigate") && p.at("navigate") == "hot.hcn";
    if (cancel) cancelled = true;
    return cancel;
  };
  h.navigate = [&](const std::string& t) { rvc_targets.push_back(t); };
  ui.register_window("rvc", h);
  worker.post([&] { ui.show_window("rvc"); });
  settle();
  auto c = client();

  // With the worker busy, the cancel link gets through at once.
  std::promise<void> release;
  worker.post([&] { release.get_future().wait(); });
  EXPECT_EQ(c.Get("/rvc/hot.hcn", page())->status, 204);
  EXPECT_TRUE(cancelled);
  release.set_value();

  // A file the window writes afresh is a command, unless it is on show.
  EXPECT_EQ(c.Get("/rvc/summary.htm", page())->status, 204);
  settle();
  EXPECT_EQ(rvc_targets, std::vector<std::string>{"summary.htm"});
  worker.post([&] { ui.navigate("rvc", "summary.htm"); });
  settle();
  EXPECT_EQ(c.Get("/rvc/summary.htm?n=1", auth())->body, "<html>summary</html>");
}

TEST_F(ShellTest, MessageBoxWaitsForTheBrowsersAnswer) {
  std::promise<Answer> result;
  worker.post([&] {
    result.set_value(ui.message_box("Sure?", "Exit", MsgButtons::YesNo, MsgIcon::Question));
  });
  auto c = client();
  nlohmann::json dialog;
  for (int i = 0; i < 200 && dialog.is_null(); ++i) {
    dialog = nlohmann::json::parse(c.Get("/main/state.json", auth())->body)["dialog"];
    if (dialog.is_null()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_FALSE(dialog.is_null());
  EXPECT_EQ(dialog["title"], "Exit");
  EXPECT_EQ(dialog["buttons"], nlohmann::json({"Yes", "No"}));
  std::string id = std::to_string(dialog["id"].get<int>());
  auto form = "application/x-www-form-urlencoded";
  EXPECT_EQ(c.Post("/main/answer", page(), "id=" + id + "&button=Maybe", form)->status, 409);
  EXPECT_EQ(c.Post("/main/answer", page(), "id=999&button=No", form)->status, 409);
  EXPECT_EQ(c.Post("/main/answer", page(), "id=" + id + "&button=No", form)->status, 200);
  EXPECT_EQ(result.get_future().get(), Answer::No);

  // With nobody left to answer, a question is dismissed as Escape does:
  // Cancel, else No, else its only button; with none open nothing happens.
  ui.dismiss_dialog();
  for (auto [buttons, expected] :
       {std::pair{MsgButtons::YesNoCancel, Answer::Cancel},
        std::pair{MsgButtons::YesNo, Answer::No}, std::pair{MsgButtons::Ok, Answer::Ok}}) {
    std::promise<Answer> dismissed;
    worker.post([&, b = buttons] {
      dismissed.set_value(ui.message_box("Save?", "Close", b, MsgIcon::Question));
    });
    auto answered = dismissed.get_future();
    while (answered.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready)
      ui.dismiss_dialog();
    EXPECT_EQ(answered.get(), expected);
  }
}

}  // namespace
}  // namespace arven::shell

namespace arven::shell {
namespace {

// Malformed requests of every kind get an answer or a closed connection,
// and the server goes on serving.
TEST_F(ShellTest, MalformedRequestsDoNotStopTheServer) {
  const std::string garbage[] = {
      std::string("\x00\x01\x02\xff\xfe garbage\r\n\r\n", 16),
      "GET /main/" + std::string(20000, 'A') + " HTTP/1.1\r\nHost: x\r\n\r\n",
      "POST /main/answer HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: -5\r\n\r\n",
      "GET /main/%%%%%% HTTP/1.1\r\n\r\n",
      "GET / HTTP/9.9\r\nCookie: " + std::string(9000, ';') + "\r\n\r\n",
      "GET /main/state.json?since=99999999999999999999999 HTTP/1.1\r\n\r\n",
  };
  for (const auto& g : garbage) {
    RawConnection raw(port);
    ASSERT_TRUE(raw.connected());
    raw.send(g);
    raw.status_line();  // an answer, or the connection closed
  }
  auto c = client();
  c.set_read_timeout(20, 0);
  auto since = c.Get("/main/state.json?since=abc", auth());
  ASSERT_TRUE(since);
  EXPECT_EQ(since->status, 200);
  auto r = c.Get("/main/", auth());
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
}

}  // namespace
}  // namespace arven::shell

namespace arven::shell {
namespace {

// Only our own pages and scripts that hold the token may change anything:
// another page of the same site gets the cookie sent along, and is refused.
TEST_F(ShellTest, RequestsFromOtherPagesAreRefused) {
  auto c = client();
  const std::string p = std::to_string(port);
  const std::string form = "application/x-www-form-urlencoded";
  auto with = [&](const std::string& header, const std::string& value) {
    auto h = auth();
    h.emplace(header, value);
    return h;
  };
  const std::vector<httplib::Headers> foreign = {
      auth(),  // names no source
      with("Sec-Fetch-Site", "same-site"),
      with("Sec-Fetch-Site", "cross-site"),
      with("Sec-Fetch-Site", "none"),
      with("Origin", "http://127.0.0.1:" + std::to_string(port + 1)),
      with("Origin", "null"),
      with("Referer", "http://127.0.0.1:" + p + ".evil.example/"),
      with("Referer", "http://localhost:" + std::to_string(port + 1) + "/main/"),
  };
  for (const auto& h : foreign) {
    EXPECT_EQ(c.Post("/main/command", h, "group=2&tool=1", form.c_str())->status, 403);
    EXPECT_EQ(c.Post("/main/close", h, "", form.c_str())->status, 403);
    EXPECT_EQ(c.Get("/main/remove.rem", h)->status, 403);
  }
  // Reading stays open to the cookie: the browser does not let another
  // page see the answer.
  EXPECT_EQ(c.Get("/main/state.json", auth())->status, 200);
  settle();
  EXPECT_TRUE(commands.empty());
  EXPECT_TRUE(targets.empty());

  const std::vector<httplib::Headers> own = {
      page(),
      with("Origin", "http://127.0.0.1:" + p),
      with("Referer", "http://localhost:" + p + "/main/summary_display.htm"),
      {{"X-ARVEN-Token", "tok123"}, {"Host", "127.0.0.1:" + p}},
  };
  for (const auto& h : own) {
    EXPECT_EQ(c.Post("/main/command", h, "group=2&tool=1", form.c_str())->status, 200);
    EXPECT_EQ(c.Get("/main/remove.rem", h)->status, 204);
  }
  settle();
  EXPECT_EQ(commands.size(), own.size());
  EXPECT_EQ(targets.size(), own.size());
}

// Fields come from a form body only; a close needs no body at all.
TEST_F(ShellTest, FormFieldsComeFromTheBodyOnly) {
  auto c = client();
  EXPECT_EQ(c.Post("/main/command?group=2&tool=1", page(), "", "text/plain")->status, 200);
  EXPECT_EQ(c.Post("/main/command", page(), "group=2&tool=1", "text/plain")->status, 415);
  EXPECT_EQ(
      c.Post("/main/command", page(), "group=%zz", "application/x-www-form-urlencoded")->status,
      400);
  EXPECT_EQ(c.Post("/main/command", page(), "name=My+region%21&name=second",
                   "application/x-www-form-urlencoded; charset=UTF-8")
                ->status,
            200);
  settle();
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_TRUE(commands[0].empty());
  EXPECT_EQ(commands[1].at("name"), "My region!");

  // POST with neither a body nor a Content-Length, as `curl -X POST` sends it.
  RawConnection raw(port);
  ASSERT_TRUE(raw.connected());
  ASSERT_TRUE(raw.send("POST /main/close HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                       "\r\nX-ARVEN-Token: tok123\r\n\r\n"));
  EXPECT_EQ(raw.status_line(), "HTTP/1.1 200 OK");
}

// While a modal window is on top, the windows under it take no clicks,
// neither at the door nor when a click queued earlier comes to run.
TEST_F(ShellTest, WindowsUnderAModalOneTakeNoInput) {
  std::vector<Params> dialog_commands;
  WindowHandlers h;
  h.command = [&](const Params& p) { dialog_commands.push_back(p); };
  ui.register_window("dialog", h);
  ui.register_window("closed", h);
  worker.post([&] {
    ui.post_command("main", {{"queued", "1"}});  // runs inside the dialog's loop
    ui.show_modal("dialog");
  });
  auto c = client();
  for (int i = 0; i < 200 && !ui.accepts_input("dialog"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_TRUE(ui.accepts_input("dialog"));
  const char* form = "application/x-www-form-urlencoded";
  EXPECT_EQ(c.Post("/main/command", page(), "group=2&tool=3", form)->status, 409);
  EXPECT_EQ(c.Get("/main/edit.xx1", page())->status, 409);
  EXPECT_EQ(c.Post("/closed/command", page(), "button=ok", form)->status, 409);
  EXPECT_EQ(c.Post("/dialog/command", page(), "button=ok", form)->status, 200);
  EXPECT_EQ(c.Post("/dialog/close", page(), "", form)->status, 200);
  settle();
  EXPECT_TRUE(commands.empty());  // the queued click ran under the dialog: dropped
  EXPECT_TRUE(targets.empty());
  ASSERT_EQ(dialog_commands.size(), 1u);
  EXPECT_FALSE(ui.accepts_input("dialog"));
  EXPECT_TRUE(ui.accepts_input("main"));
}

// Waiting polls hold a bounded number of threads, commands are served
// meanwhile, and a poll whose client has gone ends.
TEST_F(ShellTest, LongPollsNeverStarveCommands) {
  auto poll = [&](const std::string& client) {
    auto conn = std::make_unique<RawConnection>(port);
    EXPECT_TRUE(conn->send("GET /main/state.json?since=999999&client=" + client +
                           " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                           "\r\nX-ARVEN-Token: tok123\r\n\r\n"));
    return conn;
  };
  auto wait_for_polls = [&](size_t n) {
    for (int i = 0; i < 300 && server.waiting_polls() != n; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return server.waiting_polls();
  };
  std::vector<std::unique_ptr<RawConnection>> polls;
  for (int i = 0; i < 50; ++i) polls.push_back(poll("c" + std::to_string(i)));
  EXPECT_EQ(wait_for_polls(48), 48u);  // the two beyond the cap were answered at once

  auto c = client();
  c.set_read_timeout(5, 0);
  const auto start = std::chrono::steady_clock::now();
  auto r = c.Post("/main/command", page(), "group=1&tool=1", "application/x-www-form-urlencoded");
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                      std::chrono::steady_clock::now() - start)
                      .count();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
  std::cout << "command answered in " << ms << " ms beside " << server.waiting_polls()
            << " waiting polls\n";

  polls.clear();  // the clients go
  EXPECT_EQ(wait_for_polls(0), 0u);

  // One client holds a few polls at most.
  for (int i = 0; i < 4; ++i) polls.push_back(poll("same"));
  EXPECT_EQ(wait_for_polls(4), 4u);
  auto fifth = poll("same");
  EXPECT_EQ(fifth->status_line(), "HTTP/1.1 200 OK");
}

// Text that is not UTF-8 (a Latin-1 name in a store) reaches the page as
// valid JSON with the replacement character.
TEST_F(ShellTest, StateOfInvalidTextIsStillValidJson) {
  WindowHandlers h;
  h.controls = [] {
    return nlohmann::json{{"title", "Pr\xe9s"}, {"items", {"ok", "\xc3\x28"}}, {"k\xff", 1}};
  };
  ui.register_window("latin", h);
  worker.post([&] { ui.refresh_controls(); });
  settle();
  auto r = client().Get("/latin/state.json", auth());
  ASSERT_EQ(r->status, 200);
  auto s = nlohmann::json::parse(r->body);
  EXPECT_EQ(s["controls"]["title"], "Pr\xEF\xBF\xBDs");
  EXPECT_EQ(s["controls"]["items"][1], "\xEF\xBF\xBD(");
  EXPECT_TRUE(s["controls"].contains("k\xEF\xBF\xBD"));
}

// A link to a store under a page's name is not served; a link to a page is.
TEST_F(ShellTest, SymbolicLinksServeOnlyAllowedKinds) {
  std::filesystem::create_symlink(dir / "secret.mdb", dir / "store.htm");
  std::filesystem::create_symlink(dir / "summary.htm", dir / "again.htm");
  std::filesystem::create_symlink(dir / "secret.mdb", dir / "store.css");
  auto c = client();
  for (const char* path : {"/main/store.htm", "/main/store.css"}) {
    auto r = c.Get(path, page());
    EXPECT_NE(r->status, 200) << path;
    EXPECT_NE(r->status, 500) << path;
    EXPECT_EQ(r->body.find("store"), std::string::npos) << path;
  }
  auto ok = c.Get("/main/again.htm", auth());
  EXPECT_EQ(ok->status, 200);
  EXPECT_EQ(ok->get_header_value("Content-Type"), "text/html; charset=utf-8");
}

}  // namespace
}  // namespace arven::shell

namespace arven::shell {
namespace {

// The chooser refuses names that would break the recent list or the
// store's side files, says why, and asks again.
TEST_F(ShellTest, FileChooserRefusesBadNamesAndAsksAgain) {
  std::promise<std::string> chosen;
  worker.post([&] {
    FileDialogRequest r;
    r.save = true;
    r.title = "Save ARVEN File As...";
    r.filter = "*.arv";
    r.initial_dir = dir.path().string();
    chosen.set_value(ui.file_dialog(r));
  });
  auto c = client();
  auto next_dialog = [&](int after) {
    nlohmann::json d;
    for (int i = 0; i < 400; ++i) {
      d = nlohmann::json::parse(c.Get("/main/state.json", auth())->body)["dialog"];
      if (!d.is_null() && d["id"].get<int>() > after) return d;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return nlohmann::json();
  };
  auto answer = [&](const nlohmann::json& d, const std::string& button, const std::string& file) {
    httplib::Params form = {
        {"id", std::to_string(d["id"].get<int>())}, {"button", button}, {"file", file}};
    return c.Post("/main/answer", page(), form)->status;
  };
  int last = 0;
  for (const std::string& bad : {std::string("two\r\nlines"), std::string(251, 'n'),
                                 std::string("../up"), std::string(".hidden")}) {
    auto chooser = next_dialog(last);
    ASSERT_EQ(chooser["kind"], "file");
    EXPECT_EQ(answer(chooser, "Save", bad), 200);
    auto refusal = next_dialog(chooser["id"]);
    ASSERT_EQ(refusal["kind"], "message") << bad;
    EXPECT_EQ(refusal["text"].get<std::string>().find('\r'), std::string::npos);
    EXPECT_EQ(answer(refusal, "OK", ""), 200);
    last = refusal["id"];
  }
  auto chooser = next_dialog(last);
  EXPECT_EQ(answer(chooser, "Save", std::string(243, 'n')), 200);  // 247 with ".arv"
  EXPECT_EQ(chosen.get_future().get(), (dir / (std::string(243, 'n') + ".arv")).string());
  EXPECT_FALSE(std::filesystem::exists(dir / "two\r\nlines.arv"));
}

// A free port of 127.0.0.1, as the kernel gives one out.
int free_port() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof a;
  ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  ::close(fd);
  return ntohs(a.sin_port);
}

// The downloader's stand-in on the program's address tells the page how far
// an install is, to holders of the token only, and frees the address for
// the program it starts again.
TEST(ProgressPageTest, AnswersTheTokenOnlyAndFreesTheAddress) {
  const int port = free_port();
  {
    ProgressPage page(port, "tok123");
    ASSERT_TRUE(page.listening());
    page.set("Downloading arven_db_LU.zip: 40%\xff");
    httplib::Client c("127.0.0.1", port);
    EXPECT_EQ(c.Get("/main/state.json")->status, 403);
    EXPECT_EQ(c.Get("/main/state.json", {{"Cookie", "arven_token=tok124"}})->status, 403);
    auto r = c.Get("/main/state.json", {{"Cookie", "a=b; arven_token=tok123"}});
    ASSERT_EQ(r->status, 200);
    auto state = nlohmann::json::parse(r->body);
    EXPECT_TRUE(state["ended"].get<bool>());
    EXPECT_EQ(state["progress"], "Downloading arven_db_LU.zip: 40%\xef\xbf\xbd");
    EXPECT_EQ(c.Get("/main/")->status, 404);
  }
  TempDir dir;
  Worker worker;
  WebUi ui{worker};
  Server program{ui, dir.path(), "tok123"};
  EXPECT_EQ(program.bind(port), port);
}

// The main tab's page says when it goes; the program ends only when no
// page of that tab polls again within the grace time, as after a reload.
TEST_F(ShellTest, AClosedMainTabEndsTheProgramAndAReloadDoesNot) {
  std::atomic<int> closed{0};
  server.on_main_tab_closed([&] { ++closed; }, std::chrono::milliseconds(400));
  WindowHandlers report;
  report.controls = [] { return nlohmann::json{{"title", "Report"}}; };
  ui.register_window("report", report);
  ui.show_window("report");
  auto c = client();
  const char* form = "application/x-www-form-urlencoded";
  auto poll = [&](const std::string& id) {
    return c.Get("/main/state.json?client=" + id, auth())->status;
  };

  // A reload: the page goes, and its successor (a new id) polls meanwhile.
  ASSERT_EQ(poll("pageA"), 200);
  auto leaving = std::async(std::launch::async, [&] {
    return client().Post("/main/leave", page(), "client=pageA", form)->status;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_EQ(poll("pageB"), 200);
  EXPECT_EQ(leaving.get(), 200);
  EXPECT_EQ(closed, 0);

  // Polls of the page that went, and of a window beside the main tab, do
  // not keep it: closing the tab ends the program once.
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  leaving = std::async(std::launch::async, [&] {
    return client().Post("/main/leave", page(), "client=pageB", form)->status;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  poll("pageB");
  EXPECT_EQ(c.Get("/report/state.json?client=reportPage", auth())->status, 200);
  EXPECT_EQ(leaving.get(), 200);
  EXPECT_EQ(closed, 1);

  // Another page cannot end it, nor a window beside the main tab going.
  EXPECT_EQ(c.Post("/main/leave", auth(), "client=pageC", form)->status, 403);
  EXPECT_EQ(c.Post("/report/leave", page(), "client=reportPage", form)->status, 200);
  EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace arven::shell
