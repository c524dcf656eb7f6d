#include "prep/ops_rows.h"

namespace arven::prep_detail {

namespace {

// Binds one row at the parameters from `at` on.
void bind_row(Statement& st, int at, const Area& a, const OperationRows& op, const OpsRow& r) {
  st.bind(at + 1, int64_t{3});  // the literal 3 on every row, whatever the level: intended
  st.bind(at + 2, std::string_view(a.code));
  st.bind(at + 3, std::string_view(a.name));
  for (int p = 0; p <= 3; ++p)
    if (p <= a.level)
      st.bind(at + 4 + p, a.ids[p]);
    else
      st.bind_null(at + 4 + p);
  st.bind(at + 8, a.sqkm);
  st.bind(at + 9, a.av_fs);
  st.bind(at + 10, int64_t{0});
  st.bind(at + 11, op.operation_id);
  st.bind(at + 12, r.activity_id);
  st.bind(at + 13, r.impact_type);
  st.bind(at + 14, r.category);
  st.bind(at + 15, r.value);
  st.bind(at + 16, op.impact_area);
  st.bind(at + 17, r.cseq);
  st.bind(at + 18, r.impact_max);
  st.bind(at + 19, r.data_quality);
  st.bind(at + 20, r.refs);
}

}  // namespace

const std::vector<std::string>& ops_columns() {
  static const std::vector<std::string> c = {
      "NUTS Type ID", "NUTS Code",   "NUTS Name",   "NUTS0_ID",           "NUTS1_ID",
      "NUTS2_ID",     "NUTS3_ID",    "NUTS area",   "Average field size", "Number of fields",
      "Operation ID", "Activity ID", "Impact Type", "Impact Category",    "Impact value",
      "Impact area",  "Cseq Years",  "Impact max",  "Data_Quality",       "Refs"};
  return c;
}

OpsWriter::OpsWriter(const Db& target) {
  std::string cols, marks;
  for (const auto& c : ops_columns()) {
    cols += (cols.empty() ? "" : ", ") + quote_name(c);
    marks += marks.empty() ? "?" : ", ?";
  }
  for (int k = 0; k <= 3; ++k) {
    const std::string level = "NUTS" + std::to_string(k);
    std::string table = quote_name(level + "_OPS");
    remove.push_back(target.prepare_statement("DELETE FROM " + table + " WHERE " +
                                              quote_name(level + "_ID") +
                                              " = ? AND \"Operation ID\" = ?"));
    insert.emplace_back();
    for (size_t n : kBatches) {
      std::string sql = "INSERT INTO " + table + " (" + cols + ") VALUES ";
      for (size_t i = 0; i < n; ++i) sql += (i ? ", (" : "(") + marks + ")";
      insert.back().push_back(target.prepare_statement(sql));
    }
  }
}

int64_t OpsWriter::save_to_datapp_db(const Area& a, const OperationRows& op,
                                     const AreaResult& result) {
  auto k = static_cast<size_t>(a.level);
  // A pair that had no rows when the country started has none to delete:
  // the run writes each area once.
  if (op.had_rows) remove[k].run({Value(a.id()), Value(op.operation_id)});
  const int width = static_cast<int>(ops_columns().size());
  size_t i = op.first;
  const size_t end = op.first + op.count;
  for (size_t b = 0; b < std::size(kBatches); ++b) {
    const size_t n = kBatches[b];
    Statement& st = insert[k][b];
    while (end - i >= n) {
      for (size_t j = 0; j < n; ++j)
        bind_row(st, static_cast<int>(j) * width, a, op, result.rows[i + j]);
      st.run();
      i += n;
    }
  }
  return static_cast<int64_t>(op.count);
}

}  // namespace arven::prep_detail
