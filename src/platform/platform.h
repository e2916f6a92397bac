// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "platform/alert_journal.h"
#include "platform/capture_session.h"
#include "platform/desktop_services.h"
#include "platform/face_detector.h"
#include "platform/overlay_surface.h"
#include "platform/privacy_proof.h"
#include "platform/session_events.h"
#include "support/fatal.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

/// Everything the program needs of the machine. The entry installs one before anything reaches a shared
/// instance; tests give each object what it needs instead.
struct Platform {
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<SerialQueue> cameraQueue;    ///< "com.mardeck.sentrel.camera"
  std::shared_ptr<SerialQueue> analysisQueue;  ///< "com.mardeck.sentrel.vision"
  std::shared_ptr<CaptureSession> captureSession;
  std::shared_ptr<FaceDetector> faceDetector;
  std::shared_ptr<OverlayBackend> overlayBackend;
  std::shared_ptr<UserDefaults> userDefaults;
  std::shared_ptr<AlertJournal> alertJournal;
  std::shared_ptr<PrivacyProof> privacyProof;
  std::shared_ptr<LoginItem> loginItem;
  std::shared_ptr<Notifications> notifications;
  std::shared_ptr<Haptics> haptics;
  std::shared_ptr<PowerSource> powerSource;
  std::shared_ptr<ScreenSharing> screenSharing;
  std::shared_ptr<SessionEvents> sessionEvents;
  std::shared_ptr<KeyMonitor> keyMonitor;
  LocalizedText localizedText;

  /// Fatal when a platform is already installed.
  static void install(Platform platform) {
    if (installed()) fatal("a platform is already installed");
    installed() = std::make_unique<const Platform>(std::move(platform));
  }
  /// Fatal when none is installed.
  static const Platform& current() {
    if (!installed()) fatal("no platform is installed");
    return *installed();
  }

 private:
  static std::unique_ptr<const Platform>& installed() {
    static std::unique_ptr<const Platform> platform;
    return platform;
  }
};

}  // namespace sentrel
