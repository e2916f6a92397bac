// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "app/failure_report.h"
#include "app/state_name.h"
#include "app/window_memory.h"
#include "detection/av_capture_manager.h"
#include "platform/platform.h"
#include "vision/models.h"

namespace sentrel {

namespace {

constexpr const char* offNotification = "sentrel.off";

void reportLimitation(const OverlayBackend& backend) {
  const std::string key = backend.limitation();
  if (!key.empty()) reportFailure(key.c_str());
}

}  // namespace

AppDelegate::AppDelegate(Parts parts) : parts_(std::move(parts)) {}

AppDelegate::~AppDelegate() {
  delete onboardingWindow;  // as other windows, before the Qt application ends
}

void AppDelegate::applicationDidFinishLaunching() {
  AVCaptureManager::shared()->followSelection(SettingsRepository::shared());
  service_ = PrivacyFilterService::shared();
  tellTheBus();
  tellThePerson();
  activated_ = parts_.bus.activated.connect(
      [this] { show(begin() ? &ProgramWindows::showPopoverWithoutTray : &ProgramWindows::showPopover); });
  actions_ = parts_.bus.actionActivated.connect([this](const QString& action) { performAction(action); });
  chosen_ = Platform::current().notifications->chosen.connect(
      [this](const std::string&) { show(&ProgramWindows::showPopover); });
  // Without the person's leave the camera stays closed, and a start waits for it.
  asked_ = parts_.consent->asked.connect([this] { askForConsent(); });
  starting_ = service_->isStarting().onChange([this](bool starting) {
    if (!starting) return;
    begun_ = true;
    Platform::current().notifications->remove(offNotification);
  });
  // Whoever only reads a property has the bus start the program, but does not switch protection on: the
  // person may just have ended it. The first message that asks for something does.
  if (parts_.launch == Launch::person) begin();
}

/// Protection begins with the program, once; gives whether it did now.
bool AppDelegate::begin() {
  if (begun_) return false;
  if (parts_.windows && !parts_.consent->isGiven()) showOnboarding();
  service_->start();
  return true;
}

bool AppDelegate::isSwitchedOn() const {
  return service_->isActive() || service_->isStarting();
}

/// Any program of the person's can do it. One that should not have is noticed.
void AppDelegate::tellSwitchedOff() const {
  const Platform& platform = Platform::current();
  platform.notifications->add(offNotification, {.title = platform.localizedText(textId("notif_off_title")),
                                                .body = platform.localizedText(textId("notif_off_text"))});
}

void AppDelegate::askForConsent() {
  if (parts_.windows) {
    showOnboarding();
  } else {
    std::fputs("sentrel: nobody has agreed to the camera yet, and without a display nobody can be asked\n",
               stderr);
  }
}

void AppDelegate::showOnboarding() {
  if (!onboardingWindow) {
    const Platform& platform = Platform::current();
    onboardingWindow = new OnboardingView({.consent = parts_.consent,
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

void AppDelegate::tellTheBus() {
  state_ = service_->fsmState().subscribe(
      [this](const FilterState& state) { parts_.bus.setState(QLatin1String(stateName(state))); });
  active_ = service_->isActive().subscribe([this](bool active) { parts_.bus.setActive(active); });
  stats_ = StatsRepository::shared()->stats.subscribe(
      [this](const FilterStats& stats) { parts_.bus.setAlertCount(stats.alertCount); });
}

void AppDelegate::tellThePerson() {
  failure_ =
      CameraControl::shared()->failure().subscribe([this](const std::optional<CameraFailure>& failure) {
        if (failure) reportFailure(*failure);
        watchForModels(failure);
      });
  const auto backend = Platform::current().overlayBackend;
  limitation_ = backend->limitationChanged.connect([backend] { reportLimitation(*backend); });
  reportLimitation(*backend);
}

/// A model that is put where one was missing is taken at once.
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
  if (endsIt && isSwitchedOn()) tellSwitchedOff();
  const bool begins = action != QLatin1String("quit") && begin();
  if (action == QLatin1String("toggle")) {
    if (!begins) service_->toggle();
  } else if (action == QLatin1String("preferences")) {
    show(&ProgramWindows::showPreferences);
  } else if (action == QLatin1String("statistics")) {
    show(&ProgramWindows::showStatistics);
  } else if (action == QLatin1String("about")) {
    show(&ProgramWindows::showAbout);
  } else if (action == QLatin1String("quit")) {
    parts_.quit();
  }
}

void AppDelegate::show(void (ProgramWindows::*window)()) {
  if (parts_.windows) ((*parts_.windows).*window)();
}

}  // namespace sentrel
