// SPDX-License-Identifier: Apache-2.0
//
// Networks as lists of XNNPACK's operators, and of our own where the work is one pass over the values.
//
// The only file that knows XNNPACK, whose interface is not promised to stay. Two are known, and the build
// tells which one the library has: in the older an operator is created and set up, in the newer it is
// created, reshaped and set up.
#include <xnnpack.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

#include "support/frame.h"
#include "vision/inference.h"
#include "vision/vector_clones.h"

namespace sentrel::vision {
namespace {

constexpr std::size_t alignment = 64;
constexpr float unbounded = std::numeric_limits<float>::infinity();

/// Where each tensor of one execution lies in a common work space, in bytes. Tensors that are never alive at
/// the same time share room; outputs stay alive to the end. Every offset is aligned, and every tensor is
/// followed by room that kernels may read beyond its end.
struct ArenaPlan {
  std::vector<std::size_t> offsets;
  std::size_t bytes = 0;
};

/// The steps of a network from the one that writes a tensor to the last one that reads it.
struct Life {
  std::size_t first = std::numeric_limits<std::size_t>::max();
  std::size_t last = 0;
  std::size_t bytes = 0;
  [[nodiscard]] bool used() const { return first <= last; }
  [[nodiscard]] bool meets(const Life& other) const { return first <= other.last && other.first <= last; }
};

std::vector<Life> lives(const Network& network, const std::vector<Shape>& shapes) {
  constexpr std::size_t slack = 64;
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

ArenaPlan planArena(const Network& network, const std::vector<Shape>& shapes) {
  const std::vector<Life> all = lives(network, shapes);
  std::vector<std::size_t> order(all.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  // The largest first, each at the lowest place that is free for its whole life.
  std::ranges::stable_sort(order, std::greater(), [&](std::size_t tensor) { return all[tensor].bytes; });
  ArenaPlan plan;
  plan.offsets.resize(all.size());
  const auto offset = [&](std::size_t tensor) { return plan.offsets[tensor]; };
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
    placed.insert(std::ranges::upper_bound(placed, at, {}, offset), tensor);
  }
  return plan;
}

struct Scratch {
  std::size_t bytes = 0;
  std::size_t alignment = 1;
};

std::uint32_t u32(int value) {
  return static_cast<std::uint32_t>(value);
}
std::size_t size(int value) {
  return static_cast<std::size_t>(value);
}

void requireSuccess(xnn_status status) {
  if (status == xnn_status_out_of_memory) throw ModelError("there is not enough memory for the network");
  if (status != xnn_status_success) throw ModelError("XNNPACK cannot execute the network");
}

xnn_status create(const Operator& op, const Shape& in, const Shape& out, xnn_operator_t* handle) {
  // Rows or columns that windows need beyond the edges: the odd one goes to the bottom and the right.
  const auto beyond = [&](int side, int outputs, int kernel) {
    return op.padding == Padding::valid ? 0 : u32(std::max(0, (outputs - 1) * op.stride + kernel - side));
  };
  const std::uint32_t vertical = beyond(in.height, out.height, op.kernelHeight);
  const std::uint32_t horizontal = beyond(in.width, out.width, op.kernelWidth);
  const std::uint32_t top = vertical / 2;
  const std::uint32_t left = horizontal / 2;
  const float lowest = op.relu ? 0.0F : -unbounded;
  const bool depthwise = op.kind == OperatorKind::depthwise;
  const std::size_t channels = size(in.channels);
  switch (op.kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_create_convolution2d_nhwc_f32(
          top, horizontal - left, vertical - top, left, u32(op.kernelHeight), u32(op.kernelWidth),
          u32(op.stride), u32(op.stride), 1, 1, depthwise ? u32(in.channels) : 1, depthwise ? 1 : channels,
          depthwise ? 1 : size(out.channels), channels, size(out.channels), op.weights.data(), op.bias.data(),
          lowest, unbounded, depthwise ? XNN_FLAG_DEPTHWISE_CONVOLUTION : 0,
#ifdef SENTREL_XNNPACK_RESHAPES
          nullptr, nullptr,  // caches
#endif
          handle);
    case OperatorKind::maxPool:
      return xnn_create_max_pooling2d_nhwc_f32(top, horizontal - left, vertical - top, left,
                                               u32(op.kernelHeight), u32(op.kernelWidth), u32(op.stride),
                                               u32(op.stride), 1, 1,
#ifndef SENTREL_XNNPACK_RESHAPES
                                               channels, channels, channels,
#endif
                                               lowest, unbounded, 0, handle);
    case OperatorKind::upsampleBilinear:
#ifdef SENTREL_XNNPACK_RESHAPES
      return xnn_create_resize_bilinear2d_nhwc_f32(size(out.height), size(out.width), 0, handle);
#else
      return xnn_create_resize_bilinear2d_nhwc_f32(channels, channels, channels, 0, handle);
#endif
    default:
      return xnn_status_unsupported_parameter;
  }
}

#ifdef SENTREL_XNNPACK_RESHAPES

xnn_status reshape(OperatorKind kind, xnn_operator_t handle, const Shape& in, Scratch& scratch) {
  const std::size_t height = size(in.height);
  const std::size_t width = size(in.width);
  const std::size_t channels = size(in.channels);
  switch (kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_reshape_convolution2d_nhwc_f32(handle, 1, height, width, &scratch.bytes, &scratch.alignment,
                                                nullptr, nullptr, nullptr);
    case OperatorKind::maxPool:
      return xnn_reshape_max_pooling2d_nhwc_f32(handle, 1, height, width, channels, channels, channels,
                                                nullptr, nullptr, nullptr);
    default:
      return xnn_reshape_resize_bilinear2d_nhwc_f32(handle, 1, height, width, channels, channels, channels,
                                                    &scratch.bytes, &scratch.alignment, nullptr);
  }
}

xnn_status bind(OperatorKind kind, xnn_operator_t handle, const Shape& in, std::byte* scratch,
                const float* input, float* output) {
  Scratch needed;
  if (const auto status = reshape(kind, handle, in, needed); status != xnn_status_success) return status;
  switch (kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_setup_convolution2d_nhwc_f32(handle, scratch, input, output);
    case OperatorKind::maxPool:
      return xnn_setup_max_pooling2d_nhwc_f32(handle, input, output);
    default:
      return xnn_setup_resize_bilinear2d_nhwc_f32(handle, scratch, input, output);
  }
}

#else

xnn_status reshape(OperatorKind, xnn_operator_t, const Shape&, Scratch&) {
  return xnn_status_success;
}

xnn_status bind(OperatorKind kind, xnn_operator_t handle, const Shape& in, std::byte*, const float* input,
                float* output) {
  const std::size_t height = size(in.height);
  const std::size_t width = size(in.width);
  switch (kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_setup_convolution2d_nhwc_f32(handle, 1, height, width, input, output, nullptr);
    case OperatorKind::maxPool:
      return xnn_setup_max_pooling2d_nhwc_f32(handle, 1, height, width, input, output, nullptr);
    default:
      return xnn_setup_resize_bilinear2d_nhwc_f32(handle, 1, height, width, height * 2, width * 2, input,
                                                  output, nullptr);
  }
}

#endif

/// What XNNPACK is asked for: convolutions, pooling and upsampling, one operator at a time, not its graphs.
/// An operator that is created once, its weights packed, can be set up again and again.
class LibraryOperator {
 public:
  /// The operator's other data is not needed afterwards.
  LibraryOperator(const Operator& op, const Shape& in, const Shape& out) : kind_(op.kind) {
    xnn_operator_t handle = nullptr;
    const xnn_status status = create(op, in, out, &handle);
    handle_.reset(handle);
    requireSuccess(status);
  }

  /// Scratch memory that a run at this size needs, in bytes.
  [[nodiscard]] std::size_t scratchBytes(const Shape& in) {
    Scratch scratch;
    requireSuccess(reshape(kind_, handle_.get(), in, scratch));
    if (scratch.alignment > alignment) requireSuccess(xnn_status_unsupported_parameter);
    return scratch.bytes;
  }

  /// Says where the next runs read and write, and how much. Memory is aligned.
  [[nodiscard]] bool setUp(const Shape& in, std::byte* scratch, const float* input, float* output) {
    return bind(kind_, handle_.get(), in, scratch, input, output) == xnn_status_success;
  }

  [[nodiscard]] bool run() { return xnn_run_operator(handle_.get(), nullptr) == xnn_status_success; }

 private:
  struct Delete {
    void operator()(xnn_operator_t handle) const { xnn_delete_operator(handle); }
  };

  OperatorKind kind_;
  std::unique_ptr<xnn_operator, Delete> handle_;
};

/// Copies pixels into wider ones and sets the channels beyond to zero.
void padChannels(const float* input, const Shape& in, float* output, const Shape& out) {
  const std::size_t narrow = size(in.channels);
  const std::size_t wide = size(out.channels);
  for (std::size_t i = 0; i < in.pixels(); ++i) {
    float* pixel = std::copy_n(input + i * narrow, narrow, output + i * wide);
    std::fill_n(pixel, wide - narrow, 0.0F);
  }
}

/// The sums of two tensors of `count` values, at least `lowest` each.
SENTREL_CLONES void addTensors(const float* first, const float* second, std::size_t count, float lowest,
                               float* output) {
  for (std::size_t i = 0; i < count; ++i) output[i] = std::max(first[i] + second[i], lowest);
}

/// A pattern for `applySlopes`: the slope of each channel, repeated so often that a pass over it is long.
std::vector<float> slopePattern(const std::vector<float>& slopes) {
  constexpr std::size_t enough = 256;
  std::vector<float> pattern(slopes);
  while (!slopes.empty() && pattern.size() < enough)
    pattern.insert(pattern.end(), slopes.begin(), slopes.end());
  return pattern;
}

/// Scales every value below zero by its channel's slope.
SENTREL_CLONES void applySlopes(const float* __restrict input, std::size_t count,
                                std::span<const float> pattern, float* __restrict output) {
  const float* __restrict slope = pattern.data();
  for (std::size_t done = 0; done < count; done += pattern.size()) {
    const std::size_t part = std::min(pattern.size(), count - done);
    // Without a branch, so that the loop is vectorised: one of the two terms is zero.
    for (std::size_t i = 0; i < part; ++i)
      output[done + i] = std::max(input[done + i], 0.0F) + std::min(input[done + i], 0.0F) * slope[i];
  }
}

/// The memory in which every runner of an engine keeps its tensors, one runner at a time: they are computed
/// from what the camera saw. It grows while runners are prepared, and is taken at the first run after that.
class WorkSpace {
 public:
  void reserve(std::size_t bytes) { bytes_ = std::max(bytes, bytes_); }

  /// The start, aligned to a page. It moves only when more was reserved since the last call.
  [[nodiscard]] std::byte* data() {
    memory_.resize(bytes_);
    return memory_.data();
  }

 private:
  FrameMemory<std::byte> memory_;
  std::size_t bytes_ = 0;
};

float* values(std::byte* base, std::size_t offset) {
  return reinterpret_cast<float*>(base + offset);
}

/// One operator of a runner: what to execute and where.
struct Step {
  OperatorKind kind = OperatorKind::add;
  std::shared_ptr<LibraryOperator> library;  // where the library executes it
  bool shared = false;                       // with runners of other sizes
  float lowest = 0;
  std::vector<float> slopes;
  Shape in;
  Shape out;
  std::size_t input = 0;  // offsets into the work space, in bytes
  std::size_t secondInput = 0;
  std::size_t output = 0;
  std::size_t scratch = 0;

  [[nodiscard]] bool setUp(std::byte* base) const {
    return library->setUp(in, base + scratch, values(base, input), values(base, output));
  }

  [[nodiscard]] bool run(std::byte* base) const {
    // A shared operator may stand set up for another size.
    if (library) return (!shared || setUp(base)) && library->run();
    const float* from = values(base, input);
    float* to = values(base, output);
    if (kind == OperatorKind::add) addTensors(from, values(base, secondInput), out.count(), lowest, to);
    if (kind == OperatorKind::padChannels) padChannels(from, in, to, out);
    if (kind == OperatorKind::prelu) applySlopes(from, out.count(), slopes, to);
    return true;
  }
};

class XnnpackRunner final : public NetworkRunner {
 public:
  /// `sharedOperators` has room for one of each operator of the network.
  XnnpackRunner(const Network& network, InputSize input, std::shared_ptr<WorkSpace> workSpace,
                std::vector<std::shared_ptr<LibraryOperator>>& sharedOperators)
      : workSpace_(std::move(workSpace)) {
    const std::vector<Shape> shapes = inferShapes(network, input.height, input.width);
    const ArenaPlan plan = planArena(network, shapes);
    std::size_t scratchBytes = 0;
    for (std::size_t i = 0; i < network.operators.size(); ++i) {
      const Operator& op = network.operators[i];
      Step& step = steps_.emplace_back(makeStep(op, shapes, plan));
      if (isOurs(op.kind)) continue;
      if (step.shared) step.library = sharedOperators[i];
      if (!step.library) step.library = std::make_shared<LibraryOperator>(op, step.in, step.out);
      if (step.shared) sharedOperators[i] = step.library;
      scratchBytes = std::max(scratchBytes, step.library->scratchBytes(step.in));
    }
    workSpace_->reserve(plan.bytes + scratchBytes);
    input_ = {plan.offsets[network.input], shapes[network.input].count()};
    for (const std::size_t output : network.outputs) {
      outputs_.push_back({plan.offsets[output], shapes[output].count()});
    }
  }

  std::span<float> input() override { return at(input_); }

  bool run() override {
    std::byte* base = workSpace_->data();
    if (base != boundTo_) {
      for (const Step& step : steps_) {
        if (step.library && !step.shared && !step.setUp(base)) return false;
      }
      boundTo_ = base;
    }
    return std::ranges::all_of(steps_, [&](const Step& step) { return step.run(base); });
  }

  std::size_t outputCount() const override { return outputs_.size(); }
  std::span<const float> output(std::size_t index) const override { return at(outputs_[index]); }

 private:
  struct Place {
    std::size_t offset = 0;
    std::size_t count = 0;
  };
  static bool isOurs(OperatorKind kind) {
    return kind == OperatorKind::add || kind == OperatorKind::padChannels || kind == OperatorKind::prelu;
  }
  static Step makeStep(const Operator& op, const std::vector<Shape>& shapes, const ArenaPlan& plan) {
    Step step;
    step.kind = op.kind;
    // A convolution of single pixels is a matrix product: it holds nothing that depends on the picture's
    // size.
    step.shared =
        op.kind == OperatorKind::convolution && op.kernelHeight == 1 && op.kernelWidth == 1 && op.stride == 1;
    step.in = shapes[op.input];
    step.out = shapes[op.output];
    step.input = plan.offsets[op.input];
    step.secondInput = plan.offsets[op.secondInput];
    step.output = plan.offsets[op.output];
    step.scratch = plan.bytes;
    step.lowest = op.relu ? 0.0F : -unbounded;
    if (op.kind == OperatorKind::prelu) step.slopes = slopePattern(op.weights);
    return step;
  }
  std::span<float> at(const Place& place) const {
    return {values(workSpace_->data(), place.offset), place.count};
  }

  std::shared_ptr<WorkSpace> workSpace_;
  std::vector<Step> steps_;
  std::byte* boundTo_ = nullptr;
  Place input_;
  std::vector<Place> outputs_;
};

class XnnpackEngine final : public InferenceEngine {
 public:
  XnnpackEngine() { requireSuccess(xnn_initialize(nullptr)); }
  ~XnnpackEngine() override { xnn_deinitialize(); }
  XnnpackEngine(const XnnpackEngine&) = delete;
  XnnpackEngine& operator=(const XnnpackEngine&) = delete;

  std::vector<std::unique_ptr<NetworkRunner>> prepare(const Network& network,
                                                      std::span<const InputSize> sizes) override {
    std::vector<std::shared_ptr<LibraryOperator>> sharedOperators(network.operators.size());
    std::vector<std::unique_ptr<NetworkRunner>> runners;
    for (const InputSize& input : sizes) {
      runners.push_back(std::make_unique<XnnpackRunner>(network, input, workSpace_, sharedOperators));
    }
    return runners;
  }

 private:
  std::shared_ptr<WorkSpace> workSpace_ = std::make_shared<WorkSpace>();
};

}  // namespace

std::unique_ptr<InferenceEngine> makeInferenceEngine() {
  return std::make_unique<XnnpackEngine>();
}

}  // namespace sentrel::vision
