// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_settings_coding.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

FilterSettings unusual() {
  return {1,    5,     500,   15, false, true,    15, false, true, false, 0.5F, 0xFFFFFFFF01020304,
          0.3F, false, false, 42, true,  "node/7"};
}

TEST(FilterSettingsCoding, RoundTripsEveryFieldInOrder) {
  const KeyedDocument document = encode(unusual());
  ASSERT_EQ(document.entries().size(), 18U);
  EXPECT_EQ(document.entries()[6].first, "batteryThresholdPercent");
  EXPECT_EQ(document.entries()[11].second, KeyedDocument::Value(std::uint64_t{0xFFFFFFFF01020304}));
  const auto decoded = decodeFilterSettings(document);
  ASSERT_TRUE(std::holds_alternative<FilterSettings>(decoded));
  EXPECT_EQ(std::get<FilterSettings>(decoded), unusual());
}

TEST(FilterSettingsCoding, FailsOnTheFirstMissingOrMistypedKey) {
  const KeyedDocument whole = encode(unusual());
  for (const auto& [key, value] : whole.entries()) {
    KeyedDocument without = whole;
    without.remove(key);
    if (key != "selectedCameraID") {
      EXPECT_EQ(std::get<DecodingError>(decodeFilterSettings(without)),
                (DecodingError{DecodingError::Kind::missing, key}));
    }
    KeyedDocument mistyped = whole;
    mistyped.set(key, std::holds_alternative<std::int64_t>(value) ? KeyedDocument::Value(3.0F)
                                                                  : KeyedDocument::Value(std::int64_t{3}));
    mistyped.remove("isCalibrated");  // a later fault, except where it is the key itself
    EXPECT_EQ(std::get<DecodingError>(decodeFilterSettings(mistyped)).key,
              key == "selectedCameraID" ? "isCalibrated" : key);
  }
  KeyedDocument numberedCamera = whole;
  numberedCamera.set("selectedCameraID", std::int64_t{7});
  EXPECT_EQ(std::get<DecodingError>(decodeFilterSettings(numberedCamera)),
            (DecodingError{DecodingError::Kind::mistyped, "selectedCameraID"}));
}

}  // namespace
}  // namespace sentrel
