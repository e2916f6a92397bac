// SPDX-License-Identifier: Apache-2.0
//
// For the XNNPACK in which an operator is created, reshaped and set up.
#include "vision/xnnpack_call.h"
#include "vision/xnnpack_operator.h"

namespace sentrel::vision {
namespace {

constexpr std::size_t scratchAlignment = 64;

struct Scratch {
  std::size_t bytes = 0;
  std::size_t alignment = 1;
};

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

}  // namespace

XnnpackOperator::XnnpackOperator(const Operator& op, const Shape& in, const Shape& out) : kind_(op.kind) {
  const EdgePadding edge = edgePadding(op, in);
  const float lowest = op.relu ? 0.0F : -unbounded;
  const std::size_t channels = size(in.channels);
  xnn_operator_t handle = nullptr;
  xnn_status status = xnn_status_unsupported_parameter;
  switch (op.kind) {
    case OperatorKind::convolution:
      status = xnn_create_convolution2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, 1, channels, size(out.channels),
          channels, size(out.channels), op.weights.data(), op.bias.data(), lowest, unbounded, 0, nullptr,
          nullptr, &handle);
      break;
    case OperatorKind::depthwise:
      status = xnn_create_convolution2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, u32(in.channels), 1, 1, channels,
          channels, op.weights.data(), op.bias.data(), lowest, unbounded, XNN_FLAG_DEPTHWISE_CONVOLUTION,
          nullptr, nullptr, &handle);
      break;
    case OperatorKind::maxPool:
      status = xnn_create_max_pooling2d_nhwc_f32(
          u32(edge.top), u32(edge.right), u32(edge.bottom), u32(edge.left), u32(op.kernelHeight),
          u32(op.kernelWidth), u32(op.stride), u32(op.stride), 1, 1, lowest, unbounded, 0, &handle);
      break;
    case OperatorKind::upsampleBilinear:
      status = xnn_create_resize_bilinear2d_nhwc_f32(size(out.height), size(out.width), 0, &handle);
      break;
    default:
      break;
  }
  handle_.reset(handle);
  requireSuccess(status);
}

std::size_t XnnpackOperator::scratchBytes(const Shape& in) {
  Scratch scratch;
  requireSuccess(reshape(kind_, handle_.get(), in, scratch));
  if (scratch.alignment > scratchAlignment) requireSuccess(xnn_status_unsupported_parameter);
  return scratch.bytes;
}

bool XnnpackOperator::setUp(const Shape& in, std::byte* scratch, const float* input, float* output) {
  Scratch needed;
  if (reshape(kind_, handle_.get(), in, needed) != xnn_status_success) return false;
  switch (kind_) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_setup_convolution2d_nhwc_f32(handle_.get(), scratch, input, output) == xnn_status_success;
    case OperatorKind::maxPool:
      return xnn_setup_max_pooling2d_nhwc_f32(handle_.get(), input, output) == xnn_status_success;
    case OperatorKind::upsampleBilinear:
      return xnn_setup_resize_bilinear2d_nhwc_f32(handle_.get(), scratch, input, output) ==
             xnn_status_success;
    default:
      return false;
  }
}

}  // namespace sentrel::vision
