// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <fstream>

#include "paper_films.h"
#include "stage/child_process.h"
#include "stage/pictures.h"
#include "vision/neural_face_detector.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

TEST(Evaluation, CountsWhatIsThereAndSkipsWhatIsNoPicture) {
  const fs::path folder = fs::temp_directory_path() / ("evaluation-" + std::to_string(getpid()));
  for (const char* name : {"faces", "no-faces", "pose"}) fs::create_directories(folder / name);
  const auto write = [&](const char* name, const std::string& bytes) {
    std::ofstream(folder / name, std::ios::binary) << bytes;
  };
  const auto save = [&](const char* name, const QImage& picture) {
    ASSERT_TRUE(picture.save(QString::fromStdString((folder / name).string())));
  };
  const auto evaluate = [&] {
    ChildProcess process({SENTREL_EVALUATE, {folder.string()}, currentEnvironment(), folder / "log"});
    EXPECT_EQ(process.waitForExit(std::chrono::seconds(200)), 0);
    return process.output();
  };
  const QImage portrait =
      loadPicture("astronaut.png").scaledToWidth(480);  // the face is about 95 wide, at 200, 65
  save("faces/good.png", portrait);
  save("faces/unlabelled.png", portrait);
  // As a camera of that size shows it: labels are in its pixels, ratios of its middle.
  save("faces/larger.png", portrait.copy(-400, 0, 1280, 720));
  std::ifstream file(folder / "faces/good.png", std::ios::binary);
  const std::string png{std::istreambuf_iterator<char>(file), {}};
  write("faces/truncated.png", png.substr(0, png.size() / 3));
  write("faces/empty.png", "");
  write("faces/text.png", "This is not a picture.");
  // A header that promises 50 000 pixels a side.
  std::string huge = png;
  huge.replace(16, 8, std::string("\0\0\xC3\x50\0\0\xC3\x50", 8));
  write("faces/huge.png", huge);
  save("faces/tiny.png", QImage(1, 1, QImage::Format_RGB32));
  save("no-faces/cat.png", loadPicture("chelsea.png"));
  save("pose/no angles.png", portrait);
  write("faces.json", R"({
    "faces/good.png": [[168, 45, 95, 110, 0.9], [9000, 40, 95, 110, 0.9], [10, 10, -5, 20, 0.9], ["x", 1, 2, 3, 4]],
    "faces/larger.png": [[568, 45, 95, 110, 0.9]],
    "faces/truncated.png": [[190, 60, 95, 110, 0.9]], "faces/empty.png": [[1, 2, 30, 40, 0.9]],
    "faces/text.png": [], "faces/huge.png": [[1, 2, 3000, 4000, 0.9]], "faces/tiny.png": [[0, 0, 1, 1, 0.9]],
    "faces/missing.png": [[1, 2, 30, 40, 0.9]]})");
  const std::string printed = evaluate();
  for (const char* words :
       {"recall_0.12_0.40: 1 of 1", "recall_0.06_0.12: 1 of 1", "false_faces_per_100 0.00",
        "skipped faces/truncated", "skipped faces/empty", "skipped faces/text", "skipped faces/huge",
        "skipped faces/missing", "it lies outside the picture", "it is not five numbers",
        "its name holds no angles"}) {
    EXPECT_THAT(printed, HasSubstr(words));
  }

  write("faces.json", "{\"faces/a.png\": [[1, 2");
  EXPECT_THAT(evaluate(), HasSubstr("skipped faces.json"));
  for (const char* name : {"faces", "no-faces", "pose"}) fs::remove_all(folder / name);
  EXPECT_THAT(evaluate(), testing::Not(HasSubstr("nan")));
  fs::remove_all(folder);
}

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
