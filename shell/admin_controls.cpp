#include "shell/admin_controls.h"

#include "core/session.h"
#include "prep/activity_delta.h"
#include "stores/db.h"

namespace arven::shell {

using nlohmann::json;

json list_control(const std::string& id, const std::string& label,
                  const std::vector<std::string>& texts, const std::vector<bool>& selected) {
  json items = json::array();
  for (size_t i = 0; i < texts.size(); ++i)
    items.push_back({{"text", texts[i]}, {"selected", i < selected.size() && selected[i]}});
  return {{"id", id}, {"label", label}, {"items", items}};
}

namespace {
json header_of(const GridTable& t) {
  json h = json::array();
  for (int c = 0; c < t.cols(); ++c) h.push_back(t.rows() > 0 ? t.cell(0, c) : "");
  return h;
}
json rows_of(const GridTable& t) {
  json rows = json::array();
  for (int r = 1; r < t.rows(); ++r) {
    json row = json::array();
    for (int c = 0; c < t.cols(); ++c) row.push_back(t.cell(r, c));
    rows.push_back(row);
  }
  return rows;
}
}  // namespace

json grid_control(const std::string& id, const GridTable& table,
                  const std::vector<std::string>& kinds, const std::string& empty) {
  json editable = json::array();
  for (const auto& k : kinds) editable.push_back(k != "readonly");
  return {{"id", id},
          {"header", header_of(table)},
          {"rows", rows_of(table)},
          {"editable", editable},
          {"kinds", kinds},
          {"decimal", session().decimal_separator},
          {"empty", empty}};
}

json table_control(const std::string& id, const std::string& label, const GridTable& table,
                   const std::string& empty) {
  return {{"id", id},
          {"label", label},
          {"header", header_of(table)},
          {"rows", rows_of(table)},
          {"empty", empty}};
}

json field_inputs(const std::vector<std::string>& fields,
                  const std::function<std::string(const std::string&)>& value) {
  json out = json::array();
  for (const auto& f : fields)
    out.push_back({{"id", "f:" + f}, {"label", f + ":"}, {"value", value(f)}});
  return out;
}

void guarded(Ui& ui, const std::string& title, const std::function<void()>& action) {
  try {
    action();
  } catch (const EditError& e) {
    ui.message_box(e.what(), title, MsgButtons::Ok, MsgIcon::Exclamation);
  } catch (const StoreError& e) {
    ui.message_box(e.what(), title, MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

}  // namespace arven::shell
