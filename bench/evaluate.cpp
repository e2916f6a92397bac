// SPDX-License-Identifier: Apache-2.0
//
// sentrel-evaluate FOLDER [plain|dark|noisy]: how well the detector sees, on pictures of a folder as
// PictureSet describes it. Every picture is shown as a still scene until all tiles are scanned. Prints one
// "name value" a line, and counts with their 95 % intervals in lines beginning with "#".
#include <malloc.h>
#include <unistd.h>

#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "figures.h"
#include "support/frame.h"
#include "vision/detector_pipeline.h"
#include "vision/models.h"
#include "vision/network.h"
#include "vision/neural_face_detector.h"

namespace sentrel::bench {
namespace {

using vision::DetectorPipeline;
using vision::Region;
namespace fs = std::filesystem;

// Beyond any camera; a larger picture would only take all memory.
constexpr int largestSide = 8192;

void skip(const std::string& what, const std::string& why) {
  std::printf("# skipped %s: %s\n", what.c_str(), why.c_str());
}

/// How many of a number of trials succeeded.
struct Share {
  int hits = 0;
  int trials = 0;

  void count(bool hit) {
    hits += hit ? 1 : 0;
    ++trials;
  }
  [[nodiscard]] double percent() const { return trials == 0 ? 0 : 100.0 * hits / trials; }

  /// "hits of trials, 95 % interval low..high": Wilson's score interval, in percent.
  [[nodiscard]] std::string interval() const {
    std::string text = std::to_string(hits) + " of " + std::to_string(trials);
    if (trials == 0) return text;
    constexpr double z = 1.959964;  // of a normal distribution's central 95 %
    const double n = trials;
    const double p = std::min(1.0, hits / n);
    const double centre = (p + z * z / (2 * n)) / (1 + z * z / n);
    const double half = z / (1 + z * z / n) * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n));
    const auto rounded = [](double share) {
      return std::to_string(std::round(share * 1000) / 10).substr(0, 4);
    };
    return text + ", 95 % interval " + rounded(std::max(0.0, centre - half)) + ".." +
           rounded(std::min(1.0, centre + half));
  }
};

/// What bad light and a cheap camera do to a picture.
struct Degradation {
  double gain = 1;        ///< of every channel
  double noiseLevel = 0;  ///< standard deviation in steps of 1/255, new in every frame

  /// "plain", "dark" (an eighth of the light, with the noise that comes with it), "noisy".
  static std::optional<Degradation> named(std::string_view name) {
    if (name == "plain") return Degradation{};
    if (name == "dark") return Degradation{0.125, 2};
    if (name == "noisy") return Degradation{1, 16};
    return std::nullopt;
  }

  /// `to` becomes the degraded `from`.
  void apply(const Frame& from, Frame& to, std::mt19937& random) const {
    to.resize(from.width(), from.height());
    const std::size_t count =
        static_cast<std::size_t>(from.stride()) * static_cast<std::size_t>(from.height());
    std::normal_distribution<float> noise(0, 1);
    for (std::size_t i = 0; i < count; ++i) {
      double value = gain * from.data()[i];
      if (noiseLevel > 0) value += noiseLevel * static_cast<double>(noise(random));
      to.data()[i] = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
    }
  }
};

/// A face that a person or another detector marked, in pixels from the top left.
struct Label {
  vision::Region box;
  double confidence = 0;
};

/// A folder with `faces/` and `faces.json`, `no-faces/` and `pose/`. Whatever cannot be used is left out and
/// told in one line beginning "# skipped" on standard output.
class PictureSet {
 public:
  explicit PictureSet(fs::path folder) : folder_(std::move(folder)) {}

