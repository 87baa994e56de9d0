// The agent command line and the typed flag readers, on any argument list.
#include "cli/arguments.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  std::vector<std::string> args;
  for (const std::string& a : fuzz::arguments(data, size)) args.push_back(common::repairingUTF8(a));
  try {
    cli::ParsedCommand parsed = cli::parseArguments(args);
    const cli::FlagNames names = {"--x", "--element-index", "--element_index", "--window-id"};
    for (auto read : {+[](const cli::Flags& f, const cli::FlagNames& n) { (void)cli::intFlag(f, n, 0); },
                      +[](const cli::Flags& f, const cli::FlagNames& n) { (void)cli::uint32Flag(f, n); },
                      +[](const cli::Flags& f, const cli::FlagNames& n) { (void)cli::doubleFlag(f, n); },
                      +[](const cli::Flags& f, const cli::FlagNames& n) { (void)cli::requiredFlag(f, n); }}) {
      try {
        read(parsed.flags, names);
      } catch (const cli::ToolError&) {
      }
    }
  } catch (const cli::ToolError&) {
  }
  return 0;
}
