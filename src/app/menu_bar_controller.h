// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <array>
#include <functional>
#include <memory>
#include <string>

#include "app/kwin_placement.h"
#include "app/status_item.h"
#include "detection/av_capture_manager.h"
#include "linux/desktop/bus.h"
#include "linux/desktop/desktop_portal.h"
#include "service/privacy_filter_service.h"
#include "service/remote_control.h"
#include "support/published.h"
#include "support/registration.h"
#include "views/popover.h"
#include "views/preferences_view.h"

namespace sentrel {

/// Posting it opens the preferences window: "expert.mardeck.sentrel.openPreferences".
Signal<>& sentrelOpenPreferences();

/// Once `window` has gone, and no other is seen, what it needed goes back to the system: the allocator would
/// keep some megabytes for windows that may not open again for weeks. Main thread.
void giveMemoryBackAfter(const QWidget& window);

/// The program's place in the panel: the eye, the popover, and the preferences window. Main thread.
class MenuBarController {
 public:
  struct Actions {
    std::function<void()> quit;
    /// What the person must be told once, as the key of a text; empty where there is nothing.
    std::function<std::string()> news;
    std::shared_ptr<RemoteControl> remote;  ///< knows what other programs have weakened
    AskForReport askForReport;
  };

  MenuBarController(Actions actions, std::shared_ptr<Bus> sessionBus, std::shared_ptr<DesktopPortal> portal);
  MenuBarController(const MenuBarController&) = delete;
  MenuBarController& operator=(const MenuBarController&) = delete;
  ~MenuBarController();

  [[nodiscard]] Tray tray() const { return statusItem.tray(); }

  /// What a click on the icon does. `anchor` is the place of the icon on the screen.
  void togglePopover(const QRect& anchor);
  /// One window: a second call brings it to the front.
  void openPreferences();

  void showPopover();
  /// The program was started to be activated: the eye in the panel is the answer, and the popover only where
  /// no panel has taken it within 2 s.
  void showPopoverWithoutTray();
  /// The popover with this page.
  void showPage(MenuBarPopoverView::Page page);

 private:
  enum class Opener { click, other };
  void openPopover(const QRect& anchor, Opener opener);
  void updateStatusItem();
  void tellScreenReaders();
  void openLink(const QUrl& address, std::function<void()> failed);

  const Actions actions_;
  const std::shared_ptr<Bus> bus_;
  const std::shared_ptr<DesktopPortal> portal_;
  const std::shared_ptr<PrivacyFilterService> service_;
  const std::shared_ptr<AVCaptureManager> camera_;
  const std::shared_ptr<CameraControl> cameraControl_;
  QMenu menu_;
  QAction* toggle_;
  StatusItem statusItem;
  KwinPlacement placement_;
  std::unique_ptr<QWidget> banner_;  // its words for screen readers
  QPointer<PopoverWindow> popover;
  QElapsedTimer sinceClosed_;  // a click on the icon takes the focus first, which closes the popover
  QPointer<PreferencesView> prefsWindow;
  QObject trayTimeout_;  // what waits for a tray waits no longer than this lives
  std::array<Registration, 14> registrations_;
};

}  // namespace sentrel
