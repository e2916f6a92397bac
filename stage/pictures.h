// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QString>
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "support/frame.h"
#include "vision/models.h"

namespace sentrel::test {

/// One of the real pictures that scripts/fetch-test-pictures puts into build/test-pictures ("astronaut.png":
/// one face; "chelsea.png": a cat). Ends the test program with a message when it is not there.
[[nodiscard]] QImage loadPicture(const QString& name);

/// The picture as the camera would hand it on.
[[nodiscard]] std::shared_ptr<Frame> toFrame(const QImage& picture);

/// Where the build keeps the face models.
[[nodiscard]] QString modelFolderPath();

/// A second person behind the user.
struct SecondFace {
  double x = 530;  ///< centre of the face in pixels of the frame
  double y = 120;
  double width = 80;      ///< of the face without hair and ears, in pixels
  double yawDegrees = 0;  ///< as that of `SceneState`
};

/// What the camera sees.
struct SceneState {
  double yawDegrees = 0;  ///< how far the portrait is warped; what is read off it is about 0.7 of that
  std::optional<SecondFace> secondFace;
};

/// A user in front of the camera, made from one real portrait: the head is turned by warping the picture in
/// 3D over the face's own mesh, and a second face is the same portrait, mirrored and scaled. Frames are 640 x
/// 480.
class PortraitScene {
 public:
  static constexpr int width = 640;
  static constexpr int height = 480;

  /// Reads the portrait's mesh with the real network; ends the program when the material is missing.
  PortraitScene();

  /// The same state always gives the same picture. Takes some milliseconds.
  [[nodiscard]] QImage frame(const SceneState& state) const;
  /// The user before a bright window.
  [[nodiscard]] QImage backlit() const;
  /// Without anybody: of the brightness, 0 to 255, that each pixel has.
  [[nodiscard]] static QImage faceless(const std::function<int(int x, int y)>& brightness);

  /// The user's face in the unturned picture, as the mesh bounds it.
  [[nodiscard]] QRectF faceBox() const { return faceBox_; }

 private:
  struct Vertex {
    double x, y, z;
    double turn;  // how much of the head's rotation it takes part in
  };
  void buildSurface(const std::vector<vision::Vector3>& mesh, const vision::CanonicalFace& canonical);
  /// The head of a picture with its hair and neck, mirrored.
  [[nodiscard]] QImage head(const QImage& picture) const;
  [[nodiscard]] QImage turned(double yawDegrees) const;

  QImage user_;
  QImage onlooker_;
  QRectF faceBox_;
  std::vector<Vertex> surface_;
  std::vector<std::array<std::size_t, 3>> triangles_;
  vision::Vector3 axis_;  // a point of the vertical axis that the head turns about
};

}  // namespace sentrel::test
