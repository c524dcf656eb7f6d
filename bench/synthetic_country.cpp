#include "bench/synthetic_country.h"

#include "core/lookups.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <stdexcept>
#include <tuple>

#include "base/numbers.h"
#include "core/registry.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven::synth {

namespace {

// ---- randomness ---------------------------------------------------------------

// The engine's output is fixed by the language; the distributions of the
// standard library are not, so every draw is derived here from raw 32-bit
// outputs. Each part of the country draws from its own stream, so that
// changing the number of operations leaves the geography as it was.
class Rng {
 public:
  Rng(uint32_t seed, uint32_t stream) : g_(seed * 0x9E3779B1u + stream * 0x85EBCA6Bu + 1u) {}

  // Uniform in [lo, hi], by rejection so that no value is favoured.
  int64_t between(int64_t lo, int64_t hi) {
    if (hi <= lo) return lo;
    const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
    if (span > 0xFFFFFFFFull) throw std::logic_error("range too wide");
    const uint64_t limit = 0x100000000ull - (0x100000000ull % span);
    uint64_t x;
    do x = g_();
    while (x >= limit);
    return lo + static_cast<int64_t>(x % span);
  }
  int index(size_t n) { return static_cast<int>(between(0, static_cast<int64_t>(n) - 1)); }
  bool chance(int percent) { return between(0, 99) < percent; }
  template <class T>
  const T& pick(const std::vector<T>& v) {
    return v[static_cast<size_t>(index(v.size()))];
  }
  // The first k items of a Fisher-Yates shuffle of v.
  template <class T>
  std::vector<T> sample(std::vector<T> v, size_t k) {
    k = std::min(k, v.size());
    for (size_t i = 0; i < k; ++i) std::swap(v[i], v[i + static_cast<size_t>(index(v.size() - i))]);
    v.resize(k);
    return v;
  }

 private:
  std::mt19937 g_;
};

enum Stream : uint32_t { kGeo = 1, kRvcs, kDist, kCatalogue, kActivities, kOperations, kFactors };

// ---- batched inserts ------------------------------------------------------------

// Collects rows and writes them as multi-row INSERT statements, so that a
// statement is prepared once per batch rather than once per row.
class Inserter {
 public:
  Inserter(Db& db, std::string_view table, std::vector<std::string> columns)
      : db_(db), columns_(columns.size()) {
    head_ = "INSERT INTO " + quote_name(table) + " (";
    for (size_t i = 0; i < columns.size(); ++i) head_ += (i ? ", " : "") + quote_name(columns[i]);
    head_ += ") VALUES ";
    group_ = "(";
    for (size_t i = 0; i < columns_; ++i) group_ += i ? ",?" : "?";
    group_ += ")";
    per_batch_ = std::max<size_t>(1, 999 / columns_);  // the engine's oldest bound limit
  }

  void row(std::initializer_list<Value> values) { add(values.begin(), values.end()); }
  void row(const std::vector<Value>& values) { add(values.begin(), values.end()); }

  // Writes what is pending; call once after the last row.
  void flush() {
    if (pending_ == 0) return;
    if (pending_ != sql_rows_) {
      sql_ = head_;
      for (size_t i = 0; i < pending_; ++i) sql_ += (i ? "," : "") + group_;
      sql_rows_ = pending_;
    }
    db_.exec(sql_, params_);
    params_.clear();
    pending_ = 0;
  }

 private:
  Db& db_;
  size_t columns_;
  std::string head_, group_, sql_;
  size_t per_batch_ = 1, pending_ = 0, sql_rows_ = 0;
  std::vector<Value> params_;

  template <class It>
  void add(It begin, It end) {
    if (static_cast<size_t>(end - begin) != columns_)
      throw std::logic_error("row of the wrong width");
    params_.insert(params_.end(), begin, end);
    if (++pending_ == per_batch_) flush();
  }
};

// ---- text helpers ---------------------------------------------------------------

constexpr std::string_view kBase36 = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Child i of n under one parent: 1..9, A..Z as the real codes go, and 0..Z
// only when a parent has all 36 children.
char code_digit(int i, int n) {
  return kBase36[static_cast<size_t>(n <= 35 ? i + 1 : i)];
}

// Details and deltas are held in eighths, which doubles represent exactly,
// so a delta read back equals the difference of its two details.
std::string eighths_text(int64_t k) {
  std::string s = k < 0 ? "-" : "";
  const int64_t a = k < 0 ? -k : k;
  s += std::to_string(a / 8);
  if (a % 8) {
    std::string frac = std::to_string(a % 8 * 125);
    while (frac.size() < 3) frac.insert(frac.begin(), '0');
    while (frac.back() == '0') frac.pop_back();
    s += "." + frac;
  }
  return s;
}

double round2(double x) {
  return std::round(x * 100.0) / 100.0;
}
double thousandths(int64_t k) {
  return static_cast<double>(k) / 1000.0;
}

// A draw in [lo, hi] thousandths that is not 0.
double nonzero_thousandths(Rng& rng, int64_t lo, int64_t hi) {
  int64_t k = 0;
  while (k == 0) k = rng.between(lo, hi);
  return thousandths(k);
}

std::string place_name(Rng& rng) {
  static const std::vector<std::string> syll = {"ba", "ko",  "ri",  "sla", "vo", "ne", "tra",
                                                "mi", "lu",  "dra", "po",  "ze", "ka", "ro",
                                                "li", "sta", "va",  "be",  "no", "ja", "te"};
  static const std::vector<std::string> tail = {"", "", "ska", "ovo", "any", "ice", "ec", "in"};
  std::string s;
  for (int64_t i = 0, n = rng.between(2, 3); i < n; ++i) s += rng.pick(syll);
  s += rng.pick(tail);
  s[0] = static_cast<char>(s[0] - 'a' + 'A');
  // Now and then a name with an apostrophe, which every query must survive.
  if (rng.chance(5)) s = "Sant'" + s;
  return s;
}

std::string date_text(Rng& rng) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:00",
                static_cast<int>(rng.between(2015, 2023)), static_cast<int>(rng.between(1, 12)),
                static_cast<int>(rng.between(1, 28)), static_cast<int>(rng.between(8, 18)),
                static_cast<int>(rng.between(0, 59)));
  return buf;
}

std::string numbered(const std::vector<std::string>& names, size_t i) {
  std::string s = names[i % names.size()];
  if (i >= names.size()) s += " " + std::to_string(i / names.size() + 1);
  return s;
}

// ---- geography --------------------------------------------------------------------

struct Area {
  int id = 0;
  int nuts1 = 0, nuts2 = 0;  // parent ids, where the level has them
  std::string code, name;
  int64_t sqkm = 0;  // hundredths of km²
  int64_t gis = 0;   // thousandths of km²
  double av_fs = 0;
  size_t lo = 0, hi = 0;  // the NUTS3 areas it covers, by index
  size_t up = 0;          // NUTS3 only: index of the NUTS2 parent
};

