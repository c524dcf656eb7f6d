#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/ui.h"

namespace arven {

// The explorer's two trees of operations: the catalogue of the country store
// and the operations chosen in the assessment file, and the commands that
// choose and remove operations.

// One node of a tree. The key carries the logic: "P<group id>" for a group,
// "P<group id>O<operation id>" for an operation under it. Text is stored as
// it comes from the store (not escaped); whoever draws it escapes it.
struct TreeNode {
  std::string key;
  std::string text;
  bool expanded = false;
};

// A tree in display order: each group followed by its operations.
struct Tree {
  std::vector<TreeNode> nodes;
  int selected = -1;            // index of the selected node, -1 for none
  std::string remembered_text;  // text of the group of the last selected node

  bool empty() const { return nodes.empty(); }
  // True when the node's key holds an "O" (an operation node).
  bool is_operation(int index) const;
  // The Operation ID behind the "O"; 0 for a group or an index out of range.
  int64_t operation_id(int index) const;
  // The id between "P" and "O" (or after "P" for a group); 0 when none.
  int64_t group_id(int index) const;
  // The group node of an operation node (the nearest group above it); the
  // node itself for a group; -1 out of range.
  int parent(int index) const;
  // Selects the node and remembers its group's text; out of range clears.
  void select(int index);
};

// The groupings a tree can show.
enum class TreeViewKind { categories = 1, measures = 2, new_measures = 3, a_to_z = 4 };

// What the explorer keeps of its trees between events.
struct Catalogue {
  Tree catalogue;  // "All"
  Tree chosen;     // "My RDP Operations"
  TreeViewKind catalogue_view = TreeViewKind::a_to_z;
  TreeViewKind chosen_view = TreeViewKind::a_to_z;
  bool data_available = false;   // the "Data available" filter of the catalogue
  std::string catalogue_search;  // text of the last catalogue search
  std::string chosen_search;     // text of the last search of the chosen tree
  int tab = 1;                   // 1 the catalogue, 2 the chosen operations
  std::string tab_caption = "My RDP Operations (0)";
  int64_t current_group_id = 0;
  int64_t pending_operation_id = 0;
  bool select_all_running = false;
};

// The catalogue of this process.
Catalogue& catalogue();
void reset_catalogue();

// What the trees ask of the report side. Empty hooks do nothing.
struct CatalogueHooks {
  // Shows the page of the selected node of a tree (chosen = the chosen tree).
  std::function<void(Ui&, bool chosen)> node_click;
  // Shows a wait page with this heading while operations are calculated.
  std::function<void(Ui&, std::string_view heading)> wait;
  // Shows that the open file has no chosen operation.
  std::function<void(Ui&)> no_operations;
  // Asks to recalculate when the stored figures are stale; true when it
  // asked (the list is then not shown).
  std::function<bool(Ui&)> stale_figures;
};
void set_catalogue_hooks(CatalogueHooks hooks);

// Tree builders: mode 1 the catalogue, 2 the chosen operations.
void category_tree(Tree& tree, int mode);
void measures_tree(Tree& tree, int mode);
void new_measures_tree(Tree& tree, int mode);
// The flat catalogue of the operations whose names hold the text ("A to Z"
// for an empty text or the hint "Search..."); selects the first operation
// and shows its page when there is one.
void op_search(Ui& ui, std::string_view text);
// The search of the chosen tree over the assessment file's operations.
void chosen_search(Ui& ui, std::string_view text);
// The flat list of chosen operations, with the stale-cache check.
void show_myops(Ui& ui);
// Rebuilds a tree through the handler of its current view.
void rebuild_tree(Ui& ui, bool chosen);

bool operation_in_assessment(int64_t operation_id);
void addto_oplist(Ui& ui, int64_t operation_id);
void remove_oplist(Ui& ui, int64_t operation_id);
// Without a question: the caller asks ("REMOVE ALL").
void remove_all(Ui& ui);
void tab_cap();
// The open file was changed by another program (it is open here read-only):
// the count on the tab is read again, and the chosen tree when it shows.
void chosen_changed_elsewhere(Ui& ui);
// The "Select All" button.
void select_all(Ui& ui);

}  // namespace arven
