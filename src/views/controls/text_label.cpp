// SPDX-License-Identifier: Apache-2.0
#include "views/controls/text_label.h"

#include <QPainter>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr double widest = 10000;
constexpr double balanceStep = 6;
constexpr double narrowestBalanced = 200;

double lineHeightOf(TextRole role) {
  switch (role) {
    case TextRole::count:
      return 80;
    case TextRole::numberLarge:
      return 40;
    case TextRole::numberMedium:
      return 30;
    case TextRole::title1:
      return 28;
    case TextRole::title2:
    case TextRole::title2Small:
      return 26;
    case TextRole::title3:
      return 22;
    case TextRole::popoverTitle:
    case TextRole::headline:
    case TextRole::body:
    case TextRole::bodyLabel:
    case TextRole::bodyButton:
      return 20;
    case TextRole::subheadline:
    case TextRole::subheadlineStrong:
      return 18;
    case TextRole::caption:
      return 16;
  }
  return 20;
}

}  // namespace

TextLabel* centredLabel(TextRole role, const QString& words, TextLabel::Token color) {
  auto* label = new TextLabel(role, color);
  label->setWords(words);
  label->setAlignment(Qt::AlignHCenter);
  return label;
}

TextLabel::TextLabel(TextRole role, Token color, QWidget* parent)
    : QLabel(parent), role_(role), color_(color) {
  QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
  policy.setHeightForWidth(true);
  setSizePolicy(policy);
  setTextFormat(Qt::PlainText);
  connect(&Theme::shared(), &Theme::changed, this, [this] { restyle(); });
  restyle();
}

void TextLabel::setWords(const QString& words) {
  QString plain = words;
  boldFrom_ = static_cast<int>(plain.indexOf(QLatin1String("**")));
  boldLength_ = 0;
  if (boldFrom_ >= 0) {
    plain.remove(boldFrom_, 2);
    const auto end = plain.indexOf(QLatin1String("**"), boldFrom_);
    boldLength_ = static_cast<int>(end < 0 ? plain.size() - boldFrom_ : end - boldFrom_);
    if (end >= 0) plain.remove(end, 2);
  }
  if (plain == words_) return;
  words_ = plain;
  setText(plain);  // for assistive technology; painted below
  updateGeometry();
  update();
}

void TextLabel::setColor(Token color) {
  color_ = color;
  update();
}

void TextLabel::setBalanced(bool balanced) {
  balanced_ = balanced;
  update();
}

void TextLabel::setLineHeight(double pixels) {
  ownLineHeight_ = pixels;
  updateGeometry();
}

void TextLabel::restyle() {
  setFont(Theme::shared().font(role_));
  updateGeometry();
  update();
}

double TextLabel::lineHeight() const {
  return (ownLineHeight_ > 0 ? ownLineHeight_ : lineHeightOf(role_)) * Theme::shared().textScale();
}

std::unique_ptr<QTextLayout> TextLabel::layOut(double width) const {
  auto layout = std::make_unique<QTextLayout>(words_, font());
  QTextOption option(Qt::Alignment(alignment() & Qt::AlignHorizontal_Mask));
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  layout->setTextOption(option);
  if (boldLength_ > 0) {
    QTextLayout::FormatRange bold;
    bold.start = boldFrom_;
    bold.length = boldLength_;
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
  return words_.isEmpty() ? 0 : std::max(1, layOut(width)->lineCount());
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
  const QMargins margins = contentsMargins();
  const int width =
      static_cast<int>(std::ceil(layOut(widest)->maximumWidth())) + 1 + margins.left() + margins.right();
  return {width,
          static_cast<int>((words_.isEmpty() ? 0 : 1) * lineHeight()) + margins.top() + margins.bottom()};
}

QSize TextLabel::minimumSizeHint() const {
  return {0, sizeHint().height()};
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
  const QRectF inner = contentsRect();
  const double width = balanced_ ? balancedWidth(inner.width()) : inner.width();
  const auto layout = layOut(width);
  double y = inner.top();
  const double height = layout->lineCount() * lineHeight();
  if (alignment() & Qt::AlignVCenter) y += std::floor((inner.height() - height) / 2);
  if (alignment() & Qt::AlignBottom) y += inner.height() - height;
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  painter.setPen(colors().*color_);
  layout->draw(&painter, QPointF(inner.left() + (inner.width() - width) / 2, y));
}

}  // namespace sentrel
