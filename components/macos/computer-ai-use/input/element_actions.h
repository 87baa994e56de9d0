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
