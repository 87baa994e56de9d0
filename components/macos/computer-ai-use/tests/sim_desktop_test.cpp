#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using namespace tavlin::platform;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;
using tavlin::testing::TempDir;
using nlohmann::ordered_json;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

std::string loadError(const std::string& text) {
  TempDir tmp;
  tavlin::testing::writeText(tmp.file("d.json"), text);
  try {
    SimDesktop::load(tmp.file("d.json"), "");
  } catch (const sim::DesktopError& e) {
    std::string message = e.what();
    std::string prefix = "Simulated desktop " + tmp.file("d.json") + ": ";
    return message.starts_with(prefix) ? message.substr(prefix.size()) : message;
  }
  return "<loaded>";
}

SimPlatform platformFor(const std::string& json) {
  return SimPlatform(SimDesktop::fromJson(ordered_json::parse(json), "/unused", ""));
}

}  // namespace

TEST(SimDesktopFile, MalformedFilesGiveOneClearError) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "not valid JSON (line 1, column 1)"},
      {"{\"tavlinDesktop\": 1,", "not valid JSON (line 1, column 21)"},
      {"{\n  \"tavlinDesktop\": 1\n  \"apps\": []}", "not valid JSON (line 3, column 8)"},
      {"[]", "expected an object"},
      {"{}", "missing \"tavlinDesktop\": 1 (the format version)"},
      {R"({"tavlinDesktop": 2})", "tavlinDesktop: unsupported format version (this build reads version 1)"},
      {R"({"tavlinDesktop": 1, "aps": []})", "unknown key \"aps\""},
      {R"({"tavlinDesktop": 1, "apps": {}})", "apps: expected an array"},
      {R"({"tavlinDesktop": 1, "apps": [{"name": "A"}]})", "apps[0]: missing \"pid\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": "1"}]})", "apps[0].pid: expected an integer"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 4294967296}]})",
       "apps[0].pid: expected an integer from -2147483648 to 2147483647"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1}, {"pid": 1}]})",
       "apps[1].pid: another application already has pid 1"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "activationPolicy": "agent"}]})",
       "apps[0].activationPolicy: expected \"regular\", \"accessory\" or \"prohibited\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"role": "AXApplication", "children": [{"titel": "x"}]}}]})",
       "apps[0].ui.children[0]: unknown key \"titel\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"id": "a", "children": [{"id": "a"}]}}]})",
       "apps[0].ui.children[0].id: another element already has id \"a\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"attributes": {"AXFocusedWindow": {"ref": "w"}}}}]})",
       "apps[0].ui.attributes.AXFocusedWindow.ref: no element has id \"w\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"value": {"color": 1}}}]})",
       "apps[0].ui.value: unknown value kind \"color\" (expected point, size, rect, url, ref, float32 or other)"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"value": {"float32": 1e39}}}]})",
       "apps[0].ui.value.float32: out of the range of a 32-bit float"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"value": {"float32": "0.5"}}}]})",
       "apps[0].ui.value.float32: expected a number"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"value": {}}}]})",
       "apps[0].ui.value: expected a text, number, boolean, array or {\"point\"|\"size\"|\"rect\"|\"url\"|\"ref\"|"
       "\"float32\"|\"other\": ...}"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"position": [1]}}]})",
       "apps[0].ui.position: expected [x, y]"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"errors": {"AXTitle": "timeout"}}}]})",
       "apps[0].ui.errors.AXTitle: unknown AXError name \"timeout\""},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"hash": -3}}]})",
       "apps[0].ui.hash: expected a non-negative integer"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"title": "a", "attributes": {"AXTitle": "b"}}}]})",
       "apps[0].ui.attributes.AXTitle: given twice (also by its shortcut key)"},
      {R"({"tavlinDesktop": 1, "frontmostPid": 7})", "frontmostPid: no application has pid 7"},
      {R"({"tavlinDesktop": 1, "clock": {"start": "yesterday"}})",
       "clock.start: expected a UTC time like \"2026-01-01T09:30:00Z\""},
      {R"({"tavlinDesktop": 1, "clock": {"elapsed": -1}})", "clock.elapsed: expected seconds from 0 to 1000000000"},
      {R"({"tavlinDesktop": 1, "screen": {"backingScale": 0}})", "screen.backingScale: expected a positive number"},
      {R"({"tavlinDesktop": 1, "windows": [{"number": 1, "pid": 1}]})", "windows[0]: missing \"bounds\""},
      {R"({"tavlinDesktop": 1, "windows": [{"number": 0, "pid": 1, "bounds": [0,0,1,1]}]})",
       "windows[0].number: expected an integer from 1 to 4294967295"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"appearsAt": 2, "disappearsAt": 2}}]})",
       "apps[0].ui.disappearsAt: must be later than appearsAt"},
      {R"({"tavlinDesktop": 1, "windows": [{"number": 1, "pid": 1, "bounds": [0,0,1,1], "appearsAt": -1}]})",
       "windows[0].appearsAt: expected seconds from 0 to 2000000000"},
  };
  for (const auto& [text, message] : cases) EXPECT_EQ(loadError(text), message) << text;
}

