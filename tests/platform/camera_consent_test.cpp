// SPDX-License-Identifier: Apache-2.0
#include "platform/capture_session.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

TEST(CameraConsent, WhoWaitsLongestGivesUpAndNobodyIsTwiceAnswered) {
  CameraConsent consent(false);
  std::vector<int> refused;
  std::vector<int> agreed;
  const auto request = [&](int who) {
    consent.request([&, who](bool given) { (given ? agreed : refused).push_back(who); });
  };
  for (int who = 0; who < 10; ++who) request(who);
  consent.answer(true);
  request(10);
  EXPECT_THAT(refused, testing::ElementsAre(0, 1));
  EXPECT_THAT(agreed, testing::ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10));
}

}  // namespace
}  // namespace sentrel
