// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "stage/pictures.h"
#include "vision/allocation_counter.h"
#include "vision/neural_face_detector.h"

namespace sentrel::vision {
namespace {

// After the first second a frame asks for no memory: whatever it shows, and while faces come and go.
TEST(SteadyWork, allocatesNothingPerFrame) {
  if (!test::countsAllocations()) GTEST_SKIP() << "allocations are not counted under this sanitizer";
  const test::PortraitScene scene;
  std::vector<std::shared_ptr<Frame>> frames;
  for (const double yaw : {0.0, 20.0, 40.0}) {
    frames.push_back(test::toFrame(scene.frame({yaw, {}})));
    for (const double x : {500.0, 540.0})
      frames.push_back(test::toFrame(scene.frame({yaw, test::SecondFace{x, 120, 40}})));
  }
  frames.push_back(test::toFrame(QImage(640, 480, QImage::Format_RGB32)));
  NeuralFaceDetector detector(test::modelFolderPath().toStdString());
  ASSERT_FALSE(detector.prepare());
  std::int64_t now = 0;
  const auto detect = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) (void)detector.detect(*frames[i * 7 % frames.size()], now += 100);
  };
  detect(10);
  const std::size_t before = test::allocationCount();
  detect(60);
  detector.tune({5, false});
  detector.restartTracking();
  detect(20);
  EXPECT_EQ(test::allocationCount() - before, 0U);
  EXPECT_GT(before, 0U);
}

}  // namespace
}  // namespace sentrel::vision
