// SPDX-License-Identifier: Apache-2.0
//
// What both interfaces of the library share.
#include "vision/xnnpack_operator.h"

#include "vision/xnnpack_call.h"

namespace sentrel::vision {

XnnpackLibrary::XnnpackLibrary() {
  requireSuccess(xnn_initialize(nullptr));
}

XnnpackLibrary::~XnnpackLibrary() {
  xnn_deinitialize();
}

bool XnnpackOperator::covers(OperatorKind kind) {
  return kind == OperatorKind::convolution || kind == OperatorKind::depthwise ||
         kind == OperatorKind::maxPool || kind == OperatorKind::upsampleBilinear;
}

bool XnnpackOperator::servesEverySize(const Operator& op) {
  return op.kind == OperatorKind::convolution && op.kernelHeight == 1 && op.kernelWidth == 1 &&
         op.stride == 1;
}

bool XnnpackOperator::run() {
  return xnn_run_operator(handle_.get(), nullptr) == xnn_status_success;
}

void XnnpackOperator::Delete::operator()(xnn_operator* handle) const {
  xnn_delete_operator(handle);
}

}  // namespace sentrel::vision
