// SPDX-License-Identifier: Apache-2.0
#include "app/sentrel_mac_app.h"

#include <QElapsedTimer>
#include <array>
#include <cstdio>
#include <string>
#include <utility>

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
