// SPDX-License-Identifier: Apache-2.0
//
// Networks as lists of XNNPACK's operators, and of our own where the work is one pass over the values.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "support/frame.h"
#include "vision/inference.h"
#include "vision/vector_clones.h"
#include "vision/xnnpack_operator.h"

namespace sentrel::vision {
namespace {

/// Copies pixels into wider ones and sets the channels beyond to zero.
void padChannels(const float* input, const Shape& in, float* output, const Shape& out) {
  const auto narrow = static_cast<std::size_t>(in.channels);
  const auto wide = static_cast<std::size_t>(out.channels);
  for (std::size_t i = 0; i < in.pixels(); ++i) {
    float* pixel = std::copy_n(input + i * narrow, narrow, output + i * wide);
    std::fill_n(pixel, wide - narrow, 0.0F);
  }
}

enum class Clamp { none, relu };

/// The sums of two tensors of `count` values; with `relu`, negative sums become 0.
SENTREL_CLONES void addTensors(const float* first, const float* second, std::size_t count, Clamp clamp,
                               float* output) {
  if (clamp == Clamp::relu) {
    for (std::size_t i = 0; i < count; ++i) output[i] = std::max(first[i] + second[i], 0.0F);
  } else {
    for (std::size_t i = 0; i < count; ++i) output[i] = first[i] + second[i];
  }
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
      Step step = makeStep(network.operators[i], shapes, plan);
      if (XnnpackOperator::covers(step.kind)) {
        step.library = libraryOperator(network.operators[i], step, sharedOperators[i]);
        scratchBytes = std::max(scratchBytes, step.library->scratchBytes(step.in));
      }
      steps_.push_back(std::move(step));
    }
    workSpace_->reserve(plan.bytes + scratchBytes);
    input_ = {plan.offsets[network.input], shapes[network.input].count()};
    for (const std::size_t output : network.outputs) {
      outputs_.push_back({plan.offsets[output], shapes[output].count()});
    }
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
  static Step makeStep(const Operator& op, const std::vector<Shape>& shapes, const ArenaPlan& plan) {
    Step step;
    step.kind = op.kind;
    step.in = shapes[op.input];
    step.out = shapes[op.output];
    step.input = plan.offsets[op.input];
    step.output = plan.offsets[op.output];
    step.scratch = plan.bytes;
    step.shared = XnnpackOperator::servesEverySize(op);
    if (op.kind == OperatorKind::add) {
      step.secondInput = plan.offsets[op.secondInput];
      step.clamp = op.relu ? Clamp::relu : Clamp::none;
    }
    if (op.kind == OperatorKind::prelu) step.slopes = slopePattern(op.weights);
    return step;
  }
  /// The one that is shared with runners of other sizes, where it can be, else one of its own.
  static SharedOperator libraryOperator(const Operator& op, const Step& step, SharedOperator& shared) {
    if (!step.shared) return std::make_shared<XnnpackOperator>(op, step.in, step.out);
    if (!shared) shared = std::make_shared<XnnpackOperator>(op, step.in, step.out);
    return shared;
  }
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
