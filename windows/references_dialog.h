#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/ui.h"
#include "prep/activity_delta.h"
#include "prep/activity_factors.h"
#include "prep/references.h"

namespace arven {

// "References": the rows of References listed, searched, edited, added and
// deleted (not while a factor row names them), where each is used, and the
// Refs of a factor row chosen from the list. A refused edit or a store
// failure throws, and the view tells it.

inline constexpr const char* kReferencesTitle = "References";

struct ReferencesDialog {
  std::string search;
  std::vector<ReferenceRow> refs;
  int ref = -1;  // index into refs; -1 with `adding` is a new reference
  bool adding = false;
  std::string short_ref, long_ref, url;  // the fields being edited
  GridTable uses{6};
  // Choosing the references of a factor row.
  std::vector<ActivityItem> activities;
  int activity = -1;
  std::vector<FactorRefRow> rows;
  int row = -1;
  std::vector<ReferenceRow> all;  // every reference, for the factor row's choice
  std::vector<int64_t> chosen;    // the factor row's Refs, in their order
  std::string status;
};

ReferencesDialog& references_dialog();

// A reference of the list is on show.
bool references_has_ref(const ReferencesDialog& d);
// Reference IDs as "1, 4", or "none".
std::string references_text(const std::vector<int64_t>& ids);

// The dialog opens: the activities and every reference are read.
void references_load();
// The references whose texts hold the search.
void references_search(const std::string& text);
// Shows the reference of the list by its index (-1 none), with its uses.
void references_show(int index);
// A field of the reference being edited: "Ref Short", "Ref Long" or "URL".
void references_set_field(const std::string& field, const std::string& value);
// The activity whose factor rows are listed, and the row whose Refs are chosen.
void references_select_activity(int index);
void references_select_row(int index);
// Adds or takes away a reference (by its index in the whole list) from the
// factor row's Refs.
void references_toggle(int index);
// A button: "save", "add", "delete" or "saverefs"; what it did is left in
// the status line.
void references_button(Ui& ui, const std::string& button);

}  // namespace arven
