// SPDX-License-Identifier: Apache-2.0
#include "desktop_trial.h"

#include <QRect>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// The processor draws the desktop: a click may take some frames.
constexpr milliseconds clickLimit{3000};
/// Once none of the first ones has arrived.
constexpr milliseconds lostClickLimit{400};

/// Where no other window ever lies on the document.
const QRect bareDocument(700, 450, 560, 420);
/// From the middle of the program's window.
const QPoint switchInPopover(120, -98);

constexpr seconds hang{25};

constexpr int fewClicks = 20;  // while nothing flashes

// On a screen of 1920 x 1080: bare, below the banner, below the onlooker's picture and its dot, at the edges.
const std::vector<QPoint> onDocument{{960, 500},  {960, 975},  {810, 950}, {1772, 904},
                                     {1660, 820}, {1910, 600}, {30, 1000}, {1400, 120}};
/// The X11 window, smaller, in front of the document.
const auto other = QStringLiteral("other");

}  // namespace

DesktopTrial::DesktopTrial(HeadlessDesktop& desktop, const DesktopKind& kind, DesktopShell& shell,
                           const fs::path& folder, const std::string& program, int clicks)
    : ProgramTrial(desktop, folder, program), kind_(kind), shell_(shell), clicks_(clicks) {
  // The processor draws the cover, and the alert's tint must be at its height.
  pictureDelay_ = milliseconds(1200);
}

void DesktopTrial::play() {
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
  judge();
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
  see(Seen::alone);
  takePicture("uncovered");
  clickEverywhere("uncovered", fewClicks);  // that the clicks are real ones
  start();
}

void DesktopTrial::bringAbout(const std::string& state) {
  see(state == "alert" ? Seen::watched : state == "inattention" ? Seen::away : Seen::alone);
  follows("protection is in " + state, [&] { return isIn(state); });
}

void DesktopTrial::clickThrough(const std::string& name, const std::string& state, int clicks) {
  bringAbout(state);
  pause(pictureDelay_);
  follows("the screen shows it", [&] {
    screenshot(pathOf(name));
    return showsOnlooker(picture(name)) == (state == "alert");
  });
  const auto began = std::chrono::steady_clock::now();
  const double before = ProcessUsage::of(program_.pid()).cpuSeconds;
  clickEverywhere(name, clicks);
  if (!isIn(state)) throw std::runtime_error("the state did not last: " + state);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("  %-12s processor time of the program: %.1f %%\n", name.c_str(),
              100 * (ProcessUsage::of(program_.pid()).cpuSeconds - before) / took.count());
}

void DesktopTrial::clickEverywhere(const std::string& state, int clicks) {
  // The document is a window of the desktop's own kind.
  record(state, kind_.wayland ? "Wayland window" : "large window", clicks,
         [&] { return clicksPassed(clicks, onDocument, [this] { return document_.clicks(); }); });
  record(state, "X11 window", clicks, [&] {
    const QPoint middle = shell_.window(other).value().center();
    return clicksPassed(clicks, {middle, middle + QPoint(40, 50), middle - QPoint(60, 20)}, [this] {
      return static_cast<int>(QByteArray::fromStdString(otherWindow_.output()).count("ButtonPress event"));
    });
  });
  record(state, "panel", clicks, [&] {
    shell_.setPanelDeaf(true);
    const int passed = clicksPassed(clicks, shell_.panelSpots(), [this] { return shell_.panelClicks(); });
    shell_.setPanelDeaf(false);
    return passed;
  });
}

int DesktopTrial::clicksPassed(int clicks, const std::vector<QPoint>& points,
                               const std::function<int()>& count) {
  int passed = 0;
  for (int i = 0; i < clicks; ++i) {
    const int before = count();
    // Never twice on the same pixel: a pointer that rests would not ask again what lies below it.
    const QPoint at = points[static_cast<std::size_t>(i) % points.size()] + QPoint(i % 5, i % 3);
    shell_.click(at);
    const milliseconds limit = i > 3 && passed == 0 ? lostClickLimit : clickLimit;
    if (runUntil([&] { return count() > before; }, limit)) {
      ++passed;
    } else if (i - passed < 3) {  // the others will have the same reason
      std::printf("  lost at %d,%d: there is %s\n", at.x(), at.y(), shell_.under(at).toUtf8().constData());
    }
  }
  return passed;
}

void DesktopTrial::openOverview(const std::string& state) {
  record(state, "overview", 2, [this] {
    // As a person sees that the desktop hears them.
    shell_.clickOverview(true);
    takePicture("overview");
    shell_.clickOverview(false);
    return 2;
  });
}

/// What is painted while nobody takes it must not pile up: an X server of the desktop's would end, and every
/// X11 program with it.
void DesktopTrial::outliveHangingDesktop() {
  shell_.setHanging(true);
  pause(hang);
  shell_.setHanging(false);
  clickEverywhere("after a hang", fewClicks);
  if (!isIn("alert")) throw std::runtime_error("the alert did not outlive a desktop that hangs");
}

/// The way out for whoever does not want the cover any more: the program's window, and the switch in it.
void DesktopTrial::switchOffWithTheMouse() {
  const auto title = QStringLiteral("Sentrel");
  // A second start opens the first one's window.
  const std::string token = shell_.startupToken();
  desktop_.run("env", {"DESKTOP_STARTUP_ID=" + token, "XDG_ACTIVATION_TOKEN=" + token, binary_});
  follows("the program's window is there", [&] { return shell_.window(title).has_value(); });
  pause(pictureDelay_);
  takePicture("popover");
  record("alert", "own switch", 1, [&] {
    shell_.click(shell_.window(title).value().center() + switchInPopover);
    return runUntil([this] { return isIn("inactive"); }, seconds(5)) ? 1 : 0;
  });
  takePicture("switched-off");
}

void DesktopTrial::judge() const {
  std::ostringstream table;
  table << "state\ttarget\tpassed\twanted\tnot here\n";
  bool allPassed = true;
  for (const Row& row : rows_) {
    table << row.state << '\t' << row.target << '\t' << row.passed << '\t' << row.wanted << '\t'
          << row.notHere << '\n';
    allPassed = allPassed && (!row.notHere.empty() || row.passed == row.wanted);
  }
  std::ofstream(folder_ / "trial.tsv") << table.str();
  std::printf("\n%s\nThe table and the pictures are in %s\n", table.str().c_str(), folder_.c_str());
  if (!allPassed) throw std::runtime_error("something did not arrive");
  judgeCovers({"uncovered", "nominal", "inattention", "alert"}, bareDocument);
  if (std::abs(brightness("switched-off", bareDocument) - brightness("uncovered", bareDocument)) > 1)
    throw std::runtime_error("the document is still covered in switched-off");
}

void DesktopTrial::record(const std::string& state, const std::string& target, int wanted,
                          const std::function<int()>& passed) {
  Row row{.state = state, .target = target, .wanted = wanted};
  try {
    row.passed = passed();
    std::printf("  %-12s %-16s %3d of %3d\n", state.c_str(), target.c_str(), row.passed, row.wanted);
  } catch (const NotHere& reason) {
    row.notHere = reason.what();
    std::printf("  %-12s %-16s not here: %s\n", state.c_str(), target.c_str(), reason.what());
  }
  rows_.push_back(row);
}

void DesktopTrial::follows(const std::string& words, const std::function<bool()>& condition) {
  waitFor(words, condition);
  std::printf("  %s\n", words.c_str());
}

}  // namespace sentrel::test
