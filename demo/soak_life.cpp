// SPDX-License-Identifier: Apache-2.0
#include "soak_life.h"

#include <QDBusVariant>
#include <QVariantMap>
#include <algorithm>
#include <stdexcept>
#include <thread>
#include <utility>

#include "stage/pictures.h"
#include "stage/shared_screen.h"

namespace sentrel::test {

using std::chrono::milliseconds;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

constexpr std::array cameraNames{"near_camera", "desk_camera"};
constexpr std::array reasons{&SoakWorld::locked, &SoakWorld::lockerCovers, &SoakWorld::asleep,
                             &SoakWorld::switchedAway};

const auto busName = QStringLiteral("expert.mardeck.sentrel");
const auto objectPath = QStringLiteral("/expert/mardeck/sentrel");
const auto applicationInterface = QStringLiteral("org.freedesktop.Application");
const auto ownInterface = QStringLiteral("expert.mardeck.sentrel1");
const auto notifications = QStringLiteral("org.freedesktop.Notifications");

}  // namespace

SoakLife::SoakLife(Parts parts) : parts_(std::move(parts)), desktop_(parts_.desktop), random_(parts_.seed) {
  const PortraitScene portrait;
  for (const SceneState& state : {SceneState{}, SceneState{.secondFace = SecondFace{}}, SceneState{50, {}}})
    scenes_.push_back(portrait.frame(state));
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    cameras_[i] = std::make_unique<VirtualCamera>(VirtualCamera::Options{
        .name = cameraNames[i], .description = cameraNames[i], .modes = {{.fps = parts_.fps}}});
    cameras_[i]->setSource([this, i](std::int64_t) {
      if (gives_[i]) ++frames_;
      return scenes_[static_cast<std::size_t>(scene_.load())].constBits();
    });
  }
}

void SoakLife::begin() {
  const std::string size = std::to_string(screenWidth) + "/271x" + std::to_string(screenHeight) + "/169+0+0";
  desktop_.run("xrandr", {"--setmonitor", "monitor0", size, "screen"});
  joinBuses();
  watch_ = std::make_unique<SoakWatch>(SoakWatch::Parts{.desktop = desktop_,
                                                        .cameras = {cameras_[0].get(), cameras_[1].get()},
                                                        .frames = frames_,
                                                        .monitorWidth = screenWidth,
                                                        .monitorHeight = screenHeight,
                                                        .journal = parts_.journal});
  plug(0, true);
  program_ = desktop_.spawn(parts_.program);
  session_->sessionBus().waitForName(busName);
  change(
      "the program starts", [](SoakWorld& world) { world.started = world.wished = true; }, [] {});
  passOnboarding();
  if (!wait([this] { return watch_->state() == "nominal" && session_->sleepDelays() == 1; }))
    throw std::runtime_error("the program does not protect");
  for (const char* action : {"statistics", "about", "preferences"}) {
    openWindow(Window::popover, action);
    pause(seconds(1));
    closeWindow();
  }
  // Qt's own connection to the session bus ends with the first one.
  restartBus(TestBus::session);
}

/// Nothing may open the camera before its first page was answered.
void SoakLife::passOnboarding() {
  if (!wait([this] { return watch_->windows() > 0; })) throw std::runtime_error("no onboarding is shown");
  pause(some(1000, 3000));
  change(
      "the person agrees to the camera", [](SoakWorld& world) { world.agreed = true; },
      [&] { press("Return"); });
  constexpr int mostPresses = 20;
  for (int i = 0; i < mostPresses && watch_->windows() > 0; ++i) {
    pause(some(600, 1500));
    press("Tab");  // to what leaves a page that has something to do
    press("space");
  }
  if (watch_->windows() > 0) throw std::runtime_error("the onboarding does not end");
}

void SoakLife::happen() {
  happenOnce();
  if (!program_.isRunning()) {
    throw std::runtime_error("the program has ended with " +
                             std::to_string(program_.waitForExit(milliseconds(0)).value_or(-1)));
  }
  // Now and then for long enough that every limit runs out.
  pause(chance(15) == 0 ? some(9000, 11000) : some(50, 2000));
}

