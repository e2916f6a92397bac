// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/capture_session.h"

namespace sentrel::test {

/// A capture session without a camera: it does what it is told, refuses on demand, and tells what it holds.
/// Its fields are for the thread that would call the interface, and for the test while the queues are idle.
class FakeCaptureSession final : public CaptureSession {
 public:
  // What it is to do.
  AuthorizationStatus status = AuthorizationStatus::authorized;
  std::vector<CameraDevice> cameras{{"front", "Front", CameraPosition::front}};
  bool seen = true;
  std::optional<CaptureError> service;
  std::optional<CaptureError> inputError;
  std::optional<CaptureError> cause;
  bool takesInput = true;
  bool takesOutput = true;
  std::function<void()> whileListing;  ///< runs on the camera queue when devices are awaited

  // What it was told.
  std::vector<std::function<void(bool)>> accessRequests;
  bool configuring = false;
  bool running = false;
  int starts = 0;
  int commits = 0;
  std::pair<int, int> preset;
  std::optional<DeviceInput> input;
  VideoDataOutput output;
  FrameDemand demand;
  std::function<void(const FrameRef&)> previewTap;

  /// Whether the device is open: its light is on.
  [[nodiscard]] bool isOpen() const {
    return running && !configuring && (demand.wanted || previewTap) && input && !cameras.empty();
  }
  /// Whether frames come to the output.
  [[nodiscard]] bool delivers() const { return isOpen() && demand.wanted && !cause; }
  void interrupt(CaptureError::Kind kind) {
    cause = CaptureError{kind, "lost"};
    wasInterrupted.emit();
  }
  void endInterruption() {
    cause.reset();
    interruptionEnded.emit();
  }

  [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return status; }
  void requestAccess(std::function<void(bool)> answer) override {
    accessRequests.push_back(std::move(answer));
  }

  void awaitDevices(std::chrono::milliseconds) override {
    if (whileListing) whileListing();
  }
  [[nodiscard]] std::vector<CameraDevice> devices() const override { return cameras; }
  [[nodiscard]] std::optional<CameraDevice> defaultDevice(CameraPosition position) const override {
    const auto fits = [position](const CameraDevice& camera) {
      return position == CameraPosition::unspecified || camera.position == position;
    };
    const auto found = std::ranges::find_if(cameras, fits);
    return found == cameras.end() ? std::nullopt : std::optional(*found);
  }
  [[nodiscard]] bool hasSeenDevice() const override { return seen; }
  [[nodiscard]] std::optional<CaptureError> serviceError() const override { return service; }
  [[nodiscard]] std::optional<CaptureError> interruptionCause() const override { return cause; }

  void beginConfiguration() override { configuring = true; }
  void commitConfiguration() override {
    configuring = false;
    ++commits;
  }
  void setPreset(int width, int height) override { preset = {width, height}; }
  [[nodiscard]] std::optional<CaptureError> checkInput(const DeviceInput& checked) override {
    const bool known =
        !checked.deviceID || std::ranges::count(cameras, *checked.deviceID, &CameraDevice::uniqueID);
    if (!known) return CaptureError{CaptureError::Kind::deviceUnavailable, "never seen"};
    return inputError;
  }
  [[nodiscard]] bool canAddInput(const DeviceInput&) override { return takesInput; }
  void addInput(const DeviceInput& added) override { input = added; }
  void removeInputs() override { input.reset(); }
  [[nodiscard]] bool canAddOutput() override { return takesOutput; }
  void addOutput(VideoDataOutput added) override { output = std::move(added); }
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
};

}  // namespace sentrel::test
