#pragma once

#include <string>
#include <vector>

namespace arven {

// A table of text cells: every result passes between modules as one. Row 0
// holds the column titles; numbers are kept in their cell text form.
class GridTable {
 public:
  // A table with `cols` columns and no rows yet.
  explicit GridTable(int cols = 0);

  int rows() const { return static_cast<int>(cells_.size()); }
  int cols() const { return cols_; }

  // The cell at row r, column c; throws std::out_of_range outside the table.
  std::string& cell(int r, int c);
  const std::string& cell(int r, int c) const;

  // Appends a row of empty cells and returns its index.
  int add_row();
  // Sets the size; cells that still fit keep their text, new ones are empty.
  void resize(int rows, int cols);
  // Removes every row, titles included; the column count stays.
  void clear();

 private:
  int cols_ = 0;
  std::vector<std::vector<std::string>> cells_;
};

}  // namespace arven
