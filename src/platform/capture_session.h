// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/frame.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

enum class AuthorizationStatus { notDetermined, restricted, denied, authorized };

enum class CameraPosition { unspecified, front, back };

struct CameraDevice {
  std::string uniqueID;       ///< stable across replugging and restarts
  std::string localizedName;  ///< for people; may be empty
  CameraPosition position = CameraPosition::unspecified;
  bool operator==(const CameraDevice&) const = default;
};

/// What a capture session is to stream: one camera's frames, of one size, to one consumer.
struct CaptureRequest {
  int width = 640;  ///< pixels of every delivered frame, whatever the camera gives
  int height = 480;
  /// The camera to stream. While it is absent or not listed, the default one is used: the first at the front,
  /// else the session manager's default, else the first. The choice is made anew at every connection.
  std::optional<std::string> deviceID;
  /// Called on the camera queue with 32-bit BGRA frames; a frame that is overtaken by a newer one is dropped.
  std::function<void(const FrameRef&)> onFrame;
};

/// Who wants frames, and how often. While nobody does, the device is closed and its light is out.
struct FrameDemand {
  bool wanted = false;
  std::int64_t paceMs = 0;  ///< least time between two frames handed on, measured at the hand-over
  bool operator==(const FrameDemand&) const = default;
};

/// Why a capture session cannot do what it was asked, as a kind for the interface, and for a log line as the
/// key of a text or in another program's words; these may be empty.
struct CaptureError {
  enum class Kind { deviceUnavailable, busy, accessDenied, noService };
  Kind kind = Kind::deviceUnavailable;
  std::string message;
};

/// The machine's one capture session.
///
/// It streams one device, and holds a stream only while it runs and somebody wants frames. It owns recovery:
/// when its device goes, errs, or gives no frame for 2 s while frames are wanted, it emits `wasInterrupted`,
/// repeats that every 2 s while it stays so, reconnects by itself and then emits `interruptionEnded`.
class CaptureSession {
 public:
  virtual ~CaptureSession() = default;

  /// Any thread.
  [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;
  /// Asks the person where the status is not determined; the answer comes on the main thread. Main thread.
  virtual void requestAccess(std::function<void(bool granted)> answer) = 0;

  /// Keeps `devices` up to date until the registration ends. Without one, and while the session is not open,
  /// it may be empty, and nobody is told of changes. Several may be held. Any thread.
  [[nodiscard]] virtual Registration observeDevices() = 0;
  /// Waits for a listing of devices, at most `timeout`; where one is kept up to date it answers at once.
  /// Where this process has never seen a camera it says why: `noService`, or none is connected. Camera queue.
  [[nodiscard]] virtual std::optional<CaptureError> awaitDevices(std::chrono::milliseconds timeout) = 0;
  /// Every camera on offer. Any thread.
  [[nodiscard]] virtual std::vector<CameraDevice> devices() const = 0;
  /// Why the session is interrupted, while it is. Any thread.
  [[nodiscard]] virtual std::optional<CaptureError> interruptionCause() const = 0;

  /// Replaces the request as a whole; a session that runs goes on with the new one at once. A camera that is
  /// away or busy is no error: the session takes it as soon as it can. One that this process has never seen
  /// is treated as no choice. On an error the session has no camera until the next call. Camera queue.
  [[nodiscard]] virtual std::optional<CaptureError> configure(CaptureRequest request) = 0;

  /// Camera queue.
  virtual void startRunning() = 0;
  /// Closes the device and lets go of every frame. Camera queue.
  virtual void stopRunning() = 0;

  /// Any thread; takes effect on the camera queue.
  virtual void setFrameDemand(FrameDemand demand) = 0;

  /// Hands every frame, at the camera's own rate, to somebody who looks at it: `onFrame` is called on the
  /// camera queue and replaces an earlier one; an empty function ends it. It keeps the device open as a
  /// demand does, and leaves the pace of the request's frames as it is. Any thread; takes effect on the
  /// camera queue.
  virtual void setPreviewTap(std::function<void(const FrameRef&)> onFrame) = 0;

  /// The camera that streams, or did last. Any thread.
  [[nodiscard]] virtual std::optional<CameraDevice> currentDevice() const = 0;
  /// Another program that gets pictures from that camera: the name that it gives itself, up to
  /// `longestUserName` bytes of anything; empty where there is none. Any thread.
  [[nodiscard]] virtual std::string otherUser() const = 0;
  static constexpr std::size_t longestUserName = 256;
  /// How long the device has been open; none while it is closed. Any thread.
  [[nodiscard]] virtual std::optional<std::chrono::milliseconds> openFor() const = 0;

  // Emitted on the main thread.
  Signal<> wasInterrupted;
  Signal<> interruptionEnded;
  Signal<> devicesChanged;
};

/// The person's consent to use the camera, asked for before anything opens it. A yes lasts as long as the
/// process; after a no the next request asks again. Main thread, except for `isGiven`.
class CameraConsent {
 public:
  static constexpr std::size_t mostWaiting = 8;

  explicit CameraConsent(bool given) : given_(given) {}

  /// Any thread.
  [[nodiscard]] bool isGiven() const { return given_.load(); }

  /// Whether the person's last answer was a no.
  [[nodiscard]] bool wasRefused() const { return refused_; }

  /// Calls `answer` with the person's answer, at once where that is known. When more than `mostWaiting` wait,
  /// the oldest gets a no: it has long given up.
  void request(std::function<void(bool given)> answer) {
    if (isGiven()) {
      answer(true);
      return;
    }
    waiting_.push_back(std::move(answer));
    if (waiting_.size() > mostWaiting) {
      const auto first = std::move(waiting_.front());
      waiting_.pop_front();
      first(false);
    }
    asked.emit();
  }

  /// The person answers; whoever waits is told.
  void answer(bool yes) {
    given_ = yes;
    refused_ = !yes;
    for (const auto& told : std::exchange(waiting_, {})) told(yes);
  }

  /// The person is to be asked.
  Signal<> asked;

 private:
  std::atomic<bool> given_;
  bool refused_ = false;
  std::deque<std::function<void(bool)>> waiting_;
};

}  // namespace sentrel
