// Key combinations through the whole press-key path, on a simulated desktop.
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "fuzz/fuzz_support.h"
#include "input/event_synthesis.h"
#include "platform/sim/sim_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  static const runtime::KeyTables tables = runtime::makeKeyTables();
  static const nlohmann::ordered_json document = nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1})");
  if (size > 4096) return 0;
  sim::SimPlatform platform(sim::SimDesktop::fromJson(document, "/unused", ""));
  try {
    input::postKeyCombo(platform, tables, common::repairingUTF8(fuzz::text(data, size)));
  } catch (const cli::ToolError&) {
  }
  return 0;
}