void SoakLife::happenOnce() {
  const SoakWorld& world = watch_->world();
  // Nobody is away, without a camera or without protection for long.
  if (world.isAway() && chance(2) == 0) {
    for (const auto reason : reasons) {
      if (world.*reason) return comeBack(reason);
    }
  }
  if (!world.wished && chance(3) == 0) return toggle();
  const std::size_t camera = chance(3) == 0 ? 1 : 0;
  const unsigned what = chance(42);
  if (what < 4) return changeScene(scene_ == Scene::watched ? Scene::alone : Scene::watched);
  if (what < 6) return changeScene(scene_ == Scene::away ? Scene::alone : Scene::away);
  if (what < 10) {
    const auto reason = reasons.at(chance(4));
    return world.*reason ? comeBack(reason) : goAway(reason);
  }
  if (what == 10) return world.isAway() ? void() : askToLock();
  if (what == 11) return chance(12) == 0 && watch_->state() == "nominal" ? runLow() : void();
  if (what < 15) return plug(camera, !world.cameras.at(camera).there);
  if (what < 17) return give(camera, !world.cameras.at(camera).gives);
  if (what == 17) return restartPipeWire();
  if (what == 18) return restartBus(TestBus::session);
  if (what == 19) return restartBus(TestBus::system);
  if (what < 22) return setMonitors(world.monitors == 1 ? 2 : 1);
  if (what < 25) {
    if (window_ != Window::none) return closeWindow();
    const unsigned which = chance(4);
    const std::array actions{"statistics", "about", "preferences", ""};
    return openWindow(which == 2 ? Window::preferences : Window::popover, actions.at(which));
  }
  if (what == 25) return chooseCamera();
  if (what < 28) return window_ == Window::calibration ? closeWindow() : startCalibration();
  if (what >= 40) return cover();
  if (what >= 30) {
    if (!comesToRest()) return;
    if (what < 34) return pauseForAWhile();
    if (what < 36) return welcomeGuest();
    return what < 38 ? callItNobody() : shareScreen();
  }
  toggle();
}

// The happenings.

void SoakLife::changeScene(Scene scene) {
  constexpr std::array words{"alone, looking", "somebody looks on", "the head is turned away"};
  change(
      words.at(static_cast<std::size_t>(scene)), [](SoakWorld&) {}, [&] { scene_ = scene; });
}

namespace {

void setReason(const MockSession& session, bool SoakWorld::*reason, bool holds) {
  if (reason == &SoakWorld::locked) session.setLockedHint(holds);
  if (reason == &SoakWorld::lockerCovers) session.setLockerActive(holds);
  if (reason == &SoakWorld::asleep) session.prepareForSleep(holds);
  if (reason == &SoakWorld::switchedAway) session.setActive(!holds);
}

std::string wordsFor(bool SoakWorld::*reason) {
  if (reason == &SoakWorld::locked) return "locked";
  if (reason == &SoakWorld::lockerCovers) return "locker";
  return reason == &SoakWorld::asleep ? "sleep" : "another session";
}

}  // namespace

void SoakLife::goAway(Reason reason) {
  change(
      wordsFor(reason) + ": begins",
      [&](SoakWorld& world) {
        world.*reason = true;
        world.calibrating = false;  // it ends, and says so
      },
      [&] { setReason(*session_, reason, true); });
}

void SoakLife::comeBack(Reason reason) {
  change(
      wordsFor(reason) + ": ends", [&](SoakWorld& world) { world.*reason = false; },
      [&] { setReason(*session_, reason, false); });
}

void SoakLife::askToLock() {
  change(
      "asked to lock",
      [](SoakWorld& world) {
        world.lockAsked = true;
        world.calibrating = false;
      },
      [&] { session_->requestLock(true); });
  pause(some(100, 3000));
  change(
      "asked to unlock", [](SoakWorld& world) { world.lockAsked = false; },
      [&] { session_->requestLock(false); });
}

/// The battery is looked at every 30 s while it protects.
void SoakLife::runLow() {
  closeWindow();
  change(
      "the battery is low", [](SoakWorld& world) { world.unclear = true; },
      [&] { session_->setBattery(5, false); });
  if (!wait([&] { return watch_->state() == "autoPaused" && !watch_->cameraIsOpen(); }, seconds(40)))
    breach("the battery is low, and it does not pause");
  pause(some(100, 2000));
  change(
      "the battery is charged", [](SoakWorld&) {}, [&] { session_->setBattery(80, true); });
  if (!wait([&] { return watch_->state() != "autoPaused"; }, seconds(40)))
    breach("the battery is charged, and it stays paused");
  change(
      "the battery is looked at", [](SoakWorld& world) { world.unclear = false; }, [] {});
}

