// SPDX-License-Identifier: Apache-2.0
//
// Networks as lists of XNNPACK's operators, and of our own where the work is one pass over the values.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "vision/arena_plan.h"
#include "vision/elementwise.h"
#include "vision/inference.h"
#include "vision/network_shapes.h"
#include "vision/work_space.h"
#include "vision/xnnpack_operator.h"

namespace sentrel::vision {
namespace {

using SharedOperator = std::shared_ptr<XnnpackOperator>;

/// One operator of a runner: what to execute and where.
struct Step {
  OperatorKind kind = OperatorKind::add;
  SharedOperator library;  // where the library executes it
  bool shared = false;
  Clamp clamp = Clamp::none;
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
    switch (kind) {
      case OperatorKind::add:
        addTensors(from, values(base, secondInput), out.count(), clamp, to);
        return true;
      case OperatorKind::padChannels:
        padChannels(from, in, to, out);
        return true;
      case OperatorKind::prelu:
        applySlopes(from, out.count(), slopes, to);
        return true;
      default:
        return false;
    }
  }

 private:
  static float* values(std::byte* base, std::size_t offset) {
    return reinterpret_cast<float*>(base + offset);
  }
};

class XnnpackRunner final : public NetworkRunner {
 public:
  XnnpackRunner(const Network& network, InputSize input, std::shared_ptr<WorkSpace> workSpace,
                std::vector<SharedOperator>& sharedOperators)
      : workSpace_(std::move(workSpace)) {
    const std::vector<Shape> shapes = inferShapes(network, input.height, input.width);
    const ArenaPlan plan = planArena(network, shapes);
    std::size_t scratchBytes = 0;
    for (std::size_t i = 0; i < network.operators.size(); ++i) {
      const Operator& op = network.operators[i];
      Step step;
      step.kind = op.kind;
      step.in = shapes[op.input];
      step.out = shapes[op.output];
      step.input = plan.offsets[op.input];
      step.output = plan.offsets[op.output];
      step.scratch = plan.bytes;
      if (op.kind == OperatorKind::add) {
        step.secondInput = plan.offsets[op.secondInput];
        step.clamp = op.relu ? Clamp::relu : Clamp::none;
      }
      if (op.kind == OperatorKind::prelu) step.slopes = slopePattern(op.weights);
      if (XnnpackOperator::covers(op.kind)) {
        step.shared = XnnpackOperator::servesEverySize(op);
        SharedOperator own;
        SharedOperator& library = step.shared ? sharedOperators[i] : own;
        if (!library) library = std::make_shared<XnnpackOperator>(op, step.in, step.out);
        step.library = library;
        scratchBytes = std::max(scratchBytes, library->scratchBytes(step.in));
      }
      steps_.push_back(std::move(step));
    }
    workSpace_->reserve(plan.bytes + scratchBytes);
    input_ = {plan.offsets[network.input], shapes[network.input].count()};
    for (const std::size_t output : network.outputs)
      outputs_.push_back({plan.offsets[output], shapes[output].count()});
  }

  std::span<float> input() override { return at(input_, workSpace_->data()); }

  bool run() override {
    std::byte* base = workSpace_->data();
    if (base != boundTo_) {
      for (const Step& step : steps_) {
        if (step.library && !step.shared && !step.setUp(base)) return false;
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
  std::vector<std::unique_ptr<NetworkRunner>> prepare(const Network& network,
                                                      std::span<const InputSize> sizes) override {
    std::vector<SharedOperator> sharedOperators(network.operators.size());
    std::vector<std::unique_ptr<NetworkRunner>> runners;
    for (const InputSize& input : sizes) {
      runners.push_back(std::make_unique<XnnpackRunner>(network, input, workSpace_, sharedOperators));
    }
    return runners;
  }

 private:
  XnnpackLibrary library_;
  std::shared_ptr<WorkSpace> workSpace_ = std::make_shared<WorkSpace>();
};

}  // namespace

std::unique_ptr<InferenceEngine> makeInferenceEngine() {
  return std::make_unique<XnnpackEngine>();
}

}  // namespace sentrel::vision
