// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace sentrel::test {

/// How often this process has asked the C library for memory so far, by whatever way, on any thread. 0 under
/// a sanitizer, which brings an allocator of its own; no other program comes to its tests without one.
[[nodiscard]] std::size_t allocationCount();

}  // namespace sentrel::test
