#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"
#include "prep/activity_delta.h"

namespace arven {

// The component manager ("Comp Man") over operations, activities and
// baselines of the operations master, and the RVC Manager over RVC_List of
// the RVC master. A record passes as its fields' texts by column name; a
// save checks every field first and writes in one transaction.

enum class CompKind { operations = 1, activities = 2, baselines = 3 };

// The columns a record of the kind shows and saves, in order. Activities
// add "Refs" and "Data_Quality", which go to the activity's factor rows.
const std::vector<std::string>& comp_fields(CompKind kind);
// The impact type choices of activities: the text and the stored value;
// "All" (value 0) is a filter of the list only.
const std::vector<std::pair<std::string, int>>& impact_type_choices();

// The choices of `CORINE Class`: the stored value as text and what the
// list shows, 0 "Not applicable" and "1. Cropland" to "9. Marshland".
const std::vector<std::pair<std::string, std::string>>& corine_class_choices();

// The operations of the hand-kept list xPPL_List, in its order.
std::vector<int64_t> xppl_list();

struct CompItem {
  ListItem item;
  bool data_available = false;  // "Data available" / "Data not available"
};
// The records whose name holds the text; spare operations ("zSpareOp_...")
// are left out. `impact_type` 0 lists activities of every type.
std::vector<CompItem> get_comp_list(CompKind kind, const std::string& search, int impact_type = 0);

struct CompRecord {
  int64_t key = 0;
  std::map<std::string, std::string> fields;
  std::vector<int64_t> measures, new_measures;  // operations only
};
CompRecord get_comp_details(CompKind kind, int64_t key);
// The record's title: its name, " ID: " + key for operations and
// activities, and " - Delta calculated" for an operation with delta rows.
std::string comp_title(CompKind kind, int64_t key);
// The two measure lists (Measures, New_Measures): "EU ID name" and the key.
std::vector<ListItem> measure_list(bool new_measures);

// Saves a record. Refused with a message (and nothing written) when the
// name is taken by another record, or always taken for a new one, or a
// number field holds no number; returns the key, 0 when refused.
int64_t save_comp_details(Ui& ui, CompKind kind, const CompRecord& record, bool is_new);
// "Are you sure you want to add a new component?": on Yes, the record as a
// new one. Returns the new key, 0 when not added.
int64_t add_new_comp(Ui& ui, CompKind kind, const CompRecord& record);
// Command13: the operation becomes the next spare after its question; its
// measures, details and deltas go. True when scoped out.
bool scope_out(Ui& ui, int64_t operation_id);
// Writes report.htm, the overview of a record's activities; returns its name.
std::string write_comp_report(CompKind kind, int64_t key);

// ---- RVC Manager ----
const std::vector<std::string>& rvc_fields();
std::vector<ListItem> RVC_list();
struct RvcRecord {
  int64_t id = 0;
  std::map<std::string, std::string> fields;
  std::vector<ListItem> children;  // RVCs whose `RVC Parent` is this one
};
RvcRecord get_RVC_details(int64_t rvc_id);
// Saves the record (rvc_id 0: a new one); the same name check as components.
int64_t save_RVC_details(Ui& ui, int64_t rvc_id, const std::map<std::string, std::string>& fields);
// Command2: "Are you sure you want to add a new RVC?", then "Create database
// table?" (NUTS3_<RVC Short Name> in the RVC master), then the save.
int64_t add_rvc(Ui& ui, const std::map<std::string, std::string>& fields);
// "Get MF": the sum of the RVC's adaptation factors, as text ("0" without).
std::string get_mf(int64_t rvc_id);

}  // namespace arven
