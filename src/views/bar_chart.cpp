// SPDX-License-Identifier: Apache-2.0
#include "views/bar_chart.h"

#include <QKeyEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

#include "views/controls/accessibility.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int wordsSide = 14;
constexpr int barsSide = 8;
constexpr int cardWidth = 288;
constexpr int above = 12;
constexpr int below = 10;
constexpr int titleLine = 18;
constexpr int captionLine = 16;
constexpr int gap = 4;
constexpr int barsHeight = 56;
constexpr int stub = 2;  // of a bar that is nothing
constexpr double barRadius = 3;

int line(int pixels) {
  return qRound(pixels * Theme::shared().textScale());
}

/// Large words leave no space beside the title.
bool saysBelowTitle() {
  return Theme::shared().textScale() > 1.2;
}

}  // namespace

/// A bar and the space above it.
class BarChart::Column final : public QWidget, public FocusShape {
 public:
  Column(BarChart& chart, std::size_t index) : QWidget(&chart), chart_(chart), index_(index) {
    setFocusPolicy(index == 0 ? Qt::StrongFocus : Qt::ClickFocus);
    setAccessibleRole(*this, QAccessible::ListItem);
  }

  [[nodiscard]] Outline focusOutline() const override { return {.radius = 4, .gap = 0}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const AppColors& c = colors();
    const Bar& bar = chart_.bars_[index_];
    const std::int64_t most = chart_.bars_[chart_.largest_].value;
    const double share = most == 0 ? 0 : static_cast<double>(bar.value) / static_cast<double>(most);
    const double size = std::max<double>(stub, std::round(barsHeight * share));
    const double wide = std::min<double>(
        width(), std::round(static_cast<double>(chart_.barWidth_) * chart_.width() / cardWidth));
    const QRectF box((width() - wide) / 2.0, height() - size, wide, size);
    QPainter painter(this);
    if (chart_.chosen_ == this)
      paintBox(painter, QRectF(rect()), 4, withAlpha(c.primary, 0.12),
               Theme::shared().highContrast() ? c.border : QColor());
    paintBox(painter, box, std::min(barRadius, size / 2), bar.stands ? c.primary : c.controlBorder);
  }
  void enterEvent(QEnterEvent* /*event*/) override { chart_.choose(this, true); }
  void leaveEvent(QEvent* /*event*/) override { chart_.choose(this, hasFocus()); }
  void focusInEvent(QFocusEvent* event) override {
    for (Column* column : chart_.columns_)
      column->setFocusPolicy(column == this ? Qt::StrongFocus : Qt::ClickFocus);
    chart_.choose(this, true);
    QWidget::focusInEvent(event);
  }
  void focusOutEvent(QFocusEvent* event) override {
    chart_.choose(this, underMouse());
    QWidget::focusOutEvent(event);
  }
  void keyPressEvent(QKeyEvent* event) override {
    const int key = event->key();
    if (key != Qt::Key_Left && key != Qt::Key_Right && key != Qt::Key_Home && key != Qt::Key_End)
      return QWidget::keyPressEvent(event);
    chart_.moveFocus(index_, key);
  }

 private:
  BarChart& chart_;
  const std::size_t index_;
};

BarChart::BarChart(const QString& title, int bars, int barWidth)
    : title_(title), barWidth_(barWidth), bars_(static_cast<std::size_t>(bars)) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setAccessibleRole(*this, QAccessible::List);
  for (std::size_t i = 0; i < bars_.size(); ++i) columns_.push_back(new Column(*this, i));
}

/// A bar that goes with the focus tells us so.
BarChart::~BarChart() {
  for (Column* column : std::exchange(columns_, {})) delete column;
}

