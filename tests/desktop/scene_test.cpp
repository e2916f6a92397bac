// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <vector>

#include "detection/filter_fsm.h"
#include "detection/vision_face_analyzer.h"
#include "stage/detection_line.h"
#include "stage/onlooker_scene.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

using Kind = FilterState::Kind;

/// Hands each record to the machine as the service does, and keeps both what went in and what came out.
struct RecordedMachine {
  void handle(const DetectionInput& input) {
    records.push_back(input);
    const Kind kind = fsm.state().get().kind();
    if (kind == Kind::nominal) fsm.handleNominal(input);
    if (kind == Kind::inattention) fsm.handleInattention(input);
    if (kind == Kind::alert) fsm.handleAlert(input);
  }

  FilterFsm fsm;
  std::vector<DetectionInput> records;
  std::vector<Kind> states;
  Registration watch = fsm.state().onChange([this](const FilterState& state) {
    if (!records.empty()) states.push_back(state.kind());
  });
};

/// Records a second. A longer wait than for one more frame of the camera is the machine's, busy with other
/// things, and does not count.
double analysedRate(const std::vector<DetectionInput>& records) {
  constexpr std::int64_t longestMs = 100 + 1000 / OnlookerScene::fps + 17;
  std::int64_t spanMs = 0;
  int count = 0;
  for (std::size_t i = 1; i < records.size(); ++i) {
    const std::int64_t intervalMs = records[i].timestampMs - records[i - 1].timestampMs;
    if (intervalMs > longestMs) continue;
    spanMs += intervalMs;
    ++count;
  }
  return spanMs == 0 ? 0 : 1000.0 * count / static_cast<double>(spanMs);
}

/// The demonstration's scene through everything between the camera and the state.
TEST(Scene, IsSeenAsItIsPlayed) {
  DetectionLine line;
  const PortraitScene portrait;
  const OnlookerScene scene(portrait);
  VirtualCamera camera({.fps = OnlookerScene::fps});
  camera.appear();
  camera.setSource([&](std::int64_t index) { return scene.frame(index); });

  RecordedMachine machine;
  constexpr std::int64_t captureFps = 10;
  auto analyzer = std::make_shared<VisionFaceAnalyzer>(captureFps, line.environment);
  analyzer->onResult = [&](const DetectionInput& input) { machine.handle(input); };
  line.camera->setAnalyzer(analyzer);
  StartResult::Outcome outcome = StartResult::Outcome::failed;
  line.camera->startSession([&](const StartResult& result) {
    outcome = result.outcome;
    machine.fsm.activate();
  });
  ASSERT_TRUE(line.runUntil([&] { return line.camera->isRunning().get(); }, std::chrono::seconds(20)));
  ASSERT_EQ(outcome, StartResult::Outcome::started);

  constexpr std::int64_t recoveryMs = 3000;
  constexpr std::int64_t lastMs = OnlookerScene::calmMs + recoveryMs + 1500;
  ASSERT_TRUE(line.runUntil(
      [&] {
        return !machine.records.empty() &&
               machine.records.back().timestampMs - machine.records.front().timestampMs >= lastMs;
      },
      std::chrono::seconds(90)));

  EXPECT_EQ(machine.states, (std::vector{Kind::inattention, Kind::nominal, Kind::alert, Kind::nominal}));
  const double rate = analysedRate(machine.records);
  std::cout << machine.records.size() << " records, " << rate << " a second\n";
  EXPECT_LE(rate, 1.05 * captureFps);
  EXPECT_GE(rate, 0.8 * captureFps) << "a quarter of the camera's rate is what a pace without a memory gives";
}

}  // namespace
}  // namespace sentrel::test
