// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "detection/av_capture_manager.h"
#include "detection/calibration_session.h"
#include "detection/camera_control.h"
#include "service/privacy_filter_service.h"
#include "support/fake_desktop.h"
#include "support/fake_overlay_backend.h"
#include "support/fake_settings.h"
#include "support/machine_room.h"

namespace sentrel::test {

/// The whole core over fakes at its edges.
struct CoreRoom {
  CoreRoom() = default;
  explicit CoreRoom(MachineRoom machine) : room(std::move(machine)) {}
  /// What the end of protection leaves to the loop would keep the loop.
  ~CoreRoom() {
    service.reset();
    room.loop->runPosted();
  }
  CoreRoom(const CoreRoom&) = delete;
  CoreRoom& operator=(const CoreRoom&) = delete;

  MachineRoom room;
  std::shared_ptr<FakeOverlayBackend> backend = std::make_shared<FakeOverlayBackend>();
  std::shared_ptr<AVCaptureManager> camera =
      std::make_shared<AVCaptureManager>(room.session, room.cameraQueue, room.environment());
  std::shared_ptr<OverlayWindowManager> overlay =
      std::make_shared<OverlayWindowManager>(backend, room.loop, room.loop);
  std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
  std::shared_ptr<FakeLoginItem> loginItem = std::make_shared<FakeLoginItem>();
  std::shared_ptr<SettingsRepository> settings = std::make_shared<SettingsRepository>(defaults, loginItem);
  FakeDesktop desktop{room.loop, room.loop};
  std::shared_ptr<CameraControl> control = desktop.control(room.environment(), camera);
  std::shared_ptr<PrivacyFilterService> service =
      desktop.service(room.environment(), camera, control, overlay, settings);

  const FaceDetections alone = detectionsOf({faceOf(0.2)}, {faceOf(0.2)});
  const FaceDetections lookingAway = detectionsOf({faceOf(0.2)}, {faceOf(0.2, 0.1, 0.8)});
  const FaceDetections watched = detectionsOf({faceOf(0.2), faceOf(0.05)}, {faceOf(0.2)});

  void start() {
    service->start();
    room.settle();
  }
  void stop() {
    service->stop();
    room.settle();
  }
  std::shared_ptr<CalibrationSession> newCalibration() {
    return std::make_shared<CalibrationSession>(
        CalibrationSession::Dependencies{room.loop, room.loop, camera, control, settings});
  }
  /// Lets the camera see `faces` for `ms`, ten frames a second.
  void see(const FaceDetections& faces, std::int64_t ms) {
    room.detector->next = faces;
    for (; ms > 0; ms -= 100) {
      if (room.session->delivers()) room.session->request->onFrame(room.frame());
      room.settle();
      room.loop->advance(100);
    }
    room.settle();
  }
};

}  // namespace sentrel::test