TEST(SimDesktopFile, MissingFileNamesTheFile) {
  try {
    SimDesktop::load("/no/such/desktop.json", "");
    FAIL();
  } catch (const sim::DesktopError& e) {
    EXPECT_STREQ(e.what(), "Simulated desktop /no/such/desktop.json: cannot read the file (No such file or directory)");
  }
}

TEST(SimDesktopFile, ExampleDesktopLoads) {
  SimDesktop d = SimDesktop::load(exampleDesktop, "");
  ASSERT_EQ(d.apps().size(), 3u);
  EXPECT_EQ(d.apps()[0].info.localizedName, "Scribe");
  EXPECT_EQ(d.apps()[2].info.activationPolicy, ActivationPolicy::accessory);
  EXPECT_EQ(d.frontmostPid(), 4242);
  EXPECT_GE(d.elements().size(), 30u);
  EXPECT_EQ(d.windows().size(), 3u);
  EXPECT_EQ(d.windows()[1].ownerName, "Scribe");  // defaulted from the owner
  EXPECT_EQ(d.windows()[0].ownerName, "Window Server");
}

TEST(SimAccessibility, TypedReadsReferencesAndFaults) {
  SimPlatform p = platformFor(R"({
    "tavlinDesktop": 1,
    "apps": [{"pid": 7, "ui": {
      "role": "AXApplication",
      "attributes": {"AXFocusedWindow": {"ref": "w"}, "AXExtras": [1, 2.5, true, {"url": "file:///a"}, {"other": "CFData"}]},
      "children": [
        {"id": "w", "role": "AXWindow", "title": "Doc", "position": [1, 2], "size": [3, 4], "hash": 99,
         "value": null,
         "errors": {"AXDescription": "cannotComplete", "AXHelp": -25212},
         "actions": ["AXRaise"], "settable": ["AXValue"],
         "children": [{"id": "c", "role": "AXButton", "value": 1}]},
        {"role": "AXMenuBar"}
      ]}}]})");
  Accessibility& ax = p.accessibility();
  Element app = ax.applicationElement(7);

  AXCopyResult windows = ax.copyAttributeValue(app, "AXWindows");
  ASSERT_EQ(windows.error, AXError::success);
  ASSERT_EQ(windows.value->array()->size(), 1u);  // derived: only the AXWindow child
  Element window = *windows.value->array()->at(0).element();
  EXPECT_EQ(ax.hash(window), 99u);
  EXPECT_EQ(ax.hash(*ax.copyAttributeValue(app, "AXFocusedWindow").value->element()), 99u);

  EXPECT_EQ(*ax.copyAttributeValue(window, "AXTitle").value->text(), "Doc");
  EXPECT_EQ(*ax.copyAttributeValue(window, "AXPosition").value->point(), (Point{1, 2}));
  EXPECT_EQ(*ax.copyAttributeValue(window, "AXSize").value->size(), (Size{3, 4}));
  EXPECT_EQ(ax.copyAttributeValue(window, "AXDescription").error, AXError::cannotComplete);
  EXPECT_EQ(ax.copyAttributeValue(window, "AXHelp").error, AXError::noValue);
  // Supported without a value (null in the file) and not supported at all differ.
  EXPECT_EQ(ax.copyAttributeValue(window, "AXValue").error, AXError::noValue);
  EXPECT_EQ(ax.copyAttributeValue(window, "AXSubrole").error, AXError::attributeUnsupported);
  EXPECT_EQ(ax.hash(*ax.copyAttributeValue(window, "AXParent").value->element()), ax.hash(app));

  Element button = *ax.copyAttributeValue(window, "AXChildren").value->array()->at(0).element();
  AXCopyResult value = ax.copyAttributeValue(button, "AXValue");
  ASSERT_NE(value.value->number(), nullptr);
  EXPECT_EQ(value.value->number()->stringValue(), "1");

  AXCopyResult extrasResult = ax.copyAttributeValue(app, "AXExtras");
  const AXArray& extras = *extrasResult.value->array();
  ASSERT_EQ(extras.size(), 5u);
  EXPECT_EQ(extras[0].number()->kind, AXNumber::Kind::integer);
  EXPECT_EQ(extras[1].number()->stringValue(), "2.5");
  EXPECT_EQ(extras[2].number()->kind, AXNumber::Kind::boolean);
  EXPECT_EQ(extras[3].url()->absoluteString, "file:///a");
  EXPECT_NE(std::get_if<AXOther>(&extras[4].storage), nullptr);

  bool settable = false;
  EXPECT_EQ(ax.isAttributeSettable(window, "AXValue", settable), AXError::success);
  EXPECT_TRUE(settable);
  EXPECT_EQ(ax.isAttributeSettable(button, "AXValue", settable), AXError::success);
  EXPECT_FALSE(settable);
  EXPECT_EQ(ax.copyActionNames(window).value->array()->size(), 1u);

  // An application without a tree gives a handle whose reads fail.
  EXPECT_EQ(ax.copyAttributeValue(ax.applicationElement(12345), "AXRole").error, AXError::invalidUIElement);
}

