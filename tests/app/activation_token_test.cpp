// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace sentrel {
namespace {

TEST(ActivationToken, ComesAndGoesWithoutMovingTheEnvironmentUnderOthers) {
  constexpr const char* variable = "XDG_ACTIVATION_TOKEN";
  const auto adopt = [](const QString& token) {
    adoptActivationToken({{QStringLiteral("activation-token"), token}});
  };
  ::setenv(variable, "own", 1);
  ::setenv("ANOTHER", "there", 1);
  reserveActivationToken();
  EXPECT_STREQ(std::getenv(variable), "own");
  ::unsetenv("ANOTHER");  // as Qt removes what it has read
  char** const before = environ;
  for (const char* token : {"first", "second"}) {
    adopt(QString::fromLatin1(token));
    EXPECT_STREQ(std::getenv(variable), token);
  }
  ::unsetenv(variable);  // as Qt does once it has used one
  adoptActivationToken({});
  EXPECT_EQ(std::getenv(variable), nullptr) << "no token leaves things as they are";
  adopt(QString(100'000, u'x'));
  EXPECT_EQ(std::getenv(variable), nullptr) << "nor one without end";
  adopt(QStringLiteral("third"));
  EXPECT_STREQ(std::getenv(variable), "third");
  EXPECT_EQ(environ, before);
}

}  // namespace
}  // namespace sentrel
