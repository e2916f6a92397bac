// SPDX-License-Identifier: Apache-2.0
#include "views/controls/windows.h"

#include <QApplication>
#include <QKeyEvent>
#include <QScreen>
#include <algorithm>
#include <utility>

#include "views/controls/labels.h"
#include "views/controls/layout.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

// FixedWindow.

FixedWindow::FixedWindow(const QString& title, QSize size, double addedForText)
    : size_(size), addedForText_(addedForText) {
  setWindowTitle(title);
  setAccessibleRole(*this, QAccessible::Window);
  new FocusRing(*this);  // it is the window's
  connect(&Theme::shared(), &Theme::changed, this, [this] { resizeToText(); });
  resizeToText();
}

void FixedWindow::resizeToText() {
  QSize size = size_ * (1 + addedForText_ * (Theme::shared().textScale() - 1));
  if (const QScreen* shown = screen()) size = size.boundedTo(shown->availableSize() * 0.9);
  setFixedSize(size);
}

void FixedWindow::present() {
  if (!isVisible()) {
    if (const QScreen* where = screen()) move(where->availableGeometry().center() - rect().center());
    show();
  }
  setWindowState(windowState() & ~Qt::WindowMinimized);
  raise();
  activateWindow();
}

void FixedWindow::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::Close)) {
    close();
  } else {
    QWidget::keyPressEvent(event);
  }
}

void FixedWindow::paintEvent(QPaintEvent* /*event*/) {
  QPainter(this).fillRect(rect(), colors().window);
}

// Sheet.

namespace {
constexpr double panelRadius = 14;
constexpr int leastMargin = 8;
constexpr double addedForText = 0.6;  // of the size, at 200 %
const QColor scrim(10, 11, 20);
}  // namespace

Sheet::Sheet(QWidget& window, QSize size)
    : QWidget(&window),
      size_(size),
      panel_(new QWidget(this)),
      presence_(*this, 180, QEasingCurve::OutCubic) {
  setFocusPolicy(Qt::NoFocus);
  setAccessibleRole(*this, QAccessible::Dialog);
  window.installEventFilter(this);
  panel_->installEventFilter(this);
  connect(&Theme::shared(), &Theme::changed, this, [this] { placePanel(); });
  hide();
}

void Sheet::open(QWidget* focus) {
  before_ = QApplication::focusWidget();
  setGeometry(parentWidget()->rect());
  placePanel();
  show();
  raise();
  presence_.glideTo(1);
  focus->setFocus(Qt::PopupFocusReason);
}

void Sheet::dismiss() {
  if (std::exchange(dismissed_, true)) return;
  hide();
  if (before_) before_->setFocus(Qt::PopupFocusReason);
  if (onClosed) onClosed();
  deleteLater();
}

void Sheet::placePanel() {
  const QSize available = rect().marginsRemoved({leastMargin, leastMargin, leastMargin, leastMargin}).size();
  QSize size = (size_ * (1 + addedForText * (Theme::shared().textScale() - 1))).boundedTo(available);
  if (QLayout* content = panel_->layout(); content != nullptr) {
    const int wanted = content->hasHeightForWidth() ? content->totalHeightForWidth(size.width())
                                                    : content->totalSizeHint().height();
    size.setHeight(std::clamp(wanted, size.height(), available.height()));
  }
  panel_->setGeometry(QRect(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size));
}

bool Sheet::eventFilter(QObject* watched, QEvent* event) {
  if (watched == parentWidget() && event->type() == QEvent::Resize) setGeometry(parentWidget()->rect());
  if (watched == panel_ && event->type() == QEvent::LayoutRequest) placePanel();
  return false;
}

void Sheet::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) onEscape();
}

bool Sheet::focusNextPrevChild(bool next) {
  QWidget* const start = QApplication::focusWidget();
  QWidget* candidate = start != nullptr && isAncestorOf(start) ? start : panel_;
  const QWidget* const first = candidate;
  do {
    candidate = next ? candidate->nextInFocusChain() : candidate->previousInFocusChain();
    const bool takesTab = (candidate->focusPolicy() & Qt::TabFocus) == Qt::TabFocus;
    if (takesTab && panel_->isAncestorOf(candidate) && candidate->isVisible() && candidate->isEnabled()) {
      candidate->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
      return true;
    }
  } while (candidate != first);
  return true;
}

void Sheet::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), cornerRadius_,
           withAlpha(scrim, (Theme::shared().dark() ? 0.62 : 0.42) * presence_.value()));
  painter.setOpacity(presence_.value());
  const QRectF box(panel_->geometry());
  paintShadow(painter, box, panelRadius, 1.2);
  paintBox(painter, box, panelRadius, colors().surface, colors().border);
}

// Dialog.

namespace {
constexpr int padding = 12;
constexpr int betweenButtons = 14;
}  // namespace

Sheet* openDialog(QWidget& popover, const Dialog& dialog) {
  auto* sheet = new Sheet(popover, {280, 182});
  sheet->setCornerRadius(popoverRadius);
  sheet->setAccessibleName(dialog.words);
  auto* words = centredLabel(TextRole::bodyLabel, dialog.words);
  words->setBalanced(true);
  auto* page = new QWidget;
  columnIn(page, {8, 0, 8, 0}, 6,
           {centred(symbolView(dialog.symbol, 30, dialog.color)), words, {stretch, 1}});
  auto* scroll = new ScrollPage;
  scroll->setPage(page);
  auto* cancel = new PushButton(PushButton::Kind::secondary, dialog.cancel);
  auto* confirm = new PushButton(dialog.kind, dialog.confirm);
  auto* buttons = lineIn(nullptr, {}, betweenButtons, {stretch, centred(cancel), centred(confirm), stretch});
  columnIn(sheet->panel(), {padding, 20, padding, 16}, 0, {{scroll, 1}, 12, buttons});
  QObject::connect(confirm, &PushButton::clicked, sheet, dialog.confirmed);
  for (auto* button : {cancel, confirm})
    QObject::connect(button, &PushButton::clicked, sheet, &Sheet::dismiss);
  sheet->open(cancel);
  const auto arrange = [=] {
    const int wanted = cancel->sizeHint().width() + betweenButtons + confirm->sizeHint().width();
    const bool beside = wanted <= sheet->panel()->width() - 2 * padding;
    buttons->setDirection(beside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
  };
  QObject::connect(&Theme::shared(), &Theme::changed, sheet, arrange);
  arrange();
  return sheet;
}

}  // namespace sentrel
