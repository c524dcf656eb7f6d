#include "reports/page_commands.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "assessment/assessment_file.h"
#include "core/lookups.h"
#include "core/numbers.h"
#include "core/session.h"
#include "core/text.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"
#include "engine/impact_summaries.h"
#include "engine/operation_properties.h"
#include "reports/aggregation.h"
#include "reports/analyst_pages.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/regional_analysis.h"
#include "reports/scenario_compare.h"
#include "reports/uncertainty.h"
#include "stores/db.h"

namespace arven {

namespace {

// The whole number that a command's argument is; 0 when it is anything
// else (empty, signed, with other characters, or too long), which names no
// operation or measure.
int64_t argument_of(const std::string& target) {
  if (target.size() < 5 || target[target.size() - 4] != '.') return 0;
  const std::string arg = target.substr(0, target.size() - 4);
  if (arg.size() > 15) return 0;
  int64_t v = 0;
  for (char ch : arg) {
    if (!std::isdigit(static_cast<unsigned char>(ch))) return 0;
    v = v * 10 + (ch - '0');
  }
  return v;
}

// The command word: what stands before the first dot, lower case ("remove"
// of "remove.rem", "sort" of "sort.10s5"), whatever the suffix's length.
std::string word_of(const std::string& target) {
  return lower_case(target.substr(0, target.find('.')));
}

// The states a list can be sorted in: two per sortable column.
bool valid_sort_state(int grid, int state) {
  int last = 0;
  switch (grid) {
    case 3:
    case 4:
    case 6:
    case 12:
      last = 6;
      break;
    case 7:
      last = 8;
      break;
    case 5:
    case 8:
      last = 10;
      break;
    default:
      break;
  }
  return state >= 1 && state <= last;
}

bool file_open() {
  return !session().current_file.empty();
}

bool file_has_regions() {
  if (!file_open()) return false;
  Db db = Db::open(session().current_file);
  auto q = db.query("SELECT 1 FROM \"Regions\" LIMIT 1");
  return q.next();
}

// An operation of the country store: what every argument must name.
bool known_operation(int64_t id) {
  if (id <= 0 || session().ops_db_path.empty()) return false;
  try {
    Db store = Db::open(session().ops_db_path);
    auto q = store.query("SELECT 1 FROM \"Operations\" WHERE \"Operation ID\" = ?", {Value(id)});
    return q.next();
  } catch (const std::exception&) {
    return false;
  }
}

void report_failure(Ui& ui, const std::exception& e) {
  engine_detail::report_failure(ui, e);
}

// The report of one operation: a general page without a region, the stored
// figures of a chosen operation, or a live calculation of another.
void show_operation_report(Ui& ui, int64_t id) {
  ExplorerWindow& w = explorer_window();
  w.current_operation = id;
  explorer_state().current_operation_id = id;
  Catalogue& c = catalogue();
  if (!file_has_regions()) {
    const Tree& tree = c.tab == 2 ? c.chosen : c.catalogue;
    operation_general_html_hub(ui, tree, c.tab == 2 ? c.chosen_view : c.catalogue_view);
    return;
  }
  const bool in_file = operation_in_assessment(id);
  if (in_file) {
    if (load_impact_data(ui, id) != ImpactStatus::done) return;
  } else {
    wait_page("summary.htm", "Calculating regional impact data. Please wait...");
    ui.navigate("explorer", "summary.htm");
    if (operation_impact(ui) != ImpactStatus::done) return;
  }
  operation_specific_html_hub(ui, in_file ? 1 : 0, 1);
}

void rebuild_lists(Ui&) {
  load_sorted_lists();
  my_operation_list_html();
}

// Selects the first operation of the chosen tree and shows it.
void select_first_chosen(Ui& ui) {
  Tree& tree = catalogue().chosen;
  if (tree.empty()) return;
  tree.nodes[0].expanded = true;
  if (tree.nodes.size() >= 2) tree_node_click(ui, true, 1);
}

void refresh_lists_page(Ui& ui) {
  static const char* const kPages[] = {"ranked.htm", "mitigation.htm", "adaptation.htm",
                                       "production.htm"};
  const int tab = explorer_window().tab2;
  if (tab >= 1 && tab <= 4) ui.navigate("explorer", kPages[tab - 1]);
}

// The sort commands: "s3", "s4", "s5", "s12" (this window's lists).
bool sort_command(Ui& ui, const std::string& target) {
  int grid = 0, state = 0;
  if (!parse_sort_target(target, grid, state)) return false;
  // A state the list does not have is never stored: later visits would
  // sort by it.
  if (word_of(target) != "sort" || !valid_sort_state(grid, state)) return true;
  ExplorerWindow& w = explorer_window();
  try {
    switch (grid) {
      case 3:
        w.sort_grid3 = state;
        grid3_sort(state);
        break;
      case 4:
        w.sort_grid4 = state;
        grid4_sort(state);
        break;
      case 5:
        w.sort_grid5 = state;
        grid5_sort(state);
        break;
      case 12:
        w.sort_grid12 = state;
        grid12_sort(state);
        break;
      case 6:
        w.sort_reggrid1 = state;
        reggrid1_sort(state);
        reg_analysis_html(ui, w.current_operation, w.reg_impact_kind);
        return true;
      case 7:
        w.sort_aggrid1 = state;
        aglist_html();
        ui.navigate("explorer", "aggregate1.htm");
        return true;
      case 8:
        w.sort_aggrid1_ranked = state;
        aglist_ranked_html();
        ui.navigate("explorer", "aggregate_ranked1.htm");
        return true;
      default:
        return true;
    }
    my_operation_list_html();
  } catch (const std::exception& e) {
    report_failure(ui, e);
    return true;
  }
  refresh_lists_page(ui);
  return true;
}

void go_to_operation(Ui& ui, int64_t id) {
  Catalogue& c = catalogue();
  const bool chosen = c.tab != 1;
  Tree& tree = chosen ? c.chosen : c.catalogue;
  int found = -1;
  for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i) {
    if (tree.is_operation(i) && tree.operation_id(i) == id) {
      tree.nodes[static_cast<size_t>(tree.parent(i))].expanded = true;
      found = i;
      break;
    }
  }
  if (found < 0) return;
  tree_node_click(ui, chosen, found);
  if (chosen) explorer_window().tab2 = 5;
}

void go_to_measure(Ui& ui, int64_t id) {
  Catalogue& c = catalogue();
  // Measure links come from the aggregation pages, which group by the
  // post-2013 measures: the tree shows that classification. It is built
  // aside first, so a measure that is not in it leaves the tree on show as
  // it was.
  Tree by_measures;
  const bool rebuild = c.chosen_view != TreeViewKind::new_measures;
  if (rebuild) {
    by_measures.remembered_text = c.chosen.remembered_text;
    new_measures_tree(by_measures, 2);
  }
  Tree& candidate = rebuild ? by_measures : c.chosen;
  int found = -1;
  for (int i = 0; i < static_cast<int>(candidate.nodes.size()) && found < 0; ++i)
    if (!candidate.is_operation(i) && candidate.group_id(i) == id) found = i;
  if (found < 0) return;
  if (rebuild) {
    c.chosen_view = TreeViewKind::new_measures;
    c.chosen = std::move(by_measures);
  }
  Tree& tree = c.chosen;
  tree.nodes[static_cast<size_t>(found)].expanded = true;
  if (explorer_state().adding_operation) return;
  // The measure's node is selected as a click selects it, and the page is
  // the measure's own, as a group node of the catalogue has it: the
  // operations of that measure, not every chosen one under its name.
  tree.select(found);
  c.current_group_id = tree.group_id(found);
  explorer_state().current_operation_id = 0;
  explorer_window().current_operation = 0;
  try {
    operation_general_html_hub(ui, tree, c.chosen_view);
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
  explorer_window().tab2 = 5;
}

void ranking_command(Ui& ui, int mode) {
  explorer_window().ranking_mode = mode;
  try {
    rebuild_lists(ui);
  } catch (const std::exception& e) {
    report_failure(ui, e);
    return;
  }
  refresh_lists_page(ui);
}

void select_operation(Ui& ui, int64_t id) {
  if (!file_open()) {
    Answer a = ui.message_box(
        "You need to create or open an ARVEN file before you can select RDP operations. Would you "
        "like to create one now?",
        "No ARVEN file open", MsgButtons::YesNoCancel, MsgIcon::Question);
    if (a == Answer::Yes) toolbar_click(ui, "New");
    return;
  }
  if (!known_operation(id)) return;
  ExplorerWindow& w = explorer_window();
  w.current_operation = id;
  w.last_selected_operation = id;
  catalogue().pending_operation_id = id;
  addto_oplist(ui, id);
  show_operation_report(ui, id);
}

// A list or table of this window as a CSV or spreadsheet file: <grid>.exc
// and <grid>.exx. Cost curves export their item columns, not the steps.
void export_command(Ui& ui, int grid_number, bool xlsx) {
  ExplorerWindow& w = explorer_window();
  struct Source {
    int grid;
    const GridTable* table;
    const char* name;
    int columns;  // 0: all
  };
  const Source sources[] = {
      {3, &w.MSFlexGrid3, "mitigation", 0},
      {4, &w.MSFlexGrid4, "adaptation", 0},
      {5, &w.MSFlexGrid5, "ranked", 0},
      {12, &w.MSFlexGrid12, "production", 0},
      {6, &w.RegGrid1, "regional_breakdown", 0},
      {7, &w.AgGrid1, "measures", 0},
      {8, &w.AgGrid1_Ranked, "measures_ranked", 0},
      {20, &w.MACCGrid1, "mac_curve", 4},
      {21, &w.MACCGrid2_M, "mac_curve_measures_ghg", 5},
      {22, &w.MACCGrid2_A, "mac_curve_measures_adaptation", 5},
      {30, &w.TotalsGrid, "totals", 0},
      {31, &w.WorkingGrid, "working", 0},
      {32, &w.CompareGrid, "comparison", 0},
      {33, &w.UncertaintyGrid, "uncertainty", 0},
  };
  ExportContext more;
  if (grid_number == 32)
    more = {{"Compared with (file 2)", w.compare_file},
            {"Regions of file 2", regions_text(w.compare_file)}};
  for (const Source& src : sources) {
    if (src.grid != grid_number) continue;
    if (src.table->rows() == 0) return;
    GridTable copy = *src.table;
    if (src.columns > 0 && copy.cols() > src.columns) copy.resize(copy.rows(), src.columns);
    export_grid(ui, copy, src.name, xlsx, more);
    return;
  }
}

}  // namespace

void load_sorted_lists() {
  ExplorerWindow& w = explorer_window();
  load_my_operations_data();
  grid3_sort(w.sort_grid3);
  grid4_sort(w.sort_grid4);
  grid5_sort(w.sort_grid5);
  grid12_sort(w.sort_grid12);
}

// ---- sorting ----------------------------------------------------------------------------

void grid_sort_hub(GridTable& grid, int column, int direction) {
  if (grid.rows() < 2) return;
  GridTable sorted(grid.cols());
  sorted.add_row();
  std::vector<double> keys;  // the sort values of sorted's data rows
  for (int r = 1; r < grid.rows(); ++r) {
    const std::string& text = grid.cell(r, column);
    auto parsed = parse_number(text);
    if (!parsed) throw NumberError(text);
    const double v = *parsed;
    size_t at = keys.size();
    for (size_t i = 0; i < keys.size(); ++i) {
      if ((direction == 2 && keys[i] >= v) || (direction != 2 && keys[i] <= v)) {
        at = i;
        break;
      }
    }
    keys.insert(keys.begin() + static_cast<std::ptrdiff_t>(at), v);
    sorted.add_row();
    // Shift rows below the insertion point down by one.
    for (int s = sorted.rows() - 1; s > static_cast<int>(at) + 1; --s)
      for (int c = 0; c < grid.cols(); ++c) sorted.cell(s, c) = sorted.cell(s - 1, c);
    for (int c = 0; c < grid.cols(); ++c)
      sorted.cell(static_cast<int>(at) + 1, c) = grid.cell(r, c);
  }
  for (int r = 1; r < grid.rows(); ++r)
    for (int c = 0; c < grid.cols(); ++c) grid.cell(r, c) = sorted.cell(r, c);
}

void grid_state_sort(GridTable& grid, int state, int last_state) {
  if (state < 1 || state > last_state || grid.rows() < 3) return;
  if (state <= 2) {
    std::vector<std::vector<std::string>> rows;
    for (int r = 1; r < grid.rows(); ++r) {
      std::vector<std::string> row;
      for (int c = 0; c < grid.cols(); ++c) row.push_back(grid.cell(r, c));
      rows.push_back(std::move(row));
    }
    std::stable_sort(rows.begin(), rows.end(), [state](const auto& a, const auto& b) {
      const std::string x = lower_case(a[1]), y = lower_case(b[1]);
      return state == 1 ? x < y : y < x;
    });
    for (int r = 1; r < grid.rows(); ++r)
      for (int c = 0; c < grid.cols(); ++c) grid.cell(r, c) = rows[static_cast<size_t>(r - 1)][c];
    return;
  }
  const int column = (state - 1) / 2 + 1;  // 3,4 -> 2; 5,6 -> 3; 7,8 -> 4; 9,10 -> 5
  grid_sort_hub(grid, column, state % 2 == 1 ? 2 : 1);
}

void grid3_sort(int state) {
  grid_state_sort(explorer_window().MSFlexGrid3, state, 6);
}
void grid4_sort(int state) {
  // One numeric column: states 5 and 6 sort it again.
  if (state == 5 || state == 6) state -= 2;
  grid_state_sort(explorer_window().MSFlexGrid4, state, 4);
}
void grid5_sort(int state) {
  grid_state_sort(explorer_window().MSFlexGrid5, state, 10);
}
void grid12_sort(int state) {
  grid_state_sort(explorer_window().MSFlexGrid12, state, 6);
}
void reggrid1_sort(int state) {
  grid_state_sort(explorer_window().RegGrid1, state, 6);
}

bool parse_sort_target(const std::string& target, int& grid, int& state) {
  const std::string t = lower_case(target);
  const size_t n = t.size();
  auto digit = [&](size_t i) { return i < n && std::isdigit(static_cast<unsigned char>(t[i])); };
  if (n >= 4 && t.ends_with("s12")) {
    if (!digit(n - 4)) return false;
    grid = 12;
    state = t[n - 4] - '0';
    return true;
  }
  if (n < 3 || t[n - 2] != 's' || !digit(n - 1)) return false;
  const int g = t[n - 1] - '0';
  if (g < 3 || g > 8) return false;
  if (!digit(n - 3)) return false;
  grid = g;
  state = t[n - 3] - '0';
  // Grids 5 and 8 may carry a two-digit state: "sort.10s5".
  if ((g == 5 || g == 8) && n >= 4 && t[n - 4] != '.') {
    if (!digit(n - 4)) return false;
    state = (t[n - 4] - '0') * 10 + state;
  }
  return true;
}

// ---- dispatch ---------------------------------------------------------------------------

bool dispatch_navigation(Ui& ui, const std::string& url) {
  const std::string low = lower_case(url);
  if (low.rfind("http", 0) == 0 || low.rfind("javascript", 0) == 0) return false;
  std::string target = url;
  if (auto slash = target.find_last_of("/\\"); slash != std::string::npos)
    target = target.substr(slash + 1);
  if (lower_case(target) == "working.htm") return false;
  if (sort_command(ui, target)) return true;
  if (target.size() < 3) return false;
  const std::string tail = lower_case(target.substr(target.size() - 3));
  const int64_t id = argument_of(target);
  ExplorerWindow& w = explorer_window();
  try {
    if (tail == "yes" || tail == "xno") {
      if (file_open()) data_update_link(ui, lower_case(target), explorer_cache_hooks());
    } else if (tail == "ra1" || tail == "ra2") {
      ranking_command(ui, tail == "ra1" ? 1 : 2);
    } else if (tail == "xxx") {
      select_operation(ui, id);
    } else if (tail == "det") {
      if (!known_operation(id)) return true;
      if (id != explorer_state().current_operation_id || w.current_operation != id) {
        show_operation_report(ui, id);
      }
      w.current_operation = id;
      operation_specific_html_hub(ui, operation_in_assessment(id) ? 1 : 0, 2);
    } else if (tail == "yyy") {
      if (known_operation(id) || operation_in_assessment(id)) remove_oplist(ui, id);
    } else if (tail == "zzz") {
      go_to_operation(ui, id);
    } else if (tail == "mmm") {
      go_to_measure(ui, id);
    } else if (tail == "rem") {
      if (word_of(target) != "remove") return true;
      Answer a = ui.message_box(
          "Are you sure you want to remove ALL the operations that you have selected?",
          "REMOVE ALL", MsgButtons::YesNoCancel, MsgIcon::Question);
      if (a == Answer::Yes) remove_all(ui);
    } else if (tail == "opd") {
      if (!file_open() || !operation_in_assessment(w.current_operation)) return true;
      edit_operation_properties(ui, w.current_operation, explorer_cache_hooks());
    } else if (tail[0] == 'r' && tail[1] == 'g') {
      static const int kYears[] = {1, 5, 10, 25, 50, 100, 250};
      const int n = tail[2] - '0';
      if (n < 1 || n > 7 || !known_operation(id)) return true;
      session().cseq_years = kYears[n - 1];
      regional_analysis(ui, id, 1);
    } else if (tail == "rea" || tail == "rep") {
      if (known_operation(id)) regional_analysis(ui, id, tail == "rea" ? 2 : 4);
    } else if (tail == "cg1" || tail == "cg2" || tail == "ca1" || tail == "ca2" || tail == "cp1" ||
               tail == "cp2") {
      const int kind = tail[1] == 'g' ? 1 : tail[1] == 'a' ? 2 : 4;
      if (known_operation(id)) reg_analysis_chart(ui, id, kind, tail[2] == '1' ? 2 : 3);
    } else if (tail == "tot") {
      if (word_of(target) == "totals" && file_open()) portfolio_totals_html(ui);
    } else if (tail == "wrk") {
      if (file_open() && operation_in_assessment(id)) figure_working_html(ui, id);
    } else if (tail == "unk") {
      if (file_open() && id >= 1 && id <= 100)
        uncertainty_html(ui, static_cast<int>(id), w.uncertainty_window);
    } else if (tail == "exc" || tail == "exx") {
      export_command(ui, static_cast<int>(id), tail == "exx");
    } else {
      return false;
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
  return true;
}

// ---- tabs, toolbar, trees ------------------------------------------------------------------

void tree_node_click(Ui& ui, bool chosen, int index) {
  if (explorer_state().adding_operation) return;
  Catalogue& c = catalogue();
  Tree& tree = chosen ? c.chosen : c.catalogue;
  if (index < 0 || index >= static_cast<int>(tree.nodes.size())) return;
  tree.select(index);
  c.current_group_id = tree.group_id(index);
  try {
    if (tree.is_operation(index)) {
      if (chosen) explorer_window().tab2 = 5;
      show_operation_report(ui, tree.operation_id(index));
    } else {
      explorer_state().current_operation_id = 0;
      explorer_window().current_operation = 0;
      if (chosen)
        myops_list_html(ui);
      else
        operation_general_html_hub(ui, tree, c.catalogue_view);
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

void tree_node_double_click(Ui& ui, int index) {
  Catalogue& c = catalogue();
  Tree& tree = c.catalogue;
  if (!file_open() || explorer_state().adding_operation || !tree.is_operation(index)) return;
  const int64_t id = tree.operation_id(index);
  c.pending_operation_id = id;
  addto_oplist(ui, id);
  tree_node_click(ui, false, index);
}

void tree_view_click(Ui& ui, bool chosen, int view) {
  if (view < 1 || view > 4) return;
  Catalogue& c = catalogue();
  (chosen ? c.chosen_view : c.catalogue_view) = static_cast<TreeViewKind>(view);
  c.current_group_id = 1;
  try {
    if (chosen && static_cast<TreeViewKind>(view) == TreeViewKind::a_to_z) {
      show_myops(ui);
    } else if (!chosen && static_cast<TreeViewKind>(view) == TreeViewKind::a_to_z) {
      op_search(ui, "");
    } else {
      rebuild_tree(ui, chosen);
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

void tab1_click(Ui& ui, int tab) {
  Catalogue& c = catalogue();
  if (tab == 1) {
    c.tab = 1;
    Tree& tree = c.catalogue;
    if (!tree.empty()) tree_node_click(ui, false, tree.selected >= 0 ? tree.selected : 0);
    return;
  }
  if (!file_open()) {
    c.tab = 1;
    Answer a = ui.message_box(
        "You need to open or create an ARVEN file before you can select RDP operations. Would you "
        "like to open one now?",
        "No ARVEN file open", MsgButtons::YesNoCancel, MsgIcon::Question);
    if (a == Answer::Yes) toolbar_click(ui, "Open");
    return;
  }
  c.tab = 2;
  try {
    tab_cap();
    rebuild_tree(ui, true);
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

void tab2_click(Ui& ui, int tab) {
  if (tab < 1 || tab > 6 || !file_open()) return;
  ExplorerWindow& w = explorer_window();
  w.tab2 = tab;
  try {
    bool any = false;
    {
      Db db = Db::open(session().current_file);
      auto q = db.query("SELECT 1 FROM \"Operations\" LIMIT 1");
      any = q.next();
    }
    if (!any) {
      no_ops_selected_html(ui);
      return;
    }
    if (tab <= 4) {
      rebuild_lists(ui);
      refresh_lists_page(ui);
    } else if (tab == 6) {
      aggregate_new_measure(ui);
    } else if (w.current_operation != 0 && operation_in_assessment(w.current_operation)) {
      if (load_impact_data(ui, w.current_operation) == ImpactStatus::done)
        operation_specific_html_hub(ui, 1, 1);
    } else {
      myops_list_html(ui);
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

void toolbar_click(Ui& ui, const std::string& key) {
  Catalogue& c = catalogue();
  try {
    if (key == "New" || key == "Open") {
      OpenResult r = key == "New" ? file_new(ui) : file_open(ui);
      if (!r.changed) return;
      reset_explorer_window();
      c.chosen = Tree();
      if (file_open()) {
        tab_cap();
        show_myops(ui);
      } else {
        c.tab_caption = "My RDP Operations (0)";
      }
      tab1_click(ui, file_open() ? c.tab : 1);
    } else if (key == "Print") {
      ui.print_page("explorer");
    } else if (key == "ReCalc") {
      if (file_open()) data_update(ui, explorer_cache_hooks());
    } else if (key == "maccghg") {
      explorer_window().mac_panel = !explorer_window().mac_panel;
    } else if (key == "maccadapt") {
      if (!mac_curves_enabled()) return;
      ExplorerWindow& w = explorer_window();
      w.mac_panel = false;
      // The Target choice decides, as it does for the panel's buttons: the
      // page on show may be the aggregation left by an earlier measure curve.
      if (w.mac_target == 2) {
        tab2_click(ui, 6);
        mac_curve_adapt_measures_hub(ui);
      } else {
        mac_curve_adapt_hub(ui);
      }
    } else if (key == "CreateGHG" || key == "CreateAdapt") {
      if (!mac_curves_enabled()) return;
      ExplorerWindow& w = explorer_window();
      w.mac_panel = false;
      const bool ghg = key == "CreateGHG";
      if (w.mac_target == 2) {
        tab2_click(ui, 6);
        ghg ? mac_curve_ghg_measures_hub(ui) : mac_curve_adapt_measures_hub(ui);
      } else {
        ghg ? mac_curve_ghg_hub(ui) : mac_curve_adapt_hub(ui);
      }
    } else if (key == "Totals") {
      if (mac_curves_enabled()) portfolio_totals_html(ui);
    } else if (key == "Working") {
      const int64_t id = explorer_window().current_operation;
      if (file_open() && id != 0 && operation_in_assessment(id)) figure_working_html(ui, id);
    } else if (key == "Uncertainty") {
      if (mac_curves_enabled()) uncertainty_html(ui, explorer_window().uncertainty_top_k);
    } else if (key == "Compare") {
      compare_command(ui);
    } else if (key == "Home") {
      const bool chosen = c.tab != 1;
      Tree& tree = chosen ? c.chosen : c.catalogue;
      if (!tree.empty()) tree_node_click(ui, chosen, 0);
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

bool mac_curves_enabled() {
  const Catalogue& c = catalogue();
  return file_open() && c.tab == 2 && c.tab_caption.find("(0)") == std::string::npos;
}

void explorer_load(Ui& ui) {
  Catalogue& c = catalogue();
  CatalogueHooks hooks;
  hooks.node_click = [](Ui& u, bool chosen) {
    Catalogue& cat = catalogue();
    Tree& tree = chosen ? cat.chosen : cat.catalogue;
    if (tree.selected >= 0) tree_node_click(u, chosen, tree.selected);
  };
  set_catalogue_hooks(hooks);
  c.tab = 1;
  c.catalogue_view = TreeViewKind::a_to_z;
  c.chosen_view = TreeViewKind::a_to_z;
  c.catalogue_search.clear();
  c.chosen = Tree();
  explorer_window().current_operation = 0;
  try {
    op_search(ui, "");
    if (file_open()) {
      tab_cap();
      tab1_click(ui, 2);
    }
  } catch (const std::exception& e) {
    report_failure(ui, e);
  }
}

bool explorer_query_close(Ui& ui) {
  const ExplorerState& ex = explorer_state();
  if (ex.adding_operation || ex.update_running) {
    ui.message_box(
        "Currently processing data. Please wait for the task to complete before closing.",
        "ARVEN Software Working", MsgButtons::Ok, MsgIcon::Stop);
    return false;
  }
  return true;
}

ImpactCacheHooks explorer_cache_hooks() {
  ImpactCacheHooks h;
  h.rebuild_lists = [](Ui& ui) {
    try {
      rebuild_lists(ui);
    } catch (const std::exception& e) {
      report_failure(ui, e);
    }
  };
  h.after_update = [](Ui& ui) {
    ++explorer_window().recalculations;
    Catalogue& c = catalogue();
    if (c.tab == 2) {
      // The operation the user was on stays on show (after an edit of its
      // properties, say); only without one does the first come up.
      const int64_t current = explorer_window().current_operation;
      const Tree& tree = c.chosen;
      bool shown = false;
      for (int i = 0; i < static_cast<int>(tree.nodes.size()) && !shown && current != 0; ++i)
        shown = tree.is_operation(i) && tree.operation_id(i) == current;
      if (shown)
        go_to_operation(ui, current);
      else
        select_first_chosen(ui);
    } else if (c.catalogue.selected >= 0) {
      tree_node_click(ui, false, c.catalogue.selected);
    }
  };
  h.show_first_operation = [](Ui& ui) { select_first_chosen(ui); };
  return h;
}

}  // namespace arven
