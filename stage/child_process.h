// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sentrel::test {

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
    std::filesystem::path log;            ///< standard output and error; /dev/null when empty
    std::optional<int> inheritedFd = {};  ///< stays open in the child under the same number
  };

  ChildProcess() = default;
  /// Throws std::runtime_error when the program cannot be found or started.
  explicit ChildProcess(const Command& command);
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
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
  int pidFd_ = -1;
  std::optional<int> status_;
  std::filesystem::path log_;
};

}  // namespace sentrel::test
