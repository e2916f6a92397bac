// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/journal_file.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QTimeZone>
#include <algorithm>
#include <array>
#include <cstddef>

#include "linux/desktop/private_files.h"
#include "linux/desktop/standard_error.h"
#include "platform/desktop_services.h"

namespace sentrel {

namespace fs = std::filesystem;

namespace {

constexpr int version = 1;
constexpr std::size_t mostUnwritten = 1000;
constexpr qsizetype longestLine = 4096;
constexpr qsizetype longestName = 100;
/// As for the settings: whoever holds the lock longer hangs.
constexpr int lockTimeoutMs = 250;

/// In the order of the ends.
constexpr std::array<std::string_view, 8> ends{"gone", "nobody",      "welcomed", "paused",
                                               "away", "low_battery", "blind",    "off"};

std::int64_t wallMs() {
  return QDateTime::currentMSecsSinceEpoch();
}

QByteArray firstLine() {
  return QJsonDocument(QJsonObject{{QStringLiteral("sentrel"), QStringLiteral("alerts")},
                                   {QStringLiteral("version"), version}})
             .toJson(QJsonDocument::Compact) +
         '\n';
}

/// A camera may call itself anything.
QString plain(const std::string& name) {
  QString words = QString::fromStdString(name).left(longestName);
  for (QChar& character : words) {
    if (!character.isPrint()) character = u' ';
  }
  return words;
}

QByteArray asLine(const AlertRecord& record) {
  const QDateTime began = QDateTime::fromMSecsSinceEpoch(record.beganMs).toUTC();
  const std::string_view end = nameOf(record.end);
  const QJsonObject line{
      {QStringLiteral("began"), began.toString(Qt::ISODateWithMs)},
      {QStringLiteral("length_ms"), static_cast<qint64>(record.lengthMs)},
      {QStringLiteral("faces"), static_cast<qint64>(record.faces)},
      {QStringLiteral("widest_face"), qRound(record.widestFace * 1000) / 1000.0},
      {QStringLiteral("camera"), plain(record.camera)},
      {QStringLiteral("darkened"), record.darkened},
      {QStringLiteral("notified"), record.notified},
      {QStringLiteral("end"), QString::fromLatin1(end.data(), static_cast<qsizetype>(end.size()))},
  };
  return QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
}

std::optional<AlertRecord> recordOf(const QByteArray& text) {
  const QJsonObject line = QJsonDocument::fromJson(text).object();
  const QDateTime began = QDateTime::fromString(line[QStringLiteral("began")].toString(), Qt::ISODateWithMs);
  const auto length = line[QStringLiteral("length_ms")].toInteger(-1);
  const auto faces = line[QStringLiteral("faces")].toInteger(-1);
  const double widest = line[QStringLiteral("widest_face")].toDouble(-1);
  const auto* end = std::ranges::find(ends, line[QStringLiteral("end")].toString().toStdString(),
                                      [](std::string_view name) { return std::string(name); });
  if (!began.isValid() || length < 0 || faces < 0 || widest < 0 || widest > 1 || end == ends.end())
    return std::nullopt;
  return AlertRecord{.beganMs = began.toMSecsSinceEpoch(),
                     .lengthMs = length,
                     .faces = faces,
                     .widestFace = widest,
                     .camera = plain(line[QStringLiteral("camera")].toString().toStdString()).toStdString(),
                     .darkened = line[QStringLiteral("darkened")].toBool(),
                     .notified = line[QStringLiteral("notified")].toBool(),
                     .end = static_cast<AlertEnd>(end - ends.begin())};
}

/// The file that holds the newest of them that may stay.
QByteArray fileOf(const std::vector<AlertRecord>& records) {
  const std::int64_t oldest = wallMs() - JournalFile::keptMs;
  const QByteArray first = firstLine();
  std::vector<QByteArray> lines;
  qsizetype size = first.size();
  for (const AlertRecord& record : records) {
    if (record.beganMs < oldest) continue;
    lines.push_back(asLine(record));
    size += lines.back().size();
  }
  QByteArray text = first;
  for (const QByteArray& line : lines) {
    if (size <= JournalFile::mostBytes)
      text += line;
    else
      size -= line.size();
  }
  return text;
}

/// A cell that begins like a formula is calculated, also within quotation marks; an apostrophe makes it
/// words.
QByteArray cell(const std::string& words) {
  QByteArray text = QByteArray::fromStdString(words).replace('"', "\"\"");
  if (!text.isEmpty() && QByteArrayView("=+-@\t\r").contains(text.front())) text.prepend('\'');
  return '"' + text + '"';
}

}  // namespace

std::string_view nameOf(AlertEnd end) {
  return ends[static_cast<std::size_t>(end)];
}

QByteArray asTable(std::span<const AlertRecord> records) {
  QByteArray table = "began,length_s,faces,widest_face_percent,camera,darkened,notified,end\r\n";
  const auto yes = [](bool is) { return is ? "yes" : "no"; };
  for (const AlertRecord& record : records) {
    const QDateTime began = QDateTime::fromMSecsSinceEpoch(record.beganMs);
    table += began.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toLatin1() + ',' +
             QByteArray::number(static_cast<double>(record.lengthMs) / 1000, 'f', 1) + ',' +
             QByteArray::number(static_cast<qlonglong>(record.faces)) + ',' +
             QByteArray::number(record.widestFace * 100, 'f', 1) + ',' + cell(record.camera) + ',' +
             yes(record.darkened) + ',' + yes(record.notified) + ',' +
             std::string(nameOf(record.end)).c_str() + "\r\n";
  }
  return table;
}

JournalFile::Content JournalFile::read(const fs::path& path) {
  Content content;
  const QFileInfo info(nameOf(path));
  if (!info.exists() && !info.isSymLink()) return content;
  QFile file(info.filePath());
  // Not to be opened where it is no file: a pipe waits for its other end.
  if (!info.isFile() || !file.open(QIODevice::ReadOnly)) {
    content.error = failure(path, info.isFile() ? file.errorString() : QStringLiteral("not a file"));
    return content;
  }
  const QByteArray first = file.readLine(longestLine);
  const QJsonObject form = QJsonDocument::fromJson(first).object();
  content.isNewer = form[QStringLiteral("version")].toInteger() > version;
  if (content.isNewer) return content;
  // Without its first line the lines below may still be ours.
  const bool hasForm = form[QStringLiteral("version")].toInteger() == version;
  content.isDamaged = file.size() > 0 && !hasForm;
  if (!hasForm) file.seek(0);
  // Twice as much as is ever written; of more, the newest lines.
  file.seek(std::max(file.pos(), file.size() - 2 * mostBytes));
  while (!file.atEnd()) {
    const QByteArray line = file.readLine(longestLine);
    auto record = line.endsWith('\n') ? recordOf(line) : std::nullopt;
    if (record) {
      content.records.push_back(std::move(*record));
    } else {
      content.isDamaged = true;
    }
  }
  if (file.error() != QFileDevice::NoError) content.error = failure(path, file.errorString());
  // The clock on the wall may have been set back meanwhile.
  std::ranges::stable_sort(content.records, {}, &AlertRecord::beganMs);
  return content;
}

fs::path JournalFile::personalPath() {
  const fs::path state = personalStateFolder();
  return state.empty() ? state : state / "sentrel" / "alerts.jsonl";
}

/// Lives on the store queue.
class JournalFile::Store {
 public:
  explicit Store(fs::path path) : path_(std::move(path)) {}

