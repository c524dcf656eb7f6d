#include "engine/catalogue.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "base/text.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_context.h"
#include "engine/impact_summaries.h"
#include "stores/db.h"

namespace arven {

namespace {

constexpr std::string_view kCalculatingWait = "Calculating regional impact data. Please wait...";

const char* const kSearchHint = "Search...";
const char* const kSparePrefix = "zSpareOp_";

struct Holder {
  Catalogue state;
  CatalogueHooks hooks;
};

Holder& holder() {
  static Holder h;
  return h;
}

// Entries kept in the order of a sorted list box: ascending by text without
// regard to case; entries of equal text keep the order they came in.
struct SortedEntry {
  std::string text;
  int64_t id = 0;
};
void sort_entries(std::vector<SortedEntry>& entries) {
  std::stable_sort(entries.begin(), entries.end(), [](const SortedEntry& a, const SortedEntry& b) {
    return lower_case(a.text) < lower_case(b.text);
  });
}

bool is_spare(std::string_view name) {
  return name.rfind(kSparePrefix, 0) == 0;
}

// The operations of the country store that have activity deltas.
std::set<int64_t> operations_with_data(const Db& store) {
  std::set<int64_t> ids;
  auto q = store.query("SELECT DISTINCT \"Operation ID\" FROM \"Operation_Activity_Delta\"");
  while (q.next()) ids.insert(q.get(0).as_int());
  return ids;
}

std::set<int64_t> chosen_ids() {
  std::set<int64_t> ids;
  if (session().current_file.empty()) return ids;
  Db db = Db::open(session().current_file);
  auto q = db.query("SELECT \"Operation ID\" FROM \"Operations\"");
  while (q.next()) ids.insert(q.get(0).as_int());
  return ids;
}

// Filters 2 and 3 of every tree: data available (when ticked) and no spare.
struct OperationFilter {
  bool data_only = false;
  std::set<int64_t> with_data;
  bool keep(int64_t id, std::string_view name) const {
    if (data_only && !with_data.count(id)) return false;
    return !is_spare(name);
  }
};

OperationFilter make_filter(const Db& store) {
  OperationFilter f;
  f.data_only = holder().state.data_available;
  if (f.data_only) f.with_data = operations_with_data(store);
  return f;
}

void fire_node_click(Ui& ui, bool chosen) {
  if (holder().hooks.node_click) holder().hooks.node_click(ui, chosen);
}

// The tables of a grouped view: groups, their names, and the members.
struct GroupView {
  std::string group_sql;   // id, text
  std::string member_sql;  // operation ids of a group
};

GroupView group_view(TreeViewKind view) {
  switch (view) {
    case TreeViewKind::categories:
      return {"SELECT \"Operation Type ID\", \"Operation Type Name\" FROM \"Operations_Types\"",
              "SELECT \"Operation ID\" FROM \"Operations\" WHERE \"Operation Type ID\" = ?"};
    case TreeViewKind::measures:
      return {
          "SELECT \"Measure ID\", \"Measure EU ID\" || ': ' || \"Measure name\" FROM "
          "\"Measures\"",
          "SELECT \"Operation ID\" FROM \"Operations_Measures\" WHERE \"Measure ID\" = ?"};
    case TreeViewKind::new_measures:
    case TreeViewKind::a_to_z:
      break;
  }
  return {
      "SELECT \"Measure ID\", \"Measure EU ID\" || ': ' || \"Measure name\" FROM "
      "\"New_Measures\"",
      "SELECT \"Operation ID\" FROM \"Operations_New_Measures\" WHERE \"Measure ID\" = ?"};
}

std::map<int64_t, std::string> operation_names(const Db& store) {
  std::map<int64_t, std::string> names;
  auto q = store.query("SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\"");
  while (q.next()) names.emplace(q.get(0).as_int(), q.get(1).as_text());
  return names;
}

// The members of one group that pass the filters, in sorted order, read
// through the view's member query prepared once for the whole tree.
std::vector<SortedEntry> group_members(Statement& member_query, int64_t group_id,
                                       const std::map<int64_t, std::string>& names,
                                       const OperationFilter& filter,
                                       const std::set<int64_t>* only) {
  std::vector<SortedEntry> members;
  auto& q = member_query.query({Value(group_id)});
  while (q.next()) {
    int64_t id = q.get(0).as_int();
    auto it = names.find(id);
    if (it == names.end()) continue;
    if (only && !only->count(id)) continue;
    if (!filter.keep(id, it->second)) continue;
    members.push_back({it->second, id});
  }
  sort_entries(members);
  return members;
}

void grouped_tree(Tree& tree, int mode, TreeViewKind view) {
  const std::string remembered = tree.remembered_text;
  tree.nodes.clear();
  tree.selected = -1;
  Db store = Db::open(session().ops_db_path);
  const GroupView gv = group_view(view);
  Statement member_query = store.prepare_statement(gv.member_sql);
  const auto names = operation_names(store);
  const OperationFilter filter = make_filter(store);
  std::set<int64_t> chosen;
  if (mode == 2) chosen = chosen_ids();

  std::vector<SortedEntry> groups;
  auto q = store.query(gv.group_sql);
  while (q.next()) groups.push_back({q.get(1).as_text(), q.get(0).as_int()});
  sort_entries(groups);

  int open_group = -1;
  for (const auto& g : groups) {
    const std::string key = "P" + std::to_string(g.id);
    const int index = static_cast<int>(tree.nodes.size());
    tree.nodes.push_back({key, g.text, false});
    if (!remembered.empty() && g.text == remembered && open_group < 0) open_group = index;
    for (const auto& m :
         group_members(member_query, g.id, names, filter, mode == 2 ? &chosen : nullptr))
      tree.nodes.push_back({key + "O" + std::to_string(m.id), m.text, false});
  }
  if (tree.nodes.empty()) return;
  if (open_group < 0) open_group = 0;
  tree.nodes[static_cast<size_t>(open_group)].expanded = true;
  tree.select(open_group);
  holder().state.current_group_id = tree.group_id(open_group);
}

// One flat group with the entries under it; expands it and selects the
// first operation.
void flat_tree(Tree& tree, const std::string& group_text, const std::vector<SortedEntry>& entries) {
  tree.nodes.clear();
  tree.selected = -1;
  tree.nodes.push_back({"P1", group_text, false});
  for (const auto& e : entries) tree.nodes.push_back({"P1O" + std::to_string(e.id), e.text, false});
}

bool is_search_hint(std::string_view text) {
  return text.empty() || text == kSearchHint;
}

// Deletes an operation and its cached figures from the open file.
void delete_operation(Db& db, int64_t operation_id) {
  for (const char* table : {"Operations", "Operation-Impact data", "Activity-Impact data"})
    db.exec("DELETE FROM " + quote_name(table) + " WHERE \"Operation ID\" = ?",
            {Value(operation_id)});
}

}  // namespace

// ---- Tree ------------------------------------------------------------------------------

bool Tree::is_operation(int index) const {
  if (index < 0 || index >= static_cast<int>(nodes.size())) return false;
  return nodes[static_cast<size_t>(index)].key.find('O') != std::string::npos;
}

namespace {
int64_t leading_number(std::string_view s) {
  int64_t v = 0;
  size_t i = 0;
  for (; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])) && i < 18; ++i)
    v = v * 10 + (s[i] - '0');
  return v;
}
}  // namespace

