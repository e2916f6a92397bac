// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

namespace sentrel::vision {

/// Why a model cannot be used. Thrown while models are loaded, and caught by whoever loads them: it never
/// leaves the analysis queue.
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

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
  std::size_t input = 0;
  std::vector<std::size_t> outputs;
  std::size_t tensorCount = 0;
  std::vector<Operator> operators;
};

/// Reads a .tflite file: float and half-float weights, and the operators of convolutional networks. Any other
/// content, and any damage that shows, throws ModelError.
[[nodiscard]] Network readTflite(std::span<const std::byte> file);

/// The size of one tensor: rows of pixels of channels, channels innermost.
struct Shape {
  int height = 0;
  int width = 0;
  int channels = 0;
  [[nodiscard]] std::size_t pixels() const {
    return static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
  }
  [[nodiscard]] std::size_t count() const { return pixels() * static_cast<std::size_t>(channels); }
  bool operator==(const Shape&) const = default;
};

/// The shape of every tensor for an input of the given size. Throws ModelError where an operator's inputs,
/// weights and parameters do not fit each other, so that whoever executes the list can rely on them.
[[nodiscard]] std::vector<Shape> inferShapes(const Network& network, int height, int width);

}  // namespace sentrel::vision
