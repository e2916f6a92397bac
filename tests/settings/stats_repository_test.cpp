// SPDX-License-Identifier: Apache-2.0
#include "settings/stats_repository.h"

#include <gmock/gmock.h>

#include <limits>
#include <vector>

namespace sentrel {
namespace {

class StatsRepositoryTest : public testing::Test {
 protected:
  [[nodiscard]] FilterStats loaded() const { return StatsRepository(store).stats.get(); }

  std::shared_ptr<MemoryUserDefaults> store = std::make_shared<MemoryUserDefaults>();
};

TEST_F(StatsRepositoryTest, CountersAreStoredWithEveryChangeUnderTheirKeys) {
  EXPECT_EQ(loaded(), FilterStats{});
  StatsRepository repository(store);
  std::vector<FilterStats> seen;
  const auto watch = repository.stats.onChange([&](const FilterStats& stats) { seen.push_back(stats); });
  repository.incrementAlerts();
  repository.incrementAlerts();
  repository.incrementSessions();
  repository.addActiveSeconds(90);
  repository.addActiveSeconds(-30);
  repository.addActiveSeconds(0);
  EXPECT_THAT(seen,
              testing::ElementsAre(FilterStats{1, 0, 0}, FilterStats{2, 0, 0}, FilterStats{2, 1, 0},
                                   FilterStats{2, 1, 90}, FilterStats{2, 1, 60}, FilterStats{2, 1, 60}));
  EXPECT_EQ(store->value("stats_alert_count"), DefaultsValue(std::int64_t{2}));
  EXPECT_EQ(store->value("stats_session_count"), DefaultsValue(std::int64_t{1}));
  EXPECT_EQ(store->value("stats_total_active_seconds"), DefaultsValue(std::int64_t{60}));
  EXPECT_EQ(loaded(), (FilterStats{2, 1, 60}));
  repository.reset();
  EXPECT_EQ(seen.back(), FilterStats{});
  EXPECT_EQ(store->value("stats_session_count"), DefaultsValue(std::int64_t{0}));
  EXPECT_EQ(loaded(), FilterStats{});
}

TEST_F(StatsRepositoryTest, AnObserversResetIsWhatIsStored) {
  StatsRepository repository(store);
  const auto watch = repository.stats.onChange([&](const FilterStats& stats) {
    if (stats.alertCount == 1) repository.reset();
  });
  repository.incrementAlerts();
  EXPECT_EQ(loaded(), FilterStats{});
}

TEST_F(StatsRepositoryTest, OddStoredValuesPassOrCountAsNone) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  store->set("stats_alert_count", largest);
  store->set("stats_session_count", 3.0F);
  store->set("stats_total_active_seconds", std::int64_t{-5});
  StatsRepository repository(store);
  EXPECT_EQ(repository.stats.get(), (FilterStats{largest, 0, -5}));
  EXPECT_DEATH(repository.incrementAlerts(), "overflow");
}

TEST(FilterStatsCoding, EveryKeyIsNeededAndOfItsKind) {
  const FilterStats stats{1, -2, 3};
  EXPECT_EQ(std::get<FilterStats>(decodeFilterStats(encode(stats))), stats);
  for (const std::string key : {"alertCount", "sessionCount", "totalActiveSeconds"}) {
    KeyedDocument document = encode(stats);
    document.set(key, 1.0F);
    EXPECT_EQ(std::get<DecodingError>(decodeFilterStats(document)),
              (DecodingError{DecodingError::Kind::mistyped, key}));
    document.remove(key);
    EXPECT_EQ(std::get<DecodingError>(decodeFilterStats(document)),
              (DecodingError{DecodingError::Kind::missing, key}));
  }
}

}  // namespace
}  // namespace sentrel
