#pragma once

// What the two source files of impact generation share: the source's
// indexed tables and the small helpers of both ways of calculating.
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/numbers.h"
#include "core/grid_table.h"
#include "core/session.h"
#include "prep/impact_generation.h"
#include "stores/db.h"
#include "stores/value.h"

namespace arven {

namespace impact_detail {

constexpr int64_t kSharedRvc = 19;  // a factor RVC that takes its RVC from elsewhere
constexpr std::array<int, 7> kHorizons = {1, 5, 10, 25, 50, 100, 250};

const std::array<const char*, 7> kMitigationHeadings = {"Activity ID",
                                                        "Activity/feature",
                                                        "Regional impact (tCO2e) / ha",
                                                        "Regional impact (tCO2e) (total)",
                                                        "Carbon sequestration",
                                                        "Data Quality",
                                                        "Refs"};
const std::array<const char*, 7> kAdaptationHeadings = {"Activity ID",
                                                        "Activity/feature",
                                                        "Impact",
                                                        "Regional impact / ha",
                                                        "Regional impact (total)",
                                                        "Data Quality",
                                                        "Refs"};
const std::array<const char*, 6> kYieldHeadings = {"Activity ID",       "Activity/feature",
                                                   "Yield impact / ha", "Yield impact (total)",
                                                   "Data quality",      "Refs"};

// Store keys are compared as numbers, the way the queries compared them.
struct Key2 {
  double a, b;
  bool operator==(const Key2&) const = default;
};
struct Key4 {
  double a, b, c, d;
  bool operator==(const Key4&) const = default;
};
inline size_t mix(size_t h, double v) {
  return h ^ (std::hash<double>{}(v) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2));
}
struct Key2Hash {
  size_t operator()(const Key2& k) const { return mix(mix(0, k.a), k.b); }
};
struct Key4Hash {
  size_t operator()(const Key4& k) const { return mix(mix(mix(mix(0, k.a), k.b), k.c), k.d); }
};

template <typename T>
const T* find_in(const std::unordered_map<double, T>& map, double key) {
  auto it = map.find(key);
  return it == map.end() ? nullptr : &it->second;
}

// A cell that is written only when the store's field holds something.
struct OptionalCell {
  bool set = false;
  std::string text;
  static OptionalCell of(const Value& v) {
    return v.is_empty() ? OptionalCell{} : OptionalCell{true, v.as_text()};
  }
};

}  // namespace impact_detail

// Both source files use the helpers unqualified.
using namespace impact_detail;

struct ImpactSource::Data {
  struct DeltaRow {
    int64_t activity_id = 0;
    std::string activity_text;  // the Activity ID as the result cell shows it
    int64_t rvc_id = 0;
    int64_t rvc_class = 0;
    Value delta;
    int64_t row = 0;  // in Operation_Activity_Delta, for messages
    float id = 0;     // activity_text as a 32-bit float, when id_ok
    bool id_ok = false;
  };
  // A row of any of the three factor tables; `factor` is tCO2e, Impact
  // factor or Yield, and RVC Value is 0 for adaptation, which has none.
  struct FactorRow {
    int64_t rvc_id = 0;
    double rvc_value = 0;
    double mitigation_type = 0;
    double factor = 0;
    bool equilibrium_set = false;
    std::optional<double> equilibrium;  // nullopt: null, no level to stop at
    OptionalCell data_quality;
    OptionalCell refs;
  };
  struct DistRow {
    double rvc_class = 0;
    double percent = 0;
  };
  struct Combo {
    Value rvc, cls;
    int64_t row = 0;  // in Baseline_Impact_Look_Up, for messages
  };
  struct Level {
    bool present = false;
    std::unordered_map<Key2, std::vector<DistRow>, Key2Hash> rows;  // (area, RVC)
  };

  std::filesystem::path ops_path, rvc_path;
  std::unordered_map<double, std::vector<DeltaRow>> deltas;  // by Operation ID
  std::unordered_map<double, std::string> activity_names;
  std::unordered_map<double, std::vector<FactorRow>> mitigation, adaptation, yield;
  std::unordered_map<Key2, double, Key2Hash> corine_children;  // (parent, CORINE class)
  std::unordered_map<double, double> corine_rvcs;              // CORINE class -> RVC Type 5
  std::unordered_map<Key4, Combo, Key4Hash> combos;
  std::array<double, kRvcFactorCount> n_factor{};
  std::array<Level, 4> levels;

