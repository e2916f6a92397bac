// SPDX-License-Identifier: Apache-2.0
#include "detection_line.h"

#include <QEventLoop>
#include <utility>

#include "stage/pictures.h"
#include "vision/neural_face_detector.h"

namespace sentrel::test {

namespace {

std::unique_ptr<QCoreApplication> makeApplication(HeadlessDesktop& desktop) {
  desktop.exportToProcess();
  static int argumentCount = 1;  // the application keeps references
  static char name[] = "test";
  static char* arguments[] = {name, nullptr};
  return std::make_unique<QCoreApplication>(argumentCount, arguments);
}

std::shared_ptr<FaceDetector> makeDetector(const DetectionLine::Wrap& wrap) {
  auto detector = std::make_shared<vision::NeuralFaceDetector>(modelFolderPath().toStdString());
  return wrap ? wrap(std::move(detector)) : detector;
}

}  // namespace

DetectionLine::DetectionLine(const Wrap& wrap)
    : application_(makeApplication(desktop_)),
      mainLoop(std::make_shared<QtMainLoop>()),
      clock(std::make_shared<SystemClock>()),
      cameraQueue(std::make_shared<SerialQueue>("com.mardeck.sentrel.camera")),
      analysisQueue(std::make_shared<SerialQueue>("com.mardeck.sentrel.vision")),
      captureSession(std::make_shared<PipeWireCaptureSession>(mainLoop, cameraQueue)),
      environment{mainLoop, clock, analysisQueue, makeDetector(wrap)},
      camera(std::make_shared<AVCaptureManager>(captureSession, cameraQueue, environment)) {}

DetectionLine::~DetectionLine() {
  camera->setAnalyzer(nullptr);
  camera->stopSession();
  // What is queued still refers to objects of this one.
  (void)runUntil([this] { return !camera->isRunning().get(); }, std::chrono::seconds(10));
  cameraQueue->sync([] {});
  analysisQueue->sync([] {});
}

bool DetectionLine::runUntil(const std::function<bool()>& condition,
                             std::chrono::milliseconds timeout) const {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    constexpr int sliceMs = 10;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, sliceMs);
  }
  return true;
}

}  // namespace sentrel::test
