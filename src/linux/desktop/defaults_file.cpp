// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLockFile>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <future>
#include <system_error>
#include <utility>

#include "linux/desktop/private_files.h"
#include "linux/desktop/standard_error.h"
#include "support/serial_queue.h"

namespace sentrel {

namespace fs = std::filesystem;

namespace {

using Changes = std::map<QString, QJsonValue>;

/// A thousand times what the program writes; more than that is somebody else's file.
constexpr qint64 largestFile = 1'000'000;
constexpr qsizetype keptDamagedFiles = 5;
/// Whoever holds the lock longer hangs. Without the lock one of two changes could be lost, never a file.
constexpr int lockTimeoutMs = 250;
/// What the file's own keys are indented by; lines farther in belong to a value.
constexpr qsizetype keyIndent = 4;

QString textOf(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

/// What can be saved of a damaged file: each line that is a whole entry, and visibly ended.
QJsonObject rescued(const QByteArray& bytes) {
  QJsonObject values;
  QList<QByteArray> lines = bytes.split('\n');
  lines.removeLast();  // has no end: `1` may be what is left of `10`
  for (const QByteArray& line : lines) {
    QByteArray entry = line.trimmed();
    if (line.indexOf(entry.left(1)) > keyIndent) continue;
    if (entry.endsWith(',')) entry.chop(1);
    const QJsonObject read = QJsonDocument::fromJson("{" + entry + "}").object();
    for (auto at = read.begin(); at != read.end(); ++at) values[at.key()] = at.value();
  }
  return values;
}

/// The number with the fewest digits that is read as the same float: 0.42, and not 0.41999998688697815.
double shortest(float number) {
  std::array<char, 32> digits{};
  const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  double value = number;
  std::from_chars(digits.data(), end, value);
  return value;
}

struct ToJson {
  QJsonValue operator()(bool value) const { return value; }
  QJsonValue operator()(std::int64_t value) const { return static_cast<qint64>(value); }
  QJsonValue operator()(float value) const { return shortest(value); }
  QJsonValue operator()(const std::string& value) const { return textOf(value); }
};

/// Keeps what is damaged as "<name>.damaged-N": the newest five. Gives why it could not.
std::optional<std::string> setAside(const fs::path& path, const DefaultsFile::Content& content) {
  const QString mark = nameOf(path.filename()) + QStringLiteral(".damaged-");
  const QDir folder(nameOf(path.parent_path()));
  std::map<unsigned, fs::path> kept;
  for (const QString& name :
       folder.entryList({mark + u'*'}, QDir::AllEntries | QDir::Hidden | QDir::System)) {
    bool isNumber = false;
    const unsigned number = name.mid(mark.size()).toUInt(&isNumber);
    if (isNumber) kept[number] = path.parent_path() / QFile::encodeName(name).constData();
  }
  // The same damage again: the last attempt to mend the file failed.
  const bool isKept =
      content.bytes && !kept.empty() && DefaultsFile::read(kept.rbegin()->second).bytes == content.bytes;
  if (isKept) return {};
  const unsigned number = kept.empty() ? 1 : kept.rbegin()->first + 1;
  fs::path aside = path;
  aside += ".damaged-" + std::to_string(number);
  std::error_code error;
  if (content.bytes) {
    if (auto reason = replaceFile(aside, *content.bytes)) return reason;
  } else if (fs::rename(path, aside, error); error) {
    return failure(path, error);
  }
  printError(qtTrId("settings_kept"), aside.string());
  kept[number] = std::move(aside);
  // A folder that somebody put there stays.
  for (; kept.size() > keptDamagedFiles; kept.erase(kept.begin())) fs::remove(kept.begin()->second, error);
  return {};
}

}  // namespace

DefaultsFile::Content DefaultsFile::read(const fs::path& path) {
  Content content;
  const QFileInfo info(nameOf(path));
  if (!info.exists() && !info.isSymLink()) return content;
  // Not to be opened: a pipe waits for its other end.
  content.damaged = !info.isFile() || !info.isReadable();
  if (content.damaged) return content;
  QFile file(info.filePath());
  QByteArray bytes;
  if (file.open(QIODevice::ReadOnly)) bytes = file.read(largestFile + 1);
  if (file.error() != QFileDevice::NoError) {
    content.error = failure(path, file.errorString());
    return content;
  }
  const QJsonDocument document = QJsonDocument::fromJson(bytes);
  const bool isOurs = bytes.size() <= largestFile;
  content.damaged = !isOurs || !document.isObject();
  if (isOurs) content.values = content.damaged ? rescued(bytes) : document.object();
  if (isOurs) content.bytes = std::move(bytes);
  return content;
}

/// Lives on the store queue; only `put` belongs to the main thread.
class DefaultsFile::Writer {
 public:
  /// `loaded` is what was read at the program's start; where nothing could be, nothing is ever written: the
  /// program knows none of the person's values, and would replace them all.
  Writer(fs::path path, Content loaded, std::function<void()> onDamaged)
      : path_(std::move(path)), loaded_(std::move(loaded)), onDamaged_(std::move(onDamaged)) {}

