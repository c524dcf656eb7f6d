#pragma once

#include <cstdint>

#include "core/ui.h"

namespace arven {

// The regional breakdown of one operation over the NUTS3 areas of the
// region: a sortable table (RegGrid1 of the explorer window) and, on
// request, a bar chart in the report window. Impact kind 1 greenhouse gas,
// 2 adaptation, 4 production; chart kind 2 totals, 3 per hectare.

void regional_analysis(Ui& ui, int64_t operation_id, int impact_kind);
void reg_analysis_html(Ui& ui, int64_t operation_id, int impact_kind);
void reg_analysis_chart(Ui& ui, int64_t operation_id, int impact_kind, int chart_kind);

}  // namespace arven
