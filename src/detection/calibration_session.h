// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "detection/camera_control.h"
#include "settings/settings_repository.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// Measures how far the person sits from the screen: counts down for three seconds, looks for three seconds
/// at how wide the face is in the camera's frames, and offers the distance. A view owns one and shows its
/// phase. It wishes the camera open from its start to the end of the measurement, and fails when something
/// speaks against that. Main thread, to be owned by a shared pointer.
class CalibrationSession : public std::enable_shared_from_this<CalibrationSession> {
 public:
  struct Phase {
    enum class Kind {
      idle,       ///< nothing runs; the only phase in which `start` does anything
      counting,   ///< `remaining` shows 3, 2, 1
      measuring,  ///< samples are collected
      done,       ///< `distanceCm` was measured
      failed,     ///< `message` says why
    };

    static Phase idle() { return {}; }
    static Phase counting(std::int64_t remaining) { return {.kind = Kind::counting, .remaining = remaining}; }
    static Phase measuring() { return {.kind = Kind::measuring}; }
    static Phase done(std::int64_t distanceCm) { return {.kind = Kind::done, .distanceCm = distanceCm}; }
    static Phase failed(const char* message, const char* cause = "") {
      return {.kind = Kind::failed, .message = message, .cause = cause};
    }

    Kind kind = Kind::idle;
    std::int64_t remaining = 0;   ///< of `counting`
    std::int64_t distanceCm = 0;  ///< of `done`: 30 to 200
    std::string message = {};     ///< of `failed`: a text key
    std::string cause = {};       ///< of `failed`: that of what ails the camera; empty where nothing does
    bool operator==(const Phase&) const = default;
  };

  struct Dependencies {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<AVCaptureManager> camera;
    std::shared_ptr<CameraControl> cameraControl;
    std::shared_ptr<SettingsRepository> settingsRepo;
  };

  explicit CalibrationSession(Dependencies dependencies);
  ~CalibrationSession();
  CalibrationSession(const CalibrationSession&) = delete;
  CalibrationSession& operator=(const CalibrationSession&) = delete;

  /// Over the shared instances.
  static std::shared_ptr<CalibrationSession> create();

  [[nodiscard]] const Published<Phase>& phase() const { return phase_; }

  /// From `idle`: wishes the camera and begins to count.
  void start();
  /// Back to `idle`, whatever runs.
  void cancel();
  /// Saves the distance as it is, and goes back to `idle`.
  void accept(std::int64_t distanceCm);

 private:
  void startCountdown(std::int64_t remaining);
  void beginMeasuring();
  void finalizeMeasurement();
  /// Whether the camera must stay closed, whoever wishes it.
  [[nodiscard]] bool cameraRests() const;
  /// Ends in `failed`, with what ails the camera: nobody knows that any more once the wish for it has ended.
  void fail(const char* message);
  /// Ends whatever runs, and the wish for the camera.
  void end();

  const Dependencies uses_;
  Published<Phase> phase_{Phase::idle()};
  std::vector<double> samples;  // face widths, as fractions of the image's width
  std::optional<std::int64_t> measureStart;
  Registration cameraWish_;
  Registration cameraStatus_;
  Registration countdownTask;
  Registration pollTask;
};

}  // namespace sentrel
