// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"

#include <QString>
#include <cstdio>
#include <utility>

#include "app/state_name.h"
#include "detection/av_capture_manager.h"
#include "look/texts.h"
#include "platform/platform.h"

namespace sentrel {

namespace {

/// Failures that a person must see also stand on standard error, one line each.
void report(const QString& words, const std::string& detail) {
  const QByteArray line = words.toUtf8();
  if (detail.empty()) {
    std::fprintf(stderr, "sentrel: %s\n", line.constData());
  } else {
    std::fprintf(stderr, "sentrel: %s (%s)\n", line.constData(), detail.c_str());
  }
}

void reportLimitation(const OverlayBackend& backend) {
  const std::string key = backend.limitation();
  if (!key.empty()) report(text(QString::fromStdString(key)), {});
}

}  // namespace

AppDelegate::AppDelegate(ProgramBus& bus, std::function<void()> quit) : bus_(bus), quit_(std::move(quit)) {}

void AppDelegate::applicationDidFinishLaunching() {
  cameraChoice_ = std::make_unique<CameraChoice>(AVCaptureManager::shared(), SettingsRepository::shared());
  service_ = PrivacyFilterService::shared();
  state_ = service_->fsmState().subscribe(
      [this](const FilterState& state) { bus_.setState(QLatin1String(stateName(state))); });
  active_ = service_->isActive().subscribe([this](bool active) { bus_.setActive(active); });
  failure_ = AVCaptureManager::shared()->failure().subscribe([](const std::optional<CameraFailure>& failure) {
    if (failure) report(text(QString::fromUtf8(textKey(failure->kind))), failure->detail);
  });
  const auto backend = Platform::current().overlayBackend;
  limitation_ = backend->limitationChanged.connect([backend] { reportLimitation(*backend); });
  reportLimitation(*backend);
  actions_ =
      bus_.actionActivated.connect([this](const QString& action) { performAction(action.toStdString()); });
  service_->start();
}

void AppDelegate::applicationWillTerminate() {
  if (service_) service_->stop();
}

void AppDelegate::performAction(const std::string& action) {
  if (action == "toggle") {
    if (service_->isActive()) {
      service_->stop();
    } else {
      service_->start();
    }
  } else if (action == "quit") {
    quit_();
  }
}

}  // namespace sentrel
