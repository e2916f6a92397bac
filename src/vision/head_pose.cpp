// SPDX-License-Identifier: Apache-2.0
#include "vision/head_pose.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace sentrel::vision {
namespace {

/// The mesh counts down and away from the viewer, the canonical face up and towards the viewer.
Eigen::Vector3d upright(const Vector3& point) {
  return {point.x, -point.y, -point.z};
}
Eigen::Vector3d vector(const Vector3& point) {
  return {point.x, point.y, point.z};
}

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

double yawFromKeypoints(const Candidate& face) {
  const Point& right = face.keypoints[rightEar];
  const Point& left = face.keypoints[leftEar];
  const Point& nose = face.keypoints[noseTip];
  const double acrossX = left.x - right.x;
  const double acrossY = left.y - right.y;
  const double across = std::hypot(acrossX, acrossY);
  if (!(across > 0)) return 0;
  // Along the line between the ears: half their distance is a x cos(yaw), the nose's offset from their middle
  // is b x sin(yaw), where b / a is a head's length from ears to nose over half its width.
  constexpr double depthOverHalfWidth = 1.4;
  const double offset =
      ((nose.x - (left.x + right.x) / 2) * acrossX + (nose.y - (left.y + right.y) / 2) * acrossY) / across;
  return std::atan2(offset / depthOverHalfWidth, across / 2);
}

}  // namespace sentrel::vision
