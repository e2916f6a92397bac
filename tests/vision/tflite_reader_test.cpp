// SPDX-License-Identifier: Apache-2.0
#include "vision/network.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "stage/pictures.h"
#include "vision/damage.h"

namespace sentrel::vision {
namespace {

Network readReal(const char* name) {
  return readTflite(test::readBytes(test::modelFolderPath().toStdString() + "/" + name));
}

TEST(TfliteReader, readsTheDetectionNetworkForAnySize) {
  const Network network = readReal("face_detection_full_range.tflite");
  EXPECT_EQ(network.nativeWidth, 192);
  EXPECT_EQ(network.inputChannels, 3);
  for (const auto& [height, width] : {std::pair{192, 192}, {160, 192}, {224, 256}, {96, 96}, {32, 32}}) {
    const auto shapes = inferShapes(network, height, width);
    ASSERT_EQ(network.outputs.size(), 2U);
    EXPECT_EQ(shapes[network.outputs[0]], (Shape{height / 4, width / 4, 16}));
    EXPECT_EQ(shapes[network.outputs[1]], (Shape{height / 4, width / 4, 1}));
  }
  const auto clamped = std::count_if(network.operators.begin(), network.operators.end(),
                                     [](const Operator& op) { return op.relu; });
  EXPECT_EQ(clamped, 47);  // every activation of the file went into the operator before it
}

TEST(TfliteReader, readsTheMeshNetworkOnlyForItsOwnSize) {
  const Network network = readReal("face_landmark.tflite");
  const auto shapes = inferShapes(network, network.nativeHeight, network.nativeWidth);
  EXPECT_EQ(shapes[network.outputs[0]], (Shape{1, 1, 1404}));
  EXPECT_EQ(shapes[network.outputs[1]], (Shape{1, 1, 1}));
  EXPECT_THROW((void)inferShapes(network, 32, 32), ModelError);
}

TEST(TfliteReader, survivesDamage) {
  for (const char* name : {"face_detection_full_range.tflite", "face_landmark.tflite"}) {
    const auto intact = test::readBytes(test::modelFolderPath().toStdString() + "/" + name);
    ASSERT_FALSE(intact.empty());
    const int refused = test::readDamaged(intact, 60000, [](std::span<const std::byte> bytes) {
      const Network network = readTflite(bytes);
      return inferShapes(network, network.nativeHeight, network.nativeWidth);
    });
    EXPECT_GT(refused, 50) << name;
  }
}

}  // namespace
}  // namespace sentrel::vision