int64_t Tree::operation_id(int index) const {
  if (!is_operation(index)) return 0;
  const std::string& key = nodes[static_cast<size_t>(index)].key;
  return leading_number(std::string_view(key).substr(key.find('O') + 1));
}

int64_t Tree::group_id(int index) const {
  if (index < 0 || index >= static_cast<int>(nodes.size())) return 0;
  const std::string& key = nodes[static_cast<size_t>(index)].key;
  if (key.empty()) return 0;
  return leading_number(std::string_view(key).substr(1));
}

int Tree::parent(int index) const {
  if (index < 0 || index >= static_cast<int>(nodes.size())) return -1;
  while (index > 0 && is_operation(index)) --index;
  return index;
}

void Tree::select(int index) {
  if (index < 0 || index >= static_cast<int>(nodes.size())) {
    selected = -1;
    return;
  }
  selected = index;
  remembered_text = nodes[static_cast<size_t>(parent(index))].text;
}

// ---- state -------------------------------------------------------------------------------

Catalogue& catalogue() {
  return holder().state;
}
void reset_catalogue() {
  holder().state = Catalogue();
}
void set_catalogue_hooks(CatalogueHooks hooks) {
  holder().hooks = std::move(hooks);
}

// ---- trees -------------------------------------------------------------------------------

void category_tree(Tree& tree, int mode) {
  grouped_tree(tree, mode, TreeViewKind::categories);
}
void measures_tree(Tree& tree, int mode) {
  grouped_tree(tree, mode, TreeViewKind::measures);
}
void new_measures_tree(Tree& tree, int mode) {
  grouped_tree(tree, mode, TreeViewKind::new_measures);
}

