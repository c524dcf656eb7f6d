// The user build: start-up, then the windows served to the browser on
// 127.0.0.1.
#include <iostream>
#include <thread>

#include "apps/app_options.h"
#include "core/main_window.h"
#include "core/session.h"
#include "core/startup.h"
#include "shell/main_views.h"
#include "shell/regions_view.h"
#include "shell/server.h"
#include "shell/web_ui.h"
#include "shell/worker.h"

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  try {
    options = parse_app_options(argc, argv);
    if (!options.args.empty()) throw std::invalid_argument("unknown argument " + options.args[0]);
  } catch (const std::invalid_argument& e) {
    std::cerr << "arven: " << e.what() << "\nusage: arven [--app-dir DIR] [--port N] "
              << "[--no-browser] [--token T]\n";
    return 2;
  }
  session().admin_mode = 0;
  session().app_folder = options.app_dir;

  shell::Worker worker;
  shell::WebUi ui(worker);
  shell::register_main_windows(ui);
  shell::register_regions_window(ui);
  worker.after_event = [&ui] { ui.refresh_controls(); };
  worker.on_failure = [&ui](const std::string& what) { ui.show_failure(what); };

  shell::Server server(ui, options.app_dir,
                       options.token.empty() ? shell::make_token() : options.token);
  int port = server.bind(options.port);  // 0: any free port
  if (port < 0 && !options.port_given) port = server.bind(0);  // the default port is taken
  if (port < 0) {
    std::cerr << "arven: port " << options.port << " on 127.0.0.1 is not free\n";
    return 1;
  }
  ui.on_quit = [&server] { server.stop(); };
  worker.start();
  StartupHooks hooks;
  hooks.main_window_init = main_window_init;
  hooks.build_main_page = build_main_page;
  worker.post([&ui, hooks] { Main(ui, hooks); });

  std::string url = "http://127.0.0.1:" + std::to_string(port) + "/?token=" + server.token();
  std::cout << "ARVEN listening on " << url << std::endl;
  if (!options.no_browser) std::thread([url] { shell_open("Open", url); }).detach();
  server.listen();
  worker.stop();
  return 0;
}
