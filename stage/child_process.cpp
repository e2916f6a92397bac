// SPDX-License-Identifier: Apache-2.0
#include "stage/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace sentrel::test {

namespace {

std::string findInPath(const std::string& program) {
  if (program.find('/') != std::string::npos) return program;
  const char* path = ::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string candidate = folder + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  throw std::runtime_error(program + " is not installed");
}

/// Pointers into the given strings, as exec wants them.
std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (auto& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// Runs between fork and exec, where only calls that a signal handler may make are allowed.
[[noreturn]] void becomeChild(const char* program, char* const* arguments, char* const* environment,
                              int output, int inheritedFd, pid_t parent) {
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
  if (inheritedFd >= 0) ::fcntl(inheritedFd, F_SETFD, 0);
  ::execve(program, arguments, environment);
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
  const std::string program = findInPath(command.program);
  std::vector<std::string> arguments{command.program};
  arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> environment;
  for (const auto& [name, value] : command.environment) environment.push_back(name + "=" + value);
  const auto argv = pointers(arguments);
  const auto envp = pointers(environment);

  const std::string log = log_.empty() ? "/dev/null" : log_.string();
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (output < 0) throw std::runtime_error("cannot write " + log + ": " + std::strerror(errno));

  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ == 0) {
    becomeChild(program.c_str(), argv.data(), envp.data(), output, command.inheritedFd.value_or(-1), parent);
  }
  const int error = errno;
  ::close(output);
  if (pid_ < 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
  // Not through <sys/pidfd.h>, whose declaration lacks C linkage in glibc 2.36.
  pidFd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
}

ChildProcess::~ChildProcess() {
  terminate();
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)),
      pidFd_(std::exchange(other.pidFd_, -1)),
      status_(std::exchange(other.status_, std::nullopt)),
      log_(std::move(other.log_)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this != &other) {
    terminate();
    pid_ = std::exchange(other.pid_, 0);
    pidFd_ = std::exchange(other.pidFd_, -1);
    status_ = std::exchange(other.status_, std::nullopt);
    log_ = std::move(other.log_);
  }
  return *this;
}

bool ChildProcess::isRunning() {
  return pid_ > 0 && !waitForExit(std::chrono::milliseconds(0));
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + timeout;
  while (pid_ > 0) {
    int status = 0;
    const pid_t reaped = ::waitpid(pid_, &status, WNOHANG);
    if (reaped == pid_ || (reaped < 0 && errno == ECHILD)) {
      status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
      pid_ = 0;
      if (pidFd_ >= 0) ::close(std::exchange(pidFd_, -1));
      break;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd ended{.fd = pidFd_, .events = POLLIN, .revents = 0};
    ::poll(&ended, 1, static_cast<int>(left.count()));
  }
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

}  // namespace sentrel::test
