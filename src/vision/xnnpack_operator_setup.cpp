// SPDX-License-Identifier: Apache-2.0
//
// For the XNNPACK in which an operator is created and set up.
#include "vision/xnnpack_call.h"
#include "vision/xnnpack_operator.h"

namespace sentrel::vision {
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
          channels, size(out.channels), op.weights.data(), op.bias.data(), lowest, unbounded, 0, &handle);
      break;
    case OperatorKind::depthwise:
      status = xnn_create_convolution2d_nhwc_f32(u32(edge.top), u32(edge.right), u32(edge.bottom),
                                                 u32(edge.left), u32(op.kernelHeight), u32(op.kernelWidth),
                                                 u32(op.stride), u32(op.stride), 1, 1, u32(in.channels), 1, 1,
                                                 channels, channels, op.weights.data(), op.bias.data(),
                                                 lowest, unbounded, XNN_FLAG_DEPTHWISE_CONVOLUTION, &handle);
      break;
    case OperatorKind::maxPool:
      status = xnn_create_max_pooling2d_nhwc_f32(u32(edge.top), u32(edge.right), u32(edge.bottom),
                                                 u32(edge.left), u32(op.kernelHeight), u32(op.kernelWidth),
                                                 u32(op.stride), u32(op.stride), 1, 1, channels, channels,
                                                 channels, lowest, unbounded, 0, &handle);
      break;
    case OperatorKind::upsampleBilinear:
      status = xnn_create_resize_bilinear2d_nhwc_f32(channels, channels, channels, 0, &handle);
      break;
    default:
      break;
  }
  handle_.reset(handle);
  requireSuccess(status);
}

std::size_t XnnpackOperator::scratchBytes(const Shape&) {
  return 0;
}

bool XnnpackOperator::setUp(const Shape& in, std::byte*, const float* input, float* output) {
  const std::size_t height = size(in.height);
  const std::size_t width = size(in.width);
  switch (kind_) {
    case OperatorKind::convolution:
    case OperatorKind::depthwise:
      return xnn_setup_convolution2d_nhwc_f32(handle_.get(), 1, height, width, input, output, nullptr) ==
             xnn_status_success;
    case OperatorKind::maxPool:
      return xnn_setup_max_pooling2d_nhwc_f32(handle_.get(), 1, height, width, input, output, nullptr) ==
             xnn_status_success;
    case OperatorKind::upsampleBilinear:
      return xnn_setup_resize_bilinear2d_nhwc_f32(handle_.get(), 1, height, width, height * 2, width * 2,
                                                  input, output, nullptr) == xnn_status_success;
    default:
      return false;
  }
}

}  // namespace sentrel::vision
