// SPDX-License-Identifier: Apache-2.0
//
// The road of a frame, from the camera queue through the analyser and the main loop to the service.
#include <QCoreApplication>

#include "linux/desktop/qt_main_loop.h"
#include "support/test_core.h"
#include "vision/allocation_counter.h"

namespace sentrel {
namespace {

TEST(FrameRoad, AllocatesNothingWhenWarm) {
  if (test::allocationCount() == 0) GTEST_SKIP() << "allocations are not counted under this sanitizer";
  int argumentCount = 1;
  const QCoreApplication application(argumentCount, &program_invocation_name);
  const auto loop = std::make_shared<QtMainLoop>();
  test::TestCore core(loop);
  test::TestMachine& machine = core.machine;
  const auto settle = [&] {
    for (int i = 0; i < 4; ++i) {
      machine.analysisQueue->sync([] {});
      machine.cameraQueue->sync([] {});
      while (!loop->idle()) QCoreApplication::processEvents();
    }
  };
  core.service->start();
  settle();
  ASSERT_TRUE(core.service->isActive());

  machine.detector->next = test::detectionsOf({test::faceOf(0.1)}, {test::faceOf(0.1)});
  machine.detector->timestamps.reserve(1000);
  core.camera->analyzer()->onCalibrationSample = [](double) {};
  const auto frames = [&](int count) {
    for (int i = 0; i < count; ++i) {
      machine.loop->advance(101);
      machine.cameraQueue->sync([&] { machine.session->request->onFrame(machine.frame()); });
      settle();
    }
  };
  frames(30);
  EXPECT_EQ(core.overlay->matrixDistanceCm, 200) << "the frames arrive";
  const std::size_t before = test::allocationCount();
  frames(200);
  EXPECT_EQ(test::allocationCount() - before, 0U);
  EXPECT_EQ(machine.detector->timestamps.size(), 230U);
}

}  // namespace
}  // namespace sentrel