TEST(SimAccessibility, CountsOneRoundTripPerCall) {
  SimPlatform p = platformFor(R"({"tavlinDesktop": 1, "apps": [{"pid": 7, "ui": {"role": "AXApplication", "title": "A"}}]})");
  Accessibility& ax = p.accessibility();
  Element app = ax.applicationElement(7);
  std::vector<AXCopyResult> results;
  EXPECT_EQ(ax.copyMultipleAttributeValues(app, {"AXRole", "AXTitle", "AXNothing"}, results), AXError::success);
  ASSERT_EQ(results.size(), 3u);
  EXPECT_EQ(*results[1].value->text(), "A");
  EXPECT_EQ(results[2].error, AXError::attributeUnsupported);
  ax.copyAttributeValue(app, "AXRole");
  ax.copyActionNames(app);
  ax.hash(app);  // local, not a round trip
  EXPECT_EQ(p.desktop().roundTripsThisProcess(), 3u);
}

TEST(SimDesktopState, ClockLogAndWriteBackAcrossProcesses) {
  TempDir tmp;
  std::string path = tmp.file("d.json");
  std::string log = tmp.file("events.log");
  tavlin::testing::writeText(path, R"({"tavlinDesktop": 1, "clock": {"start": "2026-03-02T09:30:00Z"},
    "apps": [{"pid": 7, "name": "A", "hidden": true, "ui": {"role": "AXApplication"}}]})");
  {
    SimPlatform p(sim::SimSettings{path, log, "/home/u", "/x/Tavlin"});
    p.clock().sleep(0.03);
    p.events().postToPid(7, *p.events().createKeyboardEvent(21, true));
    p.clock().runLoop(0.05);
    EXPECT_TRUE(p.workspace().unhide(7));
    EXPECT_TRUE(p.workspace().activate(7, activation::allWindows));
    p.accessibility().copyAttributeValue(p.accessibility().applicationElement(7), "AXRole");
    EXPECT_EQ(p.clock().now(), p.desktop().clockStart() + std::chrono::milliseconds(80));
    p.commit();
  }
  EXPECT_EQ(tavlin::testing::readText(log),
            "0.030 pid:7 key-down keyCode=21\n"
            "0.080 pid:7 unhide\n"
            "0.080 pid:7 activate options=0x1\n");
  {
    SimDesktop again = SimDesktop::load(path, log);  // holds the desktop's lock until the block ends
    EXPECT_EQ(again.elapsedMicroseconds(), 80000);
    EXPECT_EQ(again.roundTripsTotal(), 1u);
    EXPECT_EQ(again.frontmostPid(), 7);
    EXPECT_FALSE(again.apps()[0].info.hidden);
    again.advance(1.5);
    again.log("hid", "left-mouse-down", {{"x", "1"}});
    again.commit();
  }
  EXPECT_EQ(SimDesktop::load(path, log).elapsedMicroseconds(), 1580000);
  EXPECT_TRUE(tavlin::testing::readText(log).ends_with("0.080 pid:7 activate options=0x1\n1.580 hid left-mouse-down x=1\n"));
}

