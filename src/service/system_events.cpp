// SPDX-License-Identifier: Apache-2.0
#include "service/system_events.h"

#include <string>
#include <utility>

namespace sentrel {

namespace {
constexpr std::int64_t batteryIntervalMs = 30'000;
}  // namespace

SystemEvents::SystemEvents(const ServiceDependencies& dependencies)
    : uses_(dependencies),
      settings_(uses_.settingsRepo->settings.subscribe([this](const FilterSettings& settings) {
        if (!settings.globalShortcutEnabled) uses_.platform.keyMonitor->forget(Shortcut::toggle);
      })) {}

void SystemEvents::end() {
  batteryTimer.reset();
  powerRegistration_.reset();
  pressed_ = nullptr;
  globalMonitor.reset();
  canObserveRegistration_.reset();
  updateShortcutHint();
}

void SystemEvents::startBatteryMonitor() {
  powerRegistration_ = uses_.platform.powerSource->observe();
  batteryTimer = uses_.platform.mainLoop->every(batteryIntervalMs, [this] { checkBattery(); });
}

void SystemEvents::checkBattery() {
  const auto source = uses_.platform.powerSource->first();
  if (!source) return;
  const int capacity = source->currentCapacity.value_or(100);
  const bool onBattery = !source->isCharging.value_or(false);
  const std::int64_t threshold = uses_.settingsRepo->settings.get().batteryThresholdPercent;
  uses_.cameraControl->setRest(CameraControl::Rest::lowBattery,
                               onBattery && threshold >= 1 && capacity < threshold);
}

void SystemEvents::registerGlobalShortcut(std::function<void()> pressed) {
  pressed_ = [mainLoop = uses_.platform.mainLoop, pressed = std::move(pressed)] { mainLoop->post(pressed); };
  canObserveRegistration_ = uses_.platform.keyMonitor->grantChanged.connect([this] { updateShortcutHint(); });
  observeShortcut();
}

void SystemEvents::observeShortcut() {
  globalMonitor = uses_.platform.keyMonitor->observe(Shortcut::toggle, pressed_);
  updateShortcutHint();
}

void SystemEvents::setAway(bool away) {
  if (away != static_cast<bool>(batteryTimer)) return;
  if (away) {
    batteryTimer.reset();
    powerRegistration_.reset();
    globalMonitor.reset();
    updateShortcutHint();
  } else {
    startBatteryMonitor();
    if (pressed_) observeShortcut();
  }
}

/// The overlay names the keys only where they do something.
void SystemEvents::updateShortcutHint() {
  std::string keys;
  if (globalMonitor) {
    const ShortcutGrant grant = uses_.platform.keyMonitor->grant(Shortcut::toggle);
    const bool isObserved = grant.kind == ShortcutGrant::Kind::observed;
    keys = isObserved ? uses_.platform.localizedText(textId("⌘⇧C")) : grant.keys;
  }
  uses_.overlayManager->shortcutKeys.assignIfChanged(keys);
}

}  // namespace sentrel
