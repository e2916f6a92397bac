// SPDX-License-Identifier: Apache-2.0
#include "desktop_trial.h"

#include <QGuiApplication>
#include <QRect>
#include <QScreen>
#include <QSysInfo>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// The processor draws the desktop: a click may take some frames.
constexpr milliseconds clickLimit{10'000};
/// Once none of the first ones has arrived.
constexpr milliseconds lostClickLimit{400};

/// The first one, and what the places below are on.
constexpr QSize screen(1920, 1080);
/// Where no other window ever lies on the document.
const QRect bareDocument(700, 450, 560, 420);
/// The middle of the desktop's panel, which is at the top.
const QRect panel(200, 4, 1400, 16);

// Within the program's window, without its shadow.
constexpr int popoverWidth = 320;
constexpr QPoint switchInPopover(281, 44);
constexpr QPoint aboutInPopover(150, 190);
constexpr int firstRunButton = 98;  // from the bottom of the window of the first run
constexpr int firstRunSecond = 54;  // the one below

constexpr seconds hang{25};
constexpr seconds betweenNotifications{31};  // the program rests for 30 s
constexpr double darkShare = 0.7;            // of the document's brightness is left at most in an alert

// Bare, below the banner, below the onlooker's picture and its dot, at the edges; on no desktop below its
// notifications.
const std::vector<QPoint> onDocument{{960, 500},  {960, 975},  {810, 950}, {1772, 904},
                                     {1660, 820}, {1910, 600}, {10, 1000}, {1300, 140}};
/// Whether the banner of an alert is where it belongs.
bool showsBanner(const QImage& picture) {
  int red = 0;
  for (int x = 800; x < 1120; x += 4) {
    const QRgb pixel = picture.pixel(x, 912);
    red += qRed(pixel) > 150 && qGreen(pixel) < 60 && qBlue(pixel) < 80 ? 1 : 0;
  }
  return red > 20;  // of 80: at some scales its words stand there
}

/// The X11 window, smaller, in front of the document.
const auto other = QStringLiteral("other");
const auto firstRun = QStringLiteral("Bienvenue dans Sentrel");
const auto ownTitle = QStringLiteral("Sentrel");

}  // namespace

DesktopTrial::DesktopTrial(HeadlessDesktop& desktop, const DesktopKind& kind, DesktopShell& shell,
                           const fs::path& folder, const std::string& program, int clicks)
    : ProgramTrial(desktop, folder, program), kind_(kind), shell_(shell), clicks_(clicks) {
  // The processor draws the cover, and the alert's tint must be at its height.
  pictureDelay_ = milliseconds(1200);
}

void DesktopTrial::play() {
  prepare();
  runForTheFirstTime();
  reachThrough("nominal", "nominal");
  reachThrough("inattention", "inattention");
  reachThrough("alert", "alert");
  openOverview();
  outliveHangingDesktop();
  reachThrough("after", "nominal");
  coverFullScreenWindow();
  coverSecondOutput();
  for (const double scale : {1.5, 2.0}) coverAtScale(scale);
  openPreferences();
  followAppearance();
  showNotification();
  lockAndUnlock();
  switchOffByKeys();
  switchOffByMouse();
  leaveNothing();
  lockWithoutProgram();
  writeTable();
}

void DesktopTrial::prepare() {
  document_.show();
  follows("the document is painted", [this] { return document_.isPainted(); });
  shell_.maximizeWindow(document_.title());
  follows("the document fills the screen", [this] { return documentSize().width() == screen.width(); });
  otherWindow_ = desktop_.spawn("stdbuf", {"-oL", "xev", "-event", "button", "-event", "keyboard",
                                           "-geometry", "200x200+1450+350", "-name", other.toStdString()});
  follows("the X11 window is there", [&] { return shell_.window(other).has_value(); });
  shell_.raiseWindow(other);
  see(Seen::alone);
  takePicture("uncovered");
  reachEverything("uncovered");  // that clicks and keys are real ones
}

