// SPDX-License-Identifier: Apache-2.0
#include "vision/face_search.h"

#include <cmath>
#include <utility>

#include "vision/model_error.h"

namespace sentrel::vision {
namespace {

// The network gives one box for every cell of 4 x 4 input pixels: its centre relative to the cell's and its
// size, in input pixels, then the keypoints like the centre.
constexpr int cell = 4;
constexpr std::size_t valuesPerBox = 4 + 2 * keypointCount;
constexpr ValueRange inputRange{-1.0F, 1.0F};

}  // namespace

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
