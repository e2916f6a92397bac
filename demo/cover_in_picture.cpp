// SPDX-License-Identifier: Apache-2.0
#include "cover_in_picture.h"

#include <QRect>

namespace sentrel::test {

double meanBrightness(const QImage& picture) {
  double sum = 0;
  int count = 0;
  for (int y = 0; y < picture.height(); y += 8) {
    for (int x = 0; x < picture.width(); x += 8, ++count) sum += qGray(picture.pixel(x, y));
  }
  return count == 0 ? 0 : sum / count;
}

bool showsOnlooker(const QImage& picture) {
  const QRect place(picture.width() - 276, picture.height() - 272, 256, 192);
  const auto isGreen = [&](int x, int y) {
    const QRgb pixel = picture.pixel(x, y);
    return qGreen(pixel) > 40 && qGreen(pixel) > 2 * qRed(pixel) && qGreen(pixel) > 2 * qBlue(pixel);
  };
  int inside = 0;
  for (int y = place.top() + 20; y < place.bottom() - 20; y += 4) {
    for (int x = place.left() + 20; x < place.right() - 20; x += 4) inside += isGreen(x, y) ? 1 : 0;
  }
  const QPoint middle = place.center();
  return inside > 200 && isGreen(middle.x(), place.top()) && isGreen(middle.x(), place.bottom()) &&
         isGreen(place.left(), middle.y()) && isGreen(place.right(), middle.y());
}

}  // namespace sentrel::test
