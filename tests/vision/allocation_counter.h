// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace sentrel::test {

/// How often this process has asked the C library for memory so far, by whatever way, on any thread. Counts
/// nothing under a sanitizer, which brings an allocator of its own.
[[nodiscard]] std::size_t allocationCount();
[[nodiscard]] bool countsAllocations();

}  // namespace sentrel::test
