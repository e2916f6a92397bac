// SPDX-License-Identifier: Apache-2.0
//
// What is kept of the settings and the counters, and what is made of it.
#include <gmock/gmock.h>

#include <limits>

#include "settings/filter_settings.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/fake_desktop.h"

namespace sentrel {
namespace {

FilterSettings unusual() {
  return {1,    5,     500,   15, false, true,    15, false, true, false, 0.5F, 0xFFFFFFFF01020304,
          0.3F, false, false, 42, true,  "node/7"};
}

TEST(KeyedCoding, KeepsEveryFieldInOrderAndFailsOnAMissingOrMistypedKey) {
  const KeyedDocument whole = encode(unusual());
  ASSERT_EQ(whole.size(), 18U);
  EXPECT_EQ(whole[6].first, "batteryThresholdPercent");
  EXPECT_EQ(whole[11].second, KeyedValue(std::uint64_t{0xFFFFFFFF01020304}));
  EXPECT_EQ(decodeFilterSettings(whole), unusual());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    KeyedDocument damaged = whole;
    damaged[i].second = std::holds_alternative<std::int64_t>(whole[i].second) ? KeyedValue(3.0F)
                                                                              : KeyedValue(std::int64_t{3});
    EXPECT_EQ(decodeFilterSettings(damaged), std::nullopt) << whole[i].first;
    damaged = whole;
    damaged.erase(damaged.begin() + static_cast<std::ptrdiff_t>(i));
    // Only the camera may be missing.
    EXPECT_EQ(decodeFilterSettings(damaged).has_value(), i == 17) << whole[i].first;
  }
  KeyedDocument counters = encode(FilterStats{1, -2, 3});
  EXPECT_EQ(decodeFilterStats(counters), (FilterStats{1, -2, 3}));
  counters[2].first = "totalSeconds";
  EXPECT_EQ(decodeFilterStats(counters), std::nullopt);
}

struct SettingsRepositoryTest : testing::Test {
  FilterSettings loaded() const {
    const SettingsRepository fresh(store, loginItem);
    return fresh.settings.get();
  }

