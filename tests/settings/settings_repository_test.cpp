// SPDX-License-Identifier: Apache-2.0
#include "settings/settings_repository.h"

#include <gmock/gmock.h>

#include <limits>

#include "settings/settings_key.h"
#include "support/fake_login_item.h"

namespace sentrel {
namespace {

class SettingsRepositoryTest : public testing::Test {
 protected:
  [[nodiscard]] SettingsRepository repository() const { return SettingsRepository(store, loginItem); }

  FilterSettings loaded() const {
    const SettingsRepository fresh(store, loginItem);
    return fresh.settings.get();
  }

  std::shared_ptr<MemoryUserDefaults> store = std::make_shared<MemoryUserDefaults>();
  std::shared_ptr<test::FakeLoginItem> loginItem = std::make_shared<test::FakeLoginItem>();
};

FilterSettings fresh() {
  FilterSettings settings;
  settings.matrixStripeAlpha = 0.42F;
  return settings;
}

TEST_F(SettingsRepositoryTest, StoredValuesDecideByTheirKeysReadingStyle) {
  const auto with = [](auto change) {
    FilterSettings settings = fresh();
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
      {SettingsKey::filterStrength, std::int64_t{0}, fresh()},
      {SettingsKey::calibrationDistanceCm, std::int64_t{0}, fresh()},
      {SettingsKey::matrixColorArgb, std::int64_t{0}, fresh()},
      {SettingsKey::batteryThreshold, std::int64_t{0}, with([](auto& s) { s.batteryThresholdPercent = 0; })},
      {SettingsKey::hapticOnAlert, false, with([](auto& s) { s.hapticOnAlert = false; })},
      {SettingsKey::privacyMatrixCoefficient, 0.0F, with([](auto& s) { s.privacyMatrixCoefficient = 0; })},
      // Nothing is clamped.
      {SettingsKey::filterStrength, std::int64_t{-9}, with([](auto& s) { s.filterStrength = -9; })},
      {SettingsKey::matrixColorArgb, std::int64_t{-1}, with([](auto& s) { s.matrixColorArgb = ~0ULL; })},
      // Another kind.
      {SettingsKey::filterStrength, 4.0F, fresh()},
      {SettingsKey::batteryThreshold, std::string("5"), fresh()},
      {SettingsKey::glassesCompat, std::int64_t{0}, fresh()},
      {SettingsKey::isCalibrated, std::int64_t{1}, fresh()},
      {SettingsKey::selectedCameraID, std::int64_t{1}, fresh()},
      {SettingsKey::matrixStripeAlpha, std::int64_t{1}, with([](auto& s) { s.matrixStripeAlpha = 1; })},
      {SettingsKey::matrixStripeAlpha, infinity, fresh()},
      {SettingsKey::matrixStripeAlpha, true, fresh()},
      // The system tells, not the store.
      {SettingsKey::launchAtLogin, true, fresh()},
  };
  for (const auto& [key, value, expected] : cases) {
    store->set(rawValue(key), value);
    EXPECT_EQ(loaded(), expected) << rawValue(key) << ", kind " << value.index();
    store->remove(rawValue(key));
  }
}

TEST_F(SettingsRepositoryTest, LoginItemFollowsAChangeAndReportsItsFailure) {
  auto saved = repository();
  FilterSettings next = fresh();
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

}  // namespace
}  // namespace sentrel
