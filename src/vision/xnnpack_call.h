// SPDX-License-Identifier: Apache-2.0
#pragma once

// What calls of XNNPACK need, whichever interface the library has. Included by the adapter's source files
// only.
#include <xnnpack.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include "vision/model_error.h"

namespace sentrel::vision {

constexpr float unbounded = std::numeric_limits<float>::infinity();

inline std::uint32_t u32(int value) {
  return static_cast<std::uint32_t>(value);
}
inline std::size_t size(int value) {
  return static_cast<std::size_t>(value);
}

/// Throws ModelError.
inline void requireSuccess(xnn_status status) {
  if (status == xnn_status_out_of_memory) throw ModelError("there is not enough memory for the network");
  if (status != xnn_status_success) throw ModelError("XNNPACK cannot execute the network");
}

}  // namespace sentrel::vision
