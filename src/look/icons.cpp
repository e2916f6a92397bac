// SPDX-License-Identifier: Apache-2.0
#include "look/icons.h"

#include <QFile>
#include <QHash>
#include <QPainter>
#include <QXmlStreamReader>

#include "look/path_data.h"

namespace sentrel {

namespace {
constexpr double gridUnits = 24;

// Every drawing is one <path> over the whole grid, so that reading its data is all there is to SVG here.
QPainterPath readSymbol(const QString& symbol) {
  QFile file(QStringLiteral(":/sentrel/icons/%1.svg").arg(symbol));
  if (!file.open(QIODevice::ReadOnly)) return {};
  QXmlStreamReader xml(&file);
  while (!xml.atEnd()) {
    if (xml.readNext() != QXmlStreamReader::StartElement || xml.name() != u"path") continue;
    return parsePathData(xml.attributes().value(QLatin1String("d"))).value_or(QPainterPath());
  }
  return {};
}
}  // namespace

const QPainterPath& symbolPath(const QString& symbol) {
  static QHash<QString, QPainterPath> paths;
  const auto found = paths.constFind(symbol);
  return found != paths.constEnd() ? *found : *paths.insert(symbol, readSymbol(symbol));
}

void paintSymbol(QPainter& painter, const QString& symbol, const QRectF& box, const QColor& color) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.topLeft());
  painter.scale(box.width() / gridUnits, box.height() / gridUnits);
  painter.fillPath(symbolPath(symbol), color);
  painter.restore();
}

}  // namespace sentrel
