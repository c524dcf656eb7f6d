#include "windows/drill_dialog.h"

#include "prep/activity_delta.h"
#include "stores/db.h"

namespace arven {

DrillDialog& drill_dialog() {
  static DrillDialog d;
  return d;
}

void drill_load() {
  auto& d = drill_dialog();
  d.stores = drill_down_stores();
  if (d.store >= static_cast<int>(d.stores.size())) d.store = 0;
  fill_operations_like(d.operations, d.search);
}

void drill_search(const std::string& text) {
  auto& d = drill_dialog();
  d.search = text;
  d.operation = -1;
  fill_operations_like(d.operations, d.search);
}

void drill_select(const std::string& list, int index) {
  auto& d = drill_dialog();
  if (list == "stores" && index >= 0 && index < static_cast<int>(d.stores.size()))
    d.store = index;
  else if (list == "level" && index >= 0 && index <= 3)
    d.level = index;
  else if (list == "operations" && index >= 0 && index < static_cast<int>(d.operations.size()))
    d.operation = index;
}

void drill_show(Ui& ui) {
  auto& d = drill_dialog();
  if (d.store < 0 || d.store >= static_cast<int>(d.stores.size())) {
    ui.message_box("There is no country store to drill into: run the pre-processor first.",
                   kDrillTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  if (d.operation < 0 || d.operation >= static_cast<int>(d.operations.size()) || d.area.empty()) {
    ui.message_box("Choose an operation and type the NUTS code of an area first.", kDrillTitle,
                   MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  d.shown = drill_down(d.stores[static_cast<size_t>(d.store)], d.level, d.area,
                       d.operations[static_cast<size_t>(d.operation)].data);
  d.status = "Showing the rows of " + d.shown->heading + ".";
}

}  // namespace arven
