// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

namespace sentrel::fuzz {

using Bytes = std::span<const std::uint8_t>;

/// What must hold whatever the input is. The fuzzer keeps the input for which it does not.
inline void require(bool holds) {
  if (!holds) std::abort();
}

/// What stands before the bytes of a camera's frame.
struct FrameHeader {
  std::uint8_t pixels = 0;  ///< a PixelFormat
  std::uint8_t blocks = 1;  ///< 1 to 3, of which each gets its part of the bytes
  std::uint8_t flags = 0;   ///< of the first chunk
  std::uint8_t target = 0;  ///< the number of the size that is asked for
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::int32_t stride = 0;   ///< of every chunk
  std::uint32_t offset = 0;  ///< of the first chunk
  std::uint32_t size = 0;    ///< of the first chunk
};
static_assert(sizeof(FrameHeader) == 20);

}  // namespace sentrel::fuzz
