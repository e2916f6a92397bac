// SPDX-License-Identifier: Apache-2.0
#include <numbers>

#include "support/test_core.h"

namespace sentrel {
namespace {

using test::detectionsOf;
using test::faceOf;
using testing::ElementsAre;

struct VisionFaceAnalyzerTest : testing::Test {
  std::shared_ptr<VisionFaceAnalyzer> make() {
    auto analyzer = std::make_shared<VisionFaceAnalyzer>(10, machine.environment());
    analyzer->onResult = [this](const DetectionInput& input, const auto& /*faces*/) {
      results.push_back(input);
    };
    return analyzer;
  }

  /// Offers a frame at each of the times, in ms from now.
  void offer(VisionFaceAnalyzer& analyzer, const std::vector<std::int64_t>& times) {
    const std::int64_t begin = machine.loop->nowMs();
    for (const auto time : times) {
      machine.loop->advance(begin + time - machine.loop->nowMs());
      analyzer.analyze(machine.frame());
      machine.settle();
    }
  }

  [[nodiscard]] std::vector<std::int64_t> resultTimes() const {
    std::vector<std::int64_t> times;
    for (const auto& result : results) times.push_back(result.timestampMs - test::ManualMainLoop::startMs);
    return times;
  }

  test::TestMachine machine;
  std::vector<DetectionInput> results;
};

TEST(VisionFaceAnalyzerDeathTest, ARateOfZeroIsFatal) {
  EXPECT_DEATH(VisionFaceAnalyzer(0, {}), "analysis rate");
}

TEST_F(VisionFaceAnalyzerTest, ThrottlesToItsIntervalWhichSuspensionKeepsAndAnEmptyFrameTakes) {
  const auto analyzer = make();
  offer(*analyzer, {0, 99, 100, 150, 200, 299, 301});
  analyzer->isSuspended = true;
  offer(*analyzer, {100, 150});
  analyzer->isSuspended = false;
  offer(*analyzer, {0});  // at 451, 150 ms after the last one accepted
  machine.loop->advance(100);
  analyzer->analyze(nullptr);
  offer(*analyzer, {99});
  EXPECT_THAT(resultTimes(), ElementsAre(0, 100, 200, 301, 451));
}

TEST_F(VisionFaceAnalyzerTest, TheNewestFrameWinsWhileOneIsAnalysed) {
  const auto analyzer = make();
  machine.detector->whileWorking = [&] {
    if (machine.detector->timestamps.size() > 1) return;
    for (int i = 0; i < 3; ++i) {
      machine.loop->advance(100);
      analyzer->analyze(machine.frame());
    }
  };
  offer(*analyzer, {0});
  EXPECT_THAT(resultTimes(), ElementsAre(0, 300));
}

TEST_F(VisionFaceAnalyzerTest, MeasuresTheMainFace) {
  constexpr double least = 0.019999999552965164;  // 0.02 in single precision
  const auto withNose = [](std::optional<Point> nose) {
    FaceObservation face = faceOf(0.3);
    face.landmarks = FaceLandmarks{Point{0.3, 0.75}, Point{0.7, 0.5}, nose};
    return detectionsOf({}, {face});
  };
  const auto facesAt = [](std::initializer_list<std::pair<double, double>> widthsAndPlaces) {
    FaceDetections found;
    for (const auto& [width, x] : widthsAndPlaces) found.rectangles.push(faceOf(width, x));
    return found;
  };
  const FaceDetections turned =
      detectionsOf({faceOf(0.5)}, {faceOf(0.1, 0, 1), faceOf(0.25, 0, 0.5), faceOf(0.25, 0, -0.5)});
  constexpr auto halfRadian = static_cast<float>(90 / std::numbers::pi);
  using Number = std::optional<double>;
  const struct {
    std::string what;
    FaceDetections found;
    std::int64_t faceCount;
    std::optional<FaceData> primary;
    Number sample;
    Number secondX;  ///< where the second widest face is
  } cases[] = {
      {"nobody", {}, 0, {}, {}, {}},
      {"the least width", detectionsOf({faceOf(least), faceOf(0.0199)}, {faceOf(0.0199)}), 1, {}, least, {}},
      {"rectangles alone", facesAt({{0.1, 0.3}, {0.2, 0.1}}), 2, {}, 0.2, 0.3},
      {"the first of equals", facesAt({{0.2, 0.4}, {0.3, 0.1}, {0.2, 0.7}}), 3, {}, 0.3, 0.4},
      {"two equals", facesAt({{0.2, 0.4}, {0.2, 0.7}}), 2, {}, 0.2, 0.7},
      {"a pose without a rectangle", detectionsOf({}, {faceOf(0.2)}), 0, FaceData{0, 0, 0.2F}, 0.2, {}},
      {"the widest pose, the first of equals", turned, 1, FaceData{halfRadian, 0, 0.25F}, 0.25, {}},
      {"no yaw", detectionsOf({}, {faceOf(0.2, 0.1, std::nullopt)}), 0, FaceData{0, 0, 0.2F}, 0.2, {}},
      {"pitch", withNose(Point{0.5, 0.75}), 0, FaceData{0, 22.5F, 0.3F}, 0.3, {}},
      {"no nose", withNose(std::nullopt), 0, FaceData{0, 0, 0.3F}, 0.3, {}},
  };
  const auto analyzer = make();
  Number sample;
  analyzer->onCalibrationSample = [&](double width) { sample = width; };
  Number secondX;
  analyzer->onRetroFrame = [&](const FrameRef& frame, const std::optional<NormalizedRect>& box) {
    EXPECT_TRUE(frame);
    secondX = box ? Number(box->x) : std::nullopt;
  };
  for (const auto& [what, found, faceCount, primary, expectedSample, expectedX] : cases) {
    machine.detector->next = found;
    results.clear();
    sample.reset();
    offer(*analyzer, {100});
    EXPECT_THAT(results, ElementsAre(DetectionInput{machine.loop->nowMs(), faceCount, primary})) << what;
    EXPECT_EQ(sample, expectedSample) << what;
    EXPECT_EQ(secondX, expectedX) << what;
  }
}

TEST_F(VisionFaceAnalyzerTest, KeepsAFrameOnlyForARetroConsumer) {
  FramePool single(1);
  const auto analyzer = make();
  const auto analysed = [&] {
    machine.loop->advance(100);
    analyzer->analyze(single.acquire(4, 4));
    machine.analysisQueue->sync([] {});
  };
  analysed();
  EXPECT_TRUE(single.acquire(4, 4)) << "free as soon as it is analysed";
  analyzer->onRetroFrame = [](const FrameRef&, const std::optional<NormalizedRect>&) { FAIL(); };
  analysed();
  EXPECT_FALSE(single.acquire(4, 4)) << "held for the consumer";
  analyzer->onRetroFrame = nullptr;
  machine.settle();
  EXPECT_TRUE(single.acquire(4, 4)) << "let go, and not given to a consumer that has gone";
}

TEST_F(VisionFaceAnalyzerTest, LettingGoCancelsDeliveries) {
  auto analyzer = make();
  machine.detector->whileWorking = [&] { analyzer.reset(); };  // the last owner, while it analyses
  analyzer->analyze(machine.frame());
  machine.settle();
  EXPECT_TRUE(results.empty());
}

}  // namespace
}  // namespace sentrel
