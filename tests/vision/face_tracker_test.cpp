// SPDX-License-Identifier: Apache-2.0
#include "vision/face_tracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

namespace sentrel::vision {
namespace {

/// A network with two outputs that says the same of every picture.
class FixedRunner final : public NetworkRunner {
 public:
  FixedRunner(std::size_t inputs, std::vector<float>& first, std::vector<float>& second)
      : input_(inputs), outputs_{&first, &second} {}
  std::span<float> input() override { return input_; }
  bool run() override { return true; }
  [[nodiscard]] std::size_t outputCount() const override { return outputs_.size(); }
  [[nodiscard]] std::span<const float> output(std::size_t index) const override {
    return *outputs_.at(index);
  }

 private:
  std::vector<float> input_;
  std::array<std::vector<float>*, 2> outputs_;
};

// A new face is believed at once when one look is sure, and then has to show that this was no chance.
TEST(FaceTracker, putsANewFaceOnTrial) {
  // The score of all looks but the first, and the presence of a mesh.
  for (const auto& [score, presence, stays] :
       {std::tuple{0.72, -9.0F, true}, {0.55, -9.0F, false}, {0.55, 9.0F, true}}) {
    SCOPED_TRACE(testing::Message() << "looks " << score << ", mesh " << presence);
    // One box of half the region in its middle.
    constexpr std::size_t side = 24;
    constexpr std::size_t middle = side * side / 2 + side / 2;
    std::vector<float> boxes(side * side * 16);
    std::vector<float> scores(side * side, -9);
    boxes[middle * 16 + 2] = boxes[middle * 16 + 3] = 48;
    std::vector<float> points(468 * 3);
    std::vector<float> present{presence};
    RegionSampler sampler;
    MeshFinder mesh(std::make_unique<FixedRunner>(192 * 192 * 3, points, present), 468);
    FaceTracker tracker(FaceSearch(std::make_unique<FixedRunner>(96 * 96 * 3, boxes, scores),
                                   FaceTracker::inputSize, sampler),
                        mesh);
    const auto look = [&](double value) {
      scores[middle] = static_cast<float>(std::log(value / (1 - value)));
    };
    Frame frame;
    frame.resize(640, 480);
    frame.clear();
    MotionGate gate;
    gate.observe(frame, 1000);
    look(0.75);
    const Candidate candidate{0.7, {300, 200, 40, 40}, {}};
    tracker.confirm(frame, gate, 1000, {&candidate, 1}, false);
    ASSERT_EQ(tracker.faces().size(), 1U);
    look(score);
    for (std::int64_t now = 1100; tracker.hasBacklog(); now += 100) {
      ASSERT_LT(now, 1500) << "no alert comes of it before";
      gate.observe(frame, now);
      tracker.follow(frame, gate, now);
    }
    EXPECT_EQ(tracker.faces().size(), stays ? 1U : 0U);
  }
}

}  // namespace
}  // namespace sentrel::vision
