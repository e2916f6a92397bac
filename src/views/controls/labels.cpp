// SPDX-License-Identifier: Apache-2.0
#include "views/controls/labels.h"

#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double widest = 10000;
constexpr double balanceStep = 6;
constexpr double narrowestBalanced = 200;
const QString boldMark = QStringLiteral("**");
}  // namespace

TextLabel* centredLabel(TextRole role, const QString& words, TextLabel::Token color) {
  auto* label = new TextLabel(role, words, color);
  label->setAlignment(Qt::AlignHCenter);
  return label;
}

TextLabel::TextLabel(TextRole role, const QString& words, Token color)
    : color_(color), lineHeight_(roleLineHeight(role)) {
  QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
  policy.setHeightForWidth(true);
  setSizePolicy(policy);
  setTextFormat(Qt::PlainText);
  useFont(*this, role);
  setWords(words);
}

void TextLabel::setWords(const QString& words) {
  QString plain = words;
  boldFrom_ = plain.indexOf(boldMark);
  if (boldFrom_ >= 0) {
    plain.remove(boldFrom_, boldMark.size());
    boldLength_ = std::max<qsizetype>(0, plain.indexOf(boldMark, boldFrom_) - boldFrom_);
    plain.remove(boldMark);
  }
  if (plain == text()) return;
  setText(plain);  // for assistive technology; painted below
  updateGeometry();
  update();
}

void TextLabel::setColor(Token color) {
  color_ = color;
  update();
}

double TextLabel::lineHeight() const {
  return lineHeight_ * Theme::shared().textScale();
}

std::unique_ptr<QTextLayout> TextLabel::layOut(double width) const {
  auto layout = std::make_unique<QTextLayout>(text(), font());
  QTextOption option(Qt::Alignment(alignment() & Qt::AlignHorizontal_Mask));
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  layout->setTextOption(option);
  if (boldFrom_ >= 0) {
    QTextLayout::FormatRange bold;
    bold.start = static_cast<int>(boldFrom_);
    bold.length = static_cast<int>(boldLength_);
    bold.format.setFontWeight(QFont::Bold);
    layout->setFormats({bold});
  }
  layout->beginLayout();
  double y = 0;
  for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
    line.setLineWidth(width);
    // On whole pixels, where text is sharpest.
    line.setPosition(QPointF(0, std::round(y + (lineHeight() - line.height()) / 2)));
    y += lineHeight();
  }
  layout->endLayout();
  return layout;
}

int TextLabel::lineCount(double width) const {
  return text().isEmpty() ? 0 : std::max(1, layOut(width)->lineCount());
}

double TextLabel::balancedWidth(double width) const {
  const int lines = lineCount(width);
  while (lines > 1 && width - balanceStep >= narrowestBalanced && lineCount(width - balanceStep) == lines)
    width -= balanceStep;
  return width;
}

int TextLabel::heightForWidth(int width) const {
  const QMargins margins = contentsMargins();
  const int inner = width - margins.left() - margins.right();
  return static_cast<int>(std::ceil(lineCount(inner) * lineHeight())) + margins.top() + margins.bottom();
}

QSize TextLabel::sizeHint() const {
  const int width = static_cast<int>(std::ceil(layOut(widest)->maximumWidth())) + 1;
  return QSize(width, text().isEmpty() ? 0 : static_cast<int>(lineHeight())).grownBy(contentsMargins());
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
  const QRectF inner = contentsRect();
  const double width = balanced_ ? balancedWidth(inner.width()) : inner.width();
  const auto layout = layOut(width);
  const double height = layout->lineCount() * lineHeight();
  double y = inner.top();
  if (alignment() & Qt::AlignVCenter) y += std::floor((inner.height() - height) / 2);
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  painter.setPen(colors().*color_);
  layout->draw(&painter, QPointF(inner.left() + (inner.width() - width) / 2, y));
}

QWidget* symbolView(const QString& symbol, int pixels, TextLabel::Token color, int disc) {
  const auto paint = [=](QPainter& painter, const QRectF& whole) {
    if (disc > 0) {
      const bool high = Theme::shared().highContrast();
      paintBox(painter, whole, whole.width() / 2, colors().tonal, high ? colors().border : QColor());
    }
    paintSymbol(painter, symbol, squareIn(whole, Theme::shared().iconSize(pixels)), colors().*color);
  };
  return new Canvas(paint, std::max(pixels, disc));
}

}  // namespace sentrel
