#include "core/registry.h"

#include <array>

namespace arven {

namespace {

struct Country {
  const char* code;
  const char* name;
};

constexpr std::array<Country, 50> kCountries = {{
    {"AD", "Andorra (AD)"},
    {"AL", "Albania (AL)"},
    {"AT", "Austria (AT)"},
    {"AZ", "Azerbaijan (AZ)"},
    {"BA", "Bosnia-Herzegovina (BA)"},
    {"BE", "Belgium (BE)"},
    {"BG", "Bulgaria (BG)"},
    {"BY", "Belarus (BY)"},
    {"CH", "Switzerland (CH)"},
    {"CY", "Cyprus (CY)"},
    {"CZ", "Czech Republic (CZ)"},
    {"DE", "Germany (DE)"},
    {"DK", "Denmark (DK)"},
    {"EE", "Estonia (EE)"},
    {"ES", "Spain (ES)"},
    {"FI", "Finland (FI)"},
    {"FR", "France (FR)"},
    {"GE", "Georgia (GE)"},
    {"GI", "Gibraltar (GI)"},
    {"GR", "Greece (GR)"},
    {"HR", "Croatia (HR)"},
    {"HU", "Hungary (HU)"},
    {"IE", "Ireland (IE)"},
    {"IS", "Iceland (IS)"},
    {"IT", "Italy (IT)"},
    {"KS", "Kosovo (KS)"},
    {"LI", "Liechtenstein (LI)"},
    {"LT", "Lithuania (LT)"},
    {"LU", "Luxembourg (LU)"},
    {"LV", "Latvia (LV)"},
    {"MC", "Monacco (MC)"},
    {"MD", "Moldova (MD)"},
    {"ME", "Montenegro (ME)"},
    {"MK", "Macedonia (MK)"},
    {"MT", "Malta (MT)"},
    {"NL", "Netherlands (NL)"},
    {"NO", "Norway (NO)"},
    {"PL", "Poland (PL)"},
    {"PT", "Portugal (PT)"},
    {"RO", "Romania (RO)"},
    {"RS", "Serbia (RS)"},
    {"RU", "Russia (RU)"},
    {"SE", "Sweden (SE)"},
    {"SI", "Slovenia (SI)"},
    {"SK", "Slovakia (SK)"},
    {"SM", "San Marino (SM)"},
    {"TR", "Turkey (TR)"},
    {"UA", "Ukraine (UA)"},
    {"UK", "United Kingdom (UK)"},
    {"VC", "Vatican City (VC)"},
}};

}  // namespace

std::string country_code_by_index(int index) {
  if (index < 1 || index > 50) return "";
  return kCountries[static_cast<size_t>(index - 1)].code;
}

int country_index_by_code(std::string_view code) {
  for (size_t i = 0; i < kCountries.size(); ++i)
    if (code == kCountries[i].code) return static_cast<int>(i) + 1;
  return 0;
}

std::string country_display_name(int index) {
  if (index < 1 || index > 50) return "";
  return kCountries[static_cast<size_t>(index - 1)].name;
}

std::filesystem::path country_store_path(const std::filesystem::path& app_folder,
                                         std::string_view code) {
  return app_folder / "dbases" / ("new_arven_operations_" + std::string(code) + ".mdb");
}

}  // namespace arven
