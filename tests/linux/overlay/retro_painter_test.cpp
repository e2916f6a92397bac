// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/retro_painter.h"

#include <gmock/gmock.h>

#include <QGuiApplication>
#include <QImage>
#include <algorithm>

namespace sentrel {
namespace {

GreyPicture flat(int width, int height, std::uint8_t level) {
  GreyPicture picture{width, height, FrameMemory<std::uint8_t>(static_cast<std::size_t>(width * height))};
  std::ranges::fill(picture.levels, level);
  return picture;
}

TEST(RetroPainter, ShowsAGreenPictureUnderScanLinesWithinItsDecorations) {
  int argumentCount = 1;
  char name[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
  char* arguments[] = {name, nullptr};  // NOLINT(modernize-avoid-c-arrays)
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QGuiApplication application(argumentCount, arguments);
  for (const double scale : {1.0, 1.25, 2.0}) {
    SCOPED_TRACE(scale);
    RetroPainter painter(scale);
    ASSERT_EQ(painter.width(), qRound(256 * scale));
    QImage image(painter.width(), painter.height(), QImage::Format_RGB32);
    const auto at = [&](double x, double y) {
      return image.pixel(static_cast<int>(x * scale), static_cast<int>(y * scale));
    };
    const auto paint = [&](const GreyPicture* picture) {
      painter.paint(picture, {reinterpret_cast<std::uint32_t*>(image.bits()),
                              static_cast<std::size_t>(image.width() * image.height())});
    };
    const GreyPicture portrait = flat(120, 240, 255);
    paint(&portrait);
    for (const double bar : {70.0, 185.0}) EXPECT_EQ(at(bar, 96), 0xFF000000) << "at a tall picture's side";
    EXPECT_NE(at(84, 96), 0xFF000000);
    // Over whole periods half of it lies under lines of 0.38.
    double sum = 0;
    const int rows = qRound(60 * scale);
    for (int y = rows; y < 2 * rows; ++y) {
      const QRgb pixel = image.pixel(qRound(128 * scale), y);
      sum += qGreen(pixel);
      EXPECT_NEAR(qRed(pixel), qGreen(pixel) * 0.18, 1);
      EXPECT_NEAR(qBlue(pixel), qGreen(pixel) * 0.28, 1);
    }
    EXPECT_NEAR(sum / rows, 255 * (1 - 0.38 / 2), 2);

    paint(nullptr);
    EXPECT_EQ(at(128, 96), 0xFF000000);
    EXPECT_EQ(at(0, 0), 0xFF000000) << "outside of the border's corner";
    for (const double x : {2.0, 254.0}) {
      for (const double y : {12.0, 180.0}) EXPECT_EQ(qGreen(at(x, y)), 255) << "brackets";
      EXPECT_EQ(qGreen(at(x < 128 ? 3 : 252, 96)), 0) << "between them";
    }
    EXPECT_NEAR(qGreen(at(128, 0.5)), 0.75 * 255, 3) << "border";
    const auto brightest = [&](QRect logical) {
      int most = 0;
      for (double y = logical.top(); y <= logical.bottom(); y += 0.4) {
        for (double x = logical.left(); x <= logical.right(); x += 0.4)
          most = std::max(most, qGreen(at(x, y)));
      }
      return most;
    };
    EXPECT_GT(brightest({19, 6, 80, 12}), 200) << "caption";
    EXPECT_NEAR(brightest({214, 176, 36, 11}), 0.4 * 255, 25) << "tag";
    const QImage dot = painter.dot(brightestBlink);
    EXPECT_EQ(dot.pixel(dot.rect().center()), 0xFF2EFF47);
    EXPECT_NEAR(painter.dotPlace().center().x(), 10.5 * scale, 1);
  }
}

}  // namespace
}  // namespace sentrel
