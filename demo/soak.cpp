// SPDX-License-Identifier: Apache-2.0
#include "soak.h"

#include <QVariantMap>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include "stage/portrait_scene.h"
#include "stage/wait_until.h"

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr int happeningsBetweenRests = 24;
constexpr std::size_t happeningsTold = 12;
constexpr int mostBreaches = 20;
constexpr double mostGrowthMib = 1;
constexpr std::array cameraNames{"near_camera", "desk_camera"};

const auto busName = QStringLiteral("expert.mardeck.sentrel");
const auto objectPath = QStringLiteral("/expert/mardeck/sentrel");
const auto applicationInterface = QStringLiteral("org.freedesktop.Application");

std::string kinds(const ProcessUsage& before, const ProcessUsage& after) {
  std::string words;
  std::map<std::string, int> changes = after.descriptors;
  for (const auto& [kind, count] : before.descriptors) changes[kind] -= count;
  for (const auto& [kind, change] : changes) {
    if (change != 0) words += " " + kind + (change > 0 ? "+" : "") + std::to_string(change);
  }
  return words;
}

std::string asMib(double mib) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f MiB", mib);
  return text.data();
}

}  // namespace

Soak::Soak(HeadlessDesktop& desktop, Options options)
    : desktop_(desktop), options_(std::move(options)), random_(options_.seed), log_(nullptr, &std::fclose) {
  fs::remove_all(options_.folder);
  fs::create_directories(options_.folder);
  log_.reset(std::fopen((options_.folder / "soak.log").c_str(), "we"));
  if (!log_) throw std::runtime_error("cannot write " + (options_.folder / "soak.log").string());
  const PortraitScene portrait;
  for (const SceneState& state : {SceneState{}, SceneState{.secondFace = SecondFace{}}, SceneState{50, {}}})
    scenes_.push_back(portrait.frame(state).convertToFormat(QImage::Format_RGB32));
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    cameras_[i] = std::make_unique<VirtualCamera>(
        VirtualCamera::Options{.name = cameraNames[i], .description = cameraNames[i], .fps = 15});
    cameras_[i]->setSource([this, i](std::int64_t) {
      if (watch_ && gives_[i]) watch_->frameGiven();
      return scenes_[static_cast<std::size_t>(scene_.load())].constBits();
    });
  }
}

