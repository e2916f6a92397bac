// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArrayView>
#include <QString>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

// The person's own files, which nobody else may read. Any thread; every call may wait for the disk.

namespace sentrel {

/// "$XDG_CONFIG_HOME", by default "~/.config"; empty when there is no home.
[[nodiscard]] std::filesystem::path personalConfigFolder();
/// "$XDG_STATE_HOME", by default "~/.local/state"; empty when there is no home.
[[nodiscard]] std::filesystem::path personalStateFolder();

/// The path as Qt has it.
[[nodiscard]] QString nameOf(const std::filesystem::path& path);

// What went wrong with a file, for a log line.
[[nodiscard]] std::string failure(const std::filesystem::path& path, const QString& reason);
[[nodiscard]] std::string failure(const std::filesystem::path& path, const std::error_code& error);

/// Makes what is missing of the folder, closed to others (XDG Base Directory).
[[nodiscard]] std::error_code makeFolder(const std::filesystem::path& folder);

/// Puts a complete file of mode 0600 in the place of `path`, or changes nothing and says why.
[[nodiscard]] std::optional<std::string> replaceFile(const std::filesystem::path& path, QByteArrayView bytes);

}  // namespace sentrel
