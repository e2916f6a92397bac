// SPDX-License-Identifier: Apache-2.0
#include "platform/capture_session.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace sentrel {
namespace {

TEST(CameraConsent, WhoWaitsLongestGivesUpAndNobodyIsTwiceAnswered) {
  CameraConsent consent(false);
  std::map<int, std::vector<bool>> answers;
  constexpr int requests = 1000;
  for (int i = 0; i < requests; ++i) consent.request([&, i](bool given) { answers[i].push_back(given); });
  EXPECT_EQ(answers.size(), requests - CameraConsent::mostWaiting);
  consent.answer(true);
  consent.request([&](bool given) { answers[requests].push_back(given); });
  for (const auto& [number, told] : answers) {
    const bool waited = number >= requests - static_cast<int>(CameraConsent::mostWaiting);
    EXPECT_EQ(told, std::vector{waited}) << number;
  }
}

}  // namespace
}  // namespace sentrel
