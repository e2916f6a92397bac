// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "stage/virtual_camera.h"

namespace sentrel::test {

/// Bytes that a picture of this size takes at most.
[[nodiscard]] std::size_t encodedCapacity(VirtualCamera::Format format, int width, int height);
/// Bytes from row to row of the first plane; 0 for a compressed format.
[[nodiscard]] int encodedStride(VirtualCamera::Format format, int width);

/// Encodes BGRA pixels as a camera would, without padding, into `target`; gives the bytes written, or 0 where
/// they do not fit.
std::size_t encodePicture(VirtualCamera::Format format, const std::uint8_t* bgra, int width, int height,
                          std::span<std::uint8_t> target);

}  // namespace sentrel::test
