#include "apps/serve_windows.h"

#include <iostream>
#include <thread>

#include "core/session.h"
#include "core/startup.h"
#include "engine/catalogue.h"
#include "settings/update_check.h"
#include "shell/explorer_view.h"
#include "shell/file_watch.h"
#include "shell/main_views.h"
#include "shell/opman_view.h"
#include "shell/regions_view.h"
#include "shell/rvc_view.h"
#include "shell/server.h"
#include "shell/settings_view.h"
#include "shell/worker.h"
#include "windows/main_window.h"
#include "windows/program_start.h"
#include "windows/report_pack.h"

namespace arven {

int serve_windows(const AppOptions& options, int admin_mode, const char* program,
                  const std::function<void(shell::WebUi&)>& register_more) {
  session().admin_mode = admin_mode;
  session().app_folder = options.app_dir;

  shell::Worker worker;
  shell::WebUi ui(worker);
  shell::register_main_windows(ui);
  shell::register_regions_window(ui);
  shell::register_opman_window(ui);
  shell::register_explorer_window(ui);
  shell::register_settings_window(ui);
  shell::register_rvc_window(ui);
  if (register_more) register_more(ui);
  report_pack_assets() = options.assets_dir;
  // A file open read-only may be changed by the program that holds it.
  shell::FileWatch watch(worker, [&ui] { chosen_changed_elsewhere(ui); });
  worker.after_event = [&ui, &watch] {
    watch.update();
    ui.refresh_controls();
  };
  worker.on_failure = [&ui](const std::string& what) { ui.show_failure(what); };

  shell::Server server(ui, options.app_dir,
                       options.token.empty() ? shell::make_token() : options.token,
                       options.assets_dir);
  int port = server.bind(options.port);                        // 0: any free port
  if (port < 0 && !options.port_given) port = server.bind(0);  // the default port is taken
  if (port < 0) {
    std::cerr << program << ": port " << options.port << " on 127.0.0.1 is not free\n";
    return 1;
  }
  ui.on_quit = [&server] { server.stop(); };
  // Closing the browser tab of the main window ends the program as its
  // close box does, without the question nobody is left to answer; the
  // questions on screen until then are answered as Escape answers them.
  server.on_main_tab_closed([&worker, &ui] {
    worker.post([&ui] { exit_program(ui, 0); });
    for (int i = 0; i < 40 && !ui.ended(); ++i) {
      ui.dismiss_dialog();
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
  });
  // After an update the downloader starts this program again on the same
  // address, so that the page in the browser finds it there.
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  update_launch().restart = {ec ? std::string(program) : exe.string(),
                             "--app-dir",
                             options.app_dir.string(),
                             "--port",
                             std::to_string(port),
                             "--token",
                             server.token(),
                             "--no-browser"};
  worker.start();
  StartupHooks hooks;
  hooks.main_window_init = main_window_init;
  hooks.build_main_page = build_main_page;
  hooks.reopen_file = open_file_and_show;
  worker.post([&ui, hooks] { Main(ui, hooks); });

  std::string url = "http://127.0.0.1:" + std::to_string(port) + "/?token=" + server.token();
  std::cout << "ARVEN listening on " << url << std::endl;
  if (!options.no_browser) std::thread([url] { shell_open("Open", url); }).detach();
  server.listen();
  worker.stop();
  return 0;
}

}  // namespace arven
