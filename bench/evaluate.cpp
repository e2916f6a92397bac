// SPDX-License-Identifier: Apache-2.0
//
// sentrel-evaluate FOLDER [plain|dark|noisy|GAIN:NOISE] [640x480] [cost|pictures|pose|films|paper]: how well
// the detector sees, on pictures of a folder as PictureSet describes it. Every picture is shown as a still
// scene for three seconds, and until all that was seen in it was looked at. Pictures of 1280x720 are seen as
// the program sees such a camera's, or with "640x480" as if it gave no more than that. Prints one "name
// value" a line, and counts with their 95 % intervals in lines beginning with "#". Without the last word all
// but "paper", which plays 24 minutes of films of people who read and of posters.
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
#include <utility>
#include <vector>

#include "camera_road.h"
#include "coarse_pass.h"
#include "figures.h"
#include "film.h"
#include "film_scenes.h"
#include "paper_films.h"
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
constexpr int leastFrames = 30;
constexpr int mostFrames = 60;
constexpr int frameMs = 100;

/// The width that ratios refer to: of a wide picture only the middle is looked at.
double widthOf(const Frame& picture) {
  return std::min<double>(picture.width(), picture.height() * 4 / 3.0);
}

struct Seen {
  std::vector<Region> faces;                // tight boxes
  std::vector<std::optional<double>> yaws;  // of each, where it was asked for
  std::optional<vision::FaceReading> primary;
};

class Eye {
 public:
  Eye(const vision::Models& models, Degradation degradation, bool larger)
      : pipeline_(models, vision::makeInferenceEngine), degradation_(degradation), road_(larger) {}

  /// In pixels of the picture.
  Seen look(const Frame& picture, bool others = false) {
    pipeline_.restart();
    for (int i = 0; i < leastFrames || (pipeline_.hasBacklog() && i < mostFrames); ++i) {
      degradation_.apply(picture, shown_, random_);
      pipeline_.analyse(road_.see(shown_), now_ += frameMs, others);
    }
    const double smallest = smallestWidth * widthOf(picture);
    Seen seen;
    for (const auto& tracked : pipeline_.faces()) {
      const Region box = CameraRoad::inPicture(DetectorPipeline::tightBox(tracked.face), picture);
      if (box.width < smallest) continue;
      seen.faces.push_back(box);
      seen.yaws.push_back(pipeline_.yawOf(tracked));
    }
    if (!seen.faces.empty()) seen.primary = pipeline_.primary();
    return seen;
  }

 private:
  DetectorPipeline pipeline_;
  Degradation degradation_;
  CameraRoad road_;
  Frame shown_;
  std::mt19937 random_{1};
  std::int64_t now_ = 0;
};

/// Recall by the width of the face, in pixels of a picture of 640 x 480.
class RecallByWidth {
 public:
  void count(double width, bool found) {
    if (width < smallest) return;
    std::size_t nearest = 0;
    while (nearest + 1 < widths.size() && width > (widths[nearest] + widths[nearest + 1]) / 2) ++nearest;
    shares_[nearest].count(found);
  }

  void print() const {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string name = "recall_" + std::to_string(static_cast<int>(widths[i])) + "px" +
                               (i + 1 < widths.size() ? "" : "_and_more");
      std::printf("# %s: %s\n%s %.1f\n", name.c_str(), shares_[i].interval().c_str(), name.c_str(),
                  shares_[i].percent());
    }
  }

 private:
  static constexpr double smallest = 12;
  static constexpr std::array<double, 7> widths{13, 16, 20, 26, 32, 40, 52};
  std::array<Share, widths.size()> shares_;
};

void printFalseFace(const std::string& path, const Region& box) {
  std::printf("# false face in %s: x %.0f y %.0f width %.0f\n", path.c_str(), box.x, box.y, box.width);
}

