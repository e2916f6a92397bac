// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace sentrel {

/// What became of the pictures of the camera since the start of the process. Any thread.
struct CaptureCounters {
  std::atomic<std::int64_t> arrived{0};     ///< buffers of any kind
  std::atomic<std::int64_t> broken{0};      ///< dropped because they could not be trusted or read
  std::atomic<std::int64_t> superseded{0};  ///< dropped for a newer one, never converted
  std::atomic<std::int64_t> noRoom{0};      ///< dropped because every pooled frame was in use
  std::atomic<std::int64_t> handedOn{0};
};

}  // namespace sentrel
