// SPDX-License-Identifier: Apache-2.0
//
// The road of a frame, from the camera queue through the analyser and the main loop to the service.
#include <gmock/gmock.h>

#include <QCoreApplication>

#include "detection/av_capture_manager.h"
#include "linux/desktop/qt_main_loop.h"
#include "service/privacy_filter_service.h"
#include "support/fake_desktop.h"
#include "support/fake_overlay_backend.h"
#include "support/fake_settings.h"
#include "support/machine_room.h"
#include "vision/allocation_counter.h"

namespace sentrel {
namespace {

TEST(FrameRoad, AllocatesNothingWhenWarm) {
  if (!test::countsAllocations()) GTEST_SKIP() << "allocations are not counted under this sanitizer";
  int argumentCount = 1;
  char name[] = "test";
  char* arguments[] = {name, nullptr};
  const QCoreApplication application(argumentCount, arguments);

  test::MachineRoom room;  // its manual loop serves as the clock alone
  const auto loop = std::make_shared<QtMainLoop>();
  const AnalysisEnvironment environment{loop, room.loop, room.analysisQueue, room.detector};
  const auto camera = std::make_shared<AVCaptureManager>(room.session, room.cameraQueue, environment);
  const auto overlay =
      std::make_shared<OverlayWindowManager>(std::make_shared<test::FakeOverlayBackend>(), loop, room.loop);
  const auto settings = std::make_shared<SettingsRepository>(std::make_shared<test::MemoryUserDefaults>(),
                                                             std::make_shared<test::FakeLoginItem>());
  const test::FakeDesktop desktop(loop, room.loop);
  const auto service =
      desktop.service(environment, camera, desktop.control(environment, camera), overlay, settings);
  const auto settle = [&] {
    for (int i = 0; i < 4; ++i) {
      room.analysisQueue->sync([] {});
      room.cameraQueue->sync([] {});
      while (!loop->idle()) QCoreApplication::processEvents();
    }
  };
  service->start();
  settle();
  ASSERT_TRUE(service->isActive());

  room.detector->next = test::detectionsOf({test::faceOf(0.1)}, {test::faceOf(0.1)});
  room.detector->timestamps.reserve(1000);
  camera->analyzer()->onCalibrationSample = [](double) {};
  const auto frames = [&](int count) {
    for (int i = 0; i < count; ++i) {
      room.loop->advance(101);
      room.cameraQueue->async([&] { room.session->request->onFrame(room.frame()); });
      room.cameraQueue->sync([] {});
      settle();
    }
  };
  frames(30);
  EXPECT_EQ(overlay->matrixDistanceCm, 200) << "the frames arrive";
  const std::size_t before = test::allocationCount();
  frames(200);
  EXPECT_EQ(test::allocationCount() - before, 0U);
  EXPECT_EQ(room.detector->timestamps.size(), 230U);
}

}  // namespace
}  // namespace sentrel
