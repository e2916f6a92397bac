// SPDX-License-Identifier: Apache-2.0
#include "program/camera_film.h"

#include <QPoint>
#include <algorithm>
#include <cmath>
#include <random>

namespace sentrel::bench {
namespace {

constexpr double cameraNoise = 2;  // standard deviation, in steps of 1/255
constexpr int noiseVariants = 4;
constexpr int movingFrames = 36;
constexpr int movingReach = 12;  // pixels

QImage noisy(const QImage& picture, unsigned seed) {
  QImage result = picture.convertToFormat(QImage::Format_RGB32);
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0, cameraNoise);
  for (int y = 0; y < result.height(); ++y) {
    std::uint8_t* line = result.scanLine(y);
    for (int i = 0; i < result.width() * 4; ++i) {
      if (i % 4 != 3)
        line[i] = static_cast<std::uint8_t>(std::lround(std::clamp(line[i] + noise(random), 0.0, 255.0)));
    }
  }
  return result;
}

std::vector<QImage> variants(const QImage& picture) {
  std::vector<QImage> result;
  for (unsigned seed = 0; seed < noiseVariants; ++seed) result.push_back(noisy(picture, seed));
  return result;
}

/// The camera swings about, so that everything in the picture moves.
std::vector<QImage> swinging(const QImage& picture) {
  std::vector<QImage> result;
  const QImage large = picture.scaled(picture.width() + 2 * movingReach, picture.height() + 2 * movingReach,
                                      Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  for (int i = 0; i < movingFrames; ++i) {
    const double turn = 2 * 3.14159265358979 * i / movingFrames;
    const QPoint at(movingReach + static_cast<int>(std::lround(movingReach * std::sin(turn))),
                    movingReach + static_cast<int>(std::lround(movingReach * std::cos(2 * turn))));
    result.push_back(noisy(large.copy(QRect(at, picture.size())), static_cast<unsigned>(i)));
  }
  return result;
}

}  // namespace

CameraFilm::CameraFilm() {
  const test::PortraitScene portrait;
  const QImage alone = portrait.frame({});
  still_ = variants(alone);
  moving_ = swinging(alone);
  for (const double x : {520.0, 555.0, 590.0, 95.0, 60.0}) {
    for (const double y : {110.0, 150.0}) {
      onlookers_.push_back(
          variants(portrait.frame({0, test::SecondFace{x, y, onlookerWidth * test::PortraitScene::width}})));
    }
  }
  shown_ = &still_;
}

void CameraFilm::show(Scene scene) {
  onlookerNs_ = 0;
  if (scene == Scene::onlooker) {
    shown_ = &onlookers_[nextPlace_++ % onlookers_.size()];
  } else {
    shown_ = scene == Scene::still ? &still_ : &moving_;
  }
}

std::optional<std::chrono::steady_clock::time_point> CameraFilm::onlookerShownAt() const {
  const std::int64_t ns = onlookerNs_;
  if (ns == 0) return std::nullopt;
  return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(ns));
}

const std::uint8_t* CameraFilm::frame(std::int64_t index) {
  const Pictures* pictures = shown_;
  if (pictures != &still_ && pictures != &moving_ && onlookerNs_ == 0) {
    onlookerNs_ = std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  return (*pictures)[static_cast<std::size_t>(index) % pictures->size()].constBits();
}

}  // namespace sentrel::bench
