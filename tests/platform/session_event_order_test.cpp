// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
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
  SessionEventOrder order{loop, loop, [this](SessionEvent event) { delivered.push_back(event); }};
};

/// One thing that a desktop says or does.
using Step = std::function<void(Desk&)>;

Step begins(Source source) {
  return [=](Desk& desk) { desk.order.changed(source, true); };
}
Step ends(Source source) {
  return [=](Desk& desk) { desk.order.changed(source, false); };
}
Step waits(std::int64_t ms) {
  return [=](Desk& desk) { desk.loop.advance(ms); };
}
const Step lock = [](Desk& desk) { desk.order.lockRequested(); };
const Step unlock = [](Desk& desk) { desk.order.unlockRequested(); };
const Step newObserver = [](Desk& desk) { desk.order.repeatForNewObserver(); };

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
    bool isWarned = false;
  };
  const std::vector<Day> days{
      {"lock and unlock, told twice",
       {begins(hint), begins(hint), ends(hint), ends(hint)},
       {screenIsLocked, screenIsUnlocked}},
      {"lid closed while locked, opened, unlocked",
       {begins(hint), begins(display), begins(sleeping), ends(sleeping), ends(display), ends(hint)},
       {screenIsLocked, screensDidSleep, screensDidSleep, screenIsUnlocked}},
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
       true},
      {"the end of a sleep ends a request, though its beginning was lost",
       {lock, ends(sleeping), waits(90'000)},
       {screenIsLocked, screensDidWake}},
      {"a request runs out while the display is off",
       {begins(display), lock, waits(60'000), ends(display)},
       {screensDidSleep, screenIsLocked, screensDidWake},
       true},
      {"a new observer of a locked, sleeping session",
       {begins(hint), begins(sleeping), newObserver, ends(sleeping), ends(hint)},
       {screenIsLocked, screensDidSleep, screenIsLocked, screenIsUnlocked}},
  };
  for (const Day& day : days) {
    SCOPED_TRACE(day.name);
    Desk desk;
    testing::internal::CaptureStderr();
    for (const Step& step : day.steps) step(desk);
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), !day.isWarned);
    EXPECT_EQ(desk.delivered, day.delivered);
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
      const auto source = static_cast<Source>(pick(static_cast<int>(SessionEventOrder::sourceCount)));
      const bool absent = pick(3) == 0;
      const int kind = pick(10);
      const bool told = kind < 5;
      if (kind == 0) desk.order.found(source, absent);
      if (told && kind != 0) desk.order.changed(source, absent);
      if (kind == 5) lock(desk);
      if (kind == 6) unlock(desk);
      if (kind == 7) newObserver(desk);
      if (kind == 8) desk.order.lost(source);
      if (kind == 9) desk.loop.advance(pick(23) * 1'009);
      const std::int64_t now = desk.loop.nowMs();
      if (kind == 5) requestedUntil = now + 60'000;
      if (told && absent) absentUntil[source] = never;
      if (told && !absent) absentUntil.erase(source);
      if (kind == 8 && absentUntil.contains(source)) absentUntil[source] = now + 5'000;
      std::erase_if(absentUntil, [&](const auto& entry) { return entry.second <= now; });
      const bool away = !desk.delivered.empty() && isGoingAway(desk.delivered.back());
      if (!absentUntil.empty() || kind == 5) {
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
