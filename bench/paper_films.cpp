// SPDX-License-Identifier: Apache-2.0
#include "paper_films.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <numbers>
#include <optional>
#include <random>
#include <vector>

#include "detection/onlooker_filter.h"
#include "film.h"

namespace sentrel::bench {
namespace {

constexpr int frameMs = 100;
// A head's width, about.
constexpr double headMm = 140;

/// How a head moves, or a photograph's does not.
struct Movement {
  double rightMm = 0;
  double upMm = 0;
  double nearer = 0;  // share by which the head grows
  double yaw = 0;     // radians
  double pitch = 0;
  bool eyesClosed = false;
};

/// Somebody who sits and reads. All of it is at the still end of what is known of people who do:
///
///  - Over a line of an A4 page, 28.6 degrees wide, the head turns by 4.7 % of the eyes' way, and down the
///    page by 28.7 % (Proudlock, Shekhar and Gottlob, Investigative Ophthalmology & Visual Science 44, 2003).
///  - A reader blinks 4.5 times a minute (Bentivoglio and others, Movement Disorders 12, 1997).
///  - Nobody sits without swaying by about a millimetre and breathing. Even heads held by a mask turn
///    by 2.4 to 4.1 degrees in two hours (Ruttimann and others, Psychiatry Research 61, 1995).
///  - Every page ends with a hand that turns it, and some with another way to sit.
class Reader {
 public:
  Reader(unsigned seed, double swayMm) : random_(seed), swayMm_(swayMm) {
    lineSeconds_ = between(2.5, 4);
    pageSeconds_ = between(60, 90);
    pageBegan_ = -between(0, pageSeconds_);
    breathSeconds_ = between(3.5, 5);
  }

  Movement next(double time) {
    constexpr double degree = std::numbers::pi / 180;
    constexpr double step = frameMs / 1000.0;
    // Sway wanders about the middle, with most of its power below half a hertz.
    constexpr double wanderSeconds = 1.5;
    std::normal_distribution<double> normal(0, 1);
    for (double& each : sway_) {
      each += -each * step / wanderSeconds + swayMm_ * std::sqrt(2 * step / wanderSeconds) * normal(random_);
    }
    if (time - pageBegan_ > pageSeconds_) {
      pageBegan_ = time;
      for (double& each : seat_) each = std::clamp(each + 4 * normal(random_), -20.0, 20.0);
    }
    if (time >= blinkAt_ + 0.25) blinkAt_ = time + std::exponential_distribution<double>(4.5 / 60)(random_);
    const double page = (time - pageBegan_) / pageSeconds_;
    const double line = std::fmod(time, lineSeconds_) / lineSeconds_;
    const double breath = std::sin(2 * std::numbers::pi * time / breathSeconds_);
    const double turning = std::max(0.0, 1 - std::abs(time - pageBegan_ - 1));  // of the page, two seconds
    Movement now;
    now.rightMm = follow(0, sway_[0] + seat_[0] + 4 * turning);
    now.upMm = follow(1, 0.4 * sway_[1] + seat_[1] / 2 + 0.5 * breath - 5 * turning);
    now.nearer = follow(2, (sway_[2] + seat_[2]) / 1500);
    now.yaw = degree * (1.3 * (line < 0.9 ? line / 0.9 : 10 * (1 - line)) - 0.65 + 4 * turning);
    now.pitch = -degree * 7 * (page - 0.5);
    now.eyesClosed = time >= blinkAt_;
    return now;
  }

 private:
  double between(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  /// A body moves to a new place in about half a second.
  double follow(std::size_t axis, double to) { return at_[axis] += 0.25 * (to - at_[axis]); }

  std::mt19937 random_;
  double swayMm_;
  double lineSeconds_ = 0;
  double pageSeconds_ = 0;
  double pageBegan_ = 0;
  double breathSeconds_ = 0;
  double blinkAt_ = 0;
  std::array<double, 3> sway_{};
  std::array<double, 3> seat_{};
  std::array<double, 3> at_{};
};

/// 1 up to `near`, 0 from `far` on.
double fade(double distance, double near, double far) {
  const double share = std::clamp((far - distance) / (far - near), 0.0, 1.0);
  return share * share * (3 - 2 * share);
}

/// A person in a picture of twice the size, whose head moves by fractions of a pixel like rubber, so that
/// what is about the head stays where it is.
class Sitter {
 public:
  Sitter(const Person& person, double faceWidth) : person_(scaled(person, 2 * faceWidth)) {}

