// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace sentrel {

/// Every option that the person can adjust: a plain value, copied and never shared. It enforces no range; the
/// controls that edit it do. The order of the fields is part of the type: construction, comparison, storage
/// and serialisation follow it. A new option is a field here, a key below and a row of forEachSetting().
struct FilterSettings {
  std::int64_t filterStrength = 3;              ///< overlay strength, 1 (lightest) to 5 (darkest)
  std::int64_t sensitivity = 3;                 ///< reaction to head movement, 1 to 5
  std::int64_t inattentionDelayMs = 1500;       ///< how long a look away may last
  std::int64_t captureFps = 10;                 ///< analysed frames a second
  bool hapticOnAlert = true;                    ///< haptic feedback when an alert begins
  bool launchAtLogin = false;                   ///< mirrors the system's login item
  std::int64_t batteryThresholdPercent = 10;    ///< protection pauses below this charge; 0 never pauses
  bool glassesCompat = true;                    ///< fewer false alerts for people who wear glasses
  bool overlayOnCameraBusy = false;             ///< kept for the person, without effect
  bool privacyMatrixEnabled = true;             ///< stripes are drawn
  float privacyMatrixCoefficient = 2.0F;        ///< factor on the estimated viewing distance
  std::uint64_t matrixColorArgb = 0xFF000000;   ///< stripe colour, 0xAARRGGBB in the low 32 bits
  float matrixStripeAlpha = 0.72F;              ///< stripe opacity, 0..1
  bool globalShortcutEnabled = true;            ///< the system-wide shortcut is observed
  bool coverAllScreens = true;                  ///< every screen is covered, not only the main one
  std::int64_t calibrationDistanceCm = 60;      ///< viewing distance, measured or entered
  bool isCalibrated = false;                    ///< a calibration was accepted
  std::optional<std::string> selectedCameraID;  ///< the chosen camera; absent means the default one

  bool operator==(const FilterSettings&) const = default;
};

/// The keys of the person's store.
enum class SettingsKey {
  filterStrength,
  sensitivity,
  inattentionDelayMs,
  captureFps,
  hapticOnAlert,
  launchAtLogin,
  batteryThreshold,
  glassesCompat,
  overlayOnCameraBusy,
  privacyMatrixEnabled,
  privacyMatrixCoefficient,
  matrixColorArgb,
  matrixStripeAlpha,
  globalShortcutEnabled,
  coverAllScreens,
  hasCompletedOnboarding,  ///< of the first run, not of FilterSettings
  calibrationDistanceCm,
  isCalibrated,
  selectedCameraID,
};

/// When a stored value counts.
enum class Stored {
  always,
  unlessZero,  ///< there is no meaningful zero: 0 stands for no value
  never,       ///< neither read nor written, because the system knows better
};

/// What there is to know of one field of FilterSettings.
template <class T>
struct Setting {
  /// What a number is held within where it is used: what the controls offer, and somewhat more. What is
  /// stored stays as it is. 0 to 0 is no bound.
  struct Range {
    std::int64_t least = 0;
    std::int64_t most = 0;
  };

  constexpr Setting(SettingsKey itsKey, std::string_view text, std::string_view fieldName,
                    T FilterSettings::*itsField, Stored when = Stored::always, Range itsRange = {})
      : key(itsKey), storedAs(text), name(fieldName), field(itsField), stored(when), range(itsRange) {}

  SettingsKey key;
  std::string_view storedAs;  ///< the key's text, on which stored preferences depend
  std::string_view name;      ///< the field's name in the keyed coding
  T FilterSettings::*field;
  Stored stored;
  Range range;
};

