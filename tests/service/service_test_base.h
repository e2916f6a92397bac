// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include "support/core_room.h"

namespace sentrel::test {

/// Tests of the service within the whole core.
class ServiceTestBase : public testing::Test, protected CoreRoom {
 protected:
  using CoreRoom::CoreRoom;

  [[nodiscard]] bool isWatching() const {
    return state() == FilterState::Kind::nominal || state() == FilterState::Kind::inattention ||
           state() == FilterState::Kind::alert;
  }
  [[nodiscard]] FilterState::Kind state() const { return service->fsmState().get().kind(); }
  [[nodiscard]] std::size_t observers() const { return desktop.observers(); }

  /// While on: of the session, the battery and the keys.
  static constexpr std::size_t observersWhileOn = 3;
};

}  // namespace sentrel::test
