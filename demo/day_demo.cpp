// SPDX-License-Identifier: Apache-2.0
#include <QDBusVariant>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

#include "session_trial.h"

namespace sentrel::test {

namespace {

const auto notificationService = QStringLiteral("org.freedesktop.Notifications");

class DayDemo final : public SessionTrial {
 public:
  using SessionTrial::SessionTrial;

 private:
  void play() override {
    prepare();
    lockAndWake();
    pullTheCamera();
    lookOn();
    runLow();
    quitAndJudge();
    tellSuccess();
  }

  void prepare() {
    showDocument();
    notificationServer_ = desktop_.spawn("dunst", {"-conf", "/dev/null"});
    session_.sessionBus().waitForName(notificationService);
    begin();
    followsCamera(true);
    follows("the program delays the sleep of the machine", [this] { return session_.sleepDelays() == 1; });
    takePicture("01-protected");
  }

  void lockAndWake() {
    happens("the screen is locked", [this] { session_.setLockedHint(true); });
    followsCamera(false);
    followsState("autoPaused");
    takePicture("02-locked");
    happens("the machine goes to sleep while locked", [this] { session_.prepareForSleep(true); });
    follows("the sleep is not held up", [this] { return session_.sleepDelays() == 0; });
    happens("it wakes, still locked", [this] { session_.prepareForSleep(false); });
    nothingFollows();
    takePicture("03-woken-locked");
    happens("the screen is unlocked", [this] { session_.setLockedHint(false); });
    followsState("nominal");
    followsCamera(true);
    takePicture("04-unlocked");
  }

  void pullTheCamera() {
    happens("the camera is pulled", [this] { camera_.vanish(); });
    followsState("cameraBusy");
    takePicture("05-no-camera");
    happens("the camera is back", [this] { camera_.appear(); });
    followsState("nominal");
    followsCamera(true);
    takePicture("06-camera-back");
  }

  void lookOn() {
    happens("somebody looks on", [this] { see(Seen::watched); });
    followsState("alert");
    follows("a notification is shown", [this] { return notifications() == 1; });
    takePicture("07-alert");
    happens("the onlooker leaves", [this] { see(Seen::alone); });
    followsState("nominal");
    follows("the notification is withdrawn", [this] { return notifications() == 0; });
    takePicture("08-alone-again");
  }

  void runLow() {
    happens("the battery is at 9 %", [this] { session_.setBattery(9, false); });
    followsState("autoPaused");
    happened_ = SteadyClock::now();  // the check itself
    followsCamera(false);
    takePicture("09-battery-low");
    happens("the battery is charged", [this] { session_.setBattery(9, true); });
    followsState("nominal");
    happened_ = SteadyClock::now();
    followsCamera(true);
    takePicture("10-charging");
  }

  void quitAndJudge() {
    end();
    writeTimeline();

    std::ifstream file(desktop_.configFolder() / "sentrel" / "defaults.json");
    const std::string kept{std::istreambuf_iterator<char>(file), {}};
    std::printf("What it keeps:\n%s", kept.c_str());
    for (const char* line : {"\"has_completed_onboarding\": true", "\"stats_alert_count\": 1",
                             "\"stats_session_count\": 1", "\"stats_total_active_seconds\": [3-9][0-9]"}) {
      if (!std::regex_search(kept, std::regex(line)))
        throw std::runtime_error(std::string("not kept: ") + line);
    }
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

  /// Looks for a while that nothing follows.
  void nothingFollows() {
    const std::size_t before = watcher_.entries().size();
    const auto somethingFollowed = [&] { return watcher_.entries().size() != before || camera_.isOpen(); };
    if (runUntil(somethingFollowed, std::chrono::seconds(2)))
      throw std::runtime_error("something followed that should not");
    note("nothing follows");
  }

  [[nodiscard]] int notifications() const {
    const QDBusMessage reply = session_.sessionBus().call(
        notificationService, QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
        {QStringLiteral("org.dunstproject.cmd0"), QStringLiteral("displayedLength")});
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toInt();
  }

  ChildProcess notificationServer_;
};

}  // namespace

std::unique_ptr<ProgramTrial> dayDemo(HeadlessDesktop& desktop, const std::filesystem::path& folder,
                                      const std::string& program) {
  return std::make_unique<DayDemo>(desktop, folder, program);
}

}  // namespace sentrel::test
