// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QGuiApplication>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "linux/overlay/painter/cover_painter.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "look/palette.h"

namespace sentrel {
namespace {

int channel(std::uint32_t pixel, int shift) {
  return static_cast<int>(pixel >> shift & 0xFFU);
}

/// How much of a pixel lies under stripes, by drawing them as given, in a turned frame, and sampling.
double sampledCoverage(int width, int height, double scale, double period, int x, int y) {
  constexpr int side = 96;
  const double diagonal = std::hypot(width, height) / scale;
  int covered = 0;
  for (int i = 0; i < side; ++i) {
    for (int j = 0; j < side; ++j) {
      // Rows of samples are shifted against each other, or whole diagonals of them would change at once.
      const double dx = (x + (i + (j + 0.5) / side) / side - width / 2.0) / scale;
      const double dy = (y + (j + 0.5) / side - height / 2.0) / scale;
      const double into = std::fmod((dx + dy) * std::numbers::sqrt2 / 2 + diagonal, period);
      if (into < period / 2) ++covered;
    }
  }
  return static_cast<double>(covered) / (side * side);
}

TEST(ScenePainter, AgreesWithASampledDrawing) {
  const struct {
    int width;
    int height;
    double scale;
    StripePattern stripes;
    double veil;
  } cases[] = {
      {97, 55, 1, {9.2376, 0x000000, 0.42, 1}, 0}, {1, 61, 1, {5.66, 0x000000, 1, 1}, 0},
      {61, 1, 1, {5.66, 0x000000, 1, 1}, 0},       {101, 57, 1.25, {11.3137, 0x3060C0, 0.8, 0.75}, 0},
      {64, 48, 2, {8, 0xFF0000, 1, 0.5}, 0},       {80, 45, 1, {11.3137, 0x20FF40, 0.42, 0.75}, 0.7},
      {50, 50, 1, {1, 0x000000, 1, 1}, 0},     // finer than a pixel
      {50, 31, 1, {400, 0x000000, 1, 1}, 0},   // wider than the picture
      {3840, 3, 1, {11.3137, 0, 0.42, 1}, 0},  // far from the origin
  };
  for (const auto& [width, height, scale, stripes, veil] : cases) {
    SCOPED_TRACE(testing::Message() << width << "x" << height << " period " << stripes.period);
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width * height));
    ScenePainter({.stripes = stripes, .veilAlpha = veil}, width, height, scale).paint(width, height, pixels);
    double worst = 0;
    for (int y = 0; y < height; y += 4) {
      for (int x = 0; x<width; x += width> 200 ? 37 : 3) {
        const double coverage = sampledCoverage(width, height, scale, stripes.period, x, y);
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

/// Painters of words.
struct WordsTest : testing::Test {
  int argumentCount = 1;
  const QGuiApplication application{(qputenv("QT_QPA_PLATFORM", "offscreen"), argumentCount),
                                    &program_invocation_name};
};
using CoverPainterTest = WordsTest;
using RetroPainterTest = WordsTest;

TEST_F(CoverPainterTest, TheButtonIsThereInEveryLook) {
  const struct {
    Rect screen;
    double scale;
    Cover cover;
    QSize button;  // at least; empty where there is no room for it
  } cases[] = {
      {{0, 0, 1920, 1080}, 1, {}, {264, 40}},
      {{1920, 200, 3840, 2160}, 2, {.shortcut = true}, {528, 80}},
      {{0, 0, 1080, 1920}, 1.25, {.shortcut = true, .highContrast = true}, {330, 50}},
      {{0, 0, 1366, 768}, 1, {.shortcut = true, .highContrast = false, .textScale = 2}, {264, 40}},
      {{0, 0, 320, 200}, 1, {.shortcut = true, .highContrast = false, .textScale = 2}, {}},
      {{0, 0, 8, 6}, 1, {}, {}},
  };
  for (const auto& [screen, scale, cover, least] : cases) {
    SCOPED_TRACE(testing::Message() << screen.width << "x" << screen.height);
    const auto [notice, button] = paintCover(screen, scale, cover);
    const QRect panel(notice.at, notice.image.size());
    const QRect whole(screen.x, screen.y, screen.width, screen.height);
    EXPECT_NEAR(panel.center().x(), whole.center().x(), 1);
    if (screen.width < 100) continue;  // too small for anything
    EXPECT_TRUE(whole.contains(panel));
    EXPECT_GE(whole.bottom() - panel.bottom(), panel.top() - whole.top()) << "not below the middle";
    const QRect box(button.x, button.y, button.width, button.height);
    EXPECT_TRUE(notice.image.rect().contains(box));
    EXPECT_GE(box.width(), least.width());
    EXPECT_GE(box.height(), least.height());
    if (least.isEmpty()) continue;
    const AppColors& colors =
        AppColors::of(AppColors::Scheme::dark,
                      cover.highContrast ? AppColors::Contrast::high : AppColors::Contrast::normal);
    EXPECT_EQ(notice.image.pixelColor(0, 0), colors.window);
    EXPECT_EQ(coverGround(cover), colors.window);
    EXPECT_EQ(notice.image.pixelColor(box.left() + 20, box.center().y()), colors.tonal);
    const QImage underButton = notice.image.copy(0, box.bottom() + 1, notice.image.width(),
                                                 notice.image.height() - box.bottom() - 1);
    QImage bare(underButton.size(), underButton.format());
    bare.fill(colors.window);
    EXPECT_EQ(underButton != bare, cover.shortcut) << "how to take it off";
  }
}

TEST_F(RetroPainterTest, ShowsAGreenPictureUnderScanLinesWithinItsDecorations) {
  GreyPicture portrait{120, 240, FrameMemory<std::uint8_t>(120UL * 240)};
  std::ranges::fill(portrait.levels, std::uint8_t{255});
  GreyPicture board{768, 768, FrameMemory<std::uint8_t>(768UL * 768)};
  for (std::size_t i = 0; i < board.levels.size(); ++i) board.levels[i] = (i % 768 + i / 768) % 2 * 255;
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
    paint(&board);
    for (int x = 90; x < 170; ++x)
      EXPECT_THAT(qGreen(at(x, 96)), testing::AllOf(testing::Gt(70), testing::Lt(140)));

    paint(nullptr);
    EXPECT_EQ(at(128, 96), 0xFF000000);
    int brightest = 0;
    for (double x = 19; x <= 99; x += 0.4) brightest = std::max(brightest, qGreen(at(x, 12)));
    EXPECT_GT(brightest, 200) << "caption";
  }
}

}  // namespace
}  // namespace sentrel