void evaluateFaces(const PictureSet& set, Eye& eye) {
  constexpr std::array<double, 5> limits{0.02, 0.04, 0.06, 0.12, 0.40};
  const char* names[] = {"recall_0.02_0.04", "recall_0.04_0.06", "recall_0.06_0.12", "recall_0.12_0.40"};
  std::array<Share, 4> recall;
  RecallByWidth byWidth;
  Share alone;  // pictures with one labelled face, the person's own
  int facesAlone = 0;
  int unlabelled = 0;
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
      const double width = label.box.width / widthOf(*picture);
      if (label.confidence >= surestLabel) byWidth.count(label.box.width * 480 / picture->height(), found);
      if (label.confidence < surestLabel || width < limits.front() || width >= limits.back()) continue;
      const auto bucket = std::upper_bound(limits.begin(), limits.end(), width) - limits.begin() - 1;
      recall[static_cast<std::size_t>(bucket)].count(found);
    }
    unlabelled += static_cast<int>(free.size());
    if (labels.size() == 1) {
      alone.count(!free.empty());
      for (const Region& box : free) printFalseFace(path, box);
      facesAlone += static_cast<int>(free.size());
    }
  }
  for (std::size_t i = 0; i < recall.size(); ++i) {
    std::printf("# %s: %s\n%s %.1f\n", names[i], recall[i].interval().c_str(), names[i], recall[i].percent());
  }
  byWidth.print();
  std::printf("# faces found in these pictures that no label names: %d\n", unlabelled);
  std::printf("# pictures of one person with a false face: %s\n", alone.interval().c_str());
  std::printf("false_faces_per_100_alone %.2f\n", alone.trials == 0 ? 0 : 100.0 * facesAlone / alone.trials);
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
      printFalseFace(path, box);
    }
  }
  std::printf("# pictures with a false face: %s\n", pictures.interval().c_str());
  std::printf("false_faces_per_100 %.2f\n", pictures.trials == 0 ? 0 : 100.0 * faces / pictures.trials);
}

/// The first pictures of somebody at work alone, and of those with somebody behind, as far as the widths of
/// the labels tell.
struct People {
  std::vector<Person> users;
  std::vector<Person> passers;
};

People findPeople(const PictureSet& set) {
  constexpr std::size_t most = 8;
  People people;
  for (const auto& [path, labels] : set.labels()) {
    if (labels.empty() || labels.size() > 2) continue;
    const bool alone = labels.size() == 1;
    std::vector<Person>& found = alone ? people.users : people.passers;
    if (found.size() == most) continue;
    const Label& face =
        *std::ranges::min_element(labels, {}, [](const Label& label) { return label.box.width; });
    std::shared_ptr<const Frame> picture = set.load(path);
    if (!picture || !inside(face, *picture)) continue;
    const double width = face.box.width / picture->width();
    if (alone ? width > 0.2 && width < 0.4 : width > 0.04 && width < 0.1)
      found.push_back({std::move(picture), face.box});
  }
  return people;
}

/// Recall of onlookers who are turned away, or look down, and whether those who are found are rightly taken
/// for turned away.
class OnlookersTurned {
 public:
  OnlookersTurned(Eye& eye, std::vector<Person> users) : eye_(&eye), users_(std::move(users)) {}

  /// Shows somebody of three sizes behind the users; angles in degrees.
  void count(const Person& turned, double yaw, double pitch) {
    if (users_.empty()) return;
    for (std::size_t size = 0; size < widths.size(); ++size) {
      const double width = widths[size];
      const Person& user = users_[next_++ % users_.size()];
      const double unit = user.picture->height() / 480.0;
      Frame picture;
      picture.resize(user.picture->width(), user.picture->height());
      std::copy_n(user.picture->data(), std::ptrdiff_t{picture.stride()} * picture.height(), picture.data());
      const Person onlooker = scaled(turned, width * unit);
      const bool left = user.face.x + user.face.width / 2 > picture.width() / 2.0;
      const double x = picture.width() * (left ? 0.12 : 0.88);
      const Region& face = onlooker.face;
      const Region box{x - face.width / 2, user.face.y - face.height / 2, face.width, face.height};
      paste(picture, onlooker, x, user.face.y);
      const Seen seen = eye_->look(picture, true);
      const auto onlookerFace = std::ranges::find_if(seen.faces, [&](const Region& other) {
        return vision::intersectionOverUnion(other, box) >= sameFace;
      });
      const bool found = onlookerFace != seen.faces.end();
      if (found) {
        const auto& read = seen.yaws[static_cast<std::size_t>(onlookerFace - seen.faces.begin())];
        facing_[size].count((std::abs(read.value_or(0)) < facingYaw) == (std::abs(yaw) < 45));
      }
      if (pitch <= -30) down_.count(found);
      if (std::abs(pitch) <= 20) byYaw_[static_cast<int>(std::abs(yaw))].count(found);
    }
  }

