#include "engine/stored_figures.h"

#include <cmath>

namespace arven {

std::optional<int64_t> whole_number(const Value& v) {
  if (v.is_int()) return std::get<int64_t>(v.raw());
  if (v.is_real()) {
    const double d = std::get<double>(v.raw());
    // Whole doubles inside the range of int64_t convert exactly.
    if (std::trunc(d) == d && std::fabs(d) < 9.2e18) return static_cast<int64_t>(d);
  }
  return std::nullopt;
}

bool stored_equals(const Value& stored, int64_t x) {
  if (stored.is_int()) return std::get<int64_t>(stored.raw()) == x;
  if (stored.is_real()) return std::get<double>(stored.raw()) == static_cast<double>(x);
  return false;
}

StoredFigures::StoredFigures(const Db& file) {
  auto q = file.query(
      "SELECT \"Operation ID\", \"Impact type\", \"Time horizon\", \"Regional impact ha\", "
      "\"Regional impact total\", \"Regional risk reduction total\", \"Data_Quality\" FROM "
      "\"Operation-Impact data\" ORDER BY rowid");
  while (q.next()) {
    Row& row = rows_.emplace_back();
    row.operation = q.get(0);
    row.type = q.get(1);
    row.horizon = q.get(2);
    row.ha = q.get(3);
    row.total = q.get(4);
    row.risk_reduction = q.get(5);
    row.quality = q.get(6);
    if (auto id = whole_number(row.operation)) by_operation_[*id].push_back(rows_.size() - 1);
  }
}

const StoredFigures::Row* StoredFigures::first(int64_t operation, int64_t type,
                                               std::optional<int64_t> horizon) const {
  auto it = by_operation_.find(operation);
  if (it == by_operation_.end()) return nullptr;
  for (size_t i : it->second) {
    const Row& row = rows_[i];
    if (!stored_equals(row.operation, operation) || !stored_equals(row.type, type)) continue;
    if (horizon && !stored_equals(row.horizon, *horizon)) continue;
    return &row;
  }
  return nullptr;
}

}  // namespace arven
