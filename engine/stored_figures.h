#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "stores/db.h"

namespace arven {

// The operation figures an assessment file keeps (`Operation-Impact data`),
// read in one pass in table order, for the pages that look up many of them:
// the lists of chosen operations and the aggregation by measure. A lookup
// answers as the keyed query "WHERE Operation ID = ? AND Impact type = ?
// [AND Time horizon = ?] ORDER BY rowid LIMIT 1" would.
class StoredFigures {
 public:
  struct Row {
    Value operation;
    Value type;
    Value horizon;
    Value ha;              // Regional impact ha
    Value total;           // Regional impact total
    Value risk_reduction;  // Regional risk reduction total
    Value quality;         // Data_Quality
  };

  // Throws StoreError.
  explicit StoredFigures(const Db& file);

  // Every row, in table order.
  const std::vector<Row>& rows() const { return rows_; }
  // The first row of an operation and impact type (at a time horizon when
  // one is given); nullptr when there is none.
  const Row* first(int64_t operation, int64_t type, std::optional<int64_t> horizon) const;

 private:
  std::vector<Row> rows_;
  // Rows by the whole number their Operation ID equals, in table order.
  std::unordered_map<int64_t, std::vector<size_t>> by_operation_;
};

// Whether a stored value equals a whole number as the store compares a
// number column with a bound integer: numbers by value, text and null never.
bool stored_equals(const Value& stored, int64_t x);

// The whole number a stored value equals, as that comparison sees it (a
// whole real included); none for text, null and fractions.
std::optional<int64_t> whole_number(const Value& v);

}  // namespace arven