  void print() const {
    for (const auto& [yaw, share] : byYaw_)
      std::printf("# yaw %d: %s\nrecall_yaw_%d %.1f\n", yaw, share.interval().c_str(), yaw, share.percent());
    if (down_.trials > 0)
      std::printf("# head down: %s\nrecall_head_down %.1f\n", down_.interval().c_str(), down_.percent());
    for (std::size_t size = 0; size < widths.size(); ++size) {
      const std::string name = "facing_agreement_" + std::to_string(static_cast<int>(widths[size])) + "px";
      std::printf("# %s: %s\n%s %.1f\n", name.c_str(), facing_[size].interval().c_str(), name.c_str(),
                  facing_[size].percent());
    }
  }

 private:
  static constexpr std::array<double, 3> widths{26, 40, 64};
  static constexpr double facingYaw = std::numbers::pi / 4;

  Eye* eye_;
  std::vector<Person> users_;
  std::size_t next_ = 0;
  std::array<Share, widths.size()> facing_;  // among the found
  std::map<int, Share> byYaw_;
  Share down_;  // by 30 degrees and more
};

void evaluatePose(const PictureSet& set, Eye& eye) {
  OnlookersTurned turned(eye, findPeople(set).users);
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
    const std::shared_ptr<const Frame> picture = set.load(path);
    if (!picture) continue;
    const double yaw = std::stod(angles[1]);
    const double pitch = std::stod(angles[2]);
    const Seen seen = eye.look(*picture);
    kept.count(seen.primary.has_value());
    if (!seen.faces.empty()) turned.count({picture, seen.faces.front()}, yaw, pitch);
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
  turned.print();
}

double residentMib() {
  malloc_trim(0);
  std::ifstream file("/proc/self/statm");
  double total = 0;
  double resident = 0;
  file >> total >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024 * 1024);
}

/// The widest face of a picture, if it looks roughly ahead.
std::optional<Region> faceIn(const Frame& picture, const vision::Models& models) {
  DetectorPipeline pipeline(models, vision::makeInferenceEngine);
  pipeline.analyse(picture, 0);
  constexpr double ahead = 0.2;
  const auto& reading = pipeline.primary();
  if (!reading || !reading->detail || std::abs(reading->yaw) > ahead) return std::nullopt;
  return DetectorPipeline::tightBox(pipeline.faces().front().face);
}

/// Milliseconds a frame of a film, and the unit meanwhile.
struct Cost {
  double frameMs = 0;
  double passMs = 0;
};

void evaluateCost(const PictureSet& set, const fs::path& modelFolder, CameraRoad& road) {
  const vision::Models models = vision::readModels(modelFolder);
  std::unique_ptr<Frame> picture;
  std::optional<Region> face;
  for (const char* folder : {"faces", "pose"}) {
    for (const std::string& path : set.names(folder)) {
      if (face) break;
      picture = set.load(path);
      if (picture && !picture->empty()) face = faceIn(*picture, models);
    }
  }
  if (!face) return;
  constexpr int warmUp = 120;  // until the person's habits are known
  constexpr int block = 60;    // a round of what a still scene does over and over
  constexpr std::size_t blocks = 5;
  CoarsePass unit(models);
  (void)unit.milliseconds();
  const double before = residentMib();
  vision::NeuralFaceDetector detector(modelFolder);
  if (detector.prepare()) return;
  Film film(*picture, *face);
  Frame shown;
  std::int64_t frame = 0;
  const auto play = [&](Film::Scene scene, int frames) {
    double spent = 0;
    for (int i = 0; i < frames; ++i, ++frame) {
      film.show(scene, static_cast<double>(frame) * frameMs / 1000, shown);
      const Frame& seen = road.see(shown);
      const double begin = threadMilliseconds();
      (void)detector.detect(seen, frame * frameMs);
      spent += threadMilliseconds() - begin;
    }
    return spent / frames;
  };
  const auto cost = [&](Film::Scene scene) {
    play(scene, warmUp);
    std::vector<double> each(blocks);
    std::vector<double> passes(blocks);
    for (std::size_t i = 0; i < blocks; ++i) {
      each[i] = play(scene, block);
      passes[i] = unit.milliseconds();
    }
    return Cost{median(each), median(passes)};
  };
  const Cost moving = cost(Film::Scene::moving);
  const Cost working = cost(Film::Scene::working);
  const Cost still = cost(Film::Scene::still);
  std::printf("# processor time: means over %d frames, the median of %zu such means\n", block, blocks);
  std::printf("coarse_pass_ms %.2f\n", still.passMs);
  const std::array<std::pair<const char*, Cost>, 3> films{
      {{"still", still}, {"working", working}, {"moving", moving}}};
  for (const auto& [name, each] : films) {
    std::printf("ms_per_frame_%s %.2f\npasses_per_s_%s %.1f\n", name, each.frameMs, name,
                each.frameMs * 1000 / frameMs / each.passMs);
  }
  std::printf("rss_added_mib %.1f\n", residentMib() - before);
}

