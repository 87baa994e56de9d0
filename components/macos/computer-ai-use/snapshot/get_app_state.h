#pragma once
// get-app-state: a fresh snapshot of one window of an application (element tree,
// screenshot, cache file) printed as plugin text, JSON or the plugin-json envelope.
// The element commands run the same pipeline to find the element for an index.
#include <optional>
#include <string>
#include <vector>

#include "runtime/command_context.h"
#include "snapshot/app_state_format.h"
#include "snapshot/screenshot_images.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

struct CurrentState {
  AppStateSnapshot snapshot;
  std::vector<TraversedElement> elements;
};

// Walks the selected window, captures it and writes the cache file. Throws ToolError.
// With CacheUpdate::none the walk neither captures the window nor touches the state
// cache: the snapshot the agent saw stays what later commands are checked against.
// `screenshot` shrinks and annotates the captured image (screenshot_images.h); without
// it (an element command's own snapshot) the image keeps the last snapshot's
// --max-dimension, so pixels of the image the agent holds still map exactly.
enum class CacheUpdate { write, none };
CurrentState fetchCurrentState(runtime::CommandContext& context, const platform::RunningApplication& app,
                               const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                               CacheUpdate cache = CacheUpdate::write,
                               const std::optional<ScreenshotOptions>& screenshot = std::nullopt);

// `text` cut to `maxLength` characters followed by "…" when it is longer.
std::string shortValue(const std::string& text, int64_t maxLength);
// One line of the listing: line feeds written as "\n", then cut to `keep` characters.
std::string listingText(const std::string& text, int64_t keep);
std::string elementName(const ElementSnapshot& element);
std::string describeElement(const ElementSnapshot& element);
std::string pluginText(const AppStateSnapshot& snapshot);
// The plugin-json envelope: the listing with the app, pid, window and cache paths.
nlohmann::json pluginEnvelope(const AppStateSnapshot& snapshot);

// With `changes`, also what changed since the application's previous snapshot in the
// cache: a block after the listing, or a "changes" key of the JSON document.
void handleGetAppState(runtime::CommandContext& context, const std::string& appQuery, AppStateFormat format,
                       const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                       bool changes = false, const ScreenshotOptions& screenshot = {});

}  // namespace tavlin::snapshot
