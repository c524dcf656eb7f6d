#include "windows/explorer.h"
#include "windows/explorer_detail.h"
#include "windows/settings_dialog.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "assessment/assessment_file.h"
#include "base/numbers.h"
#include "base/text.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"
#include "engine/impact_summaries.h"
#include "reports/aggregation.h"
#include "reports/analyst_pages.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/list_sorting.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/regional_analysis.h"
#include "reports/scenario_compare.h"
#include "reports/uncertainty.h"
#include "stores/db.h"
#include "windows/operation_manager.h"

namespace arven {

using namespace explorer_detail;

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
      if (load_impact_data(ui, w.current_operation, explorer_state()) == ImpactStatus::done)
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
      OpenResult r = offer_store_download(ui, key == "New" ? file_new(ui) : file_open(ui));
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
  hooks.wait = explorer_wait_page;
  hooks.no_operations = no_ops_selected_html;
  hooks.stale_figures = show_stale_cache_page;
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
  h.wait = explorer_wait_page;
  return h;
}

}  // namespace arven
