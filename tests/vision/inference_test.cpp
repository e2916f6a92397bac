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

namespace sentrel::vision {
namespace {

std::vector<float> noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> values(-1, 1);
  std::vector<float> result(count);
  std::generate(result.begin(), result.end(), [&] { return values(random); });
  return result;
}

void expectAlike(const NetworkRunner& one, const NetworkRunner& other, std::size_t outputs) {
  for (std::size_t i = 0; i < outputs; ++i) {
    const auto expected = other.output(i);
    const auto output = one.output(i);
    ASSERT_EQ(output.size(), expected.size());
    float largest = 0;
    float scale = 1;
    for (std::size_t k = 0; k < output.size(); ++k) {
      largest = std::max(largest, std::abs(output[k] - expected[k]));
      scale = std::max(scale, std::abs(expected[k]));
    }
    EXPECT_GT(scale, 1);
    EXPECT_LT(largest, 1e-4F * scale) << "output " << i;
  }
}

class EngineTest : public ::testing::TestWithParam<NamedEngine> {
 protected:
  Models models_ = readModels(test::modelFolderPath().toStdString());
  std::unique_ptr<InferenceEngine> engine_ = GetParam().make();
};
INSTANTIATE_TEST_SUITE_P(Inference, EngineTest,
                         ::testing::ValuesIn(builtEngines().begin(), builtEngines().end()),
                         [](const auto& engine) { return engine.param.name; });

// Two libraries that know nothing of each other. Runners share weights and work space, so they are run in
// turns, each size after another one.
TEST(Inference, theEnginesAgreeAtEverySizeAndInAnyOrder) {
  if (builtEngines().size() < 2) GTEST_SKIP() << "only one engine was built: OpenCV or XNNPACK is not here";
  const Models models = readModels(test::modelFolderPath().toStdString());
  const auto engine = builtEngines()[0].make();
  const auto otherEngine = builtEngines()[1].make();
  const auto agree = [](NetworkRunner& one, NetworkRunner& other, std::size_t outputs, unsigned seed) {
    const auto input = noise(one.input().size(), seed);
    for (NetworkRunner* runner : {&one, &other}) {
      std::copy(input.begin(), input.end(), runner->input().begin());
      ASSERT_TRUE(runner->run());
    }
    expectAlike(one, other, outputs);
  };
  const std::array sizes{InputSize{64, 96}, InputSize{32, 32}, InputSize{96, 64}};
  const auto runners = engine->prepare(models.detection, sizes);
  const auto others = otherEngine->prepare(models.detection, sizes);
  const std::array meshSize{InputSize{models.mesh.nativeHeight, models.mesh.nativeWidth}};
  const auto mesh = engine->prepare(models.mesh, meshSize);
  const auto otherMesh = otherEngine->prepare(models.mesh, meshSize);
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 1U}) {
    agree(*runners[i], *others[i], models.detection.outputs.size(), static_cast<unsigned>(i));
    agree(*mesh[0], *otherMesh[0], models.mesh.outputs.size(), 9);
  }
}

TEST_P(EngineTest, refusesANetworkThatDoesNotFitTogether) {
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