void DesktopTrial::runForTheFirstTime() {
  fs::remove(desktop_.configFolder() / "sentrel" / "defaults.json");
  start();
  record("first run", "first run", [this] {
    follows("the first run is there", [&] { return shell_.window(firstRun).has_value(); });
    const auto click = [this](int y) {
      const QRect window = shell_.window(firstRun).value();
      shell_.click({window.center().x(), window.bottom() - y});
    };
    takePicture("first-run-camera");
    click(firstRunButton);
    takePicture("first-run-cover");
    shell_.pressKey("Return");
    takePicture("first-run-notifications");
    click(firstRunButton);
    takePicture("first-run-distance");
    click(firstRunSecond);
    takePicture("first-run-login");
    for (const char* key : {"Tab", "space"}) shell_.pressKey(key);
    follows("the first run is over", [&] { return !shell_.window(firstRun); });
  });
  follows("protection begins", [this] { return isIn("nominal"); });
}

void DesktopTrial::reachThrough(const std::string& name, const std::string& state) {
  record("cover", name, [&] {
    takePictureIn(state, name);
    const double bright = brightness("uncovered", bareDocument);
    if (brightness(name, bareDocument) >= (state == "alert" ? darkShare : 1) * bright - 1)
      throw std::runtime_error("the document is not covered in " + name);
    if (state == "alert" && difference(name, "uncovered", panel) < 3)
      throw std::runtime_error("the panel is not covered");
  });
  const auto began = std::chrono::steady_clock::now();
  const double before = ProcessUsage::of(program_.pid()).cpuSeconds;
  reachEverything(name);
  reachOwnWindow(name);
  if (!isIn(state)) throw std::runtime_error("the state did not last: " + state);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("  %-14s processor time of the program: %.1f %%\n", name.c_str(),
              100 * (ProcessUsage::of(program_.pid()).cpuSeconds - before) / took.count());
}

void DesktopTrial::coverFullScreenWindow() {
  record("cover", "full-screen window", [this] {
    document_.showFullScreen();
    follows("the document fills the whole screen",
            [this] { return documentSize().height() == screen.height(); });
    coverDocument("full-screen", bareDocument);
  });
  document_.showMaximized();
  pause(pictureDelay_);                      // the desktop is to hear that first
  shell_.maximizeWindow(document_.title());  // not every desktop remembers
}

void DesktopTrial::coverSecondOutput() {
  bool isThere = false;
  record("cover", "second screen", [&] {
    bringAbout("nominal");
    const QRect place = shell_.addOutput();
    isThere = true;
    DocumentDesktop second;
    follows("a second screen", [] { return QGuiApplication::screens().size() == 2; });
    second.setScreen(QGuiApplication::screens().at(1));
    second.setGeometry(QGuiApplication::screens().at(1)->geometry());
    // A Wayland window is where the desktop puts it. On X11 not every window manager sees two monitors here.
    kind_.wayland ? second.showFullScreen() : second.show();
    follows("the second document is painted", [&] { return second.isPainted(); });
    coverDocument("second-screen", bareDocument.translated(place.topLeft()));
  });
  if (!isThere) return;
  record("cover", "one screen again", [this] {
    shell_.removeOutput();
    follows("one screen again", [] { return QGuiApplication::screens().size() == 1; });
    fillScreenAgain();
    coverDocument("one-screen-again", bareDocument);
  });
}

void DesktopTrial::coverAtScale(double scale) {
  const std::string name = "scale " + QString::number(scale).toStdString();
  bool hasScale = false;
  record("cover", name, [&] {
    bringAbout("nominal");
    shell_.setScale(scale);
    hasScale = true;
    coverDocument("scale-" + QString::number(100 * scale).toStdString(), bareDocument);
  });
  if (!hasScale) return;
  record("clicks", name, clicks_, [&] {
    const QRect place = shell_.window(document_.title()).value();
    bringAbout("alert");
    // Below what the desktop shows at the top.
    const QPoint left(-place.width() / 4, 60);
    return clicksPassed({place.center(), place.center() + left, place.center() + QPoint(0, 60)},
                        [this] { return document_.clicks(); });
  });
  shell_.setScale(1);
  fillScreenAgain();
  shell_.raiseWindow(other);  // a smaller screen may have moved it in front of the document
}

