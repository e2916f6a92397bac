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

/// A network's back end failed on one frame. Thrown by who runs it, and caught where the frame was given: it
/// never leaves the analysis queue.
struct InferenceFailure {};

/// A network ready to run at one input size. One thread.
class NetworkRunner {
 public:
  virtual ~NetworkRunner() = default;

  /// Where the picture goes: rows of pixels of channels, of the runner's size. The work space is shared by
  /// all runners of an engine: a run of another one overwrites this and every output.
  [[nodiscard]] virtual std::span<float> input() = 0;

  /// Executes the network on what `input` holds. False when the back end failed; then the outputs are
  /// undefined.
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

/// On XNNPACK: the quick one, which allocates nothing per run.
[[nodiscard]] std::unique_ptr<InferenceEngine> makeXnnpackEngine();

/// On OpenCV's dnn module, whose interface is promised to stay: two to three times slower, with memory of its
/// own for every size.
[[nodiscard]] std::unique_ptr<InferenceEngine> makeOpencvEngine();

/// The one of them that this build was configured with.
[[nodiscard]] std::unique_ptr<InferenceEngine> makeInferenceEngine();

struct NamedEngine {
  const char* name;
  MakeEngine make;
};

/// All that were built, for what compares them. Linked with the target `sentrel_engines`, never into the
/// program, which loads the library of its one engine only.
[[nodiscard]] std::span<const NamedEngine> builtEngines();

}  // namespace sentrel::vision
