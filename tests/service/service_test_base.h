// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include "support/core_room.h"

namespace sentrel::test {

/// Tests of the service within the whole core.
class ServiceTestBase : public testing::Test, protected CoreRoom {
 protected:
  [[nodiscard]] FilterState::Kind state() const { return service->fsmState().get().kind(); }
  [[nodiscard]] std::size_t observers() const {
    return room.session->wasInterrupted.observerCount() + room.session->interruptionEnded.observerCount() -
           observersOfManager + desktop.observers();
  }

  static constexpr std::size_t observersOfManager = 2;
  /// While on: of the camera's two signals, the session, the battery and the keys.
  static constexpr std::size_t observersWhileOn = 5;
};

}  // namespace sentrel::test
