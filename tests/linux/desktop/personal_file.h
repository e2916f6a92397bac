// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include "support/manual_main_loop.h"

namespace sentrel::test {

namespace fs = std::filesystem;

/// A folder of its own, and what a file of the person's needs that is written on the store queue.
struct PersonalFileTest : testing::Test {
  static void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }
  [[nodiscard]] static std::string read(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  [[nodiscard]] static std::set<std::string> namesIn(const fs::path& place) {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(place)) found.insert(entry.path().filename());
    return found;
  }
  [[nodiscard]] static int mode(const fs::path& file) {
    return static_cast<int>(fs::symlink_status(file).permissions());
  }
  /// Runs `task` while no file of this process may grow beyond so many bytes, as if the disk were full; gives
  /// what it printed.
  template <class Task>
  [[nodiscard]] static std::string withRoomFor(rlim_t bytes, Task task) {
    std::signal(SIGXFSZ, SIG_IGN);  // NOLINT(cert-err33-c)
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tiny{bytes, before.rlim_max};
    testing::internal::CaptureStderr();
    ::setrlimit(RLIMIT_FSIZE, &tiny);
    task();
    ::setrlimit(RLIMIT_FSIZE, &before);
    return testing::internal::GetCapturedStderr();
  }

  // In memory where that can be had: the disk of a busy machine may take a second for one file.
  QTemporaryDir folder{(::access("/dev/shm", W_OK) == 0 ? QStringLiteral("/dev/shm") : QDir::tempPath()) +
                       QStringLiteral("/sentrel-file-XXXXXX")};
  const fs::path root = folder.path().toStdString();
  std::shared_ptr<ManualMainLoop> loop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.store");
};

}  // namespace sentrel::test
