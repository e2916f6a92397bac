// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "detection/analysis_environment.h"
#include "detection/camera_feed_providing.h"
#include "detection/filter_fsm.h"
#include "detection/vision_face_analyzer.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "platform/capture_session.h"
#include "platform/face_detector.h"
#include "platform/haptics.h"
#include "platform/key_monitor.h"
#include "platform/localized_text.h"
#include "platform/notifications.h"
#include "platform/power_source.h"
#include "platform/session_events.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// Starts and stops protection, and joins its parts: the camera feeds an analyser, the analyser the state
/// machine, every state of the machine becomes something to see, and what happens on the desktop becomes an
/// event of the machine. Main thread, to be owned by a shared pointer.
class PrivacyFilterService : public std::enable_shared_from_this<PrivacyFilterService> {
 public:
  struct Parts {
    AnalysisEnvironment environment;
    std::shared_ptr<CameraFeedProviding> cameraManager;
    std::shared_ptr<CaptureSession> captureSession;  ///< whose interruptions are followed
    std::shared_ptr<OverlayWindowManager> overlayManager;
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<StatsRepository> statsRepo;
    std::shared_ptr<SessionEvents> sessionEvents;
    std::shared_ptr<PowerSource> powerSource;
    std::shared_ptr<KeyMonitor> keyMonitor;
    std::shared_ptr<Notifications> notifications;
    std::shared_ptr<Haptics> haptics;
    LocalizedText localizedText;
    std::shared_ptr<RetroPiPManager> retroPiP;
  };

  explicit PrivacyFilterService(Parts parts);
  PrivacyFilterService(const PrivacyFilterService&) = delete;
  PrivacyFilterService& operator=(const PrivacyFilterService&) = delete;

  /// The process's service, over the shared instances of its parts.
  static const std::shared_ptr<PrivacyFilterService>& shared();

  /// The machine's state, for the interface.
  [[nodiscard]] const Published<FilterState>& fsmState() const { return fsmState_; }
  /// Protection is switched on.
  [[nodiscard]] const Published<bool>& isActive() const { return isActive_; }
  /// An alert is in progress.
  [[nodiscard]] const Published<bool>& isAlert() const { return isAlert_; }

  /// Switches protection on: `isActive` follows once notifications are settled and the camera has started.
  /// Nothing while the camera runs; a start that is under way is joined. A camera that cannot start leaves
  /// protection off and the machine in `cameraBusy`.
  void start();
  /// Switches protection off, also when a start is under way. The session's seconds are counted in the next
  /// turn. Harmless when off.
  void stop();
  /// Counts the session's seconds at once, for an end of the process that leaves no turn for a stop.
  void countSession();
  /// Closes the camera that a calibration has opened, unless protection uses it or is about to. Otherwise its
  /// light would stay on and a start would take it for protection's own.
  void releaseCamera();

 private:
  // Switching on and off.
  void startCamera(std::uint64_t attempt);
  void startFinished(std::uint64_t attempt, const StartResult& result);
  void abandonStart();
  std::optional<std::int64_t> takeSessionSeconds();
  void closeCamera(std::function<void()> closed);

  // The road of a frame, and what follows from a state.
  void handleDetectionInput(const DetectionInput& input);
  void updateViewingDistance(const FaceData& face);
  void observeFsm();
  void handleFsmSideEffects(const FilterState& state);
  void ensureOverlay();
  void followOnlooker();
  void forgetOnlooker();
  void onAlertStarted();
  void postAlertNotification();
  void withdrawNotification();
  void scheduleBusyRetry(std::int64_t retryInMs);
  void retryBusyCamera();

  // The person's settings.
  void observeSettings();
  void applySettings(const FilterSettings& settings);
  void applyMatrix(const FilterSettings& settings, std::int64_t distanceCm);
  void applyOpacity(const FilterState& state, const FilterSettings& settings);
  void tuneDetector(const FilterSettings& settings);

  // System events.
  void observeSystemEvents();
  void removeSystemEventObservers();
  void screenOff();
  void screenOn();
  void cameraInterrupted();
  void cameraResumed();
  void startBatteryMonitor();
  void checkBattery();
  void registerGlobalShortcut();
  void unregisterGlobalShortcut();
  void toggleByShortcut();
  void updateShortcutHint();

  const AnalysisEnvironment environment_;
  const std::shared_ptr<CameraFeedProviding> cameraManager;
  const std::shared_ptr<CaptureSession> captureSession_;
  const std::shared_ptr<OverlayWindowManager> overlayManager;
  const std::shared_ptr<SettingsRepository> settingsRepo;
  const std::shared_ptr<StatsRepository> statsRepo;
  const std::shared_ptr<SessionEvents> sessionEvents_;
  const std::shared_ptr<PowerSource> powerSource_;
  const std::shared_ptr<KeyMonitor> keyMonitor_;
  const std::shared_ptr<Notifications> notifications_;
  const std::shared_ptr<Haptics> haptics_;
  const LocalizedText localizedText_;
  const std::shared_ptr<RetroPiPManager> retroPiP_;

  FilterFsm fsm;
  std::shared_ptr<VisionFaceAnalyzer> analyzer;  // of the current session
  Published<FilterState> fsmState_{FilterState::inactive()};
  Published<bool> isActive_{false};
  Published<bool> isAlert_{false};
  std::optional<std::int64_t> sessionStartDate;     // milliseconds
  std::optional<std::int64_t> lastAlertNotifiedAt;  // milliseconds

  std::uint64_t startAttempt_ = 0;  // an answer to an earlier attempt comes too late
  std::uint64_t stopCount_ = 0;
  bool starting_ = false;       // an attempt is under way
  bool cameraClosing_ = false;  // the camera runs, but a stop is on its way to it
  bool away_ = false;           // the last session event was of a person who goes away
  std::optional<FilterSettings> appliedSettings_;
  std::optional<FaceTuning> tuning_;

  Registration cameraRunningRegistration_;
  Registration settingsCancellable;
  Registration fsmCancellable;
  Registration busyRetry_;
  Registration batteryTimer;
  Registration powerRegistration_;
  Registration globalMonitor;
  Registration canObserveRegistration_;
  Registration sessionEventsRegistration_;
  Registration interruptedRegistration_;
  Registration interruptionEndedRegistration_;
};

}  // namespace sentrel
