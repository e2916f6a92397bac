// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QImage>
#include <filesystem>
#include <fstream>
#include <string>

#include "stage/child_process.h"
#include "stage/pictures.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class EvaluationTest : public ::testing::Test {
 protected:
  EvaluationTest() {
    for (const char* name : {"faces", "no-faces", "pose"}) fs::create_directories(folder_ / name);
  }
  ~EvaluationTest() override { fs::remove_all(folder_); }

  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
  }
  void save(const std::string& name, const QImage& picture) const {
    ASSERT_TRUE(picture.save(QString::fromStdString((folder_ / name).string())));
  }
  /// Runs to the end; what was printed.
  [[nodiscard]] std::string evaluate() const {
    ChildProcess process({SENTREL_EVALUATE, {folder_.string()}, currentEnvironment(), folder_ / "log"});
    EXPECT_EQ(process.waitForExit(std::chrono::seconds(200)), 0);
    return process.output();
  }

  const fs::path folder_ = fs::temp_directory_path() / ("evaluation-" + std::to_string(getpid()));
};

TEST_F(EvaluationTest, CountsWhatIsThereAndSkipsWhatIsNoPicture) {
  const QImage portrait =
      loadPicture("astronaut.png").scaledToWidth(480);  // the face is about 95 wide, at 200, 65
  save("faces/good.png", portrait);
  save("faces/unlabelled.png", portrait);
  std::ifstream file(folder_ / "faces/good.png", std::ios::binary);
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
    "faces/truncated.png": [[190, 60, 95, 110, 0.9]], "faces/empty.png": [[1, 2, 30, 40, 0.9]],
    "faces/text.png": [], "faces/huge.png": [[1, 2, 3000, 4000, 0.9]], "faces/tiny.png": [[0, 0, 1, 1, 0.9]],
    "faces/missing.png": [[1, 2, 30, 40, 0.9]]})");
  const std::string printed = evaluate();
  for (const char* words :
       {"recall_0.12_0.40: 1 of 1", "recall_0.06_0.12: 0 of 0", "false_faces_per_100 0.00",
        "skipped faces/truncated", "skipped faces/empty", "skipped faces/text", "skipped faces/huge",
        "skipped faces/missing", "it lies outside the picture", "it is not five numbers",
        "its name holds no angles"}) {
    EXPECT_THAT(printed, HasSubstr(words));
  }
}

TEST_F(EvaluationTest, SaysWhatIsWrongWithTheFolder) {
  write("faces.json", "{\"faces/a.png\": [[1, 2");
  EXPECT_THAT(evaluate(), HasSubstr("skipped faces.json"));
  for (const char* name : {"faces", "no-faces", "pose"}) fs::remove_all(folder_ / name);
  EXPECT_THAT(evaluate(), Not(HasSubstr("nan")));
}

}  // namespace
}  // namespace sentrel::test
