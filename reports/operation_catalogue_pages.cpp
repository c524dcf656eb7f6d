#include "reports/operation_reports.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "stores/db.h"

// The pages of the catalogue: a node's list of operations, and the range
// page of one operation (its figures over the areas of its stores).

namespace arven {

namespace {

using namespace report_html;

// ---- general page pieces ----

void operation_list_table(PageFile& out, const std::vector<std::pair<int64_t, std::string>>& ops) {
  out.line(kTableOpen);
  for (const auto& [id, name] : ops)
    table_row(out, {cell(link(id_text(id) + ".zzz", html_escape(name))),
                    cell(link(id_text(id) + ".xxx", "SELECT"))});
  out.line("</table>");
}

// The operations of a measure or type node, as the store lists them.
std::vector<std::pair<int64_t, std::string>> group_operations(int64_t group_id, TreeViewKind view) {
  std::vector<std::pair<int64_t, std::string>> ops;
  Db store = Db::open(session().ops_db_path);
  std::string sql;
  if (view == TreeViewKind::categories) {
    sql =
        "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" WHERE \"Operation Type "
        "ID\" = ? ORDER BY rowid";
  } else {
    const char* link_table =
        view == TreeViewKind::measures ? "Operations_Measures" : "Operations_New_Measures";
    // Only operations with activity deltas, that is with data to report.
    sql = "SELECT m.\"Operation ID\", o.\"Operation Name\" FROM " + quote_name(link_table) +
          " m JOIN \"Operations\" o ON o.\"Operation ID\" = m.\"Operation ID\" WHERE m.\"Measure "
          "ID\" = ? AND EXISTS (SELECT 1 FROM \"Operation_Activity_Delta\" d WHERE d.\"Operation "
          "ID\" = m.\"Operation ID\") ORDER BY m.rowid";
  }
  auto q = store.query(sql, {Value(group_id)});
  while (q.next()) ops.emplace_back(q.get(0).as_int(), q.get(1).as_text());
  return ops;
}

struct ActivityRange {
  int64_t activity_id = 0;
  double min = 0, max = 0;
};

void ranges_sections(PageFile& out, const Db& store, int64_t id) {
  // The operation's activities in the order of their delta rows, with every
  // numeric delta; the marker row of a class-by-class delta is skipped, its
  // class rows carry the numbers.
  std::vector<int64_t> activities;
  std::map<int64_t, std::vector<double>> deltas;
  {
    auto q = store.query(
        "SELECT \"Activity ID\", \"Delta\" FROM \"Operation_Activity_Delta\" WHERE \"Operation "
        "ID\" = ? ORDER BY rowid",
        {Value(id)});
    while (q.next()) {
      const int64_t a = q.get(0).as_int();
      if (!deltas.count(a)) activities.push_back(a);
      auto& list = deltas[a];
      const Value d = q.get(1);
      if (d.is_int() || d.is_real()) {
        list.push_back(d.as_double());
      } else if (auto v = parse_number(d.as_text())) {
        // parse_number reads '.' as well as the locale's separator.
        list.push_back(*v);
      }
    }
  }

  out.line(section_heading("Mitigation"));
  std::vector<ActivityRange> ranges;
  {
    Statement st = store.prepare_statement(
        "SELECT \"tCO2e\" FROM \"Mitigation_Activity_Emission_Factors\" WHERE \"Activity ID\" = ? "
        "ORDER BY rowid");
    for (int64_t a : activities) {
      std::optional<ActivityRange> r;
      auto& q = st.query({Value(a)});
      std::vector<double> factors;
      while (q.next()) factors.push_back(q.get(0).as_double());
      for (double d : deltas[a])
        for (double f : factors) {
          const double v = d * f;
          if (!r)
            r = ActivityRange{a, v, v};
          else
            r->min = std::min(r->min, v), r->max = std::max(r->max, v);
        }
      if (r) ranges.push_back(*r);
    }
  }
  if (ranges.empty()) {
    out.line(paragraph(kNoData));
  } else {
    out.line(kTableOpen);
    table_row(out, {head_cell("Activity/feature"), head_cell("Range (tCO2e/ha)")});
    for (const ActivityRange& r : ranges)
      table_row(out, {cell(html_escape(activity_name(r.activity_id).as_text())),
                      cell(format_display(r.min, 3) + " to " + format_display(r.max, 3))});
    out.line("</table>");
  }

  out.line(section_heading("Adaptation"));
  std::vector<std::array<std::string, 3>> impacts;
  {
    Statement st = store.prepare_statement(
        "SELECT \"RVC ID\", \"Impact factor\" FROM \"Adaptation_Activity_Impact_Factors\" WHERE "
        "\"Activity ID\" = ? ORDER BY rowid");
    for (int64_t a : activities) {
      auto& q = st.query({Value(a)});
      std::vector<std::pair<int64_t, Value>> rows;
      while (q.next()) rows.emplace_back(q.get(0).as_int(), q.get(1));
      if (rows.empty()) continue;
      const std::string name = html_escape(activity_name(a).as_text());
      for (const auto& [rvc, factor] : rows) {
        std::string impact;
        try {
          impact = html_escape(rvc_field(rvc, 7).as_text());
        } catch (const StoreError&) {
          impact = "RVC " + id_text(rvc);
        }
        impacts.push_back({name, impact, factor.is_empty() ? std::string() : factor.as_text()});
      }
    }
  }
  if (impacts.empty()) {
    out.line(paragraph(kNoData));
  } else {
    out.line(kTableOpen);
    table_row(out,
              {head_cell("Activity/feature"), head_cell("Impact"), head_cell("Impact factor")});
    for (const auto& i : impacts) table_row(out, {cell(i[0]), cell(i[1]), cell(i[2])});
    out.line("</table>");
  }

  out.line(section_heading("Productivity"));
  out.line(paragraph(kNoData));
  out.line(section_heading("Practicality"));
  out.line(paragraph(kNoData));
}

}  // namespace

void operation_range_body(PageFile& out, int64_t id, const std::string& fallback_name) {
  std::string name;
  try {
    name = operation_name(id).as_text();
  } catch (const StoreError&) {
    name = fallback_name;
  }
  out.line(big_heading(html_escape(name)));
  out.line(
      paragraph("No region is currently selected, so a carbon balance cannot be calculated. A "
                "range of data is presented instead."));
  Db store = Db::open(session().ops_db_path);
  ranges_sections(out, store, id);
}

// ---- the page of a catalogue node ----

void operation_general_html_hub(Ui& ui, const Tree& tree, TreeViewKind view) {
  wait_page("summary.htm", "Retrieving data...");
  ui.navigate("explorer", "summary.htm");

  PageFile out("operation.htm");
  page_header_showhide(out);
  const int sel = tree.selected;
  if (sel >= 0 && sel < static_cast<int>(tree.nodes.size())) {
    const TreeNode& node = tree.nodes[static_cast<size_t>(sel)];
    if (tree.is_operation(sel)) {
      const int64_t id = tree.operation_id(sel);
      operation_range_body(out, id, node.text);
      if (!session().current_file.empty()) {
        const std::string ids = id_text(id);
        out.line(paragraph(operation_in_assessment(id) ? link(ids + ".yyy", "REMOVE")
                                                       : link(ids + ".xxx", "SELECT")));
      }
    } else {
      out.line(big_heading(html_escape(node.text)));
      const bool flat = view == TreeViewKind::a_to_z || node.text.rfind("A to Z", 0) == 0 ||
                        node.text.rfind("Search results", 0) == 0;
      std::vector<std::pair<int64_t, std::string>> ops;
      if (flat) {
        for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i)
          if (tree.is_operation(i))
            ops.emplace_back(tree.operation_id(i), tree.nodes[static_cast<size_t>(i)].text);
      } else {
        ops = group_operations(tree.group_id(sel), view);
      }
      operation_list_table(out, ops);
    }
  }
  page_footer(out);
  ui.navigate("explorer", "operation.htm");
}

}  // namespace arven
