// SPDX-License-Identifier: Apache-2.0
#include "desktop/expected_transitions.h"

#include <cmath>
#include <optional>
#include <span>

namespace sentrel::test {

namespace {

using Kind = FilterState::Kind;
using Records = std::span<const DetectionInput>;

bool hasOnlooker(const DetectionInput& record) {
  return record.faceCount >= 2;
}

bool looks(const DetectionInput& record) {
  return record.primaryFace && std::abs(record.primaryFace->eulerY) < 30 &&
         std::abs(record.primaryFace->eulerX) < 25;
}

/// How long, up to the last of the records, all of them satisfied `condition`; none when the last does not.
template <typename Condition>
std::optional<std::int64_t> heldFor(Records records, Condition condition) {
  std::optional<std::int64_t> since;
  for (std::size_t i = records.size(); i > 0 && condition(records[i - 1]); --i)
    since = records[i - 1].timestampMs;
  return since ? std::optional(records.back().timestampMs - *since) : std::nullopt;
}

/// How long the user has looked away: since the first such record after the last look at the screen. Records
/// with an onlooker or without a face neither begin nor end it.
std::int64_t lookedAwayFor(Records records) {
  std::int64_t since = records.back().timestampMs;
  for (std::size_t i = records.size(); i > 0; --i) {
    const auto& record = records[i - 1];
    if (hasOnlooker(record) || !record.primaryFace) continue;
    if (looks(record)) break;
    since = record.timestampMs;
  }
  return records.back().timestampMs - since;
}

/// The state that the last record asks for. `sinceEntry` are those since the entry into `state`, `run` those
/// since the last alert or return to the screen: an onlooker may be there before and after an inattention
/// begins.
Kind asked(Kind state, Records sinceEntry, Records run, std::int64_t inattentionDelayMs) {
  const DetectionInput& record = sinceEntry.back();
  if (state == Kind::alert) {
    const auto alone = heldFor(sinceEntry, [](const auto& r) { return !hasOnlooker(r); });
    return alone && *alone >= 3000 ? Kind::nominal : Kind::alert;
  }
  if (const auto watched = heldFor(run, hasOnlooker)) return *watched >= 500 ? Kind::alert : state;
  if (state == Kind::inattention) {
    if (!record.primaryFace) return Kind::alert;
    return looks(record) ? Kind::nominal : Kind::inattention;
  }
  const bool away = record.primaryFace && !looks(record);
  return away && lookedAwayFor(sinceEntry) >= inattentionDelayMs ? Kind::inattention : Kind::nominal;
}

}  // namespace

std::vector<Transition> expectedTransitions(const std::vector<DetectionInput>& records,
                                            std::int64_t inattentionDelayMs) {
  std::vector<Transition> result;
  Kind state = Kind::nominal;
  std::size_t entry = 0;  // first record in this state
  std::size_t run = 0;    // first record after the last alert or return
  const Records all(records);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Kind next =
        asked(state, all.subspan(entry, i - entry + 1), all.subspan(run, i - run + 1), inattentionDelayMs);
    if (next == state) continue;
    result.push_back({i, next});
    entry = i + 1;
    if (next != Kind::inattention) run = i + 1;
    state = next;
  }
  return result;
}

}  // namespace sentrel::test
