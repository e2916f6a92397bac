// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sentrel {

/// Every option that the person can adjust: a plain value, copied and never shared. It enforces no range; the
/// controls that edit it do. The order of the fields is part of the type: construction, comparison and
/// serialisation follow it.
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

/// Calls `visit(name, field)` for every field in order; `settings` may be const.
template <class Settings, class Visitor>
void forEachField(Settings& settings, Visitor&& visit) {
  visit("filterStrength", settings.filterStrength);
  visit("sensitivity", settings.sensitivity);
  visit("inattentionDelayMs", settings.inattentionDelayMs);
  visit("captureFps", settings.captureFps);
  visit("hapticOnAlert", settings.hapticOnAlert);
  visit("launchAtLogin", settings.launchAtLogin);
  visit("batteryThresholdPercent", settings.batteryThresholdPercent);
  visit("glassesCompat", settings.glassesCompat);
  visit("overlayOnCameraBusy", settings.overlayOnCameraBusy);
  visit("privacyMatrixEnabled", settings.privacyMatrixEnabled);
  visit("privacyMatrixCoefficient", settings.privacyMatrixCoefficient);
  visit("matrixColorArgb", settings.matrixColorArgb);
  visit("matrixStripeAlpha", settings.matrixStripeAlpha);
  visit("globalShortcutEnabled", settings.globalShortcutEnabled);
  visit("coverAllScreens", settings.coverAllScreens);
  visit("calibrationDistanceCm", settings.calibrationDistanceCm);
  visit("isCalibrated", settings.isCalibrated);
  visit("selectedCameraID", settings.selectedCameraID);
}

}  // namespace sentrel