  const std::vector<FactorRow>* factors(int impact_type, int64_t activity_id) const {
    double key = static_cast<double>(activity_id);
    switch (impact_type) {
      case kImpactMitigation:
        return find_in(mitigation, key);
      case kImpactAdaptation:
        return find_in(adaptation, key);
      case kImpactYield:
        return find_in(yield, key);
    }
    throw std::invalid_argument("impact type " + std::to_string(impact_type) + " is not 1, 2 or 4");
  }

  const std::string& activity_name(int64_t activity_id) const {
    auto it = activity_names.find(static_cast<double>(activity_id));
    if (it == activity_names.end())
      throw StoreError(ops_path, "table \"Activities\" has no row where \"Activity ID\" = " +
                                     std::to_string(activity_id));
    return it->second;
  }

  double corine_child_rvc_id(double rvc, int64_t corine_class) const {
    if (corine_class == 0) return rvc;
    auto it = corine_children.find({rvc, static_cast<double>(corine_class)});
    return it == corine_children.end() ? rvc : it->second;
  }

  double corine_rvc_id(int64_t corine_class) const {
    auto it = corine_rvcs.find(static_cast<double>(corine_class));
    if (it == corine_rvcs.end())
      throw StoreError(rvc_path, "table \"RVC_List\" has no row where \"CORINE Class\" = " +
                                     std::to_string(corine_class) + " and \"RVC Type\" = 5");
    return it->second;
  }

  const Combo* combo_key(double b_rvc, double b_class, double i_rvc, double i_class) const {
    auto it = combos.find({b_rvc, b_class, i_rvc, i_class});
    return it == combos.end() ? nullptr : &it->second;
  }

  // The distribution rows of one RVC in one area, in store order.
  const std::vector<DistRow>* distribution(int level, double area_id, double rvc) const {
    const Level& l = levels.at(static_cast<size_t>(level));
    if (!l.present)
      throw StoreError(rvc_path,
                       "table \"NUTS" + std::to_string(level) + "_RVC_Data_Dist\" is missing");
    auto it = l.rows.find({area_id, rvc});
    return it == l.rows.end() ? nullptr : &it->second;
  }
};

namespace impact_detail {

inline std::string op_activity(int64_t operation_id, int64_t activity_id) {
  return "operation " + std::to_string(operation_id) + ", activity " + std::to_string(activity_id);
}

// The place of a cell of the master store in a message.
inline std::string cell_place(const char* table, int64_t row, const char* column) {
  return std::string("table \"") + table + "\", row " + std::to_string(row) + ", column \"" +
         column + "\"";
}

// The delta row's Delta as a number; "Multi" or any other text fails.
inline double delta_number(const ImpactSource::Data::DeltaRow& d, int64_t operation_id) {
  if (d.delta.is_int() || d.delta.is_real()) return d.delta.as_double();
  auto n = parse_number(d.delta.as_text());
  if (!n)
    throw ImpactDataError("Impact generation, " + op_activity(operation_id, d.activity_id) + ", " +
                          cell_place("Operation_Activity_Delta", d.row, "Delta") +
                          ": the delta \"" + d.delta.as_text() + "\" is not a number");
  return *n;
}

inline bool is_multi(const Value& delta) {
  return delta.is_text() && delta.as_text() == "Multi";
}

inline float combo_part(const ImpactSource::Data::Combo& combo, bool cls, int64_t operation_id,
                        int64_t activity_id) {
  const Value& v = cls ? combo.cls : combo.rvc;
  auto n = parse_number(v.as_text());
  if (!n)
    throw ImpactDataError(
        "Impact generation, " + op_activity(operation_id, activity_id) + ", " +
        cell_place("Baseline_Impact_Look_Up", combo.row, cls ? "Combo Class" : "Combo RVC") +
        ": the combination \"" + v.as_text() + "\" is not a number");
  return static_cast<float>(*n);
}

template <size_t N>
void reset_table(GridTable& t, const std::array<const char*, N>& headings) {
  t = GridTable(static_cast<int>(N));
  t.add_row();
  for (size_t c = 0; c < N; ++c) t.cell(0, static_cast<int>(c)) = headings[c];
}

}  // namespace impact_detail

}  // namespace arven
