// SPDX-License-Identifier: Apache-2.0
#include "vision/network.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <string>

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

constexpr std::size_t alignment = 64;
constexpr std::size_t slack = 64;

struct Life {
  std::size_t first = std::numeric_limits<std::size_t>::max();
  std::size_t last = 0;
  std::size_t bytes = 0;
  [[nodiscard]] bool used() const { return first <= last; }
  [[nodiscard]] bool meets(const Life& other) const { return first <= other.last && other.first <= last; }
};

std::vector<Life> lives(const Network& network, const std::vector<Shape>& shapes) {
  std::vector<Life> lives(shapes.size());
  const auto touch = [&](std::size_t tensor, std::size_t step) {
    lives[tensor].first = std::min(lives[tensor].first, step);
    lives[tensor].last = std::max(lives[tensor].last, step);
  };
  touch(network.input, 0);
  for (std::size_t i = 0; i < network.operators.size(); ++i) {
    const Operator& op = network.operators[i];
    touch(op.input, i + 1);
    if (op.kind == OperatorKind::add) touch(op.secondInput, i + 1);
    touch(op.output, i + 1);
  }
  for (const std::size_t output : network.outputs) touch(output, network.operators.size() + 1);
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const std::size_t bytes = shapes[i].count() * sizeof(float) + slack;
    lives[i].bytes = (bytes + alignment - 1) / alignment * alignment;
  }
  return lives;
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

ArenaPlan planArena(const Network& network, const std::vector<Shape>& shapes) {
  const std::vector<Life> all = lives(network, shapes);
  std::vector<std::size_t> order(all.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  // The largest first, each at the lowest place that is free for its whole life.
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return all[a].bytes > all[b].bytes; });
  ArenaPlan plan;
  plan.offsets.resize(all.size());
  std::vector<std::size_t> placed;
  for (const std::size_t tensor : order) {
    if (!all[tensor].used()) continue;
    std::size_t at = 0;
    // `placed` is kept in the order of offsets, so the first gap that is wide enough is the lowest.
    for (const std::size_t other : placed) {
      if (!all[tensor].meets(all[other])) continue;
      if (plan.offsets[other] >= at + all[tensor].bytes) break;
      at = std::max(at, plan.offsets[other] + all[other].bytes);
    }
    plan.offsets[tensor] = at;
    plan.bytes = std::max(plan.bytes, at + all[tensor].bytes);
    const auto place =
        std::upper_bound(placed.begin(), placed.end(), tensor,
                         [&](std::size_t a, std::size_t b) { return plan.offsets[a] < plan.offsets[b]; });
    placed.insert(place, tensor);
  }
  return plan;
}

}  // namespace sentrel::vision
