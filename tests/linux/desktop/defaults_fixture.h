// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "linux/desktop/defaults_file.h"
#include "support/manual_main_loop.h"
#include "support/serial_queue.h"

namespace sentrel::test {

/// A folder of its own and what a DefaultsFile in it needs.
class DefaultsFixture : public testing::Test {
 protected:
  DefaultsFixture() {
    // In memory where that can be had: the disk of a busy machine may take a second for one file.
    const std::filesystem::path memory = "/dev/shm";
    const bool hasMemory = ::access(memory.c_str(), W_OK) == 0;
    const auto folder = hasMemory ? memory : std::filesystem::temp_directory_path();
    std::string name = (folder / "sentrel-defaults-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the test");
    root = name;
    path = root / "sentrel" / "defaults.json";
  }
  ~DefaultsFixture() override {
    std::error_code ignored;  // a left-over folder of a test is no reason to fail it
    std::filesystem::remove_all(root, ignored);
  }

  [[nodiscard]] std::unique_ptr<DefaultsFile> open() const {
    return std::make_unique<DefaultsFile>(path, loop, queue);
  }

  /// Ends the turn of the main loop and waits for the file.
  [[nodiscard]] bool settle(DefaultsFile& file) const {
    loop->runPosted();
    const bool isWritten = file.flush(std::chrono::seconds(20));
    loop->runPosted();  // what the store queue reported
    return isWritten;
  }

  void write(const std::filesystem::path& file, const std::string& text) const {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }

  [[nodiscard]] static std::string read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  /// The names in the file's folder, in order.
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path.parent_path())) {
      found.push_back(entry.path().filename());
    }
    std::ranges::sort(found);
    return found;
  }

  [[nodiscard]] static int mode(const std::filesystem::path& file) {
    struct stat status {};
    EXPECT_EQ(::lstat(file.c_str(), &status), 0);
    return static_cast<int>(status.st_mode & 07777U);
  }

  std::filesystem::path root;
  std::filesystem::path path;
  std::shared_ptr<ManualMainLoop> loop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.store");
};

}  // namespace sentrel::test