void SoakLife::plug(std::size_t camera, bool there) {
  change(
      std::string(cameraNames.at(camera)) + (there ? " is plugged in" : " is pulled"),
      [&](SoakWorld& world) { world.cameras.at(camera).there = there; },
      [&] {
        there ? cameras_.at(camera)->appear() : cameras_.at(camera)->vanish();
        // A look at the list, so that the next happening does not overtake this one.
        if (there) desktop_.waitForNode(cameraNames.at(camera));
      });
}

void SoakLife::give(std::size_t camera, bool gives) {
  const std::array faults{VirtualCamera::Fault::none, VirtualCamera::Fault::corruptedFlag,
                          VirtualCamera::Fault::zeroLength, VirtualCamera::Fault::shortChunk};
  const auto fault = faults.at(gives ? 0 : chance(4));
  const bool broken = fault != VirtualCamera::Fault::none;
  change(
      std::string(cameraNames.at(camera)) + (gives    ? " gives pictures again"
                                             : broken ? " gives broken frames"
                                                      : " is taken"),
      [&](SoakWorld& world) { world.cameras.at(camera).gives = gives; },
      [&] {
        gives_.at(camera) = gives;
        cameras_.at(camera)->setFault(fault);
        cameras_.at(camera)->setPlaying(gives || broken);
      });
}

void SoakLife::restartPipeWire() {
  const bool crash = chance(2) == 0;
  change(
      crash ? "PipeWire crashes" : "PipeWire stops", [](SoakWorld& world) { world.pipeWire = false; },
      [&] {
        crash ? desktop_.killPipeWire() : desktop_.stopPipeWire();
        for (const auto& camera : cameras_) camera->vanish();
      });
  pause(some(0, 6000));
  change(
      "PipeWire is back", [](SoakWorld& world) { world.pipeWire = true; },
      [&] {
        desktop_.startPipeWire();
        for (std::size_t i = 0; i < cameras_.size(); ++i) {
          if (watch_->world().cameras.at(i).there) cameras_.at(i)->appear();
        }
      });
}

void SoakLife::restartBus(TestBus bus) {
  const bool session = bus == TestBus::session;
  change(
      session ? "the session bus restarts" : "the system bus restarts",
      [](SoakWorld& world) {
        world.sessionBus = false;
        world.unclear = true;
      },
      [&] {
        session_.reset();
        if (session) {
          desktop_.replaceSessionBus();
        } else {
          desktop_.stopSystemBus();
          pause(some(0, 3000));
          desktop_.startSystemBus();
        }
        joinBuses();
        session_->sessionBus().waitForName(busName);
        // What a service that has gone said last is believed for 5 s; the buses are looked for ever more
        // rarely.
        pause(seconds(9));
      });
  change(
      "the bus is back",
      [](SoakWorld& world) {
        world.sessionBus = true;
        world.unclear = world.locked = world.lockerCovers = world.asleep = world.switchedAway = false;
      },
      [&] {
        if (watch_->world().wished && !wait([&] { return session_->sleepDelays() == 1; }))
          breach("it does not listen to the login manager again");
      });
}

void SoakLife::joinBuses() {
  session_.emplace(desktop_);
  notificationServer_ = desktop_.spawn("dunst", {"-conf", "/dev/null"});
  session_->sessionBus().waitForName(notifications);
}

void SoakLife::setMonitors(int count) {
  const std::string size = std::to_string(screenWidth) + "/271x" + std::to_string(screenHeight) + "/169+" +
                           std::to_string(screenWidth) + "+0";
  change(
      count == 1 ? "an output goes" : "an output comes", [&](SoakWorld& world) { world.monitors = count; },
      [&] {
        if (count == 1) {
          desktop_.run("xrandr", {"--delmonitor", "monitor1"});
        } else {
          desktop_.run("xrandr", {"--setmonitor", "monitor1", size, "none"});
        }
      });
}

void SoakLife::openWindow(Window window, const char* action) {
  const std::string name = *action == '\0' ? "popover" : action;
  const auto open = [&] {
    if (*action != '\0') {
      activate(action);
    } else {
      session_->sessionBus().call(busName, objectPath, applicationInterface, QStringLiteral("Activate"),
                                  {QVariantMap()});
    }
    return wait([&] { return watch_->windows() > 0; }, seconds(5));
  };
  change(
      "open: " + name, [](SoakWorld&) {},
      [&] {
        if (open()) return;
        // A popover closes when it loses the focus, which a window manager may still move about.
        parts_.journal.log("open once more: " + name);
        if (!open()) breach("no window opens for " + name);
      });
  window_ = window;
}

