// SPDX-License-Identifier: Apache-2.0
#include "settings/settings_repository.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "platform/platform.h"
#include "settings/settings_key.h"

namespace sentrel {

namespace {

// A fresh installation starts with fainter stripes than the record's initial value.
constexpr float freshStripeAlpha = 0.42F;

class Reader {
 public:
  explicit Reader(const UserDefaults& defaults) : defaults_(defaults) {}

  /// A stored 0 means the same as no value: these options have no meaningful zero.
  [[nodiscard]] std::int64_t nonZeroInteger(SettingsKey key, std::int64_t fallback) const {
    const std::int64_t stored = object<std::int64_t>(key).value_or(0);
    return stored == 0 ? fallback : stored;
  }

  /// A stored false or 0 is kept.
  template <class T>
  [[nodiscard]] std::optional<T> object(SettingsKey key) const {
    const auto value = defaults_.value(rawValue(key));
    if (!value) return std::nullopt;
    const T* typed = std::get_if<T>(&*value);
    return typed == nullptr ? std::nullopt : std::optional(*typed);
  }

  [[nodiscard]] float floatObject(SettingsKey key, float fallback) const {
    if (const auto stored = object<float>(key)) return std::isfinite(*stored) ? *stored : fallback;
    if (const auto whole = object<std::int64_t>(key)) return static_cast<float>(*whole);
    return fallback;
  }

 private:
  const UserDefaults& defaults_;
};

}  // namespace

SettingsRepository::SettingsRepository(std::shared_ptr<UserDefaults> userDefaults,
                                       std::shared_ptr<LoginItem> loginItem)
    : defaults(std::move(userDefaults)), loginItem_(std::move(loginItem)) {
  load();
}

const std::shared_ptr<SettingsRepository>& SettingsRepository::shared() {
  static const auto instance =
      std::make_shared<SettingsRepository>(Platform::current().userDefaults, Platform::current().loginItem);
  return instance;
}

void SettingsRepository::load() {
  const Reader stored(*defaults);
  using Key = SettingsKey;
  settings = FilterSettings{
      .filterStrength = stored.nonZeroInteger(Key::filterStrength, 3),
      .sensitivity = stored.nonZeroInteger(Key::sensitivity, 3),
      .inattentionDelayMs = stored.nonZeroInteger(Key::inattentionDelayMs, 1500),
      .captureFps = stored.nonZeroInteger(Key::captureFps, 10),
      .hapticOnAlert = stored.object<bool>(Key::hapticOnAlert).value_or(true),
      .launchAtLogin = loginItem_->isEnabled(),
      .batteryThresholdPercent = stored.object<std::int64_t>(Key::batteryThreshold).value_or(10),
      .glassesCompat = stored.object<bool>(Key::glassesCompat).value_or(true),
      .overlayOnCameraBusy = stored.object<bool>(Key::overlayOnCameraBusy).value_or(false),
      .privacyMatrixEnabled = stored.object<bool>(Key::privacyMatrixEnabled).value_or(true),
      .privacyMatrixCoefficient = stored.floatObject(Key::privacyMatrixCoefficient, 2.0F),
      .matrixColorArgb =
          std::bit_cast<std::uint64_t>(stored.nonZeroInteger(Key::matrixColorArgb, 0xFF000000)),
      .matrixStripeAlpha = stored.floatObject(Key::matrixStripeAlpha, freshStripeAlpha),
      .globalShortcutEnabled = stored.object<bool>(Key::globalShortcutEnabled).value_or(true),
      .coverAllScreens = stored.object<bool>(Key::coverAllScreens).value_or(true),
      .calibrationDistanceCm = stored.nonZeroInteger(Key::calibrationDistanceCm, 60),
      .isCalibrated = stored.object<bool>(Key::isCalibrated).value_or(false),
      .selectedCameraID = stored.object<std::string>(Key::selectedCameraID),
  };
}

void SettingsRepository::save(const FilterSettings& next) {
  // Copies: the caller may hand in the published record itself, and an observer may publish another one.
  const FilterSettings record = next;
  const bool launchedAtLogin = settings.get().launchAtLogin;
  settings = record;
  store(record);
  if (record.launchAtLogin != launchedAtLogin) setLaunchAtLogin(record.launchAtLogin);
}

void SettingsRepository::store(const FilterSettings& record) {
  using Key = SettingsKey;
  const auto set = [this](Key key, DefaultsValue value) { defaults->set(rawValue(key), std::move(value)); };
  set(Key::filterStrength, record.filterStrength);
  set(Key::sensitivity, record.sensitivity);
  set(Key::inattentionDelayMs, record.inattentionDelayMs);
  set(Key::captureFps, record.captureFps);
  set(Key::hapticOnAlert, record.hapticOnAlert);
  set(Key::batteryThreshold, record.batteryThresholdPercent);
  set(Key::glassesCompat, record.glassesCompat);
  set(Key::overlayOnCameraBusy, record.overlayOnCameraBusy);
  set(Key::privacyMatrixEnabled, record.privacyMatrixEnabled);
  set(Key::privacyMatrixCoefficient, record.privacyMatrixCoefficient);
  set(Key::matrixColorArgb, std::bit_cast<std::int64_t>(record.matrixColorArgb));
  set(Key::matrixStripeAlpha, record.matrixStripeAlpha);
  set(Key::globalShortcutEnabled, record.globalShortcutEnabled);
  set(Key::coverAllScreens, record.coverAllScreens);
  set(Key::calibrationDistanceCm, record.calibrationDistanceCm);
  set(Key::isCalibrated, record.isCalibrated);
  if (record.selectedCameraID) {
    set(Key::selectedCameraID, *record.selectedCameraID);
  } else {
    defaults->remove(rawValue(Key::selectedCameraID));
  }
}

void SettingsRepository::setLaunchAtLogin(bool enabled) {
  const auto failure = loginItem_->setEnabled(enabled);
  if (!failure) return;
  std::printf("SMAppService error: %s\n", failure->c_str());
  std::fflush(stdout);
}

}  // namespace sentrel
