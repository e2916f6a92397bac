// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "paper_films.h"
#include "stage/pictures.h"
#include "vision/neural_face_detector.h"

namespace sentrel::test {
namespace {

TEST(Evaluation, AReaderIsNoPaperAndAPosterIs) {
  const PortraitScene scene;
  const QRectF face = scene.faceBox();
  const bench::Person person{toFrame(scene.frame({})), {face.x(), face.y(), face.width(), face.height()}};
  vision::NeuralFaceDetector detector(modelFolderPath().toStdString());
  ASSERT_FALSE(detector.prepare());
  bench::PaperFigures figures;
  for (const bool reads : {true, false})
    figures.play(person, {{{person, 40, 1, 1}, {person, 60, 1, 2}, {person, 45, 1, 3}, {person, 50, 1, 4}}},
                 reads, {1, 2}, 0.8, detector);
  EXPECT_EQ(figures.readers(), 4);
  EXPECT_EQ(figures.takenForPaper(), 0);
  EXPECT_GT(figures.keptQuiet(), 95);
}

}  // namespace
}  // namespace sentrel::test
