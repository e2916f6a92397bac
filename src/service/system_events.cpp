// SPDX-License-Identifier: Apache-2.0
#include "service/system_events.h"

#include <utility>

namespace sentrel {

namespace {

constexpr std::int64_t batteryIntervalMs = 30'000;

}  // namespace

void SystemEvents::end() {
  batteryTimer.reset();
  powerRegistration_.reset();
  pressed_ = nullptr;
  globalMonitor.reset();
  canObserveRegistration_.reset();
  updateShortcutHint();
}

void SystemEvents::startBatteryMonitor() {
  powerRegistration_ = parts_.powerSource->observe();
  batteryTimer = parts_.mainLoop->every(batteryIntervalMs, [this] { checkBattery(); });
}

void SystemEvents::checkBattery() {
  const auto source = parts_.powerSource->first();
  if (!source) return;
  const int capacity = source->currentCapacity.value_or(100);
  const bool onBattery = !source->isCharging.value_or(false);
  const std::int64_t threshold = parts_.settingsRepo->settings.get().batteryThresholdPercent;
  parts_.cameraControl->setRest(CameraControl::Rest::lowBattery,
                                onBattery && threshold >= 1 && capacity < threshold);
}

void SystemEvents::registerGlobalShortcut(std::function<void()> pressed) {
  pressed_ = [mainLoop = parts_.mainLoop, pressed = std::move(pressed)] { mainLoop->post(pressed); };
  canObserveRegistration_ = parts_.keyMonitor->canObserveChanged.connect([this] { updateShortcutHint(); });
  observeShortcut();
}

void SystemEvents::observeShortcut() {
  globalMonitor = parts_.keyMonitor->observe(pressed_);
  updateShortcutHint();
}

void SystemEvents::setAway(bool away) {
  if (!pressed_ || away != static_cast<bool>(globalMonitor)) return;
  if (away) {
    globalMonitor.reset();
    updateShortcutHint();
  } else {
    observeShortcut();
  }
}

/// The overlay names the keys only where they do something.
void SystemEvents::updateShortcutHint() {
  const bool available = static_cast<bool>(globalMonitor) && parts_.keyMonitor->canObserve();
  auto& shown = parts_.overlayManager->shortcutAvailable;
  if (shown.get() != available) shown = available;
}

}  // namespace sentrel
