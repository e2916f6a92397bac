// SPDX-License-Identifier: Apache-2.0
#include "vision/head_pose.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "stage/pictures.h"
#include "vision/models.h"

namespace sentrel::vision {
namespace {

constexpr double degree = std::numbers::pi / 180;

/// The mesh of a rigid head that has the pose, as the network would give it: pixels, y down, z away from the
/// viewer.
FaceMesh meshOf(const CanonicalFace& face, double yaw, double pitch, double roll) {
  FaceMesh mesh;
  for (const Vector3& point : face.points) {
    // Up by pitch about the x axis, then to the side about y, then tilted in the image.
    const double y1 = point.y * std::cos(pitch) + point.z * std::sin(pitch);
    const double z1 = -point.y * std::sin(pitch) + point.z * std::cos(pitch);
    const double x2 = point.x * std::cos(yaw) + z1 * std::sin(yaw);
    const double z2 = -point.x * std::sin(yaw) + z1 * std::cos(yaw);
    const double x3 = x2 * std::cos(roll) - y1 * std::sin(roll);
    const double y3 = x2 * std::sin(roll) + y1 * std::cos(roll);
    mesh.points.push_back({320 + 8 * x3, 240 - 8 * y3, -8 * z2});
  }
  return mesh;
}

TEST(HeadPose, isThatOfTheRigidHead) {
  const CanonicalFace face = readModels(test::modelFolderPath().toStdString()).face;
  for (const double yaw : {-60.0, -30.0, 0.0, 20.0, 45.0}) {
    for (const double pitch : {-25.0, 0.0, 15.0}) {
      for (const double roll : {-20.0, 0.0, 30.0}) {
        const auto pose = fitHeadPose(meshOf(face, yaw * degree, pitch * degree, 0), face);
        ASSERT_TRUE(pose);
        EXPECT_NEAR(pose->yaw / degree, yaw, 1e-6);
        EXPECT_NEAR(pose->pitch / degree, pitch, 1e-6);
        const auto tilted = fitHeadPose(meshOf(face, 0, 0, roll * degree), face);
        ASSERT_TRUE(tilted);
        EXPECT_NEAR(tilted->yaw, 0, 1e-9);
        EXPECT_NEAR(tilted->pitch, 0, 1e-9);
      }
    }
  }
}

TEST(HeadPose, isAbsentForAMeshWithoutExtent) {
  const CanonicalFace face = readModels(test::modelFolderPath().toStdString()).face;
  FaceMesh mesh;
  EXPECT_FALSE(fitHeadPose(mesh, face));
  mesh.points.resize(face.points.size());
  EXPECT_FALSE(fitHeadPose(mesh, face));
  mesh = meshOf(face, 0, 0, 0);
  mesh.points[face.triangles[0][0]].x = std::nan("");
  mesh.points[noseTipPoint].x = std::nan("");
  for (auto& point : mesh.points) point.y = std::nan("");
  EXPECT_FALSE(fitHeadPose(mesh, face));
}

TEST(HeadPose, keypointsGiveSideAndRoughSize) {
  Candidate face;
  face.keypoints[rightEar] = {100, 100};
  face.keypoints[leftEar] = {200, 100};
  const auto yawAt = [&](double noseX) {
    face.keypoints[noseTip] = {noseX, 130};
    return yawFromKeypoints(face) / degree;
  };
  EXPECT_NEAR(yawAt(150), 0, 1e-9);
  EXPECT_GT(yawAt(190), 25);
  EXPECT_NEAR(yawAt(110), -yawAt(190), 1e-9);
  face.keypoints[leftEar] = face.keypoints[rightEar];
  EXPECT_EQ(yawFromKeypoints(face), 0);
}

class NeutralPitchTest : public ::testing::Test {
 protected:
  /// Lets `seconds` pass at ten frames a second; the neutral pitch at their end, in degrees.
  double look(double seconds, double yaw, double pitch) {
    double neutral = 0;
    for (int i = 0; i < seconds * 10; ++i)
      neutral = pitch_.update({yaw * degree, pitch * degree}, now_ += 100) / degree;
    return neutral;
  }

  NeutralPitch pitch_;
  std::int64_t now_ = 1000000;
};

TEST_F(NeutralPitchTest, becomesWhatAPersonDoesMostOfAMinute) {
  EXPECT_EQ(look(25, 0, -10), 0);
  EXPECT_NEAR(look(10, 0, -10), -10, 0.5);
  EXPECT_NEAR(look(20, 0, 5), -10, 0.5);  // the minute still holds more of the other
  EXPECT_NEAR(look(20, 0, 5), 5, 0.5);
  pitch_.restart();
  EXPECT_EQ(look(1, 0, -10), 0);
}

TEST_F(NeutralPitchTest, isBoundedAndBlindToLookingAway) {
  EXPECT_NEAR(look(70, 0, -19), -12, 1e-9);
  look(70, 0, 0);
  EXPECT_EQ(look(100, 40, -10), 0);
  EXPECT_EQ(look(100, 0, -30), 0);
}

TEST_F(NeutralPitchTest, countsTimeAndNotFrames) {
  for (int i = 0; i < 2000; ++i) (void)pitch_.update({0, -10 * degree}, now_ += 1);
  EXPECT_EQ(look(1, 0, -10), 0);
}

TEST(TimeSmoother, followsAStepInTimeWhateverTheRate) {
  const double expected[] = {1 - std::exp(-300.0 / 600), 1 - std::exp(-300.0 / 350),
                             1 - std::exp(-300.0 / 150), 1 - std::exp(-300.0 / 60), 1};
  for (int level = 1; level <= 5; ++level) {
    for (const int step : {10, 30, 100, 300}) {
      TimeSmoother smoother;
      EXPECT_EQ(smoother.update(0, 0, smoothingConstantMs(level)), 0);
      double value = 0;
      for (int now = step; now <= 300; now += step)
        value = smoother.update(1, now, smoothingConstantMs(level));
      EXPECT_NEAR(value, expected[level - 1], 1e-9) << level << " " << step;
    }
  }
  EXPECT_EQ(smoothingConstantMs(0), smoothingConstantMs(1));
  EXPECT_EQ(smoothingConstantMs(9), 0);
}

TEST(TimeSmoother, startsAnewWhenTimeRunsBackOrItIsTold) {
  TimeSmoother smoother;
  (void)smoother.update(10, 1000, 600);
  EXPECT_EQ(smoother.update(20, 500, 600), 20);
  smoother.restart();
  EXPECT_EQ(smoother.update(30, 600, 600), 30);
}

}  // namespace
}  // namespace sentrel::vision
