// SPDX-License-Identifier: Apache-2.0
//
// The only file that knows XNNPACK, whose interface is not promised to stay. It uses the single operators,
// not the graphs: an operator that is created once, its weights packed, can be set up again and again for
// other input sizes.
#include <xnnpack.h>

#include <array>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "vision/arena_plan.h"
#include "vision/channel_padding.h"
#include "vision/inference.h"
#include "vision/model_error.h"
#include "vision/network_shapes.h"
#include "vision/work_space.h"

namespace sentrel::vision {
namespace {

struct DeleteOperator {
  void operator()(xnn_operator_t op) const { xnn_delete_operator(op); }
};
using OperatorHandle = std::shared_ptr<std::remove_pointer_t<xnn_operator_t>>;

void require(xnn_status status) {
  if (status == xnn_status_out_of_memory) throw ModelError("there is not enough memory for the network");
  if (status != xnn_status_success) throw ModelError("XNNPACK cannot execute the network");
}

std::uint32_t u32(int value) {
  return static_cast<std::uint32_t>(value);
}
std::size_t size(int value) {
  return static_cast<std::size_t>(value);
}

/// A convolution of single pixels is a matrix product: its operator holds nothing that depends on the
/// picture's size, so that all runners can share it with its packed weights, which are nearly all the weights
/// there are.
bool isPointwise(const Operator& op) {
  return op.kind == OperatorKind::convolution && op.kernelHeight == 1 && op.kernelWidth == 1 &&
         op.stride == 1;
}

OperatorHandle create(const Operator& op, const Shape& in, const Shape& out) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const float lowest = op.relu ? 0.0F : -infinity;
  const EdgePadding edge = edgePadding(op, in);
  xnn_operator_t handle = nullptr;
  switch (op.kind) {
    case OperatorKind::convolution:
      require(xnn_create_convolution2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, 1, size(in.channels), size(out.channels),
          size(in.channels), size(out.channels), op.weights.data(), op.bias.data(), lowest, infinity, 0,
          &handle));
      break;
    case OperatorKind::depthwise:
      require(xnn_create_convolution2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, u32(in.channels), 1, 1,
          size(in.channels), size(in.channels), op.weights.data(), op.bias.data(), lowest, infinity,
          XNN_FLAG_DEPTHWISE_CONVOLUTION, &handle));
      break;
    case OperatorKind::add:
      require(xnn_create_add_nd_f32(lowest, infinity, 0, &handle));
      break;
    case OperatorKind::maxPool:
      require(xnn_create_max_pooling2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, size(in.channels), size(in.channels),
          size(in.channels), lowest, infinity, 0, &handle));
      break;
    case OperatorKind::prelu:
      require(xnn_create_prelu_nc_f32(size(in.channels), size(in.channels), size(in.channels),
                                      op.weights.data(), 0, &handle));
      break;
    case OperatorKind::upsampleBilinear:
      require(xnn_create_resize_bilinear2d_nhwc_f32(size(in.channels), size(in.channels), size(in.channels),
                                                    0, &handle));
      break;
    case OperatorKind::padChannels:
      return nullptr;
  }
  return {handle, DeleteOperator()};
}

/// One operator of a runner: what to execute and where.
struct Step {
  OperatorKind kind = OperatorKind::add;
  OperatorHandle handle;
  bool shared = false;
  Shape in;
  Shape out;
  std::size_t input = 0;  // offsets into the work space, in bytes
  std::size_t secondInput = 0;
  std::size_t output = 0;

  [[nodiscard]] bool setUp(std::byte* base) const {
    const auto* from = reinterpret_cast<const float*>(base + input);
    const auto* second = reinterpret_cast<const float*>(base + secondInput);
    auto* to = reinterpret_cast<float*>(base + output);
    const std::size_t height = size(in.height);
    const std::size_t width = size(in.width);
    xnn_status status = xnn_status_success;
    switch (kind) {
      case OperatorKind::convolution:
      case OperatorKind::depthwise:
        status = xnn_setup_convolution2d_nhwc_f32(handle.get(), 1, height, width, from, to, nullptr);
        break;
      case OperatorKind::add: {
        const std::array<std::size_t, 1> count{in.count()};
        status =
            xnn_setup_add_nd_f32(handle.get(), 1, count.data(), 1, count.data(), from, second, to, nullptr);
        break;
      }
      case OperatorKind::maxPool:
        status = xnn_setup_max_pooling2d_nhwc_f32(handle.get(), 1, height, width, from, to, nullptr);
        break;
      case OperatorKind::prelu:
        status = xnn_setup_prelu_nc_f32(handle.get(), in.pixels(), from, to, nullptr);
        break;
      case OperatorKind::upsampleBilinear:
        status = xnn_setup_resize_bilinear2d_nhwc_f32(handle.get(), 1, height, width, height * 2, width * 2,
                                                      from, to, nullptr);
        break;
      case OperatorKind::padChannels:
        break;
    }
    return status == xnn_status_success;
  }

