// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/camera/camera_directory.h"
#include "linux/camera/capture_stream.h"
#include "linux/camera/frame_converter.h"
#include "linux/camera/pipewire_loop.h"
#include "platform/capture_session.h"
#include "platform/screen_reads.h"
#include "support/frame.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

/// False when `folder` holds video device files and this process may read none of them. Opens nothing: that
/// would wake a camera. Any thread.
[[nodiscard]] bool mayReadVideoDevices(const std::filesystem::path& folder = "/dev");

/// Decides when a camera counts as interrupted: at once when it is lost, or after 2 s without a good frame;
/// and again every 2 s while it stays so. It rests while the camera is meant to be closed. One thread.
class InterruptionWatch {
 public:
  static constexpr std::chrono::milliseconds timeout{2000};

  /// The camera is meant to be open from now on.
  void open(SteadyTime now) {
    open_ = true;
    interrupted_ = false;
    since_ = now;
  }
  void close() { open_ = interrupted_ = false; }
  [[nodiscard]] bool isOpen() const { return open_; }
  [[nodiscard]] bool isInterrupted() const { return interrupted_; }

  /// The camera was exchanged on purpose: the new one has the whole time.
  void restart(SteadyTime now) {
    if (open_ && !interrupted_) since_ = now;
  }
  /// A good frame came at a moment; true when it ends an interruption.
  [[nodiscard]] bool goodFrame(SteadyTime moment) {
    if (!open_) return false;
    since_ = moment;
    return std::exchange(interrupted_, false);
  }
  /// There is nothing to get frames from; true when that has to be reported.
  [[nodiscard]] bool lost(SteadyTime now) { return open_ && !interrupted_ && interrupt(now); }
  /// Time passes; true when an interruption has to be reported, for the first time or again.
  [[nodiscard]] bool tick(SteadyTime now) { return open_ && now - since_ >= timeout && interrupt(now); }
  /// When to call `tick`; nothing while it rests.
  [[nodiscard]] std::optional<SteadyTime> nextTick() const {
    return open_ ? std::optional(since_ + timeout) : std::nullopt;
  }

 private:
  bool interrupt(SteadyTime now) {
    since_ = now;
    return interrupted_ = true;
  }

  bool open_ = false;
  bool interrupted_ = false;
  SteadyTime since_{};  // the last good frame, or the last report
};

