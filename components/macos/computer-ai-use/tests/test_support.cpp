#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "cli/tool_error.h"
#include "common/files.h"
#include "platform/posix_processes.h"

namespace tavlin::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tavlin-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ToolRun runTool(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment) {
  platform::ProcessRequest request;
  request.executable = TAVLIN_BINARY;
  request.arguments = arguments;
  request.captureOutput = true;
  request.timeoutSeconds = 60;
  // The companion scripts run the binary under test.
  request.extraEnvironment = {{"TAVLIN_SIM_DESKTOP", ""},
                              {"TAVLIN_SIM_EVENT_LOG", ""},
                              {"TAVLIN_INSTALL_ROOT", ""},
                              {"TAVLIN_FONT", ""},
                              {"TAVLIN_EXECUTABLE", TAVLIN_BINARY}};
  for (const auto& [k, v] : environment) request.extraEnvironment[k] = v;
  platform::ProcessResult result = platform::PosixProcesses().run(request);
  if (!result.launched) throw std::runtime_error("cannot run " + request.executable + ": " + result.launchError);
  return {result.exitStatus, result.standardOutput, result.standardError};
}

DesktopFixture::DesktopFixture(const std::string& json) { writeText(path, json); }

ToolRun DesktopFixture::run(const std::vector<std::string>& arguments, std::map<std::string, std::string> environment) {
  environment.emplace("TAVLIN_SIM_DESKTOP", path);
  environment.emplace("TAVLIN_SIM_EVENT_LOG", log);
  environment.emplace("HOME", dir.path());
  return runTool(arguments, environment);
}

void DesktopFixture::edit(const std::string& from, const std::string& to) {
  writeText(path, replaceAll(readText(path), from, to));
}

std::string DesktopFixture::events() const { return common::exists(log) ? readText(log) : ""; }

std::string toolErrorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const cli::ToolError& e) {
    return e.description;
  }
  return "<no error>";
}

std::string readText(const std::string& path) {
  auto text = common::readFile(path);
  if (!text) throw std::runtime_error("cannot read " + path);
  return *text;
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string fixture(const std::string& name) { return std::string(TAVLIN_FIXTURES) + "/" + name; }

std::string golden(const std::string& name) { return readText(std::string(TAVLIN_GOLDEN) + "/" + name); }

void expectGolden(const std::string& name, const std::string& actual) {
  std::string path = std::string(TAVLIN_GOLDEN) + "/" + name;
  const char* update = std::getenv("TAVLIN_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    writeText(path, actual);
    return;
  }
  EXPECT_EQ(actual, readText(path)) << "golden file " << path << " (TAVLIN_UPDATE_GOLDEN=1 rewrites it)";
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace tavlin::testing
