#include "windows/regional_profile.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <utility>

#include "assessment/assessment_file.h"
#include "base/html_text.h"
#include "base/numbers.h"
#include "core/page_file.h"
#include "core/preferences.h"
#include "core/session.h"
#include "core/startup.h"
#include "stores/db.h"
#include "windows/settings_dialog.h"

namespace arven {

namespace {

constexpr const char* kAllText = "000 - ALL";
constexpr const char* kNoFileText =
    "Please create or open an ARVEN file before trying to select a region.";
constexpr const char* kNoFileTitle = "Cannot select region";
constexpr const char* kSelectionTitle = "Selection";
constexpr const char* kAllOfEuropeText = "You cannot select ALL of Europe";
constexpr const char* kOverlapTitle = "Area accounted";
constexpr const char* kOverlapText = "This area is already included within your selection (";
constexpr const char* kCountryTitle = "Invalid selection";
constexpr const char* kCountryText =
    "This area is not part of the same country (NUTS0) for those regions already selected. You "
    "can only select regions in one country.";
constexpr const char* kCheckFailedText =
    "This country could not be checked against the regions already selected, so it was not "
    "added. Your selection is unchanged.\n\n";

RegionsState& state_storage() {
  static RegionsState s;
  return s;
}

std::string level_table(int level) {
  return quote_name("NUTS" + std::to_string(level));
}
std::string id_column(int level) {
  return quote_name("NUTS" + std::to_string(level) + "_ID");
}

int64_t selected_data(int level) {
  const AreaList& l = regions().lists[static_cast<size_t>(level)];
  if (l.selected < 0 || l.selected >= static_cast<int>(l.items.size())) return 0;
  return l.items[static_cast<size_t>(l.selected)].data;
}

std::string selected_text(int level) {
  const AreaList& l = regions().lists[static_cast<size_t>(level)];
  if (l.selected < 0 || l.selected >= static_cast<int>(l.items.size())) return "";
  return l.items[static_cast<size_t>(l.selected)].text;
}

// rvc_db_path follows the country selected in the first list.
void follow_country() {
  Session& s = session();
  int64_t country = selected_data(0);
  if (country >= 1 && country <= kCountryCount)
    s.rvc_db_path = s.country_db_path[static_cast<size_t>(country)];
}

// Fills list `level` from NUTS<level> of rvc_db_path; keys[j] is the key of
// level j, and only the keys that are not 0 filter.
void fill_area_list(int level, const std::vector<int64_t>& keys) {
  std::string sql = "SELECT * FROM " + level_table(level);
  std::string where;
  std::vector<Value> params;
  for (size_t j = 0; j < keys.size(); ++j) {
    if (keys[j] == 0) continue;
    where += (where.empty() ? "" : " AND ") + id_column(static_cast<int>(j)) + " = ?";
    params.emplace_back(keys[j]);
  }
  if (!where.empty()) sql += " WHERE " + where;
  std::vector<ListItem> items = {{kAllText, 0}};
  Db db = Db::open(session().rvc_db_path);
  auto rows = db.query(sql + " ORDER BY rowid", params);
  while (rows.next()) {
    if (rows.get("EU-27").as_text() == "N") continue;
    items.push_back({rows.get("NUTS").as_text() + " - " + rows.get("NAME").as_text(),
                     rows.get("NUTS" + std::to_string(level) + "_ID").as_int()});
  }
  AreaList& list = regions().lists[static_cast<size_t>(level)];
  list.items = std::move(items);
  list.selected = 0;
}

// Refills the lists below `level` from the entries selected above them.
void refill_below(int level) {
  for (int j = level + 1; j <= 3; ++j) {
    std::vector<int64_t> keys;
    for (int p = 0; p < j; ++p) keys.push_back(selected_data(p));
    fill_area_list(j, keys);
  }
}

// The integer columns of Regions take the cell through single precision,
// as profiles have always been written; intended.
int64_t single_precision(const std::string& cell) {
  return static_cast<int64_t>(std::nearbyint(static_cast<float>(cell_to_number(cell))));
}

void set_table_titles(GridTable& t) {
  t = GridTable(6);
  t.add_row();
  const char* titles[] = {"NUTS0_ID", "NUTS TYPE", "NUTS Code", "Name", "ID", "Area"};
  for (int c = 0; c < 6; ++c) t.cell(0, c) = titles[c];
}

int area_count() {
  return std::max(0, regions().table.rows() - 1);
}

void open_rvc_browser_later(Ui& ui, int tab) {
  ui.set_timer([&ui, tab] { ui.show_modal("rvc", tab); });
}

// The deepest list whose selected entry is an area, or -1.
int chosen_list_level() {
  for (int k = 3; k >= 0; --k)
    if (selected_data(k) != 0) return k;
  return -1;
}

}  // namespace

RegionsState& regions() {
  return state_storage();
}

void regions_load() {
  RegionsState& st = regions();
  st = RegionsState{};
  set_table_titles(st.table);
  nuts0();
  if (!session().current_file.empty()) load_data();
}

void nuts0() {
  const Session& s = session();
  std::vector<ListItem> items;
  for (int cc = 1; cc <= kCountryCount; ++cc) {
    if (s.country_installed[static_cast<size_t>(cc)] == 0) continue;
    Db db = Db::open(s.country_db_path[static_cast<size_t>(cc)]);
    auto rows = db.query("SELECT * FROM " + level_table(0) + " ORDER BY rowid");
    while (rows.next())
      items.push_back({rows.get("NUTS").as_text() + " - " + rows.get("NAME").as_text(),
                       rows.get("NUTS0_ID").as_int()});
  }
  AreaList& list = regions().lists[0];
  // A refill keeps the country that was selected when it is still there.
  int64_t was = selected_data(0);
  list.items = std::move(items);
  list.selected = -1;
  for (size_t i = 0; i < list.items.size(); ++i)
    if (was != 0 && list.items[i].data == was) list.selected = static_cast<int>(i);
}

void nuts1(int64_t nuts0_id) {
  fill_area_list(1, {nuts0_id});
}
void nuts2(int64_t nuts0_id, int64_t nuts1_id) {
  fill_area_list(2, {nuts0_id, nuts1_id});
}
void nuts3(int64_t nuts0_id, int64_t nuts1_id, int64_t nuts2_id) {
  fill_area_list(3, {nuts0_id, nuts1_id, nuts2_id});
}

void list_click(int level, int index) {
  if (level < 0 || level > 3) return;
  RegionsState& st = regions();
  AreaList& list = st.lists[static_cast<size_t>(level)];
  if (index < 0 || index >= static_cast<int>(list.items.size())) return;
  list.selected = index;
  follow_country();
  refill_below(level);
  int64_t data = list.items[static_cast<size_t>(index)].data;
  if (data == 0) return;
  st.chosen_code = nuts_field(level, data, 2).as_text();
  st.caption = "NUTS regions: " + st.chosen_code + " - " + nuts_field(level, data, 1).as_text() +
               " currently selected";
}

void list_double_click(Ui& ui, int level, int index) {
  if (level < 0 || level > 3) return;
  const AreaList& list = regions().lists[static_cast<size_t>(level)];
  if (index < 0 || index >= static_cast<int>(list.items.size())) return;
  if (list.selected != index) list_click(level, index);
  add_command(ui, level);
}

void list_right_click(int level, int index) {
  if (level < 0 || level > 3) return;
  RegionsState& st = regions();
  const AreaList& list = st.lists[static_cast<size_t>(level)];
  if (index < 0 || index >= static_cast<int>(list.items.size())) return;
  if (list.selected != index) list_click(level, index);
  follow_country();
  st.context_level = level;
  int64_t data = list.items[static_cast<size_t>(index)].data;
  if (data != 0) st.chosen_code = nuts_field(level, data, 2).as_text();
}

Menu regions_context_menu() {
  return {"",
          {{"mnuExploreAdd", "Add to regional profile"},
           {"mnuExploreRVC", "Explore RVC data for this area"}}};
}

void regions_menu_command(Ui& ui, const std::string& name) {
  if (name == "mnuExploreAdd")
    add_command(ui, regions().context_level);
  else if (name == "mnuExploreRVC")
    open_rvc_browser_later(ui, 0);
}

void add_command(Ui& ui, int level) {
  if (level < 0 || level > 3) return;
  if (session().current_file.empty()) {
    ui.message_box(kNoFileText, kNoFileTitle, MsgButtons::Ok, MsgIcon::Information);
    return;
  }
  for (int k = level;; --k) {
    int64_t data = selected_data(k);
    if (k == 0) {
      if (data == 0) {
        ui.message_box(kAllOfEuropeText, kSelectionTitle, MsgButtons::Ok, MsgIcon::Stop);
        return;
      }
      add_nuts0(ui, data);
      return;
    }
    if (data != 0) {
      add_nuts(ui, k, data);
      return;
    }
    // "ALL" stands for the area chosen one level up: offer that instead.
    Answer a =
        ui.message_box("You cannot select ALL. Do you want to add " + selected_text(k - 1) + "?",
                       kSelectionTitle, MsgButtons::YesNoCancel, MsgIcon::Question);
    if (a != Answer::Yes) return;
  }
}

bool add_nuts(Ui& ui, int k, int64_t new_id) {
  if (k < 0 || k > 3) return false;
  RegionsState& st = regions();
  GridTable& t = st.table;
  Db db = Db::open(session().rvc_db_path);

  // Overlap: the new area is a selected one, contains one, or lies in one.
  for (int r = 1; r < t.rows(); ++r) {
    int level = static_cast<int>(single_precision(t.cell(r, kRegionLevel)));
    int64_t id = single_precision(t.cell(r, kRegionId));
    auto rows = level >= k ? db.query("SELECT * FROM " + level_table(level) + " WHERE " +
                                          id_column(k) + " = ? AND " + id_column(level) + " = ?",
                                      {Value(new_id), Value(id)})
                           : db.query("SELECT * FROM " + level_table(k) + " WHERE " +
                                          id_column(level) + " = ? AND " + id_column(k) + " = ?",
                                      {Value(id), Value(new_id)});
    if (rows.next()) {
      ui.message_box(kOverlapText + t.cell(r, kRegionCode) + ")", kOverlapTitle, MsgButtons::Ok,
                     MsgIcon::Stop);
      return false;
    }
  }

  // One country: a store holds one, so a selected area missing from it, or
  // of another NUTS0, is of another country.
  for (int r = 1; r < t.rows(); ++r) {
    int level = static_cast<int>(single_precision(t.cell(r, kRegionLevel)));
    int64_t id = single_precision(t.cell(r, kRegionId));
    auto row = db.query(
        "SELECT * FROM " + level_table(level) + " WHERE " + id_column(level) + " = ?", {Value(id)});
    if (!row.next()) {
      ui.message_box(kCountryText, kCountryTitle, MsgButtons::Ok, MsgIcon::Stop);
      return false;
    }
    Value row_country = row.get("NUTS0_ID");
    std::optional<Value> new_country;
    try {
      // At level 0 the country is looked up by a column NUTS0 does not have,
      // so the engine refuses the query: intended, the addition must not go
      // through. Brackets keep the name an identifier.
      std::string column = k == 0 ? "[NUTS1_ID]" : id_column(k);
      auto found = db.query("SELECT * FROM " + level_table(k) + " WHERE " + column + " = ?",
                            {Value(new_id)});
      if (found.next()) new_country = found.get("NUTS0_ID");
    } catch (const StoreError& e) {
      ui.message_box(kCheckFailedText + std::string(e.what()), kCountryTitle, MsgButtons::Ok,
                     MsgIcon::Stop);
      return false;
    }
    if (!new_country || new_country->as_int() != row_country.as_int()) {
      ui.message_box(kCountryText, kCountryTitle, MsgButtons::Ok, MsgIcon::Stop);
      return false;
    }
  }

  int r = t.add_row();
  t.cell(r, kRegionCountry) = std::to_string(selected_data(0));
  t.cell(r, kRegionLevel) = std::to_string(k);
  t.cell(r, kRegionCode) = nuts_field(k, new_id, 2).as_text();
  t.cell(r, kRegionName) = nuts_field(k, new_id, 1).as_text();
  t.cell(r, kRegionId) = std::to_string(new_id);
  t.cell(r, kRegionArea) = nuts_field(k, new_id, 3).as_text();
  try {
    save_data();
  } catch (...) {
    t.resize(r, t.cols());  // not saved: the selection stays as it was
    throw;
  }
  if (st.current_row == 0) st.current_row = 1;
  return true;
}

bool add_nuts0(Ui& ui, int64_t id) {
  return add_nuts(ui, 0, id);
}

void select_region_row(int row) {
  if (row >= 1 && row < regions().table.rows()) regions().current_row = row;
}

void remove_region() {
  RegionsState& st = regions();
  GridTable before = st.table;
  int areas = area_count();
  if (areas == 0) return;
  if (areas == 1) {
    st.table.resize(1, st.table.cols());
  } else {
    int gone = std::clamp(st.current_row, 1, areas);
    GridTable kept(st.table.cols());
    for (int r = 0; r < st.table.rows(); ++r) {
      if (r == gone) continue;
      int n = kept.add_row();
      for (int c = 0; c < kept.cols(); ++c) kept.cell(n, c) = st.table.cell(r, c);
    }
    st.table = std::move(kept);
  }
  int old_row = st.current_row;
  st.current_row = std::min(std::max(st.current_row, 1), area_count());
  try {
    save_data();
  } catch (...) {
    st.table = std::move(before);
    st.current_row = old_row;
    throw;
  }
}

void save_data() {
  const GridTable& t = regions().table;
  Db db = Db::open(session().current_file);
  Transaction tx(db);
  db.exec("DELETE FROM " + quote_name("Regions"));
  for (int r = 1; r < t.rows(); ++r)
    db.insert("Regions",
              {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS Name", "NUTS ID", "NUTS Area"},
              {Value(single_precision(t.cell(r, kRegionCountry))),
               Value(single_precision(t.cell(r, kRegionLevel))), Value(t.cell(r, kRegionCode)),
               Value(t.cell(r, kRegionName)), Value(single_precision(t.cell(r, kRegionId))),
               Value(cell_to_number(t.cell(r, kRegionArea)))});
  // Impact data cached for the old region are now stale.
  if (db.query("SELECT 1 FROM " + quote_name("Operations") + " LIMIT 1").next())
    db.exec(
        "UPDATE " + quote_name("Version") + " SET " + quote_name("Regional data changed") + " = ?",
        {Value("Yes")});
  tx.commit();
}

void load_data() {
  RegionsState& st = regions();
  GridTable t;
  set_table_titles(t);
  Db db = Db::open(session().current_file);
  auto rows = db.query("SELECT * FROM " + quote_name("Regions") + " ORDER BY rowid");
  while (rows.next()) {
    int r = t.add_row();
    t.cell(r, kRegionCountry) = rows.get("NUTS0_ID").as_text();
    t.cell(r, kRegionLevel) = rows.get("NUTS Type ID").as_text();
    t.cell(r, kRegionCode) = rows.get("NUTS Code").as_text();
    t.cell(r, kRegionName) = rows.get("NUTS Name").as_text();
    t.cell(r, kRegionId) = rows.get("NUTS ID").as_text();
    t.cell(r, kRegionArea) = rows.get("NUTS Area").as_text();
  }
  st.table = std::move(t);
  st.current_row = area_count() > 0 ? 1 : 0;
}

std::string map_server() {
  std::string address = get_setting("Settings", kMapServerKey, kDefaultMapServer);
  while (!address.empty() && (address.back() == '/' || address.back() == ' ')) address.pop_back();
  return address.empty() ? kDefaultMapServer : address;
}

void GE_html(Ui& ui) {
  struct Layer {
    const char* text;
    const char* file;
  };
  struct Section {
    const char* title;
    std::vector<Layer> layers;
  };
  static const std::vector<Section> sections = {
      {"Overview", {{"Overview of RVC data", "arven_rvc"}}},
      {"Mitigation",
       {{"CO2 from fossil fuels", "arven_cff"},
        {"CO2 release from soil due to tillage", "arven_cst"},
        {"N2O from denitrification", "arven_den"},
        {"N2O from nitrate leaching", "arven_ler"},
        {"Loss of Soil Organic Carbon (SOC) due to soil erosion", "arven_soe"},
        {"SOC (scope for increase)", "arven_soc"},
        {"Susceptibility to soil compaction &ndash; SOC accumulation", "arven_scs"}}},
      {"Adaptation",
       {{"Soil erosion", "arven_ser"},
        {"Loss of SOC", "arven_sos"},
        {"Risk to pollinators", "arven_pol"},
        {"Water provision (quantity)", "arven_wps"},
        {"Water quality dilution", "arven_dla"},
        {"Water quality filtration", "arven_fla"},
        {"Flooding", "arven_flo"},
        {"Risk of forest fires", "arven_ffr"},
        {"Risk to biodiversity (general)", "arven_bio"},
        {"Risk to biodiversity in Natura 2000 sites", "arven_n2k"},
        {"Landscape impact from soil erosion and forest fires", "arven_lan"}}}};
  // Without a map server of the user's the layers are listed unlinked: the
  // default address is this program's own port, which serves no maps.
  const bool configured = !get_setting("Settings", kMapServerKey, "").empty();
  std::string server = html_escape(map_server());
  PageFile out("google_earth.htm");
  page_header(out, 0);
  out.line(
      "<p><font face=\"Arial\" size=\"4\"><strong>RVC Data Available in Google "
      "Earth</strong></font></p>");
  if (!configured)
    out.line(
        "<p><font face=\"Verdana\"><small>No map server is configured, so these layers cannot "
        "be opened. Set <code>Map_Server=http://HOST:PORT</code> in the [Settings] section of "
        "ARVEN.ini to the server that publishes them.</small></font></p>");
  for (const Section& s : sections) {
    out.line("<p><font face=\"Arial\"><strong>" + std::string(s.title) + "</strong></font></p>");
    out.line("<ul>");
    for (const Layer& l : s.layers)
      out.line("<li><font face=\"Verdana\"><small>" +
               (configured ? "<a href=\"" + server + "/maps/" + l.file + ".kmz\">" + l.text + "</a>"
                           : std::string(l.text)) +
               "</small></font></li>");
    out.line("</ul>");
  }
  page_footer(out);
  ui.navigate("regions", "google_earth.htm");
}

std::vector<ToolbarButton> regions_toolbar() {
  const RegionsState& st = regions();
  bool areas = area_count() > 0;
  return {
      {"New", "New", "Create a new ARVEN file"},
      {"Open", "Open", "Open an ARVEN file"},
      {"SaveAs", "Save As", "Save the ARVEN file under another name"},
      {"Remove", "Remove", "Remove the selected area from the regional profile", areas},
      {"GE", st.show_map ? "Area lists" : "Map layers",
       st.show_map ? "Back to the lists of NUTS areas" : "RVC data available in Google Earth"},
      {"RVC", "RVC data", "Explore the RVC data of the area chosen in the lists",
       chosen_list_level() >= 0},
      {"Info", "Area info", "Explore the RVC data of the selected area of the profile", areas},
      {"Hotspot", "Hotspot report", "Climate change hotspots of the regional profile", areas},
      {"AddCountry", "Add country", "Install the database of another country"},
  };
}

void regions_toolbar_command(Ui& ui, std::string_view key) {
  RegionsState& st = regions();
  Session& s = session();
  if (key == "New") {
    set_table_titles(st.table);
    st.current_row = 0;
    offer_store_download(ui, file_new(ui));
    // With the command cancelled or refused the old file stays open; the
    // table shows it again so that the next change does not drop its areas.
    if (!s.current_file.empty()) load_data();
  } else if (key == "Open") {
    offer_store_download(ui, file_open(ui));
    if (!s.current_file.empty()) {
      load_data();
    } else {
      set_table_titles(st.table);
      st.current_row = 0;
    }
  } else if (key == "SaveAs") {
    offer_store_download(ui, file_save_as(ui));
  } else if (key == "GE") {
    st.show_map = !st.show_map;
    if (st.show_map) GE_html(ui);
  } else if (key == "RVC") {
    int k = chosen_list_level();
    if (k >= 0) st.chosen_code = nuts_field(k, selected_data(k), 2).as_text();
    open_rvc_browser_later(ui, 0);
  } else if (key == "Remove") {
    remove_region();
  } else if (key == "Info") {
    if (area_count() == 0) return;
    int row = std::clamp(st.current_row, 1, area_count());
    int64_t country = single_precision(st.table.cell(row, kRegionCountry));
    if (country >= 1 && country <= kCountryCount)
      s.rvc_db_path = s.country_db_path[static_cast<size_t>(country)];
    st.chosen_code = st.table.cell(row, kRegionCode);
    open_rvc_browser_later(ui, 0);
  } else if (key == "Hotspot") {
    if (area_count() > 0) open_rvc_browser_later(ui, 1);
  } else if (key == "AddCountry") {
    show_settings(ui, kSettingsUpdateTab, true);
    nuts0();  // a store installed meanwhile appears at once
  }
}

bool regions_navigation(Ui& ui, const std::string& target) {
  if (target.rfind("http", 0) == 0 || target.size() < 3) return false;
  std::string suffix = target.substr(target.size() - 3);
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (suffix != "kmz") return false;
  ui.open_document(target);
  return true;
}

}  // namespace arven
