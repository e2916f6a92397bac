// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/pipewire_capture_session.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/desktop_services.h"

namespace sentrel {

namespace {

/// One is filled while one waits for the analysis, one is analysed, and the others are shown, wait to be
/// shown or are kept for a moment by whoever looks at a frame.
constexpr std::size_t pooledFrames = 8;

/// How long a camera may take from the connection to its first frame before it is asked anew.
constexpr std::chrono::seconds slowStart{6};

/// How long the connection outlives its use: who awaits the devices opens one of them soon.
constexpr std::chrono::seconds restAfter{2};

/// A camera that was just plugged in is refused until the session manager knows it too: hardly a moment, too
/// short to alarm anybody, and over long before this many attempts.
constexpr int quietFailures = 3;
constexpr std::chrono::milliseconds firstRetry{50};
constexpr std::chrono::milliseconds longestRetry{2000};

std::chrono::milliseconds retryPause(int failures) {
  return std::min(firstRetry * (1 << std::min(failures - 1, 10)), longestRetry);
}

SteadyTime steadyNow() {
  return std::chrono::steady_clock::now();
}

CaptureError unavailable(const char* message) {
  return {CaptureError::Kind::deviceUnavailable, message};
}

CaptureError noService() {
  return {CaptureError::Kind::noService, {}};
}

}  // namespace

bool mayReadVideoDevices(const std::filesystem::path& folder) {
  bool found = false;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with("video") || name.size() < 6 || name[5] < '0' || name[5] > '9') continue;
    if (faccessat(AT_FDCWD, entry->path().c_str(), R_OK, AT_EACCESS) == 0) return true;
    found = true;
  }
  return !found;
}

std::shared_ptr<PipeWireCaptureSession> PipeWireCaptureSession::create(
    std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<SerialQueue> cameraQueue,
    std::shared_ptr<CameraConsent> consent, OpenRemote openRemote) {
  std::shared_ptr<PipeWireCaptureSession> session(new PipeWireCaptureSession(
      std::move(mainLoop), std::move(cameraQueue), std::move(consent), std::move(openRemote)));
  session->loop_.start();
  // A delivery that is under way keeps the session itself until it returns.
  auto* const used = session.get();
  return {used, [session = std::move(session)](PipeWireCaptureSession*) mutable {
            session->shutDown();
            session.reset();
          }};
}

PipeWireCaptureSession::PipeWireCaptureSession(std::shared_ptr<MainLoop> mainLoop,
                                               std::shared_ptr<SerialQueue> cameraQueue,
                                               std::shared_ptr<CameraConsent> consent, OpenRemote openRemote)
    : mainLoop_(std::move(mainLoop)),
      cameraQueue_(std::move(cameraQueue)),
      consent_(std::move(consent)),
      openRemote_(std::move(openRemote)),
      loop_("sentrel-camera"),
      reconcileSoon_(loop_.get(), [this] { reconcile(); }),
      watchTimer_(loop_.get(), [this] { watchTick(); }),
      restTimer_(loop_.get(), [this] { rest(); }),
      directory_({.devicesChanged =
                      [this] {
                        reconcileSoon_.signal();
                        report(&CaptureSession::devicesChanged);
                      },
                  .completed = [this] { reconcileSoon_.signal(); },
                  .screenReadsChanged = [this] { reportScreenReads(); }}),
      connection_(loop_, {.connected =
                              [this](pw_core* core) {
                                serviceMissing_ = false;
                                directory_.attach(core);
                              },
                          .lost =
                              [this] {
                                serviceMissing_ = connection_.isOpen();
                                if (connection_.remote() != nullptr) askedForRemote_ = false;
                                stream_.reset();
                                directory_.detach();
                                reconcileSoon_.signal();
                              },
                          .absent =
                              [this] {
                                if (!serviceMissing_.exchange(true)) reconcileSoon_.signal();
                              }}) {}

PipeWireCaptureSession::~PipeWireCaptureSession() {
  shutDown();
}

