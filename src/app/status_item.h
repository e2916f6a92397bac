// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractNativeEventFilter>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cstdint>
#include <functional>
#include <memory>

#include "linux/desktop/bus.h"
#include "look/icons.h"
#include "views/desktop_words.h"

namespace sentrel {

/// The eye in the panel, with its menu. It is made as soon as some tray takes it, and made anew when the
/// tray comes back. Main thread.
class StatusItem final : private QAbstractNativeEventFilter, private BusService {
 public:
  /// Called for a plain click, with the place of the icon, or of the pointer.
  using Activated = std::function<void(const QRect& anchor)>;

  /// Trays of the newer kind are found on the session bus. The menu is the icon's while there is one.
  StatusItem(QMenu& menu, Activated activated, const std::shared_ptr<Bus>& sessionBus);
  ~StatusItem() override;

  void setState(StatusBarIcon::IconState state);
  void setToolTip(const QString& words);

  [[nodiscard]] bool isShown() const { return icon_ != nullptr; }
  /// Who has the icon.
  [[nodiscard]] Tray tray() const {
    return !isShown() ? Tray::none : isPresent() ? Tray::statusNotifier : Tray::x11;
  }
  /// Where the icon is, or the pointer where nobody tells.
  [[nodiscard]] QRect anchor() const;

 private:
  void busReturned();
  void lookForX11Tray();
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;
  void appeared() override;
  void gone() override;
  void create();
  void update();

  QMenu& menu_;
  const Activated activated_;
  StatusBarIcon::IconState state_ = StatusBarIcon::IconState::inactive;
  QString toolTip_;
  std::unique_ptr<QSystemTrayIcon> icon_;
  std::uint32_t manager_ = 0;  // the atom of the message by which X11 trays say that they are there
  QTimer look_;                // for a tray of the older kind, a moment after the newer kind had its chance
  Registration connection_;
};

}  // namespace sentrel
