// SPDX-License-Identifier: Apache-2.0
#include "look/icons.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QImage>
#include <QPainter>

namespace sentrel {
namespace {

TEST(Symbols, EveryDrawingFillsItsGridAndNotMore) {
  const QStringList files = QDir(":/sentrel/icons").entryList();
  EXPECT_EQ(files.size(), 24);
  for (const QString& file : files) {
    SCOPED_TRACE(file.toStdString());
    const QRectF bounds = symbolPath(QString(file).chopped(4)).boundingRect();
    EXPECT_TRUE(QRectF(0, 0, 24, 24).contains(bounds));
    EXPECT_GT(bounds.width(), 7);
    EXPECT_GT(bounds.height(), 7);
  }
  EXPECT_TRUE(symbolPath("no.such.symbol").isEmpty());
}

TEST(Symbols, CutOutsStayOpen) {
  QImage image(48, 48, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  {
    QPainter painter(&image);
    paintSymbol(painter, "eye.fill", QRectF(0, 0, 48, 48), Qt::white);
  }
  EXPECT_EQ(qAlpha(image.pixel(24, 24)), 255) << "the pupil";
  EXPECT_EQ(qAlpha(image.pixel(24 + 7, 24)), 0) << "the ring around it";
  EXPECT_EQ(qAlpha(image.pixel(24 + 13, 24)), 255) << "the eye";
  EXPECT_EQ(qAlpha(image.pixel(2, 2)), 0) << "outside";
}

}  // namespace
}  // namespace sentrel
