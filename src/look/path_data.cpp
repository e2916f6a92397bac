// SPDX-License-Identifier: Apache-2.0
#include "look/path_data.h"

#include <array>
#include <cstddef>

namespace sentrel {

namespace {

class PathReader {
 public:
  explicit PathReader(QStringView data) : rest_(data) {}

  std::optional<QPainterPath> read() {
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    for (skipSeparators(); !rest_.isEmpty(); skipSeparators()) {
      const char16_t command = rest_.front().unicode();
      rest_ = rest_.sliced(1);
      if (!(command == u'M' ? move(path) : command == u'Z' ? close(path) : draw(path, command))) return {};
    }
    return path;
  }

 private:
  bool move(QPainterPath& path) {
    const auto to = points<1>();
    if (!to) return false;
    path.moveTo(to->front());
    started_ = true;
    return !numberAhead() || draw(path, u'L');  // further pairs are lines
  }

  bool close(QPainterPath& path) const {
    if (started_) path.closeSubpath();
    return started_;
  }

  bool draw(QPainterPath& path, char16_t command) {
    if (!started_ || (command != u'L' && command != u'C')) return false;
    do {
      if (command == u'L') {
        const auto to = points<1>();
        if (!to) return false;
        path.lineTo(to->front());
      } else {
        const auto curve = points<3>();
        if (!curve) return false;
        path.cubicTo((*curve)[0], (*curve)[1], (*curve)[2]);
      }
    } while (numberAhead());
    return true;
  }

  template <std::size_t n>
  std::optional<std::array<QPointF, n>> points() {
    std::array<QPointF, n> result;
    for (QPointF& point : result) {
      const auto x = number();
      const auto y = x ? number() : std::nullopt;
      if (!y) return {};
      point = {*x, *y};
    }
    return result;
  }

  std::optional<double> number() {
    skipSeparators();
    qsizetype length = 0;
    while (length < rest_.size() && isNumeric(rest_[length], length == 0)) ++length;
    bool ok = false;
    const double value = rest_.first(length).toDouble(&ok);
    rest_ = rest_.sliced(length);
    return ok ? std::optional(value) : std::nullopt;
  }

  bool numberAhead() {
    skipSeparators();
    return !rest_.isEmpty() && isNumeric(rest_.front(), true);
  }

  void skipSeparators() {
    while (!rest_.isEmpty() && (rest_.front().isSpace() || rest_.front() == u',')) rest_ = rest_.sliced(1);
  }

  // A sign begins the next number: writers leave out the space before it.
  static bool isNumeric(QChar c, bool first) {
    return (c >= u'0' && c <= u'9') || c == u'.' || (first && (c == u'-' || c == u'+'));
  }

  QStringView rest_;
  bool started_ = false;
};

}  // namespace

std::optional<QPainterPath> parsePathData(QStringView data) {
  return PathReader(data).read();
}

}  // namespace sentrel
