// SPDX-License-Identifier: Apache-2.0
#include "demo.h"

#include <QCoreApplication>
#include <QImage>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string_view>
#include <utility>

#include "cover_in_picture.h"

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

constexpr const char* wantedOrder = "nominal inattention nominal alert nominal";

/// Limits for a machine on which something is broken; nothing is judged by them.
constexpr seconds startLimit{30};
constexpr seconds endLimit{20};

/// Long enough after a change for the overlay to be composed.
constexpr milliseconds pictureDelay{700};
/// The alert's tint pulses every 800 ms, from nothing: once at its height, when the dot of the onlooker's
/// picture is bright, too, and once without it. Taking a picture begins up to a tenth of a second after it
/// was asked for.
constexpr milliseconds alertPictureDelay{2700};
constexpr milliseconds dimAlertPictureDelay{3100};
constexpr milliseconds calmBeforeEnd{2000};

}  // namespace

Demo::Demo(HeadlessDesktop& desktop, fs::path folder, std::string program)
    : desktop_(desktop),
      folder_(std::move(folder)),
      binary_(std::move(program)),
      scene_(portrait_),
      camera_({.name = "demo_camera",
               .description = "Caméra de démonstration",
               .modes = {{.fps = OnlookerScene::fps}}}),
      watcher_([this](const StateWatcher::Entry& entry) { stateChanged(entry); }) {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  connect(&looks_, &QTimer::timeout, this, &Demo::look);
}

void Demo::begin() {
  document_.showFullScreen();
  camera_.appear();
  desktop_.waitForNode("demo_camera");
  camera_.setSource([this](std::int64_t index) {
    if (firstFrameNs_ == 0) firstFrameNs_ = SteadyClock::now().time_since_epoch().count();
    return scene_.frame(index);
  });
  looks_.start(20);
}

bool Demo::documentIsShown() {
  if (!document_.isPainted()) return false;
  const fs::path picture = folder_ / "00-uncovered.png";
  desktop_.screenshot(picture);
  return DocumentDesktop::isShownIn(QImage(QString::fromStdString(picture.string())));
}

void Demo::startProgram() {
  say("the program starts");
  program_ = desktop_.spawn(binary_);
  started_ = SteadyClock::now();
}

void Demo::sceneBegan() {
  began_ = SteadyClock::time_point(SteadyClock::duration(firstFrameNs_.load()));
  say("the camera is open: the scene begins");
  for (const auto& event : OnlookerScene::events()) {
    const auto left = *began_ + milliseconds(event.atMs) - SteadyClock::now();
    QTimer::singleShot(std::max(milliseconds(0), std::chrono::ceil<milliseconds>(left)), Qt::PreciseTimer,
                       this, [this, words = event.words] { say(std::string("scene: ") + words); });
  }
}

void Demo::stateChanged(const StateWatcher::Entry& entry) {
  if (done_) return;
  say("state: " + entry.state);
  const bool alert = entry.state == "alert";
  const std::string name = "0" + std::to_string(watcher_.entries().size()) + "-" + entry.state;
  QTimer::singleShot(alert ? alertPictureDelay : pictureDelay, this, [this, name] { takePicture(name); });
  if (alert) QTimer::singleShot(dimAlertPictureDelay, this, [this, name] { takePicture(name + "-dim"); });
}

void Demo::takePicture(const std::string& name) {
  if (done_) return;
  // Not waited for here: the changes that arrive meanwhile must be stamped in time.
  const fs::path path = folder_ / (name + ".png");
  shots_.push_back({path, desktop_.beginScreenshot(path)});
}

void Demo::look() {
  if (done_) return;
  const auto now = SteadyClock::now();
  if (program_.pid() == 0) {
    if (documentIsShown()) {
      startProgram();
    } else if (now - started_ > startLimit) {
      fail("the document is not shown");
    }
    return;
  }
  if (!program_.isRunning()) {
    fail("the program ended; it printed:\n" + program_.output());
    return;
  }
  if (!began_) {
    if (firstFrameNs_ != 0) {
      sceneBegan();
    } else if (now - started_ > startLimit) {
      fail("the program did not open the camera; it printed:\n" + program_.output());
    }
    return;
  }
  const auto sceneEnd = *began_ + milliseconds(OnlookerScene::calmMs);
  if (now < sceneEnd) return;
  const auto& entries = watcher_.entries();
  if (entries.empty() || entries.back().state != "nominal") {
    calmSince_.reset();
    if (now - sceneEnd > endLimit) finish();
    return;
  }
  if (!calmSince_) calmSince_ = std::max(entries.back().at, sceneEnd);
  if (now - *calmSince_ >= calmBeforeEnd) finish();
}

