// RELEASE_BUILD.txt, the updater's output lines and its release feed.
#include <cstdlib>

#include "fuzz/fuzz_support.h"
#include "cli/tool_error.h"
#include "statusitem/status_item_services.h"
#include "statusitem/updater_feed.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  std::string text = fuzz::text(data, size);
  std::string version = statusitem::releaseVersionFromText(text);
  if (version.empty()) std::abort();  // never empty: "0.0.0-dev" at least
  if (auto object = statusitem::updaterResultFromOutput(text); object && !object->is_object()) std::abort();
  try {
    statusitem::UpdaterFeed feed = statusitem::parseUpdaterFeed(text);
    if (feed.version.empty() || (feed.url && !statusitem::isAcceptedDownloadURL(*feed.url))) std::abort();
  } catch (const cli::ToolError&) {
    // A refused feed is one clear error; anything else escaping is a finding.
  }
  // The order is strict: never newer both ways, never newer than itself.
  std::string other = version + text.substr(0, text.size() / 2);
  if (statusitem::isNewerVersion(text, text)) std::abort();
  if (statusitem::isNewerVersion(text, other) && statusitem::isNewerVersion(other, text)) std::abort();
  return 0;
}