  [[nodiscard]] bool run(std::byte* base) const {
    if (kind == OperatorKind::padChannels) {
      padChannels(reinterpret_cast<const float*>(base + input), in, reinterpret_cast<float*>(base + output),
                  out);
      return true;
    }
    // A shared operator may stand set up for another size.
    if (shared && !setUp(base)) return false;
    return xnn_run_operator(handle.get(), nullptr) == xnn_status_success;
  }
};

class XnnpackRunner final : public NetworkRunner {
 public:
  XnnpackRunner(const Network& network, InputSize input, std::shared_ptr<WorkSpace> workSpace,
                std::vector<OperatorHandle>& sharedOperators)
      : workSpace_(std::move(workSpace)) {
    const std::vector<Shape> shapes = inferShapes(network, input.height, input.width);
    const ArenaPlan plan = planArena(network, shapes);
    workSpace_->reserve(plan.bytes);
    for (std::size_t i = 0; i < network.operators.size(); ++i) {
      const Operator& op = network.operators[i];
      Step step;
      step.kind = op.kind;
      step.in = shapes[op.input];
      step.out = shapes[op.output];
      step.input = plan.offsets[op.input];
      step.secondInput = op.kind == OperatorKind::add ? plan.offsets[op.secondInput] : 0;
      step.output = plan.offsets[op.output];
      step.shared = isPointwise(op);
      if (step.shared && !sharedOperators[i]) sharedOperators[i] = create(op, step.in, step.out);
      step.handle = step.shared ? sharedOperators[i] : create(op, step.in, step.out);
      steps_.push_back(std::move(step));
    }
    input_ = {plan.offsets[network.input], shapes[network.input].count()};
    for (const std::size_t output : network.outputs)
      outputs_.push_back({plan.offsets[output], shapes[output].count()});
  }

  std::span<float> input() override { return at(input_, workSpace_->data()); }

  bool run() override {
    std::byte* base = workSpace_->data();
    if (base != boundTo_) {
      for (const Step& step : steps_) {
        if (!step.shared && !step.setUp(base)) return false;
      }
      boundTo_ = base;
    }
    for (const Step& step : steps_) {
      if (!step.run(base)) return false;
    }
    return true;
  }

  std::size_t outputCount() const override { return outputs_.size(); }
  std::span<const float> output(std::size_t index) const override {
    return at(outputs_[index], workSpace_->data());
  }

 private:
  struct Place {
    std::size_t offset = 0;
    std::size_t count = 0;
  };
  static std::span<float> at(const Place& place, std::byte* base) {
    return {reinterpret_cast<float*>(base + place.offset), place.count};
  }

  std::shared_ptr<WorkSpace> workSpace_;
  std::vector<Step> steps_;
  std::byte* boundTo_ = nullptr;
  Place input_;
  std::vector<Place> outputs_;
};

class XnnpackEngine final : public InferenceEngine {
 public:
  XnnpackEngine() { require(xnn_initialize(nullptr)); }
  ~XnnpackEngine() override { xnn_deinitialize(); }
  XnnpackEngine(const XnnpackEngine&) = delete;
  XnnpackEngine& operator=(const XnnpackEngine&) = delete;

  std::vector<std::unique_ptr<NetworkRunner>> prepare(const Network& network,
                                                      std::span<const InputSize> sizes) override {
    std::vector<OperatorHandle> sharedOperators(network.operators.size());
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

std::unique_ptr<InferenceEngine> makeXnnpackEngine() {
  return std::make_unique<XnnpackEngine>();
}

}  // namespace sentrel::vision
