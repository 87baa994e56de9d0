#pragma once
// What the action commands share: the opening (permission, application), finding an
// element of a fresh walk by its index, its centre, cached screenshot points, and the
// two accessibility primitives.
#include <functional>
#include <optional>
#include <string>

#include "cli/json_output.h"
#include "cli/arguments.h"
#include "runtime/command_context.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::input {

// The permission gate, with the configured messaging time-out; throws ToolError.
void ensureTrusted(runtime::CommandContext& context);
// The permission gate and --app resolution; throws ToolError.
platform::RunningApplication openCommand(runtime::CommandContext& context, const cli::Flags& flags);

// Runs `body` on the element with this index in a fresh walk of the selected window.
// Throws "Element index N not found".
void withCurrentTraversedElement(runtime::CommandContext& context, const platform::RunningApplication& app,
                                 int64_t index, const std::optional<std::string>& titleContains,
                                 std::optional<uint32_t> windowID,
                                 const std::function<void(const snapshot::TraversedElement&)>& body);

// The opt-in check that an index still means what the agent saw ("--verify-snapshot",
// always on over MCP). With it, the element is taken from a walk of the window of the
// application's last get-app-state (or the window the flags name) that neither
// captures nor touches the state cache, and must still be the element recorded at
// that index: the same role and path, the same identifier and label where either has
// one, in the same window. Otherwise the command fails before any event or activation
// with a message that says what changed and asks for a new get-app-state.
inline const cli::FlagNames verifySnapshotFlags = {"--verify-snapshot", "--verify_snapshot"};

// Runs `body` on the element with this index, activating the application first when
// `activate` is set. Without the check: activation, then a fresh walk of the window
// that `titleContains`/`windowID` choose, as always. With it: the check first, then
// activation. Records the element in the command's result. Throws ToolError.
void withElementToActOn(runtime::CommandContext& context, const platform::RunningApplication& app,
                        const cli::Flags& flags, int64_t index, bool activate,
                        const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                        const std::function<void(const snapshot::TraversedElement&)>& body);
// The window flags of an index command: "--title-contains" and "--window-id".
std::optional<std::string> titleContainsFlag(const cli::Flags& flags);
std::optional<uint32_t> windowIDFlag(const cli::Flags& flags);

// What changed between the element recorded at an index and the one there now (each
// with its window's root element); absent when it is the same element.
std::optional<std::string> snapshotChange(const snapshot::ElementSnapshot& recordedRoot,
                                          const snapshot::ElementSnapshot& recorded,
                                          const snapshot::ElementSnapshot& liveRoot,
                                          const snapshot::ElementSnapshot& live);

// The frame's mid-point; throws "Element N does not have a usable frame".
platform::Point elementCenter(const snapshot::TraversedElement& element);

// A pixel of the last cached screenshot of the application, in screen points.
platform::Point loadPointFromCachedScreenshot(runtime::CommandContext& context, const platform::RunningApplication& app,
                                              double x, double y);

// Checks the live action names first; throws ToolError with the available names, or
// with the AXError code when the action fails.
void performAXAction(platform::Accessibility& ax, const platform::Element& element, const std::string& action);
// Sets AXValue as text; throws ToolError with the AXError code when refused.
void setAXValue(platform::Accessibility& ax, const platform::Element& element, const std::string& value);

// A point as the JSON object {"x", "y"}.
cli::Json pointJSON(platform::Point point);

}  // namespace tavlin::input
