// SPDX-License-Identifier: Apache-2.0
#include "picture_book.h"

#include <QDir>
#include <QEventLoop>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QTimer>
#include <utility>

namespace sentrel::test {

PictureBook::PictureBook(QString folder) : folder_(std::move(folder)) {
  good_ = QDir().mkpath(folder_);
}

void PictureBook::setLook(const Theme::Look& look) {
  Theme::shared().setLook(look);
}

void PictureBook::wait(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

void PictureBook::add(const QString& name, QWidget& window, int margin) {
  const bool dark = Theme::shared().dark();
  addNamed(name + (dark ? QStringLiteral("-dark.png") : QStringLiteral("-light.png")), window, margin);
}

void PictureBook::addNamed(const QString& fileName, QWidget& window, int margin) {
  if (!window.isVisible()) window.show();
  window.activateWindow();
  wait(400);
  constexpr double scale = 2;  // as on a fine screen
  QImage shown(window.size() * scale, QImage::Format_ARGB32_Premultiplied);
  shown.setDevicePixelRatio(scale);
  shown.fill(Qt::transparent);
  window.render(&shown, QPoint(), QRegion(), QWidget::DrawChildren);
  const QSize size = window.size() + QSize(2 * margin, 2 * margin);
  QImage page(size * scale, QImage::Format_RGB32);
  page.setDevicePixelRatio(scale);
  QPainter painter(&page);
  QLinearGradient ground(0, 0, 0, size.height());
  const bool dark = Theme::shared().dark();
  ground.setColorAt(0, dark ? QColor(0x28, 0x33, 0x50) : QColor(0xB8, 0xC6, 0xE8));
  ground.setColorAt(1, dark ? QColor(0x11, 0x15, 0x22) : QColor(0xDF, 0xE4, 0xF1));
  painter.fillRect(QRect(QPoint(), size), ground);
  painter.drawImage(margin, margin, shown);
  painter.end();
  good_ = page.save(folder_ + QLatin1Char('/') + fileName) && good_;
}

}  // namespace sentrel::test
