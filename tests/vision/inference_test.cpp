// SPDX-License-Identifier: Apache-2.0
#include "vision/inference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "stage/pictures.h"
#include "vision/models.h"

namespace sentrel::vision {
namespace {

struct Tensor {
  Shape shape;
  std::vector<float> values = std::vector<float>(shape.count());

  [[nodiscard]] bool has(int y, int x) const {
    return y >= 0 && y < shape.height && x >= 0 && x < shape.width;
  }
  float& at(int y, int x, int channel) {
    return values.at(static_cast<std::size_t>((y * shape.width + x) * shape.channels + channel));
  }
};

/// One value of an operator's output by its definition.
float valueOf(const Operator& op, Tensor& in, Tensor& second, const Shape& out, int y, int x, int channel) {
  const int channels = in.shape.channels;
  const auto weight = [&](int index) { return op.weights.at(static_cast<std::size_t>(index)); };
  const auto edge = [&](int side, int outSide, int kernel) {
    return op.padding == Padding::same ? std::max(0, (outSide - 1) * op.stride + kernel - side) / 2 : 0;
  };
  const auto overWindow = [&](auto visit) {
    for (int ky = 0; ky < op.kernelHeight; ++ky) {
      for (int kx = 0; kx < op.kernelWidth; ++kx) {
        const int fromY = y * op.stride - edge(in.shape.height, out.height, op.kernelHeight) + ky;
        const int fromX = x * op.stride - edge(in.shape.width, out.width, op.kernelWidth) + kx;
        if (in.has(fromY, fromX)) visit(fromY, fromX, ky * op.kernelWidth + kx);
      }
    }
  };
  float value = 0;
  switch (op.kind) {
    case OperatorKind::convolution:
      value = op.bias.at(static_cast<std::size_t>(channel));
      overWindow([&](int fromY, int fromX, int tap) {
        const int row = (channel * op.kernelHeight * op.kernelWidth + tap) * channels;
        for (int c = 0; c < channels; ++c) value += weight(row + c) * in.at(fromY, fromX, c);
      });
      break;
    case OperatorKind::depthwise:
      value = op.bias.at(static_cast<std::size_t>(channel));
      overWindow([&](int fromY, int fromX, int tap) {
        value += weight(tap * channels + channel) * in.at(fromY, fromX, channel);
      });
      break;
    case OperatorKind::add:
      value = in.at(y, x, channel) + second.at(y, x, channel);
      break;
    case OperatorKind::maxPool:
      value = std::numeric_limits<float>::lowest();
      overWindow([&](int fromY, int fromX, int) { value = std::max(value, in.at(fromY, fromX, channel)); });
      break;
    case OperatorKind::padChannels:
      value = channel < channels ? in.at(y, x, channel) : 0;
      break;
    case OperatorKind::prelu:
      value = in.at(y, x, channel);
      if (value < 0) value *= weight(channel);
      break;
    case OperatorKind::upsampleBilinear:
      // The nearer neighbour on each axis counts three times as much as the farther one.
      for (const int dy : {0, y % 2 == 0 ? -1 : 1}) {
        for (const int dx : {0, x % 2 == 0 ? -1 : 1}) {
          value += in.at(std::clamp(y / 2 + dy, 0, in.shape.height - 1),
                         std::clamp(x / 2 + dx, 0, in.shape.width - 1), channel) *
                   (dy == 0 ? 0.75F : 0.25F) * (dx == 0 ? 0.75F : 0.25F);
        }
      }
      break;
  }
  return op.relu ? std::max(value, 0.0F) : value;
}

/// What the network's outputs are for an input, computed slowly.
std::vector<std::vector<float>> reference(const Network& network, InputSize size,
                                          const std::vector<float>& input) {
  const auto shapes = inferShapes(network, size.height, size.width);
  std::vector<Tensor> tensors(shapes.size());
  tensors[network.input] = {shapes[network.input], input};
  for (const Operator& op : network.operators) {
    Tensor result{shapes[op.output]};
    std::size_t i = 0;
    for (int y = 0; y < result.shape.height; ++y) {
      for (int x = 0; x < result.shape.width; ++x) {
        for (int c = 0; c < result.shape.channels; ++c)
          result.values[i++] = valueOf(op, tensors[op.input], tensors[op.secondInput], result.shape, y, x, c);
      }
    }
    tensors[op.output] = std::move(result);
  }
  std::vector<std::vector<float>> outputs;
  for (const std::size_t output : network.outputs) outputs.push_back(tensors[output].values);
  return outputs;
}

class InferenceTest : public ::testing::Test {
 protected:
  void expectRight(NetworkRunner& runner, const Network& network, InputSize size) {
    std::uniform_real_distribution<float> values(-1, 1);
    std::vector<float> input(runner.input().size());
    std::generate(input.begin(), input.end(), [&] { return values(random_); });
    std::copy(input.begin(), input.end(), runner.input().begin());
    ASSERT_TRUE(runner.run());
    const auto expected = reference(network, size, input);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      const auto output = runner.output(i);
      ASSERT_EQ(output.size(), expected[i].size());
      float largest = 0;
      float scale = 1;
      for (std::size_t k = 0; k < output.size(); ++k) {
        largest = std::max(largest, std::abs(output[k] - expected[i][k]));
        scale = std::max(scale, std::abs(expected[i][k]));
      }
      EXPECT_GT(scale, 1);
      EXPECT_LT(largest, 1e-4F * scale) << "output " << i;
    }
  }

  Models models_ = readModels(test::modelFolderPath().toStdString());
  std::unique_ptr<InferenceEngine> engine_ = makeInferenceEngine();
  std::mt19937 random_{1};
};

// Runners share weights and work space, so they are run in turns, each size after another one.
TEST_F(InferenceTest, givesTheNetworksOutputsAtEverySizeAndInAnyOrder) {
  const std::array sizes{InputSize{64, 96}, InputSize{32, 32}, InputSize{96, 64}};
  const auto runners = engine_->prepare(models_.detection, sizes);
  const InputSize meshSize{models_.mesh.nativeHeight, models_.mesh.nativeWidth};
  const auto mesh = engine_->prepare(models_.mesh, std::array{meshSize});
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 1U})
    expectRight(*runners[i], models_.detection, sizes.at(i));
  expectRight(*mesh[0], models_.mesh, meshSize);
  expectRight(*runners[1], models_.detection, sizes[1]);
}

TEST_F(InferenceTest, refusesANetworkThatDoesNotFitTogether) {
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
