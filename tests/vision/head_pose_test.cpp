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

const CanonicalFace& canonical() {
  static const CanonicalFace face = readModels(test::modelFolderPath().toStdString()).face;
  return face;
}

/// The mesh of a rigid head that has the pose, in degrees, as the network would give it: pixels, y down, z
/// away from the viewer.
FaceMesh meshOf(double yaw, double pitch, double roll) {
  const auto turn = [](double& a, double& b, double degrees) {
    const double before = a;
    a = a * std::cos(degrees * degree) + b * std::sin(degrees * degree);
    b = b * std::cos(degrees * degree) - before * std::sin(degrees * degree);
  };
  FaceMesh mesh;
  for (Vector3 point : canonical().points) {
    // Up by pitch about the x axis, then to the side about y, then tilted in the image.
    turn(point.y, point.z, pitch);
    turn(point.x, point.z, yaw);
    turn(point.y, point.x, roll);
    mesh.points.push_back({320 + 8 * point.x, 240 - 8 * point.y, -8 * point.z});
  }
  return mesh;
}

TEST(HeadPose, isThatOfTheRigidHeadOrAbsent) {
  const auto expectPose = [](const FaceMesh& mesh, double yaw, double pitch) {
    const auto pose = fitHeadPose(mesh, canonical());
    ASSERT_TRUE(pose);
    EXPECT_NEAR(pose->yaw / degree, yaw, 1e-6);
    EXPECT_NEAR(pose->pitch / degree, pitch, 1e-6);
  };
  for (const double yaw : {-60.0, -30.0, 0.0, 20.0, 45.0}) {
    for (const double pitch : {-25.0, 0.0, 15.0}) expectPose(meshOf(yaw, pitch, 0), yaw, pitch);
  }
  for (const double roll : {-20.0, 30.0}) expectPose(meshOf(0, 0, roll), 0, 0);

  FaceMesh mesh;
  EXPECT_FALSE(fitHeadPose(mesh, canonical()));
  mesh.points.resize(canonical().points.size());
  EXPECT_FALSE(fitHeadPose(mesh, canonical())) << "without extent";
  for (auto& point : mesh.points) point.y = std::nan("");
  EXPECT_FALSE(fitHeadPose(mesh, canonical()));
}

TEST(RecentYaws, followATurnButNotAMisreading) {
  RecentYaws yaws;
  for (const double yaw : {0.1, 0.2}) {
    yaws.add(yaw);
    EXPECT_FALSE(yaws.yaw());
  }
  const struct {
    double read;
    double known;
  } readings[] = {{0.1, 0.1}, {1.5, 0.2}, {0.2, 0.2}, {1.4, 0.2}, {1.3, 1.3}, {1.3, 1.3}, {-0.2, 1.3}};
  for (const auto& each : readings) {
    yaws.add(each.read);
    EXPECT_EQ(yaws.yaw(), each.known);
  }
}

TEST(NeutralPitch, isWhatAPersonDoesMostOfAMinute) {
  NeutralPitch pitch;
  std::int64_t now = 1000000;
  /// Lets `seconds` pass; the neutral pitch at their end, in degrees.
  const auto look = [&](double seconds, double yaw, double degrees, int stepMs = 100) {
    double neutral = 0;
    for (int i = 0; i < seconds * 1000 / stepMs; ++i)
      neutral = pitch.update({yaw * degree, degrees * degree}, now += stepMs) / degree;
    return neutral;
  };
  EXPECT_EQ(look(25, 0, -10), 0);
  EXPECT_NEAR(look(10, 0, -10), -10, 0.5);
  EXPECT_NEAR(look(20, 0, 5), -10, 0.5);  // the minute still holds more of the other
  EXPECT_NEAR(look(20, 0, 5), 5, 0.5);
  EXPECT_NEAR(look(70, 0, -19), -12, 1e-9) << "it is bounded";
  look(70, 0, 0);
  EXPECT_EQ(look(100, 40, -10), 0) << "to the side";
  EXPECT_EQ(look(100, 0, -30), 0) << "far down";
  pitch.restart();
  EXPECT_EQ(look(2, 0, -10, 1), 0) << "time counts, not frames";
}

}  // namespace
}  // namespace sentrel::vision
