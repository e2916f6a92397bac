// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "detection/av_capture_manager.h"
#include "service/privacy_filter_service.h"
#include "settings/stats_repository.h"
#include "support/fake_login_item.h"
#include "support/fake_overlay_backend.h"
#include "support/machine_room.h"
#include "views/menu_bar_popover_view.h"

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
  std::shared_ptr<StatsRepository> stats = std::make_shared<StatsRepository>(defaults);
  std::shared_ptr<PrivacyFilterService> service = std::make_shared<PrivacyFilterService>(
      PrivacyFilterService::Parts{room.environment(), camera, room.session, overlay, settings});

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
            .openLink = [this](const QUrl&) { ++linksOpened; }};
  }

  int preferencesOpened = 0;
  int quits = 0;
  int linksOpened = 0;
  const FaceDetections alone = detectionsOf({faceOf(0.2)}, {faceOf(0.2)});
  const FaceDetections watched = detectionsOf({faceOf(0.2), faceOf(0.05)}, {faceOf(0.2)});
};

}  // namespace sentrel::test
