// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "linux/desktop/defaults_file_parser.h"

namespace sentrel {

namespace fs = std::filesystem;

namespace {

/// A thousand times what the program writes; more than that is somebody else's file.
constexpr std::size_t largestFile = 1'000'000;
constexpr std::size_t keptDamagedFiles = 5;
constexpr auto lockPatience = std::chrono::milliseconds(250);
constexpr auto lockRetry = std::chrono::milliseconds(5);
constexpr std::string_view unfinishedMark = ".new-";
constexpr std::string_view damagedMark = ".damaged-";

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_;
};

/// Keeps other processes from merging their changes into the file at the same time. The kernel ends it with
/// its holder, however that ends; a lock file (as of QLockFile) would outlive a kill and hold up the next
/// start.
class FolderLock {
 public:
  /// Tries for a short time; a file system without locks gives none.
  explicit FolderLock(const fs::path& folder)
      : descriptor_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const auto end = std::chrono::steady_clock::now() + lockPatience;
    for (;;) {
      isHeld_ = ::flock(descriptor_.get(), LOCK_EX | LOCK_NB) == 0;
      if (isHeld_ || errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) return;
      std::this_thread::sleep_for(lockRetry);
    }
  }
  [[nodiscard]] bool isHeld() const { return isHeld_; }

 private:
  Descriptor descriptor_;
  bool isHeld_ = false;
};

std::error_code lastError() {
  return {errno, std::generic_category()};
}

/// Reads to the end, or to one byte more than a defaults file may have.
std::error_code readAll(int descriptor, std::string& bytes) {
  std::array<char, 16384> buffer{};
  while (bytes.size() <= largestFile) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count == 0) return {};
    if (count > 0) bytes.append(buffer.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) return lastError();
  }
  return {};
}

std::error_code writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) return lastError();
  }
  return ::fsync(descriptor) == 0 ? std::error_code() : lastError();
}

/// The file itself, where `path` is a link to one.
fs::path targetOf(const fs::path& path) {
  std::error_code notThere;
  const fs::path target = fs::canonical(path, notThere);
  return notThere ? path : target;
}

/// Puts a complete file in the place of `path`, or changes nothing. A link stays and its target is replaced.
/// Unlike a QSaveFile, what a kill leaves behind bears a name that is nobody's own backup.
std::optional<std::string> replaceFile(const fs::path& path, std::string_view bytes) {
  const fs::path target = targetOf(path);
  std::string unfinished = target.string() + std::string(unfinishedMark) + "XXXXXX";
  const Descriptor file(::mkostemp(unfinished.data(), O_CLOEXEC));  // made with mode 0600
  if (file.get() < 0) return described(target, lastError());
  std::error_code error = writeAll(file.get(), bytes);
  if (!error && ::rename(unfinished.c_str(), target.c_str()) != 0) error = lastError();
  if (!error) return std::nullopt;
  ::unlink(unfinished.c_str());
  return described(target, error);
}

/// The files beside `path` whose name is the one of `path`, `mark` and something.
std::vector<fs::path> siblings(const fs::path& path, std::string_view mark) {
  std::vector<fs::path> found;
  const std::string prefix = path.filename().string() + std::string(mark);
  std::error_code error;
  for (fs::directory_iterator entry(path.parent_path(), error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string().starts_with(prefix)) found.push_back(entry->path());
  }
  return found;
}

/// The files set aside so far, by their number.
std::map<unsigned, fs::path> damagedFiles(const fs::path& path) {
  std::map<unsigned, fs::path> numbered;
  for (fs::path& file : siblings(path, damagedMark)) {
    const std::string name = file.filename().string();
    const char* digits = name.data() + path.filename().string().size() + damagedMark.size();
    unsigned number = 0;
    const auto result = std::from_chars(digits, name.data() + name.size(), number);
    if (result.ec == std::errc() && result.ptr == name.data() + name.size())
      numbered[number] = std::move(file);
  }
  return numbered;
}

/// Makes what is missing of the folder, closed to others (XDG Base Directory).
std::error_code makeFolder(const fs::path& folder) {
  std::error_code ignored;
  if (fs::is_directory(folder, ignored)) return {};
  if (folder.has_relative_path()) {
    if (const auto error = makeFolder(folder.parent_path())) return error;
  }
  return ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST ? std::error_code() : lastError();
}

/// Takes from others what they may do with a folder or file of the person's; leaves alone what is anything
/// else, or is not there.
std::error_code closeToOthers(const fs::path& path) {
  constexpr mode_t others = S_IRWXG | S_IRWXO;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  const bool isTheirs = (S_ISDIR(status.st_mode) || S_ISREG(status.st_mode)) && status.st_uid == ::geteuid();
  if (!isTheirs || (status.st_mode & others) == 0) return {};
  return ::chmod(path.c_str(), status.st_mode & 07777U & ~others) == 0 ? std::error_code() : lastError();
}

}  // namespace

