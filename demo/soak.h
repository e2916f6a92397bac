// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "soak_life.h"
#include "stage/child_process.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

/// A random life with the program, an hour's happenings in a minute, between rests at which nothing may have
/// been left behind. The same seed gives the same life, as far as the machine is as quick. Main thread.
class Soak {
 public:
  struct Options {
    std::chrono::minutes length;
    unsigned seed;
    std::filesystem::path folder;  ///< gets the log and what the program printed and kept
    std::string program;
    const std::atomic<bool>& interrupted;  ///< the person wants an end
  };
  /// The desktop is what `SoakLife` needs; the folder is empty.
  Soak(HeadlessDesktop& desktop, const Options& options);

  /// Lives to the end; the exit code.
  int run();

 private:
  [[nodiscard]] bool goesOn() const;
  void rest();
  /// Waits for the state, and compares what is held with the rests before.
  void restIn(const std::string& state);
  [[nodiscard]] ProcessUsage settledUsage();
  void compareHours();
  void compareMemory();
  void keepPapers();

  HeadlessDesktop& desktop_;
  const Options options_;
  SoakJournal journal_;
  SoakLife life_;
  std::map<std::string, std::vector<ProcessUsage>> rests_;  // by state, since the first tenth
};

}  // namespace sentrel::test
