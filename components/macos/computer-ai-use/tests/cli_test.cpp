#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "cli/arguments.h"
#include "cli/tool_error.h"
#include "cli/usage.h"
#include "test_support.h"

using namespace tavlin::cli;
using tavlin::testing::toolErrorOf;

TEST(ParseArguments, CommandWordAndFlags) {
  struct Case {
    std::vector<std::string> args;
    std::string command;
    Flags flags;
  };
  const std::vector<Case> cases = {
      {{"list-apps"}, "list-apps", {}},
      {{"click", "--x", "-12", "--y", "4"}, "click", {{"--x", "-12"}, {"--y", "4"}}},
      {{"list-apps", "--verbose"}, "list-apps", {{"--verbose", "true"}}},
      {{"c", "--a", "--b", "v"}, "c", {{"--a", "true"}, {"--b", "v"}}},
      {{"c", "--app", "One", "--app", "Two"}, "c", {{"--app", "Two"}}},
      {{"c", "--app=Notes"}, "c", {{"--app=Notes", "true"}}},
      {{"c", "--value", ""}, "c", {{"--value", ""}}},
      {{"--help"}, "--help", {}},
      {{"c", "--element-index", "3", "--element_index", "4"}, "c", {{"--element-index", "3"}, {"--element_index", "4"}}},
  };
  for (const auto& c : cases) {
    ParsedCommand parsed = parseArguments(c.args);
    EXPECT_EQ(parsed.command, c.command);
    EXPECT_EQ(parsed.flags, c.flags) << c.args.size();
  }
}

TEST(ParseArguments, Failures) {
  EXPECT_EQ(toolErrorOf([] { parseArguments({}); }), std::string(usageText));
  EXPECT_EQ(toolErrorOf([] { parseArguments({"get-app-state", "Safari"}); }), "Unexpected argument Safari");
  EXPECT_EQ(toolErrorOf([] { parseArguments({"click", "--x", "1", "-y", "2"}); }), "Unexpected argument -y");
  EXPECT_EQ(toolErrorOf([] { parseArguments({"click", "-x"}); }), "Unexpected argument -x");
}

TEST(FlagReaders, AliasesInListOrderAndEmptyCountsAsMissing) {
  Flags flags{{"--title-contains", ""}, {"--window-title-contains", "Inbox"}, {"--title_contains", "Other"}};
  EXPECT_EQ(flagValue(flags, {"--title-contains", "--title_contains", "--window-title-contains"}), "Other");
  EXPECT_EQ(flagValue(flags, {"--title-contains", "--window-title-contains"}), "Inbox");
  EXPECT_EQ(flagValue(flags, {"--title-contains"}), std::nullopt);
  EXPECT_EQ(stringFlag(flags, {"--format"}, "plugin"), "plugin");
  EXPECT_EQ(requiredFlag(flags, {"--window-title-contains"}), "Inbox");
}

TEST(FlagReaders, MissingFlagMessages) {
  Flags none;
  EXPECT_EQ(toolErrorOf([&] { requiredFlag(none, {"--app"}); }), "Missing required flag --app");
  EXPECT_EQ(toolErrorOf([&] { requiredFlag(none, {"--element-index", "--element_index"}); }),
            "Missing required flag --element-index or --element_index");
  EXPECT_EQ(toolErrorOf([&] { intFlag(none, {"--pages"}, std::nullopt); }), "Missing required flag --pages");
  EXPECT_EQ(intFlag(none, {"--pages"}, 1), 1);
  EXPECT_EQ(toolErrorOf([&] { doubleFlag(none, {"--x"}); }), "Missing required flag --x");
  EXPECT_EQ(toolErrorOf([&] { doubleFlag(Flags{{"--x", ""}}, {"--x"}); }), "Missing required flag --x");
  EXPECT_EQ(uint32Flag(none, {"--window-id", "--window_id"}), std::nullopt);
}

