// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <set>

#include "platform/alert_journal.h"
#include "platform/desktop_services.h"
#include "platform/privacy_proof.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel::test {

/// A session whose person comes and goes when a test says so.
struct FakeSessionEvents final : SessionEvents {
  explicit FakeSessionEvents(std::shared_ptr<MainLoop> loop) : mainLoop(std::move(loop)) {}

  std::shared_ptr<MainLoop> mainLoop;
  Signal<SessionEvent> observer;
  Signal<bool> lockFollowers;
  bool resting = false;
  bool answering = true;  ///< those who know of a lock answer at once
  int closings = 0;       ///< how often the camera was said to be closed
  bool isAway = false;
  std::function<void()> known;  ///< who waits for an answer

  [[nodiscard]] Registration install(Observer told) override { return observer.connect(std::move(told)); }
  void whenKnown(std::function<void()> told) override {
    known = std::move(told);
    if (answering) mainLoop->post([this] { answer(); });
  }
  /// Also what was known before anybody observed.
  void answer() {
    const auto told = std::exchange(known, nullptr);
    if (!told || observer.observerCount() == 0) return;
    if (isAway) observer.emit(SessionEvent::screenIsLocked);
    told();
  }
  void tell(SessionEvent event) {
    isAway = isGoingAway(event);
    observer.emit(event);
    lockFollowers.emit(isAway);
  }
  [[nodiscard]] bool isLocked() const override { return isAway; }
  [[nodiscard]] Registration followLock(std::function<void(bool locked)> follower) override {
    if (answering) mainLoop->post([this] { lockFollowers.emit(isAway); });
    return lockFollowers.connect(std::move(follower));
  }
  void cameraIsClosed() override { ++closings; }
  void setResting(bool now) override { resting = now; }
};

struct FakePowerSource final : PowerSource {
  std::optional<PowerSourceDescription> source;
  Signal<> observer;

  [[nodiscard]] Registration observe() override {
    return observer.connect([] {});
  }
  [[nodiscard]] std::optional<PowerSourceDescription> first() const override {
    return observer.observerCount() > 0 ? source : std::nullopt;
  }
};

struct FakeScreenSharing final : ScreenSharing {
  Published<bool> shared{false};
  Signal<> observer;

  [[nodiscard]] Registration observe() override {
    return observer.connect([] {});
  }
  [[nodiscard]] const Published<bool>& isShared() const override { return shared; }
};

struct FakeKeyMonitor final : KeyMonitor {
  Signal<> observer;
  Signal<> coverObserver;
  ShortcutGrant answer{ShortcutGrant::Kind::observed};
  std::set<Shortcut> forgotten;

  [[nodiscard]] ShortcutGrant grant(Shortcut /*shortcut*/) const override { return answer; }
  [[nodiscard]] Registration observe(Shortcut shortcut, std::function<void()> pressed) override {
    return (shortcut == Shortcut::cover ? coverObserver : observer).connect(std::move(pressed));
  }
  void forget(Shortcut shortcut) override { forgotten.insert(shortcut); }
};

/// What is shown, and how often something was.
struct FakeNotifications final : Notifications {
  explicit FakeNotifications(std::shared_ptr<MainLoop> loop) : mainLoop(std::move(loop)) {}

  std::shared_ptr<MainLoop> mainLoop;
  std::map<std::string, NotificationContent> shown;
  int added = 0;
  Published<bool> heard{true};
  bool answering = true;
  std::vector<std::function<void(bool)>> questions;
  Published<bool> hidesOthers{true};
  Signal<> othersHidden;  ///< observed while they are

  void requestAuthorization(std::function<void(bool granted)> told) override {
    questions.push_back(std::move(told));
    if (answering) mainLoop->post([this] { answer(); });
  }
  void answer() {
    for (const auto& told : std::exchange(questions, {})) told(false);
  }
  void add(const std::string& identifier, const NotificationContent& content) override {
    shown[identifier] = content;
    ++added;
  }
  void remove(const std::string& identifier) override { shown.erase(identifier); }
  [[nodiscard]] const Published<bool>& isHeard() const override { return heard; }
  [[nodiscard]] const Published<bool>& canHideOthers() const override { return hidesOthers; }
  [[nodiscard]] Registration hideOthers() override {
    return othersHidden.connect([] {});
  }
};

struct FakeHaptics final : Haptics {
  int performed = 0;
  void perform() override { ++performed; }
};

/// A journal in memory.
struct FakeJournal final : AlertJournal {
  std::vector<AlertRecord> records;
  std::string exportedTo;
  bool canExport = true;

  void add(AlertRecord record) override { records.push_back(std::move(record)); }
  void erase() override { records.clear(); }
  void read(std::function<void(const std::vector<AlertRecord>&)> reader) override { reader(records); }
  void exportTo(std::string path, std::function<void(bool)> told) override {
    exportedTo = std::move(path);
    told(canExport);
  }
};

/// Answers at once with the facts that a test wants.
struct FakeProof final : PrivacyProof {
  PrivacyFacts facts{
      .process = 4711,
      .filterMode = 2,
      .sockets = {{"socket(AF_INET, SOCK_STREAM)", "EPERM", true},
                  {"socket(AF_INET6, SOCK_STREAM)", "EPERM", true}},
      .program = {"posix_spawn(/bin/true)", "EPERM", true},
      .coreDumps = "00000010",
      .openForWriting = {{2, "/home/someone/.xsession-errors", true}},
      .keptFiles = {{"/home/someone/.config/sentrel/defaults.json", 812, 1'795'000'000'000, true,
                     "{\n    \"filter_strength\": 3\n}\n"}},
      .cameraOpenMs = 60'000,
      .framesInMemory = 3,
  };
  int asked = 0;

  void ask(std::function<void(const PrivacyFacts&)> told) override {
    ++asked;
    told(facts);
  }
};

/// A login item that remembers what it was asked and fails on demand.
struct FakeLoginItem final : LoginItem {
  [[nodiscard]] bool isEnabled() const override { return enabled; }
  [[nodiscard]] std::optional<std::string> setEnabled(bool wanted) override {
    requests.push_back(wanted);
    if (!failure) enabled = wanted;
    return failure;
  }

  bool enabled = false;
  std::optional<std::string> failure;
  std::vector<bool> requests;
};

/// A store that lasts as long as the process.
struct MemoryUserDefaults final : UserDefaults {
  std::map<std::string, DefaultsValue, std::less<>> values;

  [[nodiscard]] std::optional<DefaultsValue> value(std::string_view key) const override {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  void set(std::string_view key, DefaultsValue value) override {
    values.insert_or_assign(std::string(key), std::move(value));
  }
  void remove(std::string_view key) override { values.erase(std::string(key)); }
};

/// The desktop around the service.
struct FakeDesktop {
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<FakeSessionEvents> session = std::make_shared<FakeSessionEvents>(mainLoop);
  std::shared_ptr<FakeNotifications> notifications = std::make_shared<FakeNotifications>(mainLoop);
  std::shared_ptr<FakePowerSource> power = std::make_shared<FakePowerSource>();
  std::shared_ptr<FakeScreenSharing> sharing = std::make_shared<FakeScreenSharing>();
  std::shared_ptr<FakeKeyMonitor> keys = std::make_shared<FakeKeyMonitor>();
  std::shared_ptr<FakeHaptics> haptics = std::make_shared<FakeHaptics>();
  std::shared_ptr<FakeJournal> journal = std::make_shared<FakeJournal>();
  std::shared_ptr<FakeProof> proof = std::make_shared<FakeProof>();
};

}  // namespace sentrel::test
