// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace sentrel {

/// What the display servers of this session offer.
struct DisplaySurvey {
  /// Of the compositor, each with its version; none where none answers.
  std::optional<std::vector<std::string>> protocols;
  bool hasX11Tray = false;
  bool hasDpms = false;  ///< the X server tells when it darkens the screens
};

/// Asks those of WAYLAND_DISPLAY and DISPLAY. An X server that hangs is waited for without end; for a thread
/// of its own.
[[nodiscard]] DisplaySurvey surveyDisplays();

}  // namespace sentrel