TEST(SimDesktopState, WaitsJumpToTheNextDueEventOrTheDeadline) {
  SimPlatform p = platformFor(R"({"tavlinDesktop": 1, "apps": []})");
  SimDesktop& d = p.desktop();
  bool answered = false;
  d.schedule(5, [&] { answered = true; });
  auto realStart = std::chrono::steady_clock::now();
  // A late answer ends the wait at its own time, not at the next step after it.
  EXPECT_TRUE(p.clock().waitUntil([&] { return answered; }, 1e6));
  EXPECT_EQ(d.elapsedMicroseconds(), 5'000'000);
  // Long waits that nothing ends reach their deadline without walking the time between.
  EXPECT_FALSE(p.clock().waitUntil([] { return false; }, 123456789));
  EXPECT_EQ(d.elapsedMicroseconds(), 123'456'794'000'000);
  p.clock().sleep(1e8);
  EXPECT_EQ(d.elapsedMicroseconds(), 223'456'794'000'000);
  EXPECT_LT(std::chrono::steady_clock::now() - realStart, std::chrono::seconds(3));
}

TEST(SimDesktopState, AWaitEndedFromOutsideReturnsAtOnce) {
  SimPlatform p = platformFor(R"({"tavlinDesktop": 1, "apps": []})");
  std::atomic<bool> stop = false;
  std::thread signaller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    stop = true;
  });
  EXPECT_TRUE(p.clock().waitUntil([&] { return stop.load(); }, 10));
  signaller.join();
  EXPECT_EQ(p.desktop().elapsedMicroseconds(), 0);
}

