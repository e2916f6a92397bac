// SPDX-License-Identifier: Apache-2.0
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vision/network.h"

namespace sentrel::vision {
namespace {

/// Checked reading of a FlatBuffers file: every offset is followed only inside the bytes, and a field that is
/// absent reads as its default. Throws ModelError. The layout is that of the FlatBuffers internals document.
class FlatBytes {
 public:
  explicit FlatBytes(std::span<const std::byte> bytes) : bytes_(bytes) {}

  template <class T>
  [[nodiscard]] T scalar(std::size_t at) const {
    static_assert(std::is_trivially_copyable_v<T>);
    check(at, sizeof(T));
    T value{};
    std::memcpy(&value, bytes_.data() + at, sizeof(T));
    return value;
  }

  /// The position that the unsigned offset stored at `at` leads to.
  [[nodiscard]] std::size_t follow(std::size_t at) const {
    const std::size_t target = at + scalar<std::uint32_t>(at);
    check(target, 4);
    return target;
  }

  [[nodiscard]] std::span<const std::byte> slice(std::size_t at, std::size_t count) const {
    check(at, count);
    return bytes_.subspan(at, count);
  }

 private:
  void check(std::size_t at, std::size_t count) const {
    if (at > bytes_.size() || count > bytes_.size() - at) throw ModelError("the file ends too early");
  }

  std::span<const std::byte> bytes_;
};

/// A vector inside the file, its length checked against the file's.
class FlatVector {
 public:
  FlatVector() = default;
  FlatVector(const FlatBytes& bytes, std::size_t at, std::size_t elementSize)
      : first_(at + 4), size_(bytes.scalar<std::uint32_t>(at)) {
    (void)bytes.slice(first_, size_ * elementSize);
  }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::size_t first() const { return first_; }

 private:
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

/// A table inside the file.
class FlatTable {
 public:
  FlatTable(const FlatBytes& bytes, std::size_t at) : bytes_(&bytes), at_(at) {
    const std::int64_t back = bytes.scalar<std::int32_t>(at);
    const std::int64_t layout = static_cast<std::int64_t>(at) - back;
    if (layout < 0) throw ModelError("a table's layout lies outside the file");
    layout_ = static_cast<std::size_t>(layout);
    layoutSize_ = bytes.scalar<std::uint16_t>(layout_);
  }

  template <class T>
  [[nodiscard]] T get(std::size_t field, T absent) const {
    const std::size_t at = position(field);
    return at == 0 ? absent : bytes_->scalar<T>(at);
  }

  [[nodiscard]] bool has(std::size_t field) const { return position(field) != 0; }

  [[nodiscard]] FlatTable table(std::size_t field) const {
    const std::size_t at = position(field);
    if (at == 0) throw ModelError("a table is missing");
    return {*bytes_, bytes_->follow(at)};
  }

  [[nodiscard]] FlatVector vector(std::size_t field, std::size_t elementSize) const {
    const std::size_t at = position(field);
    return at == 0 ? FlatVector() : FlatVector(*bytes_, bytes_->follow(at), elementSize);
  }

  [[nodiscard]] FlatTable element(const FlatVector& tables, std::size_t index) const {
    if (index >= tables.size()) throw ModelError("a number points beyond its list");
    return {*bytes_, bytes_->follow(tables.first() + index * 4)};
  }

 private:
  /// Where the field's value is stored, or 0 when the table does not hold it.
  [[nodiscard]] std::size_t position(std::size_t field) const {
    const std::size_t entry = 4 + 2 * field;
    if (entry + 2 > layoutSize_) return 0;
    const std::size_t offset = bytes_->scalar<std::uint16_t>(layout_ + entry);
    return offset == 0 ? 0 : at_ + offset;
  }

  const FlatBytes* bytes_;
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
  explicit Reader(std::span<const std::byte> file) : bytes_(file), model_(root()), graph_(firstGraph()) {}

  Network read() {
    const FlatVector tensors = graph_.vector(graph_field::tensors, 4);
    const FlatVector operators = graph_.vector(graph_field::operators, 4);
    if (tensors.size() > maxTensors || operators.size() > maxOperators) throw ModelError("a count is absurd");
    network_.tensorCount = tensors.size();
    readInput();
    for (std::size_t i = 0; i < operators.size(); ++i) readOperator(graph_.element(operators, i));
    const FlatVector outputs = graph_.vector(graph_field::outputs, 4);
    if (outputs.size() == 0 || outputs.size() > maxOperators) throw ModelError("the network has no outputs");
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      network_.outputs.push_back(resolve(tensorNumber(outputs, i)));
    }
    return std::move(network_);
  }

 private:
  FlatTable root() const {
    constexpr std::size_t identifierAt = 4;
    if (bytes_.scalar<std::uint32_t>(identifierAt) != 0x334c4654U) throw ModelError("not a .tflite file");
    return {bytes_, bytes_.follow(0)};
  }

  FlatTable firstGraph() const { return model_.element(model_.vector(model_field::subgraphs, 4), 0); }