void op_search(Ui& ui, std::string_view text) {
  Catalogue& c = catalogue();
  const bool all = is_search_hint(text);
  c.catalogue_search = all ? "" : std::string(text);
  Tree& tree = c.catalogue;
  tree.nodes.clear();
  tree.selected = -1;
  Db store = Db::open(session().ops_db_path);
  std::vector<SortedEntry> entries;
  auto q = store.query(
      "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" WHERE \"Operation Name\" "
      "LIKE '%' || ? || '%' ESCAPE '\\'",
      {Value(like_escape(c.catalogue_search))});
  bool any_row = false;
  const OperationFilter filter = make_filter(store);
  while (q.next()) {
    any_row = true;
    int64_t id = q.get(0).as_int();
    std::string name = q.get(1).as_text();
    if (filter.keep(id, name)) entries.push_back({name, id});
  }
  if (!any_row) return;
  sort_entries(entries);
  flat_tree(tree, all ? "A to Z" : "Search results for... " + c.catalogue_search, entries);
  if (entries.empty()) return;
  tree.nodes[0].expanded = true;
  tree.select(1);
  fire_node_click(ui, false);
}

void chosen_search(Ui& ui, std::string_view text) {
  Catalogue& c = catalogue();
  if (session().current_file.empty()) return;
  const std::string search = is_search_hint(text) ? "" : std::string(text);
  Db db = Db::open(session().current_file);
  std::vector<SortedEntry> entries;
  auto q = db.query(
      "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" WHERE \"Operation Name\" "
      "LIKE '%' || ? || '%' ESCAPE '\\'",
      {Value(like_escape(search))});
  while (q.next()) entries.push_back({q.get(1).as_text(), q.get(0).as_int()});
  if (entries.empty()) return;
  sort_entries(entries);
  c.chosen_search = search;
  flat_tree(c.chosen, "Search results for... " + search, entries);
  c.chosen.nodes[0].expanded = true;
  c.chosen.select(1);
  fire_node_click(ui, true);
}

void show_myops(Ui& ui) {
  Catalogue& c = catalogue();
  Tree& tree = c.chosen;
  tree.nodes.clear();
  tree.selected = -1;
  if (session().current_file.empty()) return;
  std::vector<SortedEntry> entries;
  {
    Db db = Db::open(session().current_file);
    auto q = db.query("SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\"");
    while (q.next()) entries.push_back({q.get(1).as_text(), q.get(0).as_int()});
  }
  if (entries.empty()) {
    if (holder().hooks.no_operations) holder().hooks.no_operations(ui);
    return;
  }
  sort_entries(entries);
  flat_tree(tree, "My Operations...", entries);
  if (holder().hooks.stale_figures && holder().hooks.stale_figures(ui)) return;
  tree.nodes[0].expanded = true;
  tree.select(1);
  fire_node_click(ui, true);
}

void rebuild_tree(Ui& ui, bool chosen) {
  Catalogue& c = catalogue();
  const TreeViewKind view = chosen ? c.chosen_view : c.catalogue_view;
  Tree& tree = chosen ? c.chosen : c.catalogue;
  const int mode = chosen ? 2 : 1;
  switch (view) {
    case TreeViewKind::a_to_z:
      if (chosen)
        show_myops(ui);
      else
        op_search(ui, c.catalogue_search);
      return;
    case TreeViewKind::categories:
      category_tree(tree, mode);
      break;
    case TreeViewKind::measures:
      measures_tree(tree, mode);
      break;
    case TreeViewKind::new_measures:
      new_measures_tree(tree, mode);
      break;
  }
  if (tree.selected >= 0) fire_node_click(ui, chosen);
}

// ---- choosing and removing ------------------------------------------------------------

bool operation_in_assessment(int64_t operation_id) {
  if (session().current_file.empty()) return false;
  Db db = Db::open(session().current_file);
  auto q =
      db.query("SELECT 1 FROM \"Operations\" WHERE \"Operation ID\" = ?", {Value(operation_id)});
  return q.next();
}

void tab_cap() {
  Catalogue& c = catalogue();
  int64_t count = 0;
  if (!session().current_file.empty()) {
    Db db = Db::open(session().current_file);
    auto q = db.query("SELECT COUNT(*) FROM \"Operations\"");
    if (q.next()) count = q.get(0).as_int();
  }
  c.tab_caption = "My RDP Operations (" + std::to_string(count) + ")";
}

void chosen_changed_elsewhere(Ui& ui) {
  if (session().current_file.empty()) return;
  tab_cap();
  if (catalogue().tab == 2) rebuild_tree(ui, true);
}

