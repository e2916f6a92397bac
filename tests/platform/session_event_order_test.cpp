// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <gmock/gmock.h>

#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using Source = SessionEventOrder::Source;
using enum SessionEvent;

struct Desk {
  test::ManualMainLoop loop;
  std::vector<SessionEvent> delivered;
  SessionEventOrder order{loop, loop, [this](SessionEvent event) { delivered.push_back(event); }};
  bool isWarned = false;
  Registration warning = order.requestUnconfirmed.connect([this] { isWarned = true; });
};

/// One thing that a desktop says or does.
using Step = std::function<void(Desk&)>;

Step begins(Source source) {
  return [=](Desk& desk) { desk.order.changed(source, true); };
}
Step ends(Source source) {
  return [=](Desk& desk) { desk.order.changed(source, false); };
}
Step finds(Source source, bool absent) {
  return [=](Desk& desk) { desk.order.found(source, absent); };
}
Step loses(Source source) {
  return [=](Desk& desk) { desk.order.lost(source); };
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
      {"what is found while the person is away is no news",
       {finds(hint, true), finds(display, true), finds(hint, false), finds(inactive, false),
        finds(display, false)},
       {screenIsLocked, screensDidWake}},
      {"a locker that has gone counts for five seconds, unless it comes back",
       {begins(saver), loses(saver), waits(4'999), finds(saver, true), waits(9'000), loses(saver),
        waits(5'000), loses(hint), waits(9'000)},
       {screenIsLocked, screenIsUnlocked}},
      {"a switched session locks and unlocks unseen",
       {begins(inactive), lock, ends(hint), ends(inactive), ends(inactive)},
       {sessionDidResignActive, screenIsLocked, sessionDidBecomeActive}},
      {"a new observer of a locked, sleeping session",
       {begins(hint), begins(sleeping), newObserver, ends(sleeping), ends(hint)},
       {screenIsLocked, screensDidSleep, screenIsLocked, screenIsUnlocked}},
  };
  for (const Day& day : days) {
    SCOPED_TRACE(day.name);
    Desk desk;
    for (const Step& step : day.steps) step(desk);
    EXPECT_EQ(desk.isWarned, day.isWarned);
    EXPECT_EQ(desk.delivered, day.delivered);
    desk.loop.advance(120'000);
    EXPECT_EQ(desk.loop.timerCount(), 0U) << "nothing stays behind";
  }
}

}  // namespace
}  // namespace sentrel