void PipeWireCaptureSession::shutDown() {
  loop_.call([this] {
    ended_ = true;
    closeCamera();
    connection_.close();
  });
  loop_.stop();
}

/// Emits the signal in a later turn of the main loop.
void PipeWireCaptureSession::report(Signal<> CaptureSession::*signal) {
  mainLoop_->post([weak = weak_from_this(), signal] {
    const auto self = weak.lock();
    // A report that was under way when the camera was closed is of no interest any more.
    if (self && (self->open_ || signal == &CaptureSession::devicesChanged)) ((*self).*signal).emit();
  });
}

/// Once for all changes until the main loop gets to it: whoever may make links makes any number.
void PipeWireCaptureSession::reportScreenReads() {
  if (readsReported_.exchange(true)) return;
  mainLoop_->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->readsReported_ = false;
    self->screenReads_.assignIfChanged(self->directory_.screenReads());
  });
}

AuthorizationStatus PipeWireCaptureSession::authorizationStatus() const {
  if (consent_ && !consent_->isGiven()) return AuthorizationStatus::notDetermined;
  return mayReadVideoDevices() ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
}

void PipeWireCaptureSession::requestAccess(std::function<void(bool granted)> answer) {
  auto tell = [loop = mainLoop_, answer = std::move(answer)](bool given) {
    const bool granted = given && mayReadVideoDevices();
    loop->post([answer, granted] { answer(granted); });
  };
  if (consent_) {
    consent_->request(std::move(tell));
  } else {
    tell(true);
  }
}

Registration PipeWireCaptureSession::observeDevices() {
  ++observers_;
  reconcileSoon_.signal();
  return Registration([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    --self->observers_;
    self->reconcileSoon_.signal();
  });
}

std::optional<CaptureError> PipeWireCaptureSession::awaitDevices(std::chrono::milliseconds timeout) {
  const Registration observing = observeDevices();
  if (directory_.awaitFirst(timeout)) return std::nullopt;
  return serviceMissing_ ? noService() : unavailable("");
}

std::vector<CameraDevice> PipeWireCaptureSession::devices() const {
  return directory_.listing().devices;
}

std::optional<CaptureError> PipeWireCaptureSession::interruptionCause() const {
  const std::lock_guard lock(causeMutex_);
  return cause_;
}

std::optional<CameraDevice> PipeWireCaptureSession::currentDevice() const {
  const std::lock_guard lock(causeMutex_);
  return currentDevice_;
}

std::string PipeWireCaptureSession::otherUser() const {
  const auto device = currentDevice();
  return device ? directory_.otherUserOf(device->uniqueID) : std::string();
}

std::optional<std::chrono::milliseconds> PipeWireCaptureSession::openFor() const {
  const SteadyTime since = streamsSince_;
  if (since == SteadyTime{}) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::milliseconds>(steadyNow() - since);
}

void PipeWireCaptureSession::setCause(std::optional<CaptureError> cause) {
  const std::lock_guard lock(causeMutex_);
  cause_ = std::move(cause);
}

void PipeWireCaptureSession::setFrameDemand(FrameDemand demand) {
  changeOrders([demand](Orders& wanted) { wanted.demand = demand; });
}

void PipeWireCaptureSession::setPreviewTap(std::function<void(const FrameRef&)> onFrame) {
  changeOrders([onFrame = std::move(onFrame)](Orders& wanted) { wanted.preview = onFrame; });
}

void PipeWireCaptureSession::changeOrders(std::function<void(Orders&)> change) {
  cameraQueue_->async([weak = weak_from_this(), change = std::move(change)] {
    const auto self = weak.lock();
    if (!self) return;
    change(self->wanted_);
    self->applyOrders();
  });
}

// Camera queue.

