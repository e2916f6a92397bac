// SPDX-License-Identifier: Apache-2.0
#include "film_scenes.h"

#include <QImage>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "film.h"
#include "vision/neural_face_detector.h"

namespace sentrel::bench {
namespace {

constexpr int frameMs = 100;
constexpr double settled = 4;  // seconds until a scene begins, and the person's habits are known
constexpr double seconds = 12;
constexpr double smallestWidth = 0.02;  // of a face that counts
constexpr int alertAfterMs = 500;
// How long it may take until somebody is found and the rule's half second is over, and until all is over
// again.
constexpr double alertBy = 1.5;
constexpr double overBy = 1.0;

struct Scene {
  const char* name;
  Film::Scene camera;
  /// When somebody is behind the person, in seconds, and across how much of the width that person walks.
  double comes = 0;
  double goes = 0;
  double walks = 0;
  /// What happens to the picture; none where nothing does.
  void (*change)(Frame& picture, double time) = nullptr;
};

/// 0 before `from`, 1 from `to` on.
double ramp(double time, double from, double to) {
  return std::clamp((time - from) / (to - from), 0.0, 1.0);
}

void brighten(Frame& picture, int left, double gain) {
  for (int y = 0; y < picture.height(); ++y) {
    std::uint8_t* row = picture.data() + static_cast<std::ptrdiff_t>(y) * picture.stride();
    for (int i = left * 4; i < picture.stride(); ++i)
      row[i] = static_cast<std::uint8_t>(std::min(255.0, row[i] * gain));
  }
}

void switchLight(Frame& picture, double time) {
  if (time >= settled && time < settled + 4) brighten(picture, 0, 0.125);
}

void letSunIn(Frame& picture, double time) {
  const double share = ramp(time, settled, settled + 0.5) - ramp(time, settled + 4, settled + 4.5);
  brighten(picture, picture.width() / 2, 1 + 0.7 * share);
}

void refocus(Frame& picture, double time) {
  const double share = ramp(time, settled, settled + 0.6) - ramp(time, settled + 0.6, settled + 1.2);
  if (share <= 0) return;
  const QImage sharp(picture.data(), picture.width(), picture.height(), picture.stride(),
                     QImage::Format_RGB32);
  const int width = static_cast<int>(picture.width() / (1 + 7 * share));
  const QImage blurred = sharp.scaledToWidth(width, Qt::SmoothTransformation)
                             .scaled(sharp.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                             .convertToFormat(QImage::Format_RGB32);
  std::memcpy(picture.data(), blurred.constBits(), static_cast<std::size_t>(blurred.sizeInBytes()));
}

constexpr std::array<Scene, 7> scenes{{{"nobody_comes", Film::Scene::working},
                                       {"walks_through", Film::Scene::working, settled, settled + 3, 1.0},
                                       {"stays", Film::Scene::working, settled, settled + 6, 0},
                                       {"light_off_and_on", Film::Scene::working, 0, 0, 0, switchLight},
                                       {"sun_comes_out", Film::Scene::working, 0, 0, 0, letSunIn},
                                       {"camera_refocuses", Film::Scene::working, 0, 0, 0, refocus},
                                       {"camera_is_carried", Film::Scene::moving}}};

/// Where a passer is at a time: beside the person, or on the way from side to side above the person's head.
void showPasser(const Scene& scene, const Person& user, const Person& passer, double time, Frame& picture) {
  if (time < scene.comes || time >= scene.goes) return;
  const bool left = user.face.x + user.face.width / 2 > picture.width() / 2.0;
  double x = picture.width() * (left ? 0.12 : 0.88);
  double y = user.face.y;
  if (scene.walks > 0) {
    x = picture.width() * scene.walks * (time - scene.comes) / (scene.goes - scene.comes);
    y = std::max(passer.face.height, user.face.y - 1.6 * passer.face.height);
  }
  paste(picture, passer, x, y);
}

/// Whether the alerts of a film, one a frame, are what the scene asks for.
bool isRight(const Scene& scene, const std::vector<bool>& alerts) {
  const auto at = [](double time) { return static_cast<std::ptrdiff_t>(std::lround(time * 1000 / frameMs)); };
  const auto any = [&](double from, double to) {
    return std::find(alerts.begin() + at(from), alerts.begin() + at(to), true) != alerts.begin() + at(to);
  };
  if (scene.goes <= scene.comes) return !any(0, seconds);
  const bool inTime = any(scene.comes, scene.comes + alertBy);
  const bool clean = !any(0, scene.comes) && !any(scene.goes + overBy, seconds);
  // Whoever stays is seen all the time.
  const auto stayed = [&] {
    return std::count(alerts.begin() + at(scene.comes + alertBy), alerts.begin() + at(scene.goes), false) ==
           0;
  };
  return inTime && clean && (scene.walks > 0 || stayed());
}

std::vector<bool> play(const Scene& scene, const Person& user, const Person& passer,
                       vision::NeuralFaceDetector& detector, CameraRoad& road) {
  Frame composed;
  Frame shown;
  Film film(composed, user.face);
  int two = 0;  // frames in a row with two faces
  std::vector<bool> alerts;
  detector.restartTracking();
  for (int ms = 0; ms < static_cast<int>(seconds * 1000); ms += frameMs) {
    const double time = ms / 1000.0;
    composed.resize(user.picture->width(), user.picture->height());
    std::copy_n(user.picture->data(), std::ptrdiff_t{composed.stride()} * composed.height(), composed.data());
    showPasser(scene, user, passer, time, composed);
    if (scene.change != nullptr) scene.change(composed, time);
    film.show(scene.camera, time, shown);
    const auto seen = detector.detect(road.see(shown), ms);
    int faces = 0;
    if (seen) {
      faces = static_cast<int>(std::ranges::count_if(seen->rectangles, [](const FaceObservation& face) {
        return face.boundingBox.width >= smallestWidth;
      }));
    }
    two = faces >= 2 ? two + 1 : 0;
    alerts.push_back(two * frameMs > alertAfterMs);
  }
  return alerts;
}

}  // namespace

Person scaled(const Person& person, double faceWidth) {
  const Frame& from = *person.picture;
  const vision::Region& face = person.face;
  const double scale = faceWidth / face.width;
  const QImage picture(from.data(), from.width(), from.height(), from.stride(), QImage::Format_RGB32);
  const QImage small = picture.scaledToWidth(static_cast<int>(from.width() * scale), Qt::SmoothTransformation)
                           .convertToFormat(QImage::Format_RGB32);
  auto frame = std::make_shared<Frame>();
  frame->resize(small.width(), small.height());
  std::memcpy(frame->data(), small.constBits(), static_cast<std::size_t>(small.sizeInBytes()));
  return {std::move(frame), {face.x * scale, face.y * scale, face.width * scale, face.height * scale}};
}

void paste(Frame& picture, const Person& person, double centreX, double centreY) {
  const vision::Region& face = person.face;
  const double width = 2.4 * face.width;
  const double height = 3.4 * face.height;
  for (int v = 0; v < static_cast<int>(height); ++v) {
    for (int u = 0; u < static_cast<int>(width); ++u) {
      // The face is in the upper half: shoulders belong to a person.
      const int fromX = static_cast<int>(face.x + face.width / 2 - width / 2) + u;
      const int fromY = static_cast<int>(face.y + face.height / 2 - height * 0.35) + v;
      const int x = static_cast<int>(centreX - width / 2) + u;
      const int y = static_cast<int>(centreY - height * 0.35) + v;
      const bool outside = fromX < 0 || fromY < 0 || fromX >= person.picture->width() ||
                           fromY >= person.picture->height() || x < 0 || y < 0 || x >= picture.width() ||
                           y >= picture.height();
      if (outside) continue;
      const double edge = std::min({u + 1.0, width - u, v + 1.0, height - v}) / (0.12 * width);
      const double share = std::min(1.0, edge);
      const std::uint8_t* from = person.picture->row(fromY) + std::ptrdiff_t{fromX} * 4;
      std::uint8_t* to =
          picture.data() + static_cast<std::ptrdiff_t>(y) * picture.stride() + std::ptrdiff_t{x} * 4;
      for (int c = 0; c < 3; ++c) to[c] = static_cast<std::uint8_t>(to[c] * (1 - share) + from[c] * share);
    }
  }
}

void evaluateFilms(const std::vector<Person>& users, const std::vector<Person>& passers,
                   const std::filesystem::path& modelFolder, CameraRoad& road) {
  vision::NeuralFaceDetector detector(modelFolder);
  if (users.empty() || passers.empty() || detector.prepare()) return;
  int right = 0;
  for (const Scene& scene : scenes) {
    int these = 0;
    for (std::size_t i = 0; i < users.size(); ++i)
      these += isRight(scene, play(scene, users[i], passers[i % passers.size()], detector, road)) ? 1 : 0;
    std::printf("# films of \"%s\": %d of %zu right\n", scene.name, these, users.size());
    right += these;
  }
  const auto all = static_cast<double>(scenes.size() * users.size());
  std::printf("films_right %.1f\n", 100 * right / all);
}

}  // namespace sentrel::bench