void addto_oplist(Ui& ui, int64_t operation_id) {
  Catalogue& c = catalogue();
  ExplorerState& ex = explorer_state();
  if (ex.adding_operation || session().current_file.empty()) return;
  const bool single = !c.select_all_running;
  ex.adding_operation = true;
  bool added = false;
  try {
    if (operation_in_assessment(operation_id)) {
      ex.adding_operation = false;
      return;
    }
    const std::string name = operation_field(operation_id, 1).as_text();
    if (single) ui.progress(0, 1, "Calculating data for... " + name);
    {
      Db db = Db::open(session().current_file);
      // Uptake is the session's default, whatever the operation's own.
      db.insert("Operations",
                {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "TEA_Inc",
                 "TEA_Factor", "TEA_Cost", "Uptake"},
                {Value(operation_id), Value(name), operation_field(operation_id, 2),
                 operation_field(operation_id, 3), operation_field(operation_id, 5),
                 operation_field(operation_id, 6), operation_field(operation_id, 7),
                 Value(static_cast<double>(session().def_uptake))});
    }
    added = true;
    if (single) {
      if (holder().hooks.wait) holder().hooks.wait(ui, kCalculatingWait);
    }
    ex.current_operation_id = operation_id;
    tab_cap();
    bool ok = operation_impact(ui, operation_id, ex) == ImpactStatus::done &&
              save_impact_data(ui, operation_id, ex) == ImpactStatus::done;
    if (!ok) {
      // A chosen operation always has stored figures: without them it goes.
      Db db = Db::open(session().current_file);
      delete_operation(db, operation_id);
      tab_cap();
    }
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    if (added) {
      try {
        Db db = Db::open(session().current_file);
        delete_operation(db, operation_id);
        tab_cap();
      } catch (const std::exception&) {
      }
    }
  }
  ex.adding_operation = false;
  if (single) ui.progress(0, 0, "");
}

void remove_oplist(Ui& ui, int64_t operation_id) {
  if (session().current_file.empty()) return;
  try {
    Db db = Db::open(session().current_file);
    Transaction tx(db);
    delete_operation(db, operation_id);
    tx.commit();
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return;
  }
  tab_cap();
  Catalogue& c = catalogue();
  if (c.tab == 1) {
    if (c.catalogue.selected >= 0) fire_node_click(ui, false);
  } else {
    rebuild_tree(ui, true);
  }
}

void remove_all(Ui& ui) {
  Catalogue& c = catalogue();
  if (session().current_file.empty()) return;
  try {
    Db db = Db::open(session().current_file);
    Transaction tx(db);
    if (c.chosen_view == TreeViewKind::a_to_z) {
      for (const char* table : {"Operations", "Operation-Impact data", "Activity-Impact data"})
        db.exec("DELETE FROM " + quote_name(table));
    } else {
      const Tree& tree = c.chosen;
      // Only the operations directly below a selected group go.
      if (tree.selected >= 0 && !tree.is_operation(tree.selected)) {
        for (int i = tree.selected + 1;
             i < static_cast<int>(tree.nodes.size()) && tree.is_operation(i); ++i)
          delete_operation(db, tree.operation_id(i));
      }
    }
    tx.commit();
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
  tab_cap();
  rebuild_tree(ui, true);
}

void select_all(Ui& ui) {
  Catalogue& c = catalogue();
  if (session().current_file.empty()) return;
  Tree& tree = c.catalogue;
  if (tree.empty()) return;
  std::vector<int64_t> ids;
  const std::string& first = tree.nodes[0].text;
  if (first.rfind("Search results", 0) == 0 || first.rfind("A to Z", 0) == 0) {
    for (int i = 1; i < static_cast<int>(tree.nodes.size()); ++i)
      if (tree.is_operation(i)) ids.push_back(tree.operation_id(i));
  } else {
    if (tree.selected < 0) return;
    if (tree.is_operation(tree.selected)) {
      const char* what = c.catalogue_view == TreeViewKind::categories ? "category" : "measure";
      ui.message_box(std::string("Please select a ") + what +
                         " for which you would like to select all operations",
                     "Select All", MsgButtons::Ok, MsgIcon::Information);
      return;
    }
    try {
      Db store = Db::open(session().ops_db_path);
      const auto names = operation_names(store);
      const OperationFilter filter = make_filter(store);
      Statement member_query = store.prepare_statement(group_view(c.catalogue_view).member_sql);
      for (const auto& m :
           group_members(member_query, tree.group_id(tree.selected), names, filter, nullptr))
        ids.push_back(m.id);
    } catch (const std::exception& e) {
      engine_detail::report_failure(ui, e);
      return;
    }
  }
  if (ids.empty()) return;
  // A disk that cannot take one operation takes none after it: the run
  // stops at the first such failure, told once.
  engine_detail::OneWriteFailureMessage one_message;
  c.select_all_running = true;
  try {
    if (holder().hooks.wait) holder().hooks.wait(ui, kCalculatingWait);
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
  const int count = static_cast<int>(ids.size());
  for (int i = 0; i < count && !one_message.told(); ++i) {
    const int64_t id = ids[static_cast<size_t>(i)];
    try {
      ui.progress(i, count, "Calculating data for... " + operation_field(id, 1).as_text());
    } catch (const std::exception&) {
      ui.progress(i, count, "Calculating data...");
    }
    addto_oplist(ui, id);
  }
  c.select_all_running = false;
  ui.progress(0, 0, "");
  try {
    tab_cap();
    tree.select(0);
    fire_node_click(ui, false);
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
}

}  // namespace arven
