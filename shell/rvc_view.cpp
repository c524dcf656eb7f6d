#include "shell/rvc_view.h"

#include "reports/rvc_browser.h"
#include "windows/regional_profile.h"

namespace arven::shell {

using nlohmann::json;

namespace {

const char* const kReportTabs[] = {"Percent in hot bands", "Average risk class"};

json rvc_controls() {
  const RvcBrowser& b = rvc_browser();
  json c = {
      {"title", "RVC Browser"},
      {"fill", true},
      {"toolbar",
       json::array({{{"id", "Index"},
                     {"text", "Index"},
                     {"tip", "The RVCs of every installed country"},
                     {"enabled", !b.hotspot_running}},
                    {{"id", "Print"}, {"text", "Print"}, {"tip", "Print the page on show"}}})}};
  if (b.report_shown) {
    json items = json::array();
    for (int t = 1; t <= 2; ++t) items.push_back({{"id", t}, {"text", kReportTabs[t - 1]}});
    c["tabs"] = {{"id", "report"}, {"items", items}, {"selected", b.tab}};
  }
  return c;
}

}  // namespace

void register_rvc_window(WebUi& ui) {
  WindowHandlers h;
  h.load = [&ui] { rvc_browser_open(ui, ui.window_tab("rvc"), regions().chosen_code); };
  h.controls = rvc_controls;
  h.serves_file = rvc_link_is_page;
  h.immediate = [](const Params& p) {
    // "-CANCEL-" (hot.hcn), and closing the window, reach a running report
    // at once; the close itself is then queued behind the run.
    const bool cancel_link = rvc_link_cancels(param_text(p, "navigate"));
    if (cancel_link || p.count("close")) hotspot_cancel() = true;
    return cancel_link;
  };
  h.navigate = [&ui](const std::string& target) { dispatch_rvc_navigation(ui, target); };
  h.command = [&ui](const Params& p) {
    RvcBrowser& b = rvc_browser();
    if (p.count("toolbar")) {
      if (p.at("toolbar") == "Index") top_index(ui);
      if (p.at("toolbar") == "Print") ui.print_page("rvc");
    } else if (p.count("tabs") && p.at("tabs") == "report") {
      const int tab = param_int(p, "tab", 0);
      if (tab != 1 && tab != 2) return;
      b.tab = tab;
      ui.navigate("rvc", tab == 2 ? "hotspot_rep2.htm" : "hotspot_rep1.htm");
    }
  };
  ui.register_window("rvc", h);
}

}  // namespace arven::shell
