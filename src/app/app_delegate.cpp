// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "detection/av_capture_manager.h"
#include "platform/platform.h"
#include "vision/models.h"

namespace sentrel {

namespace {

constexpr const char* offNotification = "sentrel.off";

void print(const QString& words, const std::string& detail) {
  QByteArray line = words.toUtf8();
  if (!detail.empty()) line += " (" + QByteArray::fromStdString(detail) + ')';
  std::fprintf(stderr, "sentrel: %s\n", line.constData());
}

void reportCameraFailure(const CameraFailure& failure) {
  print(qtTrId(textKey(failure.kind)) + QStringLiteral(" — ") + qtTrId(adviceKey(failure.kind)),
        failure.detail);
}

void reportLimitation(const OverlayBackend& backend) {
  const std::string key = backend.limitation();
  if (!key.empty()) reportFailure(key.c_str());
}

}  // namespace

void reportFailure(const char* key, const std::string& detail) {
  print(qtTrId(key), detail);
}

AppDelegate::AppDelegate(Dependencies dependencies) : uses_(std::move(dependencies)) {}

AppDelegate::~AppDelegate() {
  delete onboardingWindow;  // as other windows, before the Qt application ends
}

void AppDelegate::applicationDidFinishLaunching() {
  service_ = PrivacyFilterService::shared();
  const auto notifications = Platform::current().notifications;
  const auto backend = Platform::current().overlayBackend;
  registrations_ = {
      service_->fsmState().subscribe([this](const FilterState& state) { uses_.bus.setState(state); }),
      service_->isActive().subscribe([this](bool active) { uses_.bus.setActive(active); }),
      StatsRepository::shared()->stats.subscribe(
          [this](const FilterStats& stats) { uses_.bus.setAlertCount(stats.alertCount); }),
      CameraControl::shared()->failure().subscribe([this](const std::optional<CameraFailure>& failure) {
        if (failure) reportCameraFailure(*failure);
        watchForModels(failure);
      }),
      backend->limitationChanged.connect([backend] { reportLimitation(*backend); }),
      uses_.bus.activated.connect([this](const QString& action) { performAction(action); }),
      notifications->chosen.connect([this](const std::string&) {
        if (uses_.menuBarController) uses_.menuBarController->showPopover();
      }),
      // Without the person's consent the camera stays closed, and a start waits for it.
      uses_.consent->asked.connect([this] { askForConsent(); }),
      service_->isStarting().onChange([this, notifications](bool starting) {
        if (!starting) return;
        begun_ = true;
        notifications->remove(offNotification);
      })};
  reportLimitation(*backend);
  // A program that only reads a property makes the bus start us. That alone does not switch protection on,
  // because the person may just have quit; the first message that asks for an action does.
  if (uses_.launch == Launch::person) begin();
}

/// Switches protection on, once in the life of the program. Returns whether this call did it.
bool AppDelegate::begin() {
  if (begun_) return false;
  if (uses_.menuBarController && !uses_.consent->isGiven()) showOnboarding();
  service_->start();
  return true;
}

/// Any program of the person can switch protection off. The notification reveals one that should not.
void AppDelegate::tellSwitchedOff() const {
  const Platform& platform = Platform::current();
  platform.notifications->add(offNotification, {.title = platform.localizedText(textId("notif_off_title")),
                                                .body = platform.localizedText(textId("notif_off_text"))});
}

void AppDelegate::askForConsent() {
  if (uses_.menuBarController) {
    showOnboarding();
  } else {
    std::fputs("sentrel: nobody has agreed to the camera yet, and without a display nobody can be asked\n",
               stderr);
  }
}

void AppDelegate::showOnboarding() {
  if (!onboardingWindow) {
    const Platform& platform = Platform::current();
    onboardingWindow = new OnboardingView({.consent = uses_.consent,
                                           .camera = AVCaptureManager::shared(),
                                           .notifications = platform.notifications,
                                           .settingsRepo = SettingsRepository::shared(),
                                           .loginItem = platform.loginItem,
                                           .defaults = platform.userDefaults,
                                           .newCalibration = [] { return CalibrationSession::create(); },
                                           .isPresented =
                                               [this](bool shown) {
                                                 if (!shown && onboardingWindow) onboardingWindow->close();
                                               }});
    onboardingWindow->setAttribute(Qt::WA_DeleteOnClose);
    giveMemoryBackAfter(*onboardingWindow);
    onboardingWindow->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                     Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
  }
  onboardingWindow->present();
}

/// A missing model file that appears is loaded at once.
void AppDelegate::watchForModels(const std::optional<CameraFailure>& failure) {
  if (!failure || failure->kind != CameraFailure::Kind::modelMissing) {
    modelWatch_.reset();
    return;
  }
  std::filesystem::path folder = vision::modelFolder();
  std::error_code error;
  while (!std::filesystem::is_directory(folder, error) && folder.has_relative_path()) {
    folder = folder.parent_path();
  }
  modelWatch_ = std::make_unique<QFileSystemWatcher>(QStringList(QString::fromStdString(folder.string())));
  QObject::connect(modelWatch_.get(), &QFileSystemWatcher::directoryChanged, modelWatch_.get(),
                   [] { CameraControl::shared()->retryNow(); });
}

void AppDelegate::applicationWillTerminate() {
  if (service_) service_->stop();
  CameraControl::shared()->setRest(CameraControl::Rest::quitting, true);
}

void AppDelegate::performAction(const QString& action) {
  const bool endsIt = action == QLatin1String("quit") || action == QLatin1String("toggle");
  if (endsIt && service_->isSwitchedOn()) tellSwitchedOff();
  const bool begins = action != QLatin1String("quit") && begin();
  if (action == QLatin1String("quit")) {
    uses_.quit();
  } else if (action == QLatin1String("toggle")) {
    if (!begins) service_->toggle();
  } else if (uses_.menuBarController) {
    MenuBarController& windows = *uses_.menuBarController;
    if (action.isEmpty()) begins ? windows.showPopoverWithoutTray() : windows.showPopover();
    if (action == QLatin1String("preferences")) windows.openPreferences();
    if (action == QLatin1String("statistics")) windows.showPage(MenuBarPopoverView::Page::stats);
    if (action == QLatin1String("about")) windows.showPage(MenuBarPopoverView::Page::about);
  }
}

}  // namespace sentrel
