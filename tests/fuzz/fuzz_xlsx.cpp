// The .xlsx reader of the RVC import: any bytes give sheets within the
// reader's caps, or an XlsxError.
#include <cstdlib>
#include <string_view>

#include "prep/xlsx_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    for (const auto& sheet :
         arven::read_xlsx(std::string_view(reinterpret_cast<const char*>(data), size))) {
      if (sheet.rows.size() > 1048576) std::abort();
      for (const auto& row : sheet.rows)
        if (row.size() > 16384) std::abort();
    }
  } catch (const arven::XlsxError&) {
  }
  return 0;
}