void evaluatePaper(const std::vector<Person>& people, Degradation camera, const fs::path& modelFolder) {
  constexpr double minutes = 10;
  constexpr double posterMinutes = 2;
  constexpr std::array<std::array<double, PaperFigures::seats>, 2> widths{
      {{26, 16, 32, 20}, {40, 100, 50, 64}}};
  constexpr std::array<double, 3> swaysMm{1, 0.7, 1.5};
  vision::NeuralFaceDetector detector(modelFolder);
  if (people.empty() || detector.prepare()) return;
  camera.noiseLevel = std::max(camera.noiseLevel, 2.0);  // there is no camera without
  PaperFigures figures;
  unsigned seed = 0;
  for (std::size_t film = 0; film < widths.size(); ++film) {
    std::array<PaperSeat, PaperFigures::seats> seats;
    for (std::size_t i = 0; i < seats.size(); ++i) {
      seats[i] = {people[(film + 1 + i) % people.size()], widths[film][i],
                  swaysMm[(film + i) % swaysMm.size()], ++seed};
    }
    const Person& user = people[film % people.size()];
    figures.play(user, seats, true, camera, minutes, detector);
    figures.play(user, seats, false, camera, posterMinutes, detector);
  }
  std::printf("# %d readers for %.0f minutes each, and their photographs for %.0f\n", figures.readers(),
              minutes, posterMinutes);
  std::printf("readers_taken_for_paper %d\nposters_kept_quiet %.1f\n", figures.takenForPaper(),
              figures.keptQuiet());
}

constexpr std::array<std::string_view, 5> parts{"cost", "pictures", "pose", "films", "paper"};

int evaluate(const fs::path& folder, Degradation degradation, bool larger, std::string_view part) {
  if (!fs::is_directory(folder)) {
    std::fprintf(stderr, "sentrel-evaluate: %s is not a folder\n", folder.c_str());
    return 1;
  }
  const fs::path modelFolder = vision::modelFolder();
  const PictureSet set(folder);
  CameraRoad road(larger);
  const auto wants = [part](std::string_view name) { return part.empty() || part == name; };
  if (wants("cost")) evaluateCost(set, modelFolder, road);
  Eye eye(vision::readModels(modelFolder), degradation, larger);
  if (wants("pictures")) {
    evaluateFaces(set, eye);
    evaluateNoFaces(set, eye);
  }
  if (wants("pose")) evaluatePose(set, eye);
  if (wants("films") && degradation.gain == 1 && degradation.noiseLevel == 0) {
    const People people = findPeople(set);
    evaluateFilms(people.users, people.passers, modelFolder, road);
  }
  if (part == "paper") evaluatePaper(findPeople(set).users, degradation, modelFolder);
  return 0;
}

}  // namespace
}  // namespace sentrel::bench

int main(int argc, char** argv) {
  using namespace sentrel::bench;
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool hasPart = words.size() > 1 && std::ranges::find(parts, words.back()) != parts.end();
  const std::string part = hasPart ? words.back() : "";
  if (hasPart) words.pop_back();
  const bool larger = words.size() < 2 || words.back() != "640x480";
  if (!larger) words.pop_back();
  const auto degradation = Degradation::named(words.size() == 2 ? words[1] : "plain");
  if (words.empty() || words.size() > 2 || !degradation) {
    std::fputs(
        "usage: sentrel-evaluate FOLDER [plain|dark|noisy|GAIN:NOISE] [640x480] "
        "[cost|pictures|pose|films|paper]\n",
        stderr);
    return 2;
  }
  try {
    return evaluate(words[0], *degradation, larger, part);
  } catch (const sentrel::vision::ModelError& error) {
    std::fprintf(stderr, "sentrel-evaluate: %s\n", error.what());
    return 1;
  }
}
