// SPDX-License-Identifier: Apache-2.0
//
// The machine against a model of another shape: it keeps no timers but the whole log of what happened, and
// answers every question by looking back through it.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <vector>

#include "detection/filter_fsm.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using Event = FilterFsm::SystemEvent;

class LogModel {
 public:
  FilterSettings settings;
  FilterState state = FilterState::inactive();

  void activate() {
    if (state.is(Kind::inactive)) resume();
  }

  void event(const Event& event) {
    const bool paused = state.is(Kind::autoPaused);
    const bool battery = paused && state.reason().kind() == PauseReason::Kind::lowBattery;
    switch (event.kind) {
      case Event::userPause:
        state = FilterState::autoPaused(PauseReason::userPaused(event.durationMs));
        break;
      case Event::screenOff:
        state = FilterState::autoPaused(PauseReason::screenOff());
        break;
      case Event::batteryLow:
        state = FilterState::autoPaused(PauseReason::lowBattery());
        break;
      case Event::cameraBusy:
        state = FilterState::cameraBusy(5000);
        break;
      case Event::screenOn:
        if (paused) resume();
        break;
      case Event::batteryRecovered:
        if (battery) resume();
        break;
      case Event::cameraAvailable:
        if (state.is(Kind::cameraBusy)) resume();
        break;
    }
  }

  void frame(const DetectionInput& input) {
    const bool watched = state.is(Kind::nominal) || state.is(Kind::inattention);
    if (!watched && !state.is(Kind::alert)) return;
    const bool crowd = input.faceCount > 1;
    const bool lookingFace = input.primaryFace && std::abs(input.primaryFace->eulerY) < 30 &&
                             std::abs(input.primaryFace->eulerX) < 25;
    log_.push_back({state.kind(), input.timestampMs, crowd, input.primaryFace.has_value(), lookingFace});
    if (watched && crowd && input.timestampMs - crowdSince() >= 500) {
      alert(input.timestampMs);
    } else if (state.is(Kind::inattention) && !crowd) {
      if (!input.primaryFace) {
        alert(input.timestampMs);
      } else if (lookingFace) {
        resume();
      }
    } else if (state.is(Kind::nominal) && !crowd && input.primaryFace && !lookingFace &&
               input.timestampMs - awaySince() >= settings.inattentionDelayMs) {
      state = FilterState::inattention(settings.filterStrength);
    } else if (state.is(Kind::alert) && !crowd && input.timestampMs >= lockedUntil() &&
               input.timestampMs - calmSince() >= 3000) {
      log_.push_back({Kind::inactive, input.timestampMs, true, false, false});  // ends the calm run
      resume();
    }
  }

 private:
  struct Entry {
    Kind handledIn;  // inactive marks a note of the model's own
    std::int64_t ms;
    bool crowd;
    bool face;
    bool looking;
    bool resumed = false;
    bool alertEntry = false;
  };

  void resume() {
    state = FilterState::nominal(settings.filterStrength);
    log_.push_back({Kind::inactive, 0, false, false, false, true});
  }

  void alert(std::int64_t ms) {
    state = FilterState::alert();
    log_.push_back({Kind::inactive, ms, false, false, false, false, true});
  }

  /// First frame of the run of crowded frames that the log ends in.
  [[nodiscard]] std::int64_t crowdSince() const {
    std::int64_t since = log_.back().ms;
    for (auto e = log_.rbegin(); e != log_.rend() && !e->resumed && !e->alertEntry; ++e) {
      if (e->handledIn != Kind::nominal && e->handledIn != Kind::inattention) continue;
      if (!e->crowd) break;
      since = e->ms;
    }
    return since;
  }

  /// First look away after the last look at the screen.
  [[nodiscard]] std::int64_t awaySince() const {
    std::int64_t since = log_.back().ms;
    for (auto e = log_.rbegin(); e != log_.rend() && !e->resumed; ++e) {
      if (e->handledIn != Kind::nominal || e->crowd || !e->face) continue;
      if (e->looking) break;
      since = e->ms;
    }
    return since;
  }

