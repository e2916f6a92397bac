// SPDX-License-Identifier: Apache-2.0
#include "linux/hardening/self_examination.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "support/frame.h"

namespace sentrel {

namespace fs = std::filesystem;

namespace {

using Attempt = PrivacyFacts::Attempt;

constexpr std::size_t mostShown = std::size_t{16} * 1024;  // of a file's content
constexpr std::size_t mostKept = 50;

/// What the filter answers counts; another error says nothing of it.
Attempt attempt(std::string call, int error) {
  const char* name = error == 0 ? nullptr : ::strerrorname_np(error);
  return {std::move(call), name == nullptr ? "0" : name, error == EPERM};
}

Attempt tryToOpenSocket(int family, const char* name) {
  const int descriptor = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int error = descriptor < 0 ? errno : 0;
  if (descriptor >= 0) ::close(descriptor);
  return attempt(std::string("socket(") + name + ", SOCK_STREAM)", error);
}

Attempt tryToStartProgram() {
  std::array<char, 10> path{"/bin/true"};
  std::array<char*, 2> arguments{path.data(), nullptr};
  std::array<char*, 1> environment{nullptr};
  pid_t child = 0;
  const int error =
      ::posix_spawn(&child, path.data(), nullptr, nullptr, arguments.data(), environment.data());
  if (error == 0) ::waitpid(child, nullptr, 0);
  return attempt("posix_spawn(/bin/true)", error);
}

/// What stands behind `key` in a file of the kernel's.
std::string lineOf(const fs::path& file, std::string_view key) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (!line.starts_with(key)) continue;
    const auto begin = line.find_first_not_of(" \t", key.size());
    return begin == std::string::npos ? std::string() : line.substr(begin);
  }
  return {};
}

/// The number that it begins with; 0 where it begins with none.
int number(const std::string& words, int base = 10) {
  int value = 0;
  std::from_chars(words.data(), words.data() + words.size(), value, base);
  return value;
}

/// Memory that is shared by a descriptor is a file without a name.
bool liesInMemory(const fs::path& link, const struct stat& file) {
  struct statfs system {};
  return file.st_nlink == 0 && ::statfs(link.c_str(), &system) == 0 &&
         (system.f_type == TMPFS_MAGIC || system.f_type == HUGETLBFS_MAGIC);
}

std::vector<PrivacyFacts::OpenFile> filesOpenForWriting(const KeptPlaces& places) {
  std::vector<PrivacyFacts::OpenFile> found;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
    const fs::path& link = entry.path();
    const int flags = number(lineOf("/proc/self/fdinfo" / link.filename(), "flags:"), 8);
    struct stat file {};
    if ((flags & O_ACCMODE) == O_RDONLY || ::stat(link.c_str(), &file) != 0) continue;
    if (!S_ISREG(file.st_mode) || liesInMemory(link, file)) continue;
    const int descriptor = number(link.filename());
    const fs::path path = fs::read_symlink(link, error);
    const bool isOurs = std::ranges::find(places.folders, path.parent_path()) != places.folders.end();
    const bool takesMessages = descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO;
    found.push_back({descriptor, path.string(), isOurs || takesMessages});
  }
  std::ranges::sort(found, {}, &PrivacyFacts::OpenFile::descriptor);
  return found;
}

void addKept(const fs::path& path, std::vector<PrivacyFacts::KeptFile>& kept) {
  struct stat file {};
  if (path.empty() || kept.size() == mostKept || ::stat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode))
    return;
  std::string content(mostShown, '\0');
  std::ifstream stream(path, std::ios::binary);
  stream.read(content.data(), static_cast<std::streamsize>(content.size()));
  content.resize(static_cast<std::size_t>(stream.gcount()));
  kept.push_back({.path = path.string(),
                  .bytes = file.st_size,
                  .changedMs = file.st_mtim.tv_sec * std::int64_t{1000} + file.st_mtim.tv_nsec / 1'000'000,
                  .isPrivate = (file.st_mode & (S_IRWXG | S_IRWXO)) == 0,
                  .content = std::move(content)});
}

std::vector<PrivacyFacts::KeptFile> keptFiles(const KeptPlaces& places) {
  std::vector<PrivacyFacts::KeptFile> kept;
  std::error_code error;
  for (const fs::path& folder : places.folders) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder, error)) files.push_back(entry.path());
    std::ranges::sort(files);
    for (const fs::path& file : files) addKept(file, kept);
  }
  for (const fs::path& file : places.files) addKept(file, kept);
  return kept;
}

}  // namespace

PrivacyFacts examineProcess(const KeptPlaces& places) {
  PrivacyFacts facts;
  facts.process = ::getpid();
  facts.filterMode = number(lineOf("/proc/self/status", "Seccomp:"));
  facts.sockets = {tryToOpenSocket(AF_INET, "AF_INET"), tryToOpenSocket(AF_INET6, "AF_INET6")};
  facts.program = tryToStartProgram();
  facts.coreDumps = lineOf("/proc/self/coredump_filter", "");
  facts.isDumpable = ::prctl(PR_GET_DUMPABLE) == 1;
  facts.openForWriting = filesOpenForWriting(places);
  facts.keptFiles = keptFiles(places);
  facts.framesInMemory = framesInMemory();
  return facts;
}

void SelfExamination::ask(std::function<void(const PrivacyFacts& facts)> told) {
  parts_.queue->async([parts = parts_, told = std::move(told)] {
    PrivacyFacts facts = examineProcess(parts.places);
    if (const auto open = parts.captureSession->openFor()) facts.cameraOpenMs = open->count();
    parts.mainLoop->post([told, facts = std::move(facts)] { told(facts); });
  });
}

}  // namespace sentrel
