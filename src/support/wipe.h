// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <span>

namespace sentrel {

/// Overwrites what a picture left, in a way that the compiler keeps. Empty memory is left alone.
template <class T>
void wipe(std::span<T> memory) noexcept {
  if (!memory.empty()) explicit_bzero(memory.data(), memory.size_bytes());
}

}  // namespace sentrel
