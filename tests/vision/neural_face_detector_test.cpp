// SPDX-License-Identifier: Apache-2.0
#include "vision/neural_face_detector.h"

#include <gtest/gtest.h>

#include <QPainter>
#include <cmath>
#include <numbers>

#include "stage/pictures.h"
#include "vision/hooked_engine.h"

namespace sentrel::vision {
namespace {

using test::PortraitScene;
using test::toFrame;

double degrees(double radians) {
  return radians * 180 / std::numbers::pi;
}

const PortraitScene& scene() {
  static const PortraitScene scene;
  return scene;
}

class NeuralFaceDetectorTest : public ::testing::Test {
 protected:
  NeuralFaceDetectorTest() { EXPECT_FALSE(detector_.prepare()); }

  /// What is found in the last of so many frames that show the picture.
  FaceDetections detect(const QImage& picture, int frames = 1) {
    const auto frame = toFrame(picture);
    std::optional<FaceDetections> found;
    for (int i = 0; i < frames; ++i) found = detector_.detect(*frame, now_ += 33);
    EXPECT_TRUE(found);
    return found.value_or(FaceDetections());
  }
  /// The user and a second face.
  static QImage watched(double x, double y, double width) {
    return scene().frame({0, test::SecondFace{x, y, width}});
  }

