#include "input/keyboard_commands.h"

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "common/unicode.h"
#include "input/element_actions.h"
#include "input/event_synthesis.h"

namespace tavlin::input {

namespace {

const cli::FlagNames elementIndexFlags = {"--element-index", "--element_index"};

std::string nameOf(const platform::RunningApplication& app) { return app.localizedName.value_or(""); }

}  // namespace

void handleTypeText(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  std::string text = cli::requiredFlag(flags, {"--text"});
  apps::activateApp(app, context.platform);
  postUnicodeText(context.platform, text);
  int64_t length = common::characterCount(text);
  cli::writeJSONObject(context.output, {{"ok", true}, {"app", nameOf(app)}, {"typedLength", length}, {"typed_length", length}});
}

void handlePressKey(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  std::string key = cli::requiredFlag(flags, {"--key"});
  apps::activateApp(app, context.platform);
  postKeyCombo(context.platform, context.values.keyTables, key);
  cli::writeJSONObject(context.output, {{"ok", true}, {"app", nameOf(app)}, {"key", key}});
}

void handleSetValue(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  int64_t index = cli::intFlag(flags, elementIndexFlags, std::nullopt);
  std::string value = cli::requiredFlag(flags, {"--value"});
  withElementToActOn(context, app, flags, index, false, titleContainsFlag(flags), windowIDFlag(flags),
                     [&](const auto& element) {
    setAXValue(context.platform.accessibility(), element.element, value);
  });
  cli::writeJSONObject(context.output, {{"ok", true}, {"elementIndex", index}, {"element_index", index}, {"value", value}});
}

void handleSecondaryAction(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  int64_t index = cli::intFlag(flags, elementIndexFlags, std::nullopt);
  std::string action = cli::requiredFlag(flags, {"--action"});
  withElementToActOn(context, app, flags, index, false, std::nullopt, std::nullopt, [&](const auto& element) {
    performAXAction(context.platform.accessibility(), element.element, action);
  });
  cli::writeJSONObject(context.output, {{"ok", true}, {"elementIndex", index}, {"element_index", index}, {"action", action}});
}

}  // namespace tavlin::input
