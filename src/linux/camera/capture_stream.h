// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "linux/camera/stream_format.h"
#include "platform/capture_session.h"

struct pw_buffer;
struct pw_context;
struct pw_core;
struct pw_stream;

namespace sentrel {

/// Where the newest good buffer of the camera waits for the camera queue; every other one goes straight back
/// to the camera. It outlives the streams that use it, one after the other: the library's data thread needs
/// nothing of theirs.
class NewestFrame {
 public:
  /// `arrived` is told of each newer frame that waits, on the library's data thread. `broken`, which counts
  /// the buffers that could not be trusted, outlives this.
  NewestFrame(std::atomic<std::int64_t>& broken, std::function<void(PixelFormat)> arrived);

  /// From now on the buffers are those of a stream. PipeWire loop.
  void begin(pw_stream* stream);
  /// Nobody touches the stream or a buffer of it any more once this returns. PipeWire loop.
  void end();
  /// What the buffers hold from now on. PipeWire loop.
  void setFormat(std::optional<VideoFormat> format);
  /// The same for one buffer. The camera may take its memory away at any time; then the loop waits for a
  /// reader that is just at it. PipeWire loop.
  void remove(pw_buffer* buffer);

  /// Takes in what the camera has delivered. The library's data thread.
  void receive();

  [[nodiscard]] bool isWaiting() const {
    const std::lock_guard lock(mutex_);
    return buffer_ != nullptr;
  }

  /// Calls `read` with the frame that waits and gives its buffer back; false when there is none. Camera
  /// queue; `read` must not wait for the PipeWire loop.
  template <class Read>
  bool use(Read&& read) {
    const std::lock_guard reading(readMutex_);
    pw_buffer* const buffer = take();
    if (buffer == nullptr) return false;
    read(std::as_const(taken_));
    recycle(buffer);
    return true;
  }

 private:
  /// The encoding of the frame that waits, where it is a newer one.
  [[nodiscard]] std::optional<PixelFormat> dequeue();
  [[nodiscard]] pw_buffer* take();
  void recycle(pw_buffer* buffer);

  std::atomic<std::int64_t>& broken_;
  const std::function<void(PixelFormat)> arrived_;
  std::mutex readMutex_;  // held while a buffer is read; locked before the other one
  mutable std::mutex mutex_;
  pw_stream* stream_ = nullptr;
  std::optional<VideoFormat> format_;
  BufferCheck check_;
  pw_buffer* buffer_ = nullptr;  // that waits
  RawFrame frame_;               // in it
  RawFrame taken_;               // that is read
};

/// The kind of a failure of which PipeWire gives the text alone: strerror's, where a device is at fault.
[[nodiscard]] CaptureError captureErrorFrom(std::string message);

/// The stream from one camera node, from its connection to its end. PipeWire loop, under its lock; it is made
/// and destroyed on the loop's own thread.
class CaptureStream {
 public:
  /// Asks the camera for `width` x `height` pixels, or more, or what comes near. `newest` gets the frames and
  /// outlives the stream; `remote`, too, where the camera is seen on this connection only. When `failed` is
  /// called `error()` says why; destroy the stream later, not in there.
  CaptureStream(pw_context* context, pw_core* remote, std::string nodeSerial, int width, int height,
                Pixels pixels, NewestFrame& newest, std::function<void()> failed);
  /// Disconnects; the camera is free when the daemon has read that.
  ~CaptureStream();
  CaptureStream(const CaptureStream&) = delete;
  CaptureStream& operator=(const CaptureStream&) = delete;

  [[nodiscard]] const std::string& nodeSerial() const { return nodeSerial_; }
  [[nodiscard]] int wantedWidth() const { return wantedWidth_; }
  [[nodiscard]] int wantedHeight() const { return wantedHeight_; }
  [[nodiscard]] Pixels wantedPixels() const { return wantedPixels_; }
  [[nodiscard]] const std::optional<CaptureError>& error() const { return error_; }

 private:
  struct Callbacks;

  void connect(pw_context* context, pw_core* remote);
  void formatAgreed(const void* parameter);
  void fail(CaptureError error);

  std::string nodeSerial_;
  int wantedWidth_;
  int wantedHeight_;
  Pixels wantedPixels_;
  NewestFrame& newest_;
  std::function<void()> failed_;
  std::unique_ptr<Callbacks> callbacks_;
  pw_core* core_ = nullptr;  // its own
  pw_stream* stream_ = nullptr;
  std::optional<CaptureError> error_;
};

}  // namespace sentrel