  /// File names of one of the folders, sorted; empty when it is not there.
  [[nodiscard]] std::vector<std::string> names(const std::string& subfolder) const {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder_ / subfolder, error)) {
      if (entry.is_regular_file(error)) names.push_back(subfolder + "/" + entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// The labels of faces.json by path relative to the folder. Labels that do not lie in their picture at all
  /// are found out by `inside`.
  [[nodiscard]] std::map<std::string, std::vector<Label>> labels() const {
    std::map<std::string, std::vector<Label>> result;
    QFile file(QString::fromStdString((folder_ / "faces.json").string()));
    if (!file.open(QIODevice::ReadOnly)) {
      skip("faces.json", "it cannot be read");
      return result;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isObject()) {
      skip("faces.json", error.error == QJsonParseError::NoError ? "it holds no object"
                                                                 : error.errorString().toStdString());
      return result;
    }
    const QJsonObject pictures = document.object();
    for (auto at = pictures.begin(); at != pictures.end(); ++at) {
      std::vector<Label>& labels = result[at.key().toStdString()];
      for (const QJsonValue row : at.value().toArray()) {
        const QJsonArray values = row.toArray();
        bool numbers = values.size() == 5;
        for (const QJsonValue value : values) numbers = numbers && value.isDouble();
        if (!numbers) {
          skip("a label of " + at.key().toStdString(), "it is not five numbers");
          continue;
        }
        labels.push_back(
            {{values[0].toDouble(), values[1].toDouble(), values[2].toDouble(), values[3].toDouble()},
             values[4].toDouble()});
      }
    }
    return result;
  }

  /// The picture, or null when it is no picture, truncated, or too large to be one of a camera.
  [[nodiscard]] std::unique_ptr<Frame> load(const std::string& path) const {
    QImageReader reader(QString::fromStdString((folder_ / path).string()));
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    if (size.width() > largestSide || size.height() > largestSide) {
      const QString reason = QString::asprintf("it is larger than %d pixels a side", largestSide);
      skip(path, reason.toStdString());
      return nullptr;
    }
    const QImage picture = reader.read().convertToFormat(QImage::Format_RGB32);
    if (picture.isNull()) {
      skip(path, reader.errorString().toStdString());
      return nullptr;
    }
    auto frame = std::make_unique<Frame>();
    frame->resize(picture.width(), picture.height());
    std::memcpy(frame->data(), picture.constBits(), static_cast<std::size_t>(picture.sizeInBytes()));
    return frame;
  }

 private:
  fs::path folder_;
};

/// Whether a label's box is a box and lies in a picture of that size.
bool inside(const Label& label, const Frame& picture) {
  const vision::Region& box = label.box;
  const double x = box.x + box.width / 2;
  const double y = box.y + box.height / 2;
  return box.width > 0 && box.height > 0 && x >= 0 && y >= 0 && x < picture.width() && y < picture.height();
}

// A face counts from this share of the frame's width.
constexpr double smallestWidth = 0.02;
constexpr double surestLabel = 0.8;
constexpr double sameFace = 0.35;
// All nine tiles, then until what they showed was looked at.
constexpr int leastFrames = 12;
constexpr int mostFrames = 60;
constexpr int frameMs = 100;

struct Seen {
  std::vector<Region> faces;  // tight boxes
  std::optional<vision::FaceReading> primary;
};

class Eye {
 public:
  Eye(const vision::Models& models, Degradation degradation)
      : pipeline_(models, vision::makeInferenceEngine), degradation_(degradation) {}

  Seen look(const Frame& picture) {
    pipeline_.restart();
    for (int i = 0; i < leastFrames || (pipeline_.hasBacklog() && i < mostFrames); ++i) {
      degradation_.apply(picture, shown_, random_);
      pipeline_.analyse(shown_, now_ += frameMs);
    }
    Seen seen;
    for (const auto& tracked : pipeline_.faces()) {
      const Region box = DetectorPipeline::tightBox(tracked.face);
      if (box.width / picture.width() >= smallestWidth) seen.faces.push_back(box);
    }
    if (!seen.faces.empty()) seen.primary = pipeline_.primary();
    return seen;
  }

 private:
  DetectorPipeline pipeline_;
  Degradation degradation_;
  Frame shown_;
  std::mt19937 random_{1};
  std::int64_t now_ = 0;
};

void evaluateFaces(const PictureSet& set, Eye& eye) {
  constexpr std::array<double, 5> limits{0.02, 0.04, 0.06, 0.12, 0.40};
  const char* names[] = {"recall_0.02_0.04", "recall_0.04_0.06", "recall_0.06_0.12", "recall_0.12_0.40"};
  std::array<Share, 4> recall;
  Share unlabelled;
  for (const auto& [path, labels] : set.labels()) {
    const auto picture = set.load(path);
    if (!picture) continue;
    std::vector<Region> free = eye.look(*picture).faces;
    for (const Label& label : labels) {
      if (!inside(label, *picture)) {
        std::printf("# skipped a label of %s: it lies outside the picture\n", path.c_str());
        continue;
      }
      const auto overlap = [&](const Region& box) { return vision::intersectionOverUnion(box, label.box); };
      const auto best = std::max_element(free.begin(), free.end(), [&](const Region& a, const Region& b) {
        return overlap(a) < overlap(b);
      });
      const bool found = best != free.end() && overlap(*best) >= sameFace;
      if (found) free.erase(best);
      const double width = label.box.width / picture->width();
      if (label.confidence < surestLabel || width < limits.front() || width >= limits.back()) continue;
      const auto bucket = std::upper_bound(limits.begin(), limits.end(), width) - limits.begin() - 1;
      recall[static_cast<std::size_t>(bucket)].count(found);
    }
    for (std::size_t i = 0; i < free.size(); ++i) unlabelled.count(true);
  }
  for (std::size_t i = 0; i < recall.size(); ++i) {
    std::printf("# %s: %s\n%s %.1f\n", names[i], recall[i].interval().c_str(), names[i], recall[i].percent());
  }
  std::printf("# faces found in these pictures that no label names: %d\n", unlabelled.hits);
}

void evaluateNoFaces(const PictureSet& set, Eye& eye) {
  Share pictures;
  int faces = 0;
  for (const std::string& path : set.names("no-faces")) {
    const auto picture = set.load(path);
    if (!picture) continue;
    const Seen seen = eye.look(*picture);
    faces += static_cast<int>(seen.faces.size());
    pictures.count(!seen.faces.empty());
    for (const Region& box : seen.faces) {
      std::printf("# false face in %s: x %.0f y %.0f width %.0f\n", path.c_str(), box.x, box.y, box.width);
    }
  }
  std::printf("# pictures with a false face: %s\n", pictures.interval().c_str());
  std::printf("false_faces_per_100 %.2f\n", pictures.trials == 0 ? 0 : 100.0 * faces / pictures.trials);
}

void evaluatePose(const PictureSet& set, Eye& eye) {
  constexpr double degree = std::numbers::pi / 180;
  const std::regex name("yaw(-?[0-9]+)_pitch(-?[0-9]+)");
  std::vector<double> yawErrors;
  std::vector<double> pitchErrors;
  Share agreement;
  Share kept;
  for (const std::string& path : set.names("pose")) {
    std::smatch angles;
    if (!std::regex_search(path, angles, name)) {
      std::printf("# skipped %s: its name holds no angles\n", path.c_str());
      continue;
    }
    const auto picture = set.load(path);
    if (!picture) continue;
    const double yaw = std::stod(angles[1]);
    const double pitch = std::stod(angles[2]);
    const Seen seen = eye.look(*picture);
    kept.count(seen.primary.has_value());
    if (std::abs(yaw) > 40 || std::abs(pitch) > 30 || !seen.primary) continue;
    const double read = seen.primary->yaw / degree;
    yawErrors.push_back(std::abs(read - yaw));
    if (seen.primary->detail) pitchErrors.push_back(std::abs(seen.primary->detail->pitch / degree - pitch));
    if (std::abs(std::abs(yaw) - 30) >= 5) agreement.count((std::abs(read) >= 30) == (std::abs(yaw) >= 30));
  }
  const auto mean = [](const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    return values.empty() ? 0 : sum / static_cast<double>(values.size());
  };
  std::printf("# yaw read in %zu renders, pitch in %zu\n", yawErrors.size(), pitchErrors.size());
  std::printf("yaw_error_mean %.2f\npitch_error_mean %.2f\n", mean(yawErrors), mean(pitchErrors));
  std::printf("# yaw_30_agreement: %s\nyaw_30_agreement %.1f\n", agreement.interval().c_str(),
              agreement.percent());
  std::printf("# pose_primary_kept: %s\npose_primary_kept %.1f\n", kept.interval().c_str(), kept.percent());
}

double residentMib() {
  malloc_trim(0);
  std::ifstream file("/proc/self/statm");
  double total = 0;
  double resident = 0;
  file >> total >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024 * 1024);
}

