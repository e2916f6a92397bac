// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <gmock/gmock.h>

#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using Witness = SessionEventOrder::Witness;
using enum SessionEvent;
using test::ManualMainLoop;

struct Desk {
  ManualMainLoop loop;
  std::vector<SessionEvent> delivered;
  int warnings = 0;
  SessionEventOrder order{loop, loop, [this](SessionEvent event) { delivered.push_back(event); },
                          [this](std::string_view) { ++warnings; }};
};

/// One thing that a desktop says or does.
struct Step {
  enum Kind { changed, found, lost, lock, unlock, newObserver, wait } kind;
  Witness witness = Witness::lockedHint;
  bool absent = false;
  std::int64_t ms = 0;
};

Step begins(Witness witness) {
  return {Step::changed, witness, true};
}
Step ends(Witness witness) {
  return {Step::changed, witness, false};
}
Step isFound(Witness witness, bool absent = true) {
  return {Step::found, witness, absent};
}
Step goes(Witness witness) {
  return {Step::lost, witness};
}
Step waits(std::int64_t ms) {
  return {Step::wait, Witness::lockedHint, false, ms};
}
const Step lock{Step::lock};
const Step unlock{Step::unlock};

void perform(Desk& desk, const Step& step) {
  switch (step.kind) {
    case Step::changed:
      return desk.order.changed(step.witness, step.absent);
    case Step::found:
      return desk.order.found(step.witness, step.absent);
    case Step::lost:
      return desk.order.lost(step.witness);
    case Step::lock:
      return desk.order.lockRequested();
    case Step::unlock:
      return desk.order.unlockRequested();
    case Step::newObserver:
      return desk.order.repeatForNewObserver();
    case Step::wait:
      return desk.loop.advance(step.ms);
  }
}

constexpr Witness hint = Witness::lockedHint;
constexpr Witness saver = Witness::gnomeScreenSaver;
constexpr Witness inactive = Witness::sessionInactive;
constexpr Witness sleeping = Witness::systemSleep;
constexpr Witness display = Witness::x11Displays;

