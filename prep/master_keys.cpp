#include "prep/master_keys.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "core/lookups.h"
#include "stores/db.h"

namespace arven {

namespace {

using Keys = std::map<std::string, std::vector<std::string>, std::less<>>;

const Keys& single_keys() {
  static const Keys k = {
      {"Operations", {"Operation ID"}},
      {"Operations_Types", {"Operation Type ID"}},
      {"Practicality_Items", {"Practicality ID"}},
      {"Measures", {"Measure ID"}},
      {"New_Measures", {"Measure ID"}},
      {"Impact areas", {"Impact ID"}},
      {"Activities", {"Activity ID"}},
      {"Baselines", {"Baseline ID"}},
      {"References", {"Ref ID"}},
      {"Scoped_Out_Operations", {"Operation ID"}},
      {"xPPL_List", {"Operation ID"}},
      {"Countries", {"Country name"}},
      {"RVC_List", {"RVC ID"}},
      {"NUTS0", {"NUTS0_ID"}},
      {"NUTS1", {"NUTS1_ID"}},
      {"NUTS2", {"NUTS2_ID"}},
      {"NUTS3", {"NUTS3_ID"}},
      // The rationalised operations store: an operation has one rationalised
      // operation, named by its category and ID.
      {"Land management", {"Rationalised ID"}},
      {"Financial and infrastructure support", {"Rationalised ID"}},
      {"Markets, products & diversification", {"Rationalised ID"}},
      {"Renewable energies", {"Rationalised ID"}},
      {"Tourism and leisure", {"Rationalised ID"}},
      {"Training and education", {"Rationalised ID"}},
      {"Other operations", {"Rationalised ID"}},
      {"Operations_Rationalised", {"Operation ID"}},
  };
  return k;
}

// Tables whose rows pair keys of other tables: a pair is listed once.
const Keys& pair_keys() {
  static const Keys k = {
      {"Operations_Measures", {"Operation ID", "Measure ID"}},
      {"Operations_New_Measures", {"Operation ID", "Measure ID"}},
      {"Operations_Impacts", {"Operation ID", "Impact ID"}},
      {"Operations_Practicality", {"Operation ID", "Practicality ID"}},
      {"Scoped_Out_Operations_Measures", {"Operation ID", "Measure ID"}},
      {"Delta_List", {"Operation ID", "Baseline ID"}},
  };
  return k;
}

}  // namespace

const std::vector<std::string>& key_columns(std::string_view table) {
  static const std::vector<std::string> none;
  if (auto it = single_keys().find(table); it != single_keys().end()) return it->second;
  if (auto it = pair_keys().find(table); it != pair_keys().end()) return it->second;
  return none;
}

const std::vector<ForeignKey>& foreign_keys() {
  static const std::vector<ForeignKey> k = {
      {"Operations", "Operation Type ID", "Operations_Types", "Operation Type ID"},
      {"Operations_Measures", "Operation ID", "Operations", "Operation ID"},
      {"Operations_Measures", "Measure ID", "Measures", "Measure ID"},
      {"Operations_New_Measures", "Operation ID", "Operations", "Operation ID"},
      {"Operations_New_Measures", "Measure ID", "New_Measures", "Measure ID"},
      {"Operations_Impacts", "Operation ID", "Operations", "Operation ID"},
      {"Operations_Impacts", "Impact ID", "Impact areas", "Impact ID"},
      {"Operations_Practicality", "Operation ID", "Operations", "Operation ID"},
      {"Operations_Practicality", "Practicality ID", "Practicality_Items", "Practicality ID"},
      {"Scoped_Out_Operations_Measures", "Operation ID", "Scoped_Out_Operations", "Operation ID"},
      {"Delta_List", "Operation ID", "Operations", "Operation ID"},
      {"Delta_List", "Baseline ID", "Baselines", "Baseline ID"},
      {"Operation_Activity_Details", "Operation ID", "Operations", "Operation ID"},
      {"Operation_Activity_Details", "Activity ID", "Activities", "Activity ID"},
      {"Baseline_Activity_Details", "Baseline ID", "Baselines", "Baseline ID"},
      {"Baseline_Activity_Details", "Activity ID", "Activities", "Activity ID"},
      {"Operation_Activity_Delta", "Operation ID", "Operations", "Operation ID"},
      {"Operation_Activity_Delta", "Baseline ID", "Baselines", "Baseline ID"},
      {"Operation_Activity_Delta", "Activity ID", "Activities", "Activity ID"},
      {"Mitigation_Activity_Emission_Factors", "Activity ID", "Activities", "Activity ID"},
      {"Adaptation_Activity_Impact_Factors", "Activity ID", "Activities", "Activity ID"},
      {"Yield_Activity_Impact_Factors", "Activity ID", "Activities", "Activity ID"},
  };
  return k;
}

const std::vector<std::string>& refs_tables() {
  static const std::vector<std::string> t = {"Mitigation_Activity_Emission_Factors",
                                             "Adaptation_Activity_Impact_Factors",
                                             "Yield_Activity_Impact_Factors"};
  return t;
}

std::optional<std::vector<int64_t>> parse_refs(std::string_view text) {
  std::vector<int64_t> ids;
  auto blank = [](char c) { return c == ' ' || c == '\t'; };
  size_t i = 0;
  while (i < text.size() && blank(text[i])) ++i;
  if (i == text.size()) return ids;
  for (;;) {
    int64_t id = 0;
    auto [p, ec] = std::from_chars(text.data() + i, text.data() + text.size(), id);
    if (ec != std::errc() || id < 0) return std::nullopt;
    ids.push_back(id);
    i = static_cast<size_t>(p - text.data());
    while (i < text.size() && blank(text[i])) ++i;
    if (i == text.size()) return ids;
    if (text[i] != ',') return std::nullopt;
    ++i;
    while (i < text.size() && blank(text[i])) ++i;
  }
}

bool fits_text_column(std::string_view text, int size) {
  if (size <= 0) return true;
  auto chars = std::count_if(text.begin(), text.end(),
                             [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
  return chars <= size;
}

int stamp_operations(Db& db, const std::set<int64_t>& operation_ids) {
  if (operation_ids.empty()) return 0;
  const std::string stamp = local_time_stamp();
  auto update = db.prepare_statement("UPDATE " + quote_name("Operations") + " SET " +
                                     quote_name("Last_Updated") + " = ? WHERE " +
                                     quote_name("Operation ID") + " = ?");
  int stamped = 0;
  for (int64_t op : operation_ids) stamped += update.run({Value(stamp), Value(op)});
  return stamped;
}

}  // namespace arven
