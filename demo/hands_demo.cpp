// SPDX-License-Identifier: Apache-2.0
#include <QDBusVariant>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "session_trial.h"

namespace sentrel::test {

namespace {

const auto notificationService = QStringLiteral("org.freedesktop.Notifications");
const auto notificationPath = QStringLiteral("/org/freedesktop/Notifications");

class HandsDemo final : public SessionTrial {
 public:
  using SessionTrial::SessionTrial;

 private:
  void play() override {
    prepare();
    pauseForAWhile();
    welcomeAGuest();
    callItNobody();
    cover();
    happens("the program is asked to quit", [this] { quit(); });
    followsCamera(false);
    writeTimeline();
    judge();
    std::printf("Everything followed as it should. Pictures and timeline.txt are in %s\n", folder_.c_str());
  }

  void prepare() {
    showDocument();
    server_.answer(QStringLiteral("GetCapabilities"), [](const QDBusMessage&) -> QVariantList {
      return {QStringList{QStringLiteral("actions"), QStringLiteral("body")}};
    });
    server_.answer(QStringLiteral("GetServerInformation"), [](const QDBusMessage&) -> QVariantList {
      const QString one = QStringLiteral("1");
      return {QStringLiteral("demo"), QStringLiteral("demo"), one, QStringLiteral("1.2")};
    });
    server_.answer(QStringLiteral("CloseNotification"),
                   [](const QDBusMessage&) -> QVariantList { return {}; });
    server_.answer(QStringLiteral("Notify"), [this](const QDBusMessage& call) -> QVariantList {
      note("notification: " + call.arguments().value(3).toString().toStdString());
      return {++shown_};
    });
    see(Seen::alone);
    began_ = SteadyClock::now();
    happens("the program starts", [this] { start(); });
    followsState("nominal");
    takePicture("01-protected");
  }

  void pauseForAWhile() {
    command({"pause", "15m"});
    followsState("autoPaused");
    followsCamera(false);
    takePicture("02-paused");
    takePopover("03-paused-window");
    command({"resume"});
    followsState("nominal");
    followsCamera(true);
  }

  void welcomeAGuest() {
    command({"guest", "1", "30m"});
    see(Seen::watched);
    staysIn("nominal", std::chrono::seconds(4));
    takePopover("04-guest-window");
    command({"alone"});
    followsState("alert");
    takePicture("05-alert");
  }

  void callItNobody() {
    answer("Ce n'est personne");
    followsProperty("IgnoredFaces", 1);
    followsState("nominal");
    staysIn("nominal", std::chrono::seconds(15));
    takePopover("06-nobody-window");
    happens("the screen is locked", [this] { session_.setLockedHint(true); });
    followsState("autoPaused");
    followsProperty("IgnoredFaces", 0);
    happens("the screen is unlocked", [this] { session_.setLockedHint(false); });
    followsState("alert");
    answer("Pause 15 min");
    followsState("autoPaused");
    takePopover("07-answered-window");
    see(Seen::alone);
    command({"resume"});
    followsState("nominal");
  }

  void cover() {
    command({"off"});
    followsState("inactive");
    command({"cover"});
    followsProperty("IsCovered", 1);
    takePicture("08-covered");
    command({"cover"});
    followsProperty("IsCovered", 0);
    takePicture("09-uncovered");
  }

  void judge() const {
    const double bare = brightness("00-uncovered");
    for (const char* name : {"02-paused", "09-uncovered"}) {
      if (std::abs(brightness(name) - bare) > 1) throw std::runtime_error(std::string(name) + " is covered");
    }
    if (brightness("01-protected") >= bare - 1) throw std::runtime_error("no stripes are seen");
    if (brightness("05-alert") >= 0.7 * bare) throw std::runtime_error("the alert is not seen");
    if (brightness("08-covered") >= 0.4 * bare) throw std::runtime_error("the cover is not seen");
  }

  void command(std::vector<std::string> words) {
    std::string line = "sentrel";
    for (const std::string& word : words) line += ' ' + word;
    happens(line, [&] {
      ChildProcess asked = desktop_.spawn(binary_, words);
      waitFor("it ends", [&] { return !asked.isRunning(); });
      if (asked.waitForExit(std::chrono::milliseconds(0)) != 0)
        throw std::runtime_error(line + " was refused");
    });
  }

  /// Of the program's window.
  void takePopover(const std::string& name) {
    ChildProcess opener = desktop_.spawn(binary_);
    waitFor("the window opens", [&] { return !opener.isRunning(); });
    takePicture(name);
    desktop_.run("xdotool", {"key", "Escape"});
    pause(pictureDelay_);
  }

  /// Of the last notification, by what its button says.
  void answer(const char* button) {
    follows("the notification can be answered",
            [&] { return shown_ != answered_ && !actionOf(button).isEmpty(); });
    happens(std::string("the person answers: ") + button, [&] {
      server_.emitSignal(notificationPath, notificationService, QStringLiteral("ActionInvoked"),
                         {shown_, actionOf(button)});
    });
    answered_ = shown_;
  }
  [[nodiscard]] QString actionOf(const char* button) const {
    const auto calls = server_.calls(QStringLiteral("Notify"));
    if (calls.empty()) return {};
    const QStringList actions = calls.back().arguments().value(5).toStringList();
    const auto at = actions.indexOf(QString::fromUtf8(button));
    return at > 0 ? actions[at - 1] : QString();
  }

  void followsProperty(const char* name, qlonglong value) {
    follows(std::string(name) + " is " + std::to_string(value), [&] {
      const QDBusMessage reply = session_.sessionBus().call(
          QStringLiteral("expert.mardeck.sentrel"), QStringLiteral("/expert/mardeck/sentrel"),
          QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
          {QStringLiteral("expert.mardeck.sentrel1"), QString::fromLatin1(name)});
      return reply.arguments().constFirst().value<QDBusVariant>().variant().toLongLong() == value;
    });
  }

  void staysIn(const std::string& state, std::chrono::milliseconds length) {
    if (runUntil([&] { return !isIn(state); }, length)) throw std::runtime_error(state + " did not last");
    note("protection stays in " + state);
  }

  BusDouble server_{desktop_, TestBus::session, notificationService};
  uint shown_ = 0;  // the id of the last notification
  uint answered_ = 0;
};

}  // namespace

std::unique_ptr<ProgramTrial> handsDemo(HeadlessDesktop& desktop, const std::filesystem::path& folder,
                                        const std::string& program) {
  return std::make_unique<HandsDemo>(desktop, folder, program);
}

}  // namespace sentrel::test