  void show(const Movement& movement, double centreX, double centreY, Frame& picture) const {
    const vision::Region& face = person_.face;
    const double fullWidth = 1.2 * face.width;  // in the picture's pixels
    const double fullHeight = 1.7 * face.height;
    const double mm = face.width / headMm;
    for (int v = 0; v < static_cast<int>(fullHeight); ++v) {
      for (int u = 0; u < static_cast<int>(fullWidth); ++u) {
        const int x = static_cast<int>(std::lround(centreX - fullWidth / 2)) + u;
        const int y = static_cast<int>(std::lround(centreY - 0.35 * fullHeight)) + v;
        if (x < 0 || y < 0 || x >= picture.width() || y >= picture.height()) continue;
        // From the face's centre, in widths and heights of the face.
        const double right = 2 * (u - fullWidth / 2) / face.width;
        const double down = 2 * (v - 0.35 * fullHeight) / face.height;
        const double head =
            (down < 0 ? fade(-down, 0.6, 0.68) : fade(down, 0.6, 1.2)) * fade(std::abs(right), 0.55, 1.1);
        const double round = std::sqrt(std::max(0.0, 1 - std::hypot(right, down) / 0.6));
        const double dx = head * (movement.rightMm * mm + right * face.width * movement.nearer) +
                          round * std::sin(movement.yaw) * face.width / 2;
        const double dy = head * (-movement.upMm * mm + down * face.height * movement.nearer) -
                          round * std::sin(movement.pitch) * face.width / 2;
        const double fromX = face.x + face.width * (0.5 + right) - dx;
        const double fromY = face.y + face.height * (0.5 + down) - dy;
        if (fromX < 1 || fromY < 1 || fromX >= person_.picture->width() - 3 ||
            fromY >= person_.picture->height() - 3)
          continue;
        const double edge = std::min({u + 1.0, fullWidth - u, v + 1.0, fullHeight - v}) / (0.12 * fullWidth);
        const double share = std::min(1.0, edge);
        const double lid = movement.eyesClosed ? lids(right, down) : 0;
        std::uint8_t* to =
            picture.data() + static_cast<std::ptrdiff_t>(y) * picture.stride() + std::ptrdiff_t{x} * 4;
        for (int c = 0; c < 3; ++c) {
          const double eyes = sample(fromX, fromY, c);
          const double skin = lid > 0 ? sample(fromX, fromY + 0.14 * face.height, c) : 0;
          to[c] = static_cast<std::uint8_t>(to[c] * (1 - share) + share * std::lerp(eyes, skin, lid));
        }
      }
    }
  }

 private:
  /// How much of a closed lid there is.
  static double lids(double right, double down) {
    const double x = (std::abs(right) - 0.2) / 0.13;
    const double y = (down + 0.12) / 0.07;
    return fade(std::hypot(x, y), 0.7, 1.1);
  }

  /// The mean of two by two pixels of the large picture.
  [[nodiscard]] double sample(double x, double y, int channel) const {
    const auto left = static_cast<std::ptrdiff_t>(x);
    const auto top = static_cast<int>(y);
    const double partX = x - static_cast<double>(left);
    const double partY = y - top;
    const auto across = [&](int row) {
      const std::uint8_t* pixel = person_.picture->row(row) + left * 4 + channel;
      return pixel[0] * (1 - partX) + pixel[4] + pixel[8] * partX;
    };
    return (across(top) * (1 - partY) + across(top + 1) + across(top + 2) * partY) / 4;
  }

  Person person_;
};

/// The picture a little darker from time to time, as clouds and lamps make it.
void dim(Frame& picture, double time) {
  constexpr double apart = 45;  // seconds
  constexpr double lasts = 15;
  constexpr double slope = 0.5;
  const double at = std::fmod(time, apart) - (apart - lasts);
  const double share = std::clamp(std::min(at, lasts - at) / slope, 0.0, 1.0);
  if (share == 0) return;
  const double gain = 1 - 0.3 * share;
  for (int y = 0; y < picture.height(); ++y) {
    std::uint8_t* row = picture.data() + static_cast<std::ptrdiff_t>(y) * picture.stride();
    for (int i = 0; i < picture.stride(); ++i) row[i] = static_cast<std::uint8_t>(gain * row[i]);
  }
}

/// Somebody or a photograph at one place, and the rule for it. The person calls it nobody as soon as it
/// alerts.
class Seat {
 public:
  Seat(const Person& person, double faceWidth, double x, double y)
      : sitter_(person, faceWidth), x_(x), y_(y), width_(faceWidth) {}

