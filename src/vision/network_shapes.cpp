// SPDX-License-Identifier: Apache-2.0
#include "vision/network_shapes.h"

#include <algorithm>
#include <string>

#include "vision/model_error.h"

namespace sentrel::vision {
namespace {

// No tensor of a network that is run here comes near these; they keep every product below in range.
constexpr int maxSide = 4096;
constexpr int maxChannels = 4096;
constexpr int maxKernel = 32;

void require(bool condition, const char* what) {
  if (!condition) throw ModelError(std::string("the network does not fit together: ") + what);
}

int outputSide(int input, int kernel, int stride, Padding padding) {
  if (padding == Padding::same) return (input + stride - 1) / stride;
  return input < kernel ? 0 : (input - kernel) / stride + 1;
}

std::size_t product(int a, int b, int c, int d) {
  return static_cast<std::size_t>(a) * static_cast<std::size_t>(b) * static_cast<std::size_t>(c) *
         static_cast<std::size_t>(d);
}

Shape windowed(const Operator& op, const Shape& in, int channels) {
  require(op.kernelHeight >= 1 && op.kernelHeight <= maxKernel && op.kernelWidth >= 1 &&
              op.kernelWidth <= maxKernel && op.stride >= 1 && op.stride <= maxKernel,
          "a window has an impossible size");
  return {outputSide(in.height, op.kernelHeight, op.stride, op.padding),
          outputSide(in.width, op.kernelWidth, op.stride, op.padding), channels};
}

Shape outputShape(const Operator& op, const Shape& in, const Shape& second) {
  switch (op.kind) {
    case OperatorKind::convolution: {
      require(op.outputChannels >= 1 && op.outputChannels <= maxChannels, "a convolution without outputs");
      const Shape out = windowed(op, in, op.outputChannels);
      require(op.weights.size() == product(op.outputChannels, op.kernelHeight, op.kernelWidth, in.channels),
              "a convolution's weights");
      require(op.bias.size() == static_cast<std::size_t>(op.outputChannels), "a convolution's bias");
      return out;
    }
    case OperatorKind::depthwise: {
      const Shape out = windowed(op, in, in.channels);
      require(op.weights.size() == product(1, op.kernelHeight, op.kernelWidth, in.channels),
              "a depthwise convolution's weights");
      require(op.bias.size() == static_cast<std::size_t>(in.channels), "a depthwise convolution's bias");
      return out;
    }
    case OperatorKind::add:
      require(in == second, "an addition of different shapes");
      return in;
    case OperatorKind::maxPool:
      require(op.kernelHeight * op.kernelWidth > 1, "a pooling window of one pixel");
      return windowed(op, in, in.channels);
    case OperatorKind::padChannels:
      require(op.outputChannels >= in.channels && op.outputChannels <= maxChannels, "a channel padding");
      return {in.height, in.width, op.outputChannels};
    case OperatorKind::prelu:
      require(op.weights.size() == static_cast<std::size_t>(in.channels), "an activation's slopes");
      return in;
    case OperatorKind::upsampleBilinear:
      return {in.height * 2, in.width * 2, in.channels};
  }
  throw ModelError("the network holds an operator of no known kind");
}

}  // namespace

EdgePadding edgePadding(const Operator& op, const Shape& input) {
  if (op.padding == Padding::valid) return {};
  const auto total = [&](int side, int kernel) {
    const int out = outputSide(side, kernel, op.stride, Padding::same);
    return std::max(0, (out - 1) * op.stride + kernel - side);
  };
  const int vertical = total(input.height, op.kernelHeight);
  const int horizontal = total(input.width, op.kernelWidth);
  return {vertical / 2, horizontal - horizontal / 2, vertical - vertical / 2, horizontal / 2};
}

std::vector<Shape> inferShapes(const Network& network, int height, int width) {
  require(height >= 1 && height <= maxSide && width >= 1 && width <= maxSide, "the input's size");
  require(network.inputChannels >= 1 && network.inputChannels <= maxChannels, "the input's channels");
  require(network.input < network.tensorCount, "the input's number");
  std::vector<Shape> shapes(network.tensorCount);
  shapes[network.input] = {height, width, network.inputChannels};
  const auto known = [&](std::size_t tensor) {
    require(tensor < shapes.size() && shapes[tensor].channels > 0,
            "an operator reads what was never written");
    return shapes[tensor];
  };
  for (const Operator& op : network.operators) {
    const Shape second = op.kind == OperatorKind::add ? known(op.secondInput) : Shape{};
    const Shape out = outputShape(op, known(op.input), second);
    require(out.height >= 1 && out.height <= maxSide && out.width >= 1 && out.width <= maxSide,
            "a tensor's size");
    require(op.output < shapes.size() && shapes[op.output].channels == 0, "a tensor written twice");
    shapes[op.output] = out;
  }
  for (const std::size_t output : network.outputs) (void)known(output);
  return shapes;
}

}  // namespace sentrel::vision
