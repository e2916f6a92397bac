// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QGuiApplication>
#include <QImage>
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/stripe_reference.h"

namespace sentrel {
namespace {

std::vector<std::uint32_t> paint(const OverlayScene& scene, int width, int height, double scale) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width * height));
  ScenePainter(scene, width, height, scale).paint(width, height, pixels);
  return pixels;
}

int channel(std::uint32_t pixel, int shift) {
  return static_cast<int>(pixel >> shift & 0xFFU);
}

TEST(ScenePainter, AgreesWithASampledDrawing) {
  const struct {
    int width;
    int height;
    double scale;
    StripePattern stripes;
    double veil;
  } cases[] = {
      {96, 54, 1, {8, 0x000000, 0.42, 0.4125}, 0}, {97, 55, 1, {9.2376, 0x000000, 0.42, 1}, 0},
      {1, 1, 1, {5.66, 0x000000, 1, 1}, 0},        {1, 61, 1, {5.66, 0x000000, 1, 1}, 0},
      {61, 1, 1, {5.66, 0x000000, 1, 1}, 0},       {101, 57, 1.25, {11.3137, 0x3060C0, 0.8, 0.75}, 0},
      {64, 48, 2, {8, 0xFF0000, 1, 0.5}, 0},       {80, 45, 1, {11.3137, 0x20FF40, 0.42, 0.75}, 0.7},
      {50, 50, 1, {1, 0x000000, 1, 1}, 0},     // finer than a pixel
      {50, 31, 1, {400, 0x000000, 1, 1}, 0},   // wider than the picture
      {3840, 3, 1, {11.3137, 0, 0.42, 1}, 0},  // far from the origin
  };
  for (const auto& [width, height, scale, stripes, veil] : cases) {
    SCOPED_TRACE(testing::Message() << width << "x" << height << " scale " << scale << " period "
                                    << stripes.period);
    const auto pixels = paint({.stripes = stripes, .veilAlpha = veil}, width, height, scale);
    const int step = width > 200 ? 37 : 3;
    double worst = 0;
    for (int y = 0; y < height; y += 4) {
      for (int x = 0; x < width; x += step) {
        const double coverage = test::sampledStripeCoverage(width, height, scale, stripes.period, x, y);
        const double light = coverage * stripes.stripeAlpha * stripes.layerAlpha * (1 - veil);
        const std::uint32_t pixel = pixels[static_cast<std::size_t>(y * width + x)];
        worst = std::max(worst, std::abs(channel(pixel, 24) - (light + veil) * 255));
        for (const int shift : {16, 8, 0}) {
          worst = std::max(worst, std::abs(channel(pixel, shift) - channel(stripes.rgb, shift) * light));
        }
      }
    }
    EXPECT_LE(worst, 1.5);  // of 255: half for rounding, the rest for the sampling
  }
}

TEST(ScenePainter, SurvivesWhatCannotBeDrawn) {
  const double broken = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(ScenePainter::covers({.stripes = {}, .banner = true, .shortcutInHint = true}));
  EXPECT_FALSE(ScenePainter::covers({.stripes = StripePattern{8, 0, broken, 1}}));
  EXPECT_TRUE(ScenePainter::covers({.stripes = {}, .veilAlpha = 0.7}));
  const StripePattern black{8, 0, 1, 1};
  ScenePainter({.stripes = black}, 0, 0, 1).paint(0, 0, {});
  for (const double period : {0.0, -3.0, broken}) {
    // Half of everything is covered, as by any pattern finer than a pixel.
    const auto pixels = paint({.stripes = StripePattern{period, 0, 1, 1}}, 40, 30, 1);
    EXPECT_NEAR(channel(pixels[600], 24), 128, 8);
  }
  const auto pixels = paint({.stripes = StripePattern{8, 0xFFFFFF, 7, 7}, .veilAlpha = 9}, 4, 4, 1);
  EXPECT_EQ(pixels.front(), 0xFF000000U);
}

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
    // A fine chessboard made smaller is grey all over, not black or white.
    GreyPicture board = flat(768, 768, 0);
    for (std::size_t i = 0; i < board.levels.size(); ++i)
      board.levels[i] = (i % 768 + i / 768) % 2 == 0 ? 255 : 0;
    paint(&board);
    for (int x = 90; x < 170; ++x)
      EXPECT_THAT(qGreen(at(x, 96)), testing::AllOf(testing::Gt(70), testing::Lt(140)));

    paint(nullptr);
    EXPECT_EQ(at(128, 96), 0xFF000000);
    for (const double x : {2.0, 254.0}) {
      for (const double y : {12.0, 180.0}) EXPECT_EQ(qGreen(at(x, y)), 255) << "brackets";
      EXPECT_EQ(qGreen(at(x < 128 ? 3 : 252, 96)), 0) << "between them";
    }
    double brightest = 0;
    for (double x = 19; x <= 99; x += 0.4)
      for (double y = 6; y <= 18; y += 0.4) brightest = std::max<double>(brightest, qGreen(at(x, y)));
    EXPECT_GT(brightest, 200) << "caption";
    const QImage dot = painter.dot(brightestBlink);
    EXPECT_EQ(dot.pixel(dot.rect().center()), 0xFF2EFF47);
    EXPECT_NEAR(painter.dotPlace().center().x(), 10.5 * scale, 1);
  }
}

}  // namespace
}  // namespace sentrel
