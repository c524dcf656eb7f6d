#pragma once
// The rows a pre-processing run writes into a country store's NUTS<k>_OPS
// tables, as the generating threads work them out, and the statements the
// writer puts them in with.

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "stores/db.h"

namespace arven::prep_detail {

// One area of a level, as the run walks them.
struct Area {
  int level = 0;
  int64_t ids[4] = {0, 0, 0, 0};  // NUTS0..NUTS3 ids; finer than the level stay 0
  std::string code, name;
  double sqkm = 0, av_fs = 0;
  int64_t id() const { return ids[level]; }
};

// One row of NUTS<k>_OPS apart from the area's columns, in numbers.
struct OpsRow {
  int64_t activity_id = 0;
  int64_t impact_type = 0;
  int64_t category = 0;
  double value = 0;
  double cseq = 0;
  double impact_max = 0;
  int64_t data_quality = 0;
  std::string_view refs;
};

// The stored rows of one operation in one area, worked out on a generating
// thread so that the writer only binds and inserts.
struct OperationRows {
  int64_t operation_id = 0;
  bool had_rows = false;  // whether the store held rows of it before the run
  double impact_area = 0;
  size_t first = 0, count = 0;  // its rows in AreaResult::rows
};

struct AreaResult {
  size_t area_index = 0;
  std::vector<OperationRows> operations;
  std::vector<OpsRow> rows;
  std::deque<std::string> texts;  // Refs of rows made from text cells
  int processed = 0;
};

// The twenty columns of NUTS<k>_OPS in table order.
const std::vector<std::string>& ops_columns();

// The statements that write one country's NUTS<k>_OPS tables. The rows of
// an operation go in by statements of 8, 4, 2 and 1 rows, in their order:
// fewer statement runs than rows, the same rows in the same order.
struct OpsWriter {
  static constexpr size_t kBatches[] = {8, 4, 2, 1};
  std::vector<Statement> remove;
  std::vector<std::vector<Statement>> insert;  // by level, then by batch

  explicit OpsWriter(const Db& target);
  // save_to_datapp_db: replaces the rows of one operation in one area.
  int64_t save_to_datapp_db(const Area& a, const OperationRows& op, const AreaResult& result);
};

}  // namespace arven::prep_detail
