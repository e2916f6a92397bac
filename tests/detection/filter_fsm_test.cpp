// SPDX-License-Identifier: Apache-2.0
#include "detection/filter_fsm.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using Event = FilterFsm::SystemEvent;

constexpr FaceData looking{0, 0, 0.2F};
constexpr FaceData away{45, 0, 0.2F};

/// Feeds frames as the service does: to the handler of the current state.
class Machine : public FilterFsm {
 public:
  Kind frame(std::int64_t ms, std::int64_t faces, std::optional<FaceData> face) {
    const DetectionInput input{1'000'000 + ms, faces, face};
    switch (state().get().kind()) {
      case Kind::nominal:
        handleNominal(input);
        break;
      case Kind::inattention:
        handleInattention(input);
        break;
      case Kind::alert:
        handleAlert(input);
        break;
      default:
        break;
    }
    return state().get().kind();
  }
};

struct Step {
  std::int64_t ms;
  std::int64_t faces;
  std::optional<FaceData> face;
  Kind expected;
};

struct Scene {
  std::string name;
  std::vector<Step> steps;
};

class FilterFsmScene : public testing::TestWithParam<Scene> {};

TEST_P(FilterFsmScene, ReachesTheStates) {
  Machine machine;
  machine.activate();
  for (const Step& step : GetParam().steps)
    EXPECT_EQ(machine.frame(step.ms, step.faces, step.face), step.expected) << "at " << step.ms << " ms";
}

constexpr auto nominal = Kind::nominal;
constexpr auto inattention = Kind::inattention;
constexpr auto alert = Kind::alert;
constexpr std::optional<FaceData> nobody;

INSTANTIATE_TEST_SUITE_P(
    Tables, FilterFsmScene,
    testing::Values(Scene{"delay",
                          {{0, 1, away, nominal}, {1499, 1, away, nominal}, {1500, 1, away, inattention}}},
                    Scene{"delayRestarts",
                          {{0, 1, away, nominal},
                           {1400, 1, looking, nominal},
                           {1500, 1, away, nominal},
                           {2999, 1, away, nominal},
                           {3000, 1, away, inattention},
                           {3001, 1, looking, nominal},
                           {3002, 1, away, nominal},
                           {4501, 1, away, nominal},
                           {4502, 1, away, inattention}}},
                    Scene{"nobodyKeepsTheDelayRunning",
                          {{0, 1, away, nominal}, {700, 0, nobody, nominal}, {1500, 1, away, inattention}}},
                    Scene{"yawBoundary",
                          {{0, 1, FaceData{30, 0, 0.2F}, nominal},
                           {1500, 1, FaceData{-30, 0, 0.2F}, inattention},
                           {1501, 1, FaceData{-29.9F, 0, 0.2F}, nominal}}},
                    Scene{"pitchBoundary",
                          {{0, 1, FaceData{0, -25, 0.2F}, nominal},
                           {1500, 1, FaceData{0, 25, 0.2F}, inattention},
                           {1501, 1, FaceData{0, 24.9F, 0.2F}, nominal}}},
                    Scene{"confirmation",
                          {{0, 2, looking, nominal},
                           {499, 2, looking, nominal},
                           {500, 1, looking, nominal},
                           {501, 2, looking, nominal},
                           {1000, 2, looking, nominal},
                           {1001, 2, looking, alert}}},
                    Scene{"vanishedAfterTurningAway",
                          {{0, 0, nobody, nominal},
                           {100, 1, away, nominal},
                           {1600, 1, away, inattention},
                           {1700, 2, away, inattention},
                           {1800, 0, nobody, alert}}},
                    Scene{"confirmationFromInattention",
                          {{0, 1, away, nominal},
                           {1500, 1, away, inattention},
                           {1600, 2, away, inattention},
                           {2099, 2, away, inattention},
                           {2100, 2, away, alert}}},
                    Scene{"recovery",
                          {{0, 2, looking, nominal},
                           {500, 2, looking, alert},
                           {600, 1, away, alert},
                           {3599, 0, nobody, alert},
                           {3600, 2, looking, alert},
                           {3700, 1, away, alert},
                           {6699, 1, away, alert},
                           {6700, 0, nobody, nominal}}},
                    Scene{"thirdAlertIsHeld",
                          {{0, 2, looking, nominal},
                           {500, 2, looking, alert},
                           {600, 1, looking, alert},
                           {3600, 1, looking, nominal},
                           {3700, 2, looking, nominal},
                           {4200, 2, looking, alert},
                           {4300, 1, looking, alert},
                           {7300, 1, looking, nominal},
                           {7400, 2, looking, nominal},
                           {7900, 2, looking, alert},
                           {8000, 1, looking, alert},
                           {37899, 1, looking, alert},
                           {37900, 1, looking, alert},
                           {40899, 1, looking, alert},
                           {40900, 1, looking, nominal}}},
                    Scene{"thirdAlertAfterTheWindow",
                          {{0, 2, looking, nominal},
                           {500, 2, looking, alert},
                           {600, 1, looking, alert},
                           {3600, 1, looking, nominal},
                           {3700, 2, looking, nominal},
                           {4200, 2, looking, alert},
                           {4300, 1, looking, alert},
                           {7300, 1, looking, nominal},
                           {15000, 2, looking, nominal},
                           {15501, 2, looking, alert},
                           {15600, 1, looking, alert},
                           {18600, 1, looking, nominal}}},
                    Scene{"thirdAlertOnTheWindowsEdge",
                          {{0, 2, looking, nominal},
                           {500, 2, looking, alert},
                           {600, 1, looking, alert},
                           {3600, 1, looking, nominal},
                           {3700, 2, looking, nominal},
                           {4200, 2, looking, alert},
                           {4300, 1, looking, alert},
                           {7300, 1, looking, nominal},
                           {15000, 2, looking, nominal},
                           {15500, 2, looking, alert},
                           {15600, 1, looking, alert},
                           {18600, 1, looking, alert}}}),
    [](const auto& scene) { return scene.param.name; });

