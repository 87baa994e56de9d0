#pragma once
// Helpers shared by the tests: temporary folders and running the real binary.
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tavlin::testing {

// A fresh folder under the system's temporary folder, removed with its contents.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the built executable with `arguments`. The environment is the test's own with
// the Tavlin variables cleared, then `environment` applied.
ToolRun runTool(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment = {});

// A copy of a desktop file in a fresh folder (also the simulated user's home), and
// runs of the tool against it with the event log beside it.
class DesktopFixture {
 public:
  explicit DesktopFixture(const std::string& json);
  ToolRun run(const std::vector<std::string>& arguments, std::map<std::string, std::string> environment = {});
  // Replaces text in the desktop file, to change the desktop between runs.
  void edit(const std::string& from, const std::string& to);
  // The event log so far; empty when nothing was logged.
  std::string events() const;

  TempDir dir;
  const std::string path = dir.file("desktop.json");
  const std::string log = dir.file("events.log");
};

// The message of the ToolError `f` throws, or "<no error>".
std::string toolErrorOf(const std::function<void()>& f);

std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);
std::string fixture(const std::string& name);
// Whole expected outputs, kept as files.
std::string golden(const std::string& name);
// Compares with a golden file; with TAVLIN_UPDATE_GOLDEN=1 in the environment it
// rewrites the file instead (review the diff).
void expectGolden(const std::string& name, const std::string& actual);
// Every occurrence of `from` replaced, to make outputs with temporary paths stable.
std::string replaceAll(std::string text, const std::string& from, const std::string& to);

}  // namespace tavlin::testing