/// Not every desktop remembers after a change of its screens that the window was maximized.
void DesktopTrial::fillScreenAgain() {
  follows("the document fills the screen again", [this] {
    shell_.maximizeWindow(document_.title());
    return documentSize().width() == screen.width();
  });
}

/// A document at this place of the picture is covered in nominal and in an alert; nominal is left.
void DesktopTrial::coverDocument(const std::string& name, const QRect& place) {
  const double bright = brightness("uncovered", bareDocument);
  const QRect output(place.topLeft() - bareDocument.topLeft(), screen);
  const auto isCalm = [&](const std::string& taken) {
    takePicture(taken);
    const double seen = brightness(taken, place);
    return seen < bright - 1 && seen > darkShare * bright && !showsBanner(picture(taken).copy(output));
  };
  bringAbout("nominal");
  follows("the screen shows it", [&] { return isCalm(name + "-nominal"); });
  bringAbout("alert");
  follows("the screen shows it", [&] {
    takePicture(name + "-alert");
    return showsBanner(picture(name + "-alert").copy(output));
  });
  if (brightness(name + "-alert", place) >= darkShare * bright - 1)
    throw std::runtime_error("the document is not covered in " + name + "-alert");
  bringAbout("nominal");
  follows("the screen shows it", [&] { return isCalm(name + "-calm"); });
}

void DesktopTrial::openPreferences() {
  record("windows", "preferences", [this] {
    const auto title = QStringLiteral("Préférences Sentrel");
    bringAbout("nominal");
    watcher_.activateAction(QStringLiteral("preferences"));
    follows("the preferences are there", [&] { return shell_.window(title).has_value(); });
    takePicture("preferences");
    shell_.pressKey("Escape");
    follows("the preferences are closed", [&] { return !shell_.window(title); });
  });
}

void DesktopTrial::followAppearance() {
  const auto look = [this](Appearance appearance, const std::string& name) {
    shell_.setAppearance(appearance);
    takePicture(name);
    return brightness(name, popover().adjusted(8, 8, -8, -8));
  };
  double light = 0;
  record("appearance", "light and dark", [&] {
    bringAbout("nominal");
    shell_.setAppearance(Appearance::light);
    openPopover();
    light = look(Appearance::light, "light");
    follows("the window is dark", [&] { return look(Appearance::dark, "dark") < 0.6 * light; });
    follows("the window is light",
            [&] { return std::abs(look(Appearance::light, "light-again") - light) < 2; });
  });
  record("appearance", "high contrast", [&] {
    follows("the window is rich in contrast", [&] {
      const double bright = look(Appearance::highContrast, "high-contrast");
      return bright > 0.9 * light && difference("high-contrast", "light", popover()) > 1;
    });
  });
  if (!shell_.window(ownTitle)) return;
  closePopover();
  shell_.setAppearance(Appearance::light);  // whatever came of it
}

void DesktopTrial::showNotification() {
  record("notification", "not hidden", [this] {
    bringAbout("nominal");
    pause(betweenNotifications);
    bringAbout("alert");
    follows("a notification", [this] { return shell_.notification().has_value(); });
    takePicture("notification");
    const QRect place = shell_.notification().value_or(QRect());
    if (place.intersects(onlookerPlace(screen)))
      throw std::runtime_error("the onlooker's picture hides the notification");
    bringAbout("nominal");
  });
}

