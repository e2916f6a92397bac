// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "detection/av_capture_manager.h"
#include "detection/calibration_session.h"
#include "service/privacy_filter_service.h"
#include "settings/stats_repository.h"
#include "support/fake_desktop.h"
#include "support/fake_login_item.h"
#include "support/fake_overlay_backend.h"
#include "support/machine_room.h"
#include "views/menu_bar_popover_view.h"
#include "views/onboarding_view.h"
#include "views/preferences_view.h"

namespace sentrel::test {

/// The program's core, over fakes at its edges, for windows to show: whatever state a window can be in is
/// brought about by what the camera sees.
struct ViewRoom {
  MachineRoom room;
  std::shared_ptr<FakeOverlayBackend> backend = std::make_shared<FakeOverlayBackend>();
  std::shared_ptr<AVCaptureManager> camera =
      AVCaptureManager::create(room.session, room.cameraQueue, room.environment());
  std::shared_ptr<OverlayWindowManager> overlay =
      std::make_shared<OverlayWindowManager>(backend, room.loop, room.loop);
  std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
  std::shared_ptr<FakeLoginItem> loginItem = std::make_shared<FakeLoginItem>();
  std::shared_ptr<SettingsRepository> settings = std::make_shared<SettingsRepository>(defaults, loginItem);
  FakeDesktop desktop{room.loop, room.loop};
  std::shared_ptr<StatsRepository> stats = desktop.stats;
  std::shared_ptr<PrivacyFilterService> service =
      std::make_shared<PrivacyFilterService>(desktop.parts(room.environment(), camera, overlay, settings));

  void start() {
    service->start();
    room.settle();
  }
  void stop() {
    service->stop();
    room.settle();
  }
  /// Lets the camera see `faces` for `ms`, ten frames a second.
  void see(const FaceDetections& faces, std::int64_t ms) {
    room.detector->next = faces;
    for (; ms > 0; ms -= 100) {
      if (room.session->running && room.session->demand.wanted) room.session->output.onFrame(room.frame());
      room.settle();
      room.loop->advance(100);
    }
    room.settle();
  }
  void interruptCamera() {
    room.session->wasInterrupted.emit();
    room.settle();
  }

  MenuBarPopoverView::Parts popoverParts() {
    return {.service = service,
            .failure = {camera, &camera->failure()},
            .statsRepo = stats,
            .notice = {},
            .version = QStringLiteral("1.0.0"),
            .projectsPage = QUrl(QStringLiteral("https://example.org")),
            .openPreferences = [this] { ++preferencesOpened; },
            .quit = [this] { ++quits; },
            .openLink = [this](const QUrl&, const auto& /*failed*/) { ++linksOpened; }};
  }

  PreferencesView::Parts preferencesParts() {
    return {.settingsRepo = settings,
            .camera = camera,
            .service = service,
            .loginItem = loginItem,
            .keyMonitor = desktop.keys,
            .mainLoop = room.loop,
            .newCalibration = [this] { return newCalibration(); }};
  }
  OnboardingView::Parts onboardingParts() {
    return {.consent = consent,
            .camera = camera,
            .service = service,
            .notifications = desktop.notifications,
            .settingsRepo = settings,
            .loginItem = loginItem,
            .defaults = defaults,
            .newCalibration = [this] { return newCalibration(); },
            .isPresented = [this](bool shown) { onboardingShown = shown; }};
  }
  std::shared_ptr<CameraConsent> consent = std::make_shared<CameraConsent>(false);
  bool onboardingShown = true;
  std::shared_ptr<CalibrationSession> newCalibration() {
    calibration = std::make_shared<CalibrationSession>(
        CalibrationSession::Parts{room.loop, room.loop, camera, settings});
    return calibration;
  }
  std::shared_ptr<CalibrationSession> calibration;  ///< the newest

  int preferencesOpened = 0;
  int quits = 0;
  int linksOpened = 0;
  const FaceDetections alone = detectionsOf({faceOf(0.2)}, {faceOf(0.2)});
  const FaceDetections watched = detectionsOf({faceOf(0.2), faceOf(0.05)}, {faceOf(0.2)});
};

}  // namespace sentrel::test
