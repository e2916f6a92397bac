// SPDX-License-Identifier: Apache-2.0
#include "vision/models.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <string>

#include "stage/pictures.h"
#include "vision/damage.h"
#include "vision/face_mesh.h"
#include "vision/neural_face_detector.h"

namespace sentrel::vision {
namespace {

namespace fs = std::filesystem;

class ModelFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::temp_directory_path() / ("sentrel-models-" + std::to_string(getpid()));
    fs::remove_all(folder_);
    fs::create_directories(folder_);
    for (const auto& file : fs::directory_iterator(test::modelFolderPath().toStdString())) {
      fs::copy_file(file.path(), folder_ / file.path().filename());
    }
  }
  void TearDown() override { fs::remove_all(folder_); }

  fs::path folder_;
};

TEST_F(ModelFiles, aFaultNamesTheFileAndTheCure) {
  using ::testing::HasSubstr;
  struct Case {
    const char* file;
    const char* says;
    std::function<void(const fs::path&)> damage;
  };
  const Case cases[] = {
      {"face_landmark.tflite", "is missing", [](const fs::path& file) { fs::remove(file); }},
      {"canonical_face.binarypb", "is damaged", [](const fs::path& file) { fs::resize_file(file, 0); }},
      {"face_detection_full_range.tflite", "is damaged",
       [](const fs::path& file) { fs::resize_file(file, fs::file_size(file) / 2); }},
      {"face_landmark.tflite", "is damaged",
       [](const fs::path& file) {
         std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
         stream.seekp(700000);
         stream.put('x');
       }},
      {"face_detection_full_range.tflite", "cannot be read",
       [](const fs::path& file) {
         fs::remove(file);
         fs::create_directory(file);
       }},
  };
  for (const Case& each : cases) {
    TearDown();
    SetUp();
    each.damage(folder_ / each.file);
    NeuralFaceDetector detector(folder_);
    const auto error = detector.prepare();
    ASSERT_TRUE(error) << each.file;
    EXPECT_THAT(error->message, HasSubstr((folder_ / each.file).string()));
    EXPECT_THAT(error->message, HasSubstr(each.says));
    EXPECT_THAT(error->message, HasSubstr("scripts/fetch-models"));
  }
}

TEST_F(ModelFiles, preparingAgainAfterAFailureTriesAnew) {
  NeuralFaceDetector detector(folder_);
  fs::rename(folder_ / "face_landmark.tflite", folder_ / "away");
  EXPECT_TRUE(detector.prepare());
  EXPECT_FALSE(detector.detect(*test::toFrame(QImage(64, 48, QImage::Format_RGB32)), 0));
  fs::rename(folder_ / "away", folder_ / "face_landmark.tflite");
  EXPECT_FALSE(detector.prepare());
  EXPECT_FALSE(detector.prepare());
}

TEST(ModelFolder, isFoundFromTheBuildTree) {
  EXPECT_FALSE(NeuralFaceDetector(modelFolder()).prepare());
}

std::vector<std::byte> geometry() {
  return test::readBytes(test::modelFolderPath().toStdString() + "/canonical_face.binarypb");
}

TEST(CanonicalFace, isASymmetricFaceInCentimetres) {
  const CanonicalFace face = readCanonicalFace(geometry());
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
  const auto intact = geometry();
  EXPECT_GT(test::readDamaged(intact, intact.size(), readCanonicalFace), 50);
}

}  // namespace
}  // namespace sentrel::vision
