// SPDX-License-Identifier: Apache-2.0
//
// The road of a frame, from the camera queue through the analyser and the main loop to the service.
#include <QCoreApplication>

#include "linux/desktop/qt_main_loop.h"
#include "linux/desktop/system_clock.h"
#include "support/test_core.h"
#include "vision/allocation_counter.h"

namespace sentrel {
namespace {

TEST(FrameRoad, AllocatesNothingWhenWarm) {
  if (!test::countsAllocations()) GTEST_SKIP() << "allocations are not counted under this sanitizer";
  int argumentCount = 1;
  char name[] = "test";
  char* arguments[] = {name, nullptr};
  const QCoreApplication application(argumentCount, arguments);

  test::TestMachine machine;  // its manual loop serves as the clock alone
  const auto loop = std::make_shared<QtMainLoop>();
  const AnalysisEnvironment environment{loop, machine.loop, machine.analysisQueue, machine.detector};
  const auto camera = std::make_shared<AVCaptureManager>(machine.session, machine.cameraQueue, environment);
  const auto overlay = std::make_shared<OverlayWindowManager>(std::make_shared<test::FakeOverlayBackend>(),
                                                              loop, machine.loop);
  const auto settings = std::make_shared<SettingsRepository>(std::make_shared<test::MemoryUserDefaults>(),
                                                             std::make_shared<test::FakeLoginItem>());
  const test::FakeDesktop desktop(loop, machine.loop);
  const auto service =
      desktop.service(environment, camera, desktop.control(environment, camera), overlay, settings);
  const auto settle = [&] {
    for (int i = 0; i < 4; ++i) {
      machine.analysisQueue->sync([] {});
      machine.cameraQueue->sync([] {});
      while (!loop->idle()) QCoreApplication::processEvents();
    }
  };
  service->start();
  settle();
  ASSERT_TRUE(service->isActive());

  machine.detector->next = test::detectionsOf({test::faceOf(0.1)}, {test::faceOf(0.1)});
  machine.detector->timestamps.reserve(1000);
  camera->analyzer()->onCalibrationSample = [](double) {};
  const auto frames = [&](int count) {
    for (int i = 0; i < count; ++i) {
      machine.loop->advance(101);
      machine.cameraQueue->async([&] { machine.session->request->onFrame(machine.frame()); });
      machine.cameraQueue->sync([] {});
      settle();
    }
  };
  frames(30);
  EXPECT_EQ(overlay->matrixDistanceCm, 200) << "the frames arrive";
  const std::size_t before = test::allocationCount();
  frames(200);
  EXPECT_EQ(test::allocationCount() - before, 0U);
  EXPECT_EQ(machine.detector->timestamps.size(), 230U);
}

TEST(SystemClock, TakesNoStepsOfTheWallClock) {
  std::int64_t wall = 1'700'000'000'000;
  std::int64_t boot = 5000;
  const SystemClock clock([&] { return wall; }, [&] { return boot; });
  const std::int64_t before = clock.nowMs();
  wall -= 3'600'000;
  boot += 1400;
  EXPECT_EQ(clock.nowMs(), before + 1400);
}

}  // namespace
}  // namespace sentrel