  std::size_t tensorNumber(const FlatVector& numbers, std::size_t index) const {
    if (index >= numbers.size()) throw ModelError("an operator lacks a tensor");
    const auto number = bytes_.scalar<std::int32_t>(numbers.first() + index * 4);
    if (number < 0 || static_cast<std::size_t>(number) >= network_.tensorCount) {
      throw ModelError("an operator names a tensor that does not exist");
    }
    return static_cast<std::size_t>(number);
  }

  FlatTable tensor(std::size_t number) const {
    return graph_.element(graph_.vector(graph_field::tensors, 4), number);
  }

  std::vector<std::int32_t> shape(std::size_t number) const {
    const FlatVector dimensions = tensor(number).vector(tensor_field::shape, 4);
    if (dimensions.size() > 8) throw ModelError("a tensor has too many dimensions");
    std::vector<std::int32_t> result;
    for (std::size_t i = 0; i < dimensions.size(); ++i) {
      result.push_back(bytes_.scalar<std::int32_t>(dimensions.first() + i * 4));
    }
    return result;
  }

  std::int32_t dimension(std::size_t number, std::size_t index) const {
    const auto dimensions = shape(number);
    if (index >= dimensions.size()) throw ModelError("a tensor has too few dimensions");
    return dimensions[index];
  }

  FlatVector content(const FlatTable& tensor, std::size_t elementSize) const {
    const FlatVector buffers = model_.vector(model_field::buffers, 4);
    const FlatTable buffer = model_.element(buffers, tensor.get<std::uint32_t>(tensor_field::buffer, 0));
    const FlatVector data = buffer.vector(0, 1);
    if (data.size() % elementSize != 0) throw ModelError("a constant's size is no whole number of elements");
    return data;
  }

  std::vector<float> constant(std::size_t number) const {
    const auto widened = widened_.find(number);
    const FlatTable source = tensor(widened == widened_.end() ? number : widened->second);
    const auto type = source.get<std::int8_t>(tensor_field::type, typeFloat32);
    if (type != typeFloat32 && type != typeFloat16) throw ModelError("a constant is of an unexpected type");
    const std::size_t size = type == typeFloat32 ? 4 : 2;
    const FlatVector data = content(source, size);
    std::vector<float> values(data.size() / size);
    if (values.empty()) throw ModelError("a constant is empty");
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::size_t at = data.first() + i * size;
      values[i] = size == 4 ? bytes_.scalar<float>(at) : fromHalf(bytes_.scalar<std::uint16_t>(at));
      if (!std::isfinite(values[i])) throw ModelError("a constant is not finite");
    }
    return values;
  }

  void readInput() {
    const FlatVector inputs = graph_.vector(graph_field::inputs, 4);
    if (inputs.size() != 1) throw ModelError("the network does not have one input");
    network_.input = tensorNumber(inputs, 0);
    if (dimension(network_.input, 0) != 1) throw ModelError("the network's input is not one picture");
    network_.nativeHeight = dimension(network_.input, 1);
    network_.nativeWidth = dimension(network_.input, 2);
    network_.inputChannels = dimension(network_.input, 3);
  }

  /// The tensor that holds the values of `number`: a reshaped tensor is its source.
  std::size_t resolve(std::size_t number) const {
    const auto alias = aliases_.find(number);
    return alias == aliases_.end() ? number : alias->second;
  }

  Code codeOf(const FlatTable& op) const {
    const FlatVector codes = model_.vector(model_field::operatorCodes, 4);
    const FlatTable entry = model_.element(codes, op.get<std::uint32_t>(operator_field::code, 0));
    // Files of before 2020 hold the code in the narrow field alone.
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): a small number, not a character
    const std::int32_t narrow = entry.get<std::int8_t>(code_field::narrow, 0);
    return static_cast<Code>(std::max(narrow, entry.get<std::int32_t>(code_field::wide, 0)));
  }

  void readOperator(const FlatTable& op) {
    const FlatVector inputs = op.vector(operator_field::inputs, 4);
    const Code code = codeOf(op);
    const std::size_t input = resolve(tensorNumber(inputs, 0));
    const std::size_t output = tensorNumber(op.vector(operator_field::outputs, 4), 0);
    if (code == codeDequantize) {
      widened_[output] = input;
      return;
    }
    if (code == codeReshape) {
      aliases_[output] = input;
      return;
    }
    Operator result;
    result.input = input;
    result.output = output;
    switch (code) {
      case codeConvolution:
        readConvolution(op, inputs, result);
        break;
      case codeDepthwise:
        readDepthwise(op, inputs, result);
        break;
      case codeAdd:
        result.kind = OperatorKind::add;
        result.secondInput = resolve(tensorNumber(inputs, 1));
        if (op.has(operator_field::options)) setActivation(op.table(operator_field::options), 0, result);
        break;
      case codeMaxPool:
        readMaxPool(op, result);
        break;
      case codePad:
        readPad(tensorNumber(inputs, 1), result);
        break;
      case codePrelu:
        result.kind = OperatorKind::prelu;
        result.weights = constant(tensorNumber(inputs, 1));
        break;
      case codeResizeBilinear:
        readResize(op, result);
        break;
      case codeRelu:
        if (!fuseRelu(input, output)) throw ModelError("an activation follows nothing that could carry it");
        return;
      default:
        throw ModelError("the network holds an operator of an unknown kind, number " + std::to_string(code));
    }
    network_.operators.push_back(std::move(result));
  }

