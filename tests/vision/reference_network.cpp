// SPDX-License-Identifier: Apache-2.0
#include "vision/reference_network.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "vision/network_shapes.h"

namespace sentrel::test {
namespace {

using vision::Operator;
using vision::OperatorKind;
using vision::Shape;

struct Tensor {
  Shape shape;
  std::vector<float> values;
  [[nodiscard]] std::size_t index(int y, int x, int c) const {
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(shape.width) +
            static_cast<std::size_t>(x)) *
               static_cast<std::size_t>(shape.channels) +
           static_cast<std::size_t>(c);
  }
  [[nodiscard]] bool holds(int y, int x) const {
    return y >= 0 && x >= 0 && y < shape.height && x < shape.width;
  }
};

float windowed(const Operator& op, const Tensor& in, int y, int x, int c) {
  const auto edge = vision::edgePadding(op, in.shape);
  const bool pool = op.kind == OperatorKind::maxPool;
  double sum = pool ? -std::numeric_limits<double>::infinity()
                    : static_cast<double>(op.bias[static_cast<std::size_t>(c)]);
  for (int v = 0; v < op.kernelHeight; ++v) {
    for (int u = 0; u < op.kernelWidth; ++u) {
      const int sourceY = y * op.stride + v - edge.top;
      const int sourceX = x * op.stride + u - edge.left;
      if (!in.holds(sourceY, sourceX)) continue;
      const auto at = [&](int channel) {
        return static_cast<double>(in.values[in.index(sourceY, sourceX, channel)]);
      };
      const int tap = v * op.kernelWidth + u;
      if (pool) {
        sum = std::max(sum, at(c));
      } else if (op.kind == OperatorKind::depthwise) {
        sum += at(c) * static_cast<double>(op.weights[static_cast<std::size_t>(tap * in.shape.channels + c)]);
      } else {
        const int first = (c * op.kernelHeight * op.kernelWidth + tap) * in.shape.channels;
        for (int k = 0; k < in.shape.channels; ++k) {
          sum += at(k) * static_cast<double>(op.weights[static_cast<std::size_t>(first + k)]);
        }
      }
    }
  }
  return static_cast<float>(sum);
}

float upsampled(const Tensor& in, int y, int x, int c) {
  const auto along = [](int at, int size) {
    const double source = std::max(0.0, (at + 0.5) / 2 - 0.5);
    const int low = std::min(static_cast<int>(source), size - 1);
    return std::tuple{low, std::min(low + 1, size - 1), source - low};
  };
  const auto [y0, y1, fy] = along(y, in.shape.height);
  const auto [x0, x1, fx] = along(x, in.shape.width);
  const auto at = [&](int row, int column) {
    return static_cast<double>(in.values[in.index(row, column, c)]);
  };
  return static_cast<float>((at(y0, x0) * (1 - fx) + at(y0, x1) * fx) * (1 - fy) +
                            (at(y1, x0) * (1 - fx) + at(y1, x1) * fx) * fy);
}

float value(const Operator& op, const Tensor& in, const Tensor& second, int y, int x, int c) {
  switch (op.kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
    case OperatorKind::maxPool:
      return windowed(op, in, y, x, c);
    case OperatorKind::add:
      return in.values[in.index(y, x, c)] + second.values[in.index(y, x, c)];
    case OperatorKind::padChannels:
      return c < in.shape.channels ? in.values[in.index(y, x, c)] : 0.0F;
    case OperatorKind::prelu: {
      const float from = in.values[in.index(y, x, c)];
      return from < 0 ? from * op.weights[static_cast<std::size_t>(c)] : from;
    }
    case OperatorKind::upsampleBilinear:
      return upsampled(in, y, x, c);
  }
  return 0;
}

}  // namespace

std::vector<std::vector<float>> runReference(const vision::Network& network, int height, int width,
                                             const std::vector<float>& input) {
  const auto shapes = vision::inferShapes(network, height, width);
  std::vector<Tensor> tensors(shapes.size());
  tensors[network.input] = {shapes[network.input], input};
  for (const Operator& op : network.operators) {
    Tensor& out = tensors[op.output];
    out = {shapes[op.output], std::vector<float>(shapes[op.output].count())};
    for (int y = 0; y < out.shape.height; ++y) {
      for (int x = 0; x < out.shape.width; ++x) {
        for (int c = 0; c < out.shape.channels; ++c) {
          const float result = value(op, tensors[op.input], tensors[op.secondInput], y, x, c);
          out.values[out.index(y, x, c)] = op.relu ? std::max(0.0F, result) : result;
        }
      }
    }
  }
  std::vector<std::vector<float>> outputs;
  for (const std::size_t output : network.outputs) outputs.push_back(tensors[output].values);
  return outputs;
}

}  // namespace sentrel::test
