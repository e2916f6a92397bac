// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numeric>
#include <string>
#include <vector>

namespace sentrel::bench {

/// One figure, as every measurement prints it: "name value".
inline void print(const std::string& name, double value, int digits = 2) {
  std::printf("%s %.*f\n", name.c_str(), digits, value);
  std::fflush(stdout);
}

/// Nearest rank; `share` from 0 to 1.
inline double percentile(std::vector<double> values, double share) {
  std::ranges::sort(values);
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  return values.at(std::max<std::size_t>(rank, 1) - 1);
}

inline double median(std::vector<double> values) {
  return percentile(std::move(values), 0.5);
}

/// The mean of some runs, with its 95 % interval as a line of its own.
inline void printRuns(const std::string& name, const std::vector<double>& runs, int digits = 2) {
  constexpr double t = 2.776;  // of Student's distribution for five runs; more are surer than is said
  const auto count = static_cast<double>(runs.size());
  const double mean = std::accumulate(runs.begin(), runs.end(), 0.0) / count;
  double squares = 0;
  for (const double run : runs) squares += (run - mean) * (run - mean);
  const double half = t * std::sqrt(squares / (count - 1) / count);
  std::printf("# %s: %zu runs, 95 %% interval %.*f..%.*f\n", name.c_str(), runs.size(), digits,
              std::max(0.0, mean - half), digits, mean + half);
  print(name, mean, digits);
}

inline double milliseconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}
inline double millisecondsSince(std::chrono::steady_clock::time_point begin) {
  return milliseconds(std::chrono::steady_clock::now() - begin);
}

/// Processor time of this thread so far.
inline double threadMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Processor time of all threads of this process so far.
inline double cpuSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

}  // namespace sentrel::bench