int Soak::run() {
  say("seed " + std::to_string(options_.seed) + ", " + std::to_string(options_.length.count()) +
      " minutes; the log is " + (options_.folder / "soak.log").string());
  try {
    begin();
    live();
    end();
  } catch (const std::exception& error) {
    breach(error.what());
  }
  summarize();
  std::ofstream(options_.folder / "program.log") << program_.output();
  std::error_code none;
  fs::copy_file(desktop_.configFolder() / "sentrel" / "defaults.json", options_.folder / "defaults.json",
                none);
  return breaches_ == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

void Soak::begin() {
  setMonitors(1);
  session_.emplace(desktop_);
  notificationServer_ = desktop_.spawn("dunst", {"-conf", "/dev/null"});
  session_->sessionBus().waitForName(QStringLiteral("org.freedesktop.Notifications"));
  watch_ = std::make_unique<SoakWatch>(
      SoakWatch::Parts{.desktop = desktop_,
                       .cameras = {cameras_[0].get(), cameras_[1].get()},
                       .monitorWidth = screenWidth,
                       .monitorHeight = screenHeight,
                       .breach = [this](const std::string& words) { breach(words); }});
  plug(0, true);
  program_ = desktop_.spawn(options_.program);
  session_->sessionBus().waitForName(busName);
  change(
      "the program starts", [](SoakWorld& world) { world.started = world.wished = true; }, [] {});
  passOnboarding();
  if (!wait([this] { return watch_->state() == "nominal" && session_->sleepDelays() == 1; }))
    throw std::runtime_error("the program does not protect");
}

/// Nothing may open the camera before its first page was answered.
void Soak::passOnboarding() {
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

bool Soak::goesOn() const {
  return !*options_.interrupted && SteadyClock::now() - began_ < options_.length && breaches_ < mostBreaches;
}

void Soak::live() {
  // Every window once, so that what is made once exists.
  for (const char* action : {"statistics", "about", "preferences"}) {
    openWindow(Window::popover, action);
    pause(seconds(1));
    closeWindow();
  }
  // Qt's own connection to the session bus ends with the first one.
  restartBus(TestBus::session);
  while (goesOn()) {
    for (int i = 0; i < happeningsBetweenRests && goesOn(); ++i) {
      happen();
      ++happenings_;
      if (!program_.isRunning()) throw std::runtime_error("the program has ended");
      pause(some(50, 2500));
    }
    rest();
  }
}

void Soak::happen() {
  const SoakWorld& world = watch_->world();
  const std::array<bool SoakWorld::*, 4> reasons{&SoakWorld::locked, &SoakWorld::lockerCovers,
                                                 &SoakWorld::asleep, &SoakWorld::switchedAway};
  // Nobody is away, without a camera or without protection for long.
  if (world.isAway() && chance(2) == 0) {
    for (const auto reason : reasons) {
      if (world.*reason) return comeBack(reason);
    }
  }
  if (!world.wished && chance(3) == 0) return toggle();
  const std::size_t camera = chance(3) == 0 ? 1 : 0;
  switch (chance(30)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return changeScene(scene_ == Scene::watched ? Scene::alone : Scene::watched);
    case 4:
    case 5:
      return changeScene(scene_ == Scene::away ? Scene::alone : Scene::away);
    case 6:
    case 7:
    case 8:
    case 9: {
      const auto reason = reasons.at(chance(4));
      return world.*reason ? comeBack(reason) : goAway(reason);
    }
    case 10:
      if (!world.isAway()) askToLock();
      return;
    case 11:
      if (chance(12) == 0 && !world.isAway() && world.wished) runLow();
      return;
    case 12:
    case 13:
    case 14:
      return plug(camera, !world.cameras.at(camera).there);
    case 15:
    case 16:
      return give(camera, !world.cameras.at(camera).gives);
    case 17:
      return restartPipeWire();
    case 18:
      return restartBus(TestBus::session);
    case 19:
      return restartBus(TestBus::system);
    case 20:
    case 21:
      return setMonitors(world.monitors == 1 ? 2 : 1);
    case 22:
    case 23:
    case 24: {
      if (window_ != Window::none) return closeWindow();
      const unsigned which = chance(4);
      const std::array actions{"statistics", "about", "preferences", ""};
      return openWindow(which == 2 ? Window::preferences : Window::popover, actions.at(which));
    }
    case 25:
      return chooseCamera();
    case 26:
    case 27:
      return window_ == Window::calibration ? closeWindow() : startCalibration();
    default:
      return toggle();
  }
}

// The happenings.

void Soak::changeScene(Scene scene) {
  constexpr std::array words{"alone, looking", "somebody looks on", "the head is turned away"};
  change(
      words.at(static_cast<std::size_t>(scene)), [](SoakWorld&) {}, [&] { scene_ = scene; });
}

namespace {

void setReason(const PlayedSession& session, bool SoakWorld::*reason, bool holds) {
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

void Soak::goAway(bool SoakWorld::*reason) {
  change(
      wordsFor(reason) + ": begins",
      [&](SoakWorld& world) {
        world.*reason = true;
        world.calibrating = false;  // it ends, and says so
      },
      [&] { setReason(*session_, reason, true); });
}

void Soak::comeBack(bool SoakWorld::*reason) {
  change(
      wordsFor(reason) + ": ends", [&](SoakWorld& world) { world.*reason = false; },
      [&] { setReason(*session_, reason, false); });
}

void Soak::askToLock() {
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

/// The battery is looked at every 30 s.
void Soak::runLow() {
  closeWindow();
  change(
      "the battery is low", [](SoakWorld& world) { world.unclear = true; },
      [&] { session_->setBattery(5, false); });
  if (!wait([&] { return watch_->state() == "autoPaused" && !watch_->cameraIsOpen(); }, seconds(40)) &&
      goesOn())
    breach("the battery is low, and it does not pause");
  pause(some(100, 2000));
  change(
      "the battery is charged", [](SoakWorld&) {}, [&] { session_->setBattery(80, true); });
  if (!wait([&] { return watch_->state() != "autoPaused"; }, seconds(40)) && goesOn())
    breach("the battery is charged, and it stays paused");
  change(
      "the battery is looked at", [](SoakWorld& world) { world.unclear = false; }, [] {});
}

void Soak::plug(std::size_t camera, bool there) {
  change(
      std::string(cameraNames.at(camera)) + (there ? " is plugged in" : " is pulled"),
      [&](SoakWorld& world) { world.cameras.at(camera).there = there; },
      [&] {
        there ? cameras_.at(camera)->appear() : cameras_.at(camera)->vanish();
        // A look at the list, so that the next happening does not overtake this one.
        if (there) desktop_.waitForNode(cameraNames.at(camera));
      });
}

void Soak::give(std::size_t camera, bool gives) {
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

void Soak::restartPipeWire() {
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

void Soak::restartBus(TestBus bus) {
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
        session_.emplace(desktop_);
        if (session) {
          notificationServer_ = desktop_.spawn("dunst", {"-conf", "/dev/null"});
          session_->sessionBus().waitForName(QStringLiteral("org.freedesktop.Notifications"));
        }
        session_->sessionBus().waitForName(busName);
        // The word of a witness that has gone is believed for 5 s; the buses are looked for ever more rarely.
        pause(seconds(9));
      });
  change(
      "the bus is back",
      [](SoakWorld& world) {
        world.sessionBus = true;
        world.unclear = world.locked = world.lockerCovers = world.asleep = world.switchedAway = false;
      },
      [&] {
        if (watch_->world().wished && !wait([&] { return session_->sleepDelays() == 1; }) && goesOn())
          breach("it does not listen to the login manager again");
      });
}

void Soak::setMonitors(int count) {
  const auto run = [&] {
    const auto size = [](int place) {
      return std::to_string(screenWidth) + "/271x" + std::to_string(screenHeight) + "/169+" +
             std::to_string(place * screenWidth) + "+0";
    };
    if (!watch_) {
      desktop_.run("xrandr", {"--setmonitor", "monitor0", size(0), "screen"});
    } else if (count == 2) {
      desktop_.run("xrandr", {"--setmonitor", "monitor1", size(1), "none"});
    } else {
      desktop_.run("xrandr", {"--delmonitor", "monitor1"});
    }
  };
  if (!watch_) return run();
  change(
      count == 1 ? "an output goes" : "an output comes", [&](SoakWorld& world) { world.monitors = count; },
      run);
}

void Soak::openWindow(Window window, const char* action) {
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
        log("open once more: " + name);
        if (!open() && goesOn()) breach("no window opens for " + name);
      });
  window_ = window;
}

void Soak::closeWindow() {
  if (window_ == Window::none) return;
  change(
      "the window is closed", [](SoakWorld& world) { world.calibrating = false; },
      [&] {
        // A running calibration, its sheet and the window have one each.
        for (int i = 0; i < 8 && watch_->windows() > 0; ++i) {
          press("Escape");
          (void)wait([&] { return watch_->windows() == 0; }, milliseconds(500));
        }
        if (watch_->windows() > 0 && goesOn()) breach("a window cannot be closed");
      });
  window_ = Window::none;
}

void Soak::chooseCamera() {
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

void Soak::startCalibration() {
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

void Soak::toggle() {
  const bool on = !watch_->world().wished;
  change(
      on ? "protection is switched on" : "protection is switched off",
      [&](SoakWorld& world) { world.wished = on; }, [&] { activate("toggle"); });
}

// The rests.

void Soak::rest() {
  closeWindow();
  if (scene_ != Scene::alone) changeScene(Scene::alone);
  for (const auto reason :
       {&SoakWorld::locked, &SoakWorld::lockerCovers, &SoakWorld::asleep, &SoakWorld::switchedAway}) {
    if (watch_->world().*reason) comeBack(reason);
  }
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    const auto& camera = watch_->world().cameras.at(i);
    if (!camera.gives) give(i, true);
    if (camera.there != (i == 0)) plug(i, i == 0);
  }
  if (watch_->world().monitors != 1) setMonitors(1);
  if (!watch_->world().wished) toggle();
  reach("nominal");
  // In this order, so that the camera is newly open for the second.
  goAway(&SoakWorld::locked);
  restIn("autoPaused");
  comeBack(&SoakWorld::locked);
  restIn("nominal");
}

/// Once nothing comes and goes any more: PipeWire suspends a camera 5 s after it was closed.
ProcessUsage Soak::settledUsage() const {
  ProcessUsage last = ProcessUsage::of(program_.pid());
  auto since = SteadyClock::now();
  (void)wait([&] {
    ProcessUsage now = ProcessUsage::of(program_.pid());
    if (now.descriptors != last.descriptors || now.threads != last.threads) since = SteadyClock::now();
    last = std::move(now);
    return SteadyClock::now() - since > seconds(6);
  });
  return last;
}

void Soak::reach(const std::string& state) {
  if (!wait([&] { return watch_->state() == state; }) && goesOn())
    breach("it does not come to rest in " + state + ", and says " + watch_->state());
}

void Soak::restIn(const std::string& state) {
  reach(state);
  const ProcessUsage usage = settledUsage();
  if (!goesOn()) return;
  say("at rest, " + state + ": PSS " + asMib(usage.proportionalMib) + " (its own " + asMib(usage.ownMib) +
      "), " + std::to_string(usage.descriptorCount()) + " descriptors, " + std::to_string(usage.threads) +
      " threads; " + std::to_string(happenings_) + " happenings, " + std::to_string(watch_->alerts()) +
      " alerts, " + std::to_string(breaches_.load()) + " breaches");
  if ((SteadyClock::now() - began_) * 10 < options_.length) return;
  auto& rests = rests_[state];
  if (!rests.empty()) {
    const ProcessUsage& first = rests.front();
    if (usage.descriptors != first.descriptors)
      breach("at rest (" + state + ") it holds other descriptors than before:" + kinds(first, usage));
    if (usage.threads != first.threads)
      breach("at rest (" + state + ") it has " + std::to_string(usage.threads) + " threads, before " +
             std::to_string(first.threads));
  }
  rests.push_back(usage);
}

// The end.

void Soak::end() {
  change(
      "the program is asked to quit", [](SoakWorld& world) { world.started = false; },
      [&] { activate("quit"); });
  if (!waitUntil([&] { return !program_.isRunning(); })) breach("the program does not quit");
  if (!waitUntil([&] { return !watch_->cameraIsOpen(); })) breach("it has quit, and a camera is open");
  compareHours();
}

/// A start that failed counts no time of protection.
void Soak::compareHours() {
  std::ifstream file(desktop_.configFolder() / "sentrel" / "defaults.json");
  const std::string kept{std::istreambuf_iterator<char>(file), {}};
  const std::string key = "\"stats_total_active_seconds\": ";
  const auto at = kept.find(key);
  const double counted = at == std::string::npos ? 0 : std::atof(kept.c_str() + at + key.size());
  const double seen = watch_->activeFor().count();
  const std::string words = "it has counted " + std::to_string(static_cast<int>(counted)) +
                            " s of protection, and " + std::to_string(static_cast<int>(seen)) + " s in " +
                            std::to_string(watch_->sessions()) + " sessions were seen";
  // Each session counts in whole seconds, and is seen with a delay.
  std::abs(counted - seen) > 5 + 1.5 * watch_->sessions() ? breach(words) : say(words);
}

void Soak::summarize() {
  if (!watch_) return;
  for (const auto& [state, rests] : rests_) {
    if (rests.size() < 3) continue;
    // One rest is higher than another by a frame or two, as it happens; what is never given back stays.
    const auto least = [](auto begin, auto end) {
      return std::ranges::min_element(begin, end, {}, &ProcessUsage::ownMib)->ownMib;
    };
    const auto part = std::ssize(rests) / 3 + 1;
    const double first = least(rests.begin(), rests.begin() + part);
    const double last = least(rests.end() - part, rests.end());
    const std::string words = "after the first tenth, " + state + ": its own memory from " + asMib(first) +
                              " to " + asMib(last) + " in " + std::to_string(rests.size()) + " rests";
    last - first > mostGrowthMib ? breach("it grows: " + words) : say(words);
  }
  const auto longest = watch_->longest();
  std::array<char, 256> figures{};
  std::snprintf(
      figures.data(), figures.size(),
      "at most: camera closed after %.0f ms, protecting again after %.0f ms, without a frame %.0f ms, "
      "silent for %.0f ms",
      longest.closingMs, longest.protectingMs, longest.blindMs, longest.answerMs);
  say(figures.data());
  say(std::to_string(happenings_) + " happenings, " + std::to_string(watch_->alerts()) + " alerts, " +
      std::to_string(breaches_.load()) + " breaches");
  if (breaches_ == 0) return;
  say("once more: scripts/soak " + std::to_string(options_.length.count()) + " " +
      std::to_string(options_.seed) + "; the log is " + (options_.folder / "soak.log").string() +
      ", what the program printed is in program.log beside it");
}

// Words and time.

void Soak::change(const std::string& words, const Edit& edit, const std::function<void()>& action) {
  {
    const std::scoped_lock lock(mutex_);
    last_.push_back(time() + " " + words);
    if (last_.size() > happeningsTold) last_.pop_front();
  }
  log(words);
  watch_->change(edit, action);
}

void Soak::activate(const char* action) const {
  session_->sessionBus().call(busName, objectPath, applicationInterface, QStringLiteral("ActivateAction"),
                              {QString::fromLatin1(action), QVariantList(), QVariantMap()});
}

void Soak::press(const std::string& key) {
  desktop_.run("xdotool", {"key", "--clearmodifiers", key});
}

void Soak::pause(milliseconds length) const {
  (void)wait([] { return false; }, length);
}

bool Soak::wait(const std::function<bool()>& condition, milliseconds limit) const {
  const auto end = SteadyClock::now() + limit;
  while (!condition()) {
    if (SteadyClock::now() >= end || *options_.interrupted) return false;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return true;
}

std::string Soak::time() const {
  const double passed = std::chrono::duration<double>(SteadyClock::now() - began_).count();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%3d:%06.3f", static_cast<int>(passed / 60),
                passed - 60 * static_cast<int>(passed / 60));
  return text.data();
}

void Soak::log(const std::string& words) {
  const std::scoped_lock lock(mutex_);
  std::fprintf(log_.get(), "%s  %s\n", time().c_str(), words.c_str());
  std::fflush(log_.get());
}

void Soak::say(const std::string& words) {
  log(words);
  std::printf("%s  %s\n", time().substr(0, 6).c_str(), words.c_str());
}

void Soak::breach(const std::string& words) {
  ++breaches_;
  std::string told = "BREACH: " + words + "\n  seed " + std::to_string(options_.seed) + "; before it:";
  {
    const std::scoped_lock lock(mutex_);
    for (const std::string& happening : last_) told += "\n  " + happening;
  }
  say(told);
}

}  // namespace sentrel::test
