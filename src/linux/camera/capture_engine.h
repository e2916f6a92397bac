// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "linux/camera/camera_directory.h"
#include "linux/camera/capture_stream.h"
#include "linux/camera/capture_timing.h"
#include "linux/camera/frame_converter.h"
#include "linux/camera/pipewire_loop.h"
#include "platform/capture_session.h"
#include "support/frame.h"
#include "support/serial_queue.h"

namespace sentrel {

/// The machine behind a capture session: it holds one stream exactly while the session runs, frames are
/// wanted and there is a request; it paces, converts and recovers. The PipeWire loop decides,
/// the camera queue converts and delivers.
class CaptureEngine : public std::enable_shared_from_this<CaptureEngine> {
 public:
  /// Called on any thread.
  struct Events {
    std::function<void()> interrupted;
    std::function<void()> interruptionEnded;
    std::function<void()> devicesChanged;
  };

  CaptureEngine(std::shared_ptr<SerialQueue> cameraQueue, Events events);
  ~CaptureEngine();
  CaptureEngine(const CaptureEngine&) = delete;
  CaptureEngine& operator=(const CaptureEngine&) = delete;

  void start();
  /// Ends the stream, the connection and the thread; nothing is called afterwards, save a delivery that is
  /// under way. Any thread but the engine's own.
  void shutDown();

  // Camera queue.
  /// Without a request the camera is closed.
  void setRequest(std::optional<CaptureRequest> request);
  void setRunning(bool running);
  void setDemand(FrameDemand demand);
  /// Who looks at every frame, or nobody.
  void setPreviewTap(std::function<void(const FrameRef&)> onFrame);

  // Any thread.
  [[nodiscard]] CameraDirectory& directory() { return directory_; }
  /// Frames dropped so far because they could not be trusted or read.
  [[nodiscard]] std::int64_t brokenFrames() const { return brokenFrames_.load(); }
  /// Why no camera is listed, where none is.
  [[nodiscard]] CaptureError missingCamera() const;
  /// Why the camera is interrupted, while it is.
  [[nodiscard]] std::optional<CaptureError> interruptionCause() const;
  /// The camera that streams, or did last.
  [[nodiscard]] std::optional<CameraDevice> currentDevice() const;
  /// Whether the camera is meant to be open: reports count only then.
  [[nodiscard]] bool isOpen() const { return open_.load(); }

 private:
  /// What the PipeWire loop is told to do.
  struct Orders {
    bool isConfigured = false;
    int width = 0;
    int height = 0;
    std::optional<std::string> deviceID;
    bool running = false;
    bool preview = false;
    FrameDemand demand;
  };

  /// A node that has refused, and when it is asked again.
  struct Retry {
    std::string serial;
    int failures = 0;
    SteadyTime due{};
  };

  /// Whether the choice of the camera is made anew.
  enum class Retarget { no, yes };

  // Camera queue.
  void applyOrders(Retarget retarget);
  void deliver(bool due);
  void deliverHeld();
  bool handOn(const FrameRef& frame);

  // PipeWire loop.
  [[nodiscard]] bool shouldBeOpen() const;
  void reconcile();
  void openCamera(SteadyTime now);
  void closeCamera();
  void dropLostStream(SteadyTime now);
  void streamFailed(SteadyTime now, const CaptureError& error);
  void retargetStream(SteadyTime now);
  void connectStream(SteadyTime now);
  void armWatch(SteadyTime now);
  void watchTick();
  void endSilentStream(SteadyTime now);
  void pump();
  void frameArrived();
  void frameRead(bool readable, std::optional<SteadyTime> handedOnAt);
  [[nodiscard]] bool wantsNow(SteadyTime now) const;
  void goodFrame(SteadyTime now);
  void reportLost(SteadyTime now, CaptureError cause);
  void setCause(std::optional<CaptureError> cause);

  std::shared_ptr<SerialQueue> cameraQueue_;
  Events events_;
  std::atomic<std::int64_t> brokenFrames_{0};
  BufferLease lease_;
  std::atomic<bool> open_{false};

  std::atomic<bool> serviceMissing_{false};
  mutable std::mutex causeMutex_;
  std::optional<CaptureError> cause_;
  std::optional<CameraDevice> currentDevice_;

  // Camera queue.
  std::optional<CaptureRequest> request_;
  bool running_ = false;
  FrameDemand demand_;
  std::function<void(const FrameRef&)> preview_;
  FrameRef held_;  // the newest frame that was only looked at, for when the pace allows it
  std::optional<FramePool> pool_;
  std::optional<FrameConverter> converter_;

  // PipeWire loop, under its lock.
  PipeWireLoop loop_;
  LoopEvent reconcileSoon_;
  LoopTimer watchTimer_;
  LoopTimer paceTimer_;
  CameraDirectory directory_;
  Orders orders_;
  bool ended_ = false;
  bool holdsFrame_ = false;   // the camera queue has one that was only looked at
  bool handOnIsDue_ = false;  // a frame is on its way to the consumer
  bool retarget_ = false;
  std::optional<CaptureStream> stream_;
  SteadyTime streamBegun_{};
  bool streamHasDelivered_ = false;
  Retry retry_;
  InterruptionWatch watch_;
  FramePacer pacer_;
  PipeWireConnection connection_;
};

}  // namespace sentrel
