// SPDX-License-Identifier: Apache-2.0
#include "service/system_events.h"

#include <utility>

namespace sentrel {

namespace {
constexpr std::int64_t batteryIntervalMs = 30'000;
}  // namespace

SystemEvents::SystemEvents(const Platform& platform, std::shared_ptr<CameraControl> cameraControl,
                           std::shared_ptr<OverlayWindowManager> overlay,
                           std::shared_ptr<SettingsRepository> settings)
    : mainLoop_(platform.mainLoop),
      powerSource_(platform.powerSource),
      keyMonitor_(platform.keyMonitor),
      cameraControl_(std::move(cameraControl)),
      overlayManager(std::move(overlay)),
      settingsRepo(std::move(settings)) {}

void SystemEvents::end() {
  batteryTimer.reset();
  powerRegistration_.reset();
  pressed_ = nullptr;
  globalMonitor.reset();
  canObserveRegistration_.reset();
  updateShortcutHint();
}

void SystemEvents::startBatteryMonitor() {
  powerRegistration_ = powerSource_->observe();
  batteryTimer = mainLoop_->every(batteryIntervalMs, [this] { checkBattery(); });
}

void SystemEvents::checkBattery() {
  const auto source = powerSource_->first();
  if (!source) return;
  const int capacity = source->currentCapacity.value_or(100);
  const bool onBattery = !source->isCharging.value_or(false);
  const std::int64_t threshold = settingsRepo->settings.get().batteryThresholdPercent;
  cameraControl_->setRest(CameraControl::Rest::lowBattery,
                          onBattery && threshold >= 1 && capacity < threshold);
}

void SystemEvents::registerGlobalShortcut(std::function<void()> pressed) {
  pressed_ = [mainLoop = mainLoop_, pressed = std::move(pressed)] { mainLoop->post(pressed); };
  canObserveRegistration_ = keyMonitor_->canObserveChanged.connect([this] { updateShortcutHint(); });
  observeShortcut();
}

void SystemEvents::observeShortcut() {
  globalMonitor = keyMonitor_->observe(pressed_);
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
  const bool available = static_cast<bool>(globalMonitor) && keyMonitor_->canObserve();
  overlayManager->shortcutAvailable.assignIfChanged(available);
}

}  // namespace sentrel
