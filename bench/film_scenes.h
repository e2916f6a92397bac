// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "camera_road.h"
#include "support/frame.h"
#include "vision/region_sampler.h"

namespace sentrel::bench {

/// Somebody in a picture, and where the face is.
struct Person {
  std::shared_ptr<const Frame> picture;
  vision::Region face;
};

/// The person in a picture that is scaled so that the face has a width in pixels.
[[nodiscard]] Person scaled(const Person& person, double faceWidth);

/// Pastes a person into a picture, with the face's centre at a point, faded at the edges.
void paste(Frame& picture, const Person& person, double centreX, double centreY);

/// Plays little scenes of everyday life with each of the users, who are alone in their pictures: somebody
/// walks through behind, somebody stays, the light goes, the camera is carried. Prints how many of each went
/// right, and `films_right`, the percentage of all: whether there was an alert (two faces in every frame for
/// half a second) when there must be one, and none otherwise.
void evaluateFilms(const std::vector<Person>& users, const std::vector<Person>& passers,
                   const std::filesystem::path& modelFolder, CameraRoad& road);

}  // namespace sentrel::bench
