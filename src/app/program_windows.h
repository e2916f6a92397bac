// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// The windows that other programs and the desktop may ask for. Main thread.
class ProgramWindows {
 public:
  virtual ~ProgramWindows() = default;
  /// The program was activated: by a second start, a notification or the desktop.
  virtual void showPopover() = 0;
  /// The program was started to be activated: the eye in the panel is the answer, and the popover only where
  /// no panel has taken it within 2 s.
  virtual void showPopoverWithoutTray() = 0;
  virtual void showPreferences() = 0;
  virtual void showStatistics() = 0;
  virtual void showAbout() = 0;
};

}  // namespace sentrel