void SoakLife::closeWindow() {
  if (window_ == Window::none) return;
  change(
      "the window is closed", [](SoakWorld& world) { world.calibrating = false; },
      [&] {
        // A running calibration, its sheet and the window have one each.
        for (int i = 0; i < 8 && watch_->windows() > 0; ++i) {
          press("Escape");
          (void)wait([&] { return watch_->windows() == 0; }, milliseconds(500));
        }
        if (watch_->windows() > 0) breach("a window cannot be closed");
      });
  window_ = Window::none;
}

void SoakLife::chooseCamera() {
  closeWindow();
  openWindow(Window::preferences, "preferences");
  pause(milliseconds(300));
  change(
      "another camera is chosen", [](SoakWorld&) {},
      [&] {
        press(chance(2) == 0 ? "Down" : "Up");  // the list has the focus
      });
  pause(some(0, 2000));
  closeWindow();
}

void SoakLife::startCalibration() {
  closeWindow();
  openWindow(Window::preferences, "preferences");
  pause(milliseconds(300));
  change(
      "a calibration starts", [](SoakWorld& world) { world.calibrating = !world.isAway(); },
      [&] {
        press("shift+Tab");
        press("Return");
        pause(milliseconds(400));
        press("Return");
      });
  window_ = Window::calibration;
  if (chance(3) != 0) return;
  pause(seconds(7));
  change(
      "the calibration is accepted", [](SoakWorld& world) { world.calibrating = false; },
      [&] { press("Return"); });
}

void SoakLife::toggle() {
  const SoakWorld& now = watch_->world();
  const bool on = !now.wished;
  // Nobody switches it off from outside while the session may be locked.
  if (!on && (now.isAway() || now.unclear)) return;
  change(
      on ? "protection is switched on" : "protection is switched off",
      [&](SoakWorld& world) { world.wished = on; }, [&] { activate("toggle"); });
}

// What the person allows for a while. Each waits for its end, so that what must follow is known.

bool SoakLife::comesToRest() {
  // It may say so for a moment before it is known that no camera gives pictures.
  if (!watch_->mustProtect()) return false;
  closeWindow();
  if (scene_ != Scene::alone) changeScene(Scene::alone);
  return wait([this] { return watch_->state() == "nominal"; }, seconds(5));
}

void SoakLife::pauseForAWhile() {
  const milliseconds length = some(1500, 8000);
  change(
      "a pause", [](SoakWorld& world) { world.paused = true; },
      [&] { command("Pause", {static_cast<qlonglong>(length.count())}); });
  const unsigned end = chance(3);
  if (end == 0) {
    pause(length / 3);
    goAway(reasons.at(0));
    pause(some(100, 4000));
    change(
        "locked: ends, and the pause", [](SoakWorld& world) { world.locked = world.paused = false; },
        [&] { session_->setLockedHint(false); });
  } else if (end == 1) {
    pause(length / 2);
    change(
        "no pause", [](SoakWorld& world) { world.paused = false; }, [&] { command("Resume"); });
  } else {
    pause(length - milliseconds(500));
    change(
        "the pause is about to end", [](SoakWorld& world) { world.unclear = true; }, [] {});
    pause(seconds(1));
    change(
        "the pause has ended", [](SoakWorld& world) { world.unclear = world.paused = false; }, [] {});
  }
  reach("nominal");
  if (number("PauseEnd") != 0) breach("a pause has ended, and it says that it has not");
}

void SoakLife::welcomeGuest() {
  constexpr qlonglong lengthMs = 6000;
  const int alerts = watch_->alerts();
  change(
      "a guest", [](SoakWorld&) {},
      [&] {
        command("Welcome", {1LL, lengthMs});
      });
  changeScene(Scene::watched);
  pause(milliseconds(lengthMs - 2000));
  if (number("Guests") == 1 && watch_->alerts() != alerts) breach("a guest was an onlooker");
  reach("alert");
  if (number("Guests") != 0) breach("a guest is still welcome");
  changeScene(Scene::alone);
}

void SoakLife::callItNobody() {
  changeScene(Scene::watched);
  reach("alert");
  openWindow(Window::popover, "");
  change(
      "it is nobody", [](SoakWorld&) {},
      [&] {
        pause(milliseconds(500));
        for (int i = 0; i < 4; ++i) press("Tab");  // the switch, three rows
        press("space");
        if (!wait([&] { return number("IgnoredFaces") == 1; }, seconds(5))) breach("it is somebody");
      });
  closeWindow();
  reach("nominal");
  if (number("IgnoredFaces") != 1) breach("it has forgotten who is nobody");
  changeScene(Scene::alone);
  if (chance(2) == 0) return;
  lock(true);
  pause(some(600, 3000));
  if (number("IgnoredFaces") != 0) breach("a face is nobody while it is locked");
  lock(false);
}