std::string described(const fs::path& path, const std::error_code& error) {
  return path.string() + ": " + error.message();
}

DefaultsFileContent readDefaultsFile(const fs::path& path) {
  DefaultsFileContent content;
  // Not to wait for the other end, should it be a pipe.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) {
    const std::error_code error = lastError();
    std::error_code ignored;
    const bool dangling = error == std::errc::no_such_file_or_directory && fs::is_symlink(path, ignored);
    const bool unusable = error == std::errc::permission_denied ||
                          error == std::errc::no_such_device_or_address ||
                          error == std::errc::too_many_symbolic_link_levels;
    content.damaged = dangling || unusable;
    const bool absent = error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
    if (!content.damaged && !absent) content.error = error;
    return content;
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) {
    content.error = lastError();
    return content;
  }
  if (!S_ISREG(status.st_mode)) {
    content.damaged = true;
    return content;
  }
  std::string bytes;
  content.error = readAll(file.get(), bytes);
  if (content.error) return content;
  ParsedDefaults parsed = parseDefaultsFile(std::string_view(bytes).substr(0, largestFile));
  content.values = std::move(parsed.values);
  content.damaged = parsed.damaged || bytes.size() > largestFile;
  if (bytes.size() <= largestFile) content.bytes = std::move(bytes);
  return content;
}

DefaultsFileStore::DefaultsFileStore(fs::path path, DefaultsFileContent loaded)
    : path_(std::move(path)), loaded_(std::move(loaded)) {}

std::optional<std::string> DefaultsFileStore::tighten() const {
  for (const fs::path& place : {path_.parent_path(), path_}) {
    if (const auto error = closeToOthers(place)) return described(place, error);
  }
  return {};
}

DefaultsFileStore::Outcome DefaultsFileStore::update(const DefaultsChanges& changes) {
  if (path_.empty()) return {.error = "there is no home folder"};
  if (loaded_.error) return {.error = described(path_, loaded_.error)};
  if (const auto error = makeFolder(path_.parent_path())) {
    return {.error = described(path_.parent_path(), error)};
  }
  const FolderLock lock(path_.parent_path());
  // Whoever keeps it longer hangs. Without the lock one of two changes could be lost, never a file.
  if (lock.isHeld() && !std::exchange(swept_, true)) {
    std::error_code ignored;
    for (const fs::path& file : siblings(targetOf(path_), unfinishedMark)) fs::remove(file, ignored);
  }
  return updateLocked(changes);
}

DefaultsFileStore::Outcome DefaultsFileStore::updateLocked(const DefaultsChanges& changes) {
  DefaultsFileContent content = readDefaultsFile(path_);
  if (content.error) return {.error = described(path_, content.error)};
  // A file that the person made read-only is theirs, also where the folder would let us replace it.
  if (content.bytes && ::faccessat(AT_FDCWD, path_.c_str(), W_OK, AT_EACCESS) != 0) {
    return {.error = described(path_, lastError())};
  }
  if (content.damaged) {
    if (auto error = setAside(content)) return {.error = std::move(error)};
  }
  StoredValues values = std::move(content.values);
  if (!content.bytes || content.damaged) values.insert(loaded_.values.begin(), loaded_.values.end());
  for (const auto& [key, text] : changes) {
    if (text) {
      values[key].text = *text;
    } else {
      values.erase(key);
    }
  }
  const std::string text = defaultsFileText(values);
  Outcome outcome{.damaged = content.damaged, .error = {}};
  if (content.bytes != text) outcome.error = replaceFile(path_, text);
  return outcome;
}

std::optional<std::string> DefaultsFileStore::setAside(const DefaultsFileContent& content) const {
  auto kept = damagedFiles(path_);
  // The same damage again: the last attempt to mend the file failed.
  if (content.bytes && !kept.empty() && readDefaultsFile(kept.rbegin()->second).bytes == content.bytes)
    return {};
  const unsigned number = kept.empty() ? 1 : kept.rbegin()->first + 1;
  fs::path aside = path_;
  aside += std::string(damagedMark) + std::to_string(number);
  if (content.bytes) {
    if (auto error = replaceFile(aside, *content.bytes)) return error;
  } else if (::rename(path_.c_str(), aside.c_str()) != 0) {
    return described(path_, lastError());
  }
  std::fprintf(stderr, "sentrel: the settings file was damaged; it is kept as %s\n", aside.c_str());
  kept[number] = std::move(aside);
  std::error_code ignored;  // a folder that somebody put there stays
  for (; kept.size() > keptDamagedFiles; kept.erase(kept.begin())) fs::remove(kept.begin()->second, ignored);
  return {};
}

}  // namespace sentrel
