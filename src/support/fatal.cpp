// SPDX-License-Identifier: Apache-2.0
#include "support/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace sentrel {

void fatal(std::string_view message) {
  std::fprintf(stderr, "sentrel: fatal: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace sentrel
