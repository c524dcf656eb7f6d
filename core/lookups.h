#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/grid_table.h"
#include "stores/value.h"

namespace arven {

// The small data lookups that every module calls. Each opens its store
// (operations: session().ops_db_path; NUTS and RVC: session().rvc_db_path),
// runs one query and lets the store go; nothing is cached. A lookup on a key
// that has no row throws StoreError naming the table and the key, unless a
// fallback is stated. Results that are stored values come back as they stand,
// null included.

// One entry of a list control: the text shown and the number kept with it.
struct ListItem {
  std::string text;
  int64_t data = 0;
};

// ---- operation lookups ----

// The current local date and time as Last_Updated holds it
// ("2026-11-25 13:05:09").
std::string local_time_stamp();
// Sets Last_Updated of the operation to the current local date and time.
void touch_operation(int64_t operation_id);
// The operation's `Operation Name`.
Value operation_name(int64_t operation_id);
// By selector: 1 Operation Name, 2 Scaling up technique, 3 ST Value, 4 Uptake,
// 5 TEA_Inc, 6 TEA_Factor, 7 TEA_Cost (2..7: 0 when null or empty), 8 the
// land type text of CORINE Class ("Not applicable" when null or empty, null for
// a class outside 0..9). Another selector throws std::invalid_argument.
Value operation_field(int64_t operation_id, int selector);
// The land type of a CORINE Class, 0 "Not applicable" to 9 "Marshland";
// empty outside 0..9.
std::string corine_class_name(int64_t corine_class);
// `Activity name` from Activities.
Value activity_name(int64_t activity_id);
// `Measure EU ID` from Measures.
Value measure_eu_id(int64_t measure_id);
// Clears the list, then adds every operation whose name holds the text
// literally (no wildcards; ASCII letters match in either case), name shown and
// `Operation ID` as data, in table order.
void fill_operations_like(std::vector<ListItem>& list, std::string_view text);
// Clears the list, then adds the impact areas of the operation, `Impact name`
// shown and `Impact ID` as data; an impact without an Impact areas row throws.
void fill_operation_impacts(int64_t operation_id, std::vector<ListItem>& list);
// Clears the list, then adds every row of Impact areas, `Impact ID` as data.
void fill_impact_areas(std::vector<ListItem>& list);
// The lowest `Ref ID` from 1 upwards that has no References row.
int64_t first_free_ref_id();
// By selector: 1 Ref Short, 2 Ref Long, 3 URL; another throws std::invalid_argument.
Value reference_field(int64_t ref_id, int selector);
// Replaces the table by the titles "ID", "Short ref", "Long ref", "URL" and one
// row per References row; the URL cell stays empty when the URL is.
void fill_reference_table(GridTable& table);

// ---- NUTS lookups ----
// Level k is 0..3 (another throws std::out_of_range).

// From the NUTS<k> row of the area: 1 NAME, 2 NUTS, 3 SQKM, 4 AV_FS.
Value nuts_field(int level, int64_t area_id, int selector);
// nuts_field for levels 0 and 3.
Value nuts0_field(int64_t area_id, int selector);
Value nuts3_field(int64_t area_id, int selector);
// `NUTS<k>_ID` of the NUTS<k> row with this code.
Value nuts_id_by_code(int level, std::string_view nuts_code);
// `NUTS0_ID` (the country) of the NUTS<k> row with this code.
Value nuts0_id_by_code(int level, std::string_view nuts_code);
// `GIS_AREA` of the NUTS<k> row with this code.
Value nuts_gis_area(int level, std::string_view nuts_code);
// `EU-27` of the country's NUTS0 row.
Value nuts0_eu27(int64_t country_id);
// `EU-27` of the NUTS<k> row with this code.
Value nuts_eu27(int level, std::string_view nuts_code);

// ---- RVC lookups ----

// From RVC_List: 1 RVC Short Letter ID, 2 RVC Short Name, 3 RVC Long Name,
// 4 RVC Type, 5 Euro max, 6 Impact Type, 7 Risk statement.
Value rvc_field(int64_t rvc_id, int selector);
// `RVC ID` of the CORINE RVC (RVC Type 5) of this CORINE class.
Value corine_rvc_id(int64_t corine_class);
// The child RVC of this RVC for the CORINE class; the RVC itself for class 0
// or when it has no such child.
Value corine_child_rvc_id(int64_t rvc_id, int64_t corine_class);
// The `Percent` of the area that is of this CORINE class (class 1 of the
// class's CORINE RVC in NUTS<k>_RVC_Data_Dist), 0 when the area has no row.
Value corine_area_percent(int64_t corine_class, int level, int64_t area_id);
// "<Combo RVC>:<Combo Class>" of the Baseline_Impact_Look_Up row of the four
// keys; the text "Null" when there is none, intended, callers compare with it.
std::string combo_key(int64_t baseline_rvc, int64_t baseline_class, int64_t impact_rvc,
                      int64_t impact_class);
// value × Max_factor × Euro max × session().rvc_n_factor[rvc_id]; an id
// outside 0..400 throws std::out_of_range.
double max_factor(int64_t rvc_id, double value);

// ---- assessment lookup ----

// True when the open assessment file (session().current_file) has a region.
bool has_region();

// ---- text helpers ----

// Every occurrence of `find` replaced, searching on after each replacement, so
// a replacement that holds `find` is not rescanned; an empty `find` changes nothing.
std::string replace_all(std::string_view text, std::string_view find, std::string_view replace);
// Subtracts 32 from the first byte when it is 97 or more. No upper bound is
// tested, intended: '{' becomes '['. On UTF-8 text only the lead byte of the
// first letter changes, so an accented first letter does not stay valid UTF-8.
std::string capitalise_first(std::string text);
// True when the text holds the locale's decimal separator.
bool has_decimal_separator(std::string_view text);
// Adds each key of a comma-separated key list (blanks trimmed, empty keys
// skipped) unless an entry equal to it is already there (numerically when both
// are numbers, else as text), in order of first appearance; clears the list
// first when `clear` is set. Key text shown, its whole number as data.
void add_refs_to_list(std::string_view refs, std::vector<ListItem>& list, bool clear);
// The part of the path after its last '/' or '\'; in mode 1 without its last
// four characters (the extension).
std::string file_name_of(std::string_view path, int mode);
// A path of more than 40 characters as its first 3, "..." and its last 34
// (characters, not bytes); a shorter one as it is.
std::string shorten_path(std::string_view path);

// ---- decision lookups ----

// The RVC value's band colour, 0xBBGGRR: pale yellow 0xC0FFFF above t1 up to
// t2, orange 0x0080FF up to t1, dark red 0x0000C0 above t2, where t1 and t2
// cut (Euro max - Euro min) in thirds counted from 0, not from Euro min,
// intended.
int rvc_band_colour(int64_t rvc_id, double value);
// The RVC value's colour "rrggbb" on the 50-step scale of the RVC's range;
// "00ff13" (the lowest step) when the RVC has no row.
std::string rvc_gradient_colour(int64_t rvc_id, double value);
// rvc_gradient_colour for an RVC whose range is known; throws
// std::domain_error when Euro max - Euro min + 1 is 0.
std::string range_gradient_colour(double euro_min, double euro_max, double value);
// The 50 colours of the scale, the highest value's first.
const std::array<const char*, 50>& gradient_scale();
// A percentage's colour on the same 50-step scale, for the range 0..100.
std::string percent_gradient_colour(double percent);
// Whether the value is a hotspot: above two thirds of the maximum, or above
// one third when session().hotspot_sens is not 1. The maximum is the RVC's
// Euro max, or `regional_max` when session().hotspot_regional is set; a
// maximum of 0 is never a hotspot.
bool is_hotspot(int64_t rvc_id, double value, double regional_max);
// is_hotspot once the maximum is chosen.
bool hotspot_at(double maximum, double value);

}  // namespace arven
