// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSessionManager>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "app/activation_token.h"
#include "app/build_options.h"
#include "app/failure_report.h"
#include "app/menu_bar_controller.h"
#include "app/qt_arguments.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/autostart_login_item.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/feedbackd_haptics.h"
#include "linux/desktop/system_clock.h"
#include "linux/desktop/upower_power_source.h"
#include "linux/overlay/create_overlay_backend.h"
#include "look/app_icon.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "platform/platform.h"
#include "settings/filter_settings.h"
#include "views/theme.h"
#include "vision/models.h"
#include "vision/neural_face_detector.h"

namespace sentrel {

namespace {

constexpr qint64 lastTurnsMs = 200;
constexpr std::chrono::seconds storePatience{1};
constexpr std::chrono::seconds lastPatience{2};

/// Where there is no session bus, the bus library would start one of its own, in which nobody could find us.
void refuseOwnBus() {
  const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  const bool found = qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS") ||
                     (!folder.isEmpty() && QFileInfo::exists(folder + QStringLiteral("/bus")));
  if (!found) qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
}

/// Newer versions of Qt ask the portal while the application is made, for what is not used here, and wait for
/// a bus that does not answer.
void refuseQtsPortal() {
  qputenv("QT_NO_XDG_DESKTOP_PORTAL", "1");
}

/// What Qt is made of. All change the environment, which is safe only now: no other thread runs yet.
QtArguments& qtArguments(char* program) {
  static QtArguments arguments = [program] {
    refuseOwnBus();
    refuseQtsPortal();
    reserveActivationToken();
    return QtArguments(program);
  }();
  return arguments;
}

/// All that matters is done by now. A bus that does not answer may still be waited for, for as long as its
/// library pleases; that must not hold up a logout.
void boundTheEnd(int code) {
  std::thread([code] {
    std::this_thread::sleep_for(lastPatience);
    std::_Exit(code);
  }).detach();
}

bool showsWindows() {
  return QGuiApplication::platformName() != QLatin1String("offscreen");
}

}  // namespace

SentrelMacApp::SentrelMacApp(char** argv, Launch launch)
    : launch_(launch),
      application_(qtArguments(argv[0]).count(), qtArguments(argv[0]).values()),
      mainLoop_(std::make_shared<QtMainLoop>()),
      bus_(mainLoop_, launch) {
  QGuiApplication::setApplicationName(QStringLiteral("sentrel"));
  QGuiApplication::setDesktopFileName(QStringLiteral("expert.mardeck.sentrel"));
  QGuiApplication::setApplicationVersion(QStringLiteral(SENTREL_VERSION));
  QGuiApplication::setQuitOnLastWindowClosed(false);
  QApplication::setStyle(QStringLiteral("fusion"));  // under our own paint, the same everywhere
  QGuiApplication::setWindowIcon(appIcon());
  signals_.watch([this] { quit(); });
  // The next session starts us by the autostart entry, or not at all.
  for (const auto request : {&QGuiApplication::commitDataRequest, &QGuiApplication::saveStateRequest}) {
    QObject::connect(
        &application_, request, &application_,
        [](QSessionManager& session) { session.setRestartHint(QSessionManager::RestartNever); },
        Qt::DirectConnection);
  }
}

SentrelMacApp::~SentrelMacApp() = default;

int SentrelMacApp::run() {
  // As its own loop begins, Qt asks the bus for assistive technology and waits for the answer: a bus that
  // does not answer must not be asked.
  QEventLoop loop;
  bool reachable = true;
  bus_.claimName([&](InstanceRole role) {
    reachable = role != InstanceRole::unreachable;
    begin(role);
    loop.quit();
  });
  loop.exec();
  const int code = quitAsked_ ? 0 : reachable ? QApplication::exec() : loop.exec();
  if (appDelegate) end();
  boundTheEnd(code);
  appDelegate.reset();  // with windows and tray, which speak with the bus
  bus_.close();         // while what carries its connections still lives
  return code;
}

void SentrelMacApp::begin(InstanceRole role) {
  if (role == InstanceRole::later) {
    std::fputs("sentrel: already running\n", stderr);
    quit();
    return;
  }
  if (role == InstanceRole::unreachable) {
    std::fputs("sentrel: no session bus: nothing can show or switch the protection from outside\n", stderr);
  }
  installPlatform();
  if (const auto& error = defaults_->readError()) {
    untold_ = QT_TRID_NOOP("error_settings_unreadable");
    reportFailure(untold_.c_str(), *error);
  }
  damaged_ = defaults_->damaged.subscribe([this](bool damaged) {
    if (!damaged) return;
    untold_ = QT_TRID_NOOP("error_settings_damaged");
    reportFailure(untold_.c_str());
  });
  screens_->follow(SettingsRepository::shared());
  std::unique_ptr<ProgramWindows> windows;
  if (showsWindows()) {
    windows = std::make_unique<MenuBarController>(
        MenuBarController::Actions{.quit = [this] { quit(); },
                                   .news = [this] { return std::exchange(untold_, {}); }},
        bus_);
  }
  appDelegate = std::make_unique<AppDelegate>(AppDelegate::Parts{.bus = bus_,
                                                                 .windows = std::move(windows),
                                                                 .consent = consent_,
                                                                 .quit = [this] { quit(); },
                                                                 .launch = launch_});
  appDelegate->applicationDidFinishLaunching();
  // The last thing that is registered for the end: everything else is there by now.
  orderlyExit_ = std::make_unique<OrderlyExit>([defaults = defaults_] {
    PrivacyFilterService::shared()->countSession();
    defaults->flush(storePatience);
  });
}

void SentrelMacApp::installPlatform() {
  const auto buses = std::make_shared<BusThread>();
  const auto displays = std::make_shared<EventThread>("sentrel-display");
  Platform platform;
  platform.mainLoop = mainLoop_;
  platform.clock = std::make_shared<SystemClock>();
  platform.cameraQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  platform.analysisQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.vision");
  platform.faceDetector = std::make_shared<vision::NeuralFaceDetector>(vision::modelFolder());
  screens_ = std::make_shared<CoveredScreens>(createOverlayBackend(*mainLoop_));
  platform.overlayBackend = screens_;
  defaults_ = std::make_shared<DefaultsFile>(DefaultsFile::personalPath(), mainLoop_,
                                             std::make_shared<SerialQueue>("com.mardeck.sentrel.store"));
  platform.userDefaults = defaults_;
  consent_ = std::make_shared<CameraConsent>(
      defaults_->value(rawValue(SettingsKey::hasCompletedOnboarding)) == DefaultsValue(true));
  platform.captureSession =
      std::make_shared<PipeWireCaptureSession>(mainLoop_, platform.cameraQueue, consent_);
  platform.loginItem = std::make_shared<AutostartLoginItem>();
  platform.notifications = std::make_shared<DesktopNotifications>(mainLoop_, buses);
  platform.haptics = std::make_shared<FeedbackdHaptics>(buses);
  platform.powerSource = std::make_shared<UPowerPowerSource>(mainLoop_, buses);
  platform.sessionEvents = std::make_shared<DesktopSessionEvents>(mainLoop_, platform.clock, buses, displays);
  platform.keyMonitor = std::make_shared<DesktopKeyMonitor>(
      DesktopKeyMonitor::Parts{.mainLoop = mainLoop_,
                               .buses = buses,
                               .displays = displays,
                               .sessionEvents = platform.sessionEvents,
                               .description = qtTrId("tray_disable").toStdString()});
  platform.localizedText = [](const char* key) { return qtTrId(key).toStdString(); };
  Platform::install(std::move(platform));
  appearance_ = std::make_unique<DesktopAppearance>(mainLoop_, buses);
  looks_ = appearance_->appearance().subscribe([](const Appearance& appearance) {
    OverlayWindowManager::shared()->reducedMotion = appearance.reducedMotion;
    RetroPiPManager::shared()->reducedMotion = appearance.reducedMotion;
    Theme::shared().follow(appearance);
  });
}

void SentrelMacApp::end() {
  orderlyExit_.reset();
  bus_.leave();
  appDelegate->applicationWillTerminate();
  // What stopping has posted still runs: the covers go, the camera closes, the session is counted.
  QElapsedTimer elapsed;
  elapsed.start();
  while (!mainLoop_->idle() && elapsed.elapsed() < lastTurnsMs) QGuiApplication::processEvents();
  if (!defaults_->flush(storePatience)) std::fputs("sentrel: the settings were not saved in time\n", stderr);
}

void SentrelMacApp::quit() {
  quitAsked_ = true;
  mainLoop_->post([] { QCoreApplication::exit(); });  // whichever loop runs
}

}  // namespace sentrel
