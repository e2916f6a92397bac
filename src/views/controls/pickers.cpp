// SPDX-License-Identifier: Apache-2.0
#include "views/controls/pickers.h"

#include <QKeyEvent>
#include <QListView>
#include <QRadioButton>
#include <QStyledItemDelegate>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/layout.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

// MenuPicker.

namespace {

constexpr QSize fieldSize(232, 34);
constexpr int widthAddedForText = 110;  // at 200 %
constexpr double fieldRadius = 8;
constexpr int fieldPadding = 11;
constexpr int chevron = 14;

/// One line of the open list.
class ChoiceDelegate final : public QStyledItemDelegate {
 public:
  explicit ChoiceDelegate(const QComboBox& picker, QObject* parent)
      : QStyledItemDelegate(parent), picker_(picker) {}

  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    const AppColors& c = colors();
    const bool pointed = (option.state & (QStyle::State_Selected | QStyle::State_MouseOver)) != 0;
    painter->save();
    painter->fillRect(option.rect, c.surface);
    const QRectF line = QRectF(option.rect).adjusted(4, 1, -4, -1);
    if (pointed) paintBox(*painter, line, 6, c.tonal);
    const int mark = Theme::shared().iconSize(chevron);
    if (index.row() == picker_.currentIndex()) {
      paintSymbol(*painter, QStringLiteral("checkmark"),
                  QRectF(line.left() + 6, line.center().y() - mark / 2.0, mark, mark), c.primary);
    }
    paintWords(*painter, line.adjusted(mark + 14, 0, -8, 0), index.data().toString(), picker_.font(), c.text,
               Qt::AlignVCenter, Qt::ElideMiddle);
    painter->restore();
  }

  [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& /*option*/,
                               const QModelIndex& /*index*/) const override {
    return {fieldSize.width(), Theme::shared().grown(fieldSize.height())};
  }

 private:
  const QComboBox& picker_;
};

}  // namespace

MenuPicker::MenuPicker(const QString& name) {
  setAccessibleName(name);
  setAttribute(Qt::WA_Hover);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  auto* list = new QListView(this);
  list->setUniformItemSizes(true);
  list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  list->setFrameShape(QFrame::NoFrame);
  setView(list);
  setItemDelegate(new ChoiceDelegate(*this, this));
  useFont(*this, TextRole::body);
}

QSize MenuPicker::sizeHint() const {
  const Theme& theme = Theme::shared();
  return {theme.grown(fieldSize.width(), widthAddedForText), theme.grown(fieldSize.height())};
}

void MenuPicker::showPopup() {
  // Around the lines, which paint themselves.
  QPalette palette;
  palette.setColor(QPalette::Base, colors().surface);
  palette.setColor(QPalette::Window, colors().surface);
  view()->setPalette(palette);
  view()->parentWidget()->setPalette(palette);
  QComboBox::showPopup();
}

void MenuPicker::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  paintBox(painter, QRectF(rect()), fieldRadius, underMouse() && isEnabled() ? c.surfaceAlt : c.surface,
           c.controlBorder);
  const QRectF words = QRectF(rect()).adjusted(fieldPadding, 0, -(fieldPadding + chevron + 8), 0);
  paintWords(painter, words, currentText(), font(), c.text, Qt::AlignVCenter, Qt::ElideMiddle);
  paintSymbol(painter, QStringLiteral("chevron.down"),
              QRectF(width() - fieldPadding - chevron, (height() - chevron) / 2.0, chevron, chevron),
              c.textSecondary);
}

void MenuPicker::wheelEvent(QWheelEvent* event) {
  // Otherwise scrolling the page would change settings under the pointer.
  event->ignore();
}

void MenuPicker::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    showPopup();
  } else {
    QComboBox::keyPressEvent(event);
  }
}

// SegmentedPicker.

