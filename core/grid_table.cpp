#include "core/grid_table.h"

#include <stdexcept>

namespace arven {

GridTable::GridTable(int cols) {
  resize(0, cols);
}

std::string& GridTable::cell(int r, int c) {
  if (r < 0 || r >= rows() || c < 0 || c >= cols_)
    throw std::out_of_range("GridTable: no cell (" + std::to_string(r) + ", " + std::to_string(c) +
                            ") in a table of " + std::to_string(rows()) + " rows and " +
                            std::to_string(cols_) + " columns");
  return cells_[static_cast<size_t>(r)][static_cast<size_t>(c)];
}

const std::string& GridTable::cell(int r, int c) const {
  return const_cast<GridTable*>(this)->cell(r, c);
}

int GridTable::add_row() {
  cells_.emplace_back(static_cast<size_t>(cols_));
  return rows() - 1;
}

void GridTable::resize(int rows, int cols) {
  if (rows < 0 || cols < 0)
    throw std::invalid_argument("GridTable: a size cannot be negative (" + std::to_string(rows) +
                                ", " + std::to_string(cols) + ")");
  cells_.resize(static_cast<size_t>(rows));
  for (auto& row : cells_) row.resize(static_cast<size_t>(cols));
  cols_ = cols;
}

void GridTable::clear() {
  cells_.clear();
}

}  // namespace arven
