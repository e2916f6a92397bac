// SPDX-License-Identifier: Apache-2.0
#include "stage/child_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace sentrel::test {

namespace fs = std::filesystem;

namespace {

/// Pointers into the given strings, as exec wants them.
std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (auto& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// Runs between fork and exec, where only calls that a signal handler may make are allowed.
[[noreturn]] void becomeChild(char* const* arguments, char* const* environment, int output, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);  // the parent died before the kernel knew what to do
  ::setpgid(0, 0);  // the keys that end the parent leave it to the parent to end this one
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(null, STDIN_FILENO);
  // What the parent was given by its own, a test's log for example.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  ::execvpe(arguments[0], arguments, environment);
  constexpr std::string_view words = "the program cannot be started\n";
  if (::write(STDERR_FILENO, words.data(), words.size()) < 0) ::_exit(126);
  ::_exit(127);
}

}  // namespace

Environment currentEnvironment() {
  Environment result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const auto equals = text.find('=');
    if (equals != std::string::npos) result[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return result;
}

ChildProcess::ChildProcess(const Command& command) : log_(command.log) {
  std::vector<std::string> words{command.program};
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : command.environment) variables.push_back(name + "=" + value);
  const auto argv = pointers(words);
  const auto envp = pointers(variables);
  const std::string log = log_.empty() ? "/dev/null" : log_.string();
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (output < 0) throw std::runtime_error("cannot write " + log + ": " + std::strerror(errno));

  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) becomeChild(argv.data(), envp.data(), output, parent);
  const int error = errno;
  ::close(output);
  if (child < 0) throw std::runtime_error("cannot start " + command.program + ": " + std::strerror(error));
  pid_ = child;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this == &other) return *this;
  terminate();
  pid_ = std::exchange(other.pid_, 0);
  status_ = std::exchange(other.status_, std::nullopt);
  log_ = std::move(other.log_);
  return *this;
}

bool ChildProcess::isRunning() {
  return pid_ > 0 && !waitForExit(std::chrono::milliseconds(0));
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
  const auto hasEnded = [this] {
    if (pid_ == 0) return true;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == 0) return false;
    status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    pid_ = 0;
    return true;
  };
  (void)waitUntil(hasEnded, timeout, std::chrono::milliseconds(1));
  return status_;
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

void ChildProcess::terminate(std::chrono::milliseconds grace) {
  if (!isRunning()) return;
  if (grace.count() > 0) {
    signal(SIGTERM);
    if (waitForExit(grace)) return;
  }
  signal(SIGKILL);
  // SIGKILL is final, but a process in an uninterruptible wait takes its time.
  waitForExit(std::chrono::seconds(10));
}

std::string ChildProcess::output() const {
  std::ifstream file(log_);
  return {std::istreambuf_iterator<char>(file), {}};
}

ProcessUsage ProcessUsage::of(pid_t pid) {
  const fs::path process = fs::path("/proc") / std::to_string(pid);
  ProcessUsage usage;
  std::error_code error;
  // The scheduler's own count, with ended threads; the ticks of "stat" miss what is shorter than a tick.
  clockid_t clock = 0;
  timespec used{};
  if (clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0)
    usage.cpuSeconds = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  for (const auto& task : fs::directory_iterator(process / "task", error)) {
    ++usage.threads;
    const auto thread = static_cast<pid_t>(std::stol(task.path().filename().string()));
    std::ifstream status(task.path() / "status");
    for (std::string name; status >> name; status.ignore(256, '\n')) {
      std::int64_t switches = 0;
      if (name == "voluntary_ctxt_switches:" && status >> switches) usage.wakeUps[thread] = switches;
    }
  }
  for (const auto& entry : fs::directory_iterator(process / "fd", error)) {
    const std::string kind = fs::read_symlink(entry.path(), error).string();
    ++usage.descriptors[kind.substr(0, kind.find_first_of("0123456789"))];
  }
  std::ifstream memory(process / "smaps_rollup");
  memory.ignore(256, '\n');
  for (std::string name; memory >> name; memory.ignore(256, '\n')) {
    double kib = 0;
    if (name == "Pss:" && memory >> kib) usage.proportionalMib = kib / 1024;
    if ((name == "Pss_Anon:" || name == "Pss_Shmem:") && memory >> kib) usage.ownMib += kib / 1024;
  }
  return usage;
}

std::int64_t ProcessUsage::wakeUpsSince(const ProcessUsage& earlier) const {
  std::int64_t sum = 0;
  for (const auto& [thread, count] : wakeUps) {
    const auto before = earlier.wakeUps.find(thread);
    sum += before == earlier.wakeUps.end() ? count : count - before->second;
  }
  return sum;
}

}  // namespace sentrel::test
