// SPDX-License-Identifier: Apache-2.0
#include "vision/network.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace sentrel::vision {
namespace {

using Bytes = std::span<const std::byte>;

void require(bool condition, const char* otherwise) {
  if (!condition) throw ModelError(otherwise);
}

// The layout of a FlatBuffers file is that of its internals document. Every offset is followed only inside
// the bytes.

Bytes slice(Bytes file, std::size_t at, std::size_t count) {
  require(at <= file.size() && count <= file.size() - at, "the file ends too early");
  return file.subspan(at, count);
}

template <class T>
T scalar(Bytes file, std::size_t at) {
  T value{};
  std::memcpy(&value, slice(file, at, sizeof(T)).data(), sizeof(T));
  return value;
}

/// The position that the unsigned offset stored at `at` leads to.
std::size_t follow(Bytes file, std::size_t at) {
  return at + scalar<std::uint32_t>(file, at);
}

template <class T>
std::vector<T> numbers(Bytes bytes) {
  require(bytes.size() % sizeof(T) == 0, "a list ends within a number");
  std::vector<T> values(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

/// A table of the file. A field that is absent reads as its default.
class Table {
 public:
  Table(Bytes file, std::size_t at)
      : file_(file),
        at_(at),
        layout_(layoutOf(file, at)),
        layoutSize_(scalar<std::uint16_t>(file, layout_)) {}

  [[nodiscard]] bool has(std::size_t field) const { return position(field) != 0; }

  template <class T>
  [[nodiscard]] T get(std::size_t field, T absent) const {
    return has(field) ? scalar<T>(file_, position(field)) : absent;
  }

  [[nodiscard]] Table table(std::size_t field) const {
    require(has(field), "a table is missing");
    return {file_, follow(file_, position(field))};
  }

  /// The bytes of a vector.
  [[nodiscard]] Bytes vector(std::size_t field, std::size_t elementSize) const {
    if (!has(field)) return {};
    const std::size_t at = follow(file_, position(field));
    return slice(file_, at + 4, scalar<std::uint32_t>(file_, at) * elementSize);
  }

  /// How many tables a vector of tables holds.
  [[nodiscard]] std::size_t count(std::size_t field) const {
    return vector(field, offsetSize).size() / offsetSize;
  }

  [[nodiscard]] Table element(std::size_t field, std::size_t index) const {
    require(index < count(field), "a number points beyond its list");
    const auto first = static_cast<std::size_t>(vector(field, offsetSize).data() - file_.data());
    return {file_, follow(file_, first + index * offsetSize)};
  }

 private:
  static constexpr std::size_t offsetSize = 4;

  static std::size_t layoutOf(Bytes file, std::size_t at) {
    const std::int64_t layout = static_cast<std::int64_t>(at) - scalar<std::int32_t>(file, at);
    require(layout >= 0, "a table's layout lies outside the file");
    return static_cast<std::size_t>(layout);
  }

  /// Where the field's value is stored, or 0 when the table does not hold it.
  [[nodiscard]] std::size_t position(std::size_t field) const {
    const std::size_t entry = 4 + 2 * field;
    if (entry + 2 > layoutSize_) return 0;
    const std::size_t offset = scalar<std::uint16_t>(file_, layout_ + entry);
    return offset == 0 ? 0 : at_ + offset;
  }

  Bytes file_;
  std::size_t at_;
  std::size_t layout_;
  std::size_t layoutSize_;
};

// Numbers of fields, operators and types in the public .tflite format.
namespace field {
constexpr std::size_t modelOperatorCodes = 1, modelSubgraphs = 2, modelBuffers = 4;
constexpr std::size_t codeNarrow = 0, codeWide = 3;
constexpr std::size_t graphTensors = 0, graphInputs = 1, graphOutputs = 2, graphOperators = 3;
constexpr std::size_t tensorShape = 0, tensorType = 1, tensorBuffer = 2;
constexpr std::size_t operatorCode = 0, operatorInputs = 1, operatorOutputs = 2, operatorOptions = 4;
}  // namespace field
enum Code : std::int32_t {
  codeAdd = 0,
  codeConvolution = 3,
  codeDepthwise = 4,
  codeDequantize = 6,
  codeMaxPool = 17,
  codeRelu = 19,
  codeReshape = 22,
  codeResizeBilinear = 23,
  codePad = 34,
  codePrelu = 54,
};
enum Type : std::int8_t { typeFloat32 = 0, typeFloat16 = 1, typeInt32 = 2 };
constexpr std::int8_t paddingSame = 0;
constexpr std::int8_t activationNone = 0, activationRelu = 1;

// More than any model that is run here has. The first two keep a damaged count from asking for all memory,
// the others keep every product of sizes in range.
constexpr std::size_t maxTensors = 1 << 16;
constexpr std::size_t maxOperators = 1 << 14;
constexpr int maxSide = 4096;
constexpr int maxChannels = 4096;
constexpr int maxKernel = 32;

class Reader {
 public:
  explicit Reader(Bytes file) : model_(root(file)), graph_(model_.element(field::modelSubgraphs, 0)) {}

  Network read() {
    const std::size_t operators = graph_.count(field::graphOperators);
    network_.tensorCount = graph_.count(field::graphTensors);
    require(network_.tensorCount <= maxTensors && operators <= maxOperators, "a count is absurd");
    sources_.resize(network_.tensorCount);
    std::iota(sources_.begin(), sources_.end(), std::size_t{0});
    readInput();
    for (std::size_t i = 0; i < operators; ++i) readOperator(graph_.element(field::graphOperators, i));
    const std::size_t outputs = graph_.vector(field::graphOutputs, 4).size() / 4;
    require(outputs > 0 && outputs <= maxOperators, "the network has no outputs");
    for (std::size_t i = 0; i < outputs; ++i)
      network_.outputs.push_back(sources_[tensorNumber(graph_, field::graphOutputs, i)]);
    return std::move(network_);
  }

 private:
  static Table root(Bytes file) {
    constexpr std::size_t identifierAt = 4;
    require(scalar<std::uint32_t>(file, identifierAt) == 0x334c4654U, "not a .tflite file");
    return {file, follow(file, 0)};
  }

  /// The number at `index` of a list of tensors.
  std::size_t tensorNumber(const Table& owner, std::size_t field, std::size_t index) const {
    const auto list = numbers<std::int32_t>(owner.vector(field, 4));
    require(index < list.size(), "an operator lacks a tensor");
    require(list[index] >= 0 && static_cast<std::size_t>(list[index]) < network_.tensorCount,
            "an operator names a tensor that does not exist");
    return static_cast<std::size_t>(list[index]);
  }
  /// The tensor that holds the values of an operator's input.
  std::size_t input(const Table& op, std::size_t index) const {
    return sources_[tensorNumber(op, field::operatorInputs, index)];
  }

  Table tensor(std::size_t number) const { return graph_.element(field::graphTensors, number); }

  std::int32_t dimension(std::size_t number, std::size_t index) const {
    const auto shape = numbers<std::int32_t>(tensor(number).vector(field::tensorShape, 4));
    require(index < shape.size(), "a tensor has too few dimensions");
    return shape[index];
  }

  Bytes content(const Table& tensor) const {
    const auto number = tensor.get<std::uint32_t>(field::tensorBuffer, 0);
    return model_.element(field::modelBuffers, number).vector(0, 1);
  }

  std::vector<float> constant(std::size_t number) const {
    const Table source = tensor(number);
    const auto type = source.get<std::int8_t>(field::tensorType, typeFloat32);
    require(type == typeFloat32 || type == typeFloat16, "a constant is of an unexpected type");
    std::vector<float> values;
    if (type == typeFloat32) {
      values = numbers<float>(content(source));
    } else {
      for (const auto half : numbers<Eigen::half>(content(source)))
        values.push_back(static_cast<float>(half));
    }
    require(!values.empty(), "a constant is empty");
    require(std::ranges::all_of(values, [](float value) { return std::isfinite(value); }),
            "a constant is not finite");
    return values;
  }

  void readInput() {
    require(graph_.vector(field::graphInputs, 4).size() == 4, "the network does not have one input");
    network_.input = tensorNumber(graph_, field::graphInputs, 0);
    require(dimension(network_.input, 0) == 1, "the network's input is not one picture");
    network_.inputChannels = dimension(network_.input, 3);
  }

  Code codeOf(const Table& op) const {
    const Table entry =
        model_.element(field::modelOperatorCodes, op.get<std::uint32_t>(field::operatorCode, 0));
    // Files of before 2020 hold the code in the narrow field alone.
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): a small number, not a character
    const std::int32_t narrow = entry.get<std::int8_t>(field::codeNarrow, 0);
    return static_cast<Code>(std::max(narrow, entry.get<std::int32_t>(field::codeWide, 0)));
  }

  void readOperator(const Table& op) {
    const Code code = codeOf(op);
    Operator result;
    result.input = input(op, 0);
    result.output = tensorNumber(op, field::operatorOutputs, 0);
    switch (code) {
      case codeDequantize:
      case codeReshape:
        sources_[result.output] = result.input;
        return;
      case codeRelu:
        require(fuseRelu(result), "an activation follows nothing that could carry it");
        return;
      case codeConvolution:
      case codeDepthwise:
        readConvolution(op, code == codeDepthwise, result);
        break;
      case codeAdd:
        result.kind = OperatorKind::add;
        result.secondInput = input(op, 1);
        if (op.has(field::operatorOptions)) setActivation(op.table(field::operatorOptions), 0, result);
        break;
      case codeMaxPool:
        readMaxPool(op, result);
        break;
      case codePad:
        readPad(tensor(input(op, 1)), result);
        break;
      case codePrelu:
        result.kind = OperatorKind::prelu;
        result.weights = constant(input(op, 1));
        break;
      case codeResizeBilinear:
        readResize(op, result);
        break;
      default:
        throw ModelError("the network holds an operator of an unknown kind, number " + std::to_string(code));
    }
    network_.operators.push_back(std::move(result));
  }

  static void setActivation(const Table& options, std::size_t field, Operator& op) {
    const auto activation = options.get<std::int8_t>(field, activationNone);
    require(activation == activationNone || activation == activationRelu,
            "an operator has an unexpected activation");
    op.relu = activation == activationRelu;
  }

  static void setWindow(const Table& options, Operator& op) {
    op.padding = options.get<std::int8_t>(0, paddingSame) == paddingSame ? Padding::same : Padding::valid;
    op.stride = options.get<std::int32_t>(1, 0);
    require(options.get<std::int32_t>(2, 0) == op.stride, "a window's strides differ");
  }

  void readConvolution(const Table& op, bool depthwise, Operator& result) const {
    const Table options = op.table(field::operatorOptions);
    // A depthwise one has the channels' multiplier before its activation.
    const std::size_t activation = depthwise ? 4 : 3;
    const std::size_t kernel = input(op, 1);
    result.kind = depthwise ? OperatorKind::depthwise : OperatorKind::convolution;
    setWindow(options, result);
    setActivation(options, activation, result);
    require(!depthwise || options.get<std::int32_t>(3, 0) == 1,
            "a depthwise convolution multiplies channels");
    for (const std::size_t dilation : {activation + 1, activation + 2})
      require(options.get<std::int32_t>(dilation, 1) == 1, "a convolution is dilated");
    if (!depthwise) result.outputChannels = dimension(kernel, 0);
    result.kernelHeight = dimension(kernel, 1);
    result.kernelWidth = dimension(kernel, 2);
    result.weights = constant(kernel);
    result.bias = constant(input(op, 2));
  }

  static void readMaxPool(const Table& op, Operator& result) {
    const Table options = op.table(field::operatorOptions);
    result.kind = OperatorKind::maxPool;
    setWindow(options, result);
    result.kernelWidth = options.get<std::int32_t>(3, 0);
    result.kernelHeight = options.get<std::int32_t>(4, 0);
    setActivation(options, 5, result);
  }

  void readPad(const Table& amounts, Operator& result) const {
    const auto added = numbers<std::int32_t>(content(amounts));
    require(amounts.get<std::int8_t>(field::tensorType, typeFloat32) == typeInt32 && added.size() == 8,
            "a padding does not name four dimensions");
    result.kind = OperatorKind::padChannels;
    result.outputChannels = dimension(result.input, 3);
    for (const std::int32_t channels : {added.back(), result.outputChannels})
      require(channels >= 0 && channels <= maxChannels, "a padding to too many channels");
    result.outputChannels += added.back();
    require(std::count(added.begin(), added.end() - 1, 0) == 7, "a padding of other than channels");
  }

  void readResize(const Table& op, Operator& result) const {
    const Table options = op.table(field::operatorOptions);
    constexpr std::size_t alignCorners = 2, halfPixelCentres = 3;
    require(options.get<std::uint8_t>(alignCorners, 0) == 0 &&
                options.get<std::uint8_t>(halfPixelCentres, 0) != 0,
            "a resize of another kind than half-pixel centres");
    for (const std::size_t side : {1U, 2U}) {
      require(dimension(result.output, side) == 2 * std::int64_t{dimension(result.input, side)},
              "a resize to other than twice the size");
    }
    result.kind = OperatorKind::upsampleBilinear;
  }

  /// Lets the operator that wrote `relu.input` clamp its own results; the value before the clamp must have no
  /// other reader, which holds because the operators come in order and each was read already.
  bool fuseRelu(const Operator& relu) {
    for (const Operator& op : network_.operators) {
      if (op.input == relu.input || (op.kind == OperatorKind::add && op.secondInput == relu.input))
        return false;
    }
    for (Operator& op : network_.operators) {
      const bool clamps = op.kind == OperatorKind::convolution || op.kind == OperatorKind::depthwise ||
                          op.kind == OperatorKind::add;
      if (op.output != relu.input || !clamps) continue;
      op.relu = true;
      op.output = relu.output;
      return true;
    }
    return false;
  }

  Table model_;
  Table graph_;
  Network network_;
  // For each tensor the one that holds its values: the source of one that was reshaped or widened, else
  // itself.
  std::vector<std::size_t> sources_;
};

void requireFit(bool condition, const char* what) {
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
  requireFit(op.kernelHeight >= 1 && op.kernelHeight <= maxKernel && op.kernelWidth >= 1 &&
                 op.kernelWidth <= maxKernel && op.stride >= 1 && op.stride <= maxKernel,
             "a window has an impossible size");
  return {outputSide(in.height, op.kernelHeight, op.stride, op.padding),
          outputSide(in.width, op.kernelWidth, op.stride, op.padding), channels};
}

Shape outputShape(const Operator& op, const Shape& in, const Shape& second) {
  switch (op.kind) {
    case OperatorKind::convolution: {
      requireFit(op.outputChannels >= 1 && op.outputChannels <= maxChannels, "a convolution without outputs");
      const Shape out = windowed(op, in, op.outputChannels);
      requireFit(
          op.weights.size() == product(op.outputChannels, op.kernelHeight, op.kernelWidth, in.channels),
          "a convolution's weights");
      requireFit(op.bias.size() == static_cast<std::size_t>(op.outputChannels), "a convolution's bias");
      return out;
    }
    case OperatorKind::depthwise: {
      const Shape out = windowed(op, in, in.channels);
      requireFit(op.weights.size() == product(1, op.kernelHeight, op.kernelWidth, in.channels),
                 "a depthwise convolution's weights");
      requireFit(op.bias.size() == static_cast<std::size_t>(in.channels), "a depthwise convolution's bias");
      return out;
    }
    case OperatorKind::add:
      requireFit(in == second, "an addition of different shapes");
      return in;
    case OperatorKind::maxPool:
      requireFit(op.kernelHeight > 1 || op.kernelWidth > 1, "a pooling window of one pixel");
      return windowed(op, in, in.channels);
    case OperatorKind::padChannels:
      requireFit(op.outputChannels >= in.channels && op.outputChannels <= maxChannels, "a channel padding");
      return {in.height, in.width, op.outputChannels};
    case OperatorKind::prelu:
      requireFit(op.weights.size() == static_cast<std::size_t>(in.channels), "an activation's slopes");
      return in;
    case OperatorKind::upsampleBilinear:
      return {in.height * 2, in.width * 2, in.channels};
  }
  throw ModelError("the network holds an operator of no known kind");
}

}  // namespace

Network readTflite(std::span<const std::byte> file) {
  return Reader(file).read();
}

std::vector<Shape> inferShapes(const Network& network, int height, int width) {
  requireFit(height >= 1 && height <= maxSide && width >= 1 && width <= maxSide, "the input's size");
  requireFit(network.inputChannels >= 1 && network.inputChannels <= maxChannels, "the input's channels");
  requireFit(network.input < network.tensorCount, "the input's number");
  std::vector<Shape> shapes(network.tensorCount);
  shapes[network.input] = {height, width, network.inputChannels};
  const auto known = [&](std::size_t tensor) {
    requireFit(tensor < shapes.size() && shapes[tensor].channels > 0,
               "an operator reads what was never written");
    return shapes[tensor];
  };
  for (const Operator& op : network.operators) {
    const Shape second = op.kind == OperatorKind::add ? known(op.secondInput) : Shape{};
    const Shape out = outputShape(op, known(op.input), second);
    requireFit(out.height >= 1 && out.height <= maxSide && out.width >= 1 && out.width <= maxSide,
               "a tensor's size");
    requireFit(op.output < shapes.size() && shapes[op.output].channels == 0, "a tensor written twice");
    shapes[op.output] = out;
  }
  for (const std::size_t output : network.outputs) (void)known(output);
  return shapes;
}

}  // namespace sentrel::vision
