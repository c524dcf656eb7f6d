#pragma once

#include <cstdint>

#include "core/ui.h"

namespace arven {

// The hotspot report of the open assessment file: for each NUTS3 area of its
// region and each RVC of one type, the percent of the area in the hot bands
// ("hotspot_rep1.htm") and the area's average class ("hotspot_rep2.htm"),
// shown in the RVC browser. The run can be cancelled (hotspot_cancel());
// a cancelled run writes no page.

// Writes the wait page with its "-CANCEL-" link and starts hotspot_hub one
// timer tick later.
void hotspot_load(Ui& ui, int64_t rvc_type);
// The run; false when it was cancelled (no page written).
bool hotspot_hub(Ui& ui, int64_t rvc_type);
// Whether a class is hot: the top of the scale is the RVC's Euro max, or the
// region's own maximum when hotspot_regional is 1 (preferences decide).
bool hotspot_band(double euro_max, double rvc_class, double region_max);

}  // namespace arven
