// SPDX-License-Identifier: Apache-2.0
#include "platform/platform.h"

#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {
std::unique_ptr<const Platform>& installed() {
  static std::unique_ptr<const Platform> platform;
  return platform;
}
}  // namespace

void Platform::install(Platform platform) {
  if (installed()) fatal("a platform is already installed");
  installed() = std::make_unique<const Platform>(std::move(platform));
}

const Platform& Platform::current() {
  if (!installed()) fatal("no platform is installed");
  return *installed();
}

}  // namespace sentrel
