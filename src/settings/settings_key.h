// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace sentrel {

/// The keys of the person's store. Stored preferences depend on their texts.
enum class SettingsKey : std::size_t {
  filterStrength,
  sensitivity,
  inattentionDelayMs,
  captureFps,
  hapticOnAlert,
  launchAtLogin,  // never stored: the system's login item is the truth
  batteryThreshold,
  glassesCompat,
  overlayOnCameraBusy,
  privacyMatrixEnabled,
  privacyMatrixCoefficient,
  matrixColorArgb,
  matrixStripeAlpha,
  globalShortcutEnabled,
  coverAllScreens,
  hasCompletedOnboarding,  // of the first run, not of FilterSettings
  calibrationDistanceCm,
  isCalibrated,
  selectedCameraID,
};

/// The text under which `key` is stored.
constexpr std::string_view rawValue(SettingsKey key) {
  constexpr std::array<std::string_view, 19> texts{
      "filter_strength",
      "sensitivity",
      "inattention_delay_ms",
      "capture_fps",
      "haptic_on_alert",
      "launch_at_login",
      "battery_threshold",
      "glasses_compat",
      "overlay_on_camera_busy",
      "privacy_matrix_enabled",
      "privacy_matrix_coefficient",
      "matrix_color_argb",
      "matrix_stripe_alpha",
      "global_shortcut_enabled",
      "cover_all_screens",
      "has_completed_onboarding",
      "calibration_distance_cm",
      "is_calibrated",
      "selected_camera_id",
  };
  return texts[static_cast<std::size_t>(key)];
}

}  // namespace sentrel
