// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <utility>

#include "support/latest.h"

namespace sentrel {

/// Lives on the store queue; only `put` belongs to the main thread.
class DefaultsFile::Writer {
 public:
  Writer(std::filesystem::path path, DefaultsFileContent loaded, std::function<void()> onDamaged)
      : store_(std::move(path), std::move(loaded)), onDamaged_(std::move(onDamaged)) {}

  void tighten() const {
    if (const auto error = store_.tighten())
      std::fprintf(stderr, "sentrel: the settings cannot be closed to others: %s\n", error->c_str());
  }

  /// True when `write` has to be called.
  bool put(DefaultsChanges changes) { return newest_.put(std::move(changes)); }

  /// Writes the newest state, else the one that could not be written; gives whether the file is up to date.
  bool write() {
    if (auto newest = newest_.take()) unwritten_ = std::move(newest);
    if (!unwritten_) return true;
    const auto outcome = store_.update(*unwritten_);
    if (outcome.damaged) onDamaged_();
    if (!outcome.error) {
      unwritten_.reset();
    } else if (!isTold_) {
      std::fprintf(stderr, "sentrel: the settings cannot be saved: %s\n", outcome.error->c_str());
    }
    isTold_ = outcome.error.has_value();
    return !outcome.error;
  }

 private:
  Latest<DefaultsChanges> newest_;
  std::optional<DefaultsChanges> unwritten_;
  DefaultsFileStore store_;
  std::function<void()> onDamaged_;
  bool isTold_ = false;
};

std::filesystem::path DefaultsFile::personalPath() {
  const auto folder = [](const char* variable) {
    const char* text = std::getenv(variable);
    const std::filesystem::path path = text == nullptr ? "" : text;
    // A relative path is to be ignored (XDG Base Directory).
    return path.is_absolute() ? path : std::filesystem::path();
  };
  std::filesystem::path config = folder("XDG_CONFIG_HOME");
  if (config.empty() && !folder("HOME").empty()) config = folder("HOME") / ".config";
  return config.empty() ? config : config / "sentrel" / "defaults.json";
}

DefaultsFile::DefaultsFile(std::filesystem::path path, std::shared_ptr<MainLoop> mainLoop,
                           std::shared_ptr<SerialQueue> storeQueue)
    : mainLoop_(std::move(mainLoop)),
      storeQueue_(std::move(storeQueue)),
      self_(std::make_shared<DefaultsFile*>(this)) {
  DefaultsFileContent content;
  if (!path.empty()) content = readDefaultsFile(path);
  values_ = content.values;
  const bool isDamaged = content.damaged;
  if (content.error) readError_ = described(path, content.error);
  content.bytes.reset();
  const bool hasPlace = !path.empty();
  writer_ = std::make_shared<Writer>(std::move(path), std::move(content),
                                     [loop = std::weak_ptr(mainLoop_), self = std::weak_ptr(self_)] {
                                       if (const auto live = loop.lock()) {
                                         live->post([self] {
                                           if (const auto owner = self.lock()) (*owner)->noteDamage();
                                         });
                                       }
                                     });
  if (hasPlace) storeQueue_->async([writer = writer_] { writer->tighten(); });
  if (isDamaged) {
    damaged = true;
    scheduleWrite();  // sets it aside and writes what was readable
  }
}

DefaultsFile::~DefaultsFile() {
  if (isScheduled_) handOver();
}

std::optional<DefaultsValue> DefaultsFile::value(std::string_view key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? std::nullopt : found->second.value;
}

void DefaultsFile::set(std::string_view key, DefaultsValue value) {
  StoredValue stored = storedValue(std::move(value));
  change(key, stored.text);
  values_.insert_or_assign(std::string(key), std::move(stored));
}

void DefaultsFile::remove(std::string_view key) {
  change(key, std::nullopt);
  const auto found = values_.find(key);
  if (found != values_.end()) values_.erase(found);
}

void DefaultsFile::change(std::string_view key, std::optional<std::string> text) {
  const auto [entry, isNew] = changes_.try_emplace(std::string(key), text);
  if (!isNew && entry->second == text) return;
  entry->second = std::move(text);
  scheduleWrite();
}

void DefaultsFile::scheduleWrite() {
  if (std::exchange(isScheduled_, true)) return;
  mainLoop_->post([self = std::weak_ptr(self_)] {
    const auto owner = self.lock();
    if (owner && (*owner)->isScheduled_) (*owner)->handOver();
  });
}

void DefaultsFile::handOver() {
  isScheduled_ = false;
  if (writer_->put(changes_)) storeQueue_->async([writer = writer_] { writer->write(); });
}

void DefaultsFile::noteDamage() {
  if (!damaged.get()) damaged = true;
}

bool DefaultsFile::flush(std::chrono::milliseconds timeout) {
  if (isScheduled_) handOver();
  auto written = std::make_shared<std::promise<bool>>();
  auto answer = written->get_future();
  storeQueue_->async([writer = writer_, written] { written->set_value(writer->write()); });
  return answer.wait_for(timeout) == std::future_status::ready && answer.get();
}

}  // namespace sentrel
