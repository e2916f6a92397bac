// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/private_files.h"

#include <sys/stat.h>

#include <QFile>
#include <QSaveFile>
#include <cerrno>

namespace sentrel {

namespace fs = std::filesystem;

namespace {

fs::path personalFolder(const char* variable, const char* belowHome) {
  fs::path given = qgetenv(variable).toStdString();
  const fs::path home = qgetenv("HOME").toStdString();
  // A relative path is to be ignored (XDG Base Directory).
  if (given.is_absolute()) return given;
  return home.is_absolute() ? home / belowHome : fs::path();
}

}  // namespace

fs::path personalConfigFolder() {
  return personalFolder("XDG_CONFIG_HOME", ".config");
}

fs::path personalStateFolder() {
  return personalFolder("XDG_STATE_HOME", ".local/state");
}

QString nameOf(const fs::path& path) {
  return QFile::decodeName(path.c_str());
}

std::string failure(const fs::path& path, const QString& reason) {
  return path.string() + ": " + reason.toStdString();
}

std::string failure(const fs::path& path, const std::error_code& error) {
  return path.string() + ": " + error.message();
}

std::error_code makeFolder(const fs::path& folder) {
  std::error_code ignored;
  if (fs::is_directory(folder, ignored)) return {};
  if (folder.has_relative_path()) {
    if (const auto error = makeFolder(folder.parent_path())) return error;
  }
  const bool isMade = ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
  return isMade ? std::error_code() : std::error_code(errno, std::generic_category());
}

std::optional<std::string> replaceFile(const fs::path& path, QByteArrayView bytes) {
  QSaveFile file(nameOf(path));
  // Unbuffered, because a commit does not tell when the disk took only a part of the last buffer.
  bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                   file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
  while (isWritten && !bytes.empty()) {
    const qint64 count = file.write(bytes.data(), bytes.size());
    isWritten = count > 0;
    bytes = bytes.sliced(isWritten ? count : 0);
  }
  return isWritten && file.commit() ? std::nullopt : std::optional(failure(path, file.errorString()));
}

}  // namespace sentrel
