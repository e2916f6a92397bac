// SPDX-License-Identifier: Apache-2.0
#include "camera_road.h"

#include <stdexcept>

#include "stage/virtual_camera.h"

namespace sentrel::bench {
namespace {

constexpr int frameWidth = 640;
constexpr int frameHeight = 480;

bool isLarge(const Frame& picture) {
  return picture.width() == 1280 && picture.height() == 720;
}

}  // namespace

const Frame& CameraRoad::see(const Frame& picture) {
  if (!isLarge(picture)) return picture;
  constexpr PixelFormat pixels = PixelFormat::yuy2;
  bytes_.resize(test::encodedCapacity(pixels, picture.width(), picture.height()));
  test::encodePicture(pixels, picture.data(), picture.width(), picture.height(), bytes_);
  seen_.resize(frameWidth, frameHeight);
  if (!converter_.convert(test::encodedFrame({pixels, picture.width(), picture.height()}, bytes_), seen_))
    throw std::logic_error("a picture of our own was refused");
  if (!larger_) seen_.resizeLarger(0, 0);
  return seen_;
}

vision::Region CameraRoad::inPicture(const vision::Region& seen, const Frame& picture) {
  if (!isLarge(picture)) return seen;
  const double scale = static_cast<double>(picture.height()) / frameHeight;
  const double left = (picture.width() - frameWidth * scale) / 2;
  return {left + seen.x * scale, seen.y * scale, seen.width * scale, seen.height * scale};
}

}  // namespace sentrel::bench