void DesktopTrial::lockAndUnlock() {
  record("lock", "camera rests while locked", [this] {
    bringAbout("alert");  // of which the most would be seen
    shell_.setLocked(true);
    follows("protection rests", [this] { return isIn("autoPaused"); });
    follows("the camera is closed", [this] { return !camera_.isOpen(); });
    takePicture("locked");
    see(Seen::alone);
    shell_.setLocked(false);
    follows("protection is back", [this] { return isIn("nominal"); });
    follows("the camera is open", [this] { return camera_.isOpen(); });
    follows("the document is covered", [this] {
      takePicture("unlocked");
      const double seen = brightness("unlocked", bareDocument);
      const double bright = brightness("uncovered", bareDocument);
      return seen < bright - 1 && seen > darkShare * bright;
    });
  });
}

/// The locker looks as it does without the program, but for a clock.
void DesktopTrial::lockWithoutProgram() {
  record("lock", "nothing covers the locker", [this] {
    shell_.setLocked(true);
    takePicture("locked-alone");
    shell_.setLocked(false);
    if (difference("locked", "locked-alone", QRect(0, 0, 1920, 1080)) > 2)
      throw std::runtime_error("something of the program is above the locker");
  });
}

void DesktopTrial::openOverview() {
  record("windows", "overview", [this] {
    // As a person sees that the desktop hears them.
    shell_.clickOverview(true);
    takePicture("overview");
    shell_.clickOverview(false);
  });
}

/// What is painted while nobody takes it must not pile up: an X server of the desktop's would end, and every
/// X11 program with it.
void DesktopTrial::outliveHangingDesktop() {
  shell_.setHanging(true);
  pause(hang);
  shell_.setHanging(false);
  reachEverything("after a hang");
  if (!isIn("alert")) throw std::runtime_error("the alert did not outlive a desktop that hangs");
}

void DesktopTrial::switchOffByKeys() {
  std::optional<int> typed;
  record("shortcut", "Super+Shift+C switches off", [&] {
    bringAbout("alert");
    const int clicked = document_.clicks();
    shell_.click(onDocument.front());
    // GNOME on X11 freezes the pointer when a key follows before it has seen the click.
    follows("the document is clicked", [&] { return document_.clicks() > clicked; });
    const int before = document_.keys();
    shell_.pressShortcut("super+shift+c");
    follows("protection is off", [this] { return isIn("inactive"); });
    takePicture("shortcut");
    typed = document_.keys() - before;
    desktop_.run(binary_, {"on"});
  });
  if (!typed) return;
  record("shortcut", "it types nothing", [&] {
    constexpr int modifiers = 2;
    if (*typed > modifiers) throw std::runtime_error("the window below got the key");
  });
}

/// The way out for whoever does not want the cover any more: the program's window, and the switch in it.
void DesktopTrial::switchOffByMouse() {
  record("clicks", "own switch", [this] {
    bringAbout("alert");
    openPopover();
    takePicture("popover");
    shell_.click(popover().topLeft() + switchInPopover);
    follows("protection is off", [this] { return isIn("inactive"); });
    closePopover();
    takePicture("switched-off");
    if (difference("switched-off", "uncovered", bareDocument) > 1)
      throw std::runtime_error("the document is still covered in switched-off");
  });
}

void DesktopTrial::leaveNothing() {
  record("end", "nothing is left", [this] {
    quit();
    follows("the camera is closed", [this] { return !camera_.isOpen(); });
    takePicture("left");
    // Where neither a panel, nor what the desktop shows, nor the window on the right has changed by itself.
    if (difference("left", "uncovered", QRect(0, 150, 1300, screen.height() - 200)) > 0.5)
      throw std::runtime_error("something is left on the screen");
  });
}

void DesktopTrial::bringAbout(const std::string& state) {
  see(state == "alert" ? Seen::watched : state == "inattention" ? Seen::away : Seen::alone);
  follows("protection is in " + state, [&] { return isIn(state); });
}

