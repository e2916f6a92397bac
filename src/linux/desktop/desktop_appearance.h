// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QString>
#include <QVariant>
#include <filesystem>
#include <memory>
#include <vector>

#include "linux/desktop/desktop_portal.h"
#include "platform/desktop_services.h"
#include "support/published.h"

namespace sentrel {

/// What the person asked of the desktop's looks: colours, contrast and size of text, and less movement. The
/// desktop's portal tells; while it does not, GNOME's settings as dconf keeps them do, which other desktops
/// use, too. Less movement is a setting of its own on newer desktops, GNOME's switch for animations, or the
/// speed of KDE's. High contrast, too, is a setting of its own, GNOME's switch, or a theme. Where nobody has
/// set the colours, the name of the toolkit's theme tells them; Xfce has no more than that. Main thread.
class DesktopAppearance final {
 public:
  /// `settings` is the file of dconf, which need not be there.
  DesktopAppearance(const std::shared_ptr<Bus>& sessionBus, std::shared_ptr<DesktopPortal> portal,
                    std::filesystem::path settings);
  ~DesktopAppearance();

  /// Published when it changes.
  [[nodiscard]] const Published<Appearance>& appearance() const { return appearance_; }

 private:
  class XfceTheme;

  void read();
  void learn(const QString& space, const QString& key, const QVariant& value);
  void readSettings();
  void adopt();

  const std::shared_ptr<DesktopPortal> portal_;
  const std::filesystem::path settings_;
  Published<Appearance> appearance_;
  // By key.
  QVariantMap told_;
  QVariantMap stored_;
  std::unique_ptr<XfceTheme> xfce_;  // where the desktop is Xfce
  QFileSystemWatcher watcher_;       // of the folder of the settings, or of the nearest one above it
  std::vector<Registration> listening_;
  Registration following_;
};

}  // namespace sentrel
