// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <string>
#include <vector>

#include "platform/desktop_services.h"
#include "platform/overlay_surface.h"

// What this desktop lets the program do, in words for the person. Main thread.

namespace sentrel {

/// The panel that takes the program's icon.
enum class Tray { none, statusNotifier, x11 };

/// What a back end says of itself at one moment.
struct CoverFacts {
  std::string system;
  std::vector<Screen> screens;
  std::string limitation;

  [[nodiscard]] static CoverFacts of(const OverlayBackend& backend) {
    return {backend.system(), backend.screens(), backend.limitation()};
  }
};

/// Which screens are covered, `everyScreen` or the main one, and by which windowing system.
[[nodiscard]] QString coverWords(const CoverFacts& facts, bool everyScreen);

/// `usual` are the keys that the program asks for.
[[nodiscard]] QString shortcutWords(const ShortcutGrant& grant, const QString& usual);

[[nodiscard]] QString trayWords(Tray tray);

/// What others have named, in one line that can be read: without what would command a terminal or turn the
/// words around, and no longer than `most` characters.
[[nodiscard]] QString presentable(QString words, qsizetype most = 40);

}  // namespace sentrel
