// The capture mode's options.
#include "capture/background_capture.h"
#include "cli/tool_error.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  try {
    capture::BWCOptions options = capture::bwcParseOptions(fuzz::arguments(data, size));
    if (!(options.interval > 0) || !(options.timeout > 0) || (options.count && *options.count <= 0)) std::abort();
  } catch (const cli::ToolError&) {
  }
  return 0;
}
