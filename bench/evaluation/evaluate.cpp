// SPDX-License-Identifier: Apache-2.0
//
// sentrel-evaluate FOLDER [plain|dark|noisy]: how well the detector sees, on pictures of a folder as
// PictureSet describes it. Every picture is shown as a still scene until all tiles are scanned. Prints one
// "name value" a line, and counts with their 95 % intervals in lines beginning with "#".
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <numbers>
#include <regex>
#include <string>
#include <vector>

#include "evaluation/degradation.h"
#include "evaluation/picture_set.h"
#include "evaluation/share.h"
#include "vision/detector_pipeline.h"
#include "vision/models.h"
#include "vision/network.h"
#include "vision/neural_face_detector.h"

namespace sentrel::bench {
namespace {

using vision::DetectorPipeline;
using vision::Region;

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

/// Processor time of this thread: the detector has no other, and what else the machine does is left out.
double threadMs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
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

void evaluateCost(const PictureSet& set, const std::filesystem::path& models) {
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
      const double begin = threadMs();
      (void)detector.detect(shown, now += frameMs);
      spent += threadMs() - begin;
    }
    return spent / frames;
  };
  const auto median = [&](bool moving) {
    run(warmUp, moving);
    std::array<double, blocks> each{};
    for (double& value : each) value = run(block, moving);
    std::sort(each.begin(), each.end());
    return each[blocks / 2];
  };
  const double moving = median(true);
  const double still = median(false);
  std::printf("# processor time: means over %d frames, the median of %d such means\n", block, blocks);
  std::printf("ms_per_frame_still %.2f\nms_per_frame_moving %.2f\n", still, moving);
  std::printf("rss_added_mib %.1f\n", residentMib() - before);
}

int evaluate(const std::filesystem::path& folder, Degradation degradation) {
  if (!std::filesystem::is_directory(folder)) {
    std::fprintf(stderr, "sentrel-evaluate: %s is not a folder\n", folder.c_str());
    return 1;
  }
  const std::filesystem::path modelFolder = vision::modelFolder();
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