struct Geography {
  int country = 0;
  std::array<std::vector<Area>, 4> level;
};

// Splits total into parts of 1..cap each, unevenly.
std::vector<int> partition(int total, int parts, int cap, Rng& rng) {
  std::vector<int> w(static_cast<size_t>(parts)), size(static_cast<size_t>(parts), 1);
  int64_t wsum = 0;
  for (auto& x : w) wsum += x = static_cast<int>(rng.between(1, 4));
  const int64_t rest = total - parts;
  int given = 0;
  for (size_t i = 0; i < size.size(); ++i) {
    int extra = static_cast<int>(std::min<int64_t>(rest * w[i] / wsum, cap - 1));
    size[i] += extra;
    given += extra;
  }
  for (size_t i = static_cast<size_t>(rng.index(size.size())); given < rest;
       i = (i + 1) % size.size())
    if (size[i] < cap) ++size[i], ++given;
  return size;
}

// `base` holds the ids already taken at each level by countries written
// before this one into the same store.
Geography make_geography(const Options& o, int country, const std::array<int, 4>& base) {
  Rng rng(o.seed, kGeo);
  const int n3 = o.nuts3;
  const int n2 = std::clamp(static_cast<int>(std::lround(2 * std::sqrt(n3))), (n3 + 35) / 36, n3);
  const int n1 = std::clamp(static_cast<int>(std::lround(0.75 * std::sqrt(n2))), (n2 + 35) / 36,
                            std::min(n2, 36));
  const auto per1 = partition(n2, n1, 36, rng);
  const auto per2 = partition(n3, n2, 36, rng);

  Geography g;
  g.country = country;
  Area c;
  c.id = country;
  c.code = o.country;
  c.name = country_display_name(country);
  c.name = c.name.substr(0, c.name.rfind(" ("));
  g.level[0].push_back(c);
  for (int i1 = 0; i1 < n1; ++i1) {
    Area a1;
    a1.id = base[1] + i1 + 1;
    a1.code = o.country + code_digit(i1, n1);
    a1.name = place_name(rng);
    a1.lo = g.level[3].size();
    for (int j = 0; j < per1[static_cast<size_t>(i1)]; ++j) {
      const size_t i2 = g.level[2].size();
      Area a2;
      a2.id = base[2] + static_cast<int>(i2) + 1;
      a2.nuts1 = a1.id;
      a2.code = a1.code + code_digit(j, per1[static_cast<size_t>(i1)]);
      a2.name = place_name(rng);
      a2.lo = g.level[3].size();
      for (int k = 0; k < per2[i2]; ++k) {
        Area a3;
        a3.id = base[3] + static_cast<int>(g.level[3].size()) + 1;
        a3.nuts1 = a1.id;
        a3.nuts2 = a2.id;
        a3.up = i2;
        a3.code = a2.code + code_digit(k, per2[i2]);
        a3.name = place_name(rng);
        const int64_t s = rng.between(0, 1000);
        a3.sqkm = 15000 + 235000 * s * s / 1000000 + rng.between(0, 99);
        a3.gis = a3.sqkm * 10 + rng.between(-a3.sqkm / 25, a3.sqkm / 25);
        const int64_t f = rng.between(0, 1000);
        a3.av_fs = static_cast<double>(200 + 4300 * f * f / 1000000) / 100.0;
        a3.lo = g.level[3].size();
        a3.hi = a3.lo + 1;
        g.level[3].push_back(a3);
      }
      a2.hi = g.level[3].size();
      g.level[2].push_back(a2);
    }
    a1.hi = g.level[3].size();
    g.level[1].push_back(a1);
  }
  g.level[0][0].hi = g.level[3].size();
  // A parent's area is the sum of its children's; its field size their
  // area-weighted mean.
  for (int k = 0; k < 3; ++k)
    for (auto& a : g.level[static_cast<size_t>(k)]) {
      double fs = 0;
      for (size_t i = a.lo; i < a.hi; ++i) {
        const Area& x = g.level[3][i];
        a.sqkm += x.sqkm;
        a.gis += x.gis;
        fs += x.av_fs * static_cast<double>(x.sqkm);
      }
      a.av_fs = round2(fs / static_cast<double>(a.sqkm));
    }
  return g;
}

// ---- RVCs and their distributions -------------------------------------------------------

struct Rvc {
  int id = 0, type = 0, parent = -1, corine = 0, min = 0, max = 1;
  std::string name, letter, risk, impact_type = "Not applicable";
  double n_factor = 1, euro_min = 0, euro_max = 1, max_factor = 1;
  int base = -1, impact = -1;  // a combo's two RVCs, by index
  int impact_area = 0;         // impact RVCs: the ecosystem service it scores
  std::vector<uint8_t> pct;    // NUTS3 percent per class 0..max, area after area
  size_t width() const { return static_cast<size_t>(max) + 1; }
};

constexpr int kReservedRvc = 19;  // factor rows with this RVC take theirs from elsewhere
constexpr int kImpactAreas = 10;

struct RvcSet {
  std::vector<Rvc> list;
  std::vector<int> impacts, baselines, combos;         // indexes into list
  std::map<int, std::vector<int>> combos_of_baseline;  // baseline index -> combo indexes
};

