#include <algorithm>

#include "prep/comp_man.h"
#include "reports/charts.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kCompTitle = "Comp Man";
constexpr const char* kRvcTitle = "RVC Manager";

struct CompManDialog {
  CompKind kind = CompKind::operations;
  std::string search;
  int impact_filter = 4;  // "All"
  std::vector<CompItem> items;
  int selected = -1;
  CompRecord record;
  std::vector<ListItem> measures, new_measures;
  bool xppl = false;   // the list shows the operations of xPPL_List only
  std::string status;  // the status line: what the last button did
};

CompManDialog& comp() {
  static CompManDialog d;
  return d;
}

void select_item(int index) {
  auto& d = comp();
  d.selected = index;
  d.record = index >= 0 && index < static_cast<int>(d.items.size())
                 ? get_comp_details(d.kind, d.items[index].item.data)
                 : CompRecord{};
}

// The records of the list: by the search, or those of xPPL_List.
std::vector<CompItem> records() {
  auto& d = comp();
  auto items = get_comp_list(d.kind, d.search, impact_type_choices()[d.impact_filter].second);
  if (!d.xppl || d.kind != CompKind::operations) return items;
  std::vector<CompItem> listed;
  for (int64_t id : xppl_list())
    for (const auto& item : items)
      if (item.item.data == id) listed.push_back(item);
  return listed;
}

void list_items() {
  auto& d = comp();
  d.items = records();
  select_item(d.items.empty() ? -1 : 0);
}

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

const char* kind_word(CompKind kind) {
  return kind == CompKind::operations   ? "operation"
         : kind == CompKind::activities ? "activity"
                                        : "baseline";
}

void toggle(std::vector<int64_t>& chosen, int64_t id) {
  auto it = std::find(chosen.begin(), chosen.end(), id);
  if (it == chosen.end())
    chosen.push_back(id);
  else
    chosen.erase(it);
}

// After a save, the list shows the saved record selected.
void reselect(int64_t key) {
  auto& d = comp();
  d.items = records();
  int index = -1;
  for (size_t i = 0; i < d.items.size(); ++i)
    if (d.items[i].item.data == key) index = static_cast<int>(i);
  select_item(index);
  if (index < 0) d.record = get_comp_details(d.kind, key);
}

json comp_controls() {
  auto& d = comp();
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
  auto& d = comp();
  d.status.clear();
  int index = param_int(p, "index", -1);
  std::string list = param_text(p, "list"), input = param_text(p, "input");
  if (input == "search") {
    d.search = param_text(p, "value");
    d.xppl = false;
    list_items();
  } else if (input.rfind("f:", 0) == 0) {
    d.record.fields[input.substr(2)] = param_text(p, "value");
  } else if (list == "kind" && index >= 0 && index < 3) {
    d.kind = static_cast<CompKind>(index + 1);
    d.xppl = false;
    list_items();
  } else if (list == "impact" && index >= 0 &&
             index < static_cast<int>(impact_type_choices().size())) {
    d.impact_filter = index;
    list_items();
  } else if (list == "items" && index >= 0 && index < static_cast<int>(d.items.size())) {
    select_item(index);
  } else if (list == "measures" && index >= 0 && index < static_cast<int>(d.measures.size())) {
    toggle(d.record.measures, d.measures[index].data);
  } else if (list == "newmeasures" && index >= 0 &&
             index < static_cast<int>(d.new_measures.size())) {
    toggle(d.record.new_measures, d.new_measures[index].data);
  } else if (p.count("button")) {
    std::string b = param_text(p, "button");
    auto named = d.record.fields.find(comp_fields(d.kind).front());
    std::string name = named == d.record.fields.end() ? "" : named->second;
    if ((b == "save" || b == "scopeout" || b == "report") && d.record.key <= 0) {
      d.status = std::string(d.kind == CompKind::baselines ? "Choose a " : "Choose an ") +
                 kind_word(d.kind) + " first.";
    } else if (b == "save") {
      if (int64_t key = save_comp_details(ui, d.kind, d.record, false)) {
        reselect(key);
        d.status = std::string("Saved ") + kind_word(d.kind) + " \"" + name + "\".";
      }
    } else if (b == "add") {
      if (int64_t key = add_new_comp(ui, d.kind, d.record)) {
        reselect(key);
        d.status = std::string("Added ") + kind_word(d.kind) + " \"" + name + "\" with ID " +
                   std::to_string(key) + ".";
      }
    } else if (b == "scopeout" && d.kind == CompKind::operations) {
      if (scope_out(ui, d.record.key)) {
        list_items();
        d.status = "Scoped out \"" + name + "\": its key waits as a spare.";
      }
    } else if (b == "report") {
      ui.open_document(write_comp_report(d.kind, d.record.key));
    } else if (b == "xppl" && d.kind == CompKind::operations) {
      d.search.clear();
      d.xppl = true;
      list_items();
      ui.message_box("Done", "xPPL_List", MsgButtons::Ok, MsgIcon::Information);
      d.status = "xPPL_List: " + std::to_string(d.items.size()) +
                 (d.items.size() == 1 ? " operation" : " operations") +
                 " listed. Search to list all operations again.";
    }
  }
}

