#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "stores/db.h"

namespace arven {

// The RVC pages read the same few rows over and over, from the country
// store that each area's key names. RvcStores opens each store once for one
// page or run and keeps its prepared reads; results are those of the
// per-read lookups.

// The key of a row of an RVC table: "<NUTS0_ID>:<area ID>", or a bare
// country index (the area is then the country itself).
struct RvcKey {
  int64_t country = 0;
  int64_t area = 0;
};
// Whole numbers only; text that is none gives 0.
RvcKey parse_rvc_key(std::string_view key);
std::string rvc_key_text(int64_t country, int64_t area);

// One RVC of RVC_List.
struct RvcInfo {
  int64_t id = 0;
  std::string letter, short_name, long_name, risk, impact;  // raw store text
  double euro_min = 0, euro_max = 0;
  bool exclude_class_zero = false;
};

// The RVCs of one RVC Type in table order.
std::vector<RvcInfo> rvcs_of_type(const Db& store, int64_t rvc_type);

// A NUTS area as the NUTS<k> tables hold it.
struct NutsArea {
  int64_t id = 0;
  std::string code, name;  // raw; empty when the area has no row
  bool found = false;
};

// The country index of a NUTS code's first two letters, 0 when none.
int64_t country_of_code(std::string_view code);
// The level of a NUTS code by its length: two letters the country, then one
// character a level; codes of other lengths are held to 0..3.
int nuts_level_of_code(std::string_view code);

class RvcStores {
 public:
  // The store of an installed country, nullptr for any other index.
  Db* store(int64_t country);
  // The store's path ("" for none).
  std::string path(int64_t country);
  // The area of a NUTS level; `found` false when there is no row.
  NutsArea area(int64_t country, int level, int64_t id);
  // The area of a NUTS level with this code.
  NutsArea area_by_code(int64_t country, int level, const std::string& code);
  // The IDs of the NUTS<level> areas whose NUTS<parent_level>_ID is
  // `parent`, in table order (the area itself when the levels are equal).
  std::vector<int64_t> areas_within(int64_t country, int level, int parent_level, int64_t parent);
  // The RVC's row of the country's RVC_List.
  std::optional<RvcInfo> rvc(int64_t country, int64_t rvc_id);
  // The colour of a value on the RVC's scale (as rvc_gradient_colour).
  std::string colour(int64_t country, int64_t rvc_id, double value);
  // "Average", "Min" and "Max" of [NUTS<k>_RVC_Data]; nullopt without a row.
  struct Data {
    Value average, min, max;
  };
  std::optional<Data> data(int64_t country, int level, int64_t area, int64_t rvc_id);
  // The rows of [NUTS<k>_RVC_Data_Dist] in stored order: class, percent.
  struct DistRow {
    double rvc_class = 0, percent = 0;
  };
  std::vector<DistRow> dist(int64_t country, int level, int64_t area, int64_t rvc_id);
  // Reads NUTS<level>_RVC_Data and _Dist of the country once, keeping the
  // rows of these areas and RVCs, so that data() and dist() of a large
  // region do not each scan the tables (they have no index). The results
  // are those of the reads one by one.
  void preload(int64_t country, int level, const std::vector<int64_t>& areas,
               const std::vector<int64_t>& rvc_ids);

 private:
  using AreaRvc = std::pair<int64_t, int64_t>;
  struct Loaded {
    std::set<AreaRvc> wanted;
    std::map<AreaRvc, Data> data;
    std::map<AreaRvc, std::vector<DistRow>> dist;
  };
  struct Open {
    Db db;
    std::map<std::string, Statement> reads;
    std::map<int64_t, std::optional<RvcInfo>> rvcs;
    std::map<int, Loaded> loaded;  // by level
  };
  const Loaded* loaded(Open& o, int level, int64_t area, int64_t rvc_id) const;
  Open* open(int64_t country);
  NutsArea find_area(int64_t country, int level, bool by_code, const Value& key);
  Rows& read(Open& o, const std::string& sql, const std::vector<Value>& params);
  std::map<int64_t, std::unique_ptr<Open>> open_;
};

}  // namespace arven