namespace {

constexpr int pickerHeight = 32;
constexpr int inset = 2;
constexpr double pillRadius = 6;

/// Of the same size on every segment, whether it is taken or not.
QFont segmentFont(TextRole role) {
  QFont font = Theme::shared().font(role);
  font.setPixelSize(qRound(13 * Theme::shared().textScale()));
  return font;
}

class Segment final : public QRadioButton, public FocusShape {
 public:
  explicit Segment(const SegmentedPicker::Choice& choice) : QRadioButton(choice.words), width_(choice.width) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
    connect(this, &QRadioButton::toggled, this, [this] { update(); });
  }
  [[nodiscard]] QSize sizeHint() const override {
    const QFontMetricsF bold(segmentFont(TextRole::bodyButton));
    const int words = static_cast<int>(std::ceil(bold.horizontalAdvance(text()) + 16));
    return {std::max(width_, words), Theme::shared().grown(pickerHeight, 18) - 2 * inset};
  }
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] Outline focusOutline() const override { return {.radius = pillRadius, .gap = 1}; }

 protected:
  [[nodiscard]] bool hitButton(const QPoint& position) const override { return rect().contains(position); }

  void paintEvent(QPaintEvent* /*event*/) override {
    const AppColors& c = colors();
    QPainter painter(this);
    if (!isEnabled()) painter.setOpacity(disabledOpacity);
    if (underMouse() && !isChecked() && isEnabled()) {
      paintBox(painter, QRectF(rect()), pillRadius, withAlpha(c.primary, 0.08));
    }
    paintWords(painter, QRectF(rect()), text(),
               segmentFont(isChecked() ? TextRole::bodyButton : TextRole::body),
               isChecked() ? c.onPrimary : c.text, Qt::AlignCenter);
  }

 private:
  const int width_;  // at 100 %
};

}  // namespace

SegmentedPicker::SegmentedPicker(const QString& name, const std::vector<Choice>& choices)
    : choices_(choices), pill_(*this, 140, QEasingCurve::OutCubic) {
  setAccessibleName(name);
  setAccessibleRole(*this, QAccessible::Grouping);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  auto* line = lineIn(this, {inset, inset, inset, inset});
  for (const Choice& choice : choices_) {
    auto* segment = new Segment(choice);
    segment->setAccessibleDescription(name);
    line->addWidget(segment);
    group_.addButton(segment, static_cast<int>(group_.buttons().size()));
  }
  connect(&group_, &QButtonGroup::idToggled, this, [this](int id, bool on) {
    if (!on) return;
    movePill();
    // A choice that the program itself makes is not picked by the person: `setValue` blocks this group.
    if (onValue) onValue(choices_[static_cast<std::size_t>(id)].value);
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

void SegmentedPicker::movePill() {
  if (auto* taken = group_.checkedButton()) {
    pill_.glideTo(group_.checkedId());
    // One stop for the Tab key, where the arrows begin.
    for (auto* segment : group_.buttons()) {
      segment->setFocusPolicy(segment == taken ? Qt::StrongFocus : Qt::ClickFocus);
    }
  }
  update();
}

void SegmentedPicker::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  paintBox(painter, QRectF(rect()), 8, c.surfaceAlt, c.controlBorder);
  const int taken = group_.checkedId();
  for (int i = 1; i < static_cast<int>(choices_.size()); ++i) {
    if (taken == i || taken == i - 1) continue;
    const double x = group_.button(i)->x();
    painter.fillRect(QRectF(x - 0.5, 8, 1, height() - 16), withAlpha(c.controlBorder, 0.6));
  }
  if (taken >= 0) {
    QRectF pill = group_.button(taken)->geometry();
    const double before = std::floor(pill_.value());
    const double left = group_.button(static_cast<int>(before))->x();
    const double right = group_.button(static_cast<int>(std::ceil(pill_.value())))->x();
    pill.moveLeft(left + (right - left) * (pill_.value() - before));
    paintBox(painter, pill, pillRadius, c.primary);
  }
}

}  // namespace sentrel
