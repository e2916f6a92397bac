// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

#include <QElapsedTimer>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "app/failure_report.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/autostart_login_item.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/feedbackd_haptics.h"
#include "linux/desktop/system_clock.h"
#include "linux/desktop/upower_power_source.h"
#include "linux/overlay/create_overlay_backend.h"
#include "look/texts.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "platform/platform.h"
#include "vision/model_folder.h"
#include "vision/neural_face_detector.h"

namespace sentrel {

namespace {

constexpr qint64 lastTurnsMs = 200;
constexpr std::chrono::seconds storePatience{1};
constexpr std::chrono::seconds lastPatience{2};

/// The overlay has its own connection to the display and outlives its loss, which a Qt platform that is
/// connected to the display would not let us: without windows, Qt only paints into memory for us. Qt keeps
/// references to its arguments for as long as it lives.
struct WindowlessArguments {
  explicit WindowlessArguments(char* program) : values{program, option.data(), name.data(), nullptr} {}
  std::string option = "-platform";
  std::string name = "offscreen";
  std::array<char*, 4> values;
  int count = 3;
};

WindowlessArguments& windowlessArguments(char* program) {
  static WindowlessArguments arguments(program);
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

}  // namespace

SentrelMacApp::SentrelMacApp(char** argv)
    : application_(windowlessArguments(argv[0]).count, windowlessArguments(argv[0]).values.data()),
      mainLoop_(std::make_shared<QtMainLoop>()),
      bus_(mainLoop_) {
  QGuiApplication::setApplicationName(QStringLiteral("sentrel"));
  QGuiApplication::setDesktopFileName(QStringLiteral("expert.mardeck.sentrel"));
  QGuiApplication::setQuitOnLastWindowClosed(false);
  signals_.watch([this] { quit(); });
}

SentrelMacApp::~SentrelMacApp() = default;

int SentrelMacApp::run() {
  bus_.claimName([this](InstanceRole role) { begin(role); });
  const int code = QGuiApplication::exec();
  if (appDelegate) end();
  boundTheEnd(code);
  bus_.close();  // while what carries its connections still lives
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
  damaged_ = defaults_->damaged.subscribe([](bool damaged) {
    if (damaged) reportFailure("error_settings_damaged");
  });
  screens_->follow(SettingsRepository::shared());
  appDelegate = std::make_unique<AppDelegate>(
      AppDelegate::Parts{.bus = bus_, .windows = nullptr, .quit = [this] { quit(); }});
  appDelegate->applicationDidFinishLaunching();
}

void SentrelMacApp::installPlatform() {
  const auto buses = std::make_shared<BusThread>();
  const auto displays = std::make_shared<EventThread>("sentrel-display");
  Platform platform;
  platform.mainLoop = mainLoop_;
  platform.clock = std::make_shared<SystemClock>();
  platform.cameraQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  platform.analysisQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.vision");
  platform.captureSession = std::make_shared<PipeWireCaptureSession>(mainLoop_, platform.cameraQueue);
  platform.faceDetector = std::make_shared<vision::NeuralFaceDetector>(vision::modelFolder());
  screens_ = std::make_shared<CoveredScreens>(createOverlayBackend(*mainLoop_));
  platform.overlayBackend = screens_;
  defaults_ = std::make_shared<DefaultsFile>(DefaultsFile::personalPath(), mainLoop_,
                                             std::make_shared<SerialQueue>("com.mardeck.sentrel.store"));
  platform.userDefaults = defaults_;
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
                               .description = text(QStringLiteral("tray_disable")).toStdString()});
  platform.localizedText = [](std::string_view key) { return text(QString::fromUtf8(key)).toStdString(); };
  Platform::install(std::move(platform));
  motion_ = std::make_unique<DesktopMotion>(mainLoop_, buses);
  reducedMotion_ = motion_->reduced().subscribe([](bool reduced) {
    OverlayWindowManager::shared()->reducedMotion = reduced;
    RetroPiPManager::shared()->reducedMotion = reduced;
  });
}

void SentrelMacApp::end() {
  appDelegate->applicationWillTerminate();
  // What stopping has posted still runs: the covers go, the camera closes, the session is counted.
  QElapsedTimer elapsed;
  elapsed.start();
  while (!mainLoop_->idle() && elapsed.elapsed() < lastTurnsMs) QGuiApplication::processEvents();
  appDelegate.reset();
  if (!defaults_->flush(storePatience)) std::fputs("sentrel: the settings were not saved in time\n", stderr);
}

void SentrelMacApp::quit() {
  mainLoop_->post([] { QGuiApplication::quit(); });
}

}  // namespace sentrel
