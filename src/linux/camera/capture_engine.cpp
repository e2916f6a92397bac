// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/capture_engine.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {

/// One is filled while one waits for the analysis, one is analysed, and the others are shown, wait to be
/// shown or are kept for a moment by whoever looks at a frame.
constexpr std::size_t pooledFrames = 8;

/// How long a camera may take from the connection to its first frame before it is asked anew.
constexpr std::chrono::seconds slowStart{6};

/// A camera that was just plugged in is refused until the session manager knows it too: hardly a moment, too
/// short to alarm anybody, and over long before this many attempts.
constexpr int quietFailures = 3;
constexpr std::chrono::milliseconds firstRetry{50};
constexpr std::chrono::milliseconds longestRetry{2000};

std::chrono::milliseconds retryPause(int failures) {
  auto pause = firstRetry;
  for (int i = 1; i < failures && pause < longestRetry; ++i) pause *= 2;
  return std::min(pause, longestRetry);
}

SteadyTime steadyNow() {
  return std::chrono::steady_clock::now();
}

CaptureError unavailable(const char* message) {
  return {CaptureError::Kind::deviceUnavailable, message};
}

CaptureError noService() {
  return {CaptureError::Kind::noService, "PipeWire is not running; cameras need pipewire and wireplumber"};
}

}  // namespace

CaptureEngine::CaptureEngine(std::shared_ptr<SerialQueue> cameraQueue, Events events)
    : cameraQueue_(std::move(cameraQueue)),
      events_(std::move(events)),
      loop_("sentrel-camera"),
      reconcileSoon_(loop_, [this] { reconcile(); }),
      watchTimer_(loop_, [this] { watchTick(); }),
      paceTimer_(loop_, [this] { pump(); }),
      directory_({.devicesChanged =
                      [this] {
                        reconcileSoon_.signal();
                        events_.devicesChanged();
                      },
                  .completed = [this] { reconcileSoon_.signal(); }}),
      connection_(loop_, {.connected =
                              [this](pw_core* core) {
                                serviceMissing_ = false;
                                directory_.attach(core);
                              },
                          .lost =
                              [this] {
                                serviceMissing_ = true;
                                stream_.reset();
                                directory_.detach();
                                reconcileSoon_.signal();
                              },
                          .absent =
                              [this] {
                                if (!serviceMissing_.exchange(true)) reconcileSoon_.signal();
                              }}) {}

CaptureEngine::~CaptureEngine() {
  shutDown();
}

void CaptureEngine::start() {
  connection_.open();
  loop_.start();
}

void CaptureEngine::shutDown() {
  loop_.call([this] {
    ended_ = true;
    closeCamera();
    connection_.close();
  });
  loop_.stop();
}

CaptureError CaptureEngine::missingCamera() const {
  return serviceMissing_ ? noService() : unavailable("no camera is connected");
}

std::optional<CaptureError> CaptureEngine::interruptionCause() const {
  const std::lock_guard lock(causeMutex_);
  return cause_;
}

std::optional<CameraDevice> CaptureEngine::currentDevice() const {
  const std::lock_guard lock(causeMutex_);
  return currentDevice_;
}

void CaptureEngine::setCause(std::optional<CaptureError> cause) {
  const std::lock_guard lock(causeMutex_);
  cause_ = std::move(cause);
}

// Camera queue.

void CaptureEngine::setRequest(std::optional<CaptureRequest> request) {
  request_ = std::move(request);
  applyOrders(Retarget::yes);
}

void CaptureEngine::setRunning(bool running) {
  running_ = running;
  applyOrders(Retarget::no);
}

void CaptureEngine::setDemand(FrameDemand demand) {
  demand_ = demand;
  applyOrders(Retarget::no);
}

void CaptureEngine::setPreviewTap(std::function<void(const FrameRef&)> onFrame) {
  preview_ = std::move(onFrame);
  applyOrders(Retarget::no);
}