  std::shared_ptr<test::MemoryUserDefaults> store = std::make_shared<test::MemoryUserDefaults>();
  std::shared_ptr<test::FakeLoginItem> loginItem = std::make_shared<test::FakeLoginItem>();
};

TEST_F(SettingsRepositoryTest, StoredValuesDecideByTheirKeysReadingStyle) {
  EXPECT_EQ(loaded().matrixStripeAlpha, 0.42F) << "where nothing is stored";
  const auto with = [](auto change) {
    FilterSettings settings = freshSettings();
    change(settings);
    return settings;
  };
  constexpr auto infinity = std::numeric_limits<float>::infinity();
  const struct {
    SettingsKey key;
    DefaultsValue value;
    FilterSettings expected;
  } cases[] = {
      // A zero that means "no value", and zeros that are kept.
      {SettingsKey::filterStrength, std::int64_t{0}, freshSettings()},
      {SettingsKey::calibrationDistanceCm, std::int64_t{0}, freshSettings()},
      {SettingsKey::matrixColorArgb, std::int64_t{0}, freshSettings()},
      {SettingsKey::batteryThreshold, std::int64_t{0}, with([](auto& s) { s.batteryThresholdPercent = 0; })},
      {SettingsKey::hapticOnAlert, false, with([](auto& s) { s.hapticOnAlert = false; })},
      {SettingsKey::privacyMatrixCoefficient, 0.0F, with([](auto& s) { s.privacyMatrixCoefficient = 0; })},
      // Nothing is clamped.
      {SettingsKey::filterStrength, std::int64_t{-9}, with([](auto& s) { s.filterStrength = -9; })},
      {SettingsKey::matrixColorArgb, std::int64_t{-1}, with([](auto& s) { s.matrixColorArgb = ~0ULL; })},
      // Another kind.
      {SettingsKey::filterStrength, 4.0F, freshSettings()},
      {SettingsKey::glassesCompat, std::int64_t{0}, freshSettings()},
      {SettingsKey::selectedCameraID, std::int64_t{1}, freshSettings()},
      {SettingsKey::matrixStripeAlpha, std::int64_t{1}, with([](auto& s) { s.matrixStripeAlpha = 1; })},
      {SettingsKey::matrixStripeAlpha, infinity, freshSettings()},
      {SettingsKey::matrixStripeAlpha, true, freshSettings()},
      // The system tells, not the store.
      {SettingsKey::launchAtLogin, true, freshSettings()},
  };
  for (const auto& [key, value, expected] : cases) {
    store->set(rawValue(key), value);
    EXPECT_EQ(loaded(), expected) << rawValue(key) << ", kind " << value.index();
    store->remove(rawValue(key));
  }
}

TEST_F(SettingsRepositoryTest, LoginItemFollowsAChangeAndReportsItsFailure) {
  SettingsRepository saved(store, loginItem);
  FilterSettings next = freshSettings();
  saved.save(next);
  EXPECT_TRUE(loginItem->requests.empty());
  next.launchAtLogin = true;
  saved.save(next);
  EXPECT_EQ(loginItem->requests, std::vector{true});
  EXPECT_EQ(store->value("launch_at_login"), std::nullopt);
  loginItem->failure = "no room";
  next.launchAtLogin = false;
  testing::internal::CaptureStdout();
  saved.save(next);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMAppService error: no room\n");
  EXPECT_FALSE(saved.settings.get().launchAtLogin);
  saved.load();
  EXPECT_TRUE(saved.settings.get().launchAtLogin) << "the system's truth";
}

TEST_F(SettingsRepositoryTest, OptionsBeginAsIfNobodyHadAskedAndSurviveDamage) {
  SettingsRepository saved(store, loginItem);
  EXPECT_EQ(saved.options.get(), ProtectionOptions{});
  const ProtectionOptions asked{Reaction::notifyOnly, 250, 2000, true, WhenShared::pause, true, true};
  saved.save(asked);
  EXPECT_EQ(SettingsRepository(store, loginItem).options.get(), asked);
  for (const auto& [key, value] : {std::pair{"reaction", DefaultsValue(std::int64_t{3})},
                                   {"when_shared", DefaultsValue(std::string("pause"))},
                                   {"watch_up_to_cm", DefaultsValue(std::int64_t{-1})},
                                   {"alert_after_ms", DefaultsValue(std::int64_t{86'400'000})},
                                   {"only_facing", DefaultsValue(std::int64_t{1})},
                                   {"cover_shortcut_enabled", DefaultsValue(1.0F)},
                                   {"hide_other_notifications", DefaultsValue(1.0F)}})
    store->set(key, value);
  EXPECT_EQ(SettingsRepository(store, loginItem).options.get(), ProtectionOptions{});
}

TEST(StatsRepository, CountersAreStoredWithEveryChangeUnderTheirKeys) {
  const auto store = std::make_shared<test::MemoryUserDefaults>();
  StatsRepository repository(store);
  repository.incrementAlerts();
  repository.incrementAlerts();
  repository.incrementSessions();
  repository.addActiveSeconds(90);
  repository.addActiveSeconds(-30);
  EXPECT_EQ(repository.stats.get(), (FilterStats{2, 1, 60}));
  EXPECT_EQ(store->value("stats_alert_count"), DefaultsValue(std::int64_t{2}));
  EXPECT_EQ(StatsRepository(store).stats.get(), (FilterStats{2, 1, 60}));

  // What an observer publishes meanwhile is what is stored.
  const auto watch = repository.stats.onChange([&](const FilterStats& stats) {
    if (stats.alertCount == 3) repository.reset();
  });
  repository.incrementAlerts();
  EXPECT_EQ(repository.stats.get(), FilterStats{});
  EXPECT_EQ(StatsRepository(store).stats.get(), FilterStats{});

  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  store->set("stats_alert_count", largest);
  store->set("stats_session_count", 3.0F);
  repository.load();
  repository.incrementAlerts();
  EXPECT_EQ(repository.stats.get(), (FilterStats{largest, 0, 0})) << "a full counter stays full";
}

}  // namespace
}  // namespace sentrel
