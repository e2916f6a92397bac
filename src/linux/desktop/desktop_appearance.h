// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariant>
#include <memory>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"
#include "support/published.h"

namespace sentrel {

/// What the person asked of the desktop's looks: colours, contrast and size of text, and less movement;
/// nothing until the desktop's portal says otherwise. Less movement is a setting of its own on newer
/// desktops, GNOME's switch for animations, or the speed of KDE's. High contrast, too, is a setting of its
/// own, GNOME's switch, or a theme. Main thread.
class DesktopAppearance final : private BusService {
 public:
  explicit DesktopAppearance(std::shared_ptr<Bus> sessionBus);

  /// Published when it changes.
  [[nodiscard]] const Published<Appearance>& appearance() const { return appearance_; }

 private:
  void appeared() override;
  void learn(const QString& space, const QString& key, const QVariant& value);

  Published<Appearance> appearance_;
  QVariantMap told_;  // by key
  Registration listening_;
};

}  // namespace sentrel
