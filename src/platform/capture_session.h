// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/frame.h"
#include "support/signal.h"

namespace sentrel {

enum class AuthorizationStatus { notDetermined, restricted, denied, authorized };

enum class CameraPosition { unspecified, front, back };

struct CameraDevice {
  std::string uniqueID;       ///< stable across replugging and restarts
  std::string localizedName;  ///< for people; may be empty
  CameraPosition position = CameraPosition::unspecified;
  bool operator==(const CameraDevice&) const = default;
};

/// The camera that a configuration streams: the device `deviceID`, and, while that is absent or not listed,
/// whatever the default rule (front, else the session manager's default, else the first) finds. The session
/// applies this anew whenever it connects.
struct DeviceInput {
  std::optional<std::string> deviceID;
};

/// Where frames go. `onFrame` is called on the camera queue with 32-bit BGRA frames, newest only.
struct VideoDataOutput {
  std::function<void(const FrameRef&)> onFrame;
};

/// Who wants frames, and how often. While nobody does, the device is closed and its light is out.
struct FrameDemand {
  bool wanted = false;
  std::int64_t paceMs = 0;  ///< least time between two frames handed on, measured at the hand-over
  bool operator==(const FrameDemand&) const = default;
};

/// Why a capture session cannot do what it was asked, in words for a log line and as a kind for the
/// interface.
struct CaptureError {
  enum class Kind { deviceUnavailable, busy, accessDenied, noService };
  Kind kind = Kind::deviceUnavailable;
  std::string message;
};

/// The machine's one capture session.
///
/// It streams one device: an accepted input replaces the earlier one, an accepted output likewise, and inputs
/// kept while it is stopped hold no stream. It owns recovery: when its device goes, errs, or gives no frame
/// for 2 s while frames are wanted, it emits `wasInterrupted`, repeats that every 2 s while it stays so,
/// reconnects by itself and then emits `interruptionEnded`.
class CaptureSession {
 public:
  virtual ~CaptureSession() = default;

  /// Any thread.
  [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;
  /// Asks the person where the status is not determined; the answer comes on the main thread. Main thread.
  virtual void requestAccess(std::function<void(bool granted)> answer) = 0;

  /// Waits for the first listing of devices, at most `timeout`; then answers at once for ever. Camera queue.
  virtual void awaitDevices(std::chrono::milliseconds timeout) = 0;
  /// Every camera on offer. Any thread.
  [[nodiscard]] virtual std::vector<CameraDevice> devices() const = 0;
  /// The default camera at `position`, or of any kind for `unspecified`. Any thread.
  [[nodiscard]] virtual std::optional<CameraDevice> defaultDevice(CameraPosition position) const = 0;
  /// True once any camera was ever listed in this process. Any thread.
  [[nodiscard]] virtual bool hasSeenDevice() const = 0;
  /// Why there can be no listing at all (the service is not running), or none. Any thread.
  [[nodiscard]] virtual std::optional<CaptureError> serviceError() const = 0;

  /// Why the session is interrupted, while it is. Any thread.
  [[nodiscard]] virtual std::optional<CaptureError> interruptionCause() const = 0;

  // Configuration, start and stop. Camera queue.

  /// Opens a configuration; while one is open this is the same one. Nothing takes effect before the commit.
  virtual void beginConfiguration() = 0;
  virtual void commitConfiguration() = 0;
  /// The wanted frame size in pixels.
  virtual void setPreset(int width, int height) = 0;
  /// Checks that the input's device can be used now; gives the cause when it cannot.
  [[nodiscard]] virtual std::optional<CaptureError> checkInput(const DeviceInput& input) = 0;
  /// True also for a camera that is away or busy just now: the session takes it as soon as it can.
  [[nodiscard]] virtual bool canAddInput(const DeviceInput& input) = 0;
  virtual void addInput(const DeviceInput& input) = 0;
  virtual void removeInputs() = 0;
  [[nodiscard]] virtual bool canAddOutput() = 0;
  virtual void addOutput(VideoDataOutput output) = 0;
  virtual void startRunning() = 0;
  /// Closes the device and lets go of every frame.
  virtual void stopRunning() = 0;

  /// Any thread; takes effect on the camera queue.
  virtual void setFrameDemand(FrameDemand demand) = 0;

  /// Hands every frame, at the camera's own rate, to somebody who looks at it: `onFrame` is called on the
  /// camera queue and replaces an earlier one; an empty function ends it. It keeps the device open as a
  /// demand does, and leaves the pace of the output as it is. Any thread; takes effect on the camera queue.
  virtual void setPreviewTap(std::function<void(const FrameRef&)> onFrame) = 0;

  /// The camera that streams, or did last. Any thread.
  [[nodiscard]] virtual std::optional<CameraDevice> currentDevice() const = 0;

  // Emitted on the main thread.
  Signal<> wasInterrupted;
  Signal<> interruptionEnded;
  Signal<> devicesChanged;
};

}  // namespace sentrel
