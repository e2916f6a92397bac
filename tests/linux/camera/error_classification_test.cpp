// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/error_classification.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

namespace sentrel::test {
namespace {

TEST(ErrorClassification, ReadsTheKindOffTheText) {
  using Kind = CaptureError::Kind;
  const std::array cases{
      std::pair{"start error -16: Device or resource busy", Kind::busy},
      std::pair{"error changing node state: Permission denied", Kind::accessDenied},
      std::pair{"open failed: Operation not permitted", Kind::accessDenied},
      std::pair{"no node available", Kind::deviceUnavailable},
      std::pair{"", Kind::deviceUnavailable},
  };
  for (const auto& [message, kind] : cases) {
    const CaptureError error = captureErrorFrom(message);
    EXPECT_EQ(error.kind, kind) << message;
    EXPECT_EQ(error.message, message);
  }
}

}  // namespace
}  // namespace sentrel::test