TEST(SessionEventOrder, DeliversWhatADayBrings) {
  struct Day {
    std::string name;
    std::vector<Step> steps;
    std::vector<SessionEvent> delivered;
    int warnings = 0;
  };
  const std::vector<Day> days{
      {"lock and unlock, told twice",
       {begins(hint), begins(hint), ends(hint), ends(hint)},
       {screenIsLocked, screenIsUnlocked}},
      {"lid closed while locked, opened, unlocked",
       {begins(hint), begins(display), begins(sleeping), ends(sleeping), ends(display), ends(hint)},
       {screenIsLocked, screensDidSleep, screensDidSleep, screenIsUnlocked}},
      {"found calm after it was locked: the end was missed",
       {begins(hint), isFound(hint, false)},
       {screenIsLocked, screenIsUnlocked}},
      {"a request that is confirmed in time holds",
       {lock, waits(10'000), begins(saver), begins(display), ends(display), unlock, waits(120'000),
        ends(saver)},
       {screenIsLocked, screensDidSleep, screenIsUnlocked}},
      {"a lock after the time is one of its own",
       {lock, waits(10'001), begins(saver), waits(120'000), ends(saver)},
       {screenIsLocked, screenIsLocked, screenIsUnlocked}},
      {"nobody confirms for a minute",
       {lock, waits(60'000), waits(60'000)},
       {screenIsLocked, screenIsUnlocked},
       1},
      {"the end of a sleep ends a request, though its beginning was lost",
       {lock, ends(sleeping), waits(90'000)},
       {screenIsLocked, screensDidWake}},
      {"a request runs out while the display is off",
       {begins(display), lock, waits(60'000), ends(display)},
       {screensDidSleep, screenIsLocked, screensDidWake},
       1},
      {"the locker is restarted",
       {begins(saver), goes(saver), waits(4'999), isFound(saver), waits(60'000), ends(saver)},
       {screenIsLocked, screenIsUnlocked}},
      {"the locker dies", {begins(saver), goes(saver), waits(5'000)}, {screenIsLocked, screenIsUnlocked}},
      {"a new observer of a locked, sleeping session",
       {begins(hint), begins(sleeping), {Step::newObserver}, ends(sleeping), ends(hint)},
       {screenIsLocked, screensDidSleep, screenIsLocked, screenIsUnlocked}},
  };
  for (const Day& day : days) {
    SCOPED_TRACE(day.name);
    Desk desk;
    for (const Step& step : day.steps) perform(desk, step);
    EXPECT_EQ(desk.delivered, day.delivered);
    EXPECT_EQ(desk.warnings, day.warnings);
  }
}

/// The rule in another form: compares the whole picture before and after each step.
class Model {
 public:
  std::vector<SessionEvent> delivered;
  int warnings = 0;

  void perform(const Step& step) {
    const Picture before = picture();
    switch (step.kind) {
      case Step::wait:
        return pass(now_ + step.ms);
      case Step::lost:
        if (absent_.contains(step.witness)) {
          remember(step.witness);
          forgetAt_.emplace_back(step.witness, now_ + 5'000);
        }
        return;
      case Step::newObserver:
        for (const char who : {'l', 'i', 's', 'd'}) {
          if (before.contains(who)) return go(who);
        }
        return;
      case Step::lock:
        if (before.contains('l')) return;
        if (!request_) go('l');
        request_ = now_;
        return;
      case Step::unlock:
        if (request_) endWith('l');
        return;
      case Step::changed:
      case Step::found:
        break;
    }
    remember(step.witness);
    say(step.witness, step.absent);
    const char who = groupOf(step.witness);
    const Picture after = picture();
    if (after.contains(who) && !before.contains(who)) {
      const bool known = step.kind == Step::found && away_;
      const bool confirmed = who == 'l' && request_ && now_ - *request_ <= 10'000;
      if (who == 'l') request_.reset();
      if (!known && !confirmed) go(who);
    } else if (!after.contains(who) && (before.contains(who) || step.kind == Step::changed)) {
      endWith(who);
    }
  }

 private:
  using Picture = std::set<char>;

  static char groupOf(Witness witness) {
    if (witness == inactive) return 'i';
    if (witness == sleeping) return 's';
    return witness == hint || witness == saver || witness == Witness::freedesktopScreenSaver ? 'l' : 'd';
  }
  [[nodiscard]] Picture picture() const {
    Picture groups;
    for (const Witness witness : absent_) groups.insert(groupOf(witness));
    return groups;
  }
  void say(Witness witness, bool absent) {
    if (absent) {
      absent_.insert(witness);
    } else {
      absent_.erase(witness);
    }
  }
  void go(char who) {
    away_ = true;
    delivered.push_back(who == 'l' ? screenIsLocked : who == 'i' ? sessionDidResignActive : screensDidSleep);
  }
  void endWith(char who) {
    request_.reset();
    if (!away_ || !absent_.empty()) return;
    away_ = false;
    delivered.push_back(who == 'l' ? screenIsUnlocked : who == 'i' ? sessionDidBecomeActive : screensDidWake);
  }
  void remember(Witness witness) {
    std::erase_if(forgetAt_, [&](const auto& entry) { return entry.first == witness; });
  }
  /// Lets due moments happen one by one.
  void pass(std::int64_t until) {
    for (; now_ < until; ++now_, due()) {
    }
  }
  void due() {
    while (!forgetAt_.empty() && forgetAt_.front().second == now_) perform(ends(forgetAt_.front().first));
    if (request_ && now_ - *request_ == 60'000) {
      ++warnings;
      endWith('l');
    }
  }

  std::int64_t now_ = 0;
  std::set<Witness> absent_;
  std::vector<std::pair<Witness, std::int64_t>> forgetAt_;  // by time
  std::optional<std::int64_t> request_;
  bool away_ = false;
};

TEST(SessionEventOrder, AgreesWithTheRuleOnRandomDays) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 random(seed);
    const auto pick = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
    Desk desk;
    Model model;
    for (int i = 0; i < 1000; ++i) {
      // Beginnings and ends are drawn independently: duplicates and lost counterparts come by themselves.
      static constexpr std::array kinds{Step::changed, Step::changed, Step::changed, Step::changed,
                                        Step::found,   Step::lock,    Step::unlock,  Step::newObserver,
                                        Step::lost,    Step::wait};
      Step step{kinds[static_cast<std::size_t>(pick(static_cast<int>(kinds.size())))]};
      step.witness = static_cast<Witness>(pick(static_cast<int>(SessionEventOrder::witnessCount)));
      step.absent = pick(3) == 0;
      // One beat off the round numbers of the rule, so that no two moments coincide.
      if (step.kind == Step::wait) step.ms = 1 + pick(23) * 1'009;
      perform(desk, step);
      model.perform(step);
      ASSERT_EQ(desk.delivered, model.delivered) << "seed " << seed << ", step " << i;
    }
    EXPECT_EQ(desk.warnings, model.warnings);
    EXPECT_GT(model.delivered.size(), 100U);
    // Nothing stays behind: whatever still waits ends by itself.
    desk.loop.advance(120'000);
    EXPECT_EQ(desk.loop.timerCount(), 0U);
  }
}

}  // namespace
}  // namespace sentrel
