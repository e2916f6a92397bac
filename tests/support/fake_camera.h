// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/capture_session.h"
#include "platform/face_detector.h"

namespace sentrel::test {

/// A capture session without a camera: it does what it is told, refuses on demand, and tells what it holds.
/// Its fields are for the thread that would call the interface, and for the test while the queues are idle.
struct FakeCaptureSession final : CaptureSession {
  // What it is to do.
  AuthorizationStatus status = AuthorizationStatus::authorized;
  std::vector<CameraDevice> cameras{{"front", "Front", CameraPosition::front}};
  bool seen = true;
  CaptureError unseen{CaptureError::Kind::deviceUnavailable, "never seen"};  ///< while no camera was
  std::optional<CaptureError> configureError;
  std::optional<CaptureError> cause;
  std::string user;                    ///< another program that has the camera
  std::function<void()> whileListing;  ///< runs on the camera queue when devices are awaited

  // What it was told.
  std::vector<std::function<void(bool)>> accessRequests;
  bool running = false;
  int starts = 0;
  std::optional<CaptureRequest> request;  ///< the last one, unless that failed
  FrameDemand demand;
  std::function<void(const FrameRef&)> previewTap;
  std::shared_ptr<int> observers = std::make_shared<int>(0);  ///< of the devices

  /// Whether the device is open: its light is on.
  [[nodiscard]] bool isOpen() const {
    return running && (demand.wanted || previewTap) && request && !cameras.empty();
  }
  /// Whether frames come to whoever asked for them.
  [[nodiscard]] bool delivers() const { return isOpen() && demand.wanted && !cause; }
  void plug(bool plugged) {
    cameras.assign(plugged ? 1 : 0, {"front", "Front", CameraPosition::front});
    seen = seen || plugged;
    devicesChanged.emit();
  }
  void interrupt(CaptureError::Kind kind) {
    cause = CaptureError{kind, "lost"};
    wasInterrupted.emit();
  }

  [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return status; }
  void requestAccess(std::function<void(bool)> answer) override {
    accessRequests.push_back(std::move(answer));
  }

  [[nodiscard]] Registration observeDevices() override {
    ++*observers;
    return Registration([observers = observers] { --*observers; });
  }
  [[nodiscard]] std::optional<CaptureError> awaitDevices(std::chrono::milliseconds) override {
    if (whileListing) whileListing();
    return seen || !cameras.empty() ? std::nullopt : std::optional(unseen);
  }
  [[nodiscard]] std::vector<CameraDevice> devices() const override { return cameras; }
  [[nodiscard]] std::optional<CaptureError> interruptionCause() const override { return cause; }

  [[nodiscard]] std::optional<CaptureError> configure(CaptureRequest asked) override {
    request.reset();
    if (!configureError) request.emplace(std::move(asked));
    return configureError;
  }
  void startRunning() override {
    running = true;
    ++starts;
  }
  void stopRunning() override { running = false; }

  void setFrameDemand(FrameDemand wanted) override { demand = wanted; }
  void setPreviewTap(std::function<void(const FrameRef&)> onFrame) override {
    previewTap = std::move(onFrame);
  }
  [[nodiscard]] std::optional<CameraDevice> currentDevice() const override {
    return cameras.empty() ? std::nullopt : std::optional(cameras.front());
  }
  [[nodiscard]] std::string otherUser() const override { return user; }
  [[nodiscard]] std::optional<std::chrono::milliseconds> openFor() const override {
    return isOpen() ? std::optional(std::chrono::milliseconds(0)) : std::nullopt;
  }
};

/// A detector that finds what the test put there. Its fields are for the analysis queue, and for the test
/// while that queue is idle.
struct ScriptedDetector final : FaceDetector {
  std::optional<FaceDetectorError> prepareError;
  std::optional<FaceDetections> next = FaceDetections{};
  std::function<void()> whileWorking;
  std::vector<std::int64_t> timestamps;
  std::vector<FaceTuning> tunings;
  int preparations = 0;

  [[nodiscard]] std::optional<FaceDetectorError> prepare() override {
    ++preparations;
    return prepareError;
  }
  [[nodiscard]] std::optional<FaceDetections> detect(const Frame&, std::int64_t timestampMs) override {
    timestamps.push_back(timestampMs);
    if (whileWorking) whileWorking();
    return next;
  }
  void restartTracking() override {}
  void release() override {}
  void tune(const FaceTuning& tuning) override { tunings.push_back(tuning); }
};

/// A face `width` of the image wide, at `x`, as still as a picture.
inline FaceObservation faceOf(double width, double x = 0.1, std::optional<double> yaw = 0.0) {
  return {{x, 0.2, width, width * 1.3}, yaw, std::nullopt, 60'000};
}

inline FaceDetections detectionsOf(std::initializer_list<FaceObservation> rectangles,
                                   std::initializer_list<FaceObservation> landmarks) {
  FaceDetections detections;
  for (const auto& face : rectangles) detections.rectangles.push(face);
  for (const auto& face : landmarks) detections.landmarks.push(face);
  return detections;
}

}  // namespace sentrel::test
