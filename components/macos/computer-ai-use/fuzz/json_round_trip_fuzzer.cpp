// The two JSON printers: whatever they print parses back to what they were given.
#include <cstdlib>

#include "cli/json_output.h"
#include "common/json_text.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  std::string text = fuzz::text(data, size);
  if (common::checkJsonText(text, 64)) return 0;
  cli::Json value = cli::Json::parse(text, nullptr, false);
  if (value.is_discarded()) return 0;
  for (cli::JsonFlavor flavor : {cli::JsonFlavor::encoder, cli::JsonFlavor::serialization}) {
    std::string printed;
    try {
      printed = cli::formatJSON(value, flavor);
    } catch (const std::runtime_error&) {
      continue;  // a value Foundation refuses
    }
    cli::Json again = cli::Json::parse(printed, nullptr, false);
    if (again.is_discarded() || again != value) std::abort();
  }
  return 0;
}
