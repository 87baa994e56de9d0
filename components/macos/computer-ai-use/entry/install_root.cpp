#include "entry/install_root.h"

#include "common/files.h"

#ifndef TAVLIN_BUILD_ROOT
#error "TAVLIN_BUILD_ROOT must name the source tree root"
#endif

namespace tavlin::entry {

bool isTavlinInstallRoot(const std::string& candidate) {
  return common::isExecutableFile(common::appendPathComponent(candidate, installRootMarker)) &&
         common::exists(common::appendPathComponent(candidate, "components/macos"));
}

std::string findTavlinRoot(const std::optional<std::string>& environmentRoot, const std::string& mainBundlePath,
                           const std::string& buildRoot, const std::string& currentDirectory) {
  if (environmentRoot && !environmentRoot->empty()) {
    std::string root = common::standardizedPath(*environmentRoot, currentDirectory);
    if (isTavlinInstallRoot(root)) return root;
  }
  std::string candidate = common::standardizedPath(mainBundlePath, currentDirectory);
  for (int step = 0; step < 10; ++step) {
    if (isTavlinInstallRoot(candidate)) return candidate;
    std::string parent = common::deletingLastPathComponent(candidate);
    if (parent == candidate) break;
    candidate = parent;
  }
  return common::standardizedPath(buildRoot, currentDirectory);
}

std::string buildTimeRoot() { return TAVLIN_BUILD_ROOT; }

}  // namespace tavlin::entry
