// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "linux/camera/stream_format.h"
#include "platform/capture_session.h"

struct pw_buffer;
struct pw_context;
struct pw_core;
struct pw_stream;

namespace sentrel {

/// One of the camera's buffers, leased to the camera queue. The camera may take its memory away at any time;
/// then the PipeWire loop waits for a reader that is just at it.
class BufferLease {
 public:
  /// PipeWire loop.
  void grant(const RawFrame& frame) {
    const std::lock_guard lock(mutex_);
    frame_ = frame;
  }

  /// Nobody reads the buffer any more once this returns. PipeWire loop.
  void revoke() {
    const std::lock_guard lock(mutex_);
    frame_.reset();
  }

  /// Calls `read` with the frame and ends the lease; false when there is none. Camera queue; `read` must not
  /// wait for the PipeWire loop.
  template <class Read>
  bool use(Read&& read) {
    const std::lock_guard lock(mutex_);
    if (!frame_) return false;
    read(*frame_);
    frame_.reset();
    return true;
  }

 private:
  std::mutex mutex_;
  std::optional<RawFrame> frame_;
};

/// The kind of a failure of which PipeWire gives the text alone: strerror's, where a device is at fault.
[[nodiscard]] CaptureError captureErrorFrom(std::string message);

/// The stream from one camera node, from its connection to its end. It keeps the newest good buffer and
/// recycles every other one. PipeWire loop, under its lock; it is made and destroyed on the loop's own
/// thread.
class CaptureStream {
 public:
  struct Events {
    std::function<void()> frameArrived;  ///< a newer frame waits
    std::function<void()> failed;        ///< `error()` says why; destroy the stream later, not in here
  };

  /// Asks the camera for `width` x `height` pixels or what comes near. `lease` and `broken`, which
  /// counts the buffers that could not be trusted, outlive the stream.
  CaptureStream(pw_context* context, std::string nodeSerial, int width, int height, BufferLease& lease,
                std::atomic<std::int64_t>& broken, Events events);
  /// Disconnects; the camera is free when the daemon has read that.
  ~CaptureStream();
  CaptureStream(const CaptureStream&) = delete;
  CaptureStream& operator=(const CaptureStream&) = delete;

  [[nodiscard]] const std::string& nodeSerial() const { return nodeSerial_; }
  [[nodiscard]] int wantedWidth() const { return wantedWidth_; }
  [[nodiscard]] int wantedHeight() const { return wantedHeight_; }
  [[nodiscard]] const std::optional<CaptureError>& error() const { return error_; }

  [[nodiscard]] bool hasFrame() const { return newest_ != nullptr; }
  /// The encoding of the frame that waits.
  [[nodiscard]] PixelFormat pixels() const { return newestFrame_.format.pixels; }
  [[nodiscard]] bool isLeased() const { return leased_ != nullptr; }
  /// Leases the buffer of the frame that waits; requires `hasFrame` and not `isLeased`.
  void startLease();
  /// The lease is over: its buffer goes back to the camera.
  void endLease();

 private:
  struct Callbacks;

  void connect(pw_context* context);
  void formatAgreed(const void* parameter);
  void readBuffers();
  void bufferRemoved(pw_buffer* buffer);
  void recycle(pw_buffer* buffer);
  void fail(CaptureError error);

  std::string nodeSerial_;
  int wantedWidth_;
  int wantedHeight_;
  BufferLease& lease_;
  std::atomic<std::int64_t>& broken_;
  Events events_;
  std::unique_ptr<Callbacks> callbacks_;
  pw_core* core_ = nullptr;
  pw_stream* stream_ = nullptr;
  std::optional<VideoFormat> format_;
  BufferCheck check_;
  pw_buffer* newest_ = nullptr;
  RawFrame newestFrame_;
  pw_buffer* leased_ = nullptr;
  std::optional<CaptureError> error_;
};

}  // namespace sentrel
