// SPDX-License-Identifier: Apache-2.0
#include "vision/face_mesh.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "vision/network.h"

namespace sentrel::vision {
namespace {

constexpr ValueRange inputRange{0.0F, 1.0F};
constexpr double regionPerFace = 1.5;
// At one half.
constexpr float acceptedScore = 0;

double tilt(const Point& from, const Point& to) {
  return std::atan2(to.y - from.y, to.x - from.x);
}

}  // namespace

MeshFinder::MeshFinder(std::unique_ptr<NetworkRunner> runner, std::size_t pointCount)
    : runner_(std::move(runner)) {
  if (runner_->outputCount() != 2) throw ModelError("the network gives no points and score");
  points_ = runner_->output(0).size() > runner_->output(1).size() ? 0 : 1;
  score_ = 1 - points_;
  if (runner_->output(points_).size() != pointCount * 3 || runner_->output(score_).size() != 1) {
    throw ModelError("the network's points are not those of the canonical face");
  }
  if (pointCount <= leftEyeInner) throw ModelError("the network gives too few points");
}

float MeshFinder::presence(const Frame& frame, const TurnedSquare& square) {
  if (!(square.side >= 1) || frame.empty()) return std::numeric_limits<float>::lowest();
  RegionSampler::sample(frame, square, meshSide, inputRange, runner_->input());
  if (!runner_->run()) throw InferenceFailure();
  return runner_->output(score_)[0];
}

bool MeshFinder::find(const Frame& frame, const TurnedSquare& square, FaceMesh& mesh) {
  if (!(presence(frame, square) > acceptedScore)) return false;
  const auto values = runner_->output(points_);
  const double scale = square.side / meshSide;
  const double cosine = std::cos(square.angle) * scale;
  const double sine = std::sin(square.angle) * scale;
  mesh.points.resize(values.size() / 3);
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    const double right = static_cast<double>(values[3 * i]) - meshSide / 2.0;
    const double down = static_cast<double>(values[3 * i + 1]) - meshSide / 2.0;
    mesh.points[i] = {square.centreX + right * cosine - down * sine,
                      square.centreY + right * sine + down * cosine,
                      static_cast<double>(values[3 * i + 2]) * scale};
  }
  return true;
}

TurnedSquare meshRegion(const Candidate& face) {
  return {face.box.x + face.box.width / 2, face.box.y + face.box.height / 2,
          std::max(face.box.width, face.box.height) * regionPerFace,
          tilt(face.keypoints[rightEye], face.keypoints[leftEye])};
}

TurnedSquare meshRegion(const FaceMesh& mesh) {
  const Vector3& right = mesh.points[rightEyeOuter];
  const Vector3& left = mesh.points[leftEyeOuter];
  const double angle = tilt({right.x, right.y}, {left.x, left.y});
  const double cosine = std::cos(angle);
  const double sine = std::sin(angle);
  // The extent along the tilted axes.
  constexpr double far = std::numeric_limits<double>::max();
  std::array<double, 2> low{far, far};
  std::array<double, 2> high{-far, -far};
  for (const Vector3& point : mesh.points) {
    const std::array<double, 2> along{point.x * cosine + point.y * sine, point.y * cosine - point.x * sine};
    for (std::size_t axis = 0; axis < 2; ++axis) {
      low[axis] = std::min(low[axis], along[axis]);
      high[axis] = std::max(high[axis], along[axis]);
    }
  }
  const double u = (low[0] + high[0]) / 2;
  const double v = (low[1] + high[1]) / 2;
  return {u * cosine - v * sine, u * sine + v * cosine,
          std::max(high[0] - low[0], high[1] - low[1]) * regionPerFace, angle};
}

Region boundingBox(const FaceMesh& mesh) {
  const auto byX = [](const Vector3& a, const Vector3& b) { return a.x < b.x; };
  const auto byY = [](const Vector3& a, const Vector3& b) { return a.y < b.y; };
  const auto [left, right] = std::minmax_element(mesh.points.begin(), mesh.points.end(), byX);
  const auto [top, bottom] = std::minmax_element(mesh.points.begin(), mesh.points.end(), byY);
  return {left->x, top->y, right->x - left->x, bottom->y - top->y};
}

}  // namespace sentrel::vision
