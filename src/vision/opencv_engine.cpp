// SPDX-License-Identifier: Apache-2.0
//
// The only file that knows OpenCV. The network is built layer by layer; OpenCV keeps channels outermost, so
// that pictures and results are transposed at both ends.
#include <array>
#include <limits>
#include <map>
#include <opencv2/dnn.hpp>
#include <string>
#include <utility>
#include <vector>

#include "vision/inference.h"
#include "vision/model_error.h"
#include "vision/network_shapes.h"

namespace sentrel::vision {
namespace {

namespace dnn = cv::dnn;

std::size_t size(int value) {
  return static_cast<std::size_t>(value);
}

void toPlanes(const std::vector<float>& from, const Shape& shape, float* to) {
  const auto channels = size(shape.channels);
  for (std::size_t c = 0; c < channels; ++c) {
    for (std::size_t i = 0; i < shape.pixels(); ++i) *to++ = from[i * channels + c];
  }
}

void fromPlanes(const float* from, const Shape& shape, std::vector<float>& to) {
  const auto channels = size(shape.channels);
  for (std::size_t c = 0; c < channels; ++c) {
    for (std::size_t i = 0; i < shape.pixels(); ++i) to[i * channels + c] = *from++;
  }
}

cv::Mat vectorBlob(const std::vector<float>& values) {
  return cv::Mat(values, true).reshape(1, {static_cast<int>(values.size())});
}

/// Weights with the input channels before the window, as OpenCV wants them.
cv::Mat convolutionBlob(const Operator& op, int inputChannels) {
  const bool depthwise = op.kind == OperatorKind::depthwise;
  const int outputs = depthwise ? inputChannels : op.outputChannels;
  const int inputs = depthwise ? 1 : inputChannels;
  const int taps = op.kernelHeight * op.kernelWidth;
  cv::Mat blob({outputs, inputs, op.kernelHeight, op.kernelWidth}, CV_32F);
  auto* to = blob.ptr<float>();
  for (int o = 0; o < outputs; ++o) {
    for (int i = 0; i < inputs; ++i) {
      for (int tap = 0; tap < taps; ++tap) {
        const int from = depthwise ? tap * outputs + o : (o * taps + tap) * inputs + i;
        *to++ = op.weights[size(from)];
      }
    }
  }
  return blob;
}

class NetBuilder {
 public:
  NetBuilder(const Network& network, InputSize input)
      : shapes_(inferShapes(network, input.height, input.width)) {
    sources_[network.input] = 0;  // the layer that every net begins with
    for (const Operator& op : network.operators) add(op);
    for (const std::size_t output : network.outputs)
      outputs_.push_back(net_.getLayer(sources_[output])->name);
    net_.setPreferableBackend(dnn::DNN_BACKEND_OPENCV);
    net_.setPreferableTarget(dnn::DNN_TARGET_CPU);
  }

  dnn::Net net() { return net_; }
  std::vector<cv::String> outputs() { return outputs_; }
  [[nodiscard]] const Shape& shape(std::size_t tensor) const { return shapes_[tensor]; }

 private:
  int append(const char* type, dnn::LayerParams& parameters, int source) {
    const int layer = net_.addLayer(std::string(type) + std::to_string(count_++), type, CV_32F, parameters);
    net_.connect(source, 0, layer, 0);
    return layer;
  }

  int appendPadding(int source, const std::array<int, 8>& amounts, float value) {
    dnn::LayerParams parameters;
    parameters.set("paddings", dnn::DictValue::arrayInt(amounts.data(), static_cast<int>(amounts.size())));
    parameters.set("value", value);
    return append("Padding", parameters, source);
  }

  /// OpenCV's own padding is the same on both sides; ours is not always.
  int appendEdges(const Operator& op, int source, float value) {
    const EdgePadding edge = edgePadding(op, shapes_[op.input]);
    if (edge.top + edge.right + edge.bottom + edge.left == 0) return source;
    return appendPadding(source, {0, 0, 0, 0, edge.top, edge.bottom, edge.left, edge.right}, value);
  }

  static void setWindow(dnn::LayerParams& parameters, const Operator& op) {
    parameters.set("kernel_h", op.kernelHeight);
    parameters.set("kernel_w", op.kernelWidth);
    parameters.set("stride_h", op.stride);
    parameters.set("stride_w", op.stride);
  }