void SoakLife::shareScreen() {
  std::optional<SharedScreen> screen;
  change(
      "the screen is shared", [](SoakWorld& world) { world.shared = true; },
      [&] {
        screen.emplace(desktop_);
        if (!wait([&] { return number("IsScreenShared") == 1; }))
          breach("it does not see who sees the screen");
      });
  pause(some(500, 5000));
  if (chance(2) == 0) lookOn();
  change(
      "the screen is not shared any more", [](SoakWorld& world) { world.shared = false; },
      [&] {
        screen.reset();
        if (!wait([&] { return number("IsScreenShared") == 0; }))
          breach("it sees who does not see the screen");
      });
}

void SoakLife::cover() {
  const SoakWorld& now = watch_->world();
  if (now.isAway() || now.unclear) return;
  const bool covers = !now.covered;
  change(
      covers ? "every screen is covered" : "every screen is uncovered",
      [&](SoakWorld& world) { world.covered = covers; }, [&] { command("Cover"); });
}

void SoakLife::calmDown() {
  closeWindow();
  if (scene_ != Scene::alone) changeScene(Scene::alone);
  for (const auto reason : reasons) {
    if (watch_->world().*reason) comeBack(reason);
  }
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    const auto& camera = watch_->world().cameras.at(i);
    if (!camera.gives) give(i, true);
    if (camera.there != (i == 0)) plug(i, i == 0);
  }
  if (watch_->world().monitors != 1) setMonitors(1);
  if (watch_->world().covered) cover();
  if (!watch_->world().wished) toggle();
}

void SoakLife::glance() {
  openWindow(Window::popover, "about");
  pause(milliseconds(500));
  closeWindow();
}

void SoakLife::lookOn() {
  changeScene(Scene::watched);
  reach("alert");
  changeScene(Scene::alone);
}

void SoakLife::reach(const std::string& state) {
  if (!wait([&] { return watch_->state() == state; }))
    breach("it does not come to " + state + ", and says " + watch_->state());
}

void SoakLife::quit() {
  change(
      "the program is asked to quit", [](SoakWorld& world) { world.started = false; },
      [&] { activate("quit"); });
  if (!waitUntil([&] { return !program_.isRunning(); })) parts_.journal.breach("it does not quit");
  if (!waitUntil([&] { return !watch_->cameraIsOpen(); }))
    parts_.journal.breach("it has quit, and a camera is open");
}

// Words and time.

void SoakLife::change(const std::string& words, const Edit& edit, const std::function<void()>& action) {
  parts_.journal.happening(words);
  watch_->change(edit, action);
}

void SoakLife::breach(const std::string& words) {
  if (!parts_.interrupted) parts_.journal.breach(words);
}

void SoakLife::activate(const char* action) const {
  session_->sessionBus().call(busName, objectPath, applicationInterface, QStringLiteral("ActivateAction"),
                              {QString::fromLatin1(action), QVariantList(), QVariantMap()});
}

void SoakLife::command(const char* method, const QVariantList& arguments) {
  const auto isDone = [&] {
    try {
      session_->sessionBus().call(busName, objectPath, ownInterface, QString::fromLatin1(method), arguments);
      return true;
    } catch (const std::exception&) {
      return false;  // it may not have heard yet that the session is not locked any more
    }
  };
  if (!wait(isDone, seconds(3))) breach(std::string("it refuses ") + method);
}

qlonglong SoakLife::number(const char* property) const {
  const QDBusMessage reply =
      session_->sessionBus().call(busName, objectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                  QStringLiteral("Get"), {ownInterface, QString::fromLatin1(property)});
  return reply.arguments().constFirst().value<QDBusVariant>().variant().toLongLong();
}

void SoakLife::press(const std::string& key) {
  desktop_.run("xdotool", {"key", "--clearmodifiers", key});
}

void SoakLife::pause(milliseconds length) const {
  (void)wait([] { return false; }, length);
}

bool SoakLife::wait(const std::function<bool()>& condition, milliseconds limit) const {
  const auto end = SteadyClock::now() + limit;
  while (!condition()) {
    if (SteadyClock::now() >= end || parts_.interrupted) return false;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return true;
}

}  // namespace sentrel::test