RvcSet make_rvcs(const Options& o) {
  Rng rng(o.seed, kRvcs);
  const int r = o.rvcs - 10;  // the nine land classes and the reserved row come first
  const int n_imp = std::max(1, r * 3 / 10);
  const int n_base = std::max(1, r * 3 / 20);
  const int n_combo = std::min(std::max(1, r * 3 / 20), n_imp * n_base);
  const int n_t4 = r / 15, n_t3 = r / 30;
  const int n_child = r - n_imp - n_base - n_combo - n_t4 - n_t3;

  static const std::vector<std::string> imp_names = {
      "Drought risk",  "Flood risk",         "Soil erosion risk",  "Heat stress",
      "Wildfire risk", "Water quality risk", "Pollinator decline", "Soil compaction",
      "Salinisation",  "Storm damage",       "Pest pressure",      "Landslide risk"};
  static const std::vector<std::string> base_names = {
      "Soil texture",  "Climate zone",  "Soil organic carbon", "Slope class",
      "Rainfall band", "Altitude band", "Drainage class"};
  static const std::vector<std::string> t4_names = {"Groundwater depth", "Growing season length",
                                                    "Frost days"};

  RvcSet s;
  int next = 1;
  auto add = [&](Rvc v, std::string_view prefix, int n) {
    if (next == kReservedRvc) ++next;
    v.id = next++;
    v.letter = std::string(prefix) + (n < 10 ? "0" : "") + std::to_string(n);
    s.list.push_back(std::move(v));
    return static_cast<int>(s.list.size()) - 1;
  };
  for (int i = 0; i < n_imp; ++i) {
    Rvc v;
    v.type = 1;
    v.name = numbered(imp_names, static_cast<size_t>(i));
    v.max = 5;
    v.risk = "Risk of " + v.name.substr(0, v.name.find(' ')) + " damage to farmed land";
    v.impact_type = "Adaptive Capacity";
    v.n_factor = 0.2;
    v.euro_max = static_cast<double>(rng.between(40, 50)) / 10.0;
    v.max_factor = static_cast<double>(rng.between(5, 20)) / 10.0;
    v.impact_area = i % kImpactAreas + 1;
    s.impacts.push_back(add(v, "IR", i + 1));
  }
  for (int i = 0; i < n_base; ++i) {
    Rvc v;
    v.type = 2;
    v.name = numbered(base_names, static_cast<size_t>(i));
    v.max = static_cast<int>(rng.between(3, 6));
    v.impact_type = "GHG Emissions (incl C seq)";
    v.euro_max = v.max;
    s.baselines.push_back(add(v, "BL", i + 1));
  }
  for (int i = 0; i < n_t4; ++i) {
    Rvc v;
    v.type = 4;
    v.name = numbered(t4_names, static_cast<size_t>(i));
    v.max = 3;
    v.impact_type = "Adaptive Capacity";
    v.euro_max = 3;
    add(v, "IN", i + 1);
  }
  for (int i = 0; i < n_t3; ++i) {
    Rvc v;
    v.type = 3;
    v.name = "Independent " + std::to_string(i + 1);
    add(v, "RI", i + 1);
  }
  for (int c = 1; c <= 9; ++c) {
    Rvc v;
    v.type = 5;
    v.corine = c;
    v.name = "CORINE " + corine_class_name(c);
    add(v, "CL", c);
  }
  // Children: distinct (parent, land class) pairs, the common classes first.
  std::vector<std::pair<int, int>> pairs;
  for (int c : {1, 2, 4, 3, 5, 6, 7, 8, 9})
    for (int p : rng.sample(s.impacts, s.impacts.size())) pairs.push_back({p, c});
  for (int c : {1, 2, 4, 3, 5, 6, 7, 8, 9})
    for (int p : s.baselines) pairs.push_back({p, c});
  std::vector<std::pair<int, int>> chosen = rng.sample(pairs, static_cast<size_t>(n_child));
  for (int i = 0; i < n_child; ++i) {
    auto [p, c] = chosen[static_cast<size_t>(i)];
    Rvc v = s.list[static_cast<size_t>(p)];
    v.type = v.type == 1 ? 6 : 7;
    v.parent = p;
    v.corine = c;
    v.name += " on " + corine_class_name(c);
    v.impact_area = 0;
    add(v, "CC", i + 1);
  }
  // Combos of a baseline and an impact RVC: one class per pair of classes.
  std::vector<std::pair<int, int>> bi;
  for (int b : s.baselines)
    for (int i : s.impacts) bi.push_back({b, i});
  bi = rng.sample(bi, static_cast<size_t>(n_combo));
  for (int i = 0; i < n_combo; ++i) {
    auto [b, im] = bi[static_cast<size_t>(i)];
    Rvc v;
    v.type = 8;
    v.base = b;
    v.impact = im;
    v.name = s.list[static_cast<size_t>(b)].name + " x " + s.list[static_cast<size_t>(im)].name;
    v.min = 1;
    v.max = static_cast<int>(s.list[static_cast<size_t>(b)].width() *
                             s.list[static_cast<size_t>(im)].width());
    v.impact_type = "GHG Emissions (incl C seq)";
    v.euro_min = 1;
    v.euro_max = v.max;
    const int idx = add(v, "BX", i + 1);
    s.combos.push_back(idx);
    s.combos_of_baseline[b].push_back(idx);
  }
  Rvc generic;
  generic.id = kReservedRvc;
  generic.type = 3;
  generic.name = "Generic (any RVC)";
  generic.letter = "GEN";
  s.list.push_back(generic);
  return s;
}