  void show(const Movement& movement, Frame& picture) const {
    sitter_.show(movement, x_ * picture.width(), y_ * picture.height(), picture);
  }

  void judge(const FaceList& seen, const Frame& picture, std::int64_t timestampMs) {
    FaceList faces;  // the person's, and what is here
    for (const FaceObservation& face : seen) {
      const NormalizedRect& box = face.boundingBox;
      const double right = (box.x + box.width / 2 - x_) * picture.width();
      const double down = (1 - box.y - box.height / 2 - y_) * picture.height();
      if (faces.empty() || std::hypot(right, down) < width_) faces.push(face);
    }
    const auto frame =
        filter_.apply({timestampMs, static_cast<std::int64_t>(faces.size()), std::nullopt}, faces, false);
    ++frames_;
    if (faces.size() < 2) return;
    ++found_;
    longestStillMs_ = std::max(longestStillMs_, faces[1].stillMs);
    const bool ignored = frame.roles[1] == FaceRole::ignored;
    ignored_ += ignored ? 1 : 0;
    if (known_ || ignored) ++sinceKnown_;
    known_ = known_ || ignored;
    if (frame.onlooker) filter_.ignoreOnlooker();
  }

  [[nodiscard]] double foundShare() const { return frames_ == 0 ? 0 : static_cast<double>(found_) / frames_; }
  [[nodiscard]] int longestStillSeconds() const { return static_cast<int>(longestStillMs_ / 1000); }
  [[nodiscard]] bool wasKnown() const { return known_; }
  /// Of the frames since it was first ignored.
  [[nodiscard]] double quietShare() const {
    return sinceKnown_ == 0 ? 0 : static_cast<double>(ignored_) / sinceKnown_;
  }

 private:
  Sitter sitter_;
  double x_;
  double y_;
  double width_;
  OnlookerFilter filter_;
  bool known_ = false;
  int frames_ = 0;
  int found_ = 0;
  std::int64_t longestStillMs_ = 0;
  int ignored_ = 0;
  int sinceKnown_ = 0;
};

}  // namespace

void PaperFigures::play(const Person& user, const std::array<PaperSeat, seats>& people, bool reads,
                        const Degradation& camera, double minutes, FaceDetector& detector) {
  constexpr std::array<std::array<double, 2>, seats> places{
      {{0.08, 0.3}, {0.92, 0.35}, {0.22, 0.25}, {0.78, 0.3}}};
  std::deque<Seat> seated;
  std::vector<Reader> readers;
  for (std::size_t i = 0; i < seats; ++i) {
    seated.emplace_back(people[i].person, people[i].faceWidth, places[i][0], places[i][1]);
    readers.emplace_back(people[i].seed, people[i].swayMm);
  }
  // The user moves behind their places, and the camera's noise is over all of it.
  Film film(*user.picture, user.face, {1, 0});
  Frame room;
  Frame shown;
  std::mt19937 random(1);
  detector.restartTracking();
  detector.tune({.others = true});
  for (int ms = 0; ms < minutes * 60'000; ms += frameMs) {
    const double time = ms / 1000.0;
    film.show(Film::Scene::working, time, room);
    for (std::size_t i = 0; i < seats; ++i) seated[i].show(reads ? readers[i].next(time) : Movement{}, room);
    if (!reads) dim(room, time);
    camera.apply(room, shown, random);
    const auto found = detector.detect(shown, ms);
    if (!found || found->rectangles.empty()) continue;
    for (Seat& seat : seated) seat.judge(found->rectangles, shown, ms);
  }
  for (std::size_t i = 0; i < seats; ++i) {
    const Seat& seat = seated[i];
    if (reads) {
      ++readers_;
      takenForPaper_ += seat.wasKnown() ? 1 : 0;
    } else {
      ++posters_;
      quiet_ += seat.quietShare();
    }
    std::printf(
        "# %s of %.0f px: found in %.0f %% of the frames, seemed still for %d s, ignored in %.1f %%\n",
        reads ? "reader" : "poster", people[i].faceWidth, 100 * seat.foundShare(), seat.longestStillSeconds(),
        100 * seat.quietShare());
    std::fflush(stdout);
  }
}

}  // namespace sentrel::bench