void DesktopTrial::takePictureIn(const std::string& state, const std::string& name) {
  bringAbout(state);
  follows("the screen shows it", [&] {
    takePicture(name);
    return showsOnlooker(picture(name).copy(QRect(QPoint(), screen))) == (state == "alert");
  });
}

void DesktopTrial::reachEverything(const std::string& when) {
  // The document is a window of the desktop's own kind.
  const std::string document = when + (kind_.wayland ? ", Wayland window" : ", large window");
  record("clicks", document, clicks_,
         [&] { return clicksPassed(onDocument, [this] { return document_.clicks(); }); });
  record("clicks", document + ", by finger", clicks_, [&] {
    return clicksPassed(
        onDocument, [this] { return document_.clicks(); }, &DesktopShell::touch);
  });
  record("keys", document, clicks_, [&] { return keysPassed("a", [this] { return document_.keys(); }); });
  record("clicks", when + ", X11 window", clicks_, [&] {
    const QPoint middle = shell_.window(other).value().center();
    return clicksPassed({middle, middle + QPoint(40, 50), middle - QPoint(60, 20)},
                        [this] { return wordsPrinted("ButtonPress event"); });
  });
  record("keys", when + ", X11 window", clicks_,
         [&] { return keysPassed("a", [this] { return wordsPrinted("KeyPress event"); }); });
  record("clicks", when + ", panel", clicks_, [&] {
    shell_.setPanelDeaf(true);
    const int passed = clicksPassed(shell_.panelSpots(), [this] { return shell_.panelClicks(); });
    shell_.setPanelDeaf(false);
    return passed;
  });
  record("keys", when + ", desktop", clicks_,
         [&] { return keysPassed(shell_.desktopKey(), [this] { return shell_.desktopKeys(); }); });
}

/// A click opens another page, a key goes back: each page has its size.
void DesktopTrial::reachOwnWindow(const std::string& when) {
  int opened = 0;
  int closed = 0;
  record("clicks", when + ", own window", clicks_, [&] {
    openPopover();
    takePicture("popover-" + when);
    const auto becomesOther = [&](QSize size) {
      return runUntil([&] { return popover().size() != size; }, clickLimit);
    };
    for (int i = 0; i < clicks_; ++i) {
      const QSize home = popover().size();
      shell_.click(popover().topLeft() + aboutInPopover + QPoint(i % 7, i % 3));
      if (!becomesOther(home)) continue;
      ++opened;
      pause(milliseconds(300));  // the page fades in
      const QSize page = popover().size();
      shell_.pressKey("Escape");
      if (becomesOther(page)) ++closed;
      pause(milliseconds(300));
    }
    closePopover();
    return opened;
  });
  record("keys", when + ", own window", clicks_, [&] { return closed; });
}

int DesktopTrial::clicksPassed(const std::vector<QPoint>& points, const std::function<int()>& count,
                               void (DesktopShell::*press)(QPoint)) {
  int passed = 0;
  for (int i = 0; i < clicks_; ++i) {
    const int before = count();
    // Never twice on the same pixel: a pointer that rests would not ask again what lies below it.
    const QPoint at = points[static_cast<std::size_t>(i) % points.size()] + QPoint(i % 5, i % 3);
    (shell_.*press)(at);
    const milliseconds limit = i > 3 && passed == 0 ? lostClickLimit : clickLimit;
    if (runUntil([&] { return count() > before; }, limit)) {
      ++passed;
    } else if (i - passed < 3) {  // the others will have the same reason
      std::printf("  lost at %d,%d: there is %s\n", at.x(), at.y(), shell_.under(at).toUtf8().constData());
    }
  }
  return passed;
}

int DesktopTrial::keysPassed(const std::string& key, const std::function<int()>& count) {
  int passed = 0;
  for (int i = 0; i < clicks_; ++i) {
    const int before = count();
    shell_.pressKey(key);
    passed += runUntil([&] { return count() > before; }, passed == 0 ? lostClickLimit : clickLimit) ? 1 : 0;
  }
  return passed;
}