  void add(const Operator& op) {
    const int channels = shapes_[op.input].channels;
    int source = sources_[op.input];
    dnn::LayerParams parameters;
    switch (op.kind) {
      case OperatorKind::convolution:
      case OperatorKind::depthwise:
        source = appendEdges(op, source, 0);
        setWindow(parameters, op);
        parameters.set("num_output", shapes_[op.output].channels);
        parameters.set("group", op.kind == OperatorKind::depthwise ? channels : 1);
        parameters.set("bias_term", true);
        parameters.blobs = {convolutionBlob(op, channels), vectorBlob(op.bias)};
        source = append("Convolution", parameters, source);
        break;
      case OperatorKind::add: {
        parameters.set("operation", "sum");
        source = append("Eltwise", parameters, source);
        net_.connect(sources_[op.secondInput], 0, source, 1);
        break;
      }
      case OperatorKind::maxPool:
        source = appendEdges(op, source, std::numeric_limits<float>::lowest());
        setWindow(parameters, op);
        parameters.set("pool", "max");
        source = append("Pooling", parameters, source);
        break;
      case OperatorKind::padChannels:
        source = appendPadding(source, {0, 0, 0, op.outputChannels - channels, 0, 0, 0, 0}, 0);
        break;
      case OperatorKind::prelu:
        parameters.blobs = {vectorBlob(op.weights)};
        source = append("PReLU", parameters, source);
        break;
      case OperatorKind::upsampleBilinear:
        parameters.set("interpolation", "opencv_linear");
        parameters.set("zoom_factor", 2);
        source = append("Resize", parameters, source);
        break;
    }
    if (op.relu) {
      dnn::LayerParams none;
      source = append("ReLU", none, source);
    }
    sources_[op.output] = source;
  }

  std::vector<Shape> shapes_;
  dnn::Net net_;
  std::map<std::size_t, int> sources_;  // the layer that writes a tensor
  std::vector<cv::String> outputs_;
  int count_ = 0;
};

class OpencvRunner final : public NetworkRunner {
 public:
  OpencvRunner(const Network& network, InputSize input) {
    NetBuilder builder(network, input);
    net_ = builder.net();
    names_ = builder.outputs();
    inputShape_ = builder.shape(network.input);
    input_.resize(inputShape_.count());
    blob_.create(std::vector<int>{1, inputShape_.channels, input.height, input.width}, CV_32F);
    for (const std::size_t output : network.outputs) {
      outputShapes_.push_back(builder.shape(output));
      outputs_.emplace_back(builder.shape(output).count());
    }
    if (!run()) throw ModelError("OpenCV cannot execute the network");
  }

  std::span<float> input() override { return input_; }

  bool run() override {
    try {
      toPlanes(input_, inputShape_, blob_.ptr<float>());
      net_.setInput(blob_);
      net_.forward(results_, names_);
    } catch (const cv::Exception&) {
      return false;
    }
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
      if (results_[i].total() != outputs_[i].size()) return false;
      fromPlanes(results_[i].ptr<float>(), outputShapes_[i], outputs_[i]);
    }
    return true;
  }

  std::size_t outputCount() const override { return outputs_.size(); }
  std::span<const float> output(std::size_t index) const override { return outputs_[index]; }

 private:
  dnn::Net net_;
  std::vector<cv::String> names_;
  Shape inputShape_;
  std::vector<float> input_;
  cv::Mat blob_;
  std::vector<cv::Mat> results_;
  std::vector<Shape> outputShapes_;
  std::vector<std::vector<float>> outputs_;
};

class OpencvEngine final : public InferenceEngine {
 public:
  std::vector<std::unique_ptr<NetworkRunner>> prepare(const Network& network,
                                                      std::span<const InputSize> sizes) override {
    cv::setNumThreads(1);  // seeing must not take more than one core
    std::vector<std::unique_ptr<NetworkRunner>> runners;
    try {
      for (const InputSize& input : sizes) runners.push_back(std::make_unique<OpencvRunner>(network, input));
    } catch (const cv::Exception& error) {
      throw ModelError(std::string("OpenCV cannot take in the network: ") + error.what());
    }
    return runners;
  }
};

}  // namespace

std::unique_ptr<InferenceEngine> makeOpencvEngine() {
  return std::make_unique<OpencvEngine>();
}

}  // namespace sentrel::vision
