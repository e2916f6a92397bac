// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel::test {

/// What defaults_kill_writer tells: before it sets `number`, and once that is in the file.
struct KillStep {
  std::int64_t number = 0;
  std::int64_t isWritten = 0;  // a bool without padding
};

}  // namespace sentrel::test
