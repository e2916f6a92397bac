// SPDX-License-Identifier: Apache-2.0
#include "stage/document_desktop.h"

#include <QPainter>
#include <algorithm>
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

const auto text = QStringLiteral(
    "Le budget du second semestre est arrêté à 1,24 million d'euros, dont 380 000 euros pour la "
    "relocalisation du site de Brest. Les recrutements prévus en juillet sont reportés au mois d'octobre, "
    "le temps de confirmer la reprise des commandes.\n\n"
    "Points ouverts : accord de licence avec le partenaire portugais, calendrier de la migration des "
    "postes, audit des accès distants. Chaque responsable transmet son avis avant vendredi midi.\n\n"
    "Prochaine réunion le mardi 9 à 14 h, salle Iroise. Document à ne pas diffuser hors du comité.");

void drawDocument(QPainter& painter) {
  painter.setPen(Qt::NoPen);
  painter.setBrush(paper);
  painter.drawRoundedRect(QRectF(210, 110, 1080, 820), 12, 12);
  painter.setPen(ink);
  painter.setFont(font(15, QFont::DemiBold));
  painter.drawText(QRectF(210, 110, 1080, 44), Qt::AlignCenter,
                   QStringLiteral("Compte rendu — confidentiel"));
  painter.setFont(font(30, QFont::Bold));
  painter.drawText(QPointF(290, 229), QStringLiteral("Synthèse du comité"));
  painter.setFont(font(17, QFont::Normal));
  painter.drawText(QRectF(290, 256, 920, 320), Qt::TextWordWrap, text);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0x39, 0x43, 0xc4));
  double left = 290;
  for (const int height : {120, 180, 150, 230, 200, 260}) {
    painter.drawRoundedRect(QRectF(left, 870 - height, 96, height), 5, 5);
    left += 150;
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
  painter.fillRect(QRectF(QPointF(), designSize), QColor(0x8a, 0xa3, 0xc6));
  painter.fillRect(QRectF(0, 0, designSize.width(), 32), panel);
  painter.setPen(Qt::white);
  painter.setFont(font(15, QFont::DemiBold));
  painter.drawText(QRectF(0, 0, designSize.width(), 32), Qt::AlignCenter,
                   QStringLiteral("mar. 2 juin  09:41"));
  drawDocument(painter);
  painter.setBrush(ink);
  painter.drawRoundedRect(QRectF(1330, 250, 430, 480), 12, 12);  // a terminal
  painted_ = true;
}

}  // namespace sentrel::test
