// SPDX-License-Identifier: Apache-2.0
#include "desktop_trial.h"

#include <unistd.h>

#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "cover_in_picture.h"

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

/// For a machine on which something is broken.
constexpr seconds patience{45};
/// The processor draws the desktop: a click may take some frames.
constexpr seconds clickLimit{3};
/// Once none of the first ones has arrived.
constexpr milliseconds lostClickLimit{400};
/// Long enough after a change for the cover to be composed, and for the alert's tint to be at its height.
constexpr milliseconds pictureDelay{1200};

/// Where no other window ever lies on the document.
const QRect bareDocument(700, 450, 560, 420);
/// From the middle of the program's window.
const QPoint switchInPopover(120, -98);

constexpr seconds hang{25};

constexpr int fewClicks = 20;  // while nothing flashes

// On a screen of 1920 x 1080: bare, below the banner, below the onlooker's picture and its dot, at the edges.
const std::vector<QPoint> onDocument{{960, 500},  {960, 975},  {810, 950}, {1772, 904},
                                     {1660, 820}, {1910, 600}, {30, 1070}, {1400, 120}};
// "Activities", the clock, and below the hint.
const std::vector<QPoint> onPanel{{55, 16}, {960, 16}, {1880, 16}};
/// The X11 window, smaller, in front of the document.
const auto other = QStringLiteral("other");

std::size_t count(const std::string& text, const std::string& word) {
  std::size_t result = 0;
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++result;
  return result;
}

}  // namespace

DesktopTrial::DesktopTrial(HeadlessDesktop& desktop, const GnomeShell& shell, fs::path folder,
                           std::string program, int clicks)
    : desktop_(desktop),
      shell_(shell),
      folder_(std::move(folder)),
      binary_(std::move(program)),
      clicks_(clicks),
      camera_({.name = "trial_camera", .description = "Caméra d'essai"}),
      watcher_([](const StateWatcher::Entry&) {}) {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  const PortraitScene portrait;
  const auto film = [&portrait](const SceneState& state) {
    return portrait.frame(state).convertToFormat(QImage::Format_RGB32);
  };
  alone_ = film({});
  away_ = film({.yawDegrees = 60, .secondFace = {}});
  watched_ = film({.yawDegrees = 0, .secondFace = SecondFace{}});
}

int DesktopTrial::run() {
  try {
    prepare();
    clickThrough("nominal", "nominal", fewClicks);
    clickThrough("inattention", "inattention", fewClicks);
    clickThrough("alert", "alert", clicks_);
    openOverview("alert");
    outliveHangingDesktop();
    clickThrough("after", "nominal", fewClicks);
    bringAbout("alert");
    switchOffWithTheMouse();
    quit();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-try-desktop: %s; the program printed:\n%s", error.what(),
                 program_.output().c_str());
    return EXIT_FAILURE;
  }
  return judge() ? EXIT_SUCCESS : EXIT_FAILURE;
}

void DesktopTrial::prepare() {
  document_.show();
  follows("the document is painted", [this] { return document_.isPainted(); });
  shell_.maximizeWindow(document_.title());
  follows("the document fills the screen", [this] {
    const auto place = shell_.window(document_.title());
    return place && place->width() == 1920;
  });
  otherWindow_ = desktop_.spawn("stdbuf", {"-oL", "xev", "-event", "button", "-name", other.toStdString()});
  follows("the X11 window is there", [&] { return shell_.window(other).has_value(); });
  shell_.raiseWindow(other);
  camera_.appear();
  desktop_.waitForNode("trial_camera");
  camera_.setSource([this](std::int64_t) {
    const Seen seen = seen_;
    return (seen == Seen::alone ? alone_ : seen == Seen::away ? away_ : watched_).constBits();
  });
  picture("uncovered");
  clickEverywhere("uncovered", fewClicks);  // that the clicks are real ones
  program_ = desktop_.spawn(binary_);
}

void DesktopTrial::clickThrough(const std::string& name, const std::string& state, int clicks) {
  bringAbout(state);
  (void)runUntil([] { return false; }, pictureDelay);
  const fs::path path = folder_ / (name + ".png");
  follows("the screen shows it", [&] {
    shell_.screenshot(path);
    return showsOnlooker(QImage(QString::fromStdString(path.string()))) == (state == "alert");
  });
  const auto began = std::chrono::steady_clock::now();
  const double before = processorSeconds();
  clickEverywhere(name, clicks);
  if (!isIn(state)) throw std::runtime_error("the state did not last: " + state);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("  %-12s processor time of the program: %.1f %%\n", name.c_str(),
              100 * (processorSeconds() - before) / took.count());
}

void DesktopTrial::bringAbout(const std::string& state) {
  seen_ = state == "alert" ? Seen::watched : state == "inattention" ? Seen::away : Seen::alone;
  follows("protection is in " + state, [&] { return isIn(state); });
}

void DesktopTrial::clickEverywhere(const std::string& state, int clicks) {
  shell_.setPanelDeaf(true);
  clickAt(state, "Wayland window", clicks, onDocument, [this] { return document_.clicks(); });
  const QPoint middle = shell_.window(other).value().center();
  clickAt(state, "X11 window", clicks, {middle, middle + QPoint(40, 50), middle - QPoint(60, 20)},
          [this] { return static_cast<int>(count(otherWindow_.output(), "ButtonPress event")); });
  clickAt(state, "panel", clicks, onPanel, [this] { return shell_.panelClicks(); });
  shell_.setPanelDeaf(false);
}

