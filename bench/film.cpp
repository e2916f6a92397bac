// SPDX-License-Identifier: Apache-2.0
#include "film.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

namespace sentrel::bench {
namespace {

constexpr std::ptrdiff_t pixelBytes = 4;

/// A wave between -1 and 1.
double wave(double time, double seconds) {
  return std::sin(2 * std::numbers::pi * time / seconds);
}

/// 1 up to `near`, 0 from `far` on.
double fade(double distance, double near, double far) {
  const double share = std::clamp((far - distance) / (far - near), 0.0, 1.0);
  return share * share * (3 - 2 * share);
}

/// Values of a normal distribution. Drawn once: new ones for every byte took most of an evaluation's time.
const std::vector<float>& normalValues() {
  static const std::vector<float> values = [] {
    std::vector<float> drawn(1 << 20);
    std::mt19937 random(7);
    std::normal_distribution<float> normal(0, 1);
    std::generate(drawn.begin(), drawn.end(), [&] { return normal(random); });
    return drawn;
  }();
  return values;
}

}  // namespace

std::optional<Degradation> Degradation::named(std::string_view name) {
  if (name == "plain") return Degradation{};
  if (name == "dark") return Degradation{0.125, 2};
  if (name == "noisy") return Degradation{1, 16};
  Degradation own;
  if (std::sscanf(std::string(name).c_str(), "%lf:%lf", &own.gain, &own.noiseLevel) == 2) return own;
  return std::nullopt;
}

void Degradation::apply(const Frame& from, Frame& to, std::mt19937& random) const {
  to.resize(from.width(), from.height());
  const auto rowBytes = static_cast<std::size_t>(from.stride());
  const std::vector<float>& normal = normalValues();
  const auto light = static_cast<float>(gain);
  const auto noise = static_cast<float>(noiseLevel);
  for (int y = 0; y < from.height(); ++y) {
    const std::uint8_t* in = from.row(y);
    std::uint8_t* out = to.data() + static_cast<std::size_t>(y) * rowBytes;
    // Every row reads the values from another place, so that no two frames have the same noise.
    const std::size_t start = random() % (normal.size() - rowBytes);
    for (std::size_t i = 0; i < rowBytes; ++i) {
      const float value = light * in[i] + noise * normal[start + i];
      out[i] = static_cast<std::uint8_t>(static_cast<int>(std::clamp(value, 0.0F, 255.0F) + 0.5F));
    }
  }
}

void Film::show(Scene scene, double time, Frame& to) {
  if (scene == Scene::still) {
    camera_.apply(*picture_, to, random_);
    return;
  }
  shown_.resize(picture_->width(), picture_->height());
  if (scene == Scene::moving) {
    swing(time);
  } else {
    work(time);
  }
  camera_.apply(shown_, to, random_);
}

void Film::swing(double time) {
  const double reach = picture_->width() / 80.0;
  const int dx = static_cast<int>(reach * (1 + wave(time, 0.7)));
  const int dy = static_cast<int>(reach * (1 + wave(time, 0.9)));
  for (int y = 0; y < picture_->height(); ++y) {
    const std::uint8_t* row = picture_->row((y + dy) % picture_->height());
    std::uint8_t* out = shown_.data() + static_cast<std::ptrdiff_t>(y) * shown_.stride();
    std::rotate_copy(row, row + (dx % picture_->width()) * pixelBytes, row + picture_->stride(), out);
  }
}

void Film::work(double time) {
  // The picture is stretched like rubber about the head, so that the room behind stays where it is.
  const double sway = 0.03 * picture_->width() * wave(time, 6);
  const double turn = std::sin(10 * std::numbers::pi / 180) * face_.width / 2 * wave(time, 4.3);
  const double centreX = face_.x + face_.width / 2;
  const double centreY = face_.y + face_.height / 2;
  for (int y = 0; y < picture_->height(); ++y) {
    const double dy = (y - centreY) / face_.height;
    // Below the chin the shoulders follow, less and less.
    const double row = dy < 0 ? fade(-dy, 0.75, 1.0) : fade(dy, 0.6, 2.4);
    const std::uint8_t* in = picture_->row(y);
    std::uint8_t* out = shown_.data() + static_cast<std::ptrdiff_t>(y) * shown_.stride();
    for (int x = 0; x < picture_->width(); ++x, out += pixelBytes) {
      const double dx = std::abs(x - centreX) / face_.width;
      const double moved = sway * row * fade(dx, 0.55, 0.8) + turn * fade(std::hypot(dx, dy), 0, 0.55);
      const double from = std::clamp(x - moved, 0.0, picture_->width() - 1.001);
      const auto whole = static_cast<std::ptrdiff_t>(from);
      const double part = from - static_cast<double>(whole);
      const std::uint8_t* pixel = in + whole * pixelBytes;
      for (std::ptrdiff_t c = 0; c < pixelBytes; ++c)
        out[c] = static_cast<std::uint8_t>(pixel[c] * (1 - part) + pixel[c + pixelBytes] * part);
    }
  }
  if (std::fmod(time, 4) < 0.2) closeEyes();
  const std::uint8_t* skin = picture_->row(std::clamp(static_cast<int>(centreY), 0, picture_->height() - 1)) +
                             std::clamp(static_cast<int>(centreX), 0, picture_->width() - 1) * pixelBytes;
  const double radius = picture_->width() / 18.0;
  for (const double side : {-0.8, 0.9}) {
    paintDisc(centreX + side * face_.width + 0.4 * radius * wave(time, 0.9 + 0.2 * side),
              picture_->height() - 0.3 * radius * (1 + wave(time, 0.6)), radius, skin);
  }
}

void Film::closeEyes() {
  for (const double x : {0.3, 0.7}) {
    const double centreX = face_.x + x * face_.width;
    const double lid = face_.y + 0.22 * face_.height;
    const int row = std::clamp(static_cast<int>(lid), 0, picture_->height() - 1);
    const int column = std::clamp(static_cast<int>(centreX), 0, picture_->width() - 1);
    paintDisc(centreX, face_.y + 0.38 * face_.height, 0.1 * face_.width,
              picture_->row(row) + column * pixelBytes);
  }
}

void Film::paintDisc(double centreX, double centreY, double radius, const std::uint8_t* colour) {
  const int top = std::max(0, static_cast<int>(centreY - radius));
  const int bottom = std::min(picture_->height(), static_cast<int>(centreY + radius));
  const int left = std::max(0, static_cast<int>(centreX - radius));
  const int right = std::min(picture_->width(), static_cast<int>(centreX + radius));
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const double distance = std::hypot(x - centreX, y - centreY) / radius;
      if (distance >= 1) continue;
      // Darker towards the rim, so that it looks round.
      std::uint8_t* pixel = shown_.data() + static_cast<std::ptrdiff_t>(y) * shown_.stride() + x * pixelBytes;
      for (std::ptrdiff_t c = 0; c < 3; ++c)
        pixel[c] = static_cast<std::uint8_t>(colour[c] * (1 - 0.5 * distance * distance));
    }
  }
}

}  // namespace sentrel::bench
