// RELEASE_BUILD.txt and the updater's output lines.
#include <cstdlib>

#include "fuzz/fuzz_support.h"
#include "statusitem/status_item_services.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  std::string text = fuzz::text(data, size);
  std::string version = statusitem::releaseVersionFromText(text);
  if (version.empty()) std::abort();  // never empty: "0.0.0-dev" at least
  if (auto object = statusitem::updaterResultFromOutput(text); object && !object->is_object()) std::abort();
  return 0;
}