  /// Takes from others what they may do with the folder and the file, where both are the person's own.
  void tighten() const {
    constexpr auto others = fs::perms::group_all | fs::perms::others_all;
    for (const fs::path& place : {path_.parent_path(), path_}) {
      const QFileInfo info(nameOf(place));
      if (!(info.isDir() || info.isFile()) || info.ownerId() != ::geteuid()) continue;
      std::error_code error;
      if ((fs::status(place, error).permissions() & others) == fs::perms::none) continue;
      fs::permissions(place, others, fs::perm_options::remove, error);
      if (error) printError(qtTrId("settings_open"), failure(place, error));
    }
  }

  /// True when `write` has to be called.
  bool put(Changes changes) { return newest_.put(std::move(changes)); }

  /// Writes the newest state, else the one that could not be written; gives whether the file is up to date.
  bool write() {
    if (auto newest = newest_.take()) unwritten_ = std::move(newest);
    if (!unwritten_) return true;
    const auto error = update(*unwritten_);
    if (!error) {
      unwritten_.reset();
    } else if (!isTold_) {
      printError(qtTrId("settings_unsaved"), *error);
    }
    isTold_ = error.has_value();
    return !error;
  }

 private:
  /// `changes` over what the file holds now, or over what was loaded where the file is gone or damaged.
  std::optional<std::string> update(const Changes& changes) const {
    if (path_.empty()) return qtTrId("home_missing").toStdString();
    if (loaded_.error) return loaded_.error;
    if (const auto error = makeFolder(path_.parent_path())) return failure(path_.parent_path(), error);
    QLockFile lock(nameOf(path_) + QStringLiteral(".lock"));
    lock.tryLock(lockTimeoutMs);
    Content content = DefaultsFile::read(path_);
    if (content.error) return content.error;
    if (content.damaged) {
      if (auto error = setAside(path_, content)) return error;
      onDamaged_();
    }
    QJsonObject values = content.values;
    const bool isWhole = content.bytes && !content.damaged;
    for (auto at = loaded_.values.begin(); !isWhole && at != loaded_.values.end(); ++at) {
      if (!values.contains(at.key())) values[at.key()] = at.value();
    }
    for (const auto& [key, value] : changes) values[key] = value;  // undefined removes
    const QByteArray text = QJsonDocument(values).toJson();
    return content.bytes == text ? std::nullopt : replaceFile(path_, text);
  }

  const fs::path path_;
  const Content loaded_;
  const std::function<void()> onDamaged_;
  Latest<Changes> newest_;
  std::optional<Changes> unwritten_;
  bool isTold_ = false;
};

fs::path DefaultsFile::personalPath() {
  const fs::path config = personalConfigFolder();
  return config.empty() ? config : config / "sentrel" / "defaults.json";
}

DefaultsFile::DefaultsFile(fs::path path, std::shared_ptr<MainLoop> mainLoop,
                           std::shared_ptr<SerialQueue> storeQueue)
    : mainLoop_(std::move(mainLoop)),
      storeQueue_(std::move(storeQueue)),
      self_(std::make_shared<DefaultsFile*>(this)) {
  Content content = read(path);
  values_ = content.values;
  readError_ = content.error;
  const bool isDamaged = content.damaged;
  content.bytes.reset();
  const auto tellDamage = [loop = std::weak_ptr(mainLoop_), self = std::weak_ptr(self_)] {
    const auto live = loop.lock();
    if (!live) return;
    live->post([self] {
      const auto owner = self.lock();
      if (owner && !(*owner)->damaged.get()) (*owner)->damaged = true;
    });
  };
  writer_ = std::make_shared<Writer>(std::move(path), std::move(content), tellDamage);
  storeQueue_->async([writer = writer_] { writer->tighten(); });
  if (isDamaged) {
    damaged = true;
    scheduleWrite();  // sets it aside and writes what was readable
  }
}

DefaultsFile::~DefaultsFile() {
  if (isScheduled_) handOver();
}

std::optional<DefaultsValue> DefaultsFile::value(std::string_view key) const {
  const QJsonValue stored = values_[textOf(key)];
  if (stored.isBool()) return stored.toBool();
  if (stored.isString()) return stored.toString().toStdString();
  if (!stored.isDouble()) return {};
  if (stored.toVariant().typeId() == QMetaType::LongLong) return std::int64_t{stored.toInteger()};
  const auto number = static_cast<float>(stored.toDouble());
  return std::isfinite(number) ? std::optional<DefaultsValue>(number) : std::nullopt;
}

void DefaultsFile::set(std::string_view key, DefaultsValue value) {
  change(key, std::visit(ToJson(), value));
}

void DefaultsFile::remove(std::string_view key) {
  change(key, QJsonValue(QJsonValue::Undefined));
}

void DefaultsFile::change(std::string_view key, const QJsonValue& value) {
  const QString name = textOf(key);
  values_[name] = value;
  const auto [entry, isNew] = changes_.try_emplace(name, value);
  if (!isNew && entry->second == value) return;
  entry->second = value;
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

bool DefaultsFile::flush(std::chrono::milliseconds timeout) {
  if (isScheduled_) handOver();
  auto written = std::make_shared<std::promise<bool>>();
  auto answer = written->get_future();
  storeQueue_->async([writer = writer_, written] { written->set_value(writer->write()); });
  return answer.wait_for(timeout) == std::future_status::ready && answer.get();
}

}  // namespace sentrel
