// doctor's pure parts: versions against the deployment target, and the report's forms.
#include <gtest/gtest.h>

#include "doctor/doctor.h"

using namespace tavlin::doctor;

TEST(DoctorVersion, ComparedAsNumbersAgainstTheTarget) {
  struct Case {
    std::optional<std::string> version;
    std::string target;
    Status status;
  };
  const std::vector<Case> cases = {
      {"13.3", "13.3", Status::ok},       {"13.3.0", "13.3", Status::ok},    {"13.3.1", "13.3", Status::ok},
      {"14", "13.3", Status::ok},         {"13.10", "13.3", Status::ok},     {"26.0", "13.3", Status::ok},
      {"13.2.9", "13.3", Status::failed}, {"13", "13.3", Status::failed},   {"10.16", "13.3", Status::failed},
      {"9.99", "13.3", Status::failed},   {"13.3", "13.3.1", Status::failed},
      // What cannot be compared is a warning, never a pass or a failure.
      {std::nullopt, "13.3", Status::warning}, {"", "13.3", Status::warning},   {"13.x", "13.3", Status::warning},
      {"1.2.3.4", "13.3", Status::warning},    {"13..3", "13.3", Status::warning}, {"-13.3", "13.3", Status::warning},
      {" 14.5", "13.3", Status::warning},      {"14.5", "", Status::warning},
  };
  for (const Case& c : cases) {
    Check check = macOSVersionCheck(c.version, c.target);
    EXPECT_EQ(check.status, c.status) << c.version.value_or("<none>") << " vs " << c.target << ": " << check.detail;
    EXPECT_EQ(check.name, "macos-version");
  }
  EXPECT_TRUE(parseVersion(deploymentTarget()).has_value()) << deploymentTarget();
}

TEST(DoctorReport, OneLinePerCheckAndOkOnlyWithoutFailures) {
  std::vector<Check> checks = {
      {"accessibility", Status::ok, "trusted"},
      {"install-root", Status::warning, "/Apps/Tav\nlin: note"},
      {"cache-folder", Status::failed, "bad"},
  };
  // A line break a path brings in stays inside its line.
  EXPECT_EQ(reportText(checks),
            "ok       accessibility: trusted\n"
            "warning  install-root: /Apps/Tav\\nlin: note\n"
            "FAILED   cache-folder: bad\n");
  tavlin::cli::Json json = reportJson(checks);
  EXPECT_EQ(json["ok"], false);
  EXPECT_EQ(json["checks"][1]["status"], "warning");
  EXPECT_EQ(json["checks"][1]["detail"], "/Apps/Tav\nlin: note");
  checks.back().status = Status::warning;
  EXPECT_EQ(reportJson(checks)["ok"], true);  // warnings do not fail
}
