// SPDX-License-Identifier: Apache-2.0
#include "vision/inference.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "stage/pictures.h"
#include "vision/models.h"

namespace sentrel::vision {
namespace {

class InferenceTest : public ::testing::Test {
 protected:
  /// Runs it on a fixed input; `sums` are those of all outputs, each value weighted by its place.
  static void expectSums(NetworkRunner& runner, std::array<double, 2> sums) {
    const auto input = runner.input();
    for (std::size_t i = 0; i < input.size(); ++i)
      input[i] = static_cast<float>(std::sin(0.37 * static_cast<double>(i)));
    ASSERT_TRUE(runner.run());
    for (std::size_t output = 0; output < sums.size(); ++output) {
      double sum = 0;
      double size = 0;
      for (std::size_t i = 0; i < runner.output(output).size(); ++i) {
        const double value = runner.output(output)[i];
        sum += value * static_cast<double>(i % 7 + 1);
        size += std::abs(value);
      }
      EXPECT_NEAR(sum, sums.at(output), 1e-4 * size) << "output " << output << " of " << input.size();
    }
  }

  const Models models_ = readModels(test::modelFolderPath().toStdString());
  const std::unique_ptr<InferenceEngine> engine_ = makeInferenceEngine();
};

// The sums are those of outputs that were compared, value by value, with a direct computation of every
// operator. Runners share weights and work space, so they are run in turns, each size after another one.
TEST_F(InferenceTest, givesTheNetworksOutputsAtEverySizeAndInAnyOrder) {
  const std::array sizes{InputSize{64, 96}, InputSize{32, 32}, InputSize{96, 64}};
  const std::array<std::array<double, 2>, 3> sums{
      {{52096.781, -8970.530}, {5843.726, -1897.220}, {51628.768, -11081.551}}};
  const auto runners = engine_->prepare(models_.detection, sizes);
  const auto mesh = engine_->prepare(
      models_.mesh, std::array{InputSize{models_.mesh.nativeHeight, models_.mesh.nativeWidth}});
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 1U}) expectSums(*runners[i], sums.at(i));
  expectSums(*mesh[0], {387455.738, -10.457345});
  expectSums(*runners[1], sums[1]);
}

TEST_F(InferenceTest, refusesANetworkThatDoesNotFitTogether) {
  void (*const damages[])(Network&) = {
      [](Network& network) { network.operators[0].weights.pop_back(); },
      [](Network& network) { network.operators[1].bias.clear(); },
      [](Network& network) { network.operators[2].input = network.tensorCount; },
      [](Network& network) { network.operators[2].output = network.operators[0].output; },
      [](Network& network) { network.operators[0].stride = 0; },
      [](Network& network) { network.operators.erase(network.operators.begin() + 4); },
      [](Network& network) { network.outputs.push_back(network.tensorCount + 7); },
  };
  for (const auto damage : damages) {
    Network network = models_.detection;
    damage(network);
    EXPECT_THROW((void)engine_->prepare(network, std::array{InputSize{64, 64}}), ModelError);
  }
}

}  // namespace
}  // namespace sentrel::vision
