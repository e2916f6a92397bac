// SPDX-License-Identifier: Apache-2.0
#include "vision/inference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "stage/pictures.h"
#include "vision/model_error.h"
#include "vision/model_files.h"
#include "vision/reference_network.h"

namespace sentrel::vision {
namespace {

std::vector<float> noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> values(-1, 1);
  std::vector<float> result(count);
  std::generate(result.begin(), result.end(), [&] { return values(random); });
  return result;
}

void expectOutputs(const NetworkRunner& runner, const std::vector<std::vector<float>>& expected) {
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const auto output = runner.output(i);
    ASSERT_EQ(output.size(), expected[i].size());
    float largest = 0;
    float scale = 1;
    for (std::size_t k = 0; k < output.size(); ++k) {
      largest = std::max(largest, std::abs(output[k] - expected[i][k]));
      scale = std::max(scale, std::abs(expected[i][k]));
    }
    EXPECT_LT(largest, 1e-4F * scale) << "output " << i;
  }
}

class Inference : public ::testing::TestWithParam<MakeEngine> {
 protected:
  Models models_ = readModels(test::modelFolderPath().toStdString());
  std::unique_ptr<InferenceEngine> engine_ = GetParam()();
};
INSTANTIATE_TEST_SUITE_P(Engines, Inference, ::testing::Values(makeXnnpackEngine, makeOpencvEngine),
                         [](const auto& engine) { return engine.index == 0 ? "xnnpack" : "opencv"; });

// Runners share weights and work space, so they are run in turns, each size after another one.
TEST_P(Inference, equalsTheDefinitionAtEverySizeAndInAnyOrder) {
  const std::array sizes{InputSize{64, 96}, InputSize{32, 32}, InputSize{96, 64}};
  const auto runners = engine_->prepare(models_.detection, sizes);
  const std::array meshSize{InputSize{models_.mesh.nativeHeight, models_.mesh.nativeWidth}};
  const auto mesh = engine_->prepare(models_.mesh, meshSize);
  const auto meshInput = noise(mesh[0]->input().size(), 9);
  const auto meshExpected =
      test::runReference(models_.mesh, meshSize[0].height, meshSize[0].width, meshInput);
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 1U}) {
    const auto input = noise(runners[i]->input().size(), static_cast<unsigned>(i));
    std::copy(input.begin(), input.end(), runners[i]->input().begin());
    ASSERT_TRUE(runners[i]->run());
    expectOutputs(*runners[i], test::runReference(models_.detection, sizes[i].height, sizes[i].width, input));
    std::copy(meshInput.begin(), meshInput.end(), mesh[0]->input().begin());
    ASSERT_TRUE(mesh[0]->run());
    expectOutputs(*mesh[0], meshExpected);
  }
}

TEST_P(Inference, refusesANetworkThatDoesNotFitTogether) {
  const std::array size{InputSize{64, 64}};
  const auto broken = [&](auto damage) {
    Network network = models_.detection;
    damage(network);
    EXPECT_THROW((void)engine_->prepare(network, size), ModelError);
  };
  broken([](Network& network) { network.operators[0].weights.pop_back(); });
  broken([](Network& network) { network.operators[1].bias.clear(); });
  broken([](Network& network) { network.operators[2].input = network.tensorCount; });
  broken([](Network& network) { network.operators[2].output = network.operators[0].output; });
  broken([](Network& network) { network.operators[0].stride = 0; });
  broken([](Network& network) { network.operators.erase(network.operators.begin() + 4); });
  broken([](Network& network) { network.outputs.push_back(network.tensorCount + 7); });
}

}  // namespace
}  // namespace sentrel::vision
