// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/alert_journal.h"
#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel {

/// The name of an end in the file and in tables; part of the file's form, and never translated.
[[nodiscard]] std::string_view nameOf(AlertEnd end);

/// The records as a table of comma-separated values (RFC 4180), with times of the clock on the wall. No cell
/// is one that a spreadsheet would calculate.
[[nodiscard]] QByteArray asTable(std::span<const AlertRecord> records);

/// The alerts in a file that the person can read: a line that says what it is and of which version, and then
/// a JSON object a line. Lines go after 90 days, and the oldest when there are more than 2 MiB. Every change
/// is a new file that is complete before it gets its name. The file is 0600.
///
/// Lines that cannot be read are skipped, and go with the next change. A file of a newer version is neither
/// read nor changed, until it is erased. What cannot be written is kept in memory and tried with the next
/// record, 1,000 of them at most. Main thread.
class JournalFile final : public AlertJournal {
 public:
  static constexpr std::int64_t keptMs = std::int64_t{90} * 24 * 60 * 60 * 1000;
  static constexpr qsizetype mostBytes = 2 * 1024 * 1024;

  /// What stands in the place of the file.
  struct Content {
    std::vector<AlertRecord> records;
    bool isDamaged = false;  ///< some lines could not be read
    bool isNewer = false;    ///< of a version that is not known here; there are no records
    std::string error;       ///< why nothing is known of it
  };
  /// Never waits for anything but the disk, whatever stands there. Any thread.
  static Content read(const std::filesystem::path& path);

  /// "sentrel/alerts.jsonl" in the person's folder of state; empty when there is none.
  static std::filesystem::path personalPath();

  /// `clock` is the program's.
  JournalFile(std::filesystem::path path, std::shared_ptr<MainLoop> mainLoop,
              std::shared_ptr<const Clock> clock, std::shared_ptr<SerialQueue> storeQueue);
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;

  void add(AlertRecord record) override;
  void erase() override;
  void read(std::function<void(const std::vector<AlertRecord>& records)> reader) override;
  void exportTo(std::string path, std::function<void(bool isDone)> told) override;

 private:
  class Store;

  void onStoreQueue(std::function<std::function<void()>(Store& store)> work);

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<const Clock> clock_;
  const std::shared_ptr<SerialQueue> storeQueue_;
  const std::shared_ptr<JournalFile*> self_;  // held weakly by what comes back to the main loop
  const std::shared_ptr<Store> store_;
};

}  // namespace sentrel