void DesktopTrial::clickAt(const std::string& state, const std::string& target, int clicks,
                           const std::vector<QPoint>& points, const std::function<int()>& arrived) {
  Row row{state, target, 0, clicks};
  for (int i = 0; i < clicks; ++i) {
    const int before = arrived();
    // Never twice on the same pixel: a pointer that rests would not ask again what lies below it.
    const QPoint at = points[static_cast<std::size_t>(i) % points.size()] + QPoint(i % 5, i % 3);
    shell_.click(at);
    const milliseconds limit = i > 3 && row.passed == 0 ? lostClickLimit : clickLimit;
    if (runUntil([&] { return arrived() > before; }, limit)) {
      ++row.passed;
    } else if (i - row.passed < 3) {  // the others will have the same reason
      std::printf("  lost at %d,%d: there is %s\n", at.x(), at.y(), shell_.under(at).toUtf8().constData());
    }
  }
  rows_.push_back(row);
  std::printf("  %-12s %-16s %3d of %3d\n", state.c_str(), target.c_str(), row.passed, row.clicks);
}

/// What is painted while nobody takes it must not pile up: the X server would end, and every X11 program with
/// it.
void DesktopTrial::outliveHangingDesktop() {
  shell_.setHanging(true);
  (void)runUntil([] { return false; }, hang);
  shell_.setHanging(false);
  clickEverywhere("after a hang", fewClicks);
  if (!isIn("alert")) throw std::runtime_error("the alert did not outlive a desktop that hangs");
}

/// As a person sees that the desktop hears them.
void DesktopTrial::openOverview(const std::string& state) {
  Row row{state, "overview", 0, 2};
  for (const bool open : {true, false}) {
    shell_.click(onPanel.front());
    if (runUntil([&] { return shell_.overviewIsOpen() == open; }, seconds(5))) ++row.passed;
    if (open) picture("overview");
  }
  rows_.push_back(row);
}

/// The way out for whoever does not want the cover any more: the program's window, and the switch in it.
void DesktopTrial::switchOffWithTheMouse() {
  const auto title = QStringLiteral("Sentrel");
  // A second start opens the first one's window.
  const std::string token = shell_.startupToken().toStdString();
  desktop_.run("env", {"DESKTOP_STARTUP_ID=" + token, "XDG_ACTIVATION_TOKEN=" + token, binary_});
  follows("the program's window is there", [&] { return shell_.window(title).has_value(); });
  (void)runUntil([] { return false; }, pictureDelay);
  picture("popover");
  const QRect window = shell_.window(title).value();
  Row row{"alert", "own switch", 0, 1};
  shell_.click(window.center() + switchInPopover);
  if (runUntil([this] { return isIn("inactive"); }, seconds(5))) ++row.passed;
  rows_.push_back(row);
  picture("switched-off");
}

void DesktopTrial::quit() {
  watcher_.quitProgram();
  follows("the program has ended", [this] { return !program_.isRunning(); });
  if (program_.waitForExit(milliseconds(0)) != 0) throw std::runtime_error("the program ended in bad order");
}

std::string DesktopTrial::faultInPictures() const {
  std::map<std::string, double> brightness;
  for (const char* name : {"uncovered", "nominal", "inattention", "alert", "switched-off"}) {
    const QImage image(QString::fromStdString((folder_ / (std::string(name) + ".png")).string()));
    brightness[name] = meanBrightness(image.copy(bareDocument));
    const bool alert = std::string_view(name) == "alert";
    if (showsOnlooker(image) != alert) return std::string("the onlooker's picture is out of place: ") + name;
  }
  if (brightness["nominal"] >= brightness["uncovered"] - 1 ||
      brightness["inattention"] >= brightness["nominal"] - 1 ||
      brightness["alert"] >= 0.7 * brightness["inattention"] ||
      std::abs(brightness["switched-off"] - brightness["uncovered"]) > 1) {
    return "the pictures do not show a document that is covered more from state to state, and then no more";
  }
  return {};
}

bool DesktopTrial::judge() const {
  std::ostringstream table;
  table << "state\ttarget\tpassed\tclicks\n";
  bool allPassed = true;
  for (const Row& row : rows_) {
    table << row.state << '\t' << row.target << '\t' << row.passed << '\t' << row.clicks << '\n';
    allPassed = allPassed && row.passed == row.clicks;
  }
  std::ofstream(folder_ / "clicks.tsv") << table.str();
  std::printf("\n%s\nThe table and the pictures are in %s\n", table.str().c_str(), folder_.c_str());
  if (!allPassed) std::fputs("sentrel-try-desktop: clicks were lost\n", stderr);
  const std::string fault = faultInPictures();
  if (!fault.empty()) std::fprintf(stderr, "sentrel-try-desktop: %s\n", fault.c_str());
  return allPassed && fault.empty();
}

double DesktopTrial::processorSeconds() const {
  std::ifstream file("/proc/" + std::to_string(program_.pid()) + "/stat");
  std::string text((std::istreambuf_iterator<char>(file)), {});
  std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 1)));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

void DesktopTrial::follows(const std::string& words, const std::function<bool()>& condition) {
  if (!runUntil(condition, patience)) throw std::runtime_error("this did not follow: " + words);
  std::printf("  %s\n", words.c_str());
}

bool DesktopTrial::runUntil(const std::function<bool()>& condition, milliseconds limit) {
  QEventLoop events;
  bool held = condition();
  QTimer look;
  QObject::connect(&look, &QTimer::timeout, [&] {
    held = condition();
    if (held) events.quit();
  });
  QTimer::singleShot(limit, &events, &QEventLoop::quit);
  look.start(5);
  if (!held) events.exec();
  return held;
}

void DesktopTrial::picture(const std::string& name) {
  (void)runUntil([] { return false; }, pictureDelay);
  shell_.screenshot(folder_ / (name + ".png"));
}

bool DesktopTrial::isIn(const std::string& state) const {
  return !watcher_.entries().empty() && watcher_.entries().back().state == state;
}

}  // namespace sentrel::test