/// Calls `visit(setting)` with the Setting of every field, in the order of the fields.
template <class Visitor>
constexpr void forEachSetting(Visitor&& visit) {
  using F = FilterSettings;
  using K = SettingsKey;
  using enum Stored;
  visit(Setting(K::filterStrength, "filter_strength", "filterStrength", &F::filterStrength, unlessZero));
  visit(Setting(K::sensitivity, "sensitivity", "sensitivity", &F::sensitivity, unlessZero, {1, 5}));
  visit(Setting(K::inattentionDelayMs, "inattention_delay_ms", "inattentionDelayMs", &F::inattentionDelayMs,
                unlessZero));
  visit(Setting(K::captureFps, "capture_fps", "captureFps", &F::captureFps, unlessZero, {1, 30}));
  visit(Setting(K::hapticOnAlert, "haptic_on_alert", "hapticOnAlert", &F::hapticOnAlert));
  visit(Setting(K::launchAtLogin, "launch_at_login", "launchAtLogin", &F::launchAtLogin, never));
  visit(Setting(K::batteryThreshold, "battery_threshold", "batteryThresholdPercent",
                &F::batteryThresholdPercent));
  visit(Setting(K::glassesCompat, "glasses_compat", "glassesCompat", &F::glassesCompat));
  visit(Setting(K::overlayOnCameraBusy, "overlay_on_camera_busy", "overlayOnCameraBusy",
                &F::overlayOnCameraBusy));
  visit(Setting(K::privacyMatrixEnabled, "privacy_matrix_enabled", "privacyMatrixEnabled",
                &F::privacyMatrixEnabled));
  visit(Setting(K::privacyMatrixCoefficient, "privacy_matrix_coefficient", "privacyMatrixCoefficient",
                &F::privacyMatrixCoefficient));
  visit(Setting(K::matrixColorArgb, "matrix_color_argb", "matrixColorArgb", &F::matrixColorArgb, unlessZero));
  visit(Setting(K::matrixStripeAlpha, "matrix_stripe_alpha", "matrixStripeAlpha", &F::matrixStripeAlpha));
  visit(Setting(K::globalShortcutEnabled, "global_shortcut_enabled", "globalShortcutEnabled",
                &F::globalShortcutEnabled));
  visit(Setting(K::coverAllScreens, "cover_all_screens", "coverAllScreens", &F::coverAllScreens));
  visit(Setting(K::calibrationDistanceCm, "calibration_distance_cm", "calibrationDistanceCm",
                &F::calibrationDistanceCm, unlessZero));
  visit(Setting(K::isCalibrated, "is_calibrated", "isCalibrated", &F::isCalibrated));
  visit(Setting(K::selectedCameraID, "selected_camera_id", "selectedCameraID", &F::selectedCameraID));
}

/// What counts where nothing usable is stored: the record's initial values, but fainter stripes.
inline FilterSettings freshSettings() {
  FilterSettings settings;
  settings.matrixStripeAlpha = 0.42F;
  return settings;
}

/// A number as it is used, within the range that its setting has.
template <class T>
constexpr T inUse(const FilterSettings& settings, T FilterSettings::*field) {
  T value = settings.*field;
  forEachSetting([&](const auto& setting) {
    if constexpr (std::is_same_v<decltype(setting.field), T FilterSettings::*>) {
      const auto [least, most] = setting.range;
      if (setting.field == field && least < most)
        value = std::clamp(value, static_cast<T>(least), static_cast<T>(most));
    }
  });
  return value;
}

/// The text under which `key` is stored.
constexpr std::string_view rawValue(SettingsKey key) {
  std::string_view text = "has_completed_onboarding";
  forEachSetting([&](const auto& setting) {
    if (setting.key == key) text = setting.storedAs;
  });
  return text;
}

/// Values under text keys, in the order in which they were written: what a record looks like to any format
/// that may carry it.
using KeyedValue = std::variant<bool, std::int64_t, std::uint64_t, float, std::string>;
using KeyedDocument = std::vector<std::pair<std::string, KeyedValue>>;

/// Sets `field` to the value under `key`. It must be there, and of the field's very kind: a number is never
/// taken for another kind of number.
template <class T>
bool decodeValue(const KeyedDocument& document, std::string_view key, T& field) {
  const auto found = std::ranges::find(document, key, &KeyedDocument::value_type::first);
  const T* typed = found == document.end() ? nullptr : std::get_if<T>(&found->second);
  if (typed != nullptr) field = *typed;
  return typed != nullptr;
}

/// One entry per field, named after it and in field order; an absent camera writes none.
KeyedDocument encode(const FilterSettings& settings);

/// The record that `document` describes, or none where a key is missing or of another kind. Every key but
/// "selectedCameraID" is required.
std::optional<FilterSettings> decodeFilterSettings(const KeyedDocument& document);

}  // namespace sentrel
