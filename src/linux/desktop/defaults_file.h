// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/desktop_services.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/serial_queue.h"

namespace sentrel {

/// The person's settings in a JSON file that they can read and edit, one key a line. What is set counts at
/// once; the file follows on the store queue: everything that one turn of the main loop sets is written as
/// one file, and while a write is under way only the newest state waits. A write that fails is told once on
/// standard error and done with the next change, or at the latest by `flush`.
///
/// A write changes the keys that were set since the start, and leaves the others as a person or another
/// process left them. Every file is complete before it gets its name, so that a kill or a full disk leaves
/// the old one. The file is 0600, its folder 0700. Main thread.
class DefaultsFile final : public UserDefaults {
 public:
  /// What stands in the place of the file.
  struct Content {
    std::optional<QByteArray> bytes;  ///< the file as it is, when it could be read whole
    QJsonObject values;               ///< what can be understood of it
    bool damaged = false;             ///< something stands there that is no settings file, or not a whole one
    std::optional<std::string> error;  ///< why nothing is known of it; says nothing about what stands there
  };
  /// Never waits for anything but the disk, whatever stands there. Any thread.
  static Content read(const std::filesystem::path& path);

  /// "sentrel/defaults.json" in the person's folder of configuration; empty when there is none.
  static std::filesystem::path personalPath();

  /// Reads `path` at once, the only time that the calling thread touches the disk. With an empty path the
  /// values last as long as the process.
  DefaultsFile(std::filesystem::path path, std::shared_ptr<MainLoop> mainLoop,
               std::shared_ptr<SerialQueue> storeQueue);
  /// Hands over what is not handed over yet, and does not wait for it.
  ~DefaultsFile() override;
  DefaultsFile(const DefaultsFile&) = delete;
  DefaultsFile& operator=(const DefaultsFile&) = delete;

  /// A float that is whole comes back as an integer, and one that is not finite not at all.
  [[nodiscard]] std::optional<DefaultsValue> value(std::string_view key) const override;
  void set(std::string_view key, DefaultsValue value) override;
  void remove(std::string_view key) override;

  /// Waits until the file is up to date; false when it is not within `timeout`.
  bool flush(std::chrono::milliseconds timeout);

  /// Why the file could not be read, though something may stand there; none where it was, or there is none.
  /// Everything has its standard value then, and the file is left alone. The person is to be told.
  [[nodiscard]] const std::optional<std::string>& readError() const { return readError_; }

  /// Turns true, once, when a damaged file was found: its readable values were taken over and it is set
  /// aside. The person is to be told.
  Published<bool> damaged{false};

 private:
  class Writer;

  void change(std::string_view key, const QJsonValue& value);
  void scheduleWrite();
  void handOver();

  QJsonObject values_;
  std::optional<std::string> readError_;
  std::map<QString, QJsonValue> changes_;  // since the start; undefined for a removed key
  bool isScheduled_ = false;
  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<SerialQueue> storeQueue_;
  std::shared_ptr<DefaultsFile*> self_;  // held weakly by what comes back to the main loop
  std::shared_ptr<Writer> writer_;
};

}  // namespace sentrel