/// The picture shifted about by some pixels, as a camera in a moving hand would show it: everything moves.
void shift(const Frame& from, Frame& to, int step) {
  to.resize(from.width(), from.height());
  const int dx = 8 + static_cast<int>(8 * std::sin(step * 0.9));
  const int dy = 8 + static_cast<int>(8 * std::cos(step * 0.7));
  for (int y = 0; y < from.height(); ++y) {
    const std::uint8_t* row = from.row((y + dy) % from.height());
    std::uint8_t* out = to.data() + static_cast<std::ptrdiff_t>(y) * to.stride();
    std::rotate_copy(row, row + (dx % from.width()) * 4, row + from.stride(), out);
  }
}

void evaluateCost(const PictureSet& set, const fs::path& models) {
  // A person in front of the camera.
  std::unique_ptr<Frame> picture;
  for (const char* folder : {"pose", "faces"}) {
    for (const std::string& path : set.names(folder)) {
      if (!picture) picture = set.load(path);
    }
  }
  if (!picture || picture->empty()) return;
  constexpr int warmUp = 20;
  constexpr int block = 80;  // two rounds of what a still scene does over and over
  constexpr int blocks = 7;
  Frame shown;
  shift(*picture, shown, 0);
  const double before = residentMib();
  vision::NeuralFaceDetector detector(models);
  if (detector.prepare()) return;
  std::int64_t now = 0;
  const auto run = [&](int frames, bool moving) {
    double spent = 0;
    for (int i = 0; i < frames; ++i) {
      if (moving) shift(*picture, shown, i);
      // The detector has no other thread, and what else the machine does is left out.
      const double begin = threadMilliseconds();
      (void)detector.detect(shown, now += frameMs);
      spent += threadMilliseconds() - begin;
    }
    return spent / frames;
  };
  const auto cost = [&](bool moving) {
    run(warmUp, moving);
    std::vector<double> each(blocks);
    for (double& value : each) value = run(block, moving);
    return median(each);
  };
  const double moving = cost(true);
  const double still = cost(false);
  std::printf("# processor time: means over %d frames, the median of %d such means\n", block, blocks);
  std::printf("ms_per_frame_still %.2f\nms_per_frame_moving %.2f\n", still, moving);
  std::printf("rss_added_mib %.1f\n", residentMib() - before);
}

int evaluate(const fs::path& folder, Degradation degradation) {
  if (!fs::is_directory(folder)) {
    std::fprintf(stderr, "sentrel-evaluate: %s is not a folder\n", folder.c_str());
    return 1;
  }
  const fs::path modelFolder = vision::modelFolder();
  const PictureSet set(folder);
  evaluateCost(set, modelFolder);
  Eye eye(vision::readModels(modelFolder), degradation);
  evaluateFaces(set, eye);
  evaluateNoFaces(set, eye);
  evaluatePose(set, eye);
  return 0;
}

}  // namespace
}  // namespace sentrel::bench

int main(int argc, char** argv) {
  const auto degradation = sentrel::bench::Degradation::named(argc == 3 ? argv[2] : "plain");
  if (argc < 2 || argc > 3 || !degradation) {
    std::fputs("usage: sentrel-evaluate FOLDER [plain|dark|noisy]\n", stderr);
    return 2;
  }
  try {
    return sentrel::bench::evaluate(argv[1], *degradation);
  } catch (const sentrel::vision::ModelError& error) {
    std::fprintf(stderr, "sentrel-evaluate: %s\n", error.what());
    return 1;
  }
}
