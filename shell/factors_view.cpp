#include "prep/activity_factors.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Activity Factors";

struct FactorsDialog {
  FactorKind kind = FactorKind::ghg;  // Combo1
  std::string search;
  std::vector<ActivityItem> activities;
  int activity = -1;
  std::vector<ListItem> rvcs;  // Combo2
  int64_t rvc = 0;
  GridTable table;
  std::string notes;
};

FactorsDialog& dialog() {
  static FactorsDialog d;
  return d;
}

int64_t activity_id() {
  auto& d = dialog();
  return d.activity >= 0 && d.activity < static_cast<int>(d.activities.size())
             ? d.activities[d.activity].item.data
             : -1;
}

void load_table() {
  auto& d = dialog();
  int64_t id = activity_id();
  d.notes = id >= 0 ? display_act_info(id) : "";
  if (id < 0)
    d.table = factor_table(d.kind);
  else if (d.kind == FactorKind::ecosystem_services)
    d.table = get_es_details(id);
  else if (d.kind == FactorKind::yield)
    d.table = get_yield_details(id, d.rvc);
  else
    d.table = get_ghg_details(id, d.kind, d.rvc);
}

void list_activities() {
  auto& d = dialog();
  d.activities = get_activities(d.search, d.kind);
  if (d.activity >= static_cast<int>(d.activities.size())) d.activity = -1;
  load_table();
}

void save(Ui& ui) {
  auto& d = dialog();
  int64_t id = activity_id();
  if (id < 0) return;
  if (factor_kind_by_class(d.kind) && d.rvc == 0 && d.table.rows() > 1) {
    ui.message_box("Choose the RVC of the classes first.", kTitle, MsgButtons::Ok,
                   MsgIcon::Exclamation);
    return;
  }
  switch (d.kind) {
    case FactorKind::ghg:
      save_ghg_details(id, 1, d.rvc, d.table);
      break;
    case FactorKind::carbon_sequestration:
      save_ghg_details(id, 2, d.rvc, d.table);
      break;
    case FactorKind::ecosystem_services:
      save_es_details(id, d.table);
      break;
    case FactorKind::yield:
      save_yield_details(id, d.rvc, d.table);
      break;
  }
  list_activities();
}

json controls() {
  auto& d = dialog();
  std::vector<std::string> kinds = factor_kind_texts(), acts, rvcs;
  std::vector<bool> kind_sel, act_sel, rvc_sel;
  for (size_t i = 0; i < kinds.size(); ++i)
    kind_sel.push_back(static_cast<int>(i) == static_cast<int>(d.kind));
  for (size_t i = 0; i < d.activities.size(); ++i) {
    acts.push_back(d.activities[i].item.text + (d.activities[i].has_data ? " *" : ""));
    act_sel.push_back(static_cast<int>(i) == d.activity);
  }
  for (const auto& r : d.rvcs) {
    rvcs.push_back(r.text);
    rvc_sel.push_back(r.data == d.rvc);
  }
  json lists = {list_control("kind", "Factor kind", kinds, kind_sel),
                list_control("activities", "Activities (* has data)", acts, act_sel)};
  std::vector<std::string> cols;
  if (d.kind == FactorKind::ecosystem_services) {
    cols = {"number", "readonly", "number"};
  } else {
    lists.push_back(list_control("rvc", "RVC", rvcs, rvc_sel));
    cols.assign(static_cast<size_t>(d.table.cols()), "number");
    if (!cols.empty()) cols[0] = "readonly";
  }
  json buttons = {{{"id", "save"}, {"text", "Save"}}};
  if (factor_kind_by_class(d.kind))
    buttons.push_back({{"id", "classes"}, {"text", "Classes of the RVC"}});
  else
    buttons.push_back({{"id", "addrow"}, {"text", "Add row"}});
  return {{"title", kTitle},
          {"no_page", true},
          {"fill", true},
          {"inputs",
           {{{"id", "search"},
             {"label", "Search activities:"},
             {"value", d.search},
             {"placeholder", "Activity name"}}}},
          {"lists", lists},
          {"html", "<p class=\"notes\">Notes: " + html_escape(d.notes) + "</p>"},
          {"grid", grid_control("factors", d.table, cols, "No factors.")},
          {"buttons", buttons}};
}

}  // namespace

void register_factors_window(WebUi& ui) {
  WindowHandlers h;
  h.load = [] {
    auto& d = dialog();
    d.rvcs = get_rvcs();
    d.activity = -1;
    list_activities();
  };
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    guarded(ui, kTitle, [&] {
      int index = param_int(p, "index", -1);
      std::string list = param_text(p, "list");
      if (p.count("input")) {
        d.search = param_text(p, "value");
        d.activity = -1;
        list_activities();
      } else if (list == "kind" && index >= 0 && index < 4) {
        d.kind = static_cast<FactorKind>(index);
        list_activities();
      } else if (list == "activities" && index >= 0 &&
                 index < static_cast<int>(d.activities.size())) {
        d.activity = index;
        load_table();
      } else if (list == "rvc" && index >= 0 && index < static_cast<int>(d.rvcs.size())) {
        d.rvc = d.rvcs[index].data;
      } else if (p.count("grid") && param_text(p, "event") == "edit") {
        int row = param_int(p, "row", -1) + 1, col = param_int(p, "col", -1);
        if (row >= 1 && row < d.table.rows() && col >= 0 && col < d.table.cols())
          d.table.cell(row, col) = param_text(p, "value");
      } else if (param_text(p, "button") == "save") {
        save(ui);
      } else if (param_text(p, "button") == "classes") {
        d.table = factor_class_rows(d.kind, d.rvc);
      } else if (param_text(p, "button") == "addrow") {
        d.table.add_row();
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/factors", h);
}

}  // namespace arven::shell
