#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace arven::shell {

// A list control as the window pages draw it: its id, label, and items of
// text and selection.
inline nlohmann::json list_json(const std::string& id, const std::string& label,
                                const std::vector<std::pair<std::string, bool>>& items) {
  nlohmann::json out = nlohmann::json::array();
  for (const auto& [text, selected] : items)
    out.push_back({{"text", text}, {"selected", selected}});
  return {{"id", id}, {"label", label}, {"items", out}};
}

}  // namespace arven::shell
