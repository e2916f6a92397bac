// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vision/network.h"

namespace sentrel::vision {
namespace {

using Bytes = std::span<const std::byte>;

// The layout of a FlatBuffers file is that of its internals document. Every offset is followed only inside
// the bytes.

Bytes slice(Bytes file, std::size_t at, std::size_t count) {
  if (at > file.size() || count > file.size() - at) throw ModelError("the file ends too early");
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
  if (bytes.size() % sizeof(T) != 0) throw ModelError("a list ends within a number");
  std::vector<T> values(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

/// A table of the file. A field that is absent reads as its default.
class Table {
 public:
  Table(Bytes file, std::size_t at) : file_(file), at_(at) {
    const std::int64_t layout = static_cast<std::int64_t>(at) - scalar<std::int32_t>(file, at);
    if (layout < 0) throw ModelError("a table's layout lies outside the file");
    layout_ = static_cast<std::size_t>(layout);
    layoutSize_ = scalar<std::uint16_t>(file, layout_);
  }

  [[nodiscard]] bool has(std::size_t field) const { return position(field) != 0; }

  template <class T>
  [[nodiscard]] T get(std::size_t field, T absent) const {
    return has(field) ? scalar<T>(file_, position(field)) : absent;
  }

  [[nodiscard]] Table table(std::size_t field) const {
    if (!has(field)) throw ModelError("a table is missing");
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
    if (index >= count(field)) throw ModelError("a number points beyond its list");
    const auto first = static_cast<std::size_t>(vector(field, offsetSize).data() - file_.data());
    return {file_, follow(file_, first + index * offsetSize)};
  }

 private:
  static constexpr std::size_t offsetSize = 4;

  /// Where the field's value is stored, or 0 when the table does not hold it.
  [[nodiscard]] std::size_t position(std::size_t field) const {
    const std::size_t entry = 4 + 2 * field;
    if (entry + 2 > layoutSize_) return 0;
    const std::size_t offset = scalar<std::uint16_t>(file_, layout_ + entry);
    return offset == 0 ? 0 : at_ + offset;
  }

  Bytes file_;
  std::size_t at_;
  std::size_t layout_ = 0;
  std::size_t layoutSize_ = 0;
};

// Numbers of fields, operators and types in the public .tflite format.
namespace model_field {
constexpr std::size_t operatorCodes = 1, subgraphs = 2, buffers = 4;
}
namespace code_field {
constexpr std::size_t narrow = 0, wide = 3;
}
namespace graph_field {
constexpr std::size_t tensors = 0, inputs = 1, outputs = 2, operators = 3;
}
namespace tensor_field {
constexpr std::size_t shape = 0, type = 1, buffer = 2;
}
namespace operator_field {
constexpr std::size_t code = 0, inputs = 1, outputs = 2, options = 4;
}
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

// More of either than any model that is run here has; keeps a damaged count from asking for all memory.
constexpr std::size_t maxTensors = 1 << 16;
constexpr std::size_t maxOperators = 1 << 14;
constexpr std::int32_t maxChannels = 4096;

float fromHalf(std::uint16_t half) {
  const std::uint32_t sign = (half & 0x8000U) << 16U;
  const std::uint32_t exponent = (half >> 10U) & 0x1fU;
  const std::uint32_t mantissa = half & 0x3ffU;
  if (exponent == 0) {
    const float value = std::ldexp(static_cast<float>(mantissa), -24);
    return sign != 0 ? -value : value;
  }
  const std::uint32_t wide = exponent == 0x1f ? 0xffU : exponent + 112U;
  return std::bit_cast<float>(sign | wide << 23U | mantissa << 13U);
}

class Reader {
 public:
  explicit Reader(Bytes file) : model_(root(file)), graph_(model_.element(model_field::subgraphs, 0)) {}

  Network read() {
    const std::size_t operators = graph_.count(graph_field::operators);
    network_.tensorCount = graph_.count(graph_field::tensors);
    if (network_.tensorCount > maxTensors || operators > maxOperators) throw ModelError("a count is absurd");
    readInput();
    for (std::size_t i = 0; i < operators; ++i) readOperator(graph_.element(graph_field::operators, i));
    const std::size_t outputs = graph_.vector(graph_field::outputs, 4).size() / 4;
    if (outputs == 0 || outputs > maxOperators) throw ModelError("the network has no outputs");
    for (std::size_t i = 0; i < outputs; ++i) {
      network_.outputs.push_back(resolve(tensorNumber(graph_, graph_field::outputs, i)));
    }
    return std::move(network_);
  }

 private:
  static Table root(Bytes file) {
    constexpr std::size_t identifierAt = 4;
    if (scalar<std::uint32_t>(file, identifierAt) != 0x334c4654U) throw ModelError("not a .tflite file");
    return {file, follow(file, 0)};
  }

  /// The number at `index` of a list of tensors.
  std::size_t tensorNumber(const Table& owner, std::size_t field, std::size_t index) const {
    const auto list = numbers<std::int32_t>(owner.vector(field, 4));
    if (index >= list.size()) throw ModelError("an operator lacks a tensor");
    if (list[index] < 0 || static_cast<std::size_t>(list[index]) >= network_.tensorCount) {
      throw ModelError("an operator names a tensor that does not exist");
    }
    return static_cast<std::size_t>(list[index]);
  }
  std::size_t input(const Table& op, std::size_t index) const {
    return tensorNumber(op, operator_field::inputs, index);
  }

  /// The tensor that holds the values of `number`: a reshaped tensor is its source.
  std::size_t resolve(std::size_t number) const {
    const auto alias = aliases_.find(number);
    return alias == aliases_.end() ? number : alias->second;
  }

  Table tensor(std::size_t number) const { return graph_.element(graph_field::tensors, number); }

  std::int32_t dimension(std::size_t number, std::size_t index) const {
    const auto shape = numbers<std::int32_t>(tensor(number).vector(tensor_field::shape, 4));
    if (index >= shape.size()) throw ModelError("a tensor has too few dimensions");
    return shape[index];
  }

  Bytes content(const Table& tensor) const {
    const auto number = tensor.get<std::uint32_t>(tensor_field::buffer, 0);
    return model_.element(model_field::buffers, number).vector(0, 1);
  }

  std::vector<float> constant(std::size_t number) const {
    const auto widened = widened_.find(number);
    const Table source = tensor(widened == widened_.end() ? number : widened->second);
    std::vector<float> values;
    switch (source.get<std::int8_t>(tensor_field::type, typeFloat32)) {
      case typeFloat32:
        values = numbers<float>(content(source));
        break;
      case typeFloat16:
        for (const std::uint16_t half : numbers<std::uint16_t>(content(source)))
          values.push_back(fromHalf(half));
        break;
      default:
        throw ModelError("a constant is of an unexpected type");
    }
    if (values.empty()) throw ModelError("a constant is empty");
    const auto isFinite = [](float value) { return std::isfinite(value); };
    if (!std::all_of(values.begin(), values.end(), isFinite)) throw ModelError("a constant is not finite");
    return values;
  }

  void readInput() {
    if (graph_.vector(graph_field::inputs, 4).size() != 4) {
      throw ModelError("the network does not have one input");
    }
    network_.input = tensorNumber(graph_, graph_field::inputs, 0);
    if (dimension(network_.input, 0) != 1) throw ModelError("the network's input is not one picture");
    network_.nativeHeight = dimension(network_.input, 1);
    network_.nativeWidth = dimension(network_.input, 2);
    network_.inputChannels = dimension(network_.input, 3);
  }

  Code codeOf(const Table& op) const {
    const Table entry =
        model_.element(model_field::operatorCodes, op.get<std::uint32_t>(operator_field::code, 0));
    // Files of before 2020 hold the code in the narrow field alone.
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): a small number, not a character
    const std::int32_t narrow = entry.get<std::int8_t>(code_field::narrow, 0);
    return static_cast<Code>(std::max(narrow, entry.get<std::int32_t>(code_field::wide, 0)));
  }

  void readOperator(const Table& op) {
    const Code code = codeOf(op);
    Operator result;
    result.input = resolve(input(op, 0));
    result.output = tensorNumber(op, operator_field::outputs, 0);
    switch (code) {
      case codeDequantize:
        widened_[result.output] = result.input;
        return;
      case codeReshape:
        aliases_[result.output] = result.input;
        return;
      case codeRelu:
        if (!fuseRelu(result)) throw ModelError("an activation follows nothing that could carry it");
        return;
      case codeConvolution:
      case codeDepthwise:
        readConvolution(op, code == codeDepthwise, result);
        break;
      case codeAdd:
        result.kind = OperatorKind::add;
        result.secondInput = resolve(input(op, 1));
        if (op.has(operator_field::options)) setActivation(op.table(operator_field::options), 0, result);
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
    if (activation != activationNone && activation != activationRelu) {
      throw ModelError("an operator has an unexpected activation");
    }
    op.relu = activation == activationRelu;
  }

  static void setWindow(const Table& options, Operator& op) {
    op.padding = options.get<std::int8_t>(0, paddingSame) == paddingSame ? Padding::same : Padding::valid;
    op.stride = options.get<std::int32_t>(1, 0);
    if (options.get<std::int32_t>(2, 0) != op.stride) throw ModelError("a window's strides differ");
  }

  void readConvolution(const Table& op, bool depthwise, Operator& result) const {
    const Table options = op.table(operator_field::options);
    // A depthwise one has the channels' multiplier before its activation.
    const std::size_t activation = depthwise ? 4 : 3;
    const std::size_t kernel = input(op, 1);
    result.kind = depthwise ? OperatorKind::depthwise : OperatorKind::convolution;
    setWindow(options, result);
    setActivation(options, activation, result);
    if (depthwise && options.get<std::int32_t>(3, 0) != 1) {
      throw ModelError("a depthwise convolution multiplies channels");
    }
    for (const std::size_t dilation : {activation + 1, activation + 2}) {
      if (options.get<std::int32_t>(dilation, 1) != 1) throw ModelError("a convolution is dilated");
    }
    if (!depthwise) result.outputChannels = dimension(kernel, 0);
    result.kernelHeight = dimension(kernel, 1);
    result.kernelWidth = dimension(kernel, 2);
    result.weights = constant(kernel);
    result.bias = constant(input(op, 2));
  }

  static void readMaxPool(const Table& op, Operator& result) {
    const Table options = op.table(operator_field::options);
    result.kind = OperatorKind::maxPool;
    setWindow(options, result);
    result.kernelWidth = options.get<std::int32_t>(3, 0);
    result.kernelHeight = options.get<std::int32_t>(4, 0);
    setActivation(options, 5, result);
  }

  void readPad(const Table& amounts, Operator& result) const {
    const auto added = numbers<std::int32_t>(content(amounts));
    if (amounts.get<std::int8_t>(tensor_field::type, typeFloat32) != typeInt32 || added.size() != 8) {
      throw ModelError("a padding does not name four dimensions");
    }
    result.kind = OperatorKind::padChannels;
    result.outputChannels = dimension(result.input, 3);
    for (const std::int32_t channels : {added.back(), result.outputChannels}) {
      if (channels < 0 || channels > maxChannels) throw ModelError("a padding to too many channels");
    }
    result.outputChannels += added.back();
    if (std::count(added.begin(), added.end() - 1, 0) != 7)
      throw ModelError("a padding of other than channels");
  }

  void readResize(const Table& op, Operator& result) const {
    const Table options = op.table(operator_field::options);
    constexpr std::size_t alignCorners = 2, halfPixelCentres = 3;
    if (options.get<std::uint8_t>(alignCorners, 0) != 0 ||
        options.get<std::uint8_t>(halfPixelCentres, 0) == 0) {
      throw ModelError("a resize of another kind than half-pixel centres");
    }
    for (const std::size_t side : {1U, 2U}) {
      const std::int64_t in = dimension(result.input, side);
      if (dimension(result.output, side) != 2 * in) throw ModelError("a resize to other than twice the size");
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
  std::unordered_map<std::size_t, std::size_t> widened_;  // float tensor -> its half-float source
  std::unordered_map<std::size_t, std::size_t> aliases_;  // reshaped tensor -> its source
};

}  // namespace

Network readTflite(std::span<const std::byte> file) {
  return Reader(file).read();
}

}  // namespace sentrel::vision