  NeuralFaceDetector detector_{test::modelFolderPath().toStdString()};
  std::int64_t now_ = 1000;
};

TEST(FailingInference, isNotTakenForNobody) {
  NeuralFaceDetector detector(test::modelFolderPath().toStdString(), test::HookedEngine::make);
  ASSERT_FALSE(detector.prepare());
  const auto frame = toFrame(scene().frame({}));
  std::int64_t now = 1000;
  for (const bool fails : {false, true, true, false}) {
    test::HookedRunner::hook = [&](NetworkRunner& real) { return !fails && real.run(); };
    const auto found = detector.detect(*frame, now += 33);
    EXPECT_EQ(found ? found->rectangles.size() : 0, fails ? 0U : 1U);
    EXPECT_EQ(found.has_value(), !fails);
  }
  test::HookedRunner::hook = nullptr;
}

TEST_F(NeuralFaceDetectorTest, readsTheUserWhoLooksAhead) {
  const FaceDetections found = detect(scene().frame({}));
  ASSERT_EQ(found.rectangles.size(), 1U);
  ASSERT_EQ(found.landmarks.size(), 1U);
  const FaceObservation& face = found.landmarks[0];
  EXPECT_EQ(face.boundingBox, found.rectangles[0].boundingBox);
  EXPECT_LT(std::abs(degrees(face.yaw.value())), 6);
  // A tight box where the face is, from the bottom left.
  const QRectF box = scene().faceBox();
  EXPECT_NEAR(face.boundingBox.width, box.width() / 640, 0.15 * box.width() / 640);
  EXPECT_NEAR(face.boundingBox.x + face.boundingBox.width / 2, box.center().x() / 640, 0.02);
  EXPECT_NEAR(face.boundingBox.y + face.boundingBox.height / 2, 1 - box.center().y() / 480, 0.04);
  // Eyes: the person's left one on the image's right, both in the upper half, level.
  ASSERT_TRUE(face.landmarks);
  const double eyes = (face.landmarks->leftEye->y + face.landmarks->rightEye->y) / 2;
  EXPECT_LT(std::abs(face.landmarks->nose->y - eyes) * 180, 15) << "as its users estimate the pitch";
  EXPECT_GT(face.landmarks->leftEye->x, face.landmarks->rightEye->x + 0.2);
  EXPECT_NEAR(face.landmarks->leftEye->y, face.landmarks->rightEye->y, 0.08);
  EXPECT_GT(face.landmarks->leftEye->y, 0.5);
  EXPECT_LT(face.landmarks->leftEye->y, 1);
}

TEST_F(NeuralFaceDetectorTest, readsTurnsToBothSides) {
  detector_.tune({5, true});  // every frame as it is read
  double last = -90;
  for (int warp = -55; warp <= 55; warp += 5) {
    const FaceDetections found = detect(scene().frame({static_cast<double>(warp), {}}));
    ASSERT_EQ(found.landmarks.size(), 1U) << warp;
    const double yaw = degrees(found.landmarks[0].yaw.value());
    // Beyond 45 the portrait's warp shows what no head looks like.
    EXPECT_TRUE(yaw > last || std::abs(warp) > 45) << warp;
    EXPECT_TRUE(std::abs(yaw) > 33 || std::abs(warp) < 50) << warp;
    EXPECT_TRUE(std::abs(yaw) < 29 || std::abs(warp) > 30) << warp;
    last = yaw;
  }
}

// A small face is below what the coarse pass sees: it is found once the tile has its turn, and in every frame
// from then on.
TEST_F(NeuralFaceDetectorTest, findsASecondFaceAndKeepsIt) {
  for (const double width : {14.0, 20.0, 36.0, 64.0, 80.0}) {
    SCOPED_TRACE(width);
    detector_.restartTracking();
    const QImage picture = watched(500, 80, width);
    int since = 0;
    for (int frame = 0; frame < 25; ++frame) {
      const FaceDetections found = detect(picture);
      since = found.rectangles.size() == 2 ? since + 1 : 0;
      EXPECT_TRUE(since == frame + 1 || width < 40) << "at once";
      if (since == 0) continue;
      ASSERT_EQ(found.landmarks.size(), 1U);
      EXPECT_EQ(found.landmarks[0].boundingBox, found.rectangles[0].boundingBox) << "the widest first";
      const NormalizedRect& second = found.rectangles[1].boundingBox;
      EXPECT_NEAR(second.x + second.width / 2, 500.0 / 640, 0.02);
      EXPECT_NEAR(second.y + second.height / 2, 1 - 80.0 / 480, 0.03);
      EXPECT_NEAR(second.width, width / 640, (width < 40 ? 0.3 : 0.15) * width / 640);
    }
    EXPECT_GE(since, 12);
    EXPECT_EQ(detect(scene().frame({}), 4).rectangles.size(), 1U) << "gone with the person";
  }
}

// The portrait itself, so that the second face turns as the first does.
TEST_F(NeuralFaceDetectorTest, readsWhereOthersTurnWhenAsked) {
  for (const double width : {30.0, 60.0}) {
    for (const double warp : {0.0, -50.0, 50.0}) {
      SCOPED_TRACE(testing::Message() << width << ' ' << warp);
      const QImage turned = scene().frame({warp, {}});
      const QRectF box = scene().faceBox();
      QImage picture = scene().frame({});
      QPainter painter(&picture);
      painter.setRenderHint(QPainter::SmoothPixmapTransform);
      const QRectF from =
          box.adjusted(-box.width() / 2, -box.height() / 2, box.width() / 2, box.height() / 2);
      painter.drawImage(QRectF(520, 20, 2 * width, 2 * width * from.height() / from.width()), turned, from);
      painter.end();
      for (const bool others : {false, true}) {
        detector_.restartTracking();
        detector_.tune({5, true, others});
        const FaceDetections found = detect(picture, 60);
        ASSERT_EQ(found.rectangles.size(), 2U);
        EXPECT_FALSE(found.rectangles[0].yaw);
        EXPECT_EQ(found.rectangles[1].yaw.has_value(), others);
        EXPECT_EQ(found.rectangles[1].stillMs > 1000, others);
        if (!others) continue;
        const double yaw = degrees(*found.rectangles[1].yaw);
        EXPECT_GT(warp == 0 ? 12 - std::abs(yaw) : yaw * warp / 50, warp == 0 ? 0 : 20) << yaw;
      }
    }
  }
}

TEST_F(NeuralFaceDetectorTest, aReflectionInTheFaceIsNotAPersonWithGlasses) {
  const QRectF face = scene().faceBox();
  const auto count = [&](double x, bool glasses) {
    detector_.restartTracking();
    detector_.tune({5, glasses});
    return detect(watched(x, face.center().y(), 50), 12).rectangles.size();
  };
  // A third of the small face over the large one: somebody who stands behind.
  EXPECT_EQ(count(face.right() + 12, true), 2U);
  EXPECT_EQ(count(face.right() + 12, false), 2U);
  EXPECT_EQ(count(face.center().x() + 20, true), 1U);
}

TEST_F(NeuralFaceDetectorTest, smoothsAsTheSensitivityAsks) {
  const QImage ahead = scene().frame({});
  const QImage turned = scene().frame({50, {}});
  const auto framesToTurn = [&](int sensitivity) {
    detector_.restartTracking();
    detector_.tune({sensitivity, true});
    (void)detect(ahead, 5);
    int frames = 1;
    while (frames < 100 && degrees(detect(turned).landmarks[0].yaw.value()) <= 30) ++frames;
    return frames;
  };
  const int middle = framesToTurn(3);
  EXPECT_EQ(framesToTurn(5), 1);
  EXPECT_GT(middle, 3);
  EXPECT_GT(framesToTurn(1), 2 * middle);
}

TEST_F(NeuralFaceDetectorTest, takesFramesOfAnySize) {
  const QImage portrait = test::loadPicture(QStringLiteral("astronaut.png"));
  // Sizes may change in mid-stream.
  EXPECT_FALSE(detector_.detect(*toFrame(QImage()), ++now_));
  for (const QSize size : {QSize(1, 1), QSize(1, 480), QSize(640, 1), QSize(2, 3), QSize(37, 11)})
    EXPECT_TRUE(detect(portrait.scaled(size)).rectangles.empty());
  for (const QSize size : {QSize(512, 512), QSize(333, 331), QSize(1280, 1279), QSize(2001, 1999)}) {
    const FaceDetections found =
        detect(portrait.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    ASSERT_EQ(found.landmarks.size(), 1U) << size.width();
    EXPECT_NEAR(found.landmarks[0].boundingBox.width, 0.17, 0.03);
  }
}

}  // namespace
}  // namespace sentrel::vision
