// SPDX-License-Identifier: Apache-2.0
//
// What a change of the settings costs: on the main thread, and until the file is complete. Prints "name
// value" lines; the bare disk is measured beside it, so that machines can be compared. defaults_file_bench
// [folder]
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <QCoreApplication>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "figures.h"
#include "linux/desktop/defaults_file.h"
#include "linux/desktop/qt_main_loop.h"
#include "settings/settings_repository.h"

namespace sentrel {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int runs = 300;

class NoLoginItem final : public LoginItem {
 public:
  [[nodiscard]] bool isEnabled() const override { return false; }
  [[nodiscard]] std::optional<std::string> setEnabled(bool) override { return std::nullopt; }
};

void printShares(const std::string& name, const std::vector<double>& values) {
  bench::print(name + "_p50", bench::median(values), 3);
  bench::print(name + "_p95", bench::percentile(values, 0.95), 3);
}

/// Tells when a file has got its name in a folder.
class RenameWatch {
 public:
  explicit RenameWatch(const fs::path& folder) : descriptor_(::inotify_init1(IN_CLOEXEC)) {
    ::inotify_add_watch(descriptor_, folder.c_str(), IN_MOVED_TO);
  }
  ~RenameWatch() { ::close(descriptor_); }
  RenameWatch(const RenameWatch&) = delete;
  RenameWatch& operator=(const RenameWatch&) = delete;

  void wait() const {
    std::array<char, 4096> event{};
    if (::read(descriptor_, event.data(), event.size()) < 0) std::perror("inotify");
  }

 private:
  int descriptor_;
};

void measureStore(const fs::path& folder) {
  const fs::path path = folder / "defaults.json";
  const auto loop = std::make_shared<QtMainLoop>();
  const auto queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.store");
  const auto file = std::make_shared<DefaultsFile>(path, loop, queue);
  SettingsRepository repository(file, std::make_shared<NoLoginItem>());
  repository.save(repository.settings.get());
  if (!file->flush(std::chrono::seconds(10))) std::abort();  // from now on one file replaces another
  const RenameWatch watch(folder);
  std::vector<double> mainThread;
  std::vector<double> complete;
  std::vector<double> load;
  for (int run = 0; run < runs; ++run) {
    FilterSettings next = repository.settings.get();
    next.inattentionDelayMs = 1000 + run;
    next.matrixStripeAlpha = static_cast<float>(run) / 1000.0F;
    next.selectedCameraID = "v4l2_input.pci-0000_00_14.0-usb-0_6_1.0";
    const auto begin = Clock::now();
    repository.save(next);
    QCoreApplication::processEvents();  // the end of the turn, which hands the state to the queue
    mainThread.push_back(bench::millisecondsSince(begin));
    watch.wait();
    complete.push_back(bench::millisecondsSince(begin));
    const auto loadBegin = Clock::now();
    const DefaultsFile::Content content = DefaultsFile::read(path);
    load.push_back(bench::millisecondsSince(loadBegin));
    if (content.damaged || content.values.size() < 16) std::abort();
  }
  printShares("settings_save_main_thread_ms", mainThread);
  printShares("settings_file_complete_ms", complete);
  printShares("settings_load_ms", load);
}

void measureDisk(const fs::path& folder) {
  const std::string bytes(600, 'x');
  const fs::path unfinished = folder / "reference.new";
  std::vector<double> replaced;
  for (int run = 0; run < runs; ++run) {
    const auto begin = Clock::now();
    const int file = ::open(unfinished.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    if (::write(file, bytes.data(), bytes.size()) < 0 || ::fsync(file) != 0) std::perror("reference");
    ::close(file);
    fs::rename(unfinished, folder / "reference");
    replaced.push_back(bench::millisecondsSince(begin));
  }
  printShares("disk_replace_reference_ms", replaced);
}

}  // namespace
}  // namespace sentrel

int main(int argumentCount, char** arguments) {
  namespace fs = std::filesystem;
  const QCoreApplication application(argumentCount, arguments);
  const fs::path base = argumentCount > 1 ? fs::path(arguments[1]) : fs::temp_directory_path();
  std::string folder = (base / "sentrel-bench-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) {
    std::perror(folder.c_str());
    return 1;
  }
  sentrel::measureStore(folder);
  sentrel::measureDisk(folder);
  fs::remove_all(folder);
  return 0;
}
