// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sentrel::vision {

/// How far a window may reach over the edge of its input: not at all, or so far that the output has the
/// input's size divided by the stride, rounded up.
enum class Padding { valid, same };

enum class OperatorKind {
  convolution,       ///< weights [out][kernelHeight][kernelWidth][in], then bias [out]
  depthwise,         ///< weights [kernelHeight][kernelWidth][channels], then bias [channels]
  add,               ///< two inputs of one shape
  maxPool,           ///< window kernelHeight x kernelWidth
  padChannels,       ///< appends channels of zeros
  prelu,             ///< weights [channels]: slopes of the negative side
  upsampleBilinear,  ///< to twice the size, half-pixel centres
};

/// One step of a network. Tensors are numbered; every tensor is written by exactly one operator, or is the
/// network's input.
struct Operator {
  OperatorKind kind = OperatorKind::add;
  std::size_t input = 0;
  std::size_t secondInput = 0;  ///< of `add`
  std::size_t output = 0;
  int kernelHeight = 1;
  int kernelWidth = 1;
  int stride = 1;
  Padding padding = Padding::same;
  int outputChannels = 0;
  bool relu = false;  ///< negative results become 0
  std::vector<float> weights;
  std::vector<float> bias;
};

/// A convolutional network as a list of operators in the order of execution. It holds no spatial size: it
/// runs at any input size that its strides divide.
struct Network {
  int inputChannels = 0;
  int nativeHeight = 0;  ///< the input size that it was made for
  int nativeWidth = 0;
  std::size_t input = 0;
  std::vector<std::size_t> outputs;
  std::size_t tensorCount = 0;
  std::vector<Operator> operators;
};

}  // namespace sentrel::vision