void BarChart::setBars(std::vector<Bar> bars, const QString& total) {
  bars.resize(columns_.size());
  bars_ = std::move(bars);
  total_ = total;
  largest_ = static_cast<std::size_t>(std::ranges::max_element(bars_, {}, &Bar::value) - bars_.begin());
  setAccessibleName(title_ + QStringLiteral("\u00A0: ") + total);
  for (std::size_t i = 0; i < bars_.size(); ++i) {
    columns_[i]->setAccessibleName(bars_[i].words);
    columns_[i]->update();
  }
  update();
}

QSize BarChart::sizeHint() const {
  return {cardWidth, above + line(titleLine) + (saysBelowTitle() ? line(captionLine) : 0) + gap +
                         line(captionLine) + barsHeight + gap + line(captionLine) + below};
}

/// Where the bars stand, with their numbers.
QRect BarChart::area() const {
  const int bottom = height() - below - line(captionLine) - gap;
  return {barsSide, bottom - barsHeight - line(captionLine), width() - 2 * barsSide,
          barsHeight + line(captionLine)};
}

void BarChart::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  const QRect all = area();
  const auto left = [&](std::size_t i) {
    return all.left() + qRound(static_cast<double>(all.width()) * static_cast<double>(i) /
                               static_cast<double>(columns_.size()));
  };
  for (std::size_t i = 0; i < columns_.size(); ++i)
    columns_[i]->setGeometry(left(i), all.top(), left(i + 1) - left(i), all.height());
}

void BarChart::choose(const Column* column, bool isChosen) {
  if (isChosen) {
    chosen_ = column;
  } else if (chosen_ == column) {
    const auto focused = std::ranges::find_if(columns_, &QWidget::hasFocus);
    chosen_ = focused == columns_.end() ? nullptr : *focused;
  }
  for (Column* each : columns_) each->update();
  update();
}

void BarChart::moveFocus(std::size_t from, int key) {
  const std::size_t last = columns_.size() - 1;
  const std::size_t to = key == Qt::Key_Home    ? 0
                         : key == Qt::Key_End   ? last
                         : key == Qt::Key_Right ? std::min(from + 1, last)
                         : from > 0             ? from - 1
                                                : 0;
  columns_[to]->setFocus(Qt::OtherFocusReason);
}

void BarChart::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const Theme& theme = Theme::shared();
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), 12, c.surfaceAlt, theme.highContrast() ? c.border : QColor());
  const QFont caption = theme.font(TextRole::caption);
  const QFontMetricsF metrics(caption);
  const auto at = std::ranges::find(columns_, chosen_);
  const QString corner =
      at == columns_.end() ? total_ : bars_[static_cast<std::size_t>(at - columns_.begin())].words;
  const QRectF head(wordsSide, above, width() - 2 * wordsSide, line(titleLine));
  QRectF title = head;
  if (saysBelowTitle()) {
    paintWords(painter, head.translated(0, line(titleLine)), corner, caption, c.textSecondary);
  } else {
    paintWords(painter, head, corner, caption, c.textSecondary, Qt::AlignVCenter | Qt::AlignRight);
    title.setRight(title.right() - metrics.horizontalAdvance(corner) - 8);
  }
  paintWords(painter, title, title_, theme.font(TextRole::subheadlineStrong), c.text);

  const QRectF feet(wordsSide, height() - below - line(captionLine), width() - 2 * wordsSide,
                    line(captionLine));
  paintWords(painter, feet, bars_.front().label, caption, c.textSecondary);
  paintWords(painter, feet, bars_.back().label, caption, c.textSecondary, Qt::AlignVCenter | Qt::AlignRight);
  const Bar& largest = bars_[largest_];
  if (largest.value == 0) return;
  const QString number = QString::number(largest.value);
  const double wide = metrics.horizontalAdvance(number) + 2;
  const double middle = columns_[largest_]->geometry().center().x() + 0.5;
  const double left = std::clamp(middle - wide / 2, double{barsSide}, width() - barsSide - wide);
  paintWords(painter, QRectF(left, area().top(), wide, line(captionLine)), number, caption, c.text,
             Qt::AlignCenter);
}

}  // namespace sentrel
