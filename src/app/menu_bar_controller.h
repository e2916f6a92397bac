// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/program_bus.h"
#include "app/program_windows.h"
#include "app/status_item.h"
#include "detection/av_capture_manager.h"
#include "service/privacy_filter_service.h"
#include "support/published.h"
#include "support/registration.h"
#include "views/popover_window.h"
#include "views/preferences_view.h"

namespace sentrel {

/// Posting it opens the preferences window: "expert.mardeck.sentrel.openPreferences".
Signal<>& sentrelOpenPreferences();

/// The program's place in the panel: the eye, the popover, and the preferences window. Main thread.
class MenuBarController final : public ProgramWindows {
 public:
  struct Actions {
    std::function<void()> quit;
    /// What the person must be told once, as the key of a text; empty where there is nothing.
    std::function<std::string()> news;
  };

  MenuBarController(Actions actions, ProgramBus& bus);
  MenuBarController(const MenuBarController&) = delete;
  MenuBarController& operator=(const MenuBarController&) = delete;
  ~MenuBarController() override;

  void togglePopover(const QRect& anchor);
  void openPreferences();

  // Of ProgramWindows.
  void showPopover() override;
  void showPopoverWithoutTray() override;
  void showPreferences() override { openPreferences(); }
  void showStatistics() override;
  void showAbout() override;

 private:
  void openPopover(const QRect& anchor);
  [[nodiscard]] QString notice();
  void showPage(MenuBarPopoverView::Page page);
  void updateStatusItem();
  void tellScreenReaders();
  void openLink(const QUrl& address, std::function<void()> failed);

  const Actions actions_;
  std::optional<QDBusConnection> bus_;
  const std::shared_ptr<PrivacyFilterService> service_;
  const std::shared_ptr<AVCaptureManager> camera_;
  const std::shared_ptr<CameraControl> cameraControl_;
  StatusItem statusItem;
  std::unique_ptr<QWidget> banner_;  // its words for screen readers
  QPointer<PopoverWindow> popover;
  QElapsedTimer sinceClosed_;  // a click on the icon takes the focus first, which closes the popover
  QPointer<PreferencesView> prefsWindow;
  QObject trayPatience_;  // what waits for a tray, waits no longer than this lives
  Registration stateRegistration_;
  Registration bannerRegistration_;
  Registration activeRegistration_;
  Registration startingRegistration_;
  Registration failureRegistration_;
  Registration preferencesRegistration_;
  Registration busRegistration_;
};

}  // namespace sentrel
