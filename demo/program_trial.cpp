// SPDX-License-Identifier: Apache-2.0
#include "program_trial.h"

#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

/// For a machine on which something is broken; the battery is looked at every 30 s.
constexpr std::chrono::seconds longestWait{45};

}  // namespace

CameraNoise::CameraNoise() : noise_(1 << 16) {
  std::normal_distribution<double> normal(0, 2);
  for (std::int8_t& each : noise_) each = static_cast<std::int8_t>(std::lround(normal(random_)));
}

const std::uint8_t* CameraNoise::over(const QImage& picture) {
  const std::uint8_t* from = picture.constBits();
  shown_.resize(static_cast<std::size_t>(picture.sizeInBytes()));
  constexpr std::size_t step = 2048;
  for (std::size_t begin = 0; begin < shown_.size(); begin += step) {
    const std::int8_t* noise = noise_.data() + random_() % (noise_.size() - step);
    for (std::size_t i = begin; i < std::min(begin + step, shown_.size()); ++i)
      shown_[i] = static_cast<std::uint8_t>(std::clamp(from[i] + noise[i - begin], 0, 255));
  }
  return shown_.data();
}

ProgramTrial::ProgramTrial(HeadlessDesktop& desktop, fs::path folder, std::string program)
    : desktop_(desktop),
      folder_(std::move(folder)),
      binary_(std::move(program)),
      camera_({.name = "demo_camera", .description = "Caméra de démonstration"}),
      watcher_([this](const StateWatcher::Entry& entry) { stateChanged(entry); }) {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  const fs::path settings = desktop_.configFolder() / "sentrel";
  fs::create_directories(settings);
  std::ofstream(settings / "defaults.json") << "{\n  \"has_completed_onboarding\": true\n}\n";
}

int ProgramTrial::run() {
  try {
    play();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s; the program printed:\n%s", error.what(), program_.output().c_str());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

void ProgramTrial::showDocument() {
  document_.showFullScreen();
  waitFor("the document is shown", [this] {
    if (!document_.isPainted()) return false;
    screenshot(pathOf("00-uncovered"));
    return DocumentDesktop::isShownIn(picture("00-uncovered"));
  });
}

void ProgramTrial::see(Seen seen) {
  // An arm's length behind the user, and some two metres away.
  static const std::map<Seen, SceneState> scenes{
      {Seen::alone, {}},
      {Seen::away, {60, {}}},
      {Seen::watched, {.secondFace = SecondFace{}}},
      {Seen::watchedFromAfar, {.secondFace = SecondFace{.width = 36}}},
      {Seen::watchedFromElsewhere, {.secondFace = SecondFace{.x = 510}}},
      {Seen::turnedAway, {.secondFace = SecondFace{.yawDegrees = 65}}}};
  see(portrait_.frame(scenes.at(seen)));
}

void ProgramTrial::see(const QImage& picture, bool isFrozen) {
  if (!std::exchange(pluggedIn_, true)) {
    camera_.appear();
    desktop_.waitForNode("demo_camera");
  }
  camera_.setFault(isFrozen ? VirtualCamera::Fault::frozen : VirtualCamera::Fault::none);
  camera_.setSource([this, picture, isFrozen](std::int64_t) {
    return isFrozen ? picture.constBits() : noise_.over(picture);
  });
}

void ProgramTrial::quit() {
  watcher_.quitProgram();
  if (!runUntil([this] { return !program_.isRunning(); }, longestWait))
    throw std::runtime_error("the program does not quit");
  if (const int status = program_.waitForExit(milliseconds(0)).value_or(-1); status != 0)
    throw std::runtime_error("the program has quit with " + std::to_string(status));
  const std::string printed = program_.output();
  if (!printed.empty()) std::printf("The program printed:\n%s", printed.c_str());
}

void ProgramTrial::waitFor(const std::string& words, const std::function<bool()>& condition) {
  bool holds = false;
  const auto isDecided = [&] {
    holds = condition();
    return holds || (program_.pid() != 0 && !program_.isRunning());
  };
  (void)runUntil(isDecided, longestWait);
  if (!holds) throw std::runtime_error("this did not follow: " + words);
}

bool ProgramTrial::runUntil(const std::function<bool()>& condition, milliseconds limit) {
  QEventLoop events;
  bool held = condition();
  QTimer look;
  QObject::connect(&look, &QTimer::timeout, [&] {
    held = condition();
    if (held) events.quit();
  });
  QTimer::singleShot(limit, &events, &QEventLoop::quit);
  look.start(2);
  if (!held) events.exec();
  return held;
}

bool ProgramTrial::isIn(const std::string& state) const {
  return !watcher_.entries().empty() && watcher_.entries().back().state == state;
}

QImage ProgramTrial::picture(const std::string& name) const {
  QImage picture(QString::fromStdString(pathOf(name).string()));
  if (picture.isNull()) throw std::runtime_error("there is no picture " + name);
  return picture;
}

double ProgramTrial::brightness(const std::string& name, const QRect& part) const {
  const QImage shown = picture(name).copy(part);
  double sum = 0;
  int count = 0;
  for (int y = 0; y < shown.height(); y += 8) {
    for (int x = 0; x < shown.width(); x += 8, ++count) sum += qGray(shown.pixel(x, y));
  }
  return sum / count;
}

bool ProgramTrial::showsOnlooker(const QImage& screen) {
  const QRect place = onlookerPlace(screen.size());
  const auto isGreen = [&](int x, int y) {
    const QRgb pixel = screen.pixel(x, y);
    return qGreen(pixel) > 40 && qGreen(pixel) > 2 * qRed(pixel) && qGreen(pixel) > 2 * qBlue(pixel);
  };
  int inside = 0;
  for (int y = place.top() + 20; y < place.bottom() - 20; y += 4) {
    for (int x = place.left() + 20; x < place.right() - 20; x += 4) inside += isGreen(x, y) ? 1 : 0;
  }
  const QPoint middle = place.center();
  return inside > 200 && isGreen(middle.x(), place.top()) && isGreen(middle.x(), place.bottom()) &&
         isGreen(place.left(), middle.y()) && isGreen(place.right(), middle.y());
}

void ProgramTrial::judgeCovers(const std::array<std::string, 4>& names, const QRect& part) const {
  constexpr std::array least{0.0, 1.0, 1.0, 0.0};  // by which it must be darker than the one before
  constexpr std::array share{1.0, 1.0, 1.0, 0.7};  // of which it may have at most
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string& name = names.at(i);
    if (showsOnlooker(picture(name)) != (i == 3))
      throw std::runtime_error("the onlooker's picture is out of place in " + name);
    if (i > 0 && brightness(name, part) >= share.at(i) * brightness(names.at(i - 1), part) - least.at(i))
      throw std::runtime_error("the document is not covered more than before in " + name);
  }
}

}  // namespace sentrel::test
