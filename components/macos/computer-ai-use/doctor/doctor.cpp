#include "doctor/doctor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/tool_error.h"
#include "common/files.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"
#include "statusitem/status_item_services.h"

#ifndef TAVLIN_DEPLOYMENT_TARGET
#error "TAVLIN_DEPLOYMENT_TARGET must name the oldest macOS the build runs on (CMake's deployment target)"
#endif

namespace tavlin::doctor {

namespace {

constexpr const char* signingAdvice =
    "sign it with a stable identity (README, \"Signing, so that permissions stick\")";

Check ok(const char* name, std::string detail) { return {name, Status::ok, std::move(detail)}; }
Check warning(const char* name, std::string detail) { return {name, Status::warning, std::move(detail)}; }
Check failed(const char* name, std::string detail) { return {name, Status::failed, std::move(detail)}; }

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string out;
  for (const auto& part : parts) out += (out.empty() ? "" : separator) + part;
  return out;
}

const char* statusWord(Status status) {
  switch (status) {
    case Status::ok: return "ok";
    case Status::warning: return "warning";
    case Status::failed: return "failed";
  }
  return "failed";
}

// A check that throws (no desktop to ask, a system call gone wrong) cannot tell: a
// needed one then fails, since the tool cannot count on it.
template <typename Run>
Check guarded(const char* name, bool needed, Run run) {
  try {
    return run();
  } catch (const std::exception& error) {
    return {name, needed ? Status::failed : Status::warning, std::string("cannot tell: ") + error.what()};
  }
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

Check accessibilityCheck(platform::Platform& platform, const runtime::ProcessValues& values) {
  // Asked without the prompt: a diagnosis shows no dialog.
  if (platform.accessibility().isProcessTrusted(false)) return ok("accessibility", "trusted");
  std::string detail = "not trusted: allow " + snapshot::permissionSubject(platform, values.programPath) +
                       " in System Settings > Privacy & Security > Accessibility";
  // The usual way a granted permission is lost.
  auto kind = platform.systemInfo().codeSignature().kind;
  if (kind == platform::CodeSignature::Kind::adhoc || kind == platform::CodeSignature::Kind::notSigned) {
    detail += " (this build is not signed with a stable identity, so each rebuild loses it: see code-signature)";
  }
  return failed("accessibility", detail);
}

Check screenRecordingCheck(platform::Platform& platform, const runtime::ProcessValues& values) {
  if (platform.screenCapture().screenRecordingAllowed()) return ok("screen-recording", "allowed");
  return warning("screen-recording", "not allowed: get-app-state takes no screenshots; allow " +
                                         snapshot::permissionSubject(platform, values.programPath) +
                                         " in System Settings > Privacy & Security > Screen Recording");
}

// Why RELEASE_BUILD.txt gives no version; absent when it gives one (put in `version`).
std::optional<std::string> releaseProblem(const std::string& root, std::string& version) {
  std::string problem;
  auto text = common::readRegularFile(common::appendPathComponent(root, "RELEASE_BUILD.txt"), 1 << 20, problem);
  if (!text) return "RELEASE_BUILD.txt cannot be read (" + problem + ")";
  if (common::repairingUTF8(*text) != *text) return "RELEASE_BUILD.txt is not UTF-8 text";
  version = statusitem::releaseVersionFromText(*text);
  if (version == "0.0.0-dev") return "RELEASE_BUILD.txt has no \"version: X.Y.Z\" line";
  return std::nullopt;
}

}  // namespace

const char* deploymentTarget() { return TAVLIN_DEPLOYMENT_TARGET; }

std::optional<std::vector<int>> parseVersion(const std::string& text) {
  std::vector<int> parts;
  size_t start = 0;
  for (;;) {
    size_t end = text.find('.', start);
    std::string part = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (part.empty() || part.size() > 6 || part.find_first_not_of("0123456789") != std::string::npos) {
      return std::nullopt;
    }
    parts.push_back(std::stoi(part));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  if (parts.size() > 3) return std::nullopt;
  parts.resize(3, 0);
  return parts;
}

Check installRootCheck(const runtime::ProcessValues& values) {
  const char* name = "install-root";
  const std::string& root = values.tavlinRootURL;
  std::vector<std::string> problems;
  for (const char* script : companionScripts) {
    std::string path = common::appendPathComponent(common::appendPathComponent(root, "bin"), script);
    if (!common::exists(path)) {
      problems.push_back(std::string("bin/") + script + " is missing");
    } else if (!common::isExecutableFile(path)) {
      problems.push_back(std::string("bin/") + script + " is not an executable file");
    }
  }
  if (!common::isDirectory(common::appendPathComponent(root, "components/macos"))) {
    problems.push_back("components/macos is missing");
  }
  std::vector<std::string> notes;
  if (values.installRootSetting && !values.installRootSetting->empty() &&
      common::standardizedPath(*values.installRootSetting, common::currentDirectory()) != root) {
    notes.push_back("TAVLIN_INSTALL_ROOT (" + *values.installRootSetting +
                    ") is not an install root and was passed over");
  }
  if (!problems.empty()) {
    notes.insert(notes.begin(), root + ": " + joined(problems, ", ") +
                                    "; install again (cmake --install) or set TAVLIN_INSTALL_ROOT to an install root");
    return failed(name, joined(notes, "; "));
  }
  std::string version;
  if (auto problem = releaseProblem(root, version)) {
    notes.push_back(*problem + ": the menu and the updater take version 0.0.0-dev");
  }
  if (!notes.empty()) return warning(name, root + ": " + joined(notes, "; "));
  return ok(name, root + ": the " + std::to_string(std::size(companionScripts)) + " companion scripts, version " +
                      version);
}

Check cacheFolderCheck(const std::string& cacheDirectory) {
  const char* name = "cache-folder";
  const std::string& path = cacheDirectory;
  // Looked at, never made or changed: get-app-state makes the folders (0700) and
  // tightens its own, and refuses what it cannot trust.
  for (const std::string& folder : {common::deletingLastPathComponent(path), path}) {
    struct stat st;
    if (::lstat(folder.c_str(), &st) != 0) {
      // Missing, or a file stands where a folder above it should be.
      if (errno != ENOENT && errno != ENOTDIR) {
        return failed(name, folder + " cannot be examined (" + std::strerror(errno) + ")");
      }
      std::string existing = common::deletingLastPathComponent(folder);
      while (!common::exists(existing) && existing != "/" && existing != ".") {
        existing = common::deletingLastPathComponent(existing);
      }
      if (!common::isDirectory(existing)) return failed(name, path + " cannot be made: " + existing + " is not a folder");
      if (::access(existing.c_str(), W_OK | X_OK) != 0) {
        return failed(name, path + " cannot be made: " + existing + " is not writable (" + std::strerror(errno) + ")");
      }
      return ok(name, path + " does not exist yet; get-app-state makes it (0700)");
    }
    if (folder != path) {
      if (!common::isDirectory(folder)) {
        return failed(name, folder + " is not a folder: get-app-state cannot make its cache in it; remove it");
      }
      continue;
    }
    if (S_ISLNK(st.st_mode)) return failed(name, path + " is a symbolic link: get-app-state refuses it; remove it");
    if (!S_ISDIR(st.st_mode)) return failed(name, path + " is not a folder: get-app-state cannot use it; remove it");
    if (st.st_uid != ::geteuid()) {
      return failed(name, path + " belongs to another user (uid " + std::to_string(st.st_uid) +
                              "): get-app-state refuses it; remove it");
    }
    if ((st.st_mode & 07777) != 0700) {
      return warning(name, path + " has mode " + modeText(st.st_mode) +
                               ": get-app-state makes it 0700 (screenshots can show private content)");
    }
  }
  return ok(name, path + " (yours, 0700)");
}

Check codeSignatureCheck(const platform::CodeSignature& signature) {
  const char* name = "code-signature";
  using Kind = platform::CodeSignature::Kind;
  std::string identifier = signature.identifier.value_or("no identifier");
  switch (signature.kind) {
    case Kind::certificate:
      return ok(name, "signed as " + identifier +
                          (signature.teamIdentifier ? " by team " + *signature.teamIdentifier : " with a certificate"));
    case Kind::adhoc:
      return warning(name, "ad hoc signature (" + identifier +
                               "): macOS forgets the Accessibility and Screen Recording permissions at every rebuild; " +
                               signingAdvice);
    case Kind::notSigned:
      return warning(name,
                     std::string("not signed: macOS forgets the Accessibility and Screen Recording permissions at "
                                 "every rebuild; ") +
                         signingAdvice);
    case Kind::invalid:
      break;
  }
  std::string status = signature.status ? " (OSStatus " + std::to_string(*signature.status) + ")" : "";
  return warning(name, "the signature does not hold" + status +
                           ": macOS may not apply the permissions granted to this app; " + signingAdvice);
}

Check macOSVersionCheck(const std::optional<std::string>& version, const std::string& target) {
  const char* name = "macos-version";
  auto need = parseVersion(target);
  if (!need) return warning(name, "this build names no valid deployment target (\"" + target + "\")");
  std::string needs = "this build needs macOS " + target + " or later";
  if (!version) return warning(name, "cannot read the macOS version; " + needs);
  auto have = parseVersion(*version);
  if (!have) return warning(name, "cannot read the macOS version (\"" + *version + "\"); " + needs);
  if (*have < *need) {
    return failed(name, "macOS " + *version + " is older than " + target + ", the oldest this build runs on; update macOS");
  }
  return ok(name, "macOS " + *version + " (" + needs + ")");
}

std::vector<Check> runChecks(platform::Platform& platform, const runtime::ProcessValues& values) {
  return {
      guarded("accessibility", true, [&] { return accessibilityCheck(platform, values); }),
      guarded("screen-recording", false, [&] { return screenRecordingCheck(platform, values); }),
      guarded("install-root", true, [&] { return installRootCheck(values); }),
      guarded("cache-folder", true, [&] { return cacheFolderCheck(values.cacheDirectoryURL); }),
      guarded("code-signature", false, [&] { return codeSignatureCheck(platform.systemInfo().codeSignature()); }),
      guarded("macos-version", true,
              [&] { return macOSVersionCheck(platform.systemInfo().operatingSystemVersion(), deploymentTarget()); }),
  };
}

std::string reportText(const std::vector<Check>& checks) {
  std::string out;
  for (const Check& check : checks) {
    std::string word = check.status == Status::failed ? "FAILED" : statusWord(check.status);
    word.resize(9, ' ');
    out += word + check.name + ": " + common::escapingLineBreaks(check.detail) + "\n";
  }
  return out;
}

cli::Json reportJson(const std::vector<Check>& checks) {
  cli::Json list = cli::Json::array();
  bool allOk = true;
  for (const Check& check : checks) {
    list.push_back({{"name", check.name}, {"status", statusWord(check.status)}, {"detail", check.detail}});
    allOk &= check.status != Status::failed;
  }
  return {{"ok", allOk}, {"checks", list}};
}

void handleDoctor(runtime::CommandContext& context, const cli::Flags& flags) {
  std::vector<Check> checks = runChecks(context.platform, context.values);
  cli::Json report = reportJson(checks);
  context.result.value = report;
  context.result.valueStandsOnFailure = true;
  if (cli::flagValue(flags, {"--json"})) {
    cli::writeJSON(context.output, report);
  } else {
    context.output.standardOutput(reportText(checks));
  }
  std::vector<std::string> failures;
  for (const Check& check : checks) {
    if (check.status == Status::failed) failures.push_back(check.name);
  }
  // The report stays on standard output; the error line says what to fix first.
  if (!failures.empty()) throw cli::ToolError("Needed checks failed: " + joined(failures, ", "));
}

}  // namespace tavlin::doctor