TEST(FlagReaders, Integers) {
  struct Case {
    std::string text;
    std::optional<int64_t> value;
  };
  const std::vector<Case> cases = {
      {"0", 0},
      {"42", 42},
      {"+7", 7},
      {"-12", -12},
      {"-0", 0},
      {"007", 7},
      {"9223372036854775807", std::numeric_limits<int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<int64_t>::min()},
      {"9223372036854775808", std::nullopt},
      {"-9223372036854775809", std::nullopt},
      {"99999999999999999999999", std::nullopt},
      {"", std::nullopt},
      {"+", std::nullopt},
      {"-", std::nullopt},
      {"+-1", std::nullopt},
      {" 1", std::nullopt},
      {"1 ", std::nullopt},
      {"0x10", std::nullopt},
      {"1.0", std::nullopt},
      {"1e3", std::nullopt},
      {"١", std::nullopt},  // Arabic-Indic digit
  };
  for (const auto& c : cases) EXPECT_EQ(parseInt64(c.text), c.value) << c.text;
  EXPECT_EQ(toolErrorOf([] { intFlag(Flags{{"--pages", "two"}}, {"--pages"}, 1); }), "--pages expects an integer");
  EXPECT_EQ(toolErrorOf([] { intFlag(Flags{{"--element_index", "1.5"}}, {"--element-index", "--element_index"}, {}); }),
            "--element-index / --element_index expects an integer");
}

TEST(FlagReaders, UnsignedIntegers) {
  struct Case {
    std::string text;
    std::optional<uint32_t> value;
  };
  const std::vector<Case> cases = {
      {"0", 0u},         {"4294967295", 4294967295u}, {"4294967296", std::nullopt}, {"+5", 5u},
      {"-0", 0u},        {"-00", 0u},                 {"-1", std::nullopt},         {"", std::nullopt},
      {"12a", std::nullopt}, {" 12", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(parseUInt32(c.text), c.value) << c.text;
  EXPECT_EQ(toolErrorOf([] { uint32Flag(Flags{{"--window_id", "4294967296"}}, {"--window-id", "--window_id"}); }),
            "--window-id / --window_id expects an unsigned integer");
  EXPECT_EQ(uint32Flag(Flags{{"--window_id", "77"}}, {"--window-id", "--window_id"}), 77u);
}

TEST(FlagReaders, Doubles) {
  struct Case {
    std::string text;
    std::optional<double> value;
  };
  const std::vector<Case> cases = {
      {"1.5", 1.5},     {"-2", -2.0},   {"+3.25", 3.25},        {"1e3", 1000.0},       {".5", 0.5},
      {"5.", 5.0},      {"0x10", std::nullopt}, {" 5", std::nullopt},   {"5 ", std::nullopt},  {"", std::nullopt},
      {"1,5", std::nullopt}, {"abc", std::nullopt}, {"1.0.0", std::nullopt}, {"inf", std::nullopt},
      {"nan", std::nullopt}, {"-Infinity", std::nullopt}, {".", std::nullopt}, {"1e", std::nullopt},
      {"e5", std::nullopt}, {"-", std::nullopt}, {"0x1p4", std::nullopt}, {"1e-2", 0.01}, {"\t5", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(parseDouble(c.text), c.value) << c.text;
  EXPECT_TRUE(std::isinf(*parseDouble("1e999")));
  EXPECT_EQ(toolErrorOf([] { doubleFlag(Flags{{"--screen_x", "ten"}}, {"--screen-x", "--screen_x"}); }),
            "--screen-x / --screen_x expects a number");
  for (const char* notFinite : {"inf", "-Infinity", "nan", "1e999"}) {
    EXPECT_EQ(toolErrorOf([&] { doubleFlag(Flags{{"--x", notFinite}}, {"--x"}); }), "--x expects a number") << notFinite;
  }
}

TEST(Usage, TwentyFiveLinesWithoutFinalNewline) {
  std::string text(usageText);
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '\n') {
      lines.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  ASSERT_EQ(lines.size(), 25u);
  EXPECT_EQ(lines[0], "computer-ai-use \xE2\x80\x94 Tavlin's macOS computer-ai-use style entrypoint");
  EXPECT_EQ(lines[1], "");
  EXPECT_EQ(lines[2], "computer-ai-use list-apps | list_apps");
  EXPECT_EQ(lines[5].substr(0, 24), "  computer-ai-use click ");
  EXPECT_EQ(lines[15],
            "  computer-ai-use drag --app APP --from-x X | --from_x X --from-y Y | --from_y Y --to-x X | --to_x X "
            "--to-y Y | --to_y Y");
  EXPECT_EQ(lines[16], "");
  EXPECT_EQ(lines[17], "Notes:");
  EXPECT_EQ(lines[24], "  - This is an additive interface; existing Tavlin tools remain unchanged.");
  for (size_t i = 2; i < 16; ++i) EXPECT_EQ(lines[i].starts_with("  "), i >= 5) << i;
}
