// SPDX-License-Identifier: Apache-2.0
//
// sentrel-bench-rate [SECONDS]: how many frames a second are analysed when 5, 10 and 15 are asked for,
// through the real capture, camera manager and detector, with a camera of 30 frames a second whose frames
// come up to 4 ms early or late. Each rate is counted over SECONDS, 20 unless told.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "detection/vision_face_analyzer.h"
#include "detection_line.h"
#include "stage/pictures.h"
#include "stage/virtual_camera.h"

int main(int argc, char** argv) {
  using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
  const double length = argc > 1 ? std::atof(argv[1]) : 20;
  test::DetectionLine line;
  const QImage user = test::PortraitScene().frame({}).convertToFormat(QImage::Format_RGB32);
  test::VirtualCamera camera({.jitterMs = 4});
  camera.appear();
  camera.setSource([&](std::int64_t) { return user.constBits(); });
  bool started = false;
  line.camera->startSession([&](const std::optional<StartError>&) { started = true; });
  if (!line.runUntil([&] { return started; }, std::chrono::seconds(20))) return EXIT_FAILURE;
  for (const std::int64_t fps : {5, 10, 15}) {
    std::vector<std::int64_t> times;
    auto analyzer = std::make_shared<VisionFaceAnalyzer>(fps, line.environment);
    analyzer->onResult = [&](const DetectionInput& input) { times.push_back(input.timestampMs); };
    line.camera->setAnalyzer(analyzer);
    const auto counted = [&] {
      return times.size() > 5 && times.back() - times[5] >= static_cast<std::int64_t>(1000 * length);
    };
    if (!line.runUntil(counted, std::chrono::seconds(60) + std::chrono::seconds(static_cast<int>(length))))
      return EXIT_FAILURE;
    std::printf(
        "analysed_fps_at_%d %.2f\n", static_cast<int>(fps),
        1000.0 * static_cast<double>(times.size() - 6) / static_cast<double>(times.back() - times[5]));
  }
  return EXIT_SUCCESS;
}
