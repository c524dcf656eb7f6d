#include "base/html_text.h"
#include "reports/charts.h"
#include "shell/admin_controls.h"
#include "windows/comp_man_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

// A record's `CORINE Class` box becomes a choice list; a stored value that
// is not one of the choices is offered as it stands, so nothing changes
// unseen (an empty box is saved as 0, "Not applicable").
void corine_choices(json& inputs) {
  for (auto& input : inputs) {
    if (input["id"] != "f:CORINE Class") continue;
    std::string value = input["value"];
    if (value.empty()) value = "0";
    json choices = json::array();
    bool known = false;
    for (const auto& [v, text] : corine_class_choices()) {
      choices.push_back({{"value", v}, {"text", text}});
      known = known || v == value;
    }
    if (!known) choices.push_back({{"value", value}, {"text", value}});
    input["value"] = value;
    input["choices"] = choices;
  }
}

json comp_controls() {
  auto& d = comp_dialog();
  std::vector<std::string> kinds = {"Operations", "Activities", "Baselines"}, items, filters;
  std::vector<bool> kind_sel, item_sel, filter_sel;
  for (int i = 0; i < 3; ++i) kind_sel.push_back(i + 1 == static_cast<int>(d.kind));
  for (size_t i = 0; i < d.items.size(); ++i) {
    items.push_back(d.items[i].item.text + " - " +
                    (d.items[i].data_available ? "Data available" : "Data not available"));
    item_sel.push_back(static_cast<int>(i) == d.selected);
  }
  json lists = {list_control("kind", "Component", kinds, kind_sel),
                list_control("items", "Records", items, item_sel)};
  if (d.kind == CompKind::activities) {
    for (size_t i = 0; i < impact_type_choices().size(); ++i) {
      filters.push_back(impact_type_choices()[i].first);
      filter_sel.push_back(static_cast<int>(i) == d.impact_filter);
    }
    lists.push_back(list_control("impact", "Impact type", filters, filter_sel));
  }
  if (d.kind == CompKind::operations) {
    for (bool fresh : {false, true}) {
      const auto& all = fresh ? d.new_measures : d.measures;
      const auto& chosen = fresh ? d.record.new_measures : d.record.measures;
      std::vector<std::string> texts;
      std::vector<bool> sel;
      for (const auto& m : all) {
        texts.push_back(m.text);
        sel.push_back(std::find(chosen.begin(), chosen.end(), m.data) != chosen.end());
      }
      lists.push_back(list_control(fresh ? "newmeasures" : "measures",
                                   fresh ? "New measures" : "Measures", texts, sel));
    }
  }
  std::string title = d.record.key > 0 ? comp_title(d.kind, d.record.key) : "New record";
  json inputs = {{{"id", "search"}, {"label", "Search:"}, {"value", d.search}}};
  for (auto& f : field_inputs(comp_fields(d.kind), [&](const std::string& name) {
         auto it = d.record.fields.find(name);
         return it == d.record.fields.end() ? std::string() : it->second;
       }))
    inputs.push_back(f);
  corine_choices(inputs);
  json buttons = {{{"id", "save"}, {"text", "Save"}},
                  {{"id", "add"}, {"text", "Add New"}},
                  {{"id", "report"}, {"text", "Report"}}};
  if (d.kind == CompKind::operations) {
    buttons.push_back({{"id", "scopeout"}, {"text", "Scope Out"}});
    buttons.push_back({{"id", "xppl"}, {"text", "xPPL_List"}});
  }
  return {{"title", kCompTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"html", "<h3 id=\"record-title\">" + html_escape(title) + "</h3>"},
          {"lists", lists},
          {"inputs", inputs},
          {"buttons", buttons}};
}

void comp_command(Ui& ui, const Params& p) {
  const int index = param_int(p, "index", -1);
  const std::string list = param_text(p, "list"), input = param_text(p, "input");
  comp_dialog().status.clear();
  if (input == "search")
    comp_search(param_text(p, "value"));
  else if (input.rfind("f:", 0) == 0)
    comp_set_field(input.substr(2), param_text(p, "value"));
  else if (list == "kind")
    comp_select_kind(index);
  else if (list == "impact")
    comp_select_impact(index);
  else if (list == "items")
    comp_select_item(index);
  else if (list == "measures" || list == "newmeasures")
    comp_toggle_measure(list == "newmeasures", index);
  else if (p.count("button"))
    comp_button(ui, param_text(p, "button"));
}

json rvc_controls() {
  auto& d = rvc_dialog();
  std::vector<std::string> names, kids;
  std::vector<bool> sel;
  for (size_t i = 0; i < d.rvcs.size(); ++i) {
    names.push_back(std::to_string(d.rvcs[i].data) + " " + d.rvcs[i].text);
    sel.push_back(static_cast<int>(i) == d.selected);
  }
  for (const auto& k : d.record.children) kids.push_back(std::to_string(k.data) + " " + k.text);
  json inputs = field_inputs(rvc_fields(), [&](const std::string& name) {
    auto it = d.record.fields.find(name);
    return it == d.record.fields.end() ? std::string() : it->second;
  });
  corine_choices(inputs);
  return {
      {"title", kRvcTitle},
      {"no_page", true},
      {"fill", true},
      {"caption", d.status},
      {"lists",
       {list_control("rvcs", "RVCs", names, sel), list_control("children", "Children", kids, {})}},
      {"inputs", inputs},
      {"buttons",
       {{{"id", "save"}, {"text", "Save"}},
        {{"id", "add"}, {"text", "Add New"}},
        {{"id", "getmf"}, {"text", "Get MF"}}}}};
}

void rvc_command(Ui& ui, const Params& p) {
  const std::string input = param_text(p, "input");
  rvc_dialog().status.clear();
  if (param_text(p, "list") == "rvcs")
    rvcman_select(param_int(p, "index", -1));
  else if (input.rfind("f:", 0) == 0)
    rvcman_set_field(input.substr(2), param_text(p, "value"));
  else if (p.count("button"))
    rvcman_button(ui, param_text(p, "button"));
}

}  // namespace

void register_compman_windows(WebUi& ui) {
  WindowHandlers h;
  h.load = comp_load;
  h.controls = comp_controls;
  h.command = [&ui](const Params& p) { guarded(ui, kCompTitle, [&] { comp_command(ui, p); }); };
  h.query_close = [] { return true; };
  ui.register_window("admin/compman", h);

  WindowHandlers r;
  r.load = rvcman_load;
  r.controls = rvc_controls;
  r.command = [&ui](const Params& p) { guarded(ui, kRvcTitle, [&] { rvc_command(ui, p); }); };
  r.query_close = [] { return true; };
  ui.register_window("admin/rvcman", r);
  WindowHandlers b;
  b.load = [&ui] {
    guarded(ui, "EU budget chart", [&] { ui.navigate("admin/budget", country_budget_page()); });
  };
  b.controls = [] { return json{{"title", "EU Member States RDP Budget"}}; };
  b.query_close = [] { return true; };
  ui.register_window("admin/budget", b);
}

}  // namespace arven::shell
