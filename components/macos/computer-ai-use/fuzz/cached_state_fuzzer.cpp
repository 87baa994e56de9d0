// The cached snapshot: every text is a snapshot or a ToolError.
#include "cli/tool_error.h"
#include "fuzz/fuzz_support.h"
#include "snapshot/snapshot_json.h"
#include "snapshot/state_cache.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  try {
    snapshot::AppStateSnapshot s = snapshot::parseCachedState(fuzz::text(data, size), "/fuzz/cache.json");
    // What decodes encodes again.
    (void)snapshot::encode(s).dump();
  } catch (const cli::ToolError&) {
  }
  return 0;
}
