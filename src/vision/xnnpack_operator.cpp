// SPDX-License-Identifier: Apache-2.0
//
// The only file that knows XNNPACK, whose interface is not promised to stay. Two are known, and the build
// tells which one the library has: in the older an operator is created and set up, in the newer it is
// created, reshaped and set up.
#include "vision/xnnpack_operator.h"

#include <xnnpack.h>

#include <cstdint>
#include <limits>

namespace sentrel::vision {
namespace {

constexpr float unbounded = std::numeric_limits<float>::infinity();
constexpr std::size_t scratchAlignment = 64;

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

float lowestOutput(const Operator& op) {
  return op.relu ? 0.0F : -unbounded;
}

void requireSuccess(xnn_status status) {
  if (status == xnn_status_out_of_memory) throw ModelError("there is not enough memory for the network");
  if (status != xnn_status_success) throw ModelError("XNNPACK cannot execute the network");
}

/// `caches` are the arguments that only the newer interface has.
template <class... Caches>
xnn_status createConvolution(const Operator& op, const Shape& in, const Shape& out, xnn_operator_t* handle,
                             Caches... caches) {
  const EdgePadding edge = edgePadding(op, in);
  const bool depthwise = op.kind == OperatorKind::depthwise;
  return xnn_create_convolution2d_nhwc_f32(
      u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
      u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, depthwise ? u32(in.channels) : 1,
      depthwise ? 1 : size(in.channels), depthwise ? 1 : size(out.channels), size(in.channels),
      size(out.channels), op.weights.data(), op.bias.data(), lowestOutput(op), unbounded,
      depthwise ? XNN_FLAG_DEPTHWISE_CONVOLUTION : 0, caches..., handle);
}

/// `channels` likewise belong to the older one.
template <class... Channels>
xnn_status createPooling(const Operator& op, const Shape& in, xnn_operator_t* handle, Channels... channels) {
  const EdgePadding edge = edgePadding(op, in);
  return xnn_create_max_pooling2d_nhwc_f32(u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left),
                                           u32(op.kernelHeight), u32(op.kernelWidth), u32(op.stride),
                                           u32(op.stride), 1, 1, channels..., lowestOutput(op), unbounded, 0,
                                           handle);
}

#ifdef SENTREL_XNNPACK_RESHAPES

xnn_status create(const Operator& op, const Shape& in, const Shape& out, xnn_operator_t* handle) {
  switch (op.kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return createConvolution(op, in, out, handle, nullptr, nullptr);
    case OperatorKind::maxPool:
      return createPooling(op, in, handle);
    case OperatorKind::upsampleBilinear:
      return xnn_create_resize_bilinear2d_nhwc_f32(size(out.height), size(out.width), 0, handle);
    default:
      return xnn_status_unsupported_parameter;
  }
}

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
    case OperatorKind::upsampleBilinear:
      return xnn_reshape_resize_bilinear2d_nhwc_f32(handle, 1, height, width, channels, channels, channels,
                                                    &scratch.bytes, &scratch.alignment, nullptr);
    default:
      return xnn_status_unsupported_parameter;
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

xnn_status create(const Operator& op, const Shape& in, const Shape& out, xnn_operator_t* handle) {
  const std::size_t channels = size(in.channels);
  switch (op.kind) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return createConvolution(op, in, out, handle);
    case OperatorKind::maxPool:
      return createPooling(op, in, handle, channels, channels, channels);
    case OperatorKind::upsampleBilinear:
      return xnn_create_resize_bilinear2d_nhwc_f32(channels, channels, channels, 0, handle);
    default:
      return xnn_status_unsupported_parameter;
  }
}

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

}  // namespace

XnnpackLibrary::XnnpackLibrary() {
  requireSuccess(xnn_initialize(nullptr));
}

XnnpackLibrary::~XnnpackLibrary() {
  xnn_deinitialize();
}

XnnpackOperator::XnnpackOperator(const Operator& op, const Shape& in, const Shape& out) : kind_(op.kind) {
  xnn_operator_t handle = nullptr;
  const xnn_status status = create(op, in, out, &handle);
  handle_.reset(handle);
  requireSuccess(status);
}

bool XnnpackOperator::covers(OperatorKind kind) {
  return kind == OperatorKind::convolution || kind == OperatorKind::depthwise ||
         kind == OperatorKind::maxPool || kind == OperatorKind::upsampleBilinear;
}

bool XnnpackOperator::servesEverySize(const Operator& op) {
  return op.kind == OperatorKind::convolution && op.kernelHeight == 1 && op.kernelWidth == 1 &&
         op.stride == 1;
}

std::size_t XnnpackOperator::scratchBytes(const Shape& in) {
  Scratch scratch;
  requireSuccess(reshape(kind_, handle_.get(), in, scratch));
  if (scratch.alignment > scratchAlignment) requireSuccess(xnn_status_unsupported_parameter);
  return scratch.bytes;
}

bool XnnpackOperator::setUp(const Shape& in, std::byte* scratch, const float* input, float* output) {
  return bind(kind_, handle_.get(), in, scratch, input, output) == xnn_status_success;
}

bool XnnpackOperator::run() {
  return xnn_run_operator(handle_.get(), nullptr) == xnn_status_success;
}

void XnnpackOperator::Delete::operator()(xnn_operator* handle) const {
  xnn_delete_operator(handle);
}

}  // namespace sentrel::vision
