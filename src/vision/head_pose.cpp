// SPDX-License-Identifier: Apache-2.0
#include "vision/head_pose.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <Eigen/SVD>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace sentrel::vision {
namespace {

/// A point of the mesh, whose y and z point down and away from the viewer, in the axes of the canonical face,
/// whose y and z point up and towards the viewer.
Eigen::Vector3d upright(const Vector3& point) {
  return {point.x, -point.y, -point.z};
}
Eigen::Vector3d vector(const Vector3& point) {
  return {point.x, point.y, point.z};
}

constexpr double degree = std::numbers::pi / 180;
constexpr double aheadYaw = 15;
constexpr double aheadPitch = 20;
constexpr double mostNeutral = 12;
constexpr double binWidth = 0.5;
// A minute of samples.
constexpr std::int64_t sampleMs = 100;

}  // namespace

std::optional<HeadPose> fitHeadPose(const FaceMesh& mesh, const CanonicalFace& canonical) {
  if (mesh.points.size() != canonical.points.size()) return std::nullopt;
  double total = 0;
  Eigen::Vector3d meshCentre = Eigen::Vector3d::Zero();
  Eigen::Vector3d canonicalCentre = Eigen::Vector3d::Zero();
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    const double weight = canonical.weights[i];
    if (weight == 0) continue;
    total += weight;
    meshCentre += weight * upright(mesh.points[i]);
    canonicalCentre += weight * vector(canonical.points[i]);
  }
  if (!(total > 0)) return std::nullopt;
  meshCentre /= total;
  canonicalCentre /= total;
  Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    if (canonical.weights[i] == 0) continue;
    covariance += canonical.weights[i] * (upright(mesh.points[i]) - meshCentre) *
                  (vector(canonical.points[i]) - canonicalCentre).transpose();
  }
  if (!covariance.allFinite() || covariance.norm() == 0) return std::nullopt;
  const Eigen::JacobiSVD<Eigen::Matrix3d> svd(covariance, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Vector3d signs(1, 1, 1);
  // A rotation, not a reflection.
  if ((svd.matrixU() * svd.matrixV().transpose()).determinant() < 0) signs.z() = -1;
  const Eigen::Matrix3d rotation = svd.matrixU() * signs.asDiagonal() * svd.matrixV().transpose();
  const Eigen::Vector3d facing = rotation.col(2);  // where the canonical face's forward axis points
  return HeadPose{std::atan2(facing.x(), facing.z()), std::asin(std::clamp(facing.y(), -1.0, 1.0))};
}

double yawFromKeypoints(const Candidate& face, double depth) {
  const Point& right = face.keypoints[rightEar];
  const Point& left = face.keypoints[leftEar];
  const Point& nose = face.keypoints[noseTip];
  const double acrossX = left.x - right.x;
  const double acrossY = left.y - right.y;
  const double across = std::hypot(acrossX, acrossY);
  if (!(across > 0)) return 0;
  // Along the line between the ears: half their distance is a x cos(yaw), the nose's offset from their middle
  // is b x sin(yaw), where b / a is the depth.
  const double offset =
      ((nose.x - (left.x + right.x) / 2) * acrossX + (nose.y - (left.y + right.y) / 2) * acrossY) / across;
  return std::atan2(offset / depth, across / 2);
}

void RecentYaws::add(double yaw) {
  yaws_[added_++ % yaws_.size()] = yaw;
}

std::optional<double> RecentYaws::yaw() const {
  constexpr std::size_t fewest = 3;
  if (added_ < fewest) return std::nullopt;
  auto sorted = yaws_;
  const auto end = sorted.begin() + static_cast<std::ptrdiff_t>(std::min(added_, sorted.size()));
  auto* const middle = sorted.begin() + (end - sorted.begin()) / 2;
  std::nth_element(sorted.begin(), middle, end);
  return *middle;
}

void NeutralPitch::restart() {
  *this = NeutralPitch();
}

double NeutralPitch::update(const HeadPose& pose, std::int64_t timestampMs) {
  const double pitch = pose.pitch / degree;
  const bool ahead = std::abs(pose.yaw / degree) < aheadYaw && std::abs(pitch) < aheadPitch;
  const std::int64_t age = timestampMs - lastMs_;
  if (!ahead || (filled_ > 0 && age >= 0 && age < sampleMs)) return neutral_ * degree;
  lastMs_ = timestampMs;
  if (filled_ == samples) {
    --count_[bin_[next_]];
  } else {
    ++filled_;
  }
  const double place = std::clamp((pitch + aheadPitch) / binWidth, 0.0, bins - 1.0);
  bin_[next_] = static_cast<std::uint8_t>(place);
  ++count_[bin_[next_]];
  next_ = (next_ + 1) % samples;

  // The median; the samples that are still missing stand in the bin of 0.
  std::size_t below = 0;
  std::size_t median = 0;
  constexpr std::size_t zeroBin = bins / 2;
  for (; median < bins; ++median) {
    below += count_[median] + (median == zeroBin ? samples - filled_ : 0);
    if (2 * below >= samples) break;
  }
  const double centre = median == zeroBin ? 0 : (static_cast<double>(median) + 0.5) * binWidth - aheadPitch;
  neutral_ = std::clamp(centre, -mostNeutral, mostNeutral);
  return neutral_ * degree;
}

double TimeSmoother::update(double value, std::int64_t timestampMs, double constantMs) {
  const std::int64_t elapsed = timestampMs - lastMs_;
  lastMs_ = timestampMs;
  if (!value_ || constantMs <= 0 || elapsed < 0) {
    value_ = value;
  } else {
    *value_ += (value - *value_) * (1 - std::exp(-static_cast<double>(elapsed) / constantMs));
  }
  return *value_;
}

double smoothingConstantMs(int sensitivity) {
  constexpr std::array<double, 5> constants{600, 350, 150, 60, 0};
  return constants[static_cast<std::size_t>(std::clamp(sensitivity, 1, 5) - 1)];
}

}  // namespace sentrel::vision
