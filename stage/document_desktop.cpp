// SPDX-License-Identifier: Apache-2.0
#include "stage/document_desktop.h"

#include <QLinearGradient>
#include <QPainter>
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

namespace sentrel::test {

namespace {

// Drawn for this size and scaled to the screen.
constexpr QSizeF designSize(1920, 1080);
constexpr QColor paper(0xff, 0xff, 0xff);
constexpr QColor ink(0x19, 0x1b, 0x25);
constexpr QColor panel(0x0c, 0x0c, 0x0f);

QFont font(int pixels, QFont::Weight weight) {
  QFont result(QStringLiteral("Inter"));
  result.setPixelSize(pixels);
  result.setWeight(weight);
  return result;
}

void drawDocument(QPainter& painter) {
  constexpr QRectF page(210, 110, 1080, 820);
  constexpr double titleHeight = 44;
  painter.setPen(Qt::NoPen);
  painter.setBrush(paper);
  painter.drawRoundedRect(page, 12, 12);
  painter.save();
  painter.setClipRect(QRectF(page.x(), page.y(), page.width(), titleHeight));
  painter.setBrush(QColor(0xe8, 0xe8, 0xef));
  painter.drawRoundedRect(page, 12, 12);
  painter.restore();

  painter.setPen(ink);
  painter.setFont(font(15, QFont::DemiBold));
  painter.drawText(QRectF(page.x(), page.y(), page.width(), titleHeight), Qt::AlignCenter,
                   QStringLiteral("Compte rendu — confidentiel"));
  painter.setFont(font(30, QFont::Bold));
  painter.drawText(QPointF(290, 229), QStringLiteral("Synthèse du comité"));
  painter.setFont(font(17, QFont::Normal));
  const std::array<QString, 8> lines{
      QStringLiteral(
          "Le budget du second semestre est arrêté à 1,24 million d'euros, dont 380 000 euros pour "
          "la relocalisation du site"),
      QStringLiteral(
          "de Brest. Les recrutements prévus en juillet sont reportés au mois d'octobre, le temps de "
          "confirmer la reprise des"),
      QStringLiteral("commandes."),
      {},
      QStringLiteral("Points ouverts : accord de licence avec le partenaire portugais, calendrier de la "
                     "migration des postes, audit des"),
      QStringLiteral("accès distants. Chaque responsable transmet son avis avant vendredi midi."),
      {},
      QStringLiteral("Prochaine réunion le mardi 9 à 14 h, salle Iroise. Document à ne pas diffuser hors du "
                     "comité.")};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    painter.drawText(QPointF(290, 276 + 31.5 * static_cast<double>(i)), lines[i]);
  }

  painter.setPen(Qt::NoPen);
  constexpr std::array<int, 6> heights{120, 180, 150, 230, 200, 260};
  for (std::size_t i = 0; i < heights.size(); ++i) {
    painter.setBrush(i % 2 == 0 ? QColor(0x39, 0x43, 0xc4) : QColor(0x66, 0x70, 0xde));
    painter.drawRoundedRect(QRectF(290 + 150 * static_cast<double>(i), 870 - heights[i], 96, heights[i]), 5,
                            5);
  }
}

void drawTerminal(QPainter& painter) {
  painter.setBrush(ink);
  painter.drawRoundedRect(QRectF(1330, 250, 430, 480), 12, 12);
  const std::array<QColor, 3> colours{QColor(0x84, 0x8c, 0xe0), QColor(0x93, 0x96, 0xa3),
                                      QColor(0x4f, 0xb0, 0x7c)};
  constexpr std::array<int, 13> widths{220, 300, 180, 260, 330, 140, 290, 240, 310, 200, 270, 160, 230};
  constexpr std::array<std::size_t, 13> colourOf{0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0};
  for (std::size_t i = 0; i < widths.size(); ++i) {
    painter.setBrush(colours[colourOf[i]]);
    painter.drawRoundedRect(QRectF(1356, 314 + 28 * static_cast<double>(i), widths[i], 9), 4, 4);
  }
}

}  // namespace

DocumentDesktop::DocumentDesktop() {
  setFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnBottomHint);
  setTitle(QStringLiteral("Compte rendu"));
}

bool DocumentDesktop::isShownIn(const QImage& screen) {
  const struct {
    QPointF place;
    QColor colour;
  } spots[]{{{100, 16}, panel}, {{1200, 700}, paper}, {{1700, 280}, ink}};
  if (screen.isNull()) return false;
  return std::ranges::all_of(spots, [&](const auto& spot) {
    const QColor found =
        screen.pixelColor(static_cast<int>(spot.place.x() / designSize.width() * screen.width()),
                          static_cast<int>(spot.place.y() / designSize.height() * screen.height()));
    return std::abs(found.red() - spot.colour.red()) < 4 &&
           std::abs(found.green() - spot.colour.green()) < 4 &&
           std::abs(found.blue() - spot.colour.blue()) < 4;
  });
}

void DocumentDesktop::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(width() / designSize.width(), height() / designSize.height());
  QLinearGradient sky(0, 0, 0, designSize.height());
  sky.setColorAt(0, QColor(0x5f, 0x7f, 0xb4));
  sky.setColorAt(1, QColor(0xb4, 0xc6, 0xd8));
  painter.fillRect(QRectF(QPointF(), designSize), sky);
  painter.fillRect(QRectF(0, 0, designSize.width(), 32), panel);
  painter.setPen(Qt::white);
  painter.setFont(font(15, QFont::DemiBold));
  painter.drawText(QRectF(0, 0, designSize.width(), 32), Qt::AlignCenter,
                   QStringLiteral("mar. 2 juin  09:41"));
  drawDocument(painter);
  drawTerminal(painter);
  painted_ = true;
}

void DocumentDesktop::mousePressEvent(QMouseEvent* /*event*/) {
  ++clicks_;
}

}  // namespace sentrel::test
