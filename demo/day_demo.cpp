// SPDX-License-Identifier: Apache-2.0
#include "day_demo.h"

#include <QCoreApplication>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

/// For a machine on which something is broken; the battery is looked at every 30 s.
constexpr seconds patience{45};
constexpr seconds nothing{2};
/// Long enough after a change for the overlay to be composed.
constexpr milliseconds pictureDelay{700};

const auto notificationService = QStringLiteral("org.freedesktop.Notifications");

std::int64_t msBetween(SteadyClock::time_point from, SteadyClock::time_point to) {
  return std::chrono::duration_cast<milliseconds>(to - from).count();
}

}  // namespace

DayDemo::DayDemo(HeadlessDesktop& desktop, fs::path folder, std::string program)
    : desktop_(desktop),
      folder_(std::move(folder)),
      binary_(std::move(program)),
      session_(desktop),
      camera_({.name = "demo_camera", .description = "Caméra de démonstration"}),
      watcher_([this](const StateWatcher::Entry& entry) { note("state: " + entry.state); }) {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  const PortraitScene portrait;
  alone_ = portrait.frame({}).convertToFormat(QImage::Format_RGB32);
  watched_ = portrait.frame({.secondFace = SecondFace{}}).convertToFormat(QImage::Format_RGB32);
}

int DayDemo::run() {
  try {
    prepare();
    lockAndWake();
    pullTheCamera();
    lookOn();
    runLow();
    quit();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-demo: %s; the program printed:\n%s", error.what(),
                 program_.output().c_str());
    return EXIT_FAILURE;
  }
  std::printf("Everything followed as it should. Pictures and timeline.txt are in %s\n", folder_.c_str());
  return EXIT_SUCCESS;
}

void DayDemo::prepare() {
  document_.showFullScreen();
  const auto isShown = [this] {
    if (!document_.isPainted()) return false;
    const fs::path picture = folder_ / "00-uncovered.png";
    desktop_.screenshot(picture);
    return DocumentDesktop::isShownIn(QImage(QString::fromStdString(picture.string())));
  };
  if (!runUntil(isShown, patience)) throw std::runtime_error("the document is not shown");
  notificationServer_ = desktop_.spawn("dunst", {"-conf", "/dev/null"});
  session_.sessionBus().waitForName(notificationService);
  camera_.appear();
  desktop_.waitForNode("demo_camera");
  camera_.setSource([this](std::int64_t) { return (isWatched_ ? watched_ : alone_).constBits(); });

  began_ = SteadyClock::now();
  happens("the program starts", [this] { program_ = desktop_.spawn(binary_); });
  followsState("nominal");
  followsCamera(true);
  follows("the program delays the sleep of the machine", [this] { return session_.sleepDelays() == 1; });
  picture("01-protected");
}

void DayDemo::lockAndWake() {
  happens("the screen is locked", [this] { session_.setLockedHint(true); });
  followsCamera(false);
  followsState("autoPaused");
  picture("02-locked");
  happens("the machine goes to sleep while locked", [this] { session_.prepareForSleep(true); });
  follows("the sleep is not held up", [this] { return session_.sleepDelays() == 0; });
  happens("it wakes, still locked", [this] { session_.prepareForSleep(false); });
  nothingFollows();
  picture("03-woken-locked");
  happens("the screen is unlocked", [this] { session_.setLockedHint(false); });
  followsState("nominal");
  followsCamera(true);
  picture("04-unlocked");
}

void DayDemo::pullTheCamera() {
  happens("the camera is pulled", [this] { camera_.vanish(); });
  followsState("cameraBusy");
  picture("05-no-camera");
  happens("the camera is back", [this] { camera_.appear(); });
  followsState("nominal");
  followsCamera(true);
  picture("06-camera-back");
}

void DayDemo::lookOn() {
  happens("somebody looks on", [this] { isWatched_ = true; });
  followsState("alert");
  follows("a notification is shown", [this] { return notifications() == 1; });
  picture("07-alert");
  happens("the onlooker leaves", [this] { isWatched_ = false; });
  followsState("nominal");
  follows("the notification is withdrawn", [this] { return notifications() == 0; });
  picture("08-alone-again");
}

void DayDemo::runLow() {
  happens("the battery is at 9 %", [this] { session_.setBattery(9, false); });
  followsState("autoPaused");
  happened_ = SteadyClock::now();  // the check itself
  followsCamera(false);
  picture("09-battery-low");
  happens("the battery is charged", [this] { session_.setBattery(9, true); });
  followsState("nominal");
  happened_ = SteadyClock::now();
  followsCamera(true);
  picture("10-charging");
}