void Demo::finish() {
  done_ = true;
  looks_.stop();
  for (auto& shot : shots_) {
    if (shot.process.waitForExit(startLimit) != 0) {
      fail("no picture " + shot.path.filename().string() + ": " + shot.process.output());
      return;
    }
  }
  writeTimeline();
  watcher_.quitProgram();
  const bool ended = waitUntil(
      [this] {
        QCoreApplication::processEvents();
        return !program_.isRunning();
      },
      endLimit);
  const std::string printed = program_.output();
  if (!printed.empty()) std::printf("The program printed:\n%s", printed.c_str());
  std::printf("\nStates (milliseconds since the scene began):\n");
  for (const auto& entry : watcher_.entries()) {
    if (entry.state == "inactive") break;  // the quitting above
    std::printf("%8lld  %s\n", static_cast<long long>(sinceBeginning(entry.at)), entry.state.c_str());
  }
  std::printf("Pictures and timeline.tsv are in %s\n", folder_.c_str());

  if (orderOfStates() != wantedOrder) {
    fail("the states came in the order: " + orderOfStates() + "\n  wanted: " + wantedOrder);
  } else if (const std::string fault = faultInPictures(); !fault.empty()) {
    fail(fault);
  } else if (!ended || program_.waitForExit(milliseconds(0)) != 0) {
    fail("the program did not quit in good order");
  } else {
    std::printf("The states came in the right order.\n");
    QCoreApplication::exit(EXIT_SUCCESS);
  }
}

void Demo::fail(const std::string& reason) {
  done_ = true;
  looks_.stop();
  std::fprintf(stderr, "sentrel-demo: %s\n", reason.c_str());
  QCoreApplication::exit(EXIT_FAILURE);
}

void Demo::say(const std::string& words) const {
  if (began_) {
    std::printf("  %6.2f s  %s\n", static_cast<double>(sinceBeginning(SteadyClock::now())) / 1000,
                words.c_str());
  } else {
    std::printf("            %s\n", words.c_str());
  }
}

std::int64_t Demo::sinceBeginning(SteadyClock::time_point moment) const {
  return std::max<std::int64_t>(
      0, std::chrono::duration_cast<milliseconds>(moment - began_.value_or(moment)).count());
}

void Demo::writeTimeline() const {
  std::ofstream file(folder_ / "timeline.tsv");
  for (const auto& entry : watcher_.entries())
    file << sinceBeginning(entry.at) << '\t' << entry.state << '\n';
}

std::string Demo::orderOfStates() const {
  std::ifstream file(folder_ / "timeline.tsv");
  std::string order;
  for (std::string time, state; file >> time >> state;) order += (order.empty() ? "" : " ") + state;
  return order;
}

std::string Demo::faultInPictures() const {
  std::map<std::string, double> brightness;
  for (const char* name : {"00-uncovered", "01-nominal", "02-inattention", "04-alert"}) {
    const QImage picture(QString::fromStdString((folder_ / (std::string(name) + ".png")).string()));
    if (picture.isNull()) return std::string("there is no picture ") + name;
    brightness[name] = meanBrightness(picture);
    const bool alert = std::string_view(name).ends_with("alert");
    if (showsOnlooker(picture) != alert)
      return std::string("the onlooker's picture is out of place in ") + name;
  }
  // Each state covers more of the document than the one before.
  if (brightness["01-nominal"] >= brightness["00-uncovered"] ||
      brightness["02-inattention"] >= brightness["01-nominal"] ||
      brightness["04-alert"] >= 0.7 * brightness["02-inattention"]) {
    return "the pictures do not show a document that is covered more from state to state";
  }
  return {};
}

}  // namespace sentrel::test