  static void setActivation(const FlatTable& options, std::size_t field, Operator& op) {
    const auto activation = options.get<std::int8_t>(field, activationNone);
    if (activation != activationNone && activation != activationRelu) {
      throw ModelError("an operator has an unexpected activation");
    }
    op.relu = activation == activationRelu;
  }

  static void setWindow(const FlatTable& options, Operator& op) {
    op.padding = options.get<std::int8_t>(0, paddingSame) == paddingSame ? Padding::same : Padding::valid;
    op.stride = options.get<std::int32_t>(1, 0);
    if (options.get<std::int32_t>(2, 0) != op.stride) throw ModelError("a window's strides differ");
  }

  static void requireNoDilation(const FlatTable& options, std::size_t field) {
    if (options.get<std::int32_t>(field, 1) != 1 || options.get<std::int32_t>(field + 1, 1) != 1) {
      throw ModelError("a convolution is dilated");
    }
  }

  void readConvolution(const FlatTable& op, const FlatVector& inputs, Operator& result) const {
    const FlatTable options = op.table(operator_field::options);
    result.kind = OperatorKind::convolution;
    setWindow(options, result);
    setActivation(options, 3, result);
    requireNoDilation(options, 4);
    const std::size_t kernel = tensorNumber(inputs, 1);
    result.outputChannels = dimension(kernel, 0);
    result.kernelHeight = dimension(kernel, 1);
    result.kernelWidth = dimension(kernel, 2);
    result.weights = constant(kernel);
    result.bias = constant(tensorNumber(inputs, 2));
  }

  void readDepthwise(const FlatTable& op, const FlatVector& inputs, Operator& result) const {
    const FlatTable options = op.table(operator_field::options);
    result.kind = OperatorKind::depthwise;
    setWindow(options, result);
    if (options.get<std::int32_t>(3, 0) != 1) throw ModelError("a depthwise convolution multiplies channels");
    setActivation(options, 4, result);
    requireNoDilation(options, 5);
    const std::size_t kernel = tensorNumber(inputs, 1);
    result.kernelHeight = dimension(kernel, 1);
    result.kernelWidth = dimension(kernel, 2);
    result.weights = constant(kernel);
    result.bias = constant(tensorNumber(inputs, 2));
  }

  static void readMaxPool(const FlatTable& op, Operator& result) {
    const FlatTable options = op.table(operator_field::options);
    result.kind = OperatorKind::maxPool;
    setWindow(options, result);
    result.kernelWidth = options.get<std::int32_t>(3, 0);
    result.kernelHeight = options.get<std::int32_t>(4, 0);
    setActivation(options, 5, result);
  }

  void readPad(std::size_t amounts, Operator& result) const {
    const FlatTable table = tensor(amounts);
    const FlatVector data = content(table, 4);
    if (table.get<std::int8_t>(tensor_field::type, typeFloat32) != typeInt32 || data.size() != 32) {
      throw ModelError("a padding does not name four dimensions");
    }
    std::int32_t added = 0;
    for (std::size_t i = 0; i < 8; ++i) {
      const auto amount = bytes_.scalar<std::int32_t>(data.first() + i * 4);
      if (i == 7) added = amount;
      if (amount < 0 || amount > 4096 || (i != 7 && amount != 0))
        throw ModelError("a padding of other than channels");
    }
    result.kind = OperatorKind::padChannels;
    result.outputChannels = dimension(result.input, 3);
    if (result.outputChannels < 1 || result.outputChannels > 4096) throw ModelError("a padding's input");
    result.outputChannels += added;
  }

  void readResize(const FlatTable& op, Operator& result) const {
    const FlatTable options = op.table(operator_field::options);
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

  /// Lets the operator that wrote `input` clamp its own results; the value before the clamp must have no
  /// other reader, which holds because the operators come in order and each was read already.
  bool fuseRelu(std::size_t input, std::size_t output) {
    if (network_.operators.empty()) return false;
    for (const Operator& op : network_.operators) {
      if (op.input == input || (op.kind == OperatorKind::add && op.secondInput == input)) return false;
    }
    for (Operator& op : network_.operators) {
      const bool clamps = op.kind == OperatorKind::convolution || op.kind == OperatorKind::depthwise ||
                          op.kind == OperatorKind::add;
      if (op.output != input || !clamps) continue;
      op.relu = true;
      op.output = output;
      return true;
    }
    return false;
  }

  FlatBytes bytes_;
  FlatTable model_;
  FlatTable graph_;
  Network network_;
  std::unordered_map<std::size_t, std::size_t> widened_;  // float tensor -> its half-float source
  std::unordered_map<std::size_t, std::size_t> aliases_;  // reshaped tensor -> its source
};

}  // namespace

Network readTflite(std::span<const std::byte> file) {
  return Reader(file).read();
}

}  // namespace sentrel::vision