void CaptureEngine::applyOrders(Retarget retarget) {
  if (!preview_ || !demand_.wanted || !running_) held_.reset();
  loop_.call([this, retarget] {
    orders_.isConfigured = request_.has_value();
    if (request_) {
      orders_.width = request_->width;
      orders_.height = request_->height;
      orders_.deviceID = request_->deviceID;
    }
    orders_.running = running_;
    orders_.preview = preview_ != nullptr;
    orders_.demand = demand_;
    holdsFrame_ = held_ != nullptr;
    retarget_ = retarget_ || retarget == Retarget::yes;
    pacer_.setPace(std::chrono::milliseconds(demand_.paceMs));
    reconcile();
    pump();
  });
  if (open_) return;
  // Nothing reads the camera any more. A frame that somebody still holds goes when it is let go.
  held_.reset();
  pool_.reset();
  converter_.reset();
}

/// Converts the leased frame: for the consumer when the pace says so, and for whoever looks at every one.
void CaptureEngine::deliver(bool due) {
  std::shared_ptr<Frame> frame;  // none while all pooled ones are in use
  bool readable = true;
  const bool leased = lease_.use([&](const RawFrame& raw) {
    if (!pool_) pool_.emplace(pooledFrames);
    if (!converter_) converter_.emplace();
    if (request_) frame = pool_->acquire(request_->width, request_->height);
    if (frame) readable = converter_->convert(raw, *frame);
  });
  if (!leased) {
    const PipeWireLoop::Lock lock(loop_);
    if (due) handOnIsDue_ = false;
    return;
  }

  bool handedOn = false;
  if (!readable) {
    brokenFrames_.fetch_add(1, std::memory_order_relaxed);
  } else if (frame) {
    if (preview_) preview_(frame);
    held_.reset();
    if (due) {
      handedOn = handOn(frame);
    } else if (demand_.wanted) {
      held_ = std::move(frame);
    }
  }
  const PipeWireLoop::Lock lock(loop_);
  holdsFrame_ = held_ != nullptr;
  if (due) handOnIsDue_ = false;
  frameRead(readable, handedOn ? std::optional(steadyNow()) : std::nullopt);
}

/// The pace allows a frame, and none is newer than the one that was only looked at.
void CaptureEngine::deliverHeld() {
  const FrameRef frame = std::exchange(held_, nullptr);
  const bool handedOn = frame != nullptr && demand_.wanted && handOn(frame);
  const PipeWireLoop::Lock lock(loop_);
  handOnIsDue_ = false;
  if (handedOn) pacer_.handedOn(steadyNow());
  pump();
}

bool CaptureEngine::handOn(const FrameRef& frame) {
  if (!request_ || !request_->onFrame) return false;
  request_->onFrame(frame);
  return true;
}

// PipeWire loop.

bool CaptureEngine::shouldBeOpen() const {
  return !ended_ && orders_.isConfigured && orders_.running && (orders_.demand.wanted || orders_.preview);
}

void CaptureEngine::reconcile() {
  if (!shouldBeOpen()) {
    closeCamera();
    return;
  }
  const SteadyTime now = steadyNow();
  if (!watch_.isOpen()) openCamera(now);
  dropLostStream(now);
  retargetStream(now);
  if (!stream_) connectStream(now);
  armWatch(now);
}

void CaptureEngine::openCamera(SteadyTime now) {
  open_ = true;
  watch_.open(now);
  pacer_.reset();
  retry_ = {};
  connection_.setNeeded(true);
}

void CaptureEngine::closeCamera() {
  open_ = false;
  stream_.reset();
  watch_.close();
  watchTimer_.disarm();
  paceTimer_.disarm();
  connection_.setNeeded(false);
  setCause({});
}

void CaptureEngine::dropLostStream(SteadyTime now) {
  if (!stream_) return;
  if (const auto error = stream_->error()) {
    streamFailed(now, *error);
  } else if (!directory_.hasSerial(stream_->nodeSerial())) {
    stream_.reset();
    reportLost(now, unavailable("the camera has gone"));
  }
}

void CaptureEngine::streamFailed(SteadyTime now, const CaptureError& error) {
  const std::string serial = stream_->nodeSerial();
  if (retry_.serial != serial) retry_ = {serial};
  ++retry_.failures;
  retry_.due = now + retryPause(retry_.failures);
  stream_.reset();
  setCause(error);
  const bool mayBeTooEarly = !streamHasDelivered_ && error.kind == CaptureError::Kind::deviceUnavailable;
  if (!mayBeTooEarly || retry_.failures >= quietFailures) reportLost(now, error);
}

