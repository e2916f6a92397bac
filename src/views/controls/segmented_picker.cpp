// SPDX-License-Identifier: Apache-2.0
#include "views/controls/segmented_picker.h"

#include <QEvent>
#include <QPainter>
#include <QRadioButton>
#include <algorithm>
#include <cmath>

#include "views/controls/accessible_role.h"
#include "views/controls/focus_ring.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr int pickerHeight = 32;
constexpr int inset = 2;
constexpr double trackRadius = 8;
constexpr double pillRadius = 6;
constexpr int pillMs = 140;

class Segment final : public QRadioButton, public FocusShape {
 public:
  explicit Segment(const QString& words, QWidget* parent) : QRadioButton(words, parent) {
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
    connect(this, &QRadioButton::toggled, this, [this] { update(); });
  }
  [[nodiscard]] Outline focusOutline() const override {
    return {.rect = QRectF(rect()), .radius = pillRadius, .gap = 1};
  }

 protected:
  [[nodiscard]] bool hitButton(const QPoint& position) const override { return rect().contains(position); }

  void paintEvent(QPaintEvent* /*event*/) override {
    const AppColors& c = colors();
    QPainter painter(this);
    if (!isEnabled()) painter.setOpacity(disabledOpacity);
    if (underMouse() && !isChecked() && isEnabled()) {
      paintBox(painter, QRectF(rect()), pillRadius, withAlpha(c.primary, 0.08));
    }
    QFont shown = Theme::shared().font(isChecked() ? TextRole::bodyButton : TextRole::body);
    shown.setPixelSize(qRound(13 * Theme::shared().textScale()));
    painter.setFont(shown);
    painter.setPen(isChecked() ? c.onPrimary : c.text);
    painter.drawText(rect(), Qt::AlignCenter | Qt::TextSingleLine, text());
  }
};

}  // namespace

SegmentedPicker::SegmentedPicker(const QString& name, const std::vector<Choice>& choices, QWidget* parent)
    : QWidget(parent), choices_(choices), pill_(*this, pillMs, QEasingCurve::OutCubic) {
  setAccessibleName(name);
  setAccessibleRole(*this, QAccessible::Grouping);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  for (std::size_t i = 0; i < choices_.size(); ++i) {
    auto* segment = new Segment(choices_[i].words, this);
    segment->setAccessibleDescription(name);
    group_.addButton(segment, static_cast<int>(i));
  }
  connect(&group_, &QButtonGroup::idToggled, this, [this](int id, bool on) {
    if (!on) return;
    movePill();
    // A choice that the program itself makes is not picked by the person: `setValue` blocks this group.
    if (onValue) onValue(choices_[static_cast<std::size_t>(id)].value);
  });
  connect(&Theme::shared(), &Theme::changed, this, [this] {
    updateGeometry();
    update();
  });
}

void SegmentedPicker::setValue(std::int64_t value) {
  const auto found = std::ranges::find(choices_, value, &Choice::value);
  const QSignalBlocker silence(group_);
  if (found != choices_.end()) {
    group_.button(static_cast<int>(found - choices_.begin()))->setChecked(true);
  } else if (auto* taken = group_.checkedButton()) {
    group_.setExclusive(false);
    taken->setChecked(false);
    group_.setExclusive(true);
  }
  movePill();
}

int SegmentedPicker::widthOf(std::size_t index) const {
  QFont bold = Theme::shared().font(TextRole::bodyButton);
  bold.setPixelSize(qRound(13 * Theme::shared().textScale()));
  const double words = QFontMetricsF(bold).horizontalAdvance(choices_[index].words) + 16;
  return std::max(choices_[index].width, static_cast<int>(std::ceil(words)));
}

QSize SegmentedPicker::sizeHint() const {
  int width = 2 * inset;
  for (std::size_t i = 0; i < choices_.size(); ++i) width += widthOf(i);
  return {width, qRound(pickerHeight - 18 + 18 * Theme::shared().textScale())};
}

void SegmentedPicker::placeSegments() {
  int x = inset;
  for (std::size_t i = 0; i < choices_.size(); ++i) {
    const int width = widthOf(i);
    group_.button(static_cast<int>(i))->setGeometry(x, inset, width, height() - 2 * inset);
    x += width;
  }
  if (const auto* taken = group_.checkedButton()) pill_.jumpTo(taken->x());
}

void SegmentedPicker::movePill() {
  if (auto* taken = group_.checkedButton()) {
    pill_.glideTo(taken->x());
    // One stop for the Tab key, where the arrows begin.
    for (auto* segment : group_.buttons()) {
      segment->setFocusPolicy(segment == taken ? Qt::StrongFocus : Qt::ClickFocus);
    }
  }
  update();
}

void SegmentedPicker::resizeEvent(QResizeEvent* /*event*/) {
  placeSegments();
}

void SegmentedPicker::changeEvent(QEvent* event) {
  if (event->type() == QEvent::EnabledChange) update();
  QWidget::changeEvent(event);
}

void SegmentedPicker::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  paintBox(painter, QRectF(rect()), trackRadius, c.surfaceAlt, c.controlBorder);
  const int taken = group_.checkedId();
  for (int i = 1; i < static_cast<int>(choices_.size()); ++i) {
    if (taken == i || taken == i - 1) continue;
    const double x = group_.button(i)->x();
    painter.fillRect(QRectF(x - 0.5, 8, 1, height() - 16), withAlpha(c.controlBorder, 0.6));
  }
  if (taken >= 0) {
    QRectF pill = group_.button(taken)->geometry();
    pill.moveLeft(pill_.value());
    paintBox(painter, pill, pillRadius, c.primary);
  }
}

}  // namespace sentrel
