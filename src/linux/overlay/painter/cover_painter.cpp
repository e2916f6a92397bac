// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/cover_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "look/eye.h"
#include "look/fonts.h"
#include "look/palette.h"

namespace sentrel {

namespace {

// Logical pixels.
constexpr double eyeSize = 96;
constexpr double gap = 24;       // below the eye, and above the button
constexpr double smallGap = 16;  // below the button
constexpr double buttonWidth = 264;
constexpr double buttonHeight = 40;
constexpr double buttonPadding = 18;
constexpr double buttonLine = 20;  // of its text at the usual size
constexpr double buttonRadius = 8;
constexpr double edge = 16;  // free on every side

// What stands a little above the middle looks centred.
constexpr double opticalCentre = 0.46;

const AppColors& colorsOf(const Cover& cover) {
  return AppColors::of(AppColors::Scheme::dark,
                       cover.highContrast ? AppColors::Contrast::high : AppColors::Contrast::normal);
}

struct Line {
  QString words;
  QFont font;
  QColor color;

  [[nodiscard]] double width() const { return std::ceil(QFontMetricsF(font).horizontalAdvance(words)); }
  [[nodiscard]] double height() const { return std::ceil(QFontMetricsF(font).height()); }
  void paint(QPainter& painter, const QRectF& box) const {
    painter.setFont(font);
    painter.setPen(color);
    painter.drawText(box, Qt::AlignCenter | Qt::TextSingleLine, words);
  }
};

}  // namespace

QColor coverGround(const Cover& cover) {
  return colorsOf(cover).window;
}

CoverPanel paintCover(const Rect& screen, double scale, const Cover& cover) {
  const AppColors& c = colorsOf(cover);
  const double text = std::clamp(cover.textScale, 1.0, 2.0);
  const Line title{qtTrId("cover_title"), roleFont(TextRole::title3, text), c.text};
  const Line words{qtTrId("Découvrir"), roleFont(TextRole::bodyButton, text), c.text};
  const Line hint{cover.shortcut ? qtTrId("Appuyez de nouveau pour découvrir") : QString(),
                  roleFont(TextRole::subheadline, text), c.textSecondary};
  const QSizeF button(std::max(buttonWidth, words.width() + 2 * buttonPadding),
                      buttonHeight + buttonLine * (text - 1));
  const double eyeBox = eyeSize * (1 + (text - 1) / 2);  // as pictures in windows grow
  const double titleTop = eyeBox + gap;
  const double buttonTop = titleTop + title.height() + gap;
  const double hintTop = buttonTop + button.height() + smallGap;
  const QSizeF size(std::max({button.width(), title.width(), hint.width()}),
                    cover.shortcut ? hintTop + hint.height() : buttonTop + button.height());

  const double room = std::min((screen.width / scale - 2 * edge) / size.width(),
                               (screen.height / scale - 2 * edge) / size.height());
  scale *= std::clamp(room, 0.1, 1.0);
  const auto device = [scale](double logical) { return static_cast<int>(std::lround(logical * scale)); };
  QImage image(std::max(1, static_cast<int>(std::ceil(size.width() * scale))),
               std::max(1, static_cast<int>(std::ceil(size.height() * scale))),
               QImage::Format_ARGB32_Premultiplied);
  image.fill(c.window);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(scale, scale);
  paintEye(painter, QRectF((size.width() - eyeBox) / 2, 0, eyeBox, eyeBox),
           {.openness = eyeAtRest, .color = c.primary, .scheme = AppColors::Scheme::dark});
  title.paint(painter, QRectF(0, titleTop, size.width(), title.height()));
  const QRectF box(QPointF((size.width() - button.width()) / 2, buttonTop), button);
  painter.setPen(cover.highContrast ? QPen(c.controlBorder, 1) : QPen(Qt::NoPen));
  painter.setBrush(c.tonal);
  painter.drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), buttonRadius, buttonRadius);
  words.paint(painter, box);
  hint.paint(painter, QRectF(0, hintTop, size.width(), hint.height()));

  const int free = screen.height - image.height();
  const int top = std::max(free / 4, qRound(opticalCentre * screen.height - image.height() / 2.0));
  return {{image, QPoint(screen.x + (screen.width - image.width()) / 2, screen.y + top)},
          {device(box.x()), device(box.y()), device(box.width()), device(box.height())}};
}

}  // namespace sentrel
