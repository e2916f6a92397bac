// SPDX-License-Identifier: Apache-2.0
#include "vision/canonical_face.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "stage/pictures.h"
#include "vision/damage.h"
#include "vision/face_mesh.h"

namespace sentrel::vision {
namespace {

std::vector<std::byte> file() {
  return test::readBytes(test::modelFolderPath().toStdString() + "/canonical_face.binarypb");
}

TEST(CanonicalFace, isASymmetricFaceInCentimetres) {
  const CanonicalFace face = readCanonicalFace(file());
  ASSERT_EQ(face.points.size(), 468U);
  EXPECT_EQ(face.triangles.size(), 898U);
  EXPECT_EQ(std::count_if(face.weights.begin(), face.weights.end(), [](double weight) { return weight > 0; }),
            33);
  const Vector3& right = face.points[rightEyeOuter];
  const Vector3& left = face.points[leftEyeOuter];
  EXPECT_NEAR(right.x, -left.x, 0.01);  // the person's right is on the image's left
  EXPECT_LT(right.x, -3);
  EXPECT_GT(face.points[noseTipPoint].z, left.z + 2);
  EXPECT_LT(face.points[noseTipPoint].y, left.y);
}

TEST(CanonicalFace, survivesDamage) {
  const auto intact = file();
  EXPECT_GT(test::readDamaged(intact, intact.size(), readCanonicalFace), 50);
}

}  // namespace
}  // namespace sentrel::vision
