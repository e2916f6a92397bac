// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_session_events.h"

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/desktop/locker_programs.h"
#include "linux/desktop/standard_error.h"
#include "linux/display/display_power.h"
#include "platform/session_event_order.h"

namespace sentrel {

namespace {

using Source = SessionEventOrder::Source;

/// A bus that does not answer must not hold up protection.
constexpr std::int64_t knownLimitMs = 500;

constexpr auto managerPath = "/org/freedesktop/login1";
constexpr auto sessionInterface = "org.freedesktop.login1.Session";

BusMember ofManager(const char* member) {
  return {managerPath, "org.freedesktop.login1.Manager", member};
}

/// The login manager about the session of this process: locked, active, asked to lock; and about the sleep of
/// the machine, which it delays until told to go on.
class LogindSession final : private BusService {
 public:
  LogindSession(std::shared_ptr<Bus> systemBus, SessionEventOrder& order)
      : BusService(std::move(systemBus), "org.freedesktop.login1"), order_(order) {}

  /// Lets the sleep that is being prepared go on.
  void allowSleep() {
    if (preparing_) sleepDelay_.reset();
  }

 private:
  void appeared() override;
  void gone() override;
  void absent() override { order_.silent(Source::lockedHint); }
  void askByEnvironment();
  void askByUser();
  void sessionFound(const std::string& path);
  void sleepIsPrepared(bool begins);
  void delaySleep();
  /// Asks for the session and takes the answer, or goes on with `otherwise`.
  template <class... Values>
  void askForSession(const char* method, void (LogindSession::*otherwise)(), const char* types,
                     Values... values) {
    const auto answered = [this, otherwise](const BusMessage& reply) {
      if (const std::string path = reply.objectPath(); !path.empty()) {
        sessionFound(path);
      } else {
        (this->*otherwise)();
      }
    };
    call(ofManager(method), {answered}, types, values...);
  }

  SessionEventOrder& order_;
  BusDescriptor sleepDelay_;  // sleep waits while this is open
  bool preparing_ = false;
  std::vector<Registration> listening_;
};

void LogindSession::appeared() {
  listening_.push_back(listen(ofManager("PrepareForSleep"), [this](const BusMessage& signal) {
    if (const auto begins = signal.only<bool>()) sleepIsPrepared(*begins);
  }));
  const auto preparing = [this](const BusMessage& reply) {
    if (reply.isError) return;
    preparing_ = reply.only<bool>().value_or(false);
    order_.found(Source::systemSleep, preparing_);
  };
  call({managerPath, "org.freedesktop.DBus.Properties", "Get"}, {preparing}, "ss",
       "org.freedesktop.login1.Manager", "PreparingForSleep");
  delaySleep();
  askForSession("GetSessionByPID", &LogindSession::askByEnvironment, "u", static_cast<unsigned>(getpid()));
}

void LogindSession::gone() {
  listening_.clear();
  sleepDelay_.reset();
  preparing_ = false;
  for (const Source source : {Source::lockedHint, Source::sessionInactive, Source::systemSleep})
    order_.lost(source);
}

void LogindSession::askByEnvironment() {
  const QByteArray id = qgetenv("XDG_SESSION_ID");
  if (id.isEmpty()) {
    askByUser();
  } else {
    askForSession("GetSession", &LogindSession::askByUser, "s", id.constData());
  }
}

/// A program that the user's service manager started belongs to no session; the person's graphical one is
/// meant.
void LogindSession::askByUser() {
  const auto displayed = [this](const BusMessage& reply) {
    // The identifier and the object path of the session.
    const QVariantList session = reply.only<QVariantList>().value_or(QVariantList());
    if (session.value(0).toString().isEmpty()) {
      order_.silent(Source::lockedHint);
    } else {
      sessionFound(session.value(1).toString().toStdString());
    }
  };
  const auto found = [this, displayed](const BusMessage& reply) {
    if (const std::string user = reply.objectPath(); !user.empty()) {
      call({user, "org.freedesktop.DBus.Properties", "Get"}, {displayed}, "ss", "org.freedesktop.login1.User",
           "Display");
    } else {
      order_.silent(Source::lockedHint);
    }
  };
  call(ofManager("GetUser"), {found}, "u", static_cast<unsigned>(getuid()));
}

void LogindSession::sessionFound(const std::string& path) {
  listening_.push_back(
      listen({path, sessionInterface, "Lock"}, [this](const BusMessage&) { order_.lockRequested(); }));
  listening_.push_back(
      listen({path, sessionInterface, "Unlock"}, [this](const BusMessage&) { order_.unlockRequested(); }));
  const auto told = [this](const QVariantMap& properties, bool changed) {
    const auto tell = [&](Source source, bool absent) {
      changed ? order_.changed(source, absent) : order_.found(source, absent);
    };
    if (const auto locked = valueOf<bool>(properties, "LockedHint")) tell(Source::lockedHint, *locked);
    if (const auto active = valueOf<bool>(properties, "Active")) tell(Source::sessionInactive, !*active);
    if (!changed) order_.silent(Source::lockedHint);  // that was all
  };
  listening_.push_back(followProperties(path, sessionInterface, told));
}

void LogindSession::sleepIsPrepared(bool begins) {
  preparing_ = begins;
  order_.changed(Source::systemSleep, begins);
  if (!begins) delaySleep();
}

void LogindSession::delaySleep() {
  if (sleepDelay_) return;
  const auto delayed = [this](const BusMessage& reply) {
    sleepDelay_ = reply.only<BusDescriptor>().value_or(nullptr);
  };
  call(ofManager("Inhibit"), {delayed}, "ssss", "sleep", "Sentrel", "The camera is being closed", "delay");
}

/// A screen locker that tells when it covers the screen.
class ScreenLocker final : private BusService {
 public:
  /// `name` is that of the service and of its interface; `paths` are where its object may be, likeliest
  /// first.
  ScreenLocker(std::shared_ptr<Bus> sessionBus, const std::string& name, std::vector<std::string> paths,
               Source source, SessionEventOrder& order)
      : BusService(std::move(sessionBus), name),
        name_(name),
        paths_(std::move(paths)),
        source_(source),
        order_(order) {}