  /// The key of what there is to tell; empty where all is well.
  [[nodiscard]] const std::string& trouble() const { return trouble_; }

  std::vector<AlertRecord> read() {
    std::vector<AlertRecord> records = load().records;
    records.insert(records.end(), unwritten_.begin(), unwritten_.end());
    return records;
  }

  void add(AlertRecord record) {
    if (unwritten_.size() == mostUnwritten) unwritten_.erase(unwritten_.begin());
    unwritten_.push_back(std::move(record));
    write();
  }

  /// Lets go of what is too old; nothing is made where there is no file.
  void tidy() {
    std::error_code error;
    if (fs::exists(path_, error)) write();
  }

  void erase() {
    unwritten_.clear();
    std::error_code error;
    fs::remove(path_, error);
    tell(error ? failure(path_, error) : std::string());
    if (!error) trouble_.clear();
  }

 private:
  Content load() {
    Content content = JournalFile::read(path_);
    if (content.isNewer) {
      trouble_ = textId("journal_newer");
    } else if (content.isDamaged) {
      trouble_ = textId("journal_damaged");
    } else if (!content.error.empty()) {
      tell(content.error);
    }
    return content;
  }

  void write() {
    if (path_.empty()) return tell(qtTrId("home_missing").toStdString());
    if (const auto error = makeFolder(path_.parent_path())) return tell(failure(path_.parent_path(), error));
    QLockFile lock(nameOf(path_) + QStringLiteral(".lock"));
    lock.tryLock(lockTimeoutMs);
    Content content = load();
    if (content.isNewer) return unwritten_.clear();
    if (!content.error.empty()) return;
    content.records.insert(content.records.end(), unwritten_.begin(), unwritten_.end());
    const auto error = replaceFile(path_, fileOf(content.records));
    if (error) return tell(*error);
    unwritten_.clear();
    tell({});
  }

