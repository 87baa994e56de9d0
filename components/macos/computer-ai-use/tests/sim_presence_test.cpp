// Elements and windows of a simulated desktop that exist only for a span of its clock.
#include <gtest/gtest.h>

#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"

using namespace tavlin;
using tavlin::platform::AXError;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;

TEST(SimPresence, ThingsExistOnlyInTheirSpanAndWaitsJumpToItsEnds) {
  SimPlatform p(SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "apps": [{"pid": 1,
      "ui": {"role": "AXApplication", "attributes": {"AXFocusedWindow": {"ref": "late"}}, "children": [
        {"role": "AXWindow", "title": "Early", "disappearsAt": 2, "children": [
          {"id": "inner", "role": "AXButton", "disappearsAt": 9}]},
        {"id": "late", "role": "AXWindow", "title": "Late", "appearsAt": 1.5}]}}],
      "windows": [{"number": 4, "pid": 1, "bounds": [0, 0, 10, 10], "appearsAt": 1.5}]})"),
                                     "/unused", ""));
  platform::Accessibility& ax = p.accessibility();
  SimDesktop& d = p.desktop();
  platform::Element app = ax.applicationElement(1);
  auto titles = [&] {
    std::vector<std::string> out;
    for (const auto& w : snapshot::axElements(ax, app, "AXWindows")) out.push_back(snapshot::axTitle(ax, w).value_or("?"));
    return out;
  };
  platform::Element early = snapshot::axElements(ax, app, "AXChildren").front();
  platform::Element inner = snapshot::axElements(ax, early, "AXChildren").front();

  EXPECT_EQ(titles(), std::vector<std::string>{"Early"});
  EXPECT_EQ(ax.copyAttributeValue(app, "AXFocusedWindow").error, AXError::noValue);
  EXPECT_TRUE(d.windows().empty());

  // A wait on the clock ends when the late window comes, not at its deadline.
  EXPECT_TRUE(p.clock().waitUntil([&] { return titles().size() == 2; }, 60));
  EXPECT_EQ(d.elapsedMicroseconds(), 1'500'000);
  EXPECT_EQ(ax.copyAttributeValue(app, "AXFocusedWindow").error, AXError::success);
  ASSERT_EQ(d.windows().size(), 1u);

  // Gone: a handle to it, and to what was inside it, fails as for a destroyed element.
  p.clock().sleep(1);
  EXPECT_EQ(titles(), std::vector<std::string>{"Late"});
  EXPECT_EQ(ax.copyAttributeValue(early, "AXRole").error, AXError::invalidUIElement);
  EXPECT_EQ(ax.copyAttributeValue(inner, "AXRole").error, AXError::invalidUIElement);
}
