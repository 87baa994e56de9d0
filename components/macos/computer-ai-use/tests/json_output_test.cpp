#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "cli/json_output.h"

using namespace tavlin::cli;

TEST(JsonOutput, PrettyLayoutMatchesFoundation) {
  Json doc = {{"a", Json::array()}, {"b", Json::object()}, {"c", {1, "x", true, nullptr}}, {"d", {{"e", false}}}};
  const std::string expected =
      "{\n"
      "  \"a\" : [\n"
      "\n"
      "  ],\n"
      "  \"b\" : {\n"
      "\n"
      "  },\n"
      "  \"c\" : [\n"
      "    1,\n"
      "    \"x\",\n"
      "    true,\n"
      "    null\n"
      "  ],\n"
      "  \"d\" : {\n"
      "    \"e\" : false\n"
      "  }\n"
      "}";
  for (auto flavor : {JsonFlavor::encoder, JsonFlavor::serialization}) EXPECT_EQ(formatJSON(doc, flavor), expected);
  EXPECT_EQ(formatJSON(Json::array(), JsonFlavor::encoder), "[\n\n]");
  EXPECT_EQ(formatJSON(Json::object(), JsonFlavor::serialization), "{\n\n}");
  EXPECT_EQ(formatJSON(Json::array({Json::array()}), JsonFlavor::serialization), "[\n  [\n\n  ]\n]");
}

TEST(JsonOutput, NumbersPerFlavor) {
  struct Case {
    double value;
    const char* encoder;
    const char* serialization;
  };
  const Case cases[] = {
      {12.0, "12", "12"},
      {0.1, "0.1", "0.10000000000000001"},
      {129.9, "129.9", "129.90000000000001"},
      {1e21, "1e+21", "1e+21"},
      {1e16, "1e+16", "10000000000000000"},
      {1e-7, "1e-07", "9.9999999999999995e-08"},
      {-0.0, "-0", "-0"},
      {static_cast<double>(0.45f), "0.44999998807907104", "0.44999998807907104"},
      {0.0001, "0.0001", "0.0001"},
      {0.00001, "1e-05", "1.0000000000000001e-05"},
      {9007199254740992.0, "9007199254740992", "9007199254740992"},
      {9007199254740994.0, "9.007199254740994e+15", "9007199254740994"},
      {-1.5, "-1.5", "-1.5"},
      {123456.75, "123456.75", "123456.75"},
      {1e100, "1e+100", "1e+100"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(formatJSON(Json(c.value), JsonFlavor::encoder), c.encoder) << c.value;
    EXPECT_EQ(formatJSON(Json(c.value), JsonFlavor::serialization), c.serialization) << c.value;
  }
  EXPECT_EQ(formatJSON(Json(int64_t{-7}), JsonFlavor::encoder), "-7");
  EXPECT_EQ(formatJSON(Json(uint64_t{4294967295u}), JsonFlavor::serialization), "4294967295");
  EXPECT_THROW(formatJSON(Json(std::nan("")), JsonFlavor::encoder), std::runtime_error);
  EXPECT_THROW(formatJSON(Json(std::numeric_limits<double>::infinity()), JsonFlavor::serialization),
               std::runtime_error);
}

TEST(JsonOutput, StringEscapes) {
  std::string text = "a\"b\\c/d\b\f\n\r\t\x01\x1f\x7f caf\xC3\xA9 \xE2\x80\xA8";
  EXPECT_EQ(formatJSON(Json(text), JsonFlavor::encoder),
            "\"a\\\"b\\\\c/d\\b\\f\\n\\r\\t\\u0001\\u001f\x7f caf\xC3\xA9 \xE2\x80\xA8\"");
  EXPECT_EQ(formatJSON(Json(text), JsonFlavor::serialization),
            "\"a\\\"b\\\\c\\/d\\b\\f\\n\\r\\t\\u0001\\u001f\x7f caf\xC3\xA9 \xE2\x80\xA8\"");
  // Keys are escaped like values.
  EXPECT_EQ(formatJSON(Json{{"a/b", 1}}, JsonFlavor::serialization), "{\n  \"a\\/b\" : 1\n}");
}

TEST(JsonOutput, KeyOrderIsFoundationsNotBytes) {
  std::vector<std::string> keys = {"foo12", "Foo11", "foo3", "Foo2", "foo1", "f\xC3\xB8o", "FOO", "Foo", "foo", "bar"};
  std::sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return foundationKeyLess(a, b); });
  EXPECT_EQ(keys, (std::vector<std::string>{"bar", "foo", "Foo", "FOO", "f\xC3\xB8o", "foo1", "Foo2", "foo3", "Foo11",
                                            "foo12"}));

  Json app = {{"pid", 1},           {"app", "A"},           {"name", "A"},
              {"bundleIdentifier", "b"}, {"bundle_identifier", "b"}, {"isActive", true},
              {"is_active", true},  {"isHidden", false},    {"is_hidden", false},
              {"activationPolicy", 0}, {"activation_policy", 0}};
  EXPECT_EQ(formatJSON(app, JsonFlavor::serialization),
            "{\n"
            "  \"activation_policy\" : 0,\n"
            "  \"activationPolicy\" : 0,\n"
            "  \"app\" : \"A\",\n"
            "  \"bundle_identifier\" : \"b\",\n"
            "  \"bundleIdentifier\" : \"b\",\n"
            "  \"is_active\" : true,\n"
            "  \"is_hidden\" : false,\n"
            "  \"isActive\" : true,\n"
            "  \"isHidden\" : false,\n"
            "  \"name\" : \"A\",\n"
            "  \"pid\" : 1\n"
            "}");
  // Sorting applies at every level.
  Json nested = {{"z", {{"screen_point", 1}, {"screenPoint", 2}, {"a", 3}}}, {"cachePath", "/x"}, {"app", "A"}};
  EXPECT_EQ(formatJSON(nested, JsonFlavor::encoder),
            "{\n  \"app\" : \"A\",\n  \"cachePath\" : \"/x\",\n  \"z\" : {\n    \"a\" : 3,\n"
            "    \"screen_point\" : 1,\n    \"screenPoint\" : 2\n  }\n}");
}

TEST(JsonOutput, Dates) {
  using namespace std::chrono;
  auto t = sys_days(year(2024) / 5 / 6) + hours(7) + minutes(8) + seconds(9) + milliseconds(999);
  EXPECT_EQ(iso8601(t), "2024-05-06T07:08:09Z");
  EXPECT_EQ(parseISO8601("2024-05-06T07:08:09Z"), sys_days(year(2024) / 5 / 6) + hours(7) + minutes(8) + seconds(9));
  for (const char* bad : {"2024-05-06T07:08:09", "2024-05-06 07:08:09Z", "2024-13-06T07:08:09Z",
                          "2024-02-30T07:08:09Z", "2024-05-06T07:08:09.5Z", "",
                          // Beyond the clock's 64-bit nanoseconds (found by fuzzing the cache).
                          "1012-05-06T07:08:09Z", "2263-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    EXPECT_EQ(parseISO8601(bad), std::nullopt) << bad;
  }
}
