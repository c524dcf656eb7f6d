#include "reports/list_sorting.h"

#include <cctype>
#include <vector>

#include "base/numbers.h"
#include "base/text.h"
#include "reports/explorer_window.h"
#include "reports/operation_reports.h"

namespace arven {

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

}  // namespace arven
