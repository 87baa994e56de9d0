// The executable's entry: IPC pre-pass, process-wide values, mode choice, and the
// single exit path.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "capture/background_capture.h"
#include "clicker/clicker.h"
#include "common/unicode.h"
#include "entry/agent_tool.h"
#include "entry/ipc.h"
#include "entry/modes.h"
#include "entry/process_values.h"
#include "mcp/mcp_server.h"
#include "platform/platform.h"
#include "record/desktop_recorder.h"
#include "runtime/output.h"
#include "statusitem/status_item.h"
#include "statusitem/updater_feed.h"

namespace tavlin::entry {
namespace {

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return std::nullopt;
  return std::string(value);
}

// The only way the tool modes end: flush, let the platform record what changed (a
// failure to do so fails the process), record the status for a supervisor, exit.
// The agent tool records its effects itself, before it shows its result.
[[noreturn]] void finish(int status, const runtime::ProcessValues& values, platform::Platform& platform,
                         bool recorded = false) {
  std::fflush(stdout);
  std::fflush(stderr);
  if (!recorded) {
    try {
      platform.commit();
    } catch (const std::exception& error) {
      runtime::writeAll(2, common::escapingLineBreaks(error.what()) + "\n");
      status = 1;
    }
  }
  if (values.tavlinIPCDirectory) writeIPCExitCode(*values.tavlinIPCDirectory, status);
  std::exit(status);
}

}  // namespace
}  // namespace tavlin::entry

int main(int argc, char** argv) {
  using namespace tavlin;
  // Descriptors 0 to 2 are taken before anything is opened, so that no file of the
  // tool (a desktop lock, a cache file) can become its standard output.
  entry::reserveStandardDescriptors();
  // As the platform does for its own argument strings: every text the tool prints
  // and every JSON document it writes is then valid UTF-8.
  std::vector<std::string> raw;
  for (int i = 1; i < argc; ++i) raw.push_back(common::repairingUTF8(argv[i]));
  entry::TavlinStartup startup = entry::configureTavlinIPC(raw);

  std::unique_ptr<platform::Platform> platform = platform::makePlatform(argc > 0 ? argv[0] : "");
  const runtime::ProcessValues values = entry::makeProcessValues(
      std::move(startup), platform->workspace(),
      {entry::environment("TAVLIN_INSTALL_ROOT"), entry::environment("TAVLIN_AX_TIMEOUT"), argc > 0 ? argv[0] : "",
       entry::environment("TAVLIN_FONT")});

  const std::vector<std::string>& args = values.tavlinArguments;
  std::vector<std::string> rest(args.size() > 1 ? args.begin() + 1 : args.end(), args.end());
  const entry::Mode mode = entry::selectMode(args);
  switch (mode) {
    case entry::Mode::statusItemWithWindow:
    case entry::Mode::statusItemWithoutWindow: {
      int status = statusitem::runTavlinStatusItem(values, *platform, mode == entry::Mode::statusItemWithWindow);
      if (status != 0) entry::finish(status, values, *platform);
      // The run ended: the process ends here, without finish (no exit-code file).
      std::fflush(stdout);
      std::exit(0);
    }
    case entry::Mode::statusItemDiagnostic:
      entry::finish(statusitem::runTavlinStatusItemDiagnostic(values, *platform), values, *platform);
    case entry::Mode::backgroundWindowCapture: {
      rest.insert(rest.begin(), "background-window-capture");
      entry::finish(capture::runBackgroundWindowCaptureHost(values, *platform, rest), values, *platform);
    }
    case entry::Mode::clicker: {
      runtime::BufferedOutput output;
      int status = clicker::runClickerCompatibility(values, *platform, output, rest);
      entry::finish(entry::recordAndDeliver(*platform, output, status), values, *platform, true);
    }
    case entry::Mode::recordDesktop: {
      runtime::BufferedOutput output;
      int status = record::runDesktopRecorder(values, *platform, output, rest);
      entry::finish(entry::recordAndDeliver(*platform, output, status), values, *platform, true);
    }
    case entry::Mode::imageSize: {
      runtime::BufferedOutput output;
      int status = capture::runImageSizeDiagnostic(*platform, output, rest);
      entry::finish(entry::recordAndDeliver(*platform, output, status), values, *platform, true);
    }
    case entry::Mode::updaterFeed: {
      runtime::BufferedOutput output;
      int status = statusitem::runUpdaterFeedReader(output, rest);
      entry::finish(entry::recordAndDeliver(*platform, output, status), values, *platform, true);
    }
    case entry::Mode::mcpServer:
      entry::finish(mcp::runMcpServer(values, *platform, entry::dispatchAgentCommand), values, *platform);
    case entry::Mode::agentTool:
      entry::finish(entry::runAgentTool(values, *platform), values, *platform, true);
  }
  return 1;
}
