// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace sentrel {

/// The number of a screen of this name: the same in every process and after every replugging (FNV-1a).
[[nodiscard]] constexpr std::uint64_t screenIdOf(std::string_view name) {
  std::uint64_t hash = 0xCBF29CE484222325ULL;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
  return hash;
}

}  // namespace sentrel
