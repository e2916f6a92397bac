// SPDX-License-Identifier: Apache-2.0
#include "views/controls/menu_picker.h"

#include <QKeyEvent>
#include <QListView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QWheelEvent>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr QSize fieldSize(232, 34);
constexpr double widthAddedForText = 110;  // at 200 %
constexpr double radius = 8;
constexpr int padding = 11;
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
    painter->setPen(c.text);
    painter->setFont(Theme::shared().font(TextRole::body));
    const QRectF words = line.adjusted(mark + 14, 0, -8, 0);
    painter->drawText(
        words, Qt::AlignVCenter | Qt::TextSingleLine,
        QFontMetricsF(painter->font()).elidedText(index.data().toString(), Qt::ElideMiddle, words.width()));
    painter->restore();
  }

  [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& /*option*/,
                               const QModelIndex& /*index*/) const override {
    return {fieldSize.width(), qRound(14 + 20 * Theme::shared().textScale())};
  }

 private:
  const QComboBox& picker_;
};

}  // namespace

MenuPicker::MenuPicker(const QString& name, QWidget* parent) : QComboBox(parent) {
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
  connect(&Theme::shared(), &Theme::changed, this, [this] { restyle(); });
  restyle();
}

void MenuPicker::restyle() {
  const AppColors& c = colors();
  setFont(Theme::shared().font(TextRole::body));
  QPalette palette;
  palette.setColor(QPalette::Base, c.surface);
  palette.setColor(QPalette::Window, c.surface);
  palette.setColor(QPalette::Text, c.text);
  palette.setColor(QPalette::Highlight, c.tonal);
  palette.setColor(QPalette::HighlightedText, c.text);
  view()->setPalette(palette);
  view()->parentWidget()->setPalette(palette);
  updateGeometry();
  update();
}

QSize MenuPicker::sizeHint() const {
  const double scale = Theme::shared().textScale();
  return {qRound(fieldSize.width() + widthAddedForText * (scale - 1)),
          qRound(fieldSize.height() - 20 + 20 * scale)};
}

FocusShape::Outline MenuPicker::focusOutline() const {
  return {.rect = QRectF(rect()), .radius = radius};
}

void MenuPicker::showPopup() {
  restyle();
  QComboBox::showPopup();
}

void MenuPicker::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  paintBox(painter, QRectF(rect()), radius, underMouse() && isEnabled() ? c.surfaceAlt : c.surface,
           c.controlBorder);
  const QRectF words = QRectF(rect()).adjusted(padding, 0, -(padding + chevron + 8), 0);
  painter.setFont(font());
  painter.setPen(c.text);
  painter.drawText(words, Qt::AlignVCenter | Qt::TextSingleLine,
                   QFontMetricsF(font()).elidedText(currentText(), Qt::ElideMiddle, words.width()));
  paintSymbol(painter, QStringLiteral("chevron.down"),
              QRectF(width() - padding - chevron, (height() - chevron) / 2.0, chevron, chevron),
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

}  // namespace sentrel
