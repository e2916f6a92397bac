// SPDX-License-Identifier: Apache-2.0
//
// The person's files: the input stands in the place of the settings and of the journal of alerts.
#include <stdlib.h>

#include <QFile>
#include <algorithm>
#include <array>
#include <filesystem>

#include "fuzz_input.h"
#include "linux/desktop/defaults_file.h"
#include "linux/desktop/journal_file.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/manual_main_loop.h"

namespace {

namespace fs = std::filesystem;
using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
using fuzz::require;

/// In memory, if it can be; goes with the process.
const fs::path& folder() {
  static const struct Folder {
    Folder() {
      std::string name =
          (fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string()) + "/sentrel-fuzz-XXXXXX";
      require(mkdtemp(name.data()) != nullptr);
      path = name;
    }
    ~Folder() { fs::remove_all(path); }
    fs::path path;
  } made;
  return made.path;
}

void put(const fs::path& path, const std::uint8_t* data, std::size_t size) {
  QFile file(QString::fromStdString(path.string()));
  require(file.open(QIODevice::WriteOnly) &&
          file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size)) ==
              static_cast<qint64>(size));
}

struct NoLoginItem final : LoginItem {
  [[nodiscard]] bool isEnabled() const override { return false; }
  std::optional<std::string> setEnabled(bool /*enabled*/) override { return {}; }
};

struct Settings {
  explicit Settings(const fs::path& path)
      : file(std::make_shared<DefaultsFile>(path, loop, queue)),
        repository(file, std::make_shared<NoLoginItem>()) {}
  ~Settings() { write(); }
  void write() const {
    loop->runPosted();
    queue->drain();
    loop->runPosted();
  }

  std::shared_ptr<test::ManualMainLoop> loop = std::make_shared<test::ManualMainLoop>();
  std::shared_ptr<test::ManualQueue> queue = std::make_shared<test::ManualQueue>();
  std::shared_ptr<DefaultsFile> file;
  SettingsRepository repository;
};

void readSettings(const fs::path& path) {
  FilterSettings settings;
  ProtectionOptions options;
  {
    Settings read(path);
    settings = read.repository.settings;
    options = read.repository.options;
    forEachOption([&]<class T>(const Option<T>& option) {
      if constexpr (!std::is_same_v<T, bool>) {
        const auto value = static_cast<std::int64_t>(options.*option.field);
        require(value >= option.least && value <= option.most);
      }
    });
    require(inUse(settings, &FilterSettings::captureFps) >= 1);
    const auto decoded = decodeFilterSettings(encode(settings));
    require(decoded && *decoded == settings);
    StatsRepository(read.file).load();
    read.repository.save(settings);
    read.repository.save(options);
  }
  // What was written is whole, and says the same.
  const auto content = DefaultsFile::read(path);
  require(content.bytes && !content.damaged && !content.error);
  Settings again(path);
  require(again.repository.settings.get() == settings && again.repository.options.get() == options);
}

void readJournal(const fs::path& path) {
  const auto content = JournalFile::read(path);
  require(content.error.empty() && (!content.isNewer || content.records.empty()));
  const QByteArray table = asTable(content.records);
  require(table.count("\r\n") == std::ssize(content.records) + 1);
  const auto loop = std::make_shared<test::ManualMainLoop>();
  const auto queue = std::make_shared<test::ManualQueue>();
  JournalFile journal(path, loop, loop, queue);
  journal.add({.beganMs = loop->nowMs(), .camera = "camera"});
  std::size_t kept = 0;
  journal.read([&](const auto& records) { kept = records.size(); });
  queue->drain();
  loop->runPosted();
  if (content.isNewer) return require(kept == 0 && journal.trouble.get() == "journal_newer");
  const auto after = JournalFile::read(path);
  require(after.error.empty() && !after.isDamaged && !after.isNewer && after.records.size() == kept);
  require(kept >= 1 && kept <= content.records.size() + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fs::path settings = folder() / "defaults.json";
  const fs::path journal = folder() / "alerts.jsonl";
  put(settings, data, size);
  put(journal, data, size);
  readSettings(settings);
  readJournal(journal);
  for (const auto& left : fs::directory_iterator(folder())) fs::remove(left.path());
  return 0;
}
