// SPDX-License-Identifier: Apache-2.0
#include "look/icons.h"

#include <gmock/gmock.h>

#include <QDir>

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
  EXPECT_FALSE(symbolPath("eye.fill").contains(QPointF(15.5, 12))) << "the ring around the pupil stays open";
}

}  // namespace
}  // namespace sentrel