TEST(SimDesktopState, TheClockStopsWhereTheFileCanStillBeRead) {
  TempDir tmp;
  std::string path = tmp.file("d.json");
  tavlin::testing::writeText(path, R"({"tavlinDesktop": 1, "clock": {"elapsed": 999999990}, "apps": []})");
  struct Case {
    const char* what;
    std::function<void(SimPlatform&)> wait;
  };
  const Case cases[] = {
      {"sleep past the end", [](SimPlatform& p) { p.clock().sleep(20); }},
      {"run loop past the end", [](SimPlatform& p) { p.clock().runLoop(50); }},
      {"wait past the end", [](SimPlatform& p) { p.clock().waitUntil([] { return false; }, 100); }},
      {"wait that overflows", [](SimPlatform& p) { p.clock().waitUntil([] { return false; }, 9.3e12); }},
      {"sleep that overflows", [](SimPlatform& p) { p.clock().sleep(1e300); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    SimPlatform p(sim::SimSettings{path, tmp.file("log"), "/home/u", "/x/Tavlin"});
    try {
      c.wait(p);
      ADD_FAILURE() << "no error";
    } catch (const sim::DesktopError& e) {
      EXPECT_EQ(std::string(e.what()),
                "Simulated desktop " + path + ": the virtual clock cannot run past 1000000000 seconds (clock.elapsed)");
    }
    p.clock().sleep(1);  // short of the end is fine
    p.commit();
  }
  EXPECT_EQ(SimDesktop::load(path, "").elapsedMicroseconds(), 999'999'995'000'000);
}

TEST(SimDesktopState, ALinkedDesktopFileStaysALink) {
  TempDir tmp;
  std::string real = tmp.file("real.json"), link = tmp.file("link.json");
  tavlin::testing::writeText(real, R"({"tavlinDesktop": 1, "apps": []})");
  ASSERT_EQ(::symlink("real.json", link.c_str()), 0);
  {
    SimPlatform p(sim::SimSettings{link, tmp.file("log"), "/home/u", "/x/Tavlin"});
    p.clock().sleep(2);
    p.commit();
  }
  struct stat st;
  ASSERT_EQ(::lstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(SimDesktop::load(real, "").elapsedMicroseconds(), 2'000'000);
}

TEST(SimDesktopState, AnApplicationLaunchedLateIsSeenOnceTheRunLoopTurns) {
  SimPlatform p = platformFor(R"({"tavlinDesktop": 1, "frontmostPid": 8, "apps": [
    {"pid": 7, "name": "Early"}, {"pid": 8, "name": "Late", "listedAfterRunLoopTurns": true}]})");
  EXPECT_FALSE(p.runLoopTurned());
  // The workspace turns the run loop before it reads, as the macOS adapter does.
  ASSERT_TRUE(p.workspace().frontmostApplication());
  EXPECT_EQ(p.workspace().frontmostApplication()->localizedName, "Late");
  std::vector<std::string> names;
  for (const auto& app : p.workspace().runningApplications()) names.push_back(app.localizedName.value_or(""));
  EXPECT_EQ(names, (std::vector<std::string>{"Early", "Late"}));
}

TEST(SimDesktopState, EventLineFormat) {
  using sim::formatEventLine;
  EXPECT_EQ(formatEventLine(0, "hid", "key-down", {{"keyCode", "21"}, {"flags", "0x120000"}}),
            "0.000 hid key-down keyCode=21 flags=0x120000");
  EXPECT_EQ(formatEventLine(1999600, "pid:7", "key-down", {{"text", "a b"}, {"empty", ""}, {"q", "x=\"y\"\n"}}),
            "2.000 pid:7 key-down text=\"a b\" empty=\"\" q=\"x=\\\"y\\\"\\n\"");
  EXPECT_EQ(formatEventLine(123456789, "pid:7", "set-value", {{"value", "caf\xC3\xA9"}}),
            "123.457 pid:7 set-value value=caf\xC3\xA9");
}

TEST(SimDesktopState, NoDesktopIsAClearErrorOnlyWhenOneIsNeeded) {
  SimPlatform p(sim::SimSettings{std::nullopt, std::nullopt, "/home/u", "/opt/x/Tavlin.app/Contents/MacOS/Tavlin"});
  EXPECT_EQ(p.workspace().homeDirectory(), "/home/u");
  EXPECT_EQ(p.workspace().userCachesDirectory(), "/home/u/Library/Caches");
  EXPECT_EQ(p.workspace().mainBundlePath(), "/opt/x/Tavlin.app");
  EXPECT_THROW(p.workspace().runningApplications(), sim::DesktopError);
  p.commit();  // nothing loaded, nothing written
}

TEST(AXNumberText, PrintsAsTheKindItCameAs) {
  struct Case {
    AXNumber number;
    const char* text;
  } cases[] = {
      {AXNumber::ofInteger(-12), "-12"},
      {AXNumber::ofBoolean(true), "1"},
      {AXNumber::ofReal(0.1), "0.1"},
      {AXNumber::ofReal32(0.7f), "0.7"},
      // The same 32-bit value widened to a double shows its binary expansion.
      {AXNumber::ofReal(static_cast<double>(0.7f)), "0.699999988079071"},
      {AXNumber::ofReal32(16777217.0f), "1.677722e+07"},
      {AXNumber::ofReal32(1e-8f), "1e-08"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.number.stringValue(), c.text);
}

TEST(SimURL, FileURLsCarryTheirPathAsThePlatformReadsIt) {
  struct Case {
    const char* url;
    std::optional<std::string> path;
  } cases[] = {
      {"file:///Users/me/My%20Docs/", "/Users/me/My Docs"},
      {"file://localhost/tmp/a.txt", "/tmp/a.txt"},
      {"file:///", "/"},
      {"file:///caf%C3%A9?x#y", "/caf\xC3\xA9"},
      {"file:///bad%FF", "/bad\xEF\xBF\xBD"},
      {"https://example.com/a%20b", std::nullopt},
      {"file://server/share", std::nullopt},
  };
  for (const Case& c : cases) {
    tavlin::platform::AXURL url = tavlin::sim::simURL(c.url);
    EXPECT_EQ(url.absoluteString, c.url);
    EXPECT_EQ(url.fileSystemPath, c.path) << c.url;
  }
}