void DayDemo::quit() {
  happens("the program is asked to quit", [this] { watcher_.quitProgram(); });
  followsCamera(false);
  follows("the program has ended", [this] { return !program_.isRunning(); });
  if (program_.waitForExit(milliseconds(0)) != 0) throw std::runtime_error("the program ended in bad order");
  const std::string printed = program_.output();
  if (!printed.empty()) std::printf("The program printed:\n%s", printed.c_str());

  std::ifstream file(desktop_.configFolder() / "sentrel" / "defaults.json");
  std::ostringstream stored;
  stored << file.rdbuf();
  const std::string text = stored.str();
  std::printf("What it keeps:\n%s", text.c_str());
  for (const char* line : {"\"has_completed_onboarding\": true", "\"stats_alert_count\": 1",
                           "\"stats_session_count\": 1", "\"stats_total_active_seconds\": [3-9][0-9]"}) {
    if (!std::regex_search(text, std::regex(line)))
      throw std::runtime_error(std::string("not kept: ") + line);
  }
  std::ofstream out(folder_ / "timeline.txt");
  for (const std::string& line : timeline_) out << line << '\n';

  // Covered while protecting, uncovered while paused, darkest during the alert.
  const double bare = brightness("00-uncovered");
  for (const char* name : {"02-locked", "03-woken-locked", "09-battery-low"}) {
    if (std::abs(brightness(name) - bare) > 1) throw std::runtime_error(std::string(name) + " is covered");
  }
  for (const char* name :
       {"01-protected", "04-unlocked", "06-camera-back", "08-alone-again", "10-charging"}) {
    if (brightness(name) >= bare - 1) throw std::runtime_error(std::string(name) + " is not covered");
  }
  if (brightness("07-alert") >= 0.7 * bare) throw std::runtime_error("the alert is not seen");
}

void DayDemo::happens(const std::string& words, const std::function<void()>& action) {
  note("-- " + words);
  happened_ = SteadyClock::now();
  action();
}

void DayDemo::follows(const std::string& words, const std::function<bool()>& condition) {
  const bool came =
      runUntil([&] { return condition() || !(program_.pid() == 0 || program_.isRunning()); }, patience);
  if (!came || !condition()) throw std::runtime_error("this did not follow: " + words);
  note(words + " (" + std::to_string(msBetween(happened_, SteadyClock::now())) + " ms)");
}

void DayDemo::followsState(const std::string& state) {
  follows("protection is in " + state,
          [&] { return !watcher_.entries().empty() && watcher_.entries().back().state == state; });
}

void DayDemo::followsCamera(bool open) {
  follows(open ? "the camera is open" : "the camera is closed", [&] { return camera_.isOpen() == open; });
}

void DayDemo::nothingFollows() {
  const std::size_t before = watcher_.entries().size();
  if (runUntil([&] { return watcher_.entries().size() != before || camera_.isOpen(); }, nothing))
    throw std::runtime_error("something followed that should not");
  note("nothing follows");
}

void DayDemo::picture(const std::string& name) {
  (void)runUntil([] { return false; }, pictureDelay);
  desktop_.screenshot(folder_ / (name + ".png"));
}

void DayDemo::note(const std::string& words) {
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%7.3f s  ",
                static_cast<double>(msBetween(began_, SteadyClock::now())) / 1000);
  timeline_.push_back(time.data() + words);
  std::printf("  %s\n", timeline_.back().c_str());
}

bool DayDemo::runUntil(const std::function<bool()>& condition, milliseconds limit) {
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

double DayDemo::brightness(const std::string& name) const {
  const QImage picture(QString::fromStdString((folder_ / (name + ".png")).string()));
  if (picture.isNull()) throw std::runtime_error("there is no picture " + name);
  double sum = 0;
  int count = 0;
  for (int y = 0; y < picture.height(); y += 8) {
    for (int x = 0; x < picture.width(); x += 8, ++count) sum += qGray(picture.pixel(x, y));
  }
  return sum / count;
}

int DayDemo::notifications() const {
  const QDBusMessage reply = session_.sessionBus().call(
      notificationService, QStringLiteral("/org/freedesktop/Notifications"),
      QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
      {QStringLiteral("org.dunstproject.cmd0"), QStringLiteral("displayedLength")});
  return reply.arguments().constFirst().value<QDBusVariant>().variant().toInt();
}

}  // namespace sentrel::test