void CaptureEngine::retargetStream(SteadyTime now) {
  if (!std::exchange(retarget_, false) || !stream_) return;
  const auto device = directory_.listing().choose(orders_.deviceID);
  const bool sameDevice = device && directory_.serialOf(device->uniqueID) == stream_->nodeSerial();
  const bool sameSize = stream_->wantedWidth() == orders_.width && stream_->wantedHeight() == orders_.height;
  if (sameDevice && sameSize) return;
  stream_.reset();
  retry_ = {};
  watch_.restart(now);
}

void CaptureEngine::connectStream(SteadyTime now) {
  if (!connection_.isConnected()) {
    if (serviceMissing_) reportLost(now, noService());
    return;
  }
  if (!directory_.isComplete()) return;  // its completion calls again
  const auto device = directory_.listing().choose(orders_.deviceID);
  if (!device) {
    reportLost(now, unavailable("no camera is connected"));
    return;
  }
  const std::string serial = directory_.serialOf(device->uniqueID);
  if (serial == retry_.serial && now < retry_.due) return;
  {
    const std::lock_guard lock(causeMutex_);
    currentDevice_ = device;
  }
  stream_.emplace(connection_.context(), serial, orders_.width, orders_.height, lease_, brokenFrames_,
                  CaptureStream::Events{.frameArrived = [this] { frameArrived(); },
                                        .failed = [this] { reconcileSoon_.signal(); }});
  streamBegun_ = now;
  streamHasDelivered_ = false;
}

void CaptureEngine::armWatch(SteadyTime now) {
  auto next = watch_.nextTick();
  if (!stream_ && now < retry_.due) next = std::min(next.value_or(retry_.due), retry_.due);
  if (next) watchTimer_.arm(*next);
}

void CaptureEngine::watchTick() {
  const SteadyTime now = steadyNow();
  if (watch_.tick(now)) {
    if (stream_) endSilentStream(now);
    events_.interrupted();
  }
  reconcile();
}

void CaptureEngine::endSilentStream(SteadyTime now) {
  // No error need come when a link breaks, and a device's own failure is told to its node alone.
  const std::string nodeError = directory_.errorOf(stream_->nodeSerial());
  setCause(nodeError.empty() ? unavailable("the camera gives no picture") : captureErrorFrom(nodeError));
  // A camera that is still starting is left alone for longer.
  const bool hasHadItsTime = streamHasDelivered_ || now - streamBegun_ >= slowStart;
  if (hasHadItsTime || !nodeError.empty()) stream_.reset();
}

void CaptureEngine::frameArrived() {
  // Whether a compressed frame is good is known only once it is read.
  if (stream_->pixels() != PixelFormat::mjpeg) goodFrame(steadyNow());
  pump();
}

bool CaptureEngine::wantsNow(SteadyTime now) const {
  return orders_.demand.wanted && !handOnIsDue_ && now >= pacer_.due();
}

void CaptureEngine::pump() {
  if (!stream_ || stream_->isLeased()) return;
  const bool due = wantsNow(steadyNow());
  if (stream_->hasFrame() && (due || orders_.preview)) {
    stream_->startLease();
    handOnIsDue_ = handOnIsDue_ || due;
    cameraQueue_->async([engine = weak_from_this(), due] {
      if (const auto self = engine.lock()) self->deliver(due);
    });
  } else if (holdsFrame_ && due) {
    holdsFrame_ = false;
    handOnIsDue_ = true;
    cameraQueue_->async([engine = weak_from_this()] {
      if (const auto self = engine.lock()) self->deliverHeld();
    });
  } else if (orders_.demand.wanted && (stream_->hasFrame() || holdsFrame_)) {
    paceTimer_.arm(pacer_.due());
  }
}

void CaptureEngine::frameRead(bool readable, std::optional<SteadyTime> handedOnAt) {
  if (handedOnAt) pacer_.handedOn(*handedOnAt);
  if (!stream_) return;
  stream_->endLease();
  if (readable) goodFrame(steadyNow());
  pump();
}

void CaptureEngine::goodFrame(SteadyTime now) {
  if (!std::exchange(streamHasDelivered_, true)) retry_ = {};
  if (!watch_.goodFrame(now)) return;
  setCause({});
  events_.interruptionEnded();
}

void CaptureEngine::reportLost(SteadyTime now, CaptureError cause) {
  setCause(std::move(cause));
  if (watch_.lost(now)) events_.interrupted();
}

}  // namespace sentrel
