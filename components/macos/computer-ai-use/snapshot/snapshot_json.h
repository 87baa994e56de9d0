#pragma once
// The snapshot records' JSON: keys are the field names, absent optionals are left
// out, dates are ISO 8601 text. Printed with the encoder flavour (sorted keys,
// slashes unescaped) both for --format json and for the cache file.
#include <stdexcept>
#include <string>

#include "cli/json_output.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

cli::Json encode(const RectPayload& rect);
cli::Json encode(const SizePayload& size);
cli::Json encode(const ElementSnapshot& element);
cli::Json encode(const WindowSnapshot& window);
cli::Json encode(const AppStateSnapshot& snapshot);

// Thrown for a document that does not hold a snapshot; the message says what is
// wrong and where ("elements[3].depth: expected an integer").
struct DecodingError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

AppStateSnapshot decodeAppStateSnapshot(const cli::Json& document);

}  // namespace tavlin::snapshot
