// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace sentrel::test {

/// Looks at a condition of another process every few milliseconds until it holds; false when the time is
/// over. The time is a limit for a broken machine, never a measure: make it generous.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition&& condition,
                             std::chrono::milliseconds timeout = std::chrono::seconds(20),
                             std::chrono::milliseconds interval = std::chrono::milliseconds(4)) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(interval);
  }
  return true;
}

/// Names and values of the environment that a child gets; nothing is inherited beside it.
using Environment = std::map<std::string, std::string>;

/// The environment of this process.
[[nodiscard]] Environment currentEnvironment();

/// A program started by a test. It ends with this object, and with the thread that started it: the kernel
/// ends it even when the test crashes, so that nothing is left behind. Start children on a thread that
/// outlives them.
class ChildProcess {
 public:
  struct Command {
    std::string program;  ///< a path, or a name looked up in the PATH of this process
    std::vector<std::string> arguments;
    Environment environment;
    std::filesystem::path log;  ///< standard output and error; /dev/null when empty
  };

  ChildProcess() = default;
  /// Throws std::runtime_error when nothing can be started. A program that is not there says so in its
  /// output.
  explicit ChildProcess(const Command& command);
  ~ChildProcess() { terminate(); }
  ChildProcess(ChildProcess&& other) noexcept { *this = std::move(other); }
  /// The former program is ended first.
  ChildProcess& operator=(ChildProcess&& other) noexcept;

  /// The process id; 0 before the start and after the end was noticed.
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] bool isRunning();

  /// Waits for the end and gives the exit status (128 + signal when a signal ended it), or nothing when the
  /// time is over.
  std::optional<int> waitForExit(std::chrono::milliseconds timeout);
  void signal(int number) const;
  /// SIGTERM, and SIGKILL when that is not followed within the grace.
  void terminate(std::chrono::milliseconds grace = std::chrono::seconds(3));
  void kill() { terminate(std::chrono::milliseconds(0)); }

  /// What the program has printed so far.
  [[nodiscard]] std::string output() const;

 private:
  pid_t pid_ = 0;
  std::optional<int> status_;
  std::filesystem::path log_;
};

/// What a running process has used so far and holds now, all its threads together.
struct ProcessUsage {
  double cpuSeconds = 0;  ///< processor time, user and system
  /// How often each thread that lives went on after waiting; the kernel forgets those of ended ones.
  std::map<pid_t, std::int64_t> wakeUps;
  double proportionalMib = 0;  ///< memory: its own, and its share of what it has in common with others
  /// That without the pages of files, of which its share changes with whoever else runs.
  double ownMib = 0;
  int threads = 0;
  std::map<std::string, int> descriptors;  ///< how many of each kind, by the name without its numbers

  /// Zeros for a process that does not run.
  [[nodiscard]] static ProcessUsage of(pid_t pid);

  /// Of all threads that still live.
  [[nodiscard]] std::int64_t wakeUpsSince(const ProcessUsage& earlier) const;
};

}  // namespace sentrel::test
