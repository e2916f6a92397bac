// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include "linux/desktop/defaults_file_text.h"

namespace sentrel {

/// What stands in the place of the defaults file.
struct DefaultsFileContent {
  std::optional<std::string> bytes;  ///< the file as it is, when it could be read whole
  StoredValues values;               ///< what can be understood of it
  bool damaged = false;              ///< something stands there that is no defaults file, or not a whole one
  std::error_code error;             ///< why nothing is known of it; says nothing about what stands there
};

/// Never waits for anything but the disk, whatever stands there. Any thread.
DefaultsFileContent readDefaultsFile(const std::filesystem::path& path);

/// In words, for standard error.
[[nodiscard]] std::string described(const std::filesystem::path& path, const std::error_code& error);

/// What the program set since its start, by key: the JSON text, or none for a removed key.
using DefaultsChanges = std::map<std::string, std::optional<std::string>, std::less<>>;

/// The defaults file on the disk. Every file it writes is complete before it gets its name, so that a kill or
/// a full disk leaves the old one. Files are 0600, their folder 0700. Store queue.
class DefaultsFileStore {
 public:
  struct Outcome {
    bool damaged = false;              ///< a damaged file was set aside
    std::optional<std::string> error;  ///< why the file is not up to date
  };

  /// `loaded` is what was read at the program's start; where nothing could be, nothing is ever written: the
  /// program knows none of the person's values, and would replace them all. An empty `path` means that there
  /// is no place for the file.
  DefaultsFileStore(std::filesystem::path path, DefaultsFileContent loaded);

  /// Closes folder and file to others, where they are open to them; gives why they stay open.
  [[nodiscard]] std::optional<std::string> tighten() const;

  /// Brings the file up to date: `changes` over what the file holds now, so that the other lines stay as a
  /// person or another process left them, or over `loaded` where the file is gone or damaged. What is damaged
  /// is kept first, as "<name>.damaged-N": the newest five.
  Outcome update(const DefaultsChanges& changes);

 private:
  Outcome updateLocked(const DefaultsChanges& changes);
  [[nodiscard]] std::optional<std::string> setAside(const DefaultsFileContent& content) const;

  std::filesystem::path path_;
  DefaultsFileContent loaded_;
  bool swept_ = false;
};

}  // namespace sentrel
