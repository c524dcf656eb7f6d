#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"
#include "prep/drill_down.h"

namespace arven {

// "Data Drill-down": for an operation and a NUTS area of a country store,
// every row that makes its stored figures. A store failure throws, and the
// view tells it.

inline constexpr const char* kDrillTitle = "Data Drill-down";

struct DrillDialog {
  std::vector<std::string> stores;
  int store = 0;
  int level = 3;
  std::string area;  // the NUTS code typed
  std::string search;
  std::vector<ListItem> operations;
  int operation = -1;
  std::optional<DrillDown> shown;
  std::string status;
};

DrillDialog& drill_dialog();

// The dialog opens: the country stores and the operations are listed.
void drill_load();
// The operations whose names hold the text; none is chosen.
void drill_search(const std::string& text);
// A choice in a list: "stores", "level" (0..3) or "operations", by index.
void drill_select(const std::string& list, int index);
// "Show the rows": the drill-down of the chosen store, level, area and
// operation, or a message saying what is missing.
void drill_show(Ui& ui);

}  // namespace arven
