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
  const AppColors& colors = AppColors::of(AppColors::Scheme::dark, AppColors::Contrast::normal);

  /// The left edge of what is drawn at the height of the faces below.
  [[nodiscard]] int left() const { return drawn(shown(), {0, 60, 400, 40}).left(); }
  void showFace(double x, FaceRole role = FaceRole::person, std::optional<double> yaw = {}) {
    show({{{x, 0.6, 0.2, 0.2}, yaw, role}});
  }
  void show(std::vector<Face> faces, std::vector<FilterFsm::Timer> timers = {}) {
    overlay.show({clock->nowMs(), std::move(faces), std::move(timers)});
  }

  std::shared_ptr<ManualMainLoop> clock = std::make_shared<ManualMainLoop>();
  LiveOverlay overlay{clock};
};

TEST_F(LiveOverlayTest, ABoxStandsWhereTheFaceIsAndIsMirroredWithThePicture) {
  // From the bottom left: 40 to 120 across, and 60 to 120 down from the top.
  showFace(0.1);
  const QRect upper(0, 0, 400, 110);
  EXPECT_EQ(drawn(shown(), upper), QRect(QPoint(38, 58), QPoint(121, 109)));
  EXPECT_EQ(drawn(shown(true), upper), QRect(QPoint(278, 58), QPoint(361, 109)));
  EXPECT_EQ(shown().pixelColor(40, 90), colors.primary);
  showFace(0.1, FaceRole::onlooker);
  EXPECT_EQ(shown().pixelColor(40, 90), colors.error);
  showFace(0.1, FaceRole::ignored);
  int gaps = 0;
  for (int y = 70; y < 110; ++y)
    if (shown().pixelColor(40, y) != colors.textSecondary) ++gaps;
  EXPECT_GT(gaps, 8) << "dashed";
}

TEST_F(LiveOverlayTest, TheLineOfTheHeadTurnsWithIt) {
  // Within the box, whose middle is 80, 90.
  const auto line = [&](double yaw, bool mirrored = false) {
    overlay.clear();
    showFace(0.1, FaceRole::person, yaw);
    return drawn(shown(mirrored), {mirrored ? 290 : 50, 66, 60, 48});
  };
  EXPECT_LT(line(0).width(), 6);
  EXPECT_GT(line(1.5).right(), 105) << "to the picture's right";
  EXPECT_LT(line(1.5, true).left(), 295) << "which the mirror shows on the left";
  EXPECT_TRUE(line(std::numeric_limits<double>::quiet_NaN()).isEmpty());
}

TEST_F(LiveOverlayTest, BoxesGlideAndLostOnesFade) {
  showFace(0.1);
  showFace(0.2);
  for (const int place : {38, 58, 78}) {
    EXPECT_EQ(left(), place);
    clock->advance(40);
  }
  show({});
  clock->advance(100);
  EXPECT_FALSE(drawn(shown(), {0, 0, 300, 300}).isEmpty());
  clock->advance(101);
  EXPECT_TRUE(drawn(shown(), {0, 0, 300, 300}).isEmpty());
  Theme::shared().setLook({.reducedMotion = true});
  showFace(0.1);
  showFace(0.2);
  EXPECT_EQ(left(), 78) << "at once";
  Theme::shared().setLook({});
}

TEST_F(LiveOverlayTest, StrangeFacesAreBorne) {
  const double infinite = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  show({{{0.5, 0.5, 0, 0.1}, {}, FaceRole::person},
        {{0.5, 0.5, -1, 0.1}, {}, FaceRole::person},
        {{nan, 0.5, 0.1, nan}, {}, FaceRole::person},
        {{0.5, 0.5, 0.1, 0.1}, infinite, FaceRole::person},
        {{-7, 9, 0.1, 0.1}, {}, FaceRole::onlooker},
        {{-1, -1, 3, 3}, {}, FaceRole::onlooker}},
       {{FilterFsm::Timer::Kind::held, 0, 0}, {FilterFsm::Timer::Kind::onlooker, 5000, 500}});
  (void)shown();
}

}  // namespace
}  // namespace sentrel::test
