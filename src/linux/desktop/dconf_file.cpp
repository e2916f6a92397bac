// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/dconf_file.h"

#include <QtEndian>
#include <algorithm>
#include <limits>
#include <optional>

namespace sentrel {

namespace {

// A header, and a table of entries: names, each with its parent, and where their values lie. All numbers are
// little-endian where the file begins with these letters; where it does not, it is not of this machine.
constexpr QByteArrayView signature("GVariant");
constexpr qsizetype rootAt = 16;
constexpr qsizetype headerSize = 24;
constexpr qsizetype tableHeaderSize = 8;
constexpr quint32 bloomWords = (1U << 27U) - 1;  // the other bits are of no interest
constexpr qsizetype entrySize = 24;
constexpr quint32 noParent = std::numeric_limits<quint32>::max();
constexpr int deepest = 32;

class Table {
 public:
  explicit Table(QByteArrayView file) : file_(file) {
    if (file.size() < headerSize || !file.startsWith(signature)) return;
    const QByteArrayView table = part(rootAt);
    if (table.size() < tableHeaderSize) return;
    const qsizetype before =
        tableHeaderSize + 4 * (qsizetype{number(table, 0) & bloomWords} + number(table, 4));
    if (before < table.size()) entries_ = table.sliced(before);
  }

  [[nodiscard]] quint32 count() const { return static_cast<quint32>(entries_.size() / entrySize); }
  /// None where its parents lead nowhere.
  [[nodiscard]] std::optional<QByteArray> path(quint32 index, int depth = 0) const {
    if (index == noParent) return QByteArray();
    if (index >= count() || depth == deepest) return {};
    const auto parent = path(number(entry(index), 4), depth + 1);
    if (!parent) return {};
    const quint32 begin = number(entry(index), 8);
    return *parent + part(begin, begin + qFromLittleEndian<quint16>(entry(index).data() + 12)).toByteArray();
  }
  /// An invalid one where it is of another type.
  [[nodiscard]] QVariant value(quint32 index) const {
    constexpr qsizetype typeAt = 14;
    const QByteArrayView entry = this->entry(index);
    if (entry[typeAt] != 'v') return {};
    // The value, a zero, and the letters of its type.
    const QByteArrayView stored = part(number(entry, 16), number(entry, 20));
    const QByteArrayView value = stored.first(std::max(qsizetype{0}, stored.size() - 2));
    if (stored.endsWith(QByteArrayView("\0s", 2)) && value.endsWith('\0'))
      return QString::fromUtf8(value.chopped(1));
    if (stored.endsWith(QByteArrayView("\0b", 2)) && value.size() == 1) return value[0] != 0;
    if (stored.endsWith(QByteArrayView("\0d", 2)) && value.size() == sizeof(double))
      return qFromLittleEndian<double>(value.data());
    return {};
  }

 private:
  static quint32 number(QByteArrayView bytes, qsizetype at) {
    return qFromLittleEndian<quint32>(bytes.data() + at);
  }
  [[nodiscard]] QByteArrayView entry(quint32 index) const {
    return entries_.sliced(qsizetype{index} * entrySize, entrySize);
  }
  /// Nothing where it is not within the file.
  [[nodiscard]] QByteArrayView part(qint64 begin, qint64 end) const {
    return begin <= end && end <= file_.size() ? file_.sliced(begin, end - begin) : QByteArrayView();
  }
  /// Whose begin and end stand there.
  [[nodiscard]] QByteArrayView part(qsizetype at) const {
    return part(number(file_, at), number(file_, at + 4));
  }

  const QByteArrayView file_;
  QByteArrayView entries_;
};

}  // namespace

QVariantMap readDconf(const QByteArray& bytes) {
  const Table table(bytes);
  QVariantMap values;
  for (quint32 i = 0; i < table.count(); ++i) {
    const QVariant value = table.value(i);
    if (!value.isValid()) continue;
    if (const auto path = table.path(i)) values[QString::fromUtf8(*path)] = value;
  }
  return values;
}

}  // namespace sentrel
