// SPDX-License-Identifier: Apache-2.0
//
// How events of the system become events of the machine, while protection is on. The session's events come in
// an order that makes the last one true. While it says that the person is away, the camera is closed and
// nothing else may change the state: neither a camera's late word nor a charged battery brings anything back
// to the screen.
#include "service/privacy_filter_service.h"

namespace sentrel {

namespace {

constexpr std::int64_t batteryIntervalMs = 30'000;

}  // namespace

void PrivacyFilterService::observeSystemEvents() {
  sessionEventsRegistration_ = sessionEvents_->install([weak = weak_from_this()](SessionEvent event) {
    const auto self = weak.lock();
    if (!self) return;
    if (isGoingAway(event)) {
      self->screenOff();
    } else {
      self->screenOn();
    }
  });
  interruptedRegistration_ = captureSession_->wasInterrupted.connect([this] { cameraInterrupted(); });
  interruptionEndedRegistration_ = captureSession_->interruptionEnded.connect([this] { cameraResumed(); });
}

void PrivacyFilterService::removeSystemEventObservers() {
  sessionEventsRegistration_.reset();
  interruptedRegistration_.reset();
  interruptionEndedRegistration_.reset();
  away_ = false;
}

// The person.

void PrivacyFilterService::screenOff() {
  away_ = true;
  abandonStart();  // of a retry: it must not bring anything back now
  fsm.onSystemEvent(FilterFsm::SystemEvent::screenOff);
  if (analyzer) analyzer->isSuspended = true;
  closeCamera([events = sessionEvents_] { events->cameraIsClosed(); });
}

void PrivacyFilterService::screenOn() {
  away_ = false;
  fsm.onSystemEvent(FilterFsm::SystemEvent::screenOn);
  if (!isActive_) return;
  environment_.mainLoop->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || !self->isActive_ || self->away_) return;
    self->cameraManager->startSession([weak](const StartResult& result) {
      const auto started = weak.lock();
      if (started && result.outcome == StartResult::Outcome::started && started->analyzer && !started->away_)
        started->analyzer->isSuspended = false;
    });
  });
}

// The camera.

void PrivacyFilterService::cameraInterrupted() {
  if (!away_) fsm.onSystemEvent(FilterFsm::SystemEvent::cameraBusy);
}

void PrivacyFilterService::cameraResumed() {
  if (!away_) fsm.onSystemEvent(FilterFsm::SystemEvent::cameraAvailable);
}

// The battery.

void PrivacyFilterService::startBatteryMonitor() {
  powerRegistration_ = powerSource_->observe();
  batteryTimer = environment_.mainLoop->every(batteryIntervalMs, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->checkBattery();
  });
}

void PrivacyFilterService::checkBattery() {
  const auto source = powerSource_->first();
  if (!source || away_) return;
  const int capacity = source->currentCapacity.value_or(100);
  const bool onBattery = !source->isCharging.value_or(false);
  const std::int64_t threshold = settingsRepo->settings.get().batteryThresholdPercent;
  const bool low = onBattery && threshold >= 1 && capacity < threshold;
  fsm.onSystemEvent(low ? FilterFsm::SystemEvent::batteryLow : FilterFsm::SystemEvent::batteryRecovered);
}

// The shortcut.

void PrivacyFilterService::registerGlobalShortcut() {
  globalMonitor = keyMonitor_->observe([weak = weak_from_this(), mainLoop = environment_.mainLoop] {
    mainLoop->post([weak] {
      if (const auto self = weak.lock()) self->toggleByShortcut();
    });
  });
  canObserveRegistration_ = keyMonitor_->canObserveChanged.connect([this] { updateShortcutHint(); });
  updateShortcutHint();
}

void PrivacyFilterService::unregisterGlobalShortcut() {
  globalMonitor.reset();
  canObserveRegistration_.reset();
  updateShortcutHint();
}

void PrivacyFilterService::toggleByShortcut() {
  if (isActive_) {
    stop();
  } else {
    start();
  }
}

/// The overlay names the keys only where they do something.
void PrivacyFilterService::updateShortcutHint() {
  const bool available = static_cast<bool>(globalMonitor) && keyMonitor_->canObserve();
  if (overlayManager->shortcutAvailable.get() != available) overlayManager->shortcutAvailable = available;
}

}  // namespace sentrel
