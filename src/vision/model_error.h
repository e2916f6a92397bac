// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace sentrel::vision {

/// Why a model cannot be used. Thrown while models are loaded, and caught by whoever loads them: it never
/// leaves the analysis queue.
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace sentrel::vision