TEST(FilterFsm, SystemEvents) {
  const auto paused = [](PauseReason reason) { return FilterState::autoPaused(reason); };
  const auto lowBattery = paused(PauseReason::lowBattery());
  const auto screenOff = paused(PauseReason::screenOff());
  const auto userPaused = paused(PauseReason::userPaused(60000));
  const auto busy = FilterState::cameraBusy(5000);
  const auto resumed = FilterState::nominal(4);
  const auto none = std::vector<FilterState>{};
  const struct {
    FilterState from;
    Event event;
    std::vector<FilterState> published;
  } cases[] = {
      {FilterState::inactive(), Event(Event::userPause, 60000), {userPaused}},
      {FilterState::alert(), Event::screenOff, {screenOff}},
      {screenOff, Event::screenOff, none},
      {userPaused, Event::screenOn, {resumed}},
      {lowBattery, Event::screenOn, {resumed}},
      {busy, Event::screenOn, none},
      {FilterState::inactive(), Event::screenOn, none},
      {FilterState::inactive(), Event::batteryLow, {lowBattery}},
      {lowBattery, Event::batteryRecovered, {resumed}},
      {screenOff, Event::batteryRecovered, none},
      {screenOff, Event::cameraBusy, {busy}},
      {busy, Event::cameraBusy, none},
      {FilterState::cameraBusy(1), Event::cameraBusy, {busy}},
      {FilterState::cameraBusy(1), Event::cameraAvailable, {resumed}},
      {FilterState::alert(), Event::cameraAvailable, none},
  };
  for (const auto& [from, event, expected] : cases) {
    FilterFsm machine;
    machine.settings.filterStrength = 4;
    machine.setState(from);
    std::vector<FilterState> published;
    const auto watch = machine.state().onChange([&](const FilterState& s) { published.push_back(s); });
    machine.onSystemEvent(event);
    EXPECT_EQ(published, expected) << "from " << static_cast<int>(from.kind()) << " on " << event.kind;
  }
}

TEST(FilterFsm, ActivationOnlyLeavesInactiveAndForgetsTimers) {
  Machine machine;
  machine.settings.filterStrength = 5;
  machine.activate();
  EXPECT_EQ(machine.state().get(), FilterState::nominal(5));
  machine.frame(0, 1, away);
  machine.setState(FilterState::inactive());
  machine.activate();
  EXPECT_EQ(machine.frame(1500, 1, away), Kind::nominal) << "the delay starts anew";
  machine.onSystemEvent(Event::screenOff);
  machine.activate();
  EXPECT_EQ(machine.state().get().kind(), Kind::autoPaused);
}

TEST(FilterAlpha, ByStateAndStrength) {
  const auto paused = FilterState::autoPaused(PauseReason::screenOff());
  const struct {
    FilterState state;
    std::int64_t strength;
    float alpha;
  } cases[] = {
      {FilterState::nominal(1), 3, 0.4125F},   {FilterState::inattention(1), 3, 0.6F},
      {FilterState::alert(), 3, 0.75F},        {FilterState::nominal(1), 5, 0.5225F},
      {FilterState::inattention(1), 5, 0.76F}, {FilterState::alert(), 5, 0.8F},
      {FilterState::alert(), 1, 0.55F},        {FilterState::alert(), 2, 0.65F},
      {FilterState::nominal(3), 4, 0.4675F},   {FilterState::alert(), 0, 0.75F},
      {FilterState::alert(), 6, 0.75F},        {paused, 5, 0},
      {FilterState::cameraBusy(5000), 5, 0},   {FilterState::inactive(), 5, 0},
  };
  for (const auto& [state, strength, alpha] : cases)
    EXPECT_NEAR(filterAlpha(state, strength), alpha, 1e-6)
        << static_cast<int>(state.kind()) << ' ' << strength;
}

}  // namespace
}  // namespace sentrel
