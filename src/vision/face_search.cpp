// SPDX-License-Identifier: Apache-2.0
#include "vision/face_search.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace sentrel::vision {
namespace {

// Two boxes of one face overlap at least so much; two faces close to each other do not.
constexpr double sameFaceOverlap = 0.3;
constexpr double sameFaceContained = 0.7;

double intersection(const Region& a, const Region& b) {
  const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
  const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
  return width > 0 && height > 0 ? width * height : 0;
}

double area(const Region& region) {
  return region.width * region.height;
}

// The network gives one box for every cell of 4 x 4 input pixels: its centre relative to the cell's and its
// size, in input pixels, then the keypoints like the centre.
constexpr int cell = 4;
constexpr std::size_t valuesPerBox = 4 + 2 * keypointCount;
constexpr ValueRange inputRange{-1.0F, 1.0F};

}  // namespace

double intersectionOverUnion(const Region& a, const Region& b) {
  const double common = intersection(a, b);
  return common > 0 ? common / (area(a) + area(b) - common) : 0;
}

double containedShare(const Region& inner, const Region& outer) {
  const double common = intersection(inner, outer);
  return common > 0 ? common / area(inner) : 0;
}

bool samePlace(const Region& a, const Region& b) {
  return intersectionOverUnion(a, b) > sameFaceOverlap || containedShare(a, b) > sameFaceContained ||
         containedShare(b, a) > sameFaceContained;
}

void suppressOverlaps(std::vector<Candidate>& candidates) {
  std::sort(candidates.begin(), candidates.end(),
            [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const auto covers = [&](const Candidate& better) { return samePlace(candidates[i].box, better.box); };
    const auto end = candidates.begin() + static_cast<std::ptrdiff_t>(kept);
    if (std::any_of(candidates.begin(), end, covers)) continue;
    if (kept != i) candidates[kept] = candidates[i];
    ++kept;
  }
  candidates.resize(kept);
}

Region scaledAboutCentre(const Region& box, double factor) {
  return {box.x + box.width * (1 - factor) / 2, box.y + box.height * (1 - factor) / 2, box.width * factor,
          box.height * factor};
}

FaceSearch::FaceSearch(std::unique_ptr<NetworkRunner> runner, InputSize size, RegionSampler& sampler)
    : runner_(std::move(runner)), size_(size), sampler_(&sampler) {
  const auto cells =
      static_cast<std::size_t>(size.height / cell) * static_cast<std::size_t>(size.width / cell);
  if (runner_->outputCount() != 2) throw ModelError("the network gives no boxes and scores");
  boxes_ = runner_->output(0).size() > runner_->output(1).size() ? 0 : 1;
  scores_ = 1 - boxes_;
  if (runner_->output(boxes_).size() != cells * valuesPerBox || runner_->output(scores_).size() != cells) {
    throw ModelError("the network's boxes and scores have an unexpected size");
  }
}

void FaceSearch::find(const Frame& frame, const Region& region, double threshold,
                      std::vector<Candidate>& found) {
  sampler_->sample(frame, region, size_.width, size_.height, inputRange, runner_->input());
  if (!runner_->run()) throw InferenceFailure();
  const auto boxes = runner_->output(boxes_);
  const auto scores = runner_->output(scores_);
  const auto lowest = static_cast<float>(std::log(threshold / (1 - threshold)));
  const double scaleX = region.width / size_.width;
  const double scaleY = region.height / size_.height;
  const int columns = size_.width / cell;
  for (std::size_t i = 0; i < scores.size(); ++i) {
    if (!(scores[i] >= lowest) || found.size() == found.capacity()) continue;
    const float* box = boxes.data() + i * valuesPerBox;
    const int column = static_cast<int>(i) % columns;
    const int row = static_cast<int>(i) / columns;
    const double cellX = (column + 0.5) * cell;
    const double cellY = (row + 0.5) * cell;
    const auto place = [&](const float* offset) {
      return Point{region.x + (static_cast<double>(offset[0]) + cellX) * scaleX,
                   region.y + (static_cast<double>(offset[1]) + cellY) * scaleY};
    };
    Candidate candidate;
    candidate.score = 1 / (1 + std::exp(-static_cast<double>(scores[i])));
    const Point centre = place(box);
    const double width = static_cast<double>(box[2]) * scaleX;
    const double height = static_cast<double>(box[3]) * scaleY;
    if (!(width > 0 && height > 0)) continue;
    candidate.box = {centre.x - width / 2, centre.y - height / 2, width, height};
    for (std::size_t k = 0; k < keypointCount; ++k) candidate.keypoints[k] = place(box + 4 + 2 * k);
    found.push_back(candidate);
  }
}

}  // namespace sentrel::vision