/// The capture session on PipeWire. It holds one stream exactly while it runs, frames are wanted and there is
/// a request; it paces, converts and recovers. The PipeWire loop decides, the camera queue paces, converts
/// and delivers: it wakes for a frame only when one may be handed on, or somebody looks at every one. A
/// picture of another size than the one asked for is cut to its shape about the centre and scaled. The
/// connection that lists the cameras tells also who gets pictures from whom. It wakes this process whenever
/// anybody begins or ends to use PipeWire, hence it lasts only while the camera is open or somebody observes.
class PipeWireCaptureSession final : public CaptureSession,
                                     public ScreenReads,
                                     public std::enable_shared_from_this<PipeWireCaptureSession> {
 public:
  /// Asks somebody for a socket that is connected to the daemon, where the program's own way there shows no
  /// camera; called on the main thread, and answered there, once or never.
  using OpenRemote = std::function<void(std::function<void(std::shared_ptr<const int> socket)> opened)>;

  /// Without `consent` the person is not asked. When the last owner of what this gives lets go, the camera is
  /// closed and its thread has ended before that returns; nothing is called afterwards, save a delivery that
  /// is under way. Any thread but the session's own.
  [[nodiscard]] static std::shared_ptr<PipeWireCaptureSession> create(
      std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<SerialQueue> cameraQueue,
      std::shared_ptr<CameraConsent> consent = nullptr, OpenRemote openRemote = nullptr);
  ~PipeWireCaptureSession() override;
  PipeWireCaptureSession(const PipeWireCaptureSession&) = delete;
  PipeWireCaptureSession& operator=(const PipeWireCaptureSession&) = delete;

  [[nodiscard]] AuthorizationStatus authorizationStatus() const override;
  void requestAccess(std::function<void(bool granted)> answer) override;

  [[nodiscard]] Registration observeDevices() override;
  [[nodiscard]] Registration observe() override { return observeDevices(); }
  [[nodiscard]] std::optional<CaptureError> awaitDevices(std::chrono::milliseconds timeout) override;
  [[nodiscard]] std::vector<CameraDevice> devices() const override;
  [[nodiscard]] std::optional<CaptureError> interruptionCause() const override;

  [[nodiscard]] std::optional<CaptureError> configure(CaptureRequest request) override;
  void startRunning() override;
  void stopRunning() override;

  void setFrameDemand(FrameDemand demand) override;
  void setPreviewTap(std::function<void(const FrameRef&)> onFrame) override;
  [[nodiscard]] std::optional<CameraDevice> currentDevice() const override;
  [[nodiscard]] std::string otherUser() const override;
  [[nodiscard]] std::optional<std::chrono::milliseconds> openFor() const override;

  [[nodiscard]] const Published<std::vector<ScreenRead>>& screenReads() const override {
    return screenReads_;
  }

  /// Frames dropped so far because they could not be trusted or read. Any thread.
  [[nodiscard]] std::int64_t brokenFrames() const { return brokenFrames_.load(); }

 private:
  /// What the session is told to do.
  struct Orders {
    std::optional<CaptureRequest> request;  // without one the camera is closed
    bool running = false;
    FrameDemand demand;
    std::function<void(const FrameRef&)> preview;  // who looks at every frame, or nobody
  };

  /// A node that has refused, and when it is asked again.
  struct Retry {
    std::string serial;
    int failures = 0;
    SteadyTime due{};
  };

  /// Whether the choice of the camera is made anew.
  enum class Retarget { no, yes };

  PipeWireCaptureSession(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<SerialQueue> cameraQueue,
                         std::shared_ptr<CameraConsent> consent, OpenRemote openRemote);
  void shutDown();

  // Any thread.
  void changeOrders(std::function<void(Orders&)> change);
  void report(Signal<> CaptureSession::*signal);
  void remoteOpened(std::shared_ptr<const int> socket);
  void reportScreenReads();

  // Camera queue.
  void applyOrders(Retarget retarget = Retarget::no);
  void callServe();
  void serve();
  void readFrame(bool due);
  void handOn(const FrameRef& frame);
  [[nodiscard]] SteadyTime nextDue() const;

  // The library's data thread.
  void frameArrived(PixelFormat pixels);

  // The library's data thread or the camera queue.
  void goodFrame();

  // PipeWire loop.
  [[nodiscard]] bool shouldBeOpen() const;
  void reconcile();
  void followNeed(SteadyTime now);
  void followRemote();
  void rest();
  void openCamera(SteadyTime now);
  void closeCamera();
  void noteStream(SteadyTime now);
  void dropLostStream(SteadyTime now);
  void streamFailed(SteadyTime now, const CaptureError& error);
  void retargetStream(SteadyTime now);
  void connectStream(SteadyTime now);
  void armWatch(SteadyTime now);
  void watchTick();
  void endSilentStream(SteadyTime now);
  void noteGoodFrames();
  void reportLost(SteadyTime now, CaptureError cause);
  void setCause(std::optional<CaptureError> cause);

  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<SerialQueue> cameraQueue_;
  std::shared_ptr<CameraConsent> consent_;
  const OpenRemote openRemote_;
  std::atomic<std::int64_t> brokenFrames_{0};
  NewestFrame newest_{brokenFrames_, [this](PixelFormat pixels) { frameArrived(pixels); }};
  std::atomic<SteadyTime> serveFrom_{SteadyTime::max()};  // a frame that arrives later has the queue called
  std::atomic<bool> serveCalled_{false};                  // and it has yet to come
  std::atomic<SteadyTime> lastGood_{SteadyTime{}};        // when the last good frame came
  std::atomic<bool> awaitsGood_{false};                   // the loop wants to hear of the next one at once
  std::atomic<bool> open_{false};  // the camera is meant to be open: reports count only then
  std::atomic<SteadyTime> streamsSince_{
      SteadyTime{}};  // without interruption; the epoch while no stream does

  Published<std::vector<ScreenRead>> screenReads_;  // main thread
  std::atomic<bool> readsReported_{false};          // and not yet read there

  std::atomic<int> observers_{0};
  std::atomic<bool> serviceMissing_{false};
  mutable std::mutex causeMutex_;
  std::optional<CaptureError> cause_;
  std::shared_ptr<const int> remote_;          // just opened
  std::optional<CameraDevice> currentDevice_;  // that streams, or did last

  // Camera queue.
  Orders wanted_;
  FrameRef held_;  // the newest frame that was only looked at, for when the pace allows it
  std::optional<SteadyTime> handedOnAt_;  // the last frame since the camera was opened
  SteadyTime calledFor_{};                // when the queue calls itself
  std::optional<FramePool> pool_;
  std::optional<FrameConverter> converter_;

  // PipeWire loop, under its lock.
  PipeWireLoop loop_;
  LoopEvent reconcileSoon_;
  LoopTimer watchTimer_;
  LoopTimer restTimer_;
  CameraDirectory directory_;
  Orders orders_;  // those wanted, as the loop was told
  bool ended_ = false;
  bool askedForRemote_ = false;
  bool retarget_ = false;
  std::optional<CaptureStream> stream_;
  SteadyTime streamBegun_{};
  bool streamHasDelivered_ = false;
  std::int64_t brokenBefore_ = 0;  // counted before the stream began
  std::string tooLarge_;           // the serial of a node that gave nothing when it was asked for more pixels
  Retry retry_;
  SteadyTime notedGood_{};
  InterruptionWatch watch_;
  PipeWireConnection connection_;
};

}  // namespace sentrel
