// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QString>
#include <cstdlib>
#include <string>
#include <thread>

namespace sentrel {
namespace {

TEST(ActivationToken, ComesAndGoesWithoutMovingTheEnvironmentUnderOthers) {
  constexpr const char* variable = "XDG_ACTIVATION_TOKEN";
  ::setenv(variable, "own", 1);
  ::setenv("LAST_OF_ALL", "there", 1);
  ::setenv("ANOTHER", "there", 1);
  reserveActivationToken();
  EXPECT_STREQ(std::getenv(variable), "own");
  ::unsetenv("ANOTHER");  // as Qt removes what it has read
  char** const before = environ;
  {
    const std::jthread reader([](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        const char* value = std::getenv("LAST_OF_ALL");
        ASSERT_NE(value, nullptr);
        ASSERT_STREQ(value, "there");
      }
    });
    for (int i = 0; i < 20'000; ++i) {
      const std::string token = "token-" + std::to_string(i);
      adoptActivationToken({{QStringLiteral("activation-token"), QString::fromStdString(token)}});
      ASSERT_STREQ(std::getenv(variable), token.c_str());
      if (i % 3 != 0) ::unsetenv(variable);  // as Qt does once it has used one
      ASSERT_EQ(environ, before);
    }
  }
  adoptActivationToken({});
  EXPECT_EQ(std::getenv(variable), nullptr) << "no token leaves things as they are";
  adoptActivationToken({{QStringLiteral("activation-token"), QString(100'000, u'x')}});
  EXPECT_STREQ(std::getenv("LAST_OF_ALL"), "there");
}

}  // namespace
}  // namespace sentrel
