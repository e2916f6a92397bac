// SPDX-License-Identifier: Apache-2.0
#include "views/live_overlay.h"

#include <gtest/gtest.h>

#include <QImage>
#include <limits>

#include "support/manual_main_loop.h"
#include "views/theme.h"

namespace sentrel::test {
namespace {

using Face = LiveFrame::Face;

/// The overlay on a white picture of 400 by 300 pixels.
struct LiveOverlayTest : testing::Test {
  static constexpr QRectF view{0, 0, 400, 300};

  [[nodiscard]] QImage shown(bool mirrored = false) const {
    QImage image(view.size().toSize(), QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    const QTransform mirror(-1, 0, 0, 1, view.width(), 0);
    overlay.paint(painter, view, QTransform::fromScale(400, 300) * (mirrored ? mirror : QTransform()));
    return image;
  }
  /// Which pixels differ from the empty picture, as the smallest box around them within `part`.
  [[nodiscard]] static QRect drawn(const QImage& image, const QRect& part) {
    QRect box;
    for (int y = part.top(); y <= part.bottom(); ++y)
      for (int x = part.left(); x <= part.right(); ++x)
        if (image.pixel(x, y) != qRgb(255, 255, 255)) box |= QRect(x, y, 1, 1);
    return box;
  }
  void show(std::vector<Face> faces, std::vector<FilterFsm::Timer> timers = {}) {
    overlay.show({clock->nowMs(), std::move(faces), std::move(timers)});
  }

  std::shared_ptr<ManualMainLoop> clock = std::make_shared<ManualMainLoop>();
  LiveOverlay overlay{clock};
};

TEST_F(LiveOverlayTest, ABoxStandsWhereTheFaceIsAndIsMirroredWithThePicture) {
  // From the bottom left: 40 to 120 across, and 60 to 120 down from the top.
  show({{{0.1, 0.6, 0.2, 0.2}, {}, FaceRole::person}});
  const QRect upper(0, 0, 400, 110);
  EXPECT_EQ(drawn(shown(), upper), QRect(QPoint(38, 58), QPoint(121, 109)));
  EXPECT_EQ(drawn(shown(true), upper), QRect(QPoint(278, 58), QPoint(361, 109)));
  EXPECT_EQ(shown().pixelColor(40, 90),
            AppColors::of(AppColors::Scheme::dark, AppColors::Contrast::normal).primary);
  show({{{0.1, 0.6, 0.2, 0.2}, {}, FaceRole::onlooker}});
  EXPECT_EQ(shown().pixelColor(40, 90),
            AppColors::of(AppColors::Scheme::dark, AppColors::Contrast::normal).error);
  const auto gaps = [this] {
    int count = 0;
    for (int y = 70; y < 110; ++y)
      count += shown().pixelColor(40, y) !=
                       AppColors::of(AppColors::Scheme::dark, AppColors::Contrast::normal).textSecondary
                   ? 1
                   : 0;
    return count;
  };
  show({{{0.1, 0.6, 0.2, 0.2}, {}, FaceRole::ignored}});
  EXPECT_GT(gaps(), 8) << "dashed";
}

TEST_F(LiveOverlayTest, TheLineOfTheHeadTurnsWithIt) {
  const QRect inside(50, 66, 60, 48);  // of the box, whose middle is 80, 90
  const auto line = [&](double yaw, bool mirrored) {
    overlay.clear();
    show({{{0.1, 0.6, 0.2, 0.2}, yaw, FaceRole::person}});
    return drawn(shown(mirrored), mirrored ? QRect(290, 66, 60, 48) : inside);
  };
  EXPECT_LT(line(0, false).width(), 6);
  EXPECT_GT(line(1.5, false).right(), 105) << "to the picture's right";
  EXPECT_LT(line(1.5, true).left(), 295) << "which the mirror shows on the left";
  EXPECT_LT(line(-1.5, false).left(), 55);
  EXPECT_TRUE(line(std::numeric_limits<double>::quiet_NaN(), false).isEmpty());
}

TEST_F(LiveOverlayTest, BoxesGlideAndLostOnesFade) {
  const auto left = [this] { return drawn(shown(), {0, 60, 400, 40}).left(); };
  show({{{0.1, 0.6, 0.2, 0.2}, {}, FaceRole::person}});
  EXPECT_EQ(left(), 38);
  show({{{0.2, 0.6, 0.2, 0.2}, {}, FaceRole::person}});
  EXPECT_EQ(left(), 38);
  clock->advance(40);
  EXPECT_EQ(left(), 58);
  clock->advance(40);
  EXPECT_EQ(left(), 78);
  show({});
  clock->advance(100);
  const int half = shown().pixelColor(80, 90).blue();
  EXPECT_TRUE(half > AppColors::of(AppColors::Scheme::dark, AppColors::Contrast::normal).primary.blue() ||
              half < 255);
  clock->advance(101);
  EXPECT_TRUE(drawn(shown(), {0, 0, 300, 300}).isEmpty());
  Theme::shared().setLook({.reducedMotion = true});
  show({{{0.1, 0.6, 0.2, 0.2}, {}, FaceRole::person}});
  show({{{0.2, 0.6, 0.2, 0.2}, {}, FaceRole::person}});
  EXPECT_EQ(left(), 78) << "at once";
  Theme::shared().setLook({});
}

TEST_F(LiveOverlayTest, FortyFacesAndStrangeOnesAreBorne) {
  std::vector<Face> faces;
  for (int i = 0; i < 40; ++i)
    faces.push_back({{i % 8 / 8.0, i / 8 / 5.0, 0.1, 0.1}, 0.2, i == 0 ? FaceRole::person : FaceRole::guest});
  for (int frame = 0; frame < 100; ++frame) {
    show(faces, {{FilterFsm::Timer::Kind::held, 0, 0}, {FilterFsm::Timer::Kind::onlooker, 5000, 500}});
    clock->advance(66);
  }
  EXPECT_FALSE(shown().isNull());
  EXPECT_EQ(overlay.words().count("invité"), 39);
  const double infinite = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  show({{{0.5, 0.5, 0, 0.1}, {}, FaceRole::person},
        {{0.5, 0.5, -1, 0.1}, {}, FaceRole::person},
        {{nan, 0.5, 0.1, nan}, {}, FaceRole::person},
        {{0.5, 0.5, 0.1, 0.1}, infinite, FaceRole::person},
        {{-7, 9, 0.1, 0.1}, {}, FaceRole::onlooker},
        {{-1, -1, 3, 3}, {}, FaceRole::onlooker}});
  EXPECT_FALSE(shown().isNull());
  overlay.clear();
  EXPECT_TRUE(drawn(shown(), {0, 0, 400, 300}).isEmpty());
}

}  // namespace
}  // namespace sentrel::test
