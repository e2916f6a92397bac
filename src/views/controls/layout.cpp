// SPDX-License-Identifier: Apache-2.0
#include "views/controls/layout.h"

#include <QApplication>
#include <QGridLayout>
#include <QKeyEvent>
#include <algorithm>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

// Lines and columns.

LayoutItem centred(QWidget* widget) {
  return {widget, 0, Qt::AlignHCenter};
}

void addItems(QBoxLayout& box, LayoutItems items) {
  for (const auto& [thing, share, alignment] : items) {
    if (const auto* widget = std::get_if<QWidget*>(&thing)) {
      box.addWidget(*widget, share, alignment);
    } else if (const auto* layout = std::get_if<QLayout*>(&thing)) {
      box.addLayout(*layout, share);
    } else if (const int* pixels = std::get_if<int>(&thing)) {
      box.addSpacing(*pixels);
    } else {
      box.addStretch(share);
    }
  }
}

QBoxLayout* columnIn(QWidget* widget, QMargins margins, int spacing, LayoutItems items) {
  auto* column = new QBoxLayout(QBoxLayout::TopToBottom, widget);
  column->setContentsMargins(margins);
  column->setSpacing(spacing);
  addItems(*column, items);
  return column;
}

QBoxLayout* lineIn(QWidget* widget, QMargins margins, int spacing, LayoutItems items) {
  auto* line = columnIn(widget, margins, spacing, items);
  line->setDirection(QBoxLayout::LeftToRight);
  return line;
}

QWidget* divider() {
  auto* line =
      new Canvas([](QPainter& painter, const QRectF& rect) { painter.fillRect(rect, colors().border); });
  line->setFixedHeight(1);
  line->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  return line;
}

QLayout* insetDivider(int left, int right) {
  return lineIn(nullptr, {left, 0, right, 0}, 0, {divider()});
}

// ScrollPage.

namespace {

constexpr int barWidth = 5;
constexpr int barGap = 4;  // from the edge, and at its ends
constexpr int leastKnob = 32;
constexpr int aroundFocus = 24;

/// Thin, without arrows.
class OverlayBar final : public QScrollBar {
 public:
  explicit OverlayBar(QWidget* parent) : QScrollBar(Qt::Vertical, parent) { setFocusPolicy(Qt::NoFocus); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    paintBox(painter, knob(), barWidth / 2.0, withAlpha(colors().controlBorder, 0.8));
  }

  void mousePressEvent(QMouseEvent* event) override {
    const QRectF held = knob();
    grip_ = held.contains(event->position()) ? event->position().y() - held.top() : held.height() / 2;
    mouseMoveEvent(event);
  }

  void mouseMoveEvent(QMouseEvent* event) override {
    const double way = height() - knob().height();
    if (way > 0) setValue(qRound((event->position().y() - grip_) / way * maximum()));
  }

 private:
  [[nodiscard]] QRectF knob() const {
    const double length =
        std::max<double>(leastKnob, static_cast<double>(height()) * pageStep() / (maximum() + pageStep()));
    const double way = height() - length;
    return {0, maximum() > 0 ? way * value() / maximum() : 0, barWidth, length};
  }

  double grip_ = 0;
};

}  // namespace

ScrollPage::ScrollPage() : bar_(new OverlayBar(this)) {
  setFrameShape(QFrame::NoFrame);
  setWidgetResizable(true);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setFocusPolicy(Qt::NoFocus);
  viewport()->setAutoFillBackground(false);
  QScrollBar* own = verticalScrollBar();
  own->setSingleStep(24);
  connect(own, &QScrollBar::rangeChanged, this, [this](int least, int greatest) {
    bar_->setRange(least, greatest);
    bar_->setPageStep(viewport()->height());
    bar_->setVisible(greatest > least);
  });
  connect(own, &QScrollBar::valueChanged, bar_, &QScrollBar::setValue);
  connect(bar_, &QScrollBar::valueChanged, own, &QScrollBar::setValue);
  connect(qApp, &QApplication::focusChanged, this, [this](QWidget* /*old*/, QWidget* now) {
    if (now != nullptr && widget() != nullptr && widget()->isAncestorOf(now))
      ensureWidgetVisible(now, 0, aroundFocus);
  });
  bar_->hide();
}

void ScrollPage::setPage(QWidget* content) {
  setWidget(content);
  content->setAutoFillBackground(false);
}

int ScrollPage::heightForWidth(int width) const {
  if (widget() == nullptr) return 0;
  return widget()->hasHeightForWidth() ? widget()->heightForWidth(width) : widget()->sizeHint().height();
}

bool ScrollPage::eventFilter(QObject* watched, QEvent* event) {
  // What surrounds it is laid out by its height.
  if (watched == widget() && event->type() == QEvent::LayoutRequest) updateGeometry();
  return QScrollArea::eventFilter(watched, event);
}

void ScrollPage::resizeEvent(QResizeEvent* event) {
  QScrollArea::resizeEvent(event);
  bar_->setPageStep(viewport()->height());
  bar_->setGeometry(width() - barGap - barWidth, barGap, barWidth, height() - 2 * barGap);
  bar_->raise();
}

bool ScrollPage::focusNextPrevChild(bool next) {
  // Not the scroll area's own.
  return QWidget::focusNextPrevChild(next);  // NOLINT(bugprone-parent-virtual-call)
}

void ScrollPage::keyPressEvent(QKeyEvent* event) {
  // Arrows belong to the controls; the page keys scroll.
  if (event->key() == Qt::Key_PageUp || event->key() == Qt::Key_PageDown) {
    QScrollArea::keyPressEvent(event);
  } else {
    event->ignore();
  }
}

// ToolbarPage.

// The button is made first: it stands first, also in the order of the Tab key.
ToolbarPage::ToolbarPage(const QString& leaveWords, QMargins aroundButton)
    : leave_(new PushButton(PushButton::Kind::plain, leaveWords)),
      page_(new ScrollPage),
      grid_(new QGridLayout(this)) {
  grid_->setContentsMargins({});
  grid_->setSpacing(0);
  grid_->addLayout(columnIn(nullptr, aroundButton, 0, {leave_}), 0, 0, Qt::AlignLeft | Qt::AlignTop);
  grid_->setRowStretch(1, 1);
  connect(&Theme::shared(), &Theme::changed, this, [this] { arrange(); });
  arrange();
}

void ToolbarPage::keyPressEvent(QKeyEvent* event) {
  // There may be nothing on the page that takes the focus, and so the keys.
  if (event->key() == Qt::Key_PageUp || event->key() == Qt::Key_PageDown) {
    page_->verticalScrollBar()->triggerAction(event->key() == Qt::Key_PageUp
                                                  ? QAbstractSlider::SliderPageStepSub
                                                  : QAbstractSlider::SliderPageStepAdd);
  } else {
    QWidget::keyPressEvent(event);
  }
}

void ToolbarPage::arrange() {
  const bool large = Theme::shared().textScale() > 1;
  grid_->removeWidget(page_);
  grid_->addWidget(page_, large ? 1 : 0, 0, large ? 1 : 2, 1);
  leave_->raise();
}

}  // namespace sentrel
