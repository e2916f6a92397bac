// SPDX-License-Identifier: Apache-2.0
#include "views/controls/pref_row.h"

#include <QMouseEvent>

#include "views/controls/toggle_switch.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int side = 15;  // with the card's edge 16
constexpr int above = 14;
constexpr int gap = 20;
constexpr int labelToHint = 2;
constexpr int leastForWords = 180;
}  // namespace

PrefRow::PrefRow(const QString& labelText, const QString& hint, QWidget* rowControl, QWidget* parent)
    : QWidget(parent),
      row_(new QBoxLayout(QBoxLayout::LeftToRight, this)),
      label(new TextLabel(TextRole::bodyLabel, &AppColors::text, this)),
      hint_(new TextLabel(TextRole::subheadline, &AppColors::textSecondary, this)),
      control(rowControl) {
  row_->setContentsMargins(side, above, side, above);
  row_->setSpacing(gap);
  auto* words = new QVBoxLayout;
  words->setSpacing(labelToHint);
  words->addStretch();
  label->setWords(labelText);
  label->setVisible(!labelText.isEmpty());
  words->addWidget(label);
  words->addWidget(hint_);
  words->addStretch();
  row_->addLayout(words, 1);
  row_->addWidget(control, 0, Qt::AlignVCenter);
  setHint(hint);
  connect(&Theme::shared(), &Theme::changed, this, [this] { arrange(); });
}

void PrefRow::setHint(const QString& hint) {
  hint_->setWords(hint);
  QWidget* const used = control->focusProxy();
  (used != nullptr ? used : control)->setAccessibleDescription(hint);
}

void PrefRow::arrange() {
  const int room = width() - 2 * side - gap - control->sizeHint().width();
  const bool beside = room >= leastForWords * Theme::shared().textScale();
  row_->setDirection(beside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
  row_->setSpacing(beside ? gap : gap / 2);
  row_->setAlignment(control, beside ? Qt::AlignVCenter : Qt::AlignLeft);
}

void PrefRow::resizeEvent(QResizeEvent* event) {
  arrange();
  QWidget::resizeEvent(event);
}

void PrefRow::changeEvent(QEvent* event) {
  if (event->type() == QEvent::EnabledChange) update();
  QWidget::changeEvent(event);
}

void PrefRow::mousePressEvent(QMouseEvent* event) {
  pressed_ = event->button() == Qt::LeftButton;
}

void PrefRow::mouseReleaseEvent(QMouseEvent* event) {
  auto* toggle = dynamic_cast<ToggleSwitch*>(control);
  if (pressed_ && toggle != nullptr && rect().contains(event->position().toPoint())) toggle->click();
  pressed_ = false;
}

}  // namespace sentrel
