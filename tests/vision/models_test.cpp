// SPDX-License-Identifier: Apache-2.0
//
// The files of the models, from the disk to what the networks give.
#include "vision/models.h"

#include <gmock/gmock.h>

#include <QTemporaryDir>
#include <cmath>
#include <fstream>

#include "stage/pictures.h"
#include "vision/inference.h"
#include "vision/network.h"
#include "vision/neural_face_detector.h"

namespace sentrel::vision {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* detection = "face_detection_full_range.tflite";
constexpr const char* landmarks = "face_landmark.tflite";
constexpr const char* geometry = "canonical_face.binarypb";

TEST(ModelFiles, nameTheirFault) {
  struct Case {
    const char* name;
    const char* says;
    void (*damage)(const fs::path&);
  };
  const Case cases[] = {
      {landmarks, "detail_model_missing: ", [](const fs::path& file) { fs::remove(file); }},
      {geometry, "detail_model_damaged: ", [](const fs::path& file) { fs::resize_file(file, 0); }},
      {landmarks, "detail_model_damaged: ",
       [](const fs::path& file) { std::fstream(file, std::ios::in | std::ios::out).seekp(700000).put('x'); }},
      {detection, "detail_model_unreadable: ",
       [](const fs::path& file) {
         fs::remove(file);
         fs::create_directory(file);
       }},
  };
  const QTemporaryDir temporary;
  const fs::path folder = temporary.filePath("models").toStdString();
  const auto restore = [&] {
    fs::remove_all(folder);
    fs::copy(test::modelFolderPath().toStdString(), folder);
  };
  for (const auto& [name, says, damage] : cases) {
    restore();
    damage(folder / name);
    NeuralFaceDetector detector(folder);
    const auto error = detector.prepare();
    ASSERT_TRUE(error) << name;
    EXPECT_THAT(error->message, AllOf(HasSubstr((folder / name).string()), HasSubstr(says)));
    EXPECT_FALSE(detector.detect(*test::toFrame(QImage(64, 48, QImage::Format_RGB32)), 0));
    restore();
    EXPECT_FALSE(detector.prepare()) << "they are read anew";
  }
  EXPECT_FALSE(NeuralFaceDetector(modelFolder()).prepare()) << "found from the build tree";
}

// Found with random files: 2^16 times 2^16 is no int.
TEST(Networks, refuseWindowsOfAnImpossibleSize) {
  Network network;
  network.tensorCount = 2;
  network.inputChannels = 1;
  Operator& pool = network.operators.emplace_back();
  pool.kind = OperatorKind::maxPool;
  pool.output = 1;
  pool.kernelHeight = pool.kernelWidth = 65536;
  EXPECT_THAT([&] { (void)inferShapes(network, 192, 192); },
              testing::ThrowsMessage<ModelError>(HasSubstr("a window has an impossible size")));
}

// The sums are those of outputs that were compared, value by value, with a direct computation of every
// operator. Runners share weights and work space, so they are run in turns, each size after another one.
TEST(Inference, givesTheNetworksOutputsAtEverySizeAndInAnyOrder) {
  // Runs it on a fixed input; `sums` are those of all outputs, each value weighted by its place.
  const auto expectSums = [](NetworkRunner& runner, std::array<double, 2> sums) {
    const auto input = runner.input();
    for (std::size_t i = 0; i < input.size(); ++i)
      input[i] = static_cast<float>(std::sin(0.37 * static_cast<double>(i)));
    ASSERT_TRUE(runner.run());
    for (std::size_t output = 0; output < sums.size(); ++output) {
      double sum = 0;
      double size = 0;
      for (std::size_t i = 0; i < runner.output(output).size(); ++i) {
        const double value = runner.output(output)[i];
        sum += value * static_cast<double>(i % 7 + 1);
        size += std::abs(value);
      }
      EXPECT_NEAR(sum, sums.at(output), 1e-4 * size) << "output " << output << " of " << input.size();
    }
  };
  const std::array sizes{InputSize{64, 96}, InputSize{32, 32}, InputSize{96, 64}};
  const std::array<std::array<double, 2>, 3> sums{
      {{52096.781, -8970.530}, {5843.726, -1897.220}, {51628.768, -11081.551}}};
  const Models models = readModels(test::modelFolderPath().toStdString());
  const auto engine = makeInferenceEngine();
  const auto runners = engine->prepare(models.detection, sizes);
  const auto mesh = engine->prepare(models.mesh, std::array{InputSize{192, 192}});
  for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 1U}) expectSums(*runners[i], sums.at(i));
  expectSums(*mesh[0], {387455.738, -10.457345});
  expectSums(*runners[1], sums[1]);
}

}  // namespace
}  // namespace sentrel::vision
