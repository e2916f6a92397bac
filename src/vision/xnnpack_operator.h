// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

#include "vision/network.h"

struct xnn_operator;

namespace sentrel::vision {

/// The library, ready for use while this lives.
class XnnpackLibrary {
 public:
  /// Throws ModelError.
  XnnpackLibrary();
  ~XnnpackLibrary();
  XnnpackLibrary(const XnnpackLibrary&) = delete;
  XnnpackLibrary& operator=(const XnnpackLibrary&) = delete;
};

/// What XNNPACK is asked for: convolutions, pooling and upsampling, one operator at a time, not its graphs.
/// An operator that is created once, its weights packed, can be set up again and again. One thread.
class XnnpackOperator {
 public:
  /// Throws ModelError. The operator's other data is not needed afterwards.
  XnnpackOperator(const Operator& op, const Shape& in, const Shape& out);

  /// Whether the library executes operators of this kind for us.
  [[nodiscard]] static bool covers(OperatorKind kind);

  /// Whether one operator serves inputs of any height and width. A convolution of single pixels is a matrix
  /// product: it holds nothing that depends on the picture's size.
  [[nodiscard]] static bool servesEverySize(const Operator& op);

  /// Scratch memory that a run at this size needs, in bytes. Throws ModelError.
  [[nodiscard]] std::size_t scratchBytes(const Shape& in);

  /// Says where the next runs read and write, and how much. Memory is aligned to 64 bytes. False where the
  /// library refuses.
  [[nodiscard]] bool setUp(const Shape& in, std::byte* scratch, const float* input, float* output);

  [[nodiscard]] bool run();

 private:
  struct Delete {
    void operator()(xnn_operator* handle) const;
  };

  OperatorKind kind_;
  std::unique_ptr<xnn_operator, Delete> handle_;
};

}  // namespace sentrel::vision
