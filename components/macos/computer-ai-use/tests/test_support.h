#pragma once
// Helpers shared by the tests: temporary folders and running the real binary.
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

std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);
std::string fixture(const std::string& name);
// Whole expected outputs, kept as files.
std::string golden(const std::string& name);

}  // namespace tavlin::testing
