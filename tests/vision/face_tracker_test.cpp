// SPDX-License-Identifier: Apache-2.0
#include "vision/face_tracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "stage/pictures.h"
#include "vision/hooked_engine.h"

namespace sentrel::vision {
namespace {

// An alert needs half a second. However slow the camera is, and though every scan shows it again, what fails
// its trial is not believed for so long.
TEST(FaceTracker, believesWhatFailsItsTrialForLessThanHalfASecond) {
  const Models models = readModels(test::modelFolderPath().toStdString());
  const auto engine = makeInferenceEngine();
  const auto prepare = [&](const Network& network, InputSize size) {
    return std::make_unique<test::HookedRunner>(std::move(engine->prepare(network, std::array{size})[0]));
  };
  RegionSampler sampler;
  MeshFinder mesh(prepare(models.mesh, {meshSide, meshSide}), models.face.points.size());
  FaceTracker tracker(
      FaceSearch(prepare(models.detection, FaceTracker::inputSize), FaceTracker::inputSize, sampler), mesh);
  // No look and no mesh is sure of the face.
  test::HookedRunner::hook = [](NetworkRunner& real) {
    const bool run = real.run();
    const bool isMesh = real.input().size() == std::size_t{meshSide} * meshSide * 3;
    const std::size_t scores = real.output(0).size() < real.output(1).size() ? 0 : 1;
    for (const float& score : real.output(scores))
      const_cast<float&>(score) = std::min(score, isMesh ? -9.0F : 0.2F);  // NOLINT
    return run;
  };
  const auto frame = test::toFrame(test::PortraitScene().frame({}));
  const QRectF face = test::PortraitScene().faceBox();
  Candidate candidate;
  candidate.score = 0.9;
  candidate.box = {face.x(), face.y(), face.width(), face.height()};
  for (const int intervalMs : {67, 101, 143, 200, 1000}) {
    MotionGate gate;
    tracker.restart();
    std::int64_t now = 0;
    std::int64_t since = 0;
    int frames = 0;
    for (; now < 5000; now += intervalMs) {
      gate.observe(*frame, now);
      tracker.follow(*frame, gate, now);
      tracker.confirm(*frame, gate, now, std::span(&candidate, 1), false);
      const bool believed = !tracker.faces().empty();
      if (!believed) since = now + intervalMs;
      frames += believed ? 1 : 0;
      EXPECT_LT(now - since, 500) << intervalMs;
    }
    EXPECT_GT(frames, 2) << intervalMs;
  }
  test::HookedRunner::hook = nullptr;
}

}  // namespace
}  // namespace sentrel::vision
