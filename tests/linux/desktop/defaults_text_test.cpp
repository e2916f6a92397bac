// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file_text.h"

#include <gmock/gmock.h>

#include <cfloat>
#include <limits>
#include <random>

#include "linux/desktop/defaults_file_parser.h"

namespace sentrel {
namespace {

constexpr auto largestInteger = std::numeric_limits<std::int64_t>::max();
constexpr auto smallestInteger = std::numeric_limits<std::int64_t>::min();

std::string keysOf(const ParsedDefaults& parsed) {
  std::string keys;
  for (const auto& [key, stored] : parsed.values) keys += (keys.empty() ? "" : " ") + key;
  return keys;
}

/// A file as the program writes it, with every kind of value.
std::string sampleText() {
  StoredValues values;
  values["battery_threshold"] = storedValue(std::int64_t{10});
  values["calibration_distance_cm"] = storedValue(std::int64_t{65});
  values["haptic_on_alert"] = storedValue(false);
  values["is_calibrated"] = storedValue(true);
  values["matrix_color_argb"] = storedValue(std::int64_t{0xFF112233});
  values["matrix_stripe_alpha"] = storedValue(0.72F);
  values["privacy_matrix_coefficient"] = storedValue(3.0F);
  values["selected_camera_id"] = storedValue(std::string("caméra \"{1}\""));
  return defaultsFileText(values);
}

TEST(DefaultsText, ValuesComeBackExactlyAndOfTheirKind) {
  const DefaultsValue values[] = {
      true,
      false,
      std::int64_t{0},
      std::int64_t{0xFF000000},
      std::int64_t{9007199254740993},  // no double can hold it
      largestInteger,
      smallestInteger,
      3.0F,
      -0.0F,
      0.42F,
      1e20F,
      FLT_MAX,
      std::numeric_limits<float>::denorm_min(),
      std::string(),
      std::string("3.0"),
      std::string("v4l2.\"usb\"\\1\n\t\x01\0\x7F", 17),
      std::string("caméra \xF0\x9F\x93\xB7"),
      std::string("not UTF-8: \xFF\xC0\xAF\xED\xA0\x80 \xE2\x82"),
  };
  for (const DefaultsValue& value : values) {
    const std::string text = defaultsFileText({{"key", storedValue(value)}});
    const ParsedDefaults parsed = parseDefaultsFile(text);
    EXPECT_FALSE(parsed.damaged) << text;
    EXPECT_EQ(parsed.values.at("key").value, value) << text;
    EXPECT_EQ(parsed.values.at("key").text, storedValue(value).text);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
  }
  EXPECT_EQ(storedValue(std::numeric_limits<float>::infinity()).value, std::nullopt);
  EXPECT_EQ(storedValue(std::numeric_limits<float>::quiet_NaN()).text, "null");
}

TEST(DefaultsText, WhatAPersonWritesGetsAKindAndKeepsItsText) {
  const struct {
    std::string text;
    std::optional<DefaultsValue> value;
    std::string kept = {};  // when it differs
  } cases[] = {
      {"5", std::int64_t{5}},
      {"-7", std::int64_t{-7}},
      {"5.0", 5.0F},
      {"5E0", 5.0F},
      {"0.1234567890123456", 0.12345679F},
      {"9223372036854775808", 9223372036854775808.0F},  // one more than an integer holds
      {"1e39", std::nullopt},
      {"-1e999", std::nullopt},
      {"null", std::nullopt},
      {"[ 1, {\"a\" : [ ] }]", std::nullopt, "[1,{\"a\":[]}]"},
      {R"("\u00e9\ud83d\ude00\/\b")", std::string("é\xF0\x9F\x98\x80/\b")},
  };
  for (const auto& [text, value, kept] : cases) {
    const ParsedDefaults parsed = parseDefaultsFile("{\"key\": " + text + "}");
    EXPECT_FALSE(parsed.damaged) << text;
    ASSERT_EQ(keysOf(parsed), "key") << text;
    EXPECT_EQ(parsed.values.at("key").value, value) << text;
    EXPECT_EQ(parsed.values.at("key").text, kept.empty() ? text : kept);
  }
}

TEST(DefaultsText, DamageIsFoundAndWholeEntriesAreKept) {
  const struct {
    std::string text;
    bool damaged;
    std::string keys;
  } cases[] = {
      {"{}", false, ""},
      {"\xEF\xBB\xBF{\r\n\"a\" : 1 ,\r\n \"b\":2}\r\n", false, "a b"},
      {"{\"a\": 1, \"b\": 2, \"a\": 3}", false, "a b"},
      {"", true, ""},
      {std::string(600, '\0'), true, ""},
      {std::string("{\0\"\0a\0\"\0:\0001\0}\0", 14), true, ""},
      {"[1, 2]", true, ""},
      {"{\"a\": 1}\n{\"b\": 2}", true, "a b"},
      {"{\n\"a\": 1\n\"b\": 2\n}", true, "a b"},          // no comma
      {"{\n\"a\": 1, // why\n\"b\": 2\n}", true, "a b"},  // a comment
      {"{\"a\":1,\"b\":2,\"c\":tru", true, "a b"},        // one line, cut off
      {"{\"a\":1,\"b\":2", true, "a"},                    // perhaps once 20
      {"{\n\"a\": 05,\n\"b\": +1,\n\"c\": .5,\n\"d\": NaN,\n\"e\": 0x1,\n\"f\": 1.,\n\"g\": 7\n}", true, "g"},
      {"{\n\"a\": \"\xC3(\",\n\"b\": \"\xFF\",\n\"c\": \"\xE9\"\n,\"d\": 1}", true, "d"},
      {"{\n\"a\": \"\\ud800\",\n\"b\": \"\\x\",\n\"c\": \"\\u12\",\n\"d\": 1}", true, "d"},
      {"{\n\"a\":\n\"b\": 2,\n\"c\": [1,\n\"d\": 4\n}", true, "b d"},
      {"{\n\"a\": " + std::string(200, '[') + std::string(200, ']') + ",\n\"b\": 2\n}", true, "b"},
      {"{\n\"a\": " + std::string(500'000, '[') + "\n,\"b\": 2\n}", true, "b"},
  };
  for (const auto& [text, damaged, keys] : cases) {
    const ParsedDefaults parsed = parseDefaultsFile(text);
    EXPECT_EQ(parsed.damaged, damaged) << text.substr(0, 80);
    EXPECT_EQ(keysOf(parsed), keys) << text.substr(0, 80);
  }
  EXPECT_EQ(parseDefaultsFile("{\"a\": 1, \"a\": 3}").values.at("a").text, "3");
}

TEST(DefaultsText, CutAtAnyByteNoValueChangesAndWholeLinesStay) {
  const std::string text = sampleText();
  const StoredValues whole = parseDefaultsFile(text).values;
  for (std::size_t length = 0; length + 1 < text.size(); ++length) {
    const ParsedDefaults cut = parseDefaultsFile(text.substr(0, length));
    EXPECT_TRUE(cut.damaged) << length;
    for (const auto& [key, stored] : cut.values) EXPECT_EQ(stored.text, whole.at(key).text) << length;
    // The first line is the brace; every further ended line is an entry.
    const auto ended = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length), '\n');
    EXPECT_GE(static_cast<std::ptrdiff_t>(cut.values.size()), ended - 1) << length;
  }
}

TEST(DefaultsText, FlippedBitsHarmOnlyTheirOwnLines) {
  const std::string text = sampleText();
  const StoredValues whole = parseDefaultsFile(text).values;
  std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same damage in every run
  for (int round = 0; round < 20'000; ++round) {
    std::string flipped = text;
    for (int flips = 1 + round % 4; flips > 0; --flips) {
      flipped[random() % flipped.size()] ^= static_cast<char>(1U << (random() % 8U));
    }
    const ParsedDefaults parsed = parseDefaultsFile(flipped);
    // An entry is to be kept when neither its line nor the ends of line around it were touched.
    std::size_t begin = text.find('\n');
    for (const auto& [key, stored] : whole) {
      const std::size_t end = text.find('\n', begin + 1);
      if (flipped.compare(begin, end + 1 - begin, text, begin, end + 1 - begin) == 0) {
        const auto found = parsed.values.find(key);
        const bool kept = found != parsed.values.end() && found->second.text == stored.text;
        EXPECT_TRUE(kept) << key << " is lost in\n" << flipped;
      }
      begin = end;
    }
  }
}

}  // namespace
}  // namespace sentrel
