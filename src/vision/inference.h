// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "vision/network.h"

namespace sentrel::vision {

struct InputSize {
  int height = 0;
  int width = 0;
};

/// A network could not be run on one frame. Thrown by whoever runs it, and caught where the frame was given:
/// it never leaves the analysis queue.
struct InferenceFailure {};

/// A network ready to run at one input size. One thread.
class NetworkRunner {
 public:
  virtual ~NetworkRunner() = default;

  /// Where the picture goes: rows of pixels of channels, of the runner's size. The work space is shared by
  /// all runners of an engine: a run of another one overwrites this and every output.
  [[nodiscard]] virtual std::span<float> input() = 0;

  /// Executes the network on what `input` holds. False when it failed; then the outputs are undefined.
  [[nodiscard]] virtual bool run() = 0;

  [[nodiscard]] virtual std::size_t outputCount() const = 0;

  /// The result of the last run, in the order of the network's outputs. Its size is known before.
  [[nodiscard]] virtual std::span<const float> output(std::size_t index) const = 0;
};

/// Executes networks. What each network's runners have in common, packed weights above all, exists once.
class InferenceEngine {
 public:
  virtual ~InferenceEngine() = default;

  /// A runner for each size. The network is not needed afterwards. Runners stay usable while the engine
  /// lives. Throws ModelError.
  [[nodiscard]] virtual std::vector<std::unique_ptr<NetworkRunner>> prepare(
      const Network& network, std::span<const InputSize> sizes) = 0;
};

using MakeEngine = std::unique_ptr<InferenceEngine> (*)();

/// On XNNPACK, on one core of the processor; it allocates nothing per run. Throws ModelError.
[[nodiscard]] std::unique_ptr<InferenceEngine> makeInferenceEngine();

}  // namespace sentrel::vision