std::optional<CaptureError> PipeWireCaptureSession::configure(CaptureRequest request) {
  const bool denied = authorizationStatus() == AuthorizationStatus::denied;
  // A camera that is away for now is waited for; one that never was may be a leftover of the settings.
  if (request.deviceID && !directory_.hasSeen(*request.deviceID)) request.deviceID.reset();
  wanted_.request = denied ? std::nullopt : std::optional(std::move(request));
  applyOrders(Retarget::yes);
  if (!denied) return std::nullopt;
  return CaptureError{CaptureError::Kind::accessDenied, {}};
}

void PipeWireCaptureSession::startRunning() {
  wanted_.running = true;
  applyOrders();
}

void PipeWireCaptureSession::stopRunning() {
  wanted_.running = false;
  applyOrders();
}

void PipeWireCaptureSession::applyOrders(Retarget retarget) {
  if (!wanted_.preview || !wanted_.demand.wanted || !wanted_.running) held_.reset();
  loop_.call([this, retarget] {
    orders_ = wanted_;
    retarget_ = retarget_ || retarget == Retarget::yes;
    reconcile();
  });
  if (open_) return callServe();
  // Nothing reads the camera any more. A frame that somebody still holds goes when it is let go.
  held_.reset();
  handedOnAt_.reset();
  pool_.reset();
  converter_.reset();
}

/// Any thread.
void PipeWireCaptureSession::callServe() {
  if (serveCalled_.exchange(true)) return;
  cameraQueue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->serve();
  });
}

/// When the next frame may be handed on: one pace after the last one, whenever the camera's frames arrive. A
/// consumer that drops what comes too early then drops nothing, and its rate does not fall to the next
/// divisor of the camera's.
SteadyTime PipeWireCaptureSession::nextDue() const {
  return handedOnAt_ ? *handedOnAt_ + std::chrono::milliseconds(wanted_.demand.paceMs) : SteadyTime{};
}

/// Hands on the newest frame when the pace allows it, shows each to whoever looks at every one, and sees to
/// it that it is called when there is something to do again.
void PipeWireCaptureSession::serve() {
  serveCalled_ = false;
  const bool wanted = wanted_.demand.wanted;
  const bool due = wanted && steadyNow() >= nextDue();
  if (due || wanted_.preview) readFrame(due);
  // When the moment has come by itself the newest frame is there already, or the next one calls.
  if (wanted && handedOnAt_ && std::exchange(calledFor_, nextDue()) != nextDue()) {
    cameraQueue_->asyncAt(nextDue(), [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->serve();
    });
  }
  const SteadyTime from = wanted_.preview ? SteadyTime{} : wanted ? nextDue() : SteadyTime::max();
  serveFrom_ = from;
  // One that came just before was told of the moment before.
  if (newest_.isWaiting() && steadyNow() >= from) callServe();
}

void PipeWireCaptureSession::readFrame(bool due) {
  std::shared_ptr<Frame> frame;  // none while all pooled ones are in use
  const bool isNew = newest_.use([&](const RawFrame& raw) {
    if (!pool_) pool_.emplace(pooledFrames);
    if (!converter_) converter_.emplace();
    if (wanted_.request) frame = pool_->acquire(wanted_.request->width, wanted_.request->height);
    if (!frame) return;
    if (converter_->convert(raw, *frame)) {
      goodFrame();
    } else {
      brokenFrames_.fetch_add(1, std::memory_order_relaxed);
      frame.reset();
    }
  });
  if (isNew && frame) {
    if (wanted_.preview) wanted_.preview(frame);
    held_ = std::move(frame);
  }
  if (due && held_) handOn(std::exchange(held_, nullptr));
  if (!wanted_.preview || !wanted_.demand.wanted) held_.reset();
}

void PipeWireCaptureSession::handOn(const FrameRef& frame) {
  if (!wanted_.request || !wanted_.request->onFrame) return;
  wanted_.request->onFrame(frame);
  handedOnAt_ = steadyNow();
}

// The library's data thread.

void PipeWireCaptureSession::frameArrived(PixelFormat pixels) {
  // Whether a compressed frame is good is known only once it is read.
  if (pixels != PixelFormat::mjpeg) goodFrame();
  if (steadyNow() >= serveFrom_.load()) callServe();
}

