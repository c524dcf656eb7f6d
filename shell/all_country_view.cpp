#include "shell/all_country_view.h"

#include "shell/control_json.h"
#include "windows/prepro_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

// The action chosen in the list, as an index of prepro_all_country_buttons().
int& chosen_action() {
  static int index = 0;
  return index;
}

json all_country_controls() {
  std::vector<std::pair<std::string, bool>> actions;
  const auto& buttons = prepro_all_country_buttons();
  for (size_t i = 0; i < buttons.size(); ++i)
    actions.push_back({buttons[i].second, static_cast<int>(i) == chosen_action()});
  return {{"title", "All-country store"},
          {"no_page", true},
          {"fill", true},
          {"html",
           "<p>Maintains dbases/prepro/new_arven_operations.mdb. The actions that copy from, "
           "or change, a country store work on the store named below.</p>"},
          {"inputs",
           {{{"id", "store"},
             {"label", "Store (a file of dbases/prepro):"},
             {"value", prepro_dialog().store},
             {"placeholder", "new_arven_operations_DK.mdb"}}}},
          {"lists", {list_json("actions", "Action", actions)}},
          {"buttons", {{{"id", "run"}, {"text", "Run"}}}}};
}

}  // namespace

void register_all_country_window(WebUi& ui) {
  WindowHandlers h;
  h.controls = all_country_controls;
  h.command = [&ui](const Params& p) {
    const auto& buttons = prepro_all_country_buttons();
    if (param_text(p, "list") == "actions") {
      int index = param_int(p, "index", -1);
      if (index >= 0 && index < static_cast<int>(buttons.size())) chosen_action() = index;
    } else if (param_text(p, "input") == "store") {
      prepro_dialog().store = param_text(p, "value");
    } else if (param_text(p, "button") == "run") {
      prepro_all_country(ui, buttons[static_cast<size_t>(chosen_action())].first);
    }
  };
  ui.register_window("admin/allcountry", h);
}

}  // namespace arven::shell