 private:
  void appeared() override {
    listening_ = listen({"", name_, "ActiveChanged"}, [this](const BusMessage& signal) {
      if (const auto active = signal.only<bool>()) order_.changed(source_, *active);
    });
    ask(0);
  }
  void gone() override { order_.lost(source_); }
  void absent() override { order_.silent(source_); }

  void ask(std::size_t path) {
    if (path == paths_.size()) {
      order_.silent(source_);
      return;
    }
    const auto answered = [this, path](const BusMessage& reply) {
      if (const auto active = reply.only<bool>()) {
        order_.found(source_, *active);
      } else {
        ask(path + 1);
      }
    };
    call({paths_[path], name_, "GetActive"}, {answered}, "");
  }

  const std::string name_;
  const std::vector<std::string> paths_;
  const Source source_;
  SessionEventOrder& order_;
  Registration listening_;
};

/// GNOME's compositor about the power of its displays.
class MutterDisplays final : private BusService {
 public:
  MutterDisplays(std::shared_ptr<Bus> sessionBus, SessionEventOrder& order)
      : BusService(std::move(sessionBus), interface), order_(order) {}

 private:
  static constexpr auto interface = "org.gnome.Mutter.DisplayConfig";

  void gone() override { order_.lost(Source::gnomeDisplays); }
  void appeared() override {
    const auto told = [this](const QVariantMap& properties, bool changed) {
      // -1: not known; 0: on; 1, 2, 3: standby, suspended, off.
      const auto mode = valueOf<int>(properties, "PowerSaveMode");
      if (!mode || *mode < -1 || *mode > 3) return;
      changed ? order_.changed(Source::gnomeDisplays, *mode > 0)
              : order_.found(Source::gnomeDisplays, *mode > 0);
    };
    following_ = followProperties("/org/gnome/Mutter/DisplayConfig", interface, told);
  }

  SessionEventOrder& order_;
  Registration following_;
};

/// What is news of what a display server tells on its own thread goes to the order of events on the main
/// thread.
DisplayPowerObserver observerOn(const std::shared_ptr<MainLoop>& mainLoop,
                                const std::weak_ptr<SessionEventOrder>& order, Source source) {
  return [=, known = std::optional<bool>()](std::optional<bool> off) mutable {
    const auto before = std::exchange(known, off);
    if (before == off) return;
    mainLoop->post([=] {
      const auto live = order.lock();
      if (!live) return;
      if (!off) return live->lost(source);
      before ? live->changed(source, *off) : live->found(source, *off);
    });
  };
}

}  // namespace

/// Everybody on this thread who knows whether the person is there.
struct DesktopSessionEvents::Sources {
  Sources(const Parts& parts, SessionEventOrder& order)
      : logind(parts.systemBus, order),
        freedesktop(parts.sessionBus, "org.freedesktop.ScreenSaver",
                    {"/org/freedesktop/ScreenSaver", "/ScreenSaver"}, Source::freedesktopScreenSaver, order),
        gnome(parts.sessionBus, "org.gnome.ScreenSaver", {"/org/gnome/ScreenSaver"}, Source::gnomeScreenSaver,
              order),
        xfce(parts.sessionBus, "org.xfce.ScreenSaver", {"/org/xfce/ScreenSaver"}, Source::xfceScreenSaver,
             order),
        mate(parts.sessionBus, "org.mate.ScreenSaver", {"/org/mate/ScreenSaver", "/"},
             Source::mateScreenSaver, order),
        mutter(parts.sessionBus, order),
        programs(parts.mainLoop, [&order](bool runs, bool isFirst) {
          isFirst ? order.found(Source::lockerProgram, runs) : order.changed(Source::lockerProgram, runs);
        }) {}