void PipeWireCaptureSession::goodFrame() {
  lastGood_ = steadyNow();
  if (awaitsGood_.exchange(false)) reconcileSoon_.signal();
}

// PipeWire loop.

bool PipeWireCaptureSession::shouldBeOpen() const {
  return !ended_ && orders_.request && orders_.running && (orders_.demand.wanted || orders_.preview);
}

void PipeWireCaptureSession::reconcile() {
  noteGoodFrames();
  const SteadyTime now = steadyNow();
  followNeed(now);
  followRemote();
  if (!shouldBeOpen()) {
    closeCamera();
    return;
  }
  if (!watch_.isOpen()) openCamera(now);
  dropLostStream(now);
  retargetStream(now);
  if (!stream_) connectStream(now);
  noteStream(now);
  armWatch(now);
  awaitsGood_ = !streamHasDelivered_ || watch_.isInterrupted();
}

void PipeWireCaptureSession::followNeed(SteadyTime now) {
  if (ended_) return;
  if (shouldBeOpen() || observers_ > 0) {
    restTimer_.disarm();
    connection_.open();
  } else if (connection_.isOpen()) {
    restTimer_.arm(now + restAfter);
  }
}

/// Where no camera is listed, or there is no daemon, another way is asked for: once, unless it has ended.
void PipeWireCaptureSession::followRemote() {
  std::shared_ptr<const int> remote;
  {
    const std::lock_guard lock(causeMutex_);
    remote = std::exchange(remote_, nullptr);
  }
  if (remote) {
    connection_.useRemote(std::move(remote));
    return;
  }
  const bool isNeeded = connection_.isOpen() && (!consent_ || consent_->isGiven());
  const bool showsNone = directory_.isComplete() && directory_.listing().devices.empty();
  if (!openRemote_ || !isNeeded || askedForRemote_ || connection_.remote() != nullptr) return;
  if (!showsNone && !serviceMissing_) return;
  askedForRemote_ = true;
  mainLoop_->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->openRemote_([weak](std::shared_ptr<const int> socket) {
      if (const auto asker = weak.lock()) asker->remoteOpened(std::move(socket));
    });
  });
}

void PipeWireCaptureSession::remoteOpened(std::shared_ptr<const int> socket) {
  {
    const std::lock_guard lock(causeMutex_);
    remote_ = std::move(socket);
  }
  reconcileSoon_.signal();
}

void PipeWireCaptureSession::rest() {
  if (shouldBeOpen() || observers_ > 0) return;
  connection_.close();
  serviceMissing_ = false;
  askedForRemote_ = false;
}

void PipeWireCaptureSession::openCamera(SteadyTime now) {
  open_ = true;
  watch_.open(now);
  retry_ = {};
}

void PipeWireCaptureSession::closeCamera() {
  open_ = false;
  stream_.reset();
  watch_.close();
  watchTimer_.disarm();
  setCause({});
  noteStream({});
}

/// Every loss of the stream is followed by a reconciliation, which ends here.
void PipeWireCaptureSession::noteStream(SteadyTime now) {
  if (!stream_ || streamsSince_.load() == SteadyTime{}) streamsSince_ = stream_ ? now : SteadyTime{};
}

void PipeWireCaptureSession::dropLostStream(SteadyTime now) {
  if (!stream_) return;
  if (const auto error = stream_->error()) {
    streamFailed(now, *error);
  } else if (!directory_.hasSerial(stream_->nodeSerial())) {
    stream_.reset();
    reportLost(now, unavailable(textId("detail_camera_gone")));
  }
}

void PipeWireCaptureSession::streamFailed(SteadyTime now, const CaptureError& error) {
  const std::string serial = stream_->nodeSerial();
  if (retry_.serial != serial) retry_ = {serial};
  ++retry_.failures;
  retry_.due = now + retryPause(retry_.failures);
  stream_.reset();
  setCause(error);
  const bool mayBeTooEarly = !streamHasDelivered_ && error.kind == CaptureError::Kind::deviceUnavailable;
  if (!mayBeTooEarly || retry_.failures >= quietFailures) reportLost(now, error);
}

