// SPDX-License-Identifier: Apache-2.0
#include "detection/filter_fsm.h"

#include <gmock/gmock.h>

#include <map>
#include <sstream>

namespace sentrel {
namespace {

using Kind = FilterState::Kind;

constexpr FaceData ahead{0, 0, 0.2F};
constexpr FaceData away{45, 0, 0.2F};

struct Machine : FilterFsm {
  Kind frame(std::int64_t ms, std::int64_t faces, std::optional<FaceData> face) {
    handle({1'000'000 + ms, faces, face});
    return state().get().kind();
  }
};

const std::map<char, std::optional<FaceData>> gazes{
    {'-', std::nullopt},
    {'l', ahead},
    {'a', away},
    {'y', FaceData{30, 0, 0.2F}},
    {'Y', FaceData{-30, 0, 0.2F}},
    {'z', FaceData{-29.9F, 0, 0.2F}},
    {'p', FaceData{0, 25, 0.2F}},
    {'P', FaceData{0, -25, 0.2F}},
    {'q', FaceData{0, 24.9F, 0.2F}},
};
const std::map<char, Kind> states{
    {'N', Kind::nominal},    {'I', Kind::inattention}, {'A', Kind::alert},
    {'P', Kind::autoPaused}, {'B', Kind::cameraBusy},
};
using Event = FilterFsm::SystemEvent;
const std::map<char, Event::Kind> events{
    {'u', Event::userPause},       {'s', Event::screenOff},        {'S', Event::screenOn},
    {'b', Event::batteryLow},      {'B', Event::batteryRecovered}, {'c', Event::cameraBusy},
    {'C', Event::cameraAvailable},
};

// Each frame: milliseconds, number of faces, where the main one looks, and the state expected after it. With
// an exclamation mark instead of the faces: what the system says.
const struct {
  const char* name;
  const char* frames;
} scenes[] = {
    {"delay, which restarts",
     "0 1aN 1400 1lN 1500 1aN 2999 1aN 3000 1aI 3001 1lN 3002 1aN 4501 1aN 4502 1aI"},
    {"nobody keeps the delay running", "0 1aN 700 0-N 1500 1aI"},
    {"yaw boundary", "0 1yN 1500 1YI 1501 1zN"},
    {"pitch boundary", "0 1PN 1500 1pI 1501 1qN"},
    {"confirmation", "0 2lN 499 2lN 500 1lN 501 2lN 1000 2lN 1001 2lA"},
    {"vanished after turning away", "0 0-N 100 1aN 1600 1aI 1700 2aI 1800 0-A"},
    {"confirmation from inattention", "0 1aN 1500 1aI 1600 2aI 2099 2aI 2100 2aA"},
    {"recovery", "0 2lN 500 2lA 600 1aA 3599 0-A 3600 2lA 3700 1aA 6699 1aA 6700 0-N"},
    {"third alert is held",
     "0 2lN 500 2lA 600 1lA 3600 1lN 3700 2lN 4200 2lA 4300 1lA 7300 1lN 7400 2lN 7900 2lA 8000 1lA "
     "37899 1lA 37900 1lA 40899 1lA 40900 1lN"},
    {"third alert on the window's edge",
     "0 2lN 500 2lA 600 1lA 3600 1lN 3700 2lN 4200 2lA 4300 1lA 7300 1lN 15000 2lN 15500 2lA 15600 1lA 18600 "
     "1lA"},
    {"third alert after the window",
     "0 2lN 500 2lA 600 1lA 3600 1lN 3700 2lN 4200 2lA 4300 1lA 7300 1lN 15000 2lN 15501 2lA 15600 1lA 18600 "
     "1lN"},
    {"screen off and on",
     "0 1aN 700 2lN 800 !sP 900 !bP 950 !SN 1000 2lN 1499 2lN 1500 2lA 1600 !sP 1700 !SN"},
    {"only what paused resumes",
     "0 !BN 1 !CN 2 !SN 3 !sP 4 !BP 5 !CP 6 !bP 7 !BN 8 !cB 9 !SB 10 !BB 11 !CN 12 !uP 13 !SN"},
    {"inattention forgets its delay over a pause", "0 1aN 1400 !cB 1450 !CN 1500 1aN 2999 1aN 3000 1aI"},
    {"recovery that began before a pause counts after it",
     "0 2lN 500 2lA 600 1lA 700 !sP 800 !SN 900 2lN 1400 2lA 3600 1lN"},
};

TEST(FilterFsm, Scenes) {
  for (const auto& [name, frames] : scenes) {
    Machine machine;
    machine.activate();
    std::istringstream rest(frames);
    std::int64_t ms = 0;
    for (std::string frame; rest >> ms >> frame;) {
      if (frame[0] == '!') {
        machine.onSystemEvent(events.at(frame[1]));
      } else {
        machine.frame(ms, frame[0] - '0', gazes.at(frame[1]));
      }
      EXPECT_EQ(machine.state().get().kind(), states.at(frame[2])) << name << ", at " << ms << " ms";
    }
  }
}

TEST(FilterFsm, TellsTheTimerThatRuns) {
  using Timer = FilterFsm::Timer;
  Machine machine;
  const auto timer = [&](std::int64_t ms) { return machine.timer(1'000'000 + ms); };
  EXPECT_EQ(timer(0), std::nullopt) << "inactive";
  machine.activate();
  machine.frame(0, 1, away);
  EXPECT_EQ(timer(9000), (Timer{Timer::Kind::lookingAway, 1500, 1500})) << "never more than whole";
  machine.frame(1000, 1, ahead);
  EXPECT_EQ(timer(1000), std::nullopt);
  // The third alert within the window is held for 30 s after it began.
  std::int64_t now = 2000;
  for (int alert = 0; alert < 3; ++alert, now += 4000) {
    machine.frame(now, 2, ahead);
    EXPECT_EQ(machine.frame(now + 500, 2, ahead), Kind::alert);
    machine.frame(now + 600, 1, ahead);
    machine.frame(now + 1800, 1, ahead);
    const Timer recovery{Timer::Kind::recovery, 1200, 3000};
    EXPECT_EQ(timer(now + 1800), alert < 2 ? recovery : (Timer{Timer::Kind::held, 1300, 30'000}));
    machine.frame(now + 3600, 1, ahead);
  }
}

TEST(FilterAlpha, ByStateAndStrength) {
  const struct {
    FilterState state;
    std::int64_t strength;
    float alpha;
  } cases[] = {
      {FilterState::nominal(1), 5, 0.5225F}, {FilterState::inattention(1), 3, 0.6F},
      {FilterState::alert(), 1, 0.55F},      {FilterState::alert(), 2, 0.65F},
      {FilterState::nominal(3), 4, 0.4675F}, {FilterState::alert(), 5, 0.8F},
      {FilterState::alert(), 0, 0.75F},      {FilterState::alert(), 6, 0.75F},
      {FilterState::cameraBusy(5000), 5, 0}, {FilterState::inactive(), 5, 0},
  };
  for (const auto& [state, strength, alpha] : cases)
    EXPECT_NEAR(filterAlpha(state, strength), alpha, 1e-6)
        << static_cast<int>(state.kind()) << ' ' << strength;
}

}  // namespace
}  // namespace sentrel