  /// First frame of the run of calm frames seen in alert, which a pause in between does not end.
  [[nodiscard]] std::int64_t calmSince() const {
    std::int64_t since = log_.back().ms;
    for (auto e = log_.rbegin(); e != log_.rend(); ++e) {
      if (e->handledIn == Kind::inactive && e->crowd) break;
      if (e->handledIn != Kind::alert) continue;
      if (e->crowd || e->ms < lockedUntilAt(e->ms)) break;
      since = e->ms;
    }
    return since;
  }

  [[nodiscard]] std::int64_t lockedUntil() const { return lockedUntilAt(log_.back().ms); }

  /// Replays every alert entry up to `ms`: three within 15 s lock the third one for 30 s.
  [[nodiscard]] std::int64_t lockedUntilAt(std::int64_t ms) const {
    std::int64_t window = 0;
    std::int64_t until = 0;
    int entries = 0;
    for (const Entry& e : log_) {
      if (!e.alertEntry || e.ms > ms) continue;
      if (e.ms - window > 15000) {
        window = e.ms;
        entries = 0;
      }
      if (++entries == 3) {
        until = e.ms + 30000;
        entries = 0;
      }
    }
    return until;
  }

  std::vector<Entry> log_;
};

TEST(FilterFsmModel, AgreesOnRandomSequences) {
  constexpr std::int64_t gaps[] = {1, 33, 100, 101, 250, 499, 500, 1000, 1500, 3000, 15000};
  constexpr float yaws[] = {0, -29.5F, 30, 60};
  std::size_t alerts = 0;
  std::size_t inattentions = 0;
  for (unsigned seed = 0; seed < 600; ++seed) {
    std::mt19937 random(seed);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    FilterFsm machine;
    LogModel model;
    std::vector<FilterState> published;
    const auto watch = machine.state().subscribe([&](const FilterState& s) {
      EXPECT_TRUE(published.empty() || published.back() != s) << "a repeat was published";
      published.push_back(s);
    });
    std::int64_t now = 1'700'000'000'000;
    int faces = 1;
    int yaw = 0;
    for (int step = 0; step < 300; ++step) {
      const int dice = pick(100);
      if (dice < 4) {
        machine.activate();
        model.activate();
      } else if (dice < 8) {
        const Event event(static_cast<Event::Kind>(pick(7)), pick(2));
        machine.onSystemEvent(event);
        model.event(event);
      } else if (dice == 8) {
        machine.settings.filterStrength = model.settings.filterStrength = 1 + pick(5);
        machine.settings.inattentionDelayMs = model.settings.inattentionDelayMs = 500 * (1 + pick(4));
      } else {
        // Runs of alike frames, so that delays are lived through and not only begun.
        if (dice < 17) faces = std::max(pick(5) - 1, pick(2));
        if (dice > 89) yaw = pick(4);
        now += gaps[pick(dice < 60 ? 5 : 11)];
        DetectionInput input{now, faces, FaceData{yaws[yaw], pick(20) == 0 ? 25.0F : 0.0F, 0.2F}};
        if (faces == 0 || pick(30) == 0) input.primaryFace.reset();
        switch (machine.state().get().kind()) {
          case Kind::nominal:
            machine.handleNominal(input);
            break;
          case Kind::inattention:
            machine.handleInattention(input);
            break;
          case Kind::alert:
            machine.handleAlert(input);
            break;
          default:
            break;
        }
        model.frame(input);
      }
      ASSERT_EQ(machine.state().get(), model.state) << "seed " << seed << ", step " << step;
      alerts += model.state.is(Kind::alert) ? 1U : 0U;
      inattentions += model.state.is(Kind::inattention) ? 1U : 0U;
    }
  }
  // The sequences must reach what they are to compare.
  EXPECT_GT(alerts, 10000U);
  EXPECT_GT(inattentions, 2000U);
}

}  // namespace
}  // namespace sentrel