// Whole percentages that sum to 100, by largest remainder; ties go to the
// lower class. The weights must not all be 0.
std::vector<int> to_percent(const std::vector<double>& w) {
  double total = 0;
  for (double x : w) total += x;
  std::vector<int> p(w.size());
  std::vector<std::pair<double, size_t>> rem;
  int sum = 0;
  for (size_t c = 0; c < w.size(); ++c) {
    const double exact = w[c] * 100.0 / total;
    p[c] = static_cast<int>(std::floor(exact));
    sum += p[c];
    if (w[c] > 0) rem.push_back({exact - p[c], c});
  }
  std::sort(rem.begin(), rem.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  for (size_t i = 0; sum < 100; ++i, ++sum) ++p[rem[i % rem.size()].second];
  return p;
}

void set_pct(Rvc& v, size_t area, const std::vector<double>& w) {
  const auto p = to_percent(w);
  for (size_t c = 0; c < p.size(); ++c) v.pct[area * v.width() + c] = static_cast<uint8_t>(p[c]);
}

// Class shares per NUTS3 area. Areas of one NUTS2 region share a pattern,
// so that the coarser levels are not all alike.
void make_distributions(RvcSet& s, const Geography& g, const Options& o) {
  Rng rng(o.seed, kDist);
  const size_t n3 = g.level[3].size(), n2 = g.level[2].size();
  for (auto& v : s.list) v.pct.assign(n3 * v.width(), 0);

  auto regional = [&](Rvc& v) {
    std::vector<std::vector<double>> base(n2, std::vector<double>(v.width(), 0));
    for (auto& b : base) {
      for (int c = v.min; c <= v.max; ++c)
        if (rng.chance(75)) b[static_cast<size_t>(c)] = static_cast<double>(rng.between(5, 100));
      b[static_cast<size_t>(rng.between(v.min, v.max))] += 10;
    }
    for (size_t a = 0; a < n3; ++a) {
      std::vector<double> w = base[g.level[3][a].up];
      for (int c = v.min; c <= v.max; ++c) {
        auto& x = w[static_cast<size_t>(c)];
        x = x > 0 ? x * static_cast<double>(rng.between(50, 150)) / 100.0
                  : (rng.chance(10) ? static_cast<double>(rng.between(1, 10)) : 0.0);
      }
      set_pct(v, a, w);
    }
  };

  // Land cover: nine classes and the rest (settlements, water), each area's
  // shares summing to 100; each land class RVC is "in the class" (1) or not (0).
  static const std::array<std::pair<int, int>, 10> cover = {
      {{0, 60}, {0, 30}, {0, 20}, {5, 40}, {0, 5}, {0, 5}, {0, 10}, {0, 2}, {0, 3}, {3, 15}}};
  std::vector<std::array<double, 10>> region_cover(n2);
  for (auto& rc : region_cover)
    for (size_t c = 0; c < 10; ++c)
      rc[c] = static_cast<double>(rng.between(cover[c].first, cover[c].second));
  std::vector<std::vector<int>> land(n3);
  for (size_t a = 0; a < n3; ++a) {
    std::vector<double> w(10);
    for (size_t c = 0; c < 10; ++c)
      w[c] = region_cover[g.level[3][a].up][c] * static_cast<double>(rng.between(60, 140)) / 100.0;
    w[9] += 1;
    land[a] = to_percent(w);
  }

  for (auto& v : s.list) {
    switch (v.type) {
      case 1:
      case 2:
      case 4:
        regional(v);
        break;
      case 3:
        for (size_t a = 0; a < n3; ++a) v.pct[a * 2 + 1] = 100;
        break;
      case 5:
        for (size_t a = 0; a < n3; ++a) {
          const int in = land[a][static_cast<size_t>(v.corine - 1)];
          v.pct[a * 2] = static_cast<uint8_t>(100 - in);
          v.pct[a * 2 + 1] = static_cast<uint8_t>(in);
        }
        break;
      default:
        break;
    }
  }
  // Children follow their parent with some noise; combos are the product of
  // their two RVCs' shares. Both come after their sources in the list.
  for (auto& v : s.list) {
    if (v.type == 6 || v.type == 7) {
      const Rvc& p = s.list[static_cast<size_t>(v.parent)];
      for (size_t a = 0; a < n3; ++a) {
        std::vector<double> w(v.width());
        for (size_t c = 0; c < w.size(); ++c) {
          const double x = p.pct[a * p.width() + c];
          w[c] = x > 0 ? x * static_cast<double>(rng.between(60, 140))
                       : (rng.chance(10) ? static_cast<double>(rng.between(1, 800)) : 0.0);
        }
        set_pct(v, a, w);
      }
    } else if (v.type == 8) {
      const Rvc& b = s.list[static_cast<size_t>(v.base)];
      const Rvc& i = s.list[static_cast<size_t>(v.impact)];
      for (size_t a = 0; a < n3; ++a) {
        std::vector<double> w(v.width(), 0);
        for (size_t bc = 0; bc < b.width(); ++bc)
          for (size_t ic = 0; ic < i.width(); ++ic)
            w[1 + bc * i.width() + ic] = static_cast<double>(b.pct[a * b.width() + bc]) *
                                         static_cast<double>(i.pct[a * i.width() + ic]);
        set_pct(v, a, w);
      }
    }
  }
}

// The shares of an area of any level: its NUTS3 areas' class areas added up,
// weighted by their GIS area, then brought to whole percentages again.
std::vector<int> area_percent(const Rvc& v, const Geography& g, int level, const Area& a) {
  if (level == 3) {
    std::vector<int> p(v.width());
    for (size_t c = 0; c < p.size(); ++c) p[c] = v.pct[a.lo * v.width() + c];
    return p;
  }
  std::vector<double> w(v.width(), 0);
  for (size_t i = a.lo; i < a.hi; ++i)
    for (size_t c = 0; c < w.size(); ++c)
      w[c] += static_cast<double>(g.level[3][i].gis) * v.pct[i * v.width() + c];
  return to_percent(w);
}

// The NUTS<k> rows of one country and the RVC data of its areas.
void write_areas(Db& db, const Geography& g, const RvcSet& s) {
  for (int k = 0; k <= 3; ++k) {
    const std::string lv = "NUTS" + std::to_string(k);
    {
      std::vector<std::string> cols = {lv + "_ID"};
      for (int p = 0; p < k; ++p) cols.push_back("NUTS" + std::to_string(p) + "_ID");
      for (const char* c : {"NUTS", "GIS_AREA", "NAME", "EU-27", "SQKM", "AV_FS"})
        cols.push_back(c);
      Inserter ins(db, lv, cols);
      for (const Area& a : g.level[static_cast<size_t>(k)]) {
        std::vector<Value> row = {a.id};
        if (k >= 1) row.push_back(g.country);
        if (k >= 2) row.push_back(a.nuts1);
        if (k >= 3) row.push_back(a.nuts2);
        for (Value x : {Value(a.code), Value(thousandths(a.gis)), Value(a.name), Value("Y"),
                        Value(static_cast<double>(a.sqkm) / 100.0), Value(a.av_fs)})
          row.push_back(std::move(x));
        ins.row(row);
      }
      ins.flush();
    }
    Inserter data(db, lv + "_RVC_Data", {lv + "_ID", "RVC ID", "Average", "Min", "Max"});
    Inserter dist(db, lv + "_RVC_Data_Dist", {lv + "_ID", "RVC ID", "RVC Class", "Percent"});
    for (const Rvc& v : s.list)
      for (const Area& a : g.level[static_cast<size_t>(k)]) {
        const auto p = area_percent(v, g, k, a);
        int max = 0, weighted = 0;
        for (size_t c = 0; c < p.size(); ++c) {
          if (p[c] <= 0) continue;
          max = static_cast<int>(c);
          weighted += static_cast<int>(c) * p[c];
          dist.row({a.id, v.id, static_cast<double>(c), p[c]});
        }
        // Min and Average as the import's aggregation computes them: Min
        // compares shares with class numbers, Average divides by 1000.
        int min = max;
        for (int c = 0; c <= 1000; ++c) {
          const int pc = static_cast<size_t>(c) < p.size() ? p[static_cast<size_t>(c)] : 0;
          if (pc < min) min = c;
        }
        data.row({a.id, v.id, round_half_even(weighted / 1000.0, 0), min, max});
      }
    data.flush();
    dist.flush();
  }
}

// Each country's class shares are made just before its areas are written,
// with that country's options.
void write_rvcs_store(const std::filesystem::path& path, const std::vector<Geography>& geos,
                      const std::vector<Options>& options, RvcSet& s) {
  Db db = create_rvcs_master(path);
  Transaction tx(db);
  {
    std::vector<const Rvc*> by_id;
    for (const auto& v : s.list) by_id.push_back(&v);
    std::sort(by_id.begin(), by_id.end(), [](auto* a, auto* b) { return a->id < b->id; });
    Inserter ins(db, "RVC_List",
                 {"RVC ID", "RVC Type", "RVC Parent", "CORINE Class", "RVC Short Name",
                  "RVC Long Name", "RVC Short Letter ID", "Risk statement", "RVC min", "RVC max",
                  "N factor", "Euro min", "Euro max", "Hotspots Exclude Class Zero", "Notes",
                  "GIS Data File", "Impact Type", "Max_factor"});
    for (const Rvc* v : by_id) {
      std::string short_name = v->name;
      for (char& ch : short_name)
        if (ch == ' ') ch = '_';
      const int parent = v->parent < 0 ? 0 : s.list[static_cast<size_t>(v->parent)].id;
      ins.row({v->id, v->type, parent, v->corine, short_name, v->name, v->letter, v->risk, v->min,
               v->max, v->n_factor, v->euro_min, v->euro_max, v->type == 1 ? 1 : 0,
               "Synthetic data", "rvc_" + v->letter + ".shp", v->impact_type, v->max_factor});
    }
    ins.flush();
  }
  {
    Inserter ins(db, "Baseline_Impact_Look_Up",
                 {"Combo RVC", "Combo Class", "Baseline RVC", "Baseline RVC Class", "Impact RVC",
                  "Impact RVC Class"});
    for (int ci : s.combos) {
      const Rvc& v = s.list[static_cast<size_t>(ci)];
      const Rvc& b = s.list[static_cast<size_t>(v.base)];
      const Rvc& i = s.list[static_cast<size_t>(v.impact)];
      for (int bc = 0; bc <= b.max; ++bc)
        for (int ic = 0; ic <= i.max; ++ic)
          ins.row({v.id, 1 + bc * static_cast<int>(i.width()) + ic, b.id, bc, i.id, ic});
    }
    ins.flush();
  }
  for (size_t country = 0; country < geos.size(); ++country) {
    const Geography& g = geos[country];
    make_distributions(s, g, options[country]);
    write_areas(db, g, s);
  }
  tx.commit();
}

// ---- operations store -------------------------------------------------------------------

struct Activity {
  int id = 0, type = 1;
  int by_class = -1;  // class-by-class activities: the baseline RVC, by index
  std::string name, unit;
};

struct Detail {
  int activity = 0, rvc = 0, cls = 0;
  bool multi = false;
  int64_t eighths = 0;
};

struct Baseline {
  int id = 0;
  int multi = -1;  // activity index entered class by class, or -1
  std::vector<Detail> details;
};

std::vector<Activity> make_activities(const Options& o, const RvcSet& s) {
  Rng rng(o.seed, kActivities);
  static const std::vector<std::pair<std::string, std::string>> mit = {
      {"Dairy cow", "head"},           {"Beef cattle", "head"},  {"Sheep", "head"},
      {"Nitrogen fertiliser", "kg N"}, {"Diesel use", "l"},      {"Arable area", "ha"},
      {"Grassland area", "ha"},        {"Woodland area", "ha"},  {"Hedgerow length", "m"},
      {"Soil carbon (tillage)", "ha"}, {"Manure storage", "m3"}, {"Peat soil drainage", "ha"},
      {"Cover crop area", "ha"},       {"Biogas output", "MWh"}};
  static const std::vector<std::pair<std::string, std::string>> ada = {
      {"Environmental features", "ha"}, {"Riparian buffer", "m"}, {"Soil cover", "ha"},
      {"Water retention", "m3"},        {"Habitat area", "ha"},   {"Irrigation efficiency", "%"},
      {"Shelter belts", "m"},           {"Flood storage", "m3"}};
  static const std::vector<std::pair<std::string, std::string>> yld = {
      {"Harvesting (wheat)", "t"}, {"Harvesting (barley)", "t"}, {"Milk output", "l"},
      {"Meat output", "t"},        {"Timber output", "m3"},      {"Hay output", "t"},
      {"Vegetable output", "t"}};
  std::vector<int> combo_baselines;
  for (const auto& [b, list] : s.combos_of_baseline) combo_baselines.push_back(b);
  std::vector<Activity> acts;
  std::array<size_t, 5> seen{};
  for (int i = 0; i < o.activities; ++i) {
    Activity a;
    a.id = i + 1;
    const int64_t roll = rng.between(0, 99);
    // The first five fix one of each kind that every country has (see
    // kMinActivities); the rest are drawn.
    a.type = i < 5       ? std::array{1, 2, 4, 1, 1}[static_cast<size_t>(i)]
             : roll < 50 ? 1
             : roll < 80 ? 2
                         : 4;
    const auto& names = a.type == 1 ? mit : a.type == 2 ? ada : yld;
    const size_t n = seen[static_cast<size_t>(a.type)]++;
    std::vector<std::string> plain;
    for (const auto& nm : names) plain.push_back(nm.first);
    a.name = numbered(plain, n);
    a.unit = names[n % names.size()].second;
    // Some mitigation and production activities are entered class by class
    // over a baseline RVC that has combos, the first always; adaptation
    // activities never are.
    if (i == 0 || (a.type != 2 && rng.chance(25))) a.by_class = rng.pick(combo_baselines);
    acts.push_back(a);
  }
  return acts;
}

void write_operations_store(const std::filesystem::path& path, const Options& o, const RvcSet& s) {
  Db db = create_operations_master(path);
  Transaction tx(db);
  Rng rng(o.seed, kCatalogue);

  // Reference lists.
  static const std::vector<std::string> types = {"Land management",
                                                 "Financial and infrastructure support",
                                                 "Markets, products & diversification",
                                                 "Renewable energies",
                                                 "Tourism and leisure",
                                                 "Training and education",
                                                 "Other operations"};
  {
    Inserter ins(db, "Operations_Types", {"Operation Type ID", "Operation Type Name"});
    for (size_t i = 0; i < types.size(); ++i) ins.row({static_cast<int>(i) + 1, types[i]});
    ins.flush();
  }
  const int n_measures = 24;
  for (const char* table : {"Measures", "New_Measures"}) {
    const bool fresh = std::string_view(table) == "New_Measures";
    Inserter ins(db, table, {"Measure ID", "Measure EU ID", "Measure name", "Measure type"});
    for (int i = 0; i < n_measures; ++i) {
      const int group = i / 6 + 1;
      const std::string eu = fresh
                                 ? "M" + std::string(i + 1 < 10 ? "0" : "") + std::to_string(i + 1)
                                 : std::to_string(group * 100 + (i % 6 + 1) * 10 + i % 3 + 1);
      ins.row({i + 1, eu, "Measure " + eu + " (synthetic)",
               (fresh ? "Priority " : "Axis ") + std::to_string(group)});
    }
    ins.flush();
  }
  static const std::vector<std::string> services = {
      "Water regulation", "Erosion control", "Pollination",        "Flood protection",
      "Soil fertility",   "Biodiversity",    "Climate regulation", "Fire protection",
      "Pest control",     "Water quality"};
  {
    Inserter ins(db, "Impact areas", {"Impact ID", "Impact name"});
    for (int i = 0; i < kImpactAreas; ++i) ins.row({i + 1, services[static_cast<size_t>(i)]});
    ins.flush();
  }
  static const std::vector<std::string> practical = {"Requires specialist machinery",
                                                     "Compatible with existing subsidies",
                                                     "Needs advisory support",
                                                     "Low labour demand",
                                                     "High labour demand",
                                                     "Takes land out of production",
                                                     "Benefits visible within one season",
                                                     "Requires a multi-year commitment",
                                                     "Suited to small holdings",
                                                     "Suited to large holdings",
                                                     "Needs landlord's consent",
                                                     "Requires water abstraction licence"};
  {
    Inserter ins(db, "Practicality_Items", {"Practicality ID", "Practicality Text"});
    for (size_t i = 0; i < practical.size(); ++i) ins.row({static_cast<int>(i) + 1, practical[i]});
    ins.flush();
  }
  const int n_refs = std::max(10, o.operations / 5);
  {
    Inserter ins(db, "References", {"Ref ID", "Ref Short", "Ref Long", "URL"});
    for (int i = 1; i <= n_refs; ++i) {
      const std::string shrt =
          place_name(rng) + " et al. (" + std::to_string(rng.between(1995, 2022)) + ")";
      ins.row({i, shrt,
               shrt + ". Synthetic study no. " + std::to_string(i) +
                   " on land use and climate. Synthetic Journal of Rural Land Use " +
                   std::to_string(rng.between(1, 40)) + ", " + std::to_string(rng.between(1, 400)) +
                   ".",
               "https://example.org/refs/" + std::to_string(i)});
    }
    ins.flush();
  }
  auto refs = [&](Rng& r) {
    std::string t = std::to_string(r.between(1, n_refs));
    if (r.chance(40)) t += "," + std::to_string(r.between(1, n_refs));
    return t;
  };

  // Activities.
  const auto acts = make_activities(o, s);
  {
    Inserter ins(db, "Activities",
                 {"Activity ID", "Activity Name", "Activity Unit", "Activity Description", "Notes",
                  "Impact type", "Norm_factor"});
    for (const auto& a : acts)
      ins.row({a.id, a.name, a.unit, "Change in " + a.name + " (" + a.unit + ")",
               a.by_class >= 0 ? "Entered by class" : "", a.type,
               a.type == 4 ? static_cast<double>(rng.between(100, 5000)) / 100.0 : 1.0});
    ins.flush();
  }
  std::vector<size_t> by_class_acts;
  for (size_t i = 0; i < acts.size(); ++i)
    if (acts[i].by_class >= 0) by_class_acts.push_back(i);

  // Baselines and their details: a plain value for every activity, or for
  // at most one activity a marker and one value per class of its RVC.
  static const std::vector<std::string> base_names = {
      "Conventional arable", "Intensive dairy",     "Extensive grazing", "Mixed farming",
      "Upland sheep",        "Commercial forestry", "Horticulture",      "Set-aside"};
  const int n_base = std::clamp(o.operations / 20, 2, 60);
  std::vector<Baseline> bases;
  for (int i = 0; i < n_base; ++i) {
    Baseline b;
    b.id = i + 1;
    if (i == 0 || rng.chance(50)) b.multi = static_cast<int>(rng.pick(by_class_acts));
    for (size_t ai = 0; ai < acts.size(); ++ai) {
      const Activity& a = acts[ai];
      if (static_cast<int>(ai) == b.multi) {
        const Rvc& v = s.list[static_cast<size_t>(a.by_class)];
        b.details.push_back({a.id, 0, 0, true, 0});
        for (int c = v.min; c <= v.max; ++c)
          b.details.push_back({a.id, v.id, c, false, rng.between(0, 400)});
      } else {
        b.details.push_back({a.id, 0, 0, false, rng.chance(30) ? 0 : rng.between(1, 800)});
      }
    }
    bases.push_back(std::move(b));
  }
  {
    Inserter ins(db, "Baselines", {"Baseline ID", "Baseline name", "Baseline long name", "Notes"});
    for (const auto& b : bases) {
      const std::string nm = numbered(base_names, static_cast<size_t>(b.id - 1));
      ins.row({b.id, nm, nm + " (synthetic reference land use)", ""});
    }
    ins.flush();
  }

  // Operations.
  static const std::vector<std::pair<std::string, bool>> actions = {
      {"Buffer strips", true},
      {"Cover crops", false},
      {"Reduced tillage", false},
      {"Hedgerow planting", true},
      {"Wetland restoration", false},
      {"Grassland conversion", false},
      {"Precision fertilisation", false},
      {"Manure storage cover", false},
      {"Agroforestry", false},
      {"Riparian woodland", true},
      {"Beetle banks", true},
      {"Low-input grassland", false},
      {"Catch crops", false},
      {"Biogas plant", false},
      {"Farm woodland", false},
      {"Peatland rewetting", false},
      {"Contour ploughing", false},
      {"Organic conversion", false},
      {"Farmers' advisory visits", false},
      {"Terracing", true}};
  static const std::vector<std::string> where = {
      "on arable land", "along watercourses", "in uplands",  "on slopes",
      "on grassland",   "on mixed farms",     "in lowlands", "near settlements"};
  static const std::array<int, 10> corine_weight = {25, 30, 15, 10, 10, 2, 2, 3, 1, 2};
  Rng orng(o.seed, kOperations);
  Inserter ops(db, "Operations",
               {"Operation ID", "Operation Type ID", "Operation Name", "Operation Description",
                "CORINE Class", "Scaling up technique", "ST Value", "Uptake", "Cost", "Cost Single",
                "TEA_Inc", "TEA_Factor", "TEA_Cost", "Notes", "Operation_DQ", "Last_Updated"});
  Inserter om(db, "Operations_Measures", {"Operation ID", "Measure ID"});
  Inserter onm(db, "Operations_New_Measures", {"Operation ID", "Measure ID"});
  Inserter oi(db, "Operations_Impacts", {"Operation ID", "Impact ID"});
  Inserter op(db, "Operations_Practicality", {"Operation ID", "Practicality ID"});
  Inserter bd(db, "Baseline_Activity_Details",
              {"Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Details"});
  Inserter od(db, "Operation_Activity_Details",
              {"Operation ID", "Activity ID", "RVC ID", "RVC Class", "Details"});
  Inserter delta(db, "Operation_Activity_Delta",
                 {"Operation ID", "Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Delta"});
  Inserter dl(db, "Delta_List", {"Operation ID", "Baseline ID"});
  auto details_text = [](const Detail& d) { return d.multi ? "Multi" : eighths_text(d.eighths); };

  for (const auto& b : bases)
    for (const auto& d : b.details) bd.row({b.id, d.activity, d.rvc, d.cls, details_text(d)});

  std::vector<int> all_ids;
  for (int i = 1; i <= o.operations; ++i) all_ids.push_back(i);
  for (int id = 1; id <= o.operations; ++id) {
    const auto& [action, boundary] = orng.pick(actions);
    const std::string name = action + " " + orng.pick(where) + " #" + std::to_string(id);
    int corine = 0;
    for (int64_t roll = orng.between(0, 99); roll >= corine_weight[static_cast<size_t>(corine)];)
      roll -= corine_weight[static_cast<size_t>(corine++)];
    const int technique = boundary ? 2 : 1;
    const double st = boundary
                          ? static_cast<double>(orng.between(2, 12))
                          : (orng.chance(60) ? 100.0 : static_cast<double>(orng.between(5, 95)));
    const int tea = orng.chance(40) ? 1 : 0;
    ops.row({id, static_cast<int>(orng.between(1, static_cast<int64_t>(types.size()))), name,
             "Synthetic operation: " + name + ".", corine, technique, st,
             static_cast<double>(orng.between(5, 60)), static_cast<double>(orng.between(20, 600)),
             orng.chance(30) ? static_cast<double>(orng.between(500, 20000)) : 0.0, tea,
             tea ? static_cast<double>(orng.between(5, 30)) / 100.0 : 0.0,
             tea ? static_cast<double>(orng.between(5, 50)) : 0.0, "",
             static_cast<double>(orng.between(1, 5)), date_text(orng)});
    for (int m : orng.sample(std::vector<int>{1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12,
                                              13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
                             static_cast<size_t>(orng.between(1, 2)))) {
      om.row({id, m});
      onm.row({id, (m * 7) % n_measures + 1});
    }
    for (int i : orng.sample(std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
                             static_cast<size_t>(orng.between(1, 3))))
      oi.row({id, i});
    for (int i : orng.sample(std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
                             static_cast<size_t>(orng.between(1, 3))))
      op.row({id, i});

    // Details: the baseline's values with a few activities changed. The
    // baseline's class-by-class activity is entered class by class here
    // too, and sometimes changed in a class or more: always so for the
    // first operation, which takes the first baseline.
    const Baseline& b = bases[id == 1 ? 0 : static_cast<size_t>(orng.index(bases.size()))];
    const int target = static_cast<int>(orng.between(5, 10));
    int class_changes = 0;
    if (b.multi >= 0 && (id == 1 || orng.chance(60)))
      class_changes = static_cast<int>(orng.between(1, 3));
    std::vector<int> plain;
    for (int ai = 0; ai < static_cast<int>(acts.size()); ++ai)
      if (ai != b.multi) plain.push_back(ai);
    const int n_plain = std::max(1, target - (b.multi >= 0 ? 1 : 0) - class_changes);
    const auto changed = orng.sample(plain, static_cast<size_t>(n_plain));
    auto change = [&](int64_t base) {
      int64_t d = orng.between(1, 160);
      if (orng.chance(50) && base - d >= 0) d = -d;
      return base + d;
    };
    std::vector<Detail> mine = b.details;
    std::vector<size_t> class_rows;
    for (size_t i = 0; i < mine.size(); ++i) {
      Detail& d = mine[i];
      if (d.rvc != 0)
        class_rows.push_back(i);
      else if (!d.multi &&
               std::find(changed.begin(), changed.end(), d.activity - 1) != changed.end())
        d.eighths = change(d.eighths);
    }
    for (size_t i : orng.sample(class_rows, static_cast<size_t>(class_changes)))
      mine[i].eighths = change(mine[i].eighths);
    for (const auto& d : mine) od.row({id, d.activity, d.rvc, d.cls, details_text(d)});

    // The deltas, as the delta calculation makes them: the baseline's marker
    // gives a marker, otherwise operation minus baseline where not 0.
    std::map<std::tuple<int, int, int>, const Detail*> base_of;
    for (const auto& d : b.details) base_of[{d.activity, d.rvc, d.cls}] = &d;
    for (const auto& d : mine) {
      const Detail& bd_row = *base_of.at({d.activity, d.rvc, d.cls});
      if (bd_row.multi)
        delta.row({id, b.id, d.activity, 0, 0, "Multi"});
      else if (d.eighths != bd_row.eighths)
        delta.row({id, b.id, d.activity, d.rvc, d.cls, eighths_text(d.eighths - bd_row.eighths)});
    }
    dl.row({id, b.id});
  }
  for (Inserter* ins : {&ops, &om, &onm, &oi, &op, &bd, &od, &delta, &dl}) ins->flush();

  // Factors, by the activity's impact type.
  Rng frng(o.seed, kFactors);
  Inserter mit(db, "Mitigation_Activity_Emission_Factors",
               {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Equilibrium",
                "Refs", "Data_Quality"});
  Inserter ada(
      db, "Adaptation_Activity_Impact_Factors",
      {"Activity ID", "Impact Category ID", "RVC ID", "Impact factor", "Refs", "Data_Quality"});
  Inserter yld(db, "Yield_Activity_Impact_Factors",
               {"Activity ID", "RVC ID", "RVC Value", "Yield", "Refs", "Data_Quality"});
  for (const auto& a : acts) {
    if (a.type == 2) {
      // One row per impact RVC that the activity scores.
      for (int i : frng.sample(s.impacts, static_cast<size_t>(frng.between(1, 3)))) {
        const Rvc& v = s.list[static_cast<size_t>(i)];
        ada.row({a.id, v.impact_area, v.id, nonzero_thousandths(frng, -400, 1000), refs(frng),
                 static_cast<int>(frng.between(1, 5))});
      }
      continue;
    }
    // Which RVC and class each factor row is tied to: the reserved RVC 19
    // (resolved from the delta row or the operation's land class), the
    // classes of a baseline RVC, or for class-by-class activities impact
    // classes that resolve through the combo with their baseline RVC.
    std::vector<std::pair<int, int>> keys;
    if (a.by_class >= 0) {
      const auto& combos = s.combos_of_baseline.at(a.by_class);
      for (int ci : frng.sample(combos, static_cast<size_t>(frng.between(1, 2)))) {
        const int impact = s.list[static_cast<size_t>(s.list[static_cast<size_t>(ci)].impact)].id;
        for (int c : frng.sample(std::vector<int>{1, 2, 3, 4, 5}, 2)) keys.push_back({impact, c});
      }
      if (frng.chance(50)) keys.push_back({kReservedRvc, 0});
    } else if (a.id == 5 || frng.chance(50)) {
      keys.push_back({kReservedRvc, 0});
    } else {
      const Rvc& v = s.list[static_cast<size_t>(frng.pick(s.baselines))];
      for (int c = 1; c <= v.max; ++c) keys.push_back({v.id, c});
    }
    // The factors of one activity share a sign and stay clear of zero, so
    // an area's per-hectare figure never rounds to nothing while its total
    // does not (the folding of an activity's rows divides by those figures).
    const double sign = frng.chance(50) ? 1.0 : -1.0;
    if (a.type == 1) {
      // Activity 4 is always sequestration towards an equilibrium.
      const int mtype = a.id == 4 || frng.chance(30) ? 2 : 1;
      const bool equilibrium = mtype == 2 && (a.id == 4 || frng.chance(50));
      for (auto [rvc, cls] : keys) {
        // Sequestration is a negative emission; an equilibrium has the sign
        // of the yearly figure, so that accumulation reaches it.
        const double t = mtype == 2 ? -thousandths(frng.between(100, 3000))
                                    : sign * thousandths(frng.between(100, 2500));
        const Value eq =
            equilibrium ? Value(t * static_cast<double>(frng.between(10, 60))) : Value();
        mit.row({a.id, rvc, cls, mtype, t, eq, refs(frng), static_cast<int>(frng.between(1, 5))});
      }
    } else {
      for (auto [rvc, cls] : keys)
        yld.row({a.id, rvc, cls, sign * thousandths(frng.between(100, 5000)), refs(frng),
                 static_cast<int>(frng.between(1, 5))});
    }
  }
  for (Inserter* ins : {&mit, &ada, &yld}) ins->flush();

  // The admin-only lists: a few operations scoped out, a few on the list.
  {
    Inserter so(db, "Scoped_Out_Operations",
                {"Operation ID", "Operation Name", "Operation Description", "Operation Type ID",
                 "Operation Type Name"});
    Inserter som(db, "Scoped_Out_Operations_Measures", {"Operation ID", "Measure ID"});
    for (int i = 1; i <= std::max(1, o.operations / 25); ++i) {
      const int id = o.operations + i;
      const int type = static_cast<int>(frng.between(1, static_cast<int64_t>(types.size())));
      so.row({id, "Scoped out operation " + std::to_string(i), "Not assessed", type,
              types[static_cast<size_t>(type - 1)]});
      som.row({id, static_cast<int>(frng.between(1, n_measures))});
    }
    so.flush();
    som.flush();
    Inserter xl(db, "xPPL_List", {"Operation ID", "Operation Name"});
    for (int id : frng.sample(all_ids, static_cast<size_t>(std::max(1, o.operations / 30))))
      xl.row({id, "Listed operation #" + std::to_string(id)});
    xl.flush();
  }
  tx.commit();
}

int64_t parse_int(const std::string& flag, const std::string& text, int64_t lo, int64_t hi) {
  int64_t v = 0;
  const char* end = text.data() + text.size();
  auto [p, ec] = std::from_chars(text.data(), end, v);
  if (text.empty() || ec != std::errc() || p != end)
    throw std::invalid_argument(flag + " needs a whole number, not \"" + text + "\"");
  if (v < lo || v > hi)
    throw std::invalid_argument(flag + " must be between " + std::to_string(lo) + " and " +
                                std::to_string(hi) + ", not " + text);
  return v;
}

}  // namespace

std::string usage() {
  return "usage: arven-synth --out DIR [--country CC | --countries N|CC,CC,...] [--nuts3 N] "
         "[--operations N] [--activities N] [--rvcs N] [--seed S]\n"
         "Writes the master stores arven_operations.mdb and arven_rvcs.mdb of one synthetic "
         "country (or of several, --countries 27 naming the first 27 of the registry) into "
         "DIR.\nDefaults: --country SK --nuts3 400 --operations 300 --activities 60 "
         "--rvcs 40 --seed 1.";
}

std::vector<std::string> country_codes(const Options& o) {
  return o.countries.empty() ? std::vector<std::string>{o.country} : o.countries;
}

void validate(const Options& o) {
  for (const auto& code : country_codes(o))
    if (country_index_by_code(code) == 0)
      throw std::invalid_argument("unknown country code \"" + code + "\"");
  {
    auto codes = country_codes(o);
    std::sort(codes.begin(), codes.end());
    if (std::adjacent_find(codes.begin(), codes.end()) != codes.end())
      throw std::invalid_argument("a country is named twice in --countries");
  }
  if (o.out.empty()) throw std::invalid_argument("--out DIR is required");
  if (country_index_by_code(o.country) == 0)
    throw std::invalid_argument("unknown country code \"" + o.country + "\"");
  auto range = [](const char* flag, int v, int lo, int hi) {
    if (v < lo || v > hi)
      throw std::invalid_argument(std::string(flag) + " must be between " + std::to_string(lo) +
                                  " and " + std::to_string(hi));
  };
  range("--nuts3", o.nuts3, 1, kMaxNuts3);
  range("--operations", o.operations, 1, kMaxOperations);
  range("--activities", o.activities, kMinActivities, kMaxActivities);
  range("--rvcs", o.rvcs, kMinRvcs, kMaxRvcs);
}

Options parse_options(const std::vector<std::string>& args) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& flag = args[i];
    if (i + 1 >= args.size())
      throw std::invalid_argument(flag + ": missing value or unknown option");
    const std::string& v = args[++i];
    if (flag == "--out")
      o.out = v;
    else if (flag == "--country") {
      o.country = v;
      for (char& c : o.country) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    } else if (flag == "--countries") {
      o.countries.clear();
      if (!v.empty() && std::isdigit(static_cast<unsigned char>(v[0]))) {
        const int n = static_cast<int>(parse_int(flag, v, 1, kMaxCountries));
        for (int i = 1; i <= n; ++i) o.countries.push_back(country_code_by_index(i));
      } else {
        std::string code;
        for (char c : v + ",") {
          if (c != ',') {
            code += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            continue;
          }
          if (!code.empty()) o.countries.push_back(code);
          code.clear();
        }
      }
      if (!o.countries.empty()) o.country = o.countries.front();
    } else if (flag == "--nuts3")
      o.nuts3 = static_cast<int>(parse_int(flag, v, 1, kMaxNuts3));
    else if (flag == "--operations")
      o.operations = static_cast<int>(parse_int(flag, v, 1, kMaxOperations));
    else if (flag == "--activities")
      o.activities = static_cast<int>(parse_int(flag, v, kMinActivities, kMaxActivities));
    else if (flag == "--rvcs")
      o.rvcs = static_cast<int>(parse_int(flag, v, kMinRvcs, kMaxRvcs));
    else if (flag == "--seed")
      o.seed = static_cast<uint32_t>(parse_int(flag, v, 0, 0xFFFFFFFFll));
    else
      throw std::invalid_argument("unknown option " + flag);
  }
  validate(o);
  return o;
}

