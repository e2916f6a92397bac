// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using Source = SessionEventOrder::Source;
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
  Source source = Source::lockedHint;
  bool absent = false;
  std::int64_t ms = 0;
};

Step begins(Source source) {
  return {Step::changed, source, true};
}
Step ends(Source source) {
  return {Step::changed, source, false};
}
Step isFound(Source source, bool absent = true) {
  return {Step::found, source, absent};
}
Step goes(Source source) {
  return {Step::lost, source};
}
Step waits(std::int64_t ms) {
  return {Step::wait, Source::lockedHint, false, ms};
}
const Step lock{Step::lock};
const Step unlock{Step::unlock};

void perform(Desk& desk, const Step& step) {
  switch (step.kind) {
    case Step::changed:
      return desk.order.changed(step.source, step.absent);
    case Step::found:
      return desk.order.found(step.source, step.absent);
    case Step::lost:
      return desk.order.lost(step.source);
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

constexpr Source hint = Source::lockedHint;
constexpr Source saver = Source::gnomeScreenSaver;
constexpr Source inactive = Source::sessionInactive;
constexpr Source sleeping = Source::systemSleep;
constexpr Source display = Source::x11Displays;

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

/// Whoever is known to be away is told so, whoever is not is back, and comes back once.
TEST(SessionEventOrder, HoldsItsRuleOnRandomDays) {
  constexpr auto never = std::numeric_limits<std::int64_t>::max();
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 random(seed);
    const auto pick = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
    Desk desk;
    std::map<Source, std::int64_t> absentUntil;
    std::int64_t requestedUntil = 0;
    for (int i = 0; i < 1000; ++i) {
      // Beginnings and ends are drawn independently: duplicates and lost counterparts come by themselves.
      static constexpr std::array kinds{Step::changed, Step::changed, Step::changed, Step::changed,
                                        Step::found,   Step::lock,    Step::unlock,  Step::newObserver,
                                        Step::lost,    Step::wait};
      Step step{kinds[static_cast<std::size_t>(pick(static_cast<int>(kinds.size())))]};
      step.source = static_cast<Source>(pick(static_cast<int>(SessionEventOrder::sourceCount)));
      step.absent = pick(3) == 0;
      if (step.kind == Step::wait) step.ms = pick(23) * 1'009;
      perform(desk, step);
      const std::int64_t now = desk.loop.nowMs();
      const bool told = step.kind == Step::changed || step.kind == Step::found;
      if (step.kind == Step::lock) requestedUntil = now + 60'000;
      if (told && step.absent) absentUntil[step.source] = never;
      if (told && !step.absent) absentUntil.erase(step.source);
      if (step.kind == Step::lost && absentUntil.contains(step.source))
        absentUntil[step.source] = now + 5'000;
      std::erase_if(absentUntil, [&](const auto& entry) { return entry.second <= now; });
      const bool away = !desk.delivered.empty() && isGoingAway(desk.delivered.back());
      if (!absentUntil.empty() || step.kind == Step::lock) {
        ASSERT_TRUE(away) << "seed " << seed << ", step " << i;
      } else if (requestedUntil <= now) {
        ASSERT_FALSE(away) << "seed " << seed << ", step " << i;
      }
    }
    EXPECT_GT(desk.delivered.size(), 100U);
    const auto twice = std::ranges::adjacent_find(
        desk.delivered, [](auto one, auto next) { return !isGoingAway(one) && !isGoingAway(next); });
    EXPECT_EQ(twice, desk.delivered.end());
    EXPECT_TRUE(isGoingAway(desk.delivered.front()));
    // Nothing stays behind: whatever still waits ends by itself.
    desk.loop.advance(120'000);
    EXPECT_EQ(desk.loop.timerCount(), 0U);
  }
}

}  // namespace
}  // namespace sentrel
