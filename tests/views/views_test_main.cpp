// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QApplication>

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  QApplication::setStyle(QStringLiteral("fusion"));
  return RUN_ALL_TESTS();
}
