// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <string>

namespace sentrel::bench {

/// How many of a number of trials succeeded.
struct Share {
  int hits = 0;
  int trials = 0;

  void count(bool hit) {
    hits += hit ? 1 : 0;
    ++trials;
  }
  [[nodiscard]] double percent() const { return trials == 0 ? 0 : 100.0 * hits / trials; }

  /// "hits of trials, 95 % interval low..high": Wilson's score interval, in percent.
  [[nodiscard]] std::string interval() const {
    std::string text = std::to_string(hits) + " of " + std::to_string(trials);
    if (trials == 0) return text;
    constexpr double z = 1.959964;  // of a normal distribution's central 95 %
    const double n = trials;
    const double p = std::min(1.0, hits / n);
    const double centre = (p + z * z / (2 * n)) / (1 + z * z / n);
    const double half = z / (1 + z * z / n) * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n));
    const auto rounded = [](double share) {
      return std::to_string(std::round(share * 1000) / 10).substr(0, 4);
    };
    return text + ", 95 % interval " + rounded(std::max(0.0, centre - half)) + ".." +
           rounded(std::min(1.0, centre + half));
  }
};

}  // namespace sentrel::bench
