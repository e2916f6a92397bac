// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "detection/camera_condition.h"
#include "detection/filter_fsm.h"
#include "detection/vision_face_analyzer.h"
#include "service/alert_recorder.h"
#include "service/filter_overlay.h"
#include "service/live_view.h"
#include "service/relaxations.h"
#include "service/screen_cover.h"
#include "service/service_dependencies.h"
#include "service/system_events.h"
#include "service/user_feedback.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// Switches protection on and off. While it is on, the camera feeds an analyser, the analyser the state
/// machine, and the machine's states go to the overlay and to the feedback for the person. `CameraControl`
/// decides whether the camera is open: this service tells it its wish, and tells the machine what becomes of
/// the camera. Main thread, to be owned by a shared pointer.
class PrivacyFilterService : public std::enable_shared_from_this<PrivacyFilterService> {
 public:
  explicit PrivacyFilterService(ServiceDependencies dependencies);
  PrivacyFilterService(const PrivacyFilterService&) = delete;
  PrivacyFilterService& operator=(const PrivacyFilterService&) = delete;

  /// The process's service, over the shared instances.
  static const std::shared_ptr<PrivacyFilterService>& shared();

  /// The machine's state, for the interface.
  [[nodiscard]] const Published<FilterState>& fsmState() const { return fsmState_; }
  /// Protection is on.
  [[nodiscard]] const Published<bool>& isActive() const { return isActive_; }
  /// Protection was switched on, and waits for the camera.
  [[nodiscard]] const Published<bool>& isStarting() const { return isStarting_; }
  [[nodiscard]] bool isSwitchedOn() const { return isActive_ || isStarting_; }
  /// An alert is in progress.
  [[nodiscard]] const Published<bool>& isAlert() const { return isAlert_; }

  /// Switches protection on: `isActive` follows once notifications are settled and the camera is open,
  /// however long that takes. Only a person's no to the camera ends a start. Nothing while it is switched on.
  void start();
  /// Switches protection off, also when a start is under way. The session's seconds are counted in the next
  /// turn. Harmless when off.
  void stop();
  /// What a click on the switch means: stops what is on or starting, else starts.
  void toggle();
  /// What weakens protection for a while; to be asked for only while protection is switched on.
  [[nodiscard]] Relaxations& relaxations() { return relaxations_; }

  /// What keeps the camera from seeing well, while protection is switched on.
  [[nodiscard]] const Published<std::optional<CameraCondition>>& cameraCondition() const {
    return conditions_.condition();
  }
  /// What is found in each frame, for somebody who looks.
  [[nodiscard]] LiveView& liveView() { return liveView_; }

  /// What covers the screens, whether or not protection is on.
  [[nodiscard]] ScreenCover& screenCover() { return screenCover_; }

  /// Counts the session's seconds and ends a line of the journal at once, for an end of the process that
  /// leaves no turn for a stop.
  void countSession();

 private:
  // Switching on and off.
  void startCamera();
  void startFinished(const CameraControl::Status& status);
  std::optional<std::int64_t> takeSessionSeconds();

  // What the machine hears, and what follows from its states.
  void makeAnalyzer();
  void cameraChanged(const CameraControl::Status& status);
  void cameraRests(CameraControl::Rest rest);
  void handleDetectionInput(const DetectionInput& input, const FaceList* faces);
  void observeSettings();
  void observeRelaxations();
  [[nodiscard]] FilterOverlay::Softening softening() const;
  void tuneDetector();
  void observeFsm();
  void handleFsmSideEffects(const FilterState& state);

  const ServiceDependencies uses_;
  const AnalysisEnvironment environment_ = AnalysisEnvironment::of(uses_.platform);
  FilterOverlay overlay_{uses_};
  OnlookerFeedback feedback_{uses_};
  BlindnessNotice blindness_{uses_};
  SystemEvents systemEvents_{uses_};
  Relaxations relaxations_{uses_};
  AlertRecorder recorder_{uses_, relaxations_};
  ScreenCover screenCover_{uses_};
  CameraConditions conditions_{environment_.mainLoop, environment_.clock, uses_.cameraControl};
  LiveView liveView_;

  FilterFsm fsm;
  std::shared_ptr<VisionFaceAnalyzer> analyzer;  // of the current session
  Published<FilterState> fsmState_{FilterState::inactive()};
  Published<bool> isActive_{false};
  Published<bool> isStarting_{false};
  Published<bool> isAlert_{false};
  std::optional<std::int64_t> sessionStartDate;  // milliseconds
  std::uint64_t stopCount_ = 0;
  std::optional<FilterSettings> appliedSettings_;
  std::optional<FaceTuning> tuning_;

  Registration cameraWish_;
  Registration cameraStatus_;
  std::vector<Registration> relaxationsObserved_;
  Registration settingsCancellable;
  Registration fsmCancellable;
};

}  // namespace sentrel
