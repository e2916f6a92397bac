// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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
  class Phase {
   public:
    enum class Kind {
      idle,       ///< nothing runs; the only phase in which `start` does anything
      counting,   ///< `remaining` shows 3, 2, 1
      measuring,  ///< samples are collected
      done,       ///< `distanceCm` was measured
      failed,     ///< `message` says why
    };

    static Phase idle() { return {Kind::idle, 0, {}}; }
    static Phase counting(std::int64_t remaining) { return {Kind::counting, remaining, {}}; }
    static Phase measuring() { return {Kind::measuring, 0, {}}; }
    static Phase done(std::int64_t distanceCm) { return {Kind::done, distanceCm, {}}; }
    static Phase failed(std::string message) { return {Kind::failed, 0, std::move(message)}; }

    [[nodiscard]] Kind kind() const { return kind_; }
    /// Of `counting`.
    [[nodiscard]] std::int64_t remaining() const { return kind_ == Kind::counting ? number_ : 0; }
    /// Of `done`: 30 to 200.
    [[nodiscard]] std::int64_t distanceCm() const { return kind_ == Kind::done ? number_ : 0; }
    /// Of `failed`: a text key.
    [[nodiscard]] const std::string& message() const { return message_; }
    bool operator==(const Phase&) const = default;

   private:
    Phase(Kind kind, std::int64_t number, std::string message)
        : kind_(kind), number_(number), message_(std::move(message)) {}

    Kind kind_;
    std::int64_t number_;
    std::string message_;
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
  void fail();
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