  LogindSession logind;
  ScreenLocker freedesktop;
  ScreenLocker gnome;
  ScreenLocker xfce;
  ScreenLocker mate;
  MutterDisplays mutter;
  LockerPrograms programs;
};

DesktopSessionEvents::DesktopSessionEvents(Parts parts) : parts_(std::move(parts)) {}

DesktopSessionEvents::~DesktopSessionEvents() = default;

Registration DesktopSessionEvents::install(Observer observer) {
  observer_ = std::make_shared<const Observer>(std::move(observer));
  if (!known_) knownTimer_.reset();  // it was to tell who waited with the observer before
  if (!order_) {
    begin();
  } else {
    updatePolling();
    repeat_ = parts_.mainLoop->after(0, [this] { order_->repeatForNewObserver(); });
  }
  return Registration([this, weak = std::weak_ptr(observer_)] {
    if (!weak.expired()) observerEnded();
  });
}

/// Who wants to know of the lock alone.
struct DesktopSessionEvents::LockFollower {
  std::function<void(bool locked)> tell;
  std::optional<bool> told;
  Registration firstTime;
};

Registration DesktopSessionEvents::followLock(std::function<void(bool locked)> follower) {
  const auto entry = std::make_shared<LockFollower>();
  entry->tell = std::move(follower);
  lockFollowers_.push_back(entry);
  if (!order_) begin();
  entry->firstTime =
      parts_.mainLoop->after(order_->isKnown() ? 0 : knownLimitMs, [this, weak = std::weak_ptr(entry)] {
        if (const auto waiting = weak.lock()) tellLock(*waiting);
      });
  return Registration([this, weak = std::weak_ptr(entry)] {
    const auto ended = weak.lock();
    if (!ended) return;
    std::erase(lockFollowers_, ended);
    endUnheard();
  });
}

void DesktopSessionEvents::tellLock(LockFollower& follower) const {
  const bool locked = isLocked();
  if (std::exchange(follower.told, locked) != locked) follower.tell(locked);
}

void DesktopSessionEvents::tellLockFollowers() {
  const auto current = lockFollowers_;  // they may end while they are told
  for (const auto& follower : current) {
    if (order_ && (follower->told || order_->isKnown() || order_->isLocked())) tellLock(*follower);
  }
}

void DesktopSessionEvents::begin() {
  order_ = std::make_shared<SessionEventOrder>(*parts_.mainLoop, *parts_.clock, [this](SessionEvent event) {
    // Copied, because it may end its own registration.
    const Observer told = observer_ ? *observer_ : Observer();
    if (told) {
      told(event);
    } else if (isGoingAway(event)) {
      cameraIsClosed();  // nobody has opened it
    }
  });
  settled_ = order_->settled.connect([this] {
    updatePolling();
    if (order_ && order_->isKnown()) tellKnown();
    tellLockFollowers();
  });
  unconfirmed_ = order_->requestUnconfirmed.connect([] { printError(qtTrId("lock_unconfirmed")); });
  sources_ = std::make_unique<Sources>(parts_, *order_);
  x11_ = {parts_.displays, [observer = observerOn(parts_.mainLoop, order_, Source::x11Displays)] {
            return std::make_unique<X11DisplayPower>(observer);
          }};
  wayland_ = {parts_.displays, [observer = observerOn(parts_.mainLoop, order_, Source::waylandDisplays)] {
                return std::make_unique<WaylandDisplayPower>(observer);
              }};
  polling_ = false;
  updatePolling();
}

void DesktopSessionEvents::observerEnded() {
  observer_ = nullptr;
  repeat_.reset();
  known_ = nullptr;
  knownTimer_.reset();
  updatePolling();
  endUnheard();
}

void DesktopSessionEvents::endUnheard() {
  if (observer_ || !lockFollowers_.empty()) return;
  x11_ = {};
  wayland_ = {};
  settled_.reset();
  unconfirmed_.reset();
  // An observer may end its own registration while it is being told: who tells it is left to finish this
  // turn.
  if (order_)
    ending_ = parts_.mainLoop->after(
        0, [ended = std::move(order_), telling = std::move(sources_), before = std::move(ending_)] {});
  order_.reset();
}

void DesktopSessionEvents::updatePolling() {
  if (!order_) return;
  const bool wanted = observer_ && !resting_ && !order_->isAwayWithout(Source::x11Displays);
  if (std::exchange(polling_, wanted) == wanted) return;
  x11_.call([wanted](X11DisplayPower& power) { power.setPolling(wanted); });
}

void DesktopSessionEvents::tellKnown() {
  if (!known_) return;
  knownTimer_ = parts_.mainLoop->after(0, [this, told = std::exchange(known_, nullptr)] {
    if (observer_) told();
  });
}

void DesktopSessionEvents::whenKnown(std::function<void()> known) {
  known_ = std::move(known);
  knownTimer_ = parts_.mainLoop->after(knownLimitMs, [this] { tellKnown(); });
  if (order_ && order_->isKnown()) tellKnown();
}

bool DesktopSessionEvents::isLocked() const {
  return order_ && order_->isLocked();
}

void DesktopSessionEvents::cameraIsClosed() {
  if (sources_) sources_->logind.allowSleep();
}

void DesktopSessionEvents::setResting(bool resting) {
  resting_ = resting;
  updatePolling();
}

}  // namespace sentrel
