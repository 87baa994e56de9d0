#pragma once
#include <optional>
#include <string_view>

namespace tavlin::snapshot {

// The output form of get-app-state. "plugin_json" is accepted as a second spelling
// of "plugin-json" although the error message does not list it.
enum class AppStateFormat { plugin, json, pluginJson, pluginJSON };

inline std::optional<AppStateFormat> appStateFormat(std::string_view raw) {
  if (raw == "plugin") return AppStateFormat::plugin;
  if (raw == "json") return AppStateFormat::json;
  if (raw == "plugin-json") return AppStateFormat::pluginJson;
  if (raw == "plugin_json") return AppStateFormat::pluginJSON;
  return std::nullopt;
}

}  // namespace tavlin::snapshot