void PipeWireCaptureSession::retargetStream(SteadyTime now) {
  if (!std::exchange(retarget_, false) || !stream_) return;
  const auto device = directory_.listing().choose(orders_.request->deviceID);
  const bool sameDevice = device && directory_.serialOf(device->uniqueID) == stream_->nodeSerial();
  const bool sameSize =
      stream_->wantedWidth() == orders_.request->width && stream_->wantedHeight() == orders_.request->height;
  if (sameDevice && sameSize) return;
  stream_.reset();
  retry_ = {};
  watch_.restart(now);
}

void PipeWireCaptureSession::connectStream(SteadyTime now) {
  if (!connection_.isConnected()) {
    if (serviceMissing_) reportLost(now, noService());
    return;
  }
  if (!directory_.isComplete()) return;  // its completion calls again
  const auto device = directory_.listing().choose(orders_.request->deviceID);
  if (!device) {
    reportLost(now, unavailable(""));
    return;
  }
  const std::string serial = directory_.serialOf(device->uniqueID);
  if (serial == retry_.serial && now < retry_.due) return;
  {
    const std::lock_guard lock(causeMutex_);
    currentDevice_ = device;
  }
  const Pixels wanted = serial == tooLarge_ ? Pixels::asWanted : Pixels::moreIfCheap;
  notedGood_ = lastGood_;  // of an earlier stream
  stream_.emplace(connection_.context(), connection_.remote(), serial, orders_.request->width,
                  orders_.request->height, wanted, newest_, [this] { reconcileSoon_.signal(); });
  streamBegun_ = now;
  streamHasDelivered_ = false;
  brokenBefore_ = brokenFrames_;
}

void PipeWireCaptureSession::armWatch(SteadyTime now) {
  auto next = watch_.nextTick();
  if (!stream_ && now < retry_.due) next = std::min(next.value_or(retry_.due), retry_.due);
  if (next) watchTimer_.arm(*next);
}

void PipeWireCaptureSession::watchTick() {
  noteGoodFrames();
  const SteadyTime now = steadyNow();
  if (watch_.tick(now)) {
    if (stream_) endSilentStream(now);
    report(&CaptureSession::wasInterrupted);
  }
  reconcile();
}

void PipeWireCaptureSession::endSilentStream(SteadyTime now) {
  // No error need come when a link breaks, and a device's own failure is told to its node alone.
  const std::string nodeError = directory_.errorOf(stream_->nodeSerial());
  setCause(nodeError.empty() ? unavailable(textId("detail_no_picture")) : captureErrorFrom(nodeError));
  // A camera that is still starting is left alone for longer.
  const bool givesOnlyBroken = !streamHasDelivered_ && brokenFrames_ > brokenBefore_;
  const bool hasHadItsTime = streamHasDelivered_ || givesOnlyBroken || now - streamBegun_ >= slowStart;
  if (!hasHadItsTime && nodeError.empty()) return;
  // Some cameras promise more pixels than they, or the cable, can give.
  if (!streamHasDelivered_)
    tooLarge_ = stream_->wantedPixels() == Pixels::moreIfCheap ? stream_->nodeSerial() : std::string();
  stream_.reset();
}

void PipeWireCaptureSession::noteGoodFrames() {
  const SteadyTime last = lastGood_;
  if (last == std::exchange(notedGood_, last)) return;
  if (!std::exchange(streamHasDelivered_, true)) retry_ = {};
  if (!watch_.goodFrame(last)) return;
  setCause({});
  report(&CaptureSession::interruptionEnded);
}

void PipeWireCaptureSession::reportLost(SteadyTime now, CaptureError cause) {
  setCause(std::move(cause));
  if (watch_.lost(now)) report(&CaptureSession::wasInterrupted);
}

}  // namespace sentrel