int DesktopTrial::wordsPrinted(const char* words) const {
  return static_cast<int>(QByteArray::fromStdString(otherWindow_.output()).count(words));
}

void DesktopTrial::openPopover() {
  const std::string token = shell_.startupToken();
  desktop_.run("env", {"DESKTOP_STARTUP_ID=" + token, "XDG_ACTIVATION_TOKEN=" + token, binary_});
  follows("the program's window is there", [this] { return shell_.window(ownTitle).has_value(); });
  pause(pictureDelay_);
}

void DesktopTrial::closePopover() {
  shell_.pressKey("Escape");
  follows("the program's window is closed", [this] { return !shell_.window(ownTitle); });
}

QRect DesktopTrial::popover() {
  const QRect window = shell_.window(ownTitle).value();
  const int shadow = (window.width() - popoverWidth) / 2;
  return window.adjusted(shadow, shadow, -shadow, -shadow);
}

double DesktopTrial::difference(const std::string& one, const std::string& another, const QRect& part) const {
  const QImage first = picture(one).copy(part);
  const QImage second = picture(another).copy(part);
  double sum = 0;
  int count = 0;
  for (int y = 0; y < first.height(); y += 4) {
    for (int x = 0; x < first.width(); x += 4, ++count)
      sum += std::abs(qGray(first.pixel(x, y)) - qGray(second.pixel(x, y)));
  }
  return sum / count;
}

void DesktopTrial::writeTable() const {
  std::ofstream table(folder_ / "trial.tsv");
  table << "topic\twhat\tpassed\twanted\tnot here\n";
  bool allPassed = true;
  std::map<std::string, std::pair<int, int>> sums;  // passed and wanted
  std::string notHere;
  for (const Row& row : rows_) {
    table << row.topic << '\t' << row.what << '\t' << row.passed << '\t' << row.wanted << '\t' << row.notHere
          << '\n';
    if (row.notHere.empty()) {
      auto& [passed, wanted] = sums[row.topic == "clicks" || row.topic == "keys" ? row.topic : "rest"];
      passed += row.passed;
      wanted += row.wanted;
      allPassed = allPassed && row.passed == row.wanted;
    } else if (notHere.find(row.notHere) == std::string::npos) {
      notHere += (notHere.empty() ? "" : "; ") + row.topic + ": " + row.notHere;
    }
  }
  std::string line = "| " + shell_.version() + " (" + kind_.name + ") | " +
                     QSysInfo::prettyProductName().toStdString() + " |";
  for (const char* topic : {"clicks", "keys", "rest"}) {
    const auto& [passed, wanted] = sums[topic];
    line += " " + std::to_string(passed) + " of " + std::to_string(wanted) + " |";
  }
  line += " " + notHere + " |\n";
  std::ofstream(folder_ / "line.md") << line;
  std::printf("\n%s\nThe table and the pictures are in %s\n", line.c_str(), folder_.c_str());
  if (!allPassed) throw std::runtime_error("not everything passed");
}

void DesktopTrial::record(const std::string& topic, const std::string& what, int wanted,
                          const std::function<int()>& passed) {
  Row row{.topic = topic, .what = what, .wanted = wanted};
  std::string words;
  try {
    row.passed = passed();
  } catch (const NotHere& reason) {
    row.notHere = reason.what();
    words = std::string("not here: ") + reason.what();
  } catch (const std::exception& error) {
    if (program_.pid() != 0 && !program_.isRunning()) throw;
    words = error.what();
  }
  std::printf("  %-12s %-40s %3d of %3d %s\n", topic.c_str(), what.c_str(), row.passed, row.wanted,
              words.c_str());
  rows_.push_back(row);
}

void DesktopTrial::follows(const std::string& words, const std::function<bool()>& condition) {
  waitFor(words, condition);
  std::printf("    %s\n", words.c_str());
}

}  // namespace sentrel::test
