// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/camera/buffer_check.h"
#include "linux/camera/capture_counters.h"
#include "linux/camera/picture_loan.h"
#include "linux/camera/raw_picture.h"
#include "platform/capture_session.h"

struct pw_buffer;
struct pw_context;
struct pw_core;
struct pw_stream;

namespace sentrel {

/// The stream from one camera node, from its connection to its end. It keeps the newest good picture and
/// recycles every other one. PipeWire loop, under its lock; it is made and destroyed on the loop's own
/// thread.
class CaptureStream {
 public:
  struct Events {
    std::function<void()> pictureArrived;  ///< a newer picture waits
    std::function<void()> failed;          ///< `error()` says why; destroy the stream later, not in here
  };

  /// Asks the camera for `width` x `height` pixels or what comes near. `loan` and `counters` outlive the
  /// stream.
  CaptureStream(pw_context* context, std::string nodeSerial, int width, int height, PictureLoan& loan,
                CaptureCounters& counters, Events events);
  /// Disconnects; the camera is free when the daemon has read that.
  ~CaptureStream();
  CaptureStream(const CaptureStream&) = delete;
  CaptureStream& operator=(const CaptureStream&) = delete;

  [[nodiscard]] const std::string& nodeSerial() const { return nodeSerial_; }
  [[nodiscard]] int wantedWidth() const { return wantedWidth_; }
  [[nodiscard]] int wantedHeight() const { return wantedHeight_; }
  [[nodiscard]] const std::optional<CaptureError>& error() const { return error_; }

  [[nodiscard]] bool hasPicture() const { return newest_ != nullptr; }
  [[nodiscard]] bool isLent() const { return lent_ != nullptr; }
  /// The encoding of the picture that waits.
  [[nodiscard]] PixelFormat pixels() const { return newestPicture_.format.pixels; }
  /// Puts the picture that waits on loan; requires `hasPicture` and not `isLent`.
  void lend();
  /// The loan is over: its buffer goes back to the camera.
  void giveBack();

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
  PictureLoan& loan_;
  CaptureCounters& counters_;
  Events events_;
  std::unique_ptr<Callbacks> callbacks_;
  pw_core* core_ = nullptr;
  pw_stream* stream_ = nullptr;
  std::optional<VideoFormat> format_;
  BufferCheck check_;
  pw_buffer* newest_ = nullptr;
  RawPicture newestPicture_;
  pw_buffer* lent_ = nullptr;
  std::optional<CaptureError> error_;
};

}  // namespace sentrel
