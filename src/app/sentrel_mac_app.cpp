// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

#include <QElapsedTimer>
#include <cstdio>
#include <utility>
#include <vector>

#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/autostart_login_item.h"
#include "linux/desktop/system_clock.h"
#include "linux/overlay/create_overlay_backend.h"
#include "platform/platform.h"
#include "vision/model_folder.h"
#include "vision/neural_face_detector.h"

namespace sentrel {

namespace {

constexpr qint64 lastTurnsMs = 200;

/// The overlay has its own connection to the display and outlives its loss, which a Qt platform that is
/// connected to the display would not let us: without windows, Qt only paints into memory for us.
std::vector<char*> windowlessArguments(char** argv) {
  static char platformOption[] = "-platform";
  static char platformName[] = "offscreen";
  return {argv[0], platformOption, platformName, nullptr};
}

struct Arguments {
  explicit Arguments(char** argv)
      : values(windowlessArguments(argv)), count(static_cast<int>(values.size()) - 1) {}
  std::vector<char*> values;
  int count;
};

/// Qt keeps references to its arguments for as long as it lives.
Arguments& applicationArguments(char** argv) {
  static Arguments arguments(argv);
  return arguments;
}

void installPlatform(const std::shared_ptr<MainLoop>& mainLoop) {
  auto cameraQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  auto captureSession = std::make_shared<PipeWireCaptureSession>(mainLoop, cameraQueue);
  Platform platform;
  platform.mainLoop = mainLoop;
  platform.clock = std::make_shared<SystemClock>();
  platform.cameraQueue = std::move(cameraQueue);
  platform.analysisQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.vision");
  platform.captureSession = std::move(captureSession);
  platform.faceDetector = std::make_shared<vision::NeuralFaceDetector>(vision::modelFolder());
  platform.overlayBackend = createOverlayBackend(*mainLoop);
  platform.userDefaults = std::make_shared<MemoryUserDefaults>();
  platform.loginItem = std::make_shared<AutostartLoginItem>();
  Platform::install(std::move(platform));
}

}  // namespace

SentrelMacApp::SentrelMacApp(char** argv)
    : application_(applicationArguments(argv).count, applicationArguments(argv).values.data()),
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
  if (appDelegate) {
    appDelegate->applicationWillTerminate();
    // What stopping has posted still runs: the covers go, the camera closes.
    QElapsedTimer elapsed;
    elapsed.start();
    while (!mainLoop_->idle() && elapsed.elapsed() < lastTurnsMs) QGuiApplication::processEvents();
  }
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
  installPlatform(mainLoop_);
  appDelegate = std::make_unique<AppDelegate>(bus_, [this] { quit(); });
  appDelegate->applicationDidFinishLaunching();
}

void SentrelMacApp::quit() {
  mainLoop_->post([] { QGuiApplication::quit(); });
}

}  // namespace sentrel
