// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/retro_painter.h"

#include <gmock/gmock.h>

#include <QGuiApplication>
#include <QImage>
#include <algorithm>

#include "linux/overlay/painter/grey_scaler.h"

namespace sentrel {
namespace {

GreyPicture flat(int width, int height, std::uint8_t level) {
  return {width, height, std::vector<std::uint8_t>(static_cast<std::size_t>(width * height), level)};
}

QImage painted(RetroPainter& painter, const GreyPicture* picture) {
  QImage image(painter.width(), painter.height(), QImage::Format_RGB32);
  painter.paint(picture, {reinterpret_cast<std::uint32_t*>(image.bits()),
                          static_cast<std::size_t>(image.width() * image.height())});
  return image;
}

TEST(GreyScaler, KeepsBrightnessAndPlace) {
  GreyScaler scaler;
  for (const int size : {1, 2, 7, 64, 250}) {
    const auto& white = scaler.scale(flat(size, size, 255), 96, 40);
    EXPECT_EQ(*std::ranges::min_element(white), 255) << size;
  }
  // A fine chessboard made smaller is grey all over, not black or white.
  GreyPicture board = flat(200, 200, 0);
  for (std::size_t i = 0; i < board.levels.size(); ++i)
    board.levels[i] = (i % 200 + i / 200) % 2 == 0 ? 255 : 0;
  EXPECT_THAT(scaler.scale(board, 50, 50), testing::Each(testing::AllOf(testing::Ge(120), testing::Le(135))));
  // An edge stays where it is.
  GreyPicture edge = flat(40, 1, 0);
  std::fill(edge.levels.begin() + 30, edge.levels.end(), std::uint8_t{200});
  const auto& scaled = scaler.scale(edge, 80, 1);
  EXPECT_EQ(scaled[57], 0);
  EXPECT_EQ(scaled[62], 200);
}

class RetroPainterTest : public testing::TestWithParam<double> {
 protected:
  static void SetUpTestSuite() {
    static int argumentCount = 1;
    static char name[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
    static char* arguments[] = {name, nullptr};  // NOLINT(modernize-avoid-c-arrays)
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static const QGuiApplication application(argumentCount, arguments);
  }
};

TEST_P(RetroPainterTest, ShowsTheWholePictureInGreenUnderScanLines) {
  const double scale = GetParam();
  RetroPainter painter(scale);
  ASSERT_EQ(painter.width(), qRound(256 * scale));
  const auto device = [scale](int logical) { return qRound(logical * scale); };
  const GreyPicture portrait = flat(120, 240, 255);
  const QImage image = painted(painter, &portrait);
  // A tall picture has black bars at its sides.
  EXPECT_EQ(image.pixel(device(70), device(96)), 0xFF000000);
  EXPECT_NE(image.pixel(device(84), device(96)), 0xFF000000);
  EXPECT_EQ(image.pixel(device(185), device(96)), 0xFF000000);
  // Over whole periods half of it lies under lines of 0.38.
  double sum = 0;
  const int rows = device(60);
  for (int y = 0; y < rows; ++y) {
    const QRgb pixel = image.pixel(device(128), device(60) + y);
    sum += qGreen(pixel);
    EXPECT_NEAR(qRed(pixel), qGreen(pixel) * 0.18, 1);
    EXPECT_NEAR(qBlue(pixel), qGreen(pixel) * 0.28, 1);
  }
  EXPECT_NEAR(sum / rows, 255 * (1 - 0.38 / 2), 2);
}

TEST_P(RetroPainterTest, DrawsItsDecorationsAlsoWithoutAPicture) {
  const double scale = GetParam();
  RetroPainter painter(scale);
  const QImage image = painted(painter, nullptr);
  const auto greenAt = [&](double x, double y) {
    return qGreen(image.pixel(static_cast<int>(x * scale), static_cast<int>(y * scale)));
  };
  EXPECT_EQ(greenAt(128, 96), 0);
  EXPECT_EQ(greenAt(0, 0), 0) << "outside of the border's corner";
  for (const double x : {2.0, 254.0}) {
    EXPECT_EQ(greenAt(x, 12), 255) << "brackets";
    EXPECT_EQ(greenAt(x, 180), 255) << "brackets";
    EXPECT_EQ(greenAt(x < 128 ? 3 : 252, 96), 0) << "between them";
  }
  EXPECT_NEAR(greenAt(128, 0.5), 0.75 * 255, 3) << "border";
  const auto brightest = [&](QRect logical) {
    int most = 0;
    for (int y = qRound(logical.top() * scale); y < qRound((logical.bottom() + 1) * scale); ++y) {
      for (int x = qRound(logical.left() * scale); x < qRound((logical.right() + 1) * scale); ++x) {
        most = std::max(most, qGreen(image.pixel(x, y)));
      }
    }
    return most;
  };
  EXPECT_GT(brightest({19, 6, 80, 12}), 200) << "caption";
  EXPECT_NEAR(brightest({214, 176, 36, 11}), 0.4 * 255, 25) << "tag";

  const QImage dot = painter.dot(brightestBlink);
  EXPECT_EQ(dot.pixel(dot.width() / 2, dot.height() / 2), 0xFF2EFF47);
  EXPECT_EQ(qAlpha(painter.dot(0).pixel(dot.width() / 2, dot.height() / 2)), 0);
  EXPECT_NEAR(painter.dotPlace().center().x(), 10.5 * scale, 1);
}

INSTANTIATE_TEST_SUITE_P(Scales, RetroPainterTest, testing::Values(1, 1.25, 2));

TEST(PlaceRetro, LiesInTheLowerRightCorner) {
  EXPECT_EQ(placeRetro({1920, 0, 1920, 1080}, 1), (Rect{3564, 808, 256, 192}));
  EXPECT_EQ(placeRetro({0, 0, 3840, 2160}, 2), (Rect{3288, 1616, 512, 384}));
}

}  // namespace
}  // namespace sentrel
