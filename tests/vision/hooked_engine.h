// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "vision/inference.h"

namespace sentrel::test {

/// The real back end, whose runs a test can watch, change or let fail.
class HookedRunner final : public vision::NetworkRunner {
 public:
  /// Takes the place of a run. A test that sets it takes it back.
  static inline std::function<bool(NetworkRunner& real)> hook;

  explicit HookedRunner(std::unique_ptr<NetworkRunner> real) : real_(std::move(real)) {}
  std::span<float> input() override { return real_->input(); }
  bool run() override { return hook ? hook(*real_) : real_->run(); }
  [[nodiscard]] std::size_t outputCount() const override { return real_->outputCount(); }
  [[nodiscard]] std::span<const float> output(std::size_t index) const override {
    return real_->output(index);
  }

 private:
  std::unique_ptr<NetworkRunner> real_;
};

class HookedEngine final : public vision::InferenceEngine {
 public:
  static std::unique_ptr<InferenceEngine> make() { return std::make_unique<HookedEngine>(); }
  std::vector<std::unique_ptr<vision::NetworkRunner>> prepare(
      const vision::Network& network, std::span<const vision::InputSize> sizes) override {
    auto runners = real_->prepare(network, sizes);
    for (auto& runner : runners) runner = std::make_unique<HookedRunner>(std::move(runner));
    return runners;
  }

 private:
  std::unique_ptr<InferenceEngine> real_ = vision::makeInferenceEngine();
};

}  // namespace sentrel::test
