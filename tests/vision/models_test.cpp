// SPDX-License-Identifier: Apache-2.0
#include "vision/models.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "stage/pictures.h"
#include "vision/network.h"
#include "vision/neural_face_detector.h"

namespace sentrel::vision {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* detection = "face_detection_full_range.tflite";
constexpr const char* landmarks = "face_landmark.tflite";
constexpr const char* geometry = "canonical_face.binarypb";

std::vector<std::byte> bytesOf(const char* name) {
  std::ifstream stream(test::modelFolderPath().toStdString() + "/" + name, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

class ModelFiles : public ::testing::Test {
 protected:
  ModelFiles() { restore(); }
  ~ModelFiles() override { fs::remove_all(folder_); }
  void restore() const {
    fs::remove_all(folder_);
    fs::copy(test::modelFolderPath().toStdString(), folder_);
  }

  const fs::path folder_ = fs::temp_directory_path() / ("sentrel-models-" + std::to_string(getpid()));
};

TEST_F(ModelFiles, aFaultNamesTheFileAndTheCure) {
  struct Case {
    const char* file;
    const char* says;
    std::function<void(const fs::path&)> damage;
  };
  const Case cases[] = {
      {landmarks, "is missing", [](const fs::path& file) { fs::remove(file); }},
      {geometry, "is damaged", [](const fs::path& file) { fs::resize_file(file, 0); }},
      {landmarks, "is damaged",
       [](const fs::path& file) {
         std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
         stream.seekp(700000);
         stream.put('x');
       }},
      {detection, "cannot be read",
       [](const fs::path& file) {
         fs::remove(file);
         fs::create_directory(file);
       }},
  };
  for (const Case& each : cases) {
    restore();
    each.damage(folder_ / each.file);
    const auto error = NeuralFaceDetector(folder_).prepare();
    ASSERT_TRUE(error) << each.file;
    for (const std::string& words :
         {(folder_ / each.file).string(), std::string(each.says), std::string("scripts/fetch-models")}) {
      EXPECT_THAT(error->message, HasSubstr(words));
    }
  }
}

TEST_F(ModelFiles, preparingAgainAfterAFailureTriesAnew) {
  NeuralFaceDetector detector(folder_);
  fs::rename(folder_ / landmarks, folder_ / "away");
  EXPECT_TRUE(detector.prepare());
  EXPECT_FALSE(detector.detect(*test::toFrame(QImage(64, 48, QImage::Format_RGB32)), 0));
  fs::rename(folder_ / "away", folder_ / landmarks);
  EXPECT_FALSE(detector.prepare());
  EXPECT_FALSE(detector.prepare());
  EXPECT_FALSE(NeuralFaceDetector(modelFolder()).prepare()) << "found from the build tree";
}

/// Reads a file cut off or with a few bytes changed, many times over. A reader may take the damage for data
/// or throw ModelError; anything else, a sanitizer's finding above all, fails the test. Returns how often it
/// threw.
template <class Read>
int readDamaged(const std::vector<std::byte>& intact, std::size_t headerBytes, Read read) {
  int refused = 0;
  std::mt19937 random(1);
  for (std::size_t round = 0; round < 400; ++round) {
    const std::size_t length = round % 4 == 0 ? random() % intact.size() : intact.size();
    // A copy of exactly this length, so that a sanitizer sees a read beyond the end.
    std::vector<std::byte> damaged(intact.begin(), intact.begin() + static_cast<std::ptrdiff_t>(length));
    // The structure takes a small part of the file, at its ends; the damage goes there.
    for (std::size_t k = 0; round % 4 > 0 && k < 1 + round % 3; ++k) {
      const std::size_t offset = random() % headerBytes;
      damaged[round % 4 == 1 ? length - 1 - offset : offset] = static_cast<std::byte>(random());
    }
    try {
      (void)read(std::span<const std::byte>(damaged));
    } catch (const ModelError&) {
      ++refused;
    }
  }
  return refused;
}

TEST(ModelReaders, surviveDamage) {
  const auto face = bytesOf(geometry);
  EXPECT_GT(readDamaged(face, face.size(), readCanonicalFace), 50);
  const Network mesh = readTflite(bytesOf(landmarks));
  EXPECT_THROW((void)inferShapes(mesh, 32, 32), ModelError) << "it has but one size";
  for (const char* name : {detection, landmarks}) {
    EXPECT_GT(readDamaged(bytesOf(name), 60000,
                          [](std::span<const std::byte> bytes) {
                            const Network network = readTflite(bytes);
                            return inferShapes(network, network.nativeHeight, network.nativeWidth);
                          }),
              50)
        << name;
  }
}

}  // namespace
}  // namespace sentrel::vision
