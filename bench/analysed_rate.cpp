// SPDX-License-Identifier: Apache-2.0
//
// sentrel-bench-rate [SECONDS]: how many frames a second are analysed when 5, 10 and 15 are asked for,
// through the real capture, camera manager and detector, with a camera of 30 frames a second whose frames
// come up to 4 ms early or late. Each rate is counted over SECONDS, 20 unless told.
#include <QCoreApplication>
#include <QEventLoop>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "detection/av_capture_manager.h"
#include "detection/vision_face_analyzer.h"
#include "figures.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/autostart_login_item.h"
#include "linux/desktop/defaults_file.h"
#include "linux/desktop/qt_main_loop.h"
#include "platform/face_detector.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/virtual_camera.h"
#include "support/serial_queue.h"
#include "vision/neural_face_detector.h"

namespace sentrel::bench {
namespace {

/// The real road of a frame in this process: capture, camera manager and detector with its models, on the
/// real event loop and a private desktop. Main thread.
class DetectionLine {
  // They come before everything that uses them.
  test::HeadlessDesktop desktop_{{.pipeWire = true}};
  QCoreApplication application_;

 public:
  DetectionLine(int& argumentCount, char** arguments)
      : application_((desktop_.exportToProcess(), argumentCount), arguments),
        environment{mainLoop, clock, analysisQueue,
                    std::make_shared<vision::NeuralFaceDetector>(test::modelFolderPath().toStdString())},
        camera(std::make_shared<AVCaptureManager>(captureSession, cameraQueue, environment, settings)) {}
  ~DetectionLine() {
    camera->setAnalyzer(nullptr);
    camera->stopSession(nullptr);
    // What is queued still refers to objects of this one.
    (void)runUntil([this] { return !camera->isRunning().get(); }, std::chrono::seconds(10));
    cameraQueue->sync([] {});
    analysisQueue->sync([] {});
  }
  DetectionLine(const DetectionLine&) = delete;
  DetectionLine& operator=(const DetectionLine&) = delete;

  /// Runs the event loop until the condition holds; false when the time is over.
  [[nodiscard]] static bool runUntil(const std::function<bool()>& condition,
                                     std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
      if (std::chrono::steady_clock::now() >= end) return false;
      constexpr int sliceMs = 10;
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, sliceMs);
    }
    return true;
  }

  const std::shared_ptr<QtMainLoop> mainLoop = std::make_shared<QtMainLoop>();
  const std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  const std::shared_ptr<SerialQueue> cameraQueue =
      std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  const std::shared_ptr<SerialQueue> analysisQueue =
      std::make_shared<SerialQueue>("com.mardeck.sentrel.vision", *cameraQueue);
  const std::shared_ptr<PipeWireCaptureSession> captureSession =
      PipeWireCaptureSession::create(mainLoop, cameraQueue);
  const AnalysisEnvironment environment;
  const std::shared_ptr<SettingsRepository> settings = std::make_shared<SettingsRepository>(
      std::make_shared<DefaultsFile>(DefaultsFile::personalPath(), mainLoop, cameraQueue),
      std::make_shared<AutostartLoginItem>());
  const std::shared_ptr<AVCaptureManager> camera;
};

}  // namespace
}  // namespace sentrel::bench

int main(int argc, char** argv) {
  using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
  const double length = argc > 1 ? std::atof(argv[1]) : 20;
  bench::DetectionLine line(argc, argv);
  const QImage user = test::PortraitScene().frame({});
  test::VirtualCamera camera({.jitterMs = 4});
  camera.appear();
  camera.setSource([&](std::int64_t) { return user.constBits(); });
  bool started = false;
  line.camera->startSession([&](const std::optional<StartError>&) { started = true; });
  if (!line.runUntil([&] { return started; }, std::chrono::seconds(20))) return EXIT_FAILURE;
  for (const std::int64_t fps : {5, 10, 15}) {
    std::vector<std::int64_t> times;
    auto analyzer = std::make_shared<VisionFaceAnalyzer>(fps, line.environment);
    analyzer->onResult = [&](const DetectionInput& input, const auto& /*faces*/) {
      times.push_back(input.timestampMs);
    };
    line.camera->setAnalyzer(analyzer);
    const auto counted = [&] {
      return times.size() > 5 && times.back() - times[5] >= static_cast<std::int64_t>(1000 * length);
    };
    if (!line.runUntil(counted, std::chrono::seconds(60) + std::chrono::seconds(static_cast<int>(length))))
      return EXIT_FAILURE;
    bench::print("analysed_fps_at_" + std::to_string(fps), 1000.0 * static_cast<double>(times.size() - 6) /
                                                               static_cast<double>(times.back() - times[5]));
  }
  return EXIT_SUCCESS;
}