TableCounts generate_country(const Options& o) {
  validate(o);
  // Every country has the same RVCs and operations; each has areas of its
  // own, shaped by its own seed (the first one's is the given seed).
  std::vector<Options> per_country;
  std::vector<Geography> geos;
  std::array<int, 4> base{};
  for (const auto& code : country_codes(o)) {
    Options oc = o;
    oc.country = code;
    oc.seed = o.seed + static_cast<uint32_t>(per_country.size());
    geos.push_back(make_geography(oc, country_index_by_code(code), base));
    for (size_t k = 1; k < 4; ++k) base[k] += static_cast<int>(geos.back().level[k].size());
    per_country.push_back(oc);
  }
  RvcSet rvcs = make_rvcs(o);
  const auto ops_path = o.out / "arven_operations.mdb";
  const auto rvc_path = o.out / "arven_rvcs.mdb";
  write_operations_store(ops_path, o, rvcs);
  write_rvcs_store(rvc_path, geos, per_country, rvcs);

  TableCounts counts;
  for (const auto& path : {ops_path, rvc_path}) {
    Db db = Db::open(path);
    for (const auto& t : db.table_names()) {
      auto rows = db.query("SELECT count(*) FROM " + quote_name(t));
      rows.next();
      counts.push_back({t, rows.get(0).as_int()});
    }
  }
  return counts;
}

std::string summary_line(const TableCounts& counts) {
  std::string s;
  for (const auto& [t, n] : counts) s += (s.empty() ? "" : " ") + t + "=" + std::to_string(n);
  return s;
}

}  // namespace arven::synth
