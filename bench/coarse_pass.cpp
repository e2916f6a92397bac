// SPDX-License-Identifier: Apache-2.0
#include "coarse_pass.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "figures.h"

namespace sentrel::bench {

CoarsePass::CoarsePass(const vision::Models& models)
    : runner_(
          std::move(engine_->prepare(models.detection, std::array{vision::InputSize{160, 192}}).front())) {
  std::ranges::fill(runner_->input(), 0.1F);
}

double CoarsePass::milliseconds() {
  (void)runner_->run();  // what other work left in the caches does not count
  std::vector<double> passes(9);
  for (double& pass : passes) {
    const double begin = threadMilliseconds();
    if (!runner_->run()) throw vision::InferenceFailure();
    pass = threadMilliseconds() - begin;
  }
  return median(passes);
}

}  // namespace sentrel::bench