// ---- RVC Manager ----

struct RvcDialog {
  std::vector<ListItem> rvcs;
  int selected = -1;
  RvcRecord record;
  std::string status;  // the status line: what the last button did
};

RvcDialog& rvc() {
  static RvcDialog d;
  return d;
}

void rvc_select(int64_t id) {
  auto& d = rvc();
  d.rvcs = RVC_list();
  d.selected = -1;
  for (size_t i = 0; i < d.rvcs.size(); ++i)
    if (d.rvcs[i].data == id) d.selected = static_cast<int>(i);
  d.record = d.selected >= 0 ? get_RVC_details(id) : RvcRecord{};
}

json rvc_controls() {
  auto& d = rvc();
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
  auto& d = rvc();
  d.status.clear();
  int index = param_int(p, "index", -1);
  std::string input = param_text(p, "input");
  std::string button = param_text(p, "button");
  auto named = d.record.fields.find("RVC Short Name");
  std::string name = named == d.record.fields.end() ? "" : named->second;
  if (param_text(p, "list") == "rvcs" && index >= 0 && index < static_cast<int>(d.rvcs.size())) {
    rvc_select(d.rvcs[index].data);
  } else if (input.rfind("f:", 0) == 0) {
    d.record.fields[input.substr(2)] = param_text(p, "value");
  } else if ((button == "save" || button == "getmf") && d.record.id <= 0) {
    d.status = "Choose an RVC first.";
  } else if (button == "save") {
    if (int64_t id = save_RVC_details(ui, d.record.id, d.record.fields)) {
      rvc_select(id);
      d.status = "Saved RVC \"" + name + "\".";
    }
  } else if (button == "add") {
    if (int64_t id = add_rvc(ui, d.record.fields)) {
      rvc_select(id);
      d.status = "Added RVC \"" + name + "\" with ID " + std::to_string(id) + ".";
    }
  } else if (button == "getmf") {
    d.record.fields["Max_factor"] = get_mf(d.record.id);
    d.status = "Get MF: Max_factor " + d.record.fields["Max_factor"] +
               ", the sum of the RVC's adaptation factors. Not saved yet.";
  }
}

}  // namespace

void register_compman_windows(WebUi& ui) {
  WindowHandlers h;
  h.load = [] {
    auto& d = comp();
    d.measures = measure_list(false);
    d.new_measures = measure_list(true);
    list_items();
  };
  h.controls = comp_controls;
  h.command = [&ui](const Params& p) { guarded(ui, kCompTitle, [&] { comp_command(ui, p); }); };
  h.query_close = [] { return true; };
  ui.register_window("admin/compman", h);

  WindowHandlers r;
  r.load = [] {
    auto& d = rvc();
    rvc_select(d.record.id > 0 ? d.record.id : (RVC_list().empty() ? 0 : RVC_list()[0].data));
  };
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