  /// That it cannot be written, or can again; the first time in a row on standard error, too.
  void tell(const std::string& error) {
    const std::string key = textId("journal_unwritable");
    if (error.empty()) {
      if (trouble_ == key) trouble_.clear();
      return;
    }
    if (trouble_ != key) printError(qtTrId("journal_unwritable"), error);
    trouble_ = key;
  }

  const fs::path path_;
  std::vector<AlertRecord> unwritten_;
  std::string trouble_;
};

JournalFile::JournalFile(fs::path path, std::shared_ptr<MainLoop> mainLoop,
                         std::shared_ptr<const Clock> clock, std::shared_ptr<SerialQueue> storeQueue)
    : mainLoop_(std::move(mainLoop)),
      clock_(std::move(clock)),
      storeQueue_(std::move(storeQueue)),
      self_(std::make_shared<JournalFile*>(this)),
      store_(std::make_shared<Store>(std::move(path))) {
  onStoreQueue([](Store& store) {
    store.tidy();
    return std::function<void()>();
  });
}

/// Runs `work` on the store queue, and then on the main thread what that returns.
void JournalFile::onStoreQueue(std::function<std::function<void()>(Store& store)> work) {
  storeQueue_->async(
      [work = std::move(work), store = store_, loop = std::weak_ptr(mainLoop_), self = std::weak_ptr(self_)] {
        auto then = work(*store);
        const auto live = loop.lock();
        if (!live) return;
        live->post([self, trouble = store->trouble(), then = std::move(then)] {
          const auto journal = self.lock();
          if (!journal) return;
          (*journal)->trouble.assignIfChanged(trouble);
          if (then) then();
        });
      });
}

void JournalFile::add(AlertRecord record) {
  record.beganMs += wallMs() - clock_->nowMs();
  onStoreQueue([record = std::move(record)](Store& store) {
    store.add(record);
    return std::function<void()>();
  });
}

void JournalFile::erase() {
  onStoreQueue([](Store& store) {
    store.erase();
    return std::function<void()>();
  });
}

void JournalFile::read(std::function<void(const std::vector<AlertRecord>& records)> reader) {
  onStoreQueue([reader = std::move(reader)](Store& store) {
    return [reader, records = store.read()] { reader(records); };
  });
}

void JournalFile::exportTo(std::string path, std::function<void(bool isDone)> told) {
  onStoreQueue([path = std::move(path), told = std::move(told)](Store& store) {
    const auto records = store.read();
    const auto error = replaceFile(path, asTable(records));
    if (error) printError(qtTrId("journal_unexported"), *error);
    return [told, isDone = !error] { told(isDone); };
  });
}

}  // namespace sentrel
