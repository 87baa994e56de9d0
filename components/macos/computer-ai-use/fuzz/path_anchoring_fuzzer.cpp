// Open panel path arithmetic: prefixes, anchors, relative components and entry URLs.
#include <algorithm>
#include <cstdlib>

#include "fuzz/fuzz_support.h"
#include "openpanel/native_open_panel.h"
#include "platform/sim/sim_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  static sim::SimPlatform platform(sim::SimDesktop::fromJson(
      nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "displayNames": {"/Users/a/Documents": "文稿"}})"),
      "/unused", ""));
  static const runtime::OpenPanelTitleSets titles{{"Open"}, {"Open"}, {"Cancel"}};
  static const std::vector<std::string> traversal = {"AXChildren"};
  // Real paths are short; long ones only make every standardisation slower.
  if (size > 1024) return 0;
  std::vector<std::string> parts = fuzz::arguments(data, size);
  while (parts.size() < 3) parts.emplace_back();
  // Paths that exist on this machine would be resolved through the file system.
  for (auto& p : parts) {
    if (p.find("..") != std::string::npos) return 0;
  }
  openpanel::PanelView view(platform.accessibility(), traversal);
  openpanel::PanelContext c{view, platform, titles};
  const std::string& target = parts[0];
  auto prefixes = openpanel::nativeOpenPanelPathPrefixes(target, true);
  for (const auto& prefix : prefixes) {
    if (prefix.empty() || prefix.front() != '/') std::abort();
  }
  bool directory = parts[1].size() % 2 == 0;
  if (auto anchor = openpanel::nativeOpenPanelAnchorPath(c, target, directory, parts[1])) {
    // An anchor is always one of the target's prefixes.
    auto candidates = openpanel::nativeOpenPanelPathPrefixes(target, directory);
    if (std::find(candidates.begin(), candidates.end(), *anchor) == candidates.end()) std::abort();
    (void)openpanel::nativeOpenPanelRelativeComponents(*anchor, target);
  }
  (void)openpanel::nativeOpenPanelRelativeComponents(parts[1], parts[2]);
  (void)openpanel::urlPathOf(platform::AXAttributeValue{parts[2]});
  (void)openpanel::urlPathOf(platform::AXAttributeValue{platform::AXURL{parts[2], std::nullopt}});
  return 0;
}
